// `vorel record` end to end: what it refuses before writing anything, and that the
// recording holds what its SigMF description says (the quick-look acquisition of `check`
// as the second opinion).

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

class Record : public ::testing::Test {
 protected:
  Record() : dir("record") {}
  CliResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), {"--data-dir", (dir / "VLD").string()});
    return RunVorel(args, dir.path().string());
  }
  std::vector<std::string> Munich(std::vector<std::string> extra) const {
    std::vector<std::string> a = {"record",  "--orbits", Brdc(), "--lat", "48.1", "--lon", "11.6",
                                  "--alt",   "520",      "--start", "2010-07-01T10:00:00"};
    a.insert(a.end(), extra.begin(), extra.end());
    return a;
  }
  static std::string Brdc() { return (DataDir() / "examples" / "brdc1820.10n").string(); }
  ScratchDir dir;
};

TEST_F(Record, RefusesBadInputBeforeWritingAnything) {
  const std::string out = (dir / "rec.bin").string();
  WriteFile(dir / "rec.bin", "an earlier recording");
  struct Case {
    std::vector<std::string> args;
    std::string says;
  };
  const std::vector<Case> cases = {
      // The file's ephemerides are of 1 July 2010: four days later nothing serves.
      {{"record", "--orbits", Brdc(), "--start", "2010-07-05T10:00:00", "--seconds", "10", "-o",
        out},
       "outside what"},
      {Munich({"--fs", "5456000", "--if", "4092000", "--seconds", "10", "-o", out}),
       "below twice the IF"},
      {{"record", "--orbits", (dir / "nowhere.10n").string(), "--seconds", "10", "-o", out},
       "nowhere.10n: no such file"},
      {Munich({"--seconds", "10", "-o", (dir / "missing" / "rec.bin").string()}),
       "does not exist"},
      {Munich({"--seconds", "10", "-o", dir.path().string()}), "is a folder"},
      {Munich({"--start", "2010-07-01 10:00", "-o", out}), "--start"},
  };
  for (const Case& c : cases) {
    const CliResult r = Run(c.args);
    EXPECT_NE(r.status, 0) << c.says;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
    EXPECT_EQ(r.out.find("wrote"), std::string::npos) << r.out;
  }
  EXPECT_EQ(ReadFile(dir / "rec.bin"), "an earlier recording");
  EXPECT_FALSE(std::filesystem::exists(dir / "rec.sigmf-meta"));
  EXPECT_FALSE(std::filesystem::exists(dir / "rec.gnss-sdr.conf"));
}

// PRN and Doppler of each satellite `check` lists.
std::map<int, double> Found(const std::string& table) {
  std::map<int, double> found;
  std::istringstream in(table);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    int prn = 0;
    double doppler = 0.0;
    if (fields >> prn >> doppler) found[prn] = doppler;
  }
  return found;
}

TEST_F(Record, CheckFindsExactlyTheSatellitesTheDescriptionNames) {
  const CliResult r = Run(Munich({"--seconds", "2", "-o", "rec.bin"}));
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* name : {"rec.bin", "rec.sigmf-meta", "rec.gnss-sdr.conf"})
    EXPECT_NE(r.out.find(std::string("wrote ") + name), std::string::npos) << r.out;
  // 2 s at 16.368 MHz, four samples a byte.
  EXPECT_EQ(std::filesystem::file_size(dir / "rec.bin"), 2u * 16368000u / 4u);
  const auto meta = nlohmann::json::parse(ReadFile(dir / "rec.sigmf-meta"));
  std::map<int, double> described;
  for (const auto& s : meta.at("captures")[0].at("vorel:satellites"))
    described[s.at("prn").get<int>()] = s.at("doppler_hz").get<double>();
  ASSERT_GE(described.size(), 6u);

  // No rate, IF or format given: check takes them from the description. The search starts
  // 100 ms in: over the first few tens of milliseconds the sample generator's start leaves a
  // weak peak of a PRN the record does not hold (PRN 14 here, at 0 Hz).
  const CliResult c = Run({"check", "rec.bin", "--ms", "20", "--skip-ms", "100"});
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_NE(c.out.find("from rec.sigmf-meta"), std::string::npos);
  const std::map<int, double> found = Found(c.out);
  EXPECT_EQ(found.size(), described.size()) << c.out;
  for (const auto& [prn, doppler] : described) {
    ASSERT_TRUE(found.count(prn)) << "PRN " << prn << " not found\n" << c.out;
    EXPECT_NEAR(found.at(prn), doppler, 25.0) << "PRN " << prn;
  }
  // An explicit option wins over the description: read as one level a byte, nothing is there.
  const CliResult wrong = Run({"check", "rec.bin", "--ms", "10", "--format", "direct"});
  EXPECT_TRUE(Found(wrong.out).empty()) << wrong.out;
}

TEST_F(Record, CheckFindsNoSatelliteInNoise) {
  std::mt19937 random(20100701);
  std::string bytes(16368 * 20 / 4, '\0');
  for (char& b : bytes) b = static_cast<char>(random() & 0xff);
  WriteFile(dir / "noise.bin", bytes);
  const CliResult c = Run({"check", "noise.bin", "--ms", "20"});
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_TRUE(Found(c.out).empty()) << c.out;
  EXPECT_NE(c.out.find("0 satellite(s) found"), std::string::npos) << c.out;
}

}  // namespace
}  // namespace vorel::test
