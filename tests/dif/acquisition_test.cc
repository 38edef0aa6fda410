// The quick-look acquisition on recordings made here, sample by sample: two satellites
// at known Doppler, code phase and strength in noise, and noise alone.
#include "dif/acquisition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <random>

#include "dif/ca_code.h"
#include "test_support.h"

namespace vorel::dif {
namespace {

struct Satellite {
  int prn;
  double doppler;  // Hz
  double delay;    // chips: where the code period begins
  double cn0;      // dB-Hz
};

// Real IF samples as signed bytes: each satellite's code on its carrier, a data bit that
// flips every 20 ms, and white Gaussian noise of standard deviation 20.
void WriteRecording(const std::filesystem::path& path, double fs, double ifHz, int ms,
                    const std::vector<Satellite>& sats, bool complexBaseband = false) {
  std::mt19937 engine(42);
  std::normal_distribution<double> noise(0.0, 20.0);
  const int64_t count = static_cast<int64_t>(fs * ms / 1000.0);
  std::vector<std::array<int32_t, 1023>> chips(sats.size());
  for (size_t s = 0; s < sats.size(); ++s) CaCodeChips(sats[s].prn - 1, chips[s].data());
  std::ofstream out(path, std::ios::binary);
  for (int64_t i = 0; i < count; ++i) {
    const double t = i / fs;
    double re = noise(engine), im = complexBaseband ? noise(engine) : 0.0;
    for (size_t s = 0; s < sats.size(); ++s) {
      // C/N0 = A^2 fs / (4 sigma^2) for a real signal, A^2 fs / sigma_c^2 for a complex one
      // whose noise has sigma^2 in each of I and Q.
      const double n0 = complexBaseband ? 2.0 * 400.0 / fs : 400.0 / (fs / 2.0);
      const double amp = std::sqrt((complexBaseband ? 1.0 : 2.0) * std::pow(10.0, sats[s].cn0 / 10.0) * n0);
      const double chipTime = t * 1023000.0 - sats[s].delay;
      const int chip = static_cast<int>(std::floor(std::fmod(std::fmod(chipTime, 1023.0) + 1023.0, 1023.0)));
      const double bit = (static_cast<int64_t>(std::floor(t / 0.020)) % 2) ? -1.0 : 1.0;
      const double phase = 2.0 * M_PI * (ifHz + sats[s].doppler) * t + 0.7 * s;
      re += amp * chips[s][chip] * bit * std::cos(phase);
      if (complexBaseband) im += amp * chips[s][chip] * bit * std::sin(phase);
    }
    auto q = [](double v) { return static_cast<char>(std::clamp(std::lround(v), -127L, 127L)); };
    out.put(q(re));
    if (complexBaseband) out.put(q(im));
  }
}

TEST(Acquisition, FindsTheSatellitesAtTheirDopplerCodePhaseAndStrength) {
  test::ScratchDir dir("acquisition");
  const std::vector<Satellite> sats = {{3, 2345.0, 300.3, 45.0}, {17, -4100.0, 811.7, 42.0}};
  struct Case {
    const char* name;
    RecordingLayout layout;
    bool complex;
  };
  for (const Case& c : {Case{"real IF", {4092000.0, 1023000.0, SampleLayout::kInt8, 8}, false},
                        Case{"complex baseband", {2600000.0, 0.0, SampleLayout::kCi8, 8}, true}}) {
    SCOPED_TRACE(c.name);
    const auto path = dir / "rec.bin";
    WriteRecording(path, c.layout.samplingFrequency, c.layout.ifFrequency, 12, sats, c.complex);
    std::vector<std::complex<float>> samples;
    std::string error;
    ASSERT_TRUE(ReadRecording(path, c.layout, 1.0, 10, samples, error)) << error;
    double threshold = 0.0;
    const auto results = Acquire(samples, c.layout, {}, threshold);
    ASSERT_EQ(results.size(), 32u);
    for (const AcquisitionResult& r : results) {
      const Satellite* s = nullptr;
      for (const auto& x : sats)
        if (x.prn == r.prn) s = &x;
      EXPECT_EQ(r.found, s != nullptr) << "PRN " << r.prn << " metric " << r.metric;
      if (!s) continue;
      EXPECT_NEAR(r.doppler, s->doppler, 25.0) << r.prn;
      // Read from 1 ms on, a whole code period later: the same code phase.
      double dp = std::fabs(r.codePhase - s->delay);
      EXPECT_LT(std::min(dp, 1023.0 - dp), 0.5) << r.prn;
      EXPECT_NEAR(r.cn0, s->cn0, 3.0) << r.prn;
    }
  }
}

TEST(Acquisition, NoiseAloneFindsNothingAndShortFilesAreRefused) {
  test::ScratchDir dir("acquisition-noise");
  const RecordingLayout layout{4092000.0, 1023000.0, SampleLayout::kInt8, 8};
  WriteRecording(dir / "noise.bin", layout.samplingFrequency, layout.ifFrequency, 10, {});
  std::vector<std::complex<float>> samples;
  std::string error;
  ASSERT_TRUE(ReadRecording(dir / "noise.bin", layout, 0.0, 10, samples, error)) << error;
  double threshold = 0.0;
  for (const auto& r : Acquire(samples, layout, {}, threshold))
    EXPECT_FALSE(r.found) << "PRN " << r.prn << " metric " << r.metric << " over " << threshold;
  EXPECT_FALSE(ReadRecording(dir / "noise.bin", layout, 5.0, 10, samples, error));
  EXPECT_NE(error.find("noise.bin: holds fewer"), std::string::npos) << error;
  EXPECT_FALSE(ReadRecording(dir / "none.bin", layout, 0.0, 1, samples, error));
  EXPECT_NE(error.find("none.bin: cannot be read"), std::string::npos) << error;
}

TEST(Acquisition, PackedLevelsComeOutCentredEarliestFirst) {
  test::ScratchDir dir("acquisition-packed");
  std::ofstream(dir / "p2.bin", std::ios::binary).put(static_cast<char>(0b11100100));
  std::ofstream(dir / "p1.bin", std::ios::binary).put(static_cast<char>(0b00000101));
  std::vector<std::complex<float>> s;
  std::string error;
  ASSERT_TRUE(ReadRecording(dir / "p2.bin", {4000.0, 0.0, SampleLayout::kPacked2, 2}, 0.0, 1, s, error));
  EXPECT_EQ(s, (std::vector<std::complex<float>>{-1.5f, -0.5f, 0.5f, 1.5f}));
  ASSERT_TRUE(ReadRecording(dir / "p1.bin", {8000.0, 0.0, SampleLayout::kPacked1, 1}, 0.0, 1, s, error));
  EXPECT_EQ(s[0], 0.5f);
  EXPECT_EQ(s[1], -0.5f);
  EXPECT_EQ(s[2], 0.5f);
  EXPECT_EQ(s[7], -0.5f);
}

}  // namespace
}  // namespace vorel::dif
