#pragma once
// The local web server of `vorel serve`: the scenario pages, runs with live progress, the
// map layers and the data directory's files, for one user on this machine. Every request
// carries the server's random token.

#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "app/session.h"
#include "web/event_hub.h"
#include "web/map_layers.h"
#include "web/run_control.h"
#include "web/tec_job.h"

namespace httplib {
class Server;
}

namespace vorel::web {

inline constexpr int kDefaultPort = 8470;
inline constexpr size_t kUploadLimit = 16u << 20;

struct ServerOptions {
  std::string host = "127.0.0.1";
  int port = kDefaultPort;          // 0: any free port
  std::string token;                // empty: a new random one
  std::filesystem::path staticDir;  // empty: FindStaticDir
  size_t uploadLimit = kUploadLimit;
  MapLayerSource* mapLayers = nullptr;
  // Debian's three.js, served to the 3D view under /vendor/three/.
  std::filesystem::path threeDir = "/usr/share/javascript/three";
};

// The pages: <data dir>/web, else where they are installed, else the source tree (a run
// from the build tree); empty when none holds index.html.
std::filesystem::path FindStaticDir(const std::filesystem::path& dataDir);

class WebServer {
 public:
  // Takes over the session's messages and display for as long as it lives.
  WebServer(app::Session& session, ServerOptions options);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Binds the address; port() then says which port. False with `error`.
  bool Bind(std::string& error);
  int port() const { return port_; }
  const std::string& token() const { return options_.token; }
  // The address to open, token included.
  std::string Url() const;
  // Serves until Shutdown.
  void Listen();
  // Stops the run in progress and waits until it has closed its files, then stops
  // serving.
  void Shutdown();

  RunControl& runs() { return *runs_; }

 private:
  void InstallMessages();
  void Routes();
  void StaticRoutes();
  void SettingsRoutes();
  void RunRoutes();
  void FileRoutes();
  void MapRoutes();
  void MapDrawingRoutes();
  void RedrawBubble();
  // The views: 3D scene, orbit chart, colour map editor, scintillation plots.
  void ViewRoutes();

  app::Session& session_;
  ServerOptions options_;
  platform::Messages savedMessages_;
  EventHub events_;
  WebDisplay display_;
  std::unique_ptr<RunControl> runs_;
  std::unique_ptr<TecJob> tec_;  // with a map renderer only
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
  // The colour map editor's state is no run's: its edits take turns on this.
  std::mutex colourMutex_;
};

}  // namespace vorel::web
