#pragma once
// The map as a run's display: a run's DisplaySink hands it the receiver and the display
// rows at every display tick (each 1000th epoch of the program start), and it draws them
// on the sky layer, leaving tracks until the next run clears the layer.
//
// A web server reads the layers from another thread than the run's worker: every access
// to the scene goes through this class, under its lock.

#include <mutex>
#include <vector>

#include "display/map_layers.h"
#include "observation/epoch_sink.h"

namespace vorel::display {

class MapDisplay : public observation::EpochDisplay {
 public:
  void ClearSkyPlot() override;
  void UpdateMapScene(double latitudeRad, double longitudeRad,
                      const std::vector<observation::DisplayRow>& rows, int32_t labelled) override;

  // Runs `draw` on the scene under the lock (drawing a TEC map, the bubble ...).
  template <typename F>
  void Edit(F&& draw) {
    std::lock_guard<std::mutex> hold(lock_);
    draw(scene_);
  }
  // One layer as PNG bytes, and the layers composed at the given opacities.
  std::vector<uint8_t> LayerPng(MapLayer layer) const;
  std::vector<uint8_t> ComposedPng(const MapOpacities& opacities) const;
  // How many display ticks reached the sky layer since the program started.
  int updates() const;

 private:
  mutable std::mutex lock_;
  MapScene scene_;
  int updates_ = 0;
};

}  // namespace vorel::display
