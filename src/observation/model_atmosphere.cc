#include "observation/model_atmosphere.h"

#include "atmosphere/klobuchar.h"
#include "atmosphere/troposphere.h"

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

// Not carried yet: HasSlantIonosphere() says so and a run that asks for it is refused
// before its first epoch, so this is never reached.
void ModelAtmosphere::SlantIonosphere(const SlantInput&, double& delay, int32_t& bubbleClass) {
  delay = 0.0;
  bubbleClass = 0;
}

}  // namespace vorel::observation
