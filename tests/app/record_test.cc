// The record command's readings of its options: the start time and the sampling rates
// the generator can put in a file.

#include "app/record_command.h"

#include <gtest/gtest.h>

namespace vorel::app {
namespace {

TEST(RecordOptions, StartTimeIsAnIsoDateAndTimeWithinItsRanges) {
  int32_t y = 0, mo = 0, d = 0, h = 0, mi = 0;
  double s = -1.0;
  ASSERT_TRUE(ParseStartTime("2010-07-01T10:00:00", y, mo, d, h, mi, s));
  EXPECT_EQ(y * 10000 + mo * 100 + d, 20100701);
  EXPECT_EQ(h * 100 + mi, 1000);
  EXPECT_DOUBLE_EQ(s, 0.0);
  ASSERT_TRUE(ParseStartTime("2012-02-29T23:59:30.5Z", y, mo, d, h, mi, s));
  EXPECT_DOUBLE_EQ(s, 30.5);
  for (const char* bad : {"2010-07-01 10:00:00", "2010-07-01T10:00", "2011-02-29T00:00:00",
                          "2010-13-01T00:00:00", "2010-07-01T24:00:00", "2010-07-01T10:00:60",
                          "2010-07-01T10:00:00+02", "1979-12-31T00:00:00", ""})
    EXPECT_FALSE(ParseStartTime(bad, y, mo, d, h, mi, s)) << bad;
}

TEST(RecordOptions, RatesAreTheGeneratorsRatesOrAWholeShareOfThem) {
  std::string rate, decimation;
  ASSERT_TRUE(RateSettings(16368000.0, rate, decimation));
  EXPECT_EQ(rate + "/" + decimation, "16368/none");
  ASSERT_TRUE(RateSettings(5456000.0, rate, decimation));  // 16368 kHz / 3
  EXPECT_EQ(rate + "/" + decimation, "16368/3");
  ASSERT_TRUE(RateSettings(20460000.0, rate, decimation));  // 40920 kHz / 2
  EXPECT_EQ(rate + "/" + decimation, "40920/2");
  // 54560 kHz / 3 is no whole number of samples a millisecond; 4 MHz no share at all.
  EXPECT_FALSE(RateSettings(54560000.0 / 3.0, rate, decimation));
  EXPECT_FALSE(RateSettings(4000000.0, rate, decimation));
}

}  // namespace
}  // namespace vorel::app
