#pragma once
// The SP3 utilities of the command line: `sp3-to-pnm` and `pnm-eval`.

#include <functional>

#include "app/commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> Sp3ToPnmCommand(CLI::App& parser);
std::function<int(CommandContext&)> PnmEvalCommand(CLI::App& parser);

}  // namespace vorel::app
