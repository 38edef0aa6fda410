// A real software receiver on the I/Q form: GNSS-SDR reads a ci8 recording (File_Signal_
// Source with ibyte items, no IF filter) and must fix the scenario's receiver within 30 m,
// at 4 MHz and at 2.6 MHz. The receiver's configuration is the check script's template with
// the complex input put in place of the real IF front end.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <regex>

#include "cli_runner.h"
#include "dif_scenario.h"

namespace vorel::test {
namespace {

std::filesystem::path Template() {
  return SharedDir() / "tools" / "gnss-sdr" / "gps-l1ca-real-if.conf.in";
}

bool HaveReceiver() {
  return std::filesystem::exists(Template()) &&
         std::system("command -v gnss-sdr >/dev/null 2>&1") == 0;
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

std::string ReceiverConfig(const std::filesystem::path& file, int64_t rate,
                           const std::filesystem::path& out) {
  std::string t = ReadFile(Template());
  const std::string fs = std::to_string(rate);
  for (const auto& [key, value] :
       std::vector<std::pair<std::string, std::string>>{{"@FS_INTERNAL@", fs},
                                                        {"@FS@", fs},
                                                        {"@SOURCE_IMPL@", "File_Signal_Source"},
                                                        {"@FILE@", file.string()},
                                                        {"@SAMPLES@", "0"},
                                                        {"@STREAM_TYPE@", "gr_complex"},
                                                        {"@FILTER_BW@", "2000000"},
                                                        {"@FILTER_TW@", "1000000"},
                                                        {"@IF@", "0"},
                                                        {"@DECIM@", "1"},
                                                        {"@CHANNELS@", "12"},
                                                        {"@PFA@", "0.01"},
                                                        {"@DOPPLER_MAX@", "10000"},
                                                        {"@ELEV_MASK@", "5"},
                                                        {"@IONO_MODEL@", "OFF"},
                                                        {"@TROP_MODEL@", "OFF"},
                                                        {"@OUT@", out.string()}})
    Replace(t, key, value);
  // Complex bytes in, interleaved I then Q; already at baseband, so no filter.
  Replace(t, "SignalSource.item_type=byte", "SignalSource.item_type=ibyte");
  Replace(t, "SignalSource.sample_type=real\n", "");
  Replace(t, "DataTypeAdapter.implementation=Pass_Through",
          "DataTypeAdapter.implementation=Ibyte_To_Complex");
  Replace(t, "DataTypeAdapter.item_type=gr_complex", "DataTypeAdapter.item_type=ibyte");
  Replace(t, "InputFilter.implementation=Freq_Xlating_Fir_Filter",
          "InputFilter.implementation=Pass_Through\nInputFilter.item_type=gr_complex");
  return t;
}

struct Point {
  double x, y, z;
};

// WGS84 geodetic (degrees, metres) to Earth-centred coordinates.
Point ToEcef(double latDeg, double lonDeg, double h) {
  const double a = 6378137.0, f = 1.0 / 298.257223563, e2 = f * (2.0 - f);
  const double lat = latDeg * M_PI / 180.0, lon = lonDeg * M_PI / 180.0;
  const double n = a / std::sqrt(1.0 - e2 * std::sin(lat) * std::sin(lat));
  return {(n + h) * std::cos(lat) * std::cos(lon), (n + h) * std::cos(lat) * std::sin(lon),
          (n * (1.0 - e2) + h) * std::sin(lat)};
}

void ExpectFix(int64_t rate, const std::string& name) {
  const auto dir = BinaryDir() / "realclient" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir / "receiver" / "log");
  // Subframe 1 begins 6 s into the file, IODC following IODE: an early fix (as for the
  // real form's test).
  DifScenario sc = MakeDifScenario(dir, {"ScenarioSecond=24", "ScenarioDuration=2"}, true);
  app::Session& s = *sc.session;
  s.settings.dif.SampleForm = "iq";
  s.settings.dif.IqFormat = "ci8";
  s.settings.dif.OutputPacked = "Direct";
  s.settings.dif.BitsPerSample = 8;
  s.settings.dif.IqSampleRate = static_cast<int32_t>(rate);
  s.settings.dif.Duration = 1.0;
  s.settings.dif.DifThreads = 1;  // the receiver needs the other core
  s.settings.dif.DifOutputFile = (dir / "rec.bin").string();
  dif::DifRunOutcome outcome;
  ASSERT_EQ(app::RunDif(s, "", outcome), 0);
  ASSERT_EQ(outcome.report.blocks, 60000);
  ASSERT_EQ(outcome.report.heldValues, 0);

  const auto out = dir / "receiver";
  WriteFile(out / "receiver.conf", ReceiverConfig(dir / "rec.bin", rate, out));
  const CliResult run = RunShell(fmt::format(
      "cd '{0}' && timeout --signal=INT --kill-after=30 400 gnss-sdr "
      "--config_file='{0}/receiver.conf' --keyboard=false --log_dir='{0}/log' </dev/null "
      ">'{0}/gnss-sdr.out' 2>'{0}/gnss-sdr.err'",
      out.string()));
  EXPECT_EQ(run.status, 0);
  const std::string text = ReadFile(out / "gnss-sdr.out");
  const std::regex fix(
      R"(Position at \S+ \S+ UTC using \d+ observations is Lat = (-?[\d.]+) \[deg\], )"
      R"(Long = (-?[\d.]+) \[deg\], Height = (-?[\d.]+) \[m\])");
  int fixes = 0;
  double worst = 0.0;
  const app::ScenarioSettings& scn = s.settings.scenario;
  const Point truth = ToEcef(scn.ReceiverLatitude, scn.ReceiverLongitude, scn.ReceiverAltitude);
  for (std::sregex_iterator m(text.begin(), text.end(), fix), end; m != end; ++m) {
    const Point p = ToEcef(std::stod((*m)[1]), std::stod((*m)[2]), std::stod((*m)[3]));
    worst = std::max(worst, std::hypot(p.x - truth.x, p.y - truth.y, p.z - truth.z));
    ++fixes;
  }
  std::cout << name << ": " << fixes << " fixes, the farthest " << worst << " m from the truth\n";
  EXPECT_GT(fixes, 0);
  EXPECT_LT(worst, 30.0);
}

TEST(IqRealClient, FixWithinThirtyMetresAt4MHz) {
  VOREL_REQUIRE_SHARED();
  if (!HaveReceiver()) GTEST_SKIP() << "gnss-sdr or the check script's template is absent";
  ExpectFix(4000000, "iq-4mhz");
}

TEST(IqRealClient, FixWithinThirtyMetresAt2600kHz) {
  VOREL_REQUIRE_SHARED();
  if (!HaveReceiver()) GTEST_SKIP() << "gnss-sdr or the check script's template is absent";
  ExpectFix(2600000, "iq-2600khz");
}

}  // namespace
}  // namespace vorel::test
