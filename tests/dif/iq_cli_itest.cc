// The I/Q form from the command line: a user's chain on the bundled orbits, what the
// summary tells a receiver, and a refused setting.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

std::vector<std::string> Chain(const ScratchDir& dir, std::vector<std::string> extra) {
  std::vector<std::string> a = {"--data-dir", (dir / "VLD").string(), "--yes"};
  for (const char* set :
       {"KeepOrbitEpochs=1", "ScenarioHour=5", "ReceiverLatitude=-30.25",
        "ReceiverLongitude=149.75", "ObservationInterval=1", "RecordType=5", "ScenarioDuration=1",
        "atmosphereEnabled=0", "ObservationOutputFile=C:/VLD/rec.scn", "SampleForm=iq",
        "Duration=0.01", "DifOutputFile=C:/VLD/iq.bin"})
    a.insert(a.end(), {"--set", set});
  a.insert(a.end(), extra.begin(), extra.end());
  for (const char* c : {"load-orbits", "--type", "rinex"}) a.push_back(c);
  a.push_back((DataDir() / "examples" / "brdc1820.10n").string());
  for (const char* c : {"nav-all", "obs", "dif"}) a.push_back(c);
  return a;
}

TEST(IqCli, RecordsCi16AndSaysHowToReadIt) {
  ScratchDir dir("iq_cli");
  const CliResult r =
      RunVorel(Chain(dir, {"--set", "IqFormat=ci16", "--set", "BitsPerSample=16", "--set",
                           "OutputPacked=Direct", "--set", "IqSampleRate=2048000"}),
               dir.path().string());
  ASSERT_EQ(r.status, 0) << r.err;
  // 0.6 s at 2.048 MHz, four bytes a sample.
  EXPECT_EQ(std::filesystem::file_size(dir / "VLD" / "iq.bin"), 600u * 2048 * 4);
  EXPECT_NE(r.out.find("600 ms of signal, 4915200 bytes: complex baseband, 2048000 samples per "
                       "second"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("IqFormat ci16: I then Q, 16-bit signed little-endian"), std::string::npos);
  EXPECT_NE(r.out.find("no value clipped"), std::string::npos);
}

TEST(IqCli, TheRealFormsPackingIsARefusedSetting) {
  ScratchDir dir("iq_cli_refused");
  const CliResult r = RunVorel(Chain(dir, {}), dir.path().string());  // Packed, 2 bits
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("OutputPacked is Packed"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "VLD" / "iq.bin"));
  EXPECT_EQ(r.out.find("wrote " + (dir / "VLD" / "iq.bin").string()), std::string::npos);
}

}  // namespace
}  // namespace vorel::test
