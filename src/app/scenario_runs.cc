#include "gnss/constants.h"
#include "app/scenario_runs.h"

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "app/receiver_outputs.h"
#include "atmosphere/atmosphere_settings.h"
#include "observation/epoch_sink.h"
#include "observation/model_atmosphere.h"
#include "observation/record_writers.h"
#include "observation/trajectory.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

using gnss::kDegToRad;
constexpr double kMetresPerDegree = 111120.0;

gnss::GpsTime ScenarioGpsTime(const ScenarioSettings& s) {
  gnss::GpsTime t;
  gnss::CalendarToGpsTime(s.ScenarioYear, s.ScenarioMonth, s.ScenarioDay, s.ScenarioHour,
                                 s.ScenarioMinute, s.ScenarioSecond, s.LeapSeconds, t);
  return t;
}

// The run's start (milliseconds of the week) and length in the int32 the epoch loop counts
// in. Both are formed in 64 bits; a scenario whose values do not fit is refused with an
// "Error message" naming the setting, and nothing is computed from it.
struct RunClock {
  int32_t startMs = 0;
  int32_t durationArg = 0;
};

bool ScenarioRunClock(const Session& session, const ScenarioSettings& s, int64_t unitsPerMinute,
                      RunClock& clock) {
  const int64_t duration = int64_t{s.ScenarioDuration} * unitsPerMinute;
  if (duration < INT32_MIN || duration > INT32_MAX) {
    session.messages.Popup("Error message",
                           fmt::format("ScenarioDuration {} min is too long for a run's clock",
                                       s.ScenarioDuration));
    return false;
  }
  gnss::GpsTime t;
  const bool converted =
      gnss::CalendarToGpsTime(s.ScenarioYear, s.ScenarioMonth, s.ScenarioDay, s.ScenarioHour,
                              s.ScenarioMinute, s.ScenarioSecond, s.LeapSeconds, t) == 0;
  const double startMs = std::floor(t.secondsOfWeek) * 1000.0;
  if (!converted || !(startMs >= INT32_MIN && startMs <= INT32_MAX)) {
    session.messages.Popup(
        "Error message",
        fmt::format("the scenario start (ScenarioYear {}, ScenarioMonth {}, ScenarioDay {}, "
                    "ScenarioHour {}, ScenarioMinute {}, ScenarioSecond {}, LeapSeconds {}) "
                    "does not fit a run's clock of milliseconds in the week",
                    s.ScenarioYear, s.ScenarioMonth, s.ScenarioDay, s.ScenarioHour,
                    s.ScenarioMinute, s.ScenarioSecond, s.LeapSeconds));
    return false;
  }
  clock.startMs = static_cast<int32_t>(startMs);
  clock.durationArg = static_cast<int32_t>(duration);
  return true;
}

// What every receiver of the scenario takes alike: the clock, the noise, the record's
// layout and the carrier.
void ScenarioArgs(const ScenarioSettings& sc, const RunClock& clock,
                  observation::TrajectoryRunArgs& args) {
  args.rinexStandardLayout = sc.RinexStandardLayout;
  args.intervalMs = sc.ObservationInterval;
  args.gpsWeek = ScenarioGpsTime(sc).week;
  args.startMs = clock.startMs;
  args.dayIndex = gnss::DayIndex(sc.ScenarioMonth, sc.ScenarioDay);
  args.durationArg = clock.durationArg;
  args.carriedFlag = sc.AuxiliaryInputDisabled;
  args.carrierFrequency = sc.ConstellationChoice == 0 ? gnss::kL1Frequency : 0.0;
}

// Moves the orbits' epochs to the scenario's start unless KeepOrbitEpochs; the start.
gnss::GpsTime RedateToScenario(Session& session, const ScenarioSettings& sc) {
  const gnss::GpsTime start = ScenarioGpsTime(sc);
  if (sc.KeepOrbitEpochs == 0) RedateOrbits(session.constellation, start.secondsOfWeek, start.week);
  return start;
}

std::string RunDate(const std::tm& now) {
  return fmt::format("{:02d}-{:02d}-{:04d}", now.tm_mon + 1, now.tm_mday, now.tm_year + 1900);
}

std::tm LocalNow() {
  std::time_t t = std::time(nullptr);
  std::tm now{};
  localtime_r(&t, &now);
  return now;
}

// The run's atmosphere and bubble arguments, as both workers gather them. A bubble record
// that cannot be created refuses the run.
platform::Status GatherAtmosphere(Session& session, const Settings& settings,
                                  observation::TrajectoryRunArgs& args) {
  const atmosphere::AtmosphereSettings& a = settings.atmosphere;
  const ScenarioSettings& sc = settings.scenario;
  args.tropoEnabled = a.atmosphereEnabled;
  args.ionoEnabled = a.atmosphereEnabled;
  if (a.atmosphereEnabled == 1) {
    args.surfaceTemperature = a.surfaceTemperature;
    args.surfacePressure = a.surfacePressure;
    args.surfaceHumidity = a.surfaceHumidity;
    args.tropoModel = a.tropoModel;
  }
  args.ionoModel = atmosphere::BroadcastModelChosen(a);
  args.atmosphereUpdateMs = a.AtmosphereUpdateInterval;
  args.troposphereInRanges = a.TroposphereInRanges;
  args.satClockFromMessage = settings.nav.SatClockFromMessage;
  if (atmosphere::LoadRunKlobuchar(session.atmosphere, a) == 0 && a.atmosphereEnabled == 1) {
    args.month = sc.ScenarioMonth;
    args.carriedHour = sc.ScenarioHour;
    args.universalTime = sc.ScenarioHour;
    args.solarFlux = a.solarFlux;
  }

  const BubblePanel& b = settings.bubble;
  args.bubble = atmosphere::BubbleSettings{};
  if (b.bubbleEnabled == 1) {
    atmosphere::BubbleSettings& out = args.bubble;
    out.bubbleEnabled = 1;
    out.bubbleClassify = b.bubbleClassify;
    out.bubbleLatitude = b.bubbleLatitude;
    out.bubbleLonNorth = b.bubbleLonNorth;
    out.bubbleLonSouth = b.bubbleLonSouth;
    out.bubbleDrift = b.bubbleDrift * (b.bubbleDriftWest == 1 ? -0.001 : 0.001);
    out.bubbleWidth = b.bubbleWidth;
    out.bubbleLength = b.bubbleLength;
    out.bubbleDepth = b.bubbleDepth;
    out.bubbleApplyDelay = b.bubbleApplyDelay;
    out.bubbleMode = b.bubbleMode;
    out.bubbleRecordEnabled = b.bubbleRecordEnabled;
    if (b.bubbleRecordEnabled == 1) {
      // The record file stays open for the life of the program start.
      auto file = std::make_unique<platform::OutputFile>();
      const auto path = session.dataDir.Map(b.bubbleRecordPath);
      if (!file->OpenInPlace(path)) {
        const std::string why = fmt::format("bubbleRecordPath {} cannot be created ({})",
                                            path.string(), file->error());
        session.messages.Popup("Error message", why);
        return platform::Status::Failed(why);
      }
      session.bubbleRecordFile = std::move(file);
      out.recordFile = session.bubbleRecordFile.get();
    }
  }
  return platform::Status::Ok();
}

// The mapped path of a record file, empty when the setting and its rule name none.
std::filesystem::path RecordPath(Session& session, const std::string& settingPath) {
  if (settingPath.empty()) return {};
  return session.dataDir.Map(settingPath);
}

bool SameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  if (std::filesystem::equivalent(a, b, ec)) return true;
  return std::filesystem::weakly_canonical(a, ec) == std::filesystem::weakly_canonical(b, ec);
}

platform::Status Refuse(Session& session, const std::string& text) {
  session.messages.Popup("Error message", text);
  return platform::Status::Failed(text);
}

// Opens a record file. An empty name (no setting and no naming rule) means the run
// writes no record, as it always did; a file that cannot be created refuses the run.
platform::Status OpenRecord(Session& session, platform::OutputFile& file,
                            const std::filesystem::path& path, const std::string& settingName) {
  if (path.empty()) {
    session.messages.Warn(fmt::format("{} is empty: this run writes no record file", settingName));
    return platform::Status::Ok();
  }
  if (!file.Open(path))
    return Refuse(session, fmt::format("{} {} cannot be created ({})", settingName, path.string(),
                                       file.error()));
  return platform::Status::Ok();
}

// Carries one receiver through its run and closes its record file: whole, or not at all
// when the run failed or a write did not reach the disk.
// With `runHeader` the RINEX record writes the header that tells the run itself.
platform::Status FlyReceiver(Session& session, const observation::TrajectoryRunArgs& args,
                             platform::OutputFile& output,
                             const observation::RinexRunHeader* runHeader = nullptr) {
  observation::ModelAtmosphere models(session.atmosphere, session.densityModel);
  observation::EpochEnvironment env{session.constellation, session.epochState, session.workerRand,
                                    &models};
  // The record first, then the display.
  std::unique_ptr<observation::EpochSink> record;
  if (output.IsOpen() && runHeader)
    record = observation::MakeRinexRunSink(output, *runHeader);
  else if (output.IsOpen())
    record = observation::MakeRecordSink(args.recordType, output, args.rinexStandardLayout != 0);
  if (record) env.sinks.push_back(record.get());
  std::optional<observation::DisplaySink> display;
  if (session.display) env.sinks.push_back(&display.emplace(*session.display));
  observation::EpochResult result;
  platform::Status status =
      observation::SimulateTrajectory(env, args, result, session.RunActive, session.messages);
  if (!output.IsOpen()) return status;
  if (status.failed()) {
    output.Abandon();
    return status;
  }
  const std::string path = output.path();
  if (!output.Close())
    return Refuse(session, fmt::format("{}: the record was not written", output.error()));
  session.lastOutputs.push_back(path);
  return status;
}

}  // namespace

void RedateOrbits(orbits::ConstellationTable& table, double secondsOfWeek, int32_t week) {
  double target = std::ceil(secondsOfWeek / 7200.0) * 7200.0;
  if (target >= 604800.0) {
    week += 1;
    target -= 604800.0;
  }
  int first = -1;
  for (int row = 0; row < 32; ++row) {
    if (table.rows[row].trueRecords[0].status == orbits::kStatusUsable) {
      first = row;
      break;
    }
  }
  if (first < 0) return;
  const double shift = target - table.rows[first].trueRecords[0].toe;
  for (int row = first; row < 32; ++row) {
    orbits::SatelliteOrbits& sat = table.rows[row];
    const int count = std::min(sat.recordCount, orbits::kRecordsPerSet);
    for (int k = 0; k < count; ++k) {
      double v = sat.trueRecords[k].toe + shift;
      if (v >= 604800.0) {
        week += 1;
        v -= 604800.0;
      } else if (v < 0) {
        week -= 1;
        v += 604800.0;
      }
      for (orbits::OrbitRecord* r : {&sat.trueRecords[k], &sat.broadcastRecords[k]}) {
        r->toe = v;
        r->toc = v;
        r->week = week;
      }
    }
  }
}

gnss::GpsTime SetScenarioTime(Session& session) {
  return RedateToScenario(session, session.settings.scenario);
}

navmsg::NavMessageSettings NavSettings(const Session& s) {
  navmsg::NavMessageSettings n;
  const Settings& st = s.settings;
  n.navPrn = st.nav.navPrn;
  n.SatClockFromMessage = st.nav.SatClockFromMessage;
  n.IodcFollowsIode = st.nav.IodcFollowsIode;
  n.NavRecordAsRanges = st.nav.NavRecordAsRanges;
  for (int i = 0; i < 4; ++i) {
    n.ionoAlpha[i] = st.atmosphere.ionoBroadcastTable.cells[0][i];
    n.ionoBeta[i] = st.atmosphere.ionoBroadcastTable.cells[1][i];
  }
  n.OrbitsValid = s.orbitState.OrbitsValid ? 1 : 0;
  n.KeepOrbitEpochs = st.scenario.KeepOrbitEpochs;
  n.ScenarioYear = st.scenario.ScenarioYear;
  n.ScenarioMonth = st.scenario.ScenarioMonth;
  n.ScenarioDay = st.scenario.ScenarioDay;
  n.ScenarioHour = st.scenario.ScenarioHour;
  n.ScenarioMinute = st.scenario.ScenarioMinute;
  n.ScenarioSecond = st.scenario.ScenarioSecond;
  n.LeapSeconds = st.scenario.LeapSeconds;
  n.ScenarioDuration = st.scenario.ScenarioDuration;
  return n;
}

std::string ObservationOutputName(int32_t recordType, const std::tm& now, const ScenarioSettings& s) {
  const std::string date = RunDate(now);
  const std::string hh = fmt::format("{:02d}", now.tm_hour);
  const std::string mm = fmt::format("{:02d}", now.tm_min);
  switch (recordType) {
    case 0: return fmt::format("C:/VLD/{}{}{}.log", date, hh, mm);
    case 1: return fmt::format("C:/VLD/{}{}{}.god", date, hh, mm);
    case 2:
      if (s.RinexStandardLayout == 2) return StandardObservationName(s);
      return fmt::format("C:/VLD/{}{:03d}{}{:02d}{}", "simu",
                         gnss::DayIndex(s.ScenarioMonth, s.ScenarioDay), "0.",
                         s.ScenarioYear - 2000, "O");
    case 4: return fmt::format("C:/VLD/{}{}{}.srv", date, hh, mm);
    case 5: return fmt::format("C:/VLD/{}{}{}.scn", date, hh, mm);
    default: return "";
  }
}

std::string DifOutputName(int32_t difFileType, const std::tm& now) {
  return fmt::format("C:/VLD/{}{:02d}{:02d}.{}", RunDate(now), now.tm_hour, now.tm_min,
                     difFileType == 1 ? "bin" : "dat");
}

std::string StationOutputName(int32_t stationRecordType, int station, const ScenarioSettings& s) {
  switch (stationRecordType) {
    case 2:
      return fmt::format("C:/VLD/LAAS/{}{:03d}{}{:02d}{}", fmt::format("rs{}_", station),
                         gnss::DayIndex(s.ScenarioMonth, s.ScenarioDay), "0.",
                         s.ScenarioYear - 2000, "O");
    case 4: return fmt::format("C:/VLD/LAAS/rs{}.srv", station);
    case 5: return fmt::format("C:/VLD/LAAS/rs{}.scn", station);
    default: return "";
  }
}

// The atmosphere models a run needs, their data loaded, and the arguments' own limits.
platform::Status CheckModelsAndArgs(Session& session, const observation::TrajectoryRunArgs& args) {
  observation::ModelAtmosphere models(session.atmosphere, session.densityModel);
  if (observation::RefuseUnavailableModels(&models, args, session.messages))
    return platform::Status::Failed("atmosphere model missing");
  std::string modelError;
  if (args.ionoEnabled == 1 && args.ionoModel != 1 &&
      !models.PrepareSlantIonosphere(args.month, modelError))
    return Refuse(session, modelError);
  const std::string refusal = observation::CheckRunArgs(args);
  if (!refusal.empty()) return Refuse(session, refusal);
  return platform::Status::Ok();
}

// One receiver's run arguments from the settings, with every check that needs no file:
// orbits loaded, the run clock, the atmosphere models and the arguments' own limits.
platform::Status ReceiverRunArgs(Session& session, const Settings& settings,
                                 observation::TrajectoryRunArgs& args) {
  const ScenarioSettings& sc = settings.scenario;
  args.satelliteCount = session.orbitState.satelliteCount;
  args.elevationMask = sc.ElevationMask * kDegToRad;
  platform::Status gathered = GatherAtmosphere(session, settings, args);
  if (!gathered.ok()) return gathered;

  if (!session.orbitState.OrbitsValid) {
    session.messages.Popup("", "Invalid orbits");
    return platform::Status::Failed("Invalid orbits");
  }
  RunClock clock;
  if (!ScenarioRunClock(session, sc, 60, clock))
    return platform::Status::Failed("the scenario's start or duration does not fit the run clock");
  ScenarioArgs(sc, clock, args);
  args.recordType = sc.RecordType;
  args.staticReceiver = sc.TrajectoryMode;
  if (sc.TrajectoryMode == 1) {
    args.latitude = sc.ReceiverLatitude;
    args.longitude = sc.ReceiverLongitude;
    args.altitude = sc.ReceiverAltitude;
  }

  return CheckModelsAndArgs(session, args);
}

platform::Status RunObservationSim(Session& session) { return RunObservationSim(session, 0); }

platform::Status RunObservationSim(Session& session, int32_t lengthSeconds, int32_t earlierMs) {
  const Settings settings = session.settings;  // a run reads its settings once
  const ScenarioSettings& sc = settings.scenario;
  platform::RunActiveScope active(session.RunActive);

  // Every input is checked before the record file is touched.
  observation::TrajectoryRunArgs args;
  platform::Status prepared = ReceiverRunArgs(session, settings, args);
  if (!prepared.ok()) return prepared;
  if (lengthSeconds > 0) {
    args.durationArg = std::min(args.durationArg, lengthSeconds);
    args.endAtDuration = true;
  }
  if (earlierMs > 0 && sc.TrajectoryMode == 1 && args.startMs >= earlierMs)
    args.startMs -= earlierMs;

  platform::LineReader trajectory;  // the run's own: closed when the run ends
  std::filesystem::path trajectoryPath;
  if (sc.TrajectoryMode == 0) {
    trajectoryPath = session.dataDir.Map(sc.TrajectoryFile);
    if (!trajectory.Open(trajectoryPath))
      return Refuse(session,
                    fmt::format("TrajectoryFile {} cannot be read", trajectoryPath.string()));
    args.trajectoryFile = &trajectory;
  }

  std::string outputName = sc.ObservationOutputFile;
  if (outputName.empty() && sc.RecordType != observation::kRecordNone)
    outputName = ObservationOutputName(sc.RecordType, LocalNow(), sc);
  const bool wantsRecord = !(outputName.empty() && sc.RecordType == observation::kRecordNone);
  const std::filesystem::path outputPath = RecordPath(session, outputName);
  if (SameFile(outputPath, trajectoryPath))
    return Refuse(session, fmt::format("ObservationOutputFile {} is the trajectory file the run "
                                       "reads; choose another name",
                                       outputPath.string()));

  const bool rinex = sc.RecordType == observation::kRecordRinex;
  std::filesystem::path navPath;
  if (rinex && sc.RinexNavBeside == 1 && !outputPath.empty()) {
    navPath = NavigationPathBeside(outputPath, sc);
    if (navPath == outputPath || SameFile(navPath, trajectoryPath))
      return Refuse(session, fmt::format("RinexNavBeside: the navigation file {} would replace "
                                         "a file the run uses; give ObservationOutputFile an "
                                         "extension such as .10O",
                                         navPath.string()));
  }

  platform::OutputFile output;
  if (wantsRecord) {
    platform::Status opened = OpenRecord(session, output, outputPath, "ObservationOutputFile");
    if (!opened.ok()) return opened;
  }
  std::optional<observation::RinexRunHeader> runHeader;
  if (rinex && sc.RinexStandardLayout == 2)
    runHeader = PredictedRunHeader(sc, args);
  else if (rinex && output.IsOpen())
    observation::WriteRinexHeader(output, sc.RinexStandardLayout != 0);

  RedateToScenario(session, sc);
  platform::Status status = FlyReceiver(session, args, output, runHeader ? &*runHeader : nullptr);
  // The navigation file follows a record that was written whole, stopped runs included.
  if (status.failed() || navPath.empty()) return status;
  platform::Status nav = WriteNavigationBeside(session, settings, navPath);
  if (nav.failed()) return nav;
  return status;
}

platform::Status TraceFirstEpochRays(Session& session,
                                     std::vector<observation::ModelAtmosphere::Ray>& rays,
                                     gnss::GpsTime& epoch) {
  Settings settings = session.settings;
  const ScenarioSettings& sc = settings.scenario;
  if (sc.TrajectoryMode != 1)
    return Refuse(session, "the rays are traced for a static receiver (TrajectoryMode 1)");
  const atmosphere::AtmosphereSettings& a = settings.atmosphere;
  if (a.atmosphereEnabled != 1 || atmosphere::BroadcastModelChosen(a) == 1)
    return Refuse(session,
                  "the ionosphere along the ray needs atmosphereEnabled 1 and klobucharSelected 0");
  settings.bubble.bubbleRecordEnabled = 0;  // a look at one epoch writes no record
  observation::TrajectoryRunArgs args;
  platform::Status prepared = ReceiverRunArgs(session, settings, args);
  if (!prepared.ok()) return prepared;
  RedateToScenario(session, sc);
  // A state of its own: the first epoch of a program start, a bubble that has not drifted.
  atmosphere::AtmosphereState atmosphere = session.atmosphere;
  atmosphere.slant = atmosphere::SlantIonoState{};
  observation::EpochState state;
  observation::ModelAtmosphere models(atmosphere, session.densityModel);
  models.rays = &rays;
  platform::RandState rand;
  observation::EpochEnvironment env{session.constellation, state, rand, &models, {}};
  const observation::EpochResult result = observation::ComputeFirstEpoch(env, args);
  epoch.week = result.gpsWeek;
  epoch.secondsOfWeek = result.timeMs / 1000.0;
  return platform::Status::Ok();
}

gnss::GpsTime ScenarioStartTime(const ScenarioSettings& s) { return ScenarioGpsTime(s); }

platform::Status SkyRowsAtStart(Session& session, std::vector<observation::DisplayRow>& rows) {
  Settings settings = session.settings;
  settings.scenario.TrajectoryMode = 1;
  settings.atmosphere.atmosphereEnabled = 0;
  settings.bubble.bubbleEnabled = 0;
  settings.bubble.bubbleRecordEnabled = 0;
  observation::TrajectoryRunArgs args;
  platform::Status prepared = ReceiverRunArgs(session, settings, args);
  if (!prepared.ok()) return prepared;
  RedateToScenario(session, settings.scenario);
  observation::EpochState state;
  platform::RandState rand;
  observation::EpochEnvironment env{session.constellation, state, rand, nullptr, {}};
  observation::ComputeFirstEpoch(env, args);
  rows = state.displayRows;
  return platform::Status::Ok();
}

platform::Status RunRawGeneration(Session& session) {
  platform::RunActiveScope active(session.RunActive);
  const Settings first = session.settings;
  const StationSettings& st = first.stations;
  const int32_t satelliteCount = session.orbitState.satelliteCount;
  double firstLongitude = 0.0;
  platform::Status overall;

  for (int station = 1; station <= kStations; ++station) {
    const int i = station - 1;
    // Each station reads the settings afresh, as the panels were read per station.
    const Settings settings = session.settings;
    const ScenarioSettings& sc = settings.scenario;
    RunClock clock;
    if (!ScenarioRunClock(session, sc, 60000, clock))
      return platform::Status::Failed("the scenario's start or duration does not fit the run clock");
    observation::TrajectoryRunArgs args;
    args.satelliteCount = satelliteCount;
    args.recordType = st.StationRecordType;
    args.stationLatchEnabled = st.StationLatchEnabled;
    if (st.StationLatchEnabled == 1) {
      for (int k = 0; k < 4; ++k) args.stationValues[k] = st.StationLatchValues[k];
    }
    platform::Status gathered = GatherAtmosphere(session, settings, args);
    if (!gathered.ok()) return gathered;
    ScenarioArgs(sc, clock, args);
    args.elevationMask = settings.stations.StationMask[i] * kDegToRad;

    const StationSettings& now = settings.stations;
    double latitude = now.StationLatitude[i];
    double longitude = now.StationLongitude[i];
    if (station == 1) {
      firstLongitude = longitude;
      if (now.StationCoordinatesAbsolute != 1) {
        session.originLatitude = latitude;
        session.originLongitude = longitude;
      }
      args.stationAlongTrack = now.StationBaseOffset;
    } else if (now.StationCoordinatesAbsolute == 1) {
      args.stationAlongTrack = now.StationBaseOffset + (longitude - firstLongitude) * kMetresPerDegree;
    } else {
      // The north offset moves both coordinates; the east offset is read and not applied.
      latitude = session.originLatitude + now.StationOffsetNorth[i] / kMetresPerDegree;
      longitude = session.originLongitude + now.StationOffsetNorth[i] / kMetresPerDegree;
      args.stationAlongTrack = (longitude - firstLongitude) * kMetresPerDegree + now.StationBaseOffset;
    }
    args.latitude = latitude;
    args.longitude = longitude;
    args.altitude = now.StationAltitude[i];
    args.staticReceiver = 1;

    // The station's inputs before its record file.
    platform::Status checked = CheckModelsAndArgs(session, args);
    if (!checked.ok()) return checked;
    const std::filesystem::path eventPath = session.dataDir.Map(settings.stations.StationEventFile[i]);
    platform::LineReader events(eventPath);
    if (!events.IsOpen())
      session.messages.Warn(fmt::format("event file {} of station {} cannot be read: no events",
                                        events.path(), station));
    args.eventFile = events.IsOpen() ? &events : nullptr;

    std::string outputName = settings.stations.StationOutputFile[i];
    if (outputName.empty()) outputName = StationOutputName(st.StationRecordType, station, sc);
    const std::filesystem::path outputPath = RecordPath(session, outputName);
    if (SameFile(outputPath, eventPath))
      return Refuse(session, fmt::format("StationOutputFile {} of station {} is its event file; "
                                         "choose another name",
                                         outputPath.string(), station));
    platform::OutputFile output;
    platform::Status opened = OpenRecord(session, output, outputPath,
                                         fmt::format("StationOutputFile of station {}", station));
    if (!opened.ok()) return opened;

    RedateToScenario(session, sc);
    platform::Status status = FlyReceiver(session, args, output);
    if (status.failed()) return status;
    overall.Update(status);
  }
  return overall;
}

int WriteStationEventFiles(Session& session) {
  int written = 0;
  for (int i = 0; i < kStations; ++i) {
    const auto path = session.dataDir.Map(session.settings.stations.StationEventFile[i]);
    if (observation::WriteEventSkeleton(path)) {
      ++written;
      session.lastOutputs.push_back(path.string());
    } else {
      session.messages.Warn(fmt::format("event file {} cannot be created", path.string()));
    }
  }
  return written;
}

}  // namespace vorel::app
