#pragma once
// The DIF run from the settings: what the `dif` command, `sim` (DifEnabled 1) and
// `autorun` start.

#include <string>
#include <vector>

#include "app/session.h"
#include "dif/dif_run.h"

namespace vorel::app {

// The DIF panel values of the settings with the scenario's system selector filled in.
dif::DifPanelValues DifPanelFromSettings(const Settings& settings);

// Runs RunDifGeneration on the session. `recordOverride`, when not empty, is the .scn
// record to read instead of ObservationOutputFile (autorun hands on the record its
// observation run wrote). The sample file is added to lastOutputs. Returns 0, or 1 when a
// setting was refused or a popup ended the run.
// `navBitsInTable`: the session's navigation bit table holds the bits of the NAV files,
// converted, so the run does not read them again.
int RunDif(Session& session, const std::string& recordOverride, dif::DifRunOutcome& outcome,
           bool navBitsInTable = false);

// The threads a DIF run takes: DifThreads, or one per core when it is 0.
int DifThreadCount(const Settings& settings);

// What a run writes of each millisecond: the generator computes computedPerMs samples,
// the file holds writtenPerMs of them (every decimation-th), and the last skippedPerMs are
// left out.
struct RecordingShape {
  int32_t decimation = 1;
  int32_t samplesPerByte = 1;
  int32_t computedPerMs = 0, writtenPerMs = 0, skippedPerMs = 0;
};
RecordingShape ShapeOf(const dif::DifSettings& s);

// Warnings, in plain words, where the file differs from what the settings suggest: a typed
// sampling rate the first-character rule turns into another, samples left out at the end
// of each millisecond, Direct levels wider than a byte.
std::vector<std::string> RecordingWarnings(const dif::DifPanelValues& panel,
                                           const dif::DifSettings& s);

// "16368 samples per ms (16.368 MHz), IF 4092 kHz, 2 bits, Packed: 4 samples a byte, the
// earliest in the lowest bits; levels unsigned, 0 the block's minimum": what a receiver
// must be told about the file.
std::string DescribeRecording(const dif::DifSettings& s, const dif::GeneratorReport& report);

}  // namespace vorel::app
