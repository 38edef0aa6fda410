#include "dif/ca_code.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "dif/receiver.h"

namespace vorel::dif {
namespace {

// First ten chips of PRN 1 to 32 in octal, as IS-GPS-200 lists them
// (the leading digit is the first chip, then three chips per digit).
constexpr int kFirstTenOctal[32] = {01440, 01620, 01710, 01744, 01133, 01455, 01131, 01454,
                                    01626, 01504, 01642, 01750, 01764, 01772, 01775, 01776,
                                    01156, 01467, 01633, 01715, 01746, 01763, 01063, 01706,
                                    01743, 01761, 01770, 01774, 01127, 01453, 01625, 01712};

TEST(CaCode, FirstTenChipsOfEveryPrnMatchThePublishedTable) {
  for (int prn = 1; prn <= 32; ++prn) {
    int32_t chips[kChipsPerCode];
    CaCodeChips(prn - 1, chips);
    for (int c = 0; c < 10; ++c) {
      const int bit = (kFirstTenOctal[prn - 1] >> (9 - c)) & 1;
      EXPECT_EQ(chips[c], 2 * bit - 1) << "PRN " << prn << " chip " << c;
    }
  }
}

TEST(CaCode, WholeCodeAgreesWithThePhaseSelectorForm) {
  for (int prn = 1; prn <= 32; ++prn) {
    int32_t chips[kChipsPerCode];
    CaCodeChips(prn - 1, chips);
    // A second way to make the code: the G2 register read through the two phase-selector
    // taps of each PRN instead of the delay.
    const std::vector<int> bits = test::ReplicaCode(prn);
    for (int c = 0; c < kChipsPerCode; ++c)
      ASSERT_EQ(chips[c], 2 * bits[c] - 1) << "PRN " << prn << " chip " << c;
  }
  EXPECT_EQ(kG2Delay[31], 862);
  int32_t chips[kChipsPerCode];
  CaCodeChips(0, chips);
  EXPECT_EQ(std::accumulate(chips, chips + kChipsPerCode, 0), 1);  // 512 ones, 511 zeros
}

// The table against the exact rational rule, chip of sample i = ceil((i + 1) 1023 / n) - 1.
// The double products t = (i + 1) x (1 / fs), u = t x 1023000 land just above a whole
// number at one chip boundary at 16.368 MHz and one at 40.92 MHz, so that sample takes the
// next chip; at 54.56 MHz the products are exact. Returns the samples that differ.
std::vector<int64_t> Differences(int32_t n) {
  std::vector<int32_t> table(n);
  MakeCaCodeSamples(n, n * 1000.0, 0.0, 0, table.data());
  int32_t chips[kChipsPerCode];
  CaCodeChips(0, chips);
  std::vector<int64_t> differ;
  for (int64_t i = 0; i < n; ++i) {
    const int64_t chip = ((i + 1) * 1023 + n - 1) / n - 1;
    if (table[i] == chips[chip]) continue;
    differ.push_back(i);
    // Only at an exact boundary, and then it is the next chip.
    EXPECT_EQ((i + 1) * 1023 % n, 0) << n << " sample " << i;
    EXPECT_EQ(table[i], chips[chip + 1]) << n << " sample " << i;
  }
  EXPECT_EQ(table[n - 1], chips[1022]) << n;
  return differ;
}

TEST(CaCode, SamplingTakesTheChipInForceAtTheEndOfEachSample) {
  std::vector<int32_t> table(16368);
  MakeCaCodeSamples(16368, 16368000.0, 0.0, 0, table.data());
  for (int i = 0; i < 16; ++i) EXPECT_EQ(table[i], 1) << i;  // PRN 1 starts 1 1 0 ...
  EXPECT_EQ(table[32], -1);
  EXPECT_EQ(Differences(16368).size(), 1u);
  EXPECT_EQ(Differences(40920).size(), 1u);
  EXPECT_EQ(Differences(54560).size(), 0u);
}

TEST(CaCode, FreeEntryRateNeverIndexesPastTheCode) {
  int32_t chips[kChipsPerCode];
  CaCodeChips(4, chips);
  // More samples than a millisecond holds at this rate: the times run past the code.
  std::vector<int32_t> table(1200);
  MakeCaCodeSamples(1200, 1000000.0, 0.0, 4, table.data());
  EXPECT_EQ(table[1199], chips[1022]);
  for (int fs : {4092, 5000, 10230, 20000, 33333}) {
    std::vector<int32_t> t(fs);
    MakeCaCodeSamples(fs, fs * 1000.0, 0.0, 4, t.data());
    EXPECT_EQ(t[fs - 1], chips[1022]) << fs;
  }
}

TEST(CaCode, SignalChoiceOnlySetsTheSecondaryOptions) {
  struct Row {
    const char* name;
    int a;
    bool aDim;
    int b;
    bool bDim;
  };
  const Row rows[] = {{"CA", 0, true, 0, true},   {"L1C", 0, true, 1, false},
                      {"L2C", 0, true, 0, true},  {"L5", 0, true, 0, true},
                      {"SP1", 1, false, 0, true}, {"SP2", 1, false, 0, true},
                      {"BOC", 0, true, 1, false}};
  for (const Row& r : rows) {
    SignalChoice choice;
    ASSERT_TRUE(ParseSignalChoice(r.name, choice));
    const SignalOptions o = SignalChoiceOptions(choice);
    EXPECT_EQ(o.optionA, r.a) << r.name;
    EXPECT_EQ(o.optionADimmed, r.aDim) << r.name;
    EXPECT_EQ(o.optionB, r.b) << r.name;
    EXPECT_EQ(o.optionBDimmed, r.bDim) << r.name;
  }
  SignalChoice c;
  EXPECT_FALSE(ParseSignalChoice("GLONASS", c));
}

}  // namespace
}  // namespace vorel::dif
