#pragma once
// The ionosphere along the ray at the command line: `bubble-rays` (the scenario's first
// epoch, ray by ray) and `bubble-marks` (where this program start's runs crossed the
// bubble's walls).

#include <functional>

#include "app/commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> BubbleRaysCommand(CLI::App& parser);
std::function<int(CommandContext&)> BubbleMarksCommand(CLI::App& parser);

}  // namespace vorel::app
