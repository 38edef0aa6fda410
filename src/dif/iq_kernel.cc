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
      t.cos[m] = static_cast<float>(std::lround(kIqCarrierScale * std::cos(a)));
      t.sin[m] = static_cast<float>(std::lround(kIqCarrierScale * std::sin(a)));
    }
    for (int m = 0; m < kIqCarrierSpare; ++m) {
      t.cos[kIqCarrierSize + m] = t.cos[m];
      t.sin[kIqCarrierSize + m] = t.sin[m];
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
    const float c = t.cos[theta >> kCarrierShift];
    const float sn = t.sin[theta >> kCarrierShift];
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

// gained[c] = gain x code for the chips c in [from, to): the gain of the code period the
// chip lies in. A sample lies in code period k exactly when its chip does (the period
// starts are where the phase passes k x 1023 chips), so one read of this gives the plain
// loop's gain x code, the same float.
template <int W>
VOREL_LANES_INLINE void GainTheCode(const IqChannelPlan& p, uint32_t from, uint32_t to,
                                    float* gained) {
  using F = typename lanes::Vec<W>::F;
  const float* chips = p.code->chips.data();
  for (int k = 0; k < kIqCodePeriods; ++k) {
    const uint32_t a = std::max<uint32_t>(from, k * kChipsPerCode);
    const uint32_t b = k + 1 < kIqCodePeriods ? std::min<uint32_t>(to, (k + 1) * kChipsPerCode) : to;
    if (a >= b) continue;
    const F g = lanes::Splat<F>(p.gain[k]);
    uint32_t c = a;
    for (; c + W <= b; c += W) lanes::StoreU(gained + c, g * lanes::LoadU<F>(chips + c));
    for (; c < b; ++c) gained[c] = p.gain[k] * chips[c];
  }
}

// W samples a step over first..end-1, and on to the next multiple of W past the end (the
// caller's sums have room for those; they are never read). Lane 0's code phase (64 bits)
// and carrier phase (32 bits, wrapping as in the plain loop) move on as scalars; lane l
// adds l steps to them, held as constants: the code's as its low word and chips, so that
// lane l's chip is lane 0's plus the chips of its offset plus the carry out of the low
// words.
//
// Below one chip a sample (every rate above 1.0234 MHz) the W samples of a step lie within
// W chips from the first lane's, so the code comes from one unaligned load of those W
// chips and a lane shuffle instead of a gather. Likewise the carrier: where it moves at
// most about two table entries a sample (Doppler alone, at any rate from 2.6 MHz), the W
// entries of a step lie within 2W entries from the first lane's (after it when the phase
// turns forward, before it when backward), so two loads and a two-vector shuffle each for
// cos and sin take the place of two gathers.
template <int W, bool kCodeWindow, bool kCarrierWindow, bool kOverwrite>
VOREL_LANES_INLINE void LanesRange(const IqChannelPlan& p, int32_t first, int32_t end, float* I,
                                   float* Q) {
  using F = typename lanes::Vec<W>::F;
  using U = typename lanes::Vec<W>::U;
  using Int = typename lanes::Vec<W>::I;
  U laneLow, laneChips, laneTheta;
  for (int l = 0; l < W; ++l) {
    const uint64_t d = static_cast<uint64_t>(l) * p.codeStep;
    laneLow[l] = static_cast<uint32_t>(d);
    laneChips[l] = static_cast<uint32_t>(d >> 32);
    laneTheta[l] = static_cast<uint32_t>(l) * p.carrierStep;
  }
  uint64_t phase0 = p.codePhase + static_cast<uint64_t>(first) * p.codeStep;
  uint32_t theta0 = p.carrierPhase + static_cast<uint32_t>(first) * p.carrierStep;
  const uint64_t phaseW = static_cast<uint64_t>(W) * p.codeStep;
  const uint32_t thetaW = static_cast<uint32_t>(W) * p.carrierStep;

  // The chips the steps read: from the first lane's to a window past the last step's last.
  alignas(64) float gained[kIqCodeSpan + 16];
  const uint64_t lastPhase = p.codePhase + static_cast<uint64_t>(end - 1 + W) * p.codeStep;
  const auto chipEnd = static_cast<uint32_t>(
      std::min<uint64_t>((lastPhase >> 32) + W + 1, static_cast<uint64_t>(kIqCodeSpan + 16)));
  GainTheCode<W>(p, static_cast<uint32_t>(phase0 >> 32), chipEnd, gained);

  const IqCarrierTable& t = CarrierTableIq();
  // The carrier window starts `back` entries before lane 0's: 2W - 1 when the phase turns
  // backward. Lane l's place in it is (lane 0's phase within its entry, plus back entries,
  // plus l steps) over one entry: never below 0 nor past 2W - 1 where the window applies.
  const uint32_t back = static_cast<int32_t>(p.carrierStep) < 0 ? 2 * W - 1 : 0;
  constexpr uint32_t kWithinEntry = (uint32_t{1} << kCarrierShift) - 1;
  for (int32_t s = first; s < end; s += W) {
    const auto chip0 = static_cast<uint32_t>(phase0 >> 32);
    const U low = lanes::Splat<U>(static_cast<uint32_t>(phase0)) + laneLow;
    const U chips = laneChips - reinterpret_cast<U>(low < laneLow);  // the carry
    F v;
    if constexpr (kCodeWindow)
      v = __builtin_shuffle(lanes::LoadU<F>(gained + chip0), reinterpret_cast<Int>(chips));
    else
      v = Gather(gained, lanes::Splat<U>(chip0) + chips);
    F c, sn;
    if constexpr (kCarrierWindow) {
      const uint32_t base = ((theta0 >> kCarrierShift) - back) & (kIqCarrierSize - 1);
      const uint32_t start = (theta0 & kWithinEntry) + (back << kCarrierShift);
      const auto offsets =
          reinterpret_cast<Int>((lanes::Splat<U>(start) + laneTheta) >> kCarrierShift);
      c = __builtin_shuffle(lanes::LoadU<F>(t.cos.data() + base),
                            lanes::LoadU<F>(t.cos.data() + base + W), offsets);
      sn = __builtin_shuffle(lanes::LoadU<F>(t.sin.data() + base),
                             lanes::LoadU<F>(t.sin.data() + base + W), offsets);
    } else {
      const U entry = (lanes::Splat<U>(theta0) + laneTheta) >> kCarrierShift;
      c = Gather(t.cos.data(), entry);
      sn = Gather(t.sin.data(), entry);
    }
    float* pi = I + (s - first);
    float* pq = Q + (s - first);
    // Overwriting is adding to sums of 0 (0 + x is x but for -0, which it makes +0).
    const F sumI = kOverwrite ? F{} : lanes::LoadU<F>(pi);
    const F sumQ = kOverwrite ? F{} : lanes::LoadU<F>(pq);
    lanes::StoreU(pi, sumI + v * c);
    lanes::StoreU(pq, sumQ + v * sn);
    phase0 += phaseW;
    theta0 += thetaW;
  }
}

constexpr uint64_t kOneChip = uint64_t{1} << 32;

// Whether W lanes' carrier entries always lie within the 2W-entry window: lane W-1 is at
// most ((W-1)|step| + 2^22 - 1) / 2^22 entries from lane 0's.
template <int W>
bool CarrierFitsWindow(uint32_t carrierStep) {
  const int64_t step = std::abs(static_cast<int64_t>(static_cast<int32_t>(carrierStep)));
  return (W - 1) * step <= static_cast<int64_t>(2 * W - 1) << kCarrierShift;
}

template <int W, bool kOverwrite>
VOREL_LANES_INLINE void ChooseRange(const IqChannelPlan& p, int32_t first, int32_t end, float* I,
                                    float* Q) {
  static_assert(2 * W <= kIqCarrierSpare);
  const bool codeWindow = p.codeStep < kOneChip;
  // Eight lanes shuffle two vectors by a sequence, slower than their gather.
  const bool carrierWindow = W == 16 && CarrierFitsWindow<W>(p.carrierStep);
  if (codeWindow && carrierWindow)
    LanesRange<W, true, true, kOverwrite>(p, first, end, I, Q);
  else if (codeWindow)
    LanesRange<W, true, false, kOverwrite>(p, first, end, I, Q);
  else if (carrierWindow)
    LanesRange<W, false, true, kOverwrite>(p, first, end, I, Q);
  else
    LanesRange<W, false, false, kOverwrite>(p, first, end, I, Q);
}

__attribute__((target("avx2"))) void Range8(const IqChannelPlan& p, int32_t first, int32_t end,
                                            float* I, float* Q, bool overwrite) {
  if (overwrite)
    ChooseRange<8, true>(p, first, end, I, Q);
  else
    ChooseRange<8, false>(p, first, end, I, Q);
}

__attribute__((target("avx512f"))) void Range16(const IqChannelPlan& p, int32_t first, int32_t end,
                                                float* I, float* Q, bool overwrite) {
  if (overwrite)
    ChooseRange<16, true>(p, first, end, I, Q);
  else
    ChooseRange<16, false>(p, first, end, I, Q);
}
#endif

}  // namespace

void AddIqChannelPlain(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q) {
  ForEachPeriod(plan, first, end, [&](float gain, int64_t a, int64_t b) {
    PlainRange(plan, gain, a, b, first, i, q);
  });
}

void AddIqChannelFast(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q,
                      bool wide, bool overwrite) {
#if defined(__x86_64__)
  static const int width = __builtin_cpu_supports("avx512f") ? 16
                           : __builtin_cpu_supports("avx2")  ? 8
                                                             : 1;
  if (width == 16 && wide) {
    Range16(plan, first, end, i, q, overwrite);
    return;
  }
  if (width >= 8) {
    Range8(plan, first, end, i, q, overwrite);
    return;
  }
#endif
  if (overwrite) {
    std::fill_n(i, end - first, 0.0f);
    std::fill_n(q, end - first, 0.0f);
  }
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

constexpr int kAAndBOrC = 0xEA;  // ternary logic: (a & b) | c

// GCC 12's own AVX-512 headers leave the unused source of the unmasked forms undefined on
// purpose and then warn about it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

// t = x + copysign(0.5, x), the values from high + 1 or low - 1 on counted, clamped, truncated.
__attribute__((target("avx512f"))) inline __m512i Round16(const float* from, __m512 low,
                                                          __m512 high, __m512 above,
                                                          __m512 below, int64_t& held) {
  const __m512i half = _mm512_castps_si512(_mm512_set1_ps(0.5f));
  const __m512i sign = _mm512_set1_epi32(INT32_MIN);
  const __m512 x = _mm512_loadu_ps(from);
  const __m512 t = _mm512_add_ps(x, _mm512_castsi512_ps(_mm512_ternarylogic_epi32(
                                        _mm512_castps_si512(x), sign, half, kAAndBOrC)));
  const __mmask16 outside =
      _mm512_cmp_ps_mask(t, above, _CMP_GT_OQ) | _mm512_cmp_ps_mask(t, below, _CMP_LT_OQ);
  held += __builtin_popcount(outside);
  return _mm512_cvttps_epi32(_mm512_max_ps(low, _mm512_min_ps(high, t)));
}

// Sixteen lanes in the instructions themselves (GCC 12 makes the comparisons of the generic
// form one lane at a time). Clamping with min and max and then truncating gives the plain
// loop's numbers: within a level of a limit truncation lands on the limit anyway, and a NaN,
// carried through min and max as their second operand, truncates to 0x80000000, whose low
// byte and low half are 0.
__attribute__((target("avx512f"))) int32_t Quantise16(const float* i, const float* q,
                                                      int32_t count, int bytes, uint8_t* out,
                                                      int64_t& held) {
  const bool ci8 = bytes == 1;
  const __m512 low = _mm512_set1_ps(ci8 ? -128.0f : -32768.0f);
  const __m512 high = _mm512_set1_ps(ci8 ? 127.0f : 32767.0f);
  const __m512 above = _mm512_set1_ps(std::nextafter(ci8 ? 128.0f : 32768.0f, 0.0f));
  const __m512 below = _mm512_set1_ps(std::nextafter(ci8 ? -129.0f : -32769.0f, 0.0f));
  int64_t count16 = 0;
  int32_t k = 0;
  for (; k + 16 <= count; k += 16) {
    const __m512i vi = Round16(i + k, low, high, above, below, count16);
    const __m512i vq = Round16(q + k, low, high, above, below, count16);
    if (ci8) {
      const __m512i pair = _mm512_ternarylogic_epi32(vi, _mm512_set1_epi32(0xFF),
                                                     _mm512_slli_epi32(vq, 8), kAAndBOrC);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * static_cast<int64_t>(k)),
                          _mm512_cvtepi32_epi16(pair));
    } else {
      const __m512i pair = _mm512_ternarylogic_epi32(vi, _mm512_set1_epi32(0xFFFF),
                                                     _mm512_slli_epi32(vq, 16), kAAndBOrC);
      _mm512_storeu_si512(out + 4 * static_cast<int64_t>(k), pair);
    }
  }
  held += count16;
  return k;
}
#pragma GCC diagnostic pop

#endif

}  // namespace

int64_t QuantiseIq(const float* i, const float* q, int32_t count, int bytesPerValue, uint8_t* out) {
  int64_t held = 0;
  int32_t done = 0;
#if defined(__x86_64__)
  static const int width = __builtin_cpu_supports("avx512f") ? 16
                           : __builtin_cpu_supports("avx2")  ? 8
                                                             : 1;
  if (width == 16)
    done = Quantise16(i, q, count, bytesPerValue, out, held);
  else if (width == 8)
    done = Quantise8(i, q, count, bytesPerValue, out, held);
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
