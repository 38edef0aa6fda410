#pragma once
// RunDifGeneration: the DIF run from its settings to the closed sample file.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>

#include "dif/dif_settings.h"
#include "dif/dif_state.h"
#include "dif/sample_generation.h"
#include "platform/messages.h"
#include "platform/random.h"

namespace vorel::dif {

// Where a run's files are; the front end maps the settings' paths into the data directory.
struct DifRunPaths {
  std::filesystem::path output;     // DifOutputFile
  std::filesystem::path record;     // ObservationOutputFile (the .scn record)
  std::filesystem::path scintFile;  // ScintFile
  std::filesystem::path dataDir;    // NAV/navbin<prn> and simulated.nvb lie below it
};

struct DifRunOutcome {
  int result = 1;        // what RunDifGeneration returns
  bool refused = false;  // a setting was refused: nothing ran, no file was touched
  bool popup = false;    // a popup ended the run at its clean-up
  DifSettings settings;  // as the run derived them
  GeneratorReport report;
};

// Sets RunActive, derives the settings, opens the output, designs the filter, loads the
// navigation bits, opens the record or the scintillation file and runs one of the two
// generators; clears up on every path and clears RunActive. Returns 1.
int RunDifGeneration(const DifPanelValues& panel, const DifRunPaths& paths, DifState& state,
                     platform::RandState& rand, std::atomic<uint8_t>& RunActive,
                     const platform::Messages& messages, const GeneratorSpeed& speed,
                     DifRunOutcome& outcome);

}  // namespace vorel::dif
