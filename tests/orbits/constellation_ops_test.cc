#include "orbits/constellation_ops.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "orbits/satellite_position.h"

namespace vorel::orbits {
namespace {

constexpr double kPi = 3.14159265358979323846;
double Degrees(double d) { return d * kPi / 180.0; }

// A record whose every field differs from every other, so a mix-up shows: toc is base + 1,
// then af0 af1 af2 Cuc Cus Crc Crs Cic Cis toe M0 deltaN e sqrtA Omega0 i0 omega OmegaDot
// IDOT count on to base + 20.
OrbitRecord DistinctRecord(double base) {
  static constexpr double OrbitRecord::*kFields[] = {
      &OrbitRecord::toc,    &OrbitRecord::af0,   &OrbitRecord::af1,      &OrbitRecord::af2,
      &OrbitRecord::Cuc,    &OrbitRecord::Cus,   &OrbitRecord::Crc,      &OrbitRecord::Crs,
      &OrbitRecord::Cic,    &OrbitRecord::Cis,   &OrbitRecord::toe,      &OrbitRecord::M0,
      &OrbitRecord::deltaN, &OrbitRecord::e,     &OrbitRecord::sqrtA,    &OrbitRecord::Omega0,
      &OrbitRecord::i0,     &OrbitRecord::omega, &OrbitRecord::OmegaDot, &OrbitRecord::IDOT};
  OrbitRecord r{.week = 1590};
  for (size_t i = 0; i < std::size(kFields); ++i) r.*kFields[i] = base + 1 + i;
  return r;
}

class ConstellationOpsTest : public ::testing::Test {
 protected:
  std::unique_ptr<ConstellationTable> table = std::make_unique<ConstellationTable>();
  ConstellationState state;
};

TEST_F(ConstellationOpsTest, ShowFillsWeekButNotIdotAndTakesHealthFromBroadcastSet) {
  SatelliteOrbits& row = table->rows[4];
  row.recordCount = 3;
  row.trueRecords[2] = DistinctRecord(100);
  row.broadcastRecords[2] = DistinctRecord(200);
  row.trueRecords[2].status = 7;  // only the true record is usable
  state.panel.selectedPrn = 5;
  state.panel.selectedRecord = 2;
  state.panel.trueSet.keplerian[10] = -1.0;  // the IDOT cell holds something else
  state.panel.healthy = true;

  ASSERT_EQ(ShowOrbitRecord(*table, 32, state.panel), 0);
  const OrbitPanelSet& t = state.panel.trueSet;
  const double expectedKeplerian[10] = {111, 1590, 112, 113, 114, 115, 116, 117, 118, 119};
  for (int i = 0; i < 10; ++i) EXPECT_EQ(t.keplerian[i], expectedKeplerian[i]) << "row " << i + 1;
  EXPECT_EQ(t.keplerian[10], -1.0);  // row 11 is not shown
  EXPECT_EQ(state.panel.broadcastSet.keplerian[2], 212.0);
  EXPECT_EQ(t.harmonic, (std::array<double, 6>{105, 106, 107, 108, 109, 110}));
  EXPECT_EQ(t.clock, (std::array<double, 3>{101, 102, 103}));  // no af2 row
  EXPECT_EQ(state.panel.broadcastSet.clock[1], 202.0);
  EXPECT_FALSE(state.panel.healthy);
}

TEST_F(ConstellationOpsTest, ApplyTakesIdotButNotWeekAndNeverLowersStatus) {
  SatelliteOrbits& row = table->rows[0];
  row.recordCount = 1;
  row.trueRecords[0] = DistinctRecord(100);
  row.broadcastRecords[0] = DistinctRecord(200);
  row.trueRecords[0].status = 7;
  row.broadcastRecords[0].status = 7;
  state.panel.selectedPrn = 1;
  state.panel.selectedRecord = 0;
  state.panel.trueSet.keplerian[10] = 0.5;  // whatever the IDOT cell holds
  ShowOrbitRecord(*table, 32, state.panel);
  state.panel.trueSet.keplerian[1] = 2000;  // week edited on the panel: display only
  state.panel.broadcastSet.clock[2] = -3.0;
  state.panel.healthy = false;

  EXPECT_EQ(ApplyOrbitPanel(*table, 32, state.panel), 1);
  EXPECT_EQ(row.trueRecords[0].week, 1590);
  // The IDOT read from a file does not survive the first apply.
  EXPECT_EQ(row.trueRecords[0].IDOT, 0.5);
  EXPECT_EQ(row.broadcastRecords[0].af1, -3.0);
  EXPECT_EQ(row.broadcastRecords[0].af2, 204.0);  // af2 has no row
  EXPECT_EQ(row.trueRecords[0].M0, 112.0);
  EXPECT_EQ(row.trueRecords[0].status, 7);
  EXPECT_EQ(row.broadcastRecords[0].status, 7);

  // Healthy on raises an unusable record in both sets.
  row.trueRecords[0].status = 0;
  row.broadcastRecords[0].status = 1;
  state.panel.healthy = true;
  ApplyOrbitPanel(*table, 32, state.panel);
  EXPECT_EQ(row.trueRecords[0].status, 7);
  EXPECT_EQ(row.broadcastRecords[0].status, 7);
}

TEST_F(ConstellationOpsTest, PrnSelectorIsHeldToSatelliteCountAndIndicesToTheTable) {
  SetSignalSystem(6, state);  // three satellites
  state.panel.selectedPrn = 30;
  EXPECT_EQ(ShowOrbitRecord(*table, state.satelliteCount, state.panel), 0);
  EXPECT_EQ(state.panel.selectedPrn, 3);

  // A record index beyond the row is refused without touching anything.
  state.panel.selectedRecord = 28;
  state.panel.trueSet.keplerian[0] = 42.0;
  EXPECT_EQ(ShowOrbitRecord(*table, 32, state.panel), -1);
  EXPECT_EQ(state.panel.trueSet.keplerian[0], 42.0);
  EXPECT_EQ(ApplyOrbitPanel(*table, 32, state.panel), 1);
  state.panel.selectedRecord = -1;
  EXPECT_EQ(ApplyOrbitPanel(*table, 32, state.panel), 1);
  for (const SatelliteOrbits& row : table->rows) EXPECT_EQ(row.trueRecords[27].toe, 0.0);

  // Selector values without a system leave no PRN to pick; the panel stays on PRN 1.
  SetSignalSystem(8, state);
  EXPECT_EQ(state.satelliteCount, 0);
  state.panel.selectedRecord = 0;
  EXPECT_EQ(ShowOrbitRecord(*table, state.satelliteCount, state.panel), 0);
  EXPECT_EQ(state.panel.selectedPrn, 1);
}

TEST_F(ConstellationOpsTest, BulkClearsActOnOneSetAndOnlyOnStoredRecords) {
  for (int index : {0, 31, 32}) {
    SatelliteOrbits& row = table->rows[index];
    row.recordCount = 2;
    for (int k = 0; k < 3; ++k) {
      row.trueRecords[k] = DistinctRecord(100 + k);
      row.broadcastRecords[k] = DistinctRecord(200 + k);
    }
  }
  ClearBroadcastClocks(*table, state);
  const SatelliteOrbits& first = table->rows[0];
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(first.broadcastRecords[k].af0, 0.0);
    EXPECT_EQ(first.broadcastRecords[k].af1, 0.0);
    EXPECT_EQ(first.broadcastRecords[k].af2, 0.0);  // cleared although no row shows it
    EXPECT_EQ(first.broadcastRecords[k].toc, 201.0 + k);
    EXPECT_EQ(first.trueRecords[k].af2, 104.0 + k);  // true set unchanged
  }
  EXPECT_EQ(first.broadcastRecords[2].af0, 204.0);            // beyond recordCount
  EXPECT_EQ(table->rows[31].broadcastRecords[1].af0, 0.0);    // PRN 32 is walked
  EXPECT_EQ(table->rows[32].broadcastRecords[0].af0, 202.0);  // PRN 33 is not

  ClearTrueHarmonics(*table, state);
  EXPECT_EQ(first.trueRecords[1].Cuc, 0.0);
  EXPECT_EQ(first.trueRecords[1].Cis, 0.0);
  EXPECT_EQ(first.broadcastRecords[1].Cuc, 206.0);

  ClearTrueClocks(*table, state);
  EXPECT_EQ(first.trueRecords[0].af2, 0.0);
  ClearBroadcastHarmonics(*table, state);
  EXPECT_EQ(first.broadcastRecords[0].Crs, 0.0);
  EXPECT_EQ(first.broadcastRecords[0].toe, 211.0);

  // Each clear ends by showing the panel's record.
  EXPECT_EQ(state.panel.broadcastSet.harmonic[3], 0.0);
  EXPECT_EQ(state.panel.trueSet.keplerian[0], 111.0);
}

TEST_F(ConstellationOpsTest, GalileoFillsTrueRecordZeroInThreePlanes) {
  // Earlier content that the loader must leave alone.
  for (SatelliteOrbits& row : table->rows) {
    row.recordCount = 3;
    row.trueRecords[0] = DistinctRecord(100);
    row.trueRecords[0].M0 = 0.0;
    row.trueRecords[0].status = 7;
    row.broadcastRecords[0] = DistinctRecord(200);
  }
  state.OrbitsValid = true;
  EXPECT_EQ(LoadGalileo(*table, state), 0);
  EXPECT_FALSE(state.OrbitsValid);
  EXPECT_TRUE(state.galileoLoaded);

  for (int prn = 1; prn <= 30; ++prn) {
    const SatelliteOrbits& row = table->rows[prn - 1];
    const OrbitRecord& r = row.trueRecords[0];
    EXPECT_EQ(r.status, 7);
    EXPECT_EQ(r.prn, prn);
    EXPECT_NEAR(r.sqrtA * r.sqrtA, 29600000.0, 1e-6);
    EXPECT_NEAR(r.i0, Degrees(56), 1e-12);
    EXPECT_EQ(r.e, 0.0);
    EXPECT_EQ(r.toe, 0.0);
    EXPECT_EQ(r.af1, 0.0);
    // Planes at 0, 120 and 240 degrees; the spares 28 and 29 in the second, 30 in the third.
    const double plane = prn <= 9 ? 0 : prn <= 18 ? 120 : prn <= 27 ? 240 : prn == 30 ? 240 : 120;
    EXPECT_NEAR(r.Omega0, Degrees(plane), 1e-12) << prn;
    // Untouched: week, deltaN, IDOT, af2, harmonics, the count and the broadcast set.
    EXPECT_EQ(r.week, 1590);
    EXPECT_EQ(r.deltaN, 113.0);
    EXPECT_EQ(r.IDOT, 120.0);
    EXPECT_EQ(r.af2, 104.0);
    EXPECT_EQ(r.Crs, 108.0);
    EXPECT_EQ(row.recordCount, 3);
    EXPECT_EQ(row.broadcastRecords[0].sqrtA, 215.0);
  }
  // Mean anomaly: 40 degrees apart, the planes 13.33 and 26.66 degrees ahead.
  for (int slot = 0; slot < 9; ++slot) {
    if (slot == 4 || slot == 7) continue;  // PRN 5 and 8 get none
    EXPECT_NEAR(table->rows[slot].trueRecords[0].M0, Degrees(40 * slot), 1e-12);
    EXPECT_NEAR(table->rows[9 + slot].trueRecords[0].M0, Degrees(13.33 + 40 * slot), 1e-12);
    EXPECT_NEAR(table->rows[18 + slot].trueRecords[0].M0, Degrees(26.66 + 40 * slot), 1e-12);
  }
  for (int prn : {28, 29, 30})
    EXPECT_NEAR(table->rows[prn - 1].trueRecords[0].M0, Degrees(20), 1e-12);
  for (int prn = 31; prn <= 36; ++prn) EXPECT_EQ(table->rows[prn - 1].trueRecords[0].status, 0);
  EXPECT_EQ(table->rows[36].trueRecords[0].status, 7);  // beyond PRN 36: not touched
}

TEST_F(ConstellationOpsTest, GalileoLeavesPrn5And8AtTheirOldMeanAnomaly) {
  table->rows[4].trueRecords[0].M0 = 1.25;
  LoadGalileo(*table, state);
  EXPECT_EQ(table->rows[4].trueRecords[0].M0, 1.25);
  EXPECT_EQ(table->rows[7].trueRecords[0].M0, 0.0);  // fresh row: 0.0

  // In a fresh row PRN 8 flies on top of PRN 1; the spares 28 and 29 coincide too.
  auto position = [&](int prn, double t) {
    Vec3 p{};
    double relativistic = 0.0;
    SatellitePosition(*table, t, prn - 1, p, relativistic);
    return p;
  };
  for (double t : {0.0, 3600.0, 50000.0}) {
    const Vec3 a = position(1, t), b = position(8, t), c = position(28, t), d = position(29, t);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(a[i], b[i]);
      EXPECT_EQ(c[i], d[i]);
    }
    EXPECT_NEAR(std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]), 29600000.0, 1e-3);
  }

  // recordCount stays 0 after a Galileo load into a fresh table: the clears pass over.
  table->rows[1].trueRecords[0].Cuc = 3.0;
  ClearTrueHarmonics(*table, state);
  EXPECT_EQ(table->rows[1].trueRecords[0].Cuc, 3.0);
}

TEST_F(ConstellationOpsTest, ShowOrbitPrintsBothSetsRowByRow) {
  table->rows[2].recordCount = 1;
  table->rows[2].trueRecords[0] = DistinctRecord(0.5);
  table->rows[2].broadcastRecords[0] = DistinctRecord(1000);
  table->rows[2].broadcastRecords[0].status = 7;
  std::string out;
  ASSERT_EQ(ShowOrbit(*table, state, {3, 0}, out), 0);
  EXPECT_EQ(out.substr(0, out.find('\n')), "PRN 3 record 0 recordCount 1 healthy 1");
  EXPECT_NE(out.find("\nweek                          1590                    1590\n"),
            std::string::npos);
  EXPECT_NE(out.find("\nM0          1.2500000000000000e+01  1.0120000000000000e+03\n"),
            std::string::npos);
  EXPECT_EQ(ShowOrbit(*table, state, {69, 0}, out), -1);
  EXPECT_EQ(ShowOrbit(*table, state, {3, 28}, out), -1);
}

}  // namespace
}  // namespace vorel::orbits
