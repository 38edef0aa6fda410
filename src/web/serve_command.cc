#include "web/serve_command.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include "app/startup.h"
#include "web/access.h"
#include "web/display_layers.h"
#include "web/web_server.h"

namespace vorel::web {
namespace {

struct ServeOptions {
  int port = kDefaultPort;
  std::string host;
  std::string dataDir;
};

// What the signal handler may touch: plain atomics.
std::atomic<app::Session*> gServedSession{nullptr};
std::atomic<int> gServeInterrupts{0};

// The first Ctrl-C (or SIGTERM) stops the run in progress, as on the command line, and
// then the server; a second one aborts.
void OnServeInterrupt(int) {
  if (gServeInterrupts.fetch_add(1) >= 1) {
    static const char kAbort[] = "\nvorel serve: second interrupt, aborting\n";
    (void)!write(2, kAbort, sizeof kAbort - 1);
    _exit(130);
  }
  if (app::Session* s = gServedSession.load()) {
    s->stopRequests.fetch_add(1);
    s->RunActive.store(0, std::memory_order_relaxed);
  }
}

// A data directory named after `serve` replaces the one start-up brought up: the program
// starts again on it.
bool RestartOn(app::CommandContext& c, const std::string& dataDir, std::string& error) {
  app::GlobalOptions options = c.global;
  options.dataDir = dataDir;
  options.createDataDir = true;
  app::Session& s = c.session;
  s.settings = app::Settings{};
  s.constellation = orbits::ConstellationTable{};
  s.orbitState = orbits::ConstellationState{};
  return app::StartUp(s, options, error) == 0;
}

int Serve(app::CommandContext& c, const ServeOptions& o) {
  std::string error;
  if (!o.dataDir.empty() && !RestartOn(c, o.dataDir, error)) {
    fmt::print(stderr, "vorel serve: {}\n", error);
    return 2;
  }
  if (!c.session.dataDir.Create(error)) {
    fmt::print(stderr, "vorel serve: {}\n", error);
    return 2;
  }
  std::string mapWarning;
  DisplayMapLayers mapLayers(c.session.dataDir.root(), mapWarning);
  if (!mapWarning.empty()) c.session.messages.Warn(mapWarning);
  ServerOptions options;
  options.host = o.host.empty() ? "127.0.0.1" : o.host;
  options.port = o.port;
  options.mapLayers = &mapLayers;
  WebServer server(c.session, options);
  if (!server.Bind(error)) {
    fmt::print(stderr, "vorel serve: {}\n", error);
    return 1;
  }
  if (!IsLoopbackHost(options.host))
    fmt::print(stderr,
               "vorel serve: warning: listening on {}, reachable from other machines; anyone "
               "with the token can run and read files in {}\n",
               options.host, c.session.dataDir.root().string());
  fmt::print("vorel serve: open {}\n", server.Url());
  fmt::print("vorel serve: data directory {}; Ctrl-C stops the server\n",
             c.session.dataDir.root().string());
  std::fflush(stdout);

  gServedSession.store(&c.session);
  struct sigaction action {};
  action.sa_handler = OnServeInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::atomic<bool> served{false};
  std::thread watcher([&] {
    // A signal handler cannot wake a thread safely; a short poll is enough for Ctrl-C.
    while (gServeInterrupts.load() == 0 && !served.load())
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (!served.load()) server.Shutdown();
  });
  server.Listen();
  served.store(true);
  watcher.join();
  server.Shutdown();
  gServedSession.store(nullptr);
  if (gServeInterrupts.load() > 0)
    fmt::print(stderr,
               "vorel serve: stopped; a run in progress ended with its files closed "
               "whole\n");
  return 0;
}

}  // namespace

std::function<int(app::CommandContext&)> ServeCommand(CLI::App& p) {
  auto o = std::make_shared<ServeOptions>();
  p.add_option("--port", o->port, "TCP port; 0 picks a free one")->capture_default_str();
  p.add_option("--host", o->host,
               "address to listen on (default 127.0.0.1; another address is reachable from "
               "other machines)");
  p.add_option("--data-dir", o->dataDir, "data directory (instead of the global --data-dir)");
  return [o](app::CommandContext& c) { return Serve(c, *o); };
}

}  // namespace vorel::web
