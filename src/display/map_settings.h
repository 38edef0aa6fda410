#pragma once
// The map panel's own settings: which model the TEC map shows, how the profile plot is
// drawn, each layer's opacity and whether the map command labels its satellites.

#include <cstdint>

#include "platform/setting_table.h"

namespace vorel::display {

struct MapSettings {
  int32_t tecMapModel = 0;           // 0 NeQuick, 2 Klobuchar, other: no model
  int32_t profileScale = 0;          // 0 logarithmic, otherwise linear
  int32_t profileColour = 0xFF0000;  // 0xRRGGBB
  int32_t overlayOpacity = 255;
  int32_t klobucharOpacity = 150;
  int32_t nequickOpacity = 150;
  int32_t skyPlotOpacity = 255;
  int32_t bubbleOpacity = 200;
  int32_t mapLabels = 0;  // 1: the map command numbers its satellites
};

const platform::SettingTable<MapSettings>& MapSettingTable();

}  // namespace vorel::display
