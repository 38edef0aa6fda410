#include "dif/dif_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "dif/nav_bit_table.h"
#include "platform/fir.h"

namespace vorel::dif {
namespace {

constexpr int kFilterTaps = 27;
constexpr char kErrorTitle[] = "Error message";

// Closes the sample file and says so if a write failed (the run itself does not look).
void CloseOutput(std::FILE*& f, const std::filesystem::path& path,
                 const platform::Messages& messages) {
  if (!f) return;
  const bool failed = std::ferror(f) != 0;
  if (std::fclose(f) != 0 || failed)
    messages.Warn(fmt::format("writing {} failed: the sample file is incomplete", path.string()));
  f = nullptr;
}

}  // namespace

int RunDifGeneration(const DifPanelValues& panel, const DifRunPaths& paths, DifState& state,
                     platform::RandState& rand, std::atomic<uint8_t>& RunActive,
                     const platform::Messages& messages, const GeneratorSpeed& speed,
                     DifRunOutcome& outcome) {
  RunActive.store(1, std::memory_order_relaxed);
  const DifSettings s = GatherDifSettings(panel);
  outcome.settings = s;
  const std::string refusal = CheckDifSettings(s);
  if (!refusal.empty()) {
    messages.Popup(kErrorTitle, refusal);
    outcome.refused = true;
    RunActive.store(0, std::memory_order_relaxed);
    return 1;
  }

  std::FILE* output = std::fopen(paths.output.string().c_str(), "wb");
  if (!output)
    messages.Warn(fmt::format("DifOutputFile {} cannot be created: the samples go nowhere",
                              paths.output.string()));
  else
    std::setvbuf(output, nullptr, _IOFBF, 1 << 20);

  const int32_t n = s.SamplesPerMs;
  RunBuffers buffers;
  buffers.Allocate(n);
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
  platform::LineReader scintFile;
  platform::LineReader recordFile;
  GeneratorFiles files;
  files.output = output;
  GeneratorContext context{state, rand, RunActive, messages, speed};
  bool ok = true;
  if (s.ScintMode > 0) {
    if (!scintFile.Open(paths.scintFile)) {
      messages.Popup(kErrorTitle, "Specified scintillation data file doesn't exist");
      outcome.popup = true;
      ok = false;
    } else {
      files.scint = &scintFile;
    }
  }

  if (ok && s.ScenarioDriven == 0) {
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
  } else if (ok) {
    state.navBitTable.EnsureAllocated();
    // One file per row, read on the run's threads; the PRNs short of bits are named in order.
    std::array<bool, 32> shortRow{};
#pragma omp parallel for schedule(static) num_threads(std::max(1, speed.threads))
    for (int prn = 1; prn <= 32; ++prn) {
      const auto path = paths.dataDir / "NAV" / fmt::format("navbin{}", prn);
      shortRow[prn - 1] = ReadNavBitFile(path, state.navBitTable.Row(prn - 1)) < kNavBitsPerRow;
      ConvertNavBits(state.navBitTable.Row(prn - 1));
    }
    std::string missing;
    for (int prn = 1; prn <= 32; ++prn)
      if (shortRow[prn - 1]) missing += fmt::format("{}{}", missing.empty() ? "" : ", ", prn);
    if (!missing.empty())
      messages.Warn(
          fmt::format("navigation files of PRN {} in {} are missing or short: their rows "
                      "keep what they held and are converted again (write them with "
                      "nav-all)",
                      missing, (paths.dataDir / "NAV").string()));
    if (!recordFile.Open(paths.record)) {
      messages.Popup(kErrorTitle, "Specified scenario file doesn't exist");
      outcome.popup = true;
    } else {
      files.record = &recordFile;
      RecordState record;
      GenerateScenarioSamples(s, buffers, record, scint, multipath, files, context, outcome.report);
    }
  }

  // Clean-up: the record, the scintillation file, the output; the buffers go with the run.
  recordFile.Close();
  scintFile.Close();
  CloseOutput(output, paths.output, messages);
  RunActive.store(0, std::memory_order_relaxed);
  outcome.result = 1;
  return 1;
}

}  // namespace vorel::dif
