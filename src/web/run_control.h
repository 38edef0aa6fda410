#pragma once
// Runs for the page: one at a time, on a worker thread, through the same command actions
// the command line runs. The forms edit the server's own copy of the settings; a run takes
// a copy at its start, so that a form can be edited while a run goes on, and what a run
// changes in the settings (loading orbits sets KeepOrbitEpochs) comes back afterwards.

#include <atomic>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "app/commands.h"
#include "app/session.h"
#include "web/event_hub.h"
#include "web/map_layers.h"

namespace vorel::web {

class RunControl {
 public:
  RunControl(app::Session& session, EventHub& events, WebDisplay& display);
  ~RunControl();
  RunControl(const RunControl&) = delete;
  RunControl& operator=(const RunControl&) = delete;

  // The commands a page may start.
  static bool IsRunCommand(std::string_view name);

  app::Settings CurrentSettings() const;
  // Applies `edit` to a copy of the settings and keeps the copy when it returns true.
  bool EditSettings(const std::function<bool(app::Settings&)>& edit);

  // Starts `command` with its command-line arguments. False with the reason when another
  // run goes on (`busy` set) or the arguments are refused.
  bool Start(const std::string& command, const std::vector<std::string>& args, bool& busy,
             std::string& why);
  // STOP_RUN: the run ends after its epoch or block, its files closed whole. False when
  // nothing runs.
  bool Stop();
  bool Active() const;
  // Waits for the run in progress, if any, to end.
  void Wait();
  // Calls `use` with the session and the forms' settings when no run is in progress; none
  // can start until it returns. False, without calling it, while a run goes on: the views
  // read the tables a run may be changing.
  bool WithIdleSession(const std::function<void(app::Session&, const app::Settings&)>& use);

  // {state, command, progress, exitStatus, outputs, orbits: {valid, satellites}}
  nlohmann::json Status() const;

  // The worker's progress and error messages, from session.messages.
  void OnProgress(double percent);
  void CountPopup() { popups_.fetch_add(1); }

 private:
  void Execute(std::function<int(app::CommandContext&)> action);
  int RunAction(const std::function<int(app::CommandContext&)>& action);
  void Finish(int exitStatus, const app::Settings& before);
  void Publish(const char* type, const nlohmann::json& data) { events_.Publish(type, data.dump()); }
  nlohmann::json OrbitSummary() const;

  app::Session& session_;
  EventHub& events_;
  WebDisplay& display_;
  app::GlobalOptions global_;

  mutable std::mutex mutex_;
  app::Settings settings_;
  bool active_ = false;
  std::string command_;
  std::string state_ = "idle";
  int exitStatus_ = 0;
  double progress_ = 0.0;
  int shownPercent_ = -1;
  std::atomic<int> popups_{0};
  // A stop asked for before the worker raised RunActive would be lost; the worker's next
  // progress report clears the flag again.
  std::atomic<bool> stopWanted_{false};
  nlohmann::json outputs_ = nlohmann::json::array();
  nlohmann::json orbits_;
  std::thread worker_;
};

}  // namespace vorel::web
