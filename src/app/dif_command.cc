#include "app/dif_command.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
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

int DifThreadCount(const Settings& settings) {
  const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  return settings.dif.DifThreads > 0 ? settings.dif.DifThreads : static_cast<int>(cores);
}

int RunDif(Session& session, const std::string& recordOverride, dif::DifRunOutcome& outcome,
           bool navBitsInTable) {
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
  paths.navBitsInTable = navBitsInTable;

  dif::GeneratorSpeed speed;
  speed.threads = DifThreadCount(settings);
  const dif::DifPanelValues panel = DifPanelFromSettings(settings);
  if (const dif::DifSettings derived = dif::GatherDifSettings(panel);
      dif::CheckDifSettings(derived).empty())
    for (const std::string& w : RecordingWarnings(panel, derived)) session.messages.Warn(w);
  dif::RunDifGeneration(panel, paths, session.dif, session.workerRand,
                        session.RunActive, session.messages, speed, outcome);
  if (outcome.badSetting) return 2;  // a refused setting, as at start-up
  if (outcome.refused) return 1;
  session.lastOutputs.push_back(paths.output.string());
  return outcome.popup ? 1 : 0;
}

RecordingShape ShapeOf(const dif::DifSettings& s) {
  RecordingShape r;
  r.decimation = s.Decimation == 0 ? 1 : s.Decimation;
  r.samplesPerByte = s.OutputPacked == 0 ? 1 : (s.BitsPerSample == 1 ? 8 : 4);
  r.computedPerMs = s.SamplesPerMs;
  r.writtenPerMs =
      dif::PackedCount(s.SamplesPerMs, s.BitsPerSample, s.Decimation, s.OutputPacked) *
      r.samplesPerByte;
  r.skippedPerMs = r.computedPerMs - r.writtenPerMs * r.decimation;
  return r;
}

std::vector<std::string> RecordingWarnings(const dif::DifPanelValues& panel,
                                           const dif::DifSettings& s) {
  std::vector<std::string> out;
  if (s.SampleForm == dif::kSampleFormIq) return out;  // the real form's shapes only
  const double typed = std::strtod(panel.SamplingFrequency.c_str(), nullptr);
  const double used = s.SamplingFrequency / 1000.0;
  if (typed != used)
    out.push_back(fmt::format(
        "SamplingFrequency \"{}\" is read by its first character: the recording is sampled at "
        "{} kHz",
        panel.SamplingFrequency, used));
  const RecordingShape r = ShapeOf(s);
  if (r.skippedPerMs > 0)
    out.push_back(fmt::format(
        "each millisecond has {} computed samples, but the file holds {} of them{}{}: the last "
        "{} of every millisecond are left out, a gap at each millisecond, so the file carries "
        "{} samples per second, not {}",
        r.computedPerMs, r.writtenPerMs,
        r.decimation > 1 ? fmt::format(" (every {})", r.decimation == 2 ? "2nd" : "3rd") : std::string(),
        s.OutputPacked == 1 ? fmt::format(", {} to a byte", r.samplesPerByte) : std::string(),
        r.skippedPerMs, int64_t{r.writtenPerMs} * 1000,
        fmt::format("{}", s.SamplingFrequency / r.decimation)));
  if (s.OutputPacked == 0 && s.BitsPerSample > 8)
    out.push_back(fmt::format(
        "Direct with BitsPerSample {}: a byte holds only the low 8 bits of each level (0..{}), "
        "so the levels in the file wrap around",
        s.BitsPerSample, dif::LevelCount(s.BitsPerSample) - 1));
  return out;
}

static std::string DescribeIqRecording(const dif::DifSettings& s, const dif::GeneratorReport& report) {
  const int bits = 8 * s.IqBytes;
  std::string held = "no value clipped";
  if (report.heldValues > 0) {
    const double share = 100.0 * static_cast<double>(report.heldValues) /
                         std::max<double>(1.0, static_cast<double>(report.bytes / s.IqBytes));
    held = fmt::format("{} values ({:.3g} %) clipped at the limits: lower IqAmplitude",
                       report.heldValues, share);
  }
  return fmt::format(
      "{} ms of signal, {} bytes: complex baseband, {} samples per second (fs {} Hz), L1 at "
      "{} Hz, IqFormat {}: I then Q, {}-bit signed{}, no header; a satellite's amplitude {} "
      "levels, fixed for the run, {}",
      report.blocks, report.bytes, s.IqSampleRate, s.IqSampleRate,
      fmt::format("{}", s.IqIfOffset), s.IqBytes == 1 ? "ci8" : "ci16", bits,
      s.IqBytes == 2 ? " little-endian" : "", fmt::format("{}", s.IqAmplitude),
      s.IqNoise != 0 ? fmt::format("noise at {} dB-Hz, {}", s.SignalPower + 204.0, held)
                     : fmt::format("no noise, {}", held));
}

std::string DescribeRecording(const dif::DifSettings& s, const dif::GeneratorReport& report) {
  if (s.SampleForm == dif::kSampleFormIq) return DescribeIqRecording(s, report);
  const RecordingShape shape = ShapeOf(s);
  const int32_t d = shape.decimation;
  const double rate = s.SamplingFrequency / d;
  std::string layout;
  if (s.OutputPacked == 0)
    layout = s.BitsPerSample > 8 ? "Direct: one sample a byte, its low 8 bits alone"
                                 : "Direct: one sample a byte, in the low bits";
  else if (s.BitsPerSample == 1)
    layout = "Packed: 8 samples a byte, the earliest in bit 0";
  else
    layout = "Packed: 4 samples a byte, the earliest in bits 1..0";
  // Samples left out at the end of each millisecond (a last byte not filled, or what
  // decimation leaves over) change the rate in the file: the summary says so.
  std::string samples;
  if (shape.skippedPerMs > 0)
    samples = d > 1 ? fmt::format("{} samples per ms, every {} of the {} at fs {} Hz, then a "
                                  "gap of the last {} of those",
                                  shape.writtenPerMs, d == 2 ? "2nd" : "3rd",
                                  shape.computedPerMs, fmt::format("{}", s.SamplingFrequency),
                                  shape.skippedPerMs)
                    : fmt::format("{} samples per ms then a gap of {} (fs {} Hz)",
                                  shape.writtenPerMs, shape.skippedPerMs,
                                  fmt::format("{}", s.SamplingFrequency));
  else
    samples = fmt::format("{} samples per second (fs {} Hz{})", fmt::format("{}", rate),
                          fmt::format("{}", s.SamplingFrequency),
                          d > 1 ? fmt::format(", decimated by {}", d) : std::string());
  return fmt::format(
      "{} ms of signal, {} bytes: {}, IF {} Hz, real samples, "
      "{} bit(s) a sample, {}; levels unsigned 0..{} (0 the block's minimum), the block "
      "quantised against its own range, no header",
      report.blocks, report.bytes, samples, fmt::format("{}", s.IfFrequency), s.BitsPerSample,
      layout, dif::LevelCount(s.BitsPerSample) - 1);
}

}  // namespace vorel::app
