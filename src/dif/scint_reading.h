#pragma once
// Scintillation in a DIF run: the file's values read once a period into two slots per
// PRN, and each channel's amplitude and phase for a millisecond interpolated between them.
// By default a value lands as the program always stored it, a double over two float slots;
// ScintReadValues takes each value as the number it is (see docs/dif.md).

#include <array>
#include <cstdint>

#include "dif/dif_settings.h"
#include "platform/text_file.h"

namespace vorel::dif {

// Scintillation slots: two per PRN (slot 2 (PRN - 1) + s), and one spare slot at the end,
// because a value read from the file is stored as a double over two float slots.
struct ScintillationState {
  std::array<float, 65> amplitude;
  std::array<float, 65> phase;
  int32_t slotOld = 0;
  int32_t slotNew = 1;
  int32_t scintCounter = 0;
  int32_t scintPeriod = 1;
  // ScintReadValues: the phase each PRN's carrier already carries (a block's phase offset
  // stays in the carrier phase of the blocks after it).
  std::array<float, 32> appliedPhase{};
  ScintillationState() {
    amplitude.fill(1.0f);
    phase.fill(0.0f);
  }
};

// How a run reads the file.
struct ScintReading {
  int32_t mode = 0;     // 1: a line per channel, the pair of its bubble class; 2: one PRN
  int32_t prn = 0;      // mode 2: the satellite (ScintPrn)
  int32_t start = 0;    // mode 2: seconds into the run before the file is read (ScintStart)
  bool values = false;  // ScintReadValues: each value as the number it is
};

// The reading of a scenario run; a test run reads as mode 2 for its satellite.
ScintReading ScenarioScintReading(const DifSettings& s);
ScintReading TestScintReading(const DifSettings& s);

// A run's start: the period of 1000 / ScintRate ms (0 taken as 1) and, with scintillation
// on, the slots at amplitude 1 and phase 0: every slot, or only those of `onlyPrn` (the
// test signal's) when it is 1 to 32.
void StartScintillation(const DifSettings& s, int32_t onlyPrn, ScintillationState& state);

// The channel's amplitude and phase for this millisecond, reading the file when a period
// is over (see docs/dif.md). With reading.values the phase is what this block adds to the
// carrier: the interpolated value less what the carrier already carries.
void UpdateScintillation(int32_t prn, int32_t bubbleClass, const ScintReading& reading,
                         int32_t seconds, platform::LineReader* file, ScintillationState& state,
                         float& amplitude, float& phase);

// After a block's channels: a period that is over swaps the slots and starts again.
void StepScintCounter(int32_t scintMode, ScintillationState& state);

}  // namespace vorel::dif
