#pragma once
// The map area of the page: a stack of 646 x 475 layers, each a PNG the page fetches from
// GET /api/map/<layer>.png, the sky plot scene of the run in progress, and the profile
// plot beside the map.
//
// A renderer of the layers plugs in through MapLayerSource (DisplayMapLayers is the
// display module's): it draws a layer on request, takes the run's map scene, draws the
// TEC layers, the bubble and the profile when asked. Without one the layer endpoints
// answer 204 (nothing drawn) and the page draws the sky plot itself from
// GET /api/map/scene.

#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "atmosphere/atmosphere_state.h"
#include "atmosphere/bubble_settings.h"
#include "atmosphere/slant_iono.h"
#include "display/profile_plot.h"
#include "display/tec_grid.h"
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

  // SHOW_TEC: the grid of `request.model` computed and drawn on its layer, the Klobuchar
  // map from the coefficients in `broadcast`. The NeQuick grid takes about a second: the
  // server calls this on a worker of its own, one call at a time. False with `error`.
  virtual bool DrawTec(const display::TecMapRequest& request,
                       const atmosphere::AtmosphereState& broadcast, std::string& error);
  // BUBBLE: the bubble layer redrawn from the bubble settings (the outline only when
  // bubbleEnabled is 1) over the crossings last given. False when the values are those
  // already drawn.
  virtual bool SetBubble(const atmosphere::BubblePanelValues& /*bubble*/) { return false; }
  // The runs' wall crossings (MarkBubblePoint), taken when a run has ended.
  virtual void SetBubbleMarks(const std::deque<atmosphere::BubbleMark>& /*marks*/) {}

  // DRAW_VERT (`over` false: the plot is cleared first) and TEC_PROFILE (`over` true):
  // the density model's profile at the request's place and time, drawn in `colour` on
  // the `scale` axes (profileScale). The 1000 densities come back in `densities`.
  virtual bool DrawProfile(const display::ProfileRequest& request, int32_t scale,
                           uint32_t colour, bool over, std::vector<double>& densities,
                           std::string& error);
  // CLEAR_PROFILE: the axes alone.
  virtual void ClearProfile() {}
  // The profile plot as PNG; false when this source draws none.
  virtual bool ProfilePng(std::string& /*png*/) { return false; }
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
  // A run has ended: the bubble layer takes the run's wall crossings (read on the run's
  // worker, where they were made) and the page fetches the layers once more.
  void RunEnded(const std::deque<atmosphere::BubbleMark>& marks);
  // A layer was drawn outside a run (a TEC map, the bubble): the page fetches the layers.
  void LayersChanged();

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
