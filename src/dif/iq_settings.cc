// The settings of the complex baseband form: what it derives from the panel and what it
// refuses. The real form's own options (packing, the IF filter, decimation, quantiser bits
// other than the format's, multipath, scintillation, the test signal) have no meaning for
// it, so a run that asks for them is refused rather than silently ignoring them.

#include <fmt/format.h>

#include <cmath>

#include "dif/dif_settings.h"
#include "dif/iq_generation.h"

namespace vorel::dif {

namespace {

constexpr double kLowestRate = 1.0e6;   // Hz
constexpr double kHighestRate = 6.0e7;  // Hz
constexpr float kCi8Amplitude = 10.0f;  // 12 satellites in phase: 120 of 127
constexpr float kCi16Amplitude = 2560.0f;
constexpr double kCi8FullScale = 127.0, kCi16FullScale = 32767.0;  // the positive limits

}  // namespace

void GatherIqSettings(const DifPanelValues& p, DifSettings& s) {
  s.SampleForm = p.SampleForm == "iq" ? kSampleFormIq : kSampleFormReal;
  s.IqBytes = p.IqFormat == "ci16" ? 2 : 1;
  s.IqSampleRate = p.IqSampleRate;
  s.IqIfOffset = p.IqIfOffset;
  s.IqNoise = p.IqNoise;
  s.IqAmplitude = static_cast<float>(p.IqAmplitude);
  if (s.IqAmplitude != 0.0f) return;
  // With noise the satellites are far below it: the scale follows the noise, so that it
  // does not clip (at 45.5 dB-Hz and 4 MHz the fixed defaults hold a tenth of the values
  // at the limits).
  if (s.IqNoise != 0)
    s.IqAmplitude = IqAmplitudeUnderNoise(s.SignalPower, static_cast<double>(s.IqSampleRate),
                                          s.IqBytes == 1 ? kCi8FullScale : kCi16FullScale);
  else
    s.IqAmplitude = s.IqBytes == 1 ? kCi8Amplitude : kCi16Amplitude;
}

std::string CheckIqSettings(const DifSettings& s) {
  const double rate = static_cast<double>(s.IqSampleRate);
  if (!(rate >= kLowestRate && rate <= kHighestRate))
    return fmt::format("IqSampleRate {} Hz is outside 1 MHz to 60 MHz", s.IqSampleRate);
  if (!(std::fabs(s.IqIfOffset) < rate / 2.0))
    return fmt::format(
        "IqIfOffset {} Hz is not below half the sampling rate ({} Hz): the signal would fold",
        s.IqIfOffset, rate / 2.0);
  const int bits = 8 * s.IqBytes;
  if (s.OutputPacked != 0)
    return "OutputPacked is Packed: the I/Q form writes whole bytes (set OutputPacked=Direct)";
  if (s.BitsPerSample != bits)
    return fmt::format(
        "BitsPerSample is {}: the I/Q form with IqFormat {} writes {}-bit values (set "
        "BitsPerSample={})",
        s.BitsPerSample, s.IqBytes == 1 ? "ci8" : "ci16", bits, bits);
  if (s.FilterOn != 0)
    return "FilterOn is 1: the band-pass filter (FilterWindow, Bandwidth) belongs to the real "
           "IF form; the I/Q form is not filtered (set FilterOn=0)";
  if (s.Decimation != 0)
    return "Decimation keeps every 2nd or 3rd sample of the real IF form; the I/Q form takes "
           "its rate from IqSampleRate (set Decimation=none)";
  if (s.MultipathOn != 0)
    return "MultipathOn is 1: multipath is made by the real IF form only (set MultipathOn=0)";
  if (s.ScintMode != 0)
    return "ScintEnabled is 1: scintillation is made by the real IF form only (set "
           "ScintEnabled=0)";
  if (s.ScenarioDriven == 0)
    return "ScenarioDriven is 0: the I/Q form follows a .scn record; the test signal is made "
           "by the real IF form only";
  if (!(s.IqAmplitude > 0.0f && s.IqAmplitude <= 32767.0f))
    return fmt::format("IqAmplitude {} is outside 0 to 32767 levels", s.IqAmplitude);
  if (!(s.Duration <= 1.0e6 * 60.0))
    return fmt::format("Duration {} min is beyond a million minutes", s.Duration / 60.0);
  return "";
}

}  // namespace vorel::dif
