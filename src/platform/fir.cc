#include "platform/fir.h"

#include <cmath>
#include <complex>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::platform {
namespace {

constexpr double kPi = 3.14159265358979323846;

// The windows are written in the offset from the centre tap, x = (k - c) / c in -1..1, so
// that the taps come out exactly symmetric.
double WindowValue(FirWindow window, int k, int count) {
  if (count == 1) return 1.0;
  const double c = 0.5 * static_cast<double>(count - 1);
  const double x = (static_cast<double>(k) - c) / c;
  switch (window) {
    case FirWindow::kBartlett:
      return 1.0 - std::fabs(x);
    case FirWindow::kBlackman:
      return 0.42 + 0.5 * std::cos(kPi * x) + 0.08 * std::cos(2.0 * kPi * x);
    case FirWindow::kHamming:
      return 0.54 + 0.46 * std::cos(kPi * x);
    case FirWindow::kHann:
      return 0.5 + 0.5 * std::cos(kPi * x);
    case FirWindow::kRectangular:
      return 1.0;
  }
  return 1.0;
}

// sin(2 pi f t) / (pi t), with its limit 2 f at t = 0: the ideal low-pass of cut-off f.
double IdealLowPass(double f, double t) {
  if (t == 0.0) return 2.0 * f;
  return std::sin(2.0 * kPi * f * t) / (kPi * t);
}

// Copies the past inputs and the new samples into one run: ext[0 .. taps-2] the past
// inputs, oldest first, then the samples.
void Extend(const double* samples, int count, FirState& state, std::vector<double>& ext) {
  const int past = static_cast<int>(state.history.size());
  ext.resize(static_cast<size_t>(past + count));
  for (int j = 0; j < past; ++j) ext[j] = state.history[past - 1 - j];
  for (int i = 0; i < count; ++i) ext[past + i] = samples[i];
}

void KeepHistory(const std::vector<double>& ext, FirState& state) {
  const int past = static_cast<int>(state.history.size());
  const int total = static_cast<int>(ext.size());
  for (int j = 0; j < past; ++j) state.history[j] = ext[total - 1 - j];
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void FilterAvx2(const double* ext, const double* taps, int tapCount,
                                                double* out, int count) {
  const int past = tapCount - 1;
  int i = 0;
  for (; i + 4 <= count; i += 4) {
    const double* base = ext + past + i;
    __m256d acc = _mm256_mul_pd(_mm256_set1_pd(taps[0]), _mm256_loadu_pd(base));
    for (int k = 1; k < tapCount; ++k)
      acc = _mm256_add_pd(acc, _mm256_mul_pd(_mm256_set1_pd(taps[k]), _mm256_loadu_pd(base - k)));
    _mm256_storeu_pd(out + i, acc);
  }
  for (; i < count; ++i) {
    const double* base = ext + past + i;
    double acc = taps[0] * base[0];
    for (int k = 1; k < tapCount; ++k) acc = acc + taps[k] * base[-k];
    out[i] = acc;
  }
}

// Eight outputs a step; the terms in the same order. (GCC 12's AVX-512 headers warn about
// their own undefined starting registers.)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
__attribute__((target("avx512f"))) void FilterAvx512(const double* ext, const double* taps,
                                                     int tapCount, double* out, int count) {
  const int past = tapCount - 1;
  int i = 0;
  for (; i + 8 <= count; i += 8) {
    const double* base = ext + past + i;
    __m512d acc = _mm512_mul_pd(_mm512_set1_pd(taps[0]), _mm512_loadu_pd(base));
    for (int k = 1; k < tapCount; ++k)
      acc = _mm512_add_pd(acc, _mm512_mul_pd(_mm512_set1_pd(taps[k]), _mm512_loadu_pd(base - k)));
    _mm512_storeu_pd(out + i, acc);
  }
  if (i < count) FilterAvx2(ext + i, taps, tapCount, out + i, count - i);
}
#pragma GCC diagnostic pop
#endif

}  // namespace

double* FirBegin(FirState& state, int count) {
  const int past = static_cast<int>(state.history.size());
  state.scratch.resize(static_cast<size_t>(past + count));
  for (int j = 0; j < past; ++j) state.scratch[j] = state.history[past - 1 - j];
  return state.scratch.data();
}

int FirPast(const FirState& state) { return static_cast<int>(state.history.size()); }

void FirRange(const FirState& state, const double* ext, double* out, int first, int end) {
  const int tapCount = static_cast<int>(state.taps.size());
  if (tapCount == 0 || end <= first) return;
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) {
    FilterAvx512(ext + first, state.taps.data(), tapCount, out + first, end - first);
    return;
  }
  if (__builtin_cpu_supports("avx2")) {
    FilterAvx2(ext + first, state.taps.data(), tapCount, out + first, end - first);
    return;
  }
#endif
  const int past = tapCount - 1;
  for (int i = first; i < end; ++i) {
    const double* base = ext + past + i;
    double acc = state.taps[0] * base[0];
    for (int k = 1; k < tapCount; ++k) acc = acc + state.taps[k] * base[-k];
    out[i] = acc;
  }
}

void FirEnd(FirState& state) { KeepHistory(state.scratch, state); }

int FirGenBandpass(double low, double high, double* taps, int tapCount, FirWindow window,
                   bool normalise) {
  const int w = static_cast<int>(window);
  if (tapCount < 1 || !(low >= 0.0) || !(high > low) || !(high <= 0.5) || w < 0 || w > 4) return -1;
  const double centre = 0.5 * static_cast<double>(tapCount - 1);
  for (int k = 0; k < tapCount; ++k) {
    const double t = static_cast<double>(k) - centre;
    taps[k] = (IdealLowPass(high, t) - IdealLowPass(low, t)) * WindowValue(window, k, tapCount);
  }
  if (normalise) {
    const double gain = FirGain(taps, tapCount, 0.5 * (low + high));
    if (gain > 0.0)
      for (int k = 0; k < tapCount; ++k) taps[k] /= gain;
  }
  return 0;
}

double FirGain(const double* taps, int tapCount, double f) {
  std::complex<double> sum = 0.0;
  for (int k = 0; k < tapCount; ++k)
    sum += taps[k] * std::polar(1.0, -2.0 * kPi * f * static_cast<double>(k));
  return std::abs(sum);
}

FirState FirInit(const double* taps, int tapCount) {
  FirState s;
  s.taps.assign(taps, taps + tapCount);
  s.history.assign(tapCount > 1 ? static_cast<size_t>(tapCount - 1) : 0, 0.0);
  return s;
}

void FirFilterInPlacePlain(double* samples, int count, FirState& state) {
  const int tapCount = static_cast<int>(state.taps.size());
  if (tapCount == 0 || count <= 0) return;
  std::vector<double>& ext = state.scratch;
  Extend(samples, count, state, ext);
  const int past = tapCount - 1;
  for (int i = 0; i < count; ++i) {
    const double* base = ext.data() + past + i;
    double acc = state.taps[0] * base[0];
    for (int k = 1; k < tapCount; ++k) acc = acc + state.taps[k] * base[-k];
    samples[i] = acc;
  }
  KeepHistory(ext, state);
}

void FirFilterInPlace(double* samples, int count, FirState& state) {
#if defined(__x86_64__)
  const int tapCount = static_cast<int>(state.taps.size());
  if (tapCount == 0 || count <= 0) return;
  if (__builtin_cpu_supports("avx2")) {
    std::vector<double>& ext = state.scratch;
    Extend(samples, count, state, ext);
    FilterAvx2(ext.data(), state.taps.data(), tapCount, samples, count);
    KeepHistory(ext, state);
    return;
  }
#endif
  FirFilterInPlacePlain(samples, count, state);
}

}  // namespace vorel::platform
