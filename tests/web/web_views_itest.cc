// The views' API end to end, in process: the 3D scene, the orbit chart, the colour map
// editor's edits and refusals, the scintillation plots, and three.js served from its own
// folder only.
#include <cmath>
#include <filesystem>

#include "web/live_server.h"

namespace vorel::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using test::PngSize;

class WebViewsTest : public ::testing::Test, public test::LiveServer {
 protected:
  WebViewsTest() : LiveServer("web-views") {
    // A stand-in for Debian's three.js, with the package's symbolic link and one that
    // leads out of it.
    fs::create_directories(dir / "three" / "build");
    test::WriteFile(dir / "three" / "three.module.js", "export const REVISION = 'x';\n");
    fs::create_symlink("../three.module.js", dir / "three" / "build" / "three.module.js");
    test::WriteFile(dir / "secret.js", "not three");
    fs::create_symlink(dir / "secret.js", dir / "three" / "out.js");
    ServerOptions options;
    options.threeDir = dir / "three";
    Start(options);
  }
};

TEST_F(WebViewsTest, SceneHasBothMeshesAndTheSatellitesAtTheFormsTime) {
  RunAndWait({{"command", "load-orbits"}, {"file", "brdc1820.10n"}, {"type", "rinex"}});
  Post("/api/settings", {{"ScenarioHour", "5"}}, 200);
  const json scene = json::parse(Fetch("/api/scene")->body);
  for (const char* mesh : {"earth", "ionosphere"})
    for (const char* axis : {"x", "y", "z"}) EXPECT_EQ(scene[mesh][axis].size(), 1600u);
  // Point (0, 10): a = -pi, b = -pi/2, on the equator at X = Rxy.
  EXPECT_NEAR(scene["earth"]["x"][10].get<double>(), 6378.0, 1e-9);
  EXPECT_NEAR(scene["earth"]["z"][10].get<double>(), 0.0, 1e-9);
  EXPECT_NEAR(scene["ionosphere"]["x"][10].get<double>(), 6878.0, 1e-9);
  // Point (0, 0): b = -pi, the south pole of each surface.
  EXPECT_NEAR(scene["earth"]["z"][0].get<double>(), -6356.0, 1e-9);

  const json& satellites = scene["satellites"];
  ASSERT_GT(satellites.size(), 20u);
  for (const json& s : satellites) {
    const double r = std::hypot(s["x"].get<double>(), s["y"].get<double>(), s["z"].get<double>());
    EXPECT_NEAR(r, 26560.0, 600.0) << "PRN " << s["prn"];  // GPS orbits, in km
  }
  // An hour later on the forms, the satellites have moved about an eighth of a turn.
  Post("/api/settings", {{"ScenarioHour", "6"}}, 200);
  const json later = json::parse(Fetch("/api/scene")->body)["satellites"][0];
  const double moved = std::hypot(later["x"].get<double>() - satellites[0]["x"].get<double>(),
                                  later["y"].get<double>() - satellites[0]["y"].get<double>(),
                                  later["z"].get<double>() - satellites[0]["z"].get<double>());
  EXPECT_GT(moved, 5000.0);
}

TEST_F(WebViewsTest, OrbitChartAndScintillationPlotsArePngsOfTheirCanvasSize) {
  auto chart = Fetch("/api/orbit-chart.png");
  ASSERT_TRUE(chart);
  EXPECT_EQ(chart->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(PngSize(chart->body), (std::pair{640, 400}));
  RunAndWait({{"command", "load-orbits"}, {"file", "brdc1820.10n"}, {"type", "rinex"}});
  const std::string withOrbits = Fetch("/api/orbit-chart.png")->body;
  EXPECT_EQ(PngSize(withOrbits), (std::pair{640, 400}));
  EXPECT_NE(withOrbits, chart->body);  // axes and grid alone before, planes now

  EXPECT_EQ(Fetch("/api/scint/strip.png")->status, 204);  // nothing generated yet
  EXPECT_EQ(PngSize(Fetch("/api/scint/fit.png")->body), (std::pair{640, 400}));
  RunAndWait({{"command", "scint-generate"}});
  EXPECT_EQ(PngSize(Fetch("/api/scint/strip.png")->body), (std::pair{640, 400}));
}

TEST_F(WebViewsTest, ACellEditRecoloursThatCellByTheMapRule) {
  // Pattern 1 puts 1.0 everywhere: s = 0.6 lies a fifth of the way from entry 15
  // (201, 0, 53) to entry 16 (214, 0, 40), so red 203 and blue 50.
  json state = Post("/api/colours/pattern", {{"pattern", 1}}, 200);
  EXPECT_EQ(state["cellColours"][4][7], 0xCB0032);
  // A pure green last entry: s of 1.7 lies above the map, so the cell takes that colour,
  // and the plot shows the value, above the last entry, in white.
  Post("/api/colours/entry", {{"row", 20}, {"colour", "#00ff00"}}, 200);
  state = Post("/api/colours/cell", {{"row", 1}, {"column", 1}, {"value", "1.7"}}, 200);
  EXPECT_EQ(state["changed"]["colour"], 0x00FF00);
  EXPECT_EQ(state["cellColours"][0][0], 0x00FF00);
  EXPECT_EQ(state["plotColours"][0][0], 0xFFFFFF);
  EXPECT_EQ(state["cellColours"][0][1], 0xCB0032);  // the others keep theirs
  EXPECT_EQ(state["entries"][19]["color"], 0x00FF00);
  // 0.75: s = 0.1, 0.45 of the way from entry 10 (134, 0, 120) to entry 11 (147, 0, 107).
  state = Post("/api/colours/cell", {{"row", 9}, {"column", 18}, {"value", 0.75}}, 200);
  EXPECT_EQ(state["changed"]["colour"], 0x8B0072);
  EXPECT_EQ(state["grid"][8][17], 0.75);
  EXPECT_EQ(state["entries"][10]["label"], "0.05");
}

TEST_F(WebViewsTest, RefusedEditsChangeNothing) {
  const std::string before = Fetch("/api/colours")->body;
  for (const json& cell :
       {json{{"row", 0}, {"column", 1}, {"value", 1}},
        json{{"row", 10}, {"column", 1}, {"value", 1}},
        json{{"row", 1}, {"column", 19}, {"value", 1}},
        json{{"row", 1.5}, {"column", 1}, {"value", 1}},
        json{{"row", 1}, {"column", 1}, {"value", "abc"}},
        json{{"row", 1}, {"column", 1}, {"value", "inf"}}, json{{"row", 1}, {"column", 1}}})
    EXPECT_FALSE(Post("/api/colours/cell", cell, 400)["error"].get<std::string>().empty());
  Post("/api/colours/entry", {{"row", 21}, {"colour", "#ffffff"}}, 400);
  Post("/api/colours/entry", {{"row", 1}, {"colour", "#fffff"}}, 400);
  Post("/api/colours/entry", {{"row", 1}, {"colour", 0x1000000}}, 400);
  Post("/api/colours/pattern", {{"pattern", 3}}, 400);
  EXPECT_EQ(Fetch("/api/colours")->body, before);
}

TEST_F(WebViewsTest, ThreeJsIsServedFromItsFolderAndNothingBeyond) {
  auto r = Fetch("/vendor/three/build/three.module.js");
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 200);
  EXPECT_EQ(r->body, "export const REVISION = 'x';\n");
  EXPECT_EQ(r->get_header_value("Content-Type").rfind("text/javascript", 0), 0u);
  EXPECT_EQ(Fetch("/vendor/three/out.js")->status, 403);
  EXPECT_EQ(Fetch("/vendor/three/build/%2e%2e/%2e%2e/secret.js")->status, 403);
  r = Fetch("/vendor/three/examples/jsm/controls/OrbitControls.js");
  EXPECT_EQ(r->status, 404);
  EXPECT_NE(r->body.find("libjs-three"), std::string::npos);
}

}  // namespace
}  // namespace vorel::web
