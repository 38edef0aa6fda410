#pragma once
// What the atmosphere keeps for the life of one program start: the Klobuchar
// coefficients the broadcast model reads, and the troposphere's last-value record.
// The Session holds one of these; everything else here is plain arithmetic.

#include "atmosphere/slant_iono.h"

namespace vorel::atmosphere {

// The inputs and intermediate terms of the latest troposphere call. Each call
// overwrites what its model writes (see docs/atmosphere.md for which field holds what
// per model); nothing reads them back, they are kept for inspection only.
struct TroposphereLastValues {
  double lastPressure = 0.0, lastHumidityTerm = 0.0, lastTemperature = 0.0;
  double lastWetTerm = 0.0, lastDryTerm = 0.0;
  double lastWetScale = 0.0, lastDryScale = 0.0;
  double lastHeight = 0.0, lastLatitude = 0.0;
  int lastDayOfYear = 0;
};

struct AtmosphereState {
  // alpha0..alpha3 and beta0..beta3 of the ionosphere the simulation obeys; loaded from
  // ionoTruthTable by the run gatherer and the TEC map, read by KlobucharDelay only.
  double KlobucharAlpha[4] = {0.0, 0.0, 0.0, 0.0};
  double KlobucharBeta[4] = {0.0, 0.0, 0.0, 0.0};

  TroposphereLastValues troposphere;

  // The bubble's start time, the record's last column and the entry and exit marks.
  SlantIonoState slant;
};

}  // namespace vorel::atmosphere
