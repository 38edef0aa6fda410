// The receiver profile's departures inside the observation room: the message's clock and
// the troposphere in the ranges, and the RINEX file whose header tells the run.
#include <functional>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "observation/epoch.h"
#include "observation/observation_fixture.h"
#include "observation/record_writers.h"
#include "platform/text_file.h"
#include "test_support.h"

namespace vorel::observation {
namespace {

using namespace vorel::observation::testing;

class ReceiverRanges : public ::testing::Test {
 protected:
  void SetUp() override {
    table = std::make_unique<orbits::ConstellationTable>();
    for (int i = 0; i < 2; ++i) {
      table->rows[i].recordCount = 1;
      table->rows[i].trueRecords[0] = EquatorialRecord(i + 1, i == 0 ? 0.5 : -0.7);
    }
    table->rows[0].trueRecords[0].af0 = 1e-4;
    args.satelliteCount = 2;
    args.elevationMask = 10.0 * kDegToRad;
    args.intervalMs = 1000;
  }
  // A fresh program start's first epoch, so that the atmosphere is worked out.
  const EpochResult& Run() {
    EpochState state;
    platform::RandState rand;
    EpochLoop loop = EquatorLoop(2);
    EpochEnvironment env{*table, state, rand, &fixed};
    result.timeMs = 345600000;
    ComputeEpoch(env, args, loop, result, 0.0, 0.0, 0.0, result.timeMs);
    return result;
  }

  std::unique_ptr<orbits::ConstellationTable> table;
  FixedAtmosphere fixed;  // ionosphere 5 m, troposphere 2.5 m
  TrajectoryRunArgs args;
  EpochResult result;
};

TEST_F(ReceiverRanges, TroposphereDelaysCodeAndCarrierAlikeByTheModelsValue) {
  args.ionoEnabled = 1;
  args.ionoModel = 1;
  args.tropoEnabled = 1;
  const double c = 299792458.0;
  Run();
  // Left out by default: the ionosphere alone, with opposite signs.
  const EpochChannel east = result.channels[0];
  EXPECT_NEAR(east.codeRange, east.geometricRange - 1e-4 * c + 5.0, 1e-6);
  EXPECT_NEAR(east.carrierRange, east.geometricRange - 1e-4 * c - 5.0, 1e-6);

  args.troposphereInRanges = 1;
  Run();
  for (const EpochChannel& ch : {result.channels[0], result.channels[1]}) {
    const double clock = ch.prn == 1 ? 1e-4 * c : 0.0;
    EXPECT_NEAR(ch.codeRange, ch.geometricRange - clock + 5.0 + 2.5, 1e-6) << ch.prn;
    EXPECT_NEAR(ch.carrierRange, ch.geometricRange - clock - 5.0 + 2.5, 1e-6) << ch.prn;
    EXPECT_DOUBLE_EQ(ch.carrierCycles, ch.carrierRange / (c / 1575420000.0));
  }
  // Without the troposphere model switched on there is nothing to add.
  args.tropoEnabled = 0;
  Run();
  EXPECT_NEAR(result.channels[1].codeRange, result.channels[1].geometricRange + 5.0, 1e-6);
}

TEST_F(ReceiverRanges, MessageClockTakesTheNavigationFilesTgdOff) {
  // Circular orbits: the relativistic term is 0 and TGD alone separates the two clocks.
  table->rows[0].trueRecords[0].fileTgd = -2e-8;
  table->rows[0].trueRecords[0].tgd = 5e-8;  // the program's own field plays no part
  const double c = 299792458.0;
  Run();
  EXPECT_NEAR(result.channels[0].codeRange, result.channels[0].geometricRange - 1e-4 * c, 1e-6);
  args.satClockFromMessage = 1;
  Run();
  EXPECT_NEAR(result.channels[0].codeRange,
              result.channels[0].geometricRange - (1e-4 + 2e-8) * c, 1e-6);
  EXPECT_EQ(result.channels[1].codeRange, result.channels[1].geometricRange);
}

std::string WrittenRun(const std::function<void(EpochSink&)>& feed) {
  test::ScratchDir dir("rinex-run-header");
  platform::OutputFile file;
  EXPECT_TRUE(file.Open(dir / "x.10O"));
  RinexRunHeader predicted;
  predicted.marker = "MUNI";
  predicted.approxEcef = {1.0, 2.0, 3.0};
  predicted.intervalMs = 1000;
  predicted.gpsWeek = 1590;
  predicted.firstTimeMs = 345602000;
  {
    auto sink = MakeRinexRunSink(file, predicted);
    feed(*sink);
  }
  EXPECT_TRUE(file.Close());
  return test::ReadFile(dir / "x.10O");
}

EpochResult OneSatellite(int32_t timeMs) {
  EpochResult r;
  r.gpsWeek = 1590;
  r.timeMs = timeMs;
  r.channelCount = 1;
  EpochChannel& a = r.channels[0];
  a.prn = 7;
  a.codeRange = 21000000.1234;
  a.carrierCycles = 110356789.5;
  a.doppler = -3.4775912;  // thousandths of a hertz, as the epoch computes it
  a.signalLevel = 31.0;
  a.valid = 1;
  return r;
}

TEST(RinexRunHeader, TellsTheFirstEpochWithObservationsAndWritesD1InHz) {
  const std::string text = WrittenRun([](EpochSink& sink) {
    EpochContext context;
    context.receiverEcef = {4180626.8075, 858159.4399, 4724696.3073};
    EpochResult empty;
    empty.gpsWeek = 1590;
    empty.timeMs = 349201000;
    sink.OnEpoch(empty, context);  // the run's first epoch: not written
    context.written = true;
    sink.OnEpoch(empty, context);  // written, but without observations
    // 1 July 2010 is the Thursday of GPS week 1590: 4 days and 3602 s into the week.
    sink.OnEpoch(OneSatellite(4 * 86400000 + 3602000), context);
    sink.OnRunEnd();
  });
  const std::vector<std::string> lines = test::SplitLines(text);
  ASSERT_EQ(lines.size(), 15u) << text;
  auto data = [&](size_t i) { return lines[i].substr(0, 60); };
  auto label = [&](size_t i) { return lines[i].substr(60); };
  for (size_t i = 0; i < 13; ++i) EXPECT_EQ(lines[i].size(), 80u) << lines[i];
  EXPECT_EQ(label(0), "RINEX VERSION / TYPE");
  EXPECT_EQ(data(0).substr(0, 9), "     2.11");
  EXPECT_EQ(data(0)[20], 'O');
  EXPECT_EQ(data(0)[40], 'G');
  EXPECT_EQ(lines[2], fmt::format("{:<60}{:<20}", "MUNI", "MARKER NAME"));
  EXPECT_EQ(lines[6], fmt::format("{:<60}{:<20}", "  4180626.8075   858159.4399  4724696.3073",
                                  "APPROX POSITION XYZ"));
  EXPECT_EQ(data(9), fmt::format("{:<60}", "     3    C1    L1    D1"));
  EXPECT_EQ(label(9), "# / TYPES OF OBSERV ");
  EXPECT_EQ(data(10), fmt::format("{:<60}", "     1.000"));
  EXPECT_EQ(label(10), "INTERVAL            ");
  EXPECT_EQ(data(11), fmt::format("{:<60}", "  2010     7     1     1     0    2.0000000     GPS"));
  EXPECT_EQ(label(11), "TIME OF FIRST OBS   ");
  EXPECT_EQ(label(12), "END OF HEADER       ");
  EXPECT_EQ(lines[13], " 10 07 01 01 00  2.0000000  0  1G 7");
  EXPECT_EQ(lines[14], "  21000000.123   110356789.500 6     -3477.591  ");
}

TEST(RinexRunHeader, ARunWithoutObservationsStillEndsWithTheHeader) {
  const std::string text = WrittenRun([](EpochSink& sink) { sink.OnRunEnd(); });
  const std::vector<std::string> lines = test::SplitLines(text);
  ASSERT_EQ(lines.size(), 13u) << text;
  EXPECT_EQ(lines[6].substr(0, 42), "        1.0000        2.0000        3.0000");
  // Week 1590, 345602 s: Thursday 00:00:02.
  EXPECT_EQ(lines[11].substr(0, 51), "  2010     7     1     0     0    2.0000000     GPS");
}

}  // namespace
}  // namespace vorel::observation
