#pragma once
// The atmosphere models this build carries, as the epoch computation calls them: the
// troposphere and the broadcast ionosphere, reading and writing the program start's
// atmosphere state.

#include "atmosphere/atmosphere_state.h"
#include "observation/epoch.h"

namespace vorel::observation {

class ModelAtmosphere : public AtmosphereModels {
 public:
  explicit ModelAtmosphere(atmosphere::AtmosphereState& state) : state_(state) {}
  bool HasTroposphere() const override { return true; }
  bool HasKlobuchar() const override { return true; }
  bool HasSlantIonosphere() const override { return false; }
  double Troposphere(double elevationDeg, double temperature, double pressure, double humidity,
                     double altitude, double latitudeDeg, int32_t dayIndex,
                     int32_t model) override;
  double Klobuchar(double latitudeRad, double longitudeRad, double azimuth, double elevation,
                   double tTransmit) override;
  void SlantIonosphere(const SlantInput& in, double& delay, int32_t& bubbleClass) override;

 private:
  atmosphere::AtmosphereState& state_;
};

}  // namespace vorel::observation
