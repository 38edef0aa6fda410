#pragma once
// The scenario pages: every setting under the panel that holds it, with its unit, range
// and meaning from the modules' tables, in the text form `--set` takes; the values read
// back through the same readers; scenario files in TOML.

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "app/settings.h"

namespace vorel::web {

// [{id, title, settings: [{name, type, unit, range, meaning, value, choices?}]}], in the
// panels' order.
nlohmann::json SettingsPanels(const app::Settings& settings);

// The panel id of a setting ("scenario", "orbits", ...); empty for an unknown name.
std::string PanelOf(std::string_view name);

// Reads "value" into the setting `name` by the rules of `--set`. False with a message that
// names the setting; the settings are then unchanged.
bool ApplyFormValue(app::Settings& settings, std::string_view name, std::string_view value,
                    std::string& error);

// The settings as a scenario file: one table per panel, keys the setting names.
std::string ScenarioFileText(const app::Settings& settings);

}  // namespace vorel::web
