#include "web/display_layers.h"

#include <utility>
#include <vector>

#include "density_model/model_data.h"
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

namespace {

bool SameBubble(const atmosphere::BubblePanelValues& a, const atmosphere::BubblePanelValues& b) {
  // What the layer shows: whether the outline is drawn, and where.
  return a.bubbleEnabled == b.bubbleEnabled && a.bubbleLatitude == b.bubbleLatitude &&
         a.bubbleLonNorth == b.bubbleLonNorth && a.bubbleLonSouth == b.bubbleLonSouth &&
         a.bubbleWidth == b.bubbleWidth && a.bubbleLength == b.bubbleLength;
}

}  // namespace

DisplayMapLayers::DisplayMapLayers(const std::filesystem::path& dataDir, std::string& warning)
    : tecModel_(std::make_unique<density_model::ModelState>()),
      profileModel_(std::make_unique<density_model::ModelState>()) {
  tecModel_->searchDirs = density_model::ModelSearchDirs(dataDir);
  profileModel_->searchDirs = tecModel_->searchDirs;
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

namespace vorel::web {

bool DisplayMapLayers::DrawTec(const display::TecMapRequest& request,
                               const atmosphere::AtmosphereState& broadcast, std::string& error) {
  const display::MapLayer layer = request.model == display::kTecMapKlobuchar
                                      ? display::MapLayer::kKlobuchar
                                      : display::MapLayer::kNequick;
  display::TecGrid grid;
  // A model that failed once does no more work; the next map tries its files afresh.
  if (!tecModel_->error.empty()) {
    auto fresh = std::make_unique<density_model::ModelState>();
    fresh->searchDirs = tecModel_->searchDirs;
    tecModel_ = std::move(fresh);
  }
  if (!display::ComputeTecGrid(request, broadcast, *tecModel_, grid, error)) return false;
  // The grid is drawn aside and swapped in, so that the lock is held for a copy only.
  display::Canvas drawn(display::kMapWidth, display::kMapHeight);
  display::DrawTecLayer(drawn, grid);
  display_.Edit([&](display::MapScene& scene) { scene.layer(layer) = std::move(drawn); });
  return true;
}

bool DisplayMapLayers::SetBubble(const atmosphere::BubblePanelValues& bubble) {
  std::lock_guard<std::mutex> hold(bubbleLock_);
  if (bubble_ && SameBubble(*bubble_, bubble)) return false;
  bubble_ = bubble;
  RedrawBubble();
  return true;
}

void DisplayMapLayers::SetBubbleMarks(const std::deque<atmosphere::BubbleMark>& marks) {
  std::lock_guard<std::mutex> hold(bubbleLock_);
  marks_ = marks;
  RedrawBubble();
}

// As the map command draws the layer: without the bubble the crossings alone.
void DisplayMapLayers::RedrawBubble() {
  display_.Edit([&](display::MapScene& scene) {
    display::Canvas& canvas = scene.layer(display::MapLayer::kBubble);
    if (bubble_ && bubble_->bubbleEnabled == 1) {
      display::DrawBubbleLayer(canvas, *bubble_, marks_);
      return;
    }
    canvas.Clear();
    for (const atmosphere::BubbleMark& m : marks_)
      display::MarkBubblePoint(canvas, m.latitude, m.longitude, m.kind);
  });
}

bool DisplayMapLayers::DrawProfile(const display::ProfileRequest& request, int32_t scale,
                                   uint32_t colour, bool over, std::vector<double>& densities,
                                   std::string& error) {
  std::lock_guard<std::mutex> hold(profileLock_);
  if (!profileModel_->error.empty()) {
    auto fresh = std::make_unique<density_model::ModelState>();
    fresh->searchDirs = profileModel_->searchDirs;
    profileModel_ = std::move(fresh);
  }
  if (!display::ComputeProfile(*profileModel_, request, densities, error)) return false;
  if (!over) profile_.Clear();
  profile_.Draw(densities, scale, colour);
  return true;
}

void DisplayMapLayers::ClearProfile() {
  std::lock_guard<std::mutex> hold(profileLock_);
  profile_.Clear();
}

bool DisplayMapLayers::ProfilePng(std::string& png) {
  std::lock_guard<std::mutex> hold(profileLock_);
  const std::vector<uint8_t> bytes = profile_.canvas().EncodePng();
  png.assign(bytes.begin(), bytes.end());
  return !png.empty();
}

}  // namespace vorel::web
