// The ionosphere along the ray through a real positioning tool: RTKLIB's single-point
// solution of the bubble example's RINEX file (ionosphere off in the solver, our own
// navigation file of the re-dated almanac) shows the position error the delays cause;
// with the atmosphere and the bubble switched off it falls back to the error of a run
// without them.
#include <gtest/gtest.h>

#include <iostream>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

double JsonNumber(const std::string& out, const std::string& key) {
  const std::string tag = "\"" + key + "\": ";
  const size_t at = out.rfind(tag);
  if (at == std::string::npos) return -1.0;
  return std::atof(out.c_str() + at + tag.size());
}

struct Fix {
  double solved = -1, mean3d = -1, max3d = -1, up = 0;
  std::string report;
};

Fix Solve(const ScratchDir& dir, const std::string& name, std::vector<std::string> extra) {
  std::vector<std::string> a = {"--data-dir", "VLD", "-q", "--scenario",
                                (DataDir() / "examples" / "bubble.toml").string(), "--set",
                                "ObservationOutputFile=C:/VLD/" + name + ".10o"};
  a.insert(a.end(), extra.begin(), extra.end());
  a.insert(a.end(), {"load-orbits", (DataDir() / "examples" / "yuma147.txt").string(), "obs",
                     "nav-rinex", "VLD/" + name + ".10n"});
  const CliResult r = RunVorel(a, dir.path().string());
  EXPECT_EQ(r.status, 0) << r.err;
  const auto tool = SharedDir() / "tools" / "rtklib" / "spp-check.sh";
  const std::string base = (dir / "VLD" / name).string();
  const CliResult check = RunShell("'" + tool.string() + "' '" + base + ".10o' '" + base +
                                   ".10n' 1.3 103.8 20 --iono off --tropo off 2>&1");
  Fix f;
  f.solved = JsonNumber(check.out, "epochs_solved");
  f.mean3d = JsonNumber(check.out, "err3d_mean_m");
  f.max3d = JsonNumber(check.out, "err3d_max_m");
  f.report = check.out;
  return f;
}

TEST(BubbleRealClient, DelaysMoveRtklibsFixAndWithoutThemItFallsBack) {
  VOREL_REQUIRE_SHARED();
  if (RunShell("command -v rnx2rtkp >/dev/null").status != 0) GTEST_SKIP() << "rnx2rtkp absent";
  ScratchDir dir("bubble-spp");
  const Fix with = Solve(dir, "iono", {});
  const Fix without = Solve(dir, "none", {"--set", "atmosphereEnabled=0", "--set",
                                          "bubbleEnabled=0"});
  std::cout << "with the ionosphere along the ray and the bubble: mean 3-D " << with.mean3d
            << " m, max " << with.max3d << " m\nwithout: mean 3-D " << without.mean3d
            << " m, max " << without.max3d << " m\n";
  EXPECT_EQ(with.solved, 600) << with.report;
  EXPECT_EQ(without.solved, 600) << without.report;
  // Without delays: the error of the model's plain ranges (no relativistic term, no TGD).
  EXPECT_LT(without.max3d, 15.0) << without.report;
  // The slant delays of 8 to 25 m at flux 150 push the solution up and away by metres.
  EXPECT_GT(with.mean3d, without.mean3d + 5.0) << with.report;
}

}  // namespace
}  // namespace vorel::test
