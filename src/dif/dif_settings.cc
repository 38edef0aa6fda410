#include "gnss/constants.h"
#include "dif/dif_settings.h"

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
  if (p.ScintEnabled != 0) {
    s.ScintType = p.ScintType;
    s.ScintMode = 1 + p.ScintType;
    s.ScintRate = p.ScintRate;
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
  return s;
}

std::string CheckDifSettings(const DifSettings& s) {
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
