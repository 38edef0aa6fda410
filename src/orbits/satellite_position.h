#pragma once
// The operations a run asks of the orbit store at every epoch: which record is in
// force, where the satellite is, how its position turns with the Earth during the
// signal's travel, and its clock polynomial.

#include <array>

#include "orbits/orbit_record.h"

namespace vorel::orbits {

using Vec3 = std::array<double, 3>;

// Picks the first stored true record that is usable and whose toe lies strictly
// between t and t + 7200 s. Returns 0, or -1 with selectedRecord 0 (the caller then
// flies record 0). `index` is PRN - 1.
int SelectOrbitRecord(double t, ConstellationTable& table, int index);

// Earth-fixed position at transmission time t (s of week) from the selected true record,
// and the relativistic clock term (s). A negative selectedRecord leaves both untouched.
void SatellitePosition(const ConstellationTable& table, double t, int satellite, Vec3& position,
                       double& relativisticTerm);

// An upper bound of the Earth-fixed speed (m/s) of a satellite flying the selected true
// record: the orbit's speed at perigee plus the Earth's turning at apogee distance, with a
// quarter more for the harmonic corrections. Infinity for a record that is no ellipse.
double SatelliteSpeedBound(const ConstellationTable& table, int satellite);

// Carries a position across `travelTime` seconds of Earth rotation.
void RotateForEarthSpin(double travelTime, const Vec3& position, Vec3& rotated);

// Clock polynomial of the selected true record at t, in seconds (0.0 without orbit).
double SatelliteClockBias(const ConstellationTable& table, double t, int satellite);

// The clock an L1 C/A receiver works out from the message: the polynomial, plus the
// relativistic term (as SatellitePosition gave it for t), minus the record's TGD as the
// navigation file gave it. In seconds; 0.0 without orbit.
double MessageClockBias(const ConstellationTable& table, double t, int satellite,
                        double relativisticTerm);

}  // namespace vorel::orbits
