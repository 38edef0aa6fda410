#include "observation/record_writers.h"

#include <cmath>
#include <iterator>

#include <fmt/format.h>

#include "platform/text_file.h"

namespace vorel::observation {

const char kEventFileHeader[] =
    " epoch,prn,flag,code step,size,fin epoch,code ramp ,size,fin epoch,code accel,size,fin "
    "epoch,carr step ,size,fin epoch,carr ramp ,size,fin epoch, carr accel ,size,fin epoch";

void WriteLogLine(platform::OutputFile& file, int32_t timeMs) { file.Print("# {}\n", timeMs); }

void WriteGodItem(platform::OutputFile& file, int32_t timeMs) { file.Print("\n {}", timeMs); }

void WriteSrvRecord(platform::OutputFile& file, const EpochResult& result) {
  auto out = std::back_inserter(file.buffer());
  fmt::format_to(out, "{:f}\n{:3d}\n", result.timeMs / 1000.0, result.channelCount);
  // Columns 9 and 10 are differences to channel 0 of the epoch.
  const EpochChannel& channel0 = result.channels[0];
  for (const EpochChannel& c : result.channels) {
    if (!c.valid) continue;
    fmt::format_to(out, "{}  {:14.3f}  {:14.3f} {:14.3f}  {:6.3f}  {:14.3f}  {:6.3f}  {:6.3f}  ",
                   c.prn, c.codeRange, c.carrierRange, c.doppler, c.signalLevel, c.geometricRange,
                   c.azimuth, c.elevation);
    fmt::format_to(out, "{:14.3f}  {:14.3f}  \n", c.codeRange - channel0.codeRange,
                   c.geometricRange - channel0.geometricRange);
  }
  file.MaybeFlush();
}

void WriteScnRecord(platform::OutputFile& file, const EpochResult& result) {
  auto out = std::back_inserter(file.buffer());
  fmt::format_to(out, "{}\n{:3d}\n", result.timeMs, result.channelCount);
  for (const EpochChannel& c : result.channels) {
    if (!c.valid) continue;
    fmt::format_to(out, "{}  {:14.3f}  {:14.3f}  {}  \n", c.prn, c.codeRange, c.carrierRange,
                   c.bubbleClass);
  }
  file.MaybeFlush();
}

namespace {

void HeaderLine(platform::OutputFile& file, std::string_view data, std::string_view label) {
  file.Print("{:<60}{:<20}\n", data, label);
}

}  // namespace

void WriteRinexHeader(platform::OutputFile& file, bool standardLayout) {
  HeaderLine(file, "     2.11           OBSERVATION DATA    G (GPS)", "RINEX VERSION / TYPE");
  HeaderLine(file, " Tumo v.3           ???                  3-APR-96 00:10", "PGM / RUN BY / DATE");
  HeaderLine(file, "", "COMMENT");
  HeaderLine(file, "Tumo 01", "MARKER NAME");
  HeaderLine(file, "001", "MARKER NUMBER");
  HeaderLine(file, "USER                ???", "OBSERVER / AGENCY");
  HeaderLine(file, "X1234A123           XX                  ZZZ", "REC # / TYPE / VERS");
  HeaderLine(file, "234                 YY", "ANT # / TYPE");
  HeaderLine(file, "  4375274.       587466.      4589095.", "APPROX POSITION XYZ");
  HeaderLine(file, "         .9030         .0000         .0000", "ANTENNA: DELTA H/E/N");
  HeaderLine(file, "     1     1", "WAVELENGTH FACT L1/2");
  // The program's own line puts C1 one column early; standard readers want 4X,A2 fields.
  HeaderLine(file, standardLayout ? "     3    C1    L1    D1" : "     3   C1     L1    D1",
             "# / TYPES OF OBSERV");
  HeaderLine(file, "    1", "INTERVAL");
  HeaderLine(file, "  1990     3    24    13    10   36.000000", "TIME OF FIRST OBS");
  HeaderLine(file, "", "END OF HEADER");
}

int SignalStrengthDigit(double signalLevel) {
  const float level = static_cast<float>(signalLevel);
  if (level > 316.0f) return 9;
  if (level > 100.0f) return 8;
  if (level > 31.6f) return 7;
  if (level > 10.0f) return 6;
  if (level > 3.2f) return 5;
  if (level > 0.0f) return 4;
  return 0;
}

RinexCalendar RinexEpochCalendar(int32_t gpsWeek, int32_t timeMs) {
  const double seconds = timeMs / 1000.0;
  const double dayOfWeek = std::floor(seconds / 3600 / 24);
  int32_t w = gpsWeek;
  if (w < 900) w += 1024;
  const double jd = dayOfWeek + 2444244.5 + 7.0 * w + 0.5;
  double j = std::floor(jd);
  double f = jd - j;
  if (f < 0) {
    j -= 1;
    f += 1;
  }
  double a = j;
  if (j >= 2299161) {
    const double alpha = std::floor((j - 1867216.25) / 36524.25);
    a = j + 1 + alpha - std::floor(0.25 * alpha);
  }
  const double b = a + 1524;
  const double c = std::floor((b - 122.1) / 365.25);
  const double d = std::floor(365.25 * c);
  const double e = std::floor((b - d) / 30.6001);
  RinexCalendar cal;
  cal.month = static_cast<int32_t>(e < 14 ? e - 1 : e - 13);
  cal.year = static_cast<int32_t>(cal.month > 2 ? c - 4716 : c - 4715);
  cal.day = static_cast<int32_t>(std::trunc(b - d - std::floor(30.6001 * e) + std::floor(f)));
  const double inDay = std::fmod(seconds, 86400.0);
  cal.second = std::fmod(inDay, 60.0);
  cal.minute = static_cast<int32_t>(std::floor((std::fmod(inDay, 3600.0) - cal.second) / 60));
  cal.hour = static_cast<int32_t>(std::trunc((inDay - cal.second - 60 * cal.minute) / 3600));
  return cal;
}

void WriteRinexRunHeader(platform::OutputFile& file, const RinexRunHeader& header) {
  HeaderLine(file, "     2.11           OBSERVATION DATA    G (GPS)", "RINEX VERSION / TYPE");
  // No creation date: the same run gives the same bytes.
  HeaderLine(file, "vorel", "PGM / RUN BY / DATE");
  HeaderLine(file, header.marker, "MARKER NAME");
  HeaderLine(file, "", "OBSERVER / AGENCY");
  HeaderLine(file, fmt::format("{:<20}{:<20}", "", "vorel simulated"), "REC # / TYPE / VERS");
  HeaderLine(file, "", "ANT # / TYPE");
  const auto& p = header.approxEcef;
  HeaderLine(file, fmt::format("{:14.4f}{:14.4f}{:14.4f}", p[0], p[1], p[2]),
             "APPROX POSITION XYZ");
  HeaderLine(file, fmt::format("{:14.4f}{:14.4f}{:14.4f}", 0.0, 0.0, 0.0),
             "ANTENNA: DELTA H/E/N");
  HeaderLine(file, "     1     0", "WAVELENGTH FACT L1/2");
  HeaderLine(file, "     3    C1    L1    D1", "# / TYPES OF OBSERV");
  if (header.intervalMs > 0)
    HeaderLine(file, fmt::format("{:10.3f}", header.intervalMs / 1000.0), "INTERVAL");
  // The epoch lines' own calendar, so that the first epoch and this line agree.
  const RinexCalendar c = RinexEpochCalendar(header.gpsWeek, header.firstTimeMs);
  HeaderLine(file,
             fmt::format("{:6d}{:6d}{:6d}{:6d}{:6d}{:13.7f}     GPS", c.year, c.month, c.day,
                         c.hour, c.minute, c.second),
             "TIME OF FIRST OBS");
  HeaderLine(file, "", "END OF HEADER");
}

void WriteRinexEpoch(platform::OutputFile& file, const EpochResult& result, int32_t eventFlag,
                     bool standardLayout, bool dopplerHz) {
  const bool observations = eventFlag == 0 || eventFlag == 1 || eventFlag == 6;
  if (observations && result.channelCount == 0) return;
  const RinexCalendar cal = RinexEpochCalendar(result.gpsWeek, result.timeMs);
  auto out = std::back_inserter(file.buffer());
  fmt::format_to(out, " {:02d} {:02d} {:02d} {:02d} {:02d}{:11.7f}  {:1d}{:3d}", cal.year - 2000,
                 cal.month, cal.day, cal.hour, cal.minute, cal.second, eventFlag,
                 result.channelCount);
  if (observations) {
    int listed = 0;
    for (const EpochChannel& c : result.channels) {
      if (!c.valid) continue;
      if (standardLayout && listed > 0 && listed % 12 == 0) fmt::format_to(out, "\n{:32}", "");
      fmt::format_to(out, "G{:2d}", c.prn);
      ++listed;
    }
    fmt::format_to(out, "\n");
    for (const EpochChannel& c : result.channels) {
      if (!c.valid) continue;
      fmt::format_to(out, "{:14.3f}  {:14.3f} {:01d}{:14.3f}  \n", c.codeRange, c.carrierCycles,
                     SignalStrengthDigit(c.signalLevel),
                     dopplerHz ? c.doppler * 1000.0 : c.doppler);
    }
  }
  file.MaybeFlush();
}

namespace {

// A record writer as a sink: every written epoch goes to the run's record file.
class RecordSink : public EpochSink {
 public:
  explicit RecordSink(platform::OutputFile& file) : file_(file) {}
  void OnEpoch(const EpochResult& result, const EpochContext& context) final {
    if (context.written) Write(result);
  }

 protected:
  virtual void Write(const EpochResult& result) = 0;
  platform::OutputFile& file_;
};

class LogSink : public RecordSink {
  using RecordSink::RecordSink;
  void Write(const EpochResult& result) override { WriteLogLine(file_, result.timeMs); }
};

class GodSink : public RecordSink {
  using RecordSink::RecordSink;
  void Write(const EpochResult& result) override { WriteGodItem(file_, result.timeMs); }
};

class RinexSink : public RecordSink {
 public:
  RinexSink(platform::OutputFile& file, bool standardLayout)
      : RecordSink(file), standardLayout_(standardLayout) {}

 private:
  void Write(const EpochResult& result) override {
    WriteRinexEpoch(file_, result, 0, standardLayout_);
  }
  bool standardLayout_;
};

// Writes its header at the first epoch that has observations, so that the header's
// position and time are those of the run.
class RinexRunSink : public EpochSink {
 public:
  RinexRunSink(platform::OutputFile& file, const RinexRunHeader& predicted)
      : file_(file), header_(predicted) {}
  void OnEpoch(const EpochResult& result, const EpochContext& context) override {
    if (!context.written) return;
    if (result.channelCount > 0 && !headerWritten_) {
      header_.approxEcef = context.receiverEcef;
      header_.gpsWeek = result.gpsWeek;
      header_.firstTimeMs = result.timeMs;
      WriteHeaderOnce();
    }
    WriteRinexEpoch(file_, result, 0, true, true);
  }
  // A run without a single observation still leaves a whole file: the header alone.
  void OnRunEnd() override { WriteHeaderOnce(); }

 private:
  void WriteHeaderOnce() {
    if (headerWritten_) return;
    WriteRinexRunHeader(file_, header_);
    headerWritten_ = true;
  }
  platform::OutputFile& file_;
  RinexRunHeader header_;
  bool headerWritten_ = false;
};

class SrvSink : public RecordSink {
  using RecordSink::RecordSink;
  void Write(const EpochResult& result) override { WriteSrvRecord(file_, result); }
};

class ScnSink : public RecordSink {
  using RecordSink::RecordSink;
  void Write(const EpochResult& result) override { WriteScnRecord(file_, result); }
};

}  // namespace

std::unique_ptr<EpochSink> MakeRecordSink(int32_t recordType, platform::OutputFile& file,
                                          bool rinexStandardLayout) {
  switch (recordType) {
    case kRecordLog:
      return std::make_unique<LogSink>(file);
    case kRecordGod:
      return std::make_unique<GodSink>(file);
    case kRecordRinex:
      return std::make_unique<RinexSink>(file, rinexStandardLayout);
    case kRecordSrv:
      return std::make_unique<SrvSink>(file);
    case kRecordScn:
      return std::make_unique<ScnSink>(file);
    default:
      return nullptr;
  }
}

std::unique_ptr<EpochSink> MakeRinexRunSink(platform::OutputFile& file,
                                            const RinexRunHeader& predicted) {
  return std::make_unique<RinexRunSink>(file, predicted);
}

bool WriteEventSkeleton(const std::filesystem::path& path) {
  platform::OutputFile file;
  if (!file.Open(path)) return false;
  file.Print("{}\n", kEventFileHeader);
  return file.Close();
}

}  // namespace vorel::observation
