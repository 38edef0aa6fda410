#include "gnss/time_coords.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace vorel::gnss {
namespace {

TEST(TimeCoords, WeekWrapFoldsOnceAndKeepsTheBounds) {
  EXPECT_EQ(WrapWeekSeconds(302400.0), 302400.0);
  EXPECT_EQ(WrapWeekSeconds(-302400.0), -302400.0);
  EXPECT_EQ(WrapWeekSeconds(302401.0), 302401.0 - 604800.0);
  EXPECT_EQ(WrapWeekSeconds(-302401.0), -302401.0 + 604800.0);
  EXPECT_EQ(WrapWeekSeconds(2e6), 2e6 - 604800.0);  // one fold only
  EXPECT_EQ(DayIndex(12, 31), 391);
}

TEST(TimeCoords, CalendarDatesCheckedByHand) {
  GpsTime t;
  CalendarToGpsTime(1980, 1, 6, 0, 0, 0.0, 0, t);
  EXPECT_EQ(t.week, 0);
  EXPECT_EQ(t.secondsOfWeek, 0.0);
  // 1 January 2022 was a Saturday of GPS week 2190: day 6 of the week.
  CalendarToGpsTime(2022, 1, 1, 0, 0, 0.0, 0, t);
  EXPECT_EQ(t.week, 2190);
  EXPECT_EQ(t.secondsOfWeek, 6 * 86400.0);
  // 1 July 2010 12:30:15 (Thursday) is week 1590, 4 days + 45015 s.
  CalendarToGpsTime(2010, 7, 1, 12, 30, 15.0, 0, t);
  EXPECT_EQ(t.week, 1590);
  EXPECT_NEAR(t.secondsOfWeek, 4 * 86400.0 + 45015.0, 1e-6);
  // Leap seconds are added as given, without a fold at the top of the week.
  CalendarToGpsTime(2010, 7, 3, 23, 59, 59.0, 15, t);
  EXPECT_NEAR(t.secondsOfWeek, 604799.0 + 15, 1e-6);
  EXPECT_EQ(t.week, 1590);
  // A negative result is carried into the week before.
  CalendarToGpsTime(2010, 7, 4, 0, 0, 0.0, -10, t);
  EXPECT_EQ(t.week, 1590);
  EXPECT_NEAR(t.secondsOfWeek, 604790.0, 1e-6);
}

TEST(TimeCoords, LeapDaysFollowOneAnotherAndEveryFourthYearLeaps) {
  GpsTime feb29, mar1, feb28;
  CalendarToGpsTime(2024, 2, 29, 0, 0, 0.0, 0, feb29);
  CalendarToGpsTime(2024, 3, 1, 0, 0, 0.0, 0, mar1);
  CalendarToGpsTime(2024, 2, 28, 0, 0, 0.0, 0, feb28);
  auto days = [](const GpsTime& t) { return t.week * 7 + t.secondsOfWeek / 86400.0; };
  EXPECT_EQ(days(mar1) - days(feb29), 1.0);
  EXPECT_EQ(days(feb29) - days(feb28), 1.0);
  // The program counts 2100 as a leap year: 1 March 2100 is two days after 28 February.
  GpsTime a, b;
  CalendarToGpsTime(2100, 2, 28, 0, 0, 0.0, 0, a);
  CalendarToGpsTime(2100, 3, 1, 0, 0, 0.0, 0, b);
  EXPECT_EQ(days(b) - days(a), 2.0);
}

TEST(TimeCoords, CalendarIsSafeForEveryInt) {
  // Year 10,000,000 overflowed a 32-bit day count. Counted by hand: 365 days a year from
  // 1980 plus the 2,499,505 years divisible by 4 in 1980..9999999, less the 5 days from
  // 1 to 6 January 1980: 3,651,776,800 days, exactly week 521,682,400.
  GpsTime t;
  EXPECT_EQ(CalendarToGpsTime(10000000, 1, 1, 0, 0, 0.0, 0, t), 0);
  EXPECT_EQ(t.week, 521682400);
  EXPECT_EQ(t.secondsOfWeek, 0.0);

  // A week beyond int32 is refused and leaves the result alone.
  const GpsTime untouched{77, 5.0};
  for (int32_t year : {INT32_MAX, INT32_MIN, INT32_MIN + 1901}) {
    t = untouched;
    EXPECT_EQ(CalendarToGpsTime(year, 12, 31, 23, 59, 59.0, 0, t), -1) << year;
    EXPECT_EQ(t.week, untouched.week);
    EXPECT_EQ(t.secondsOfWeek, untouched.secondsOfWeek);
  }
  t = untouched;
  EXPECT_EQ(CalendarToGpsTime(2010, 7, 1, 0, 0, NAN, 0, t), -1);
  EXPECT_EQ(t.week, untouched.week);

  // Hours, minutes and days out of their ranges are plain arithmetic, not overflow.
  EXPECT_EQ(CalendarToGpsTime(2010, 7, 4, 600, 0, 0.0, 0, t), 0);
  EXPECT_EQ(t.week, 1591);
  EXPECT_EQ(t.secondsOfWeek, 600 * 3600.0);
  EXPECT_EQ(CalendarToGpsTime(2010, 7, INT32_MAX, INT32_MAX, INT32_MAX, 1e300, INT32_MAX, t), 0);
  EXPECT_TRUE(std::isfinite(t.secondsOfWeek));
  EXPECT_EQ(CalendarToGpsTime(2010, INT32_MIN, 1, INT32_MIN, INT32_MIN, -1e12, INT32_MIN, t), 0);
  EXPECT_TRUE(std::isfinite(t.secondsOfWeek));
  EXPECT_EQ(CalendarToGpsTime(2010, 7, 1, 0, 0, INFINITY, 0, t), -1);
}

TEST(TimeCoords, GeodeticRoundTripAndKnownPoints) {
  Ecef p;
  GeodeticToEcef(0.0, 0.0, 0.0, p);
  EXPECT_NEAR(p.x, 6378137.0, 1e-6);
  EXPECT_NEAR(p.y, 0.0, 1e-6);
  GeodeticToEcef(90.0, 0.0, 0.0, p);
  EXPECT_NEAR(p.z, 6356752.314, 1e-3);  // WGS84 polar radius
  for (double lat : {-89.0, -45.0, 0.5, 33.3, 60.0}) {
    for (double lon : {1.0, 100.0, 250.0}) {
      GeodeticToEcef(lat, lon, 1234.5, p);
      Geodetic g;
      ASSERT_EQ(EcefToGeodetic(p.x, p.y, p.z, g), 0);
      EXPECT_NEAR(g.latitude, lat, 1e-8);
      EXPECT_NEAR(g.longitude, lon, 1e-9);
      EXPECT_NEAR(g.height, 1234.5, 1e-3);
    }
  }
  // Negative longitudes come back in 0..360.
  GeodeticToEcef(10.0, -30.0, 0.0, p);
  Geodetic g;
  EcefToGeodetic(p.x, p.y, p.z, g);
  EXPECT_NEAR(g.longitude, 330.0, 1e-9);
}

TEST(TimeCoords, CentreOfTheEarthDoesNotConvergeAndLeavesRadians) {
  Geodetic g;
  EXPECT_EQ(EcefToGeodetic(0.0, 0.0, 0.0, g), -1);
  EXPECT_EQ(g.longitude, 0.0);
  // The latitude is whatever the last iteration left, not a value in degrees.
  EXPECT_FALSE(std::fabs(g.latitude) <= 90.0 && std::fabs(g.latitude) > 3.2);
}

}  // namespace
}  // namespace vorel::gnss
