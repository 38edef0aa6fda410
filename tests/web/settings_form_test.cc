// The scenario pages' settings: every setting on one panel, and scenario files that give
// back what was saved.
#include "web/settings_form.h"

#include <gtest/gtest.h>

#include <map>

#include "app/settings.h"
#include "test_support.h"

namespace vorel::web {
namespace {

TEST(SettingsForm, EverySettingSitsOnExactlyOnePanelWithItsTableFacts) {
  const app::Settings defaults;
  const nlohmann::json panels = SettingsPanels(defaults);
  std::map<std::string, std::string> panelOf;
  for (const auto& panel : panels)
    for (const auto& s : panel["settings"]) {
      EXPECT_FALSE(panelOf.contains(s["name"])) << s["name"];
      panelOf[s["name"]] = panel["id"];
    }
  EXPECT_EQ(panelOf.size(), app::SettingRegistry().size());
  EXPECT_EQ(panels.size(), 9u);
  EXPECT_EQ(panelOf["OrbitFile"], "orbits");
  EXPECT_EQ(panelOf["ReceiverLatitude"], "scenario");
  EXPECT_EQ(panelOf["StationMask"], "stations");
  EXPECT_EQ(panelOf["bubbleLatitude"], "bubble");
  EXPECT_EQ(PanelOf("navPrn"), "navigation");
  EXPECT_EQ(PanelOf("skyPlotOpacity"), "map");
  EXPECT_EQ(PanelOf("NoSuchSetting"), "");
  // A field carries what the settings reference says: unit, range, and the --set form.
  for (const auto& s : panels[0]["settings"])
    if (s["name"] == "ScenarioMonth") {
      EXPECT_EQ(s["range"], "1 to 12");
      EXPECT_EQ(s["value"], "7");
    }
  for (const auto& s : panels[5]["settings"])
    if (s["name"] == "StationLongitude") {
      EXPECT_EQ(s["unit"], "deg");
      EXPECT_EQ(s["value"], "14.5,14.501,14.502,14.503");
    }
}

TEST(SettingsForm, ValuesAreReadByTheRulesOfSet) {
  app::Settings s;
  std::string error;
  EXPECT_TRUE(ApplyFormValue(s, "StationMask", "1,2,3,4", error)) << error;
  EXPECT_EQ(s.stations.StationMask[3], 4.0);
  EXPECT_FALSE(ApplyFormValue(s, "ScenarioMonth", "13", error));
  EXPECT_EQ(error, "ScenarioMonth: 13 is outside 1 to 12");
  EXPECT_EQ(s.scenario.ScenarioMonth, 7);
  EXPECT_FALSE(ApplyFormValue(s, "ReceiverLatitude", "north", error));
  EXPECT_EQ(error.rfind("ReceiverLatitude: ", 0), 0u) << error;
  EXPECT_FALSE(ApplyFormValue(s, "ScenarioMonht", "3", error));
  EXPECT_NE(error.find("nearest known name: ScenarioMonth"), std::string::npos) << error;
}

TEST(SettingsForm, AScenarioFileGivesBackEverySettingSaved) {
  app::Settings saved;
  std::string error;
  for (const char* set :
       {"ReceiverLatitude=-30.25", "ScenarioDuration=2", "OrbitFile=C:\\VLD\\brdc1820.10n",
        "TrajectoryFile=track \"one\".txt", "StationLatitude=1.5,2.5,3.5,4.5",
        "StationOutputFile=a.10o,b.10o,,d.10o", "OutputPacked=Direct", "SignalPower=-160.25",
        "ionoBroadcastTable=1e-08,2e-08,0,0,90000,0,0,0"})
    ASSERT_TRUE(app::ApplySetAssignment(saved, set, "test", error)) << error;
  test::ScratchDir dir("web-scenario");
  test::WriteFile(dir / "s.toml", ScenarioFileText(saved));
  app::Settings loaded;
  ASSERT_TRUE(app::ApplyScenarioFile(loaded, dir / "s.toml", error))
      << error << "\n"
      << test::ReadFile(dir / "s.toml");
  for (const app::SettingDef& d : app::SettingRegistry())
    EXPECT_EQ(d.show(loaded), d.show(saved)) << d.name;
  EXPECT_EQ(loaded.scenario.OrbitFile, "C:\\VLD\\brdc1820.10n");
  EXPECT_EQ(loaded.scenario.TrajectoryFile, "track \"one\".txt");
}

}  // namespace
}  // namespace vorel::web
