#include "dif/dif_settings.h"

#include <gtest/gtest.h>

#include "app/dif_command.h"
#include "app/settings.h"

namespace vorel::dif {
namespace {

TEST(DifSettings, ParameterTableCharacterRules) {
  EXPECT_EQ(SamplingFrequencyFromText("16368", 4092.0), 16368.0);
  EXPECT_EQ(SamplingFrequencyFromText("1 whatever", 4092.0), 16368.0);
  EXPECT_EQ(SamplingFrequencyFromText("40.92 MHz", 4092.0), 40920.0);
  EXPECT_EQ(SamplingFrequencyFromText("5", 4092.0), 54560.0);
  EXPECT_EQ(SamplingFrequencyFromText("20000", 4123.0), 4123.0);  // row 1's number stays
  EXPECT_EQ(FilterWindowFromText("Bartlett"), 0);
  EXPECT_EQ(FilterWindowFromText("Blackman"), 1);
  EXPECT_EQ(FilterWindowFromText("Hamming"), 2);
  EXPECT_EQ(FilterWindowFromText("Hann"), 3);
  EXPECT_EQ(FilterWindowFromText("Square"), 4);
  EXPECT_EQ(FilterWindowFromText("Kaiser"), 0);
  EXPECT_EQ(FilterWindowFromText("Ha"), 0);
  EXPECT_EQ(OutputPackedFromText("Packed"), 1);
  EXPECT_EQ(OutputPackedFromText("packed"), 0);
  EXPECT_EQ(OutputPackedFromText("Direct"), 0);
  EXPECT_EQ(DecimationFromText("none"), 0);
  EXPECT_EQ(DecimationFromText("2 (8.184 MHz)"), 2);
  EXPECT_EQ(DecimationFromText("3"), 3);
  EXPECT_EQ(DecimationFromText("4"), 0);
}

TEST(DifSettings, GatherReadsTheTabsOnlyWhenTheyApply) {
  DifPanelValues p;
  p.IfFrequency = 4092.0;
  p.SamplingFrequency = "40920";
  p.Bandwidth = 2.0;
  p.Duration = 0.5;
  p.ScintEnabled = 1;
  p.ScintType = 0;
  p.ScintStart = 7;
  p.ScintPrn = 9;
  p.TestPrn = 5;
  DifSettings s = GatherDifSettings(p);
  EXPECT_EQ(s.IfFrequency, 4092000.0);
  EXPECT_EQ(s.SamplingFrequency, 40920000.0);
  EXPECT_EQ(s.SamplesPerMs, 40920);
  EXPECT_EQ(s.Bandwidth, 2000000.0);
  EXPECT_EQ(s.Duration, 30.0);
  EXPECT_EQ(s.CarrierFrequency, 1575420000.0);
  EXPECT_EQ(s.ScintMode, 1);
  EXPECT_EQ(s.ScintStart, 0);  // ScintType 0: the one-satellite fields stay 0
  EXPECT_EQ(s.ScintPrn, 0);
  EXPECT_EQ(s.TestPrn, 0);  // scenario run: the test tab is not read
  p.ScintType = 1;
  p.ScenarioDriven = 0;
  p.ConstellationChoice = 3;
  s = GatherDifSettings(p);
  EXPECT_EQ(s.ScintMode, 2);
  EXPECT_EQ(s.ScintStart, 7);
  EXPECT_EQ(s.ScintPrn, 9);
  EXPECT_EQ(s.TestPrn, 5);
  EXPECT_EQ(s.CarrierFrequency, 0.0);  // only GPS has a carrier
}

TEST(DifSettings, SettingsThatCannotRunAreRefused) {
  DifPanelValues p;
  EXPECT_EQ(CheckDifSettings(GatherDifSettings(p)), "");
  p.BitsPerSample = 3;
  EXPECT_NE(CheckDifSettings(GatherDifSettings(p)).find("Packed"), std::string::npos);
  p.OutputPacked = "Direct";
  EXPECT_EQ(CheckDifSettings(GatherDifSettings(p)), "");
  p.BitsPerSample = 40;
  EXPECT_NE(CheckDifSettings(GatherDifSettings(p)), "");
  p.BitsPerSample = 2;
  p.SamplingFrequency = "x";
  p.IfFrequency = 0.5;  // fallback: 0.5 kHz sampling, no sample in a millisecond
  EXPECT_NE(CheckDifSettings(GatherDifSettings(p)).find("SamplingFrequency"), std::string::npos);
}

TEST(DifSettings, CommandLineSettingsReachThePanelValues) {
  app::Settings settings;
  std::string error;
  for (const char* a : {"IfFrequency=4123", "SamplingFrequency=54560", "FilterWindow=Blackman",
                        "Decimation=2", "OutputPacked=Direct", "BitsPerSample=1", "MultipathOn=1",
                        "MultipathTable=y,,5,0.5,30,2;x,a,7,0.25,10,0;n,,9,1,1,1"})
    ASSERT_TRUE(app::ApplySetAssignment(settings, a, "--set", error)) << error;
  EXPECT_FALSE(app::ApplySetAssignment(settings, "MultipathTable=y,,5,0.5", "--set", error));
  EXPECT_NE(error.find("6 columns"), std::string::npos);
  const DifPanelValues p = app::DifPanelFromSettings(settings);
  const DifSettings s = GatherDifSettings(p);
  EXPECT_EQ(s.IfFrequency, 4123000.0);
  EXPECT_EQ(s.SamplesPerMs, 54560);
  EXPECT_EQ(s.FilterWindow, 1);
  EXPECT_EQ(s.Decimation, 2);
  EXPECT_EQ(s.OutputPacked, 0);
  std::array<MultipathRow, kMultipathRows> rows{};
  ASSERT_EQ(MultipathRowsOf(p, rows), 3);
  EXPECT_EQ(rows[1].enable, "x");
  EXPECT_EQ(rows[1].prn, 7);
  EXPECT_EQ(rows[1].amplitude, 0.25);
  EXPECT_EQ(rows[3].enable, "");  // rows beyond those given stay empty
  ASSERT_TRUE(app::ApplySetAssignment(settings, "SignalChoice=SP1", "--set", error));
  EXPECT_EQ(settings.dif.SignalOptionA, 1);
  EXPECT_EQ(settings.dif.SignalOptionB, 0);
}

TEST(DifSettings, RecordingShapeCountsWhatTheFileHoldsOfEachMillisecond) {
  DifPanelValues p;
  p.SamplingFrequency = "54560";
  p.BitsPerSample = 1;
  p.Decimation = "3";
  // 54560 samples, 6820 bytes' worth before decimation, 2273 bytes of 8 after: 18184.
  app::RecordingShape r = app::ShapeOf(GatherDifSettings(p));
  EXPECT_EQ(r.writtenPerMs, 18184);
  EXPECT_EQ(r.skippedPerMs, 54560 - 3 * 18184);
  std::vector<std::string> w = app::RecordingWarnings(p, GatherDifSettings(p));
  ASSERT_EQ(w.size(), 1u);
  EXPECT_NE(w[0].find("18184000 samples per second"), std::string::npos) << w[0];

  // The ordinary recording: nothing left out, nothing to warn about, the summary as always.
  DifPanelValues plain;
  const DifSettings s = GatherDifSettings(plain);
  EXPECT_EQ(app::ShapeOf(s).skippedPerMs, 0);
  EXPECT_TRUE(app::RecordingWarnings(plain, s).empty());
  GeneratorReport report;
  report.blocks = 3;
  report.bytes = 3 * 4092;
  EXPECT_EQ(app::DescribeRecording(s, report),
            "3 ms of signal, 12276 bytes: 16368000 samples per second (fs 16368000 Hz), IF "
            "4092000 Hz, real samples, 2 bit(s) a sample, Packed: 4 samples a byte, the earliest "
            "in bits 1..0; levels unsigned 0..3 (0 the block's minimum), the block quantised "
            "against its own range, no header");

  // 4093 samples a millisecond (the IfFrequency number) packed four to a byte: 4092 written.
  DifPanelValues odd;
  odd.SamplingFrequency = "x";
  odd.IfFrequency = 4093.0;
  const DifSettings o = GatherDifSettings(odd);
  EXPECT_EQ(app::ShapeOf(o).writtenPerMs, 4092);
  EXPECT_NE(app::DescribeRecording(o, report).find("4092 samples per ms then a gap of 1"),
            std::string::npos);
  w = app::RecordingWarnings(odd, o);
  ASSERT_EQ(w.size(), 2u);
  EXPECT_NE(w[0].find("4093 kHz"), std::string::npos) << w[0];

  // Direct with 12 bits keeps the low byte of each level.
  DifPanelValues wide;
  wide.OutputPacked = "Direct";
  wide.BitsPerSample = 12;
  const DifSettings d = GatherDifSettings(wide);
  EXPECT_NE(app::DescribeRecording(d, report).find("its low 8 bits alone"), std::string::npos);
  w = app::RecordingWarnings(wide, d);
  ASSERT_EQ(w.size(), 1u);
  EXPECT_NE(w[0].find("low 8 bits"), std::string::npos);
}

}  // namespace
}  // namespace vorel::dif
