#include "dif/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace vorel::dif {
namespace {

TEST(Noise, VectorFormGivesTheNumbersOfThePlainLoop) {
  for (int32_t n : {1, 15, 16, 17, 16368, 40920, 54560}) {
    for (uint32_t seed : {0u, 41u, 18467u, 32767u}) {
      std::vector<float> a(n), b(n);
      GaussianBlockPlain(0.5f, 9.0f, a.data(), n, seed);
      GaussianBlockFromSeed(0.5f, 9.0f, b.data(), n, seed);
      for (int32_t i = 0; i < n; ++i)
        ASSERT_EQ(std::memcmp(&a[i], &b[i], sizeof(float)), 0)
            << "n " << n << " seed " << seed << " i " << i;
    }
  }
}

TEST(Noise, PiecesOfABlockGiveTheWholeBlocksNumbers) {
  // Group by group takes the eight-lane form; pieces of odd sizes mix the two vector forms.
  for (int32_t n : {16368, 40920, 100}) {
    std::vector<float> whole(n), groupwise(n), pieces(n);
    GaussianBlockPlain(0.0f, 3.0f, whole.data(), n, 777);
    const int32_t groups = (n + 15) / 16;
    for (int32_t g = 0; g < groups; ++g)
      GaussianBlockGroups(0.0f, 3.0f, groupwise.data(), n, 777, g, g + 1);
    for (int32_t g = 0; g < groups; g += 7)
      GaussianBlockGroups(0.0f, 3.0f, pieces.data(), n, 777, g, std::min(groups, g + 7));
    ASSERT_EQ(std::memcmp(whole.data(), groupwise.data(), sizeof(float) * n), 0) << n;
    ASSERT_EQ(std::memcmp(whole.data(), pieces.data(), sizeof(float) * n), 0) << n;
  }
}

TEST(Noise, OwnLogarithmAndSineAgreeWithTheLibrary) {
  double worstLog = 0.0;
  for (int k = 1; k <= (1 << 24); k += 97) {
    const float u = static_cast<float>(k) * 5.9604644775390625e-08f;
    const double expected = std::log(static_cast<double>(u));
    worstLog =
        std::max(worstLog, std::fabs(NoiseLog(u) - expected) / std::max(1e-3, std::fabs(expected)));
  }
  EXPECT_LT(worstLog, 3e-7);
  EXPECT_EQ(NoiseLog(1.0f), 0.0f);
  double worstTrig = 0.0;
  for (uint32_t octant = 0; octant < 8; ++octant) {
    for (int k = 0; k < (1 << 21); k += 331) {
      const float f = static_cast<float>(k) * 4.76837158203125e-07f;
      float s, c;
      NoiseSinCos(octant, f, s, c);
      const double angle = (octant + static_cast<double>(f)) * 0.78539816339744831;
      worstTrig =
          std::max({worstTrig, std::fabs(s - std::sin(angle)), std::fabs(c - std::cos(angle))});
    }
  }
  EXPECT_LT(worstTrig, 2e-7);
}

TEST(Noise, DeviatesHaveTheAskedMeanAndSigmaAndAreWhite) {
  // 64 blocks of the run's size: 1,047,552 deviates.
  const int32_t n = 16368;
  std::vector<float> x(n);
  double sum = 0, sum2 = 0, sum4 = 0, lag1 = 0, lag16 = 0;
  int64_t count = 0;
  int64_t beyond3 = 0;
  for (uint32_t seed = 100; seed < 164; ++seed) {
    GaussianBlockFromSeed(0.0f, 2.0f, x.data(), n, seed);
    for (int32_t i = 0; i < n; ++i) {
      const double v = x[i] / 2.0;
      sum += v;
      sum2 += v * v;
      sum4 += v * v * v * v;
      if (std::fabs(v) > 3.0) ++beyond3;
      if (i > 0) lag1 += v * (x[i - 1] / 2.0);
      if (i >= 16) lag16 += v * (x[i - 16] / 2.0);
      ++count;
    }
  }
  const double mean = sum / count, var = sum2 / count;
  EXPECT_NEAR(mean, 0.0, 0.005);
  EXPECT_NEAR(var, 1.0, 0.005);
  EXPECT_NEAR(sum4 / count, 3.0, 0.05);  // Gaussian kurtosis
  EXPECT_NEAR(static_cast<double>(beyond3) / count, 0.0027, 0.0004);
  EXPECT_NEAR(lag1 / count, 0.0, 0.005);
  EXPECT_NEAR(lag16 / count, 0.0, 0.005);
}

TEST(Noise, OneSeedPerBlockFromTheRunTimeRand) {
  // The C run-time rule from state 1 gives 41, then 18467.
  platform::RandState rand;
  std::vector<float> a(100), b(100), c(100);
  GaussianBlock(0.0f, 1.0f, a.data(), 100, rand);
  GaussianBlockFromSeed(0.0f, 1.0f, b.data(), 100, 41);
  EXPECT_EQ(a, b);
  GaussianBlock(0.0f, 1.0f, a.data(), 100, rand);
  GaussianBlockFromSeed(0.0f, 1.0f, c.data(), 100, 18467);
  EXPECT_EQ(a, c);
  EXPECT_NE(b, c);
  GaussianBlockFromSeed(3.0f, 0.0f, a.data(), 100, 5);
  for (float v : a) EXPECT_EQ(v, 3.0f);
}

}  // namespace
}  // namespace vorel::dif
