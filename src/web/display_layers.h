#pragma once
// The map renderer of the display module behind the server's layer endpoints: the base
// picture and the graticule drawn once, the sky plot drawn by the runs.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "display/map_display.h"
#include "web/map_layers.h"

namespace vorel::web {

// The page's layer names (the map panel's: "overlayLayer", "skyPlotLayer", ...) and the
// display module's short ones ("overlay", "sky", ...).
std::optional<display::MapLayer> MapLayerOf(std::string_view name);

class DisplayMapLayers : public MapLayerSource {
 public:
  // Draws the base picture from the coastlines found for `dataDir`; without them the sea
  // alone, and `warning` says why.
  DisplayMapLayers(const std::filesystem::path& dataDir, std::string& warning);
  bool LayerPng(std::string_view layer, std::string& png) override;
  observation::EpochDisplay* Display() override { return &display_; }

 private:
  display::MapDisplay display_;
};

}  // namespace vorel::web
