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

SppResult Solve(const ScratchDir& dir, const std::string& name, std::vector<std::string> extra) {
  std::vector<std::string> a = {"--data-dir", "VLD", "-q", "--scenario",
                                (DataDir() / "examples" / "bubble.toml").string(), "--set",
                                "ObservationOutputFile=C:/VLD/" + name + ".10o"};
  a.insert(a.end(), extra.begin(), extra.end());
  a.insert(a.end(), {"load-orbits", (DataDir() / "examples" / "yuma147.txt").string(), "obs",
                     "nav-rinex", "VLD/" + name + ".10n"});
  const CliResult r = RunVorel(a, dir.path().string());
  EXPECT_EQ(r.status, 0) << r.err;
  const std::string base = (dir / "VLD" / name).string();
  return SppCheck(base + ".10o", base + ".10n", "1.3 103.8 20 --iono off --tropo off");
}

TEST(BubbleRealClient, DelaysMoveRtklibsFixAndWithoutThemItFallsBack) {
  VOREL_REQUIRE_SHARED();
  if (!HaveSppCheck()) GTEST_SKIP() << "rnx2rtkp absent";
  ScratchDir dir("bubble-spp");
  const SppResult with = Solve(dir, "iono", {});
  const SppResult without = Solve(dir, "none", {"--set", "atmosphereEnabled=0", "--set",
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
