#include "navmsg/nav_message.h"

#include <cmath>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "nav_decoder.h"
#include "test_support.h"

namespace vorel::navmsg {
namespace {

orbits::OrbitRecord Record(double toe, int iode) {
  orbits::OrbitRecord r;
  r.week = 2190;
  r.status = 7;
  r.iode = static_cast<int16_t>(iode);
  r.toc = toe;
  r.toe = toe;
  r.af0 = 2.1e-5;
  r.M0 = 1.2;
  r.e = 0.01;
  r.sqrtA = 5153.7;
  r.i0 = 0.95;
  r.Omega0 = -0.4;
  r.omega = -2.2;
  return r;
}

// PRN 1 and PRN 2 with one record each, valid for the two hours before toe 7200.
orbits::ConstellationTable Table() {
  orbits::ConstellationTable table;
  for (int i = 0; i < 2; ++i) {
    table.rows[i].recordCount = 1;
    table.rows[i].trueRecords[0] = Record(7200.0, 40 + i);
    table.rows[i].broadcastRecords[0] = Record(7200.0, 40 + i);
  }
  return table;
}

struct Stream {
  std::string binary, text;
  int result = 0;
};

Stream Generate(int prn, orbits::ConstellationTable& table, double t, bool iodcFollowsIode = false,
                double alpha0 = 0.0, bool fileTgd = false, bool recordAsRanges = false) {
  NavMessageState state;
  std::FILE* bin = std::tmpfile();
  std::FILE* txt = std::tmpfile();
  Stream s;
  s.result = GnssNavMessage(prn, table, alpha0, 0, 0, 0, 0, 0, 0, 0, t, bin, txt, state,
                            iodcFollowsIode, fileTgd, recordAsRanges);
  auto slurp = [](std::FILE* f) {
    std::string out;
    std::rewind(f);
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) out.append(buf, n);
    std::fclose(f);
    return out;
  };
  s.binary = slurp(bin);
  s.text = slurp(txt);
  return s;
}

TEST(GnssNavMessage, WholeStreamReadsBackAsAReceiverWould) {
  auto table = Table();
  const Stream s = Generate(1, table, 1000.0);  // t0 = 750
  ASSERT_EQ(s.result, 1);
  ASSERT_EQ(s.binary.size(), 354000u);
  ASSERT_EQ(s.text.size(), 88500u);
  EXPECT_EQ(s.text.find_first_not_of("01"), std::string::npos);
  const std::vector<int> bits = decoder::BitsFromBinary(s.binary);
  EXPECT_EQ(bits, decoder::BitsFromText(s.text));
  for (int b : bits) ASSERT_TRUE(b == 0 || b == 1);

  const auto sfs = decoder::DecodeStream(bits);
  ASSERT_EQ(sfs.size(), 295u);
  for (size_t k = 0; k < sfs.size(); ++k) {
    const auto& sf = sfs[k];
    const int f = static_cast<int>(k / 5), s5 = static_cast<int>(k % 5) + 1;
    const int page = f % 25 + 1;
    ASSERT_TRUE(sf.parityOk) << "subframe " << k;
    EXPECT_EQ(sf.raw[0] >> 22, 0x8Bu) << "preamble in the clear, subframe " << k;
    EXPECT_EQ(sf.Tow(), (750u + 30u * f + 6u * s5) / 6u);
    EXPECT_EQ(sf.raw[1] & 3u, 0u);
    EXPECT_EQ(sf.raw[9] & 3u, 0u);
    if (s5 <= 3) {
      EXPECT_EQ(sf.SubframeId(), static_cast<uint32_t>(s5));
      for (int w = 2; w < 10; ++w) EXPECT_EQ(sf.source[w], sfs[s5 - 1].source[w]);
    } else if (s5 == 4) {
      int svId = 0;
      Subframe4SvId(page, svId);
      EXPECT_EQ(sf.Field(63, 6), static_cast<uint32_t>(svId)) << "page " << page;
      const bool id100 =
          page == 18 || (page != 13 && page != 25 && (page < 2 || page > 10 || page == 6));
      EXPECT_EQ(sf.SubframeId(), id100 ? 4u : 5u) << "page " << page;
    } else {
      EXPECT_EQ(sf.SubframeId(), 5u);
      EXPECT_EQ(sf.Field(63, 6), page == 25 ? 51u : static_cast<uint32_t>(page));
    }
  }
  // 59 frames: pages 1..25 twice, then 1..9.
  EXPECT_EQ(sfs.back().Field(63, 6), 9u);
  // Subframe 1: IODC 562 whatever the IODE; subframe 2: toe of the selected record.
  EXPECT_EQ(sfs[0].Split(83, 2, 211, 8), 562u);
  EXPECT_EQ(sfs[1].Field(61, 8), 40u);
  EXPECT_EQ(sfs[1].Field(271, 16), 450u);
  // PRN 1 sees almanac entry 0 on the almanac pages of subframe 4.
  EXPECT_EQ(sfs[5 * 1 + 3].Field(151, 24), 10240000u);
  // The last two bits of the stream.
  EXPECT_EQ(bits[88498], 0);
  EXPECT_EQ(bits[88499], 0);
}

TEST(GnssNavMessage, SubframeOneSendsTheNavigationFilesTgdOnlyWhenAsked) {
  auto table = Table();
  // -23 units of 2^-31 s: eight bits of two's complement, 256 - 23 = 233 = 11101001.
  table.rows[0].broadcastRecords[0].fileTgd = std::ldexp(-23.0, -31);
  // Bits 197 to 204 of the stream's first subframe (subframe 1).
  EXPECT_EQ(Generate(1, table, 1000.0).text.substr(196, 8), "00000000");
  EXPECT_EQ(Generate(1, table, 1000.0, false, 0.0, true).text.substr(196, 8), "11101001");
}

TEST(GnssNavMessage, StaleBitsOfAlmanacPagesComeFromThePageBefore) {
  auto table = Table();
  const auto sfs = decoder::DecodeStream(decoder::BitsFromText(Generate(1, table, 0.0).text));
  for (int f = 1; f < 59; ++f) {
    const int page = f % 25 + 1;
    if (page < 2 || page > 10 || page == 6) continue;
    for (int b = 290; b <= 292; ++b)
      EXPECT_EQ(sfs[5 * f + 3].Field(b, 1), sfs[5 * (f - 1) + 3].RawBit(b)) << "frame " << f;
    for (int b = 290; b <= 292; ++b)
      EXPECT_EQ(sfs[5 * f + 4].Field(b, 1), sfs[5 * (f - 1) + 4].RawBit(b)) << "frame " << f;
  }
}

TEST(GnssNavMessage, StartOnThePageGridAndTheWeekEnd) {
  auto table = Table();
  auto firstTow = [&](double t) {
    return decoder::DecodeStream(decoder::BitsFromText(Generate(1, table, t).text))[0].Tow();
  };
  EXPECT_EQ(firstTow(750.0), 126u);  // t0 750
  EXPECT_EQ(firstTow(749.9), 1u);    // t0 0
  const auto late = decoder::DecodeStream(decoder::BitsFromText(Generate(1, table, 604500.0).text));
  EXPECT_EQ(late.back().Tow(), 101045u);  // not wrapped at the end of the week
}

TEST(GnssNavMessage, RecordIsChosenAtTheStartOfThePageCycle) {
  orbits::ConstellationTable table;
  auto& row = table.rows[0];
  row.recordCount = 2;
  // At t = 7000 record 0 (toe 14000) would be in force; at t0 = 6750 only record 1 is.
  row.trueRecords[0] = row.broadcastRecords[0] = Record(14000.0, 11);
  row.trueRecords[1] = row.broadcastRecords[1] = Record(7200.0, 22);
  const auto sfs = decoder::DecodeStream(decoder::BitsFromText(Generate(1, table, 7000.0).text));
  EXPECT_EQ(sfs[1].Field(61, 8), 22u);
  EXPECT_EQ(sfs[1].Field(271, 16), 450u);
  // Every frame repeats it.
  EXPECT_EQ(sfs[5 * 58 + 1].Field(61, 8), 22u);

  // A page cycle that starts on an even hour of the file's own epochs (Thursday 14:00):
  // neither the 14:00 record (0 s ahead) nor the 16:00 one (7200 s) is strictly inside the
  // two hours, so the stream falls back to record 0, the day's first; the ranges fly the
  // 16:00 record from a millisecond later, and so does the stream when asked to.
  row.recordCount = 3;
  row.trueRecords[0] = row.broadcastRecords[0] = Record(345600.0, 11);
  row.trueRecords[1] = row.broadcastRecords[1] = Record(396000.0, 22);
  row.trueRecords[2] = row.broadcastRecords[2] = Record(403200.0, 33);
  const double fourteen = 396024.0;
  const auto first = decoder::DecodeStream(decoder::BitsFromText(Generate(1, table, fourteen).text));
  EXPECT_EQ(first[1].Field(61, 8), 11u);
  const auto asRanges = decoder::DecodeStream(
      decoder::BitsFromText(Generate(1, table, fourteen, false, 0.0, false, true).text));
  EXPECT_EQ(asRanges[1].Field(61, 8), 33u);
  EXPECT_EQ(asRanges[1].Field(271, 16), 403200u / 16);  // toe in units of 16 s
}

TEST(GnssNavMessage, OtherPrnsAndOptions) {
  auto table = Table();
  const auto prn2 = decoder::DecodeStream(decoder::BitsFromText(Generate(2, table, 0.0).text));
  // PRN 2: its own (zero) almanac entry in subframe 4, entry 0 on subframe 5 page 1.
  EXPECT_EQ(prn2[5 * 1 + 3].Field(151, 24), 0u);
  EXPECT_EQ(prn2[5 * 1 + 3].Field(69, 16), 0u);
  EXPECT_EQ(prn2[4].Field(151, 24), 10240000u);
  // Page 18 carries the broadcast alpha0 (frame 17).
  const auto iono = decoder::DecodeStream(
      decoder::BitsFromText(Generate(2, table, 0.0, false, 12 * 9.313225746154785e-10).text));
  EXPECT_EQ(iono[5 * 17 + 3].Field(69, 8), 12u);
  // The IODC option: the ten bits carry IODE 41, and nothing else moves.
  const Stream plain = Generate(2, table, 0.0);
  const Stream opt = Generate(2, table, 0.0, true);
  const auto withIode = decoder::DecodeStream(decoder::BitsFromText(opt.text));
  EXPECT_EQ(withIode[0].Split(83, 2, 211, 8), 41u);
  for (size_t k = 0; k < withIode.size(); ++k) {
    if (k % 5 == 0) continue;
    EXPECT_EQ(withIode[k].source, prn2[k].source) << "subframe " << k;
  }
  // Identical inputs, identical bytes.
  EXPECT_EQ(Generate(2, table, 0.0).binary, plain.binary);
  // No message for a PRN the generator does not carry.
  EXPECT_EQ(Generate(33, table, 0.0).result, -1);
  EXPECT_EQ(Generate(0, table, 0.0).binary.size(), 0u);
}

// --- the two commands ------------------------------------------------------------------

using Captured = vorel::test::CapturedMessages;

NavMessageSettings Settings() {
  NavMessageSettings s;
  s.OrbitsValid = 1;
  s.KeepOrbitEpochs = 1;
  s.ScenarioYear = 2022;  // 2 January 2022 is day 0 of week 2191
  s.ScenarioMonth = 1;
  s.ScenarioDay = 2;
  s.ScenarioHour = 0;
  s.ScenarioMinute = 20;
  return s;
}

TEST(GenNav, WritesTheFilesOfOneAndOfAllSatellites) {
  vorel::test::ScratchDir dir("navmsg");
  std::filesystem::create_directories(dir.path() / "NAV");
  auto table = Table();
  NavMessageState state;
  Captured c;
  NavMessageSettings s = Settings();
  s.navPrn = 2;
  ASSERT_EQ(WriteNavigationFiles(s, table, dir.path(), state, c.messages), 0);
  EXPECT_EQ(std::filesystem::file_size(dir / "simulated.nvb"), 354000u);
  EXPECT_EQ(std::filesystem::file_size(dir / "simulated.nva"), 88500u);
  // 00:20 is 1200 s: t0 750, TOW 126.
  const auto one =
      decoder::DecodeStream(decoder::BitsFromText(vorel::test::ReadFile(dir / "simulated.nva")));
  EXPECT_EQ(one[0].Tow(), 126u);

  ASSERT_EQ(WriteAllNavigationFiles(s, table, dir.path(), state, c.messages), 0);
  for (int prn = 1; prn <= 32; ++prn) {
    const auto bin = dir.path() / "NAV" / ("navbin" + std::to_string(prn));
    const auto txt = dir.path() / "NAV" / ("navascii" + std::to_string(prn));
    ASSERT_EQ(std::filesystem::file_size(bin), 354000u) << prn;
    ASSERT_EQ(std::filesystem::file_size(txt), 88500u) << prn;
  }
  EXPECT_EQ(vorel::test::ReadFile(dir.path() / "NAV" / "navbin2"),
            vorel::test::ReadFile(dir / "simulated.nvb"));
  // A satellite with no orbit still gets a full, well-formed stream.
  const auto empty = decoder::DecodeStream(
      decoder::BitsFromBinary(vorel::test::ReadFile(dir.path() / "NAV" / "navbin17")));
  for (const auto& sf : empty) ASSERT_TRUE(sf.parityOk);
  EXPECT_TRUE(c.popups.empty());
  EXPECT_TRUE(c.infos.empty());
  EXPECT_TRUE(c.warnings.empty());

  // Made on three threads, with the orbits re-dated before each message (an almanac's
  // table): the same files, whether the re-dating settles after one step (side by side)
  // or moves the week on every time (one by one after all).
  s.KeepOrbitEpochs = 0;
  for (const int cap : {2191, 9999}) {
    vorel::test::ScratchDir threaded("navmsg-threads"), oneByOne("navmsg-one-by-one");
    for (const auto* d : {&threaded, &oneByOne}) {
      std::filesystem::create_directories(d->path() / "NAV");
      auto t = Table();
      auto redate = [&t, cap](double, int32_t) {
        for (auto& row : t.rows)
          row.trueRecords[0].week = row.broadcastRecords[0].week =
              std::min(row.broadcastRecords[0].week + 1, cap);
      };
      // The bits kept beside the files are the numbers the binary files hold.
      std::vector<int32_t> kept(32 * 1000, -7);
      NavBitCopies copies;
      for (int p = 0; p < 32; ++p) copies.rows[p] = kept.data() + p * 1000;
      copies.length = 1000;
      ASSERT_EQ(WriteAllNavigationFiles(s, t, d->path(), state, c.messages, redate,
                                        d == &threaded ? 3 : 1, &copies),
                0);
      for (int prn : {1, 2, 32}) {
        const std::string bin = vorel::test::ReadFile(d->path() / "NAV" / ("navbin" + std::to_string(prn)));
        ASSERT_EQ(std::memcmp(bin.data(), kept.data() + (prn - 1) * 1000, 4000), 0) << prn;
      }
    }
    for (int prn = 1; prn <= 32; ++prn)
      for (const char* name : {"navbin", "navascii"}) {
        const std::string file = "NAV/" + std::string(name) + std::to_string(prn);
        ASSERT_EQ(vorel::test::ReadFile(threaded / file), vorel::test::ReadFile(oneByOne / file))
            << file << " cap " << cap;
      }
  }
}

TEST(GenNav, RefusalsAndFileCreationMessages) {
  vorel::test::ScratchDir dir("navmsg-errors");
  auto table = Table();
  NavMessageState state;
  NavMessageSettings s = Settings();
  {
    Captured c;
    s.OrbitsValid = 0;
    EXPECT_EQ(WriteNavigationFiles(s, table, dir.path(), state, c.messages), -1);
    EXPECT_EQ(WriteAllNavigationFiles(s, table, dir.path(), state, c.messages), -1);
    ASSERT_EQ(c.popups.size(), 2u);
    EXPECT_EQ(c.popups[0], "Error message: Please introduce orbits before generating nav message");
    EXPECT_FALSE(std::filesystem::exists(dir / "simulated.nvb"));
    s.OrbitsValid = 1;
  }
  {
    Captured c;
    s.navPrn = 40;
    EXPECT_EQ(WriteNavigationFiles(s, table, dir.path(), state, c.messages), -1);
    ASSERT_EQ(c.popups.size(), 1u);
    EXPECT_NE(c.popups[0].find("navPrn 40"), std::string::npos);
    s.navPrn = 1;
  }
  for (int threads : {1, 4}) {
    Captured c;  // no NAV directory: nothing creates it; told once, for PRN 1, either way
    EXPECT_EQ(WriteAllNavigationFiles(s, table, dir.path(), state, c.messages, {}, threads), -1);
    ASSERT_EQ(c.infos.size(), 1u);
    EXPECT_EQ(c.infos[0], "\n Binary File Create Error");
  }
  {
    Captured c;  // the text file's name is taken by a directory
    std::filesystem::create_directories(dir / "simulated.nva");
    EXPECT_EQ(WriteNavigationFiles(s, table, dir.path(), state, c.messages), -1);
    ASSERT_EQ(c.infos.size(), 1u);
    EXPECT_EQ(c.infos[0], "\n Ascii FIle Create Error");
  }
}

TEST(GenNav, RedatesTheOrbitsOnlyForAlmanacTables) {
  vorel::test::ScratchDir dir("navmsg-redate");
  auto table = Table();
  NavMessageState state;
  Captured c;
  NavMessageSettings s = Settings();
  std::vector<std::pair<double, int>> calls;
  auto redate = [&](double sow, int32_t week) { calls.emplace_back(sow, week); };
  WriteNavigationFiles(s, table, dir.path(), state, c.messages, redate);
  EXPECT_TRUE(calls.empty());
  s.KeepOrbitEpochs = 0;
  WriteNavigationFiles(s, table, dir.path(), state, c.messages, redate);
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].first, 1200.0);
  EXPECT_EQ(calls[0].second, 2191);
}

}  // namespace
}  // namespace vorel::navmsg
