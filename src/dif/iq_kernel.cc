#include "dif/iq_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "dif/lanes.h"

namespace vorel::dif {

const IqCarrierTable& CarrierTableIq() {
  static const IqCarrierTable table = [] {
    IqCarrierTable t;
    for (int m = 0; m < kIqCarrierSize; ++m) {
      // The middle of the bin: truncating the phase then costs no mean phase offset.
      const double a = 2.0 * M_PI * (m + 0.5) / kIqCarrierSize;
      const auto c = static_cast<int16_t>(std::lround(kIqCarrierScale * std::cos(a)));
      const auto s = static_cast<int16_t>(std::lround(kIqCarrierScale * std::sin(a)));
      t.cosSin[m] =
          static_cast<uint16_t>(c) | (static_cast<uint32_t>(static_cast<uint16_t>(s)) << 16);
    }
    return t;
  }();
  return table;
}

void MakeIqCodeTable(int32_t prnIndex, IqCodeTable& table) {
  int32_t chips[kChipsPerCode];
  CaCodeChips(prnIndex, chips);
  for (int p = 0; p < kIqCodePeriods; ++p)
    for (int c = 0; c < kChipsPerCode; ++c)
      table.chips[p * kChipsPerCode + c] = static_cast<float>(chips[c]);
}

void SetIqPeriodStarts(IqChannelPlan& plan, int64_t count) {
  plan.periodStart[0] = 0;
  for (int k = 1; k <= kIqCodePeriods; ++k) {
    const uint64_t boundary = (static_cast<uint64_t>(k) * kChipsPerCode) << 32;
    int64_t start = count;
    if (plan.codeStep > 0 && boundary > plan.codePhase) {
      const uint64_t need = boundary - plan.codePhase;
      const uint64_t steps = (need + plan.codeStep - 1) / plan.codeStep;
      start = static_cast<int64_t>(std::min<uint64_t>(steps, static_cast<uint64_t>(count)));
    }
    plan.periodStart[k] = std::max(start, plan.periodStart[k - 1]);
  }
}

namespace {

constexpr int kCarrierShift = 32 - kIqCarrierBits;

void PlainRange(const IqChannelPlan& p, float gain, int64_t a, int64_t b, int32_t first, float* I,
                float* Q) {
  const float* chips = p.code->chips.data();
  const IqCarrierTable& t = CarrierTableIq();
  for (int64_t s = a; s < b; ++s) {
    const uint64_t phase = p.codePhase + static_cast<uint64_t>(s) * p.codeStep;
    const uint32_t theta = p.carrierPhase + static_cast<uint32_t>(s) * p.carrierStep;
    const float v = gain * chips[phase >> 32];
    const auto e = static_cast<int32_t>(t.cosSin[theta >> kCarrierShift]);
    const auto c = static_cast<float>(static_cast<int16_t>(e));
    const auto sn = static_cast<float>(e >> 16);
    const int64_t k = s - first;
    I[k] = I[k] + v * c;
    Q[k] = Q[k] + v * sn;
  }
}

// The periods of the plan that meet first..end-1, each with its own gain.
template <typename Range>
void ForEachPeriod(const IqChannelPlan& p, int32_t first, int32_t end, Range range) {
  for (int k = 0; k < kIqCodePeriods; ++k) {
    const int64_t a = std::max<int64_t>(first, p.periodStart[k]);
    const int64_t b = std::min<int64_t>(end, p.periodStart[k + 1]);
    if (a < b) range(p.gain[k], a, b);
  }
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) inline lanes::Vec<8>::F Gather(const float* table,
                                                               lanes::Vec<8>::U index) {
  return reinterpret_cast<lanes::Vec<8>::F>(
      _mm256_i32gather_ps(table, reinterpret_cast<__m256i>(index), 4));
}

__attribute__((target("avx2"))) inline lanes::Vec<8>::I Gather(const uint32_t* table,
                                                               lanes::Vec<8>::U index) {
  return reinterpret_cast<lanes::Vec<8>::I>(_mm256_i32gather_epi32(
      reinterpret_cast<const int*>(table), reinterpret_cast<__m256i>(index), 4));
}

__attribute__((target("avx512f"))) inline lanes::Vec<16>::I Gather(const uint32_t* table,
                                                                   lanes::Vec<16>::U index) {
  return reinterpret_cast<lanes::Vec<16>::I>(_mm512_mask_i32gather_epi32(
      _mm512_setzero_si512(), 0xFFFF, reinterpret_cast<__m512i>(index), table, 4));
}

__attribute__((target("avx512f"))) inline lanes::Vec<16>::F Gather(const float* table,
                                                                   lanes::Vec<16>::U index) {
  // The masked form with a zeroed source: every lane is loaded, nothing is left undefined.
  return reinterpret_cast<lanes::Vec<16>::F>(_mm512_mask_i32gather_ps(
      _mm512_setzero_ps(), 0xFFFF, reinterpret_cast<__m512i>(index), table, 4));
}

// a where the mask is set, else b (bitwise: GCC makes single instructions of these, where
// the conditional operator on sixteen lanes came out element by element).
template <typename F, typename I>
VOREL_LANES_INLINE F Select(I mask, F a, F b) {
  return reinterpret_cast<F>((reinterpret_cast<I>(a) & mask) | (reinterpret_cast<I>(b) & ~mask));
}

// W samples a step over first..end-1, and on to the next multiple of W past the end (the
// caller's sums have room for those; they are never read). The code phase is a 64-bit
// number held as two 32-bit lanes (the low word and the chip), moved on with the carry;
// the carrier phase wraps in 32 bits as in the plain loop; each lane takes the gain of the
// code period its sample lies in.
//
// Below one chip a sample (every rate above 1.0234 MHz) the W samples of a step lie within
// W chips from the first lane's, so the code comes from one unaligned load of those W
// chips and a lane shuffle instead of a gather; the carrier is one gather of cos and sin
// together.
template <int W, bool kWindow>
VOREL_LANES_INLINE void LanesRange(const IqChannelPlan& p, int32_t first, int32_t end, float* I,
                                   float* Q) {
  using F = typename lanes::Vec<W>::F;
  using U = typename lanes::Vec<W>::U;
  using Int = typename lanes::Vec<W>::I;
  U lo, hi, theta;
  for (int l = 0; l < W; ++l) {
    const uint64_t phase = p.codePhase + static_cast<uint64_t>(first + l) * p.codeStep;
    lo[l] = static_cast<uint32_t>(phase);
    hi[l] = static_cast<uint32_t>(phase >> 32);
    theta[l] = p.carrierPhase + static_cast<uint32_t>(first + l) * p.carrierStep;
  }
  const uint64_t codeW = static_cast<uint64_t>(W) * p.codeStep;
  const U loStep = lanes::Splat<U>(static_cast<uint32_t>(codeW));
  const U hiStep = lanes::Splat<U>(static_cast<uint32_t>(codeW >> 32));
  const U thetaStep = lanes::Splat<U>(static_cast<uint32_t>(W) * p.carrierStep);
  const F g0 = lanes::Splat<F>(p.gain[0]);
  const F g1 = lanes::Splat<F>(p.gain[1]);
  const F g2 = lanes::Splat<F>(p.gain[2]);
  const auto clip = [](int64_t v) { return static_cast<int32_t>(std::min<int64_t>(v, 1 << 30)); };
  const Int start1 = lanes::Splat<Int>(clip(p.periodStart[1]));
  const Int start2 = lanes::Splat<Int>(clip(p.periodStart[2]));
  const Int stepW = lanes::Splat<Int>(W);
  Int index = lanes::Splat<Int>(first) + lanes::Iota<Int>();
  const float* chips = p.code->chips.data();
  const IqCarrierTable& t = CarrierTableIq();
  for (int32_t s = first; s < end; s += W) {
    F code;
    if constexpr (kWindow) {
      const uint32_t chip0 = hi[0];
      const F window = lanes::LoadU<F>(chips + chip0);
      code = __builtin_shuffle(window, reinterpret_cast<Int>(hi - lanes::Splat<U>(chip0)));
    } else {
      code = Gather(chips, hi);
    }
    const F gain = Select(index < start1, g0, Select(index < start2, g1, g2));
    const F v = gain * code;
    const Int e = Gather(t.cosSin.data(), theta >> kCarrierShift);
    const F c = __builtin_convertvector((e << 16) >> 16, F);
    const F sn = __builtin_convertvector(e >> 16, F);
    float* pi = I + (s - first);
    float* pq = Q + (s - first);
    lanes::StoreU(pi, lanes::LoadU<F>(pi) + v * c);
    lanes::StoreU(pq, lanes::LoadU<F>(pq) + v * sn);
    const U next = lo + loStep;
    hi = hi + hiStep - reinterpret_cast<U>(next < loStep);  // a carry out of the low word
    lo = next;
    theta = theta + thetaStep;
    index = index + stepW;
  }
}

constexpr uint64_t kOneChip = uint64_t{1} << 32;

__attribute__((target("avx2"))) void Range8(const IqChannelPlan& p, int32_t first, int32_t end,
                                            float* I, float* Q) {
  if (p.codeStep < kOneChip)
    LanesRange<8, true>(p, first, end, I, Q);
  else
    LanesRange<8, false>(p, first, end, I, Q);
}

__attribute__((target("avx512f"))) void Range16(const IqChannelPlan& p, int32_t first, int32_t end,
                                                float* I, float* Q) {
  if (p.codeStep < kOneChip)
    LanesRange<16, true>(p, first, end, I, Q);
  else
    LanesRange<16, false>(p, first, end, I, Q);
}
#endif

}  // namespace

void AddIqChannelPlain(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q) {
  ForEachPeriod(plan, first, end, [&](float gain, int64_t a, int64_t b) {
    PlainRange(plan, gain, a, b, first, i, q);
  });
}

void AddIqChannelFast(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q,
                      bool wide) {
#if defined(__x86_64__)
  static const int width = __builtin_cpu_supports("avx512f") ? 16
                           : __builtin_cpu_supports("avx2")  ? 8
                                                             : 1;
  if (width == 16 && wide) {
    Range16(plan, first, end, i, q);
    return;
  }
  if (width >= 8) {
    Range8(plan, first, end, i, q);
    return;
  }
#endif
  AddIqChannelPlain(plan, first, end, i, q);
}

namespace {

// Round to nearest, ties away from zero, held at low..high; NaN gives 0. The plain form of
// the quantiser and the reference of the lanes below.
inline int32_t RoundAndHold(float x, float low, float high, int64_t& held) {
  const float t = x + (x < 0.0f ? -0.5f : 0.5f);
  if (t >= high + 1.0f) {
    ++held;
    return static_cast<int32_t>(high);
  }
  if (t <= low - 1.0f) {
    ++held;
    return static_cast<int32_t>(low);
  }
  if (!(t == t)) return 0;
  return static_cast<int32_t>(t);
}

void PutValue(uint8_t* out, int64_t index, int32_t v, int bytes) {
  if (bytes == 1) {
    out[index] = static_cast<uint8_t>(v);
  } else {
    out[2 * index] = static_cast<uint8_t>(v);
    out[2 * index + 1] = static_cast<uint8_t>(static_cast<uint32_t>(v) >> 8);
  }
}

void QuantisePlain(const float* i, const float* q, int32_t first, int32_t count, int bytes,
                   uint8_t* out, int64_t& held) {
  const float low = bytes == 1 ? -128.0f : -32768.0f;
  const float high = bytes == 1 ? 127.0f : 32767.0f;
  for (int32_t k = first; k < count; ++k) {
    PutValue(out, 2 * static_cast<int64_t>(k), RoundAndHold(i[k], low, high, held), bytes);
    PutValue(out, 2 * static_cast<int64_t>(k) + 1, RoundAndHold(q[k], low, high, held), bytes);
  }
}

#if defined(__x86_64__)
// The same steps on W lanes; each lane counts its held values (as -1s) in `held`.

// t = x + copysign(0.5, x); held at low..high, those from high + 1 or low - 1 on counted
// (`above` and `below` are the floats just inside those two); NaN 0; then truncated: the
// plain loop's numbers.
template <int W>
VOREL_LANES_INLINE typename lanes::Vec<W>::I RoundLanes(
    typename lanes::Vec<W>::F x, const typename lanes::Vec<W>::F& low,
    const typename lanes::Vec<W>::F& high, const typename lanes::Vec<W>::F& half,
    const typename lanes::Vec<W>::F& above, const typename lanes::Vec<W>::F& below,
    const typename lanes::Vec<W>::I& signBit, typename lanes::Vec<W>::I& held) {
  using F = typename lanes::Vec<W>::F;
  using I = typename lanes::Vec<W>::I;
  const I sign = reinterpret_cast<I>(x) & signBit;
  const F t = x + reinterpret_cast<F>(reinterpret_cast<I>(half) | sign);
  // Only < > and == : GCC 12 takes >= <= and != on sixteen lanes one lane at a time.
  held += (t > above) | (t < below);
  F v = Select(t > high, high, t);
  v = Select(v < low, low, v);
  v = Select(t == t, v, F{});
  return __builtin_convertvector(v, I);
}

// Whole steps of W samples; returns how many samples were done.
template <int W>
VOREL_LANES_INLINE int32_t QuantiseLanes(const float* i, const float* q, int32_t count, int bytes,
                                         uint8_t* out, int64_t& held) {
  using F = typename lanes::Vec<W>::F;
  using I = typename lanes::Vec<W>::I;
  using U = typename lanes::Vec<W>::U;
  typedef uint16_t H __attribute__((vector_size(2 * W)));
  const F low = lanes::Splat<F>(bytes == 1 ? -128.0f : -32768.0f);
  const F high = lanes::Splat<F>(bytes == 1 ? 127.0f : 32767.0f);
  const F half = lanes::Splat<F>(0.5f);
  const F above = lanes::Splat<F>(std::nextafter(bytes == 1 ? 128.0f : 32768.0f, 0.0f));
  const F below = lanes::Splat<F>(std::nextafter(bytes == 1 ? -129.0f : -32769.0f, 0.0f));
  const I signBit = lanes::Splat<I>(INT32_MIN);
  I heldLanes = lanes::Splat<I>(0);
  int32_t k = 0;
  for (; k + W <= count; k += W) {
    const U vi = reinterpret_cast<U>(
        RoundLanes<W>(lanes::LoadU<F>(i + k), low, high, half, above, below, signBit, heldLanes));
    const U vq = reinterpret_cast<U>(
        RoundLanes<W>(lanes::LoadU<F>(q + k), low, high, half, above, below, signBit, heldLanes));
    // x86 is little-endian: I's bytes come first, then Q's.
    if (bytes == 1) {
      const U pair = (vi & 0xFFu) | ((vq & 0xFFu) << 8);
      const H narrow = __builtin_convertvector(pair, H);
      std::memcpy(out + 2 * static_cast<int64_t>(k), &narrow, sizeof narrow);
    } else {
      lanes::StoreU(out + 4 * static_cast<int64_t>(k), (vi & 0xFFFFu) | (vq << 16));
    }
  }
  for (int l = 0; l < W; ++l) held -= heldLanes[l];
  return k;
}

__attribute__((target("avx2"))) int32_t Quantise8(const float* i, const float* q, int32_t count,
                                                  int bytes, uint8_t* out, int64_t& held) {
  return QuantiseLanes<8>(i, q, count, bytes, out, held);
}

#endif

}  // namespace

int64_t QuantiseIq(const float* i, const float* q, int32_t count, int bytesPerValue, uint8_t* out) {
  int64_t held = 0;
  int32_t done = 0;
#if defined(__x86_64__)
  // Eight lanes on every machine: GCC 12 takes the comparisons of sixteen lanes one by one.
  static const bool avx2 = __builtin_cpu_supports("avx2");
  if (avx2) done = Quantise8(i, q, count, bytesPerValue, out, held);
#endif
  QuantisePlain(i, q, done, count, bytesPerValue, out, held);
  return held;
}

int64_t QuantiseIqPlain(const float* i, const float* q, int32_t count, int bytesPerValue,
                        uint8_t* out) {
  int64_t held = 0;
  QuantisePlain(i, q, 0, count, bytesPerValue, out, held);
  return held;
}

}  // namespace vorel::dif
