// The profile plot's axes: six decades or a linear 1e13 over 220 pixels, 1000 km over 376.

#include "display/profile_plot.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorel::display {
namespace {

TEST(ProfilePlot, DensityAndHeightToPlotPixels) {
  EXPECT_DOUBLE_EQ(ProfileX(1e7, 0), 0.0);
  EXPECT_NEAR(ProfileX(1e10, 0), 110.0, 1e-9);  // three decades of six
  EXPECT_NEAR(ProfileX(1e13, 0), 220.0, 1e-9);
  EXPECT_NEAR(ProfileX(5e12, 1), 110.0, 1e-9);
  EXPECT_NEAR(ProfileX(2.5e12, 1), 55.0, 1e-9);
  // No density is no point at minus infinity: it stays just off the plot.
  EXPECT_TRUE(std::isfinite(ProfileX(0.0, 0)));
  EXPECT_LT(ProfileX(0.0, 0), 0.0);
  EXPECT_GT(ProfileX(1e20, 1), 220.0);
  // The k-th density is drawn one kilometre up: (1000 - (k + 1)) 0.376.
  EXPECT_NEAR(ProfileY(0), 375.624, 1e-9);
  EXPECT_NEAR(ProfileY(499), 188.0, 1e-9);
  EXPECT_NEAR(ProfileY(999), 0.0, 1e-9);
}

TEST(ProfilePlot, ProfilesAreDrawnOverOneAnotherUntilCleared) {
  ProfilePlot plot;
  const std::vector<double> log(1000, 1e10), linear(1000, 2.5e12);
  plot.Draw(log, 0, 0x0000FF);
  // A constant 1e10 is the column at x 110 of the plot area, at every height.
  const int y = kProfileTop + 188;
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 110, y), 0xFF0000FFu);
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 110, kProfileTop + 10), 0xFF0000FFu);
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 112, y), 0xFFFFFFFFu);
  plot.Draw(linear, 1, 0x00FF00);
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 55, y), 0xFF00FF00u);
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 110, y), 0xFF0000FFu);  // still there
  plot.Clear();
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 110, y), 0xFFFFFFFFu);
  EXPECT_EQ(plot.canvas().Pixel(kProfileLeft + 55, y), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace vorel::display
