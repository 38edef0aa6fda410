// The map panel's setting table.

#include <fmt/format.h>

#include <cstdlib>

#include "display/map_settings.h"

namespace vorel::display {
namespace {

// A colour is typed as 0xRRGGBB or as a plain number.
bool ReadColour(MapSettings& s, std::string_view text, std::string& error) {
  const std::string t(platform::TrimSetting(text));
  const bool hex = t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X');
  char* end = nullptr;
  const long long v = std::strtoll(t.c_str() + (hex ? 2 : 0), &end, hex ? 16 : 10);
  if (t.empty() || end != t.c_str() + t.size() || t[hex ? 2 : 0] == '-' || t[hex ? 2 : 0] == '+') {
    error = fmt::format("\"{}\" is not a colour (0xRRGGBB or a whole number)", t);
    return false;
  }
  if (v < 0 || v > 0xFFFFFF) {
    error = fmt::format("{} is outside 0x000000 to 0xFFFFFF", t);
    return false;
  }
  s.profileColour = static_cast<int32_t>(v);
  return true;
}

}  // namespace

const platform::SettingTable<MapSettings>& MapSettingTable() {
  using M = MapSettings;
  static const platform::SettingTable<M> table = {
      {.name = "tecMapModel",
       .member = &M::tecMapModel,
       .min = 0,
       .max = 2,
       .meaning = "model of the TEC map: 0 electron density model (NeQuick), 2 broadcast "
                  "(Klobuchar); 1 draws with no model (every cell 0)"},
      {.name = "profileScale",
       .member = &M::profileScale,
       .min = 0,
       .max = 1,
       .meaning = "density axis of the profile plot: 0 logarithmic (1e7 to 1e13 m^-3), 1 "
                  "linear (0 to 1e13 m^-3)"},
      {.name = "profileColour",
       .member = &M::profileColour,
       .type = "colour",
       .unit = "0xRRGGBB",
       .meaning = "pen colour of the next profile drawn on the plot",
       .show = [](const M& s) { return fmt::format("0x{:06X}", s.profileColour); },
       .read = ReadColour},
      {.name = "overlayOpacity",
       .member = &M::overlayOpacity,
       .min = 0,
       .max = 255,
       .meaning = "opacity of the map's graticule layer; 0 hides it"},
      {.name = "klobucharOpacity",
       .member = &M::klobucharOpacity,
       .min = 0,
       .max = 255,
       .meaning = "opacity of the broadcast-model TEC layer; 0 hides it"},
      {.name = "nequickOpacity",
       .member = &M::nequickOpacity,
       .min = 0,
       .max = 255,
       .meaning = "opacity of the electron density model's TEC layer; 0 hides it"},
      {.name = "skyPlotOpacity",
       .member = &M::skyPlotOpacity,
       .min = 0,
       .max = 255,
       .meaning = "opacity of the receiver and satellite layer; 0 hides it"},
      {.name = "bubbleOpacity",
       .member = &M::bubbleOpacity,
       .min = 0,
       .max = 255,
       .meaning = "opacity of the bubble layer and its wall crossings; 0 hides it"},
      {.name = "mapLabels",
       .member = &M::mapLabels,
       .min = 0,
       .max = 1,
       .meaning = "1: the map command's sky layer shows each satellite as a numbered tag "
                  "(a run labels them in its last tenth)"},
  };
  return table;
}

}  // namespace vorel::display
