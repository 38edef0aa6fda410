#include "app/check_command.h"

#include <chrono>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "dif/acquisition.h"
#include "dif/recording_description.h"

namespace vorel::app {

namespace {

struct CheckOptions {
  std::string file;
  dif::RecordingLayout layout;  // --fs, --if and --bits; the layout itself from `format`
  std::string format = "packed2";
  int ms = 10;
  double skipMs = 0.0;
  dif::AcquisitionOptions search;  // --max-doppler and --threshold
  bool all = false;
  // Options the user gave: they win over a SigMF description beside the file.
  CLI::Option* fsGiven = nullptr;
  CLI::Option* ifGiven = nullptr;
  CLI::Option* formatGiven = nullptr;
  CLI::Option* bitsGiven = nullptr;
};

// The SigMF description of `file`: "FILE.sigmf-meta", or the ".sigmf-meta" that takes the
// place of its extension; empty when there is none.
std::filesystem::path SigmfBeside(const std::filesystem::path& file) {
  for (const std::filesystem::path& meta :
       {std::filesystem::path(file.string() + ".sigmf-meta"), dif::SigmfMetaPathFor(file)})
    if (std::filesystem::is_regular_file(meta)) return meta;
  return {};
}

// Rate, IF and format from the description beside the file, then the options given.
bool LayoutFor(const CheckOptions& o, const std::filesystem::path& file,
               dif::RecordingLayout& layout, std::string& source, std::string& error) {
  layout = o.layout;
  if (!dif::ParseSampleLayout(o.format, layout.layout)) {
    error = fmt::format("--format {}: use packed2, packed1, direct, int8, ci8 or ci16", o.format);
    return false;
  }
  const std::filesystem::path meta = SigmfBeside(file);
  if (meta.empty()) return true;
  dif::RecordingLayout described = layout;
  if (!dif::ReadSigmfLayout(meta, described, error)) return false;
  source = meta.string();
  if (o.fsGiven->count() == 0) layout.samplingFrequency = described.samplingFrequency;
  if (o.ifGiven->count() == 0) layout.ifFrequency = described.ifFrequency;
  if (o.formatGiven->count() == 0) layout.layout = described.layout;
  if (o.bitsGiven->count() == 0) layout.bits = described.bits;
  return true;
}

const char* LayoutName(dif::SampleLayout layout) {
  switch (layout) {
    case dif::SampleLayout::kPacked2: return "packed2";
    case dif::SampleLayout::kPacked1: return "packed1";
    case dif::SampleLayout::kDirect: return "direct";
    case dif::SampleLayout::kInt8: return "int8";
    case dif::SampleLayout::kCi8: return "ci8";
    case dif::SampleLayout::kCi16: return "ci16";
  }
  return "?";
}

}  // namespace

std::function<int(CommandContext&)> CheckCommand(CLI::App& p) {
  auto o = std::make_shared<CheckOptions>();
  p.add_option("FILE", o->file, "recording: ours, or any real IF or complex I/Q file")->required();
  o->fsGiven = p.add_option("--fs", o->layout.samplingFrequency,
                            "sampling rate in Hz (default: the SigMF description beside FILE, "
                            "else 16368000)");
  o->ifGiven = p.add_option("--if", o->layout.ifFrequency,
                            "intermediate frequency in Hz, 0 for baseband (default: SigMF, "
                            "else 4092000)");
  o->formatGiven = p.add_option("--format", o->format,
                                "packed2 (ours, 4 samples a byte), packed1, direct, int8, ci8 or "
                                "ci16 (default: SigMF, else packed2)");
  o->bitsGiven = p.add_option("--bits", o->layout.bits,
                              "bits a sample of the direct format (default: SigMF, else 2)");
  p.add_option("--ms", o->ms, "milliseconds to search over, 1 to 100 (default 10)");
  p.add_option("--skip-ms", o->skipMs, "milliseconds to skip at the start (default 0)");
  p.add_option("--max-doppler", o->search.maxDoppler,
               "Doppler searched, Hz either way (default 10000)");
  p.add_option("--threshold", o->search.threshold,
               "peak over mean that counts as found (default: set for one false alarm in a "
               "thousand satellites)");
  p.add_flag("--all", o->all, "list every PRN, found or not");
  return [o](CommandContext& c) {
    dif::RecordingLayout layout;
    std::string described, error;
    const std::filesystem::path file = c.session.dataDir.Map(o->file);
    if (!LayoutFor(*o, file, layout, described, error)) {
      fmt::print(stderr, "check: {}\n", error);
      return 2;
    }
    const double fs = layout.samplingFrequency;
    if (o->ms < 1 || o->ms > 100 || o->search.maxDoppler < 0 || o->search.maxDoppler > 50000 ||
        !(fs >= 16000.0 && fs <= 200e6) || !(std::fabs(layout.ifFrequency) < fs)) {
      fmt::print(stderr,
                 "check: --ms must be 1 to 100, --max-doppler 0 to 50000, --fs 16 kHz to 200 MHz "
                 "and |--if| below --fs\n");
      return 2;
    }
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::complex<float>> samples;
    if (!described.empty() && !c.global.quiet)
      fmt::print("rate, IF and format from {}\n", described);
    if (!dif::ReadRecording(file, layout, o->skipMs, o->ms, samples,
                            error)) {
      fmt::print(stderr, "check: {}\n", error);
      return 1;
    }
    double threshold = 0.0;
    const auto results = dif::Acquire(samples, layout, o->search, threshold);
    int found = 0;
    fmt::print("{:>4} {:>10} {:>12} {:>10} {:>8} {:>7}\n", "PRN", "Doppler Hz", "code chips",
               "code smp", "C/N0 dBHz", "peak");
    for (const auto& r : results) {
      if (r.found) ++found;
      if (!r.found && !o->all) continue;
      fmt::print("{:>4} {:>10.1f} {:>12.3f} {:>10} {:>8.1f} {:>7.2f}{}\n", r.prn, r.doppler,
                 r.codePhase, r.codeSample, r.cn0, r.metric, r.found ? "" : "  (not found)");
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    if (!c.global.quiet)
      fmt::print("{} satellite(s) found in {} ms of {} at {} Hz (IF {} Hz, {}); threshold {:.2f}; "
                 "{:.2f} s\n",
                 found, o->ms, o->file, fs, layout.ifFrequency, LayoutName(layout.layout),
                 threshold, seconds);
    return 0;
  };
}

}  // namespace vorel::app
