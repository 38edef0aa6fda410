#include "gnss/constants.h"
#include "atmosphere/klobuchar.h"

#include <cmath>

#include "atmosphere/atmosphere_settings.h"

namespace vorel::atmosphere {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kSecondsPerDay = 86400.0;
constexpr int kDayStepLimit = 10;

}  // namespace

void KlobucharDelay(const AtmosphereState& state, double latRad, double lonRad, double azimuthRad,
                    double elevationRad, double timeSeconds, double& delayOut) {
  const double* alpha = state.KlobucharAlpha;
  const double* beta = state.KlobucharBeta;

  // Angles in semicircles from here on. The elevation is never clipped.
  const double E = elevationRad / kPi;
  const double psi = 0.0137 / (E + 0.11) - 0.022;

  // Latitude of the ionospheric point, held within +-0.416 semicircles.
  double phiI = latRad / kPi + psi * std::cos(azimuthRad);
  if (phiI > 0.416) {
    phiI = 0.416;
  } else if (phiI < -0.416) {
    phiI = -0.416;
  }
  const double lambdaI = lonRad / kPi + psi * std::sin(azimuthRad) / std::cos(kPi * phiI);

  // Local time, stepped into the day. One counter serves both loops.
  double t = 43200.0 * lambdaI + timeSeconds;
  int steps = 0;
  while (t >= kSecondsPerDay && steps < kDayStepLimit) {
    t -= kSecondsPerDay;
    ++steps;
  }
  while (t < 0.0 && steps < kDayStepLimit) {
    t += kSecondsPerDay;
    ++steps;
  }

  const double phiM = phiI + 0.064 * std::cos(kPi * (lambdaI - 1.617));

  double PER = beta[0] + phiM * (beta[1] + phiM * (beta[2] + phiM * beta[3]));
  if (PER < 72000.0) PER = 72000.0;

  const double x = 6.283185307179586 * (t - 50400.0) / PER;
  const double F = 1.0 + 16.0 * std::pow(0.53 - E, 3.0);

  if (!(std::fabs(x) < 1.57)) {
    // Night-time: 5 ns of delay, in metres, times the slant factor.
    delayOut = F * 1.4989622900000001;
    return;
  }

  double AMP = alpha[0] + phiM * (alpha[1] + phiM * (alpha[2] + phiM * alpha[3]));
  if (AMP < 0.0) AMP = 0.0;
  const double x2 = x * x;
  const double x4 = x2 * x2;
  delayOut = (F * gnss::kSpeedOfLight) * (AMP * (1.0 - x2 / 2.0 + x4 / 24.0) + 5e-09);
}

void LoadKlobucharCoefficients(AtmosphereState& state, const IonoCoefficientTable& table) {
  for (int n = 0; n < 4; ++n) {
    state.KlobucharAlpha[n] = table.cells[0][n];
    state.KlobucharBeta[n] = table.cells[1][n];
  }
}

}  // namespace vorel::atmosphere
