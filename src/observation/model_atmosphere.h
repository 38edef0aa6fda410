#pragma once
// The atmosphere models this build carries, as the epoch computation calls them: the
// troposphere, the broadcast ionosphere and the ionosphere along the ray with its bubble,
// reading and writing the program start's atmosphere state and electron density model.

#include <array>
#include <string>
#include <vector>

#include "atmosphere/atmosphere_state.h"
#include "density_model/model_state.h"
#include "observation/epoch.h"

namespace vorel::observation {

class ModelAtmosphere : public AtmosphereModels {
 public:
  ModelAtmosphere(atmosphere::AtmosphereState& state, density_model::ModelState& density)
      : state_(state), density_(density) {}
  bool HasTroposphere() const override { return true; }
  bool HasKlobuchar() const override { return true; }
  bool HasSlantIonosphere() const override { return true; }
  // Loads the dip latitudes and finds the map file of `month` that the ionosphere along
  // the ray needs; false with the reason (the file and every place searched) otherwise.
  bool PrepareSlantIonosphere(int32_t month, std::string& error);
  double Troposphere(double elevationDeg, double temperature, double pressure, double humidity,
                     double altitude, double latitudeDeg, int32_t dayIndex,
                     int32_t model) override;
  double Klobuchar(double latitudeRad, double longitudeRad, double azimuth, double elevation,
                   double tTransmit) override;
  void SlantIonosphere(const SlantInput& in, double& delay, int32_t& bubbleClass) override;

  // What one ray along which the ionosphere was worked out gave; kept when `rays` is set.
  struct Ray {
    int32_t satIndex = 0;
    std::array<double, 3> satPosition{};  // earth-fixed m
    double delay = 0.0;                   // m, after the bubble
    int32_t bubbleClass = 0;
    atmosphere::SlantIonoDetail detail;
  };
  std::vector<Ray>* rays = nullptr;

 private:
  atmosphere::AtmosphereState& state_;
  density_model::ModelState& density_;
};

}  // namespace vorel::observation
