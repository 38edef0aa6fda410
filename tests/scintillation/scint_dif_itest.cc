// Scintillation end to end through the command line on data/examples/scint.toml: a plasma
// bubble over one satellite's ray gives it a bubble class in the .scn record, scint-table
// writes the series of classes 1 to 3, and the DIF run reads them as the numbers they are.
// A correlator of our own then measures each satellite's power every 10 ms in the
// recording: the crossed satellite's S4 is the table's, the others' power stays steady.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>

#include "cli_runner.h"
#include "dif/receiver.h"
#include "test_support.h"

namespace vorel::test {
namespace {

constexpr int kN = 16368;  // samples a millisecond at 16.368 MHz
constexpr double kFs = 16368000.0;
constexpr double kIf = 4092000.0;
constexpr double kLambda = 299792458.0 / 1575420000.0;
constexpr double kPi = 3.14159265358979323846;
constexpr int kChannels = 4;       // satellites in the example's record
constexpr int kRatePeriodMs = 50;  // ScintRate 20
constexpr int kWindowMs = 10;

// S4 = sqrt(<P^2> - <P>^2) / <P>.
double S4(const std::vector<double>& power) {
  double sum = 0.0, sum2 = 0.0;
  for (double p : power) {
    sum += p;
    sum2 += p * p;
  }
  const double mean = sum / power.size();
  return std::sqrt(std::max(0.0, sum2 / power.size() - mean * mean)) / mean;
}

double Correlation(const std::vector<double>& a, const std::vector<double>& b) {
  double ma = 0.0, mb = 0.0;
  for (size_t i = 0; i < a.size(); ++i) {
    ma += a[i];
    mb += b[i];
  }
  ma /= a.size();
  mb /= b.size();
  double ab = 0.0, aa = 0.0, bb = 0.0;
  for (size_t i = 0; i < a.size(); ++i) {
    ab += (a[i] - ma) * (b[i] - mb);
    aa += (a[i] - ma) * (a[i] - ma);
    bb += (b[i] - mb) * (b[i] - mb);
  }
  return ab / std::sqrt(aa * bb);
}

// The recording as a receiver behind an AGC sees it: the quantiser ranges each millisecond
// against its own extremes, so each millisecond is brought to mean 0 and unit power.
struct Recording {
  const uint8_t* levels = nullptr;
  int64_t samples = 0;
  std::vector<double> mean, scale;  // per millisecond
  explicit Recording(const std::string& bytes)
      : levels(reinterpret_cast<const uint8_t*>(bytes.data())),
        samples(static_cast<int64_t>(bytes.size())) {
    for (int64_t b = 0; (b + 1) * kN <= samples; ++b) {
      double sum = 0.0, sum2 = 0.0;
      for (int64_t i = b * kN; i < (b + 1) * kN; ++i) {
        sum += levels[i];
        sum2 += static_cast<double>(levels[i]) * levels[i];
      }
      mean.push_back(sum / kN);
      scale.push_back(1.0 / std::sqrt(sum2 / kN - mean.back() * mean.back()));
    }
  }
};

// Prompt power of one satellite per code period, a period starting at each code epoch so
// that no navigation bit edge falls inside it. The record gives the code epoch in each
// millisecond (transmission time) and the Doppler (change of range to the next epoch); the
// generator moves its code a whole sample at a time, so the best of a few samples around
// the record's epoch is taken. Block b is the record's epoch b + 1.
std::vector<double> PromptPower(const Recording& x, const std::vector<ScnEpoch>& epochs, int prn,
                                int blocks) {
  const std::vector<int> bits = ReplicaCode(prn);
  std::vector<int> chipOf(kN);
  for (int i = 0; i < kN; ++i) chipOf[i] = static_cast<int>(static_cast<int64_t>(i) * 1023 / kN);
  constexpr int kSpread = 2;
  std::vector<std::complex<double>> prefix(kN + 2 * kSpread + 1);
  std::vector<double> power;
  for (int b = 0; b < blocks; ++b) {
    const ScnEpoch& e = epochs[b + 1];
    const double range = e.range.at(prn);
    const double tx = e.timeMs - range / 299792.458;
    const int expected = static_cast<int>(std::floor((tx - std::floor(tx)) * kN)) + 1;
    const int64_t start = static_cast<int64_t>(b) * kN + (kN - expected) - kSpread;
    const int64_t end = start + kN + 2 * kSpread;
    if (start < 0 || end > static_cast<int64_t>(x.mean.size()) * kN) continue;
    const double doppler = -(epochs[b + 2].range.at(prn) - range) * 1000.0 / kLambda;
    // Carrier wiped off, then running sums, so that each chip's sum is a difference.
    const std::complex<double> step = std::polar(1.0, -2.0 * kPi * (kIf + doppler) / kFs);
    std::complex<double> rotor = 1.0;
    prefix[0] = 0.0;
    for (int64_t at = start; at < end;) {
      // Up to the end of the millisecond the sample lies in, normalised by that one.
      const int64_t ms = at / kN;
      const int64_t stop = std::min(end, (ms + 1) * kN);
      const double m = x.mean[ms], k = x.scale[ms];
      for (; at < stop; ++at) {
        const int64_t i = at - start;
        prefix[i + 1] = prefix[i] + rotor * ((x.levels[at] - m) * k);
        rotor *= step;
      }
    }
    double best = 0.0;
    for (int d = 0; d <= 2 * kSpread; ++d) {
      std::complex<double> acc = 0.0;
      int first = 0;
      for (int i = 1; i <= kN; ++i) {
        if (i < kN && chipOf[i] == chipOf[first]) continue;
        const std::complex<double> chip = prefix[d + i] - prefix[d + first];
        acc += bits[chipOf[first]] ? chip : -chip;
        first = i;
      }
      best = std::max(best, std::norm(acc));
    }
    power.push_back(best);
  }
  return power;
}

// Mean power over each 10 ms.
std::vector<double> Windows(const std::vector<double>& perMs) {
  std::vector<double> w;
  for (size_t k = 0; k + kWindowMs <= perMs.size(); k += kWindowMs) {
    double sum = 0.0;
    for (int m = 0; m < kWindowMs; ++m) sum += perMs[k + m];
    w.push_back(sum / kWindowMs);
  }
  return w;
}

TEST(ScintDif, BubbleCrossedSatelliteScintillatesWithTheTablesS4AndTheOthersStaySteady) {
  ScratchDir dir("scint-dif");
  const CliResult r =
      RunVorel({"--data-dir", "VLD", "--scenario", (DataDir() / "examples" / "scint.toml").string(),
                "--yes", "load-orbits", (DataDir() / "examples" / "yuma147.txt").string(),
                "nav-all", "obs", "scint-table", "C:/VLD/scint-table.txt", "0.2", "0.5", "0.8",
                "--channels", std::to_string(kChannels), "dif"},
               dir.path().string());
  ASSERT_EQ(r.status, 0) << r.err;

  const std::string bytes = ReadFile(dir / "VLD" / "scint.bin");
  const int blocks = static_cast<int>(bytes.size() / kN);
  ASSERT_EQ(blocks, 4000);
  const auto epochs = ReadEpochs(dir / "VLD" / "scint.scn", blocks + 3);
  ASSERT_EQ(static_cast<int>(epochs.size()), blocks + 3);

  // The record: the bubble crosses PRN 12's ray alone.
  int crossed = 0;
  for (const auto& [prn, cls] : epochs[1].bubbleClass) {
    if (cls == 0) continue;
    EXPECT_EQ(crossed, 0) << "a second crossed satellite, PRN " << prn;
    crossed = prn;
  }
  ASSERT_EQ(crossed, 12);
  const int crossedClass = epochs[1].bubbleClass.at(crossed);
  ASSERT_TRUE(crossedClass == 2 || crossedClass == 3) << crossedClass;
  ASSERT_EQ(static_cast<int>(epochs[1].range.size()), kChannels);
  for (const ScnEpoch& e : epochs) ASSERT_EQ(e.bubbleClass.at(crossed), crossedClass);

  // The table: the run reads a group of kChannels equal lines at each 50 ms from block 50
  // on, the first group first. The reference is the S4 of the class's intensity (its
  // amplitude column squared) over the groups the run read.
  const std::vector<std::string> table = SplitLines(ReadFile(dir / "VLD" / "scint-table.txt"));
  const int reads = blocks / kRatePeriodMs - 1;
  ASSERT_GE(static_cast<int>(table.size()), reads * kChannels);
  std::vector<double> intensity;
  for (int j = 0; j < reads; ++j) {
    std::istringstream in(table[static_cast<size_t>(j) * kChannels]);
    std::vector<double> cols(10);
    for (double& c : cols) in >> c;
    const double amplitude = cols[2 * (crossedClass - 1) + 1];
    intensity.push_back(amplitude * amplitude);
  }
  const double tableS4 = S4(intensity);

  // The first 50 ms are before the first reading: left out.
  const Recording x(bytes);
  const size_t firstWindow = kRatePeriodMs / kWindowMs;
  std::map<int, double> measured;
  double following = 0.0;
  for (const auto& [prn, range] : epochs[1].range) {
    std::vector<double> w = Windows(PromptPower(x, epochs, prn, blocks));
    ASSERT_GT(w.size(), firstWindow + 200) << "PRN " << prn;
    w.erase(w.begin(), w.begin() + static_cast<std::ptrdiff_t>(firstWindow));
    measured[prn] = S4(w);
    if (prn != crossed) continue;
    // The power follows the table in time too: window k against the group read last
    // before it.
    std::vector<double> expected;
    for (size_t k = 0; k < w.size(); ++k) {
      const size_t ms = (k + firstWindow) * kWindowMs;
      expected.push_back(intensity[std::min(intensity.size() - 1, ms / kRatePeriodMs - 1)]);
    }
    following = Correlation(w, expected);
  }

  std::ostringstream figures;
  figures << "class " << crossedClass << " table S4 " << tableS4 << "; measured: ";
  for (const auto& [prn, s4] : measured) figures << "PRN " << prn << " " << s4 << "  ";
  figures << "correlation with the table " << following;
  std::cout << figures.str() << "\n";
  RecordProperty("figures", figures.str());
  EXPECT_NEAR(measured[crossed], tableS4, 0.25 * tableS4) << figures.str();
  EXPECT_GT(following, 0.9) << figures.str();
  for (const auto& [prn, s4] : measured) {
    if (prn == crossed) continue;
    EXPECT_LT(s4, 0.05) << "PRN " << prn << ": " << figures.str();
  }
}

}  // namespace
}  // namespace vorel::test
