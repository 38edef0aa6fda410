#include "density_model/model_data.h"

#include <cmath>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model_fixture.h"
#include "test_support.h"

namespace vorel::density_model {
namespace {

// The test's own reader: every number of a file, in order, read by the C++ stream.
std::vector<double> AllNumbers(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::vector<double> values;
  double v;
  while (in >> v) values.push_back(v);
  return values;
}

TEST(Interpolate4, ReproducesCubicsAndReturnsTheSecondValueAtZero) {
  // Four equally spaced samples of a cubic at -1, 0, 1, 2 determine it: the rule is
  // the cubic through them.
  auto p = [](double x) { return 2.0 * x * x * x - 3.0 * x * x + 0.5 * x + 7.0; };
  const double z[4] = {p(-1.0), p(0.0), p(1.0), p(2.0)};
  for (double x : {0.0, 0.1, 0.25, 0.5, 0.9, 1.0}) EXPECT_NEAR(Interpolate4(z, x), p(x), 1e-12);

  // At x = 0 the second value comes back untouched, whatever the others hold.
  const double odd[4] = {std::nan(""), -3.25, HUGE_VAL, std::nan("")};
  EXPECT_EQ(Interpolate4(odd, 0.0), -3.25);
}

TEST(DipLatitude, GridPointsGiveTheFileValues) {
  auto state = FreshState();
  ASSERT_EQ(LoadDipLatitudes(*state), 0) << state->error;
  const std::vector<double> file = AllNumbers(test::DataDir() / "nequick" / "DIPLATS.ASC");
  ASSERT_EQ(file.size(), 37u * 37u);
  // Row r is latitude (r - 1) 5 - 90, place c longitude (c - 1) 10 - 180. The poles
  // themselves lie outside what the model may be asked.
  for (int r = 2; r <= 37; r += 5) {
    for (int c = 1; c <= 37; c += 4) {
      const double lat = (r - 1) * 5.0 - 90.0, lon = (c - 1) * 10.0 - 180.0;
      EXPECT_NEAR(DipLatitudeAt(*state, lat, lon), file[(r - 1) * 37 + (c - 1)], 1e-9)
          << "lat " << lat << " lon " << lon;
    }
  }
  // Longitudes beyond 180 go round: 190 is -170, 530 is 170.
  EXPECT_NEAR(DipLatitudeAt(*state, 40.0, 190.0), DipLatitudeAt(*state, 40.0, -170.0), 1e-12);
  EXPECT_NEAR(DipLatitudeAt(*state, 40.0, 530.0), DipLatitudeAt(*state, 40.0, 170.0), 1e-12);
}

TEST(DipLatitude, PaddingStepsOverThePole) {
  auto state = FreshState();
  ASSERT_EQ(LoadDipLatitudes(*state), 0) << state->error;
  const std::vector<double> file = AllNumbers(test::DataDir() / "nequick" / "DIPLATS.ASC");
  // Row 0 is the row at -85 half a turn away; row 38 the row at 85 half a turn away.
  EXPECT_EQ(state->PDIP[0][0 + 1], file[1 * 37 + 18]);   // s = 0 from (2, 18)
  EXPECT_EQ(state->PDIP[0][20 + 1], file[1 * 37 + 2]);   // s = 20 from (2, 2)
  EXPECT_EQ(state->PDIP[38][5 + 1], file[35 * 37 + 23]); // s = 5 from (36, 23)
  // Longitude -1 is 35 and 37 is 1, in every row including the padded ones.
  EXPECT_EQ(state->PDIP[10][0], state->PDIP[10][35 + 1]);
  EXPECT_EQ(state->PDIP[0][37 + 1], state->PDIP[0][1 + 1]);
}

TEST(DipLatitude, StencilsWrapInLongitude) {
  // A map that holds its own longitude index: interpolation of a straight line is
  // exact, so the result tells which columns were read.
  auto state = std::make_unique<ModelState>();
  for (int L = 0; L <= 38; ++L)
    for (int s = -1; s <= 37; ++s) state->PDIP[L][s + 1] = s;
  EXPECT_NEAR(DipLatitudeAt(*state, 12.0, 0.0), 18.0, 1e-12);   // stencil 17..20
  EXPECT_NEAR(DipLatitudeAt(*state, 12.0, 179.0), 35.9, 1e-12); // stencil 34..37
  EXPECT_NEAR(DipLatitudeAt(*state, 12.0, 180.0), 0.0, 1e-12);  // stencil -1..2
  EXPECT_NEAR(DipLatitudeAt(*state, 12.0, 190.0), 1.0, 1e-12);  // stencil 0..3
  EXPECT_NEAR(DipLatitudeAt(*state, 12.0, -179.9), 0.01, 1e-12);
  // Far outside what callers pass, the map is still read inside its bounds.
  for (double lon : {540.0, 1000.0, -400.0, 1e300, std::nan("")})
    for (double lat : {-90.0, -95.0, 91.0, 1e300, std::nan("")}) (void)DipLatitudeAt(*state, lat, lon);
}

// The map series evaluated the plain way: each row a Fourier sum in the hour, times
// powers of sin(modip), cos(lat) and the longitude harmonics, all from library calls.
double DirectSeries(const double* coef, int harmonics, const int* nq, int orders, int stride,
                    double modip, double lat, double lon, double ut) {
  const double deg = kDeg;
  const double T = (ut * 15.0 - 180.0) * deg;
  auto row = [&](int r) {
    const double* c = coef + r * stride;
    double v = c[0];
    for (int k = 1; k <= harmonics; ++k) v += c[2 * k - 1] * std::sin(k * T) + c[2 * k] * std::cos(k * T);
    return v;
  };
  const double sm = std::sin(modip * deg), cl = std::cos(lat * deg);
  double sum = 0.0;
  int r = 0;
  for (int p = 0; p <= nq[0]; ++p) sum += row(r++) * std::pow(sm, p);
  for (int m = 1; m < orders; ++m) {
    for (int p = 0; p <= nq[m]; ++p) {
      const double base = std::pow(sm, p) * std::pow(cl, m);
      sum += row(r++) * base * std::cos(m * lon * deg);
      sum += row(r++) * base * std::sin(m * lon * deg);
    }
  }
  return sum;
}

TEST(CcirMaps, AgreeWithADirectEvaluationOfTheSeries) {
  auto state = FreshState();
  double foF2 = 0.0, m3000 = 0.0;
  ASSERT_EQ(CcirMaps(*state, 30.0, 4, 12.0, 80.0, 40.0, 10.0, foF2, m3000), 0) << state->error;
  for (double modip : {-70.0, -12.5, 0.0, 33.0, 80.0})
    for (double lon : {-170.0, 0.0, 95.0, 350.0})
      for (double ut : {0.0, 7.5, 12.0, 23.9}) {
        const double lat = 0.6 * modip + 3.0;
        ASSERT_EQ(CcirMaps(*state, modip, 4, ut, 80.0, lat, lon, foF2, m3000), 0);
        EXPECT_NEAR(foF2, DirectSeries(state->CF2, 6, kNqF2, 9, 13, modip, lat, lon, ut), 1e-9);
        EXPECT_NEAR(m3000, DirectSeries(state->CM3, 4, kNqFm3, 7, 9, modip, lat, lon, ut), 1e-9);
      }
}

TEST(CcirMaps, KeptHourRowsGiveMapValueBitForBit) {
  auto state = FreshState();
  double foF2 = 0.0, m3000 = 0.0;
  for (double r12 : {10.0, 150.0})
    for (double ut : {0.0, 13.25})
      for (double modip = -85.0; modip <= 85.0; modip += 17.0)
        for (double lon = -180.0; lon <= 540.0; lon += 37.0) {
          const double lat = 0.8 * modip;
          ASSERT_EQ(CcirMaps(*state, modip, 9, ut, r12, lat, lon, foF2, m3000), 0);
          EXPECT_EQ(foF2, MapValue(modip, lat, lon, ut, 6, kNqF2, 9, 76, 13, 988, state->CF2));
          EXPECT_EQ(m3000, MapValue(modip, lat, lon, ut, 4, kNqFm3, 7, 49, 9, 441, state->CM3));
        }
  // sin(modip) = 0 exactly: the powers stop at the first test.
  ASSERT_EQ(CcirMaps(*state, 0.0, 9, 5.0, 10.0, 0.0, 20.0, foF2, m3000), 0);
  EXPECT_EQ(foF2, MapValue(0.0, 0.0, 20.0, 5.0, 6, kNqF2, 9, 76, 13, 988, state->CF2));
}

TEST(CcirMaps, MixIsLinearInR12WithoutClip) {
  auto state = FreshState();
  const std::vector<double> file = AllNumbers(test::DataDir() / "nequick" / "CCIR17.ASC");
  ASSERT_EQ(file.size(), 1976u + 882u);
  double foF2, m3000;
  ASSERT_EQ(CcirMaps(*state, 10.0, 7, 3.0, 150.0, 5.0, 20.0, foF2, m3000), 0);
  // F2(k, j, l) sits at (k - 1) + 13 (j - 1) + 988 (l - 1); FM3 after all of F2.
  for (int at : {0, 5, 500, 987}) {
    EXPECT_NEAR(state->CF2[at], file[at] * -0.5 + file[at + 988] * 1.5, 1e-12);
  }
  for (int at : {0, 8, 440}) {
    EXPECT_NEAR(state->CM3[at], file[1976 + at] * -0.5 + file[1976 + at + 441] * 1.5, 1e-12);
  }
}

TEST(CcirMaps, SameMonthAndR12ReadAndMixNothing) {
  test::ScratchDir dir("ccir-cache");
  auto state = StateIn(dir, {"CCIR13.ASC", "CCIR14.ASC"});
  double f1, m1, f2, m2;
  ASSERT_EQ(CcirMaps(*state, 20.0, 3, 10.0, 50.0, 15.0, 30.0, f1, m1), 0);
  // With the file gone and the mix tampered with, a same-month, same-R12 request must
  // still work, from the mix as it stands.
  std::filesystem::remove(dir / "CCIR13.ASC");
  state->F2[0] += 1.0;
  const double mixed = state->CF2[0];
  ASSERT_EQ(CcirMaps(*state, 20.0, 3, 10.0, 50.0, 15.0, 30.0, f2, m2), 0) << state->error;
  EXPECT_EQ(f1, f2);
  EXPECT_EQ(m1, m2);
  EXPECT_EQ(state->CF2[0], mixed);
  // A new R12 mixes again (from the tampered data), still without reading.
  ASSERT_EQ(CcirMaps(*state, 20.0, 3, 10.0, 60.0, 15.0, 30.0, f2, m2), 0);
  EXPECT_NE(state->CF2[0], mixed);
  // Another month is read from its own file; going back needs the removed file.
  ASSERT_EQ(CcirMaps(*state, 20.0, 4, 10.0, 60.0, 15.0, 30.0, f2, m2), 0);
  EXPECT_EQ(state->loadedMonth, 4);
  EXPECT_EQ(CcirMaps(*state, 20.0, 3, 10.0, 60.0, 15.0, 30.0, f2, m2), -1);
  EXPECT_NE(state->error.find("CCIR13.ASC"), std::string::npos);
}

TEST(ModelFiles, MissingFileNamesTheFileAndEveryPlaceSearched) {
  test::ScratchDir a("nequick-a"), b("nequick-b");
  auto state = std::make_unique<ModelState>();
  state->searchDirs = {a.path(), b.path()};
  EXPECT_EQ(LoadDipLatitudes(*state), -1);
  EXPECT_NE(state->error.find("DIPLATS.ASC"), std::string::npos);
  EXPECT_NE(state->error.find(a.path().string()), std::string::npos);
  EXPECT_NE(state->error.find(b.path().string()), std::string::npos);

  // The first directory that has the file wins.
  std::filesystem::copy_file(test::DataDir() / "nequick" / "DIPLATS.ASC", b / "DIPLATS.ASC");
  state->error.clear();
  EXPECT_EQ(LoadDipLatitudes(*state), 0);

  // A month outside 1..12 names a file that does not exist.
  double f, m;
  EXPECT_EQ(CcirMaps(*state, 0.0, 0, 0.0, 0.0, 0.0, 0.0, f, m), -1);
  EXPECT_NE(state->error.find("CCIR10.ASC"), std::string::npos);

  const auto dirs = ModelSearchDirs("/some/data");
  ASSERT_GE(dirs.size(), 2u);
  EXPECT_EQ(dirs[0], std::filesystem::path("/some/data/NEQUICK"));
}

TEST(ModelFiles, DamagedFilesAreReportedWithTheirLine) {
  test::ScratchDir dir("nequick-bad");
  auto state = StateIn(dir);

  // Short by its last line.
  std::string text = test::ReadFile(test::DataDir() / "nequick" / "CCIR11.ASC");
  test::WriteFile(dir / "CCIR11.ASC", text.substr(0, text.rfind('\n', text.size() - 2) + 1));
  double f, m;
  EXPECT_EQ(CcirMaps(*state, 0.0, 1, 0.0, 0.0, 0.0, 0.0, f, m), -1);
  EXPECT_NE(state->error.find("CCIR11.ASC"), std::string::npos);
  EXPECT_NE(state->error.find("line 714"), std::string::npos) << state->error;
  EXPECT_EQ(state->loadedMonth, 13);

  // A word where a number belongs.
  std::string bad = text;
  bad.replace(bad.find('\n') + 1 + 16, 16, "   not a number ");
  test::WriteFile(dir / "CCIR12.ASC", bad);
  state->error.clear();
  EXPECT_EQ(CcirMaps(*state, 0.0, 2, 0.0, 0.0, 0.0, 0.0, f, m), -1);
  EXPECT_NE(state->error.find("line 2, field 2"), std::string::npos) << state->error;

  test::WriteFile(dir / "DIPLATS.ASC", "1 2 3\n4 x 6\n");
  state->error.clear();
  EXPECT_EQ(LoadDipLatitudes(*state), -1);
  EXPECT_NE(state->error.find("line 2"), std::string::npos) << state->error;
  EXPECT_FALSE(state->dipLoaded);
}

}  // namespace
}  // namespace vorel::density_model
