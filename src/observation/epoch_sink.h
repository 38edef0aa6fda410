#pragma once
// The seam between the epoch computation and whatever shows or keeps its results. The
// loop hands every computed epoch to each sink of the run, in the order of the run's
// list; a sink decides from the context whether the epoch concerns it (a record writer
// skips the run's first epoch, the map display waits for its tick).

#include <cstdint>
#include <vector>

#include "observation/epoch.h"

namespace vorel::observation {

class EpochSink {
 public:
  virtual ~EpochSink() = default;
  // Called once before the first epoch of a run.
  virtual void OnRunStart() {}
  virtual void OnEpoch(const EpochResult& result, const EpochContext& context) = 0;
  // Called once when the run has ended normally or was stopped (not when it failed).
  virtual void OnRunEnd() {}
};

// What the map display is handed; both do nothing where no display exists.
class EpochDisplay {
 public:
  virtual ~EpochDisplay() = default;
  virtual void ClearSkyPlot() {}
  virtual void UpdateMapScene(double /*latitudeRad*/, double /*longitudeRad*/,
                              const std::vector<DisplayRow>& /*rows*/, int32_t /*lateInRun*/) {}
};

// The map display as a sink: the sky plot is cleared when a run starts and the map
// scene is updated at every display tick.
class DisplaySink : public EpochSink {
 public:
  explicit DisplaySink(EpochDisplay& display) : display_(display) {}
  void OnRunStart() override { display_.ClearSkyPlot(); }
  void OnEpoch(const EpochResult& result, const EpochContext& context) override;

 private:
  EpochDisplay& display_;
};

}  // namespace vorel::observation
