#pragma once
// `vorel check FILE`: which satellites a recording holds, at what Doppler, code phase and
// strength.

#include <functional>

#include "app/commands.h"

namespace vorel::app {

std::function<int(CommandContext&)> CheckCommand(CLI::App& parser);

}  // namespace vorel::app
