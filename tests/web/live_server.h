#pragma once
// The web server in process for the API tests: the program started on a fresh data folder
// with the example navigation file in it, the server on a free port, and a client that
// sends the token.
#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>

#include "app/startup.h"
#include "test_support.h"
#include "web/web_server.h"

namespace vorel::test {

// Width and height from a PNG's header chunk (big-endian, bytes 16 to 23); 0 x 0 for
// anything that is not a PNG.
inline std::pair<int, int> PngSize(const std::string& png) {
  const auto word = [&](size_t at) {
    int v = 0;
    for (size_t i = at; i < at + 4; ++i) v = v * 256 + static_cast<unsigned char>(png[i]);
    return v;
  };
  return png.size() < 24 || png.substr(0, 4) != "\x89PNG" ? std::pair{0, 0}
                                                          : std::pair{word(16), word(20)};
}

class LiveServer {
 public:
  static constexpr char kToken[] = "0123456789abcdef0123456789abcdef";

  explicit LiveServer(const std::string& name) : dir(name) {}
  ~LiveServer() { Stop(); }

  // The program, then the server; `options` gives what a test wants beyond the port and
  // the token.
  void Start(web::ServerOptions options = {}) {
    StartProgram();
    Serve(options);
  }

  void StartProgram() {
    app::GlobalOptions global;
    global.dataDir = (dir / "VLD").string();
    global.quiet = true;
    std::string error;
    session = app::Session::Create();
    session->messages = platform::Messages::Silent();
    ASSERT_EQ(app::StartUp(*session, global, error), 0) << error;
    std::filesystem::copy_file(DataDir() / "examples" / "brdc1820.10n",
                               dir / "VLD" / "brdc1820.10n");
  }

  void Serve(web::ServerOptions options) {
    std::string error;
    options.port = 0;
    options.token = kToken;
    server = std::make_unique<web::WebServer>(*session, options);
    ASSERT_TRUE(server->Bind(error)) << error;
    listener = std::thread([this] { server->Listen(); });
    client = std::make_unique<httplib::Client>("127.0.0.1", server->port());
    client->set_read_timeout(120);
  }

  // Stops the server; a fixture that owns what the server uses calls it before that goes.
  void Stop() {
    if (server) server->Shutdown();
    if (listener.joinable()) listener.join();
  }

  static httplib::Headers Auth() { return {{"X-Vorel-Token", kToken}}; }

  httplib::Result Fetch(const std::string& path) { return client->Get(path.c_str(), Auth()); }
  httplib::Result Send(const std::string& path, const nlohmann::json& body) {
    return client->Post(path.c_str(), Auth(), body.dump(), "application/json");
  }

  // The answer as JSON, expecting the status `expected`.
  nlohmann::json Get(const std::string& path, int expected = 200) {
    return Parsed(Fetch(path), expected, path);
  }
  nlohmann::json Post(const std::string& path, const nlohmann::json& body, int expected) {
    return Parsed(Send(path, body), expected, path + " " + body.dump());
  }

  // Waits for the run in progress to end and returns its status.
  nlohmann::json WaitForRun() {
    nlohmann::json status = Get("/api/status");
    while (status.value("active", false)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      status = Get("/api/status");
    }
    return status;
  }

  // Starts a run, waits for it and expects it to finish; its status.
  nlohmann::json RunAndWait(const nlohmann::json& request) {
    Post("/api/runs", request, 202);
    const nlohmann::json status = WaitForRun();
    EXPECT_EQ(status["state"], "finished") << status.dump();
    return status;
  }

  ScratchDir dir;
  std::unique_ptr<app::Session> session;
  std::unique_ptr<web::WebServer> server;
  std::thread listener;
  std::unique_ptr<httplib::Client> client;

 private:
  static nlohmann::json Parsed(const httplib::Result& r, int expected, const std::string& what) {
    EXPECT_TRUE(r) << what;
    if (!r) return {};
    EXPECT_EQ(r->status, expected) << what << ": " << r->body;
    return nlohmann::json::parse(r->body, nullptr, false);
  }
};

}  // namespace vorel::test
