#include "dif/dif_settings.h"

#include "dif/ca_code.h"
#include "gnss/constants.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vorel::dif {

float NoiseSigma(double signalPower) {
  return static_cast<float>(std::max(0.0, 9.0 - 2.0 * (158.5 + signalPower)));
}

int SelectCarrier(int32_t constellationChoice, double& frequency) {
  if (constellationChoice == 0) {
    frequency = gnss::kL1Frequency;
    return 0;
  }
  return -1;
}

double SamplingFrequencyFromText(const std::string& row2, double row1) {
  if (row2.empty()) return row1;
  switch (row2[0]) {
    case '1':
      return 16368.0;
    case '4':
      return 40920.0;
    case '5':
      return 54560.0;
    default:
      return row1;  // the number of row 1 stays in place
  }
}

int32_t FilterWindowFromText(const std::string& row5) {
  if (row5.size() < 3) return 0;
  switch (row5[2]) {
    case 'a':
      return 1;
    case 'm':
      return 2;
    case 'n':
      return 3;
    case 'u':
      return 4;
    default:
      return 0;
  }
}

uint8_t OutputPackedFromText(const std::string& row6) {
  return !row6.empty() && row6[0] == 'P' ? 1 : 0;
}

int32_t DecimationFromText(const std::string& row7) {
  if (row7.empty()) return 0;
  switch (row7[0]) {
    case '2':
      return 2;
    case '3':
      return 3;
    default:
      return 0;
  }
}

DifSettings GatherDifSettings(const DifPanelValues& p) {
  DifSettings s;
  SelectCarrier(p.ConstellationChoice, s.CarrierFrequency);
  s.IfFrequency = p.IfFrequency * 1000.0;
  s.SamplingFrequency = SamplingFrequencyFromText(p.SamplingFrequency, p.IfFrequency) * 1000.0;
  const double perMs = std::floor(s.SamplingFrequency / 1000.0);
  s.SamplesPerMs = perMs >= 0.0 && perMs < 1.0e9 ? static_cast<int32_t>(perMs) : 0;
  s.BitsPerSample = p.BitsPerSample;
  s.Bandwidth = p.Bandwidth * 1000000.0;
  s.FilterWindow = FilterWindowFromText(p.FilterWindow);
  s.OutputPacked = OutputPackedFromText(p.OutputPacked);
  s.Decimation = DecimationFromText(p.Decimation);
  s.FilterOn = p.FilterOn;
  s.SignalPower = p.SignalPower;
  s.NoiseSigma = NoiseSigma(p.SignalPower);
  s.ScenarioDriven = p.ScenarioDriven;
  s.Duration = p.Duration * 60.0;
  s.MultipathOn = p.MultipathOn;
  s.CodeWrapFloor = p.CodeWrapFloor;
  s.WholeBlockRate = p.WholeBlockRate;
  s.CodeEpochOnWrap = p.CodeEpochOnWrap;
  if (p.ScintEnabled != 0) {
    s.ScintType = p.ScintType;
    s.ScintMode = 1 + p.ScintType;
    s.ScintRate = p.ScintRate;
    s.ScintReadValues = p.ScintReadValues;
    if (p.ScintType == 1) {
      s.ScintStart = p.ScintStart;
      s.ScintPrn = p.ScintPrn;
    }
  }
  if (p.ScenarioDriven == 0) {
    s.TestDataMode = p.TestDataMode;
    s.TestPrn = p.TestPrn;
    s.TestCodeOn = p.TestCodeOn;
    s.TestCarrierOn = p.TestCarrierOn;
    s.TestDataOn = p.TestDataOn;
    s.TestDopplerOn = p.TestDopplerOn;
    if (p.TestDopplerOn == 1) s.TestDoppler = p.TestDoppler;
  } else {
    s.MaxChannels = p.MaxChannels;
  }
  GatherIqSettings(p, s);
  return s;
}

std::string CheckDifSettings(const DifSettings& s) {
  if (s.SampleForm == kSampleFormIq) return CheckIqSettings(s);
  if (s.SamplesPerMs < 1 || s.SamplesPerMs > 200000)
    return fmt::format("SamplingFrequency gives {} samples per ms; 1 to 200000 are possible",
                       s.SamplesPerMs);
  if (s.BitsPerSample < 1 || s.BitsPerSample > 16)
    return fmt::format("BitsPerSample is {}; 1 to 16 bits are possible", s.BitsPerSample);
  if (s.OutputPacked == 1 && s.BitsPerSample != 1 && s.BitsPerSample != 2)
    return fmt::format(
        "OutputPacked is Packed with BitsPerSample {}: packing exists for 1 and "
        "2 bits only; choose Direct or 1 or 2 bits",
        s.BitsPerSample);
  if (!(std::fabs(s.IfFrequency) <= s.SamplingFrequency))
    return fmt::format("IfFrequency {} kHz lies outside 0 to the sampling frequency ({} kHz)",
                       s.IfFrequency / 1000.0, s.SamplingFrequency / 1000.0);
  if (!(std::fabs(s.TestDoppler) <= 1.0e7))
    return fmt::format("TestDoppler {} Hz is beyond 10 MHz", s.TestDoppler);
  if (!(s.Duration <= 1.0e6 * 60.0))
    return fmt::format("Duration {} min is beyond a million minutes", s.Duration / 60.0);
  if (s.ScintMode > 0 && (s.ScintRate < 0 || s.ScintRate > 1000))
    return fmt::format("ScintRate is {}; 0 to 1000 values per second are possible", s.ScintRate);
  if (s.ScenarioDriven == 0 && (s.TestPrn < 1 || s.TestPrn > 32))
    return fmt::format("TestPrn is {}; satellites 1 to 32 exist", s.TestPrn);
  return "";
}

}  // namespace vorel::dif

namespace vorel::dif {
namespace {

std::string ShowMultipathTable(const DifPanelValues& p) {
  std::vector<std::string> rows;
  for (const MultipathRow& r : p.MultipathTable)
    rows.push_back(fmt::format("[\"{}\", \"{}\", {}, {}, {}, {}]", r.enable, r.label, r.prn,
                               platform::ShowSettingDouble(r.amplitude),
                               platform::ShowSettingDouble(r.delay),
                               platform::ShowSettingDouble(r.startTime)));
  return fmt::format("[{}]", fmt::join(rows, ", "));
}

bool ReadMultipathTable(DifPanelValues& p, std::string_view text, std::string& error) {
  std::vector<MultipathRow> rows;
  text = platform::TrimSetting(text);
  if (!text.empty()) {
    for (std::string_view rowText : platform::SplitSettingList(text, ';')) {
      const auto cols = platform::SplitSettingList(rowText);
      const int number = static_cast<int>(rows.size()) + 1;
      if (cols.size() != 6) {
        error = fmt::format(
            "row {}: expected 6 columns (switch, label, PRN, amplitude, delay, start time), "
            "got {}",
            number, cols.size());
        return false;
      }
      MultipathRow row;
      row.enable = std::string(cols[0]);
      row.label = std::string(cols[1]);
      std::string why;
      if (!platform::ParseSettingInt(cols[2], row.prn, why) ||
          !platform::ParseSettingDouble(cols[3], row.amplitude, why) ||
          !platform::ParseSettingDouble(cols[4], row.delay, why) ||
          !platform::ParseSettingDouble(cols[5], row.startTime, why)) {
        error = fmt::format("row {}: {}", number, why);
        return false;
      }
      rows.push_back(row);
      if (rows.size() > static_cast<size_t>(kMultipathRows)) {
        error = fmt::format("the table has {} rows at most", kMultipathRows);
        return false;
      }
    }
  }
  p.MultipathTable = std::move(rows);
  return true;
}

bool ReadSignalChoice(DifPanelValues& p, std::string_view text, std::string& error) {
  const std::string_view t = platform::TrimSetting(text);
  SignalChoice choice;
  if (!ParseSignalChoice(t, choice)) {
    error = fmt::format("expected one of CA, L1C, L2C, L5, SP1, SP2, BOC, got \"{}\"", t);
    return false;
  }
  const SignalOptions o = SignalChoiceOptions(choice);
  p.SignalChoice = std::string(t);
  p.SignalOptionA = o.optionA;
  p.SignalOptionB = o.optionB;
  return true;
}

std::string ShowSignalChoice(const DifPanelValues& p) { return "\"" + p.SignalChoice + "\""; }

constexpr std::string_view kLayouts[] = {"Direct", "Packed"};
constexpr std::string_view kSampleForms[] = {"real", "iq"};
constexpr std::string_view kIqFormats[] = {"ci8", "ci16"};
constexpr double kNone = platform::kNoBound;

}  // namespace

const platform::SettingTable<DifPanelValues>& DifSettingTable() {
  using P = DifPanelValues;
  static const platform::SettingTable<P> table = {
      // Values that start-up reads.
      {.name = "Duration", .member = &P::Duration, .unit = "min", .min = 0, .max = 1e6,
       .meaning = "length of a DIF run"},
      {.name = "OutputPacked", .member = &P::OutputPacked,
       .meaning = "sample file layout: Direct (one sample a byte) or Packed", .choices = kLayouts},
      {.name = "FilterOn", .member = &P::FilterOn,
       .meaning = "1: band-pass filter the DIF samples"},
      {.name = "MaxChannels", .member = &P::MaxChannels, .min = 0, .max = 32,
       .meaning = "most channels of a DIF run (0: 20)"},
      {.name = "DifOutputFile", .member = &P::DifOutputFile, .type = "path",
       .meaning = "sample file of a DIF run; empty: named from the date and time"},
      {.name = "DifFileType", .member = &P::DifFileType,
       .meaning = "1: .bin sample file name, other: .dat"},
      // The parameter table, rows 1 to 7, as typed.
      {.name = "IfFrequency", .member = &P::IfFrequency, .unit = "kHz",
       .meaning = "intermediate frequency of the L1 carrier in the recording"},
      {.name = "SamplingFrequency", .member = &P::SamplingFrequency,
       .meaning = "sampling rate in kHz by its first character: 1 gives 16368, 4 gives 40920, "
                  "5 gives 54560; any other takes the IfFrequency number"},
      {.name = "BitsPerSample", .member = &P::BitsPerSample, .min = 1, .max = 16,
       .meaning = "quantiser bits (Packed: 1 or 2; Direct keeps the low 8 bits of a level)"},
      {.name = "Bandwidth", .member = &P::Bandwidth, .unit = "MHz",
       .meaning = "pass band of the 27-tap band-pass filter around the IF"},
      {.name = "FilterWindow", .member = &P::FilterWindow,
       .meaning = "filter window by its third character: a Blackman, m Hamming, n Hann, "
                  "u rectangular, other Bartlett"},
      {.name = "Decimation", .member = &P::Decimation,
       .meaning = "by its first character: n none, 2 or 3 keep every 2nd or 3rd sample"},
      // The other DIF settings.
      {.name = "SignalPower", .member = &P::SignalPower, .unit = "dBW",
       .meaning = "sets the noise: sigma = max(0, 9 - 2 (158.5 + SignalPower)) times a "
                  "satellite's amplitude"},
      {.name = "ScenarioDriven", .member = &P::ScenarioDriven,
       .meaning = "0: test signal of one satellite; other: follow the .scn record in "
                  "ObservationOutputFile"},
      {.name = "MultipathOn", .member = &P::MultipathOn,
       .meaning = "1: add the paths of MultipathTable"},
      {.name = "MultipathTable", .member = {}, .type = "up to 8 rows of 6",
       .meaning = "multipath rows: switch (\"y\", \"n\", other keeps the row before's), label, "
                  "PRN, amplitude, delay, start time (s); `--set` form "
                  "`y,,5,0.5,30,2;n,,7,0.3,10,0`",
       .show = ShowMultipathTable, .read = ReadMultipathTable},
      {.name = "ScintEnabled", .member = &P::ScintEnabled,
       .meaning = "1: scintillation from ScintFile"},
      {.name = "ScintType", .member = &P::ScintType,
       .meaning = "0: all satellites (columns by bubble class); 1: one satellite, ScintPrn "
                  "from ScintStart"},
      {.name = "ScintFile", .member = &P::ScintFile, .type = "path",
       .meaning = "scintillation data file"},
      {.name = "ScintRate", .member = &P::ScintRate, .unit = "1/s", .min = 0, .max = 1000,
       .meaning = "scintillation values per second (0 means 1)"},
      {.name = "ScintStart", .member = &P::ScintStart, .unit = "s", .min = 0, .max = kNone,
       .meaning = "ScintType 1: seconds into the run before the file is read"},
      {.name = "ScintPrn", .member = &P::ScintPrn, .min = 0, .max = 32,
       .meaning = "ScintType 1: the satellite that scintillates"},
      {.name = "ScintReadValues", .member = &P::ScintReadValues, .min = 0, .max = 1,
       .meaning = "1: each ScintFile value as the number it is (amplitude, power, phase in "
                  "rad); 0: as the program stored it, a double over two float slots"},
      {.name = "CodeWrapFloor", .member = &P::CodeWrapFloor, .min = 0, .max = 1,
       .meaning = "1: the code phase's fraction wraps down into 0..1, so every satellite's code "
                  "lags its range by the same half sample on average; 0: it wraps towards zero "
                  "as the program does, half a sample late on an approaching satellite and half "
                  "a sample early on a receding one"},
      {.name = "WholeBlockRate", .member = &P::WholeBlockRate, .min = 0, .max = 1,
       .meaning = "1: a block's code and carrier rates take the record's whole range change "
                  "over the block's n samples; 0: the change times (n - 1) / n, as the program "
                  "does, which lets the code drift off the range by 1/n of its change"},
      {.name = "CodeEpochOnWrap", .member = &P::CodeEpochOnWrap, .min = 0, .max = 1,
       .meaning = "1: a channel counts a millisecond of its navigation bit whenever its code "
                  "passes its end, also when a whole-sample step jumps over the first entry; 0: "
                  "only when it lands on the first entry, as the program does, which loses a "
                  "millisecond there and sends the bits a millisecond late from then on"},
      {.name = "TestPrn", .member = &P::TestPrn, .min = 1, .max = 32,
       .meaning = "test signal: satellite 1 to 32"},
      {.name = "TestCodeOn", .member = &P::TestCodeOn,
       .meaning = "test signal: 1 C/A code, other all code values +1"},
      {.name = "TestCarrierOn", .member = &P::TestCarrierOn,
       .meaning = "test signal: 0 baseband, no carrier"},
      {.name = "TestDataOn", .member = &P::TestDataOn,
       .meaning = "test signal: 0 takes TestDataMode as 0"},
      {.name = "TestDataMode", .member = &P::TestDataMode,
       .meaning = "test signal bits: 0 all +1, 1 alternating, 2 from simulated.nvb"},
      {.name = "TestDopplerOn", .member = &P::TestDopplerOn,
       .meaning = "test signal: 1 applies TestDoppler"},
      {.name = "TestDoppler", .member = &P::TestDoppler, .unit = "Hz", .min = -1e7, .max = 1e7,
       .meaning = "test signal Doppler"},
      {.name = "SignalChoice", .member = {}, .type = "text",
       .meaning = "signal button: CA, L1C, L2C, L5, SP1, SP2 or BOC; sets SignalOptionA/B and "
                  "nothing else: every run makes C/A code on L1",
       .show = ShowSignalChoice, .read = ReadSignalChoice},
      {.name = "SignalOptionA", .member = &P::SignalOptionA,
       .meaning = "signal tab option A (set by SignalChoice; no run reads it)"},
      {.name = "SignalOptionB", .member = &P::SignalOptionB,
       .meaning = "signal tab option B (set by SignalChoice; no run reads it)"},
      {.name = "InCode", .member = &P::InCode, .min = 1, .max = 2,
       .meaning = "signal tab code toggle 1 or 2 (no run reads it)"},
      {.name = "DifThreads", .member = &P::DifThreads, .min = 0, .max = 64,
       .meaning = "threads of the sample generator, which share the blocks in batches, 0: one "
                  "per core; the file is the same for any number"},
      // The complex baseband form, for SDR playback.
      {.name = "SampleForm", .member = &P::SampleForm,
       .meaning = "real: the IF recording above; iq: complex baseband I/Q at IqSampleRate "
                  "(real-form settings such as Packed, the filter, decimation are refused)",
       .choices = kSampleForms},
      {.name = "IqFormat", .member = &P::IqFormat,
       .meaning = "iq: ci8 (8-bit I then Q, BitsPerSample 8) or ci16 (16-bit little-endian, "
                  "BitsPerSample 16)",
       .choices = kIqFormats},
      {.name = "IqSampleRate", .member = &P::IqSampleRate, .unit = "Hz", .min = 1e6, .max = 6e7,
       .meaning = "iq: sampling rate, any whole number of Hz"},
      {.name = "IqIfOffset", .member = &P::IqIfOffset, .unit = "Hz", .min = -3e7, .max = 3e7,
       .meaning = "iq: frequency of L1 in the recording (0: centred), below half the rate"},
      {.name = "IqNoise", .member = &P::IqNoise, .min = 0, .max = 1,
       .meaning = "iq: 1 adds complex noise at C/N0 = SignalPower + 204 dB-Hz; 0: none (the "
                  "receiver under test adds its own)"},
      {.name = "IqAmplitude", .member = &P::IqAmplitude, .unit = "levels", .min = 0,
       .max = 32767,
       .meaning = "iq: a satellite's amplitude, fixed for the run; 0: 10 for ci8, 2560 for "
                  "ci16 (12 satellites in phase stay below full scale), and with IqNoise 1 "
                  "the largest at which the noise's peaks and 12 satellites stay below it"},
  };
  return table;
}

int32_t MultipathRowsOf(const DifPanelValues& panel,
                        std::array<MultipathRow, kMultipathRows>& rows) {
  const size_t count = std::min<size_t>(panel.MultipathTable.size(), kMultipathRows);
  std::copy_n(panel.MultipathTable.begin(), count, rows.begin());
  return static_cast<int32_t>(count);
}

}  // namespace vorel::dif
