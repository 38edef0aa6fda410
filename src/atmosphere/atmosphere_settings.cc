#include "atmosphere/atmosphere_settings.h"

#include "atmosphere/klobuchar.h"

namespace vorel::atmosphere {

void ChooseBroadcastIonosphere(AtmosphereSettings& settings) {
  settings.klobucharSelected = 1;
  settings.ionoChoice2Selected = 0;
  settings.ionoChoice3Selected = 0;
}

void ChooseSlantIonosphere(AtmosphereSettings& settings) {
  settings.klobucharSelected = 0;
  settings.ionoChoice2Selected = 1;
  settings.ionoChoice3Selected = 0;
}

void ChooseThirdIonosphere(AtmosphereSettings& settings) {
  settings.klobucharSelected = 0;
  settings.ionoChoice2Selected = 0;
  settings.ionoChoice3Selected = 1;
}

void ChooseSunspotInput(AtmosphereSettings& settings) {
  settings.fluxChosen = settings.r12Chosen == 0 ? 1 : 0;
}

void ChooseFluxInput(AtmosphereSettings& settings) {
  settings.r12Chosen = settings.fluxChosen == 0 ? 1 : 0;
}

void ConvertFluxToSunspot(AtmosphereSettings& settings) {
  settings.sunspotNumber = SunspotFromFlux(settings.solarFlux);
}

void ConvertSunspotToFlux(AtmosphereSettings& settings) {
  settings.solarFlux = FluxFromSunspot(settings.sunspotNumber);
}

void ZeroBroadcastIonoTable(AtmosphereSettings& settings) {
  settings.ionoBroadcastTable = IonoCoefficientTable{};
}

void CopyTruthToBroadcastIonoTable(AtmosphereSettings& settings) {
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
