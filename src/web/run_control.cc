#include "web/run_control.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>

namespace vorel::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr std::string_view kRunCommands[] = {
    "load-orbits", "galileo", "obs",    "raw",        "dif",       "autorun",
    "nav",         "nav-all", "events", "scint-load", "scint-fit", "scint-generate",
    "scint-clear"};

const app::CommandEntry* FindCommand(std::string_view name) {
  for (const app::CommandEntry& c : app::CommandTable())
    if (c.name == name) return &c;
  return nullptr;
}

// An output as the page links to it: relative to the data directory, or empty when it
// lies elsewhere (a setting may name any path).
std::string InsideDataDir(const fs::path& root, const std::string& path) {
  std::error_code ec;
  const fs::path base = fs::weakly_canonical(root, ec);
  const fs::path full = fs::weakly_canonical(path, ec);
  if (ec) return {};
  const fs::path rel = full.lexically_relative(base);
  if (rel.empty() || *rel.begin() == "..") return {};
  return rel.generic_string();
}

const char* StateOf(int exitStatus) {
  return exitStatus == 0 ? "finished" : exitStatus == 130 ? "stopped" : "failed";
}

}  // namespace

RunControl::RunControl(app::Session& session, EventHub& events, WebDisplay& display)
    : session_(session), events_(events), display_(display), settings_(session.settings) {
  // The page asks before a run that overwrites files; the run itself does not ask again.
  global_.yes = true;
  global_.quiet = true;
  global_.dataDir = session.dataDir.root().string();
  orbits_ = OrbitSummary();
}

RunControl::~RunControl() {
  Stop();
  if (worker_.joinable()) worker_.join();
}

bool RunControl::IsRunCommand(std::string_view name) {
  return std::find(std::begin(kRunCommands), std::end(kRunCommands), name) !=
         std::end(kRunCommands);
}

app::Settings RunControl::CurrentSettings() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_;
}

bool RunControl::EditSettings(const std::function<bool(app::Settings&)>& edit) {
  std::lock_guard<std::mutex> lock(mutex_);
  app::Settings candidate = settings_;
  if (!edit(candidate)) return false;
  settings_ = std::move(candidate);
  return true;
}

bool RunControl::Start(const std::string& command, const std::vector<std::string>& args, bool& busy,
                       std::string& why) {
  std::lock_guard<std::mutex> lock(mutex_);
  busy = active_;
  if (active_) {
    why = fmt::format("a run ({}) is in progress; one run at a time: stop it or wait for its end",
                      command_);
    return false;
  }
  const app::CommandEntry* entry = FindCommand(command);
  if (entry == nullptr || !IsRunCommand(command)) {
    why = fmt::format("\"{}\" is not a run the page can start", command);
    return false;
  }
  CLI::App parser(entry->summary, "vorel " + entry->name);
  std::function<int(app::CommandContext&)> action = entry->setup(parser);
  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    parser.parse(reversed);
  } catch (const CLI::ParseError& e) {
    why = fmt::format("{}: {}", command, e.what());
    return false;
  }
  if (worker_.joinable()) worker_.join();  // the last run has ended; its thread is done
  session_.settings = settings_;
  session_.lastOutputs.clear();
  session_.stopRequests.store(0);  // every page run starts its own chain
  stopWanted_.store(false);
  active_ = true;
  command_ = command;
  state_ = "running";
  exitStatus_ = 0;
  progress_ = 0.0;
  shownPercent_ = -1;
  popups_ = 0;
  outputs_ = json::array();
  Publish("run", {{"state", state_}, {"command", command_}});
  worker_ = std::thread(&RunControl::Execute, this, std::move(action));
  return true;
}

bool RunControl::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!active_) return false;
  }
  // As the first Ctrl-C: a chain (autorun) ends with this run.
  stopWanted_.store(true);
  session_.stopRequests.fetch_add(1);
  session_.RunActive.store(0, std::memory_order_relaxed);
  Publish("message", {{"level", "info"}, {"text", "stop requested"}});
  return true;
}

bool RunControl::Active() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return active_;
}

void RunControl::Wait() {
  std::thread worker;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    worker.swap(worker_);
  }
  if (worker.joinable()) worker.join();
}

bool RunControl::WithIdleSession(
    const std::function<void(app::Session&, const app::Settings&)>& use) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (active_) return false;
  use(session_, settings_);
  return true;
}

json RunControl::Status() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return {{"state", state_},       {"active", active_},         {"command", command_},
          {"progress", progress_}, {"exitStatus", exitStatus_}, {"outputs", outputs_},
          {"orbits", orbits_}};
}

void RunControl::OnProgress(double percent) {
  if (stopWanted_.load()) session_.RunActive.store(0, std::memory_order_relaxed);
  if (percent <= 0.0) return;  // the worker's "done" signal; the run's end is told apart
  int shown;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    progress_ = std::min(percent, 100.0);
    shown = static_cast<int>(std::floor(progress_));
    if (shown == shownPercent_) return;
    shownPercent_ = shown;
  }
  Publish("progress", {{"percent", std::min(percent, 100.0)}});
}

void RunControl::Execute(std::function<int(app::CommandContext&)> action) {
  const app::Settings before = session_.settings;
  const int before_popups = popups_.load();
  int status = RunAction(action);
  // A popup is an error message: the run failed even if its action said otherwise.
  if (status == 0 && popups_.load() != before_popups) status = 1;
  Finish(status, before);
}

int RunControl::RunAction(const std::function<int(app::CommandContext&)>& action) {
  app::CommandContext context{session_, global_};
  try {
    return action(context);
  } catch (const std::exception& e) {
    session_.messages.Popup("Error message", e.what());
  } catch (...) {
    session_.messages.Popup("Error message", "the run ended on an unexpected error");
  }
  return 1;
}

void RunControl::Finish(int exitStatus, const app::Settings& before) {
  json outputs = json::array();
  for (const std::string& path : session_.lastOutputs) {
    if (path.empty()) continue;
    outputs.push_back({{"path", path}, {"file", InsideDataDir(session_.dataDir.root(), path)}});
  }
  json orbits = OrbitSummary();
  display_.RunEnded(session_.atmosphere.slant.marks);
  json done;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    // What the run changed in the settings goes back to the forms; edits made meanwhile
    // to other settings stay.
    for (const app::SettingDef& def : app::SettingRegistry()) {
      const std::string after = def.show(session_.settings);
      if (after == def.show(before)) continue;
      std::string ignored;
      def.fromText(settings_, app::SettingText(def, session_.settings), ignored);
    }
    exitStatus_ = exitStatus;
    state_ = StateOf(exitStatus);
    if (exitStatus == 0) progress_ = 100.0;
    outputs_ = outputs;
    orbits_ = orbits;
    active_ = false;
    done = {{"state", state_},
            {"command", command_},
            {"exitStatus", exitStatus},
            {"outputs", outputs_},
            {"orbits", orbits_}};
  }
  if (exitStatus == 0) Publish("progress", {{"percent", 100.0}});
  Publish("run", done);
}

json RunControl::OrbitSummary() const {
  int satellites = 0;
  for (int i = 0; i < 32; ++i) satellites += session_.constellation.Present(i) ? 1 : 0;
  return {{"valid", session_.orbitState.OrbitsValid != 0}, {"satellites", satellites}};
}

}  // namespace vorel::web
