#include "web/map_layers.h"

#include <algorithm>

#include "gnss/constants.h"
#include "gnss/time_coords.h"
#include "web/event_hub.h"

namespace vorel::web {

bool IsMapLayer(std::string_view name) {
  return std::find(std::begin(kMapLayers), std::end(kMapLayers), name) != std::end(kMapLayers);
}

void WebDisplay::ClearSkyPlot() {
  if (renderer_ && renderer_->Display()) renderer_->Display()->ClearSkyPlot();
  {
    std::lock_guard<std::mutex> lock(mutex_);
    receiver_ = nullptr;
    satellites_ = nlohmann::json::array();
    ++version_;
  }
  Announce();
}

void WebDisplay::UpdateMapScene(double latitudeRad, double longitudeRad,
                                const std::vector<observation::DisplayRow>& rows,
                                int32_t lateInRun) {
  if (renderer_ && renderer_->Display())
    renderer_->Display()->UpdateMapScene(latitudeRad, longitudeRad, rows, lateInRun);
  // The map places receiver and satellites with the program's own degree factor.
  nlohmann::json satellites = nlohmann::json::array();
  for (const observation::DisplayRow& row : rows) {
    if (row.status != 7) continue;
    gnss::Geodetic g;
    if (gnss::EcefToGeodetic(row.position[0], row.position[1], row.position[2], g) != 0) continue;
    satellites.push_back({{"prn", row.prn},
                          {"lat", g.latitude},
                          {"lon", g.longitude > 180.0 ? g.longitude - 360.0 : g.longitude},
                          {"visible", row.visible != 0}});
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    receiver_ = {{"lat", latitudeRad * gnss::kRadToDegTropo},
                 {"lon", longitudeRad * gnss::kRadToDegTropo}};
    satellites_ = std::move(satellites);
    ++version_;
  }
  Announce();
}

nlohmann::json WebDisplay::Scene() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return {{"version", version_}, {"receiver", receiver_}, {"satellites", satellites_}};
}

bool MapLayerSource::DrawTec(const display::TecMapRequest&, const atmosphere::AtmosphereState&,
                             std::string& error) {
  error = "this server has no map renderer";
  return false;
}

bool MapLayerSource::DrawProfile(const display::ProfileRequest&, int32_t, uint32_t, bool,
                                 std::vector<double>&, std::string& error) {
  error = "this server has no map renderer";
  return false;
}

void WebDisplay::RunEnded(const std::deque<atmosphere::BubbleMark>& marks) {
  if (renderer_) renderer_->SetBubbleMarks(marks);
  LayersChanged();
}

void WebDisplay::LayersChanged() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++version_;
  }
  Announce();
}

void WebDisplay::Announce() {
  uint64_t version;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    version = version_;
  }
  events_.Publish("map", nlohmann::json{{"version", version}}.dump());
}

}  // namespace vorel::web
