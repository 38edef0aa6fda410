// The scintillation commands in process: what they read, write and report, the fit colour,
// the refusal, and the table a DIF run reads.
#include "scintillation/scint_commands.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/scan.h"
#include "scintillation/filter_fit.h"
#include "test_support.h"

namespace vorel::scintillation {
namespace {

struct Captured {
  std::string title, text, warnings;
};

platform::Messages Capture(Captured& c) {
  platform::Messages m;
  m.popup = [&c](std::string_view title, std::string_view text) {
    c.title = title;
    c.text = text;
  };
  m.warning = [&c](std::string_view text) { c.warnings += std::string(text) + "\n"; };
  return m;
}

class ScintCommands : public ::testing::Test {
 protected:
  ScintCommands() : dir("scint-commands"), data(dir.path()) {
    s.ScintTargetFile = "C:/VLD/target.txt";
    s.ScintFilterOutFile = "C:/VLD/fitted.txt";
    test::WriteFile(dir / "target.txt", "4,1\n1,0.5\n2,1.0\n4,0.5\n8,0.2\n");
  }
  test::ScratchDir dir;
  platform::DataDirectory data;
  ScintSettings s;
  Captured seen;
};

TEST(SeriesStatistics, MeanDeviationAndS4ByHand) {
  // Amplitudes 1 and 3: mean 2, deviation 1; intensities 1 and 9: mean 5, deviation 4,
  // S4 = 4 / 5.
  const SeriesStatistics st = ComputeStatistics({1.0, 3.0});
  EXPECT_DOUBLE_EQ(st.mean, 2.0);
  EXPECT_DOUBLE_EQ(st.deviation, 1.0);
  EXPECT_DOUBLE_EQ(st.s4, 0.8);
}

TEST_F(ScintCommands, LoadSetsPolesAndZerosFromTheFile) {
  ScintCommandResult r = LoadScintTargetCommand(s, data, Capture(seen));
  ASSERT_EQ(r.status, 0) << seen.text;
  EXPECT_EQ(s.FilterPoles, 1);
  EXPECT_EQ(s.FilterZeros, 2);  // N - na - 1
  EXPECT_NE(r.text.find("N 4, na 1"), std::string::npos) << r.text;

  s.ScintTargetFile = "C:/VLD/absent.txt";
  r = LoadScintTargetCommand(s, data, Capture(seen));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(seen.title, "Error message");
  EXPECT_NE(seen.text.find("absent.txt"), std::string::npos) << seen.text;
}

TEST_F(ScintCommands, FitWritesBothFilesAndStepsTheColour) {
  s.FilterPoles = 1;
  s.FilterZeros = 2;
  int32_t colour = kFitPlotColourStart;
  ScintCommandResult r = FitScintFilterCommand(s, data, Capture(seen), colour);
  ASSERT_EQ(r.status, 0) << seen.text;
  EXPECT_EQ(colour, 0xFF00FA);
  EXPECT_NE(r.text.find("colour 0xFF00FA"), std::string::npos) << r.text;
  const std::vector<std::string> lines = test::SplitLines(test::ReadFile(dir / "fitted.txt"));
  ASSERT_EQ(lines.size(), 6u);  // na, 1 a, nb + 1, 3 b
  EXPECT_EQ(lines[0], "1");
  EXPECT_EQ(lines[2], "3");
  for (int i : {1, 3, 4, 5}) EXPECT_EQ(lines[i].size(), 16u) << lines[i];
  // 30 rows of na + nb = 3 values, 16 characters each, no newline.
  EXPECT_EQ(test::ReadFile(dir / "temp.txt").size(), 30u * 3u * 16u);
  FitScintFilterCommand(s, data, Capture(seen), colour);
  EXPECT_EQ(colour, 0xFF01F4);

  s.FilterZeros = 40;  // 42 coefficients for 30 rows
  r = FitScintFilterCommand(s, data, Capture(seen), colour);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(seen.text.find("30 rows"), std::string::npos) << seen.text;
}

TEST_F(ScintCommands, GenerateWritesFiveThousandLinesAndRefusesBadSettings) {
  ScintCommandResult r = GenerateScintCommand(s, data, Capture(seen));
  ASSERT_EQ(r.status, 0) << seen.text;
  const std::string text = test::ReadFile(dir / "scintGenData.dat");
  EXPECT_EQ(text.size(), 5000u * 32u);
  EXPECT_EQ(text.substr(30, 2), "\r\n");
  EXPECT_NE(r.text.find("amplitude: mean"), std::string::npos) << r.text;
  EXPECT_NE(r.text.find("S4"), std::string::npos) << r.text;

  s.ScintIndex = 1.0;
  s.ScintCorrelation = 0.5;
  r = GenerateScintCommand(s, data, Capture(seen));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(seen.title, "Warning");
  EXPECT_EQ(seen.text, "Incorrect scintillation parameters.\n Execution aborted");
  EXPECT_EQ(test::ReadFile(dir / "scintGenData.dat"), text);  // left as it was

  s = ScintSettings{};
  s.AmpFilterOn = 1;
  s.AmpFilterFile = "C:/VLD/nofilter.txt";
  r = GenerateScintCommand(s, data, Capture(seen));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(seen.text.find("AmpFilterFile"), std::string::npos) << seen.text;
}

TEST_F(ScintCommands, FittedFilterShapesTheSeries) {
  s.FilterPoles = 0;
  s.FilterZeros = 2;
  int32_t colour = kFitPlotColourStart;
  ASSERT_EQ(FitScintFilterCommand(s, data, Capture(seen), colour).status, 0) << seen.text;
  ScintSettings g;
  ScintCommandResult plain = GenerateScintCommand(g, data, Capture(seen));
  ASSERT_EQ(plain.status, 0);
  const std::string before = test::ReadFile(dir / "scintGenData.dat");
  g.PhaseFilterOn = 1;
  g.PhaseFilterFile = s.ScintFilterOutFile;
  ScintCommandResult shaped = GenerateScintCommand(g, data, Capture(seen));
  ASSERT_EQ(shaped.status, 0) << seen.text;
  EXPECT_NE(shaped.text.find("na 0, nb 3 (b times 3.1)"), std::string::npos) << shaped.text;
  const std::string after = test::ReadFile(dir / "scintGenData.dat");
  // The amplitude column is its own white copy plus 0.6 of its band-passed part now;
  // either way both columns change.
  EXPECT_NE(before.substr(0, 15), after.substr(0, 15));
  EXPECT_NE(before.substr(15, 15), after.substr(15, 15));
}

TEST(ScintTable, SeriesAtInterpolatesBetweenTwentiethsOfASecond) {
  const std::vector<double> v = {0.0, 1.0, 3.0};
  EXPECT_DOUBLE_EQ(SeriesAt(v, 0), 0.0);
  EXPECT_DOUBLE_EQ(SeriesAt(v, 25), 0.5);
  EXPECT_DOUBLE_EQ(SeriesAt(v, 75), 2.0);
  EXPECT_DOUBLE_EQ(SeriesAt(v, 100), 3.0);
  EXPECT_DOUBLE_EQ(SeriesAt(v, 5000), 3.0);
}

TEST(ScintTable, ColumnsReadBackByTheDifRunsFormats) {
  ScintSettings s;
  s.ScintCorrelation = 0.3;
  ScintTableArgs args;
  args.indices = {0.2, 0.5, 0.8};
  args.ScintRate = 4;  // a period of 250 ms
  args.channels = 2;
  ScintTable t;
  std::string error;
  ASSERT_EQ(MakeScintTable(s, nullptr, nullptr, args, t, error), 0) << error;
  EXPECT_EQ(t.periodMs, 250);
  EXPECT_EQ(t.periods, 1000);
  const std::vector<std::string> lines = test::SplitLines(t.text);
  ASSERT_EQ(lines.size(), 2000u);
  EXPECT_EQ(lines[6], lines[7]);  // one line per channel per period
  // Period 3 (750 ms, sample 15), read as the DIF run reads bubble classes 1 to 4.
  const std::string& line = lines[6];
  for (int c = 0; c < 4; ++c) {
    // As the DIF run reads class c + 1: skip 2 c numbers, then phase and amplitude.
    platform::Scanner scanner(line);
    double skipped = 0.0, phase = -99.0, amplitude = -99.0;
    for (int k = 0; k < 2 * c; ++k) ASSERT_TRUE(scanner.Double(skipped));
    ASSERT_TRUE(scanner.Double(phase) && scanner.Double(amplitude)) << c;
    if (c < 3) {
      EXPECT_NEAR(phase, t.series[c].phaseOut[15], 5e-7) << c;
      EXPECT_NEAR(amplitude, t.series[c].ampOut[15], 5e-7) << c;
    } else {
      EXPECT_EQ(phase, 0.0);
      EXPECT_EQ(amplitude, 1.0);
    }
  }
  // A larger index scintillates more.
  EXPECT_LT(ComputeStatistics(t.series[0].ampOut).s4, ComputeStatistics(t.series[2].ampOut).s4);

  args.ScintRate = 2000;
  EXPECT_EQ(MakeScintTable(s, nullptr, nullptr, args, t, error), -1);
  EXPECT_NE(error.find("ScintRate"), std::string::npos) << error;
  args.ScintRate = 1;
  s.ScintCorrelation = 0.45;  // 0.2 and 0.5 can be met, 0.8 cannot: k 1.78 > inv 1.56
  EXPECT_EQ(MakeScintTable(s, nullptr, nullptr, args, t, error), -2);
  EXPECT_NE(error.find("class 3, ScintIndex 0.8"), std::string::npos) << error;
}

}  // namespace
}  // namespace vorel::scintillation
