#pragma once
// SHOW_TEC for the page. The NeQuick grid takes about a second, longer than a request
// should hold one of the server's threads: the map is computed on a worker of its own,
// one at a time, and the page hears of its end as a "tec" event. A map is drawn again
// only when the settings it was drawn from have changed; until then Show answers at once.

#include <chrono>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "app/settings.h"
#include "web/map_layers.h"

namespace vorel::web {

class TecJob {
 public:
  // `done` is called on the worker with the job's status when a map has been drawn or
  // has failed.
  TecJob(MapLayerSource& source, std::function<void(const nlohmann::json&)> done)
      : source_(source), done_(std::move(done)) {}
  ~TecJob();
  TecJob(const TecJob&) = delete;
  TecJob& operator=(const TecJob&) = delete;

  // The map of settings.map.tecMapModel for the scenario's time and the atmosphere's
  // settings: started on the worker ("busy"), or already drawn ("ready", "cached": true).
  // False with `why` when the model is neither NeQuick (0) nor Klobuchar (2), or another
  // map is being computed.
  bool Show(const app::Settings& settings, nlohmann::json& status, std::string& why);
  // {state: idle|busy|ready|failed, model, layer, seconds, error, cached}
  nlohmann::json Status() const;

 private:
  void Work(display::TecMapRequest request, atmosphere::AtmosphereState broadcast,
            std::string key);
  nlohmann::json StatusLocked() const;

  MapLayerSource& source_;
  std::function<void(const nlohmann::json&)> done_;
  mutable std::mutex mutex_;
  std::string state_ = "idle";
  int32_t model_ = -1;
  std::string error_;
  double seconds_ = 0.0;
  bool cached_ = false;
  // What each layer was last drawn from (index: the model), empty when it was not.
  std::string drawnFrom_[3];
  std::thread worker_;
};

}  // namespace vorel::web
