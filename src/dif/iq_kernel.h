#pragma once
// The inner loop of the complex (I/Q) form: one channel over a range of samples of a block.
//
// A channel's block is planned once (iq_generation.cc); within it every sample follows from
// the plan by integer arithmetic alone, so no phase is accumulated from sample to sample and
// nothing drifts:
//   P(i)     = codePhase + i codeStep           (uint64, 2^-32 chip units; exact)
//   chip     = P(i) >> 32                       (0 .. 3 x 1023: up to three code periods)
//   theta(i) = carrierPhase + i carrierStep     (uint32, 2^-32 cycle units; wraps)
//   v        = gain[p] x code[chip]             (p the code period the sample lies in: the
//                                               bit of that period times the amplitude,
//                                               over 32767)
//   I += v x cos[theta >> 22], Q += v x sin[theta >> 22]  (cos, sin in units of 1/32767)
// The carrier table has 1024 entries, each the middle of its phase bin, rounded to whole
// units. The plain loop is
// the reference; the vector form computes the same products in the same order lane by lane,
// and channels are added in list order, so every form gives the same floats.

#include <array>
#include <cstdint>

#include "dif/ca_code.h"

namespace vorel::dif {

inline constexpr int kIqCarrierBits = 10;
inline constexpr int kIqCarrierSize = 1 << kIqCarrierBits;
inline constexpr int kIqCodePeriods = 3;  // a block spans at most two code epochs
inline constexpr int kIqCodeSpan = kIqCodePeriods * kChipsPerCode;

// Entry m holds round(32767 cos) and round(32767 sin) of its bin's middle, as floats (the
// gain carries the 1/32767). The first kIqCarrierSpare entries stand again after the last,
// so that a run of that many entries read from any index wraps round the circle.
inline constexpr float kIqCarrierScale = 32767.0f;
inline constexpr int kIqCarrierSpare = 32;
struct IqCarrierTable {
  alignas(64) std::array<float, kIqCarrierSize + kIqCarrierSpare> cos;
  alignas(64) std::array<float, kIqCarrierSize + kIqCarrierSpare> sin;
};
const IqCarrierTable& CarrierTableIq();

// Three code periods of one PRN as floats (+1/-1) with a spare zeroed tail, so that a
// gather never reads beyond it.
struct IqCodeTable {
  alignas(64) std::array<float, kIqCodeSpan + 16> chips{};
};
void MakeIqCodeTable(int32_t prnIndex, IqCodeTable& table);

struct IqChannelPlan {
  uint64_t codePhase = 0;  // at the block's first sample, below 1023 chips
  uint64_t codeStep = 0;   // per sample
  uint32_t carrierPhase = 0;
  uint32_t carrierStep = 0;
  std::array<float, kIqCodePeriods> gain{};  // bit x amplitude / 32767 of each code period
  // First sample of each code period (and the block's end): the periods split the loop,
  // so no sample needs a division to find its period.
  std::array<int64_t, kIqCodePeriods + 1> periodStart{};
  const IqCodeTable* code = nullptr;
};

// Fills periodStart for a block of `count` samples from codePhase and codeStep.
void SetIqPeriodStarts(IqChannelPlan& plan, int64_t count);

// Adds the channel's samples first..end-1 of the block into i[0..], q[0..] (i[0] is sample
// `first`).
void AddIqChannelPlain(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q);
// The same numbers, eight or sixteen samples at a time where the machine has the lanes
// (`wide` false: eight at most, for the tests). It may also write the up to 15 values after
// end - first - 1 of i and q, which must have room for them. With `overwrite` the sums are
// set as if they had held 0 before (the first channel of a block: no clearing beforehand).
void AddIqChannelFast(const IqChannelPlan& plan, int32_t first, int32_t end, float* i, float* q,
                      bool wide = true, bool overwrite = false);

// Rounds I and Q (interleaved in the output, I first) to the nearest level, ties away from
// zero, and holds them at the format's limits; returns how many values were held.
// `bytesPerValue` is 1 (ci8) or 2 (ci16, little-endian).
int64_t QuantiseIq(const float* i, const float* q, int32_t count, int bytesPerValue, uint8_t* out);
// The plain loop, the reference of the vector form.
int64_t QuantiseIqPlain(const float* i, const float* q, int32_t count, int bytesPerValue,
                        uint8_t* out);

}  // namespace vorel::dif
