#include "dif/quantiser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

namespace vorel::dif {
namespace {

std::vector<uint8_t> Quantise(std::vector<float> x, int bits) {
  const int32_t L = LevelCount(bits);
  const std::vector<uint8_t> levels = LevelTable(L);
  std::vector<uint8_t> out(x.size());
  QuantiseFloatBlock(bits, x.data(), out.data(), levels.data(), static_cast<int32_t>(x.size()), L);
  return out;
}

TEST(Quantiser, LevelsSpanTheBlocksOwnRange) {
  EXPECT_EQ(LevelCount(1), 2);
  EXPECT_EQ(LevelCount(2), 4);
  EXPECT_EQ(LevelCount(3), 8);
  EXPECT_EQ(LevelCount(9), 512);
  // 2 bits over 0..4: cells of 1; the maximum lands on 4 and is folded to 3.
  EXPECT_EQ(Quantise({0, 1, 2, 3, 4, 0.999f, 2.5f}, 2),
            (std::vector<uint8_t>{0, 1, 2, 3, 3, 0, 2}));
  // 1 bit: the threshold is the block's mid-range (1.0 here), not zero.
  EXPECT_EQ(Quantise({-1.0f, 0.9f, 1.1f, 3.0f, 0.5f}, 1), (std::vector<uint8_t>{0, 0, 1, 1, 0}));
  // Offsets do not matter: the same block shifted quantises the same.
  EXPECT_EQ(Quantise({100, 101, 102, 103, 104}, 2), (std::vector<uint8_t>{0, 1, 2, 3, 3}));
  // A flat block gives level 0 throughout.
  EXPECT_EQ(Quantise({2.5f, 2.5f, 2.5f}, 2), (std::vector<uint8_t>{0, 0, 0}));
}

TEST(Quantiser, NineBitsKeepTheLowEightBitsOfTheLevel) {
  std::vector<float> ramp(513);
  for (int i = 0; i < 513; ++i) ramp[i] = static_cast<float>(i);
  const std::vector<uint8_t> out = Quantise(ramp, 9);  // L = 512, cells of exactly 1
  for (int i = 0; i < 512; ++i) ASSERT_EQ(out[i], i & 0xFF) << i;
  EXPECT_EQ(out[512], 511 & 0xFF);  // folded maximum
}

TEST(Quantiser, DoubleFormWorksWithoutNarrowing) {
  // Steps of 2^-30 vanish in float but not in double.
  const double u = std::ldexp(1.0, -30);
  std::vector<double> x = {1.0, 1.0 + u, 1.0 + 2 * u, 1.0 + 4 * u};
  std::vector<uint8_t> out(4);
  const std::vector<uint8_t> levels = LevelTable(4);
  QuantiseDoubleBlock(2, x.data(), out.data(), levels.data(), 4, 4);
  EXPECT_EQ(out, (std::vector<uint8_t>{0, 1, 2, 3}));
}

TEST(Quantiser, PackingPutsTheEarliestSampleInTheLowestBits) {
  std::vector<uint8_t> q = {0, 1, 2, 3, 3, 2, 1, 0};
  EXPECT_EQ(PackBlock(q.data(), 8, 2, 0, 1), 2);
  EXPECT_EQ(q[0], 0xE4);  // 0 | 1<<2 | 2<<4 | 3<<6
  EXPECT_EQ(q[1], 0x1B);  // 3 | 2<<2 | 1<<4 | 0<<6
  std::vector<uint8_t> b = {1, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 1, 1, 1, 1, 0};
  EXPECT_EQ(PackBlock(b.data(), 16, 1, 0, 1), 2);
  EXPECT_EQ(b[0], 0x89);  // samples 0, 3 and 7
  EXPECT_EQ(b[1], 0x7E);
  // Direct keeps one sample a byte; decimation drops the samples between and the tail.
  std::vector<uint8_t> d = {0, 1, 2, 3, 0, 1, 2, 3, 0};
  EXPECT_EQ(PackBlock(d.data(), 9, 2, 2, 0), 4);
  EXPECT_EQ(std::vector<uint8_t>(d.begin(), d.begin() + 4), (std::vector<uint8_t>{0, 2, 0, 2}));
  std::vector<uint8_t> e = {3, 0, 2, 0, 1, 0, 0, 0, 3, 3, 3, 3, 3, 3, 3, 3, 1};
  EXPECT_EQ(PackBlock(e.data(), 17, 2, 2, 1), 2);  // (17 / 4) / 2
  EXPECT_EQ(e[0], 3 | 2 << 2 | 1 << 4 | 0 << 6);
  EXPECT_EQ(e[1], 0xFF);
  std::vector<uint8_t> f = {0, 1, 2, 3, 0, 1, 2, 3};
  EXPECT_EQ(PackBlock(f.data(), 8, 2, 3, 1), 0);  // (8 / 4) / 3
  EXPECT_EQ(PackBlock(f.data(), 8, 3, 0, 1), 0);  // no packing exists for 3 bits
}

TEST(Quantiser, VectorFormsGiveTheBytesOfThePlainLoops) {
  std::mt19937 rng(11);
  std::normal_distribution<float> noise(0.0f, 9.0f);
  for (int bits : {1, 2, 3, 8, 10}) {
    const int32_t L = LevelCount(bits);
    const std::vector<uint8_t> levels = LevelTable(L);
    for (int32_t n : {1, 7, 16368, 40920, 54561}) {
      std::vector<float> x(n);
      for (float& v : x) v = noise(rng);
      if (n > 100) {
        x[3] = std::numeric_limits<float>::quiet_NaN();
        x[50] = -0.0f;
      }
      std::vector<double> xd(x.begin(), x.end());
      std::vector<uint8_t> a(n), b(n), c(n), d(n);
      QuantiseFloatBlockPlain(bits, x.data(), a.data(), levels.data(), n, L);
      QuantiseFloatBlock(bits, x.data(), b.data(), levels.data(), n, L);
      QuantiseDoubleBlockPlain(bits, xd.data(), c.data(), levels.data(), n, L);
      QuantiseDoubleBlock(bits, xd.data(), d.data(), levels.data(), n, L);
      ASSERT_EQ(a, b) << bits << " bits, n " << n;
      ASSERT_EQ(c, d) << bits << " bits, n " << n;
    }
  }
}

// The fused form, whole or in pieces, against the plain quantiser followed by the packer.
template <typename T>
void ExpectFusedMatchesPlain(const std::vector<T>& x, int bits, int decimation, uint8_t packed) {
  const int32_t n = static_cast<int32_t>(x.size());
  const int32_t L = LevelCount(bits);
  const std::vector<uint8_t> levels = LevelTable(L);
  std::vector<uint8_t> plain(n);
  if constexpr (std::is_same_v<T, float>)
    QuantiseFloatBlockPlain(bits, x.data(), plain.data(), levels.data(), n, L);
  else
    QuantiseDoubleBlockPlain(bits, x.data(), plain.data(), levels.data(), n, L);
  const int32_t count = PackBlock(plain.data(), n, bits, decimation, packed);
  ASSERT_EQ(count, PackedCount(n, bits, decimation, packed));
  // Limits in pieces of 1000 samples, bytes in pieces of 333.
  BlockLimits<T> limits = MinMaxRange(x.data(), 0, std::min(n, 1000));
  for (int32_t lo = 1000; lo < n; lo += 1000)
    CombineLimits(limits, MinMaxRange(x.data(), lo, std::min(n, lo + 1000)));
  std::vector<uint8_t> fused(count + 1, 0xAB);
  for (int32_t j = 0; j < count; j += 333)
    QuantisePackRange(x.data(), limits, bits, levels.data(), L, decimation, packed, j,
                      std::min(count, j + 333), fused.data());
  EXPECT_EQ(fused[count], 0xAB);  // nothing written past the block's bytes
  fused.resize(count);
  plain.resize(count);
  EXPECT_EQ(fused, plain) << bits << " bits, D " << decimation << ", packed " << int(packed)
                          << ", n " << n;
}

TEST(Quantiser, FusedQuantiserAndPackerGiveThePlainBytes) {
  std::mt19937 rng(23);
  std::normal_distribution<float> noise(0.0f, 9.0f);
  for (int32_t n : {16368, 4093, 40920}) {
    std::vector<float> x(n);
    for (float& v : x) v = noise(rng);
    x[17] = std::numeric_limits<float>::quiet_NaN();
    std::vector<double> xd(x.begin(), x.end());
    for (int bits : {1, 2, 3, 9}) {
      for (int d : {0, 2, 3}) {
        for (uint8_t packed : {uint8_t{0}, uint8_t{1}}) {
          if (packed && bits > 2) continue;
          ExpectFusedMatchesPlain(x, bits, d, packed);
          ExpectFusedMatchesPlain(xd, bits, d, packed);
        }
      }
    }
  }
  // A flat block and one whose first sample is NaN.
  ExpectFusedMatchesPlain(std::vector<float>(64, 1.5f), 2, 0, 1);
  std::vector<float> nanFirst(64, 1.0f);
  nanFirst[0] = std::numeric_limits<float>::quiet_NaN();
  nanFirst[9] = 4.0f;
  ExpectFusedMatchesPlain(nanFirst, 2, 0, 1);
}

}  // namespace
}  // namespace vorel::dif
