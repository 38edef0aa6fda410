#pragma once
// The map and the profile plot as PNG pictures: `map` draws the TEC map's layers for the
// scenario's time and settings, and the profile command's --plot option draws its plot.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "app/commands.h"
#include "display/tec_grid.h"

namespace CLI {
class App;
}

namespace vorel::app {

std::function<int(CommandContext&)> MapCommand(CLI::App& parser);

// The TEC map of `model` the settings ask for: the scenario's month and hour, solarFlux,
// and the scenario start's time of week.
display::TecMapRequest TecMapRequestOf(const Settings& settings, int32_t model);

// Writes PNG bytes through a temporary name; false with `error` naming the file.
bool WritePng(const std::filesystem::path& path, const std::vector<uint8_t>& png,
              std::string& error);

// The profile plot of the electron density model at a place, with the map settings'
// profileScale and profileColour, written to `path`. Returns 0, or 1 after telling the user.
int WriteProfilePlot(Session& session, double lat, double lon, int month, double hour, double flux,
                     const std::string& path);

}  // namespace vorel::app
