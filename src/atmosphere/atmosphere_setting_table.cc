// The setting tables of the atmosphere pages and of the bubble panel.

#include <fmt/format.h>

#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/atmosphere_text.h"
#include "atmosphere/bubble_settings.h"

namespace vorel::atmosphere {
namespace {

constexpr double kNone = platform::kNoBound;

// The coefficient tables are written as eight numbers, optionally in brackets.
template <IonoCoefficientTable AtmosphereSettings::*kTable>
bool ReadIonoTable(AtmosphereSettings& s, std::string_view text, const char* name,
                   std::string& error) {
  std::string_view t = platform::TrimSetting(text);
  if (t.size() >= 2 && t.front() == '[' && t.back() == ']') t = t.substr(1, t.size() - 2);
  if (ParseIonoTable(name, t, s.*kTable, error) != 0) {
    // The parser names the setting itself; the caller adds the source and the name.
    const std::string prefix = std::string(name) + ": ";
    if (error.rfind(prefix, 0) == 0) error = error.substr(prefix.size());
    return false;
  }
  return true;
}

}  // namespace

const platform::SettingTable<AtmosphereSettings>& AtmosphereSettingTable() {
  using A = AtmosphereSettings;
  static const platform::SettingTable<A> table = {
      {.name = "atmosphereEnabled", .member = &A::atmosphereEnabled,
       .meaning = "1: troposphere and ionosphere on"},
      {.name = "surfaceTemperature", .member = &A::surfaceTemperature, .unit = "degC",
       .min = -100, .max = 100, .meaning = "surface temperature at the receiver"},
      {.name = "surfacePressure", .member = &A::surfacePressure, .unit = "mbar", .min = 0,
       .max = 2000, .meaning = "surface pressure at the receiver"},
      {.name = "surfaceHumidity", .member = &A::surfaceHumidity, .unit = "%", .min = 0,
       .max = 100, .meaning = "relative humidity at the receiver"},
      {.name = "tropoModel", .member = &A::tropoModel, .min = 1, .max = 3,
       .meaning = "troposphere model 1, 2 or 3"},
      {.name = "klobucharSelected", .member = &A::klobucharSelected,
       .meaning = "1: broadcast (Klobuchar) ionosphere; 0: electron density model"},
      {.name = "solarFlux", .member = &A::solarFlux, .unit = "sfu", .min = 0, .max = 1000,
       .meaning = "10.7 cm solar flux for the electron density model"},
      {.name = "AtmosphereUpdateInterval", .member = &A::AtmosphereUpdateInterval, .unit = "ms",
       .min = 0, .max = 86400000,
       .meaning = "0: the atmosphere is worked out on the first epoch of the program start and "
                  "held; above 0: delays, bubble classes and the bubble record are worked out "
                  "anew on each run's first epoch and then at this interval of scenario time"},
      {.name = "TroposphereInRanges", .member = &A::TroposphereInRanges, .min = 0, .max = 1,
       .meaning = "1: the troposphere model's delay is added to code and carrier alike (with "
                  "atmosphereEnabled 1); 0: it is worked out and left out of the ranges"},
      {.name = "sunspotNumber", .member = &A::sunspotNumber, .min = 0, .max = 1000,
       .meaning = "twelve-month smoothed sunspot number"},
      {.name = "ionoTruthTable", .member = {}, .type = "8 x double", .unit = "s/semicircle^n",
       .meaning = "Klobuchar coefficients the simulated ionosphere obeys: alpha0..alpha3, "
                  "beta0..beta3",
       .show = [](const A& s) { return FormatIonoTable(s.ionoTruthTable); },
       .read =
           [](A& s, std::string_view text, std::string& error) {
             return ReadIonoTable<&A::ionoTruthTable>(s, text, "ionoTruthTable", error);
           }},
      {.name = "ionoBroadcastTable", .member = {}, .type = "8 x double", .unit = "s/semicircle^n",
       .meaning = "Klobuchar coefficients the navigation message transmits: alpha0..alpha3, "
                  "beta0..beta3",
       .show = [](const A& s) { return FormatIonoTable(s.ionoBroadcastTable); },
       .read =
           [](A& s, std::string_view text, std::string& error) {
             return ReadIonoTable<&A::ionoBroadcastTable>(s, text, "ionoBroadcastTable", error);
           }},
  };
  return table;
}

const platform::SettingTable<BubblePanelValues>& BubbleSettingTable() {
  using B = BubblePanelValues;
  static const platform::SettingTable<B> table = {
      {.name = "bubbleEnabled", .member = &B::bubbleEnabled,
       .meaning = "1: a plasma bubble in the slant ionosphere"},
      {.name = "bubbleClassify", .member = &B::bubbleClassify,
       .meaning = "1: classify the delay taken out"},
      {.name = "bubbleLatitude", .member = &B::bubbleLatitude, .unit = "deg", .min = -90,
       .max = 90, .meaning = "latitude of the bubble's centre"},
      {.name = "bubbleLonNorth", .member = &B::bubbleLonNorth, .unit = "deg", .min = -180,
       .max = 360, .meaning = "longitude of the centre of the north edge"},
      {.name = "bubbleLonSouth", .member = &B::bubbleLonSouth, .unit = "deg", .min = -180,
       .max = 360, .meaning = "longitude of the centre of the south edge"},
      {.name = "bubbleWidth", .member = &B::bubbleWidth, .unit = "km", .min = 0, .max = kNone,
       .meaning = "east-west extent"},
      {.name = "bubbleLength", .member = &B::bubbleLength, .unit = "km", .min = 0, .max = kNone,
       .meaning = "north-south extent"},
      {.name = "bubbleDrift", .member = &B::bubbleDrift, .unit = "m/s",
       .meaning = "drift speed along the east-west axis"},
      {.name = "bubbleDriftWest", .member = &B::bubbleDriftWest,
       .meaning = "1: drift to the west"},
      {.name = "bubbleApplyDelay", .member = &B::bubbleApplyDelay,
       .meaning = "1: take the electrons inside the bubble out of the delay"},
      {.name = "bubbleRecordEnabled", .member = &B::bubbleRecordEnabled,
       .meaning = "1: write the bubble record file"},
      {.name = "bubbleRecordPath", .member = &B::bubbleRecordPath, .type = "path",
       .meaning = "bubble record file"},
      {.name = "bubbleDepth", .member = &B::bubbleDepth, .meaning = "carried, not used"},
      {.name = "bubbleMode", .member = &B::bubbleMode, .meaning = "carried, not used"},
  };
  return table;
}

}  // namespace vorel::atmosphere
