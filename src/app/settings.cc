#include "app/settings.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "atmosphere/atmosphere_text.h"
#include "dif/ca_code.h"
#include "platform/messages.h"
#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool ParseIntText(std::string_view text, int32_t& value, std::string& error) {
  text = Trim(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || v < INT32_MIN ||
      v > INT32_MAX) {
    error = fmt::format("expected a whole number, got \"{}\"", text);
    return false;
  }
  value = static_cast<int32_t>(v);
  return true;
}

bool ParseDoubleText(std::string_view text, double& value, std::string& error) {
  return atmosphere::ParseSettingNumber(text, value, error) == 0;
}

std::vector<std::string_view> SplitCommas(std::string_view text) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  for (;;) {
    size_t comma = text.find(',', start);
    parts.push_back(Trim(text.substr(start, comma == std::string_view::npos ? text.npos : comma - start)));
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return parts;
}

std::string ShowDouble(double v) { return fmt::format("{}", v); }

using IntRef = std::function<int32_t&(Settings&)>;
using DoubleRef = std::function<double&(Settings&)>;
using TextRef = std::function<std::string&(Settings&)>;
template <typename T>
using ArrayRef = std::function<std::array<T, kStations>&(Settings&)>;

SettingDef Int(std::string name, IntRef ref, std::string unit, std::string meaning,
               int32_t lo = INT32_MIN, int32_t hi = INT32_MAX) {
  SettingDef d{std::move(name), "int", std::move(unit), std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) { return fmt::format("{}", ref(const_cast<Settings&>(s))); };
  d.fromText = [ref, lo, hi](Settings& s, std::string_view text, std::string& error) {
    int32_t v = 0;
    if (!ParseIntText(text, v, error)) return false;
    if (v < lo || v > hi) {
      error = fmt::format("{} is outside {} to {}", v, lo, hi);
      return false;
    }
    ref(s) = v;
    return true;
  };
  return d;
}

SettingDef Double(std::string name, DoubleRef ref, std::string unit, std::string meaning) {
  SettingDef d{std::move(name), "double", std::move(unit), std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) { return ShowDouble(ref(const_cast<Settings&>(s))); };
  d.fromText = [ref](Settings& s, std::string_view text, std::string& error) {
    double v = 0;
    if (!ParseDoubleText(text, v, error)) return false;
    ref(s) = v;
    return true;
  };
  return d;
}

SettingDef Text(std::string name, TextRef ref, std::string type, std::string meaning) {
  SettingDef d{std::move(name), std::move(type), "", std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) { return "\"" + ref(const_cast<Settings&>(s)) + "\""; };
  d.fromText = [ref](Settings& s, std::string_view text, std::string&) {
    ref(s) = std::string(Trim(text));
    return true;
  };
  return d;
}

SettingDef Choice(std::string name, TextRef ref, std::vector<std::string> choices,
                  std::string meaning) {
  SettingDef d{std::move(name), "text", "", std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) { return "\"" + ref(const_cast<Settings&>(s)) + "\""; };
  d.fromText = [ref, choices](Settings& s, std::string_view text, std::string& error) {
    text = Trim(text);
    for (const auto& c : choices) {
      if (c == text) {
        ref(s) = c;
        return true;
      }
    }
    error = fmt::format("expected one of {}, got \"{}\"", fmt::join(choices, ", "), text);
    return false;
  };
  return d;
}

SettingDef DoubleArray(std::string name, ArrayRef<double> ref, std::string unit,
                       std::string meaning) {
  SettingDef d{std::move(name), "4 x double", std::move(unit), std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) {
    auto& a = ref(const_cast<Settings&>(s));
    return fmt::format("[{}, {}, {}, {}]", ShowDouble(a[0]), ShowDouble(a[1]), ShowDouble(a[2]),
                       ShowDouble(a[3]));
  };
  d.fromText = [ref](Settings& s, std::string_view text, std::string& error) {
    auto parts = SplitCommas(text);
    if (parts.size() != kStations) {
      error = fmt::format("expected {} values (stations 1 to 4), got {}", kStations, parts.size());
      return false;
    }
    std::array<double, kStations> v{};
    for (int i = 0; i < kStations; ++i) {
      if (!ParseDoubleText(parts[i], v[i], error)) {
        error = fmt::format("station {}: {}", i + 1, error);
        return false;
      }
    }
    ref(s) = v;
    return true;
  };
  return d;
}

SettingDef TextArray(std::string name, ArrayRef<std::string> ref, std::string meaning) {
  SettingDef d{std::move(name), "4 x path", "", std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) {
    auto& a = ref(const_cast<Settings&>(s));
    return fmt::format("[\"{}\", \"{}\", \"{}\", \"{}\"]", a[0], a[1], a[2], a[3]);
  };
  d.fromText = [ref](Settings& s, std::string_view text, std::string& error) {
    auto parts = SplitCommas(text);
    if (parts.size() != kStations) {
      error = fmt::format("expected {} paths (stations 1 to 4), got {}", kStations, parts.size());
      return false;
    }
    for (int i = 0; i < kStations; ++i) ref(s)[i] = std::string(parts[i]);
    return true;
  };
  return d;
}

SettingDef IonoTable(std::string name,
                     std::function<atmosphere::IonoCoefficientTable&(Settings&)> ref,
                     std::string meaning) {
  SettingDef d{name, "8 x double", "s/semicircle^n", std::move(meaning), {}, {}};
  d.show = [ref](const Settings& s) {
    return atmosphere::FormatIonoTable(ref(const_cast<Settings&>(s)));
  };
  d.fromText = [ref, name](Settings& s, std::string_view text, std::string& error) {
    std::string_view t = Trim(text);
    if (t.size() >= 2 && t.front() == '[' && t.back() == ']') t = t.substr(1, t.size() - 2);
    if (atmosphere::ParseIonoTable(name, t, ref(s), error) != 0) {
      // The parser names the setting itself; the caller adds the source.
      const std::string prefix = name + ": ";
      if (error.rfind(prefix, 0) == 0) error = error.substr(prefix.size());
      return false;
    }
    return true;
  };
  return d;
}

SettingDef MultipathTableSetting() {
  SettingDef d{"MultipathTable", "up to 8 rows of 6", "", "multipath rows: switch (\"y\", \"n\", other keeps the row before's), label, PRN, amplitude, delay, start time (s); `--set` form `y,,5,0.5,30,2;n,,7,0.3,10,0`", {}, {}};
  d.show = [](const Settings& s) {
    std::vector<std::string> rows;
    for (const dif::MultipathRow& r : s.dif.MultipathTable)
      rows.push_back(fmt::format("[\"{}\", \"{}\", {}, {}, {}, {}]", r.enable, r.label, r.prn,
                                 ShowDouble(r.amplitude), ShowDouble(r.delay), ShowDouble(r.startTime)));
    return fmt::format("[{}]", fmt::join(rows, ", "));
  };
  d.fromText = [](Settings& s, std::string_view text, std::string& error) {
    std::vector<dif::MultipathRow> rows;
    text = Trim(text);
    if (!text.empty()) {
      size_t start = 0;
      for (;;) {
        const size_t semi = text.find(';', start);
        const std::string_view rowText = text.substr(start, semi == std::string_view::npos ? text.npos : semi - start);
        const auto cols = SplitCommas(rowText);
        const int number = static_cast<int>(rows.size()) + 1;
        if (cols.size() != 6) {
          error = fmt::format("row {}: expected 6 columns (switch, label, PRN, amplitude, delay, start time), got {}", number, cols.size());
          return false;
        }
        dif::MultipathRow row;
        row.enable = std::string(cols[0]);
        row.label = std::string(cols[1]);
        std::string why;
        if (!ParseIntText(cols[2], row.prn, why) || !ParseDoubleText(cols[3], row.amplitude, why) ||
            !ParseDoubleText(cols[4], row.delay, why) || !ParseDoubleText(cols[5], row.startTime, why)) {
          error = fmt::format("row {}: {}", number, why);
          return false;
        }
        rows.push_back(row);
        if (rows.size() > static_cast<size_t>(dif::kMultipathRows)) {
          error = fmt::format("the table has {} rows at most", dif::kMultipathRows);
          return false;
        }
        if (semi == std::string_view::npos) break;
        start = semi + 1;
      }
    }
    s.dif.MultipathTable = std::move(rows);
    return true;
  };
  return d;
}

SettingDef SignalChoiceSetting() {
  SettingDef d{"SignalChoice", "text", "", "signal button: CA, L1C, L2C, L5, SP1, SP2 or BOC; sets SignalOptionA/B and nothing else: every run makes C/A code on L1", {}, {}};
  d.show = [](const Settings& s) { return "\"" + s.dif.SignalChoice + "\""; };
  d.fromText = [](Settings& s, std::string_view text, std::string& error) {
    dif::SignalChoice choice;
    const std::string t(Trim(text));
    if (!dif::ParseSignalChoice(t, choice)) {
      error = fmt::format("expected one of CA, L1C, L2C, L5, SP1, SP2, BOC, got \"{}\"", t);
      return false;
    }
    const dif::SignalOptions o = dif::SignalChoiceOptions(choice);
    s.dif.SignalChoice = t;
    s.dif.SignalOptionA = o.optionA;
    s.dif.SignalOptionB = o.optionB;
    return true;
  };
  return d;
}

#define S_INT(NAME, EXPR, ...) Int(#NAME, [](Settings& s) -> int32_t& { return s.EXPR; }, __VA_ARGS__)
#define S_DBL(NAME, EXPR, ...) Double(#NAME, [](Settings& s) -> double& { return s.EXPR; }, __VA_ARGS__)
#define S_TXT(NAME, EXPR, ...) Text(#NAME, [](Settings& s) -> std::string& { return s.EXPR; }, __VA_ARGS__)
#define S_DARR(NAME, EXPR, ...) \
  DoubleArray(#NAME, [](Settings& s) -> std::array<double, kStations>& { return s.EXPR; }, __VA_ARGS__)

std::vector<SettingDef> BuildRegistry() {
  std::vector<SettingDef> r;
  // Scenario.
  r.push_back(S_INT(ObservationEnabled, scenario.ObservationEnabled, "", "1: `sim` runs the observation run (when DifEnabled is 0)"));
  r.push_back(S_INT(DifEnabled, scenario.DifEnabled, "", "1: `sim` runs the DIF run"));
  r.push_back(S_INT(ScenarioYear, scenario.ScenarioYear, "", "scenario date: year"));
  r.push_back(S_INT(ScenarioMonth, scenario.ScenarioMonth, "", "scenario date: month", 1, 12));
  r.push_back(S_INT(ScenarioDay, scenario.ScenarioDay, "", "scenario date: day of month", 1, 31));
  r.push_back(S_INT(ScenarioHour, scenario.ScenarioHour, "h", "scenario start: hour (GPS time)"));
  r.push_back(S_INT(ScenarioMinute, scenario.ScenarioMinute, "min", "scenario start: minute"));
  r.push_back(S_DBL(ScenarioSecond, scenario.ScenarioSecond, "s", "scenario start: second"));
  r.push_back(S_INT(LeapSeconds, scenario.LeapSeconds, "s", "added to the GPS seconds of week of the scenario date"));
  r.push_back(S_INT(ScenarioDuration, scenario.ScenarioDuration, "min", "length of an observation run (a reference station run lasts 1000 times longer unless stopped)"));
  r.push_back(S_INT(ObservationInterval, scenario.ObservationInterval, "ms", "epoch interval of a static receiver; 1 for a record that feeds a DIF run"));
  r.push_back(S_DBL(ElevationMask, scenario.ElevationMask, "deg", "satellites below are left out"));
  r.push_back(S_INT(TrajectoryMode, scenario.TrajectoryMode, "", "1: static receiver at ReceiverLatitude/Longitude/Altitude; 0: TrajectoryFile"));
  r.push_back(S_TXT(TrajectoryFile, scenario.TrajectoryFile, "path", "trajectory: one line per epoch, `ms,lat,lon,alt,x`"));
  r.push_back(S_DBL(ReceiverLatitude, scenario.ReceiverLatitude, "deg", "static receiver latitude"));
  r.push_back(S_DBL(ReceiverLongitude, scenario.ReceiverLongitude, "deg", "static receiver longitude"));
  r.push_back(S_DBL(ReceiverAltitude, scenario.ReceiverAltitude, "m", "static receiver height above the ellipsoid"));
  r.push_back(S_INT(ConstellationChoice, scenario.ConstellationChoice, "", "signal system: below 3: 32 satellites; 3-5: 24; 6: 3; 7: 36; above: 0. 0 alone gives the L1 carrier, others a carrier of 0"));
  r.push_back(S_INT(KeepOrbitEpochs, scenario.KeepOrbitEpochs, "", "0: move the orbits to the scenario time and load orbit files as YUMA; 1: keep their epochs and load as RINEX navigation"));
  r.push_back(S_DBL(CodeNoiseSigma, scenario.CodeNoiseSigma, "m", "code noise standard deviation (drawn, not applied)"));
  r.push_back(S_DBL(PhaseNoiseSigma, scenario.PhaseNoiseSigma, "m", "phase noise standard deviation (drawn, not applied)"));
  r.push_back(S_INT(RecordType, scenario.RecordType, "", "record of an observation run: 0 .log, 1 .god, 2 RINEX, 3 none, 4 .srv, 5 .scn", 0, 5));
  r.push_back(S_TXT(ObservationOutputFile, scenario.ObservationOutputFile, "path", "record file of an observation run; empty: named from the date and time by RecordType"));
  r.push_back(S_INT(AuxiliaryInputDisabled, scenario.AuxiliaryInputDisabled, "", "0: AuxiliaryInputFile is opened (and never read)"));
  r.push_back(S_TXT(AuxiliaryInputFile, scenario.AuxiliaryInputFile, "path", "auxiliary input, opened only"));
  r.push_back(S_TXT(OrbitFile, scenario.OrbitFile, "path", "YUMA almanac loaded at start-up"));
  r.push_back(S_INT(RinexStandardLayout, scenario.RinexStandardLayout, "", "1: RINEX observation files in the standard 2.11 columns with continuation lines, for standard tools; 0: the program's own layout", 0, 1));
  // Reference stations.
  r.push_back(S_DARR(StationMask, stations.StationMask, "deg", "elevation mask of stations 1 to 4"));
  r.push_back(S_DARR(StationLatitude, stations.StationLatitude, "deg", "station latitudes (absolute mode; station 1 in relative mode)"));
  r.push_back(S_DARR(StationLongitude, stations.StationLongitude, "deg", "station longitudes (absolute mode; station 1 in relative mode)"));
  r.push_back(S_DARR(StationAltitude, stations.StationAltitude, "m", "station heights"));
  r.push_back(S_DARR(StationOffsetNorth, stations.StationOffsetNorth, "m", "relative mode, stations 2 to 4: moves both latitude and longitude by offset / 111120"));
  r.push_back(S_DARR(StationOffsetEast, stations.StationOffsetEast, "m", "relative mode: read, not applied"));
  r.push_back(TextArray("StationOutputFile", [](Settings& s) -> std::array<std::string, kStations>& { return s.stations.StationOutputFile; }, "record files of stations 1 to 4; empty: named by StationRecordType"));
  r.push_back(TextArray("StationEventFile", [](Settings& s) -> std::array<std::string, kStations>& { return s.stations.StationEventFile; }, "event files of stations 1 to 4 (`events` writes their skeletons)"));
  r.push_back(S_INT(StationRecordType, stations.StationRecordType, "", "record of the station runs: 2 RINEX (no header), 4 .srv, 5 .scn; others as RecordType", 0, 5));
  r.push_back(S_INT(StationCoordinatesAbsolute, stations.StationCoordinatesAbsolute, "", "1: absolute station coordinates; 0: relative to station 1"));
  r.push_back(S_INT(StationLatchEnabled, stations.StationLatchEnabled, "", "1: latch the first epoch's time (carried only)"));
  r.push_back(S_DARR(StationLatchValues, stations.StationLatchValues, "", "four latch values, carried and not applied"));
  r.push_back(S_DBL(StationBaseOffset, stations.StationBaseOffset, "m", "along-track offset of station 1"));
  // Atmosphere.
  r.push_back(S_INT(atmosphereEnabled, atmosphere.atmosphereEnabled, "", "1: troposphere and ionosphere on"));
  r.push_back(S_DBL(surfaceTemperature, atmosphere.surfaceTemperature, "degC", "surface temperature at the receiver"));
  r.push_back(S_DBL(surfacePressure, atmosphere.surfacePressure, "mbar", "surface pressure at the receiver"));
  r.push_back(S_DBL(surfaceHumidity, atmosphere.surfaceHumidity, "%", "relative humidity at the receiver"));
  r.push_back(S_INT(tropoModel, atmosphere.tropoModel, "", "troposphere model 1, 2 or 3", 1, 3));
  r.push_back(S_INT(klobucharSelected, atmosphere.klobucharSelected, "", "1: broadcast (Klobuchar) ionosphere; 0: electron density model"));
  r.push_back(S_DBL(solarFlux, atmosphere.solarFlux, "sfu", "10.7 cm solar flux for the electron density model"));
  r.push_back(S_DBL(sunspotNumber, atmosphere.sunspotNumber, "", "twelve-month smoothed sunspot number"));
  r.push_back(IonoTable("ionoTruthTable", [](Settings& s) -> atmosphere::IonoCoefficientTable& { return s.atmosphere.ionoTruthTable; }, "Klobuchar coefficients the simulated ionosphere obeys: alpha0..alpha3, beta0..beta3"));
  r.push_back(IonoTable("ionoBroadcastTable", [](Settings& s) -> atmosphere::IonoCoefficientTable& { return s.atmosphere.ionoBroadcastTable; }, "Klobuchar coefficients the navigation message transmits: alpha0..alpha3, beta0..beta3"));
  // Bubble.
  r.push_back(S_INT(bubbleEnabled, bubble.bubbleEnabled, "", "1: a plasma bubble in the slant ionosphere"));
  r.push_back(S_INT(bubbleClassify, bubble.bubbleClassify, "", "1: classify the delay taken out"));
  r.push_back(S_DBL(bubbleLatitude, bubble.bubbleLatitude, "deg", "latitude of the bubble's centre"));
  r.push_back(S_DBL(bubbleLonNorth, bubble.bubbleLonNorth, "deg", "longitude of the centre of the north edge"));
  r.push_back(S_DBL(bubbleLonSouth, bubble.bubbleLonSouth, "deg", "longitude of the centre of the south edge"));
  r.push_back(S_DBL(bubbleWidth, bubble.bubbleWidth, "km", "east-west extent"));
  r.push_back(S_DBL(bubbleLength, bubble.bubbleLength, "km", "north-south extent"));
  r.push_back(S_DBL(bubbleDrift, bubble.bubbleDrift, "m/s", "drift speed along the east-west axis"));
  r.push_back(S_INT(bubbleDriftWest, bubble.bubbleDriftWest, "", "1: drift to the west"));
  r.push_back(S_INT(bubbleApplyDelay, bubble.bubbleApplyDelay, "", "1: take the electrons inside the bubble out of the delay"));
  r.push_back(S_INT(bubbleRecordEnabled, bubble.bubbleRecordEnabled, "", "1: write the bubble record file"));
  r.push_back(S_TXT(bubbleRecordPath, bubble.bubbleRecordPath, "path", "bubble record file"));
  r.push_back(S_DBL(bubbleDepth, bubble.bubbleDepth, "", "carried, not used"));
  r.push_back(S_INT(bubbleMode, bubble.bubbleMode, "", "carried, not used"));
  // Navigation message.
  r.push_back(S_INT(navPrn, nav.navPrn, "", "satellite of `nav` (1 to 32)"));
  r.push_back(S_INT(IodcFollowsIode, nav.IodcFollowsIode, "", "1: the navigation message's IODC carries the record's IODE, for receivers that insist they match; 0: IODC 562 in every frame", 0, 1));
  // DIF panel values that start-up reads.
  r.push_back(S_DBL(Duration, dif.Duration, "min", "length of a DIF run"));
  r.push_back(Choice("OutputPacked", [](Settings& s) -> std::string& { return s.dif.OutputPacked; }, {"Direct", "Packed"}, "sample file layout: Direct (one sample a byte) or Packed"));
  r.push_back(S_INT(FilterOn, dif.FilterOn, "", "1: band-pass filter the DIF samples"));
  r.push_back(S_INT(MaxChannels, dif.MaxChannels, "", "most channels of a DIF run"));
  r.push_back(S_TXT(DifOutputFile, dif.DifOutputFile, "path", "sample file of a DIF run; empty: named from the date and time"));
  r.push_back(S_INT(DifFileType, dif.DifFileType, "", "1: .bin sample file name, other: .dat"));
  // DIF parameter table, rows 1 to 7, as typed.
  r.push_back(S_DBL(IfFrequency, dif.IfFrequency, "kHz", "intermediate frequency of the L1 carrier in the recording"));
  r.push_back(S_TXT(SamplingFrequency, dif.SamplingFrequency, "text", "sampling rate in kHz by its first character: 1 gives 16368, 4 gives 40920, 5 gives 54560; any other takes the IfFrequency number"));
  r.push_back(S_INT(BitsPerSample, dif.BitsPerSample, "", "quantiser bits (Packed: 1 or 2)"));
  r.push_back(S_DBL(Bandwidth, dif.Bandwidth, "MHz", "pass band of the 27-tap band-pass filter around the IF"));
  r.push_back(S_TXT(FilterWindow, dif.FilterWindow, "text", "filter window by its third character: a Blackman, m Hamming, n Hann, u rectangular, other Bartlett"));
  r.push_back(S_TXT(Decimation, dif.Decimation, "text", "by its first character: n none, 2 or 3 keep every 2nd or 3rd sample"));
  // The other DIF settings.
  r.push_back(S_DBL(SignalPower, dif.SignalPower, "dBW", "sets the noise: sigma = max(0, 9 - 2 (158.5 + SignalPower)) times a satellite's amplitude"));
  r.push_back(S_INT(ScenarioDriven, dif.ScenarioDriven, "", "0: test signal of one satellite; other: follow the .scn record in ObservationOutputFile"));
  r.push_back(S_INT(MultipathOn, dif.MultipathOn, "", "1: add the paths of MultipathTable"));
  r.push_back(MultipathTableSetting());
  r.push_back(S_INT(ScintEnabled, dif.ScintEnabled, "", "1: scintillation from ScintFile"));
  r.push_back(S_INT(ScintType, dif.ScintType, "", "0: all satellites (columns by bubble class); 1: one satellite, ScintPrn from ScintStart"));
  r.push_back(S_TXT(ScintFile, dif.ScintFile, "path", "scintillation data file"));
  r.push_back(S_INT(ScintRate, dif.ScintRate, "1/s", "scintillation values per second (0 means 1)"));
  r.push_back(S_INT(ScintStart, dif.ScintStart, "s", "ScintType 1: seconds into the run before the file is read"));
  r.push_back(S_INT(ScintPrn, dif.ScintPrn, "", "ScintType 1: the satellite that scintillates"));
  r.push_back(S_INT(TestPrn, dif.TestPrn, "", "test signal: satellite 1 to 32", 1, 32));
  r.push_back(S_INT(TestCodeOn, dif.TestCodeOn, "", "test signal: 1 C/A code, other all code values +1"));
  r.push_back(S_INT(TestCarrierOn, dif.TestCarrierOn, "", "test signal: 0 baseband, no carrier"));
  r.push_back(S_INT(TestDataOn, dif.TestDataOn, "", "test signal: 0 takes TestDataMode as 0"));
  r.push_back(S_INT(TestDataMode, dif.TestDataMode, "", "test signal bits: 0 all +1, 1 alternating, 2 from simulated.nvb"));
  r.push_back(S_INT(TestDopplerOn, dif.TestDopplerOn, "", "test signal: 1 applies TestDoppler"));
  r.push_back(S_DBL(TestDoppler, dif.TestDoppler, "Hz", "test signal Doppler"));
  r.push_back(SignalChoiceSetting());
  r.push_back(S_INT(SignalOptionA, dif.SignalOptionA, "", "signal tab option A (set by SignalChoice; no run reads it)"));
  r.push_back(S_INT(SignalOptionB, dif.SignalOptionB, "", "signal tab option B (set by SignalChoice; no run reads it)"));
  r.push_back(S_INT(InCode, dif.InCode, "", "signal tab code toggle 1 or 2 (no run reads it)", 1, 2));
  r.push_back(S_INT(DifThreads, dif.DifThreads, "", "threads of the sample generator (channels on threads), 0: one per core; the file is the same for any number", 0, 64));
  // Scintillation: the series generator and the shaping-filter fit.
  r.push_back(S_DBL(AmpBandLow, scint.AmpBandLow, "Hz", "amplitude band-pass, low corner (at 20 samples/s)"));
  r.push_back(S_DBL(AmpBandHigh, scint.AmpBandHigh, "Hz", "amplitude band-pass, high corner; 10 Hz or more is held at 9.8 Hz"));
  r.push_back(S_DBL(PhaseBandLow, scint.PhaseBandLow, "Hz", "phase band-pass, low corner"));
  r.push_back(S_DBL(PhaseBandHigh, scint.PhaseBandHigh, "Hz", "phase band-pass, high corner; 10 Hz or more is held at 9.8 Hz"));
  r.push_back(S_DBL(ScintIndex, scint.ScintIndex, "", "amplitude scintillation index: standard deviation of the raw amplitude series around its mean of 1"));
  r.push_back(S_DBL(ScintCorrelation, scint.ScintCorrelation, "", "size of the (negative) amplitude-phase correlation; 0 is refused"));
  r.push_back(S_DBL(PhaseSigma, scint.PhaseSigma, "rad", "phase scale"));
  r.push_back(S_INT(AmpFilterOn, scint.AmpFilterOn, "", "1: shape the amplitude with the filter of AmpFilterFile (b times 1.1)"));
  r.push_back(S_INT(PhaseFilterOn, scint.PhaseFilterOn, "", "1: shape the phase with the filter of PhaseFilterFile (b times 3.1)"));
  r.push_back(S_TXT(AmpFilterFile, scint.AmpFilterFile, "path", "amplitude shaping filter (a file written by scint-fit)"));
  r.push_back(S_TXT(PhaseFilterFile, scint.PhaseFilterFile, "path", "phase shaping filter (a file written by scint-fit)"));
  r.push_back(S_TXT(ScintTargetFile, scint.ScintTargetFile, "path", "target response: `N,na`, then N lines `frequency,response`"));
  r.push_back(S_INT(FilterPoles, scint.FilterPoles, "", "na of the fit (scint-load sets it from the target file)"));
  r.push_back(S_INT(FilterZeros, scint.FilterZeros, "", "nb of the fit (scint-load sets N - na - 1)"));
  r.push_back(S_TXT(ScintFilterOutFile, scint.ScintFilterOutFile, "path", "filter file scint-fit writes"));
  std::sort(r.begin(), r.end(), [](const SettingDef& a, const SettingDef& b) { return a.name < b.name; });
  return r;
}

size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> prev(b.size() + 1), cur(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) prev[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    cur[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      cur[j] = std::min({prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (same ? 0 : 1)});
    }
    std::swap(prev, cur);
  }
  return prev[b.size()];
}

std::string UnknownMessage(std::string_view source, std::string_view name) {
  return fmt::format("{}: unknown setting \"{}\" (nearest known name: {})", source, name,
                     NearestSettingName(name));
}

// A TOML value as the text form of --set.
bool TomlToText(const toml::node& node, std::string& text) {
  if (auto v = node.as_integer()) {
    text = fmt::format("{}", v->get());
  } else if (auto f = node.as_floating_point()) {
    text = fmt::format("{}", f->get());
  } else if (auto s = node.as_string()) {
    text = s->get();
  } else if (auto b = node.as_boolean()) {
    text = b->get() ? "1" : "0";
  } else if (auto a = node.as_array()) {
    // A list of lists (a table of rows) becomes rows joined by ';'.
    const bool rows = !a->empty() && a->front().is_array();
    std::vector<std::string> parts;
    for (const toml::node& e : *a) {
      std::string part;
      if (e.is_table() || e.is_array() != rows) return false;
      if (rows) {
        for (const toml::node& cell : *e.as_array())
          if (cell.is_array() || cell.is_table()) return false;
      }
      if (!TomlToText(e, part)) return false;
      parts.push_back(part);
    }
    text = fmt::format("{}", fmt::join(parts, rows ? ";" : ","));
  } else {
    return false;
  }
  return true;
}

bool ApplyTomlTable(Settings& settings, const toml::table& table, const std::string& file,
                    std::string& error) {
  for (const auto& [key, node] : table) {
    const int line = static_cast<int>(node.source().begin.line);
    const std::string source = fmt::format("{}, line {}", file, line);
    if (const toml::table* inner = node.as_table()) {
      if (!ApplyTomlTable(settings, *inner, file, error)) return false;
      continue;
    }
    const SettingDef* def = FindSetting(key.str());
    if (!def) {
      error = UnknownMessage(source, key.str());
      return false;
    }
    std::string text;
    if (!TomlToText(node, text)) {
      error = fmt::format("{}: {} has a value of the wrong kind", source, key.str());
      return false;
    }
    std::string why;
    if (!def->fromText(settings, text, why)) {
      error = fmt::format("{}: {}: {}", source, key.str(), why);
      return false;
    }
  }
  return true;
}

}  // namespace

const std::vector<SettingDef>& SettingRegistry() {
  static const std::vector<SettingDef> registry = BuildRegistry();
  return registry;
}

const SettingDef* FindSetting(std::string_view name) {
  for (const SettingDef& d : SettingRegistry())
    if (d.name == name) return &d;
  return nullptr;
}

std::string NearestSettingName(std::string_view name) {
  const SettingDef* best = nullptr;
  size_t bestDistance = SIZE_MAX;
  for (const SettingDef& d : SettingRegistry()) {
    const size_t dist = EditDistance(name, d.name);
    if (dist < bestDistance) {
      bestDistance = dist;
      best = &d;
    }
  }
  return best ? best->name : std::string();
}

bool ApplySetAssignment(Settings& settings, std::string_view assignment, std::string_view source,
                        std::string& error) {
  const size_t eq = assignment.find('=');
  if (eq == std::string_view::npos) {
    error = fmt::format("{}: \"{}\" is not of the form Name=value", source, assignment);
    return false;
  }
  const std::string_view name = Trim(assignment.substr(0, eq));
  const SettingDef* def = FindSetting(name);
  if (!def) {
    error = UnknownMessage(source, name);
    return false;
  }
  std::string why;
  if (!def->fromText(settings, assignment.substr(eq + 1), why)) {
    error = fmt::format("{}: {}: {}", source, name, why);
    return false;
  }
  return true;
}

bool ApplyScenarioFile(Settings& settings, const std::filesystem::path& path, std::string& error) {
  toml::table table;
  try {
    table = toml::parse_file(path.string());
  } catch (const toml::parse_error& e) {
    error = fmt::format("{}, line {}: {}", path.string(), e.source().begin.line, e.description());
    return false;
  }
  Settings candidate = settings;
  if (!ApplyTomlTable(candidate, table, path.string(), error)) return false;
  settings = std::move(candidate);
  return true;
}

void ReadSettingsFile(Settings& settings, const std::filesystem::path& path,
                      const platform::Messages& messages) {
  settings.SettingsFile = path.string();
  platform::LineReader file;
  if (!file.Open(path)) {
    messages.Warn(fmt::format("settings file {} cannot be read; the built-in defaults stay",
                              path.string()));
    return;
  }
  auto& sc = settings.scenario;
  std::string line;
  int lines = 0;
  std::vector<int> unread;
  bool stoppedAt18 = false;
  for (int n = 1; n <= 36; ++n) {
    if (file.ReadLine(line) < 0) break;
    lines = n;
    double d = 0.0;
    int32_t i = 0;
    std::string s;
    auto readDouble = [&](double& target) {
      if (platform::ScanLine(line, "%s>%s[d]%f", {&d}) == 1) target = d; else unread.push_back(n);
    };
    auto readInt = [&](int32_t& target) {
      if (platform::ScanLine(line, "%s>%s[d]%d", {&i}) == 1) target = i; else unread.push_back(n);
    };
    auto readText = [&](std::string& target) {
      if (platform::ScanLine(line, "%s>%s[d]%s", {&s}) == 1) target = s; else unread.push_back(n);
    };
    switch (n) {
      case 3: readDouble(sc.ReceiverLatitude); break;
      case 4: readDouble(sc.ReceiverLongitude); break;
      case 5: readDouble(sc.ReceiverAltitude); break;
      case 6: readInt(sc.ScenarioYear); break;
      case 7: readInt(sc.ScenarioMonth); break;
      case 8: readInt(sc.ScenarioDay); break;
      case 9: readInt(sc.ScenarioHour); break;
      case 10: readInt(sc.ScenarioMinute); break;
      case 11: readInt(sc.ScenarioDuration); break;
      case 12: readDouble(settings.dif.Duration); break;
      case 13: readText(sc.OrbitFile); break;
      case 14:
        if (platform::ScanLine(line, "%s>%s[d]%d", {&i}) == 1)
          settings.dif.OutputPacked = i == 0 ? "Direct" : "Packed";
        else
          unread.push_back(n);
        break;
      case 15: {
        int32_t on = 0;
        if (platform::ScanLine(line, "%s>%s[d]%d", {&on}) == 1) settings.dif.FilterOn = on != 0;
        else unread.push_back(n);
        break;
      }
      case 16: readInt(settings.dif.MaxChannels); break;
      case 18: {
        // 0 ends the reading; any other value falls through into the output name of
        // line 19, which lines 19 and 20 then overwrite in their turn.
        if (platform::ScanLine(line, "%s>%s[d]%d", {&i}) != 1) {
          unread.push_back(n);
          break;
        }
        if (i == 0) {
          stoppedAt18 = true;
          n = 37;
        }
        else if (platform::ScanLine(line, "%s>%s[d]%s", {&s}) == 1) sc.ObservationOutputFile = s;
        break;
      }
      case 19: readText(sc.ObservationOutputFile); break;
      case 20: readText(settings.dif.DifOutputFile); break;
      default: break;
    }
  }
  if (!unread.empty())
    messages.Warn(fmt::format("settings file {}: line(s) {} could not be read; those settings "
                              "keep their values",
                              path.string(), fmt::join(unread, ", ")));
  if (lines < 36 && !stoppedAt18)
    messages.Warn(fmt::format("settings file {} has {} lines where 36 are expected; the "
                              "settings of the missing lines keep their values",
                              path.string(), lines));
}

std::string SettingsReference() {
  const Settings defaults;
  std::string out =
      "# Settings\n\n"
      "Every value a run reads is a setting. Sources, each overriding the one before: the "
      "built-in defaults below, the 36-line settings file read at start-up "
      "(`--settings FILE`), a TOML scenario file whose keys are these names "
      "(`--scenario FILE.toml`, keys may sit inside tables), and `--set Name=value` on the "
      "command line. Lists (stations, coefficient tables) are written `a,b,c` after `--set` "
      "and as arrays in TOML. Paths that start with C:/VLD are mapped into the data "
      "directory.\n\n"
      "| Setting | Type | Unit | Default | Meaning |\n|---|---|---|---|---|\n";
  for (const SettingDef& d : SettingRegistry()) {
    out += fmt::format("| `{}` | {} | {} | `{}` | {} |\n", d.name, d.type, d.unit,
                       d.show(defaults), d.meaning);
  }
  return out;
}

}  // namespace vorel::app
