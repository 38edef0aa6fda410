#include "gnss/calendar.h"

#include <cmath>

namespace vorel::gnss {
namespace {

// Days from 1970-01-01 to a civil date and back, on the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(int64_t z, int32_t& year, int32_t& month, int32_t& day) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int32_t>(yoe + era * 400 + (month <= 2));
}

}  // namespace

CalendarTime GpsToCalendar(int32_t week, double secondsOfWeek) {
  const double dayNumber = std::floor(secondsOfWeek / 86400.0);
  double inDay = secondsOfWeek - dayNumber * 86400.0;
  const int64_t days =
      DaysFromCivil(1980, 1, 6) + static_cast<int64_t>(week) * 7 + static_cast<int64_t>(dayNumber);
  CalendarTime t;
  CivilFromDays(days, t.year, t.month, t.day);
  t.hour = static_cast<int32_t>(inDay / 3600.0);
  inDay -= t.hour * 3600.0;
  t.minute = static_cast<int32_t>(inDay / 60.0);
  t.second = inDay - t.minute * 60.0;
  return t;
}

int32_t DayOfYear(int32_t year, int32_t month, int32_t day) {
  return static_cast<int32_t>(DaysFromCivil(year, month, day) - DaysFromCivil(year, 1, 1) + 1);
}

}  // namespace vorel::gnss
