#pragma once
// Time and coordinate operations shared by the whole program. Each keeps its own
// constants: they differ by a few digits from one operation to the next, and results
// are compared across the program, so the differences are kept on purpose.

#include <cstdint>

#include "platform/random.h"

namespace vorel::gnss {

// One fold of a seconds-of-week difference into [-302400, 302400]; the bounds stay.
double WrapWeekSeconds(double t);

// The program's flat day number: 30 * month + day. Not the day of year, by design.
int32_t DayIndex(int32_t month, int32_t day);

struct GpsTime {
  int32_t week = 0;
  double secondsOfWeek = 0.0;
};

// Every year divisible by 4 is a leap year here (2100 included). Returns 0, or -1 with
// `out` untouched when the week does not fit an int32 or the seconds are not finite;
// every int32 input is safe.
int CalendarToGpsTime(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                      double seconds, int32_t leapSeconds, GpsTime& out);

struct Ecef {
  double x = 0.0, y = 0.0, z = 0.0;
};

struct Geodetic {
  double latitude = 0.0;   // degrees (radians when the conversion did not converge)
  double longitude = 0.0;  // degrees, 0 to 360
  double height = 0.0;     // metres
};

int GeodeticToEcef(double latitude, double longitude, double height, Ecef& out);

// Returns 0, or -1 when ten iterations did not converge; the latitude is then left in
// radians as it stands, which callers that ignore the result receive.
int EcefToGeodetic(double x, double y, double z, Geodetic& out);

// Plain sum of products; n below 1 gives 0.0.
double DotProduct(const double* a, const double* b, int32_t n);

// Row-major product: out (rows x columns) = a (rows x inner) * b (inner x columns).
void MatrixMultiply(const double* a, const double* b, int32_t rows, int32_t inner,
                    int32_t columns, double* out);

// Fills `count` normal deviates; the seed is the next value of the run-time rand.
void GaussianSamples(double mean, double sigma, double* out, int32_t count,
                     platform::RandState& rand);

}  // namespace vorel::gnss
