#include "observation/trajectory.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

#include <fmt/format.h>

#include "gnss/time_coords.h"
#include "observation/epoch_sink.h"
#include "observation/receiver_track.h"
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

// The event file of a station run: the next event waits in `pending_` until the run's
// time reaches it.
class EventSchedule {
 public:
  EventSchedule(platform::LineReader* file, const platform::Messages& messages)
      : file_(file && file->IsOpen() ? file : nullptr), warner_(messages, "event file") {}

  // Drops the header line and reads the first event.
  void Start() {
    if (!file_) return;
    file_->ReadLine(line_);
    ReadNext();
  }

  // Starts the pending event when `timeMs` is exactly its time, then reads the next.
  void FireAt(int32_t timeMs, double runStart, ChannelEvent& active) {
    if (!file_ || static_cast<double>(timeMs) != runStart + pending_.eventEpoch) return;
    active = pending_;
    active.runStart = runStart;
    // Steps keep a finish of 0.0 and so end at their satellite's first epoch; ramps
    // and accelerations run until their finish after the run start.
    active.steps[0].finishEpoch = 0.0;
    active.steps[3].finishEpoch = 0.0;
    for (int i : {1, 2, 4, 5}) active.steps[i].finishEpoch += runStart;
    ReadNext();
  }

 private:
  void ReadNext() {
    if (file_->ReadLine(line_) > 0 && ScanEventLine(line_, pending_) < 21)
      warner_.Report(*file_, line_);
  }

  platform::LineReader* file_;
  OnceWarner warner_;
  ChannelEvent pending_;
  std::string line_;
};

// The speed and altitude limits of a moving receiver, tested at each tick line: the
// first only stores the position.
class LimitCheck {
 public:
  // The failure, or null while the receiver keeps within the limits.
  const char* Test(const std::array<double, 3>& p, double altitude) {
    if (last_[0] != -1.0) {
      const double dx = p[0] - last_[0];
      const double dy = p[1] - last_[1];
      const double dz = p[2] - last_[2];
      if (std::sqrt(dx * dx + dy * dy + dz * dz) > kSpeedLimitDistance)
        return "Velocity exceeds maximum";
      if (std::fabs(altitude) > kAltitudeLimit) return "Altitude exceeds maximum";
    }
    last_ = p;
    return nullptr;
  }

 private:
  std::array<double, 3> last_{-1.0, -1.0, -1.0};
};

std::unique_ptr<ReceiverTrack> MakeTrack(const TrajectoryRunArgs& args,
                                         platform::LineReader* trajectory,
                                         const platform::Messages& messages) {
  if (!trajectory) return std::make_unique<StaticTrack>(args.intervalMs);
  return std::make_unique<TrajectoryFileTrack>(*trajectory, messages);
}

}  // namespace

EpochResult ComputeFirstEpoch(EpochEnvironment& env, const TrajectoryRunArgs& args) {
  EpochLoop loop;
  loop.previousCode.assign(args.satelliteCount, 0.0);
  loop.cache.assign(args.satelliteCount, AtmosphereCache{});
  loop.wavelength = kSpeedOfLight / args.carrierFrequency;
  ReceiverFix fix{args.startMs, args.latitude, args.longitude, args.altitude};
  ComputeReceiver(fix.latitude, fix.longitude, fix.altitude, loop);
  ComputeRows(fix.latitude, fix.longitude, loop);
  StaticTrack(args.intervalMs).Next(fix);
  EpochResult result;
  result.gpsWeek = args.gpsWeek;
  result.timeMs = fix.timeMs;
  ComputeEpoch(env, args, loop, result, fix.latitude * kDegToRad, fix.longitude * kDegToRad,
               fix.altitude, fix.timeMs);
  return result;
}

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
  for (EpochSink* sink : env.sinks) sink->OnRunStart();

  EventSchedule events(args.eventFile, messages);
  events.Start();

  const int32_t tickEpochs = 10000 / args.intervalMs;
  const double runStart = args.startMs;
  // Without a progress tick (intervals above 10 s) a static run ends at its duration.
  const int64_t endByTime = static_cast<int64_t>(args.startMs) + int64_t{args.durationArg} * 1000;
  bool ended = false;
  ReceiverFix fix{args.startMs, args.latitude, args.longitude, args.altitude};
  ComputeReceiver(fix.latitude, fix.longitude, fix.altitude, loop);
  ComputeRows(fix.latitude, fix.longitude, loop);

  std::unique_ptr<ReceiverTrack> track = MakeTrack(args, trajectory, messages);
  loop.receiverFixed = !track->Moves();
  loop.belowMaskUntil.assign(args.satelliteCount, INT64_MIN);
  double progress = 0.0;
  int32_t progressTicks = 0;
  LimitCheck limits;

  if (runActive.load(std::memory_order_relaxed) != 0) {
    int32_t epochsSinceTick = 0;
    for (;;) {
      if (epochsSinceTick == tickEpochs) {
        progressTicks += 1;
        progress = progressTicks * 1000.0 / args.durationArg;
        messages.Progress(progress);
        epochsSinceTick = 0;
      }
      const bool trackGoesOn = track->Next(fix);
      if (track->Moves()) {
        ComputeReceiver(fix.latitude, fix.longitude, fix.altitude, loop);
        if (epochsSinceTick == 0) {
          if (const char* failure = limits.Test(loop.receiverEcef, fix.altitude)) {
            messages.Popup("Error message", failure);
            return platform::Status::Failed(failure);
          }
        }
        ComputeRows(fix.latitude, fix.longitude, loop);
      }

      events.FireAt(fix.timeMs, runStart, loop.activeEvent);

      if (progress >= 90.0) loop.lateInRun = 1;

      result.gpsWeek = args.gpsWeek;
      result.timeMs = fix.timeMs;
      const EpochContext context =
          ComputeEpoch(env, args, loop, result, fix.latitude * kDegToRad, fix.longitude * kDegToRad,
                       fix.altitude, fix.timeMs);
      for (EpochSink* sink : env.sinks) sink->OnEpoch(result, context);

      if (progress >= 100.0 || !trackGoesOn ||
          ((tickEpochs == 0 || args.endAtDuration) && !track->Moves() &&
           fix.timeMs >= endByTime)) {
        ended = true;
        break;
      }
      if (runActive.load(std::memory_order_relaxed) == 0) break;
      epochsSinceTick += 1;
    }
  }

  messages.Progress(0.0);
  for (EpochSink* sink : env.sinks) sink->OnRunEnd();
  return ended ? platform::Status::Ok() : platform::Status::Stopped();
}

}  // namespace vorel::observation
