// The scintillation generator: its random streams, the gamma deviates, the raw series'
// statistics, the refusals, the recursive filter step and the file's layout.
#include "scintillation/scint_generator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numeric>
#include <vector>

#include "test_support.h"

namespace vorel::scintillation {
namespace {

struct Moments {
  double mean = 0.0, variance = 0.0;
};
Moments MomentsOf(const std::vector<double>& v) {
  Moments m;
  m.mean = std::accumulate(v.begin(), v.end(), 0.0) / v.size();
  for (double x : v) m.variance += (x - m.mean) * (x - m.mean);
  m.variance /= v.size();
  return m;
}

double Correlation(const std::vector<double>& a, const std::vector<double>& b) {
  const Moments ma = MomentsOf(a), mb = MomentsOf(b);
  double c = 0.0;
  for (size_t i = 0; i < a.size(); ++i) c += (a[i] - ma.mean) * (b[i] - mb.mean);
  return c / a.size() / std::sqrt(ma.variance * mb.variance);
}

TEST(ScintStreams, Mt19937FollowsThePublishedSequence) {
  // The reference generator's first outputs for the default seed 5489, and its 10000th.
  ScintStream s(5489);
  EXPECT_EQ(s(), 3499211612u);
  EXPECT_EQ(s(), 581869302u);
  EXPECT_EQ(s(), 3890346734u);
  EXPECT_EQ(s(), 3586334585u);
  EXPECT_EQ(s(), 545404204u);
  s.discard(10000 - 6);
  EXPECT_EQ(s(), 4123659995u);
}

TEST(ScintStreams, GammaDeviatesHaveTheirShapeAndScale) {
  // Gamma(alpha, beta): mean alpha beta, variance alpha beta^2; both branches (shape below
  // and above 1), and a shape of 0 or a negative scale refused.
  for (double alpha : {0.4, 0.84, 3.16, 103.16}) {
    ScintStream s(12345);
    std::vector<double> v(200000);
    ASSERT_EQ(GammaFill(s, static_cast<int32_t>(v.size()), v.data(), alpha, 0.25), 0);
    const Moments m = MomentsOf(v);
    EXPECT_NEAR(m.mean, alpha * 0.25, 0.01 * alpha * 0.25 + 1e-3) << alpha;
    EXPECT_NEAR(m.variance, alpha * 0.0625, 0.03 * alpha * 0.0625) << alpha;
    for (double x : v) ASSERT_GE(x, 0.0);
  }
  ScintStream s(1);
  double out = -7.0;
  EXPECT_LT(GammaFill(s, 1, &out, 0.0, 1.0), 0);
  EXPECT_LT(GammaFill(s, 1, &out, 1.0, -1.0), 0);
  EXPECT_EQ(out, -7.0);
}

TEST(ScintSeries, RawSeriesHaveTheModelsMomentsAndCorrelation) {
  // ScintIndex 0.5, correlation 0.5: inv = 4; K = 100 gives k = 10 > 4, so K = 10,
  // k = sqrt(40) 0.5 = 3.1623, a = 0.8377. amp + 1 has mean 1 and variance 0.25; the phase
  // variance is sigma^2 (1 + 2k/K) = 4 x 1.63246; the correlation is
  // -S2 k sigma / sqrt(K) / (S sigma sqrt(1 + 2k/K)) = -0.5 / sqrt(1.63246) = -0.3913.
  const int32_t n = 200000;
  std::vector<double> amp(n), phase(n), t1(n), t2(n);
  ScintStream s1(777), s2(700), s3(600), s4(600);
  ASSERT_GE(GenerateScintSeries(s1, s2, s3, s4, 0.5, 0.5, 2.0, n, amp.data(), phase.data(),
                                t1.data(), t2.data()),
            0);
  const Moments ma = MomentsOf(amp), mp = MomentsOf(phase);
  EXPECT_NEAR(ma.mean + 1.0, 1.0, 0.005);
  EXPECT_NEAR(ma.variance, 0.25, 0.01);
  const double k = std::sqrt(40.0) * 0.5;
  EXPECT_NEAR(mp.mean, 0.0, 0.02);
  EXPECT_NEAR(mp.variance, 4.0 * (1.0 + 2.0 * k / 10.0), 0.1);
  EXPECT_NEAR(Correlation(amp, phase), -0.5 / std::sqrt(1.0 + 2.0 * k / 10.0), 0.02);
}

TEST(ScintSeries, SettingsThatCannotBeMetAreRefused) {
  const int32_t n = 100;
  std::vector<double> amp(n), phase(n), t1(n), t2(n);
  auto run = [&](double index, double correlation) {
    ScintStream s1(777), s2(700), s3(600), s4(600);
    return GenerateScintSeries(s1, s2, s3, s4, index, correlation, 1.0, n, amp.data(), phase.data(),
                               t1.data(), t2.data());
  };
  EXPECT_GE(run(0.5, 0.5), 0);  // K = 10: a = 0.84
  EXPECT_LT(run(1.0, 0.5), 0);  // k = 5, then 1.58, both above inv = 1
  EXPECT_LT(run(0.5, 0.0), 0);  // shape 0 for the shared part
  EXPECT_LT(run(0.0, 0.5), 0);  // no index at all
}

TEST(ScintSeries, SameSettingsSameSeriesAndTheFloorHolds) {
  ScintSettings st;
  st.ScintIndex = 0.8;
  st.ScintCorrelation = 0.2;
  ScintSeries one, two;
  std::string error;
  ASSERT_EQ(GenerateScint(st, nullptr, nullptr, one, error), 0) << error;
  ASSERT_EQ(GenerateScint(st, nullptr, nullptr, two, error), 0) << error;
  ASSERT_EQ(one.ampOut.size(), 5000u);
  EXPECT_EQ(one.ampOut, two.ampOut);
  EXPECT_EQ(one.phaseOut, two.phaseOut);
  int floored = 0;
  for (double a : one.ampOut) {
    EXPECT_GE(a, 0.2);
    floored += a == 0.2 ? 1 : 0;
  }
  EXPECT_GT(floored, 0);  // an index of 0.8 reaches the floor somewhere

  st.AmpBandLow = 3.0;
  st.AmpBandHigh = 2.0;
  EXPECT_EQ(GenerateScint(st, nullptr, nullptr, one, error), -1);
  EXPECT_NE(error.find("AmpBandLow"), std::string::npos) << error;
}

TEST(ScintFilterStep, ImpulseResponsesWorkedByHandThroughTheRing) {
  // na = 0; the file's b = 1, 0.25, 0.125 (nb = 3), stored with a trailing 0. Working the
  // ring indices through by hand: the input goes to xHistory[q + 1] after q steps on, and
  // is read at xHistory[q - i]. An impulse at n = 0 meets b[1] two samples later, b[2]
  // three, with a minus sign. One sample later it goes to xHistory[3], a place the reads
  // (indices 0 to 2) never reach, so only b0 x is left.
  struct Case {
    int impulseAt;
    std::vector<double> expected;
    int untouched;  // a history place that ends at 0
  };
  for (const Case& c : {Case{0, {1.0, 0.0, -0.25, -0.125, 0.0, 0.0}, 0},
                        Case{1, {0.0, 1.0, 0.0, 0.0, 0.0, 0.0}, 3}}) {
    std::vector<double> b = {1.0, 0.25, 0.125, 0.0}, xHistory(4, 0.0);
    int32_t p = 0, q = 0;
    for (size_t n = 0; n < c.expected.size(); ++n) {
      double x = static_cast<int>(n) == c.impulseAt ? 1.0 : 0.0;
      ScintFilterStep(nullptr, nullptr, p, 0, b.data(), xHistory.data(), q, 3, x);
      EXPECT_DOUBLE_EQ(x, c.expected[n]) << c.impulseAt << " " << n;
    }
    EXPECT_EQ(xHistory[c.untouched], 0.0) << c.impulseAt;
  }
}

TEST(ScintFilterStep, RecursionMatchesItsDifferenceEquation) {
  // With nb = 1 only b0 acts; the poles give y[n] = b0 x[n] - sum a_i y[n-1-i], written
  // out directly here.
  const std::vector<double> a = {-0.5, 0.25, 0.1};
  const std::vector<double> b = {0.9, 0.0};
  const int32_t na = 3, nb = 1;
  std::vector<double> yh(na, 0.0), xh(nb + 1, 0.0);
  int32_t p = 0, q = 0;
  std::vector<double> x(40), y(40);
  for (int n = 0; n < 40; ++n) x[n] = std::sin(0.7 * n) + (n % 3 == 0 ? 1.0 : -0.3);
  for (int n = 0; n < 40; ++n) {
    double expected = b[0] * x[n];
    for (int i = 0; i < na; ++i) expected -= n - 1 - i >= 0 ? a[i] * y[n - 1 - i] : 0.0;
    double v = x[n];
    ScintFilterStep(a.data(), yh.data(), p, na, b.data(), xh.data(), q, nb, v);
    y[n] = v;
    EXPECT_NEAR(v, expected, 1e-12) << n;
  }
}

TEST(ScintFilterFile, ReadWithGainAndRoomForTheStep) {
  test::ScratchDir dir("scint-filter-file");
  test::WriteFile(dir / "f.txt", "2\n  0.5  \n -0.25  \n3\n1.0\n2.0  \n-1.0\n");
  ScintFilter f;
  std::string error;
  ASSERT_EQ(ReadScintFilterFile(dir / "f.txt", 1.1, f, error), 0) << error;
  EXPECT_EQ(f.na, 2);
  EXPECT_EQ(f.nb, 3);
  EXPECT_EQ(f.a, (std::vector<double>{0.5, -0.25}));
  ASSERT_EQ(f.b.size(), 4u);
  EXPECT_DOUBLE_EQ(f.b[0], 1.1);
  EXPECT_DOUBLE_EQ(f.b[1], 2.2);
  EXPECT_DOUBLE_EQ(f.b[2], -1.1);
  EXPECT_EQ(f.b[3], 0.0);
  EXPECT_EQ(f.xHistory.size(), 4u);
  EXPECT_EQ(f.yHistory.size(), 2u);

  test::WriteFile(dir / "g.txt", "2\n0.5\nx\n");
  EXPECT_EQ(ReadScintFilterFile(dir / "g.txt", 1.0, f, error), -1);
  EXPECT_NE(error.find("g.txt, line 3"), std::string::npos) << error;
  test::WriteFile(dir / "h.txt", "1\n0.5\n2\n1.0\n");
  EXPECT_EQ(ReadScintFilterFile(dir / "h.txt", 1.0, f, error), -1);
  EXPECT_NE(error.find("ends after line 4"), std::string::npos) << error;
  test::WriteFile(dir / "z.txt", "0\n0\n");
  EXPECT_EQ(ReadScintFilterFile(dir / "z.txt", 1.0, f, error), -1);
  EXPECT_NE(error.find("z.txt, line 2"), std::string::npos) << error;
  EXPECT_EQ(ReadScintFilterFile(dir / "none.txt", 1.0, f, error), -1);
  EXPECT_NE(error.find("none.txt"), std::string::npos) << error;
}

TEST(ScintGenData, LinesInTheirExactFormat) {
  ScintSeries s;
  s.ampOut = {1.0, 0.2, 12345.6789};
  s.phaseOut = {-0.0004, 3.14159, -2.5};
  EXPECT_EQ(FormatScintGenData(s),
            "         1.000         -0.000 \r\n"
            "         0.200          3.142 \r\n"
            "     12345.679         -2.500 \r\n");
}

}  // namespace
}  // namespace vorel::scintillation
