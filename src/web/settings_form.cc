#include "web/settings_form.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <set>
#include <sstream>

#include "atmosphere/atmosphere_settings.h"
#include "atmosphere/bubble_settings.h"
#include "dif/dif_settings.h"
#include "display/map_settings.h"
#include "navmsg/nav_message.h"
#include "scintillation/scint_settings.h"

namespace vorel::web {
namespace {

using nlohmann::json;

// The orbit panel's settings sit in the scenario's table.
const std::set<std::string_view> kOrbitSettings = {"OrbitFile", "KeepOrbitEpochs",
                                                   "ConstellationChoice"};

struct PanelDef {
  const char* id;
  const char* title;
};

constexpr PanelDef kPanels[] = {{"scenario", "Scenario and receiver"},
                                {"orbits", "Orbits"},
                                {"atmosphere", "Atmosphere"},
                                {"bubble", "Bubble"},
                                {"dif", "DIF parameters"},
                                {"stations", "Reference stations"},
                                {"navigation", "Navigation"},
                                {"scintillation", "Scintillation"},
                                {"map", "Map"}};

json Field(const app::SettingDef& def, std::span<const std::string_view> choices,
           const app::Settings& settings) {
  json field = {{"name", def.name},       {"type", def.type},
                {"unit", def.unit},       {"range", def.range},
                {"meaning", def.meaning}, {"value", app::SettingText(def, settings)}};
  if (!choices.empty()) {
    field["choices"] = json::array();
    for (std::string_view c : choices) field["choices"].push_back(c);
  }
  return field;
}

// Calls `visit(panelId, entryName, choices)` for every entry of every module's table.
template <typename Visit>
void ForEachEntry(Visit&& visit) {
  const auto table = [&](const char* panel, const auto& entries) {
    for (const auto& e : entries) visit(panel, e.name, e.choices);
  };
  for (const auto& e : app::ScenarioSettingTable())
    visit(kOrbitSettings.contains(e.name) ? "orbits" : "scenario", e.name, e.choices);
  table("atmosphere", atmosphere::AtmosphereSettingTable());
  table("bubble", atmosphere::BubbleSettingTable());
  table("dif", dif::DifSettingTable());
  table("stations", app::StationSettingTable());
  table("navigation", navmsg::NavSettingTable());
  table("scintillation", scintillation::ScintSettingTable());
  table("map", display::MapSettingTable());
}

}  // namespace

json SettingsPanels(const app::Settings& settings) {
  json panels = json::array();
  for (const PanelDef& p : kPanels)
    panels.push_back({{"id", p.id}, {"title", p.title}, {"settings", json::array()}});
  ForEachEntry([&](std::string_view panel, std::string_view name,
                   std::span<const std::string_view> choices) {
    const app::SettingDef* def = app::FindSetting(name);
    if (def == nullptr) return;
    for (json& p : panels)
      if (p["id"] == panel) p["settings"].push_back(Field(*def, choices, settings));
  });
  return panels;
}

std::string PanelOf(std::string_view name) {
  std::string found;
  ForEachEntry([&](std::string_view panel, std::string_view entry, auto) {
    if (entry == name) found = panel;
  });
  return found;
}

bool ApplyFormValue(app::Settings& settings, std::string_view name, std::string_view value,
                    std::string& error) {
  const app::SettingDef* def = app::FindSetting(name);
  if (def == nullptr) {
    error = fmt::format("unknown setting \"{}\" (nearest known name: {})", name,
                        app::NearestSettingName(name));
    return false;
  }
  std::string why;
  if (!def->fromText(settings, value, why)) {
    error = fmt::format("{}: {}", name, why);
    return false;
  }
  return true;
}

std::string ScenarioFileText(const app::Settings& settings) {
  toml::table file;
  for (const PanelDef& p : kPanels) file.insert(p.id, toml::table{});
  ForEachEntry([&](std::string_view panel, std::string_view name, auto) {
    const app::SettingDef* def = app::FindSetting(name);
    if (def == nullptr) return;
    toml::table& group = *file.get_as<toml::table>(panel);
    // The shown value is TOML already; a path with backslashes is not, and goes as text.
    try {
      toml::table parsed = toml::parse("v = " + def->show(settings));
      if (toml::node* v = parsed.get("v")) {
        v->visit([&](auto& node) { group.insert(name, node); });
        return;
      }
    } catch (const toml::parse_error&) {
    }
    group.insert(name, app::SettingText(*def, settings));
  });
  std::ostringstream out;
  out << "# Vorel scenario: keys are setting names; the tables only group them as the panels "
         "do.\n\n"
      << file << "\n";
  return out.str();
}

}  // namespace vorel::web
