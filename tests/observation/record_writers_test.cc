#include "observation/record_writers.h"

#include <gtest/gtest.h>

#include "platform/text_file.h"
#include "test_support.h"

namespace vorel::observation {
namespace {

EpochResult HandEpoch() {
  EpochResult r;
  r.gpsWeek = 1590;
  r.timeMs = 345601000;
  r.channelCount = 2;
  EpochChannel& a = r.channels[0];
  a.prn = 5;
  a.codeRange = 20123456.7891;
  a.carrierRange = 20123450.1234;
  a.carrierCycles = 105750000.125;
  a.doppler = -1234.5678;
  a.signalLevel = 31.0;
  a.geometricRange = 20123400.5;
  a.azimuth = 1.2346;
  a.elevation = 0.5432;
  a.valid = 1;
  EpochChannel& b = r.channels[1];
  b.prn = 12;
  b.codeRange = 22000000.0004;
  b.carrierRange = 21999999.9996;
  b.carrierCycles = 2.5;
  b.doppler = 0.0;
  b.signalLevel = 31.0;
  b.geometricRange = 21999990.25;
  b.azimuth = -2.5;
  b.elevation = 0.25;
  b.bubbleClass = 2;
  b.valid = 1;
  r.channels[7].valid = 0;  // invalid channels are skipped wherever they stand
  r.channels[7].prn = 99;
  return r;
}

template <typename Write>
std::string Written(const std::string& name, Write write) {
  test::ScratchDir dir("writers-" + name);
  platform::OutputFile file;
  EXPECT_TRUE(file.Open(dir / name));
  write(file);
  EXPECT_TRUE(file.Close());
  return test::ReadFile(dir / name);
}

TEST(RecordWriters, ScnAndSrvBytesOfAHandWrittenEpoch) {
  const EpochResult r = HandEpoch();
  EXPECT_EQ(Written("a.scn", [&](auto& f) { WriteScnRecord(f, r); }),
            "345601000\n"
            "  2\n"
            "5    20123456.789    20123450.123  0  \n"
            "12    22000000.000    22000000.000  2  \n");
  EXPECT_EQ(Written("a.srv", [&](auto& f) { WriteSrvRecord(f, r); }),
            "345601.000000\n"
            "  2\n"
            "5    20123456.789    20123450.123      -1234.568  31.000    20123400.500   1.235   "
            "0.543           0.000           0.000  \n"
            "12    22000000.000    22000000.000          0.000  31.000    21999990.250  -2.500   "
            "0.250     1876543.211     1876589.750  \n");
}

TEST(RecordWriters, LogGodAndAnEmptyEpoch) {
  EXPECT_EQ(Written("a.log", [](auto& f) { WriteLogLine(f, 12); WriteLogLine(f, 13); }),
            "# 12\n# 13\n");
  EXPECT_EQ(Written("a.god", [](auto& f) { WriteGodItem(f, 12); WriteGodItem(f, 13); }),
            "\n 12\n 13");
  EpochResult empty;
  empty.timeMs = 7;
  EXPECT_EQ(Written("b.scn", [&](auto& f) { WriteScnRecord(f, empty); }), "7\n  0\n");
  EXPECT_EQ(Written("b.o", [&](auto& f) { WriteRinexEpoch(f, empty, 0); }), "");
  // Flags other than 0, 1 and 6 write the time line even without satellites.
  EXPECT_EQ(Written("c.o", [&](auto& f) { WriteRinexEpoch(f, empty, 4); }).substr(26), "  4  0");
}

// Each record type's sink writes its own format, and nothing for an epoch that is not
// written (a run's first): the .log line comes even for an epoch without satellites.
TEST(RecordWriters, SinksWriteTheirTypeForWrittenEpochsOnly) {
  const EpochResult r = HandEpoch();
  EpochResult empty;
  empty.timeMs = 9;
  const EpochContext first{}, written{.written = true};
  auto run = [&](int32_t type, const std::string& name) {
    return Written(name, [&](auto& f) {
      std::unique_ptr<EpochSink> sink = MakeRecordSink(type, f);
      ASSERT_TRUE(sink);
      sink->OnEpoch(r, first);
      sink->OnEpoch(empty, written);
      sink->OnEpoch(r, written);
    });
  };
  EXPECT_EQ(run(kRecordLog, "s.log"), "# 9\n# 345601000\n");
  EXPECT_EQ(run(kRecordGod, "s.god"), "\n 9\n 345601000");
  EXPECT_EQ(run(kRecordScn, "s.scn"), Written("t.scn", [&](auto& f) {
              WriteScnRecord(f, empty);
              WriteScnRecord(f, r);
            }));
  EXPECT_EQ(run(kRecordSrv, "s.srv"), Written("t.srv", [&](auto& f) {
              WriteSrvRecord(f, empty);
              WriteSrvRecord(f, r);
            }));
  EXPECT_EQ(run(kRecordRinex, "s.o"), Written("t.o", [&](auto& f) { WriteRinexEpoch(f, r, 0); }));
  platform::OutputFile unused;
  EXPECT_FALSE(MakeRecordSink(kRecordNone, unused));
  EXPECT_FALSE(MakeRecordSink(7, unused));
}

TEST(RecordWriters, RinexEpochLines) {
  const EpochResult r = HandEpoch();
  EXPECT_EQ(Written("a.o", [&](auto& f) { WriteRinexEpoch(f, r, 0); }),
            " 10 07 01 00 00  1.0000000  0  2G 5G12\n"
            "  20123456.789   105750000.125 6     -1234.568  \n"
            "  22000000.000           2.500 6         0.000  \n");
  EXPECT_EQ(SignalStrengthDigit(31.0), 6);
  EXPECT_EQ(SignalStrengthDigit(31.6), 6);  // 31.6f is not above 31.6f
  EXPECT_EQ(SignalStrengthDigit(316.5), 9);
  EXPECT_EQ(SignalStrengthDigit(0.0), 0);
  EXPECT_EQ(SignalStrengthDigit(0.5), 4);
}

TEST(RecordWriters, RinexCalendarFromWeekAndMilliseconds) {
  RinexCalendar c = RinexEpochCalendar(2190, 6 * 86400000 + 3723500);
  EXPECT_EQ(c.year, 2022);
  EXPECT_EQ(c.month, 1);
  EXPECT_EQ(c.day, 1);
  EXPECT_EQ(c.hour, 1);
  EXPECT_EQ(c.minute, 2);
  EXPECT_DOUBLE_EQ(c.second, 3.5);
  // Week 1 is read as week 1025, which began on Sunday 29 August 1999.
  c = RinexEpochCalendar(1, 0);
  EXPECT_EQ(c.year, 1999);
  EXPECT_EQ(c.month, 8);
  EXPECT_EQ(c.day, 29);
  // Beyond the week's end the excess carries into the date, not the hour.
  c = RinexEpochCalendar(1590, 604800000 + 3600000);
  EXPECT_EQ(c.month, 7);
  EXPECT_EQ(c.day, 4);
  EXPECT_EQ(c.hour, 1);
  // Leap day of 2012 and the year printed as year - 2000 (negative before 2000).
  c = RinexEpochCalendar(1677, 3 * 86400000);
  EXPECT_EQ(c.month, 2);
  EXPECT_EQ(c.day, 29);
  EpochResult r = HandEpoch();
  r.gpsWeek = 1;
  r.timeMs = 0;
  EXPECT_EQ(Written("y.o", [&](auto& f) { WriteRinexEpoch(f, r, 0); }).substr(0, 16),
            " -1 08 29 00 00 ");
}

TEST(RecordWriters, RinexHeaderAndTheStandardLayout) {
  const std::string own = Written("h.o", [](auto& f) { WriteRinexHeader(f); });
  const auto lines = test::SplitLines(own);
  ASSERT_EQ(lines.size(), 15u);
  for (const auto& l : lines) EXPECT_EQ(l.size(), 80u) << l;
  EXPECT_EQ(lines[0], "     2.11           OBSERVATION DATA    G (GPS)             RINEX VERSION / TYPE");
  EXPECT_EQ(lines[11].substr(0, 24), "     3   C1     L1    D1");
  EXPECT_EQ(lines[14], std::string(60, ' ') + "END OF HEADER       ");
  const auto standard =
      test::SplitLines(Written("s.o", [](auto& f) { WriteRinexHeader(f, true); }));
  // RINEX 2.11: I6 then 9(4X,A2).
  EXPECT_EQ(standard[11].substr(0, 24), "     3    C1    L1    D1");
  for (size_t i = 0; i < 15; ++i) {
    if (i == 11) continue;
    EXPECT_EQ(standard[i], lines[i]);
  }

  EpochResult many;
  many.gpsWeek = 1590;
  many.timeMs = 345600000;
  many.channelCount = 13;
  for (int i = 0; i < 13; ++i) {
    many.channels[i].valid = 1;
    many.channels[i].prn = i + 1;
    many.channels[i].signalLevel = 31.0;
  }
  const auto ownEpoch = test::SplitLines(Written("m.o", [&](auto& f) { WriteRinexEpoch(f, many, 0); }));
  EXPECT_EQ(ownEpoch.size(), 14u);  // all 13 on the epoch line
  const auto stdEpoch =
      test::SplitLines(Written("n.o", [&](auto& f) { WriteRinexEpoch(f, many, 0, true); }));
  ASSERT_EQ(stdEpoch.size(), 15u);
  EXPECT_EQ(stdEpoch[0].size(), 32u + 36u);
  EXPECT_EQ(stdEpoch[1], std::string(32, ' ') + "G13");
}

TEST(RecordWriters, EventSkeleton) {
  test::ScratchDir dir("events");
  ASSERT_TRUE(WriteEventSkeleton(dir / "ev1.txt"));
  EXPECT_EQ(test::ReadFile(dir / "ev1.txt"),
            " epoch,prn,flag,code step,size,fin epoch,code ramp ,size,fin epoch,code accel,size,"
            "fin epoch,carr step ,size,fin epoch,carr ramp ,size,fin epoch, carr accel ,size,fin "
            "epoch\n");
  EXPECT_FALSE(WriteEventSkeleton(dir / "missing" / "ev.txt"));
}

}  // namespace
}  // namespace vorel::observation
