#pragma once
// Orbit files the command line writes and reads beside the runs: `sp3-to-pnm`, `pnm-eval`
// and `nav-rinex`.

#include <functional>

#include "app/commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> Sp3ToPnmCommand(CLI::App& parser);
std::function<int(CommandContext&)> PnmEvalCommand(CLI::App& parser);
std::function<int(CommandContext&)> NavRinexCommand(CLI::App& parser);

}  // namespace vorel::app
