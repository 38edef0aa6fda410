#include "platform/scan.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "platform/random.h"

namespace vorel::platform {
namespace {

TEST(Scan, FreeFormatNumbersWithFortranExponentsAndRunTogetherNegatives) {
  double a = 0, b = 0, c = 0;
  EXPECT_EQ(ScanLine("   1.5D-04-2.0D-12 3.25e+2", "%s>%f%f%f", {&a, &b, &c}), 3);
  EXPECT_DOUBLE_EQ(a, 1.5e-4);
  EXPECT_DOUBLE_EQ(b, -2.0e-12);
  EXPECT_DOUBLE_EQ(c, 325.0);
  // An exponent letter without digits is not an exponent: the number ends before it.
  double d = 0;
  std::string w;
  EXPECT_EQ(ScanLine("7.5Dx", "%s>%f%s", {&d, &w}), 2);
  EXPECT_DOUBLE_EQ(d, 7.5);
  EXPECT_EQ(w, "Dx");
}

// Every number reads to the double the C library's strtod gives, bit for bit: random
// decimals of every length, ties of the last bit, the range's ends and beyond, a leading
// plus, and mantissas longer than any record writes.
TEST(Scan, NumbersReadAsStrtodReadsThem) {
  std::mt19937_64 random(5);
  std::vector<std::string> texts = {"+5.0", "-0.0", "1e400", "-1e400", "1e-400", "4.9e-324",
                                    "2.2250738585072011e-308", "9007199254740993",
                                    "0.1000000000000000055511151231257827021181583404541015625",
                                    ".5", "5.", "-.25e+3", std::string(80, '7') + ".5e-70"};
  for (int k = 0; k < 2000; ++k) {
    std::string t = fmt::format("{}{}.{}", k % 3 == 0 ? "-" : "", random() % 100000000,
                                random() % 1000000000000);
    if (k % 2 == 0) t += fmt::format("e{}", static_cast<int>(random() % 640) - 320);
    texts.push_back(t);
  }
  for (const std::string& t : texts) {
    double value = 0.0;
    ASSERT_EQ(ParseDouble(t, value), t.size()) << t;
    const double expected = std::strtod(t.c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&value, &expected, sizeof value), 0) << t;
  }
}

TEST(Scan, SkipsWordsAndSingleCharactersAsTheFormatSays) {
  int32_t t = 0;
  double lat = 0, lon = 0, alt = 0;
  const char* fmt = "%s>%d%s[w1d]%f%s[w1d]%f%s[w1d]%f%s[d]";
  EXPECT_EQ(ScanLine("345600000,45.5,-7.25,120.0,x", fmt, {&t, &lat, &lon, &alt}), 4);
  EXPECT_EQ(t, 345600000);
  EXPECT_DOUBLE_EQ(lat, 45.5);
  EXPECT_DOUBLE_EQ(lon, -7.25);
  EXPECT_DOUBLE_EQ(alt, 120.0);
  int32_t v = 0;
  EXPECT_EQ(ScanLine("ID:  42", "%s>%s[d]%d", {&v}), 1);
  EXPECT_EQ(v, 42);
}

TEST(Scan, StopsAtTheFirstFieldThatDoesNotScanAndKeepsLaterTargets) {
  int32_t t = 1;
  double lat = 2, lon = 3;
  EXPECT_EQ(ScanLine("100,abc,5", "%s>%d%s[w1d]%f%s[w1d]%f", {&t, &lat, &lon}), 1);
  EXPECT_EQ(t, 100);
  EXPECT_EQ(lat, 2);
  EXPECT_EQ(lon, 3);
  EXPECT_EQ(ScanLine("", "%s>%d", {&t}), 0);
  // A format with more storing conversions than targets is a programming error.
  EXPECT_EQ(ScanLine("1 2", "%s>%d%d", {&t}), -1);
}

TEST(Scan, IntegersSaturateInsteadOfOverflowing) {
  int32_t v = 0;
  EXPECT_EQ(ScanLine("99999999999999999999", "%s>%d", {&v}), 1);
  EXPECT_EQ(v, INT32_MAX);
  EXPECT_EQ(ScanLine("-99999999999", "%s>%d", {&v}), 1);
  EXPECT_EQ(v, INT32_MIN);
}

TEST(Random, RunTimeRandFollowsTheLinearCongruentialRule) {
  RandState r;
  // From state 1: 1*214013+2531011 = 2745024, >>16 = 41; the well-known first values.
  EXPECT_EQ(CrtRand(r), 41);
  EXPECT_EQ(CrtRand(r), 18467);
  EXPECT_EQ(CrtRand(r), 6334);
}

TEST(Random, GaussianFillIsSeededPerCallAndHasUnitMoments) {
  std::vector<double> a(20001), b(20001);
  GaussianFill(1234, 0.0, 1.0, a.data(), 20001);
  GaussianFill(1234, 0.0, 1.0, b.data(), 20001);
  EXPECT_EQ(a, b);
  double mean = 0, var = 0;
  for (double x : a) mean += x;
  mean /= a.size();
  for (double x : a) var += (x - mean) * (x - mean);
  var /= a.size();
  EXPECT_NEAR(mean, 0.0, 0.03);
  EXPECT_NEAR(var, 1.0, 0.05);
  // A prefix of a longer fill equals the shorter fill: samples depend on their index only.
  std::vector<double> c(7);
  GaussianFill(1234, 0.0, 1.0, c.data(), 7);
  for (int i = 0; i < 7; ++i) EXPECT_EQ(c[i], a[i]);
}

}  // namespace
}  // namespace vorel::platform
