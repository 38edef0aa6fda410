#include "observation/model_atmosphere.h"

#include <fmt/format.h>

#include "atmosphere/klobuchar.h"
#include "atmosphere/troposphere.h"
#include "density_model/model_data.h"

namespace vorel::observation {

double ModelAtmosphere::Troposphere(double elevationDeg, double temperature, double pressure,
                                    double humidity, double altitude, double latitudeDeg,
                                    int32_t dayIndex, int32_t model) {
  return atmosphere::TroposphereDelay(state_, elevationDeg, temperature, pressure, humidity,
                                      altitude, latitudeDeg, dayIndex, model);
}

double ModelAtmosphere::Klobuchar(double latitudeRad, double longitudeRad, double azimuth,
                                  double elevation, double tTransmit) {
  double delay = 0.0;
  atmosphere::KlobucharDelay(state_, latitudeRad, longitudeRad, azimuth, elevation, tTransmit,
                             delay);
  return delay;
}

void ModelAtmosphere::SlantIonosphere(const SlantInput& in, double& delay,
                                      int32_t& bubbleClass) {
  if (rays == nullptr) {
    atmosphere::SlantIonoDelay(density_, state_.slant, in, delay, bubbleClass);
    return;
  }
  Ray ray;
  atmosphere::SlantIonoDelay(density_, state_.slant, in, delay, bubbleClass, &ray.detail);
  ray.satIndex = in.satIndex;
  ray.satPosition = {in.satPosition[0], in.satPosition[1], in.satPosition[2]};
  ray.delay = delay;
  ray.bubbleClass = bubbleClass;
  rays->push_back(ray);
}

bool ModelAtmosphere::PrepareSlantIonosphere(int32_t month, std::string& error) {
  if (month < 1 || month > 12) {
    error = "the electron density model needs a month from 1 to 12";
    return false;
  }
  // The month's map file is only looked for here: reading it into the model's arrays
  // behind the model's own month cache would leave the cache naming another month.
  std::filesystem::path found;
  if ((!density_.dipLoaded && density_model::LoadDipLatitudes(density_) != 0) ||
      !density_model::FindModelFile(density_, fmt::format("CCIR{:02d}.ASC", month + 10), found)) {
    error = density_.error;
    return false;
  }
  return true;
}

}  // namespace vorel::observation
