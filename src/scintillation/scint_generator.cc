#include "scintillation/scint_generator.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/fir.h"
#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::scintillation {
namespace {

void SubtractConstant(double value, double* block, int32_t n) {
  for (int32_t i = 0; i < n; ++i) block[i] -= value;
}

// Designs one band-pass of the generator: corners in Hz over the rate, only the high
// corner limited.
int DesignBand(double lowHz, double highHz, const char* lowName, const char* highName,
               platform::FirState& state, std::string& error) {
  const double low = lowHz / kScintSampleRate;
  double high = highHz / kScintSampleRate;
  if (high >= 0.5) high = 0.49;
  std::array<double, kScintFirTaps> taps{};
  if (platform::FirGenBandpass(low, high, taps.data(), kScintFirTaps, platform::FirWindow::kHamming,
                               true) != 0) {
    error = fmt::format(
        "{} = {} Hz and {} = {} Hz: the band-pass needs 0 <= low < high (the high corner is "
        "held at 9.8 Hz)",
        lowName, lowHz, highName, highHz);
    return -1;
  }
  state = platform::FirInit(taps.data(), kScintFirTaps);
  return 0;
}

// A filter starts each series as freshly read: ring indices at 0, histories cleared.
void RunFilter(ScintFilter& filter, std::vector<double>& series) {
  filter.yIndex = filter.xIndex = 0;
  std::fill(filter.yHistory.begin(), filter.yHistory.end(), 0.0);
  std::fill(filter.xHistory.begin(), filter.xHistory.end(), 0.0);
  for (double& value : series)
    ScintFilterStep(filter.a.data(), filter.yHistory.data(), filter.yIndex, filter.na,
                    filter.b.data(), filter.xHistory.data(), filter.xIndex, filter.nb, value);
}

}  // namespace

double UniformOpen(ScintStream& stream) {
  const uint32_t high = static_cast<uint32_t>(stream()) >> 5;  // 27 bits
  const uint32_t low = static_cast<uint32_t>(stream()) >> 6;   // 26 bits
  return (high * 67108864.0 + low + 0.5) / 9007199254740992.0;
}

double StandardNormal(ScintStream& stream) {
  for (;;) {
    const double u = 2.0 * UniformOpen(stream) - 1.0;
    const double v = 2.0 * UniformOpen(stream) - 1.0;
    const double s = u * u + v * v;
    if (s > 0.0 && s < 1.0) return u * std::sqrt(-2.0 * std::log(s) / s);
  }
}

namespace {

// Marsaglia and Tsang (2000), for shapes of 1 and above.
double GammaOneOrAbove(ScintStream& stream, double alpha) {
  const double d = alpha - 1.0 / 3.0;
  const double c = 1.0 / std::sqrt(9.0 * d);
  for (;;) {
    double x, v;
    do {
      x = StandardNormal(stream);
      v = 1.0 + c * x;
    } while (v <= 0.0);
    v = v * v * v;
    const double u = UniformOpen(stream);
    const double x2 = x * x;
    if (u < 1.0 - 0.0331 * x2 * x2) return d * v;
    if (std::log(u) < 0.5 * x2 + d * (1.0 - v + std::log(v))) return d * v;
  }
}

}  // namespace

int GammaFill(ScintStream& stream, int32_t n, double* out, double alpha, double beta) {
  if (!(alpha > 0.0) || !(beta > 0.0) || !std::isfinite(alpha) || !std::isfinite(beta)) return -1;
  for (int32_t i = 0; i < n; ++i) {
    double g;
    if (alpha >= 1.0) {
      g = GammaOneOrAbove(stream, alpha);
    } else {
      g = GammaOneOrAbove(stream, alpha + 1.0);
      g *= std::pow(UniformOpen(stream), 1.0 / alpha);
    }
    out[i] = beta * g;
  }
  return 0;
}

int GenerateScintSeries(ScintStream& stream1, ScintStream& stream2, ScintStream& stream3,
                        ScintStream& stream4, double scintIndex, double correlation,
                        double phaseSigma, int32_t n, double* amp, double* phase, double* tmp1,
                        double* tmp2) {
  const double S2 = scintIndex * scintIndex;
  const double inv = 1.0 / S2;
  double K = 100.0;
  double k = std::sqrt(inv * K) * correlation;
  double a = inv - k;
  if (a < 0.0) {
    K = 10.0;
    k = std::sqrt(inv * K) * correlation;
    a = inv - k;
    if (a < 0.0) return -1;
  }
  int status = GammaFill(stream1, n, tmp1, a, S2);
  if (status < 0) return status;
  SubtractConstant(a * S2, tmp1, n);
  status = GammaFill(stream3, n, tmp2, k, S2);
  if (status < 0) return status;
  SubtractConstant(k * S2, tmp2, n);
  for (int32_t i = 0; i < n; ++i) amp[i] = tmp1[i] + tmp2[i];

  status = GammaFill(stream2, n, tmp1, k + K, 1.0);
  if (status < 0) return status;
  SubtractConstant(k + K, tmp1, n);
  status = GammaFill(stream4, n, tmp2, k, 1.0);
  if (status < 0) return status;
  SubtractConstant(k, tmp2, n);
  const double scale = phaseSigma / std::sqrt(K);
  for (int32_t i = 0; i < n; ++i) phase[i] = (tmp1[i] - tmp2[i]) * scale;
  return status;
}

int ReadScintFilterFile(const std::filesystem::path& path, double gain, ScintFilter& filter,
                        std::string& error) {
  filter = ScintFilter{};
  platform::LineReader file;
  if (!file.Open(path)) {
    error = fmt::format("{}: the filter file cannot be opened", path.string());
    return -1;
  }
  std::string line;
  auto readCount = [&](const char* what, int32_t least, int32_t& count) {
    if (file.ReadLine(line) < 0) {
      error = fmt::format("{}: the file ends after line {}; expected the count of {}",
                          path.string(), file.lineNumber(), what);
      return false;
    }
    if (platform::ScanLine(line, "%s>%d", {&count}) != 1 || count < least) {
      error = fmt::format("{}, line {}: expected the count of {} ({} or more), got \"{}\"",
                          path.string(), file.lineNumber(), what, least, line);
      return false;
    }
    return true;
  };
  auto readValues = [&](const char* what, int32_t count, double factor,
                        std::vector<double>& values) {
    for (int32_t i = 0; i < count; ++i) {
      double value = 0.0;
      if (file.ReadLine(line) < 0) {
        error = fmt::format("{}: the file ends after line {}; {} {} values were announced",
                            path.string(), file.lineNumber(), count, what);
        return false;
      }
      if (platform::ScanLine(line, "%s>%f", {&value}) != 1) {
        error = fmt::format("{}, line {}: expected {} value {} of {}, got \"{}\"", path.string(),
                            file.lineNumber(), what, i + 1, count, line);
        return false;
      }
      values.push_back(value * factor);
    }
    return true;
  };
  // The step divides by the b count, so a filter has at least b[0].
  if (!readCount("a values", 0, filter.na) || !readValues("a", filter.na, 1.0, filter.a) ||
      !readCount("b values", 1, filter.nb) || !readValues("b", filter.nb, gain, filter.b))
    return -1;
  filter.b.push_back(0.0);  // the step reads b[nb]
  filter.yHistory.assign(static_cast<size_t>(filter.na), 0.0);
  filter.xHistory.assign(static_cast<size_t>(filter.nb) + 1, 0.0);
  return 0;
}

void ScintFilterStep(const double* a, double* yHistory, int32_t& yIndex, int32_t na,
                     const double* b, double* xHistory, int32_t& xIndex, int32_t nb, double& x) {
  const double input = x;
  double y = b[0] * input;
  for (int32_t i = 0; i < na; ++i) {
    int32_t j = yIndex - i;
    if (j < 0) j += na;
    y -= a[i] * yHistory[j];
  }
  for (int32_t i = 0; i < nb; ++i) {
    int32_t j = xIndex - i;
    if (j < 0) j += nb;
    y -= b[i + 1] * xHistory[j];
  }
  if (na > 0) {
    yIndex = (yIndex + 1) % na;
    yHistory[yIndex] = y;
  }
  if (nb > 0) {
    xIndex = (xIndex + 1) % nb;
    xHistory[xIndex + 1] = input;
  }
  x = y;
}

int GenerateScint(const ScintSettings& s, ScintFilter* ampFilter, ScintFilter* phaseFilter,
                  ScintSeries& series, std::string& error) {
  platform::FirState ampFir, phaseFir;
  if (DesignBand(s.AmpBandLow, s.AmpBandHigh, "AmpBandLow", "AmpBandHigh", ampFir, error) != 0 ||
      DesignBand(s.PhaseBandLow, s.PhaseBandHigh, "PhaseBandLow", "PhaseBandHigh", phaseFir,
                 error) != 0)
    return -1;
  if ((s.AmpFilterOn == 1 && ampFilter == nullptr) ||
      (s.PhaseFilterOn == 1 && phaseFilter == nullptr)) {
    error = "a shaping filter is switched on but was not read";
    return -1;
  }
  const int32_t n = kScintSamples;
  std::vector<double> amp(n), phase(n), tmp1(n), tmp2(n);
  ScintStream stream1(777), stream2(700), stream3(600), stream4(600);
  if (GenerateScintSeries(stream1, stream2, stream3, stream4, s.ScintIndex, s.ScintCorrelation,
                          s.PhaseSigma, n, amp.data(), phase.data(), tmp1.data(),
                          tmp2.data()) < 0) {
    error = kScintRefusal;
    return -2;
  }
  std::vector<double>& ampOut = series.ampOut;
  std::vector<double>& phaseOut = series.phaseOut;
  ampOut = amp;
  phaseOut = phase;
  if (s.AmpFilterOn != 1 && s.PhaseFilterOn != 1) {
    platform::FirFilterInPlace(ampOut.data(), n, ampFir);
    platform::FirFilterInPlace(phaseOut.data(), n, phaseFir);
  } else {
    if (s.AmpFilterOn == 1) RunFilter(*ampFilter, ampOut);
    if (s.PhaseFilterOn == 1) RunFilter(*phaseFilter, phaseOut);
    // A band-limited share of the white series, with fixed weights, on top of each.
    platform::FirFilterInPlace(amp.data(), n, ampFir);
    platform::FirFilterInPlace(phase.data(), n, phaseFir);
    for (int32_t i = 0; i < n; ++i) {
      amp[i] *= kAmpWhiteWeight;
      phase[i] *= kPhaseWhiteWeight;
    }
    for (int32_t i = 0; i < n; ++i) {
      phaseOut[i] += phase[i];
      ampOut[i] += amp[i];
    }
  }
  // The mean of 1 comes in here, and no amplitude is ever below the floor.
#pragma omp parallel for schedule(static)
  for (int32_t i = 0; i < n; ++i) ampOut[i] = std::max(kAmplitudeFloor, 1.0 + ampOut[i]);
  return 0;
}

std::string FormatScintGenData(const ScintSeries& series) {
  fmt::memory_buffer out;
  for (size_t i = 0; i < series.ampOut.size(); ++i)
    fmt::format_to(std::back_inserter(out), "{:14.3f} {:14.3f} \r\n", series.ampOut[i],
                   series.phaseOut[i]);
  return fmt::to_string(out);
}

}  // namespace vorel::scintillation
