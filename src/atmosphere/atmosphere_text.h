#pragma once
// The atmosphere settings as text: reading the eight cells of a coefficient table from a
// command-line value, checking the troposphere model number, and the output of the two
// solar-number conversion commands. For the command-line and scenario-file front end.

#include <span>
#include <string>
#include <string_view>

#include "atmosphere/atmosphere_settings.h"

namespace vorel::atmosphere {

// Reads one number: optional blanks, an optional sign, a decimal or exponent form
// (1.1176E-08), optional blanks. Infinities and not-a-numbers are refused. Returns 0, or
// -1 with `error` saying what was wrong (without a prefix; the caller names the source).
int ParseSettingNumber(std::string_view text, double& value, std::string& error);

// "a0,a1,a2,a3,b0,b1,b2,b3" into a table, cells in order alpha0..alpha3, beta0..beta3.
// On a wrong count or a bad cell returns -1 and leaves `table` untouched; `error` then
// names the setting and the cell, e.g.
//   ionoTruthTable: expected 8 values (alpha0..alpha3, beta0..beta3), got 7
int ParseIonoTable(std::string_view settingName, std::string_view text, IonoCoefficientTable& table,
                   std::string& error);

// The same from numbers already read (a scenario file's array of eight).
int IonoTableFromCells(std::string_view settingName, std::span<const double> cells,
                       IonoCoefficientTable& table, std::string& error);

// The table as "[a0, a1, a2, a3, b0, b1, b2, b3]", each number in its shortest exact form.
std::string FormatIonoTable(const IonoCoefficientTable& table);

// 0 for a model number of 1, 2 or 3; otherwise -1 and an error naming tropoModel.
int CheckTropoModel(int tropoModel, std::string& error);

// The two solar numbers as two scenario-file lines:
//   solarFlux = 150.0
//   sunspotNumber = 105.05...
// each number in its shortest exact form, always with a decimal point or exponent.
std::string FormatSolarNumbers(const AtmosphereSettings& settings);

// convert-flux VALUE: solarFlux = VALUE, then ConvertFluxToSunspot, and the two lines into `out`.
// convert-sunspot VALUE: sunspotNumber = VALUE, then ConvertSunspotToFlux, the same lines.
// A VALUE that is not a number returns -1 with the error in `error`; `settings` and `out`
// are then untouched.
int RunConvertFlux(AtmosphereSettings& settings, std::string_view valueText, std::string& out,
                   std::string& error);
int RunConvertSunspot(AtmosphereSettings& settings, std::string_view valueText, std::string& out,
                      std::string& error);

}  // namespace vorel::atmosphere
