#include "web/display_layers.h"

#include <utility>
#include <vector>

#include "display/coastlines.h"

namespace vorel::web {

std::optional<display::MapLayer> MapLayerOf(std::string_view name) {
  using display::MapLayer;
  static constexpr std::pair<std::string_view, MapLayer> kPanelNames[] = {
      {"overlayLayer", MapLayer::kOverlay},
      {"klobucharLayer", MapLayer::kKlobuchar},
      {"nequickLayer", MapLayer::kNequick},
      {"skyPlotLayer", MapLayer::kSkyPlot},
      {"bubbleLayer", MapLayer::kBubble}};
  for (const auto& [panelName, layer] : kPanelNames)
    if (name == panelName) return layer;
  return display::ParseMapLayer(name);
}

DisplayMapLayers::DisplayMapLayers(const std::filesystem::path& dataDir, std::string& warning) {
  std::vector<display::Ring> rings;
  if (!display::LoadCoastlines(display::CoastlineSearchDirs(dataDir), rings, warning))
    warning = "map: " + warning + "; the base picture shows no land";
  else
    warning.clear();
  display_.Edit([&](display::MapScene& scene) {
    display::DrawBasePicture(scene.layer(display::MapLayer::kBase), rings);
    display::DrawOverlay(scene.layer(display::MapLayer::kOverlay));
  });
}

bool DisplayMapLayers::LayerPng(std::string_view name, std::string& png) {
  const std::optional<display::MapLayer> layer = MapLayerOf(name);
  if (!layer) return false;
  const std::vector<uint8_t> bytes = display_.LayerPng(*layer);
  png.assign(bytes.begin(), bytes.end());
  return !png.empty();
}

}  // namespace vorel::web
