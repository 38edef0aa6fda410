#include "app/dif_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <thread>

#include "app/scenario_runs.h"
#include "dif/quantiser.h"

namespace vorel::app {

dif::DifPanelValues DifPanelFromSettings(const Settings& settings) {
  dif::DifPanelValues panel = settings.dif;
  panel.ConstellationChoice = settings.scenario.ConstellationChoice;
  return panel;
}

int RunDif(Session& session, const std::string& recordOverride, dif::DifRunOutcome& outcome) {
  const Settings settings = session.settings;  // a run reads its settings once
  dif::DifRunPaths paths;
  std::string output = settings.dif.DifOutputFile;
  if (output.empty()) {
    std::time_t t = std::time(nullptr);
    std::tm now{};
    localtime_r(&t, &now);
    output = DifOutputName(settings.dif.DifFileType, now);
  }
  paths.output = session.dataDir.Map(output);
  paths.record = recordOverride.empty()
                     ? session.dataDir.Map(settings.scenario.ObservationOutputFile)
                     : std::filesystem::path(recordOverride);
  paths.scintFile = session.dataDir.Map(settings.dif.ScintFile);
  paths.dataDir = session.dataDir.root();

  dif::GeneratorSpeed speed;
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  speed.threads = settings.dif.DifThreads > 0 ? settings.dif.DifThreads : static_cast<int>(cores);
  dif::RunDifGeneration(DifPanelFromSettings(settings), paths, session.dif, session.workerRand,
                        session.RunActive, session.messages, speed, outcome);
  if (outcome.refused) return 1;
  session.lastOutputs.push_back(paths.output.string());
  return outcome.popup ? 1 : 0;
}

std::string DescribeRecording(const dif::DifSettings& s, const dif::GeneratorReport& report) {
  const int32_t d = s.Decimation == 0 ? 1 : s.Decimation;
  const double rate = s.SamplingFrequency / d;
  std::string layout;
  if (s.OutputPacked == 0)
    layout = "Direct: one sample a byte, in the low bits";
  else if (s.BitsPerSample == 1)
    layout = "Packed: 8 samples a byte, the earliest in bit 0";
  else
    layout = "Packed: 4 samples a byte, the earliest in bits 1..0";
  return fmt::format(
      "{} ms of signal, {} bytes: {} samples per second (fs {} Hz{}), IF {} Hz, real samples, "
      "{} bit(s) a sample, {}; levels unsigned 0..{} (0 the block's minimum), the block "
      "quantised against its own range, no header",
      report.blocks, report.bytes, fmt::format("{}", rate), fmt::format("{}", s.SamplingFrequency),
      d > 1 ? fmt::format(", decimated by {}", d) : std::string(), fmt::format("{}", s.IfFrequency),
      s.BitsPerSample, layout, dif::LevelCount(s.BitsPerSample) - 1);
}

}  // namespace vorel::app
