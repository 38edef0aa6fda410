#include "density_model/slant_tec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "density_model/electron_density.h"
#include "density_model/model_data.h"
#include "model_fixture.h"
#include "test_support.h"

namespace vorel::density_model {
namespace {

double Tec(ModelState& st, double lat1, double lon1, double h1, double lat2, double lon2, double h2,
           int month = 4, double flux = 150.0, double ut = 12.0) {
  const double v = SlantTec(st, lat1, lon1, h1, lat2, lon2, h2, month, flux, ut);
  EXPECT_TRUE(st.error.empty()) << st.error;
  return v;
}

// Central angle from the receiver to a satellite at height hs seen at elevation el.
double CentralAngle(double el, double hs) {
  return 90.0 - el - std::asin(kEarthRadius * std::cos(el * kDeg) / (kEarthRadius + hs)) / kDeg;
}

TEST(DoublingRule, ConstantsTakeTwoPassesAndTheUnevenPairsShow) {
  int calls = 0;
  auto constant = [&calls](double) {
    ++calls;
    return 2.5;
  };
  EXPECT_NEAR(IntegrateDoubling(constant, 100.0, 300.0), 500.0, 1e-9);
  EXPECT_EQ(calls, 16 + 32);

  // For f(x) = x on [0, 1] a pass of n pairs gives 1/2 - (n - 1) g / n^2 with g the
  // pair offset 0.5773502691896 (the later pairs lean downwards); the passes never
  // agree to 0.1 %, so the rule runs to n = 512 and ends without a correction.
  calls = 0;
  auto line = [&calls](double x) {
    ++calls;
    return x;
  };
  const double g = 0.5773502691896;
  EXPECT_NEAR(IntegrateDoubling(line, 0.0, 1.0), 0.5 - 511.0 * g / (512.0 * 512.0), 1e-14);
  EXPECT_EQ(calls, 2 * (8 + 16 + 32 + 64 + 128 + 256 + 512));

  // Identical limits: 0 after two passes.
  calls = 0;
  EXPECT_EQ(IntegrateDoubling(line, 7.0, 7.0), 0.0);
  EXPECT_EQ(calls, 48);
}

TEST(RayGeometry, SatelliteDueSouthAtThirtyDegrees) {
  const double psi = CentralAngle(30.0, 20200.0);
  const RayGeometry g = MakeRayGeometry(45.0, 10.0, 0.0, 45.0 - psi, 10.0, 20200.0);
  EXPECT_NEAR(g.zeta, 60.0, 1e-9);
  // The perigee lies behind the receiver, 90 - zeta = 30 degrees north of it, at the
  // foot of the perpendicular: rp = RE sin(zeta).
  EXPECT_NEAR(g.rp, kEarthRadius * std::sin(60.0 * kDeg), 1e-6);
  EXPECT_NEAR(g.latp, 75.0, 1e-9);
  EXPECT_NEAR(g.lonp, 10.0, 1e-9);
  EXPECT_NEAR(g.delta, 30.0 + psi, 1e-9);
  EXPECT_NEAR(g.cossig, -1.0, 1e-12);  // heading south
  EXPECT_NEAR(g.sinsig, 0.0, 1e-12);
  const double ratio = kEarthRadius / (kEarthRadius + 400.0);
  EXPECT_NEAR(g.cchi, std::sqrt(1.0 - std::pow(ratio * std::sin(60.0 * kDeg), 2)), 1e-12);
}

TEST(RayGeometry, SamePlaceIsVerticalAndPoleUsesTheMeridian) {
  RayGeometry g = MakeRayGeometry(45.0, 10.0, 0.0, 45.0 + 5e-6, 10.0 - 5e-6, 20200.0);
  EXPECT_EQ(g.rp, 0.0);
  EXPECT_EQ(g.zeta, 0.0);
  EXPECT_EQ(g.cchi, 1.0);

  // Two ground points on opposite meridians at 80 N: the chord's nearest point to the
  // centre is over the pole, and the ray runs south along the meridian from there.
  g = MakeRayGeometry(80.0, 0.0, 0.0, 80.0, 180.0, 0.0);
  EXPECT_EQ(g.latp, 90.0);
  EXPECT_EQ(g.delta, 10.0);
  EXPECT_EQ(g.sinsig, 0.0);
  EXPECT_EQ(g.cossig, -1.0);
  EXPECT_NEAR(g.rp, kEarthRadius * std::cos(10.0 * kDeg), 1e-6);
  g = MakeRayGeometry(-80.0, 0.0, 0.0, -80.0, 180.0, 0.0);
  EXPECT_EQ(g.latp, -90.0);
  EXPECT_EQ(g.cossig, 1.0);
  // Exactly over the pole the perigee's longitude has no value (0 / 0), and neither has
  // the content; the model must still stay inside its maps.
  auto st = FreshState();
  EXPECT_TRUE(std::isnan(Tec(*st, 80.0, 0.0, 0.0, 80.0, 180.0, 0.0)));
}

TEST(SlantTec, VerticalColumnsAreSensible) {
  for (int month : {1, 4, 7, 10})
    for (double lat : {-60.0, -20.0, 0.0, 35.0, 70.0})
      for (double ut : {0.0, 12.0}) {
        auto st = FreshState();
        const double tec = Tec(*st, lat, 30.0, 0.0, lat, 30.0, 20200.0, month, 120.0, ut);
        EXPECT_GT(tec, 10.0) << lat << " " << month << " " << ut;    // 1 TECU
        EXPECT_LT(tec, 2000.0) << lat << " " << month << " " << ut;  // 200 TECU
      }
  // More sun, more electrons.
  auto a = FreshState(), b = FreshState();
  EXPECT_LT(Tec(*a, 20.0, 30.0, 0.0, 20.0, 30.0, 20200.0, 4, 70.0),
            Tec(*b, 20.0, 30.0, 0.0, 20.0, 30.0, 20200.0, 4, 190.0));
}

TEST(SlantTec, FastColumnEqualsThePlainRuleBitForBit) {
  // Columns of the TEC map, over places, seasons, hours and both branches of the
  // profile (a start below hmF2 and below 100 km included).
  for (int month : {1, 6, 10})
    for (double lat = -89.5; lat < 90.0; lat += 23.0)
      for (double lon = -179.5; lon < 180.0; lon += 41.0)
        for (double h1 : {0.0, 100.0}) {
          auto st = FreshState(), ref = FreshState();
          double l1 = lon, f1 = 110.0, u1 = 7.0, l2 = lon, f2 = 110.0, u2 = 7.0;
          const double tec = SlantTec(*st, lat, l1, h1, lat, l2, 20000.0, month, f1, u1);
          ElectronDensity(*ref, 20000.0, lat, l2, month, f2, u2);
          auto f = [&ref](double h) { return ElectronDensityHeight(*ref, h); };
          ASSERT_EQ(tec, IntegrateDoubling(f, h1, 20000.0) / 1e12) << lat << " " << lon;
        }
  // A ground point below 0 is integrated from 0.
  auto a = FreshState(), b = FreshState();
  EXPECT_EQ(Tec(*a, 45.0, 10.0, -0.5, 45.0, 10.0, 1000.0),
            Tec(*b, 45.0, 10.0, 0.0, 45.0, 10.0, 1000.0));
}

TEST(SlantTec, NearVerticalRayAgreesWithTheVerticalOne) {
  auto st = FreshState();
  const double vertical = Tec(*st, 45.0, 10.0, 0.0, 45.0, 10.0, 20200.0);
  const double near = Tec(*st, 45.0, 10.0, 0.0, 45.0 + 0.01, 10.0, 20200.0);
  EXPECT_NEAR(near, vertical, 0.002 * vertical);

  // rp from 0.1 up to the single-precision 0.1 still counts as vertical. Such a ray:
  // a fixed small offset of point 2, and its height found by bisection (rp shrinks as
  // point 2 rises).
  const double offset = 3e-4;
  double lo = 1000.0, hi = 1e7;
  RayGeometry g;
  for (int i = 0; i < 300; ++i) {
    const double mid = 0.5 * (lo + hi);
    g = MakeRayGeometry(45.0, 10.0, 0.0, 45.0 + offset, 10.0, mid);
    if (g.rp >= 0.1 && g.rp < kVerticalRp) {
      lo = mid;
      break;
    }
    (g.rp >= kVerticalRp ? lo : hi) = mid;
  }
  ASSERT_TRUE(g.rp >= 0.1 && g.rp < kVerticalRp) << g.rp;
  EXPECT_NE(g.cossig, 0.0);  // the perigee's angles were worked
  EXPECT_EQ(Tec(*st, 45.0, 10.0, 0.0, 45.0 + offset, 10.0, lo),
            Tec(*st, 45.0, 10.0, 0.0, 45.0, 10.0, lo));
}

TEST(SlantTec, LowerElevationsSeeMoreElectrons) {
  auto st = FreshState();
  const double vertical = Tec(*st, 45.0, 10.0, 0.0, 45.0, 10.0, 20200.0);
  double previous = vertical;
  for (double el : {60.0, 30.0, 10.0}) {
    const double psi = CentralAngle(el, 20200.0);
    const double tec = Tec(*st, 45.0, 10.0, 0.0, 45.0 - psi, 10.0, 20200.0);
    // Against the thin-shell mapping at 350 km: a ray looking south from 45 N meets
    // denser plasma than the column overhead, so it grows faster, but not wildly.
    const double sinZ = kEarthRadius / (kEarthRadius + 350.0) * std::cos(el * kDeg);
    const double mapping = 1.0 / std::sqrt(1.0 - sinZ * sinZ);
    EXPECT_GT(tec, previous);
    EXPECT_GT(tec / vertical, mapping) << "elevation " << el;
    EXPECT_LT(tec / vertical, 2.0 * mapping) << "elevation " << el;
    previous = tec;
  }
}

TEST(SlantTec, WritesBackLongitudeFluxAndHour) {
  auto st = FreshState();
  double lon1 = -10.0, flux = 250.0, ut = 25.0;
  SlantTec(*st, 45.0, lon1, 0.0, 40.0, 5.0, 20200.0, 4, flux, ut);
  EXPECT_EQ(lon1, 350.0);
  EXPECT_EQ(flux, 193.0);
  EXPECT_EQ(ut, 1.0);
}

}  // namespace
}  // namespace vorel::density_model
