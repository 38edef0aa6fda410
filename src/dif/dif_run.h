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
#include "platform/status.h"

namespace vorel::dif {

// Where a run's files are; the front end maps the settings' paths into the data directory.
struct DifRunPaths {
  std::filesystem::path output;     // DifOutputFile
  std::filesystem::path record;     // ObservationOutputFile (the .scn record)
  std::filesystem::path scintFile;  // ScintFile
  std::filesystem::path dataDir;    // NAV/navbin<prn> and simulated.nvb lie below it
  // The state's navigation bit table already holds the bits of NAV/navbin<prn>, converted
  // (the caller wrote the files and kept a copy): the files are not read again.
  bool navBitsInTable = false;
};

struct DifRunOutcome {
  int result = 1;        // what RunDifGeneration returns
  bool refused = false;  // a setting was refused: nothing ran, no file was touched
  bool badSetting = false;  // refused for a setting's value (the command exits with 2)
  bool popup = false;    // a popup ended the run (a missing input, an unwritable output)
  platform::Status status;  // Ok, Failed (with the popup's text) or Stopped by the user
  DifSettings settings;  // as the run derived them
  GeneratorReport report;
};

// Sets RunActive for the run, derives and checks the settings, opens the record or the
// scintillation file, refuses an output that is one of those inputs, and only then opens
// the output (under a temporary name beside it), designs the filter, loads the
// navigation bits and runs one of the two generators. The recording takes its name when
// it was written whole; a refused or failed run leaves an earlier file at that name as it
// was. Every failure is an "Error message" popup and outcome.status. Returns 1.
int RunDifGeneration(const DifPanelValues& panel, const DifRunPaths& paths, DifState& state,
                     platform::RandState& rand, std::atomic<uint8_t>& RunActive,
                     const platform::Messages& messages, const GeneratorSpeed& speed,
                     DifRunOutcome& outcome);

}  // namespace vorel::dif
