#pragma once
// A small sky for the observation tests: satellites on circular equatorial orbits seen
// from a receiver on the equator at longitude 0, where the geometry can be worked out in
// the plane by hand.

#include <cmath>
#include <memory>

#include "observation/epoch.h"
#include "orbits/orbit_record.h"

namespace vorel::observation::testing {

inline constexpr double kSqrtA = 5153.7;
inline constexpr double kEarthRadius = 6378137.0;
inline constexpr double kToe = 345600.0 + 3600.0;

// Equatorial circular orbit whose node and argument put the satellite at angle
// `angleAtToe` (rad, from the x axis, Earth-fixed) at toe.
inline orbits::OrbitRecord EquatorialRecord(int prn, double angleAtToe) {
  orbits::OrbitRecord o;
  o.prn = prn;
  o.status = orbits::kStatusUsable;
  o.sqrtA = kSqrtA;
  o.toe = kToe;
  o.toc = kToe;
  o.Omega0 = angleAtToe + kToe * 7.2921151467e-05;
  return o;
}

// Earth-fixed angle of that satellite, seen from the frame of reception, for a signal
// that left `travel` seconds before reception time t.
inline double PlaneAngle(double angleAtToe, double t, double travel) {
  const double a = kSqrtA * kSqrtA;
  const double n = std::sqrt(398600500000000.0 / (a * a * a));
  const double tk = t - travel - kToe;
  return angleAtToe + (n - 7.2921151467e-05) * tk - 7.292115147e-05 * travel;
}

// Converged light-time range from the receiver at (R, 0, 0).
inline double PlaneRange(double angleAtToe, double t) {
  const double a = kSqrtA * kSqrtA;
  double travel = 0.07;
  double range = 0.0;
  for (int i = 0; i < 20; ++i) {
    const double th = PlaneAngle(angleAtToe, t, travel);
    range = std::hypot(a * std::cos(th) - kEarthRadius, a * std::sin(th));
    travel = range / 299792458.0;
  }
  return range;
}

inline double PlaneElevation(double angleAtToe, double t, double travel) {
  const double a = kSqrtA * kSqrtA;
  const double th = PlaneAngle(angleAtToe, t, travel);
  return std::atan2(a * std::cos(th) - kEarthRadius, std::fabs(a * std::sin(th)));
}

// A receiver's loop state at latitude 0, longitude 0, height 0.
inline EpochLoop EquatorLoop(int satellites) {
  EpochLoop loop;
  loop.previousCode.assign(satellites, 0.0);
  loop.cache.assign(satellites, AtmosphereCache{});
  loop.receiverEcef = {kEarthRadius, 0.0, 0.0};
  loop.northRow = {0.0, 0.0, 1.0};
  loop.eastRow = {0.0, 1.0, 0.0};
  loop.upRow = {1.0, 0.0, 0.0};
  loop.wavelength = 299792458.0 / 1575420000.0;
  return loop;
}

// Atmosphere of fixed delays, counting its calls.
class FixedAtmosphere : public AtmosphereModels {
 public:
  double iono = 5.0, tropo = 2.5;
  int ionoCalls = 0, tropoCalls = 0;
  double lastElevationDeg = 0.0;
  bool HasTroposphere() const override { return true; }
  bool HasKlobuchar() const override { return true; }
  bool HasSlantIonosphere() const override { return false; }
  double Troposphere(double elevationDeg, double, double, double, double, double, int32_t,
                     int32_t) override {
    ++tropoCalls;
    lastElevationDeg = elevationDeg;
    return tropo;
  }
  double Klobuchar(double, double, double, double, double) override {
    ++ionoCalls;
    return iono;
  }
  void SlantIonosphere(const SlantInput&, double&, int32_t&) override {}
};

}  // namespace vorel::observation::testing
