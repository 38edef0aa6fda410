#include "dif/scint_reading.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/scan.h"

namespace vorel::dif {
namespace {

// The double a scan stores lands on two float slots (and the spare one behind the last).
void StoreDoubleOverSlots(std::array<float, 65>& slots, int32_t slot, double value) {
  std::memcpy(&slots[static_cast<size_t>(slot)], &value, sizeof value);
}

// Where a value goes: over two slots as the program stored it, or into its own slot as the
// number it is.
void Store(bool values, std::array<float, 65>& slots, int32_t slot, double value) {
  if (values)
    slots[static_cast<size_t>(slot)] = static_cast<float>(value);
  else
    StoreDoubleOverSlots(slots, slot, value);
}

// Mode 2: `phase power` lines for one satellite from its start time on.
void ReadOneSatellite(int32_t prn, const ScintReading& r, int32_t seconds,
                      platform::LineReader* file, int32_t slot, ScintillationState& st) {
  std::string line;
  if (prn != r.prn || seconds < r.start || !file || file->ReadLine(line) <= 0) {
    st.amplitude[slot] = 1.0f;
    st.phase[slot] = 0.0f;
    return;
  }
  // Values a line does not hold are taken as phase 0 and power 1.
  double first = 0.0, second = 1.0;
  platform::ScanLine(line, "%s>%f%f", {&first, &second});
  Store(r.values, st.phase, slot, first);
  st.amplitude[slot] = static_cast<float>(std::sqrt(second));
}

// Mode 1: a line per channel; the bubble class picks the pair, phase then amplitude.
void ReadByBubbleClass(int32_t bubbleClass, const ScintReading& r, platform::LineReader* file,
                       int32_t slot, ScintillationState& st) {
  std::string line;
  const int length = file ? file->ReadLine(line) : -1;
  if (length < 0 || bubbleClass == 0) {
    st.amplitude[slot] = 1.0f;
    st.phase[slot] = 0.0f;
    return;
  }
  // Classes above 5 (and below 0) leave the slots as they are.
  if (bubbleClass < 1 || bubbleClass > 5) return;
  platform::Scanner scanner(line);
  double skipped = 0.0, first = 0.0, second = 0.0;
  bool ok = true;
  for (int32_t k = 0; k < 2 * (bubbleClass - 1) && ok; ++k) ok = scanner.Double(skipped);
  if (ok && scanner.Double(first)) {
    Store(r.values, st.phase, slot, first);
    if (scanner.Double(second)) Store(r.values, st.amplitude, slot, second);
  }
}

}  // namespace

ScintReading ScenarioScintReading(const DifSettings& s) {
  return {s.ScintMode, s.ScintPrn, s.ScintStart, s.ScintReadValues != 0};
}

ScintReading TestScintReading(const DifSettings& s) {
  return {2, s.TestPrn, s.ScintStart, s.ScintReadValues != 0};
}

void StartScintillation(const DifSettings& s, int32_t onlyPrn, ScintillationState& st) {
  const int32_t rate = s.ScintRate == 0 ? 1 : s.ScintRate;
  st.scintPeriod = 1000 / rate;
  if (s.ScintMode <= 0) return;
  if (onlyPrn >= 1 && onlyPrn <= 32) {
    const size_t first = 2 * static_cast<size_t>(onlyPrn - 1);
    st.amplitude[first] = st.amplitude[first + 1] = 1.0f;
    st.phase[first] = st.phase[first + 1] = 0.0f;
  } else {
    st.amplitude.fill(1.0f);
    st.phase.fill(0.0f);
  }
}

void UpdateScintillation(int32_t prn, int32_t bubbleClass, const ScintReading& reading,
                         int32_t seconds, platform::LineReader* file, ScintillationState& st,
                         float& amplitude, float& phase) {
  const int32_t slotNew = 2 * (prn - 1) + st.slotNew;
  const int32_t slotOld = 2 * (prn - 1) + st.slotOld;
  if (st.scintCounter >= st.scintPeriod) {
    if (reading.mode == 2)
      ReadOneSatellite(prn, reading, seconds, file, slotNew, st);
    else if (reading.mode == 1)
      ReadByBubbleClass(bubbleClass, reading, file, slotNew, st);
  }
  const float counter = static_cast<float>(st.scintCounter);
  const float period = static_cast<float>(st.scintPeriod);
  const float aOld = st.amplitude[slotOld], aNew = st.amplitude[slotNew];
  const float pOld = st.phase[slotOld], pNew = st.phase[slotNew];
  amplitude = aOld + ((aNew - aOld) * counter) / period;
  phase = pOld + ((pNew - pOld) * counter) / period;
  if (reading.values) {
    // The generator keeps a block's phase offset in the carrier phase of the next block, so
    // the block adds only the change: the carrier then carries the file's phase itself.
    float& applied = st.appliedPhase[static_cast<size_t>(prn - 1)];
    const float wanted = phase;
    phase = wanted - applied;
    applied = wanted;
  }
}

void StepScintCounter(int32_t scintMode, ScintillationState& st) {
  if (scintMode <= 0) return;
  if (st.scintCounter >= st.scintPeriod) {
    st.scintCounter = 0;
    st.slotOld = st.slotNew;
    st.slotNew = std::abs(st.slotNew - 1);
  }
  st.scintCounter += 1;
}

}  // namespace vorel::dif
