#pragma once
// The displays of the command line: `orbit-chart`, `colour-map` and `scene-3d`, and the
// plots of the scintillation tools (`scint-generate --plot`, `scint-load --plot`,
// `scint-fit --plot`, `scint-clear`).

#include <functional>
#include <string>

#include "app/commands.h"
#include "scintillation/scint_commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> OrbitChartCommand(CLI::App& parser);
std::function<int(CommandContext&)> ColourMapCommand(CLI::App& parser);
std::function<int(CommandContext&)> Scene3dCommand(CLI::App& parser);
std::function<int(CommandContext&)> ScintClearCommand(CLI::App& parser);

// The plots of the scintillation commands, drawn from what the command computed; each
// returns 0, or 1 after saying on stderr which file could not be written. An empty
// `path` plots into the session's graph and writes nothing.
int PlotScintSeries(CommandContext& c, const scintillation::ScintCommandResult& r,
                    const std::string& path);
int PlotLoadedTarget(CommandContext& c, const scintillation::ScintCommandResult& r,
                     const std::string& path);
int PlotScintFit(CommandContext& c, const scintillation::ScintCommandResult& r,
                 const std::string& path);

}  // namespace vorel::app
