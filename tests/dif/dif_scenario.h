#pragma once
// A whole scenario for the DIF tests: start-up on the example almanac, the navigation bit
// files of PRN 1 to 32, an observation run that writes a .scn record at 1 ms (and, when
// asked, a .srv record at 1 s for the elevations), then the DIF run.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/dif_command.h"
#include "app/scenario_runs.h"
#include "app/session.h"
#include "app/startup.h"
#include "navmsg/nav_message.h"
#include "platform/scan.h"
#include "platform/text_file.h"
#include "test_support.h"

namespace vorel::test {

struct DifScenario {
  std::unique_ptr<app::Session> session;
  std::filesystem::path dataDir;
  std::filesystem::path record;  // the .scn record
};

// A quiet session started up on the example almanac, atmosphere off, one minute's run of
// the given interval (ms) and record type written to VLD/`record`, then `extra`.
inline std::unique_ptr<app::Session> StartExampleSession(const std::filesystem::path& dir,
                                                         int intervalMs, int recordType,
                                                         const std::string& record,
                                                         const std::vector<std::string>& extra) {
  auto session = app::Session::Create();
  session->messages = platform::Messages::Silent();
  app::GlobalOptions options;
  options.dataDir = (dir / "VLD").string();
  options.assignments = {"OrbitFile=" + (DataDir() / "examples" / "yuma147.txt").string(),
                         "ObservationInterval=" + std::to_string(intervalMs),
                         "RecordType=" + std::to_string(recordType),
                         "ScenarioDuration=1",
                         "atmosphereEnabled=0",
                         "ObservationOutputFile=" + (dir / "VLD" / record).string()};
  options.assignments.insert(options.assignments.end(), extra.begin(), extra.end());
  std::string error;
  EXPECT_EQ(app::StartUp(*session, options, error), 0) << error;
  return session;
}

// Start-up with the example almanac and the given settings; atmosphere off; 1 ms .scn record.
inline DifScenario MakeDifScenario(const std::filesystem::path& dir,
                                   const std::vector<std::string>& extra, bool iodcFollowsIode) {
  DifScenario sc;
  sc.session = StartExampleSession(dir, 1, 5, "rec.scn", extra);
  app::Session& s = *sc.session;
  sc.dataDir = s.dataDir.root();
  sc.record = s.dataDir.Map(s.settings.scenario.ObservationOutputFile);

  const app::ScenarioSettings& scn = s.settings.scenario;
  navmsg::NavMessageSettings nav;
  for (int k = 0; k < 4; ++k) {
    nav.ionoAlpha[k] = s.settings.atmosphere.ionoBroadcastTable.cells[0][k];
    nav.ionoBeta[k] = s.settings.atmosphere.ionoBroadcastTable.cells[1][k];
  }
  nav.IodcFollowsIode = iodcFollowsIode ? 1 : 0;
  nav.OrbitsValid = s.orbitState.OrbitsValid ? 1 : 0;
  nav.KeepOrbitEpochs = scn.KeepOrbitEpochs;
  nav.ScenarioYear = scn.ScenarioYear;
  nav.ScenarioMonth = scn.ScenarioMonth;
  nav.ScenarioDay = scn.ScenarioDay;
  nav.ScenarioHour = scn.ScenarioHour;
  nav.ScenarioMinute = scn.ScenarioMinute;
  nav.ScenarioSecond = scn.ScenarioSecond;
  nav.LeapSeconds = scn.LeapSeconds;
  EXPECT_EQ(navmsg::WriteAllNavigationFiles(
                nav, s.constellation, sc.dataDir, s.navMessage, s.messages,
                [&](double sow, int32_t week) { app::RedateOrbits(s.constellation, sow, week); }),
            0);
  EXPECT_TRUE(app::RunObservationSim(s).ok());
  return sc;
}

// Elevations (degrees) of the satellites in the first epoch of an observation run at 1 s
// with a .srv record, on a fresh session with the same settings.
inline std::map<int, double> FirstEpochElevations(const std::filesystem::path& dir,
                                                  const std::vector<std::string>& extra) {
  const auto session = StartExampleSession(dir, 1000, 4, "rec.srv", extra);
  EXPECT_TRUE(app::RunObservationSim(*session).ok());
  std::map<int, double> elevations;
  platform::LineReader srv(dir / "VLD" / "rec.srv");
  std::string line;
  srv.ReadLine(line);  // time
  srv.ReadLine(line);  // count
  int32_t count = 0;
  platform::ScanLine(line, "%s>%d", {&count});
  for (int j = 0; j < count && srv.ReadLine(line) >= 0; ++j) {
    int32_t prn = 0;
    double code, carrier, doppler, level, geometric, azimuth, elevation;
    platform::ScanLine(line, "%s>%d%f%f%f%f%f%f%f",
                       {&prn, &code, &carrier, &doppler, &level, &geometric, &azimuth, &elevation});
    elevations[prn] = elevation * 57.29577951308232;
  }
  return elevations;
}

}  // namespace vorel::test
