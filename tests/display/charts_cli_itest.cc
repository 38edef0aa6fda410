// The display commands from the command line: each writes a whole PNG of the stated size,
// the scintillation commands keep their printed output when they plot, and bad input is
// refused with a message and no file.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

struct PngSize {
  bool signature = false;
  uint32_t width = 0;
  uint32_t height = 0;
};

uint32_t BigEndian(const std::string& bytes, size_t at) {
  uint32_t v = 0;
  for (size_t k = 0; k < 4; ++k) v = (v << 8) | static_cast<unsigned char>(bytes[at + k]);
  return v;
}

// The 8-byte signature, then the IHDR chunk: length 13, "IHDR", width, height.
PngSize ReadPngHeader(const std::filesystem::path& path) {
  const std::string bytes = ReadFile(path);
  PngSize size;
  if (bytes.size() < 24) return size;
  size.signature = bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0 && BigEndian(bytes, 8) == 13 &&
                   bytes.compare(12, 4, "IHDR") == 0;
  size.width = BigEndian(bytes, 16);
  size.height = BigEndian(bytes, 20);
  return size;
}

class ChartsCli : public ::testing::Test {
 protected:
  ChartsCli() : dir("charts-cli") {
    std::filesystem::create_directories(dir / "VLD");
    WriteFile(dir / "VLD" / "target.txt", "5,2\n0.1,1.0\n0.5,2.0\n1,1.5\n2,0.8\n5,0.3\n");
  }
  CliResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--data-dir", (dir / "VLD").string(), "--set",
                               "ScintTargetFile=C:/VLD/target.txt", "--set",
                               "ScintFilterOutFile=C:/VLD/amp.flt"});
    return RunVorel(args, dir.path().string());
  }
  void ExpectPng(const std::string& name, uint32_t width, uint32_t height) {
    const PngSize png = ReadPngHeader(dir / name);
    EXPECT_TRUE(png.signature) << name;
    EXPECT_EQ(png.width, width) << name;
    EXPECT_EQ(png.height, height) << name;
  }
  ScratchDir dir;
};

TEST_F(ChartsCli, WritesEachChartAsAPng) {
  const std::string nav = (DataDir() / "examples" / "brdc1820.10n").string();
  CliResult r = Run({"load-orbits", "--type", "rinex", nav, "orbit-chart", "-o", "orbit.png",
                     "colour-map", "--pattern", "2", "--cell", "1,1,0.7", "-o", "map.png",
                     "scene-3d", "-o", "scene.json", "scint-load", "--plot", "load.png",
                     "scint-fit", "--plot", "fit.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  ExpectPng("orbit.png", 640, 400);
  ExpectPng("map.png", 640, 500);
  ExpectPng("load.png", 640, 400);
  ExpectPng("fit.png", 640, 400);
  EXPECT_NE(r.out.find("wrote orbit.png\n"), std::string::npos) << r.out;
  const std::string scene = ReadFile(dir / "scene.json");
  EXPECT_EQ(scene.rfind("{\"units\":\"km\"", 0), 0u);
  EXPECT_NE(scene.find("\"satellites\":[{\"prn\":"), std::string::npos);

  // Plotting adds one line to what scint-generate prints and changes nothing else.
  r = Run({"scint-generate"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string plain = r.out;
  const std::string data = ReadFile(dir / "VLD" / "scintGenData.dat");
  r = Run({"scint-generate", "--plot", "strip.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, plain + "wrote strip.png\n");
  EXPECT_EQ(ReadFile(dir / "VLD" / "scintGenData.dat"), data);
  ExpectPng("strip.png", 640, 400);
}

TEST_F(ChartsCli, RefusesBadInput) {
  CliResult r = Run({"colour-map", "--pattern", "3", "-o", "map.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("--pattern"), std::string::npos) << r.err;
  r = Run({"colour-map", "--cell", "10,1,0.5", "-o", "map.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("--cell 10,1,0.5"), std::string::npos) << r.err;
  r = Run({"colour-map", "--entry", "3,0x1000000", "-o", "map.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("--entry"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "map.png"));
  r = Run({"orbit-chart"});
  EXPECT_NE(r.status, 0);
  // A folder that is not there: the file is named and nothing is reported as written.
  r = Run({"orbit-chart", "-o", "missing/orbit.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("missing/orbit.png"), std::string::npos) << r.err;
  EXPECT_EQ(r.out.find("wrote"), std::string::npos) << r.out;
  // A refused series writes no plot.
  r = Run({"--set", "ScintIndex=1.0", "--set", "ScintCorrelation=0.5", "scint-generate", "--plot",
           "strip.png"});
  EXPECT_NE(r.status, 0);
  EXPECT_FALSE(std::filesystem::exists(dir / "strip.png"));
}

}  // namespace
}  // namespace vorel::test
