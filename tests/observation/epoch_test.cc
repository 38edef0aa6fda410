#include "observation/epoch.h"

#include <cmath>

#include <gtest/gtest.h>

#include "observation/epoch_sink.h"
#include "observation/observation_fixture.h"

namespace vorel::observation {
namespace {

using namespace vorel::observation::testing;

class EpochTest : public ::testing::Test {
 protected:
  void SetUp() override {
    table = std::make_unique<orbits::ConstellationTable>();
    Place(0, 0.5);    // PRN 1: 28.6 degrees east of the zenith
    Place(1, -0.7);   // PRN 2: to the west
    Place(2, 2.0);    // PRN 3: below the horizon
    Place(3, 0.1);    // PRN 4: unhealthy
    table->rows[3].trueRecords[0].status = 1;
    table->rows[0].trueRecords[0].af0 = 1e-4;
    args.satelliteCount = 5;  // row 4 is empty: status 0
    args.elevationMask = 10.0 * kDegToRad;
    args.recordType = kRecordScn;
    args.intervalMs = 1000;
    loop = EquatorLoop(5);
  }
  void Place(int index, double angle) {
    table->rows[index].recordCount = 1;
    table->rows[index].trueRecords[0] = EquatorialRecord(index + 1, angle);
  }
  EpochContext Run(int32_t timeMs) {
    EpochEnvironment env{*table, state, rand, atmosphere};
    result.timeMs = timeMs;
    return ComputeEpoch(env, args, loop, result, 0.0, 0.0, 0.0, timeMs);
  }

  std::unique_ptr<orbits::ConstellationTable> table;
  EpochState state;
  platform::RandState rand;
  AtmosphereModels* atmosphere = nullptr;
  TrajectoryRunArgs args;
  EpochLoop loop;
  EpochResult result;
};

TEST_F(EpochTest, RangesAnglesAndClockAgreeWithPlaneGeometry) {
  const int32_t timeMs = 345600000;
  const double t = 345600.0;
  EXPECT_FALSE(Run(timeMs).written);
  ASSERT_EQ(result.channelCount, 2);
  const EpochChannel& east = result.channels[0];
  const EpochChannel& west = result.channels[1];
  EXPECT_EQ(east.prn, 1);
  EXPECT_EQ(west.prn, 2);
  EXPECT_NEAR(east.geometricRange, PlaneRange(0.5, t), 1e-4);
  EXPECT_NEAR(west.geometricRange, PlaneRange(-0.7, t), 1e-4);
  // Angles come from the first light-time pass (0.07004845999161192 s of travel).
  EXPECT_NEAR(east.elevation, PlaneElevation(0.5, t, 0.07004845999161192), 1e-9);
  EXPECT_NEAR(east.azimuth, M_PI / 2, 1e-9);
  EXPECT_NEAR(west.azimuth, -M_PI / 2, 1e-9);
  // Only the clock separates code from geometry; without atmosphere code equals carrier.
  EXPECT_NEAR(east.codeRange, east.geometricRange - 1e-4 * 299792458.0, 1e-6);
  EXPECT_EQ(east.codeRange, east.carrierRange);
  EXPECT_EQ(west.codeRange, west.geometricRange);
  EXPECT_DOUBLE_EQ(east.carrierCycles, east.carrierRange / loop.wavelength);
  EXPECT_EQ(east.signalLevel, 31.0);
  EXPECT_EQ(east.doppler, 0.0);  // no previous code yet
  // Display rows: unhealthy and below-horizon satellites are not visible.
  const auto& rows = state.displayRows;
  EXPECT_EQ(rows[0].visible, 1);
  EXPECT_EQ(rows[2].visible, 0);
  EXPECT_LT(rows[2].elevation, 0.0);
  EXPECT_EQ(rows[3].visible, 0);
  EXPECT_EQ(rows[3].status, 1);
  EXPECT_EQ(rows[4].status, 0);
}

TEST_F(EpochTest, DopplerComesFromTheCodeDifferenceAndSurvivesAGap) {
  Run(345600000);
  const double first = result.channels[0].codeRange;
  Run(345601000);
  const double second = result.channels[0].codeRange;
  EXPECT_DOUBLE_EQ(result.channels[0].doppler,
                   -1575420000.0 * (second - first) / 1000.0 / 299792458.0);
  // PRN 1 rising ~ 3.9 km/s of range rate magnitude at most: the value is Hz/1000.
  EXPECT_LT(std::fabs(result.channels[0].doppler), 25.0);
  // Below the mask the old code is kept: on return the difference spans the gap.
  args.elevationMask = M_PI / 2;
  Run(345602000);
  EXPECT_EQ(result.channelCount, 0);
  EXPECT_EQ(loop.previousCode[0], second);
}

TEST_F(EpochTest, FirstEpochIsComputedButNotWritten) {
  const EpochContext first = Run(1000);
  EXPECT_EQ(result.channelCount, 2);
  EXPECT_FALSE(first.written);
  EXPECT_EQ(loop.firstEpochDone, 1);
  const EpochContext second = Run(2000);
  EXPECT_TRUE(second.written);
  EXPECT_FALSE(second.displayTick);
  EXPECT_EQ(second.rows, &state.displayRows);
}

TEST_F(EpochTest, AtmosphereIsEvaluatedOncePerProgramStartAndHeldInTheRunCache) {
  FixedAtmosphere fixed;
  atmosphere = &fixed;
  args.ionoEnabled = 1;
  args.ionoModel = 1;
  args.tropoEnabled = 1;
  Run(1000);
  EXPECT_EQ(fixed.ionoCalls, 2);
  EXPECT_EQ(fixed.tropoCalls, 2);
  EXPECT_NEAR(fixed.lastElevationDeg, result.channels[1].elevation * 57.32484, 1e-12);
  for (int c = 0; c < 2; ++c)
    EXPECT_NEAR(result.channels[c].codeRange - result.channels[c].carrierRange, 10.0, 1e-6);
  EXPECT_EQ(loop.cache[0].tropoDelay, 2.5);
  Run(2000);  // held: read back from the cache
  EXPECT_EQ(fixed.ionoCalls, 2);
  EXPECT_NEAR(result.channels[0].codeRange - result.channels[0].carrierRange, 10.0, 1e-6);
  // A second run of the same program start has a zeroed cache: no delay at all.
  loop = EquatorLoop(5);
  Run(3000);
  EXPECT_EQ(result.channels[0].codeRange, result.channels[0].carrierRange);
  EXPECT_EQ(fixed.ionoCalls, 2);
}

TEST_F(EpochTest, CounterCyclesThroughTheMapUpdate) {
  struct CountingDisplay : EpochDisplay {
    std::vector<int32_t> updates;  // lateInRun of each update
    void UpdateMapScene(double, double, const std::vector<DisplayRow>&, int32_t late) override {
      updates.push_back(late);
    }
  } display;
  DisplaySink sink(display);
  args.satelliteCount = 0;
  EpochEnvironment env{*table, state, rand};
  std::vector<int> at;
  for (int i = 1; i <= 2001; ++i) {
    if (i == 2000) loop.lateInRun = 1;
    const size_t before = display.updates.size();
    sink.OnEpoch(result, ComputeEpoch(env, args, loop, result, 0, 0, 0, i));
    if (display.updates.size() != before) at.push_back(i);
  }
  // The counter restarts at 1, never 0: first update at the 1001st epoch after program
  // start, then each time the counter climbs from 1 back to 1000.
  EXPECT_EQ(at, (std::vector<int>{1001, 2001}));
  EXPECT_EQ(display.updates, (std::vector<int32_t>{0, 1}));
  EXPECT_EQ(state.AtmosphereEpochCounter, 1);
}

TEST_F(EpochTest, NoiseDrawsAdvanceTheRunTimeRandFourTimesPerListedSatellite) {
  Run(1000);
  platform::RandState expected;
  for (int i = 0; i < 4; ++i) platform::CrtRand(expected);
  EXPECT_EQ(rand.state, expected.state);
}

TEST_F(EpochTest, ZeroCarrierFrequencyGivesZeroCyclesAndDoppler) {
  args.carrierFrequency = 0.0;
  loop.wavelength = 299792458.0 / 0.0;
  Run(1000);
  Run(2000);
  EXPECT_EQ(result.channels[0].carrierCycles, 0.0);
  EXPECT_EQ(result.channels[0].doppler, 0.0);
}

}  // namespace
}  // namespace vorel::observation
