#include "observation/trajectory.h"

#include <cmath>
#include <cstdint>
#include <string>

#include <fmt/format.h>

#include "gnss/time_coords.h"
#include "platform/messages.h"
#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::observation {
namespace {

constexpr double kSpeedLimitDistance = 5150.0;  // m between two ticks
constexpr double kAltitudeLimit = 18000.0;      // m

void ComputeRows(double latitudeDeg, double longitudeDeg, EpochLoop& loop) {
  const double phi = latitudeDeg * kDegToRad;
  const double lambda = longitudeDeg * kDegToRad;
  const double sp = std::sin(phi), cp = std::cos(phi);
  const double sl = std::sin(lambda), cl = std::cos(lambda);
  loop.northRow = {-sp * cl, -sp * sl, cp};
  loop.eastRow = {-sl, cl, 0.0};
  loop.upRow = {cp * cl, cp * sl, sp};
}

void ComputeReceiver(double latitude, double longitude, double altitude, EpochLoop& loop) {
  gnss::Ecef p;
  gnss::GeodeticToEcef(latitude, longitude, altitude, p);
  loop.receiverEcef = {p.x, p.y, p.z};
}

// Tells the user once per run about lines that did not scan; the run keeps the values
// it had, as it must.
class OnceWarner {
 public:
  OnceWarner(const platform::Messages& messages, const char* what)
      : messages_(messages), what_(what) {}
  void Report(const platform::LineReader& file, const std::string& line) {
    if (reported_) return;
    reported_ = true;
    messages_.Warn(fmt::format("{} {}, line {}: cannot read \"{}\"; the previous values stay in "
                               "force (reported once per run)",
                               what_, file.path(), file.lineNumber(), line.substr(0, 60)));
  }

 private:
  const platform::Messages& messages_;
  const char* what_;
  bool reported_ = false;
};

}  // namespace

const char* MissingAtmosphereModel(const AtmosphereModels* a, const TrajectoryRunArgs& args) {
  if (args.tropoEnabled == 1 && !(a && a->HasTroposphere())) return "troposphere model";
  if (args.ionoEnabled == 1 && args.ionoModel == 1 && !(a && a->HasKlobuchar()))
    return "broadcast (Klobuchar) ionosphere model";
  if (args.ionoEnabled == 1 && args.ionoModel != 1 && !(a && a->HasSlantIonosphere()))
    return "slant (electron density) ionosphere model";
  return nullptr;
}

bool RefuseUnavailableModels(const AtmosphereModels* models, const TrajectoryRunArgs& args,
                             const platform::Messages& messages) {
  const char* missing = MissingAtmosphereModel(models, args);
  if (!missing) return false;
  messages.Popup("Error message",
                 fmt::format("The atmosphere is switched on but this build has no {}; switch "
                             "atmosphereEnabled off or choose another model",
                             missing));
  return true;
}

int ScanEventLine(const std::string& line, ChannelEvent& e) {
  auto& s = e.steps;
  return platform::ScanLine(
      line, kEventFormat,
      {&e.eventEpoch, &e.prn, &e.active, &s[0].enabled, &s[0].size, &s[0].finishEpoch,
       &s[1].enabled, &s[1].size, &s[1].finishEpoch, &s[2].enabled, &s[2].size, &s[2].finishEpoch,
       &s[3].enabled, &s[3].size, &s[3].finishEpoch, &s[4].enabled, &s[4].size, &s[4].finishEpoch,
       &s[5].enabled, &s[5].size, &s[5].finishEpoch});
}

int64_t StaticRunEndMs(const TrajectoryRunArgs& args) {
  const int64_t start = args.startMs;
  const int64_t interval = args.intervalMs;
  if (interval <= 0) return start;
  const int64_t tickEpochs = 10000 / interval;
  const double d = args.durationArg;
  if (tickEpochs == 0) {
    // No progress tick: the run ends once its duration has passed (a first tick at the
    // first epoch may end it at once, as it always did).
    if (d <= 10.0) return start + interval;
    const int64_t span = static_cast<int64_t>(args.durationArg) * 1000;
    return start + (span + interval - 1) / interval * interval;
  }
  // The run ends at the first tick whose progress reaches 100; tick k falls on epoch
  // k * tickEpochs + 1.
  int64_t k = d <= 0.0 ? 1 : static_cast<int64_t>(std::ceil(d / 10.0));
  if (k < 1) k = 1;
  while (k * 1000.0 / d < 100.0) ++k;
  while (k > 1 && (k - 1) * 1000.0 / d >= 100.0) --k;
  return start + (k * tickEpochs + 1) * interval;
}

std::string CheckRunArgs(const TrajectoryRunArgs& args) {
  if (args.intervalMs <= 0)
    return fmt::format("ObservationInterval must be a positive number of milliseconds, not {}",
                       args.intervalMs);
  if (args.satelliteCount < 0 || args.satelliteCount > orbits::kTableRows)
    return fmt::format("satelliteCount {} is outside 0 to {}", args.satelliteCount,
                       orbits::kTableRows);
  if (args.staticReceiver != 0) {
    if (args.durationArg < 0)
      return "ScenarioDuration must not be negative: a static run would never end";
    if (StaticRunEndMs(args) > INT32_MAX)
      return fmt::format(
          "ScenarioDuration is too long for ObservationInterval {} ms: the run would pass "
          "{} ms of the week, the largest time it can count",
          args.intervalMs, INT32_MAX);
  }
  return "";
}

platform::Status SimulateTrajectory(EpochEnvironment& env, const TrajectoryRunArgs& args,
                                    EpochResult& result, std::atomic<uint8_t>& runActive,
                                    const platform::Messages& messages) {
  const std::string refusal = CheckRunArgs(args);
  if (!refusal.empty()) {
    messages.Popup("Error message", refusal);
    return platform::Status::Failed(refusal);
  }
  if (const char* missing = MissingAtmosphereModel(env.atmosphere, args)) {
    RefuseUnavailableModels(env.atmosphere, args, messages);
    return platform::Status::Failed(missing);
  }
  platform::LineReader* trajectory = args.staticReceiver ? nullptr : args.trajectoryFile;
  if (!args.staticReceiver && !(trajectory && trajectory->IsOpen())) {
    const std::string reason = fmt::format(
        "trajectory file {} cannot be read", trajectory ? trajectory->path() : std::string("(none)"));
    messages.Popup("Error message", reason);
    return platform::Status::Failed(reason);
  }

  EpochLoop loop;
  loop.previousCode.assign(args.satelliteCount, 0.0);
  loop.cache.assign(args.satelliteCount, AtmosphereCache{});
  loop.wavelength = kSpeedOfLight / args.carrierFrequency;
  if (env.display) env.display->ClearSkyPlot();

  platform::LineReader* events =
      (args.eventFile && args.eventFile->IsOpen()) ? args.eventFile : nullptr;
  ChannelEvent pendingEvent;
  OnceWarner eventWarner(messages, "event file");
  std::string line;
  if (events) {
    events->ReadLine(line);
    if (events->ReadLine(line) > 0 && ScanEventLine(line, pendingEvent) < 21)
      eventWarner.Report(*events, line);
  }

  const int32_t tickEpochs = 10000 / args.intervalMs;
  const double runStart = args.startMs;
  // Without a progress tick (intervals above 10 s) a static run ends at its duration.
  const int64_t endByTime = static_cast<int64_t>(args.startMs) + int64_t{args.durationArg} * 1000;
  bool ended = false;
  double latitude = args.latitude, longitude = args.longitude, altitude = args.altitude;
  ComputeReceiver(latitude, longitude, altitude, loop);
  ComputeRows(latitude, longitude, loop);

  double progress = 0.0;
  int32_t progressTicks = 0;
  double checkPosition[3] = {-1.0, -1.0, -1.0};
  OnceWarner trajectoryWarner(messages, "trajectory file");

  if (runActive.load(std::memory_order_relaxed) != 0) {
    int32_t timeMs = args.startMs;
    int32_t epochsSinceTick = 0;
    int lineLength = 1;
    for (;;) {
      if (epochsSinceTick == tickEpochs) {
        progressTicks += 1;
        progress = progressTicks * 1000.0 / args.durationArg;
        messages.Progress(progress);
        epochsSinceTick = 0;
      }
      if (!trajectory) {
        timeMs += args.intervalMs;
      } else {
        lineLength = trajectory->ReadLine(line);
        if (lineLength > 0 &&
            platform::ScanLine(line, kTrajectoryFormat, {&timeMs, &latitude, &longitude,
                                                         &altitude}) < 4)
          trajectoryWarner.Report(*trajectory, line);
        if (lineLength == 0)
          messages.Warn(fmt::format("trajectory file {}, line {} is empty: the run ends there",
                                    trajectory->path(), trajectory->lineNumber()));
        ComputeReceiver(latitude, longitude, altitude, loop);
        if (epochsSinceTick == 0) {
          const auto& p = loop.receiverEcef;
          if (checkPosition[0] == -1.0) {
            for (int i = 0; i < 3; ++i) checkPosition[i] = p[i];
          } else {
            const double dx = p[0] - checkPosition[0];
            const double dy = p[1] - checkPosition[1];
            const double dz = p[2] - checkPosition[2];
            if (std::sqrt(dx * dx + dy * dy + dz * dz) > kSpeedLimitDistance) {
              messages.Popup("Error message", "Velocity exceeds maximum");
              return platform::Status::Failed("Velocity exceeds maximum");
            }
            if (std::fabs(altitude) > kAltitudeLimit) {
              messages.Popup("Error message", "Altitude exceeds maximum");
              return platform::Status::Failed("Altitude exceeds maximum");
            }
            for (int i = 0; i < 3; ++i) checkPosition[i] = p[i];
          }
        }
        ComputeRows(latitude, longitude, loop);
      }

      if (events && static_cast<double>(timeMs) == runStart + pendingEvent.eventEpoch) {
        ChannelEvent& active = loop.activeEvent;
        active = pendingEvent;
        active.runStart = runStart;
        // Steps keep a finish of 0.0 and so end at their satellite's first epoch; ramps
        // and accelerations run until their finish after the run start.
        active.steps[0].finishEpoch = 0.0;
        active.steps[3].finishEpoch = 0.0;
        for (int i : {1, 2, 4, 5}) active.steps[i].finishEpoch += runStart;
        if (events->ReadLine(line) > 0 && ScanEventLine(line, pendingEvent) < 21)
          eventWarner.Report(*events, line);
      }

      if (progress >= 90.0) loop.lateInRun = 1;

      result.gpsWeek = args.gpsWeek;
      result.timeMs = timeMs;
      ComputeEpoch(env, args, loop, result, latitude * kDegToRad, longitude * kDegToRad, altitude,
                   timeMs);

      if (progress >= 100.0 || lineLength <= 0 ||
          (tickEpochs == 0 && !trajectory && timeMs >= endByTime)) {
        ended = true;
        break;
      }
      if (runActive.load(std::memory_order_relaxed) == 0) break;
      epochsSinceTick += 1;
    }
  }

  messages.Progress(0.0);
  return ended ? platform::Status::Ok() : platform::Status::Stopped();
}

}  // namespace vorel::observation
