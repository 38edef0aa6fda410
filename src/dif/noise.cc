#include "dif/noise.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dif/lanes.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {
namespace {

constexpr float kTwoPow24Inv = 5.9604644775390625e-08f;  // 2^-24
constexpr float kTwoPow21Inv = 4.76837158203125e-07f;    // 2^-21
constexpr float kQuarterPi = 0.785398163397448f;
constexpr float kSqrtHalf = 0.707106781186547524f;

// The integer mix of the counter-based noise, for one word and for a vector of words.
template <typename T>
inline T Hash(T x) {
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
// The vector form, written once for eight lanes (AVX2) and sixteen (AVX-512): every lane
// computes what PairValues computes, operation for operation.
using lanes::Splat;
template <int W>
using F = typename lanes::Vec<W>::F;
template <int W>
using I = typename lanes::Vec<W>::I;
template <int W>
using U = typename lanes::Vec<W>::U;

// The square root, the one step with no generic form.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC push_options
#pragma GCC target("avx2")
inline F<8> SqrtLanes(F<8> x) { return reinterpret_cast<F<8>>(_mm256_sqrt_ps(reinterpret_cast<__m256>(x))); }
#pragma GCC pop_options
#pragma GCC push_options
#pragma GCC target("avx512f")
inline F<16> SqrtLanes(F<16> x) {
  return reinterpret_cast<F<16>>(_mm512_sqrt_ps(reinterpret_cast<__m512>(x)));
}
#pragma GCC pop_options

template <int W>
VOREL_LANES_INLINE U<W> HashLanes(U<W> x) {
  return Hash<U<W>>(x);
}

// NoiseLog lane by lane.
// The logarithm's polynomial on x = m - 1 (m the mantissa) and the exponent fe, for one
// float and for a vector of floats alike; `y` comes in as the first coefficient.
template <typename T>
inline T LogTail(T x, T fe, T y) {
  const T z = x * x;
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
  const T r = x + y;
  return r + 0.693359375f * fe;
}

template <int W>
VOREL_LANES_INLINE F<W> LogLanes(F<W> u) {
  const U<W> bits = reinterpret_cast<U<W>>(u);
  I<W> e = reinterpret_cast<I<W>>(bits >> 23) - 126;
  const F<W> m = reinterpret_cast<F<W>>((bits & 0x007fffffu) | 0x3f000000u);
  const I<W> small = m < kSqrtHalf;
  e = e - (small & 1);
  const F<W> x = small ? (m + m) - 1.0f : m - 1.0f;
  const F<W> fe = __builtin_convertvector(e, F<W>);
  return LogTail<F<W>>(x, fe, Splat<F<W>>(7.0376836292E-2f));
}

// NoiseSinCos lane by lane.
template <int W>
VOREL_LANES_INLINE void SinCosLanes(U<W> octant, F<W> fraction, F<W>& s, F<W>& c) {
  const I<W> odd = (octant & 1u) == 1u;
  const F<W> f = odd ? 1.0f - fraction : fraction;
  const F<W> t = f * kQuarterPi;
  const F<W> z = t * t;
  F<W> ps = Splat<F<W>>(-1.9515295891E-4f);
  ps = ps * z + 8.3321608736E-3f;
  ps = ps * z + -1.6666654611E-1f;
  const F<W> st = t + (t * z) * ps;
  F<W> pc = Splat<F<W>>(2.443315711809948E-005f);
  pc = pc * z + -1.388731625493765E-003f;
  pc = pc * z + 4.166664568298827E-002f;
  const F<W> ct = (((pc * z) * z) - 0.5f * z) + 1.0f;
  const F<W> sa = odd ? ct : st;
  const F<W> ca = odd ? st : ct;
  const U<W> q = octant >> 1;
  const I<W> q1 = q == 1u, q2 = q == 2u, q3 = q == 3u;
  const F<W> nsa = 0.0f - sa, nca = 0.0f - ca;
  // q0: (sa, ca); q1: (ca, -sa); q2: (-sa, -ca); q3: (-ca, sa)
  s = q3 ? nca : (q2 ? nsa : (q1 ? ca : sa));
  c = q3 ? sa : (q2 ? nca : (q1 ? nsa : ca));
}

// Whole groups of 16 samples from firstGroup on, W / 8 groups a step, as far as whole
// steps go before endGroup and the end of the block; returns the first group not made.
template <int W>
VOREL_LANES_INLINE int32_t GroupsLanes(float mean, float sigma, float* block, int32_t n,
                                       uint32_t seed, int32_t firstGroup, int32_t endGroup) {
  constexpr int32_t kGroups = W / 8;
  const int32_t whole = std::min(n / 16, endGroup);
  const U<W> key = Splat<U<W>>(Key(seed));
  const F<W> meanV = Splat<F<W>>(mean), sigmaV = Splat<F<W>>(sigma);
  int32_t g = firstGroup;
  U<W> pair = lanes::Iota<U<W>>() + Splat<U<W>>(static_cast<uint32_t>(8 * g));  // 8g + lane
  for (; g + kGroups <= whole; g += kGroups, pair += 8 * kGroups) {
    const U<W> twoP = pair + pair;
    const U<W> h1 = HashLanes<W>(key + twoP);
    const U<W> h2 = HashLanes<W>(key ^ (twoP + 1u));
    const F<W> u1 =
        __builtin_convertvector(reinterpret_cast<I<W>>((h1 >> 8) + 1u), F<W>) * kTwoPow24Inv;
    const F<W> r = SqrtLanes(-2.0f * LogLanes<W>(u1));
    const F<W> frac =
        __builtin_convertvector(reinterpret_cast<I<W>>((h2 >> 8) & 0x1FFFFFu), F<W>) *
        kTwoPow21Inv;
    F<W> sn, cs;
    SinCosLanes<W>(h2 >> 29, frac, sn, cs);
    const F<W> a = meanV + sigmaV * (r * cs);
    const F<W> b = meanV + sigmaV * (r * sn);
    // Group g + k: the cosines of its eight pairs (lanes 8k..8k+7 of a), then their sines.
    if constexpr (W == 8) {
      lanes::StoreU(block + 16 * g, a);
      lanes::StoreU(block + 16 * g + 8, b);
    } else {
      static_assert(W == 16);
      constexpr I<16> kFirst = {0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23};
      lanes::StoreU(block + 16 * g, __builtin_shuffle(a, b, kFirst));
      lanes::StoreU(block + 16 * g + 16, __builtin_shuffle(a, b, kFirst + 8));
    }
  }
  return g;
}

// The samples of groups from..endGroup-1 that the vector steps did not make (the last
// group of a block whose length is not a multiple of 16), the plain way.
void GroupsTail(float mean, float sigma, float* block, int32_t n, uint32_t seed, int32_t from,
                int32_t endGroup) {
  const uint32_t key = Key(seed);
  const int32_t tailEnd = std::min(n, 16 * endGroup);
  for (int32_t i = 16 * from; i < tailEnd; ++i) {
    const int32_t l = i % 16;
    float a, b;
    PairValues(key, static_cast<uint32_t>(8 * (i / 16) + (l & 7)), a, b);
    block[i] = mean + sigma * (l < 8 ? a : b);
  }
}

__attribute__((target("avx2"))) void GaussianGroupsAvx2(float mean, float sigma, float* block,
                                                        int32_t n, uint32_t seed, int32_t firstGroup,
                                                        int32_t endGroup) {
  const int32_t g = GroupsLanes<8>(mean, sigma, block, n, seed, firstGroup, endGroup);
  GroupsTail(mean, sigma, block, n, seed, g, endGroup);
}

// Two groups a step; an odd group left over goes the eight-lane way.
__attribute__((target("avx512f"))) void GaussianGroups512(float mean, float sigma, float* block,
                                                          int32_t n, uint32_t seed,
                                                          int32_t firstGroup, int32_t endGroup) {
  const int32_t g = GroupsLanes<16>(mean, sigma, block, n, seed, firstGroup, endGroup);
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
  return LogTail<float>(x, fe, 7.0376836292E-2f);
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
