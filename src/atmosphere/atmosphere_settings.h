#pragma once
// The settings of the atmosphere pages (troposphere, ionosphere model choice, solar
// numbers, coefficient tables) and the operations the pages' buttons perform on them.

#include <cmath>

#include "atmosphere/atmosphere_state.h"
#include "platform/setting_table.h"

namespace vorel::atmosphere {

// Eight Klobuchar coefficients as the pages show them: row 0 holds alpha0..alpha3,
// row 1 beta0..beta3 (alpha n in s / semicircle^n, beta n in s / semicircle^n).
struct IonoCoefficientTable {
  double cells[2][4] = {{0.0, 0.0, 0.0, 0.0}, {0.0, 0.0, 0.0, 0.0}};
};

// Twelve-month smoothed sunspot number from the 10.7 cm solar flux, and back. A flux so
// low that the root's argument turns negative gives a not-a-number, unguarded.
inline double SunspotFromFlux(double solarFlux) {
  return std::sqrt((solarFlux - 63.7) * 1123.6 + 167273.0) - 408.99;
}
inline double FluxFromSunspot(double sunspotNumber) {
  return (0.00089 * sunspotNumber + 0.728) * sunspotNumber + 63.7;
}

struct AtmosphereSettings {
  // One switch for troposphere and ionosphere together.
  int atmosphereEnabled = 0;

  // Troposphere: surface weather at the receiver and the model number 1, 2 or 3.
  double surfaceTemperature = 20.0;  // degrees Celsius
  double surfacePressure = 1013.25;  // mbar
  double surfaceHumidity = 50.0;     // percent, handed to the models as typed
  int tropoModel = 1;

  // The three mutually exclusive model buttons. A run looks at the first alone: 1 means
  // the broadcast model, anything else the electron density model.
  int klobucharSelected = 1;
  int ionoChoice2Selected = 0;
  int ionoChoice3Selected = 0;

  // Which of the two solar numbers the user types; the run reads solarFlux either way.
  int r12Chosen = 0;
  int fluxChosen = 1;

  double solarFlux = 100.0;  // solar flux units, for the electron density model
  double sunspotNumber = SunspotFromFlux(100.0);

  // The coefficients the simulated ionosphere obeys, and those the navigation message
  // transmits; they may differ on purpose.
  IonoCoefficientTable ionoTruthTable;
  IonoCoefficientTable ionoBroadcastTable;

  // Ours: milliseconds of scenario time between atmosphere updates within a run. 0 works
  // the atmosphere out once, on the first epoch of the program start, and holds it.
  int32_t AtmosphereUpdateInterval = 0;
  // Ours: 1 adds the troposphere's delay to code and carrier; 0 leaves it out, as the
  // program always did.
  int32_t TroposphereInRanges = 0;
};

// The settings of the atmosphere pages, with their units, ranges and meanings.
const platform::SettingTable<AtmosphereSettings>& AtmosphereSettingTable();

// The model-choice buttons: each turns its own button on and the two others off.
void ChooseBroadcastIonosphere(AtmosphereSettings& settings);
void ChooseSlantIonosphere(AtmosphereSettings& settings);
void ChooseThirdIonosphere(AtmosphereSettings& settings);

// The two solar-number check boxes: each reads its own box (as the user has just set
// it) and sets the other box to the opposite; nothing else changes.
void ChooseSunspotInput(AtmosphereSettings& settings);
void ChooseFluxInput(AtmosphereSettings& settings);

// Keep the two solar numbers in step: sunspotNumber from solarFlux, and the reverse.
void ConvertFluxToSunspot(AtmosphereSettings& settings);
void ConvertSunspotToFlux(AtmosphereSettings& settings);

// Broadcast table to all zeros; broadcast table as a copy of the truth table.
void ZeroBroadcastIonoTable(AtmosphereSettings& settings);
void CopyTruthToBroadcastIonoTable(AtmosphereSettings& settings);

// 1 when a run with these settings takes the broadcast model (atmosphere on and the
// first button set), as the run's model number; 0 otherwise.
int BroadcastModelChosen(const AtmosphereSettings& settings);

// What the run gatherer does at the start of an observation run: with the atmosphere
// on and the broadcast model chosen, ionoTruthTable goes into KlobucharAlpha/Beta.
// Otherwise the state is left as it is. Returns 1 when the table was loaded, else 0.
int LoadRunKlobuchar(AtmosphereState& state, const AtmosphereSettings& settings);

}  // namespace vorel::atmosphere
