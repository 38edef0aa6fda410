#include "dif/sample_generation.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "dif/ca_code.h"
#include "dif/dif_run.h"
#include "test_support.h"

namespace vorel::dif {
namespace {

using test::ScratchDir;

TEST(SampleGeneration, BitBaseIsTheFirstBitOfTheFrameCycle) {
  EXPECT_EQ(BitBaseForTime(0), 0);
  EXPECT_EQ(BitBaseForTime(749999), 0);
  EXPECT_EQ(BitBaseForTime(750000), 37500);
  EXPECT_EQ(BitBaseForTime(349200002), 465 * 37500);
}

TEST(SampleGeneration, AlignChannelFromTheTransmissionTime) {
  std::vector<int32_t> row(kNavBitsPerRow);
  for (int i = 0; i < kNavBitsPerRow; ++i) row[i] = (i % 3 == 0) ? 1 : -1;
  ChannelNco nco;
  BitFeed feed;
  // 1000 ms, range of 0.25 ms: sent at 999.75 ms, bit 49 (980 ms), 19 ms into it, three
  // quarters of a code period in.
  float phase = AlignChannel(16368, 1000, row.data(), 299792.458 * 0.25, 0, nco, feed);
  EXPECT_EQ(nco.bitNumber, 49);
  EXPECT_EQ(nco.navBit, -1);  // 49 mod 3 = 1
  EXPECT_EQ(nco.msInBit, 19);
  EXPECT_EQ(phase, 12276.0f);
  // A base two bits on: the row starts at bit 47.
  AlignChannel(16368, 1000, row.data(), 299792.458 * 0.25, 47, nco, feed);
  EXPECT_EQ(nco.navBit, -1);  // row[2]
  EXPECT_FALSE(feed.beforeRow);
  AlignChannel(16368, 1000, row.data(), 299792.458 * 0.25, 50, nco, feed);
  EXPECT_TRUE(feed.beforeRow);
  EXPECT_EQ(nco.navBit, 1);
}

TEST(SampleGeneration, LoadMultipathTableInheritsTheSwitch) {
  std::array<MultipathRow, kMultipathRows> rows{};
  rows[0] = {"", "", 5, 0.5, 30.0, 2.0};    // the switch starts set
  rows[1] = {"n", "", 6, 0.4, 10.0, 0.0};   // cleared, skipped
  rows[2] = {"?", "", 7, 0.3, 10.0, 0.0};   // keeps it cleared
  rows[3] = {"y", "x", 5, 0.2, 60.0, 5.0};  // set again; PRN 5 gets a second path
  rows[4] = {"", "", 40, 0.1, 1.0, 1.0};    // no such PRN
  MultipathRecords records{};
  int32_t skipped = 0;
  LoadMultipathTable(rows, 5, records, skipped);
  EXPECT_EQ(records[4].count, 2);
  EXPECT_EQ(records[4].amplitude[1], 0.2f);
  EXPECT_EQ(records[4].delay[0], 30.0f);
  EXPECT_EQ(records[4].startTime[1], 5.0f);
  EXPECT_EQ(records[5].count, 0);
  EXPECT_EQ(records[6].count, 0);
  EXPECT_EQ(skipped, 1);
}

float FloatOfWord(uint32_t w) {
  float f;
  std::memcpy(&f, &w, 4);
  return f;
}

TEST(SampleGeneration, ScintillationValuesLandAsDoublesOverTwoFloatSlots) {
  ScratchDir dir("scint");
  test::WriteFile(dir / "one.txt", "0.5 0.25\n");
  platform::LineReader file(dir / "one.txt");
  ScintillationState st;
  st.scintPeriod = 1;
  st.scintCounter = 1;  // a reading block
  float g = 0, theta = 0;
  UpdateScintillation(3, 0, {2, 3, 0}, 0, &file, st, g, theta);
  // 0.5 is 0x3FE00000 00000000: slot 5 takes the low word (0.0f), slot 6 the high word.
  EXPECT_EQ(st.phase[5], 0.0f);
  EXPECT_EQ(st.phase[6], FloatOfWord(0x3FE00000u));  // PRN 4's first slot
  EXPECT_EQ(st.amplitude[5], 0.5f);                  // sqrt(0.25) as a float
  EXPECT_EQ(g, 0.5f);
  EXPECT_EQ(theta, 0.0f);
  // Another satellite at a reading: its new slot returns to 1 and 0.
  UpdateScintillation(4, 0, {2, 3, 0}, 0, &file, st, g, theta);
  EXPECT_EQ(st.phase[7], 0.0f);
  EXPECT_EQ(g, 1.0f);

  // Mode 1, bubble class 2 on PRN 32: the second pair, both as doubles, the last slot's high
  // words in the spare slot.
  test::WriteFile(dir / "ten.txt", "1 2 0.5 0.25 9 9 9 9 9 9\n");
  platform::LineReader ten(dir / "ten.txt");
  ScintillationState s1;
  s1.scintPeriod = 2;
  s1.scintCounter = 2;
  UpdateScintillation(32, 2, {1}, 0, &ten, s1, g, theta);
  EXPECT_EQ(s1.phase[63], 0.0f);
  EXPECT_EQ(s1.phase[64], FloatOfWord(0x3FE00000u));
  EXPECT_EQ(s1.amplitude[63], 0.0f);
  EXPECT_EQ(s1.amplitude[64], FloatOfWord(0x3FD00000u));
  EXPECT_EQ(g, 0.0f);  // 1 + (0 - 1) x 2 / 2
  // Between readings: linear from the old slot to the new one.
  s1.scintCounter = 1;
  s1.amplitude[62] = 1.0f;
  s1.amplitude[63] = 0.5f;
  UpdateScintillation(32, 2, {1}, 0, &ten, s1, g, theta);
  EXPECT_EQ(g, 0.75f);
}

TEST(SampleGeneration, ScnReaderHandsBackTheEpochBeforeWithTheNewestList) {
  ScratchDir dir("scn");
  test::WriteFile(
      dir / "r.scn",
      "1000\n  2\n5    20000000.000    20000000.000  0  \n7    21000000.000    21000000.000  1  \n"
      "1001\n  3\n5    20000001.000    20000001.000  0  \n7    21000002.000    21000002.000  1  \n"
      "9    22000000.000    22000000.000  2  \n");
  platform::LineReader file(dir / "r.scn");
  ScnReaderStatics statics;
  RecordState rec;
  ScnReadIssues issues;
  int32_t t = -1, count = -1;
  ASSERT_TRUE(ReadScnEpoch(file, statics, rec, t, count, issues));
  EXPECT_EQ(t, 0);
  EXPECT_EQ(count, 0);
  ASSERT_TRUE(ReadScnEpoch(file, statics, rec, t, count, issues));
  EXPECT_EQ(t, 1000);
  EXPECT_EQ(count, 2);           // the epoch in previous
  EXPECT_EQ(rec.prnList[2], 9);  // the list is already the newest
  EXPECT_EQ(rec.codeRange[4].previous, 20000000.0);
  EXPECT_EQ(rec.codeRange[4].next, 20000001.0);
  EXPECT_EQ(rec.bubbleClass[8], 2);
  EXPECT_FALSE(ReadScnEpoch(file, statics, rec, t, count, issues));
  EXPECT_EQ(t, 1001);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(rec.codeRange[8].previous, 22000000.0);
  EXPECT_EQ(statics.timeMs, 1001);  // the statics stay for the next run
}

// Random paths, including code wraps, multipath delays, negative phases and bit changes:
// the vector form, the path in pieces and the path partly skipped give the plain loop's bits
// and leave the same state.
TEST(SampleGeneration, FastPathKernelMatchesThePlainLoop) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> uni(-1.0f, 1.0f);
  std::vector<int32_t> row(kNavBitsPerRow);
  for (int i = 0; i < kNavBitsPerRow; ++i) row[i] = (rng() & 1) ? 1 : -1;
  for (int32_t n : {16368, 40920, 54560, 1001}) {
    std::vector<int32_t> code(n);
    std::vector<float> codeFloat(n);
    MakeCaCodeSamples(n, n * 1000.0, 0.0, static_cast<int32_t>(rng() % 32), code.data());
    for (int32_t i = 0; i < n; ++i) codeFloat[i] = static_cast<float>(code[i]);
    for (int trial = 0; trial < 40; ++trial) {
      PathArgs a;
      a.n = n;
      a.code = code.data();
      a.codeFloat = codeFloat.data();
      a.rho = uni(rng) * (trial % 4 == 0 ? 3e-4f : 3e-6f);
      a.omega = 1.57f + uni(rng) * 0.01f;
      a.d = trial % 3 == 0 ? uni(rng) * 5.0f : 0.0f;
      a.thetaOff = trial % 5 == 0 ? uni(rng) * 10.0f : 0.0f;
      a.g = 0.5f + uni(rng);
      a.lastPath = trial % 2 == 0;
      a.carrierOn = trial % 7 != 0;
      a.floorWrap = trial % 8 >= 4;
      a.epochOnWrap = trial % 16 >= 10;
      ChannelNco c;
      c.carrierPhase = uni(rng) * 6.0f;
      c.codeFraction = uni(rng) * 0.99f;
      c.codeIndex = static_cast<int32_t>(rng() % n) - (trial % 6 == 0 ? n : 0);
      c.msInBit = static_cast<int32_t>(rng() % 20);
      c.bitNumber = 1000 + static_cast<int32_t>(rng() % 100);
      c.navBit = -1;
      c.armed = rng() & 1;
      BitFeed f;
      f.row = row.data();
      f.base = 900;
      ChannelNco c2 = c, c3 = c, c4 = c;
      BitFeed f2 = f, f3 = f, f4 = f;
      std::vector<float> s1(n), s2(n), s3(n), s4(n);
      for (int32_t i = 0; i < n; ++i) s1[i] = s2[i] = s3[i] = s4[i] = uni(rng);
      const std::vector<float> before = s1;
      // In pieces of uneven sizes, the state carried by the cursor.
      PathCursor cursor = BeginPath(a, c3, trial % 3 != 1);
      for (int32_t first = 0; first < n;) {
        const int32_t end = std::min(n, first + 1 + static_cast<int32_t>(rng() % 3000));
        RunPathRange(a, c3, f3, s3.data(), false, cursor, first, end);
        first = end;
      }
      EndPath(a, c3, cursor);
      // Pieces skipped (some of a single sample, some ending on a code epoch) and pieces made.
      std::vector<std::pair<int32_t, int32_t>> made;
      PathCursor skipper = BeginPath(a, c4, trial % 3 != 2);
      for (int32_t first = 0, piece = 0; first < n; ++piece) {
        const int32_t length = piece % 4 == 1 ? 1 : 1 + static_cast<int32_t>(rng() % 4000);
        const int32_t end = std::min(n, first + length);
        if (piece % 3 == 2) {
          RunPathRange(a, c4, f4, s4.data(), false, skipper, first, end);
          made.emplace_back(first, end);
        } else {
          SkipPathRange(a, c4, f4, skipper, first, end);
        }
        first = end;
      }
      EndPath(a, c4, skipper);
      // Sixteen lanes where the machine has them, eight otherwise and on every other trial.
      a.wide = trial % 2 == 1;
      RunPathPlain(a, c, f, s1.data());
      RunPathFast(a, c2, f2, s2.data());
      ASSERT_EQ(std::memcmp(s1.data(), s2.data(), sizeof(float) * n), 0)
          << "n " << n << " trial " << trial;
      EXPECT_EQ(c.carrierPhase, c2.carrierPhase);
      EXPECT_EQ(c.codeFraction, c2.codeFraction);
      EXPECT_EQ(c.codeIndex, c2.codeIndex);
      EXPECT_EQ(c.msInBit, c2.msInBit);
      EXPECT_EQ(c.bitNumber, c2.bitNumber);
      EXPECT_EQ(c.navBit, c2.navBit);
      EXPECT_EQ(c.armed, c2.armed);
      ASSERT_EQ(std::memcmp(s1.data(), s3.data(), sizeof(float) * n), 0)
          << "pieces, n " << n << " trial " << trial;
      EXPECT_EQ(c.carrierPhase, c3.carrierPhase);
      EXPECT_EQ(c.codeFraction, c3.codeFraction);
      EXPECT_EQ(c.codeIndex, c3.codeIndex);
      EXPECT_EQ(c.navBit, c3.navBit);
      EXPECT_EQ(c.msInBit, c3.msInBit);
      for (int32_t i = 0, m = 0; i < n; ++i) {
        while (m < static_cast<int>(made.size()) && made[m].second <= i) ++m;
        const bool inMade = m < static_cast<int>(made.size()) && made[m].first <= i;
        ASSERT_EQ(s4[i], inMade ? s1[i] : before[i]) << "skipped, n " << n << " trial " << trial
                                                     << " sample " << i;
      }
      EXPECT_EQ(c.carrierPhase, c4.carrierPhase) << "skipped, trial " << trial;
      EXPECT_EQ(c.codeFraction, c4.codeFraction) << "skipped, trial " << trial;
      EXPECT_EQ(c.codeIndex, c4.codeIndex) << "skipped, trial " << trial;
      EXPECT_EQ(c.navBit, c4.navBit) << "skipped, trial " << trial;
      EXPECT_EQ(c.msInBit, c4.msInBit) << "skipped, trial " << trial;
      EXPECT_EQ(c.bitNumber, c4.bitNumber) << "skipped, trial " << trial;
      EXPECT_EQ(c.armed, c4.armed) << "skipped, trial " << trial;
    }
  }
}

// A code table whose entry k is k, with the carrier off, makes each sample tell which
// entry the loop picked. Left to run over several blocks from a known state, the code offset
// is K0 + (samples so far) rho; the entry of sample i must be i + 1 plus that offset
// floored, approaching or receding. The program's own wrap picks one entry later on a
// receding satellite (the offset rounded up), half a sample of range on average.
TEST(SampleGeneration, FlooredWrapPicksTheCodeSampleBelowThePhaseWhateverTheDoppler) {
  const int32_t n = 1001;
  std::vector<int32_t> identity(n);
  for (int32_t k = 0; k < n; ++k) identity[k] = k;
  std::vector<int32_t> row(kNavBitsPerRow, 1);
  for (const bool floorWrap : {true, false}) {
    for (const float rho : {2.7e-3f, -2.7e-3f, 3.1e-5f, -3.1e-5f}) {
      PathArgs a;
      a.n = n;
      a.code = identity.data();
      a.rho = rho;
      a.carrierOn = false;
      a.floorWrap = floorWrap;
      ChannelNco c;
      c.codeIndex = 500;
      c.codeFraction = 0.0f;
      c.navBit = 1;
      BitFeed f;
      f.row = row.data();
      int32_t checked = 0, off = 0;
      for (int32_t block = 0; block < 6; ++block) {
        std::vector<float> out(n);
        RunPathPlainStore(a, c, f, out.data());
        for (int32_t i = 0; i < n; ++i) {
          const double offset = 500.0 + (static_cast<double>(block) * n + i + 1) * rho;
          if (std::fabs(offset - std::round(offset)) < 1e-3) continue;  // float rounding decides
          const double whole = floorWrap || rho > 0.0f ? std::floor(offset) : std::ceil(offset);
          const int64_t want = ((i + 1 + static_cast<int64_t>(whole)) % n + n) % n;
          ++checked;
          if (static_cast<int64_t>(out[i]) != want) ++off;
        }
      }
      EXPECT_GT(checked, 5 * n) << rho;
      EXPECT_EQ(off, 0) << "floorWrap " << floorWrap << " rho " << rho;
    }
  }
}

// Every pass of the code's end is a millisecond of the navigation bit. A fast approaching
// or receding satellite steps over or repeats code entries every few dozen samples, some of
// them at the end of the code; over many blocks the count of milliseconds (msInBit, and the
// bits it has moved on) must equal the code periods that have passed, in every form of the
// loop. The program's count loses one whenever a step jumps over the first entry.
TEST(SampleGeneration, EpochOnWrapCountsEveryCodePeriod) {
  const int32_t n = 1001, blocks = 200, start = 500;
  std::vector<int32_t> code(n, 1), row(kNavBitsPerRow, 1);
  for (const float rho : {3.1e-2f, -3.1e-2f}) {
    for (const bool epochOnWrap : {true, false}) {
      for (const bool fast : {false, true}) {
        std::vector<float> codeFloat(n, 1.0f), out(n);
        PathArgs a;
        a.n = n;
        a.code = code.data();
        a.codeFloat = codeFloat.data();
        a.rho = rho;
        a.omega = 1.57f;
        a.floorWrap = true;
        a.epochOnWrap = epochOnWrap;
        ChannelNco c;
        c.codeIndex = start;
        c.navBit = 1;
        c.bitNumber = 1000;
        BitFeed f;
        f.row = row.data();
        f.base = 900;
        for (int32_t b = 0; b < blocks; ++b)
          (fast ? RunPathFastStore : RunPathPlainStore)(a, c, f, out.data());
        const int64_t counted = 20LL * (c.bitNumber - 1000) + c.msInBit;
        const double entry = start + static_cast<double>(blocks) * n * (1.0 + rho);
        const int64_t periods = static_cast<int64_t>(std::floor(entry / n));
        if (epochOnWrap) {
          EXPECT_EQ(counted, periods) << "rho " << rho << " fast " << fast;
        } else if (rho > 0.0f) {
          EXPECT_LT(counted, periods) << "the program's count, fast " << fast;
        }
      }
    }
  }
}

// A test-signal run into a scratch directory; returns the file's bytes.
std::string RunTest(const DifPanelValues& p, const std::filesystem::path& dir,
                    GeneratorReport* report = nullptr,
                    platform::Messages messages = platform::Messages::Silent(),
                    std::atomic<uint8_t>* runActive = nullptr, GeneratorSpeed speed = {},
                    platform::RandState* randAfter = nullptr) {
  DifState state;
  platform::RandState rand;
  std::atomic<uint8_t> active{0};
  DifRunPaths paths;
  paths.output = dir / "test.bin";
  paths.dataDir = dir;
  paths.scintFile = p.ScintFile;
  DifRunOutcome outcome;
  RunDifGeneration(p, paths, state, rand, runActive ? *runActive : active, messages, speed,
                   outcome);
  if (report) *report = outcome.report;
  if (randAfter) *randAfter = rand;
  return test::ReadFile(paths.output);
}

TEST(SampleGeneration, BitEdgesFallOnCodeEpochs) {
  ScratchDir dir("edges");
  DifPanelValues p;
  p.ScenarioDriven = 0;
  p.TestPrn = 7;
  p.TestCarrierOn = 0;
  p.TestDataOn = 1;
  p.TestDataMode = 1;      // alternating bits
  p.SignalPower = -150.0;  // no noise
  p.BitsPerSample = 1;
  p.OutputPacked = "Direct";
  p.Duration = 0.001;  // 60 ms
  const std::string bytes = RunTest(p, dir.path());
  const int32_t n = 16368;
  ASSERT_EQ(bytes.size(), static_cast<size_t>(60 * n));
  std::vector<int32_t> code(n);
  MakeCaCodeSamples(n, 16368000.0, 0.0, 6, code.data());
  int bit = 1;
  std::vector<int64_t> flips;
  for (int64_t g = 0; g < 60 * n; ++g) {
    const int value = bytes[g] ? 1 : -1;
    const int now = value * code[(g % n + 1) % n];  // sample i of a block reads table entry i + 1
    if (now != bit) flips.push_back(g);
    bit = now;
  }
  // The first bit closes after 20 code periods; sample n - 1 of a block starts a period.
  EXPECT_EQ(flips, (std::vector<int64_t>{20 * n - 1, 40 * n - 1, 60 * n - 1}));
}

TEST(SampleGeneration, FlatTestSignalGivesLevelZero) {
  ScratchDir dir("flat");
  DifPanelValues p;
  p.ScenarioDriven = 0;
  p.TestCodeOn = 0;
  p.TestCarrierOn = 0;
  p.TestDataOn = 0;
  p.SignalPower = -150.0;
  p.OutputPacked = "Direct";
  p.Duration = 0.0005;
  const std::string bytes = RunTest(p, dir.path());
  ASSERT_EQ(bytes.size(), static_cast<size_t>(30 * 16368));
  EXPECT_EQ(bytes.find_first_not_of('\0'), std::string::npos);
}

// The test signal through every form of the loop and any number of threads: one channel with three paths
// (one starting late), scintillation from a file, the filter, and a stop after the first
// second; every form writes the plain loop's bytes and stops at the same block.
TEST(SampleGeneration, TestSignalGivesThePlainLoopsBytesOnAnyNumberOfThreads) {
  ScratchDir dir("forms");
  std::string scint;
  for (int line = 0; line < 200; ++line) scint += fmt::format("{} {}\n", 0.01 * line, 0.9);
  test::WriteFile(dir / "scint.txt", scint);
  DifPanelValues p;
  p.ScenarioDriven = 0;
  p.TestPrn = 11;
  p.TestDataOn = 1;
  p.TestDataMode = 1;
  p.TestDopplerOn = 1;
  p.TestDoppler = -2100.0;
  p.FilterOn = 1;
  p.MultipathOn = 1;
  p.MultipathTable = {{"y", "", 11, 0.5, 3000.0, 0.0}, {"", "", 11, 0.25, 9000.0, 1.0}};
  p.ScintEnabled = 1;
  p.ScintType = 1;
  p.ScintRate = 100;
  p.ScintFile = (dir / "scint.txt").string();
  p.Duration = 0.03;  // 1.8 s, stopped after 1001 blocks
  std::atomic<uint8_t> active{0};
  platform::Messages m = platform::Messages::Silent();
  m.progress = [&](double) { active.store(0); };
  GeneratorReport report;
  platform::RandState plainRand;
  const std::string plain = RunTest(p, dir.path(), &report, m, &active, {false, 1}, &plainRand);
  EXPECT_TRUE(report.stopped);
  EXPECT_EQ(report.blocks, 1001);
  ASSERT_EQ(plain.size(), 1001u * 4092u);  // whole blocks
  EXPECT_EQ(active.load(), 0);
  const GeneratorSpeed forms[] = {{true, 1},    {true, 2},    {true, 3},   {false, 2},
                                  {true, 2, 3}, {true, 3, 2}, {false, 2, 5}};
  for (const GeneratorSpeed& form : forms) {
    platform::RandState rand;
    EXPECT_EQ(RunTest(p, dir.path(), &report, m, &active, form, &rand), plain)
        << form.vectorised << " " << form.threads << " " << form.turns;
    EXPECT_EQ(report.blocks, 1001);
    EXPECT_TRUE(report.stopped);
    EXPECT_EQ(rand.state, plainRand.state);
  }
}

TEST(SampleGeneration, RefusedSettingsAndMissingFilesEndWithAMessage) {
  ScratchDir dir("refuse");
  DifPanelValues p;
  p.BitsPerSample = 4;  // Packed 4 bits does not exist
  test::CapturedMessages said;
  const std::vector<std::string>& popups = said.popups;
  const platform::Messages& m = said.messages;
  RunTest(p, dir.path(), nullptr, m);
  ASSERT_EQ(popups.size(), 1u);
  EXPECT_NE(popups[0].find("Error message: OutputPacked"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "test.bin"));
  p.BitsPerSample = 2;
  p.ScintEnabled = 1;
  p.ScintFile = (dir / "absent.txt").string();
  RunTest(p, dir.path(), nullptr, m);
  ASSERT_EQ(popups.size(), 2u);
  EXPECT_EQ(popups[1].rfind("Error message: Specified scintillation data file doesn't exist (", 0),
            0u);
  EXPECT_FALSE(std::filesystem::exists(dir / "test.bin"));  // inputs before outputs
  p.ScintEnabled = 0;
  RunTest(p, dir.path(), nullptr, m);  // no .scn record
  ASSERT_EQ(popups.size(), 3u);
  EXPECT_EQ(popups[2].rfind("Error message: Specified scenario file doesn't exist (", 0), 0u);
}

}  // namespace
}  // namespace vorel::dif
