#include "dif/channel_kernel.h"

#include <cmath>
#include <cstdlib>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "dif/dif_state.h"

namespace vorel::dif {
namespace {

// Float to int32 as a cast truncates, but held inside the int32 range and 0 for NaN, so
// that no input can make the conversion undefined.
inline int32_t SaturatingTrunc(float v) {
  if (!(v == v)) return 0;
  if (v >= 2147483520.0f) return 2147483520;
  if (v <= -2147483520.0f) return -2147483520;
  return static_cast<int32_t>(v);
}

inline int32_t FloorMod(int64_t a, int32_t n) {
  int64_t r = a % n;
  if (r < 0) r += n;
  return static_cast<int32_t>(r);
}

// True when no x and no phi of this path can leave the range in which a plain cast is
// defined. Otherwise the path runs the saturating form (only garbage in the record or the
// scintillation file gets there).
bool Tame(const PathArgs& a, const ChannelNco& c) {
  const double n = a.n;
  const double phiBound = std::fabs(static_cast<double>(a.thetaOff) + c.carrierPhase) +
                          n * std::fabs(static_cast<double>(a.omega)) + 1.0;
  const double xBound = std::fabs(static_cast<double>(a.d)) + std::fabs(c.codeFraction) +
                        n * std::fabs(static_cast<double>(a.rho)) + 2.0;
  return phiBound < 4.0e8 && xBound < 1.0e8 &&
         std::llabs(static_cast<long long>(c.codeIndex)) < 1000000000;
}

enum class Out { kAdd, kStore };

inline void Emit(float* dst, int32_t i, float s, float g, Out mode) {
  // A fresh buffer takes 0 + s g, which is what adding to a cleared sum gives.
  if (mode == Out::kAdd)
    dst[i] = dst[i] + s * g;
  else
    dst[i] = 0.0f + s * g;
}

template <bool kWild>
inline void Step(const PathArgs& a, ChannelNco& c, BitFeed& feed, PathCursor& p, int32_t i,
                 float* dst, Out mode) {
  const float fi1 = static_cast<float>(i + 1);
  p.x = p.dcf + fi1 * a.rho;
  if (std::fabs(p.x) >= 1.0f) {
    const int32_t m = kWild ? SaturatingTrunc(p.x) : static_cast<int32_t>(p.x);
    c.codeFraction -= static_cast<float>(m);
    p.K += m;
    c.codeIndex = static_cast<int32_t>(p.K);
    p.x = fi1 * a.rho + c.codeFraction;
    p.dcf = a.d + c.codeFraction;
  }
  p.k = FloorMod(static_cast<int64_t>(i) + 1 + p.K, a.n);
  p.phi = p.base + static_cast<float>(i) * a.omega;
  if (p.k == 0) {
    if (c.armed) {
      c.msInBit = FloorMod(static_cast<int64_t>(c.msInBit) + 1, 20);
      if (c.msInBit == 0) NextBit(feed, c);
      c.armed = 0;
    }
  } else if (p.k == 1 && !c.armed) {
    c.armed = 1;
  }
  const float scaled = p.phi * kRadiansToIndex;
  const int32_t t = kWild ? SaturatingTrunc(scaled) : static_cast<int32_t>(scaled);
  const int32_t q = t & 15;  // floored remainder by 16
  float s;
  if (a.carrierOn)
    s = (static_cast<float>(c.navBit) * kCarrierTable[q]) * static_cast<float>(a.code[p.k]);
  else
    s = static_cast<float>(static_cast<int32_t>(static_cast<int64_t>(a.code[p.k]) * c.navBit));
  Emit(dst, i, s, a.g, mode);
}

inline void Finish(const PathArgs& a, ChannelNco& c, const PathCursor& p) {
  if (!a.lastPath) return;
  c.carrierPhase =
      static_cast<float>(std::fmod(static_cast<double>(a.omega + p.phi), kTwoPiFloatAsDouble));
  c.codeIndex = p.k;
  c.codeFraction = p.x;
}

template <bool kWild>
void PlainLoop(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, PathCursor& p,
               int32_t i0, int32_t i1) {
  for (int32_t i = i0; i < i1; ++i) Step<kWild>(a, c, feed, p, i, dst, mode);
}

#if defined(__x86_64__)
#define VOREL_AVX2 __attribute__((target("avx2")))

#define VOREL_AVX512 __attribute__((target("avx512f")))

// W samples at a time wherever no code wrap, no code epoch (k of 0 or 1) and no end of the
// code table falls among them; those groups go through the plain step. kStart, the code
// index of the group's first sample, moves on by W after a vector group and is taken anew
// after a plain one.
VOREL_AVX2 void FastLoop(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode,
                         PathCursor& p, int32_t i0, int32_t i1) {
  constexpr int32_t W = 8;
  const int32_t n = a.n;
  const __m256 rhoV = _mm256_set1_ps(a.rho);
  const __m256 omegaV = _mm256_set1_ps(a.omega);
  const __m256 baseV = _mm256_set1_ps(p.base);
  const __m256 gV = _mm256_set1_ps(a.g);
  const __m256 scaleV = _mm256_set1_ps(kRadiansToIndex);
  const __m256 oneV = _mm256_set1_ps(1.0f);
  const __m256 absMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
  const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256i fifteen = _mm256_set1_epi32(15);
  const __m256i seven = _mm256_set1_epi32(7);

  // The carrier table times the bit in force: the same product the plain loop forms.
  alignas(32) float table[16];
  int32_t tableBit = c.navBit;
  for (int m = 0; m < 16; ++m) table[m] = static_cast<float>(c.navBit) * kCarrierTable[m];
  __m256 lowT = _mm256_load_ps(table), highT = _mm256_load_ps(table + 8);

  int32_t kStart = FloorMod(static_cast<int64_t>(i0) + 1 + p.K, n);
  int32_t i = i0;
  for (; i + W <= i1; i += W) {
    const __m256i iv = _mm256_add_epi32(_mm256_set1_epi32(i), lanes);
    const __m256 fi1 = _mm256_cvtepi32_ps(_mm256_add_epi32(iv, _mm256_set1_epi32(1)));
    const __m256 x = _mm256_add_ps(_mm256_set1_ps(p.dcf), _mm256_mul_ps(fi1, rhoV));
    const bool wrap =
        _mm256_movemask_ps(_mm256_cmp_ps(_mm256_and_ps(x, absMask), oneV, _CMP_GE_OQ)) != 0;
    if (wrap || !a.carrierOn || kStart <= 1 || kStart + W - 1 >= n) {
      for (int32_t j = i; j < i + W; ++j) Step<false>(a, c, feed, p, j, dst, mode);
      kStart = FloorMod(static_cast<int64_t>(i) + W + 1 + p.K, n);
      continue;
    }
    if (tableBit != c.navBit) {
      for (int m = 0; m < 16; ++m) table[m] = static_cast<float>(c.navBit) * kCarrierTable[m];
      lowT = _mm256_load_ps(table);
      highT = _mm256_load_ps(table + 8);
      tableBit = c.navBit;
    }
    const __m256 phi = _mm256_add_ps(baseV, _mm256_mul_ps(_mm256_cvtepi32_ps(iv), omegaV));
    const __m256i q = _mm256_and_si256(_mm256_cvttps_epi32(_mm256_mul_ps(phi, scaleV)), fifteen);
    const __m256 lo = _mm256_permutevar8x32_ps(lowT, q);
    const __m256 hi = _mm256_permutevar8x32_ps(highT, q);
    const __m256 carrier =
        _mm256_blendv_ps(lo, hi, _mm256_castsi256_ps(_mm256_cmpgt_epi32(q, seven)));
    const __m256 s = _mm256_mul_ps(carrier, _mm256_loadu_ps(a.codeFloat + kStart));
    const __m256 contribution = _mm256_mul_ps(s, gV);
    if (mode == Out::kAdd)
      _mm256_storeu_ps(dst + i, _mm256_add_ps(_mm256_loadu_ps(dst + i), contribution));
    else
      _mm256_storeu_ps(dst + i, _mm256_add_ps(_mm256_setzero_ps(), contribution));
    // What the last sample of the group leaves behind.
    p.k = kStart + W - 1;
    p.x = p.dcf + static_cast<float>(i + W) * a.rho;
    p.phi = p.base + static_cast<float>(i + W - 1) * a.omega;
    kStart += W;
    if (kStart >= n) kStart -= n;
  }
  for (; i < i1; ++i) Step<false>(a, c, feed, p, i, dst, mode);
}

// The same with sixteen lanes; the sixteen-entry table is one register. (GCC 12's
// AVX-512 headers start some conversions from an undefined register and warn about it.)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
VOREL_AVX512 void FastLoop512(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode,
                              PathCursor& p, int32_t i0, int32_t i1) {
  constexpr int32_t W = 16;
  const int32_t n = a.n;
  const __m512 rhoV = _mm512_set1_ps(a.rho);
  const __m512 omegaV = _mm512_set1_ps(a.omega);
  const __m512 baseV = _mm512_set1_ps(p.base);
  const __m512 gV = _mm512_set1_ps(a.g);
  const __m512 scaleV = _mm512_set1_ps(kRadiansToIndex);
  const __m512 oneV = _mm512_set1_ps(1.0f);
  const __m512i lanes = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m512i fifteen = _mm512_set1_epi32(15);

  alignas(64) float table[16];
  int32_t tableBit = c.navBit;
  for (int m = 0; m < 16; ++m) table[m] = static_cast<float>(c.navBit) * kCarrierTable[m];
  __m512 tableV = _mm512_load_ps(table);

  int32_t kStart = FloorMod(static_cast<int64_t>(i0) + 1 + p.K, n);
  int32_t i = i0;
  for (; i + W <= i1; i += W) {
    const __m512i iv = _mm512_add_epi32(_mm512_set1_epi32(i), lanes);
    const __m512 fi1 = _mm512_cvtepi32_ps(_mm512_add_epi32(iv, _mm512_set1_epi32(1)));
    const __m512 x = _mm512_add_ps(_mm512_set1_ps(p.dcf), _mm512_mul_ps(fi1, rhoV));
    const bool wrap = _mm512_cmp_ps_mask(_mm512_abs_ps(x), oneV, _CMP_GE_OQ) != 0;
    if (wrap || !a.carrierOn || kStart <= 1 || kStart + W - 1 >= n) {
      for (int32_t j = i; j < i + W; ++j) Step<false>(a, c, feed, p, j, dst, mode);
      kStart = FloorMod(static_cast<int64_t>(i) + W + 1 + p.K, n);
      continue;
    }
    if (tableBit != c.navBit) {
      for (int m = 0; m < 16; ++m) table[m] = static_cast<float>(c.navBit) * kCarrierTable[m];
      tableV = _mm512_load_ps(table);
      tableBit = c.navBit;
    }
    const __m512 phi = _mm512_add_ps(baseV, _mm512_mul_ps(_mm512_cvtepi32_ps(iv), omegaV));
    const __m512i q = _mm512_and_si512(_mm512_cvttps_epi32(_mm512_mul_ps(phi, scaleV)), fifteen);
    const __m512 carrier = _mm512_permutexvar_ps(q, tableV);
    const __m512 s = _mm512_mul_ps(carrier, _mm512_loadu_ps(a.codeFloat + kStart));
    const __m512 contribution = _mm512_mul_ps(s, gV);
    if (mode == Out::kAdd)
      _mm512_storeu_ps(dst + i, _mm512_add_ps(_mm512_loadu_ps(dst + i), contribution));
    else
      _mm512_storeu_ps(dst + i, _mm512_add_ps(_mm512_setzero_ps(), contribution));
    p.k = kStart + W - 1;
    p.x = p.dcf + static_cast<float>(i + W) * a.rho;
    p.phi = p.base + static_cast<float>(i + W - 1) * a.omega;
    kStart += W;
    if (kStart >= n) kStart -= n;
  }
  for (; i < i1; ++i) Step<false>(a, c, feed, p, i, dst, mode);
}
#pragma GCC diagnostic pop
#endif

void Run(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, PathCursor& p,
         int32_t i0, int32_t i1) {
  switch (p.form) {
#if defined(__x86_64__)
    case PathCursor::Form::kSixteen:
      FastLoop512(a, c, feed, dst, mode, p, i0, i1);
      return;
    case PathCursor::Form::kEight:
      FastLoop(a, c, feed, dst, mode, p, i0, i1);
      return;
#endif
    case PathCursor::Form::kWild:
      PlainLoop<true>(a, c, feed, dst, mode, p, i0, i1);
      return;
    default:
      PlainLoop<false>(a, c, feed, dst, mode, p, i0, i1);
      return;
  }
}

void Whole(const PathArgs& a, ChannelNco& c, BitFeed& feed, float* dst, Out mode, bool vectorised) {
  PathCursor p = BeginPath(a, c, vectorised);
  Run(a, c, feed, dst, mode, p, 0, a.n);
  EndPath(a, c, p);
}

}  // namespace

void NextBit(BitFeed& feed, ChannelNco& nco) {
  switch (feed.kind) {
    case BitFeed::Kind::kScenario: {
      // Wrapping: a bit number saturated from a wild range must not overflow.
      nco.bitNumber = static_cast<int32_t>(static_cast<uint32_t>(nco.bitNumber) + 1u);
      const int64_t index = static_cast<int64_t>(nco.bitNumber) - feed.base;
      if (index < 0) {
        nco.navBit = 1;
        feed.beforeRow = true;
      } else if (index >= kNavBitsPerRow) {
        feed.pastRow = true;
      } else {
        nco.navBit = feed.row[index];
      }
      break;
    }
    case BitFeed::Kind::kAllOnes:
      nco.navBit = 1;
      break;
    case BitFeed::Kind::kAlternate:
      nco.navBit = -nco.navBit;
      break;
    case BitFeed::Kind::kFile:
      if (feed.fileIndex + 1 >= kNavBitsPerRow) {
        feed.pastRow = true;
      } else {
        feed.fileIndex += 1;
        nco.navBit = feed.row[feed.fileIndex];
      }
      break;
  }
}

PathCursor BeginPath(const PathArgs& a, const ChannelNco& c, bool vectorised) {
  PathCursor p;
  p.K = c.codeIndex;
  p.dcf = a.d + c.codeFraction;
  p.base = a.thetaOff + c.carrierPhase;
  const bool tame = Tame(a, c);
  p.form = tame ? PathCursor::Form::kPlain : PathCursor::Form::kWild;
#if defined(__x86_64__)
  if (vectorised && tame && a.codeFloat) {
    if (a.wide && __builtin_cpu_supports("avx512f"))
      p.form = PathCursor::Form::kSixteen;
    else if (__builtin_cpu_supports("avx2"))
      p.form = PathCursor::Form::kEight;
  }
#endif
  return p;
}

void RunPathRange(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* dst, bool store,
                  PathCursor& cursor, int32_t first, int32_t end) {
  Run(a, nco, feed, dst, store ? Out::kStore : Out::kAdd, cursor, first, end);
}

void EndPath(const PathArgs& a, ChannelNco& nco, const PathCursor& cursor) {
  Finish(a, nco, cursor);
}

void RunPathPlain(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum) {
  Whole(a, nco, feed, sum, Out::kAdd, false);
}
void RunPathFast(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* sum) {
  Whole(a, nco, feed, sum, Out::kAdd, true);
}
void RunPathPlainStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out) {
  Whole(a, nco, feed, out, Out::kStore, false);
}
void RunPathFastStore(const PathArgs& a, ChannelNco& nco, BitFeed& feed, float* out) {
  Whole(a, nco, feed, out, Out::kStore, true);
}

}  // namespace vorel::dif
