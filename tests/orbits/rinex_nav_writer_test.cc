// The RINEX navigation writer: the Fortran D form by hand, and the bundled navigation
// file loaded, written and read back by fixed columns as RINEX 2.11 lays them out.
#include "orbits/rinex_nav_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "gnss/calendar.h"
#include "orbits/orbit_files.h"
#include "platform/messages.h"
#include "test_support.h"

namespace vorel::orbits {
namespace {

TEST(RinexNavWriter, FortranDFormAndCalendar) {
  EXPECT_EQ(FormatD(1.23e-4, 19, 12), " 0.123000000000D-03");
  EXPECT_EQ(FormatD(-0.5, 19, 12), "-0.500000000000D+00");
  EXPECT_EQ(FormatD(0.0, 19, 12), " 0.000000000000D+00");
  EXPECT_EQ(FormatD(0.99999999999996, 19, 12), " 0.100000000000D+01");  // rounds up a place
  EXPECT_EQ(FormatD(5153.7304401399997, 19, 12), " 0.515373044014D+04");
  EXPECT_EQ(FormatD(1.1176e-08, 12, 4), "  0.1118D-07");
  EXPECT_EQ(FormatD(-196608.0, 12, 4), " -0.1966D+06");
  // Week 1590 began on Sunday 27 June 2010; 345600 s is Thursday 1 July 00:00.
  const gnss::CalendarTime t = gnss::GpsToCalendar(1590, 345600.0 + 2 * 3600 + 15 * 60 + 30.5);
  EXPECT_EQ(t.year, 2010);
  EXPECT_EQ(t.month, 7);
  EXPECT_EQ(t.day, 1);
  EXPECT_EQ(t.hour, 2);
  EXPECT_EQ(t.minute, 15);
  EXPECT_EQ(t.second, 30.5);
  EXPECT_EQ(gnss::GpsToCalendar(0, 0.0).day, 6);  // 6 January 1980
  EXPECT_EQ(gnss::GpsToCalendar(2190, -1.0).month, 12);  // the last second of 2021
  EXPECT_EQ(gnss::DayOfYear(2010, 7, 1), 182);
  EXPECT_EQ(gnss::DayOfYear(2012, 12, 31), 366);
}

double D(const std::string& line, size_t column) {
  std::string field = line.substr(column, 19);
  for (char& c : field)
    if (c == 'D') c = 'E';
  return std::stod(field);
}

TEST(RinexNavWriter, WrittenRecordsReadBackByColumn) {
  test::ScratchDir dir("rinex-nav");
  ConstellationTable table;
  ASSERT_EQ(ReadRinexNavigation(table, (test::DataDir() / "examples" / "brdc1820.10n").string(),
                                platform::Messages::Silent()),
            1);
  // The reader does not mark the rows usable; the load command does.
  for (int i = 0; i < 32; ++i)
    if (table.rows[i].recordCount > 0) table.rows[i].trueRecords[0].status = kStatusUsable;
  RinexNavHeader header;
  header.hasIono = true;
  header.alpha = {1.1176e-08, 7.4506e-09, -5.9605e-08, -5.9605e-08};
  header.beta = {90112.0, 0.0, -196608.0, -65536.0};
  header.leapSeconds = 15;
  std::string error;
  const int written = WriteRinexNavigation(table, header, dir / "n.10n", error);
  ASSERT_GT(written, 300) << error;

  std::istringstream in(test::ReadFile(dir / "n.10n"));
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line, "     2.11           N: GPS NAV DATA                         RINEX VERSION / TYPE");
  int records = 0;
  bool headerDone = false;
  std::vector<std::string> lines;
  while (std::getline(in, line)) {
    ASSERT_LE(line.size(), 80u) << line;
    if (!headerDone) {
      if (line.find("ION ALPHA") == 60) {
        EXPECT_EQ(line.substr(0, 14), "    0.1118D-07");
      }
      headerDone = line.find("END OF HEADER") == 60;
      continue;
    }
    lines.push_back(line);
  }
  ASSERT_EQ(lines.size() % 8, 0u);
  for (size_t i = 0; i < lines.size(); i += 8, ++records) {
    const int prn = std::stoi(lines[i].substr(0, 2));
    const SatelliteOrbits& row = table.rows[prn - 1];
    // Find the record by its toe, as a reader would.
    const double toe = D(lines[i + 3], 3);
    const OrbitRecord* r = nullptr;
    for (int k = 0; k < row.recordCount; ++k)
      if (row.broadcastRecords[k].toe == toe) r = &row.broadcastRecords[k];
    ASSERT_NE(r, nullptr) << "PRN " << prn << " toe " << toe;
    auto near = [](double a, double b) { return std::fabs(a - b) <= 5e-12 * std::fabs(b) + 1e-300; };
    EXPECT_TRUE(near(D(lines[i], 22), r->af0)) << prn;
    EXPECT_TRUE(near(D(lines[i + 1], 22), r->Crs));
    EXPECT_TRUE(near(D(lines[i + 1], 60), r->M0));
    EXPECT_TRUE(near(D(lines[i + 2], 22), r->e));
    EXPECT_TRUE(near(D(lines[i + 2], 60), r->sqrtA));
    EXPECT_TRUE(near(D(lines[i + 4], 3), r->i0));
    EXPECT_TRUE(near(D(lines[i + 4], 60), r->OmegaDot));
    EXPECT_EQ(D(lines[i + 5], 41), r->week);
    EXPECT_EQ(D(lines[i + 6], 60), r->iodc);
  }
  EXPECT_EQ(records, written);

  // An unwritable place is an error naming it, and leaves nothing behind.
  EXPECT_EQ(WriteRinexNavigation(table, header, dir / "missing" / "n.10n", error), -1);
  EXPECT_NE(error.find("missing/n.10n"), std::string::npos) << error;
}

}  // namespace
}  // namespace vorel::orbits
