#pragma once
// The electron density profile: density in electrons per cubic metre at a height (km),
// a place (degrees), a month, a solar flux and a universal time (hours).
//
// Three entries share the work, from the most to the least that changes:
//   ElectronDensity        a new request; writes back flux (clipped at 193), ut (wrapped
//                          into a day once) and lon ((lon + 360) modulo 360);
//   ElectronDensityAt      another height and place under the same month, flux, time,
//                          with lon used as given;
//   ElectronDensityHeight  another height at the place of the last request.
// The last two rely on the state that the previous full request left in `state`.
// A data file failure sets state.error; every entry then returns 0.

#include <cmath>

#include "gnss/constants.h"
#include "density_model/model_state.h"

namespace vorel::density_model {

inline constexpr double kRadToDeg = gnss::kRadToDegDensity;
using gnss::kPi;

double ElectronDensity(ModelState& state, double h, double lat, double& lon, int month,
                       double& flux, double& ut);
double ElectronDensityAt(ModelState& state, double h, double lat, double lon);
double ElectronDensityHeight(ModelState& state, double h);

// The pieces of the profile, open for the tests and for the callers that need them.
double ClippedExp(double x);
double SmoothJoin(double f1, double f2, double alpha, double x);
// Sine and cosine of the sun's declination for a month and a universal time.
void SolarDeclination(int month, double ut, double& sdelta, double& cdelta);
// hmF2 in km from foE, foF2 (MHz) and M(3000)F2.
double PeakHeightF2(double foE, double foF2, double m3000);
// Density below and above hmF2 for the layers of the last request.
double BottomsideDensity(ModelState& state, double h);
double TopsideDensity(const ModelState& state, double h);

// The topside of one place, copied out of the state so that a column integral keeps
// it in registers. TopsideDensity is this same formula.
struct Topside {
  double hmF2, H, NmF2;
  explicit Topside(const ModelState& st) : hmF2(st.HM[0]), H(st.B[5]), NmF2(st.NmF2) {}
  double At(double h) const {
    const double dh = h - hmF2;
    const double g = 0.125 * dh;
    const double z = dh / (H * (1.0 + 100.0 * g / (100.0 * H + g)));
    const double e = std::exp(z);
    const double ep = e <= 100000000000.0 ? 4.0 * e / ((e + 1.0) * (e + 1.0)) : 4.0 / e;
    return NmF2 * ep;
  }
};

}  // namespace vorel::density_model
