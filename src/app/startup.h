#pragma once
// Bringing the program up: the data directory, the settings from every source, the
// satellite count, the orbit file and the first re-dating of the orbits.

#include <string>
#include <vector>

#include "app/session.h"

namespace vorel::app {

inline constexpr char kProductName[] = "Vorel GNSS DIF Signal Simulator";
inline constexpr char kVersion[] = "5.1";

struct GlobalOptions {
  std::string dataDir = "VLD";
  std::string settingsFile;  // empty: <data-dir>/settings.txt when it exists
  std::string scenarioFile;
  std::vector<std::string> assignments;  // --set Name=value, in order
  bool yes = false;
  bool quiet = false;
  // Off when every command given writes nothing (about, show-settings, ...): the data
  // directory is then not made.
  bool createDataDir = true;
};

// What start-up leaves for the commands: a problem with the OrbitFile is told only to a
// command that needs orbits and finds none loaded.
struct StartupReport {
  std::string orbitFileProblem;  // empty when the OrbitFile loaded
};

// Returns 0, or 2 with `error` when a setting is refused or the data directory cannot
// be made; nothing has run then. Without a `report` an OrbitFile problem is warned at once.
int StartUp(Session& session, const GlobalOptions& options, std::string& error,
            StartupReport* report = nullptr);

// Loads the OrbitFile setting as a YUMA almanac (start-up's own load). Returns the
// loader's result; a file that cannot be read leaves the orbits invalid, and the problem
// goes to `problem` or, without one, is warned.
int LoadStartupOrbits(Session& session, std::string* problem = nullptr);

}  // namespace vorel::app
