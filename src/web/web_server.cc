#include "web/web_server.h"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/startup.h"
#include "platform/text_file.h"
#include "web/access.h"
#include "web/replies.h"
#include "web/settings_form.h"

namespace vorel::web {
namespace {

namespace fs = std::filesystem;
using httplib::Request;
using httplib::Response;
using nlohmann::json;

// Event streams hold a thread each for as long as a page is open.
constexpr size_t kServerThreads = 16;
constexpr size_t kListedFilesLimit = 5000;
constexpr int kEventWaitMs = 2000;

// The request's body as a JSON object; false (and a 400 answer) when it is not one.
bool ReadBody(const Request& req, Response& res, json& body) {
  body = json::parse(req.body, nullptr, false);
  if (body.is_discarded() || !body.is_object()) {
    SendError(res, 400, "the request body is not a JSON object");
    return false;
  }
  return true;
}

std::string ContentType(const fs::path& file) {
  const std::string ext = file.extension().string();
  if (ext == ".html") return "text/html; charset=utf-8";
  if (ext == ".css") return "text/css; charset=utf-8";
  if (ext == ".js") return "text/javascript; charset=utf-8";
  if (ext == ".svg") return "image/svg+xml";
  if (ext == ".png") return "image/png";
  return "application/octet-stream";
}

// Folders the file list leaves out: the model's data files and the pages.
bool SkippedFolder(const fs::path& rel) {
  const std::string top = rel.begin()->string();
  return top == "NEQUICK" || top == "web";
}

json ListFiles(const fs::path& root, const std::string& extension) {
  json files = json::array();
  std::error_code ec;
  const fs::path base = fs::weakly_canonical(root, ec);
  fs::recursive_directory_iterator it(base, fs::directory_options::skip_permission_denied, ec);
  for (; !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    const fs::path rel = it->path().lexically_relative(base);
    if (it->is_symlink() || !it->is_regular_file()) {
      if (it->is_directory() && SkippedFolder(rel)) it.disable_recursion_pending();
      continue;
    }
    if (!extension.empty() && it->path().extension() != extension) continue;
    const auto modified = std::chrono::file_clock::to_sys(it->last_write_time());
    files.push_back(
        {{"file", rel.generic_string()},
         {"size", it->file_size()},
         {"modified",
          std::chrono::duration_cast<std::chrono::seconds>(modified.time_since_epoch()).count()}});
    if (files.size() >= kListedFilesLimit) break;
  }
  std::sort(files.begin(), files.end(),
            [](const json& a, const json& b) { return a["file"] < b["file"]; });
  return files;
}

// A file name from the browser reduced to letters, digits, '.', '-' and '_'.
std::string SafeUploadName(const std::string& name) {
  std::string out;
  for (char c : name.substr(name.find_last_of("/\\") + 1))
    out +=
        (std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_') ? c : '_';
  if (out.empty() || out.front() == '.') out = "upload" + out;
  return out;
}

}  // namespace

fs::path FindStaticDir(const fs::path& dataDir) {
  for (const fs::path& dir : {dataDir / "web", fs::path(VOREL_INSTALL_DATA_DIR) / "web",
                              fs::path(VOREL_SOURCE_DATA_DIR) / "web"}) {
    std::error_code ec;
    if (fs::is_regular_file(dir / "index.html", ec)) return dir;
  }
  return {};
}

WebServer::WebServer(app::Session& session, ServerOptions options)
    : session_(session),
      options_(std::move(options)),
      savedMessages_(session.messages),
      display_(events_, options_.mapLayers),
      server_(std::make_unique<httplib::Server>()) {
  if (options_.token.empty()) options_.token = NewAccessToken();
  if (options_.staticDir.empty()) options_.staticDir = FindStaticDir(session.dataDir.root());
  runs_ = std::make_unique<RunControl>(session_, events_, display_);
  if (options_.mapLayers) {
    tec_ = std::make_unique<TecJob>(*options_.mapLayers, [this](const json& status) {
      events_.Publish("tec", status.dump());
      display_.LayersChanged();
    });
    options_.mapLayers->SetBubble(session_.settings.bubble);
  }
  InstallMessages();
  session_.display = &display_;
  server_->new_task_queue = [] { return new httplib::ThreadPool(kServerThreads); };
  server_->set_payload_max_length(options_.uploadLimit);
  Routes();
}

WebServer::~WebServer() {
  Shutdown();
  tec_.reset();
  runs_.reset();
  session_.display = nullptr;
  session_.messages = savedMessages_;
}

void WebServer::InstallMessages() {
  const auto message = [this](const char* level, std::string_view title, std::string_view text) {
    events_.Publish("message", json{{"level", level}, {"title", title}, {"text", text}}.dump());
  };
  session_.messages.warning = [message](std::string_view text) { message("warning", "", text); };
  session_.messages.popup = [this, message](std::string_view title, std::string_view text) {
    runs_->CountPopup();
    std::cerr << (title.empty() ? "" : std::string(title) + ": ") << text << "\n";
    message("error", title, text);
  };
  session_.messages.info = [message](std::string_view text) { message("info", "", text); };
  session_.messages.progress = [this](double percent) { runs_->OnProgress(percent); };
}

bool WebServer::Bind(std::string& error) {
  if (options_.port == 0) {
    port_ = server_->bind_to_any_port(options_.host);
  } else {
    port_ = server_->bind_to_port(options_.host, options_.port) ? options_.port : -1;
  }
  if (port_ <= 0) {
    error = fmt::format("cannot listen on {} port {}", options_.host, options_.port);
    return false;
  }
  return true;
}

std::string WebServer::Url() const {
  const bool v6 = options_.host.find(':') != std::string::npos;
  return fmt::format("http://{}{}{}:{}/?token={}", v6 ? "[" : "", options_.host, v6 ? "]" : "",
                     port_, options_.token);
}

void WebServer::Listen() { server_->listen_after_bind(); }

void WebServer::Shutdown() {
  if (runs_) {
    runs_->Stop();
    runs_->Wait();
  }
  events_.Close();
  server_->stop();
}

void WebServer::Routes() {
  server_->set_pre_routing_handler([this](const Request& req, Response& res) {
    const std::string query = req.get_param_value("token");
    if (SameToken(query, options_.token)) {
      res.set_header("Set-Cookie", fmt::format("{}={}; HttpOnly; SameSite=Strict; Path=/",
                                               kTokenCookie, options_.token));
      // The token leaves the address bar once the cookie holds it.
      if (req.method == "GET" && !req.path.starts_with("/api/")) {
        res.set_redirect(req.path, 303);
        return httplib::Server::HandlerResponse::Handled;
      }
      return httplib::Server::HandlerResponse::Unhandled;
    }
    std::string given = req.get_header_value(kTokenHeader);
    if (given.empty()) given = CookieValue(req.get_header_value("Cookie"), kTokenCookie);
    if (SameToken(given, options_.token)) return httplib::Server::HandlerResponse::Unhandled;
    SendError(res, 403,
              "this server needs its access token: open the address that "
              "`vorel serve` printed");
    return httplib::Server::HandlerResponse::Handled;
  });
  StaticRoutes();
  SettingsRoutes();
  RunRoutes();
  FileRoutes();
  MapDrawingRoutes();  // before MapRoutes: /api/map/profile.png is no layer
  MapRoutes();
  ViewRoutes();
}

void WebServer::StaticRoutes() {
  const auto serve = [this](const std::string& name, Response& res) {
    const fs::path file = options_.staticDir / name;
    std::ifstream in(file, std::ios::binary);
    if (options_.staticDir.empty() || !in) {
      res.status = 404;
      res.set_content(fmt::format("{}: not found (the pages are looked for in <data dir>/web, "
                                  "{}/web and {}/web)",
                                  name, VOREL_INSTALL_DATA_DIR, VOREL_SOURCE_DATA_DIR),
                      "text/plain");
      return;
    }
    std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    res.set_header("Cache-Control", "no-cache");
    res.set_content(body, ContentType(file));
  };
  server_->Get("/", [serve](const Request&, Response& res) { serve("index.html", res); });
  server_->Get(R"(/static/([A-Za-z0-9_-]+\.[a-z]+))",
               [serve](const Request& req, Response& res) { serve(req.matches[1], res); });
}

void WebServer::SettingsRoutes() {
  server_->Get("/api/settings", [this](const Request&, Response& res) {
    SendJson(res, {{"panels", SettingsPanels(runs_->CurrentSettings())}});
  });
  // {"Name": "value", ...}: all or nothing; each refusal is told under its setting's name.
  server_->Post("/api/settings", [this](const Request& req, Response& res) {
    json body;
    if (!ReadBody(req, res, body)) return;
    json errors = json::object();
    json values = json::object();
    runs_->EditSettings([&](app::Settings& settings) {
      for (const auto& [name, value] : body.items()) {
        const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
        std::string error;
        if (!ApplyFormValue(settings, name, text, error))
          errors[name] = error;
        else
          values[name] = app::SettingText(*app::FindSetting(name), settings);
      }
      return errors.empty();
    });
    // A refused value is an answer, not a failed request: the page shows it by the field.
    if (!errors.empty()) return SendJson(res, {{"ok", false}, {"errors", errors}});
    RedrawBubble();
    SendJson(res, {{"ok", true}, {"values", values}});
  });
  server_->Get("/api/scenarios", [this](const Request&, Response& res) {
    SendJson(res, {{"files", ListFiles(session_.dataDir.root(), ".toml")}});
  });
  server_->Post("/api/scenarios/load", [this](const Request& req, Response& res) {
    json body;
    if (!ReadBody(req, res, body)) return;
    fs::path path;
    std::string error;
    if (!ResolveInDataDir(session_.dataDir.root(), body.value("file", ""), path, error))
      return SendError(res, 403, error);
    if (!fs::is_regular_file(path))
      return SendError(res, 404, body.value("file", "") + ": no such file");
    const bool ok = runs_->EditSettings(
        [&](app::Settings& settings) { return app::ApplyScenarioFile(settings, path, error); });
    if (!ok) return SendError(res, 422, error);
    RedrawBubble();
    SendJson(res, {{"panels", SettingsPanels(runs_->CurrentSettings())}});
  });
  server_->Post("/api/scenarios/save", [this](const Request& req, Response& res) {
    json body;
    if (!ReadBody(req, res, body)) return;
    const std::string name = body.value("file", "");
    if (!name.ends_with(".toml"))
      return SendError(res, 400, "a scenario file's name ends in .toml");
    fs::path path;
    std::string error;
    if (!ResolveInDataDir(session_.dataDir.root(), name, path, error))
      return SendError(res, 403, error);
    if (!platform::WriteWholeFile(path, ScenarioFileText(runs_->CurrentSettings()), error))
      return SendError(res, 500, error);
    SendJson(res, {{"file", name}});
  });
}

void WebServer::RunRoutes() {
  server_->Get("/api/status", [this](const Request&, Response& res) {
    json status = runs_->Status();
    status["lastEvent"] = events_.LastId();
    status["dataDir"] = session_.dataDir.root().string();
    status["product"] = fmt::format("{} {}", app::kProductName, app::kVersion);
    SendJson(res, status);
  });
  // {"command": "obs"}; load-orbits takes "file" (in the data directory) and "type", nav
  // takes "prn".
  server_->Post("/api/runs", [this](const Request& req, Response& res) {
    json body;
    if (!ReadBody(req, res, body)) return;
    const std::string command = body.value("command", "");
    std::vector<std::string> args;
    if (command == "load-orbits") {
      fs::path path;
      std::string error;
      if (!ResolveInDataDir(session_.dataDir.root(), body.value("file", ""), path, error))
        return SendError(res, 403, error);
      if (const std::string type = body.value("type", ""); !type.empty()) args = {"--type", type};
      args.push_back(path.string());
    }
    if (command == "nav" && body.contains("prn")) args = {"--prn", body["prn"].dump()};
    bool busy = false;
    std::string why;
    if (!runs_->Start(command, args, busy, why)) return SendError(res, busy ? 409 : 400, why);
    SendJson(res, runs_->Status(), 202);
  });
  server_->Post("/api/runs/stop", [this](const Request&, Response& res) {
    if (!runs_->Stop()) return SendError(res, 409, "no run is in progress");
    SendJson(res, {{"stopping", true}});
  });
  server_->Post("/api/orbits/upload", [this](const Request& req, Response& res) {
    if (!req.has_file("file")) return SendError(res, 400, "no file in the upload (field \"file\")");
    if (runs_->Active())
      return SendError(res, 409, "a run is in progress; orbits are loaded between runs");
    const httplib::MultipartFormData upload = req.get_file_value("file");
    const std::string name = "uploads/" + SafeUploadName(upload.filename);
    const fs::path path = session_.dataDir / name;
    std::string error;
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    if (!platform::WriteWholeFile(path, upload.content, error)) return SendError(res, 500, error);
    std::vector<std::string> args;
    const std::string type = req.has_file("type") ? req.get_file_value("type").content : "";
    if (type == "yuma" || type == "rinex") args = {"--type", type};
    args.push_back(path.string());
    bool busy = false;
    if (!runs_->Start("load-orbits", args, busy, error))
      return SendError(res, busy ? 409 : 400, error);
    SendJson(res, {{"file", name}}, 202);
  });
  server_->Get("/api/events", [this](const Request& req, Response& res) {
    uint64_t after = events_.LastId();
    const std::string since = req.has_header("Last-Event-ID")
                                  ? req.get_header_value("Last-Event-ID")
                                  : req.get_param_value("since");
    if (!since.empty()) after = std::strtoull(since.c_str(), nullptr, 10);
    res.set_header("Cache-Control", "no-store");
    auto position = std::make_shared<uint64_t>(after);
    res.set_chunked_content_provider(
        "text/event-stream", [this, position](size_t, httplib::DataSink& sink) {
          if (events_.closed()) {
            sink.done();
            return true;
          }
          std::string text;
          for (const WebEvent& e : events_.Wait(*position, kEventWaitMs)) {
            text += FormatServerSentEvent(e);
            *position = e.id;
          }
          if (text.empty()) text = ": still here\n\n";  // finds out when the page has gone
          return sink.write(text.data(), text.size());
        });
  });
}

void WebServer::FileRoutes() {
  server_->Get("/api/files", [this](const Request&, Response& res) {
    SendJson(res, {{"files", ListFiles(session_.dataDir.root(), "")}});
  });
  server_->Get("/api/files/download", [this](const Request& req, Response& res) {
    const std::string name = req.get_param_value("path");
    fs::path path;
    std::string error;
    if (!ResolveInDataDir(session_.dataDir.root(), name, path, error))
      return SendError(res, 403, error);
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return SendError(res, 404, name + ": no such file");
    auto in = std::make_shared<std::ifstream>(path, std::ios::binary);
    if (!*in) return SendError(res, 500, name + ": cannot be opened");
    res.set_header("Content-Disposition",
                   fmt::format("attachment; filename=\"{}\"", path.filename().string()));
    res.set_content_provider(
        fs::file_size(path, ec), "application/octet-stream",
        [in](size_t offset, size_t length, httplib::DataSink& sink) {
          char buffer[1 << 16];
          in->seekg(static_cast<std::streamoff>(offset));
          in->read(buffer, static_cast<std::streamsize>(std::min(length, sizeof buffer)));
          return in->gcount() > 0 && sink.write(buffer, static_cast<size_t>(in->gcount()));
        });
  });
}

void WebServer::MapRoutes() {
  server_->Get("/api/map/scene", [this](const Request&, Response& res) {
    json scene = display_.Scene();
    scene["renderer"] = options_.mapLayers != nullptr;
    SendJson(res, scene);
  });
  server_->Get(R"(/api/map/([A-Za-z]+)\.png)", [this](const Request& req, Response& res) {
    const std::string layer = req.matches[1];
    std::string png;
    if (!IsMapLayer(layer)) return SendError(res, 404, layer + ": no such map layer");
    // Nothing drawn is no error: the page leaves the layer empty.
    if (options_.mapLayers == nullptr || !options_.mapLayers->LayerPng(layer, png)) {
      res.status = 204;
      return;
    }
    res.set_header("Cache-Control", "no-store");
    res.set_content(png, "image/png");
  });
}

// BUBBLE: the bubble layer follows the bubble settings as soon as they change.
void WebServer::RedrawBubble() {
  if (options_.mapLayers && options_.mapLayers->SetBubble(runs_->CurrentSettings().bubble))
    display_.LayersChanged();
}

void WebServer::MapDrawingRoutes() {
  const auto renderer = [this](Response& res) {
    if (options_.mapLayers == nullptr) SendError(res, 501, "this server has no map renderer");
    return options_.mapLayers != nullptr;
  };
  // SHOW_TEC: 202 while the map is computed (a "tec" event tells its end), 200 when the
  // layer already shows the map of these settings.
  server_->Post("/api/map/tec", [this, renderer](const Request&, Response& res) {
    if (!renderer(res)) return;
    json status;
    std::string why;
    if (!tec_->Show(runs_->CurrentSettings(), status, why)) return SendError(res, 409, why);
    SendJson(res, status, status["state"] == "busy" ? 202 : 200);
  });
  server_->Get("/api/map/tec", [this, renderer](const Request&, Response& res) {
    if (renderer(res)) SendJson(res, tec_->Status());
  });
  // DRAW_VERT, or TEC_PROFILE with "over": true. A place or time left out is the
  // scenario's: its start position, month and hour.
  server_->Post("/api/map/profile", [this, renderer](const Request& req, Response& res) {
    json body;
    if (!renderer(res) || !ReadBody(req, res, body)) return;
    const app::Settings settings = runs_->CurrentSettings();
    display::ProfileRequest r;
    try {
      r.lat = body.value("lat", settings.scenario.ReceiverLatitude);
      r.lon = body.value("lon", settings.scenario.ReceiverLongitude);
      r.month = body.value("month", settings.scenario.ScenarioMonth);
      r.hour = body.value("ut", static_cast<double>(settings.scenario.ScenarioHour));
    } catch (const json::exception&) {
      return SendError(res, 400, "lat, lon, month and ut are numbers");
    }
    if (r.month < 1 || r.month > 12) return SendError(res, 400, "month: 1 to 12");
    if (!std::isfinite(r.lat) || !std::isfinite(r.lon) || !(r.hour >= 0.0 && r.hour <= 24.0))
      return SendError(res, 400, "lat and lon are degrees, ut hours from 0 to 24");
    r.solarFlux = settings.atmosphere.solarFlux;
    std::vector<double> densities;
    std::string error;
    if (!options_.mapLayers->DrawProfile(r, settings.map.profileScale,
                                         static_cast<uint32_t>(settings.map.profileColour),
                                         body.value("over", false), densities, error))
      return SendError(res, 500, "profile: " + error);
    const auto peak = std::max_element(densities.begin(), densities.end());
    SendJson(res, {{"lat", r.lat},
                   {"lon", r.lon},
                   {"month", r.month},
                   {"ut", r.hour},
                   {"solarFlux", r.solarFlux},
                   {"peakDensity", *peak},
                   {"peakHeight", peak - densities.begin()}});
  });
  server_->Post("/api/map/profile/clear", [this, renderer](const Request&, Response& res) {
    if (!renderer(res)) return;
    options_.mapLayers->ClearProfile();
    SendJson(res, {{"cleared", true}});
  });
  server_->Get("/api/map/profile.png", [this, renderer](const Request&, Response& res) {
    std::string png;
    if (!renderer(res)) return;
    if (!options_.mapLayers->ProfilePng(png)) return SendError(res, 500, "no profile plot");
    res.set_header("Cache-Control", "no-store");
    res.set_content(png, "image/png");
  });
}

}  // namespace vorel::web
