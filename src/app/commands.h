#pragma once
// The commands of the `vorel` front end: each one of the program's commands under a
// name, with its own options.

#include <functional>
#include <string>
#include <vector>

#include "app/session.h"
#include "app/startup.h"

namespace CLI {
class App;
}

namespace vorel::app {

struct CommandContext {
  Session& session;
  const GlobalOptions& global;
};

struct CommandEntry {
  std::string name;
  std::string usage;    // arguments as shown in the command list
  std::string summary;  // one line
  bool worker = false;  // runs on the worker thread with progress and Ctrl-C stop
  // Declares the command's options on `parser` and returns the action that uses them.
  std::function<std::function<int(CommandContext&)>(CLI::App& parser)> setup;
  bool needsOrbits = false;    // a missing OrbitFile is reported when none are loaded
  bool writesNothing = false;  // start-up need not make the data directory for it
};

const std::vector<CommandEntry>& CommandTable();

// Asks the user to confirm unless --yes was given; a closed input counts as no.
bool Confirm(const CommandContext& context, const std::string& question);

}  // namespace vorel::app
