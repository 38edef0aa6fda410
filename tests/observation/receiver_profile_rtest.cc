// Profile=receiver end to end through a real positioning tool: our RINEX observations and
// our own navigation file beside them, given to RTKLIB's single-point solution as they
// are (no layout repair), with the broadcast ionosphere and Saastamoinen troposphere on
// in the scenario and in the solution. Every epoch must be solved within 2 m.
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

// The broadcast ionosphere of brdc1820.10n, as the simulated truth and as sent.
constexpr char kKlobuchar[] =
    "0.4657e-8,0.1490e-7,-0.5960e-7,-0.1192e-6,81920,81920,-65536,-524288";

struct Site {
  const char* name;
  std::vector<std::string> settings;  // beyond the demo scenario's
  double latitude, longitude, height;
};

class ReceiverProfile : public ::testing::TestWithParam<Site> {};

TEST_P(ReceiverProfile, EveryEpochSolvedWithinTwoMetresWithoutRepair) {
  VOREL_REQUIRE_SHARED();
  if (!HaveSppCheck()) GTEST_SKIP() << "rnx2rtkp absent";
  const Site& site = GetParam();
  ScratchDir dir(std::string("receiver-profile-") + site.name);
  std::vector<std::string> args = {
      "--data-dir", "VLD", "-q", "--scenario", (DataDir() / "examples" / "demo.toml").string(),
      "--set", "Profile=receiver", "--set", "ScenarioDuration=5", "--set", "atmosphereEnabled=1",
      "--set", "tropoModel=3", "--set", std::string("ionoTruthTable=") + kKlobuchar, "--set",
      std::string("ionoBroadcastTable=") + kKlobuchar};
  for (const std::string& s : site.settings) {
    args.push_back("--set");
    args.push_back(s);
  }
  for (const char* a : {"load-orbits", "--type", "rinex"}) args.push_back(a);
  args.push_back((DataDir() / "examples" / "brdc1820.10n").string());
  args.push_back("obs");
  CliResult r = RunVorel(args, dir.path().string());
  ASSERT_EQ(r.status, 0) << r.err;
  // The standard name of 1 July 2010 and the navigation file beside it.
  const auto obs = dir / "VLD" / "VORL1820.10O";
  const auto nav = dir / "VLD" / "VORL1820.10N";
  ASSERT_TRUE(std::filesystem::exists(obs));
  ASSERT_TRUE(std::filesystem::exists(nav));
  const std::string truth = std::to_string(site.latitude) + " " +
                            std::to_string(site.longitude) + " " + std::to_string(site.height);
  const SppResult s =
      SppCheck(obs.string(), nav.string(), truth + " --raw --iono brdc --tropo saas");
  EXPECT_EQ(s.inFile, 300) << s.report;
  EXPECT_EQ(s.solved, s.inFile) << s.report;
  EXPECT_LT(s.max3d, 2.0) << s.report;
  std::cout << site.name << ": " << s.report.substr(s.report.find("3-D")) << std::flush;
}

INSTANTIATE_TEST_SUITE_P(
    Sites, ReceiverProfile,
    ::testing::Values(
        Site{"Demo", {}, 46.05, 14.5, 300.0},
        Site{"Munich",
             {"ReceiverLatitude=48.1", "ReceiverLongitude=11.6", "ReceiverAltitude=520"},
             48.1, 11.6, 520.0},
        // 22:00 local (UTC+2) is 20:00 GPS time, near enough.
        Site{"CapeTownNight",
             {"ReceiverLatitude=-33.9", "ReceiverLongitude=18.4", "ReceiverAltitude=0",
              "ScenarioHour=20"},
             -33.9, 18.4, 0.0}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vorel::test
