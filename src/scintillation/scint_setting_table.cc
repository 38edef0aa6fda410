// The settings of the scintillation tools, one table for every settings source.

#include "scintillation/scint_settings.h"

namespace vorel::scintillation {

const platform::SettingTable<ScintSettings>& ScintSettingTable() {
  using S = ScintSettings;
  static const platform::SettingTable<S> table = {
      {.name = "AmpBandLow", .member = &S::AmpBandLow, .unit = "Hz", .min = 0, .max = 10,
       .meaning = "amplitude band-pass, low corner (at 20 samples/s)"},
      {.name = "AmpBandHigh", .member = &S::AmpBandHigh, .unit = "Hz", .min = 0, .max = 10,
       .meaning = "amplitude band-pass, high corner; 10 Hz or more is held at 9.8 Hz"},
      {.name = "PhaseBandLow", .member = &S::PhaseBandLow, .unit = "Hz", .min = 0, .max = 10,
       .meaning = "phase band-pass, low corner"},
      {.name = "PhaseBandHigh", .member = &S::PhaseBandHigh, .unit = "Hz", .min = 0, .max = 10,
       .meaning = "phase band-pass, high corner; 10 Hz or more is held at 9.8 Hz"},
      {.name = "ScintIndex", .member = &S::ScintIndex, .min = 0, .max = 2,
       .meaning = "amplitude scintillation index: standard deviation of the raw amplitude "
                  "series around its mean of 1"},
      {.name = "ScintCorrelation", .member = &S::ScintCorrelation, .min = 0, .max = 1,
       .meaning = "size of the (negative) amplitude-phase correlation; 0 is refused"},
      {.name = "PhaseSigma", .member = &S::PhaseSigma, .unit = "rad", .min = 0, .max = 100,
       .meaning = "phase scale"},
      {.name = "AmpFilterOn", .member = &S::AmpFilterOn, .min = 0, .max = 1,
       .meaning = "1: shape the amplitude with the filter of AmpFilterFile (b times 1.1)"},
      {.name = "PhaseFilterOn", .member = &S::PhaseFilterOn, .min = 0, .max = 1,
       .meaning = "1: shape the phase with the filter of PhaseFilterFile (b times 3.1)"},
      {.name = "AmpFilterFile", .member = &S::AmpFilterFile, .type = "path",
       .meaning = "amplitude shaping filter (a file written by scint-fit)"},
      {.name = "PhaseFilterFile", .member = &S::PhaseFilterFile, .type = "path",
       .meaning = "phase shaping filter (a file written by scint-fit)"},
      {.name = "ScintTargetFile", .member = &S::ScintTargetFile, .type = "path",
       .meaning = "target response: `N,na`, then N lines `frequency,response`"},
      {.name = "FilterPoles", .member = &S::FilterPoles, .min = 0, .max = 64,
       .meaning = "na of the fit (scint-load sets it from the target file)"},
      {.name = "FilterZeros", .member = &S::FilterZeros, .min = 0, .max = 64,
       .meaning = "nb of the fit (scint-load sets N - na - 1)"},
      {.name = "ScintFilterOutFile", .member = &S::ScintFilterOutFile, .type = "path",
       .meaning = "filter file scint-fit writes"},
  };
  return table;
}

}  // namespace vorel::scintillation
