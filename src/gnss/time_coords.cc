#include "gnss/time_coords.h"

#include <cmath>
#include <cstdint>

namespace vorel::gnss {

double WrapWeekSeconds(double t) {
  if (t > 302400.0) return t - 604800.0;
  if (t < -302400.0) return t + 604800.0;
  return t;
}

int32_t DayIndex(int32_t month, int32_t day) { return 30 * month + day; }

int CalendarToGpsTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                      double seconds, int32_t leapSeconds, GpsTime& out) {
  static constexpr int32_t kDaysBefore[2][12] = {
      {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334},
      {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335}};
  // The day count is formed in 64 bits: any int32 date fits there, and the week is
  // then checked against int32 instead of wrapping. Truncating division and remainder
  // behave as they do in 32 bits, so every date that fitted before gives the same week.
  const int64_t y = int64_t{year} - 1901;
  const int64_t days = (y / 4) * 1461 + (y % 4) * 365 + day;
  const int leap = (year % 4 == 0) ? 1 : 0;
  // A month outside 1..12 has no table entry; it contributes no days rather than
  // reading outside the table.
  const int32_t monthDays = (month >= 1 && month <= 12) ? kDaysBefore[leap][month - 1] : 0;
  const int64_t n = days + monthDays - 28860;
  int64_t week = n / 7;
  const int64_t dayOfWeek = n - 7 * week;
  double sow =
      (((seconds / 60 + minute) / 60 + hour) / 24 + static_cast<double>(dayOfWeek)) * 86400.0 +
      leapSeconds;
  if (sow < 0) {
    sow += 604800.0;
    week -= 1;
  }
  if (week < INT32_MIN || week > INT32_MAX || !std::isfinite(sow)) return -1;
  out.week = static_cast<int32_t>(week);
  out.secondsOfWeek = sow;
  return 0;
}

int GeodeticToEcef(double latitude, double longitude, double height, Ecef& out) {
  const double phi = latitude * 0.017453292519943;
  const double lambda = longitude * 0.017453292519943;
  const double e2 = 0.00669437999014;
  const double a = 6378137.0;
  const double s = std::sin(phi);
  const double n = a / std::sqrt(1 - e2 * s * s);
  out.x = (n + height) * std::cos(phi) * std::cos(lambda);
  out.y = (n + height) * std::cos(phi) * std::sin(lambda);
  out.z = (0.99330562000986 * n + height) * s;
  return 0;
}

int EcefToGeodetic(double x, double y, double z, Geodetic& out) {
  constexpr double kDeg = 57.29577951308232;
  constexpr double kA = 6378137.0;
  constexpr double kInvF = 298.257223563;
  const double p = std::sqrt(x * x + y * y);
  double longitude = 0.0;
  if (p > 1e-20) longitude = std::atan2(y, x) * kDeg;
  if (longitude < 0) longitude += 360.0;
  const double r = std::sqrt(p * p + z * z);
  const double s = r > 1e-20 ? z / r : 0.0;
  double phi = std::asin(s);
  double h = r - kA * (1 - s * s / kInvF);
  out.longitude = longitude;
  for (int iteration = 1; iteration <= 10; ++iteration) {
    const double sp = std::sin(phi);
    const double cp = std::cos(phi);
    const double n = kA / std::sqrt(1 - 0.0066943799901413165 * sp * sp);
    const double dp = p - (n + h) * cp;
    const double dz = z - (0.9933056200098587 * n + h) * sp;
    h += dp * cp + dz * sp;
    phi += (dz * cp - dp * sp) / (n + h);
    // At the centre of the Earth N + h is 0 and the step is 0/0; a NaN latitude is no
    // solution, so that point runs out of iterations and reports -1.
    if (dp * dp + dz * dz < 1e-10 && !std::isnan(phi)) {
      out.latitude = phi * kDeg;
      out.height = h;
      return 0;
    }
  }
  out.latitude = phi;
  out.height = h;
  return -1;
}

double DotProduct(const double* a, const double* b, int32_t n) {
  double sum = 0.0;
  for (int32_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

void MatrixMultiply(const double* a, const double* b, int32_t rows, int32_t inner, int32_t columns,
                    double* out) {
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < columns; ++c) {
      double sum = 0.0;
      for (int32_t k = 0; k < inner; ++k) sum += a[r * inner + k] * b[k * columns + c];
      out[r * columns + c] = sum;
    }
  }
}

void GaussianSamples(double mean, double sigma, double* out, int32_t count,
                     platform::RandState& rand) {
  const uint32_t seed = static_cast<uint32_t>(platform::CrtRand(rand));
  platform::GaussianFill(seed, mean, sigma, out, count);
}

}  // namespace vorel::gnss
