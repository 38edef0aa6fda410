#include "app/settings.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "platform/messages.h"
#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::app {
namespace {

using platform::TrimSetting;

void NoteGiven(Settings& settings, std::string_view name);
constexpr double kNone = platform::kNoBound;

// The entry `e` of module struct S, which Settings holds at `Part`.
template <typename S, S Settings::*Part>
std::string ShowIn(const void* e, const Settings& settings) {
  return platform::ShowSetting(*static_cast<const platform::Setting<S>*>(e), settings.*Part);
}

template <typename S, S Settings::*Part>
bool ReadIn(const void* e, Settings& settings, std::string_view text, std::string& error) {
  return platform::ReadSetting(*static_cast<const platform::Setting<S>*>(e), settings.*Part, text,
                               error);
}

template <typename S, S Settings::*Part>
void Append(std::vector<SettingDef>& registry, const platform::SettingTable<S>& table) {
  for (const platform::Setting<S>& e : table)
    registry.push_back(SettingDef{e.name, platform::SettingType(e), e.unit, e.meaning,
                                  platform::SettingRangeText(e.min, e.max), &e,
                                  &ShowIn<S, Part>, &ReadIn<S, Part>});
}

std::vector<SettingDef> BuildRegistry() {
  std::vector<SettingDef> r;
  Append<ScenarioSettings, &Settings::scenario>(r, ScenarioSettingTable());
  Append<StationSettings, &Settings::stations>(r, StationSettingTable());
  Append<atmosphere::AtmosphereSettings, &Settings::atmosphere>(
      r, atmosphere::AtmosphereSettingTable());
  Append<BubblePanel, &Settings::bubble>(r, atmosphere::BubbleSettingTable());
  Append<NavPanel, &Settings::nav>(r, navmsg::NavSettingTable());
  Append<DifPanel, &Settings::dif>(r, dif::DifSettingTable());
  Append<scintillation::ScintSettings, &Settings::scint>(r, scintillation::ScintSettingTable());
  Append<display::MapSettings, &Settings::map>(r, display::MapSettingTable());
  std::sort(r.begin(), r.end(),
            [](const SettingDef& a, const SettingDef& b) { return a.name < b.name; });
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
    NoteGiven(settings, def->name);
  }
  return true;
}

constexpr std::string_view kProfiles[] = {"system", "receiver"};

constexpr ProfileValue kProfileValues[] = {
    {"IodcFollowsIode", "0", "1"},       {"SatClockFromMessage", "0", "1"},
    {"TroposphereInRanges", "0", "1"},   {"AtmosphereUpdateInterval", "0", "1000"},
    {"RinexStandardLayout", "0", "2"},   {"RinexNavBeside", "0", "1"},
    {"CodeWrapFloor", "0", "1"},         {"WholeBlockRate", "0", "1"},
    {"CodeEpochOnWrap", "0", "1"},       {"NavRecordAsRanges", "0", "1"},
};

// A station name goes into a file name of fixed width: exactly four letters or digits.
bool ReadStationName(ScenarioSettings& s, std::string_view text, std::string& error) {
  text = TrimSetting(text);
  const bool ok = text.size() == 4 && std::all_of(text.begin(), text.end(), [](char c) {
                    return std::isalnum(static_cast<unsigned char>(c)) != 0;
                  });
  if (!ok) {
    error = fmt::format("expected 4 letters or digits, got \"{}\"", text);
    return false;
  }
  s.RinexStationName = std::string(text);
  return true;
}

// After a source has set `name`: a profile is spread over its settings, any other
// setting is marked as given so that no profile overrides it.
void NoteGiven(Settings& settings, std::string_view name) {
  if (name == "Profile") {
    ApplyProfile(settings);
  } else {
    settings.given.emplace(name);
  }
}

}  // namespace

std::span<const ProfileValue> ProfileValues() { return kProfileValues; }

void ApplyProfile(Settings& settings) {
  const bool receiver = settings.scenario.Profile == "receiver";
  for (const ProfileValue& v : kProfileValues) {
    if (settings.given.contains(v.name)) continue;
    const SettingDef* def = FindSetting(v.name);
    std::string error;
    if (def) def->fromText(settings, receiver ? v.receiver : v.system, error);
  }
}

const platform::SettingTable<ScenarioSettings>& ScenarioSettingTable() {
  using S = ScenarioSettings;
  static const platform::SettingTable<S> table = {
      {.name = "ObservationEnabled", .member = &S::ObservationEnabled,
       .meaning = "1: `sim` runs the observation run (when DifEnabled is 0)"},
      {.name = "DifEnabled", .member = &S::DifEnabled, .meaning = "1: `sim` runs the DIF run"},
      {.name = "ScenarioYear", .member = &S::ScenarioYear, .min = 1980, .max = 2100,
       .meaning = "scenario date: year"},
      {.name = "ScenarioMonth", .member = &S::ScenarioMonth, .min = 1, .max = 12,
       .meaning = "scenario date: month"},
      {.name = "ScenarioDay", .member = &S::ScenarioDay, .min = 1, .max = 31,
       .meaning = "scenario date: day of month"},
      {.name = "ScenarioHour", .member = &S::ScenarioHour, .unit = "h", .min = 0, .max = 23,
       .meaning = "scenario start: hour (GPS time)"},
      {.name = "ScenarioMinute", .member = &S::ScenarioMinute, .unit = "min", .min = 0,
       .max = 59, .meaning = "scenario start: minute"},
      {.name = "ScenarioSecond", .member = &S::ScenarioSecond, .unit = "s", .min = 0, .max = 60,
       .meaning = "scenario start: second"},
      {.name = "LeapSeconds", .member = &S::LeapSeconds, .unit = "s", .min = 0, .max = 100,
       .meaning = "added to the GPS seconds of week of the scenario date"},
      // A station run counts milliseconds of ScenarioDuration in an int.
      {.name = "ScenarioDuration", .member = &S::ScenarioDuration, .unit = "min", .min = 0,
       .max = 35000,
       .meaning = "length of an observation run (a reference station run lasts 1000 times "
                  "longer unless stopped)"},
      {.name = "ObservationInterval", .member = &S::ObservationInterval, .unit = "ms", .max = 3600000,
       .meaning = "epoch interval of a static receiver; 1 for a record that feeds a DIF run"},
      {.name = "ElevationMask", .member = &S::ElevationMask, .unit = "deg", .min = -90,
       .max = 90, .meaning = "satellites below are left out"},
      {.name = "TrajectoryMode", .member = &S::TrajectoryMode,
       .meaning = "1: static receiver at ReceiverLatitude/Longitude/Altitude; 0: TrajectoryFile"},
      {.name = "TrajectoryFile", .member = &S::TrajectoryFile, .type = "path",
       .meaning = "trajectory: one line per epoch, `ms,lat,lon,alt,x`"},
      {.name = "ReceiverLatitude", .member = &S::ReceiverLatitude, .unit = "deg", .min = -90,
       .max = 90, .meaning = "static receiver latitude"},
      {.name = "ReceiverLongitude", .member = &S::ReceiverLongitude, .unit = "deg",
       .min = -180, .max = 360, .meaning = "static receiver longitude"},
      {.name = "ReceiverAltitude", .member = &S::ReceiverAltitude, .unit = "m",
       .meaning = "static receiver height above the ellipsoid"},
      {.name = "ConstellationChoice", .member = &S::ConstellationChoice,
       .meaning = "signal system: below 3: 32 satellites; 3-5: 24; 6: 3; 7: 36; above: 0. 0 "
                  "alone gives the L1 carrier, others a carrier of 0"},
      {.name = "KeepOrbitEpochs", .member = &S::KeepOrbitEpochs,
       .meaning = "0: move the orbits to the scenario time and load orbit files as YUMA; 1: "
                  "keep their epochs and load as RINEX navigation"},
      {.name = "CodeNoiseSigma", .member = &S::CodeNoiseSigma, .unit = "m", .min = 0,
       .max = kNone, .meaning = "code noise standard deviation (drawn, not applied)"},
      {.name = "PhaseNoiseSigma", .member = &S::PhaseNoiseSigma, .unit = "m", .min = 0,
       .max = kNone, .meaning = "phase noise standard deviation (drawn, not applied)"},
      {.name = "RecordType", .member = &S::RecordType, .min = 0, .max = 5,
       .meaning = "record of an observation run: 0 .log, 1 .god, 2 RINEX, 3 none, 4 .srv, 5 "
                  ".scn"},
      {.name = "ObservationOutputFile", .member = &S::ObservationOutputFile, .type = "path",
       .meaning = "record file of an observation run; empty: named from the date and time by "
                  "RecordType"},
      {.name = "AuxiliaryInputDisabled", .member = &S::AuxiliaryInputDisabled,
       .meaning = "0: AuxiliaryInputFile is opened (and never read)"},
      {.name = "AuxiliaryInputFile", .member = &S::AuxiliaryInputFile, .type = "path",
       .meaning = "auxiliary input, opened only"},
      {.name = "OrbitFile", .member = &S::OrbitFile, .type = "path",
       .meaning = "YUMA almanac loaded at start-up"},
      {.name = "RinexStandardLayout", .member = &S::RinexStandardLayout, .min = 0, .max = 2,
       .meaning = "1: RINEX observation files in the standard 2.11 columns with continuation "
                  "lines, for standard tools; 2: as 1, with a header that tells the run "
                  "(RinexStationName, receiver position, first epoch, interval), D1 in Hz and "
                  "the default name ssssdddf.yyO; 0: the program's own layout"},
      {.name = "Profile", .member = &S::Profile, .type = "system or receiver",
       .meaning = "system: every output as the program makes it; receiver: IodcFollowsIode 1, "
                  "SatClockFromMessage 1, TroposphereInRanges 1, AtmosphereUpdateInterval 1000, "
                  "RinexStandardLayout 2, RinexNavBeside 1, CodeWrapFloor 1, WholeBlockRate 1, "
                  "CodeEpochOnWrap 1, NavRecordAsRanges 1, each unless given itself",
       .choices = kProfiles},
      {.name = "RinexStationName", .member = &S::RinexStationName, .type = "text",
       .meaning = "4 letters or digits: MARKER NAME and the first four characters of the "
                  "default name with RinexStandardLayout 2",
       .read = &ReadStationName},
      {.name = "RinexNavBeside", .member = &S::RinexNavBeside, .min = 0, .max = 1,
       .meaning = "1: a RINEX observation run also writes a RINEX 2.11 navigation file of the "
                  "orbits it flew, same base name, extension .yyN; 0: none"},
  };
  return table;
}

const platform::SettingTable<StationSettings>& StationSettingTable() {
  using S = StationSettings;
  static const platform::SettingTable<S> table = {
      {.name = "StationMask", .member = &S::StationMask, .unit = "deg", .min = -90, .max = 90,
       .meaning = "elevation mask of stations 1 to 4"},
      {.name = "StationLatitude", .member = &S::StationLatitude, .unit = "deg", .min = -90,
       .max = 90,
       .meaning = "station latitudes (absolute mode; station 1 in relative mode)"},
      {.name = "StationLongitude", .member = &S::StationLongitude, .unit = "deg", .min = -180,
       .max = 360,
       .meaning = "station longitudes (absolute mode; station 1 in relative mode)"},
      {.name = "StationAltitude", .member = &S::StationAltitude, .unit = "m",
       .meaning = "station heights"},
      {.name = "StationOffsetNorth", .member = &S::StationOffsetNorth, .unit = "m",
       .meaning = "relative mode, stations 2 to 4: moves both latitude and longitude by offset "
                  "/ 111120"},
      {.name = "StationOffsetEast", .member = &S::StationOffsetEast, .unit = "m",
       .meaning = "relative mode: read, not applied"},
      {.name = "StationOutputFile", .member = &S::StationOutputFile,
       .meaning = "record files of stations 1 to 4; empty: named by StationRecordType"},
      {.name = "StationEventFile", .member = &S::StationEventFile,
       .meaning = "event files of stations 1 to 4 (`events` writes their skeletons)"},
      {.name = "StationRecordType", .member = &S::StationRecordType, .min = 0, .max = 5,
       .meaning = "record of the station runs: 2 RINEX (no header), 4 .srv, 5 .scn; others as "
                  "RecordType"},
      {.name = "StationCoordinatesAbsolute", .member = &S::StationCoordinatesAbsolute,
       .meaning = "1: absolute station coordinates; 0: relative to station 1"},
      {.name = "StationLatchEnabled", .member = &S::StationLatchEnabled,
       .meaning = "1: latch the first epoch's time (carried only)"},
      {.name = "StationLatchValues", .member = &S::StationLatchValues,
       .meaning = "four latch values, carried and not applied"},
      {.name = "StationBaseOffset", .member = &S::StationBaseOffset, .unit = "m",
       .meaning = "along-track offset of station 1"},
  };
  return table;
}

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
  return best ? std::string(best->name) : std::string();
}

std::string SettingText(const SettingDef& def, const Settings& settings) {
  // What show-settings prints is a TOML value; the text form is what a scenario file's
  // value turns into on its way to the reader.
  const std::string shown = def.show(settings);
  try {
    const toml::table parsed = toml::parse("v = " + shown);
    std::string text;
    if (const toml::node* node = parsed.get("v"); node && TomlToText(*node, text)) return text;
  } catch (const toml::parse_error&) {
  }
  // A path with backslashes is no valid TOML string; its quotes alone go.
  if (shown.size() >= 2 && shown.front() == '"' && shown.back() == '"')
    return shown.substr(1, shown.size() - 2);
  return shown;
}

bool ApplySetAssignment(Settings& settings, std::string_view assignment, std::string_view source,
                        std::string& error) {
  const size_t eq = assignment.find('=');
  if (eq == std::string_view::npos) {
    error = fmt::format("{}: \"{}\" is not of the form Name=value", source, assignment);
    return false;
  }
  const std::string_view name = TrimSetting(assignment.substr(0, eq));
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
  NoteGiven(settings, def->name);
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
  const Settings before = settings;
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
  // The file's numbers pass the same ranges as every other source; one outside its range
  // is reported with its line and the setting keeps the value it had before the file.
  static constexpr std::pair<int, std::string_view> kNumberLines[] = {
      {3, "ReceiverLatitude"}, {4, "ReceiverLongitude"}, {5, "ReceiverAltitude"},
      {6, "ScenarioYear"},     {7, "ScenarioMonth"},     {8, "ScenarioDay"},
      {9, "ScenarioHour"},     {10, "ScenarioMinute"},   {11, "ScenarioDuration"},
      {12, "Duration"},        {16, "MaxChannels"}};
  for (const auto& [n, name] : kNumberLines) {
    const SettingDef* def = FindSetting(name);
    if (def == nullptr || n > lines) continue;
    Settings probe = settings;
    std::string error;
    if (def->fromText(probe, def->show(settings), error)) continue;
    const std::string kept = def->show(before);
    messages.Warn(fmt::format("settings file {}, line {}: {}: {}; it keeps {}", path.string(), n,
                              name, error, kept));
    std::string ignored;
    def->fromText(settings, kept, ignored);
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
      "Values outside a setting's range are refused with the setting, the value and the "
      "range.\n\n"
      "| Setting | Type | Unit | Range | Default | Meaning |\n|---|---|---|---|---|---|\n";
  for (const SettingDef& d : SettingRegistry()) {
    out += fmt::format("| `{}` | {} | {} | {} | `{}` | {} |\n", d.name, d.type, d.unit, d.range,
                       d.show(defaults), d.meaning);
  }
  return out;
}

}  // namespace vorel::app
