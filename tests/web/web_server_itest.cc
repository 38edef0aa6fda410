// The web server's API end to end, in process, on the bundled example files: what the
// page does, as a client without a browser does it.
#include <chrono>
#include <filesystem>
#include <thread>

#include "web/display_layers.h"
#include "web/live_server.h"

namespace vorel::web {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class WebServerTest : public ::testing::Test, public test::LiveServer {
 protected:
  WebServerTest() : LiveServer("web-server") {}

  void Start(size_t uploadLimit = kUploadLimit, MapLayerSource* mapLayers = nullptr) {
    ServerOptions options;
    options.uploadLimit = uploadLimit;
    options.mapLayers = mapLayers;
    LiveServer::Start(options);
  }

  std::string Setting(const std::string& name) {
    const json settings = Get("/api/settings");
    for (const auto& panel : settings["panels"])
      for (const auto& s : panel["settings"])
        if (s["name"] == name) return s["value"];
    return "(none)";
  }

  void LoadExampleOrbits() {
    const json loaded =
        RunAndWait({{"command", "load-orbits"}, {"file", "brdc1820.10n"}, {"type", "rinex"}});
    ASSERT_TRUE(loaded["orbits"]["valid"]) << loaded.dump();
  }
};

TEST_F(WebServerTest, EveryRequestNeedsTheToken) {
  Start();
  for (const char* path : {"/", "/api/status", "/api/settings", "/static/app.js",
                           "/api/files/download?path=brdc1820.10n"}) {
    auto r = client->Get(path);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->status, 403) << path;
    r = client->Get(path, {{"X-Vorel-Token", std::string(kToken).replace(0, 1, "f")}});
    EXPECT_EQ(r->status, 403) << path;
    r = client->Get(path, {{"Cookie", std::string("vorel_token=") + kToken}});
    EXPECT_EQ(r->status, 200) << path;
  }
  auto r = client->Post("/api/runs", R"({"command":"obs"})", "application/json");
  EXPECT_EQ(r->status, 403);
  // The first visit's token becomes a cookie the page's scripts cannot read, and leaves
  // the address.
  r = client->Get((std::string("/?token=") + kToken).c_str());
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 303);
  EXPECT_EQ(r->get_header_value("Location"), "/");
  const std::string cookie = r->get_header_value("Set-Cookie");
  EXPECT_NE(cookie.find(std::string("vorel_token=") + kToken), std::string::npos);
  EXPECT_NE(cookie.find("HttpOnly"), std::string::npos);
  EXPECT_NE(cookie.find("SameSite=Strict"), std::string::npos);
}

TEST_F(WebServerTest, SettingsRoundTripAndARefusedRequestChangesNothing) {
  Start();
  json r = Post("/api/settings", {{"ReceiverLatitude", "-30.25"}, {"StationMask", "1,2,3,4"}}, 200);
  EXPECT_TRUE(r["ok"]);
  EXPECT_EQ(Setting("ReceiverLatitude"), "-30.25");
  EXPECT_EQ(Setting("StationMask"), "1,2,3,4");

  // Refused by name, and all or nothing: the good value of the request is not kept either.
  r = Post("/api/settings", {{"ScenarioHour", "7"}, {"ScenarioMonth", "13"}}, 200);
  EXPECT_FALSE(r["ok"]);
  EXPECT_EQ(r["errors"]["ScenarioMonth"], "ScenarioMonth: 13 is outside 1 to 12");
  EXPECT_EQ(Setting("ScenarioHour"), "1");
  Post("/api/settings", {"not", "an object"}, 400);

  // A scenario saved in the data directory brings the settings back.
  Post("/api/scenarios/save", {{"file", "mine.toml"}}, 200);
  EXPECT_TRUE(fs::is_regular_file(dir / "VLD" / "mine.toml"));
  Post("/api/settings", {{"ReceiverLatitude", "10"}}, 200);
  Post("/api/scenarios/load", {{"file", "mine.toml"}}, 200);
  EXPECT_EQ(Setting("ReceiverLatitude"), "-30.25");
  EXPECT_EQ(Get("/api/scenarios")["files"][0]["file"], "mine.toml");
  Post("/api/scenarios/save", {{"file", "../mine.toml"}}, 403);
  Post("/api/scenarios/save", {{"file", "mine.txt"}}, 400);
  EXPECT_FALSE(fs::exists(dir / "mine.toml"));
  test::WriteFile(dir / "VLD" / "bad.toml", "ScenarioMonth = 13\n");
  r = Post("/api/scenarios/load", {{"file", "bad.toml"}}, 422);
  EXPECT_NE(r["error"].get<std::string>().find("bad.toml, line 1: ScenarioMonth"),
            std::string::npos);
}

TEST_F(WebServerTest, ARunReportsProgressToTheEndOverServerSentEvents) {
  Start();
  LoadExampleOrbits();
  Post("/api/settings",
       {{"ScenarioHour", "5"},
        {"ReceiverLatitude", "-30.25"},
        {"ReceiverLongitude", "149.75"},
        {"ObservationInterval", "100"},
        {"ScenarioDuration", "2"}},
       200);
  const uint64_t since = Get("/api/status")["lastEvent"];
  // The event stream, read as the page reads it, until the run's end.
  std::string stream;
  std::thread reader([&] {
    httplib::Client events("127.0.0.1", server->port());
    events.Get(("/api/events?since=" + std::to_string(since)).c_str(), Auth(),
               [&](const char* data, size_t size) {
                 stream.append(data, size);
                 // The orbits' load may tell its end after its status said so: the run's
                 // end is the first one after its start.
                 const size_t start = stream.find("\"state\":\"running\"");
                 return start == std::string::npos ||
                        (stream.find("\"state\":\"finished\"", start) == std::string::npos &&
                         stream.find("\"state\":\"failed\"", start) == std::string::npos);
               });
  });
  Post("/api/runs", {{"command", "obs"}}, 202);
  reader.join();
  const json status = WaitForRun();
  EXPECT_EQ(status["state"], "finished");
  EXPECT_EQ(status["progress"], 100.0);
  EXPECT_NE(stream.find("event: progress\ndata: {\"percent\":100.0}"), std::string::npos) << stream;
  EXPECT_NE(stream.find("event: map"), std::string::npos);
  // The record is listed under its own name, inside the data directory, and downloads whole.
  ASSERT_EQ(status["outputs"].size(), 1u) << status.dump();
  const std::string file = status["outputs"][0]["file"];
  EXPECT_TRUE(file.ends_with(".10O")) << file;
  auto r = Fetch(("/api/files/download?path=" + file).c_str());
  ASSERT_TRUE(r);
  EXPECT_EQ(r->body, test::ReadFile(dir / "VLD" / file));
  // 2 minutes at 100 ms: the sky plot was drawn at the display tick.
  const json scene = Get("/api/map/scene");
  EXPECT_GT(scene["satellites"].size(), 4u);
  EXPECT_NEAR(scene["receiver"]["lon"].get<double>(), 149.75, 0.1);
}

TEST_F(WebServerTest, OneRunAtATimeAndStopClosesTheRecordWhole) {
  Start();
  LoadExampleOrbits();
  EXPECT_EQ(Setting("KeepOrbitEpochs"), "1");   // what the load changed came back to the form
  Post("/api/runs/stop", json::object(), 409);  // nothing to stop
  Post("/api/settings",
       {{"ScenarioHour", "5"}, {"ObservationInterval", "1"}, {"ScenarioDuration", "600"}}, 200);
  Post("/api/runs", {{"command", "obs"}}, 202);
  json r = Post("/api/runs", {{"command", "dif"}}, 409);
  EXPECT_NE(r["error"].get<std::string>().find("one run at a time"), std::string::npos);
  Post("/api/orbits/upload", json::object(), 400);  // no file: refused before the run check
  r = Post("/api/runs/stop", json::object(), 200);
  const json status = WaitForRun();
  EXPECT_EQ(status["state"], "stopped");
  EXPECT_EQ(status["exitStatus"], 130);
  ASSERT_EQ(status["outputs"].size(), 1u);
  // Closed whole: the record has its own name and ends with a complete line.
  const std::string record = test::ReadFile(dir / "VLD" / status["outputs"][0]["file"]);
  ASSERT_FALSE(record.empty());
  EXPECT_EQ(record.back(), '\n');
  Post("/api/runs", {{"command", "show-orbit"}}, 400);  // not a run
}

TEST_F(WebServerTest, DownloadsOutsideTheDataDirectoryAreRefused) {
  Start();
  test::WriteFile(dir / "outside.txt", "not yours");
  fs::create_symlink(dir / "outside.txt", dir / "VLD" / "link.txt");
  for (const std::string& path : std::vector<std::string>{
           "../outside.txt", (dir / "outside.txt").string(), "link.txt", "NAV/../../outside.txt"}) {
    auto r = Fetch(("/api/files/download?path=" + path).c_str());
    ASSERT_TRUE(r);
    EXPECT_EQ(r->status, 403) << path;
    EXPECT_EQ(r->body.find("not yours"), std::string::npos);
  }
  Get("/api/files/download?path=missing.bin", 404);
  // The file list leaves out what would be refused.
  const json files = Get("/api/files");
  for (const auto& f : files["files"]) EXPECT_NE(f["file"], "link.txt");
  Post("/api/runs", {{"command", "load-orbits"}, {"file", "../outside.txt"}}, 403);
}

TEST_F(WebServerTest, UploadsAreSizeLimitedAndLoaded) {
  Start(64 * 1024);
  httplib::MultipartFormDataItems big = {
      {"file", std::string(100 * 1024, 'x'), "big.txt", "text/plain"}};
  auto r = client->Post("/api/orbits/upload", Auth(), big);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 413);
  EXPECT_FALSE(fs::exists(dir / "VLD" / "uploads" / "big.txt"));

  httplib::MultipartFormDataItems yuma = {
      {"file", test::ReadFile(test::DataDir() / "examples" / "yuma147.txt"), "../../my yuma.txt",
       "text/plain"},
      {"type", "yuma", "", ""}};
  r = client->Post("/api/orbits/upload", Auth(), yuma);
  ASSERT_TRUE(r);
  EXPECT_EQ(r->status, 202) << r->body;
  EXPECT_EQ(json::parse(r->body)["file"], "uploads/my_yuma.txt");
  const json status = WaitForRun();
  EXPECT_EQ(status["state"], "finished");
  EXPECT_TRUE(status["orbits"]["valid"]);
}

TEST_F(WebServerTest, TheRenderersLayersAreServedAsPngAndFollowTheRun) {
  std::string warning;
  DisplayMapLayers layers(dir / "VLD", warning);
  Start(kUploadLimit, &layers);
  EXPECT_TRUE(Get("/api/map/scene")["renderer"]);
  auto base = Fetch("/api/map/base.png");
  ASSERT_TRUE(base);
  EXPECT_EQ(base->status, 200);
  EXPECT_EQ(base->body.substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_EQ(test::PngSize(base->body), (std::pair{646, 475}));
  EXPECT_EQ(Fetch("/api/map/sky.png")->status, 404);  // the page's names only
  const std::string before = Fetch("/api/map/skyPlotLayer.png")->body;

  LoadExampleOrbits();
  Post("/api/settings",
       {{"ScenarioHour", "5"}, {"ObservationInterval", "100"}, {"ScenarioDuration", "2"}}, 200);
  RunAndWait({{"command", "obs"}});
  const std::string after = Fetch("/api/map/skyPlotLayer.png")->body;
  EXPECT_EQ(test::PngSize(after), (std::pair{646, 475}));
  EXPECT_NE(after, before);  // the receiver and satellites were drawn at the display tick
}

}  // namespace
}  // namespace vorel::web
