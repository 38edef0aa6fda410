#include "dif/quantiser.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include "dif/lanes.h"

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

// The block limits, eight floats or four doubles a step: every lane starts from the block's
// first sample, as the plain loop does, and a NaN sample never replaces a lane's value (the
// comparison is false, so the lane keeps its own: _mm256_min_ps(v, lane) exactly).
template <typename T>
VOREL_LANES_INLINE void MinMaxLanes(const T* x, int32_t n, T& lo, T& hi, T start) {
  typedef T V __attribute__((vector_size(32)));
  constexpr int32_t W = 32 / sizeof(T);
  int32_t i = 0;
  T l = start, h = start;
  if (n >= W) {
    V vl = lanes::Splat<V>(start), vh = vl;
    for (i = 0; i + W <= n; i += W) {
      const V v = lanes::LoadU<V>(x + i);
      vl = v < vl ? v : vl;
      vh = v > vh ? v : vh;
    }
    l = vl[0];
    h = vh[0];
    for (int k = 1; k < W; ++k) {
      if (vl[k] < l) l = vl[k];
      if (vh[k] > h) h = vh[k];
    }
  }
  for (; i < n; ++i) {
    if (x[i] > h) h = x[i];
    if (x[i] < l) l = x[i];
  }
  lo = l;
  hi = h;
}

VOREL_AVX2 void MinMaxFloatAvx2(const float* x, int32_t n, float& lo, float& hi, float start) {
  MinMaxLanes(x, n, lo, hi, start);
}
VOREL_AVX2 void MinMaxDoubleAvx2(const double* x, int32_t n, double& lo, double& hi, double start) {
  MinMaxLanes(x, n, lo, hi, start);
}

// floor(v / step), folded into 0..L-1, for four doubles; levelCount up to 2^16 keeps the
// cell in an int32.
VOREL_AVX2 inline __m128i CellsAvx2(__m256d ratio, __m256d top) {
  __m256d m = _mm256_floor_pd(ratio);
  m = _mm256_max_pd(m, _mm256_setzero_pd());
  m = _mm256_min_pd(m, top);
  return _mm256_cvttpd_epi32(m);
}

#endif

#if defined(__x86_64__)
// Cells of eight samples: floor((x - lo) / step) held in 0..L-1 (NaN gives 0).
VOREL_AVX2 inline __m256i Cells8(const float* x, __m256 loV, __m256d stepV, __m256d top) {
  const __m256 v = _mm256_sub_ps(_mm256_loadu_ps(x), loV);
  const __m128i c0 =
      CellsAvx2(_mm256_div_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(v)), stepV), top);
  const __m128i c1 =
      CellsAvx2(_mm256_div_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)), stepV), top);
  return _mm256_set_m128i(c1, c0);
}
VOREL_AVX2 inline __m256i Cells8(const double* x, __m256d loV, __m256d stepV, __m256d top) {
  const __m128i c0 = CellsAvx2(_mm256_div_pd(_mm256_sub_pd(_mm256_loadu_pd(x), loV), stepV), top);
  const __m128i c1 =
      CellsAvx2(_mm256_div_pd(_mm256_sub_pd(_mm256_loadu_pd(x + 4), loV), stepV), top);
  return _mm256_set_m128i(c1, c0);
}

VOREL_AVX2 inline __m256 Broadcast(float v) { return _mm256_set1_ps(v); }
VOREL_AVX2 inline __m256d Broadcast(double v) { return _mm256_set1_pd(v); }

// Bits b3 b2 b1 b0 spread to b3 0 b2 0 b1 0 b0: the low bits of four 2-bit fields.
constexpr uint8_t kSpread[16] = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                 0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

template <typename T>
VOREL_AVX2 void PackRangeAvx2(const T* x, T lo, double step, int32_t levelCount,
                              int32_t samplesPerByte, int32_t bits, uint8_t packed,
                              int32_t firstSample, int32_t endSample, uint8_t* out) {
  const __m256d stepV = _mm256_set1_pd(step);
  const __m256d top = _mm256_set1_pd(static_cast<double>(levelCount - 1));
  const auto loV = Broadcast(lo);
  for (int32_t i = firstSample; i + 8 <= endSample; i += 8) {
    const __m256i c = Cells8(x + i, loV, stepV, top);
    uint8_t* o = out + i / samplesPerByte;
    if (!packed) {
      const __m128i w = _mm_packs_epi32(_mm256_castsi256_si128(c), _mm256_extracti128_si256(c, 1));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(w, w));
    } else if (bits == 1) {
      o[0] =
          static_cast<uint8_t>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_slli_epi32(c, 31))));
    } else {
      const int low = _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_slli_epi32(c, 31)));
      const int high = _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_slli_epi32(c, 30)));
      o[0] = static_cast<uint8_t>(kSpread[low & 15] | kSpread[high & 15] << 1);
      o[1] = static_cast<uint8_t>(kSpread[(low >> 4) & 15] | kSpread[(high >> 4) & 15] << 1);
    }
  }
}
#endif

// One packed byte from its samples, the plain way.
template <typename T>
uint8_t PackedByte(const T* x, T lo, double step, bool flat, const uint8_t* levels,
                   int32_t levelCount, int32_t bits, int32_t d, uint8_t packed, int32_t j) {
  auto level = [&](int32_t s) -> uint8_t {
    if (flat) return levels[0];
    const T v = x[s] - lo;
    return levels[Cell(static_cast<double>(v) / step, levelCount)];
  };
  if (!packed) return level(j * d);
  const int32_t perByte = bits == 1 ? 8 : 4;
  const uint8_t mask = bits == 1 ? 1 : 3;
  uint8_t b = 0;
  for (int32_t m = 0; m < perByte; ++m)
    b |= static_cast<uint8_t>((level(d * (perByte * j + m)) & mask) << (bits * m));
  return b;
}

template <typename T>
BlockLimits<T> MinMaxRangeT(const T* x, int32_t first, int32_t end) {
  BlockLimits<T> r{x[0], x[0]};
  for (int32_t i = first; i < end; ++i) {
    if (x[i] > r.hi) r.hi = x[i];
    if (x[i] < r.lo) r.lo = x[i];
  }
  return r;
}

template <typename T>
double StepOf(const BlockLimits<T>& l, int32_t levelCount) {
  if constexpr (std::is_same_v<T, float>)
    return static_cast<double>((l.hi - l.lo) / static_cast<float>(levelCount));
  else
    return (l.hi - l.lo) / static_cast<double>(levelCount);
}

template <typename T>
void QuantisePackRangeT(const T* x, const BlockLimits<T>& limits, int32_t bits,
                        const uint8_t* levels, int32_t levelCount, int32_t decimation,
                        uint8_t packed, int32_t firstByte, int32_t endByte, uint8_t* out) {
  const int32_t d = decimation == 0 ? 1 : decimation;
  const double step = StepOf(limits, levelCount);
  const bool flat = !(step > 0.0);
  int32_t j = firstByte;
#if defined(__x86_64__)
  const bool packable = !packed || bits == 1 || bits == 2;
  if (!flat && d == 1 && levelCount <= 256 && packable && __builtin_cpu_supports("avx2")) {
    const int32_t perByte = !packed ? 1 : bits == 1 ? 8 : 4;
    // Bytes before the first whole group of eight samples go the plain way.
    const int32_t bytesPerGroup = 8 / perByte;
    const int32_t alignedFirst = (firstByte + bytesPerGroup - 1) / bytesPerGroup * bytesPerGroup;
    for (; j < std::min(alignedFirst, endByte); ++j)
      out[j] = PackedByte(x, limits.lo, step, flat, levels, levelCount, bits, d, packed, j);
    const int32_t groups = (endByte - j) / bytesPerGroup;
    if (groups > 0) {
      const int32_t firstSample = j * perByte;
      const int32_t endSample = firstSample + 8 * groups;
      PackRangeAvx2(x, limits.lo, step, levelCount, perByte, bits, packed, firstSample, endSample,
                    out);
      j += groups * bytesPerGroup;
    }
  }
#endif
  for (; j < endByte; ++j)
    out[j] = PackedByte(x, limits.lo, step, flat, levels, levelCount, bits, d, packed, j);
}

}  // namespace

BlockLimits<float> MinMaxRange(const float* x, int32_t first, int32_t end) {
#if defined(__x86_64__)
  if (end - first >= 8 && __builtin_cpu_supports("avx2")) {
    // Starting every lane from the block's first sample gives the whole loop's limits.
    BlockLimits<float> r;
    MinMaxFloatAvx2(x + first, end - first, r.lo, r.hi, x[0]);
    return r;
  }
#endif
  return MinMaxRangeT(x, first, end);
}
BlockLimits<double> MinMaxRange(const double* x, int32_t first, int32_t end) {
#if defined(__x86_64__)
  if (end - first >= 4 && __builtin_cpu_supports("avx2")) {
    BlockLimits<double> r;
    MinMaxDoubleAvx2(x + first, end - first, r.lo, r.hi, x[0]);
    return r;
  }
#endif
  return MinMaxRangeT(x, first, end);
}

void QuantisePackRange(const float* x, const BlockLimits<float>& limits, int32_t bits,
                       const uint8_t* levels, int32_t levelCount, int32_t decimation,
                       uint8_t outputPacked, int32_t firstByte, int32_t endByte, uint8_t* out) {
  QuantisePackRangeT(x, limits, bits, levels, levelCount, decimation, outputPacked, firstByte,
                     endByte, out);
}
void QuantisePackRange(const double* x, const BlockLimits<double>& limits, int32_t bits,
                       const uint8_t* levels, int32_t levelCount, int32_t decimation,
                       uint8_t outputPacked, int32_t firstByte, int32_t endByte, uint8_t* out) {
  QuantisePackRangeT(x, limits, bits, levels, levelCount, decimation, outputPacked, firstByte,
                     endByte, out);
}

int32_t PackedCount(int32_t n, int32_t bitsPerSample, int32_t decimation, uint8_t outputPacked) {
  const int32_t d = decimation == 0 ? 1 : decimation;
  if (outputPacked == 0) return n / d;
  if (bitsPerSample == 1) return (n / 8) / d;
  if (bitsPerSample == 2) return (n / 4) / d;
  return 0;
}

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

// The whole block: its limits and then its bytes, unpacked and not decimated, by the pieces
// the sample generator uses.
void QuantiseFloatBlock(int32_t bits, const float* x, uint8_t* bytes, const uint8_t* levels,
                        int32_t n, int32_t levelCount) {
  if (n <= 0) return;
  QuantisePackRange(x, MinMaxRange(x, 0, n), bits, levels, levelCount, 1, 0, 0, n, bytes);
}

void QuantiseDoubleBlock(int32_t bits, const double* x, uint8_t* bytes, const uint8_t* levels,
                         int32_t n, int32_t levelCount) {
  if (n <= 0) return;
  QuantisePackRange(x, MinMaxRange(x, 0, n), bits, levels, levelCount, 1, 0, 0, n, bytes);
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
      for (int32_t m = 0; m < 4; ++m)
        b |= static_cast<uint8_t>((bytes[d * (4 * j + m)] & 3u) << (2 * m));
      bytes[j] = b;
    }
    return count;
  }
  return 0;
}

}  // namespace vorel::dif
