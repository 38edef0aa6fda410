#pragma once
// The plasma bubble as the user places it on the map. These values are carried
// unchanged through a run down to the slant ionosphere.

#include <cstdint>
#include <string>

#include "platform/setting_table.h"

namespace vorel::platform {
class OutputFile;
}

namespace vorel::atmosphere {

// The bubble as the map panel holds it: drift as typed, and a path for its record file.
// A run derives its BubbleSettings from these.
struct BubblePanelValues {
  int32_t bubbleEnabled = 0;
  int32_t bubbleClassify = 0;
  double bubbleLatitude = 0.0;
  double bubbleLonNorth = 0.0, bubbleLonSouth = 0.0;
  double bubbleWidth = 0.0, bubbleLength = 0.0;
  double bubbleDrift = 0.0;  // m/s as typed
  int32_t bubbleDriftWest = 0;
  int32_t bubbleApplyDelay = 0;
  int32_t bubbleRecordEnabled = 0;
  std::string bubbleRecordPath;
  double bubbleDepth = 0.0;
  int32_t bubbleMode = 3;
};

const platform::SettingTable<BubblePanelValues>& BubbleSettingTable();

struct BubbleSettings {
  int32_t bubbleEnabled = 0;
  int32_t bubbleClassify = 0;
  double bubbleLatitude = 0.0;                        // degrees
  double bubbleLonNorth = 0.0, bubbleLonSouth = 0.0;  // degrees
  double bubbleDrift = 0.0;  // as stored by the run: typed m/s times +-0.001
  double bubbleWidth = 0.0, bubbleLength = 0.0;  // km
  double bubbleDepth = 0.0;     // passed down, not used
  int32_t bubbleApplyDelay = 0;
  int32_t bubbleMode = 3;       // passed down, not used
  int32_t bubbleRecordEnabled = 0;
  platform::OutputFile* recordFile = nullptr;
};

}  // namespace vorel::atmosphere
