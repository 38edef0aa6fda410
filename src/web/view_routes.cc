// The views of the page: the 3D scene and the orbit chart of the constellation, the colour
// map editor, and the scintillation panel's plots. Every colour the editor shows comes
// from the display module's rules here, so that the page and `vorel colour-map` agree.
#include <fmt/format.h>
#include <httplib.h>

#include <charconv>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "display/colour_map.h"
#include "display/earth_mesh.h"
#include "display/orbit_chart.h"
#include "display/scint_plots.h"
#include "gnss/time_coords.h"
#include "web/access.h"
#include "web/replies.h"
#include "web/web_server.h"

namespace vorel::web {
namespace {

using httplib::Request;
using httplib::Response;
using nlohmann::json;

constexpr char kBusy[] = "a run is in progress; the view is drawn again when it ends";

void ReplyPng(Response& res, const std::string& png) {
  if (png.empty()) return SendError(res, 500, "the chart could not be encoded as PNG");
  res.set_header("Cache-Control", "no-store");
  res.set_content(png, "image/png");
}

// A whole number from 1 to `last` under `key`; false (and the reason) otherwise.
bool ReadIndex(const json& body, const char* key, int last, int& index, std::string& error) {
  const json* v = body.contains(key) ? &body[key] : nullptr;
  if (v == nullptr || !v->is_number_integer() || *v < 1 || *v > last) {
    error = fmt::format("{}: a whole number from 1 to {}", key, last);
    return false;
  }
  index = v->get<int>();
  return true;
}

// A number, or text that is a whole number as the table's cell reads it.
bool ReadValue(const json& v, double& value) {
  if (v.is_number()) {
    value = v.get<double>();
  } else if (v.is_string()) {
    const std::string text = v.get<std::string>();
    const char* last = text.data() + text.size();
    const auto r = std::from_chars(text.data(), last, value);
    if (text.empty() || r.ec != std::errc() || r.ptr != last) return false;
  } else {
    return false;
  }
  return std::isfinite(value);
}

// 0xRRGGBB as a number, or "#rrggbb" as a colour picker gives it.
bool ReadColour(const json& v, int32_t& colour) {
  if (v.is_number_integer()) {
    const int64_t c = v.get<int64_t>();
    colour = static_cast<int32_t>(c);
    return c >= 0 && c <= 0xFFFFFF;
  }
  if (!v.is_string()) return false;
  const std::string text = v.get<std::string>();
  if (text.size() != 7 || text[0] != '#') return false;
  const auto r = std::from_chars(text.data() + 1, text.data() + 7, colour, 16);
  return r.ec == std::errc() && r.ptr == text.data() + 7;
}

json ColourMapJson(const display::ColourMap& map) {
  json entries = json::array();
  for (const display::ColorMapEntry& e : map.entries)
    entries.push_back({{"dataValue", e.dataValue},
                       {"color", e.color},
                       {"label", fmt::format("{:1.2f}", e.dataValue)}});
  json grid = json::array(), cells = json::array(), plot = json::array();
  for (int r = 0; r < display::kGridRows; ++r) {
    json gridRow = json::array(), cellRow = json::array(), plotRow = json::array();
    for (int c = 0; c < display::kGridColumns; ++c) {
      gridRow.push_back(map.dataGrid[r][c]);
      cellRow.push_back(map.cellColours[r][c]);
      plotRow.push_back(display::IntensityColour(map, map.dataGrid[r][c]));
    }
    grid.push_back(gridRow);
    cells.push_back(cellRow);
    plot.push_back(plotRow);
  }
  return {{"entries", entries},
          {"grid", grid},
          {"cellColours", cells},
          {"plotColours", plot},
          {"aboveColour", display::kAboveMapColour}};
}

std::string SceneAt(const orbits::ConstellationTable& table, const app::ScenarioSettings& sc) {
  gnss::GpsTime t;
  gnss::CalendarToGpsTime(sc.ScenarioYear, sc.ScenarioMonth, sc.ScenarioDay, sc.ScenarioHour,
                          sc.ScenarioMinute, sc.ScenarioSecond, sc.LeapSeconds, t);
  return display::SceneJson(display::EarthMesh(), display::IonosphereMesh(),
                            display::SatellitePointsAt(table, t.secondsOfWeek));
}

std::string GraphPng(const display::PlotGraph& graph) {
  display::ChartCanvas canvas(display::kChartWidth, display::kChartHeight);
  display::DrawGraph(graph, canvas);
  return canvas.PngBytes();
}

}  // namespace

void WebServer::ViewRoutes() {
  // three.js from its Debian package; nothing outside the package's folder.
  server_->Get(R"(/vendor/three/(.+))", [this](const Request& req, Response& res) {
    std::filesystem::path file;
    std::string error;
    std::error_code ec;
    if (!ResolveInDataDir(options_.threeDir, req.matches[1].str(), file, error))
      return SendError(res, 403, req.matches[1].str() + ": not part of three.js");
    std::ifstream in(file, std::ios::binary);
    if (!std::filesystem::is_regular_file(file, ec) || !in) {
      res.status = 404;
      return res.set_content(
          fmt::format("{}: not found; the 3D view needs three.js from the Debian package "
                      "libjs-three, looked for in {}",
                      req.matches[1].str(), options_.threeDir.string()),
          "text/plain");
    }
    std::string body((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    res.set_header("Cache-Control", "max-age=3600");
    res.set_content(body, file.extension() == ".js" ? "text/javascript; charset=utf-8"
                                                    : "application/octet-stream");
  });

  server_->Get("/api/scene", [this](const Request&, Response& res) {
    std::string scene;
    if (!runs_->WithIdleSession([&](app::Session& s, const app::Settings& settings) {
          scene = SceneAt(s.constellation, settings.scenario);
        }))
      return SendError(res, 409, kBusy);
    res.set_header("Cache-Control", "no-store");
    res.set_content(scene, "application/json");
  });
  server_->Get("/api/orbit-chart.png", [this](const Request&, Response& res) {
    std::string png;
    if (!runs_->WithIdleSession([&](app::Session& s, const app::Settings&) {
          display::ChartCanvas canvas(display::kChartWidth, display::kChartHeight);
          display::DrawOrbitChart(display::LayOutOrbitChart(s.constellation), canvas);
          png = canvas.PngBytes();
        }))
      return SendError(res, 409, kBusy);
    ReplyPng(res, png);
  });

  server_->Get("/api/colours", [this](const Request&, Response& res) {
    std::lock_guard<std::mutex> lock(colourMutex_);
    SendJson(res, ColourMapJson(session_.colourMap));
  });
  // {"row": 1-9, "column": 1-18, "value": v}: the value is stored and that cell alone
  // recoloured; "changed" names it with its new colour.
  server_->Post("/api/colours/cell", [this](const Request& req, Response& res) {
    const json body = json::parse(req.body, nullptr, false);
    int row = 0, column = 0;
    double value = 0.0;
    std::string error;
    if (!body.is_object() || !ReadIndex(body, "row", display::kGridRows, row, error) ||
        !ReadIndex(body, "column", display::kGridColumns, column, error))
      return SendError(res, 400, error.empty() ? "the request body is not a JSON object" : error);
    if (!body.contains("value") || !ReadValue(body["value"], value))
      return SendError(res, 400,
                    fmt::format("row {}, column {}: the value is not a number", row, column));
    std::lock_guard<std::mutex> lock(colourMutex_);
    display::SetGridValue(session_.colourMap, row - 1, column - 1, value);
    json answer = ColourMapJson(session_.colourMap);
    answer["changed"] = {{"row", row},
                         {"column", column},
                         {"colour", session_.colourMap.cellColours[row - 1][column - 1]}};
    SendJson(res, answer);
  });
  // {"row": 1-20, "colour": "#rrggbb"}: the picker's choice for one entry. The plot is
  // redrawn from it; the table's cells keep their colours until their next edit.
  server_->Post("/api/colours/entry", [this](const Request& req, Response& res) {
    const json body = json::parse(req.body, nullptr, false);
    int row = 0;
    int32_t colour = 0;
    std::string error;
    if (!body.is_object() || !ReadIndex(body, "row", display::kColourMapEntries, row, error))
      return SendError(res, 400, error.empty() ? "the request body is not a JSON object" : error);
    if (!body.contains("colour") || !ReadColour(body["colour"], colour))
      return SendError(res, 400, "colour: #rrggbb or a number from 0 to 0xFFFFFF");
    std::lock_guard<std::mutex> lock(colourMutex_);
    display::SetEntryColour(session_.colourMap, row, colour);
    SendJson(res, ColourMapJson(session_.colourMap));
  });
  // {"pattern": 1 or 2}: the grid filled, every cell recoloured.
  server_->Post("/api/colours/pattern", [this](const Request& req, Response& res) {
    const json body = json::parse(req.body, nullptr, false);
    if (!body.is_object() || !body.contains("pattern") ||
        (body["pattern"] != 1 && body["pattern"] != 2))
      return SendError(res, 400, "pattern: 1 (all 1.0) or 2 (row r at 1.0 - 0.07 r)");
    std::lock_guard<std::mutex> lock(colourMutex_);
    display::GenerateColourMapData(session_.colourMap, body["pattern"].get<int>());
    SendJson(res, ColourMapJson(session_.colourMap));
  });

  // The strip chart of the last generated series (204 before the first) and the fit's
  // graph as scint-load, scint-fit and scint-clear left it.
  server_->Get("/api/scint/strip.png", [this](const Request&, Response& res) {
    std::string png;
    bool empty = false;
    if (!runs_->WithIdleSession([&](app::Session& s, const app::Settings&) {
          empty = s.scintStrip.traces.empty();
          if (!empty) png = GraphPng(s.scintStrip);
        }))
      return SendError(res, 409, kBusy);
    if (empty) {
      res.status = 204;
      return;
    }
    ReplyPng(res, png);
  });
  server_->Get("/api/scint/fit.png", [this](const Request&, Response& res) {
    std::string png;
    if (!runs_->WithIdleSession(
            [&](app::Session& s, const app::Settings&) { png = GraphPng(s.scintGraph); }))
      return SendError(res, 409, kBusy);
    ReplyPng(res, png);
  });
}

}  // namespace vorel::web
