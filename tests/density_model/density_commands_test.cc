#include "density_model/density_commands.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "density_model/electron_density.h"
#include "density_model/slant_tec.h"
#include "model_fixture.h"
#include "test_support.h"

namespace vorel::density_model {
namespace {

TEST(ProfileCommand, DefaultsGiveThePlotsThousandHeights) {
  auto st = FreshState();
  ProfileArgs args;
  args.lat = 45.0, args.lon = 10.0, args.month = 4, args.ut = 12.0, args.flux = 150.0;
  std::string out, error;
  ASSERT_EQ(RunProfile(*st, args, out, error), 0) << error;
  const auto lines = test::SplitLines(out);
  ASSERT_EQ(lines.size(), 1000u);
  // Each line: height, density; the density is the model's at that height.
  auto ref = FreshState();
  double lon = 10.0, flux = 150.0, ut = 12.0;
  ElectronDensity(*ref, 0.0, 45.0, lon, 4, flux, ut);
  for (int h : {0, 99, 100, 350, 999}) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.3f %.6e", double(h),
                  ElectronDensityHeight(*ref, h));
    EXPECT_EQ(lines[h], expected);
  }
  EXPECT_EQ(lines.front().substr(0, 6), "0.000 ");
  EXPECT_EQ(lines.back().substr(0, 8), "999.000 ");

  // A range of our own, by halves.
  out.clear();
  args.hmin = 200.0, args.hmax = 202.0, args.step = 0.5;
  ASSERT_EQ(RunProfile(*st, args, out, error), 0);
  ASSERT_EQ(test::SplitLines(out).size(), 4u);
  EXPECT_EQ(test::SplitLines(out)[3].substr(0, 8), "201.500 ");
}

TEST(ProfileCommand, BadArgumentsAndMissingDataWriteNothing) {
  auto st = FreshState();
  std::string out, error;
  ProfileArgs args;
  args.flux = 100.0;
  args.month = 13;
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--month"), std::string::npos);
  args.month = 3, args.step = 0.0;
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--step"), std::string::npos);
  args.step = 1.0, args.lat = 91.0;
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--lat"), std::string::npos);
  args.lat = 0.0, args.hmax = -5.0;
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--hmax"), std::string::npos);
  EXPECT_TRUE(out.empty());

  test::ScratchDir empty("profile-nodata");
  auto bare = StateIn(empty);
  args.hmax = 1000.0;
  EXPECT_EQ(RunProfile(*bare, args, out, error), -1);
  EXPECT_NE(error.find("DIPLATS.ASC"), std::string::npos);
  EXPECT_NE(error.find(empty.path().string()), std::string::npos);
  EXPECT_TRUE(out.empty());
}

TEST(ProfileCommand, StepLostInTheHeightsRoundingIsRefusedNotLoopedOn) {
  // Doubles near 1e17 are 16 apart: adding a step of 1 leaves the height where it was,
  // and the range holds only about 60 heights, so the count check alone lets it through.
  auto st = FreshState();
  ProfileArgs args;
  args.flux = 100.0, args.month = 3;
  std::string out = "kept\n", error;
  for (double base : {1e17, -1e17}) {
    args.hmin = base, args.hmax = base + 1000.0, args.step = 1.0;
    EXPECT_EQ(RunProfile(*st, args, out, error), -1) << base;
    EXPECT_NE(error.find("--step 1 is lost in the rounding"), std::string::npos) << error;
  }
  // Far from the top end of the range: the step is lost at hmax only.
  args.hmin = 0.0, args.hmax = 1e17, args.step = 4.0;
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--step"), std::string::npos);
  args.hmin = 0.0, args.hmax = 10.0, args.step = 1e-320;  // subnormal, lost at once
  EXPECT_EQ(RunProfile(*st, args, out, error), -1);
  EXPECT_NE(error.find("--step"), std::string::npos);
  EXPECT_EQ(out, "kept\n");

  // A step that is not lost near 1e17 works: 32 is two spacings.
  args.hmin = 1e17, args.hmax = 1e17 + 96.0, args.step = 32.0;
  ASSERT_EQ(RunProfile(*st, args, out, error), 0) << error;
  EXPECT_EQ(test::SplitLines(out).size(), 4u);  // "kept" and three heights
}

TEST(TecCommand, PrintsContentAndL1Delay) {
  auto st = FreshState();
  TecArgs args;
  args.lat1 = 45.0, args.lon1 = 10.0, args.h1 = 0.0;
  args.lat2 = 20.0, args.lon2 = 15.0, args.h2 = 20200.0;
  args.month = 4, args.ut = 12.0, args.flux = 150.0;
  std::string out, error;
  ASSERT_EQ(RunTec(*st, args, out, error), 0) << error;
  double tec = 0.0, tecu = 0.0, delay = 0.0;
  const auto lines = test::SplitLines(out);
  ASSERT_EQ(lines.size(), 2u) << out;
  EXPECT_EQ(lines[0], "# TEC (1e15 el/m2), TECU (1e16 el/m2), L1 delay (m)");
  ASSERT_EQ(std::sscanf(lines[1].c_str(), "%lf %lf %lf", &tec, &tecu, &delay), 3) << out;
  EXPECT_EQ(out.back(), '\n');
  EXPECT_NEAR(tecu, tec / 10.0, 1e-6);
  EXPECT_NEAR(delay, tec * 0.0162, 1e-6);
  auto ref = FreshState();
  double lon1 = 10.0, flux = 150.0, ut = 12.0;
  EXPECT_NEAR(tec, SlantTec(*ref, 45.0, lon1, 0.0, 20.0, 15.0, 20200.0, 4, flux, ut), 5e-7);

  // The points may come in either order: the lower one starts the ray.
  std::string swapped;
  TecArgs reversed = args;
  std::swap(reversed.lat1, reversed.lat2);
  std::swap(reversed.lon1, reversed.lon2);
  std::swap(reversed.h1, reversed.h2);
  auto st2 = FreshState();
  ASSERT_EQ(RunTec(*st2, reversed, swapped, error), 0);
  EXPECT_EQ(swapped, out);

  args.flux = -5.0;
  std::string none;
  EXPECT_EQ(RunTec(*st, args, none, error), -1);
  EXPECT_NE(error.find("--flux"), std::string::npos);
  EXPECT_TRUE(none.empty());
}

}  // namespace
}  // namespace vorel::density_model
