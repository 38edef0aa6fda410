// The ionosphere along the ray: the ray-plane intersection worked by hand, a bubble that
// a ray crosses and one beside it, the class thresholds, and the record's row rules.
#include "atmosphere/slant_iono.h"

#include <gtest/gtest.h>

#include <cmath>

#include "../density_model/model_fixture.h"
#include "density_model/slant_tec.h"
#include "gnss/time_coords.h"
#include "platform/text_file.h"
#include "test_support.h"

namespace vorel::atmosphere {
namespace {

constexpr double kA = 6378137.0;

TEST(RayPlaneHit, HandWorkedHitParallelRayFarPlaneAndHighHit) {
  // The plane x = R (normal along x); the satellite on the x axis looks straight down it.
  auto plane = [](double R, double a[3], double b[3], double c[3]) {
    a[0] = b[0] = c[0] = R;
    a[1] = a[2] = 0.0;
    b[1] = 0.0, b[2] = 1e6;
    c[1] = 1e6, c[2] = 0.0;
  };
  double a[3], b[3], c[3], lat = -1, lon = -1, h = -1;
  const double sat[3] = {kA + 20000e3, 0.0, 0.0};
  const double los[3] = {1.0, 0.0, 0.0};
  plane(kA + 500e3, a, b, c);
  // The hit is 19,500 km from the satellite, on the equator at longitude 0, 500 km up.
  ASSERT_EQ(RayPlaneHit(a, b, c, los, sat, 20000e3, lat, lon, h), 1);
  EXPECT_NEAR(lat, 0.0, 1e-9);
  EXPECT_NEAR(lon, 0.0, 1e-9);
  EXPECT_NEAR(h, 500.0, 1e-6);
  EXPECT_EQ(RayPlaneHit(a, b, c, los, sat, 19499e3, lat, lon, h), -1);  // plane beyond the range
  const double sideways[3] = {0.0, 1.0, 0.0};
  EXPECT_EQ(RayPlaneHit(a, b, c, sideways, sat, 20000e3, lat, lon, h), -2);
  plane(kA + 1500e3, a, b, c);
  EXPECT_EQ(RayPlaneHit(a, b, c, los, sat, 20000e3, lat, lon, h), -3);  // above 1000 km
}

TEST(BubbleClass, Thresholds) {
  EXPECT_EQ(BubbleClassOf(0.0), 0);
  EXPECT_EQ(BubbleClassOf(1.0), 0);
  EXPECT_EQ(BubbleClassOf(std::nextafter(1.0, 2.0)), 1);
  EXPECT_EQ(BubbleClassOf(3.0), 1);
  EXPECT_EQ(BubbleClassOf(5.0), 2);
  EXPECT_EQ(BubbleClassOf(5.01), 3);
}

// A receiver on the equator at longitude 0 and a satellite low in the east: the ray
// climbs through the ionosphere over the first degrees east.
class SlantIonoTest : public ::testing::Test {
 protected:
  SlantIonoTest() : model(density_model::FreshState()) {
    gnss::Ecef r, s;
    gnss::GeodeticToEcef(0.0, 0.0, 0.0, r);
    gnss::GeodeticToEcef(0.0, 45.0, 20200e3, s);
    sat[0] = s.x, sat[1] = s.y, sat[2] = s.z;
    const double d[3] = {s.x - r.x, s.y - r.y, s.z - r.z};
    range = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    for (int i = 0; i < 3; ++i) los[i] = d[i] / range;
    in.latRad = 0.0, in.lonRad = 0.0, in.satIndex = 4;
    in.lineOfSight = los, in.range = range, in.satPosition = sat;
    in.month = 3, in.ut = 13.0, in.flux = 150.0;
    in.bubble = &bubble;
    in.timeMs = 72000000;
    bubble.bubbleEnabled = 1;
    bubble.bubbleApplyDelay = 1;
    bubble.bubbleClassify = 1;
    bubble.bubbleLatitude = 0.0;
    bubble.bubbleWidth = 200.0;
    bubble.bubbleLength = 1000.0;
  }
  double Run(SlantIonoDetail& detail, int32_t& cls) {
    double delay = 0.0;
    SlantIonoDelay(*model, state, in, delay, cls, &detail);
    return delay;
  }
  std::unique_ptr<density_model::ModelState> model;
  SlantIonoState state;
  BubbleSettings bubble;
  SlantIonoInput in;
  double sat[3], los[3], range = 0.0;
};

TEST_F(SlantIonoTest, ABubbleAcrossTheRayTakesItsStretchOutAndOneBesideItNothing) {
  // No bubble: the delay is the TEC from the ground point to the satellite, times 0.0162.
  bubble.bubbleEnabled = 0;
  SlantIonoDetail whole;
  int32_t cls = -1;
  const double full = Run(whole, cls);
  double lon1 = 0.0, flux = 150.0, ut = 13.0;
  gnss::Geodetic g;
  gnss::EcefToGeodetic(sat[0], sat[1], sat[2], g);
  const double tec = density_model::SlantTec(*model, 0.0, lon1, 0.0, g.latitude, g.longitude,
                                             g.height / 1000.0, 3, flux, ut);
  EXPECT_EQ(full, tec * 0.016200000000000003);
  EXPECT_EQ(cls, 0);
  EXPECT_FALSE(whole.crossed);

  // The slab 6 degrees east straddles the ray between its walls.
  bubble.bubbleEnabled = 1;
  bubble.bubbleLonNorth = bubble.bubbleLonSouth = 6.0;
  SlantIonoDetail crossed;
  const double less = Run(crossed, cls);
  ASSERT_TRUE(crossed.crossed);
  EXPECT_LT(crossed.entry.longitude, crossed.exit.longitude);
  EXPECT_LT(crossed.entry.height, crossed.exit.height);  // the ray climbs eastward
  EXPECT_GT(crossed.entry.height, 0.0);
  EXPECT_LT(crossed.exit.height, 1000.0);
  EXPECT_GT(crossed.bubbleDelay, 0.0);
  EXPECT_NEAR(less, full - crossed.bubbleDelay, 1e-12);
  EXPECT_EQ(cls, BubbleClassOf(crossed.bubbleDelay));
  ASSERT_EQ(state.marks.size(), 2u);
  EXPECT_EQ(state.marks[0].kind, 1);
  EXPECT_EQ(state.marks[1].kind, 2);

  // West of the receiver, or with its length negative (north below south): no bubble.
  for (auto change : {+[](BubbleSettings& b) { b.bubbleLonNorth = b.bubbleLonSouth = -20.0; },
                      +[](BubbleSettings& b) { b.bubbleLength = -1000.0; }}) {
    BubbleSettings keep = bubble;
    change(bubble);
    SlantIonoDetail beside;
    EXPECT_EQ(Run(beside, cls), full);
    EXPECT_FALSE(beside.crossed);
    EXPECT_EQ(cls, 0);
    bubble = keep;
  }
  // Without the delay switch the crossing is marked but takes nothing, so the class is 0.
  bubble.bubbleApplyDelay = 0;
  SlantIonoDetail marked;
  EXPECT_EQ(Run(marked, cls), full);
  EXPECT_TRUE(marked.crossed);
  EXPECT_EQ(cls, 0);
}

TEST_F(SlantIonoTest, TheDriftMovesTheSlabFromTheFirstCallsTime) {
  bubble.bubbleLonNorth = bubble.bubbleLonSouth = 6.0;
  SlantIonoDetail first, later;
  int32_t cls;
  Run(first, cls);
  ASSERT_TRUE(first.crossed);
  // 100 m/s east as stored (times 0.001) over 1000 s: 100 km, 0.898 degrees.
  bubble.bubbleDrift = 0.1;
  in.timeMs += 1000000;
  Run(later, cls);
  ASSERT_TRUE(later.crossed);
  EXPECT_NEAR(later.entry.longitude - first.entry.longitude, 0.8983192, 0.05);
  EXPECT_EQ(state.bubbleStartTime, 72000000);
}

TEST_F(SlantIonoTest, RecordRowsRiseWithTheSatelliteIndexAndALowerOneStartsANewRow) {
  test::ScratchDir dir("bubble-record");
  platform::OutputFile file;
  ASSERT_TRUE(file.Open(dir / "bubble.txt"));
  bubble.bubbleEnabled = 0;
  bubble.bubbleRecordEnabled = 1;
  bubble.recordFile = &file;
  SlantIonoDetail d;
  int32_t cls;
  in.satIndex = 1;
  const double d2 = Run(d, cls);
  in.satIndex = 3;
  const double d4 = Run(d, cls);
  in.satIndex = 0;
  in.timeMs = 72001000;
  const double d1 = Run(d, cls);
  ASSERT_TRUE(file.Close());
  char expected[512];
  std::snprintf(expected, sizeof expected,
                "\n72000000  ,1 , - ,- , - ,2 ,%f ,%f ,0 ,3 , - ,- , - ,4 ,%f ,%f ,0 ,"
                "\n72001000  ,1 ,%f ,%f ,0 ,",
                d2, 0.0, d4, 0.0, d1, 0.0);
  EXPECT_EQ(test::ReadFile(dir / "bubble.txt"), expected);
}

}  // namespace
}  // namespace vorel::atmosphere
