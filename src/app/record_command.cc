#include "app/record_command.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "app/dif_command.h"
#include "app/scenario_runs.h"
#include "app/startup.h"
#include "dif/iq_generation.h"
#include "dif/nav_bit_table.h"
#include "dif/recording_description.h"
#include "dif/scn_reader.h"
#include "gnss/constants.h"
#include "gnss/time_coords.h"
#include "orbits/orbit_files.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

namespace fs = std::filesystem;

constexpr double kSecondsOfWeek = 604800.0;
// A broadcast ephemeris serves two hours either side of its toe.
constexpr double kEphemerisReach = 7200.0;
// The share of the work the observation run takes (the samples take the rest).
constexpr double kObservationShare = 15.0;
// The epochs of the record behind a complex recording: 20 ms apart, the I/Q form taking the
// range as a straight line between them (at most 10 micrometres off), a twentieth of the
// work of one epoch a millisecond. The real form reads one epoch a millisecond.
constexpr int32_t kIqRecordIntervalMs = 20;

struct RecordOptions {
  std::string orbits;
  std::string output;
  std::optional<std::string> start;
  std::optional<double> latitude, longitude, altitude;
  std::optional<double> seconds;
  std::optional<double> fs, ifHz;
  std::optional<int> bits;
  bool packed = false;
  bool direct = false;
  bool iq8 = false, iq16 = false;  // complex baseband instead of the real IF form
  bool Iq() const { return iq8 || iq16; }
};

// A refusal before anything is written: the message and the exit status.
struct Refusal {
  std::string text;
  int status = 1;
};

std::optional<Refusal> Refuse(std::string text, int status = 1) {
  return Refusal{std::move(text), status};
}

// The folder of the record, removed with everything in it when the command ends.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (fs::temp_directory_path() / "vorel-record-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

std::optional<Refusal> CheckWritable(const fs::path& target, const char* what) {
  const fs::path folder = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  std::error_code ec;
  if (!fs::is_directory(folder, ec))
    return Refuse(fmt::format("{} {}: the folder {} does not exist", what, target.string(),
                              folder.string()));
  if (access(folder.c_str(), W_OK) != 0)
    return Refuse(fmt::format("{} {}: the folder {} is not writable", what, target.string(),
                              folder.string()));
  if (fs::is_directory(target, ec))
    return Refuse(fmt::format("{} {}: is a folder", what, target.string()));
  if (fs::exists(target, ec) && access(target.c_str(), W_OK) != 0)
    return Refuse(fmt::format("{} {}: is read-only", what, target.string()));
  return std::nullopt;
}

fs::path ConfigPathFor(const fs::path& data) {
  fs::path p = data;
  p.replace_extension(".gnss-sdr.conf");
  return p;
}

fs::path ReceiverOutputFor(const fs::path& data) {
  fs::path p = data;
  p.replace_extension(".gnss-sdr");
  return p;
}

std::string Number(double v) { return fmt::format("{}", v); }

// The complex form: any whole rate, the IF an offset from the band's centre, one byte
// (or word) each for I and Q, so neither packing nor a bit count of its own.
std::optional<Refusal> IqAssignments(const RecordOptions& o, std::vector<std::string>& out) {
  const char* flag = o.iq8 ? "--iq8" : "--iq16";
  if (o.iq8 && o.iq16) return Refuse("--iq8 and --iq16 exclude each other", 2);
  if (o.packed) return Refuse(fmt::format("{} and --packed exclude each other: I/Q samples are "
                                          "whole bytes", flag),
                              2);
  if (o.bits)
    return Refuse(fmt::format("{} and --bits exclude each other: {} sets {} bits", flag, flag,
                              o.iq8 ? 8 : 16),
                  2);
  if (o.fs) {
    if (!(*o.fs >= 1.0e6 && *o.fs <= 60.0e6) || std::floor(*o.fs) != *o.fs)
      return Refuse(fmt::format("--fs {}: with {} give a whole number of Hz from 1000000 to "
                                "60000000",
                                *o.fs, flag),
                    2);
    out.push_back(fmt::format("IqSampleRate={:.0f}", *o.fs));
  }
  if (o.ifHz) out.push_back("IqIfOffset=" + Number(*o.ifHz));
  out.insert(out.end(), {"SampleForm=iq", o.iq8 ? "IqFormat=ci8" : "IqFormat=ci16",
                         "OutputPacked=Direct", o.iq8 ? "BitsPerSample=8" : "BitsPerSample=16"});
  return std::nullopt;
}

// The record's own options as assignments, applied after every other source.
std::optional<Refusal> OptionAssignments(const RecordOptions& o, std::vector<std::string>& out) {
  if (o.latitude) out.push_back("ReceiverLatitude=" + Number(*o.latitude));
  if (o.longitude) out.push_back("ReceiverLongitude=" + Number(*o.longitude));
  if (o.altitude) out.push_back("ReceiverAltitude=" + Number(*o.altitude));
  if (o.latitude || o.longitude || o.altitude) out.push_back("TrajectoryMode=1");
  if (o.start) {
    int32_t y, mo, d, h, mi;
    double s;
    if (!ParseStartTime(*o.start, y, mo, d, h, mi, s))
      return Refuse(fmt::format("--start {}: not a date and time of the form "
                                "2010-07-01T10:00:00",
                                *o.start),
                    2);
    out.insert(out.end(), {fmt::format("ScenarioYear={}", y), fmt::format("ScenarioMonth={}", mo),
                           fmt::format("ScenarioDay={}", d), fmt::format("ScenarioHour={}", h),
                           fmt::format("ScenarioMinute={}", mi), "ScenarioSecond=" + Number(s)});
  }
  if (o.seconds) {
    if (!(*o.seconds >= 1.0 && *o.seconds <= 86400.0))
      return Refuse(fmt::format("--seconds {}: give 1 to 86400", *o.seconds), 2);
    // A hair over the whole milliseconds, so that the run's count of them is not one short.
    out.push_back(fmt::format("Duration={:.17g}", (*o.seconds + 0.0002) / 60.0));
  }
  if (o.Iq()) return IqAssignments(o, out);
  if (o.fs) {
    std::string rate, decimation;
    if (!RateSettings(*o.fs, rate, decimation))
      return Refuse(fmt::format("--fs {}: the generator samples at 16368000, 40920000 or 54560000 "
                                "Hz and may keep every 2nd or 3rd sample (8184000, 5456000, "
                                "20460000, 13640000, 27280000 Hz)",
                                *o.fs),
                    2);
    out.push_back("SamplingFrequency=" + rate);
    out.push_back("Decimation=" + decimation);
  }
  if (o.ifHz) out.push_back("IfFrequency=" + Number(*o.ifHz / 1000.0));
  if (o.bits) out.push_back(fmt::format("BitsPerSample={}", *o.bits));
  if (o.packed && o.direct) return Refuse("--packed and --direct exclude each other", 2);
  if (o.packed) out.push_back("OutputPacked=Packed");
  if (o.direct) out.push_back("OutputPacked=Direct");
  return std::nullopt;
}

// Settings in order: what start-up made; the record's defaults; the scenario file and
// --set again, so that what the user named wins; the record's options; and last what the
// command itself needs to work (a 1 ms .scn record in its temporary folder).
std::optional<Refusal> RecordSettings(const CommandContext& c, const RecordOptions& o,
                                      const fs::path& record, Settings& st) {
  std::string error;
  auto apply = [&](const std::string& a, std::string_view source) {
    return ApplySetAssignment(st, a, source, error);
  };
  // A complex recording stays noise-free (IqNoise 0): the receiver under test adds its own.
  for (const char* a : {kRecordProfile, "MaxChannels=16"})
    if (!apply(a, "record")) return Refuse(error, 2);
  if (!c.global.scenarioFile.empty() && !ApplyScenarioFile(st, c.global.scenarioFile, error))
    return Refuse(error, 2);
  for (const std::string& a : c.global.assignments)
    if (!apply(a, "--set")) return Refuse(error, 2);
  std::vector<std::string> own;
  if (auto refusal = OptionAssignments(o, own)) return refusal;
  for (const std::string& a : own)
    if (!apply(a, "record")) return Refuse(error, 2);
  st.scenario.ObservationInterval = o.Iq() ? kIqRecordIntervalMs : 1;
  st.scenario.RecordType = 5;
  st.scenario.ObservationEnabled = 1;
  st.scenario.ObservationOutputFile = record.string();
  st.dif.ScenarioDriven = 1;
  st.dif.DifOutputFile = o.output;
  // The record runs a whole minute past the samples, so they never outrun it.
  st.scenario.ScenarioDuration = static_cast<int32_t>(std::floor(st.dif.Duration)) + 1;
  return std::nullopt;
}

std::optional<Refusal> CheckRecordingShape(const Settings& st) {
  const dif::DifPanelValues panel = DifPanelFromSettings(st);
  const dif::DifSettings d = dif::GatherDifSettings(panel);
  if (const std::string why = dif::CheckDifSettings(d); !why.empty()) return Refuse(why, 2);
  if (d.SampleForm == dif::kSampleFormIq) return std::nullopt;  // its own checks are above
  const RecordingShape shape = ShapeOf(d);
  const double rate = d.SamplingFrequency / shape.decimation;
  if (!(d.IfFrequency > 0.0) || rate < 2.0 * d.IfFrequency)
    return Refuse(fmt::format("sampling rate {} Hz is below twice the IF ({} Hz): the L1 signal "
                              "would fold over; lower --if or raise --fs",
                              rate, d.IfFrequency),
                  2);
  if (shape.skippedPerMs > 0)
    return Refuse(fmt::format("{} Hz with {} bit(s) packed leaves {} samples out of every "
                              "millisecond; choose another rate or --direct",
                              rate, d.BitsPerSample, shape.skippedPerMs),
                  2);
  if (d.BitsPerSample < 1 || d.BitsPerSample > 8)
    return Refuse(fmt::format("--bits {}: give 1 to 8", d.BitsPerSample), 2);
  return std::nullopt;
}

// GPS seconds since the GPS epoch as a calendar date ("2010-07-01T10:00:00").
std::string CalendarText(double gpsSeconds) {
  using namespace std::chrono;
  const auto epoch = sys_days{year{1980} / January / 6};
  const auto t = epoch + seconds(static_cast<int64_t>(std::floor(gpsSeconds)));
  const auto day = floor<days>(t);
  const year_month_day ymd{day};
  const hh_mm_ss hms{t - day};
  return fmt::format("{:04d}-{:02d}-{:02d}T{:02d}:{:02d}:{:02d}", static_cast<int>(ymd.year()),
                     static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                     hms.hours().count(), hms.minutes().count(), hms.seconds().count());
}

// A navigation file's ephemerides serve from two hours before the first toe to two hours
// after the last; the whole recording must lie inside.
std::optional<Refusal> CheckOrbitValidity(const Session& s, const fs::path& file, double start,
                                          double length) {
  double first = INFINITY, last = -INFINITY;
  for (int i = 0; i < 32; ++i) {
    if (!s.constellation.Present(i)) continue;
    const orbits::SatelliteOrbits& sat = s.constellation.rows[i];
    for (int r = 0; r < std::min(sat.recordCount, orbits::kRecordsPerSet); ++r) {
      const orbits::OrbitRecord& rec = sat.trueRecords[r];
      const double t = rec.week * kSecondsOfWeek + rec.toe;
      first = std::min(first, t);
      last = std::max(last, t);
    }
  }
  if (!std::isfinite(first)) return Refuse(fmt::format("{}: no usable ephemeris", file.string()));
  const double from = first - kEphemerisReach, to = last + kEphemerisReach;
  if (start < from || start + length > to)
    return Refuse(fmt::format("the recording from {} for {} s (GPS time) lies outside what {} "
                              "serves: {} to {}",
                              CalendarText(start), length, file.string(), CalendarText(from),
                              CalendarText(to)));
  return std::nullopt;
}

// The satellites of the record's first epoch with their Doppler (from the range change to
// the next), and how many satellites the record holds at any time.
void ScanRecord(const fs::path& record, std::vector<dif::SatelliteAtStart>& atStart,
                int32_t& holds) {
  platform::LineReader file(record);
  dif::ScnReaderStatics statics;
  dif::RecordState state;
  dif::ScnReadIssues issues;
  int32_t timeMs = 0, count = 0, firstMs = 0;
  std::set<int32_t> seen;
  std::map<int32_t, double> firstRange;
  for (int64_t epoch = 0; ReadScnEpoch(file, statics, state, timeMs, count, issues); ++epoch) {
    if (epoch == 0) firstMs = statics.timeMs;
    const int32_t spacing = epoch == 1 ? dif::EpochSpacingMs(firstMs, statics.timeMs) : 0;
    for (int32_t j = 0; j < std::clamp(statics.count, 0, 32); ++j) {
      const int32_t prn = state.prnList[j];
      if (prn < 1 || prn > 32) continue;
      seen.insert(prn);
      if (epoch == 0) firstRange[prn] = state.codeRange[prn - 1].next;
      if (epoch == 1 && spacing > 0 && firstRange.count(prn)) {
        const double rangeRate =
            (state.codeRange[prn - 1].next - firstRange[prn]) * 1000.0 / spacing;
        atStart.push_back({prn, -rangeRate / gnss::kSpeedOfLight * gnss::kL1Frequency});
      }
    }
  }
  holds = static_cast<int32_t>(seen.size());
}

std::string StartUtc(const ScenarioSettings& sc) {
  const double whole = std::floor(sc.ScenarioSecond);
  const int millis = static_cast<int>(std::lround((sc.ScenarioSecond - whole) * 1000.0));
  return fmt::format("{:04d}-{:02d}-{:02d}T{:02d}:{:02d}:{:02d}{}Z", sc.ScenarioYear,
                     sc.ScenarioMonth, sc.ScenarioDay, sc.ScenarioHour, sc.ScenarioMinute,
                     static_cast<int>(whole), millis ? fmt::format(".{:03d}", millis) : "");
}

// Maps the observation run's and the DIF run's own percentages onto one scale for the
// whole command, so that the time left is reckoned over all of it.
class CombinedProgress {
 public:
  explicit CombinedProgress(platform::Messages& messages)
      : messages_(messages), original_(messages.progress) {}
  ~CombinedProgress() {
    messages_.progress = original_;
    if (original_) original_(0.0);
  }
  void Stage(double from, double to) {
    messages_.progress = [this, from, to](double percent) {
      if (percent > 0.0 && original_) original_(from + (to - from) * std::min(percent, 100.0) / 100.0);
    };
  }

 private:
  platform::Messages& messages_;
  std::function<void(double)> original_;
};

// The navigation files, written beside the observation run where there are threads to
// spare. Each message re-dates the orbits before it is made; once they have settled (see
// SettleForMessages) the messages need only a copy of the table, in which each selects in
// its own row, so they can be made while the run works on the session's table.
class NavigationBeside {
 public:
  NavigationBeside(Session& s, int threads) : s_(s), threads_(threads), settings_(NavSettings(s)) {}
  ~NavigationBeside() {
    if (thread_.joinable()) thread_.join();
  }

  // Writes the files, or sets them going; false when writing them failed. The DIF run's
  // bit table takes a copy of the bits, converted as the run converts what it reads.
  bool Start() {
    auto redate = [this](double sow, int32_t week) { RedateOrbits(s_.constellation, sow, week); };
    if (threads_ > 1 && settings_.OrbitsValid != 0 &&
        navmsg::SettleForMessages(settings_, s_.constellation, redate)) {
      table_ = std::make_unique<orbits::ConstellationTable>(s_.constellation);
      thread_ = std::thread([this] {
        const platform::Messages recorder = log_.Recorder();
        try {
          result_ = WriteAndKeep(*table_, state_, recorder, {});
        } catch (const std::exception& e) {
          recorder.Popup("Error message", e.what());
          result_ = -1;
        }
      });
      return true;
    }
    return WriteAndKeep(s_.constellation, s_.navMessage, s_.messages, redate) == 0;
  }

  // The files, with the bits kept in the DIF run's table; 0 or -1.
  int WriteAndKeep(orbits::ConstellationTable& table, navmsg::NavMessageState& state,
                   const platform::Messages& messages, const navmsg::RedateOrbitsFn& redate) {
    dif::NavBitTable& bits = s_.dif.navBitTable;
    bits.EnsureAllocated();
    navmsg::NavBitCopies copies;
    for (int p = 0; p < dif::kNavBitRows; ++p) copies.rows[p] = bits.Row(p);
    copies.length = dif::kNavBitsPerRow;
    const int result = navmsg::WriteAllNavigationFiles(settings_, table, s_.dataDir.root(), state,
                                                       messages, redate, threads_, &copies);
    if (result == 0)
      for (int p = 0; p < dif::kNavBitRows; ++p) dif::ConvertNavBits(bits.Row(p));
    return result;
  }

  // Waits for the files and tells what their writing said; false when it failed. The
  // session is left as writing them first would have left it: the message state, and the
  // selections in the rows the run passes over (those without a usable record).
  bool Finish() {
    if (!thread_.joinable()) return true;
    thread_.join();
    log_.Replay(s_.messages);
    if (result_ != 0) return false;
    s_.navMessage = state_;
    for (size_t r = 0; r < s_.constellation.rows.size(); ++r)
      if (s_.constellation.rows[r].trueRecords[0].status != orbits::kStatusUsable)
        s_.constellation.rows[r].selectedRecord = table_->rows[r].selectedRecord;
    return true;
  }

 private:
  Session& s_;
  int threads_;
  navmsg::NavMessageSettings settings_;
  std::unique_ptr<orbits::ConstellationTable> table_;
  std::thread thread_;
  platform::MessageLog log_;
  navmsg::NavMessageState state_;
  int result_ = 0;
};

struct Written {
  fs::path data, meta, config;
  dif::RecordingDescription description;
  dif::DifRunOutcome outcome;
};

std::optional<Refusal> Prepare(CommandContext& c, const RecordOptions& o, const fs::path& record,
                               Settings& st, int32_t& keepOrbitEpochs) {
  const fs::path data = o.output;
  for (const auto& [path, what] : {std::pair{data, "-o"},
                                   std::pair{dif::SigmfMetaPathFor(data), "description"},
                                   std::pair{ConfigPathFor(data), "configuration"}})
    if (auto refusal = CheckWritable(path, what)) return refusal;
  const fs::path orbitFile = c.session.dataDir.Map(o.orbits);
  std::error_code ec;
  if (!fs::is_regular_file(orbitFile, ec))
    return Refuse(fmt::format("--orbits {}: no such file", orbitFile.string()));
  if (fs::equivalent(orbitFile, data, ec))
    return Refuse(fmt::format("-o {}: is the orbit file", data.string()));
  keepOrbitEpochs = orbits::DetectOrbitFileType(orbitFile.string());
  if (keepOrbitEpochs < 0)
    return Refuse(fmt::format("--orbits {}: neither a RINEX navigation header nor a YUMA "
                              "\"ID:\" line found",
                              orbitFile.string()));
  if (auto refusal = RecordSettings(c, o, record, st)) return refusal;
  st.scenario.KeepOrbitEpochs = keepOrbitEpochs;
  return CheckRecordingShape(st);
}

std::optional<Refusal> LoadAndCheckOrbits(Session& s, const RecordOptions& o, gnss::GpsTime& t) {
  orbits::LoadAlmanacArgs args;
  args.KeepOrbitEpochs = s.settings.scenario.KeepOrbitEpochs;
  args.path = s.dataDir.Map(o.orbits).string();
  if (orbits::LoadAlmanac(s.constellation, s.orbitState, args, s.messages) != 1)
    return Refuse(fmt::format("--orbits {}: no usable orbit found", args.path));
  t = SetScenarioTime(s);
  if (args.KeepOrbitEpochs != 1) return std::nullopt;  // an almanac is re-dated to the start
  const double length = s.settings.dif.Duration * 60.0;
  return CheckOrbitValidity(s, args.path, t.week * kSecondsOfWeek + t.secondsOfWeek, length);
}

dif::RecordingDescription Describe(const Session& s, const fs::path& data, const gnss::GpsTime& t,
                                   const dif::DifRunOutcome& outcome) {
  const Settings& st = s.settings;
  const dif::DifSettings& d = outcome.settings;
  const RecordingShape shape = ShapeOf(d);
  dif::RecordingDescription r;
  r.dataFile = data;
  r.samplingFrequency = d.SamplingFrequency / shape.decimation;
  r.ifFrequency = d.IfFrequency;
  r.centreFrequency = gnss::kL1Frequency;
  r.bits = d.BitsPerSample;
  r.packed = d.OutputPacked == 1;
  r.samples = static_cast<int64_t>(outcome.report.blocks) * shape.writtenPerMs;
  if (d.SampleForm == dif::kSampleFormIq) {
    // The band is centred where L1 minus the offset lies; I and Q make one sample.
    r.complexSamples = true;
    r.samplingFrequency = static_cast<double>(d.IqSampleRate);
    r.ifFrequency = d.IqIfOffset;
    r.centreFrequency = gnss::kL1Frequency - d.IqIfOffset;
    r.bits = 8 * d.IqBytes;
    r.packed = false;
    r.samples = outcome.report.bytes / (2 * d.IqBytes);
    r.amplitude = d.IqAmplitude;
    r.noiseCn0 = d.IqNoise != 0 ? d.SignalPower + 204.0 : 0.0;
    r.heldValues = outcome.report.heldValues;
  }
  r.startUtc = StartUtc(st.scenario);
  r.gpsWeek = t.week;
  r.gpsSecondsOfWeek = t.secondsOfWeek;
  r.latitude = st.scenario.ReceiverLatitude;
  r.longitude = st.scenario.ReceiverLongitude;
  r.altitude = st.scenario.ReceiverAltitude;
  r.recorder = fmt::format("vorel {}", kVersion);
  r.description = fmt::format("GPS L1 C/A, simulated: {} ms of signal at {:.4f} N {:.4f} E {:.0f} m",
                              outcome.report.blocks, r.latitude, r.longitude, r.altitude);
  return r;
}

int Run(CommandContext& c, const RecordOptions& o) {
  Session& s = c.session;
  TemporaryFolder folder;
  if (folder.path().empty()) {
    fmt::print(stderr, "record: no temporary folder could be made for the record\n");
    return 1;
  }
  const fs::path record = folder.path() / "record.scn";
  Settings st = s.settings;
  int32_t keep = 0;
  std::optional<Refusal> refusal = Prepare(c, o, record, st, keep);
  gnss::GpsTime start;
  if (!refusal) {
    s.settings = st;
    refusal = LoadAndCheckOrbits(s, o, start);
  }
  if (refusal) {
    fmt::print(stderr, "record: {}\n", refusal->text);
    return refusal->status;
  }

  CombinedProgress progress(s.messages);
  NavigationBeside navigation(s, DifThreadCount(s.settings));
  if (!navigation.Start()) return 1;
  progress.Stage(0.0, kObservationShare);
  // The samples need the record only as far as they go; a second more covers the last
  // block's next epoch with room to spare.
  const auto recordSeconds =
      static_cast<int32_t>(std::ceil(s.settings.dif.Duration * 60.0)) + 1;
  const int32_t interval = s.settings.scenario.ObservationInterval;
  const platform::Status observed = RunObservationSim(s, recordSeconds, 2 * interval - 2);
  if (!navigation.Finish()) return 1;
  if (!observed.ok()) return observed.ExitStatus();
  s.lastOutputs.clear();

  Written w;
  w.data = o.output;
  w.meta = dif::SigmfMetaPathFor(w.data);
  w.config = ConfigPathFor(w.data);
  progress.Stage(kObservationShare, 100.0);
  const int status = RunDif(s, record.string(), w.outcome, /*navBitsInTable=*/true);
  if (w.outcome.refused || w.outcome.popup || w.outcome.status.failed())
    return status != 0 ? status : 1;
  if (w.outcome.status.stopped()) return w.outcome.status.ExitStatus();

  w.description = Describe(s, w.data, start, w.outcome);
  ScanRecord(record, w.description.satellites, w.description.channelCount);
  dif::GnssSdrOptions receiver;
  receiver.outputFolder = ReceiverOutputFor(w.data);
  receiver.ionosphereModel = receiver.troposphereModel = s.settings.atmosphere.atmosphereEnabled != 0;
  std::string config, error;
  const bool haveConfig = dif::GnssSdrConfig(w.description, receiver, config, error);
  if (!haveConfig) s.messages.Warn(fmt::format("record: no GNSS-SDR configuration: {}", error));
  if (!platform::WriteWholeFile(w.meta, dif::SigmfMetaJson(w.description), error) ||
      (haveConfig && !platform::WriteWholeFile(w.config, config, error))) {
    fmt::print(stderr, "Error message: {}\n", error);
    return 1;
  }
  if (!c.global.quiet) {
    fmt::print("wrote {}\nwrote {}\n", w.data.string(), w.meta.string());
    if (haveConfig) fmt::print("wrote {}\n", w.config.string());
    fmt::print("{}\n", DescribeRecording(w.outcome.settings, w.outcome.report));
    std::string list;
    for (const auto& sat : w.description.satellites)
      list += fmt::format(" {}({:+.0f} Hz)", sat.prn, sat.doppler);
    fmt::print("satellites at the start:{}\n", list);
    if (haveConfig) fmt::print("receiver: gnss-sdr --config_file={}\n", w.config.string());
  }
  return 0;
}

}  // namespace

bool ParseStartTime(const std::string& text, int32_t& year, int32_t& month, int32_t& day,
                    int32_t& hour, int32_t& minute, double& second) {
  int consumed = 0;
  int y, mo, d, h, mi;
  double s;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%lf%n", &y, &mo, &d, &h, &mi, &s,
                  &consumed) != 6)
    return false;
  const std::string rest = text.substr(static_cast<size_t>(consumed));
  if (!rest.empty() && rest != "Z") return false;
  static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (y < 1980 || y > 2099 || mo < 1 || mo > 12 || d < 1 || d > kDays[mo - 1] || h < 0 ||
      h > 23 || mi < 0 || mi > 59 || !(s >= 0.0 && s < 60.0))
    return false;
  if (mo == 2 && d == 29 && y % 4 != 0) return false;
  year = y, month = mo, day = d, hour = h, minute = mi, second = s;
  return true;
}

bool RateSettings(double fs, std::string& samplingFrequency, std::string& decimation) {
  for (const char* base : {"16368", "40920", "54560"}) {
    const double hz = std::atof(base) * 1000.0;
    for (int d = 1; d <= 3; ++d) {
      if (std::fmod(hz, d) != 0.0 || std::fmod(hz / d, 1000.0) != 0.0 || hz / d != fs) continue;
      samplingFrequency = base;
      decimation = d == 1 ? "none" : std::to_string(d);
      return true;
    }
  }
  return false;
}

std::function<int(CommandContext&)> RecordCommand(CLI::App& p) {
  auto o = std::make_shared<RecordOptions>();
  p.add_option("--orbits", o->orbits, "RINEX navigation file or YUMA almanac (told by content)")
      ->required();
  p.add_option("-o,--output", o->output, "the recording; FILE.sigmf-meta and "
                                         "FILE.gnss-sdr.conf are written beside it")
      ->required();
  p.add_option("--lat", o->latitude, "receiver latitude, degrees (default ReceiverLatitude)");
  p.add_option("--lon", o->longitude, "receiver longitude, degrees (default ReceiverLongitude)");
  p.add_option("--alt", o->altitude, "receiver height, m (default ReceiverAltitude)");
  p.add_option("--start", o->start, "first sample, e.g. 2010-07-01T10:00:00 (default: the "
                                    "scenario date)");
  p.add_option("--seconds", o->seconds, "length of the recording (default Duration: 60 s)");
  p.add_option("--fs", o->fs, "samples a second in the file (default 16368000; with --iq8 or "
                              "--iq16 any whole rate from 1 to 60 MHz, default 4000000)");
  p.add_option("--if", o->ifHz, "intermediate frequency, Hz (default 4092000; with --iq8 or "
                                "--iq16 where L1 lies from the band's centre, default 0)");
  p.add_option("--bits", o->bits, "bits a sample, 1 or 2 for receivers (default 2)");
  p.add_flag("--packed", o->packed, "pack the samples into bytes, earliest lowest (the default)");
  p.add_flag("--direct", o->direct, "one sample a byte");
  p.add_flag("--iq8", o->iq8, "complex baseband, I then Q a signed byte each (ci8)");
  p.add_flag("--iq16", o->iq16, "complex baseband, I then Q a signed little-endian 16-bit "
                                "word each (ci16_le)");
  return [o](CommandContext& c) { return Run(c, *o); };
}

}  // namespace vorel::app
