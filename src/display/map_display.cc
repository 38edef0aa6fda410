#include "display/map_display.h"

namespace vorel::display {

void MapDisplay::ClearSkyPlot() {
  std::lock_guard<std::mutex> hold(lock_);
  scene_.layer(MapLayer::kSkyPlot).Clear();
}

void MapDisplay::UpdateMapScene(double latitudeRad, double longitudeRad,
                                const std::vector<observation::DisplayRow>& rows,
                                int32_t labelled) {
  std::lock_guard<std::mutex> hold(lock_);
  display::UpdateMapScene(scene_.layer(MapLayer::kSkyPlot), latitudeRad, longitudeRad, rows,
                          labelled);
  ++updates_;
}

std::vector<uint8_t> MapDisplay::LayerPng(MapLayer layer) const {
  std::lock_guard<std::mutex> hold(lock_);
  return scene_.layer(layer).EncodePng();
}

std::vector<uint8_t> MapDisplay::ComposedPng(const MapOpacities& opacities) const {
  std::lock_guard<std::mutex> hold(lock_);
  return ComposeMapLayers(scene_, opacities).EncodePng();
}

int MapDisplay::updates() const {
  std::lock_guard<std::mutex> hold(lock_);
  return updates_;
}

}  // namespace vorel::display
