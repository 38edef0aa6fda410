// The map's drawings through the server's API, in process: Show TEC, the bubble layer
// after a change of the bubble settings, and the profile plot. Pixels are checked where
// the map's projection and the profile's axes put them.
#include <cairo.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>
#include <thread>

#include "web/display_layers.h"
#include "web/live_server.h"

namespace vorel::web {
namespace {

using nlohmann::json;

// One pixel of a PNG as 0xAARRGGBB (premultiplied, so an opaque pixel is 0xFFRRGGBB).
uint32_t PngPixel(const std::string& png, int x, int y) {
  struct Reader {
    const std::string* bytes;
    size_t at = 0;
  } reader{&png};
  cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(
      [](void* closure, unsigned char* data, unsigned int length) {
        auto* r = static_cast<Reader*>(closure);
        if (r->at + length > r->bytes->size()) return CAIRO_STATUS_READ_ERROR;
        std::memcpy(data, r->bytes->data() + r->at, length);
        r->at += length;
        return CAIRO_STATUS_SUCCESS;
      },
      &reader);
  uint32_t pixel = 0xDEADBEEF;  // no picture
  if (cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS &&
      x < cairo_image_surface_get_width(surface) && y < cairo_image_surface_get_height(surface)) {
    cairo_surface_flush(surface);
    const unsigned char* row =
        cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface);
    std::memcpy(&pixel, row + 4 * x, 4);
  }
  cairo_surface_destroy(surface);
  return pixel;
}

class MapDrawingTest : public ::testing::Test, public test::LiveServer {
 protected:
  MapDrawingTest() : LiveServer("web-map-drawing") {}
  ~MapDrawingTest() override { Stop(); }

  void Start(bool withRenderer = true) {
    StartProgram();
    std::string error;
    if (withRenderer) layers = std::make_unique<DisplayMapLayers>(dir / "VLD", error);
    ServerOptions options;
    options.mapLayers = layers.get();
    Serve(options);
  }

  std::string Png(const std::string& path) {
    auto r = Fetch(path);
    EXPECT_TRUE(r && r->status == 200) << path << " " << (r ? r->body : httplib::to_string(r.error()));
    return r && r->status == 200 ? r->body : std::string();
  }
  void Set(const json& settings) {
    auto r = Send("/api/settings", settings);
    ASSERT_TRUE(r);
    ASSERT_TRUE(json::parse(r->body)["ok"]) << r->body;
  }
  // Presses Show TEC and waits for the map; the answer of the press and the final status.
  std::pair<int, json> ShowTec() {
    auto r = Send("/api/map/tec", json::object());
    if (!r) return {0, {}};
    json status = json::parse(r->body);
    while (status["state"] == "busy") {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      status = json::parse(Fetch("/api/map/tec")->body);
    }
    return {r->status, status};
  }

  std::unique_ptr<DisplayMapLayers> layers;
};

// A TEC cell's colour: green always 1, red 2.6 tec and blue 255 - 2.7 tec (both cut).
void ExpectTecColour(uint32_t pixel) {
  ASSERT_EQ(pixel >> 24, 0xFFu) << std::hex << pixel;
  EXPECT_EQ((pixel >> 8) & 0xFF, 1u) << std::hex << pixel;
  const double red = (pixel >> 16) & 0xFF, blue = pixel & 0xFF;
  EXPECT_NEAR(blue, 255.0 - red * 2.7 / 2.6, 2.5) << std::hex << pixel;
}

TEST_F(MapDrawingTest, ShowTecDrawsEachModelOnItsLayerOnceUntilItsSettingsChange) {
  Start();
  const std::string emptyNequick = Png("/api/map/nequickLayer.png");
  EXPECT_EQ(PngPixel(emptyNequick, 323, 200), 0u);  // transparent before the press

  Set({{"tecMapModel", "0"}, {"ScenarioMonth", "4"}, {"ScenarioHour", "12"}});
  auto [pressed, status] = ShowTec();
  EXPECT_EQ(pressed, 202);  // computed on the worker
  ASSERT_EQ(status["state"], "ready") << status.dump();
  EXPECT_EQ(status["layer"], "nequickLayer");
  const std::string nequick = Png("/api/map/nequickLayer.png");
  EXPECT_NE(nequick, emptyNequick);
  // The first turn of the globe is covered: the equator at 0 and 150 degrees east.
  ExpectTecColour(PngPixel(nequick, 323, 237));
  ExpectTecColour(PngPixel(nequick, 592, 237));
  // Midday UT: the noon sector (near 0 degrees) holds far more electrons than midnight
  // (180 degrees, the map's left edge); red grows with TEC.
  EXPECT_GT((PngPixel(nequick, 323, 237) >> 16) & 0xFF, (PngPixel(nequick, 3, 237) >> 16) & 0xFF);

  // The same settings: the layer already shows that map.
  std::tie(pressed, status) = ShowTec();
  EXPECT_EQ(pressed, 200);
  EXPECT_TRUE(status["cached"]);
  Set({{"solarFlux", "200"}});
  std::tie(pressed, status) = ShowTec();
  EXPECT_EQ(pressed, 202);
  EXPECT_NE(Png("/api/map/nequickLayer.png"), nequick);  // a higher flux, more electrons

  const std::string emptyKlobuchar = Png("/api/map/klobucharLayer.png");
  Set({{"tecMapModel", "2"}, {"ionoTruthTable", "1e-8,0,0,0,90000,0,0,0"}});
  std::tie(pressed, status) = ShowTec();
  ASSERT_EQ(status["state"], "ready") << status.dump();
  EXPECT_EQ(status["layer"], "klobucharLayer");
  const std::string klobuchar = Png("/api/map/klobucharLayer.png");
  EXPECT_NE(klobuchar, emptyKlobuchar);
  ExpectTecColour(PngPixel(klobuchar, 323, 237));

  Set({{"tecMapModel", "1"}});
  auto refused = Send("/api/map/tec", json::object());
  EXPECT_EQ(refused->status, 409);
  EXPECT_NE(refused->body.find("tecMapModel 1"), std::string::npos) << refused->body;
}

TEST_F(MapDrawingTest, TheBubbleLayerFollowsTheBubbleSettings) {
  Start();
  // A bubble at 10 N between 20 E (both ends), 2000 km wide and 3000 km long. Its centre
  // lies at x = (20 / 360 + 0.5) 646 = 358.9, y = (1 - 100 / 180) 475 = 211.1; half its
  // width is 2000 km * 0.008983192 deg/km * 646 / 360 / 2 = 16.1 px, half its length
  // 3000 * 0.008983192 * 475 / 180 / 2 = 35.6 px.
  EXPECT_EQ(PngPixel(Png("/api/map/bubbleLayer.png"), 359, 211), 0u);
  Set({{"bubbleEnabled", "1"},
       {"bubbleLatitude", "10"},
       {"bubbleLonNorth", "20"},
       {"bubbleLonSouth", "20"},
       {"bubbleWidth", "2000"},
       {"bubbleLength", "3000"}});
  const std::string bubble = Png("/api/map/bubbleLayer.png");
  EXPECT_EQ(PngPixel(bubble, 359, 211), 0xFFFFFFFFu);  // the white fill
  EXPECT_EQ(PngPixel(bubble, 359, 180), 0xFFFFFFFFu);  // 31 px up, still inside
  EXPECT_EQ(PngPixel(bubble, 359 + 20, 211), 0u);      // 20 px east: outside
  EXPECT_EQ(PngPixel(bubble, 359, 211 - 40), 0u);      // 40 px north: outside

  Set({{"bubbleLonNorth", "-100"}, {"bubbleLonSouth", "-100"}});  // moved west
  const std::string moved = Png("/api/map/bubbleLayer.png");
  EXPECT_EQ(PngPixel(moved, 359, 211), 0u);
  EXPECT_EQ(PngPixel(moved, 143, 211), 0xFFFFFFFFu);  // (-100 / 360 + 0.5) 646 = 143.6
  Set({{"bubbleEnabled", "0"}});
  EXPECT_EQ(PngPixel(Png("/api/map/bubbleLayer.png"), 143, 211), 0u);
}

TEST_F(MapDrawingTest, TheProfileIsDrawnWhereItsAxesPutItAndClearLeavesTheAxes) {
  Start();
  const std::string axes = Png("/api/map/profile.png");
  Set({{"profileScale", "0"}, {"solarFlux", "150"}});  // profileColour: red, 0xFF0000
  auto drawn = Send("/api/map/profile", {{"lat", 0.0}, {"lon", 0.0}, {"month", 4}, {"ut", 12.0}});
  ASSERT_EQ(drawn->status, 200) << drawn->body;
  const json peak = json::parse(drawn->body);
  // A daytime equatorial F2 peak: a few hundred km up, 1e11 to 1e13 electrons per m^3.
  const int height = peak["peakHeight"];
  const double density = peak["peakDensity"];
  EXPECT_GT(height, 200);
  EXPECT_LT(height, 550);
  EXPECT_GT(density, 1e11);
  EXPECT_LT(density, 1e13);
  const std::string one = Png("/api/map/profile.png");
  EXPECT_NE(one, axes);
  // The peak's point: six decades from 1e7 over 220 px, 1000 km over 376 px (the density
  // at h km is drawn one km higher), in a plot area whose corner is at (62, 14).
  const double x = 62 + std::log10(density / 1e7) * 220.0 / 6.0;
  const double y = 14 + (1000.0 - (height + 1)) * 376.0 / 1000.0;
  int red = 0;
  for (int dx = -1; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy)
      red += PngPixel(one, static_cast<int>(x) + dx, static_cast<int>(y) + dy) == 0xFFFF0000u;
  EXPECT_GT(red, 0) << "no red near (" << x << ", " << y << ")";

  // Draw over keeps the first profile; Draw alone would not.
  Send("/api/map/profile", {{"lat", 60.0}, {"lon", 0.0}, {"month", 4}, {"ut", 0.0}, {"over", true}});
  const std::string both = Png("/api/map/profile.png");
  Send("/api/map/profile", {{"lat", 60.0}, {"lon", 0.0}, {"month", 4}, {"ut", 0.0}});
  const std::string second = Png("/api/map/profile.png");
  EXPECT_NE(both, second);
  EXPECT_NE(both, one);

  EXPECT_EQ(Send("/api/map/profile", {{"month", 13}})->status, 400);
  EXPECT_EQ(Send("/api/map/profile/clear", json::object())->status, 200);
  EXPECT_EQ(Png("/api/map/profile.png"), axes);
}

TEST_F(MapDrawingTest, WithoutARendererTheDrawingsAreRefused) {
  Start(/*withRenderer=*/false);
  EXPECT_EQ(Send("/api/map/tec", json::object())->status, 501);
  EXPECT_EQ(Send("/api/map/profile", json::object())->status, 501);
  // The bubble settings still change without anything to draw them on.
  Set({{"bubbleEnabled", "1"}});
}

}  // namespace
}  // namespace vorel::web
