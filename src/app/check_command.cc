#include "app/check_command.h"

#include <chrono>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "dif/acquisition.h"

namespace vorel::app {

namespace {

struct CheckOptions {
  std::string file;
  double fs = 16368000.0;
  double ifHz = 4092000.0;
  std::string format = "packed2";
  int bits = 2;
  int ms = 10;
  double skipMs = 0.0;
  int maxDoppler = 10000;
  double threshold = 0.0;
  bool all = false;
};

}  // namespace

std::function<int(CommandContext&)> CheckCommand(CLI::App& p) {
  auto o = std::make_shared<CheckOptions>();
  p.add_option("FILE", o->file, "recording: ours, or any real IF or complex I/Q file")->required();
  p.add_option("--fs", o->fs, "sampling rate in Hz (default 16368000)");
  p.add_option("--if", o->ifHz, "intermediate frequency in Hz, 0 for baseband (default 4092000)");
  p.add_option("--format", o->format,
               "packed2 (ours, 4 samples a byte), packed1, direct, int8, ci8 or ci16 "
               "(default packed2)");
  p.add_option("--bits", o->bits, "bits a sample of the direct format (default 2)");
  p.add_option("--ms", o->ms, "milliseconds to search over, 1 to 100 (default 10)");
  p.add_option("--skip-ms", o->skipMs, "milliseconds to skip at the start (default 0)");
  p.add_option("--max-doppler", o->maxDoppler, "Doppler searched, Hz either way (default 10000)");
  p.add_option("--threshold", o->threshold, "peak over mean that counts as found (default: set "
                                            "for one false alarm in a thousand satellites)");
  p.add_flag("--all", o->all, "list every PRN, found or not");
  return [o](CommandContext& c) {
    dif::RecordingLayout layout;
    layout.samplingFrequency = o->fs;
    layout.ifFrequency = o->ifHz;
    layout.bits = o->bits;
    if (!dif::ParseSampleLayout(o->format, layout.layout)) {
      fmt::print(stderr, "check: --format {}: use packed2, packed1, direct, int8, ci8 or ci16\n",
                 o->format);
      return 2;
    }
    if (o->ms < 1 || o->ms > 100 || o->maxDoppler < 0 || o->maxDoppler > 50000 ||
        !(o->fs >= 16000.0 && o->fs <= 200e6) || !(std::fabs(o->ifHz) < o->fs)) {
      fmt::print(stderr,
                 "check: --ms must be 1 to 100, --max-doppler 0 to 50000, --fs 16 kHz to 200 MHz "
                 "and |--if| below --fs\n");
      return 2;
    }
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::complex<float>> samples;
    std::string error;
    if (!dif::ReadRecording(c.session.dataDir.Map(o->file), layout, o->skipMs, o->ms, samples,
                            error)) {
      fmt::print(stderr, "check: {}\n", error);
      return 1;
    }
    dif::AcquisitionOptions options;
    options.maxDoppler = o->maxDoppler;
    options.threshold = o->threshold;
    double threshold = 0.0;
    const auto results = dif::Acquire(samples, layout, options, threshold);
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
                 found, o->ms, o->file, o->fs, o->ifHz, o->format, threshold, seconds);
    return 0;
  };
}

}  // namespace vorel::app
