// The shaping-filter fit: the target file, the densified rows, the design matrix and the
// row-by-row view the solver reads it through, and the two files the fit writes.
#include "scintillation/filter_fit.h"

#include <gtest/gtest.h>

#include <cmath>

#include "test_support.h"

namespace vorel::scintillation {
namespace {

TargetResponse Target(std::vector<double> x, std::vector<double> y) {
  TargetResponse t;
  t.N = static_cast<int32_t>(x.size());
  t.x = std::move(x);
  t.y = std::move(y);
  return t;
}

TEST(FilterFit, GainOnlyFitIsTheMeanOfTheTenPointsPerRow) {
  // na = nb = 0: one column of ones, the same in either view, so theta is the mean of
  // 1 + 2 m / 10 for m = 0..9, that is 1.9; the last row (3.0) is not a point.
  FitResult fit;
  std::string error;
  ASSERT_EQ(FitScintFilter(Target({1.0, 11.0}, {1.0, 3.0}), 0, 0, fit, error), 0) << error;
  EXPECT_EQ(fit.M, 10);
  EXPECT_EQ(fit.C, 1);
  EXPECT_NEAR(fit.theta[0], 1.9, 1e-12);
  // f = 1..10 in steps of 1, then its logarithm; w is 2 pi / 5 of that.
  EXPECT_NEAR(fit.f[9], 1.0, 1e-15);
  EXPECT_NEAR(fit.w[9], 2.0 * M_PI / 5.0, 1e-15);
  EXPECT_EQ(FormatScintFilterFile(fit.theta, 0, 0), "0\n1\n         1.900  \n");
  EXPECT_EQ(FormatDesignDump(fit, 0, 0), "");  // the last (only) column is left out
}

TEST(FilterFit, RowByRowViewOfAConstantTarget) {
  // A constant target 2 is the response of the filter b = (2, 0). Read column by column
  // (column 0 all ones, column 1 cos w) the fit would return exactly that. The solver reads
  // the memory row by row instead: rows 0..4 become (1, 1) and rows 5..9 pair the cosines
  // of neighbouring points, (cos w0, cos w1), ..., (cos w8, cos w9). Least squares on
  // those rows, by the normal equations worked separately, gives 10.603 and -8.669.
  FitResult fit;
  std::string error;
  ASSERT_EQ(FitScintFilter(Target({1.0, 11.0}, {2.0, 2.0}), 0, 1, fit, error), 0) << error;
  ASSERT_EQ(fit.C, 2);
  EXPECT_NEAR(fit.theta[0], 10.60335612695681, 1e-9);
  EXPECT_NEAR(fit.theta[1], -8.669089245882518, 1e-9);
  EXPECT_EQ(FormatScintFilterFile(fit.theta, 0, 1), "0\n2\n        10.603  \n        -8.669  \n");
  // The fitted curve comes from the same view: the (1, 1) rows all give theta0 + theta1;
  // the last row is 0.36316 theta0 + 0.30902 theta1.
  for (int r = 0; r < 5; ++r) EXPECT_NEAR(fit.fit[r], 1.9342668810742918, 1e-9);
  EXPECT_NEAR(fit.fit[9], 1.1718446986398363, 1e-9);
  // Filled column by column: element (r, 1) = cos(-w[r]) lies at r + M.
  EXPECT_NEAR(fit.A[9 + 10], std::cos(2.0 * M_PI / 5.0), 1e-15);
  // The dump holds column 0 only (na + nb = 1 of the 2 columns), no newline.
  std::string ones;
  for (int r = 0; r < 10; ++r) ones += "         1.000  ";
  EXPECT_EQ(FormatDesignDump(fit, 0, 1), ones);
}

TEST(FilterFit, PoleColumnsCarryTheTargetWithMinusSign) {
  // na = 1, nb = 1: column 0 is -y cos(-w), columns 1 and 2 are 1 and cos(-w).
  FitResult fit;
  std::string error;
  ASSERT_EQ(FitScintFilter(Target({1.0, 11.0, 21.0}, {4.0, 2.0, 0.0}), 1, 1, fit, error), 0)
      << error;
  ASSERT_EQ(fit.M, 20);
  const double f5 = std::log10(6.0), y5 = 3.0;  // point 5 lies halfway between rows 0 and 1
  EXPECT_NEAR(fit.y[5], y5, 1e-15);
  EXPECT_NEAR(fit.A[5], -y5 * std::cos(-f5 * kFitFrequencyScale), 1e-14);
  EXPECT_EQ(fit.A[5 + 20], 1.0);
  EXPECT_NEAR(fit.A[5 + 40], std::cos(f5 * kFitFrequencyScale), 1e-14);
  // The dump: row 0 first (columns 0 and 1), then row 1; -4 cos(0) and 1 lead.
  EXPECT_EQ(FormatDesignDump(fit, 1, 1).substr(0, 32), "        -4.000           1.000  ");
  EXPECT_EQ(FormatDesignDump(fit, 1, 1).size(), 20u * 2u * 16u);
}

TEST(FilterFit, TooFewRowsOrNegativeCountsAreRefused) {
  FitResult fit;
  std::string error;
  EXPECT_EQ(FitScintFilter(Target({1.0}, {1.0}), 0, 0, fit, error), -1);  // M = 0
  EXPECT_NE(error.find("0 rows"), std::string::npos) << error;
  EXPECT_EQ(FitScintFilter(Target({1.0, 2.0}, {1.0, 1.0}), 5, 5, fit, error), -1);  // C 11 > 10
  EXPECT_EQ(FitScintFilter(Target({1.0, 2.0}, {1.0, 1.0}), 0, 9, fit, error), 0);   // C = M
  EXPECT_EQ(FitScintFilter(Target({1.0, 2.0, 3.0}, {1.0, 1.0, 1.0}), 2, -1, fit, error), -1);
  EXPECT_NE(error.find("FilterZeros (-1)"), std::string::npos) << error;
}

TEST(TargetFile, ReadAndRefusedWithFileAndLine) {
  test::ScratchDir dir("scint-target");
  test::WriteFile(dir / "t.txt", "3,1\n0.5,-10\n1.5 ,-20.5\n2.5;-30\n");
  TargetResponse t;
  std::string error;
  ASSERT_EQ(ReadTargetResponse(dir / "t.txt", true, t, error), 0) << error;
  EXPECT_EQ(t.N, 3);
  EXPECT_EQ(t.na, 1);
  EXPECT_EQ(t.x, (std::vector<double>{0.5, 1.5, 2.5}));
  EXPECT_EQ(t.y, (std::vector<double>{-10.0, -20.5, -30.0}));

  test::WriteFile(dir / "n.txt", "3\n0.5,-10\n1.5,-20.5\n2.5,-30\n");
  EXPECT_EQ(ReadTargetResponse(dir / "n.txt", false, t, error), 0) << error;  // the fit: N only
  EXPECT_EQ(ReadTargetResponse(dir / "n.txt", true, t, error), -1);
  EXPECT_NE(error.find("n.txt, line 1"), std::string::npos) << error;

  test::WriteFile(dir / "bad.txt", "3,1\n0.5,-10\n1.5\n2.5,-30\n");
  EXPECT_EQ(ReadTargetResponse(dir / "bad.txt", true, t, error), -1);
  EXPECT_NE(error.find("bad.txt, line 3"), std::string::npos) << error;

  test::WriteFile(dir / "short.txt", "4,1\n0.5,-10\n1.5,-20\n");
  EXPECT_EQ(ReadTargetResponse(dir / "short.txt", true, t, error), -1);
  EXPECT_NE(error.find("ends after line 3"), std::string::npos) << error;

  test::WriteFile(dir / "zero.txt", "2,0\n0,-10\n1.5,-20\n");
  EXPECT_EQ(ReadTargetResponse(dir / "zero.txt", true, t, error), -1);
  EXPECT_NE(error.find("zero.txt, line 2"), std::string::npos) << error;

  EXPECT_EQ(ReadTargetResponse(dir / "missing.txt", true, t, error), -1);
  EXPECT_NE(error.find("missing.txt"), std::string::npos) << error;
}

}  // namespace
}  // namespace vorel::scintillation
