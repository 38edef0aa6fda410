// The scintillation tools from the command line: load, fit and generate in one program
// start, the table for a DIF run, and bad input.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

class ScintCli : public ::testing::Test {
 protected:
  ScintCli() : dir("scint-cli") {
    std::filesystem::create_directories(dir / "VLD");
    WriteFile(dir / "VLD" / "target.txt", "5,2\n0.1,1.0\n0.5,2.0\n1,1.5\n2,0.8\n5,0.3\n");
  }
  CliResult Run(std::vector<std::string> args) {
    args.insert(args.begin(),
                {"--data-dir", (dir / "VLD").string(), "--set", "ScintTargetFile=C:/VLD/target.txt",
                 "--set", "ScintFilterOutFile=C:/VLD/amp.flt"});
    return RunVorel(args, dir.path().string());
  }
  ScratchDir dir;
};

TEST_F(ScintCli, LoadFitAndGenerateInOneProgramStart) {
  // scint-load sets FilterPoles 2 and FilterZeros 5 - 2 - 1 = 2 for the fit that follows.
  CliResult r = Run({"--set", "AmpFilterOn=1", "--set", "AmpFilterFile=C:/VLD/amp.flt",
                     "scint-load", "scint-fit", "scint-generate"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("FilterPoles = 2, FilterZeros = 2"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("na 2, nb 2: 40 rows, 5 coefficients"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("na 2, nb 3 (b times 1.1)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("wrote " + (dir / "VLD" / "scintGenData.dat").string()), std::string::npos)
      << r.out;
  const std::vector<std::string> filter = SplitLines(ReadFile(dir / "VLD" / "amp.flt"));
  ASSERT_EQ(filter.size(), 7u);
  EXPECT_EQ(filter[0], "2");
  EXPECT_EQ(filter[3], "3");
  const std::string first = ReadFile(dir / "VLD" / "scintGenData.dat");
  EXPECT_EQ(SplitLines(first).size(), 5000u);
  // The filter fitted through the row-by-row view has poles far outside the unit circle
  // here: the amplitude runs away, and the command says so.
  EXPECT_NE(r.err.find("warning: amplitude: "), std::string::npos) << r.err;

  // The same settings in another program start give the same bytes.
  r = Run({"--set", "AmpFilterOn=1", "--set", "AmpFilterFile=C:/VLD/amp.flt", "scint-generate"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(ReadFile(dir / "VLD" / "scintGenData.dat"), first);
}

TEST_F(ScintCli, TableAndBadInput) {
  CliResult r = Run({"--set", "ScintRate=10", "scint-table", "C:/VLD/scint.txt", "0.2", "0.5",
                     "0.8", "--channels", "3"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("2500 periods of 100 ms, 3 line(s) each"), std::string::npos) << r.out;
  EXPECT_EQ(SplitLines(ReadFile(dir / "VLD" / "scint.txt")).size(), 7500u);

  WriteFile(dir / "VLD" / "target.txt", "3,1\n0.1,1.0\n0.5\n1,1.5\n");
  r = Run({"scint-fit"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Error message: ScintTargetFile: " + (dir / "VLD" / "target.txt").string() +
                       ", line 3"),
            std::string::npos)
      << r.err;
}

}  // namespace
}  // namespace vorel::test
