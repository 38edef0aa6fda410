#pragma once
// The scintillation commands, apart from any front end: each takes the settings, the data
// directory and the message handlers, writes its files and returns what it read and wrote
// as text. Errors go to the "Error message" popup; a refused series to the "Warning" popup.
// Every input is read and checked before any output is opened, and each output is written
// under a temporary name that is renamed when the file is whole.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/data_dir.h"
#include "platform/messages.h"
#include "scintillation/filter_fit.h"
#include "scintillation/scint_generator.h"
#include "scintillation/scint_settings.h"
#include "scintillation/scint_table.h"

namespace vorel::scintillation {

struct ScintCommandResult {
  int status = 0;  // 0 done, 1 refused or failed (the popup says why)
  std::string text;
  std::vector<std::string> outputs;  // the files written
  // What a front end plots: the target as read, the fit, the generated series.
  TargetResponse target;
  FitResult fit;
  ScintSeries series;
};

// Mean, standard deviation and S4 index (of the intensity, the amplitude squared).
struct SeriesStatistics {
  double mean = 0.0;
  double deviation = 0.0;
  double s4 = 0.0;
};
SeriesStatistics ComputeStatistics(const std::vector<double>& values);

// Reads ScintTargetFile; sets FilterPoles to its na and FilterZeros to N - na - 1.
ScintCommandResult LoadScintTargetCommand(ScintSettings& settings,
                                          const platform::DataDirectory& dataDir,
                                          const platform::Messages& messages);

// Fits FilterPoles / FilterZeros to ScintTargetFile, writes "temp.txt" in the data directory
// and ScintFilterOutFile, and steps FitPlotColour.
ScintCommandResult FitScintFilterCommand(const ScintSettings& settings,
                                         const platform::DataDirectory& dataDir,
                                         const platform::Messages& messages,
                                         int32_t& FitPlotColour);

// Generates the series and writes "scintGenData.dat" in the data directory.
ScintCommandResult GenerateScintCommand(const ScintSettings& settings,
                                        const platform::DataDirectory& dataDir,
                                        const platform::Messages& messages);

// Generates the three series of the table and writes it to `output`.
ScintCommandResult ScintTableCommand(const ScintSettings& settings, const ScintTableArgs& args,
                                     const std::filesystem::path& output,
                                     const platform::DataDirectory& dataDir,
                                     const platform::Messages& messages);

}  // namespace vorel::scintillation
