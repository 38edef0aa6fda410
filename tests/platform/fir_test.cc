#include "platform/fir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace vorel::platform {
namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(Fir, BandPassHasUnitGainAtItsCentreAndAttenuatesOutside) {
  // The DIF run's default band: 4.092 MHz +- 1.25 MHz at 16.368 MHz.
  const double low = (4092000.0 - 1250000.0) / 16368000.0;
  const double high = (4092000.0 + 1250000.0) / 16368000.0;
  for (FirWindow w : {FirWindow::kBartlett, FirWindow::kBlackman, FirWindow::kHamming,
                      FirWindow::kHann, FirWindow::kRectangular}) {
    double taps[27];
    ASSERT_EQ(FirGenBandpass(low, high, taps, 27, w, true), 0);
    EXPECT_NEAR(FirGain(taps, 27, 0.25), 1.0, 1e-12) << static_cast<int>(w);
    for (int k = 0; k < 13; ++k) EXPECT_DOUBLE_EQ(taps[k], taps[26 - k]);  // linear phase
  }
  double taps[27];
  FirGenBandpass(low, high, taps, 27, FirWindow::kHamming, true);
  EXPECT_LT(FirGain(taps, 27, 0.0), 0.01);  // -40 dB at DC
  EXPECT_LT(FirGain(taps, 27, 0.5), 0.01);  // and at half the sampling rate
  EXPECT_LT(FirGain(taps, 27, 0.03), 0.02);
  EXPECT_GT(FirGain(taps, 27, 0.22), 0.9);  // inside the band
  // Blackman's first tap is 0.42 - 0.5 + 0.08 = 0; Bartlett's ends are 0 too.
  FirGenBandpass(low, high, taps, 27, FirWindow::kBlackman, false);
  EXPECT_NEAR(taps[0], 0.0, 1e-17);
  FirGenBandpass(low, high, taps, 27, FirWindow::kBartlett, false);
  EXPECT_EQ(taps[0], 0.0);
  // Rectangular, not normalised: the truncated ideal response 2 f2 sinc - 2 f1 sinc.
  FirGenBandpass(0.1, 0.3, taps, 27, FirWindow::kRectangular, false);
  EXPECT_NEAR(taps[13], 0.4, 1e-15);
  EXPECT_NEAR(taps[14], (std::sin(2 * kPi * 0.3) - std::sin(2 * kPi * 0.1)) / kPi, 1e-15);
  EXPECT_EQ(FirGenBandpass(0.3, 0.1, taps, 27, FirWindow::kHamming, true), -1);
  EXPECT_EQ(FirGenBandpass(-0.1, 0.6, taps, 27, FirWindow::kHamming, true), -1);
}

TEST(Fir, MemoryCarriesAcrossBlocksAndTheFastFormMatchesBitForBit) {
  double taps[27];
  FirGenBandpass(0.17, 0.33, taps, 27, FirWindow::kHamming, true);
  std::mt19937 rng(7);
  std::normal_distribution<double> noise(0.0, 3.0);
  std::vector<double> x(5000);
  for (double& v : x) v = noise(rng);
  // Direct convolution over the whole signal, zeros before its start.
  std::vector<double> expected(x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    double acc = 0.0;
    for (int k = 0; k < 27; ++k)
      if (i >= static_cast<size_t>(k)) acc += taps[k] * x[i - k];
    expected[i] = acc;
  }
  FirState plain = FirInit(taps, 27), fast = FirInit(taps, 27), pieces = FirInit(taps, 27);
  std::vector<double> a = x, b = x, c(x.size());
  size_t pos = 0;
  for (int size : {1, 5, 26, 27, 100, 1023, 3818}) {
    FirFilterInPlacePlain(a.data() + pos, size, plain);
    FirFilterInPlace(b.data() + pos, size, fast);
    // The three-step form, outputs computed in uneven pieces.
    double* ext = FirBegin(pieces, size);
    for (int i = 0; i < size; ++i) ext[FirPast(pieces) + i] = x[pos + i];
    for (int first = 0; first < size; first += 13)
      FirRange(pieces, ext, c.data() + pos, first, std::min(size, first + 13));
    FirEnd(pieces);
    pos += size;
  }
  ASSERT_EQ(pos, x.size());
  for (size_t i = 0; i < x.size(); ++i) {
    ASSERT_NEAR(a[i], expected[i], 1e-12) << i;
    ASSERT_EQ(a[i], b[i]) << i;
    ASSERT_EQ(a[i], c[i]) << i;
  }
}

TEST(Fir, ToneAtTheCentrePassesWithItsAmplitude) {
  double taps[27];
  FirGenBandpass(0.15, 0.35, taps, 27, FirWindow::kHann, true);
  FirState state = FirInit(taps, 27);
  std::vector<double> x(400);
  for (size_t i = 0; i < x.size(); ++i) x[i] = std::cos(2 * kPi * 0.25 * static_cast<double>(i));
  FirFilterInPlace(x.data(), 400, state);
  // After the filter has filled, the output is the tone delayed by 13 samples.
  for (size_t i = 100; i < 400; ++i)
    EXPECT_NEAR(x[i], std::cos(2 * kPi * 0.25 * static_cast<double>(i - 13)), 1e-9);
}

}  // namespace
}  // namespace vorel::platform
