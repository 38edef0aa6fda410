#include "dif/dif_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "dif/iq_generation.h"
#include "dif/nav_bit_table.h"
#include "platform/fir.h"
#include "platform/text_file.h"

namespace vorel::dif {
namespace {

constexpr int kFilterTaps = 27;
constexpr char kErrorTitle[] = "Error message";

bool SameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  if (std::filesystem::equivalent(a, b, ec)) return true;
  return std::filesystem::weakly_canonical(a, ec) == std::filesystem::weakly_canonical(b, ec);
}

// The navigation bit files NAV/navbin1..32 into the table's rows, converted; one file per
// row, read on `threads` threads. The PRNs short of bits are named in order in a warning.
void ReadNavBitRows(const std::filesystem::path& dataDir, int threads, DifState& state,
                    const platform::Messages& messages) {
  // An exception must not leave the parallel region: it is caught there and re-raised.
  std::array<bool, 32> shortRow{};
  std::array<bool, 32> thrown{};
#pragma omp parallel for schedule(static) num_threads(std::max(1, threads))
  for (int prn = 1; prn <= 32; ++prn) {
    try {
      const auto path = dataDir / "NAV" / fmt::format("navbin{}", prn);
      shortRow[prn - 1] = ReadNavBitFile(path, state.navBitTable.Row(prn - 1)) < kNavBitsPerRow;
      ConvertNavBits(state.navBitTable.Row(prn - 1));
    } catch (...) {
      thrown[prn - 1] = true;
    }
  }
  for (int prn = 1; prn <= 32; ++prn)
    if (thrown[prn - 1])
      throw std::runtime_error(fmt::format("reading the navigation bits of PRN {} failed", prn));
  std::string missing;
  for (int prn = 1; prn <= 32; ++prn)
    if (shortRow[prn - 1]) missing += fmt::format("{}{}", missing.empty() ? "" : ", ", prn);
  if (!missing.empty())
    messages.Warn(
        fmt::format("navigation files of PRN {} in {} are missing or short: their rows "
                    "keep what they held and are converted again (write them with "
                    "nav-all)",
                    missing, (dataDir / "NAV").string()));
}

}  // namespace

int RunDifGeneration(const DifPanelValues& panel, const DifRunPaths& paths, DifState& state,
                     platform::RandState& rand, std::atomic<uint8_t>& RunActive,
                     const platform::Messages& messages, const GeneratorSpeed& speed,
                     DifRunOutcome& outcome) {
  platform::RunActiveScope active(RunActive);
  outcome.result = 1;
  const DifSettings s = GatherDifSettings(panel);
  outcome.settings = s;
  auto named = [](const std::filesystem::path& path) {
    return path.empty() ? std::string("no file named") : path.string();
  };
  auto fail = [&](const std::string& text, bool refused) {
    messages.Popup(kErrorTitle, text);
    outcome.refused = refused;
    outcome.popup = !refused;
    outcome.status = platform::Status::Failed(text);
    return 1;
  };
  const std::string refusal = CheckDifSettings(s);
  if (!refusal.empty()) {
    outcome.badSetting = true;
    return fail(refusal, true);
  }

  // The inputs first: a run that cannot read them leaves every file as it was.
  const bool scenarioDriven = s.ScenarioDriven != 0;
  platform::LineReader scintFile;
  platform::LineReader recordFile;
  if (s.ScintMode > 0 && !scintFile.Open(paths.scintFile))
    return fail(fmt::format("Specified scintillation data file doesn't exist ({})",
                            named(paths.scintFile)),
                false);
  if (scenarioDriven && !recordFile.Open(paths.record))
    return fail(fmt::format("Specified scenario file doesn't exist ({})", named(paths.record)),
                false);
  for (const auto* input : {&paths.record, &paths.scintFile}) {
    const bool read = input == &paths.record ? scenarioDriven : s.ScintMode > 0;
    if (read && SameFile(paths.output, *input))
      return fail(fmt::format("DifOutputFile {} is also an input of the run; choose another name",
                              paths.output.string()),
                  true);
  }

  platform::OutputFile output;
  if (!output.Open(paths.output))
    return fail(fmt::format("DifOutputFile {} cannot be created ({})", paths.output.string(),
                            output.error()),
                false);

  const int32_t n = s.SamplesPerMs;
  RunBuffers buffers;
  if (s.SampleForm != kSampleFormIq) buffers.Allocate(n);  // the I/Q form has its own
  double taps[kFilterTaps] = {};
  const double low = (s.IfFrequency - s.Bandwidth * 0.5) / s.SamplingFrequency;
  const double high = (s.IfFrequency + s.Bandwidth * 0.5) / s.SamplingFrequency;
  if (platform::FirGenBandpass(low, high, taps, kFilterTaps,
                               static_cast<platform::FirWindow>(s.FilterWindow), true) != 0 &&
      s.FilterOn == 1)
    messages.Warn(
        fmt::format("the band {} to {} Hz does not fit between 0 and half the sampling "
                    "frequency: the filter passes nothing",
                    s.IfFrequency - s.Bandwidth * 0.5, s.IfFrequency + s.Bandwidth * 0.5));
  buffers.filter = platform::FirInit(taps, kFilterTaps);

  MultipathRecords multipath{};
  if (panel.MultipathOn == 1) {
    int32_t skipped = 0;
    std::array<MultipathRow, kMultipathRows> rows{};
    const int32_t rowCount = MultipathRowsOf(panel, rows);
    LoadMultipathTable(rows, rowCount, multipath, skipped);
    if (skipped > 0)
      messages.Warn(
          fmt::format("MultipathTable: {} switched-on row(s) name a PRN outside 1 to 32 "
                      "and were skipped",
                      skipped));
  }

  ScintillationState scint;
  GeneratorFiles files;
  files.output = output.stream();
  if (s.ScintMode > 0) files.scint = &scintFile;
  GeneratorContext context{state, rand, RunActive, messages, speed};

  if (!scenarioDriven) {
    if (s.TestDataMode == 2) {
      state.navBitTable.EnsureAllocated();
      const auto path = paths.dataDir / "simulated.nvb";
      if (ReadNavBitFile(path, state.navBitTable.Row(0)) < kNavBitsPerRow)
        messages.Warn(
            fmt::format("navigation file {} is missing or short: row 0 keeps what it "
                        "held and is converted again",
                        path.string()));
      ConvertNavBits(state.navBitTable.Row(0));
    }
    GenerateTestSamples(s, buffers, scint, multipath, files, context, outcome.report);
  } else {
    state.navBitTable.EnsureAllocated();
    if (!paths.navBitsInTable) ReadNavBitRows(paths.dataDir, speed.threads, state, messages);
    files.record = &recordFile;
    RecordState record;
    if (s.SampleForm == kSampleFormIq)
      GenerateIqSamples(s, record, files, context, outcome.report);
    else
      GenerateScenarioSamples(s, buffers, record, scint, multipath, files, context,
                              outcome.report);
  }
  const bool stopped = RunActive.load(std::memory_order_relaxed) == 0;
  if (!outcome.report.refusal.empty()) {
    output.Abandon();
    return fail(outcome.report.refusal, true);
  }

  // Clean-up: the record, the scintillation file, the output; the buffers go with the run.
  recordFile.Close();
  scintFile.Close();
  if (!output.Close())
    return fail(fmt::format("{}: the recording was not written", output.error()), false);
  if (stopped) outcome.status = platform::Status::Stopped();
  return 1;
}

}  // namespace vorel::dif
