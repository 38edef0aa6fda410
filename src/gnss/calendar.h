#pragma once
// GPS time back to a calendar date and time of day (GPS time scale, no leap seconds),
// for the files that print epochs as dates.

#include <cstdint>

namespace vorel::gnss {

struct CalendarTime {
  int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0.0;
};

// Full GPS week (not modulo 1024) and seconds of week, which may lie outside
// 0..604800: the date moves with them.
CalendarTime GpsToCalendar(int32_t week, double secondsOfWeek);

// Day of year, 1 to 366.
int32_t DayOfYear(int32_t year, int32_t month, int32_t day);

}  // namespace vorel::gnss
