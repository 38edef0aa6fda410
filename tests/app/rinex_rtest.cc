// Our RINEX observation files through a real positioning tool: RTKLIB's single-point
// solution must solve every epoch near the scenario's receiver.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

class SinglePoint : public ::testing::TestWithParam<bool> {};

TEST_P(SinglePoint, StaticReceiverTenMinutesEveryEpochWithin30Metres) {
  VOREL_REQUIRE_SHARED();
  if (!HaveSppCheck()) GTEST_SKIP() << "rnx2rtkp absent";
  const bool standardLayout = GetParam();
  ScratchDir dir(standardLayout ? "spp-standard" : "spp-own");
  const std::string brdc = (DataDir() / "examples" / "brdc1820.10n").string();
  CliResult r = RunVorel(
      {"--data-dir", "VLD", "-q", "--set", "KeepOrbitEpochs=1", "--set", "ScenarioHour=5",
       "--set", "ScenarioDuration=10", "--set", "ObservationInterval=1000", "--set",
       "ReceiverLatitude=-30.25", "--set", "ReceiverLongitude=149.75", "--set",
       "ReceiverAltitude=250", "--set", "atmosphereEnabled=0", "--set", "RecordType=2", "--set",
       std::string("RinexStandardLayout=") + (standardLayout ? "1" : "0"), "--set",
       "ObservationOutputFile=C:/VLD/site.10o", "load-orbits", "--type", "rinex", brdc, "obs"},
      dir.path().string());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string obs = (dir / "VLD" / "site.10o").string();
  const SppResult s =
      SppCheck(obs, brdc, std::string("-30.25 149.75 250") + (standardLayout ? " --raw" : ""));
  EXPECT_EQ(s.inFile, 600) << s.report;
  EXPECT_EQ(s.solved, s.inFile) << s.report;
  EXPECT_LT(s.max3d, 30.0) << s.report;
}

INSTANTIATE_TEST_SUITE_P(Layouts, SinglePoint, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "StandardLayoutRaw" : "OwnLayoutRepaired"; });

}  // namespace
}  // namespace vorel::test
