#include "web/tec_job.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/map_commands.h"
#include "atmosphere/klobuchar.h"

namespace vorel::web {
namespace {

using nlohmann::json;

const char* LayerOf(int32_t model) {
  return model == display::kTecMapKlobuchar ? "klobucharLayer" : "nequickLayer";
}

// Everything a map of `request` depends on, as text: equal texts draw equal maps.
std::string MapKey(const display::TecMapRequest& r, const atmosphere::AtmosphereState& broadcast) {
  if (r.model == display::kTecMapNequick)
    return fmt::format("{} {} {}", r.month, r.hour, r.solarFlux);
  return fmt::format("{} {} {}", r.timeOfWeek, fmt::join(broadcast.KlobucharAlpha, " "),
                     fmt::join(broadcast.KlobucharBeta, " "));
}

}  // namespace

TecJob::~TecJob() {
  if (worker_.joinable()) worker_.join();
}

bool TecJob::Show(const app::Settings& settings, json& status, std::string& why) {
  const int32_t model = settings.map.tecMapModel;
  if (model != display::kTecMapNequick && model != display::kTecMapKlobuchar) {
    why = fmt::format("tecMapModel {} names no model: 0 draws NeQuick, 2 Klobuchar", model);
    return false;
  }
  const display::TecMapRequest request = app::TecMapRequestOf(settings, model);
  // The map works on a copy of the coefficients, as the run gatherer loads them.
  atmosphere::AtmosphereState broadcast;
  atmosphere::LoadKlobucharCoefficients(broadcast, settings.atmosphere.ionoTruthTable);
  std::string key = MapKey(request, broadcast);
  std::lock_guard<std::mutex> lock(mutex_);
  if (state_ == "busy") {
    why = fmt::format("the {} map is being computed; one map at a time", LayerOf(model_));
    return false;
  }
  model_ = model;
  error_.clear();
  if (drawnFrom_[model] == key) {
    state_ = "ready";
    cached_ = true;
    status = StatusLocked();
    return true;
  }
  if (worker_.joinable()) worker_.join();  // the last map's worker has finished
  state_ = "busy";
  cached_ = false;
  seconds_ = 0.0;
  drawnFrom_[model].clear();  // the layer is about to change
  worker_ = std::thread(&TecJob::Work, this, request, broadcast, std::move(key));
  status = StatusLocked();
  return true;
}

void TecJob::Work(display::TecMapRequest request, atmosphere::AtmosphereState broadcast,
                  std::string key) {
  const auto start = std::chrono::steady_clock::now();
  std::string error;
  const bool ok = source_.DrawTec(request, broadcast, error);
  json status;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    state_ = ok ? "ready" : "failed";
    error_ = error;
    if (ok) drawnFrom_[request.model] = std::move(key);
    status = StatusLocked();
  }
  done_(status);
}

json TecJob::Status() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return StatusLocked();
}

json TecJob::StatusLocked() const {
  json status = {{"state", state_}, {"seconds", seconds_}, {"cached", cached_}};
  if (model_ >= 0) {
    status["model"] = model_;
    status["layer"] = LayerOf(model_);
  }
  if (!error_.empty()) status["error"] = error_;
  return status;
}

}  // namespace vorel::web
