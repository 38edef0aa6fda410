#include "atmosphere/atmosphere_settings.h"

#include "atmosphere/klobuchar.h"

namespace vorel::atmosphere {

void CHOOSE_ION(AtmosphereSettings& settings) {
  settings.klobucharSelected = 1;
  settings.ionoChoice2Selected = 0;
  settings.ionoChoice3Selected = 0;
}

void CHOOSE_ION2(AtmosphereSettings& settings) {
  settings.klobucharSelected = 0;
  settings.ionoChoice2Selected = 1;
  settings.ionoChoice3Selected = 0;
}

void CHOOSE_ION3(AtmosphereSettings& settings) {
  settings.klobucharSelected = 0;
  settings.ionoChoice2Selected = 0;
  settings.ionoChoice3Selected = 1;
}

void CHOOSE_R12(AtmosphereSettings& settings) {
  settings.fluxChosen = settings.r12Chosen == 0 ? 1 : 0;
}

void CHOOSE_FLUX(AtmosphereSettings& settings) {
  settings.r12Chosen = settings.fluxChosen == 0 ? 1 : 0;
}

void CONVERT_FLUX(AtmosphereSettings& settings) {
  settings.sunspotNumber = SunspotFromFlux(settings.solarFlux);
}

void CONVERT_SUNSPOT(AtmosphereSettings& settings) {
  settings.solarFlux = FluxFromSunspot(settings.sunspotNumber);
}

void IONB_SET20(AtmosphereSettings& settings) {
  settings.ionoBroadcastTable = IonoCoefficientTable{};
}

void IONB_SET2T(AtmosphereSettings& settings) {
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 4; ++column) {
      settings.ionoBroadcastTable.cells[row][column] = settings.ionoTruthTable.cells[row][column];
    }
  }
}

int BroadcastModelChosen(const AtmosphereSettings& settings) {
  return settings.atmosphereEnabled == 1 && settings.klobucharSelected == 1 ? 1 : 0;
}

int LoadRunKlobuchar(AtmosphereState& state, const AtmosphereSettings& settings) {
  if (BroadcastModelChosen(settings) != 1) return 0;
  LoadKlobucharCoefficients(state, settings.ionoTruthTable);
  return 1;
}

}  // namespace vorel::atmosphere
