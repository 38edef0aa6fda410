#pragma once
// The scintillation tools of the command line: `scint-load`, `scint-fit`, `scint-generate`
// and `scint-table`.

#include <functional>

#include "app/commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> ScintLoadCommand(CLI::App& parser);
std::function<int(CommandContext&)> ScintFitCommand(CLI::App& parser);
std::function<int(CommandContext&)> ScintGenerateCommand(CLI::App& parser);
std::function<int(CommandContext&)> ScintTableCommand(CLI::App& parser);

}  // namespace vorel::app
