#include "app/scenario_runs.h"
#include "app/receiver_outputs.h"

#include <cmath>
#include <filesystem>

#include <gtest/gtest.h>

#include "atmosphere/klobuchar.h"
#include "orbits/orbit_files.h"
#include "test_support.h"

namespace vorel::app {
namespace {

std::unique_ptr<orbits::ConstellationTable> TableWithToes(std::vector<std::vector<double>> toes) {
  auto t = std::make_unique<orbits::ConstellationTable>();
  for (size_t row = 0; row < toes.size(); ++row) {
    auto& sat = t->rows[row];
    sat.recordCount = static_cast<int32_t>(toes[row].size());
    for (size_t k = 0; k < toes[row].size(); ++k) {
      sat.trueRecords[k].toe = toes[row][k];
      sat.trueRecords[k].week = 5;
      sat.trueRecords[k].status = k == 0 && row == 0 ? 0 : orbits::kStatusUsable;
    }
  }
  t->rows[1].trueRecords[0].status = orbits::kStatusUsable;
  return t;
}

TEST(RedateOrbits, MovesFromTheFirstHealthyRowWithARunningWeek) {
  // Row 0 is unhealthy and stays; row 1 is the first healthy one.
  auto t = TableWithToes({{100.0}, {3600.0, 10800.0}, {604000.0, 2000.0}});
  RedateOrbits(*t, 600000.0, 1500);  // next two-hour mark: 604800 -> 0 of week 1501
  EXPECT_EQ(t->rows[0].trueRecords[0].toe, 100.0);
  EXPECT_EQ(t->rows[0].trueRecords[0].week, 5);
  const double shift = 0.0 - 3600.0;
  EXPECT_EQ(t->rows[1].trueRecords[0].toe, 0.0);
  EXPECT_EQ(t->rows[1].trueRecords[0].week, 1501);
  EXPECT_EQ(t->rows[1].trueRecords[1].toe, 10800.0 + shift);
  EXPECT_EQ(t->rows[1].broadcastRecords[1].toc, 10800.0 + shift);
  // 604000 - 3600 stays in the week; then 2000 - 3600 < 0 steps the running week back.
  EXPECT_EQ(t->rows[2].trueRecords[0].toe, 604000.0 + shift);
  EXPECT_EQ(t->rows[2].trueRecords[0].week, 1501);
  EXPECT_EQ(t->rows[2].trueRecords[1].toe, 2000.0 + shift + 604800.0);
  EXPECT_EQ(t->rows[2].trueRecords[1].week, 1500);
  // A scenario exactly on a two-hour mark keeps that mark; a second pass shifts by 0.
  auto u = TableWithToes({{0.0}, {5000.0}});
  RedateOrbits(*u, 7200.0, 10);
  EXPECT_EQ(u->rows[1].trueRecords[0].toe, 7200.0);
  RedateOrbits(*u, 7200.0, 10);
  EXPECT_EQ(u->rows[1].trueRecords[0].toe, 7200.0);
}

TEST(FileNames, RulesOfTheRunTimeClockAndTheScenarioDate) {
  std::tm now{};
  now.tm_year = 126;
  now.tm_mon = 10;
  now.tm_mday = 21;
  now.tm_hour = 9;
  now.tm_min = 5;
  ScenarioSettings s;
  s.ScenarioYear = 2010;
  s.ScenarioMonth = 7;
  s.ScenarioDay = 1;
  EXPECT_EQ(ObservationOutputName(0, now, s), "C:/VLD/11-21-20260905.log");
  EXPECT_EQ(ObservationOutputName(2, now, s), "C:/VLD/simu2110.10O");  // 30 * 7 + 1
  EXPECT_EQ(ObservationOutputName(3, now, s), "");
  EXPECT_EQ(ObservationOutputName(5, now, s), "C:/VLD/11-21-20260905.scn");
  EXPECT_EQ(DifOutputName(1, now), "C:/VLD/11-21-20260905.bin");
  EXPECT_EQ(DifOutputName(0, now), "C:/VLD/11-21-20260905.dat");
  EXPECT_EQ(StationOutputName(2, 3, s), "C:/VLD/LAAS/rs3_2110.10O");
  EXPECT_EQ(StationOutputName(4, 1, s), "C:/VLD/LAAS/rs1.srv");
  EXPECT_EQ(StationOutputName(5, 4, s), "C:/VLD/LAAS/rs4.scn");
}

TEST(FileNames, StandardRinexNamesCarryTheDayOfTheYearAndTheNavigationFileStandsBeside) {
  std::tm now{};
  ScenarioSettings s;
  s.ScenarioYear = 2010;
  s.ScenarioMonth = 7;
  s.ScenarioDay = 1;
  s.RinexStandardLayout = 2;
  // 31 + 28 + 31 + 30 + 31 + 30 days before July: 1 July 2010 is day 182.
  EXPECT_EQ(ObservationOutputName(2, now, s), "C:/VLD/VORL1820.10O");
  s.RinexStationName = "MUN1";
  s.ScenarioYear = 2012;  // a leap year: 31 December is day 366
  s.ScenarioMonth = 12;
  s.ScenarioDay = 31;
  EXPECT_EQ(StandardObservationName(s), "C:/VLD/MUN13660.12O");
  EXPECT_EQ(NavigationPathBeside("d/VORL1820.10O", s), std::filesystem::path("d/VORL1820.10N"));
  EXPECT_EQ(NavigationPathBeside("d/site.10o", s), std::filesystem::path("d/site.10n"));
  EXPECT_EQ(NavigationPathBeside("d/run.obs", s), std::filesystem::path("d/run.12N"));
  EXPECT_EQ(NavigationPathBeside("d/run", s), std::filesystem::path("d/run.12N"));
}

TEST(FileNames, PredictedHeaderPutsTheReceiverInEcefAndTheFirstWrittenEpoch) {
  ScenarioSettings s;
  observation::TrajectoryRunArgs args;
  args.latitude = 46.05;
  args.longitude = 14.5;
  args.altitude = 300.0;
  args.startMs = 349200000;
  args.intervalMs = 1000;
  args.gpsWeek = 1590;
  args.staticReceiver = 1;
  const observation::RinexRunHeader h = PredictedRunHeader(s, args);
  // WGS84 by the textbook: N = a / sqrt(1 - e2 sin^2 lat), x = (N + h) cos lat cos lon, ...
  EXPECT_NEAR(h.approxEcef[0], 4293278.6277, 1e-3);
  EXPECT_NEAR(h.approxEcef[1], 1110317.3477, 1e-3);
  EXPECT_NEAR(h.approxEcef[2], 4569322.4063, 1e-3);
  EXPECT_EQ(h.firstTimeMs, 349202000);  // the run's first epoch is computed, not written
  EXPECT_EQ(h.intervalMs, 1000);
  EXPECT_EQ(h.marker, "VORL");
  args.staticReceiver = 0;  // a trajectory's epochs come at its own times
  EXPECT_EQ(PredictedRunHeader(s, args).intervalMs, 0);
}

// A Session with the broadcast orbits of 1 July 2010 loaded as they are.
class RunTest : public ::testing::Test {
 protected:
  RunTest() : dir("runs") {}
  void SetUp() override {
    session = Session::Create();
    session->dataDir = platform::DataDirectory(dir.path());
    std::string error;
    ASSERT_TRUE(session->dataDir.Create(error));
    session->messages = platform::Messages::Silent();
    orbits::LoadAlmanacArgs load{1, (test::DataDir() / "examples" / "brdc1820.10n").string()};
    ASSERT_EQ(orbits::LoadAlmanac(session->constellation, session->orbitState, load,
                                   session->messages), 1);
    auto& sc = session->settings.scenario;
    sc.KeepOrbitEpochs = 1;
    sc.ScenarioHour = 5;
    sc.ScenarioDuration = 1;
    sc.ObservationInterval = 1000;
    sc.ReceiverLatitude = -30.25;
    sc.ReceiverLongitude = 149.75;
    sc.ReceiverAltitude = 250.0;
    sc.RecordType = 4;
    sc.ObservationOutputFile = "C:/VLD/run.srv";
  }
  struct Line {
    int prn;
    double code, carrier, azimuth, elevation, geometric;
  };
  // The .srv record by epoch: time (s) and its lines.
  std::vector<std::pair<double, std::vector<Line>>> ReadSrv() {
    std::vector<std::pair<double, std::vector<Line>>> epochs;
    auto lines = test::SplitLines(test::ReadFile(dir / "run.srv"));
    for (size_t i = 0; i + 1 < lines.size();) {
      const double t = std::stod(lines[i]);
      const int n = std::stoi(lines[i + 1]);
      std::vector<Line> sats;
      for (int k = 0; k < n; ++k) {
        Line l{};
        double doppler, level;
        std::sscanf(lines[i + 2 + k].c_str(), "%d %lf %lf %lf %lf %lf %lf %lf", &l.prn, &l.code,
                    &l.carrier, &doppler, &level, &l.geometric, &l.azimuth, &l.elevation);
        sats.push_back(l);
      }
      epochs.emplace_back(t, sats);
      i += 2 + n;
    }
    return epochs;
  }
  test::ScratchDir dir;
  std::unique_ptr<Session> session;
};

TEST_F(RunTest, InvalidOrbitsRefuseTheRun) {
  test::CapturedMessages said;
  session->messages = said.messages;
  session->orbitState.OrbitsValid = false;
  EXPECT_TRUE(RunObservationSim(*session).failed());
  EXPECT_EQ(said.popups, (std::vector<std::string>{": Invalid orbits"}));
}

TEST_F(RunTest, BroadcastIonosphereSeparatesCodeAndCarrierOnceAndHoldsIt) {
  auto& a = session->settings.atmosphere;
  a.atmosphereEnabled = 1;
  a.klobucharSelected = 1;
  // The coefficients of brdc1820.10n's header.
  a.ionoTruthTable.cells[0][0] = 0.4657e-08;
  a.ionoTruthTable.cells[0][1] = 0.1490e-07;
  a.ionoTruthTable.cells[0][2] = -0.5960e-07;
  a.ionoTruthTable.cells[0][3] = -0.1192e-06;
  a.ionoTruthTable.cells[1][0] = 0.8192e+05;
  a.ionoTruthTable.cells[1][1] = 0.8192e+05;
  a.ionoTruthTable.cells[1][2] = -0.6554e+05;
  a.ionoTruthTable.cells[1][3] = -0.5243e+06;
  session->settings.scenario.ElevationMask = 10.0;
  ASSERT_TRUE(RunObservationSim(*session).ok());
  const auto epochs = ReadSrv();
  ASSERT_EQ(epochs.size(), 60u);
  const double lat = -30.25 * 0.017453292519943, lon = 149.75 * 0.017453292519943;
  // Satellites of the first written epoch (all were above the mask one second before):
  // the difference is twice the broadcast delay at that geometry, and it is held.
  for (const Line& l : epochs.front().second) {
    double delay = 0.0;
    const double t = epochs.front().first - l.geometric / 299792458.0;
    atmosphere::KlobucharDelay(session->atmosphere, lat, lon, l.azimuth, l.elevation, t, delay);
    EXPECT_GT(delay, 0.5);
    EXPECT_NEAR((l.code - l.carrier) / 2, delay, 0.01) << "PRN " << l.prn;
    for (const auto& [time, sats] : epochs) {
      for (const Line& m : sats) {
        if (m.prn != l.prn) continue;
        EXPECT_NEAR(m.code - l.code - (m.carrier - l.carrier), 0.0, 0.002);
      }
    }
  }
  // A second run in the same program start has no delay at all.
  ASSERT_TRUE(RunObservationSim(*session).ok());
  for (const auto& [time, sats] : ReadSrv())
    for (const Line& l : sats) EXPECT_NEAR(l.code, l.carrier, 0.0015);
}

TEST_F(RunTest, AStopDuringStationOneLeavesTheOtherStationFilesEmpty) {
  auto& st = session->settings.stations;
  st.StationRecordType = 4;
  st.StationCoordinatesAbsolute = 0;
  st.StationLatitude = {-30.25, 0, 0, 0};
  st.StationLongitude = {149.75, 0, 0, 0};
  st.StationOffsetNorth = {0, 1111.2, 2222.4, 0};
  st.StationOffsetEast = {0, 5000, 5000, 5000};
  // Above 10 s the tick comes at the first epoch only: the stop lands there.
  session->settings.scenario.ObservationInterval = 60000;
  int stationsSeen = 0;
  session->messages.progress = [&](double p) {
    if (p > 0)
      session->RunActive = 0;
    else
      ++stationsSeen;
  };
  EXPECT_TRUE(RunRawGeneration(*session).stopped());
  EXPECT_EQ(stationsSeen, 4);
  for (int s = 1; s <= 4; ++s)
    EXPECT_TRUE(std::filesystem::exists(dir / "LAAS" / fmt::format("rs{}.srv", s))) << s;
  EXPECT_EQ(session->originLatitude, -30.25);
  EXPECT_EQ(session->originLongitude, 149.75);
  EXPECT_EQ(test::ReadFile(dir / "LAAS" / "rs2.srv"), "");
}

int OpenDescriptors() {
  int n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
  return n;
}

// A long-lived front end runs many times in one process: no run may keep a file open,
// whether it ended, was refused or could not create its record. The flag that lets a run
// go on is down after each of them.
TEST_F(RunTest, AThousandRunsLeaveNoDescriptorOpen) {
  auto& sc = session->settings.scenario;
  sc.ScenarioDuration = 0;  // one tick, then the end: a short run that still writes
  test::WriteFile(dir / "traj.txt", "18000000,-30.25,149.75,250,x\n18001000,-30.25,149.75,250,x\n");
  sc.AuxiliaryInputDisabled = 0;
  sc.AuxiliaryInputFile = "C:/VLD/traj.txt";
  const int before = OpenDescriptors();
  for (int run = 0; run < 1000; ++run) {
    sc.TrajectoryMode = run % 2;
    sc.TrajectoryFile = "C:/VLD/traj.txt";
    sc.ObservationOutputFile = run % 10 == 9 ? "C:/VLD/no-such-dir/run.srv" : "C:/VLD/run.srv";
    const platform::Status status = RunObservationSim(*session);
    EXPECT_EQ(status.failed(), run % 10 == 9) << run << " " << status.reason();
    EXPECT_EQ(session->RunActive.load(), 0) << run;
  }
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_FALSE(test::ReadFile(dir / "run.srv").empty());
}

// Inputs are checked before the record is opened, and an input is never an output: a
// refused run leaves an earlier record as it was.
TEST_F(RunTest, RefusedRunsLeaveTheEarlierRecordUntouched) {
  auto& sc = session->settings.scenario;
  test::CapturedMessages said;
  session->messages = said.messages;
  const std::vector<std::string>& popups = said.popups;
  ASSERT_TRUE(RunObservationSim(*session).ok());
  const std::string earlier = test::ReadFile(dir / "run.srv");
  ASSERT_FALSE(earlier.empty());
  sc.ObservationInterval = 0;
  EXPECT_TRUE(RunObservationSim(*session).failed());
  sc.ObservationInterval = 1000;
  sc.ScenarioDuration = -1;
  EXPECT_TRUE(RunObservationSim(*session).failed());
  sc.ScenarioDuration = 1;
  sc.TrajectoryMode = 0;
  sc.TrajectoryFile = "C:/VLD/run.srv";  // the record over its own trajectory file
  EXPECT_TRUE(RunObservationSim(*session).failed());
  sc.TrajectoryFile = "C:/VLD/missing.txt";
  EXPECT_TRUE(RunObservationSim(*session).failed());
  EXPECT_EQ(test::ReadFile(dir / "run.srv"), earlier);
  ASSERT_EQ(popups.size(), 4u);
  EXPECT_NE(popups[0].find("ObservationInterval"), std::string::npos);
  EXPECT_NE(popups[1].find("ScenarioDuration"), std::string::npos);
  EXPECT_NE(popups[2].find("run.srv is the trajectory file"), std::string::npos) << popups[2];
  EXPECT_NE(popups[3].find("missing.txt cannot be read"), std::string::npos) << popups[3];
  // Nothing but the record itself is left in the folder: no temporary file stays behind.
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().filename().string().find(".part"), std::string::npos) << e.path();
}

}  // namespace
}  // namespace vorel::app
