#pragma once
// The settings of the scintillation tools: the series generator (band corners, index,
// correlation, phase scale, the two shaping filters) and the filter fit (target file,
// pole and zero counts, result file). Frequencies are in Hz at 20 samples per second.

#include <cstdint>
#include <string>

#include "platform/setting_table.h"

namespace vorel::scintillation {

struct ScintSettings {
  // Band-pass corners of the two series, Hz. Only the high corner is limited (to 0.49 of
  // the rate, 9.8 Hz).
  double AmpBandLow = 0.05, AmpBandHigh = 2.0;
  double PhaseBandLow = 0.05, PhaseBandHigh = 2.0;
  // Standard deviation of the intensity series, and the size of the amplitude-phase
  // correlation.
  double ScintIndex = 0.5;
  double ScintCorrelation = 0.3;
  double PhaseSigma = 1.0;  // rad
  // 1: shape that series with the recursive filter of its file.
  int32_t AmpFilterOn = 0;
  int32_t PhaseFilterOn = 0;
  std::string AmpFilterFile = "C:/VLD/ampFilter.txt";
  std::string PhaseFilterFile = "C:/VLD/phaseFilter.txt";
  // The filter fit.
  std::string ScintTargetFile = "C:/VLD/scintTarget.txt";
  int32_t FilterPoles = 2;  // na
  int32_t FilterZeros = 2;  // nb
  std::string ScintFilterOutFile = "C:/VLD/scintFilter.txt";
};

const platform::SettingTable<ScintSettings>& ScintSettingTable();

}  // namespace vorel::scintillation
