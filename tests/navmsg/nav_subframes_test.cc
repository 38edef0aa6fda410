#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "nav_decoder.h"
#include "navmsg/almanac_pages.h"
#include "navmsg/ephemeris_subframes.h"
#include "orbits/orbit_record.h"

namespace vorel::navmsg {
namespace {

std::vector<int> Bits(const NavSubframe& sf) {
  std::vector<int> bits;
  for (const NavWord& w : sf)
    for (NavBit b : w) bits.push_back(b);
  return bits;
}

std::string WordString(const NavWord& w) {
  std::string s;
  for (NavBit b : w) s += static_cast<char>('0' + b);
  return s;
}

// Subframe 1 for week 2190 at t = 6 s (TOW 1), tgd -1e-8 (-21.47 units, truncated to
// -21), toc 7200 s (450), af2 0, af1 -10 units of 2^-43, af0 -2.7 units of 2^-31
// (truncated to -2). Worked out field by field from the interface definition, with the
// parity sums of its table taken word by word.
const char* const kHandSubframe1[10] = {
    // preamble 10001011, TLM alternating, 10 | parity
    "100010111010101010101010001010",
    // TOW 1 (17 bits), alert 0, anti-spoof 1, ID 001, solved 00 | parity
    "000000000000000010100110111000",
    // week 2190-1024 = 1166, modulo 1024 142, L2 codes 01, URA 0001, health 000000, IODC 10 |
    // parity
    "001000111001000100000010111000",
    "101010101010101010101010111100",  // reserved, alternating from 1
    "101010101010101010101010111100",
    "101010101010101010101010111100",
    // reserved 16 bits, TGD -21 = 11101011 | parity
    "101010101010101011101011011101",
    // IODC low 00110010, toc 450 | parity
    "110011011111111000111101010100",
    // af2 0, af1 -10 | parity
    "000000001111111111110110110000",
    // af0 -2 (22 bits), solved 00 | parity
    "111111111111111111111011001000",
};

void EncodeHandSubframe(NavFrame& frame, const NavWord& previous) {
  EncodeSubframe1(2190, 6.0, -1e-8, 7200.0, 0.0, -10.0 * std::ldexp(1.0, -43),
                  -2.7 * std::ldexp(1.0, -31), kSystemIodc, frame, previous);
}

TEST(Subframe1, WholeSubframeAgainstBitsWorkedByHand) {
  NavFrame frame{};
  EncodeHandSubframe(frame, NavWord{});
  for (int w = 0; w < 10; ++w)
    EXPECT_EQ(WordString(frame[0][w]), kHandSubframe1[w]) << "word " << w + 1;
}

TEST(Subframe1, PreviousD30OfOneComplementsWordOneOnly) {
  NavWord previous{};
  previous[28] = 1;
  previous[29] = 1;
  NavFrame frame{};
  EncodeHandSubframe(frame, previous);
  // Word 1 goes out complemented; its D30 (1) complements the HOW too, whose solved
  // bits then differ; from word 3 on nothing changes, since the HOW ends on D30 = 0.
  EXPECT_EQ(WordString(frame[0][0]), "011101000101010101010101110101");
  EXPECT_EQ(WordString(frame[0][1]), "111111111111111101011000010100");
  for (int w = 2; w < 10; ++w) EXPECT_EQ(WordString(frame[0][w]), kHandSubframe1[w]);
  const auto decoded = decoder::DecodeStream(Bits(frame[0]), 1, 1);
  EXPECT_TRUE(decoded[0].parityOk);
  EXPECT_EQ(decoded[0].Field(1, 8), 0x8Bu);
  EXPECT_EQ(decoded[0].Tow(), 1u);
}

// A broadcast record with the signs and sizes of a real one.
orbits::OrbitRecord SampleRecord() {
  orbits::OrbitRecord r;
  r.week = 2190;
  r.status = 7;
  r.iode = 77;
  r.toc = 7200.0;
  r.af0 = -1.2345e-4;
  r.af1 = -3.410605131648e-12;
  r.af2 = 0.0;
  r.Crs = -45.3125;
  r.deltaN = 4.5e-09;
  r.M0 = -2.1;
  r.Cuc = -2.3e-06;
  r.e = 0.0123;
  r.Cus = 8.1e-06;
  r.sqrtA = 5153.6;
  r.toe = 7200.0;
  r.Cic = 1.1e-07;
  r.Omega0 = -1.9;
  r.Cis = -5.2e-08;
  r.i0 = 0.96;
  r.Crc = 230.5;
  r.omega = 0.75;
  r.OmegaDot = -8.0e-09;
  r.IDOT = 2.5e-10;
  return r;
}

TEST(Subframes123, DecodeBackToTheRecordWithinOneUnit) {
  const orbits::OrbitRecord r = SampleRecord();
  NavFrame frame{};
  EncodeSubframe1(r.week, 6.0, r.tgd, r.toc, r.af2, r.af1, r.af0, kSystemIodc, frame, NavWord{});
  EncodeSubframe2(r.week, 12.0, r.iode, r.Crs, r.deltaN, r.M0, r.Cuc, r.e, r.Cus, r.sqrtA, r.toe,
                  r.aodo, 0, frame);
  EncodeSubframe3(r.week, 18.0, r.Cic, r.Omega0, r.Cis, r.i0, r.Crc, r.omega, r.OmegaDot, r.iode,
                  r.IDOT, frame);
  std::vector<int> bits;
  for (int s = 0; s < 3; ++s) {
    const auto b = Bits(frame[s]);
    bits.insert(bits.end(), b.begin(), b.end());
  }
  const auto d = decoder::DecodeStream(bits);
  ASSERT_EQ(d.size(), 3u);
  const double pi = 3.14159265358979323846;
  auto unit = [](int n) { return std::ldexp(1.0, n); };
  for (int s = 0; s < 3; ++s) {
    EXPECT_TRUE(d[s].parityOk);
    EXPECT_EQ(d[s].SubframeId(), static_cast<uint32_t>(s + 1));
    EXPECT_EQ(d[s].Tow(), static_cast<uint32_t>(s + 1));
    EXPECT_EQ(d[s].Field(49, 1), s == 0 ? 1u : 0u);  // anti-spoof flag
  }
  // Subframe 1's fixed fields are checked bit by bit above; here the clock terms.
  const auto& s1 = d[0];
  EXPECT_NEAR(s1.SignedField(241, 8) * unit(-55), r.af2, unit(-55));
  EXPECT_NEAR(s1.SignedField(249, 16) * unit(-43), r.af1, unit(-43));
  EXPECT_NEAR(s1.SignedField(271, 22) * unit(-31), r.af0, unit(-31));
  const auto& s2 = d[1];
  EXPECT_EQ(s2.Field(61, 8), 77u);
  EXPECT_NEAR(s2.SignedField(69, 16) * unit(-5), r.Crs, unit(-5));
  EXPECT_NEAR(s2.SignedField(91, 16) * unit(-43) * pi, r.deltaN, unit(-43) * pi);
  EXPECT_NEAR(s2.SignedSplit(107, 8, 121, 24) * unit(-31) * pi, r.M0, unit(-31) * pi);
  EXPECT_NEAR(s2.SignedField(151, 16) * unit(-29), r.Cuc, unit(-29));
  EXPECT_NEAR(s2.Split(167, 8, 181, 24) * unit(-33), r.e, unit(-33));
  EXPECT_NEAR(s2.SignedField(211, 16) * unit(-29), r.Cus, unit(-29));
  EXPECT_NEAR(s2.Split(227, 8, 241, 24) * unit(-19), r.sqrtA, unit(-19));
  EXPECT_EQ(s2.Field(271, 16) * 16.0, r.toe);
  EXPECT_EQ(s2.Field(287, 6), 0u);  // fit flag and AODO
  const auto& s3 = d[2];
  EXPECT_NEAR(s3.SignedField(61, 16) * unit(-29), r.Cic, unit(-29));
  EXPECT_NEAR(s3.SignedSplit(77, 8, 91, 24) * unit(-31) * pi, r.Omega0, unit(-31) * pi);
  EXPECT_NEAR(s3.SignedField(121, 16) * unit(-29), r.Cis, unit(-29));
  EXPECT_NEAR(s3.SignedSplit(137, 8, 151, 24) * unit(-31) * pi, r.i0, unit(-31) * pi);
  EXPECT_NEAR(s3.SignedField(181, 16) * unit(-5), r.Crc, unit(-5));
  EXPECT_NEAR(s3.SignedSplit(197, 8, 211, 24) * unit(-31) * pi, r.omega, unit(-31) * pi);
  EXPECT_NEAR(s3.SignedField(241, 24) * unit(-43) * pi, r.OmegaDot, unit(-43) * pi);
  EXPECT_EQ(s3.Field(271, 8), 77u);
  EXPECT_NEAR(s3.SignedField(279, 14) * unit(-43) * pi, r.IDOT, unit(-43) * pi);
  // A negative M0 is one step nearer zero than rounding: -0.66845 semicircles.
  EXPECT_EQ(s2.SignedSplit(107, 8, 121, 24),
            static_cast<int64_t>(std::ceil(r.M0 * 0.3183098861838 * unit(31))));
}

// --- pages ---------------------------------------------------------------------------

decoder::DecodedSubframe DecodeSubframe(const NavFrame& frame, int index) {
  const NavWord& before = frame[index - 1][9];
  return decoder::DecodeStream(Bits(frame[index]), before[28], before[29])[0];
}

TEST(Pages, AlmanacEntryZeroAndTheAf0Af1Overlap) {
  NavFrame frame{};
  AlmanacEntry entry = MakeAlmanacTable()[0];
  entry.af0 = 300.0 * std::ldexp(1.0, -20);  // 00100101100: top eight bits 00100101
  entry.af1 = -2.5 * std::ldexp(1.0, -38);   // truncated to -2: 11111111110
  entry.deltaI = 0.0;
  EncodeAlmanacPage5(1, 0, 30.0, entry, frame);
  const auto d = DecodeSubframe(frame, 4);
  EXPECT_TRUE(d.parityOk);
  EXPECT_EQ(d.SubframeId(), 5u);
  EXPECT_EQ(d.Field(61, 2), 1u);
  EXPECT_EQ(d.Field(63, 6), 1u);
  EXPECT_EQ(d.Field(69, 16), 257950u & 0xFFFFu);  // 0.123 * 2^21 = 257949.7
  EXPECT_EQ(d.Field(91, 8), 1u);                  // toa 120 s: below one unit of 4096
  EXPECT_EQ(d.Field(151, 24), 10240000u);         // 5000 * 2^11
  EXPECT_EQ(d.Field(137, 8), 0u);                 // health, whatever svHealth says
  EXPECT_EQ(d.Field(271, 8), 0x25u);
  EXPECT_EQ(d.Field(279, 11), 0x7FEu);
  EXPECT_EQ(d.Field(290, 3), 0u);  // never written, the buffer was clear
}

TEST(Pages, StaleBitsShowThroughAndSubframeIdsDifferByPage) {
  NavFrame frame{};
  EncodeDummyPage(1, 0, 24.0, frame);
  const auto dummy = DecodeSubframe(frame, 3);
  EXPECT_EQ(dummy.SubframeId(), 4u);
  EXPECT_EQ(dummy.Field(63, 6), 57u);
  EXPECT_EQ(dummy.Field(69, 16), 0xAAAAu);
  EXPECT_EQ(dummy.Field(271, 22), 0x2AAAAAu);
  uint32_t transmitted = 0;
  for (int b = 290; b <= 292; ++b) transmitted = (transmitted << 1) | dummy.RawBit(b);
  EncodeAlmanacPage4(2, 0, 54.0, AlmanacEntry{}, frame);
  const auto almanac = DecodeSubframe(frame, 3);
  EXPECT_TRUE(almanac.parityOk);
  EXPECT_EQ(almanac.SubframeId(), 5u);  // 101 in the fourth subframe
  EXPECT_EQ(almanac.Field(63, 6), 25u);
  EXPECT_EQ(almanac.Field(69, 16), 0u);
  // What the dummy page sent at 290-292 is now this page's source bits there.
  EXPECT_EQ(almanac.Field(290, 3), transmitted);
}

TEST(Pages, IonosphereAndUtcPage) {
  NavFrame frame{};
  const double u = 1.0;
  EncodeIonoUtcPage(18, 0, 24.0, 12.0 * std::ldexp(u, -30), -2.5 * std::ldexp(u, -27),
                    std::ldexp(u, -24), -std::ldexp(u, -24), 0.0, 6.0 * std::ldexp(u, 14),
                    -std::ldexp(u, 16), 3.0 * std::ldexp(u, 16), kFixedUtcConstants, frame);
  const auto d = DecodeSubframe(frame, 3);
  EXPECT_TRUE(d.parityOk);
  EXPECT_EQ(d.SubframeId(), 4u);
  EXPECT_EQ(d.Field(63, 6), 56u);
  EXPECT_EQ(d.SignedField(69, 8), 12);
  EXPECT_EQ(d.SignedField(77, 8), -2);  // -2.5 truncated towards zero
  EXPECT_EQ(d.SignedField(91, 8), 1);
  EXPECT_EQ(d.SignedField(99, 8), -1);
  EXPECT_EQ(d.Field(107, 8), 0u);
  EXPECT_EQ(d.SignedField(121, 8), 6);
  EXPECT_EQ(d.SignedField(129, 8), -1);
  EXPECT_EQ(d.SignedField(137, 8), 3);
  EXPECT_EQ(d.SignedField(151, 24), -50);
  EXPECT_EQ(d.SignedSplit(181, 24, 211, 8), -9);
  EXPECT_EQ(d.Field(219, 8), 114u);
  EXPECT_EQ(d.Field(227, 8), 30u);
  EXPECT_EQ(d.Field(241, 8), 10u);
  EXPECT_EQ(d.Field(249, 8), 243u);
  EXPECT_EQ(d.Field(257, 8), 5u);
  EXPECT_EQ(d.Field(271, 8), 10u);
  EXPECT_EQ(d.Field(279, 14), 0x2AAAu);
}

TEST(Pages, NmctAndConfigurationAndHealthPages) {
  NavFrame frame{};
  EncodeNmctPage(13, 0, 24.0, frame);
  auto d = DecodeSubframe(frame, 3);
  EXPECT_TRUE(d.parityOk);
  EXPECT_EQ(d.SubframeId(), 5u);
  EXPECT_EQ(d.Field(63, 6), 52u);
  EXPECT_EQ(d.Field(69, 2), 2u);
  // 30 fields of 011111 read across word boundaries.
  std::string fields;
  for (int b = 71; b <= 292; ++b) {
    if ((b - 1) % 30 >= 24 || (b > 264 && b < 271)) continue;
    fields += static_cast<char>('0' + d.Field(b, 1));
  }
  std::string expected;
  for (int i = 0; i < 30; ++i) expected += "011111";
  EXPECT_EQ(fields, expected);

  EncodeConfigHealthPage(25, 0, 24.0, HealthCode{}, frame);
  d = DecodeSubframe(frame, 3);
  EXPECT_EQ(d.SubframeId(), 5u);
  EXPECT_EQ(d.Field(63, 6), 63u);
  EXPECT_EQ(d.Field(69, 16), 0x1111u);
  for (int w = 4; w <= 7; ++w) EXPECT_EQ(d.Field((w - 1) * 30 + 1, 24), 0x111111u);
  EXPECT_EQ(d.Field(211, 16), 0x1111u);
  EXPECT_EQ(d.Field(227, 2), 2u);
  EXPECT_EQ(d.Field(229, 6), 0u);
  EXPECT_EQ(d.Field(289, 4), 0xAu);

  // t = 604794 s: 604794 - 256 * 2362 = 122.
  EncodeHealthPage(25, 2190, 604794.0, 70, HealthCode{}, frame);
  d = DecodeSubframe(frame, 4);
  EXPECT_TRUE(d.parityOk);
  EXPECT_EQ(d.Field(63, 6), 51u);
  EXPECT_EQ(d.Field(69, 8), 70u);
  EXPECT_EQ(d.Field(77, 8), 122u);
  EXPECT_EQ(d.Field(271, 6), 42u);
  EXPECT_EQ(d.Field(277, 16), 0xAAAAu);
}

}  // namespace
}  // namespace vorel::navmsg
