// DIF runs on a whole scenario: the example almanac, the navigation files and a 1 ms .scn
// record. An acquisition of our own finds each satellite of the record where the record
// puts it; runs repeat byte for byte, whichever form of the loop makes them.

#include "dif_scenario.h"
#include "receiver.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <sstream>

#include "dif/dif_run.h"

namespace vorel::test {
namespace {

// Unpacks 2-bit Packed bytes (earliest sample in the lowest bits) into centred levels.
std::vector<float> Unpack(const std::string& bytes, size_t samples) {
  std::vector<float> x(samples);
  for (size_t i = 0; i < samples; ++i)
    x[i] = static_cast<float>((static_cast<uint8_t>(bytes[i / 4]) >> (2 * (i % 4))) & 3) - 1.5f;
  return x;
}

// Non-coherent power over `ms` milliseconds for a code delay of `offset` samples and a
// carrier of `frequency` Hz.
double Power(const std::vector<float>& x, const std::vector<int>& code, int n, double fs,
             int offset, double frequency, int ms) {
  double total = 0.0;
  for (int m = 0; m < ms; ++m) {
    std::complex<double> acc = 0.0;
    for (int i = m * n; i < (m + 1) * n; ++i) {
      const int codeSample = ((i + offset) % n + n) % n;
      const int chip = static_cast<int>(static_cast<int64_t>(codeSample) * 1023 / n);
      const double c = code[chip] ? 1.0 : -1.0;
      const double phase = 2.0 * 3.14159265358979323846 * frequency * i / fs;
      acc += c * x[i] * std::polar(1.0, -phase);
    }
    total += std::norm(acc);
  }
  return total;
}

TEST(DifScenario, OwnAcquisitionFindsEachSatelliteWhereTheRecordPutsIt) {
  ScratchDir dir("acq");
  // Noise sigma 4 (SignalPower -156 dBW): a clear peak in 4 ms.
  DifScenario sc = MakeDifScenario(dir.path(), {"SignalPower=-156"}, false);
  app::Session& s = *sc.session;
  s.settings.dif.Duration = 0.0001;  // 6 ms
  s.settings.dif.DifOutputFile = (dir / "acq.bin").string();
  dif::DifRunOutcome outcome;
  ASSERT_EQ(app::RunDif(s, "", outcome), 0);
  ASSERT_EQ(outcome.report.blocks, 6);
  const int n = 16368;
  const double fs = 16368000.0, lambda = 299792458.0 / 1575420000.0;
  const std::vector<float> x = Unpack(ReadFile(dir / "acq.bin"), 4 * static_cast<size_t>(n));

  // Block 1 is the record's second epoch; its range fixes the code phase, the change to
  // the third the Doppler.
  const auto epochs = ReadEpochs(sc.record, 3);
  ASSERT_EQ(epochs.size(), 3u);
  const ScnEpoch& e1 = epochs[1];
  const ScnEpoch& e2 = epochs[2];
  ASSERT_GE(e1.range.size(), 4u);
  std::mt19937 rng(5);
  double weakestPresent = 1e300;
  for (const auto& [prn, range] : e1.range) {
    const double tx = e1.timeMs - range / 299792.458;
    const int expected = static_cast<int>(std::floor((tx - std::floor(tx)) * n)) + 1;
    const double doppler = -(e2.range.at(prn) - range) * 1000.0 / lambda;
    const std::vector<int> code = ReplicaCode(prn);
    const double frequency = 4092000.0 + doppler;
    double peak = 0.0;
    int peakOffset = -1;
    std::vector<int> offsets;
    for (int d = -3; d <= 3; ++d) offsets.push_back(expected + d);
    for (int k = 0; k < 60; ++k) offsets.push_back(static_cast<int>(rng() % n));
    double others = 0.0;
    for (int off : offsets) {
      const double p = Power(x, code, n, fs, off, frequency, 4);
      if (p > peak) {
        peak = p;
        peakOffset = off;
      }
      const int distance = ((off - expected) % n + n) % n;
      if (std::min(distance, n - distance) > 16) others = std::max(others, p);
    }
    const int miss = ((peakOffset - expected) % n + n) % n;
    EXPECT_LE(std::min(miss, n - miss), 1) << "PRN " << prn;
    EXPECT_GT(peak, 10.0 * others) << "PRN " << prn;
    weakestPresent = std::min(weakestPresent, peak);
  }
  // Satellites the record does not hold give no peak at any delay tried.
  int absent = 0;
  for (int prn = 1; prn <= 32 && absent < 3; ++prn) {
    if (e1.range.count(prn)) continue;
    ++absent;
    const std::vector<int> code = ReplicaCode(prn);
    double best = 0.0;
    for (int k = 0; k < 67; ++k)
      best = std::max(best, Power(x, code, n, fs, static_cast<int>(rng() % n), 4092000.0, 4));
    EXPECT_LT(best, 0.1 * weakestPresent) << "PRN " << prn;
  }
}

// The record's text up to its epoch `epochs` (an epoch starts with a line without a blank).
std::string FirstEpochs(const std::filesystem::path& record, int epochs) {
  std::istringstream in(ReadFile(record));
  std::string text, line;
  int seen = 0;
  while (std::getline(in, line)) {
    if (line.find(' ') == std::string::npos && ++seen > epochs) break;
    text += line + "\n";
  }
  return text;
}

// One DIF run with the given speed; `rand` and the session's reader statics go on as the run
// leaves them.
std::string RunVariant(app::Session& s, const std::filesystem::path& out, platform::RandState& rand,
                       const dif::GeneratorSpeed& speed) {
  dif::DifRunPaths paths;
  paths.output = out;
  paths.record = s.dataDir.Map(s.settings.scenario.ObservationOutputFile);
  paths.scintFile = s.settings.dif.ScintFile;
  paths.dataDir = s.dataDir.root();
  dif::DifRunOutcome outcome;
  dif::RunDifGeneration(app::DifPanelFromSettings(s.settings), paths, s.dif, rand, s.RunActive,
                        s.messages, speed, outcome);
  EXPECT_FALSE(outcome.refused);
  return ReadFile(out);
}

std::string Describe(const dif::GeneratorSpeed& f) {
  return fmt::format("{}, {} thread(s){}", f.vectorised ? "vector" : "plain", f.threads,
                     f.turns > 0 ? fmt::format(", batches of {} blocks in turn", f.turns)
                                     : std::string());
}

// The forms every byte-identity test runs: one thread, two to four threads taking the run's
// own batches, and batches of a few blocks taken in turn (every thread then takes its
// channels over the others' batches all the time, and the ring wraps every few batches).
const dif::GeneratorSpeed kForms[] = {{true, 1},     {true, 2},     {true, 3},
                                      {true, 4},     {false, 3},    {true, 2, 7},
                                      {true, 3, 5},  {false, 4, 3}, {true, 5, 2}};

// The plain loop is the reference: the vector form, channels on threads, the filter and
// multipath all give its bytes.
TEST(DifScenario, EveryFormOfTheLoopWritesThePlainLoopsBytes) {
  ScratchDir dir("forms");
  DifScenario sc = MakeDifScenario(dir.path(), {}, false);
  app::Session& s = *sc.session;
  s.settings.dif.Duration = 0.004;  // 240 ms
  const platform::RandState rand = s.workerRand;
  struct Config {
    const char* name;
    int filter;
    int bits;
    const char* packed;
    const char* decimation;
    bool multipath;
  };
  const Config configs[] = {{"plain settings", 0, 2, "Packed", "none", false},
                            {"filter, 2 bits", 1, 2, "Packed", "none", false},
                            {"filter, 1 bit, multipath", 1, 1, "Packed", "none", true},
                            {"direct 3 bits, decimation 3", 0, 3, "Direct", "3", true},
                            {"scintillation", 0, 2, "Packed", "none", false}};
  // Ten columns a line; the halves of the doubles make wild amplitudes and phases.
  std::string scint;
  for (int line = 0; line < 400; ++line)
    scint += fmt::format("{} {} 0.5 0.25 {} {} 0.125 1.0 0.0 0.75\n", 0.001 * line,
                         1.0 - 0.001 * line, 0.3 * line, 0.9);
  WriteFile(dir / "scint.txt", scint);
  for (const Config& c : configs) {
    const bool scintOn = std::string(c.name) == "scintillation";
    s.settings.dif.ScintEnabled = scintOn ? 1 : 0;
    s.settings.dif.ScintType = 1;  // PRN 2 from the start: phase and power columns
    s.settings.dif.ScintPrn = 2;
    s.settings.dif.ScintStart = 0;
    s.settings.dif.ScintRate = 50;
    s.settings.dif.ScintFile = (dir / "scint.txt").string();
    s.settings.dif.FilterOn = c.filter;
    s.settings.dif.BitsPerSample = c.bits;
    s.settings.dif.OutputPacked = c.packed;
    s.settings.dif.Decimation = c.decimation;
    s.settings.dif.MultipathOn = c.multipath ? 1 : 0;
    s.settings.dif.MultipathTable = {{"y", "", 2, 0.5, 3000.0, 0.0},
                                     {"", "", 3, 0.3, 1000.0, 0.1},
                                     {"y", "", 2, 0.2, 9000.0, 0.0}};
    platform::RandState plainRand = rand;
    const std::string plain = RunVariant(s, dir / "plain.bin", plainRand, {false, 1});
    const dif::ScnReaderStatics plainStatics = s.dif.scnReader;
    ASSERT_FALSE(plain.empty());
    for (const dif::GeneratorSpeed& form : kForms) {
      platform::RandState formRand = rand;
      EXPECT_EQ(RunVariant(s, dir / "form.bin", formRand, form), plain)
          << c.name << ": " << Describe(form);
      // The run leaves the worker's rand and the reader where the plain run does.
      EXPECT_EQ(formRand.state, plainRand.state) << c.name << ": " << Describe(form);
      EXPECT_EQ(s.dif.scnReader.timeMs, plainStatics.timeMs) << c.name << ": " << Describe(form);
      EXPECT_EQ(s.dif.scnReader.count, plainStatics.count) << c.name << ": " << Describe(form);
    }
  }
}

// A run that ends early (the record ends, or the user stops it) ends at the same block with
// every form, and leaves the rand where one thread leaves it, though the threads have
// planned and made blocks beyond the last.
TEST(DifScenario, EveryFormEndsAnEarlyRunAtTheSameBlock) {
  ScratchDir dir("early");
  DifScenario sc = MakeDifScenario(dir.path(), {}, false);
  app::Session& s = *sc.session;
  s.settings.dif.Duration = 0.01;  // 600 ms asked for
  const platform::RandState rand = s.workerRand;
  // The record cut after 300 epochs: 298 blocks.
  WriteFile(dir / "cut.scn", FirstEpochs(sc.record, 300));
  const std::string full = sc.record.string();
  s.settings.scenario.ObservationOutputFile = (dir / "cut.scn").string();
  platform::RandState oneRand = rand;
  const std::string one = RunVariant(s, dir / "one.bin", oneRand, {true, 1});
  EXPECT_EQ(one.size(), 298u * 4092u);
  for (const dif::GeneratorSpeed& form : kForms) {
    platform::RandState formRand = rand;
    EXPECT_EQ(RunVariant(s, dir / "form.bin", formRand, form), one) << Describe(form);
    EXPECT_EQ(formRand.state, oneRand.state) << Describe(form);
  }
  // The user stops the run at its first progress report (after 1000 blocks): 1001 blocks.
  s.settings.scenario.ObservationOutputFile = full;
  s.settings.dif.Duration = 0.05;
  const platform::Messages quiet = s.messages;
  s.messages.progress = [&](double) { s.RunActive.store(0); };
  oneRand = rand;
  const std::string stopped = RunVariant(s, dir / "stopped.bin", oneRand, {true, 1});
  EXPECT_EQ(stopped.size(), 1001u * 4092u);
  for (const dif::GeneratorSpeed& form : kForms) {
    platform::RandState formRand = rand;
    EXPECT_EQ(RunVariant(s, dir / "form.bin", formRand, form), stopped) << Describe(form);
    EXPECT_EQ(formRand.state, oneRand.state) << Describe(form);
  }
  s.messages = quiet;
}

// A record that lists a satellite twice in an epoch: both entries run the one channel state,
// one after the other, whichever threads make the blocks.
TEST(DifScenario, ASatelliteListedTwiceGivesTheSameBytesOnEveryForm) {
  ScratchDir dir("twice-listed");
  DifScenario sc = MakeDifScenario(dir.path(), {}, false);
  app::Session& s = *sc.session;
  s.settings.dif.Duration = 0.003;  // 180 ms
  std::istringstream in(ReadFile(sc.record));
  std::string text, time, count, line;
  for (int epoch = 0; epoch < 200 && std::getline(in, time) && std::getline(in, count); ++epoch) {
    const int satellites = std::stoi(count);
    std::string lines, first;
    for (int j = 0; j < satellites && std::getline(in, line); ++j) {
      if (j == 0) first = line;
      lines += line + "\n";
    }
    // One more satellite: the first, listed again at the end.
    text += time + "\n" + fmt::format("{:3d}\n", satellites + 1) + lines + first + "\n";
  }
  WriteFile(dir / "twice.scn", text);
  s.settings.scenario.ObservationOutputFile = (dir / "twice.scn").string();
  platform::RandState oneRand = s.workerRand;
  const std::string one = RunVariant(s, dir / "one.bin", oneRand, {false, 1});
  EXPECT_EQ(one.size(), 180u * 4092u);
  for (const dif::GeneratorSpeed& form : kForms) {
    platform::RandState formRand = s.workerRand;
    EXPECT_EQ(RunVariant(s, dir / "form.bin", formRand, form), one) << Describe(form);
  }
}

TEST(DifScenario, RecordShorterThanTheRunEndsItWithAWarning) {
  ScratchDir dir("short");
  DifScenario sc = MakeDifScenario(dir.path(), {}, false);
  // Keep the first 12 epochs of the record (10 blocks).
  WriteFile(sc.record, FirstEpochs(sc.record, 12));
  std::vector<std::string> warnings;
  sc.session->messages.warning = [&](std::string_view w) { warnings.emplace_back(w); };
  sc.session->settings.dif.DifOutputFile = (dir / "short.bin").string();
  dif::DifRunOutcome outcome;
  ASSERT_EQ(app::RunDif(*sc.session, "", outcome), 0);
  EXPECT_TRUE(outcome.report.recordEnded);
  EXPECT_EQ(outcome.report.blocks, 10);
  EXPECT_EQ(std::filesystem::file_size(dir / "short.bin"), 10u * 4092u);
  ASSERT_FALSE(warnings.empty());
  EXPECT_NE(warnings.back().find("ended after 10 ms"), std::string::npos) << warnings.back();
}

TEST(DifScenario, AbsurdRecordValuesMakeNoCrash) {
  ScratchDir dir("absurd");
  DifScenario sc = MakeDifScenario(dir.path(), {}, false);
  // Ranges of light-years, NaN, negative and huge counts, PRNs that do not exist, and lines
  // that do not scan: the run goes on, writes whole blocks and says what it skipped.
  WriteFile(sc.record,
            "1000\n  3\n5 20000000.0 20000000.0 0\n7 1e300 1e300 1\n99 1.0 1.0 0\n"
            "1001\n  3\n5 20000500.0 20000500.0 0\n7 -1e300 nan 1\n0 1.0 1.0 0\n"
            "1002\n  -4\n"
            "1003\n  40\n5 nan nan 7\n7 20000000.0 2.0 3\nnot a line\n"
            "1004\n  2\n5 20001000.0 20001000.0 0\n7 3.0e12 3.0e12 0\n"
            "1005\n  2\n5 20001500.0 20001500.0 0\n7 -3.0e12 -3.0e12 0\n");
  std::vector<std::string> warnings;
  sc.session->messages.warning = [&](std::string_view w) { warnings.emplace_back(w); };
  sc.session->settings.dif.DifOutputFile = (dir / "absurd.bin").string();
  sc.session->settings.dif.MultipathOn = 1;
  sc.session->settings.dif.MultipathTable = {{"y", "", 7, 1e30, 1e30, 0.0}};
  for (int threads : {1, 2, 3}) {
    sc.session->settings.dif.DifThreads = threads;
    dif::DifRunOutcome outcome;
    ASSERT_EQ(app::RunDif(*sc.session, "", outcome), 0);
    EXPECT_EQ(std::filesystem::file_size(dir / "absurd.bin"),
              static_cast<uintmax_t>(outcome.report.blocks) * 4092u);
    EXPECT_TRUE(outcome.report.recordEnded);
  }
  bool skipped = false;
  for (const std::string& w : warnings)
    skipped = skipped || w.find("outside 1 to 32") != std::string::npos;
  EXPECT_TRUE(skipped);
}

}  // namespace
}  // namespace vorel::test
