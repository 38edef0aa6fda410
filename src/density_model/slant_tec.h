#pragma once
// Total electron content along the straight line between two points, on a spherical
// Earth of radius 6371.2 km. Heights km, angles degrees; the result is in units of
// 1e15 electrons per square metre (times 0.016200000000000003 gives metres of L1 delay).

#include <cmath>

#include "density_model/model_state.h"

namespace vorel::density_model {

inline constexpr double kEarthRadius = 6371.2;
// The vertical threshold is the single-precision 0.1 widened to double.
inline constexpr double kVerticalRp = 0.10000000149011612;
inline constexpr double kL1DelayPerTecUnit = 0.016200000000000003;

// A ray, worked out once from its two points.
struct RayGeometry {
  double r1 = 0.0, r2 = 0.0;
  double zeta = 0.0;            // zenith angle at point 1, degrees
  double rp = 0.0;              // perigee radius; 0 for a vertical ray
  double latp = 0.0, lonp = 0.0;
  double sinp = 0.0, cosp = 0.0;
  double sins = 0.0, coss = 0.0;
  double sinsig = 0.0, cossig = 0.0;
  double delta = 0.0;           // perigee to point 2, degrees
  double cchi = 0.0;            // zenith cosine at the 400 km shell; kept, not used
};

RayGeometry MakeRayGeometry(double lat1, double lon1, double h1, double lat2, double lon2,
                            double h2);

// Integrates the model from point 1 (the lower) to point 2. Like ElectronDensity, it
// writes back lon1 wrapped, flux clipped and ut wrapped. Returns 0 when the model's
// data files failed (state.error is then set).
double SlantTec(ModelState& state, double lat1, double& lon1, double h1, double lat2, double lon2,
                double h2, int month, double& flux, double& ut);

// The doubling rule shared by the vertical and the slant integral; exposed for tests.
template <typename F>
double IntegrateDoubling(F&& f, double a, double b) {
  constexpr double kTolerance = 0.001;
  int n = 8;
  double prev = 0.0;
  double sum = 0.0;
  for (;;) {
    const double w = (b - a) / n;
    const double q = w * 0.5773502691896;
    double x = a + (w - q) * 0.5;
    const double f0 = f(x);
    sum = f0 + f(x + q);
    // Each later pair has its first point below its partner, at x + w - q.
    for (int i = 1; i <= n - 1; ++i) {
      const double fa = f(x + w - q);
      const double fb = f(x + w);
      sum = sum + fa + fb;
      x = x + w;
    }
    sum = sum * w * 0.5;
    if (n == 8 || std::fabs(prev - sum) > kTolerance * std::fabs(prev)) {
      n = 2 * n;
      prev = sum;
      if (n < 1024) continue;
    }
    break;
  }
  return sum + (sum - prev) / 15.0;
}

}  // namespace vorel::density_model
