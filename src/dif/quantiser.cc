#include "dif/quantiser.h"

#include <algorithm>
#include <cmath>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {
namespace {

inline int32_t Cell(double ratio, int32_t levelCount) {
  const double m = std::floor(ratio);
  // The maximum gives exactly L; anything beyond the range (it cannot happen with a block's
  // own limits) is held inside the table.
  if (!(m >= 0.0)) return 0;
  if (m >= static_cast<double>(levelCount)) return levelCount - 1;
  return static_cast<int32_t>(m);
}

template <typename T>
void MinMax(const T* x, int32_t n, T& lo, T& hi) {
  lo = x[0];
  hi = x[0];
  for (int32_t i = 1; i < n; ++i) {
    if (x[i] > hi) hi = x[i];
    if (x[i] < lo) lo = x[i];
  }
}

#if defined(__x86_64__)
#define VOREL_AVX2 __attribute__((target("avx2")))

VOREL_AVX2 void MinMaxFloatAvx2(const float* x, int32_t n, float& lo, float& hi) {
  int32_t i = 0;
  float l = x[0], h = x[0];
  if (n >= 8) {
    // Every lane starts from the first sample, as the plain loop does, and a NaN sample
    // (first operand) never replaces a lane's value: max/min return the second operand.
    __m256 vl = _mm256_set1_ps(x[0]), vh = vl;
    for (i = 0; i + 8 <= n; i += 8) {
      const __m256 v = _mm256_loadu_ps(x + i);
      vl = _mm256_min_ps(v, vl);
      vh = _mm256_max_ps(v, vh);
    }
    alignas(32) float a[8], b[8];
    _mm256_store_ps(a, vl);
    _mm256_store_ps(b, vh);
    l = a[0];
    h = b[0];
    for (int k = 1; k < 8; ++k) {
      if (a[k] < l) l = a[k];
      if (b[k] > h) h = b[k];
    }
  }
  for (; i < n; ++i) {
    if (x[i] > h) h = x[i];
    if (x[i] < l) l = x[i];
  }
  lo = l;
  hi = h;
}

// floor(v / step), folded into 0..L-1, for four doubles; levelCount up to 2^16 keeps the
// cell in an int32.
VOREL_AVX2 inline __m128i CellsAvx2(__m256d ratio, __m256d top) {
  __m256d m = _mm256_floor_pd(ratio);
  m = _mm256_max_pd(m, _mm256_setzero_pd());
  m = _mm256_min_pd(m, top);
  return _mm256_cvttpd_epi32(m);
}

VOREL_AVX2 void QuantiseFloatAvx2(const float* x, uint8_t* bytes, const uint8_t* levels,
                                  int32_t n, int32_t levelCount, float lo, double step) {
  const __m256 loV = _mm256_set1_ps(lo);
  const __m256d stepV = _mm256_set1_pd(step);
  const __m256d top = _mm256_set1_pd(static_cast<double>(levelCount - 1));
  const bool identity = levelCount <= 256;
  int32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 v = _mm256_sub_ps(_mm256_loadu_ps(x + i), loV);
    const __m256d v0 = _mm256_cvtps_pd(_mm256_castps256_ps128(v));
    const __m256d v1 = _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1));
    const __m128i c0 = CellsAvx2(_mm256_div_pd(v0, stepV), top);
    const __m128i c1 = CellsAvx2(_mm256_div_pd(v1, stepV), top);
    alignas(16) int32_t c[8];
    _mm_store_si128(reinterpret_cast<__m128i*>(c), c0);
    _mm_store_si128(reinterpret_cast<__m128i*>(c + 4), c1);
    if (identity) {
      const __m128i w = _mm_packs_epi32(c0, c1);
      _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes + i), _mm_packus_epi16(w, w));
    } else {
      for (int k = 0; k < 8; ++k) bytes[i + k] = levels[c[k]];
    }
  }
  for (; i < n; ++i) {
    const float v = x[i] - lo;
    bytes[i] = levels[Cell(static_cast<double>(v) / step, levelCount)];
  }
}

VOREL_AVX2 void QuantiseDoubleAvx2(const double* x, uint8_t* bytes, const uint8_t* levels,
                                   int32_t n, int32_t levelCount, double lo, double step) {
  const __m256d loV = _mm256_set1_pd(lo);
  const __m256d stepV = _mm256_set1_pd(step);
  const __m256d top = _mm256_set1_pd(static_cast<double>(levelCount - 1));
  const bool identity = levelCount <= 256;
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m256d v = _mm256_sub_pd(_mm256_loadu_pd(x + i), loV);
    const __m128i c = CellsAvx2(_mm256_div_pd(v, stepV), top);
    alignas(16) int32_t cs[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(cs), c);
    for (int k = 0; k < 4; ++k) bytes[i + k] = identity ? static_cast<uint8_t>(cs[k]) : levels[cs[k]];
  }
  for (; i < n; ++i) bytes[i] = levels[Cell((x[i] - lo) / step, levelCount)];
}
#endif

}  // namespace

int32_t LevelCount(int32_t bitsPerSample) {
  // Exponentiation by repeated squaring of 2.0.
  double result = 1.0, base = 2.0;
  for (int32_t e = bitsPerSample; e > 0; e >>= 1) {
    if (e & 1) result *= base;
    base *= base;
  }
  return static_cast<int32_t>(result);
}

std::vector<uint8_t> LevelTable(int32_t levelCount) {
  std::vector<uint8_t> t(static_cast<size_t>(std::max(levelCount, 1)));
  for (int32_t m = 0; m < levelCount; ++m) t[m] = static_cast<uint8_t>(m & 0xFF);
  return t;
}

void QuantiseFloatBlockPlain(int32_t, const float* x, uint8_t* bytes, const uint8_t* levels,
                             int32_t n, int32_t levelCount) {
  if (n <= 0) return;
  float lo, hi;
  MinMax(x, n, lo, hi);
  const double step = static_cast<double>((hi - lo) / static_cast<float>(levelCount));
  if (!(step > 0.0)) {
    std::fill(bytes, bytes + n, levels[0]);
    return;
  }
  for (int32_t i = 0; i < n; ++i) {
    const float v = x[i] - lo;
    bytes[i] = levels[Cell(static_cast<double>(v) / step, levelCount)];
  }
}

void QuantiseDoubleBlockPlain(int32_t, const double* x, uint8_t* bytes, const uint8_t* levels,
                              int32_t n, int32_t levelCount) {
  if (n <= 0) return;
  double lo, hi;
  MinMax(x, n, lo, hi);
  const double step = (hi - lo) / static_cast<double>(levelCount);
  if (!(step > 0.0)) {
    std::fill(bytes, bytes + n, levels[0]);
    return;
  }
  for (int32_t i = 0; i < n; ++i) bytes[i] = levels[Cell((x[i] - lo) / step, levelCount)];
}

void QuantiseFloatBlock(int32_t bits, const float* x, uint8_t* bytes, const uint8_t* levels,
                        int32_t n, int32_t levelCount) {
#if defined(__x86_64__)
  if (n > 0 && __builtin_cpu_supports("avx2")) {
    float lo, hi;
    MinMaxFloatAvx2(x, n, lo, hi);
    const double step = static_cast<double>((hi - lo) / static_cast<float>(levelCount));
    if (!(step > 0.0)) {
      std::fill(bytes, bytes + n, levels[0]);
      return;
    }
    QuantiseFloatAvx2(x, bytes, levels, n, levelCount, lo, step);
    return;
  }
#endif
  QuantiseFloatBlockPlain(bits, x, bytes, levels, n, levelCount);
}

void QuantiseDoubleBlock(int32_t bits, const double* x, uint8_t* bytes, const uint8_t* levels,
                         int32_t n, int32_t levelCount) {
#if defined(__x86_64__)
  if (n > 0 && __builtin_cpu_supports("avx2")) {
    double lo, hi;
    MinMax(x, n, lo, hi);
    const double step = (hi - lo) / static_cast<double>(levelCount);
    if (!(step > 0.0)) {
      std::fill(bytes, bytes + n, levels[0]);
      return;
    }
    QuantiseDoubleAvx2(x, bytes, levels, n, levelCount, lo, step);
    return;
  }
#endif
  QuantiseDoubleBlockPlain(bits, x, bytes, levels, n, levelCount);
}

int32_t PackBlock(uint8_t* bytes, int32_t n, int32_t bitsPerSample, int32_t decimation,
                  uint8_t outputPacked) {
  const int32_t d = decimation == 0 ? 1 : decimation;
  if (outputPacked == 0) {
    const int32_t count = n / d;
    for (int32_t j = 0; j < count; ++j) bytes[j] = bytes[j * d];
    return count;
  }
  if (bitsPerSample == 1) {
    const int32_t count = (n / 8) / d;
    for (int32_t j = 0; j < count; ++j) {
      uint8_t b = 0;
      for (int32_t m = 0; m < 8; ++m) b |= static_cast<uint8_t>((bytes[d * (8 * j + m)] & 1u) << m);
      bytes[j] = b;
    }
    return count;
  }
  if (bitsPerSample == 2) {
    const int32_t count = (n / 4) / d;
    for (int32_t j = 0; j < count; ++j) {
      uint8_t b = 0;
      for (int32_t m = 0; m < 4; ++m) b |= static_cast<uint8_t>((bytes[d * (4 * j + m)] & 3u) << (2 * m));
      bytes[j] = b;
    }
    return count;
  }
  return 0;
}

}  // namespace vorel::dif
