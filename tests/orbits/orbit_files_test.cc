#include "orbits/orbit_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <vector>

#include "gnss/time_coords.h"
#include "orbits/satellite_position.h"
#include "test_support.h"

namespace vorel::orbits {
namespace {

std::string ExamplePath(const std::string& name) {
  return (test::DataDir() / "examples" / name).string();
}

// GPS week and seconds of week from the civil date by day counting, independent of the
// program's own calendar arithmetic.
gnss::GpsTime CivilToGps(int year, int month, int day, int hour, int minute, double sec) {
  using namespace std::chrono;
  const sys_days date{std::chrono::year{year} / month / day};
  const sys_days epoch{std::chrono::year{1980} / 1 / 6};
  const long days = (date - epoch).count();
  return {static_cast<int32_t>(days / 7),
          (days % 7) * 86400.0 + hour * 3600.0 + minute * 60.0 + sec};
}

// ---- RINEX read by fixed columns (format 3X,4D19.12), as a second reading ----

struct FixedRecord {
  int prn = 0, year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double seconds = 0.0;
  double values[3 + 7 * 4] = {};  // af0 af1 af2, then four per orbit line
};

double Field(const std::string& line, size_t start) {
  if (line.size() <= start) return 0.0;
  std::string text = line.substr(start, 19);
  for (char& c : text)
    if (c == 'D') c = 'E';
  return std::strtod(text.c_str(), nullptr);
}

std::vector<FixedRecord> ReadFixedColumns(const std::string& path) {
  const std::vector<std::string> lines = test::SplitLines(test::ReadFile(path));
  size_t i = 0;
  while (lines[i].find("END OF HEADER") == std::string::npos) ++i;
  ++i;
  std::vector<FixedRecord> records;
  for (; i + 8 <= lines.size(); i += 8) {
    FixedRecord r;
    const std::string& first = lines[i];
    r.prn = std::atoi(first.substr(0, 2).c_str());
    r.year = std::atoi(first.substr(3, 2).c_str());
    r.month = std::atoi(first.substr(6, 2).c_str());
    r.day = std::atoi(first.substr(9, 2).c_str());
    r.hour = std::atoi(first.substr(12, 2).c_str());
    r.minute = std::atoi(first.substr(15, 2).c_str());
    r.seconds = std::strtod(first.substr(17, 5).c_str(), nullptr);
    for (int f = 0; f < 3; ++f) r.values[f] = Field(first, 22 + 19 * f);
    for (int l = 1; l < 8; ++l)
      for (int f = 0; f < 4; ++f) r.values[3 + (l - 1) * 4 + f] = Field(lines[i + l], 3 + 19 * f);
    records.push_back(r);
  }
  return records;
}

// The record's doubles in the file's order: af0 af1 af2 on the first line, then four an
// orbit line; nullptr for IODE (checked apart) and for what follows IDOT.
constexpr double OrbitRecord::*kFileOrder[] = {
    &OrbitRecord::af0, &OrbitRecord::af1,    &OrbitRecord::af2,      nullptr,
    &OrbitRecord::Crs, &OrbitRecord::deltaN, &OrbitRecord::M0,       &OrbitRecord::Cuc,
    &OrbitRecord::e,   &OrbitRecord::Cus,    &OrbitRecord::sqrtA,    &OrbitRecord::toe,
    &OrbitRecord::Cic, &OrbitRecord::Omega0, &OrbitRecord::Cis,      &OrbitRecord::i0,
    &OrbitRecord::Crc, &OrbitRecord::omega,  &OrbitRecord::OmegaDot, &OrbitRecord::IDOT};
constexpr int kIode = 3, kHealth = 24, kTgd = 25;

class OrbitFilesTest : public ::testing::Test {
 protected:
  std::unique_ptr<ConstellationTable> table = std::make_unique<ConstellationTable>();
  ConstellationState state;
  test::CapturedMessages said;
  std::vector<std::string>& warnings = said.warnings;
  const platform::Messages& messages = said.messages;
  test::ScratchDir scratch{"orbit-files"};

  std::string Write(const std::string& name, const std::string& text) {
    const std::string path = (scratch / name).string();
    test::WriteFile(path, text);
    return path;
  }
};

// ---- YUMA ----

TEST_F(OrbitFilesTest, YumaAlmanacFillsRecordZeroOfBothSets) {
  table->rows[0].trueRecords[0].toe = 1234.0;  // the almanac carries no toe
  table->rows[0].trueRecords[0].deltaN = 1e-9;
  const int result = LoadAlmanac(*table, state, {0, ExamplePath("yuma147.txt")}, messages);
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(state.OrbitsValid);
  EXPECT_TRUE(state.orbitIndicator);
  EXPECT_FALSE(state.galileoLoaded);
  EXPECT_EQ(state.orbitFileName, ExamplePath("yuma147.txt"));
  EXPECT_TRUE(warnings.empty()) << warnings.front();

  int usable = 0;
  for (int prn = 1; prn <= 32; ++prn) {
    const SatelliteOrbits& row = table->rows[prn - 1];
    const bool expectUsable = prn != 11 && prn != 28;
    EXPECT_EQ(row.trueRecords[0].status, expectUsable ? 7 : 0) << prn;
    EXPECT_EQ(row.broadcastRecords[0].status, expectUsable ? 7 : 0) << prn;
    EXPECT_EQ(row.recordCount, expectUsable ? 1 : 0) << prn;
    EXPECT_EQ(row.prn, 0);  // the row's own prn belongs to RINEX
    if (prn != 28) {
      EXPECT_EQ(row.trueRecords[0].prn, prn);
    }
    usable += expectUsable;
  }
  EXPECT_EQ(usable, 30);

  // PRN 1 as printed in the file, radians as they stand.
  for (const OrbitRecord* r :
       {&table->rows[0].trueRecords[0], &table->rows[0].broadcastRecords[0]}) {
    EXPECT_DOUBLE_EQ(r->e, 0.1132822037E-001);
    EXPECT_DOUBLE_EQ(r->i0, 0.9865078384);
    EXPECT_DOUBLE_EQ(r->OmegaDot, -0.8114623721E-008);
    EXPECT_DOUBLE_EQ(r->sqrtA, 5153.621094);
    EXPECT_DOUBLE_EQ(r->Omega0, -0.1660719209E+001);
    EXPECT_DOUBLE_EQ(r->omega, 0.882766995);
    EXPECT_DOUBLE_EQ(r->M0, 0.3052278345E+001);
    EXPECT_DOUBLE_EQ(r->af0, 0.4425048828E-003);
    EXPECT_DOUBLE_EQ(r->af1, -0.1091393642E-010);
  }
  EXPECT_EQ(table->rows[0].trueRecords[0].toe, 1234.0);
  EXPECT_EQ(table->rows[0].trueRecords[0].deltaN, 1e-9);
  // Health 063: the orbit is stored, the satellite is not usable.
  EXPECT_DOUBLE_EQ(table->rows[10].trueRecords[0].e, 0.2875328064E-003);
  EXPECT_DOUBLE_EQ(table->rows[10].broadcastRecords[0].M0, -0.1072473904E+001);
  // The panel shows its record after the load.
  EXPECT_DOUBLE_EQ(state.panel.trueSet.keplerian[5], 5153.621094);
  EXPECT_TRUE(state.panel.healthy);
}

std::string YumaBlock(int id, const std::string& health, const std::string& sqrtA) {
  return fmt::format(
      "******** Week 147 almanac for PRN-{0} ********\n"
      "ID:                         {0}\n"
      "Health:                     {1}\n"
      "Eccentricity:               0.5E-002\n"
      "Time of Applicability(s):  233472.0000\n"
      "Orbital Inclination(rad):   0.95\n"
      "Rate of Right Ascen(r/s):  -0.8E-008\n"
      "SQRT(A)  (m 1/2):           {2}\n"
      "Right Ascen at Week(rad):  -0.16E+001\n"
      "Argument of Perigee(rad):   0.88\n"
      "Mean Anom(rad):             0.30E+001\n"
      "Af0(s):                     0.44E-003\n"
      "Af1(s/s):                  -0.10E-010\n"
      "week:                        147\n\n",
      id, health, sqrtA);
}

TEST_F(OrbitFilesTest, YumaSuccessIsOneSqrtAStrictlyInsideTheRange) {
  // All unhealthy, one sqrtA passes: success, and nothing usable.
  std::string path =
      Write("yuma-sick.txt", YumaBlock(1, "063", "5153.6") + YumaBlock(2, "001", "5153.6"));
  EXPECT_EQ(LoadAlmanac(*table, state, {0, path}, messages), 1);
  for (int index = 0; index < 32; ++index) {
    EXPECT_EQ(table->rows[index].recordCount, 0);
    EXPECT_EQ(table->rows[index].trueRecords[0].status, 0);
  }

  // The limits themselves do not pass; the values are stored all the same.
  state = ConstellationState{};
  path = Write("yuma-limits.txt", YumaBlock(3, "000", "5100.0") + YumaBlock(4, "000", "5500.0") +
                                      YumaBlock(5, "000", "26560.0"));
  EXPECT_EQ(LoadAlmanac(*table, state, {0, path}, messages), -1);
  EXPECT_FALSE(state.OrbitsValid);
  EXPECT_EQ(table->rows[2].trueRecords[0].sqrtA, 5100.0);
  EXPECT_EQ(table->rows[3].broadcastRecords[0].sqrtA, 5500.0);
  EXPECT_EQ(table->rows[4].trueRecords[0].status, 7);
  EXPECT_EQ(table->rows[4].recordCount, 1);
}

TEST_F(OrbitFilesTest, YumaCancelMissingFileAndEmptyFile) {
  state.OrbitsValid = true;  // from an earlier load
  EXPECT_EQ(LoadAlmanac(*table, state, {0, ""}, messages), -1);
  for (int index = 0; index < 32; ++index) {
    EXPECT_EQ(table->rows[index].trueRecords[0].status, 1);  // the mark is not undone
    EXPECT_EQ(table->rows[index].broadcastRecords[0].status, 1);
  }
  EXPECT_TRUE(state.OrbitsValid);  // indicators stay as they were
  EXPECT_TRUE(state.orbitFileName.empty());

  EXPECT_EQ(LoadAlmanac(*table, state, {0, Write("empty.txt", "")}, messages), -1);
  EXPECT_EQ(table->rows[0].trueRecords[0].status, 0);  // the reader clears before reading
  EXPECT_EQ(LoadAlmanac(*table, state, {0, (scratch / "absent.txt").string()}, messages), -1);
  EXPECT_TRUE(said.Warned("absent.txt: cannot be opened"));

  // A file type that loads nothing still marks record 0.
  EXPECT_EQ(LoadAlmanac(*table, state, {2, ExamplePath("yuma147.txt")}, messages), 0);
  EXPECT_EQ(table->rows[5].trueRecords[0].status, 1);
}

TEST_F(OrbitFilesTest, YumaPrnOutsideTheTableIsSkippedAndReported) {
  const std::string path = Write(
      "yuma-bad-id.txt", "header\nSQRT(A)  (m 1/2):  5153.6\n" + YumaBlock(0, "000", "5153.6") +
                             YumaBlock(69, "000", "5153.6") + YumaBlock(68, "000", "5153.6"));
  EXPECT_EQ(ReadYumaAlmanac(*std::make_unique<platform::LineReader>(path), *table, messages), 1);
  EXPECT_TRUE(said.Warned(path + ":2: value before the first \"ID:\""));
  EXPECT_TRUE(said.Warned(path + ":4: PRN 0 lies outside the table"));
  EXPECT_TRUE(said.Warned("PRN 69 lies outside the table"));
  EXPECT_EQ(warnings.size(), 3u);
  // PRN 68, the last row, is a row like any other.
  EXPECT_EQ(table->rows[67].trueRecords[0].status, 7);
  EXPECT_EQ(table->rows[67].recordCount, 1);
  EXPECT_EQ(table->rows[67].broadcastRecords[0].sqrtA, 5153.6);
}

// ---- RINEX ----

// Replaces the value after the label of one almanac line.
std::string WithYumaValue(std::string block, const std::string& label, const std::string& value) {
  const size_t at = block.find(label);
  const size_t end = block.find('\n', at);
  return block.replace(at, end - at, label + "   " + value);
}

TEST_F(OrbitFilesTest, YumaValuesThatMakeNoOrbitRefuseTheirAlmanac) {
  // 15 lines per block: eccentricity on line 4 of a block, mean anomaly on 11, sqrtA on 8.
  const std::string path =
      Write("yuma-bad-values.txt",
            YumaBlock(1, "000", "5153.6") +
                WithYumaValue(YumaBlock(2, "000", "5153.6"), "Eccentricity:", "1.5") +
                WithYumaValue(YumaBlock(3, "000", "5153.6"), "Mean Anom(rad):", "0.99E+100") +
                WithYumaValue(YumaBlock(4, "000", "5153.6"), "Af0(s):", "1.0E+999") +
                YumaBlock(5, "000", "-5153.6") + YumaBlock(6, "000", "0.0"));
  EXPECT_EQ(LoadAlmanac(*table, state, {0, path}, messages), 1);
  EXPECT_TRUE(said.Warned(path + ":19: eccentricity 1.5 is outside [0, 1); the "
                                           "almanac of PRN 2 is refused"));
  EXPECT_TRUE(said.Warned(path + ":41: mean anomaly 9.9e+99 is outside [-100, 100]"));
  EXPECT_TRUE(said.Warned(path + ":57: af0 is not a finite number"));
  EXPECT_TRUE(said.Warned(path + ":68: sqrtA -5153.6 is outside (0, 100000]"));
  EXPECT_TRUE(said.Warned(path + ":83: sqrtA 0 is outside (0, 100000]"));
  EXPECT_EQ(warnings.size(), 5u);
  EXPECT_EQ(table->rows[0].trueRecords[0].status, kStatusUsable);
  for (int index = 1; index < 6; ++index) {
    // Health 0 came before the bad value; the refusal takes the satellite back out.
    EXPECT_EQ(table->rows[index].recordCount, 0) << index;
    EXPECT_EQ(table->rows[index].trueRecords[0].status, 0) << index;
    EXPECT_EQ(table->rows[index].broadcastRecords[0].status, 0) << index;
  }

  // A passing sqrtA in a refused almanac does not make the load a success.
  warnings.clear();
  const std::string only = Write(
      "yuma-only-bad.txt", WithYumaValue(YumaBlock(1, "000", "5153.6"), "Af1(s/s):", "-1.0E+3"));
  EXPECT_EQ(LoadAlmanac(*table, state, {0, only}, messages), -1);
  EXPECT_TRUE(said.Warned(only + ":13: af1 -1000 is outside [-1, 1]"));
}

TEST_F(OrbitFilesTest, RinexNavigationMatchesAColumnReadingOfTheFile) {
  const std::string path = ExamplePath("brdc1820.10n");
  const int result = LoadAlmanac(*table, state, {1, path}, messages);
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(state.OrbitsValid);
  EXPECT_EQ(state.orbitFileName, path);
  EXPECT_TRUE(warnings.empty()) << warnings.front();

  const std::vector<FixedRecord> records = ReadFixedColumns(path);
  ASSERT_GT(records.size(), 400u);
  std::map<int, int> count;
  for (const FixedRecord& f : records) {
    const int k = count[f.prn]++;
    const SatelliteOrbits& row = table->rows[f.prn - 1];
    ASSERT_LT(k, row.recordCount) << f.prn;
    EXPECT_EQ(row.prn, f.prn);
    const gnss::GpsTime expected =
        CivilToGps(2000 + f.year, f.month, f.day, f.hour, f.minute, f.seconds);
    for (const OrbitRecord* r : {&row.trueRecords[k], &row.broadcastRecords[k]}) {
      SCOPED_TRACE(testing::Message() << "PRN " << f.prn << " record " << k);
      const double* v = f.values;
      EXPECT_EQ(r->week, expected.week);
      EXPECT_NEAR(r->toc, expected.secondsOfWeek, 1e-6);
      for (size_t i = 0; i < std::size(kFileOrder); ++i) {
        if (kFileOrder[i] == nullptr) continue;
        EXPECT_EQ(r->*kFileOrder[i], v[i]) << "value " << i;
      }
      EXPECT_EQ(r->iode, static_cast<int>(v[kIode]));
      EXPECT_EQ(r->status, v[kHealth] == 0.0 ? 7 : 0);
      EXPECT_EQ(r->tgd, 0.0);
      EXPECT_EQ(r->fileTgd, v[kTgd]);  // kept apart, for the receiver profile
      EXPECT_EQ(r->iodc, 0);
    }
  }
  for (const auto& [prn, n] : count) EXPECT_EQ(table->rows[prn - 1].recordCount, n) << prn;
  EXPECT_EQ(count.size(), 32u);
  EXPECT_EQ(count[1], 14);
  EXPECT_EQ(count[9], 12);

  // The week the day's records belong to: 1 July 2010 is in GPS week 1590.
  EXPECT_EQ(table->rows[1].trueRecords[0].week, 1590);
  EXPECT_EQ(table->rows[1].trueRecords[0].toc, 4 * 86400.0);
  // A record with health 63 is counted but never selected.
  EXPECT_EQ(table->rows[24].recordCount, 13);
  for (double t = 345600.0; t < 432000.0; t += 900.0)
    EXPECT_EQ(SelectOrbitRecord(t, *table, 24), -1);
  EXPECT_EQ(SelectOrbitRecord(349200.0, *table, 1), 0);
}

const char* kHeader =
    "     2              NAVIGATION DATA                         RINEX VERSION / TYPE\n"
    "                                                            END OF HEADER\n";

std::string RinexRecord(const std::string& prnAndDate, double sqrtA, double health = 0.0,
                        double toe = 345600.0) {
  return fmt::format(
      "{}  0.0 0.100000000000D-03-0.200000000000D-11 0.000000000000D+00\n"
      "    0.700000000000D+02 0.100000000000D+02 0.400000000000D-08 0.100000000000D+01\n"
      "    0.100000000000D-05 0.100000000000D-01 0.200000000000D-05 {:19.12E}\n"
      "    {:19.12E} 0.100000000000D-07 0.200000000000D+01 0.100000000000D-06\n"
      "    0.960000000000D+00 0.200000000000D+03 0.800000000000D+00-0.800000000000D-08\n"
      "    0.100000000000D-09 0.100000000000D+01 0.159000000000D+04 0.000000000000D+00\n"
      "    0.200000000000D+01 {:19.12E} 0.000000000000D+00 0.700000000000D+02\n"
      "    0.340000000000D+06 0.400000000000D+01\n",
      prnAndDate, sqrtA, toe, health);
}

TEST_F(OrbitFilesTest, RinexYearsBelow99GetTwoThousandAdded) {
  const std::string path =
      Write("years.12n", std::string(kHeader) + RinexRecord(" 1 12  3  4  5  6", 5153.0) +
                             RinexRecord(" 2 98  3  4  5  6", 5153.0) +
                             RinexRecord(" 3 2012  3  4  5  6", 5153.0));
  EXPECT_EQ(ReadRinexNavigation(*table, path, messages), 1);
  const gnss::GpsTime y2012 = CivilToGps(2012, 3, 4, 5, 6, 0.0);
  const gnss::GpsTime y2098 = CivilToGps(2098, 3, 4, 5, 6, 0.0);
  EXPECT_EQ(table->rows[0].trueRecords[0].week, y2012.week);
  EXPECT_EQ(table->rows[0].broadcastRecords[0].toc, y2012.secondsOfWeek);
  EXPECT_EQ(table->rows[1].trueRecords[0].week, y2098.week);
  EXPECT_EQ(table->rows[1].trueRecords[0].toc, y2098.secondsOfWeek);
  EXPECT_EQ(table->rows[2].trueRecords[0].week, y2012.week);
  EXPECT_EQ(table->rows[0].trueRecords[0].iode, 70);
}

TEST_F(OrbitFilesTest, RinexSecondLoadKeepsOldRecordsAndFieldsBeyondTheNewCount) {
  std::string first = kHeader;
  for (int k = 0; k < 3; ++k) first += RinexRecord(" 7 10  7  1  0  0", 5153.0 + k);
  first += RinexRecord(" 9 10  7  1  0  0", 5153.0);
  ReadRinexNavigation(*table, Write("first.10n", first), messages);
  table->rows[6].trueRecords[2].status = 7;
  ASSERT_EQ(table->rows[6].recordCount, 3);

  const std::string second = std::string(kHeader) + RinexRecord(" 7 10  7  1  0  0", 5200.0, 1.0) +
                             RinexRecord(" 7 10  7  1  0  0", 5201.0, 1.0);
  EXPECT_EQ(ReadRinexNavigation(*table, Write("second.10n", second), messages), 1);
  const SatelliteOrbits& row = table->rows[6];
  EXPECT_EQ(row.recordCount, 2);
  EXPECT_EQ(row.trueRecords[0].sqrtA, 5200.0);
  EXPECT_EQ(row.trueRecords[0].status, 0);      // cleared by the load, health 1 does not raise it
  EXPECT_EQ(row.trueRecords[1].status, 7);      // health 1 keeps what record 1 held
  EXPECT_EQ(row.trueRecords[2].sqrtA, 5155.0);  // beyond the new count, untouched
  // PRN 9 is absent from the second file: its fields stay, unusable, not counted.
  EXPECT_EQ(table->rows[8].recordCount, 0);
  EXPECT_EQ(table->rows[8].trueRecords[0].status, 0);
  EXPECT_EQ(table->rows[8].trueRecords[0].sqrtA, 5153.0);
}

TEST_F(OrbitFilesTest, RinexBoundsOfTheTable) {
  std::string text = kHeader;
  for (int k = 0; k < 31; ++k) text += RinexRecord(" 3 10  7  1  0  0", 5000.0 + k);
  text += RinexRecord(" 0 10  7  1  0  0", 5300.0);
  text += RinexRecord("69 10  7  1  0  0", 5300.0);
  const std::string path = Write("many.10n", text);
  // No stored sqrtA passes; the 5300 of the two skipped records still counts, because
  // skipping suppresses the storing only.
  EXPECT_EQ(ReadRinexNavigation(*table, path, messages), 1);
  const SatelliteOrbits& row = table->rows[2];
  EXPECT_EQ(row.recordCount, 28);
  for (int k = 0; k < 28; ++k) EXPECT_EQ(row.broadcastRecords[k].sqrtA, 5000.0 + k);
  // One report for the PRN, at the 29th record's first line (2 header lines + 28 x 8).
  EXPECT_TRUE(said.Warned(path + ":227: PRN 3 has more than 28 records"));
  EXPECT_TRUE(said.Warned(path + ":251: PRN 0 lies outside the table"));
  EXPECT_TRUE(said.Warned(path + ":259: PRN 69 lies outside the table"));
  EXPECT_EQ(warnings.size(), 3u);
  for (int index = 3; index < kTableRows; ++index) EXPECT_EQ(table->rows[index].recordCount, 0);
}

TEST_F(OrbitFilesTest, RinexLinesThatFailKeepEarlierValues) {
  std::string second = RinexRecord(" 5 10  7  1  2  0", 5300.0, 0.0, 352800.0);
  // Line 3 of the second record does not scan: its values are those of the first.
  const size_t line3 = second.find('\n', second.find('\n') + 1) + 1;
  second.replace(line3, second.find('\n', line3) - line3, "    garbled");
  // Line 4 is empty: passed over, the field stays as it was.
  const size_t line4 = second.find('\n', line3) + 1;
  second.replace(line4, second.find('\n', line4) - line4, "");
  const std::string path = Write(
      "garbled.10n", std::string(kHeader) + RinexRecord(" 5 10  7  1  0  0", 5153.0) + second);
  EXPECT_EQ(ReadRinexNavigation(*table, path, messages), 1);
  const SatelliteOrbits& row = table->rows[4];
  EXPECT_EQ(row.recordCount, 2);
  EXPECT_EQ(row.trueRecords[1].sqrtA, 5153.0);
  EXPECT_EQ(row.broadcastRecords[1].e, 0.01);
  EXPECT_EQ(row.trueRecords[1].toe, 0.0);  // never written
  EXPECT_EQ(row.trueRecords[1].toc, 4 * 86400.0 + 7200.0);
  EXPECT_TRUE(said.Warned(path + ":13: record line 3 scanned 0 of 4 values"));
  EXPECT_TRUE(said.Warned(path + ":14: empty record line 4 passed over"));
}

// Replaces value `field` (0 to 3) of orbit line `line` (2 to 8) of a record.
std::string WithRinexValue(std::string record, int line, int field, const std::string& value) {
  size_t at = 0;
  for (int l = 1; l < line; ++l) at = record.find('\n', at) + 1;
  return record.replace(at + 3 + 19 * field, 19, fmt::format("{:>19}", value));
}

TEST_F(OrbitFilesTest, RinexRecordsThatMakeNoOrbitAreRefusedWithFileAndLine) {
  // Two records of PRN 7 from an earlier load; the second slot must come back unchanged.
  std::string first = kHeader;
  first += RinexRecord(" 7 10  7  1  0  0", 5153.0) + RinexRecord(" 7 10  7  1  2  0", 5154.0);
  ASSERT_EQ(ReadRinexNavigation(*table, Write("first.10n", first), messages), 1);
  const OrbitRecord before = table->rows[6].trueRecords[1];

  const std::string good = RinexRecord(" 7 10  7  1  0  0", 5200.0);
  std::string text = std::string(kHeader) + good +
                     WithRinexValue(RinexRecord(" 7 10  7  1  4  0", 5201.0), 3, 1,
                                    "0.150000000000D+01") +                                  // e
                     WithRinexValue(good, 2, 3, "0.990000000000D+99").replace(0, 2, " 8") +  // M0
                     WithRinexValue(good, 5, 3, "-0.1D+999").replace(0, 2, " 9") +  // OmegaDot
                     RinexRecord("10 10  7  1  0  0", 0.0) +
                     WithRinexValue(good, 6, 0, "0.1D+400").replace(0, 2, "11");  // IDOT
  const std::string path = Write("bad-values.10n", text);
  EXPECT_EQ(ReadRinexNavigation(*table, path, messages), 1);
  // Header 2 lines, 8 lines a record: record r, line l is file line 2 + 8 r + l.
  EXPECT_TRUE(said.Warned(path + ":13: eccentricity 1.5 is outside [0, 1); the record "
                                           "of PRN 7 is refused"));
  EXPECT_TRUE(said.Warned(path + ":20: M0 9.9e+98 is outside [-100, 100]"));
  EXPECT_TRUE(said.Warned(path + ":31: OmegaDot is not a finite number"));
  EXPECT_TRUE(said.Warned(path + ":37: sqrtA 0 is outside (0, 100000]"));
  EXPECT_TRUE(said.Warned(path + ":48: IDOT is not a finite number"));
  EXPECT_EQ(warnings.size(), 5u);

  const SatelliteOrbits& row = table->rows[6];
  EXPECT_EQ(row.recordCount, 1);
  EXPECT_EQ(row.trueRecords[0].sqrtA, 5200.0);
  EXPECT_EQ(row.trueRecords[1].sqrtA, before.sqrtA);
  EXPECT_EQ(row.broadcastRecords[1].e, before.e);
  EXPECT_EQ(row.trueRecords[1].toc, before.toc);
  for (int prn = 8; prn <= 11; ++prn) {
    EXPECT_EQ(table->rows[prn - 1].recordCount, 0) << prn;
    EXPECT_EQ(table->rows[prn - 1].trueRecords[0].status, 0) << prn;
  }

  // The passing sqrtA of a refused record does not make the load a success.
  const std::string only =
      Write("only-bad.10n", std::string(kHeader) + WithRinexValue(good, 3, 1, "-0.1D+00"));
  EXPECT_EQ(ReadRinexNavigation(*table, only, messages), -1);
  EXPECT_TRUE(said.Warned(only + ":5: eccentricity -0.1 is outside [0, 1)"));
}

TEST_F(OrbitFilesTest, RinexWithoutHeaderEndOrChoiceFails) {
  const std::string path = Write("noheader.10n", RinexRecord(" 1 10  7  1  0  0", 5153.0));
  EXPECT_EQ(ReadRinexNavigation(*table, path, messages), -1);
  EXPECT_TRUE(said.Warned("end of file before \"END OF HEADER\""));
  EXPECT_EQ(table->rows[0].recordCount, 0);
  EXPECT_EQ(LoadAlmanac(*table, state, {1, ""}, messages), -1);
  EXPECT_EQ(table->rows[0].trueRecords[0].status, 0);  // the reader cleared the mark
  EXPECT_EQ(LoadAlmanac(*table, state, {1, path}, messages), -1);
  EXPECT_EQ(state.orbitFileName, path);
  EXPECT_FALSE(state.OrbitsValid);
}

// ---- Position and clock from a loaded record against precise orbits ----

// Precise positions (km) and clocks (us), GPS time, of one epoch of an SP3 file.
std::map<int, std::array<double, 4>> ReadSp3Epoch(const std::string& path, int hour, int minute) {
  std::map<int, std::array<double, 4>> epoch;
  bool inEpoch = false;
  for (const std::string& line : test::SplitLines(test::ReadFile(path))) {
    int y, mo, d, h, mi, prn;
    double x, yy, z, clock;
    if (line.rfind("*  ", 0) == 0) {
      inEpoch = std::sscanf(line.c_str(), "* %d %d %d %d %d", &y, &mo, &d, &h, &mi) == 5 &&
                h == hour && mi == minute;
    } else if (inEpoch &&
               std::sscanf(line.c_str(), "PG%d %lf %lf %lf %lf", &prn, &x, &yy, &z, &clock) == 5) {
      epoch[prn] = {x, yy, z, clock};
    }
  }
  return epoch;
}

TEST_F(OrbitFilesTest, BroadcastPositionAndClockAgreeWithPreciseOrbit) {
  ASSERT_EQ(ReadRinexNavigation(*table, ExamplePath("brdc1820.10n"), messages), 1);
  int compared = 0;
  double worst = 0.0, worstClock = 0.0;
  for (const auto& [hour, minute] :
       {std::pair{0, 0}, std::pair{1, 0}, std::pair{9, 45}, std::pair{17, 30}}) {
    const auto precise = ReadSp3Epoch(ExamplePath("igs15904.sp3"), hour, minute);
    ASSERT_GT(precise.size(), 25u);
    const double t = 4 * 86400.0 + hour * 3600.0 + minute * 60.0;  // Thursday of week 1590
    for (const auto& [prn, p] : precise) {
      if (SelectOrbitRecord(t, *table, prn - 1) != 0) continue;
      SCOPED_TRACE(testing::Message() << "PRN " << prn << " at " << hour << ":" << minute);
      Vec3 position{};
      double relativistic = 0.0;
      SatellitePosition(*table, t, prn - 1, position, relativistic);
      const double distance = std::hypot(position[0] - p[0] * 1000.0, position[1] - p[1] * 1000.0,
                                         position[2] - p[2] * 1000.0);
      worst = std::max(worst, distance);
      EXPECT_LT(distance, 10.0);
      // |relativistic term| <= 4.44e-10 sqrtA e, some 22 ns for a typical orbit.
      const SatelliteOrbits& row = table->rows[prn - 1];
      const OrbitRecord& r = row.trueRecords[row.selectedRecord];
      EXPECT_LE(std::fabs(relativistic), 4.442807633e-10 * r.sqrtA * r.e);
      const double clockError = std::fabs(SatelliteClockBias(*table, t, prn - 1) * 1e6 - p[3]);
      worstClock = std::max(worstClock, clockError);
      EXPECT_LT(clockError, 0.03) << "us";
      ++compared;
    }
  }
  EXPECT_GT(compared, 90);
  RecordProperty("worst_metres", std::to_string(worst));
  RecordProperty("worst_clock_us", std::to_string(worstClock));
}

}  // namespace
}  // namespace vorel::orbits
