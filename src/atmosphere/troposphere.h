#pragma once
// Slant delay of the neutral atmosphere for one receiver and one satellite.

#include "atmosphere/atmosphere_state.h"

namespace vorel::atmosphere {

// Model numbers as the troposphere setting gives them (the list index plus 1).
inline constexpr int kTropoBlack = 1;
inline constexpr int kTropoHopfield = 2;
inline constexpr int kTropoSaastamoinenNiell = 3;

// Delay in metres. `elevationDeg` and `latitudeDeg` come in degrees as the epoch
// computation makes them (radians times 57.32484); they are turned back into radians
// with 0.017453292519943, so the angle that reaches the sine is 1.0005 times the true
// one. That mismatch belongs to the model and stays.
//
// A negative elevation gives 0 and writes nothing; an unknown model gives 0 and writes
// nothing. Otherwise the model's last-value fields in `state.troposphere` are
// overwritten. Model 2's delay depends on the elevation alone. An elevation of exactly 0
// is computed as it stands: model 3 then returns an infinity or a not-a-number.
//
// No allocation; pure arithmetic apart from the last-value record.
double TroposphereDelay(AtmosphereState& state, double elevationDeg, double temperatureC,
                        double pressureMbar, double humidity, double heightM, double latitudeDeg,
                        int dayOfYear, int model);

// The coefficients of the model 3 mapping function at one latitude and season, as
// TroposphereDelay uses them; exposed so that the interpolation can be looked at alone.
struct NiellCoefficients {
  double dryA, dryB, dryC;
  double wetA, wetB, wetC;
};
NiellCoefficients NiellCoefficientsAt(double latitudeDeg, int dayOfYear);

}  // namespace vorel::atmosphere
