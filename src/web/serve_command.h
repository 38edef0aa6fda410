#pragma once
// `vorel serve`: the local web interface.

#include <functional>

#include "app/commands.h"

namespace vorel::web {

std::function<int(app::CommandContext&)> ServeCommand(CLI::App& parser);

}  // namespace vorel::web
