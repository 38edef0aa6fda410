#pragma once
// The settings of a DIF run: what the DIF panel and its tabs hold (DifPanelValues, as
// typed), and the DifSettings a run derives from them once at its start.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/setting_table.h"

namespace vorel::dif {

inline constexpr int kMultipathRows = 8;

// One row of the multipath table: column 1 switches the row ("y", "n", anything else
// keeps the switch of the row before), column 2 is a label nobody reads, then the PRN, the
// amplitude, the delay and the start time (seconds from the start of the run).
struct MultipathRow {
  std::string enable;
  std::string label;
  int32_t prn = 0;
  double amplitude = 0.0;
  double delay = 0.0;
  double startTime = 0.0;
};

// The DIF panel and its tabs as the user fills them: the input of a DIF run. Rows 1 to 7
// of the parameter table are kept as typed; a run derives its DifSettings from them.
struct DifPanelValues {
  double Duration = 1.0;                    // minutes of a DIF run
  std::string OutputPacked = "Packed";      // row 6, "Direct" or "Packed"
  int32_t FilterOn = 0;
  int32_t MaxChannels = 12;
  std::string DifOutputFile;  // empty: named by the date rule
  int32_t DifFileType = 1;    // 1 .bin, other .dat
  double IfFrequency = 4092.0;              // row 1, kHz
  std::string SamplingFrequency = "16368";  // row 2, text: first character 1, 4 or 5
  int32_t BitsPerSample = 2;                // row 3
  double Bandwidth = 2.5;                   // row 4, MHz
  std::string FilterWindow = "Hamming";     // row 5, text: third character
  std::string Decimation = "none";          // row 7, text: first character n, 2, 3
  double SignalPower = -158.5;              // dBW
  int32_t ScenarioDriven = 1;
  int32_t MultipathOn = 0;
  std::vector<MultipathRow> MultipathTable;  // at most kMultipathRows rows
  int32_t ScintEnabled = 0;
  int32_t ScintType = 0;
  std::string ScintFile;
  int32_t ScintRate = 0;
  int32_t ScintStart = 0;
  int32_t ScintPrn = 0;
  // 1: each value of ScintFile is read as the number it is (ours; 0 keeps the program's
  // reading, a double over two float slots).
  int32_t ScintReadValues = 0;
  // Ours, both 0 by default (the program's samples): 1 keeps each satellite's code on the
  // record's range, for receivers that measure it.
  int32_t CodeWrapFloor = 0;     // the code phase's fraction wraps down into 0..1
  int32_t WholeBlockRate = 0;    // a block's rates take the record's whole change over it
  int32_t CodeEpochOnWrap = 0;   // a bit's millisecond counted at every pass of the code's end
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
  // The complex baseband form (see docs/dif.md).
  std::string SampleForm = "real";  // real or iq
  std::string IqFormat = "ci8";     // ci8 or ci16
  int32_t IqSampleRate = 4000000;   // Hz
  double IqIfOffset = 0.0;          // Hz
  int32_t IqNoise = 0;
  double IqAmplitude = 0.0;  // levels; 0: the format's own

  // The main panel's system selector (0 is GPS, the only one with a carrier): not a
  // setting of this panel; a run fills it in from the scenario.
  int32_t ConstellationChoice = 0;
};

// Every setting of the DIF panel: name, member, unit, range and meaning.
const platform::SettingTable<DifPanelValues>& DifSettingTable();

// The multipath rows of the panel as the generator takes them: the first kMultipathRows
// rows and their count.
int32_t MultipathRowsOf(const DifPanelValues& panel,
                        std::array<MultipathRow, kMultipathRows>& rows);

struct DifSettings {
  double IfFrequency = 0.0;        // Hz
  double SamplingFrequency = 0.0;  // Hz
  int32_t SamplesPerMs = 0;
  int32_t BitsPerSample = 0;
  double Bandwidth = 0.0;  // Hz
  int32_t FilterWindow = 0;
  uint8_t OutputPacked = 0;
  int32_t Decimation = 0;
  int32_t FilterOn = 0;
  double SignalPower = 0.0;
  float NoiseSigma = 0.0f;
  double Duration = 0.0;  // s
  int32_t ScenarioDriven = 0;
  double CarrierFrequency = 0.0;
  int32_t MaxChannels = 0;
  int32_t MultipathOn = 0;
  int32_t ScintMode = 0;
  int32_t ScintType = 0;
  int32_t ScintRate = 0;
  int32_t ScintStart = 0;
  int32_t ScintPrn = 0;
  int32_t ScintReadValues = 0;
  int32_t CodeWrapFloor = 0;
  int32_t WholeBlockRate = 0;
  int32_t CodeEpochOnWrap = 0;

  int32_t TestPrn = 0;
  int32_t TestCodeOn = 0;
  int32_t TestCarrierOn = 0;
  int32_t TestDataOn = 0;
  int32_t TestDataMode = 0;
  int32_t TestDopplerOn = 0;
  double TestDoppler = 0.0;

  // The complex baseband form.
  int32_t SampleForm = 0;  // kSampleFormReal or kSampleFormIq
  int32_t IqBytes = 1;     // bytes of I (and of Q): 1 ci8, 2 ci16
  int64_t IqSampleRate = 0;
  double IqIfOffset = 0.0;
  int32_t IqNoise = 0;
  float IqAmplitude = 0.0f;  // levels, resolved from the format when 0
};

inline constexpr int32_t kSampleFormReal = 0;
inline constexpr int32_t kSampleFormIq = 1;

// max(0, 9 - 2 (158.5 + SignalPower)) in double, narrowed: 9.0 at -158.5 dBW, 0 from -154.
float NoiseSigma(double signalPower);

// The carrier of the system selector: 0 stores the L1 frequency and returns 0; any other
// value stores nothing and returns -1.
int SelectCarrier(int32_t constellationChoice, double& frequency);

// The parameter table's character rules, row by row.
double SamplingFrequencyFromText(const std::string& row2, double row1);  // kHz
int32_t FilterWindowFromText(const std::string& row5);
uint8_t OutputPackedFromText(const std::string& row6);
int32_t DecimationFromText(const std::string& row7);

// Reads the panel values into DifSettings in the run's order (parameter rows 1 to 7, the
// switches, the scintillation tab only when it is on, the test tab only for a test run).
DifSettings GatherDifSettings(const DifPanelValues& panel);

// Settings a run cannot work with, refused before any file is touched: an empty string
// when the run may go on, else the message.
std::string CheckDifSettings(const DifSettings& s);

// The complex form's part of GatherDifSettings, and its refusals (iq_settings.cc).
void GatherIqSettings(const DifPanelValues& panel, DifSettings& s);
std::string CheckIqSettings(const DifSettings& s);

}  // namespace vorel::dif
