#include "observation/trajectory.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "observation/observation_fixture.h"
#include "observation/record_writers.h"
#include "platform/messages.h"
#include "platform/text_file.h"
#include "test_support.h"

namespace vorel::observation {
namespace {

using namespace vorel::observation::testing;

class TrajectoryTest : public ::testing::Test {
 protected:
  TrajectoryTest() : dir("trajectory") {}
  void SetUp() override {
    table = std::make_unique<orbits::ConstellationTable>();
    table->rows[0].recordCount = 1;
    table->rows[0].trueRecords[0] = EquatorialRecord(1, 0.3);
    args.satelliteCount = 2;
    args.startMs = 345600000;
    args.intervalMs = 1000;
    args.durationArg = 60;
    args.recordType = kRecordLog;
    ASSERT_TRUE(out.Open(dir / "run.log"));
    runActive = 1;
  }
  platform::Status Run() {
    EpochEnvironment env{*table, state, rand};
    std::unique_ptr<EpochSink> record = MakeRecordSink(args.recordType, out);
    env.sinks.push_back(record.get());
    env.sinks.insert(env.sinks.end(), moreSinks.begin(), moreSinks.end());
    platform::Status r = SimulateTrajectory(env, args, result, runActive, messages);
    EXPECT_TRUE(out.Close()) << out.error();
    return r;
  }
  std::vector<std::string> LogLines() { return test::SplitLines(test::ReadFile(dir / "run.log")); }
  void Trajectory(const std::string& text) {
    test::WriteFile(dir / "traj.txt", text);
    ASSERT_TRUE(trajectory.Open(dir / "traj.txt"));
    args.staticReceiver = 0;
    args.trajectoryFile = &trajectory;
  }

  test::ScratchDir dir;
  std::unique_ptr<orbits::ConstellationTable> table;
  EpochState state;
  platform::RandState rand;
  TrajectoryRunArgs args;
  EpochResult result;
  platform::OutputFile out;
  platform::LineReader trajectory;
  test::CapturedMessages said;
  platform::Messages& messages = said.messages;
  std::vector<std::string>& warnings = said.warnings;
  std::vector<std::string>& popups = said.popups;
  std::atomic<uint8_t> runActive{1};
  std::vector<EpochSink*> moreSinks;
};

TEST_F(TrajectoryTest, StaticRunLastsItsDurationAndSkipsTheFirstEpoch) {
  std::vector<double> progress;
  messages.progress = [&](double p) { progress.push_back(p); };
  EXPECT_TRUE(Run().ok());
  const auto lines = LogLines();
  // 61 epochs one second apart from start + 1 s; the first is not written.
  ASSERT_EQ(lines.size(), 60u);
  EXPECT_EQ(lines.front(), "# 345602000");
  EXPECT_EQ(lines.back(), "# 345661000");
  ASSERT_EQ(progress.size(), 7u);  // six ticks, then the reset to 0
  EXPECT_NEAR(progress[0], 1000.0 / 60, 1e-12);
  EXPECT_EQ(progress.back(), 0.0);
}

TEST_F(TrajectoryTest, StopTakesEffectAfterTheEpochInProgress) {
  messages.progress = [&](double p) {
    if (p > 0) runActive = 0;
  };
  EXPECT_TRUE(Run().stopped());
  EXPECT_EQ(LogLines().size(), 10u);  // epochs 1..11, the 11th carries the first tick
  runActive = 0;
  ASSERT_TRUE(out.Open(dir / "run.log"));
  EXPECT_TRUE(Run().stopped());
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(TrajectoryTest, OneLineTrajectoryGivesTwoEpochsAtTheSameTimeAndPlace) {
  Trajectory("345700000,0.0,0.0,10.0,x\n");
  EXPECT_TRUE(Run().ok());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"# 345700000"}));
  EXPECT_TRUE(warnings.empty());
}

TEST_F(TrajectoryTest, SinksSeeTheRunStartAndEveryEpochTheFirstUnwritten) {
  struct Recorder : EpochSink {
    int starts = 0;
    std::vector<std::pair<int32_t, bool>> epochs;
    void OnRunStart() override { ++starts; }
    void OnEpoch(const EpochResult& r, const EpochContext& c) override {
      epochs.emplace_back(r.timeMs, c.written);
    }
  } recorder;
  moreSinks.push_back(&recorder);
  Trajectory("1000,0,0,0,x\n2000,0,0,0,x\n");
  EXPECT_TRUE(Run().ok());
  EXPECT_EQ(recorder.starts, 1);
  using E = std::pair<int32_t, bool>;
  EXPECT_EQ(recorder.epochs, (std::vector<E>{{1000, false}, {2000, true}, {2000, true}}));
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"# 2000", "# 2000"}));
}

// A receiver that stays put passes over satellites well below the mask until they could
// have risen to it; one that moves (here along a file that never leaves the spot) works
// every satellite out at every epoch. Both must see a rising and a setting satellite cross
// the mask at the same epoch, with the same ranges throughout.
TEST_F(TrajectoryTest, StaticRunSeesSatellitesCrossTheMaskWhereAMovingOneDoes) {
  struct Recorder : EpochSink {
    std::vector<std::string> epochs;
    void OnEpoch(const EpochResult& r, const EpochContext& c) override {
      if (!c.written) return;
      std::string line = std::to_string(r.timeMs);
      for (int k = 0; k < r.channelCount; ++k)
        line += fmt::format(" {}:{:.17g}", r.channels[k].prn, r.channels[k].codeRange);
      epochs.push_back(line);
    }
  };
  // Earth-fixed angles at the start: rising from 80 degrees before overhead (below the
  // horizon), setting from 60 degrees past it, and on the far side of the Earth; an hour
  // turns them by 15 degrees, and the 10-degree mask lies at 66.8 degrees.
  const double turn = 3600.0 * (std::sqrt(398600500000000.0 / std::pow(kSqrtA, 6)) - 7.2921151467e-05);
  const double starts[] = {-80.0, 60.0, 180.0};
  for (int i = 0; i < 3; ++i) {
    table->rows[i].recordCount = 1;
    table->rows[i].trueRecords[0] = EquatorialRecord(i + 1, starts[i] * kDegToRad + turn);
  }
  args.satelliteCount = 3;
  args.elevationMask = 10.0 * kDegToRad;
  args.durationArg = 3600;
  args.recordType = kRecordScn;
  Recorder fixed;
  moreSinks = {&fixed};
  ASSERT_TRUE(Run().ok());

  std::string lines;
  for (int k = 0; k <= 3601; ++k) lines += fmt::format("{},0,0,0,x\n", 345600000 + k * 1000);
  Trajectory(lines);
  Recorder moving;
  moreSinks = {&moving};
  ASSERT_TRUE(out.Open(dir / "moving.scn"));
  state = EpochState{};
  ASSERT_TRUE(Run().ok());

  // Every epoch of the fixed run stands in the moving one, alike (the moving run writes its
  // first line's epoch twice and ends by its own rule).
  ASSERT_GT(fixed.epochs.size(), 3000u);
  size_t compared = 0;
  for (const std::string& line : fixed.epochs) {
    const std::string time = line.substr(0, line.find(' '));
    const auto same = std::find_if(moving.epochs.begin(), moving.epochs.end(), [&](const std::string& m) {
      return m.compare(0, time.size() + 1, time + " ") == 0 || m == time;
    });
    if (same == moving.epochs.end()) continue;
    EXPECT_EQ(*same, line);
    ++compared;
  }
  EXPECT_GT(compared, 3000u);
  const auto channels = [](const std::string& line) { return std::count(line.begin(), line.end(), ':'); };
  EXPECT_EQ(channels(fixed.epochs.front()), 1);  // the setting satellite only
  EXPECT_EQ(channels(fixed.epochs.back()), 1);   // the rising one only
}

TEST_F(TrajectoryTest, EmptyLineEndsTheRunLikeTheEndOfTheFile) {
  Trajectory("1000,0,0,0,x\n2000,0,0,0,x\n\n4000,0,0,0,x\n");
  EXPECT_TRUE(Run().ok());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"# 2000", "# 2000"}));
  ASSERT_EQ(warnings.size(), 1u);  // but not silently
  EXPECT_NE(warnings[0].find("traj.txt, line 3 is empty"), std::string::npos) << warnings[0];
}

TEST_F(TrajectoryTest, SpeedLimitBitesAtTheTickLine) {
  // 600 m/s east along the equator: 6 km between the first line and the eleventh.
  std::string text;
  for (int i = 0; i < 30; ++i)
    text += fmt::format("{},0.0,{:.9f},0.0,x\n", 1000 * (i + 1), i * 600.0 / 111319.49);
  Trajectory(text);
  EXPECT_TRUE(Run().failed());
  EXPECT_EQ(popups, (std::vector<std::string>{"Error message: Velocity exceeds maximum"}));
  EXPECT_EQ(LogLines().size(), 9u);  // lines 1..10 ran; the 11th failed before its epoch
}

TEST_F(TrajectoryTest, AltitudeLimitIsTestedOnTheTickLineOnly) {
  std::string text = "1000,0,0,20000,x\n";  // accepted: no test on the first line
  for (int i = 2; i <= 10; ++i) text += fmt::format("{},0,0,100,x\n", 1000 * i);
  text += "11000,0,0,18000.5,x\n12000,0,0,0,x\n";
  Trajectory(text);
  EXPECT_TRUE(Run().failed());
  EXPECT_EQ(popups, (std::vector<std::string>{"Error message: Altitude exceeds maximum"}));
}

TEST_F(TrajectoryTest, BadLinesKeepThePreviousValuesAndAreReportedOnce) {
  Trajectory("1000,0,0,0,x\nbad line\n3000,0,0,0,x\nworse\n");
  EXPECT_TRUE(Run().ok());
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"# 1000", "# 3000", "# 3000", "# 3000"}));
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("traj.txt, line 2"), std::string::npos) << warnings[0];
}

TEST_F(TrajectoryTest, RefusedRuns) {
  args.intervalMs = 0;
  EXPECT_TRUE(Run().failed());
  ASSERT_EQ(popups.size(), 1u);
  EXPECT_NE(popups[0].find("ObservationInterval"), std::string::npos);
  args.intervalMs = 1000;
  args.tropoEnabled = 1;  // no model in this environment
  ASSERT_TRUE(out.Open(dir / "run.log"));
  EXPECT_TRUE(Run().failed());
  EXPECT_NE(popups.back().find("troposphere"), std::string::npos);
  args.tropoEnabled = 0;
  args.durationArg = -1;  // a static run that would never end
  ASSERT_TRUE(out.Open(dir / "run.log"));
  EXPECT_TRUE(Run().failed());
  EXPECT_NE(popups.back().find("ScenarioDuration must not be negative"), std::string::npos);
  // 35000 minutes from Wednesday 0 h pass 2^31 ms: refused, never computed.
  args.durationArg = 35000 * 60;
  EXPECT_NE(CheckRunArgs(args).find("too long"), std::string::npos);
  args.durationArg = 60;
  args.staticReceiver = 0;
  platform::LineReader missing(dir / "nowhere.txt");
  args.trajectoryFile = &missing;
  ASSERT_TRUE(out.Open(dir / "run.log"));
  EXPECT_TRUE(Run().failed());
  EXPECT_NE(popups.back().find("nowhere.txt cannot be read"), std::string::npos);
  EXPECT_TRUE(LogLines().empty());
}

// Intervals above 10 s have no progress tick: the run ends once ScenarioDuration has
// passed. The end the refusal check predicts is the end the loop reaches.
TEST_F(TrajectoryTest, EveryStaticRunEndsWhereItsEndIsPredicted) {
  args.intervalMs = 30000;
  args.durationArg = 300;  // five minutes: ten epochs 30 s apart
  EXPECT_TRUE(Run().ok());
  auto lines = LogLines();
  ASSERT_EQ(lines.size(), 9u);  // the first epoch is not written
  EXPECT_EQ(lines.front(), "# 345660000");
  EXPECT_EQ(lines.back(), "# 345900000");
  EXPECT_EQ(StaticRunEndMs(args), 345900000);
  for (int32_t interval : {1000, 3000, 7000, 10000, 25000}) {
    args.intervalMs = interval;
    args.durationArg = 120;
    ASSERT_TRUE(out.Open(dir / "run.log"));
    EXPECT_TRUE(Run().ok());
    lines = LogLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), fmt::format("# {}", StaticRunEndMs(args))) << interval;
  }
}

TEST(EventLines, ScanInTheOrderOfTheHeader) {
  ChannelEvent e;
  EXPECT_EQ(ScanEventLine("2000,7,1,1,5.5,0,1,0.25,9000,0,0,0,1,3,0,0,0,0,1,1.5D-01,8000", e), 21);
  EXPECT_EQ(e.eventEpoch, 2000.0);
  EXPECT_EQ(e.prn, 7);
  EXPECT_EQ(e.active, 1);
  EXPECT_EQ(e.steps[0].size, 5.5);
  EXPECT_EQ(e.steps[1].finishEpoch, 9000.0);
  EXPECT_EQ(e.steps[3].enabled, 1);
  EXPECT_EQ(e.steps[5].size, 0.15);
  EXPECT_EQ(e.steps[5].finishEpoch, 8000.0);
}

}  // namespace
}  // namespace vorel::observation
