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
#include <string>
#include <string_view>
#include <vector>

#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/bubble_settings.h"
#include "dif/dif_settings.h"
#include "scintillation/scint_settings.h"

namespace vorel::platform {
struct Messages;
}

namespace vorel::app {

inline constexpr int kStations = 4;

// The bubble as the map panel holds it: drift as typed, and a path for its record file.
struct BubblePanel {
  int32_t bubbleEnabled = 0;
  int32_t bubbleClassify = 0;
  double bubbleLatitude = 0.0;
  double bubbleLonNorth = 0.0;
  double bubbleLonSouth = 0.0;
  double bubbleWidth = 0.0;
  double bubbleLength = 0.0;
  double bubbleDrift = 0.0;  // m/s as typed
  int32_t bubbleDriftWest = 0;
  int32_t bubbleApplyDelay = 0;
  int32_t bubbleRecordEnabled = 0;
  std::string bubbleRecordPath;
  double bubbleDepth = 0.0;
  int32_t bubbleMode = 3;
};

struct ScenarioSettings {
  int32_t ObservationEnabled = 1;
  int32_t DifEnabled = 0;
  int32_t ScenarioYear = 2010;
  int32_t ScenarioMonth = 7;
  int32_t ScenarioDay = 1;
  int32_t ScenarioHour = 1;
  int32_t ScenarioMinute = 0;
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

// The DIF panel and its tabs. Rows 1 to 7 of the parameter table hold what the user types.
struct DifPanel {
  double Duration = 1.0;  // minutes of a DIF run
  std::string OutputPacked = "Packed";
  int32_t FilterOn = 0;
  int32_t MaxChannels = 12;
  std::string DifOutputFile;  // empty: named by the date rule
  int32_t DifFileType = 1;    // 1 .bin, other .dat
  double IfFrequency = 4092.0;             // kHz
  std::string SamplingFrequency = "16368";  // kHz, by its first character
  int32_t BitsPerSample = 2;
  double Bandwidth = 2.5;  // MHz
  std::string FilterWindow = "Hamming";
  std::string Decimation = "none";
  double SignalPower = -158.5;  // dBW
  int32_t ScenarioDriven = 1;
  int32_t MultipathOn = 0;
  std::vector<dif::MultipathRow> MultipathTable;  // at most 8 rows
  int32_t ScintEnabled = 0;
  int32_t ScintType = 0;
  std::string ScintFile;
  int32_t ScintRate = 0;
  int32_t ScintStart = 0;
  int32_t ScintPrn = 0;
  int32_t TestPrn = 1;
  int32_t TestCodeOn = 1;
  int32_t TestCarrierOn = 1;
  int32_t TestDataOn = 0;
  int32_t TestDataMode = 0;
  int32_t TestDopplerOn = 0;
  double TestDoppler = 0.0;
  // The signal buttons and the options of the signal tab: shown, never read by a run.
  std::string SignalChoice = "CA";
  int32_t SignalOptionA = 0;
  int32_t SignalOptionB = 0;
  int32_t InCode = 1;
  // Threads of the sample generator (0: one per core); the bytes are the same for any.
  int32_t DifThreads = 0;
};

// What the navigation message commands read.
struct NavPanel {
  int32_t navPrn = 1;
  int32_t IodcFollowsIode = 0;
};

struct Settings {
  ScenarioSettings scenario;
  StationSettings stations;
  atmosphere::AtmosphereSettings atmosphere;
  BubblePanel bubble;
  DifPanel dif;
  NavPanel nav;
  scintillation::ScintSettings scint;
  std::string SettingsFile;  // informational: the file read at start-up
};

// One known setting: its name, unit, meaning, and how to read and show it.
struct SettingDef {
  std::string name;
  std::string type;  // "int", "double", "text", "path", "4 x double", ...
  std::string unit;
  std::string meaning;
  std::function<std::string(const Settings&)> show;
  // Reads a value from text ("--set" and the SettingsFile). Returns false with `error`.
  std::function<bool(Settings&, std::string_view, std::string&)> fromText;
};

const std::vector<SettingDef>& SettingRegistry();
const SettingDef* FindSetting(std::string_view name);
// The known name closest to `name` (edit distance, case-insensitive).
std::string NearestSettingName(std::string_view name);

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
