#pragma once
// The plasma bubble as the user places it on the map. These values are carried
// unchanged through a run down to the slant ionosphere.

#include <cstdint>

namespace vorel::platform {
class OutputFile;
}

namespace vorel::atmosphere {

struct BubbleSettings {
  int32_t bubbleEnabled = 0;
  int32_t bubbleClassify = 0;
  double bubbleLatitude = 0.0;  // degrees
  double bubbleLonNorth = 0.0;  // degrees
  double bubbleLonSouth = 0.0;  // degrees
  double bubbleDrift = 0.0;     // as stored by the run: typed m/s times +-0.001
  double bubbleWidth = 0.0;     // km
  double bubbleLength = 0.0;    // km
  double bubbleDepth = 0.0;     // passed down, not used
  int32_t bubbleApplyDelay = 0;
  int32_t bubbleMode = 3;       // passed down, not used
  int32_t bubbleRecordEnabled = 0;
  platform::OutputFile* recordFile = nullptr;
};

}  // namespace vorel::atmosphere
