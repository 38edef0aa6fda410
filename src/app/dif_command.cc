#include "app/dif_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <thread>

#include "app/scenario_runs.h"
#include "dif/quantiser.h"

namespace vorel::app {

dif::DifPanelValues DifPanelFromSettings(const Settings& settings) {
  const DifPanel& d = settings.dif;
  dif::DifPanelValues p;
  p.IfFrequency = d.IfFrequency;
  p.SamplingFrequency = d.SamplingFrequency;
  p.BitsPerSample = d.BitsPerSample;
  p.Bandwidth = d.Bandwidth;
  p.FilterWindow = d.FilterWindow;
  p.OutputPacked = d.OutputPacked;
  p.Decimation = d.Decimation;
  p.FilterOn = d.FilterOn;
  p.SignalPower = d.SignalPower;
  p.Duration = d.Duration;
  p.ScenarioDriven = d.ScenarioDriven;
  p.MaxChannels = d.MaxChannels;
  p.MultipathOn = d.MultipathOn;
  p.ScintEnabled = d.ScintEnabled;
  p.ScintType = d.ScintType;
  p.ScintFile = d.ScintFile;
  p.ScintRate = d.ScintRate;
  p.ScintStart = d.ScintStart;
  p.ScintPrn = d.ScintPrn;
  p.TestPrn = d.TestPrn;
  p.TestCodeOn = d.TestCodeOn;
  p.TestCarrierOn = d.TestCarrierOn;
  p.TestDataOn = d.TestDataOn;
  p.TestDataMode = d.TestDataMode;
  p.TestDopplerOn = d.TestDopplerOn;
  p.TestDoppler = d.TestDoppler;
  p.ConstellationChoice = settings.scenario.ConstellationChoice;
  const size_t rows = std::min<size_t>(d.MultipathTable.size(), dif::kMultipathRows);
  for (size_t r = 0; r < rows; ++r) p.MultipathTable[r] = d.MultipathTable[r];
  p.multipathRowCount = static_cast<int32_t>(rows);
  return p;
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
