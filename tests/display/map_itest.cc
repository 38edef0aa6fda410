// The map and the profile plot through the command line: a PNG of the map's size, the
// profile's text untouched by --plot, bad input refused before anything is written, and a
// NeQuick map whose bytes do not depend on the thread count.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

// Width and height from the PNG's IHDR chunk, or {0, 0} when the file is no PNG.
std::pair<uint32_t, uint32_t> PngSize(const std::string& bytes) {
  if (bytes.size() < 24 || bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 ||
      bytes.compare(12, 4, "IHDR") != 0)
    return {0, 0};
  const auto word = [&](size_t at) {
    uint32_t v = 0;
    for (size_t i = 0; i < 4; ++i) v = v << 8 | static_cast<uint8_t>(bytes[at + i]);
    return v;
  };
  return {word(16), word(20)};
}

class MapCommand : public ::testing::Test {
 protected:
  MapCommand() : dir("map-command") {}
  CliResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--data-dir", "VLD"});
    return RunVorel(args, dir.path().string());
  }
  ScratchDir dir;
};

TEST_F(MapCommand, WritesAPictureOfTheMapsSize) {
  const CliResult r =
      Run({"--set", "tecMapModel=2", "load-orbits",
           (DataDir() / "examples" / "yuma147.txt").string(), "map", "-o", "map.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("wrote map.png"), std::string::npos);
  EXPECT_EQ(PngSize(ReadFile(dir / "map.png")), std::make_pair(646u, 475u));
}

TEST_F(MapCommand, RefusesBadLayersOpacitiesAndPlacesBeforeWriting) {
  CliResult r = Run({"map", "--layers", "base,clouds", "-o", "bad.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("\"clouds\""), std::string::npos) << r.err;
  r = Run({"map", "--layers", "base", "--opacity", "sky=256", "-o", "bad.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("sky=256"), std::string::npos) << r.err;
  r = Run({"map", "--layers", "base", "--opacity", "sea=3", "-o", "bad.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_FALSE(std::filesystem::exists(dir / "bad.png"));
  r = Run({"map", "--layers", "base", "-o", "no-such-folder/map.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("no-such-folder/map.png"), std::string::npos) << r.err;
  EXPECT_EQ(r.out.find("wrote"), std::string::npos);
}

TEST_F(MapCommand, NequickMapIsTheSameOnOneThreadAsOnTwo) {
  const std::string cd = "cd '" + dir.path().string() + "' && ";
  const std::string map = " '" + VorelPath() + "' -q --data-dir VLD map --layers nequick -o ";
  ASSERT_EQ(RunShell(cd + "OMP_NUM_THREADS=1" + map + "one.png").status, 0);
  ASSERT_EQ(RunShell(cd + "OMP_NUM_THREADS=2" + map + "two.png").status, 0);
  const std::string one = ReadFile(dir / "one.png");
  EXPECT_EQ(PngSize(one), std::make_pair(646u, 475u));
  EXPECT_EQ(one, ReadFile(dir / "two.png"));
}

TEST_F(MapCommand, ProfilePlotLeavesTheProfileTextAsItWas) {
  const std::vector<std::string> profile = {"profile", "--lat",  "46",   "--lon", "14",
                                            "--month", "4",      "--ut", "12",    "--flux",
                                            "120",     "--step", "50"};
  const CliResult text = Run(profile);
  ASSERT_EQ(text.status, 0) << text.err;
  std::vector<std::string> plotted = profile;
  plotted.insert(plotted.end(), {"--plot", "profile.png"});
  const CliResult withPlot = Run(plotted);
  ASSERT_EQ(withPlot.status, 0) << withPlot.err;
  EXPECT_EQ(withPlot.out, text.out);
  const auto size = PngSize(ReadFile(dir / "profile.png"));
  EXPECT_GT(size.first, 220u);
  EXPECT_GT(size.second, 376u);
}

}  // namespace
}  // namespace vorel::test
