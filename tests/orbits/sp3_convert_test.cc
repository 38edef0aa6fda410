// SP3 to polynomial arcs: the interpolation itself, the real IGS file of 1 July 2010
// against a reading of our own and an independent interpolation, the layout rules on
// small files made here, and bad input.
#include "orbits/sp3_convert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>

#include "test_support.h"

namespace vorel::orbits {
namespace {

using test::ReadFile;
using test::ScratchDir;
using test::WriteFile;

TEST(PolynomialCoefficients, RecoversAKnownPolynomialFromAnyEightPoints) {
  const double p[8] = {1.5, -2.0, 0.25, 3.0, -0.5, 0.125, -0.0625, 0.01};
  const double x[8] = {-3.0, -1.0, 0.0, 0.5, 2.0, 2.5, 4.0, 7.0};
  double y[8], c[8];
  for (int i = 0; i < 8; ++i) {
    y[i] = 0.0;
    for (int k = 7; k >= 0; --k) y[i] = y[i] * x[i] + p[k];
  }
  PolynomialCoefficients(x, y, c, 8);
  for (int k = 0; k < 8; ++k) EXPECT_NEAR(c[k], p[k], 1e-9) << "c" << k;
  // One point: the constant; no point: nothing is touched.
  const double one = 4.0, value = -2.5;
  PolynomialCoefficients(&one, &value, c, 1);
  EXPECT_EQ(c[0], -2.5);
  c[0] = 99.0;
  PolynomialCoefficients(x, y, c, 0);
  EXPECT_EQ(c[0], 99.0);
}

// The SP3 file read by the test: epoch index -> PRN -> x, y, z (km).
struct Sp3Positions {
  std::vector<std::map<int, std::array<double, 3>>> epochs;
};

Sp3Positions ReadPositions(const std::filesystem::path& path) {
  Sp3Positions out;
  std::istringstream in(ReadFile(path));
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("* ", 0) == 0) out.epochs.emplace_back();
    if (line.rfind("PG", 0) == 0 && !out.epochs.empty()) {
      std::istringstream f(line.substr(2));
      int prn;
      std::array<double, 3> r;
      f >> prn >> r[0] >> r[1] >> r[2];
      out.epochs.back()[prn] = r;
    }
  }
  return out;
}

// Lagrange interpolation over the ten epochs nearest to `k` (in epochs from the start).
std::array<double, 3> Lagrange(const Sp3Positions& s, int prn, double k) {
  const int n = static_cast<int>(s.epochs.size());
  int first = std::clamp(static_cast<int>(std::floor(k)) - 4, 0, n - 10);
  std::array<double, 3> r{};
  for (int i = first; i < first + 10; ++i) {
    double w = 1.0;
    for (int j = first; j < first + 10; ++j)
      if (j != i) w *= (k - j) / static_cast<double>(i - j);
    for (int a = 0; a < 3; ++a) r[a] += w * s.epochs[i].at(prn)[a];
  }
  return r;
}

TEST(Sp3ToPnm, RealFileThroughTheNodesAndCloseToAnIndependentInterpolation) {
  ScratchDir dir("sp3-real");
  const auto sp3 = test::DataDir() / "examples" / "igs15904.sp3";
  Sp3ConvertReport report;
  std::string error;
  ASSERT_EQ(ConvertSp3ToPnm({sp3, dir / "igs.pnm", 0}, report, error), 0) << error;
  EXPECT_EQ(report.week, 1590);
  EXPECT_EQ(report.secondsOfWeek, 345600.0);  // 2010-07-01 00:00 is Thursday 00:00
  EXPECT_EQ(report.epochCount, 96);
  PnmFile pnm;
  ASSERT_EQ(ReadPnmFile(dir / "igs.pnm", pnm, error), 0) << error;

  const Sp3Positions sp = ReadPositions(sp3);
  ASSERT_EQ(sp.epochs.size(), 96u);
  double worstNode = 0.0, worstBetween = 0.0;
  for (int prn = 1; prn <= 32; ++prn) {
    ASSERT_EQ(pnm.arcs[prn - 1].size(), 12u) << "PRN " << prn;  // 96 epochs, 12 arcs
    for (int k = 0; k < 96; ++k) {
      PnmState s;
      ASSERT_EQ(EvaluatePnm(pnm, prn, 1590, 345600.0 + 900.0 * k, 900.0, s, error), 0) << error;
      const auto& r = sp.epochs[k].at(prn);
      for (double d : {s.x - r[0], s.y - r[1], s.z - r[2]}) worstNode = std::max(worstNode, std::fabs(d));
      if (k % 8 == 7) continue;  // between nodes inside the arc only
      ASSERT_EQ(EvaluatePnm(pnm, prn, 1590, 345600.0 + 900.0 * (k + 0.5), 900.0, s, error), 0);
      const auto l = Lagrange(sp, prn, k + 0.5);
      const double d = std::hypot(s.x - l[0], s.y - l[1], s.z - l[2]) * 1000.0;
      worstBetween = std::max(worstBetween, d);
    }
  }
  // The file prints kilometres with six decimals, a millimetre: the nodes come back within half.
  EXPECT_LT(worstNode, 0.5e-6) << "km";
  EXPECT_LT(worstBetween, 1.0) << "m";
  std::cout << "worst at the nodes " << worstNode * 1e6 << " mm, between nodes " << worstBetween
            << " m\n";
  // Past the last epoch by one interval there is no arc any more.
  PnmState s;
  EXPECT_EQ(EvaluatePnm(pnm, 5, 1590, 345600.0 + 900.0 * 96, 900.0, s, error), -1);
  EXPECT_NE(error.find("PRN 5 has no arc"), std::string::npos) << error;
}

// A small SP3 file: `epochs` epochs 15 minutes apart; each listed line is repeated per epoch
// with the satellite's own constant position.
std::string SmallSp3(const char* header, int epochs, const std::vector<std::string>& lines,
                     const std::string& tail = "EOF\n") {
  std::string text = std::string(header) + "2010  7  1  0  0  0.00000000      " +
                     std::to_string(epochs) + " ORBIT IGS05 HLM  IGS\n";
  text += "+   32   G01G02G03G04G05G06G07G08G09G10G11G12G13G14G15G16G17\n";
  text += "++         0  2  2  2  2  2  2  2  2  2  3  2  2  2  2  2  2\n";
  for (int e = 0; e < epochs; ++e) {
    char star[64];
    std::snprintf(star, sizeof star, "*  2010  7  1 %2d %2d  0.00000000\n", e / 4, e % 4 * 15);
    text += star;
    for (const auto& l : lines) text += l + "\n";
  }
  return text + tail;
}

std::string PrnBlock(const std::string& pnm, int prn) {
  const auto start = pnm.find("prn=" + std::to_string(prn) + "\n");
  const auto end = pnm.find("prn=" + std::to_string(prn + 1) + "\n");
  return pnm.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

TEST(Sp3ToPnm, ArcsSystemCharacterAndTheEndOfAPass) {
  ScratchDir dir("sp3-rules");
  const std::vector<std::string> lines = {
      "PG05  10000.000000  -2000.500000    300.250000     12.500000",
      "P  7  20000.000000  20000.000000  20000.000000      1.000000",
      "PG33   1111.000000   1111.000000   1111.000000      1.000000"};
  WriteFile(dir / "c.sp3", SmallSp3("#cP", 15, lines, "EOFX\nPG09 1.0 2.0 3.0 4.0\n"));
  Sp3ConvertReport report;
  std::string error;
  ASSERT_EQ(ConvertSp3ToPnm({dir / "c.sp3", dir / "c.pnm", 0}, report, error), 0) << error;
  const std::string pnm = ReadFile(dir / "c.pnm");
  EXPECT_EQ(pnm.substr(0, 23), "#1590,345600.000000,15\n");
  // 15 epochs: one arc, 7 dropped. A constant series: c0 the value (times 100 for a
  // position) and every other coefficient zero to rounding.
  EXPECT_EQ(report.epochs[4], 15);
  EXPECT_EQ(report.arcs[4], 1);
  PnmFile file;
  ASSERT_EQ(ReadPnmFile(dir / "c.pnm", file, error), 0) << error;
  ASSERT_EQ(file.arcs[4].size(), 1u);
  const double expected[4] = {1000000.0, -200050.0, 30025.0, 12.5};
  for (int r = 0; r < 4; ++r) {
    EXPECT_NEAR(file.arcs[4][0].c[r][0], expected[r], 1e-6);
    for (int k = 1; k < 8; ++k) EXPECT_NEAR(file.arcs[4][0].c[r][k], 0.0, 1e-6);
  }
  // "P  7" has a blank for its system: not a GPS line of a "#cP" file. PRN 33 is never
  // looked for, PRN 9 stands after the end of the pass; each PRN line is there.
  EXPECT_EQ(PrnBlock(pnm, 7), "prn=7\n");
  EXPECT_EQ(PrnBlock(pnm, 9), "prn=9\n");
  EXPECT_EQ(pnm.find("prn=33"), std::string::npos);
  for (int prn = 1; prn <= 32; ++prn)
    EXPECT_NE(pnm.find("prn=" + std::to_string(prn) + "\n"), std::string::npos);

  // With "#aP" it is the reverse: the blank counts and "G" does not.
  WriteFile(dir / "a.sp3", SmallSp3("#aP", 16, lines));
  ASSERT_EQ(ConvertSp3ToPnm({dir / "a.sp3", dir / "a.pnm", 0}, report, error), 0) << error;
  EXPECT_EQ(report.arcs[4], 0);
  EXPECT_EQ(report.arcs[6], 2);
  EXPECT_EQ(PrnBlock(ReadFile(dir / "a.pnm"), 5), "prn=5\n");
}

TEST(Sp3ToPnm, BadInputIsReportedOrReadAsFarAsItGoes) {
  ScratchDir dir("sp3-bad");
  Sp3ConvertReport report;
  std::string error;
  // A missing input names the file and creates no output.
  EXPECT_EQ(ConvertSp3ToPnm({dir / "none.sp3", dir / "o.pnm", 0}, report, error), -1);
  EXPECT_NE(error.find("none.sp3"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "o.pnm"));
  // No "#cP"/"#aP" line: stop without a file, and an older file of that name survives.
  WriteFile(dir / "o.pnm", "kept");
  WriteFile(dir / "rinex.sp3", "     2.10           N: GPS NAV DATA\n");
  EXPECT_EQ(ConvertSp3ToPnm({dir / "rinex.sp3", dir / "o.pnm", 0}, report, error), -1);
  EXPECT_NE(error.find("no \"#cP\" or \"#aP\""), std::string::npos) << error;
  EXPECT_EQ(ReadFile(dir / "o.pnm"), "kept");

  // Truncated mid-line, and a position line of garbage: no crash, the rest converts; the
  // garbage line counts as an epoch whose unreadable fields are zero.
  std::string text = SmallSp3("#cP", 8, {"PG03  10.000000  20.000000  30.000000  1.000000"});
  text.replace(text.find("PG03", text.find("*  2010  7  1  1  0")), 4, "PG03 x!");
  WriteFile(dir / "t.sp3", text.substr(0, text.size() - 30));
  ASSERT_EQ(ConvertSp3ToPnm({dir / "t.sp3", dir / "t.pnm", 0}, report, error), 0) << error;
  EXPECT_EQ(report.epochs[2], 8);

  // 40,000 epochs of one PRN: 1000 are held, 125 arcs.
  std::string big = "#cP2010  7  1  0  0  0.00000000   40000 ORBIT\n";
  for (int e = 0; e < 40000; ++e)
    big += "*  2010  7  1  0  0  0.00000000\nPG12  1.000000  2.000000  3.000000  4.000000\n";
  WriteFile(dir / "big.sp3", big);
  ASSERT_EQ(ConvertSp3ToPnm({dir / "big.sp3", dir / "big.pnm", 0}, report, error), 0) << error;
  EXPECT_EQ(report.epochs[11], 1000);
  EXPECT_EQ(report.arcs[11], 125);

  // A damaged .pnm is refused with its line.
  WriteFile(dir / "bad.pnm", "#1590,345600.0,8\nprn=1\narc=0\n1,2,3\n");
  PnmFile file;
  EXPECT_EQ(ReadPnmFile(dir / "bad.pnm", file, error), -1);
  EXPECT_NE(error.find("bad.pnm, line 4"), std::string::npos) << error;
}

}  // namespace
}  // namespace vorel::orbits
