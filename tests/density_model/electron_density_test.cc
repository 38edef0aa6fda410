#include "density_model/electron_density.h"

#include <cmath>
#include <memory>

#include <gtest/gtest.h>

#include "density_model/model_data.h"
#include "model_fixture.h"
#include "test_support.h"

namespace vorel::density_model {
namespace {

double Request(ModelState& st, double h, double lat, double lon, int month, double flux,
               double ut) {
  const double v = ElectronDensity(st, h, lat, lon, month, flux, ut);
  EXPECT_TRUE(st.error.empty()) << st.error;
  return v;
}

TEST(ElectronDensity, SunspotNumberAndDeclination) {
  auto st = FreshState();
  Request(*st, 300.0, 0.0, 0.0, 6, 150.0, 18.0);
  EXPECT_NEAR(st->R12, 105.05248851627039, 1e-9);  // sqrt(86.3 1123.6 + 167273) - 408.99

  // The sun's declination against Spencer's Fourier series (radians), for the day of
  // year the model takes: month 30.5 - 15 + (18 - ut) / 24.
  for (int month : {1, 3, 4, 6, 9, 12}) {
    double s, c;
    SolarDeclination(month, 18.0, s, c);
    const double g = 2.0 * kPi * (month * 30.5 - 15.0 - 1.0) / 365.0;
    const double decl = 0.006918 - 0.399912 * std::cos(g) + 0.070257 * std::sin(g) -
                        0.006758 * std::cos(2 * g) + 0.000907 * std::sin(2 * g) -
                        0.002697 * std::cos(3 * g) + 0.00148 * std::sin(3 * g);
    EXPECT_NEAR(s, std::sin(decl), 0.003) << "month " << month;
    EXPECT_NEAR(s * s + c * c, 1.0, 1e-15);
  }

  // A flux of 0 on a fresh state equals the kept flux: R12 keeps its start value.
  auto fresh = FreshState();
  Request(*fresh, 300.0, 0.0, 0.0, 6, 0.0, 12.0);
  EXPECT_EQ(fresh->R12, 0.0);
}

TEST(ElectronDensity, PeakHeightByHand) {
  // With no E layer the correction is -0.012: hmF2 = 3 sqrt(1.1764 / 10.6703) 1490 /
  // 2.988 - 176.
  EXPECT_NEAR(PeakHeightF2(0.0, 9.0, 3.0), 320.72511950246076, 1e-9);
  // foF2 / foE = 3, far above the 1.75 join: dM = 0.253 / 1.785 - 0.012.
  EXPECT_NEAR(PeakHeightF2(3.0, 9.0, 3.0), 298.2298799757218, 1e-9);
}

TEST(ElectronDensity, SmoothJoinAndClippedExp) {
  EXPECT_EQ(ClippedExp(81.0), 5.5406e+34);
  EXPECT_EQ(ClippedExp(-81.0), 1.8049e-35);
  EXPECT_EQ(ClippedExp(1.0), std::exp(1.0));
  EXPECT_NEAR(SmoothJoin(3.0, 7.0, 12.0, 5.0), 3.0, 1e-15);
  EXPECT_NEAR(SmoothJoin(3.0, 7.0, 12.0, -5.0), 7.0, 1e-15);
  EXPECT_EQ(SmoothJoin(3.0, 7.0, 12.0, 0.0), 5.0);
}

TEST(ElectronDensity, ProfileHasItsPeakAtHmF2AndIsContinuousThere) {
  struct Case { double lat, lon; int month; double flux, ut; };
  for (const Case c : {Case{45.0, 10.0, 4, 150.0, 12.0}, Case{-30.0, 140.0, 12, 80.0, 3.0},
                       Case{5.0, -60.0, 7, 190.0, 20.0}, Case{70.0, 300.0, 1, 70.0, 0.0}}) {
    auto st = FreshState();
    Request(*st, 300.0, c.lat, c.lon, c.month, c.flux, c.ut);
    const double hmF2 = st->HM[0];
    EXPECT_GT(hmF2, 150.0);
    EXPECT_LT(hmF2, 500.0);
    EXPECT_GT(st->foF2, 1.0);
    EXPECT_LT(st->foF2, 20.0);
    EXPECT_GT(st->M3000, 2.0);
    EXPECT_LT(st->M3000, 4.0);
    // The peak density is the published 1.24e10 foF2^2 (m^-3, MHz): the other layers
    // vanish at hmF2.
    EXPECT_NEAR(st->NmF2, 0.12399999797344208e11 * st->foF2 * st->foF2, 1e-6 * st->NmF2);
    // h = hmF2 is the bottomside; just above is the topside; both meet NmF2.
    EXPECT_EQ(ElectronDensityHeight(*st, hmF2), st->NmF2);
    EXPECT_NEAR(ElectronDensityHeight(*st, hmF2 + 1e-6), st->NmF2, 1e-9 * st->NmF2);
    EXPECT_NEAR(ElectronDensityHeight(*st, hmF2 - 1e-6), st->NmF2, 1e-9 * st->NmF2);
    // Positive everywhere, highest at hmF2 on a 1 km scan.
    double best = 0.0, bestH = 0.0;
    for (double h = 100.0; h <= 3000.0; h += 1.0) {
      const double n = ElectronDensityHeight(*st, h);
      ASSERT_GT(n, 0.0) << "h " << h;
      if (n > best) best = n, bestH = h;
    }
    EXPECT_NEAR(bestH, hmF2, 1.0);
    EXPECT_LE(best, st->NmF2);
  }
}

TEST(ElectronDensity, HeightAtOrBelowHmF2AndAt100Km) {
  auto st = FreshState();
  Request(*st, 50.0, 45.0, 10.0, 4, 150.0, 12.0);  // sets N100 here
  const double n100Here = st->N100;
  // Density at exactly 100 km from the lower branch would be N100 itself.
  EXPECT_EQ(ElectronDensityHeight(*st, 100.0 - 0.0), BottomsideDensity(*st, 100.0));
  EXPECT_NEAR(ElectronDensityHeight(*st, 100.0), n100Here, 1e-9 * n100Here);

  // Elsewhere, 100 km still takes the upper branch: it agrees with a fresh program
  // start at that place, not with the kept N100.
  const double there = Request(*st, 100.0, -20.0, 200.0, 10, 90.0, 2.0);
  auto fresh = FreshState();
  EXPECT_EQ(there, Request(*fresh, 100.0, -20.0, 200.0, 10, 90.0, 2.0));
  EXPECT_GT(std::fabs(there - n100Here), 0.01 * n100Here);
}

TEST(ElectronDensity, N100AndBFAreWorkedOnceInAProgramStart) {
  auto st = FreshState();
  EXPECT_EQ(st->N100, -1.0);
  const double a = Request(*st, 80.0, 45.0, 10.0, 4, 150.0, 12.0);
  const double n100 = st->N100, bf = st->BF;
  EXPECT_GT(n100, 0.0);
  // Another place, month, flux and hour below 100 km: the same N100 and BF, and the
  // density depends on the height alone.
  const double b = Request(*st, 80.0, -40.0, 250.0, 11, 70.0, 3.0);
  EXPECT_EQ(st->N100, n100);
  EXPECT_EQ(st->BF, bf);
  EXPECT_EQ(a, b);
  // A fresh program start at the second place gives its own value.
  auto fresh = FreshState();
  EXPECT_NE(Request(*fresh, 80.0, -40.0, 250.0, 11, 70.0, 3.0), b);
  // Below 100 km the density falls with height.
  EXPECT_LT(ElectronDensityHeight(*st, 70.0), ElectronDensityHeight(*st, 90.0));
}

TEST(ElectronDensity, RequestsWithTheSameMonthReuseTheLoadedMaps) {
  test::ScratchDir dir("density-cache");
  auto st = StateIn(dir, {"DIPLATS.ASC", "CCIR15.ASC"});
  const double first = Request(*st, 250.0, 10.0, 20.0, 5, 120.0, 9.0);
  std::filesystem::remove(dir / "CCIR15.ASC");
  std::filesystem::remove(dir / "DIPLATS.ASC");
  EXPECT_EQ(Request(*st, 250.0, 10.0, 20.0, 5, 120.0, 9.0), first);
  // Another month needs its file: the failure is reported and the model stops.
  double lon = 20.0, flux = 120.0, ut = 9.0;
  EXPECT_EQ(ElectronDensity(*st, 250.0, 10.0, lon, 6, flux, ut), 0.0);
  EXPECT_NE(st->error.find("CCIR16.ASC"), std::string::npos);
  EXPECT_EQ(ElectronDensity(*st, 250.0, 10.0, lon, 5, flux, ut), 0.0);
  EXPECT_EQ(ElectronDensityAt(*st, 250.0, 10.0, 20.0), 0.0);
}

}  // namespace
}  // namespace vorel::density_model
