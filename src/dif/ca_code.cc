#include "dif/ca_code.h"

#include <cmath>

namespace vorel::dif {

const std::array<int32_t, kCodePrnCount> kG2Delay = {
    5,   6,   7,   8,   17,  18,  139, 140, 141, 251, 252, 254, 255, 256, 257, 258,
    469, 470, 471, 472, 473, 474, 509, 512, 513, 514, 515, 516, 859, 860, 861, 862};

namespace {

// One maximal-length register of ten stages in -1/+1 values: stage 10 is sent, the product
// of the feedback stages enters stage 1. A product of values is the exclusive-or of bits.
template <size_t N>
void RunRegister(const std::array<int, N>& feedback, int32_t out[kChipsPerCode]) {
  int32_t stage[11];
  for (int s = 1; s <= 10; ++s) stage[s] = -1;
  for (int k = 0; k < kChipsPerCode; ++k) {
    out[k] = stage[10];
    int32_t in = 1;
    for (int s : feedback) in *= stage[s];
    for (int s = 10; s > 1; --s) stage[s] = stage[s - 1];
    stage[1] = in;
  }
}

}  // namespace

void CaCodeChips(int32_t prnIndex, int32_t chips[kChipsPerCode]) {
  int32_t g1[kChipsPerCode], g2[kChipsPerCode];
  RunRegister(std::array<int, 2>{3, 10}, g1);
  RunRegister(std::array<int, 6>{2, 3, 6, 8, 9, 10}, g2);
  const int32_t d = kG2Delay[static_cast<size_t>(prnIndex) % kCodePrnCount];
  for (int k = 0; k < kChipsPerCode; ++k) {
    const int32_t g2d = g2[((k - d) % kChipsPerCode + kChipsPerCode) % kChipsPerCode];
    chips[k] = -(g1[k] * g2d);
  }
}

void MakeCaCodeSamples(int32_t sampleCount, double samplingFrequency, double offset,
                       int32_t prnIndex, int32_t* table) {
  int32_t chips[kChipsPerCode];
  CaCodeChips(prnIndex, chips);
  const double ts = 1.0 / samplingFrequency;
  for (int32_t i = 0; i < sampleCount; ++i) {
    double t = (static_cast<double>(i) + 1.0) * ts;
    if (offset != 0.0) {
      t = std::trunc((static_cast<double>(i) + 1.0) + offset * ts) * ts;
      if (t < 0.0) t = ts;
    }
    const double u = t * kChipRate;
    double c = std::ceil(u);
    // A free-entry rate can round the last index one past the code; NaN lands on chip 1.
    if (!(c >= 1.0)) c = 1.0;
    if (c > kChipsPerCode) c = kChipsPerCode;
    table[i] = chips[static_cast<int32_t>(c) - 1];
  }
}

SignalOptions SignalChoiceOptions(SignalChoice choice) {
  SignalOptions o;
  switch (choice) {
    case SignalChoice::kL1c:
    case SignalChoice::kBoc:
      o.optionB = 1;
      o.optionBDimmed = false;
      break;
    case SignalChoice::kSp1:
    case SignalChoice::kSp2:
      o.optionA = 1;
      o.optionADimmed = false;
      break;
    default:
      break;
  }
  return o;
}

bool ParseSignalChoice(std::string_view text, SignalChoice& choice) {
  static constexpr std::pair<std::string_view, SignalChoice> kNames[] = {
      {"CA", SignalChoice::kCa},  {"L1C", SignalChoice::kL1c}, {"L2C", SignalChoice::kL2c},
      {"L5", SignalChoice::kL5},  {"SP1", SignalChoice::kSp1}, {"SP2", SignalChoice::kSp2},
      {"BOC", SignalChoice::kBoc}};
  for (const auto& [name, value] : kNames) {
    if (name == text) {
      choice = value;
      return true;
    }
  }
  return false;
}

}  // namespace vorel::dif
