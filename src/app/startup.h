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
};

// Returns 0, or 2 with `error` when a setting is refused or the data directory cannot
// be made; nothing has run then.
int StartUp(Session& session, const GlobalOptions& options, std::string& error);

// Loads the OrbitFile setting as a YUMA almanac (start-up's own load). Returns the
// loader's result; a file that cannot be opened warns and leaves the orbits invalid.
int LoadStartupOrbits(Session& session);

}  // namespace vorel::app
