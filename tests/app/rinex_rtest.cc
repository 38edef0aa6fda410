// Our RINEX observation files through a real positioning tool: RTKLIB's single-point
// solution must solve every epoch near the scenario's receiver.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

struct Solution {
  int inFile = -1, solved = -2;
  double err3dMax = 1e9;
};

// A number after `"key": ` in the tool's last line (a JSON object of plain numbers).
double JsonNumber(const std::string& out, const std::string& key, double missing) {
  const std::string tag = "\"" + key + "\": ";
  const size_t at = out.rfind(tag);
  if (at == std::string::npos) return missing;
  try {
    return std::stod(out.substr(at + tag.size()));
  } catch (...) {
    return missing;
  }
}

Solution ParseJson(const std::string& out) {
  Solution s;
  s.inFile = static_cast<int>(JsonNumber(out, "epochs_in_file", -1));
  s.solved = static_cast<int>(JsonNumber(out, "epochs_solved", -2));
  s.err3dMax = JsonNumber(out, "err3d_max_m", 1e9);
  return s;
}

class SinglePoint : public ::testing::TestWithParam<bool> {};

TEST_P(SinglePoint, StaticReceiverTenMinutesEveryEpochWithin30Metres) {
  VOREL_REQUIRE_SHARED();
  const auto tool = SharedDir() / "tools" / "rtklib" / "spp-check.sh";
  if (RunShell("command -v rnx2rtkp >/dev/null").status != 0) GTEST_SKIP() << "rnx2rtkp absent";
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
  CliResult check = RunShell("'" + tool.string() + "' '" + obs + "' '" + brdc +
                             "' -30.25 149.75 250" + (standardLayout ? " --raw" : "") + " 2>&1");
  const Solution s = ParseJson(check.out);
  EXPECT_EQ(s.inFile, 600) << check.out;
  EXPECT_EQ(s.solved, s.inFile) << check.out;
  EXPECT_LT(s.err3dMax, 30.0) << check.out;
}

INSTANTIATE_TEST_SUITE_P(Layouts, SinglePoint, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "StandardLayoutRaw" : "OwnLayoutRepaired"; });

}  // namespace
}  // namespace vorel::test
