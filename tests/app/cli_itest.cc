// The `vorel` command line end to end, on the bundled example files.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

class Cli : public ::testing::Test {
 protected:
  Cli() : dir("cli") {}
  CliResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--data-dir", (dir / "VLD").string()});
    return RunVorel(args, dir.path().string());
  }
  std::string Brdc() const { return (DataDir() / "examples" / "brdc1820.10n").string(); }
  std::vector<std::string> Scenario(std::vector<std::string> extra = {}) const {
    std::vector<std::string> a;
    for (const char* set : {"KeepOrbitEpochs=1", "ScenarioHour=5", "ReceiverLatitude=-30.25",
                            "ReceiverLongitude=149.75", "ReceiverAltitude=250",
                            "ObservationInterval=1000", "ScenarioDuration=2"})
      a.insert(a.end(), {"--set", set});
    a.insert(a.end(), extra.begin(), extra.end());
    return a;
  }
  ScratchDir dir;
};

TEST_F(Cli, UsageAndSettingsErrorsStopBeforeAnythingRuns) {
  CliResult r = Run({"frobnicate"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("usage: vorel"), std::string::npos);
  r = Run({"obs", "--bogus"});
  EXPECT_EQ(r.status, 2);
  r = Run({"--set", "ObservatonInterval=5", "obs"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("--set: unknown setting \"ObservatonInterval\" (nearest known name: "
                       "ObservationInterval)"),
            std::string::npos)
      << r.err;
  WriteFile(dir / "s.toml", "# scenario\n[scenario]\nRecordType = \"five\"\n");
  r = Run({"--scenario", (dir / "s.toml").string(), "obs"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("s.toml, line 3: RecordType"), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(dir / "VLD" / "LAAS"));  // nothing ran, not even start-up
  r = Run({"--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "vorel 5.1\n");
}

TEST_F(Cli, MissingOrbitsAndSettingsFileAreReported) {
  CliResult r = Run({"--settings", "nowhere.txt", "obs"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("settings file nowhere.txt cannot be read"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("OrbitFile"), std::string::npos);
  EXPECT_NE(r.err.find("\nInvalid orbits\n"), std::string::npos) << r.err;
  r = Run({"load-orbits", "--type", "rinex", "no-such.10n"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("no-such.10n"), std::string::npos);
}

TEST_F(Cli, CommandsThatNeedNoOrbitsOrDataDirectoryStayQuietAboutThem) {
  CliResult r = Run({"about", "show-settings"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");  // no word about the missing OrbitFile
  EXPECT_FALSE(std::filesystem::exists(dir / "VLD"));
  // The OrbitFile problem is told once, to the first command that needs orbits.
  r = Run({"about", "obs", "obs"});
  EXPECT_NE(r.err.find("(OrbitFile) cannot be read"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("(OrbitFile)"), r.err.rfind("(OrbitFile)"));
  EXPECT_TRUE(std::filesystem::exists(dir / "VLD" / "NAV"));
}

TEST_F(Cli, QuietSilencesTheProgramsOwnNotesToo) {
  // A directory where the message file goes: the generator's "Create Error" note.
  std::filesystem::create_directories(dir / "VLD" / "simulated.nvb");
  const std::vector<std::string> nav = {"--yes", "load-orbits", "--type", "rinex", Brdc(), "nav"};
  CliResult r = Run(nav);
  EXPECT_NE(r.out.find("Binary File Create Error"), std::string::npos) << r.out;
  std::vector<std::string> quiet = nav;
  quiet.insert(quiet.begin(), "--quiet");
  r = Run(quiet);
  EXPECT_EQ(r.out, "");
}

TEST_F(Cli, LoadOrbitsTellsTheFileTypeFromTheContent) {
  const std::string yuma = (DataDir() / "examples" / "yuma147.txt").string();
  CliResult r = Run({"load-orbits", yuma, "load-orbits", Brdc()});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, yuma + ": read as a YUMA almanac\nloaded " + yuma +
                       " (30 healthy satellites)\n" + Brdc() +
                       ": read as a RINEX navigation file\nloaded " + Brdc() +
                       " (30 healthy satellites)\n");
  // --type is taken as given, without a note.
  r = Run({"load-orbits", "--type", "rinex", Brdc()});
  EXPECT_EQ(r.out, "loaded " + Brdc() + " (30 healthy satellites)\n");
  WriteFile(dir / "plain.txt", "nothing here\n");
  r = Run({"load-orbits", (dir / "plain.txt").string()});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("plain.txt: neither a RINEX navigation header nor a YUMA \"ID:\" line"),
            std::string::npos)
      << r.err;
}

TEST_F(Cli, ChainedCommandsShareOneProgramStart) {
  CliResult r = Run(Scenario({"--set", "ObservationOutputFile=C:/VLD/a.10o", "load-orbits",
                              "--type", "rinex", Brdc(), "show-orbit", "3", "obs"}));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("loaded"), std::string::npos);
  EXPECT_NE(r.out.find("wrote " + (dir / "VLD" / "a.10o").string()), std::string::npos) << r.out;
  const auto lines = SplitLines(ReadFile(dir / "VLD" / "a.10o"));
  ASSERT_GT(lines.size(), 15u);
  EXPECT_EQ(lines[14].substr(60), "END OF HEADER       ");
  int epochs = 0;
  for (const auto& l : lines)
    if (l.rfind(" 10 07 01 05 ", 0) == 0) ++epochs;
  EXPECT_EQ(epochs, 120);  // two minutes at 1 s; the first epoch is not written
}

TEST_F(Cli, ErrorPopupsBecomeMessagesAndAFailingStatus) {
  CliResult r = Run(Scenario({"--set", "ObservationInterval=0", "load-orbits", "--type", "rinex",
                              Brdc(), "obs", "about"}));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Error message: ObservationInterval must be a positive number"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(r.out.find("version 5.1"), std::string::npos);  // the chain stops at the failure
}

TEST_F(Cli, NavigationFilesNeedConfirmation) {
  CliResult r = Run({"--set", "KeepOrbitEpochs=1", "load-orbits", "--type", "rinex", Brdc(), "nav",
                     "--prn", "3"});
  EXPECT_EQ(r.status, 0);  // a "no" (here: closed input) is an answer, not a failure
  EXPECT_NE(r.err.find("not confirmed"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(dir / "VLD" / "simulated.nvb"));
  r = Run({"--yes", "galileo", "nav"});  // no orbit file loaded: refused without a question
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Error message: Please introduce orbits before generating nav message"),
            std::string::npos)
      << r.err;
  r = Run({"--yes", "--set", "KeepOrbitEpochs=1", "--set", "ScenarioHour=5", "load-orbits",
           "--type", "rinex", Brdc(), "nav", "--prn", "3", "nav-all"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(std::filesystem::file_size(dir / "VLD" / "simulated.nvb"), 354000u);
  EXPECT_EQ(std::filesystem::file_size(dir / "VLD" / "simulated.nva"), 88500u);
  EXPECT_EQ(std::filesystem::file_size(dir / "VLD" / "NAV" / "navbin32"), 354000u);
  EXPECT_TRUE(ReadFile(dir / "VLD" / "simulated.nvb") == ReadFile(dir / "VLD" / "NAV" / "navbin3"));
}

// Ctrl-C and a service manager's SIGTERM both stop the run after its epoch: the file is
// closed whole and the status says the user stopped it.
TEST_F(Cli, FirstInterruptStopsTheRunAndClosesItsFileWhole) {
  for (const char* signal : {"INT", "TERM"}) {
    const std::string scn = (dir / "VLD" / "long.scn").string();
    std::filesystem::remove(scn);
    std::string line = "cd '" + dir.path().string() + "' && '" + VorelPath() + "' --data-dir VLD";
    for (const auto& a : Scenario({"--set", "ObservationInterval=1", "--set",
                                   "ScenarioDuration=60", "--set", "RecordType=5", "--set",
                                   "ObservationOutputFile=C:/VLD/long.scn", "load-orbits",
                                   "--type", "rinex", Brdc(), "obs"}))
      line += " '" + a + "'";
    // The record is written under a temporary name beside it: wait until it has grown.
    const std::string part = (dir / "VLD" / ".long.scn.part").string();
    line += " >/dev/null 2>&1 & pid=$!; for i in $(seq 600); do"
            " s=$(stat -c %s '" + part + "' 2>/dev/null || echo 0); [ \"$s\" -gt 200000 ] && break;"
            " sleep 0.05; done; kill -" +
            std::string(signal) + " $pid; wait $pid; echo status=$?";
    CliResult r = RunShell(line);
    EXPECT_NE(r.out.find("status=130"), std::string::npos) << signal << ": " << r.out;
    const auto lines = SplitLines(ReadFile(scn));
    ASSERT_GT(lines.size(), 100u) << signal;
    EXPECT_LT(lines.size(), 60u * 60000u);  // stopped long before its hour
    // Walk the epochs: every epoch is whole (time, count, that many satellite lines).
    size_t i = 0;
    int epochs = 0;
    while (i < lines.size()) {
      ASSERT_LT(i + 1, lines.size());
      const int n = std::stoi(lines[i + 1]);
      ASSERT_LE(i + 2 + n, lines.size());
      i += 2 + n;
      ++epochs;
    }
    EXPECT_GT(epochs, 10);
  }
}

// An output that cannot be written is an error that names it, with no "wrote" line, and
// a chain does not go on from it.
TEST_F(Cli, OutputsThatCannotBeWrittenAreErrors) {
  std::filesystem::create_directories(dir / "VLD" / "a-folder");
  for (const std::string target : {"C:/VLD/missing-dir/x.scn", "C:/VLD/a-folder"}) {
    CliResult r = Run(Scenario({"--set", "ObservationOutputFile=" + target, "--set",
                                "RecordType=5", "load-orbits", "--type", "rinex", Brdc(),
                                "autorun"}));
    EXPECT_EQ(r.status, 1) << target;
    EXPECT_NE(r.err.find("Error message: ObservationOutputFile "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(target.substr(7) + " cannot be created"), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("wrote"), std::string::npos) << r.out;
  }
  // autorun stopped at the record: no recording was started.
  for (const auto& e : std::filesystem::directory_iterator(dir / "VLD"))
    EXPECT_NE(e.path().extension(), ".bin") << e.path();
}

// A refused run touches nothing: inputs are checked before any output is opened, and an
// output that is one of the run's inputs is refused.
TEST_F(Cli, RefusedRunsLeaveEarlierFilesAsTheyWere) {
  std::filesystem::create_directories(dir / "VLD");
  WriteFile(dir / "VLD" / "rec.bin", "an earlier recording");
  WriteFile(dir / "VLD" / "rec.scn", "an earlier record");
  const std::vector<std::string> dif = {"--set", "DifOutputFile=C:/VLD/rec.bin", "--set",
                                        "Duration=0.01"};
  auto with = [&](std::vector<std::string> a, std::vector<std::string> b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  // A missing record, a missing scintillation file.
  CliResult r = Run(with(dif, {"--set", "ObservationOutputFile=C:/VLD/none.scn", "dif"}));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Specified scenario file doesn't exist (" +
                       (dir / "VLD" / "none.scn").string() + ")"),
            std::string::npos)
      << r.err;
  r = Run(with(dif, {"--set", "ObservationOutputFile=C:/VLD/rec.scn", "--set", "ScintEnabled=1",
                     "--set", "ScintType=1", "--set", "ScintFile=C:/VLD/none.txt", "dif"}));
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("none.txt"), std::string::npos) << r.err;
  // The recording over its own record.
  r = Run({"--set", "DifOutputFile=C:/VLD/rec.scn", "--set", "ObservationOutputFile=C:/VLD/rec.scn",
           "dif"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("is also an input of the run"), std::string::npos) << r.err;
  EXPECT_EQ(ReadFile(dir / "VLD" / "rec.bin"), "an earlier recording");
  EXPECT_EQ(ReadFile(dir / "VLD" / "rec.scn"), "an earlier record");
}

}  // namespace
}  // namespace vorel::test
