#pragma once
// The settings of a scenario, as the panels of the program held them, and where they come
// from. Sources, each overriding the one before:
//   1. built-in defaults,
//   2. the 36-line SettingsFile read at start-up,
//   3. a TOML scenario file whose keys are the setting names (optionally inside tables),
//   4. --set Name=value on the command line.
// An unknown name or a value of the wrong type is refused with the source, the line and
// the nearest known name.

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/bubble_settings.h"
#include "dif/dif_settings.h"
#include "display/map_settings.h"
#include "navmsg/nav_message.h"
#include "platform/setting_table.h"
#include "scintillation/scint_settings.h"

namespace vorel::platform {
struct Messages;
}

namespace vorel::app {

inline constexpr int kStations = platform::kSettingArraySize;

using BubblePanel = atmosphere::BubblePanelValues;
using DifPanel = dif::DifPanelValues;
using NavPanel = navmsg::NavPanelValues;

struct ScenarioSettings {
  int32_t ObservationEnabled = 1;
  int32_t DifEnabled = 0;
  // The start, in the calendar.
  int32_t ScenarioYear = 2010, ScenarioMonth = 7, ScenarioDay = 1;
  int32_t ScenarioHour = 1, ScenarioMinute = 0;
  double ScenarioSecond = 0.0;
  int32_t LeapSeconds = 0;
  int32_t ScenarioDuration = 10;  // minutes
  int32_t ObservationInterval = 500;  // ms
  double ElevationMask = 5.0;  // degrees
  int32_t TrajectoryMode = 1;  // 1 static, 0 trajectory file
  std::string TrajectoryFile;
  double ReceiverLatitude = 46.05;
  double ReceiverLongitude = 14.5;
  double ReceiverAltitude = 300.0;
  int32_t ConstellationChoice = 0;
  int32_t KeepOrbitEpochs = 0;
  double CodeNoiseSigma = 0.5;
  double PhaseNoiseSigma = 0.002;
  int32_t RecordType = 2;
  std::string ObservationOutputFile;  // empty: named by the date rule when a run starts
  int32_t AuxiliaryInputDisabled = 1;
  std::string AuxiliaryInputFile;
  std::string OrbitFile = "C:/VLD/almanac.txt";
  int32_t RinexStandardLayout = 0;
  // Ours: "system" reproduces the program; "receiver" makes the departures that real
  // receivers and positioning tools need the defaults (see ApplyProfile).
  std::string Profile = "system";
  std::string RinexStationName = "VORL";  // 4 characters: MARKER NAME and the file name
  int32_t RinexNavBeside = 0;  // 1: a RINEX navigation file beside the RINEX observations
};

struct StationSettings {
  std::array<double, kStations> StationMask{5.0, 5.0, 5.0, 5.0};
  std::array<double, kStations> StationLatitude{46.05, 46.05, 46.05, 46.05};
  std::array<double, kStations> StationLongitude{14.5, 14.501, 14.502, 14.503};
  std::array<double, kStations> StationAltitude{300.0, 300.0, 300.0, 300.0};
  std::array<double, kStations> StationOffsetNorth{};
  std::array<double, kStations> StationOffsetEast{};
  std::array<std::string, kStations> StationOutputFile;  // empty: named by the station rule
  std::array<std::string, kStations> StationEventFile{"C:/VLD/LAAS/rs1_events.txt",
                                                      "C:/VLD/LAAS/rs2_events.txt",
                                                      "C:/VLD/LAAS/rs3_events.txt",
                                                      "C:/VLD/LAAS/rs4_events.txt"};
  int32_t StationRecordType = 2;
  int32_t StationCoordinatesAbsolute = 1;
  int32_t StationLatchEnabled = 0;
  std::array<double, kStations> StationLatchValues{};
  double StationBaseOffset = 0.0;
};

struct Settings {
  ScenarioSettings scenario;
  StationSettings stations;
  atmosphere::AtmosphereSettings atmosphere;
  BubblePanel bubble;
  DifPanel dif;
  NavPanel nav;
  scintillation::ScintSettings scint;
  display::MapSettings map;
  std::string SettingsFile;  // informational: the file read at start-up
  // Names a source (scenario file, --set) gave explicitly. A profile leaves them alone.
  std::set<std::string, std::less<>> given;
};

// The settings a profile sets, with the value of each profile.
struct ProfileValue {
  std::string_view name;
  std::string_view system;
  std::string_view receiver;
};
std::span<const ProfileValue> ProfileValues();

// Gives every setting of the profile the value of `settings.scenario.Profile`, except
// those in `settings.given`: an explicitly given setting wins over the profile whichever
// came first. The sources call it when they read Profile; a front end that sets Profile
// in the struct directly calls it itself.
void ApplyProfile(Settings& settings);

// One known setting: an entry of a module's table and the part of Settings it lives in.
struct SettingDef {
  std::string_view name;
  std::string_view type;  // "int", "double", "text", "path", "4 x double", ...
  std::string_view unit;
  std::string_view meaning;
  std::string range;  // "1 to 12", "at least 0"; empty: any value of the type
  const void* entry = nullptr;  // the module's platform::Setting
  std::string (*showIn)(const void* entry, const Settings& settings) = nullptr;
  bool (*readIn)(const void* entry, Settings& settings, std::string_view text,
                 std::string& error) = nullptr;

  std::string show(const Settings& settings) const { return showIn(entry, settings); }
  // Reads a value from text ("--set", TOML and the SettingsFile). Returns false with the
  // reason in `error`; the setting is then unchanged.
  bool fromText(Settings& settings, std::string_view text, std::string& error) const {
    return readIn(entry, settings, text, error);
  }
};

// The tables of the application's own structs.
const platform::SettingTable<ScenarioSettings>& ScenarioSettingTable();
const platform::SettingTable<StationSettings>& StationSettingTable();

const std::vector<SettingDef>& SettingRegistry();
const SettingDef* FindSetting(std::string_view name);
// The known name closest to `name` (edit distance, case-insensitive).
std::string NearestSettingName(std::string_view name);

// The value in the text form "--set" takes ("a,b,c" for a list, a path without quotes):
// what a form shows in a field and hands back through fromText.
std::string SettingText(const SettingDef& def, const Settings& settings);

// Applies "Name=value". Returns false with a message naming the source.
bool ApplySetAssignment(Settings& settings, std::string_view assignment, std::string_view source,
                        std::string& error);

// Applies every key of a TOML scenario file. Returns false with a message that names
// the file, the line and the nearest known name; settings are then left untouched.
bool ApplyScenarioFile(Settings& settings, const std::filesystem::path& path, std::string& error);

// Reads the 36-line SettingsFile. A missing file or one with fewer lines leaves the
// defaults (or the values read so far) and warns; the reading never stops the program.
void ReadSettingsFile(Settings& settings, const std::filesystem::path& path,
                      const platform::Messages& messages);

// docs/settings.md: every setting with its type, unit, default and meaning.
std::string SettingsReference();

}  // namespace vorel::app
