#include "app/settings.h"

#include <gtest/gtest.h>

#include <tuple>

#include "platform/data_dir.h"
#include "platform/messages.h"
#include "test_support.h"

namespace vorel::app {
namespace {

std::string SettingsFileText(const std::string& line18, const std::string& line19,
                             int lines = 36) {
  std::string t = "title\nsubtitle\nLat 12.5\nLon -3.25\nAlt 99\nYear 2012\nMonth 2\nDay 29\n"
                  "Hour 7\nMinute 30\nDuration 15\nDif 2.5\nOrbit C:/VLD/yuma.txt\nPacked 0\n"
                  "Filter 3\nChannels 8\nUnused 0\nNames " + line18 + "\nObs " + line19 +
                  "\nDifOut C:/VLD/x.bin\n";
  for (int n = 21; n <= 36; ++n) t += "Unused 0\n";
  auto all = test::SplitLines(t);
  std::string out;
  for (int i = 0; i < lines; ++i) out += all[i] + "\n";
  return out;
}

using Captured = test::CapturedMessages;

TEST(SettingsFile, ReadsItsThirtySixLinesWithTheLine18FallThrough) {
  test::ScratchDir dir("settings-file");
  Captured c;
  Settings s;
  test::WriteFile(dir / "a.txt", SettingsFileText("1", "C:/VLD/obs.10o"));
  ReadSettingsFile(s, dir / "a.txt", c.messages);
  EXPECT_TRUE(c.warnings.empty());
  EXPECT_EQ(s.scenario.ReceiverLatitude, 12.5);
  EXPECT_EQ(s.scenario.ReceiverLongitude, -3.25);
  EXPECT_EQ(s.scenario.ScenarioDay, 29);
  EXPECT_EQ(s.scenario.ScenarioDuration, 15);
  EXPECT_EQ(s.dif.Duration, 2.5);
  EXPECT_EQ(s.scenario.OrbitFile, "C:/VLD/yuma.txt");
  EXPECT_EQ(s.dif.OutputPacked, "Direct");
  EXPECT_EQ(s.dif.FilterOn, 1);
  EXPECT_EQ(s.dif.MaxChannels, 8);
  EXPECT_EQ(s.scenario.ObservationOutputFile, "C:/VLD/obs.10o");
  EXPECT_EQ(s.dif.DifOutputFile, "C:/VLD/x.bin");

  // Line 18 not 0 and line 19 unreadable: line 18's own token stands as the output name.
  Settings t;
  test::WriteFile(dir / "b.txt", SettingsFileText("7", ""));
  ReadSettingsFile(t, dir / "b.txt", c.messages);
  EXPECT_EQ(t.scenario.ObservationOutputFile, "7");

  ASSERT_EQ(c.warnings.size(), 1u);  // line 19 had no value
  c.warnings.clear();
  // Line 18 at 0 ends the reading: both output names keep their defaults.
  Settings u;
  test::WriteFile(dir / "c.txt", SettingsFileText("0", "C:/VLD/obs.10o"));
  ReadSettingsFile(u, dir / "c.txt", c.messages);
  EXPECT_EQ(u.scenario.ObservationOutputFile, Settings{}.scenario.ObservationOutputFile);
  EXPECT_EQ(u.dif.DifOutputFile, Settings{}.dif.DifOutputFile);
  EXPECT_TRUE(c.warnings.empty());
}

TEST(SettingsFile, MissingOrShortFilesKeepDefaultsAndWarn) {
  test::ScratchDir dir("settings-short");
  Captured c;
  Settings s;
  ReadSettingsFile(s, dir / "none.txt", c.messages);
  ASSERT_EQ(c.warnings.size(), 1u);
  EXPECT_NE(c.warnings[0].find("none.txt"), std::string::npos);
  EXPECT_EQ(s.scenario.ScenarioYear, Settings{}.scenario.ScenarioYear);

  test::WriteFile(dir / "short.txt", SettingsFileText("1", "x", 7));
  ReadSettingsFile(s, dir / "short.txt", c.messages);
  EXPECT_EQ(s.scenario.ScenarioMonth, 2);  // line 7 was read
  EXPECT_EQ(s.scenario.ScenarioDay, Settings{}.scenario.ScenarioDay);
  ASSERT_EQ(c.warnings.size(), 2u);
  EXPECT_NE(c.warnings[1].find("7 lines"), std::string::npos) << c.warnings[1];

  // A word where a number belongs, and a number outside its setting's range (refused like
  // any other source's), are told by line and leave the default.
  for (const auto& [name, line, says] :
       {std::tuple{"bad.txt", "Lat north", "line(s) 3"},
        std::tuple{"far.txt", "Lat 95.0", "far.txt, line 3: ReceiverLatitude: 95 is outside -90 to 90"}}) {
    std::string text = SettingsFileText("1", "x");
    text.replace(text.find("Lat 12.5"), 8, line);
    test::WriteFile(dir / name, text);
    Settings b;
    ReadSettingsFile(b, dir / name, c.messages);
    EXPECT_EQ(b.scenario.ReceiverLatitude, Settings{}.scenario.ReceiverLatitude) << name;
    EXPECT_NE(c.warnings.back().find(says), std::string::npos) << c.warnings.back();
  }
}

TEST(SettingsSources, SetAssignmentsAndTheirErrors) {
  Settings s;
  std::string error;
  EXPECT_TRUE(ApplySetAssignment(s, "ObservationInterval=1", "--set", error));
  EXPECT_EQ(s.scenario.ObservationInterval, 1);
  EXPECT_TRUE(ApplySetAssignment(s, "ionoTruthTable=1e-8,0,0,0,90000,0,0,0", "--set", error));
  EXPECT_EQ(s.atmosphere.ionoTruthTable.cells[1][0], 90000.0);
  EXPECT_TRUE(ApplySetAssignment(s, "StationLatitude=1,2,3,4", "--set", error));
  EXPECT_EQ(s.stations.StationLatitude[3], 4.0);

  EXPECT_FALSE(ApplySetAssignment(s, "ObservationIntervall=1", "--set", error));
  EXPECT_NE(error.find("nearest known name: ObservationInterval"), std::string::npos) << error;
  EXPECT_FALSE(ApplySetAssignment(s, "RecordType=9", "--set", error));
  EXPECT_NE(error.find("RecordType"), std::string::npos);
  EXPECT_FALSE(ApplySetAssignment(s, "ReceiverLatitude=north", "--set", error));
  EXPECT_FALSE(ApplySetAssignment(s, "tropoModel=1.5", "--set", error));
  EXPECT_FALSE(ApplySetAssignment(s, "OutputPacked=packed", "--set", error));
  EXPECT_FALSE(ApplySetAssignment(s, "StationMask=1,2,3", "--set", error));
  EXPECT_FALSE(ApplySetAssignment(s, "NoEquals", "--set", error));
  EXPECT_EQ(s.scenario.RecordType, Settings{}.scenario.RecordType);  // refused values stay out
}

TEST(SettingsProfile, ReceiverSetsItsDefaultsAndAGivenSettingWinsInEitherOrder) {
  Settings s;
  std::string error;
  ASSERT_TRUE(ApplySetAssignment(s, "IodcFollowsIode=0", "--set", error));
  ASSERT_TRUE(ApplySetAssignment(s, "Profile=receiver", "--set", error));
  ASSERT_TRUE(ApplySetAssignment(s, "RinexStandardLayout=1", "--set", error));
  EXPECT_EQ(s.nav.IodcFollowsIode, 0);            // given before the profile
  EXPECT_EQ(s.scenario.RinexStandardLayout, 1);   // given after it
  EXPECT_EQ(s.nav.SatClockFromMessage, 1);
  EXPECT_EQ(s.atmosphere.TroposphereInRanges, 1);
  EXPECT_EQ(s.atmosphere.AtmosphereUpdateInterval, 1000);
  EXPECT_EQ(s.scenario.RinexNavBeside, 1);
  // Back to the system: what the profile set goes back, what was given stays.
  ASSERT_TRUE(ApplySetAssignment(s, "Profile=system", "--set", error));
  EXPECT_EQ(s.nav.SatClockFromMessage, 0);
  EXPECT_EQ(s.atmosphere.AtmosphereUpdateInterval, 0);
  EXPECT_EQ(s.scenario.RinexStandardLayout, 1);

  EXPECT_FALSE(ApplySetAssignment(s, "Profile=receivers", "--set", error));
  EXPECT_NE(error.find("expected one of system, receiver"), std::string::npos) << error;
  EXPECT_FALSE(ApplySetAssignment(s, "RinexStationName=MUNICH", "--set", error));
  EXPECT_NE(error.find("RinexStationName"), std::string::npos) << error;
}

TEST(SettingsProfile, AScenarioFileKeyWinsOverTheProfileOfTheSameFileAndOfALaterSet) {
  test::ScratchDir dir("profile-toml");
  test::WriteFile(dir / "p.toml", "[nav]\nSatClockFromMessage = 0\n[scenario]\nProfile = \"receiver\"\n");
  Settings s;
  std::string error;
  ASSERT_TRUE(ApplyScenarioFile(s, dir / "p.toml", error)) << error;
  EXPECT_EQ(s.nav.SatClockFromMessage, 0);
  EXPECT_EQ(s.nav.IodcFollowsIode, 1);
  ASSERT_TRUE(ApplySetAssignment(s, "Profile=receiver", "--set", error));
  EXPECT_EQ(s.nav.SatClockFromMessage, 0);
}

TEST(SettingsSources, ScenarioFileWithTablesAndLineNumbersInErrors) {
  test::ScratchDir dir("scenario-file");
  test::WriteFile(dir / "good.toml",
                  "ObservationInterval = 1\n[receiver]\nReceiverLatitude = 45\n"
                  "ionoBroadcastTable = [1.0e-8, 2.0e-8, 0, 0, 90000, 0, 0, 0]\n"
                  "StationEventFile = [\"a\", \"b\", \"c\", \"d\"]\nOutputPacked = \"Direct\"\n");
  Settings s;
  std::string error;
  ASSERT_TRUE(ApplyScenarioFile(s, dir / "good.toml", error)) << error;
  EXPECT_EQ(s.scenario.ObservationInterval, 1);
  EXPECT_EQ(s.scenario.ReceiverLatitude, 45.0);
  EXPECT_EQ(s.atmosphere.ionoBroadcastTable.cells[0][1], 2.0e-8);
  EXPECT_EQ(s.stations.StationEventFile[2], "c");
  EXPECT_EQ(s.dif.OutputPacked, "Direct");

  test::WriteFile(dir / "bad.toml", "ObservationInterval = 2\n\nElevationMsk = 10\n");
  Settings t;
  EXPECT_FALSE(ApplyScenarioFile(t, dir / "bad.toml", error));
  EXPECT_NE(error.find("bad.toml, line 3"), std::string::npos) << error;
  EXPECT_NE(error.find("ElevationMask"), std::string::npos) << error;
  EXPECT_EQ(t.scenario.ObservationInterval, Settings{}.scenario.ObservationInterval);

  test::WriteFile(dir / "syntax.toml", "RecordType = = 2\n");
  EXPECT_FALSE(ApplyScenarioFile(t, dir / "syntax.toml", error));
  EXPECT_NE(error.find("syntax.toml, line 1"), std::string::npos) << error;
}

TEST(SettingsRanges, RefusalsNameTheSettingTheValueTheRangeAndTheSource) {
  Settings s;
  std::string error;
  // Bounds are inclusive: the edge values pass, one step beyond is refused.
  for (const char* ok : {"ReceiverLatitude=-90", "ReceiverLongitude=360", "ScenarioHour=23",
                         "ScenarioYear=1980", "LeapSeconds=100", "DifThreads=64",
                         "BitsPerSample=16", "ScenarioDuration=0", "bubbleLatitude=90",
                         "StationLongitude=-180,0,359.5,360", "Duration=0.005"})
    EXPECT_TRUE(ApplySetAssignment(s, ok, "--set", error)) << ok << ": " << error;
  EXPECT_EQ(s.scenario.ReceiverLongitude, 360.0);

  EXPECT_FALSE(ApplySetAssignment(s, "ReceiverLatitude=90.5", "--set", error));
  EXPECT_EQ(error, "--set: ReceiverLatitude: 90.5 is outside -90 to 90");
  EXPECT_EQ(s.scenario.ReceiverLatitude, -90.0);  // the refused value stays out
  EXPECT_FALSE(ApplySetAssignment(s, "ScenarioHour=24", "--set", error));
  EXPECT_EQ(error, "--set: ScenarioHour: 24 is outside 0 to 23");
  EXPECT_FALSE(ApplySetAssignment(s, "bubbleWidth=-1", "--set", error));
  EXPECT_EQ(error, "--set: bubbleWidth: -1 is below 0, the least allowed");
  EXPECT_FALSE(ApplySetAssignment(s, "StationLatitude=0,0,-91,0", "--set", error));
  EXPECT_EQ(error, "--set: StationLatitude: station 3: -91 is outside -90 to 90");
  for (const char* bad : {"ScenarioYear=1979", "BitsPerSample=0", "BitsPerSample=17",
                          "DifThreads=65", "navPrn=33", "ObservationInterval=3600001",
                          "ScenarioDuration=35001", "MaxChannels=33", "Duration=-1"})
    EXPECT_FALSE(ApplySetAssignment(s, bad, "--set", error)) << bad;

  test::ScratchDir dir("setting-ranges");
  test::WriteFile(dir / "range.toml", "ScenarioMonth = 4\n[dif]\nDifThreads = 100\n");
  Settings t;
  EXPECT_FALSE(ApplyScenarioFile(t, dir / "range.toml", error));
  EXPECT_NE(error.find("range.toml, line 3: DifThreads: 100 is outside 0 to 64"),
            std::string::npos)
      << error;
  EXPECT_EQ(t.scenario.ScenarioMonth, Settings{}.scenario.ScenarioMonth);
}

TEST(SettingsRanges, EverySettingIsKnownOnceAndItsDefaultLiesInItsRange) {
  const Settings defaults;
  std::vector<std::string_view> names;
  for (const SettingDef& d : SettingRegistry()) {
    names.push_back(d.name);
    // Reading back what is shown must succeed: the default passes its own range check.
    Settings copy;
    std::string shown = d.show(defaults), error;
    if (shown.size() >= 2 && shown.front() == '"' && shown.back() == '"')
      shown = shown.substr(1, shown.size() - 2);
    if (d.type == "4 x double" || d.type == "4 x path") {
      std::erase(shown, '[');
      std::erase(shown, ']');
      std::erase(shown, '"');
    }
    if (d.name == "MultipathTable") continue;
    EXPECT_TRUE(d.fromText(copy, shown, error)) << d.name << " " << shown << ": " << error;
  }
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST(SettingsReference, DocumentIsCurrent) {
  // docs/settings.md is generated from the registry (`make docs`); it must not go stale.
  const auto path = test::DataDir().parent_path() / "docs" / "settings.md";
  EXPECT_EQ(test::ReadFile(path), SettingsReference()) << "run `make docs`";
}

TEST(DataDirectory, OldFixedPathsMapIntoTheDataDirectory) {
  platform::DataDirectory d("/data/vld");
  EXPECT_EQ(d.Map("C:/VLD/LAAS/rs1.scn"), "/data/vld/LAAS/rs1.scn");
  EXPECT_EQ(d.Map("C:\\VLD\\NAV\\navbin3"), "/data/vld/NAV/navbin3");
  EXPECT_EQ(d.Map("c:\\VLD\\simulated.nvb"), "/data/vld/simulated.nvb");
  EXPECT_EQ(d.Map("C://VLD//scintGenData.dat"), "/data/vld/scintGenData.dat");
  EXPECT_EQ(d.Map("C:/VLDX/a"), "C:/VLDX/a");
  EXPECT_EQ(d.Map("relative/file.txt"), "relative/file.txt");
}

}  // namespace
}  // namespace vorel::app
