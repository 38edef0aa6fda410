#include "dif/noise.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {
namespace {

constexpr float kTwoPow24Inv = 5.9604644775390625e-08f;  // 2^-24
constexpr float kTwoPow21Inv = 4.76837158203125e-07f;    // 2^-21
constexpr float kQuarterPi = 0.785398163397448f;
constexpr float kSqrtHalf = 0.707106781186547524f;

inline uint32_t Hash(uint32_t x) {
  x ^= x >> 16;
  x *= 0x7feb352du;
  x ^= x >> 15;
  x *= 0x846ca68bu;
  x ^= x >> 16;
  return x;
}

inline uint32_t Key(uint32_t seed) { return Hash(seed * 0x9E3779B9u + 0x632BE5ABu); }

inline float AsFloat(uint32_t b) {
  float f;
  std::memcpy(&f, &b, sizeof f);
  return f;
}
inline uint32_t AsBits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, sizeof b);
  return b;
}

inline void PairValues(uint32_t key, uint32_t pair, float& a, float& b) {
  const uint32_t h1 = Hash(key + 2u * pair);
  const uint32_t h2 = Hash(key ^ (2u * pair + 1u));
  const float u1 = static_cast<float>(static_cast<int32_t>((h1 >> 8) + 1u)) * kTwoPow24Inv;
  const float r = std::sqrt(-2.0f * NoiseLog(u1));
  float s, c;
  NoiseSinCos(h2 >> 29,
              static_cast<float>(static_cast<int32_t>((h2 >> 8) & 0x1FFFFFu)) * kTwoPow21Inv, s, c);
  a = r * c;
  b = r * s;
}

#if defined(__x86_64__)
#define VOREL_AVX2 __attribute__((target("avx2")))

VOREL_AVX2 inline __m256i HashV(__m256i x) {
  x = _mm256_xor_si256(x, _mm256_srli_epi32(x, 16));
  x = _mm256_mullo_epi32(x, _mm256_set1_epi32(0x7feb352d));
  x = _mm256_xor_si256(x, _mm256_srli_epi32(x, 15));
  x = _mm256_mullo_epi32(x, _mm256_set1_epi32(static_cast<int32_t>(0x846ca68bu)));
  x = _mm256_xor_si256(x, _mm256_srli_epi32(x, 16));
  return x;
}

VOREL_AVX2 inline __m256 MulAdd(__m256 y, __m256 x, float c) {
  return _mm256_add_ps(_mm256_mul_ps(y, x), _mm256_set1_ps(c));
}

VOREL_AVX2 inline __m256 LogV(__m256 u) {
  const __m256i bits = _mm256_castps_si256(u);
  __m256i e = _mm256_sub_epi32(_mm256_srli_epi32(bits, 23), _mm256_set1_epi32(126));
  __m256 m = _mm256_castsi256_ps(_mm256_or_si256(
      _mm256_and_si256(bits, _mm256_set1_epi32(0x007fffff)), _mm256_set1_epi32(0x3f000000)));
  const __m256 small = _mm256_cmp_ps(m, _mm256_set1_ps(kSqrtHalf), _CMP_LT_OQ);
  e = _mm256_sub_epi32(e, _mm256_and_si256(_mm256_castps_si256(small), _mm256_set1_epi32(1)));
  const __m256 one = _mm256_set1_ps(1.0f);
  const __m256 x =
      _mm256_blendv_ps(_mm256_sub_ps(m, one), _mm256_sub_ps(_mm256_add_ps(m, m), one), small);
  const __m256 fe = _mm256_cvtepi32_ps(e);
  const __m256 z = _mm256_mul_ps(x, x);
  __m256 y = _mm256_set1_ps(7.0376836292E-2f);
  y = MulAdd(y, x, -1.1514610310E-1f);
  y = MulAdd(y, x, 1.1676998740E-1f);
  y = MulAdd(y, x, -1.2420140846E-1f);
  y = MulAdd(y, x, 1.4249322787E-1f);
  y = MulAdd(y, x, -1.6668057665E-1f);
  y = MulAdd(y, x, 2.0000714765E-1f);
  y = MulAdd(y, x, -2.4999993993E-1f);
  y = MulAdd(y, x, 3.3333331174E-1f);
  y = _mm256_mul_ps(_mm256_mul_ps(y, x), z);
  y = _mm256_add_ps(y, _mm256_mul_ps(_mm256_set1_ps(-2.12194440e-4f), fe));
  y = _mm256_add_ps(y, _mm256_mul_ps(_mm256_set1_ps(-0.5f), z));
  __m256 r = _mm256_add_ps(x, y);
  return _mm256_add_ps(r, _mm256_mul_ps(_mm256_set1_ps(0.693359375f), fe));
}

VOREL_AVX2 inline void SinCosV(__m256i octant, __m256 fraction, __m256& s, __m256& c) {
  const __m256i oddMask =
      _mm256_cmpeq_epi32(_mm256_and_si256(octant, _mm256_set1_epi32(1)), _mm256_set1_epi32(1));
  const __m256 odd = _mm256_castsi256_ps(oddMask);
  const __m256 one = _mm256_set1_ps(1.0f);
  const __m256 f = _mm256_blendv_ps(fraction, _mm256_sub_ps(one, fraction), odd);
  const __m256 t = _mm256_mul_ps(f, _mm256_set1_ps(kQuarterPi));
  const __m256 z = _mm256_mul_ps(t, t);
  __m256 ps = _mm256_set1_ps(-1.9515295891E-4f);
  ps = MulAdd(ps, z, 8.3321608736E-3f);
  ps = MulAdd(ps, z, -1.6666654611E-1f);
  const __m256 st = _mm256_add_ps(t, _mm256_mul_ps(_mm256_mul_ps(t, z), ps));
  __m256 pc = _mm256_set1_ps(2.443315711809948E-005f);
  pc = MulAdd(pc, z, -1.388731625493765E-003f);
  pc = MulAdd(pc, z, 4.166664568298827E-002f);
  const __m256 ct = _mm256_add_ps(
      _mm256_sub_ps(_mm256_mul_ps(_mm256_mul_ps(pc, z), z), _mm256_mul_ps(_mm256_set1_ps(0.5f), z)),
      one);
  const __m256 sa = _mm256_blendv_ps(st, ct, odd);
  const __m256 ca = _mm256_blendv_ps(ct, st, odd);
  const __m256i q = _mm256_srli_epi32(octant, 1);
  const __m256 q1 = _mm256_castsi256_ps(_mm256_cmpeq_epi32(q, _mm256_set1_epi32(1)));
  const __m256 q2 = _mm256_castsi256_ps(_mm256_cmpeq_epi32(q, _mm256_set1_epi32(2)));
  const __m256 q3 = _mm256_castsi256_ps(_mm256_cmpeq_epi32(q, _mm256_set1_epi32(3)));
  const __m256 zero = _mm256_setzero_ps();
  const __m256 nsa = _mm256_sub_ps(zero, sa);
  const __m256 nca = _mm256_sub_ps(zero, ca);
  // q0: (sa, ca); q1: (ca, -sa); q2: (-sa, -ca); q3: (-ca, sa)
  s = _mm256_blendv_ps(_mm256_blendv_ps(_mm256_blendv_ps(sa, ca, q1), nsa, q2), nca, q3);
  c = _mm256_blendv_ps(_mm256_blendv_ps(_mm256_blendv_ps(ca, nsa, q1), nca, q2), sa, q3);
}

// Groups firstGroup..endGroup-1 of 16 samples; a last group cut short by n goes through
// the plain pair computation.
VOREL_AVX2 void GaussianGroupsAvx2(float mean, float sigma, float* block, int32_t n, uint32_t seed,
                                   int32_t firstGroup, int32_t endGroup) {
  const uint32_t key = Key(seed);
  const int32_t groups = std::min(n / 16, endGroup);
  const __m256i keyV = _mm256_set1_epi32(static_cast<int32_t>(key));
  const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256 meanV = _mm256_set1_ps(mean);
  const __m256 sigmaV = _mm256_set1_ps(sigma);
  for (int32_t g = firstGroup; g < groups; ++g) {
    const __m256i pair = _mm256_add_epi32(_mm256_set1_epi32(8 * g), lane);
    const __m256i twoP = _mm256_add_epi32(pair, pair);
    const __m256i h1 = HashV(_mm256_add_epi32(keyV, twoP));
    const __m256i h2 = HashV(_mm256_xor_si256(keyV, _mm256_add_epi32(twoP, _mm256_set1_epi32(1))));
    const __m256 u1 = _mm256_mul_ps(
        _mm256_cvtepi32_ps(_mm256_add_epi32(_mm256_srli_epi32(h1, 8), _mm256_set1_epi32(1))),
        _mm256_set1_ps(kTwoPow24Inv));
    const __m256 r = _mm256_sqrt_ps(_mm256_mul_ps(_mm256_set1_ps(-2.0f), LogV(u1)));
    const __m256 frac = _mm256_mul_ps(
        _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(h2, 8), _mm256_set1_epi32(0x1FFFFF))),
        _mm256_set1_ps(kTwoPow21Inv));
    __m256 s, c;
    SinCosV(_mm256_srli_epi32(h2, 29), frac, s, c);
    const __m256 a = _mm256_add_ps(meanV, _mm256_mul_ps(sigmaV, _mm256_mul_ps(r, c)));
    const __m256 b = _mm256_add_ps(meanV, _mm256_mul_ps(sigmaV, _mm256_mul_ps(r, s)));
    _mm256_storeu_ps(block + 16 * g, a);
    _mm256_storeu_ps(block + 16 * g + 8, b);
  }
  // The tail of a block whose length is not a multiple of 16.
  const int32_t tailEnd = std::min(n, 16 * endGroup);
  for (int32_t i = std::max(16 * groups, 16 * firstGroup); i < tailEnd; ++i) {
    const int32_t l = i % 16;
    float a, b;
    PairValues(key, static_cast<uint32_t>(8 * (i / 16) + (l & 7)), a, b);
    block[i] = mean + sigma * (l < 8 ? a : b);
  }
}

// Sixteen pairs (two groups) a step; the same operations lane by lane.
#define VOREL_AVX512 __attribute__((target("avx512f")))
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

VOREL_AVX512 inline __m512i HashV16(__m512i x) {
  x = _mm512_xor_si512(x, _mm512_srli_epi32(x, 16));
  x = _mm512_mullo_epi32(x, _mm512_set1_epi32(0x7feb352d));
  x = _mm512_xor_si512(x, _mm512_srli_epi32(x, 15));
  x = _mm512_mullo_epi32(x, _mm512_set1_epi32(static_cast<int32_t>(0x846ca68bu)));
  x = _mm512_xor_si512(x, _mm512_srli_epi32(x, 16));
  return x;
}

VOREL_AVX512 inline __m512 MulAdd16(__m512 y, __m512 x, float c) {
  return _mm512_add_ps(_mm512_mul_ps(y, x), _mm512_set1_ps(c));
}

VOREL_AVX512 inline __m512 LogV16(__m512 u) {
  const __m512i bits = _mm512_castps_si512(u);
  __m512i e = _mm512_sub_epi32(_mm512_srli_epi32(bits, 23), _mm512_set1_epi32(126));
  const __m512 m = _mm512_castsi512_ps(_mm512_or_si512(
      _mm512_and_si512(bits, _mm512_set1_epi32(0x007fffff)), _mm512_set1_epi32(0x3f000000)));
  const __mmask16 small = _mm512_cmp_ps_mask(m, _mm512_set1_ps(kSqrtHalf), _CMP_LT_OQ);
  e = _mm512_mask_sub_epi32(e, small, e, _mm512_set1_epi32(1));
  const __m512 one = _mm512_set1_ps(1.0f);
  const __m512 x =
      _mm512_mask_blend_ps(small, _mm512_sub_ps(m, one), _mm512_sub_ps(_mm512_add_ps(m, m), one));
  const __m512 fe = _mm512_cvtepi32_ps(e);
  const __m512 z = _mm512_mul_ps(x, x);
  __m512 y = _mm512_set1_ps(7.0376836292E-2f);
  y = MulAdd16(y, x, -1.1514610310E-1f);
  y = MulAdd16(y, x, 1.1676998740E-1f);
  y = MulAdd16(y, x, -1.2420140846E-1f);
  y = MulAdd16(y, x, 1.4249322787E-1f);
  y = MulAdd16(y, x, -1.6668057665E-1f);
  y = MulAdd16(y, x, 2.0000714765E-1f);
  y = MulAdd16(y, x, -2.4999993993E-1f);
  y = MulAdd16(y, x, 3.3333331174E-1f);
  y = _mm512_mul_ps(_mm512_mul_ps(y, x), z);
  y = _mm512_add_ps(y, _mm512_mul_ps(_mm512_set1_ps(-2.12194440e-4f), fe));
  y = _mm512_add_ps(y, _mm512_mul_ps(_mm512_set1_ps(-0.5f), z));
  const __m512 r = _mm512_add_ps(x, y);
  return _mm512_add_ps(r, _mm512_mul_ps(_mm512_set1_ps(0.693359375f), fe));
}

VOREL_AVX512 inline void SinCosV16(__m512i octant, __m512 fraction, __m512& s, __m512& c) {
  const __mmask16 odd = _mm512_test_epi32_mask(octant, _mm512_set1_epi32(1));
  const __m512 one = _mm512_set1_ps(1.0f);
  const __m512 f = _mm512_mask_blend_ps(odd, fraction, _mm512_sub_ps(one, fraction));
  const __m512 t = _mm512_mul_ps(f, _mm512_set1_ps(kQuarterPi));
  const __m512 z = _mm512_mul_ps(t, t);
  __m512 ps = _mm512_set1_ps(-1.9515295891E-4f);
  ps = MulAdd16(ps, z, 8.3321608736E-3f);
  ps = MulAdd16(ps, z, -1.6666654611E-1f);
  const __m512 st = _mm512_add_ps(t, _mm512_mul_ps(_mm512_mul_ps(t, z), ps));
  __m512 pc = _mm512_set1_ps(2.443315711809948E-005f);
  pc = MulAdd16(pc, z, -1.388731625493765E-003f);
  pc = MulAdd16(pc, z, 4.166664568298827E-002f);
  const __m512 ct = _mm512_add_ps(
      _mm512_sub_ps(_mm512_mul_ps(_mm512_mul_ps(pc, z), z), _mm512_mul_ps(_mm512_set1_ps(0.5f), z)),
      one);
  const __m512 sa = _mm512_mask_blend_ps(odd, st, ct);
  const __m512 ca = _mm512_mask_blend_ps(odd, ct, st);
  const __m512i q = _mm512_srli_epi32(octant, 1);
  const __mmask16 q1 = _mm512_cmpeq_epi32_mask(q, _mm512_set1_epi32(1));
  const __mmask16 q2 = _mm512_cmpeq_epi32_mask(q, _mm512_set1_epi32(2));
  const __mmask16 q3 = _mm512_cmpeq_epi32_mask(q, _mm512_set1_epi32(3));
  const __m512 zero = _mm512_setzero_ps();
  const __m512 nsa = _mm512_sub_ps(zero, sa);
  const __m512 nca = _mm512_sub_ps(zero, ca);
  s = _mm512_mask_blend_ps(q3, _mm512_mask_blend_ps(q2, _mm512_mask_blend_ps(q1, sa, ca), nsa),
                           nca);
  c = _mm512_mask_blend_ps(q3, _mm512_mask_blend_ps(q2, _mm512_mask_blend_ps(q1, ca, nsa), nca),
                           sa);
}

// Groups firstGroup..endGroup-1, two at a time; an odd group left over goes the eight-lane
// way, a group cut short by n the plain way.
VOREL_AVX512 void GaussianGroups512(float mean, float sigma, float* block, int32_t n, uint32_t seed,
                                    int32_t firstGroup, int32_t endGroup) {
  const uint32_t key = Key(seed);
  const int32_t whole = std::min(n / 16, endGroup);
  const __m512i keyV = _mm512_set1_epi32(static_cast<int32_t>(key));
  const __m512i lane = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m512 meanV = _mm512_set1_ps(mean);
  const __m512 sigmaV = _mm512_set1_ps(sigma);
  int32_t g = firstGroup;
  for (; g + 2 <= whole; g += 2) {
    const __m512i pair = _mm512_add_epi32(_mm512_set1_epi32(8 * g), lane);
    const __m512i twoP = _mm512_add_epi32(pair, pair);
    const __m512i h1 = HashV16(_mm512_add_epi32(keyV, twoP));
    const __m512i h2 =
        HashV16(_mm512_xor_si512(keyV, _mm512_add_epi32(twoP, _mm512_set1_epi32(1))));
    const __m512 u1 = _mm512_mul_ps(
        _mm512_cvtepi32_ps(_mm512_add_epi32(_mm512_srli_epi32(h1, 8), _mm512_set1_epi32(1))),
        _mm512_set1_ps(kTwoPow24Inv));
    const __m512 r = _mm512_sqrt_ps(_mm512_mul_ps(_mm512_set1_ps(-2.0f), LogV16(u1)));
    const __m512 frac = _mm512_mul_ps(
        _mm512_cvtepi32_ps(_mm512_and_si512(_mm512_srli_epi32(h2, 8), _mm512_set1_epi32(0x1FFFFF))),
        _mm512_set1_ps(kTwoPow21Inv));
    __m512 sn, cs;
    SinCosV16(_mm512_srli_epi32(h2, 29), frac, sn, cs);
    const __m512 a = _mm512_add_ps(meanV, _mm512_mul_ps(sigmaV, _mm512_mul_ps(r, cs)));
    const __m512 b = _mm512_add_ps(meanV, _mm512_mul_ps(sigmaV, _mm512_mul_ps(r, sn)));
    // Group g: cosines of its eight pairs, then sines; then group g + 1 the same.
    _mm512_storeu_ps(block + 16 * g, _mm512_shuffle_f32x4(a, b, _MM_SHUFFLE(1, 0, 1, 0)));
    _mm512_storeu_ps(block + 16 * g + 16, _mm512_shuffle_f32x4(a, b, _MM_SHUFFLE(3, 2, 3, 2)));
  }
  if (g < endGroup) GaussianGroupsAvx2(mean, sigma, block, n, seed, g, endGroup);
}
#pragma GCC diagnostic pop
#endif

}  // namespace

float NoiseLog(float u) {
  const uint32_t bits = AsBits(u);
  int32_t e = static_cast<int32_t>(bits >> 23) - 126;
  const float m = AsFloat((bits & 0x007fffffu) | 0x3f000000u);
  float x;
  if (m < kSqrtHalf) {
    e -= 1;
    x = (m + m) - 1.0f;
  } else {
    x = m - 1.0f;
  }
  const float fe = static_cast<float>(e);
  const float z = x * x;
  float y = 7.0376836292E-2f;
  y = y * x + -1.1514610310E-1f;
  y = y * x + 1.1676998740E-1f;
  y = y * x + -1.2420140846E-1f;
  y = y * x + 1.4249322787E-1f;
  y = y * x + -1.6668057665E-1f;
  y = y * x + 2.0000714765E-1f;
  y = y * x + -2.4999993993E-1f;
  y = y * x + 3.3333331174E-1f;
  y = (y * x) * z;
  y = y + -2.12194440e-4f * fe;
  y = y + -0.5f * z;
  const float r = x + y;
  return r + 0.693359375f * fe;
}

void NoiseSinCos(uint32_t octant, float fraction, float& s, float& c) {
  const bool odd = (octant & 1u) != 0;
  const float t = (odd ? 1.0f - fraction : fraction) * kQuarterPi;
  const float z = t * t;
  float ps = -1.9515295891E-4f;
  ps = ps * z + 8.3321608736E-3f;
  ps = ps * z + -1.6666654611E-1f;
  const float st = t + (t * z) * ps;
  float pc = 2.443315711809948E-005f;
  pc = pc * z + -1.388731625493765E-003f;
  pc = pc * z + 4.166664568298827E-002f;
  const float ct = (((pc * z) * z) - 0.5f * z) + 1.0f;
  const float sa = odd ? ct : st;
  const float ca = odd ? st : ct;
  switch ((octant >> 1) & 3u) {
    case 0:
      s = sa;
      c = ca;
      break;
    case 1:
      s = ca;
      c = 0.0f - sa;
      break;
    case 2:
      s = 0.0f - sa;
      c = 0.0f - ca;
      break;
    default:
      s = 0.0f - ca;
      c = sa;
      break;
  }
}

void GaussianBlockPlain(float mean, float sigma, float* block, int32_t n, uint32_t seed) {
  const uint32_t key = Key(seed);
  for (int32_t base = 0; base < n; base += 16) {
    const uint32_t firstPair = static_cast<uint32_t>(base / 2);
    for (int32_t l = 0; l < 8; ++l) {
      float a, b;
      PairValues(key, firstPair + static_cast<uint32_t>(l), a, b);
      if (base + l < n) block[base + l] = mean + sigma * a;
      if (base + 8 + l < n) block[base + 8 + l] = mean + sigma * b;
    }
  }
}

void GaussianBlockFromSeed(float mean, float sigma, float* block, int32_t n, uint32_t seed) {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) {
    GaussianGroups512(mean, sigma, block, n, seed, 0, (n + 15) / 16);
    return;
  }
  if (__builtin_cpu_supports("avx2")) {
    GaussianGroupsAvx2(mean, sigma, block, n, seed, 0, (n + 15) / 16);
    return;
  }
#endif
  GaussianBlockPlain(mean, sigma, block, n, seed);
}

void GaussianBlockGroups(float mean, float sigma, float* block, int32_t n, uint32_t seed,
                         int32_t firstGroup, int32_t endGroup) {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) {
    GaussianGroups512(mean, sigma, block, n, seed, firstGroup, endGroup);
    return;
  }
  if (__builtin_cpu_supports("avx2")) {
    GaussianGroupsAvx2(mean, sigma, block, n, seed, firstGroup, endGroup);
    return;
  }
#endif
  const uint32_t key = Key(seed);
  for (int32_t g = firstGroup; g < endGroup && 16 * g < n; ++g) {
    for (int32_t l = 0; l < 8; ++l) {
      float a, b;
      PairValues(key, static_cast<uint32_t>(8 * g + l), a, b);
      if (16 * g + l < n) block[16 * g + l] = mean + sigma * a;
      if (16 * g + 8 + l < n) block[16 * g + 8 + l] = mean + sigma * b;
    }
  }
}

void GaussianBlock(float mean, float sigma, float* block, int32_t n, platform::RandState& rand) {
  GaussianBlockFromSeed(mean, sigma, block, n, static_cast<uint32_t>(platform::CrtRand(rand)));
}

}  // namespace vorel::dif
