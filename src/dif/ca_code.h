#pragma once
// GPS L1 C/A spreading codes, sampled once a run into a table of one code period.
//
// A chip value of +1 stands for a code bit of 1 and -1 for a code bit of 0, so the first
// ten chips of PRN 1 read +1 +1 -1 -1 +1 -1 -1 -1 -1 -1 (1100100000).

#include <array>
#include <cstdint>
#include <string_view>

namespace vorel::dif {

inline constexpr int kChipsPerCode = 1023;
inline constexpr double kChipRate = 1023000.0;
inline constexpr int kCodePrnCount = 32;

// G2 delays in chips, by PRN minus 1 (PRN 1: 5 ... PRN 32: 862).
extern const std::array<int32_t, kCodePrnCount> kG2Delay;

// The 1023 chips of the satellite with index prnIndex (0..31); values -1/+1.
void CaCodeChips(int32_t prnIndex, int32_t chips[kChipsPerCode]);

// Fills table[0..sampleCount-1] with the chip in force at the end of each sample interval
// of one millisecond: sample i takes chip ceil((i + 1) / samplingFrequency x 1023000) - 1.
// A rate whose rounding lifts the last index past the code takes the last chip (1022).
// `offset` is 0.0 for every caller; see docs/dif.md for its other path.
void MakeCaCodeSamples(int32_t sampleCount, double samplingFrequency, double offset,
                       int32_t prnIndex, int32_t* table);

// The signal buttons of the DIF panel. Whatever is chosen, the generators make C/A code on
// the L1 carrier; the choice only sets the two secondary options of the signal tab.
enum class SignalChoice { kCa, kL1c, kL2c, kL5, kSp1, kSp2, kBoc };

struct SignalOptions {
  int32_t optionA = 0;
  bool optionADimmed = true;
  int32_t optionB = 0;
  bool optionBDimmed = true;
};

SignalOptions SignalChoiceOptions(SignalChoice choice);
// "CA", "L1C", "L2C", "L5", "SP1", "SP2", "BOC"; false for any other text.
bool ParseSignalChoice(std::string_view text, SignalChoice& choice);

}  // namespace vorel::dif
