#include "observation/epoch.h"

#include <algorithm>
#include <cmath>

#include "gnss/time_coords.h"
#include "orbits/satellite_position.h"
#include "platform/random.h"

namespace vorel::observation {
namespace {

constexpr double kFirstPassTravel = 0.07004845999161192;  // 21000 km of path
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kSignalLevel = 31.0;
constexpr int32_t kCounterLimit = 1000;

// How long (ms from now) a satellite at `elevation`, `range` metres away, stays below a
// mask above it, moving at no more than `speed` m/s: the line of sight turns by at most
// asin(d / range) when the satellite moves d, and half the gap is all it is allowed.
int64_t StaysBelowMaskMs(double elevation, double mask, double range, double speed) {
  const double gap = mask - elevation;
  if (!(gap > 0.0) || !(range > 0.0) || !(speed > 0.0) || !std::isfinite(speed)) return 0;
  const double allowed = 0.5 * gap * range / (1.0 + gap);
  return static_cast<int64_t>(std::min(1000.0 * allowed / speed, 3600000.0));
}

// Clears the steps of the active event that have run their course; the event ends when
// none is left. Sizes are carried but reach no observable.
void AdvanceEvent(ChannelEvent& event, int satellite, int32_t timeMs) {
  if (event.active != 1 || event.prn != satellite + 1) return;
  bool anyEnabled = false;
  for (EventStep& step : event.steps) {
    if (step.enabled == 1 && timeMs >= step.finishEpoch) step.enabled = 0;
    if (step.enabled != 0) anyEnabled = true;
  }
  if (!anyEnabled) event.active = 0;
}

}  // namespace

EpochContext ComputeEpoch(EpochEnvironment& env, const TrajectoryRunArgs& args, EpochLoop& loop,
                          EpochResult& result, double latitudeRad, double longitudeRad,
                          double altitude, int32_t timeMs) {
  result.channelCount = 0;
  for (EpochChannel& channel : result.channels) channel.valid = 0;

  const double t = 0.001 * timeMs;
  int channelIndex = -1;
  double ionoDelay = 0.0;
  int32_t bubbleClass = 0;
  orbits::Vec3 position{};
  orbits::Vec3 rotated{};
  double relativisticTerm = 0.0;
  const double* rx = loop.receiverEcef.data();

  std::vector<DisplayRow>& display = env.state.displayRows;
  if (static_cast<int>(display.size()) < args.satelliteCount) display.resize(args.satelliteCount);

  // The atmosphere is worked out on the first epoch of the program start and then held;
  // with an update interval (ours, off by default) it is worked out anew on each run's
  // first epoch and then every interval, for the satellites above the mask.
  const bool updating = args.atmosphereUpdateMs > 0 && timeMs >= loop.nextAtmosphereMs;
  const bool evaluateAtmosphere = env.state.AtmosphereEpochCounter == 0 || updating;
  if (updating) loop.nextAtmosphereMs = int64_t{timeMs} + args.atmosphereUpdateMs;
  // Satellites well below the mask are passed over, except on the run's first epoch and on
  // those whose rows reach the display, where every satellite is worked out.
  const bool displayEpoch = env.state.AtmosphereEpochCounter == 0 ||
                            env.state.AtmosphereEpochCounter == kCounterLimit;
  const bool passOver = loop.receiverFixed && !displayEpoch &&
                        loop.belowMaskUntil.size() >= static_cast<size_t>(args.satelliteCount);

  for (int s = 0; s < args.satelliteCount; ++s) {
    DisplayRow& row = display[s];
    row.visible = 0;
    row.status = env.table.rows[s].trueRecords[0].status;
    if (row.status != orbits::kStatusUsable) continue;

    orbits::SelectOrbitRecord(t, env.table, s);
    if (passOver && timeMs < loop.belowMaskUntil[s]) {
      if (updating) loop.cache[s] = AtmosphereCache{};
      continue;
    }

    double range = 0.0;
    double travel = kFirstPassTravel;
    double tTransmit = t;
    double elevation = 0.0;
    double azimuth = 0.0;
    double los[3] = {0.0, 0.0, 0.0};
    bool aboveMask = true;
    for (int pass = 0; pass < 2; ++pass) {
      travel = pass == 0 ? kFirstPassTravel : range / kSpeedOfLight;
      tTransmit = t - travel;
      orbits::SatellitePosition(env.table, tTransmit, s, position, relativisticTerm);
      orbits::RotateForEarthSpin(travel, position, rotated);
      const double dx = rotated[0] - rx[0];
      const double dy = rotated[1] - rx[1];
      const double dz = rotated[2] - rx[2];
      range = std::sqrt(dx * dx + dy * dy + dz * dz);
      if (pass == 0) {
        los[0] = dx / range;
        los[1] = dy / range;
        los[2] = dz / range;
        const double zenith = std::acos(gnss::DotProduct(los, loop.upRow.data(), 3));
        elevation = kHalfPi - zenith;
        const double sinZenith = std::sin(zenith);
        const double n = gnss::DotProduct(los, loop.northRow.data(), 3) / sinZenith;
        azimuth = std::acos(n);
        if (gnss::DotProduct(los, loop.eastRow.data(), 3) / sinZenith < 0.0)
          azimuth = -azimuth;
        if (args.elevationMask > elevation) {
          aboveMask = false;
          if (updating) loop.cache[s] = AtmosphereCache{};
          if (loop.receiverFixed && !loop.belowMaskUntil.empty())
            loop.belowMaskUntil[s] =
                int64_t{timeMs} + StaysBelowMaskMs(elevation, args.elevationMask, range,
                                                   orbits::SatelliteSpeedBound(env.table, s));
          break;
        }
      }
    }

    if (aboveMask) {
      AtmosphereCache& cache = loop.cache[s];
      if (evaluateAtmosphere) {
        if (args.ionoEnabled == 1 && env.atmosphere) {
          if (args.ionoModel == 1) {
            ionoDelay =
                env.atmosphere->Klobuchar(latitudeRad, longitudeRad, azimuth, elevation, tTransmit);
            bubbleClass = 0;
          } else {
            const AtmosphereModels::SlantInput in{
                .latRad = latitudeRad, .lonRad = longitudeRad, .satIndex = s,
                .lineOfSight = los, .range = range, .satPosition = rotated.data(),
                .month = args.month, .ut = args.universalTime, .flux = args.solarFlux,
                .bubble = &args.bubble, .timeMs = timeMs};
            env.atmosphere->SlantIonosphere(in, ionoDelay, bubbleClass);
          }
          cache.ionoDelay = ionoDelay;
          cache.bubbleClass = bubbleClass;
        }
        if (args.tropoEnabled == 1 && env.atmosphere) {
          cache.tropoDelay = env.atmosphere->Troposphere(
              elevation * kRadToDegTropo, args.surfaceTemperature, args.surfacePressure,
              args.surfaceHumidity, altitude, latitudeRad * kRadToDegTropo, args.dayIndex,
              args.tropoModel);
        }
      } else if (args.ionoEnabled == 1) {
        ionoDelay = cache.ionoDelay;
        bubbleClass = cache.bubbleClass;
      }

      // The relativistic term is that of pass 1, the transmission time the range uses.
      const double clock =
          args.satClockFromMessage == 1
              ? orbits::MessageClockBias(env.table, tTransmit, s, relativisticTerm)
              : orbits::SatelliteClockBias(env.table, tTransmit, s);

      // The code and phase noise draws reach no observable; what they leave behind is the
      // run-time rand moved on by the seed each takes, so that is all that is done.
      platform::CrtRand(env.rand);
      platform::CrtRand(env.rand);

      AdvanceEvent(loop.activeEvent, s, timeMs);

      if (args.stationLatchEnabled == 1 && env.state.stationLatchSet == 0) {
        env.state.stationLatchTime = timeMs;
        env.state.stationLatchSet = 1;
      }

      const double base = range - clock * kSpeedOfLight;
      double codeRange = base + ionoDelay;
      double carrierRange = base - ionoDelay;
      if (args.troposphereInRanges == 1) {
        // The neutral atmosphere is not dispersive: it delays code and carrier alike.
        codeRange += cache.tropoDelay;
        carrierRange += cache.tropoDelay;
      }

      double& previous = loop.previousCode[s];
      double doppler = 0.0;
      if (previous != 0.0) {
        doppler = -args.carrierFrequency * (codeRange - previous) /
                  static_cast<double>(args.intervalMs) / kSpeedOfLight;
      }
      previous = codeRange;

      if (channelIndex + 1 < kMaxChannels) {
        ++channelIndex;
        EpochChannel& channel = result.channels[channelIndex];
        channel.prn = s + 1;
        channel.geometricRange = range;
        channel.codeRange = codeRange;
        channel.doppler = doppler;
        channel.carrierCycles = carrierRange / loop.wavelength;
        channel.carrierRange = carrierRange;
        channel.elevation = elevation;
        channel.azimuth = azimuth;
        channel.valid = 1;
        channel.signalLevel = kSignalLevel;
        channel.bubbleClass = bubbleClass;
        result.channelCount += 1;
      }
      row.visible = 1;
    }

    row.prn = s + 1;
    row.elevation = elevation;
    row.azimuth = azimuth;
    row.position = rotated;
  }

  EpochContext context;
  context.written = loop.firstEpochDone != 0;
  context.latitudeRad = latitudeRad;
  context.longitudeRad = longitudeRad;
  context.rows = &display;
  context.lateInRun = loop.lateInRun;
  context.receiverEcef = loop.receiverEcef;
  if (env.state.AtmosphereEpochCounter == kCounterLimit) {
    context.displayTick = true;
    env.state.AtmosphereEpochCounter = 1;
  } else {
    env.state.AtmosphereEpochCounter += 1;
  }

  loop.firstEpochDone = 1;
  return context;
}

}  // namespace vorel::observation
