// The complex baseband form: its kernel against the plain loop, the quantiser's layout and
// clipping, the refusals, and whole runs of hand-made records checked by a correlator of
// our own (the C/A code from the published G2 taps, the carrier from the ranges).

#include "dif/iq_generation.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "dif/dif_run.h"
#include "dif/receiver.h"
#include "test_support.h"

namespace vorel::dif {
namespace {

using test::ScratchDir;
using Complex = std::complex<double>;

constexpr double kC = 299792458.0;
constexpr double kL1 = 1575420000.0;

// The tests' own C/A code in chips of +-1.
std::vector<int> ReferenceCode(int prn) {
  std::vector<int> chips = test::ReplicaCode(prn);
  for (int& c : chips) c = 2 * c - 1;
  return chips;
}

// --- A hand-made scenario: satellites whose ranges change linearly, and navigation files.
struct Satellite {
  int prn = 7;
  double range0 = 21.0e6;  // m at the record's first epoch
  double rate = -500.0;    // m/s: negative comes closer
};

constexpr int64_t kFirstEpochMs = 1560000;  // 26 minutes into the week: bit base 75000
constexpr int64_t kBitBase = 75000;

int NavBitFileValue(int64_t i) { return static_cast<int>((i * 2654435761u >> 7) & 1); }

// `epochs` epochs `spacingMs` apart from kFirstEpochMs; `gapAt` > 0 doubles the spacing
// before that epoch.
void WriteScenario(const std::filesystem::path& dir, const std::vector<Satellite>& sats,
                   int epochs, int spacingMs = 1, int gapAt = 0) {
  std::filesystem::create_directories(dir / "NAV");
  std::vector<int32_t> bits(kNavBitsPerRow);
  for (int64_t i = 0; i < kNavBitsPerRow; ++i) bits[i] = NavBitFileValue(i);
  for (int prn = 1; prn <= 32; ++prn) {
    std::ofstream f(dir / "NAV" / ("navbin" + std::to_string(prn)), std::ios::binary);
    f.write(reinterpret_cast<const char*>(bits.data()), bits.size() * 4);
  }
  std::string text;
  char line[128];
  for (int e = 0; e < epochs; ++e) {
    const int64_t ms = static_cast<int64_t>(e) * spacingMs + (gapAt > 0 && e >= gapAt ? spacingMs : 0);
    text += std::to_string(kFirstEpochMs + ms) + "\n" + std::to_string(sats.size()) + "\n";
    for (const Satellite& s : sats) {
      const double r = s.range0 + s.rate * static_cast<double>(ms) * 1.0e-3;
      std::snprintf(line, sizeof line, "%d %.6f %.6f 0\n", s.prn, r, r);
      text += line;
    }
  }
  test::WriteFile(dir / "rec.scn", text);
}

DifPanelValues IqPanel(int32_t rate, double minutes, const std::string& format = "ci8") {
  DifPanelValues p;
  p.SampleForm = "iq";
  p.IqFormat = format;
  p.BitsPerSample = format == "ci8" ? 8 : 16;
  p.OutputPacked = "Direct";
  p.IqSampleRate = rate;
  p.Duration = minutes;
  return p;
}

std::string RunIq(const DifPanelValues& p, const std::filesystem::path& dir,
                  DifRunOutcome* out = nullptr, GeneratorSpeed speed = {}) {
  DifState state;
  platform::RandState rand;
  std::atomic<uint8_t> active{0};
  DifRunPaths paths;
  paths.output = dir / "iq.bin";
  paths.record = dir / "rec.scn";
  paths.dataDir = dir;
  DifRunOutcome outcome;
  RunDifGeneration(p, paths, state, rand, active, platform::Messages::Silent(), speed, outcome);
  if (out) *out = outcome;
  return std::filesystem::exists(paths.output) ? test::ReadFile(paths.output) : std::string();
}

// What the satellite sends at sample k: bit x code at the transmission time, and the
// carrier phase -2 pi (L1 R / c) + 2 pi offset t. Block 0 is the record's second epoch.
struct Expected {
  int sign = 1;
  double phase = 0.0;
};

Expected ExpectedAt(const Satellite& s, const std::vector<int>& code, int64_t k, double fs,
                    double offset) {
  const double tau = static_cast<double>(k) / fs;  // s from the second epoch
  const double range = s.range0 + s.rate * (1.0e-3 + tau);
  const double f = tau * 1000.0 - range / (kC / 1000.0);  // ms, beside the whole epoch
  const double whole = std::floor(f);
  const int64_t ms = kFirstEpochMs + 1 + static_cast<int64_t>(whole);
  const int chip = static_cast<int>(std::floor((f - whole) * 1023.0));
  const int64_t bitIndex = (ms / 20) - kBitBase;
  const double cycles = -kL1 / kC * range + offset * tau;
  return {(2 * NavBitFileValue(bitIndex) - 1) * code[chip],
          2.0 * M_PI * (cycles - std::floor(cycles))};
}

Complex Replica(const Satellite& s, const std::vector<int>& code, int64_t k, double fs,
                double offset) {
  const Expected e = ExpectedAt(s, code, k, fs, offset);
  return static_cast<double>(e.sign) * std::polar(1.0, e.phase);
}

std::vector<Complex> SamplesOf(const std::string& bytes, int width) {
  std::vector<Complex> x(bytes.size() / (2 * width));
  for (size_t k = 0; k < x.size(); ++k) {
    if (width == 1) {
      x[k] = Complex(static_cast<int8_t>(bytes[2 * k]), static_cast<int8_t>(bytes[2 * k + 1]));
    } else {
      int16_t i, q;
      std::memcpy(&i, bytes.data() + 4 * k, 2);
      std::memcpy(&q, bytes.data() + 4 * k + 2, 2);
      x[k] = Complex(i, q);
    }
  }
  return x;
}

// Correlates every millisecond of the recording with the replica: each must come out as
// the amplitude, in phase; the carrier of the opposite sign must not correlate.
void ExpectOneSatellite(const std::vector<Complex>& x, const Satellite& s, double fs, double offset,
                        double amplitude) {
  const auto code = ReferenceCode(s.prn);
  const auto window = static_cast<int64_t>(fs / 1000.0);
  int64_t windows = 0;
  for (int64_t w0 = 0; w0 + window <= static_cast<int64_t>(x.size()); w0 += window) {
    Complex c = 0.0, mirrored = 0.0;
    for (int64_t k = w0; k < w0 + window; ++k) {
      const Complex r = Replica(s, code, k, fs, offset);
      c += x[k] * std::conj(r);
      mirrored += x[k] * r;  // the carrier turned the other way
    }
    c /= amplitude * window;
    mirrored /= amplitude * window;
    ASSERT_NEAR(std::abs(c), 1.0, 0.03) << "ms " << w0 / window;
    ASSERT_NEAR(std::arg(c), 0.0, 0.03) << "ms " << w0 / window;
    ASSERT_LT(std::abs(mirrored), 0.1) << "ms " << w0 / window;
    ++windows;
  }
  EXPECT_GT(windows, 0);
}

TEST(IqGeneration, OneSatelliteMatchesAnIndependentCorrelator) {
  ScratchDir dir("iq_one_satellite");
  const Satellite s;  // coming closer at 500 m/s: +2628 Hz
  WriteScenario(dir.path(), {s}, 1300);
  DifRunOutcome outcome;
  const std::string bytes = RunIq(IqPanel(2600000, 0.02), dir.path(), &outcome);
  ASSERT_TRUE(outcome.status.ok()) << outcome.status.reason();
  ASSERT_EQ(bytes.size(), 1200u * 2600 * 2);  // 1.2 s, I and Q a byte each
  const auto x = SamplesOf(bytes, 1);
  ExpectOneSatellite(x, s, 2.6e6, 0.0, 10.0);

  // Coming closer turns the phasor counter-clockwise: with code and bits taken off, each
  // sample's Q leads the one before's.
  const auto code = ReferenceCode(s.prn);
  double turn = 0.0;
  Complex before = x[0] * static_cast<double>(ExpectedAt(s, code, 0, 2.6e6, 0.0).sign);
  for (int64_t k = 1; k < 26000; ++k) {
    const Complex now = x[k] * static_cast<double>(ExpectedAt(s, code, k, 2.6e6, 0.0).sign);
    turn += std::arg(now * std::conj(before));
    before = now;
  }
  const double doppler = turn / 25999.0 / (2.0 * M_PI) * 2.6e6;
  EXPECT_NEAR(doppler, 500.0 * kL1 / kC, 5.0);  // 2627.5 Hz

  // I and Q in quadrature: equal power, uncorrelated.
  double ii = 0.0, qq = 0.0, iq = 0.0;
  for (const Complex& v : x) {
    ii += v.real() * v.real();
    qq += v.imag() * v.imag();
    iq += v.real() * v.imag();
  }
  EXPECT_NEAR(ii / qq, 1.0, 0.01);
  EXPECT_LT(std::fabs(iq) / ii, 0.01);
}

TEST(IqGeneration, CodeTimingHoldsAtARateOffTheKilohertzGridAndWithAnOffset) {
  ScratchDir dir("iq_odd_rate");
  Satellite s;
  s.prn = 12;
  s.range0 = 24.3e6;
  s.rate = 780.0;  // going away
  WriteScenario(dir.path(), {s}, 2100);
  DifPanelValues p = IqPanel(4000333, 2.0 / 60.0, "ci16");
  p.IqIfOffset = 1250000.5;
  p.IqAmplitude = 1000.0;
  DifRunOutcome outcome;
  const std::string bytes = RunIq(p, dir.path(), &outcome);
  ASSERT_TRUE(outcome.status.ok()) << outcome.status.reason();
  // 2 s at 4000333 Hz: the blocks take 4000 or 4001 samples, 8000666 in all.
  ASSERT_EQ(bytes.size(), 8000666u * 4);
  ExpectOneSatellite(SamplesOf(bytes, 2), s, 4000333.0, 1250000.5, 1000.0);
}

// A record of epochs 20 ms apart: the blocks take the ranges between them and start where
// a 1 ms record's do, 1 ms after the first epoch; bits, code and carrier as the correlator
// expects, and nearly every byte as from the 1 ms record of the same straight-line ranges.
TEST(IqGeneration, RecordsOfWiderSpacingAreReadBetweenTheirEpochs) {
  ScratchDir fine("iq_spacing_1"), wide("iq_spacing_20");
  const std::vector<Satellite> sats = {{7, 21.0e6, -500.0}, {12, 23.5e6, 730.0}};
  WriteScenario(fine.path(), sats, 1300);
  WriteScenario(wide.path(), sats, 66, 20);
  const DifPanelValues p = IqPanel(2600000, 0.02, "ci16");
  DifRunOutcome outcome;
  const std::string reference = RunIq(p, fine.path());
  const std::string bytes = RunIq(p, wide.path(), &outcome);
  ASSERT_TRUE(outcome.status.ok()) << outcome.status.reason();
  ASSERT_EQ(bytes.size(), reference.size());
  const auto x = SamplesOf(bytes, 2), y = SamplesOf(reference, 2);
  int64_t differing = 0;
  for (size_t k = 0; k < x.size(); ++k) differing += std::abs(x[k] - y[k]) > 1.5;
  EXPECT_LT(differing, static_cast<int64_t>(x.size() / 1000));

  // One satellite alone against the correlator, across the epochs and bit edges.
  ScratchDir one("iq_spacing_one");
  WriteScenario(one.path(), {sats[1]}, 66, 20);
  const std::string alone = RunIq(p, one.path(), &outcome);
  ASSERT_EQ(alone.size(), reference.size());
  ExpectOneSatellite(SamplesOf(alone, 2), sats[1], 2.6e6, 0.0, 2560.0);
}

TEST(IqGeneration, RecordSpacingOutsideItsRangeOrUnevenIsRefusedOrEndsTheRun) {
  ScratchDir dir("iq_spacing_bad");
  const DifPanelValues p = IqPanel(2000000, 0.01);
  // 200 ms apart: refused, naming the record, and an earlier recording stays as it was.
  WriteScenario(dir.path(), {Satellite{}}, 10, 200);
  test::WriteFile(dir / "iq.bin", "earlier");
  DifRunOutcome outcome;
  EXPECT_EQ(RunIq(p, dir.path(), &outcome), "earlier");
  EXPECT_TRUE(outcome.refused);
  EXPECT_NE(outcome.status.reason().find("rec.scn"), std::string::npos);
  EXPECT_NE(outcome.status.reason().find("200 ms apart"), std::string::npos);

  // 10 ms apart with one epoch 20 ms after the one before: the run ends there, whole.
  WriteScenario(dir.path(), {Satellite{}}, 100, 10, 30);
  const std::string bytes = RunIq(p, dir.path(), &outcome);
  EXPECT_TRUE(outcome.status.ok()) << outcome.status.reason();
  EXPECT_TRUE(outcome.report.recordEnded);
  EXPECT_EQ(outcome.report.blocks, 289);  // 1 ms after the first epoch to the 29th's end
  EXPECT_EQ(bytes.size(), 289u * 2000 * 2);
}

// --- Every form gives the same bytes.
TEST(IqGeneration, SameBytesForThePlainLoopAndOneTwoOrThreeThreads) {
  ScratchDir dir("iq_threads");
  WriteScenario(
      dir.path(),
      {{7, 21.0e6, -500.0}, {12, 23.5e6, 300.0}, {20, 20.2e6, -120.0}, {3, 24.9e6, 650.0}}, 400);
  DifPanelValues p = IqPanel(16368000, 0.005, "ci16");
  p.IqNoise = 1;
  p.SignalPower = -150.0;  // 54 dB-Hz
  p.IqAmplitude = 30.0;
  GeneratorSpeed plain;
  plain.vectorised = false;
  DifRunOutcome outcome;
  const std::string reference = RunIq(p, dir.path(), &outcome, plain);
  ASSERT_EQ(reference.size(), 300u * 16368 * 4);
  for (int threads : {1, 2, 3}) {
    GeneratorSpeed speed;
    speed.threads = threads;
    EXPECT_TRUE(RunIq(p, dir.path(), nullptr, speed) == reference) << threads << " threads";
  }
  // The noise is there and has the sigma of 54 dB-Hz: 30 x sqrt(fs / (2 x 10^5.4)).
  const auto x = SamplesOf(reference, 2);
  double power = 0.0;
  for (const Complex& v : x) power += std::norm(v);
  const double sigma = 30.0 * std::sqrt(16368000.0 / (2.0 * std::pow(10.0, 5.4)));
  // Four satellites of amplitude 30 add 4 x 900; rounding adds 2 / 12.
  EXPECT_NEAR(power / x.size(), 2.0 * sigma * sigma + 4.0 * 900.0 + 2.0 / 12.0,
              0.02 * (2.0 * sigma * sigma + 3600.0));
}

TEST(IqGeneration, VectorKernelMatchesThePlainLoop) {
  std::mt19937_64 random(7);
  IqCodeTable code;
  MakeIqCodeTable(4, code);
  for (int trial = 0; trial < 400; ++trial) {
    IqChannelPlan plan;
    // Every fourth at 1 MHz, above a chip a sample: the gathered code, not the window.
    const int32_t count = trial % 4 == 0 ? 1000 : 1100 + static_cast<int32_t>(random() % 59000);
    plan.codePhase = random() % (uint64_t{1023} << 32);
    plan.codeStep = (uint64_t{1023000} << 32) / (count * 1000ull) + random() % 100000;
    plan.carrierPhase = static_cast<uint32_t>(random());
    // Half slow enough for the carrier window, either way, the exact limits of sixteen
    // lanes (31/15 of a table bin a sample) among them, and just past them (gathered).
    const int32_t bin = 1 << 22;
    const int32_t limit = static_cast<int32_t>((int64_t{31} << 22) / 15);
    const int32_t slow[] = {bin,       -bin,       0, limit, -limit, limit + 1, -limit - 1,
                            static_cast<int32_t>(random() % (2 * limit + 1)) - limit};
    plan.carrierStep = trial % 2 == 0 ? static_cast<uint32_t>(random())
                                      : static_cast<uint32_t>(slow[(trial / 2) % 8]);
    plan.gain = {2.5f, -2.5f, 2.5f};
    plan.code = &code;
    SetIqPeriodStarts(plan, count);
    const int32_t first = static_cast<int32_t>(random() % 50);
    const int32_t end = count - static_cast<int32_t>(random() % 50);
    // Room for the vector form's last step past the end; only the range's samples count.
    std::vector<float> i1(count + 16, 0.5f), q1(count + 16, -0.25f), i2(i1), q2(q1), i3(i1), q3(q1);
    AddIqChannelPlain(plan, first, end, i1.data(), q1.data());
    AddIqChannelFast(plan, first, end, i2.data(), q2.data());
    AddIqChannelFast(plan, first, end, i3.data(), q3.data(), false);  // eight lanes
    const size_t bytes = static_cast<size_t>(end - first) * 4;
    ASSERT_EQ(std::memcmp(i1.data(), i2.data(), bytes), 0) << trial;
    ASSERT_EQ(std::memcmp(q1.data(), q2.data(), bytes), 0) << trial;
    ASSERT_EQ(std::memcmp(i1.data(), i3.data(), bytes), 0) << trial;
    ASSERT_EQ(std::memcmp(q1.data(), q3.data(), bytes), 0) << trial;
    // The first channel of a block overwrites whatever the sums held, as if they were 0.
    std::vector<float> i4(count + 16, 0.0f), q4(i4), i5(count + 16, 7.0f), q5(i5);
    AddIqChannelPlain(plan, first, end, i4.data(), q4.data());
    AddIqChannelFast(plan, first, end, i5.data(), q5.data(), trial % 3 != 0, true);
    ASSERT_EQ(std::memcmp(i4.data(), i5.data(), bytes), 0) << trial;
    ASSERT_EQ(std::memcmp(q4.data(), q5.data(), bytes), 0) << trial;
  }
}

TEST(IqGeneration, PeriodStartsFallOnTheCodeEpochs) {
  IqChannelPlan plan;
  plan.codePhase = uint64_t{1000} << 32;  // 23 chips before the epoch
  plan.codeStep = uint64_t{1} << 31;      // half a chip a sample
  SetIqPeriodStarts(plan, 4000);
  EXPECT_EQ(plan.periodStart[0], 0);
  EXPECT_EQ(plan.periodStart[1], 46);         // 1000 + 46 / 2 = 1023
  EXPECT_EQ(plan.periodStart[2], 46 + 2046);  // one code period later
  EXPECT_EQ(plan.periodStart[3], 4000);       // the block ends first
}

// --- The quantiser: layout, rounding and clipping, worked by hand.
TEST(IqGeneration, QuantiserInterleavesRoundsAndCountsClipping) {
  const float i[] = {0.49f, -0.5f, 127.4f, 127.5f, -128.4f, -128.5f};
  const float q[] = {1.5f, -2.5f, 3.0f, -300.0f, 0.0f, 1000.0f};
  uint8_t b8[12];
  EXPECT_EQ(QuantiseIq(i, q, 6, 1, b8), 4);  // 127.5, -300, -128.5, 1000
  const int8_t want8[] = {0, 2, -1, -3, 127, 3, 127, -128, -128, 0, -128, 127};
  for (int k = 0; k < 12; ++k) EXPECT_EQ(static_cast<int8_t>(b8[k]), want8[k]) << k;

  const float i16[] = {-1.0f, 40000.0f};
  const float q16[] = {258.0f, -32768.4f};
  uint8_t b16[8];
  EXPECT_EQ(QuantiseIq(i16, q16, 2, 2, b16), 1);
  const uint8_t want16[] = {0xFF, 0xFF, 0x02, 0x01, 0xFF, 0x7F, 0x00, 0x80};
  for (int k = 0; k < 8; ++k) EXPECT_EQ(b16[k], want16[k]) << k;
}

TEST(IqGeneration, VectorQuantiserMatchesThePlainLoop) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> spread(-40000.0f, 40000.0f);
  for (int bytes : {1, 2}) {
    const int32_t count = 1000 + bytes;  // a tail the lanes leave to the plain loop
    std::vector<float> i(count), q(count);
    for (int32_t k = 0; k < count; ++k) {
      const float scale = (k % 3 == 0) ? 0.005f : 1.0f;  // many within ci8's range
      i[k] = spread(random) * scale;
      q[k] = std::round(spread(random) * scale) + ((k % 5 == 0) ? 0.5f : 0.0f);  // ties
    }
    i[7] = std::nanf("");
    q[9] = -std::numeric_limits<float>::infinity();
    std::vector<uint8_t> plain(4 * count), fast(4 * count);
    const int64_t heldPlain = QuantiseIqPlain(i.data(), q.data(), count, bytes, plain.data());
    const int64_t heldFast = QuantiseIq(i.data(), q.data(), count, bytes, fast.data());
    EXPECT_EQ(heldPlain, heldFast);
    EXPECT_GT(heldPlain, 0);
    EXPECT_EQ(plain, fast) << bytes;
  }
}

TEST(IqGeneration, ClippingIsCountedAndReported) {
  ScratchDir dir("iq_clipping");
  WriteScenario(dir.path(), {{7, 21.0e6, -500.0}, {12, 23.5e6, 300.0}}, 60);
  DifPanelValues p = IqPanel(2000000, 0.0005);
  p.IqAmplitude = 100.0;  // two satellites reach 200 where they meet in phase
  DifRunOutcome outcome;
  const std::string bytes = RunIq(p, dir.path(), &outcome);
  ASSERT_EQ(bytes.size(), 30u * 2000 * 2);
  int64_t atLimits = 0;
  for (char c : bytes) atLimits += (c == 127 || c == -128);
  EXPECT_GT(outcome.report.heldValues, 0);
  EXPECT_LE(outcome.report.heldValues, atLimits);
  EXPECT_GT(outcome.report.heldValues, atLimits * 9 / 10);

  p.IqAmplitude = 50.0;  // 100 at most: nothing clips
  RunIq(p, dir.path(), &outcome);
  EXPECT_EQ(outcome.report.heldValues, 0);

  // With noise at 45.5 dB-Hz and 4 MHz the sigma is 7.5 A: ci16's noise-free default 2560
  // puts the limits at 1.7 sigma, and the scale taken from the noise keeps every value in.
  p = IqPanel(4000000, 0.0005, "ci16");
  RunIq(p, dir.path(), &outcome);
  EXPECT_EQ(outcome.settings.IqAmplitude, 2560.0f);  // no noise: the format's own
  p.IqNoise = 1;
  p.IqAmplitude = 2560.0;
  const int64_t values = 30 * 4000 * 2;
  RunIq(p, dir.path(), &outcome);
  EXPECT_NEAR(static_cast<double>(outcome.report.heldValues) / values, 0.089, 0.01);
  p.IqAmplitude = 0.0;
  const std::string noisy = RunIq(p, dir.path(), &outcome);
  // 32767 / (5.7682 x 7.51 + 12), to three digits.
  EXPECT_EQ(outcome.settings.IqAmplitude, 592.0f);
  EXPECT_EQ(outcome.report.heldValues, 0);
  int16_t peak = 0;
  for (size_t k = 0; k + 1 < noisy.size(); k += 2) {
    int16_t v;
    std::memcpy(&v, noisy.data() + k, 2);
    peak = std::max<int16_t>(peak, static_cast<int16_t>(std::abs(v)));
  }
  EXPECT_GT(peak, 32767 / 2);  // the scale is used, not wasted
}

TEST(IqGeneration, ARecordShorterThanTheRunEndsItAtItsLastWholeBlock) {
  ScratchDir dir("iq_short_record");
  WriteScenario(dir.path(), {Satellite{}}, 40);  // 40 epochs: 38 blocks
  for (int threads : {1, 2}) {
    GeneratorSpeed speed;
    speed.threads = threads;
    DifRunOutcome outcome;
    const std::string bytes = RunIq(IqPanel(2000000, 0.001), dir.path(), &outcome, speed);
    EXPECT_TRUE(outcome.report.recordEnded);
    EXPECT_EQ(outcome.report.blocks, 38);
    EXPECT_EQ(bytes.size(), 38u * 2000 * 2);
  }
}

// --- Refusals: each names the setting, and nothing is written.
TEST(IqGeneration, RefusesWhatTheComplexFormCannotDo) {
  struct Case {
    std::function<void(DifPanelValues&)> change;
    std::string named;
  };
  const std::vector<Case> cases = {
      {[](DifPanelValues& p) { p.IqSampleRate = 999999; }, "IqSampleRate"},
      {[](DifPanelValues& p) { p.IqSampleRate = 60000001; }, "IqSampleRate"},
      {[](DifPanelValues& p) { p.IqIfOffset = 1000000.0; }, "IqIfOffset"},  // rate 2 MHz
      {[](DifPanelValues& p) { p.IqIfOffset = -1000000.0; }, "IqIfOffset"},
      {[](DifPanelValues& p) { p.OutputPacked = "Packed"; }, "OutputPacked"},
      {[](DifPanelValues& p) { p.BitsPerSample = 2; }, "BitsPerSample"},
      {[](DifPanelValues& p) { p.FilterOn = 1; }, "FilterOn"},
      {[](DifPanelValues& p) { p.Decimation = "2"; }, "Decimation"},
      {[](DifPanelValues& p) { p.MultipathOn = 1; }, "MultipathOn"},
      {[](DifPanelValues& p) { p.ScintEnabled = 1; }, "ScintEnabled"},
      {[](DifPanelValues& p) { p.ScenarioDriven = 0; }, "ScenarioDriven"},
  };
  ScratchDir dir("iq_refusals");
  WriteScenario(dir.path(), {Satellite{}}, 10);
  DifPanelValues good = IqPanel(2000000, 0.0001);
  good.IqIfOffset = 999999.0;  // just below half the rate
  EXPECT_EQ(CheckDifSettings(GatherDifSettings(good)), "");
  for (const Case& c : cases) {
    DifPanelValues p = good;
    c.change(p);
    const std::string why = CheckDifSettings(GatherDifSettings(p));
    EXPECT_NE(why.find(c.named), std::string::npos) << why;
    DifRunOutcome outcome;
    std::filesystem::remove(dir / "iq.bin");
    EXPECT_EQ(RunIq(p, dir.path(), &outcome), "");
    EXPECT_TRUE(outcome.refused) << c.named;
    EXPECT_FALSE(std::filesystem::exists(dir / "iq.bin")) << c.named;
  }
}

}  // namespace
}  // namespace vorel::dif
