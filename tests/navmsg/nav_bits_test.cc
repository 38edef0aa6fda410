#include "navmsg/nav_bits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "nav_decoder.h"

namespace vorel::navmsg {
namespace {

int32_t Encode(double value, int exponent) {
  int32_t r = 12345;
  EXPECT_EQ(EncodeScaled(value, exponent, 8, r), 1);
  return r;
}

std::string Str(const NavBit* b, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>('0' + b[i]);
  return s;
}

TEST(EncodeScaled, RoundsTheProgramsOwnWay) {
  // -9.3132e-09 * 2^30 = -9.99997: truncated towards zero, not rounded to -10.
  EXPECT_EQ(Encode(-9.3132e-09, -30), -9);
  // 120 / 4096 = 0.029: any small positive ratio is lifted to one unit.
  EXPECT_EQ(Encode(120.0, 12), 1);
  EXPECT_EQ(Encode(1e-300, 0), 1);
  EXPECT_EQ(Encode(0.0, -31), 0);
  EXPECT_EQ(Encode(-2.7, 0), -2);
  EXPECT_EQ(Encode(-0.3, 0), 0);
  // From 1 up: nearest, ties up.
  EXPECT_EQ(Encode(2.5, 0), 3);
  EXPECT_EQ(Encode(2.4999, 0), 2);
  EXPECT_EQ(Encode(1.0, 0), 1);
  EXPECT_EQ(Encode(466900.0, 12), 114);      // 113.989
  EXPECT_EQ(Encode(-4.5297e-14, -50), -50);  // -50.999...
  // sqrt A 5153.6 * 2^19 = 2701970636.8 -> 2701970637, kept as the low 32 bits.
  EXPECT_EQ(static_cast<uint32_t>(Encode(5153.6, -19)), 2701970637u);
  // Beyond 32 bits only the low bits go on: 2^33 + 5 -> 5.
  EXPECT_EQ(Encode(8589934597.0, 0), 5);
  EXPECT_EQ(Encode(std::nan(""), 0), 0);
}

TEST(PackBits, KeepsTheLowBitsMostSignificantFirst) {
  std::array<NavBit, 32> out{};
  EXPECT_EQ(PackBits(-1, 6, out.data()), 1);
  EXPECT_EQ(Str(out.data(), 6), "111111");
  PackBits(63, 6, out.data());
  EXPECT_EQ(Str(out.data(), 6), "111111");
  EXPECT_EQ(PackBits(64, 6, out.data()), 0);
  EXPECT_EQ(Str(out.data(), 6), "000000");
  PackBits(-2, 22, out.data());
  EXPECT_EQ(Str(out.data(), 22), "1111111111111111111110");
  PackBits(static_cast<int32_t>(0x80000001u), 32, out.data());
  EXPECT_EQ(Str(out.data(), 32), "10000000000000000000000000000001");
  out.fill(7);
  EXPECT_EQ(PackBits(5, 0, out.data()), 0);  // no width, nothing written
  EXPECT_EQ(out[0], 7);
}

TEST(Parity, SolvedBitsOfWordsTwoAndTenLeaveD29AndD30Zero) {
  NavWord ones{};
  ones[29] = 1;
  for (int previousD30 = 0; previousD30 <= 1; ++previousD30) {
    for (uint32_t seed = 1; seed < 200; seed += 7) {
      NavSubframe sf{};
      for (int i = 0; i < 22; ++i) sf[9][i] = ((seed * 2654435761u) >> (i + 3)) & 1u;
      sf[1] = sf[9];
      const NavWord source = sf[9];
      const NavWord& prev = previousD30 ? ones : NavWord{};
      FinishWord(sf, prev, 9);
      FinishWord(sf, prev, 1);
      EXPECT_EQ(sf[9], sf[1]);
      EXPECT_EQ(sf[9][28], 0);
      EXPECT_EQ(sf[9][29], 0);
      // d1..d22 are the source bits, complemented when D30* is 1.
      for (int i = 0; i < 22; ++i) EXPECT_EQ(sf[9][i], source[i] ^ previousD30);
      // And the independent reading agrees with the parity.
      std::vector<int> bits(300, 0);
      for (int i = 0; i < 30; ++i) bits[i] = sf[9][i];
      EXPECT_TRUE(decoder::DecodeStream(bits, 0, previousD30)[0].parityOk);
    }
  }
  // The first pair tried that works is kept: 00 whenever 00 does.
  NavSubframe sf{};
  FinishWord(sf, NavWord{}, 9);
  EXPECT_EQ(Str(sf[9].data(), 30), std::string(30, '0'));
}

TEST(SvIds, PagesOfSubframesFourAndFive) {
  const int expected[26] = {0,  57, 25, 26, 27, 28, 57, 29, 30, 31, 32, 57, 62,
                            52, 53, 54, 57, 55, 56, 58, 59, 57, 60, 61, 62, 63};
  for (int page = 1; page <= 25; ++page) {
    int svId = -1;
    EXPECT_EQ(Subframe4SvId(page, svId), 0);
    EXPECT_EQ(svId, expected[page]) << "page " << page;
  }
  int svId = 99;
  Subframe4SvId(26, svId);
  EXPECT_EQ(svId, 99);
  EXPECT_EQ(Subframe5SvId(1), 1);
  EXPECT_EQ(Subframe5SvId(24), 24);
  EXPECT_EQ(Subframe5SvId(25), 51);
  int erd = 0;
  EXPECT_EQ(NmctErdValue(17, erd), 1);
  EXPECT_EQ(erd, 31);
}

TEST(SubframeWriters, BinaryRecordsAndCharacters) {
  NavSubframe sf{};
  sf[0][0] = 1;
  sf[9][29] = 1;
  std::FILE* bin = std::tmpfile();
  std::FILE* txt = std::tmpfile();
  ASSERT_NE(bin, nullptr);
  ASSERT_NE(txt, nullptr);
  WriteSubframeBinary(bin, sf);
  WriteSubframeText(txt, sf);
  auto slurp = [](std::FILE* f) {
    std::string s;
    std::rewind(f);
    for (int c; (c = std::fgetc(f)) != EOF;) s.push_back(static_cast<char>(c));
    std::fclose(f);
    return s;
  };
  const std::string b = slurp(bin), t = slurp(txt);
  ASSERT_EQ(b.size(), 1200u);
  ASSERT_EQ(t.size(), 300u);
  EXPECT_EQ(b.substr(0, 8), std::string("\x01\x00\x00\x00\x00\x00\x00\x00", 8));
  EXPECT_EQ(b.substr(1196), std::string("\x01\x00\x00\x00", 4));
  EXPECT_EQ(t, "1" + std::string(298, '0') + "1");
}

}  // namespace
}  // namespace vorel::navmsg
