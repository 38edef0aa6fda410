#pragma once
// The map area of the page: a stack of 646 x 475 layers, each a PNG the page fetches from
// GET /api/map/<layer>.png, and the sky plot scene of the run in progress.
//
// A renderer of the layers plugs in through MapLayerSource (DisplayMapLayers is the
// display module's): it draws a layer on request and takes the run's map scene. Without
// one the layer endpoints answer 204 (nothing drawn) and the page draws the sky plot
// itself from GET /api/map/scene.

#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "observation/epoch_sink.h"

namespace vorel::web {

class EventHub;

// Layer names in drawing order; "base" is the world map under the others.
inline constexpr std::string_view kMapLayers[] = {"base",         "overlayLayer", "klobucharLayer",
                                                  "nequickLayer", "skyPlotLayer", "bubbleLayer"};
bool IsMapLayer(std::string_view name);

class MapLayerSource {
 public:
  virtual ~MapLayerSource() = default;
  // The PNG of one layer. False when the layer has nothing drawn. Called on the server's
  // threads while a run may be drawing the sky plot: the source guards its canvases.
  virtual bool LayerPng(std::string_view layer, std::string& png) = 0;
  // Where the run's receiver and satellites go (the sky plot layer); may be null.
  virtual observation::EpochDisplay* Display() = 0;
};

// The run's display as the server sees it: keeps the latest scene for the page, passes
// it on to the renderer, and tells the page when to fetch the layers again (at every
// display tick, the sky plot's own rhythm, and when the sky plot is cleared).
class WebDisplay : public observation::EpochDisplay {
 public:
  WebDisplay(EventHub& events, MapLayerSource* renderer) : events_(events), renderer_(renderer) {}
  void ClearSkyPlot() override;
  void UpdateMapScene(double latitudeRad, double longitudeRad,
                      const std::vector<observation::DisplayRow>& rows, int32_t lateInRun) override;
  // {version, receiver: {lat, lon}|null, satellites: [{prn, lat, lon, visible}]}
  nlohmann::json Scene() const;
  // A run has ended: the layers may have changed once more.
  void RunEnded();

 private:
  void Announce();
  EventHub& events_;
  MapLayerSource* renderer_;
  mutable std::mutex mutex_;
  nlohmann::json receiver_;  // null until the first tick
  nlohmann::json satellites_ = nlohmann::json::array();
  uint64_t version_ = 0;
};

}  // namespace vorel::web
