#pragma once
// The map renderer of the display module behind the server's layer endpoints: the base
// picture and the graticule drawn once, the sky plot drawn by the runs, the TEC layers and
// the bubble drawn when asked, and the profile plot.
//
// The TEC maps and the profiles use electron density models of their own, not the
// session's: a run may be using that one, and the model must not be entered from two
// threads. Each starts like the model of a fresh program start (its N100 is set by the
// first profile drawn below 100 km).

#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "density_model/model_state.h"
#include "display/map_display.h"
#include "display/profile_plot.h"
#include "web/map_layers.h"

namespace vorel::web {

// The page's layer names (the map panel's: "overlayLayer", "skyPlotLayer", ...) and the
// display module's short ones ("overlay", "sky", ...).
std::optional<display::MapLayer> MapLayerOf(std::string_view name);

class DisplayMapLayers : public MapLayerSource {
 public:
  // Draws the base picture from the coastlines found for `dataDir`; without them the sea
  // alone, and `warning` says why. The model's data files are looked for as the
  // program looks for them for `dataDir`.
  DisplayMapLayers(const std::filesystem::path& dataDir, std::string& warning);
  bool LayerPng(std::string_view layer, std::string& png) override;
  observation::EpochDisplay* Display() override { return &display_; }

  bool DrawTec(const display::TecMapRequest& request, const atmosphere::AtmosphereState& broadcast,
               std::string& error) override;
  bool SetBubble(const atmosphere::BubblePanelValues& bubble) override;
  void SetBubbleMarks(const std::deque<atmosphere::BubbleMark>& marks) override;

  bool DrawProfile(const display::ProfileRequest& request, int32_t scale, uint32_t colour,
                   bool over, std::vector<double>& densities, std::string& error) override;
  void ClearProfile() override;
  bool ProfilePng(std::string& png) override;

 private:
  void RedrawBubble();

  display::MapDisplay display_;

  // Used by one TEC map at a time (the server's worker).
  std::unique_ptr<density_model::ModelState> tecModel_;

  std::mutex bubbleLock_;
  std::optional<atmosphere::BubblePanelValues> bubble_;  // none until the first SetBubble
  std::deque<atmosphere::BubbleMark> marks_;

  std::mutex profileLock_;
  std::unique_ptr<density_model::ModelState> profileModel_;
  display::ProfilePlot profile_;
};

}  // namespace vorel::web
