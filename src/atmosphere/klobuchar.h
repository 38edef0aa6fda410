#pragma once
// The eight-coefficient broadcast ionosphere (the GPS user algorithm), on L1.

#include "atmosphere/atmosphere_state.h"

namespace vorel::atmosphere {

struct IonoCoefficientTable;

// Delay in metres on L1 into `delayOut`, from the coefficients in
// state.KlobucharAlpha / state.KlobucharBeta and nothing else. Latitude, longitude,
// azimuth and elevation in radians; `timeSeconds` the transmission time in seconds
// (of the week, or of the day).
//
// The local time is brought into the day by stepping one day at a time, at most ten
// steps in all for both directions together, so that a time more than ten days out of
// range stays out of range (and then falls on the night-time term). No allocation.
void KlobucharDelay(const AtmosphereState& state, double latRad, double lonRad, double azimuthRad,
                    double elevationRad, double timeSeconds, double& delayOut);

// Copies a coefficient table into state.KlobucharAlpha (row 1) and
// state.KlobucharBeta (row 2). The run gatherer does this with ionoTruthTable when the
// atmosphere is on and the broadcast model is chosen; the TEC map does it when it draws
// with the broadcast model.
void LoadKlobucharCoefficients(AtmosphereState& state, const IonoCoefficientTable& table);

}  // namespace vorel::atmosphere
