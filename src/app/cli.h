#pragma once
// The `vorel` command line:
//   vorel [--data-dir DIR] [--settings FILE] [--scenario FILE.toml] [--set Name=value]...
//         [--yes] [--quiet] COMMAND [ARGS] [COMMAND [ARGS]]...
// Commands run in order in one program start. Long runs go to a worker thread while the
// front end shows progress and turns the first Ctrl-C into a stop.

#include <string>
#include <vector>

namespace vorel::app {

// Runs the command line; returns the process exit status: 0 when every command
// succeeded, 1 when a command failed, 2 for a usage error or a settings error.
int RunCli(const std::vector<std::string>& arguments);

}  // namespace vorel::app
