#include "orbits/satellite_position.h"

#include <cmath>

#include <gtest/gtest.h>

namespace vorel::orbits {
namespace {

std::unique_ptr<ConstellationTable> TableWith(const OrbitRecord& record, int index) {
  auto table = std::make_unique<ConstellationTable>();
  table->rows[index].recordCount = 1;
  table->rows[index].trueRecords[0] = record;
  return table;
}

TEST(SatellitePosition, CircularOrbitMatchesClosedForm) {
  OrbitRecord o;
  o.status = kStatusUsable;
  o.sqrtA = 5153.7;
  o.toe = 1000.0;
  o.M0 = 0.3;
  o.omega = 0.2;
  o.Omega0 = 1.1;
  o.i0 = 0.95;
  auto table = TableWith(o, 0);
  const double t = 4000.0;
  Vec3 p{};
  double rel = 1.0;
  SatellitePosition(*table, t, 0, p, rel);
  EXPECT_EQ(rel, 0.0);  // e = 0: no relativistic term
  const double a = o.sqrtA * o.sqrtA;
  const double n = std::sqrt(398600500000000.0 / (a * a * a));
  const double u = o.M0 + n * (t - o.toe) + o.omega;
  const double node = o.Omega0 - o.toe * 7.2921151467e-05 - 7.2921151467e-05 * (t - o.toe);
  EXPECT_NEAR(p[0], a * (std::cos(u) * std::cos(node) - std::sin(u) * std::cos(o.i0) * std::sin(node)), 1e-6);
  EXPECT_NEAR(p[1], a * (std::cos(u) * std::sin(node) + std::sin(u) * std::cos(o.i0) * std::cos(node)), 1e-6);
  EXPECT_NEAR(p[2], a * std::sin(u) * std::sin(o.i0), 1e-6);
}

TEST(SatellitePosition, NegativeSelectionLeavesOutputsAndClockAlone) {
  OrbitRecord o;
  o.status = kStatusUsable;
  o.sqrtA = 5153.7;
  o.af0 = 1e-4;
  auto table = TableWith(o, 1);
  table->rows[1].selectedRecord = -1;
  Vec3 p{1.0, 2.0, 3.0};
  double rel = 7.0;
  SatellitePosition(*table, 345600.0, 1, p, rel);
  EXPECT_EQ(p, (Vec3{1.0, 2.0, 3.0}));
  EXPECT_EQ(rel, 7.0);
  EXPECT_EQ(SatelliteClockBias(*table, 345600.0, 1), 0.0);
}

TEST(SelectOrbitRecord, WindowIsOpenAtBothEndsAndTheFirstStoredRecordWins) {
  auto table = std::make_unique<ConstellationTable>();
  SatelliteOrbits& row = table->rows[4];
  EXPECT_EQ(SelectOrbitRecord(100.0, *table, 4), -1);  // no records
  EXPECT_EQ(row.selectedRecord, 0);
  row.recordCount = 3;
  for (int k = 0; k < 3; ++k) row.trueRecords[k].status = kStatusUsable;
  row.trueRecords[0].toe = 7200.0;
  row.trueRecords[1].toe = 5000.0;
  row.trueRecords[2].toe = 3000.0;
  EXPECT_EQ(SelectOrbitRecord(0.0, *table, 4), 0);  // d = 7200 excluded for record 0
  EXPECT_EQ(row.selectedRecord, 1);                 // earlier stored wins over nearer record 2
  EXPECT_EQ(SelectOrbitRecord(5000.0, *table, 4), 0);
  EXPECT_EQ(row.selectedRecord, 0);  // toe == t excludes record 1
  row.trueRecords[0].status = 1;
  EXPECT_EQ(SelectOrbitRecord(7000.0, *table, 4), -1);  // only unusable or past records
  EXPECT_EQ(row.selectedRecord, 0);
}

TEST(SatellitePosition, EarthSpinRotationAndWeekFoldOfTheClock) {
  Vec3 p{1.0e7, 2.0e7, 3.0e7}, r{};
  RotateForEarthSpin(0.0, p, r);
  EXPECT_EQ(r, p);
  RotateForEarthSpin(0.07, p, r);
  const double th = 7.292115147e-05 * 0.07;
  EXPECT_NEAR(r[0], std::cos(th) * p[0] + std::sin(th) * p[1], 1e-6);
  EXPECT_NEAR(r[1], -std::sin(th) * p[0] + std::cos(th) * p[1], 1e-6);
  EXPECT_EQ(r[2], p[2]);

  OrbitRecord o;
  o.toc = 604000.0;
  o.af0 = 1e-4;
  o.af1 = 1e-9;
  o.af2 = 1e-15;
  auto table = TableWith(o, 0);
  // t just after the week's end: the difference folds to +1000 s, not -603800 s.
  const double dt = 1000.0;
  EXPECT_DOUBLE_EQ(SatelliteClockBias(*table, 200.0, 0), (1e-15 * dt + 1e-9) * dt + 1e-4);
}

TEST(MessageClockBias, AddsTheRelativisticTermAndTakesTgdOff) {
  // e = 0.01 and M0 = pi/2 - e put the satellite at E = pi/2 at toe (M = E - e sin E),
  // where the relativistic term is largest: F e sqrtA = -4.442807633e-10 * 0.01 * 5153.7
  // = -2.28968977e-8 s (-6.86 m).
  OrbitRecord o;
  o.status = kStatusUsable;
  o.sqrtA = 5153.7;
  o.e = 0.01;
  o.M0 = M_PI / 2 - 0.01;
  o.toe = 7200.0;
  o.toc = 7100.0;
  o.af0 = 1e-4;
  o.af1 = 1e-11;
  o.fileTgd = -1.1e-8;
  auto table = TableWith(o, 3);
  Vec3 p{};
  double rel = 0.0;
  SatellitePosition(*table, 7200.0, 3, p, rel);
  EXPECT_NEAR(rel, -2.28968977e-8, 1e-16);
  // af0 + af1 * 100 s + relativity - TGD.
  EXPECT_NEAR(MessageClockBias(*table, 7200.0, 3, rel), 1e-4 + 1e-9 - 2.28968977e-8 + 1.1e-8,
              1e-16);
  EXPECT_NEAR(SatelliteClockBias(*table, 7200.0, 3), 1e-4 + 1e-9, 1e-16);
  table->rows[3].selectedRecord = -1;
  EXPECT_EQ(MessageClockBias(*table, 7200.0, 3, rel), 0.0);
}

}  // namespace
}  // namespace vorel::orbits
