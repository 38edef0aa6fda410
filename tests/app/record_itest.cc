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
 public:
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

// `check` on a recording must find exactly the satellites its description lists, each
// within 25 Hz of the Doppler given there, and say `says`; the search starts 100 ms in.
void ExpectCheckFindsTheDescribed(Record& test, const std::string& name,
                                  const nlohmann::json& meta, const std::string& says) {
  std::map<int, double> described;
  for (const auto& s : meta.at("captures")[0].at("vorel:satellites"))
    described[s.at("prn").get<int>()] = s.at("doppler_hz").get<double>();
  ASSERT_GE(described.size(), 6u);
  const CliResult c = test.Run({"check", name, "--ms", "20", "--skip-ms", "100"});
  ASSERT_EQ(c.status, 0) << c.err;
  EXPECT_NE(c.out.find(says), std::string::npos) << c.out;
  const std::map<int, double> found = Found(c.out);
  EXPECT_EQ(found.size(), described.size()) << c.out;
  for (const auto& [prn, doppler] : described) {
    ASSERT_TRUE(found.count(prn)) << "PRN " << prn << " not found\n" << c.out;
    EXPECT_NEAR(found.at(prn), doppler, 25.0) << "PRN " << prn;
  }
}

TEST_F(Record, CheckFindsExactlyTheSatellitesTheDescriptionNames) {
  const CliResult r = Run(Munich({"--seconds", "2", "-o", "rec.bin"}));
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* name : {"rec.bin", "rec.sigmf-meta", "rec.gnss-sdr.conf"})
    EXPECT_NE(r.out.find(std::string("wrote ") + name), std::string::npos) << r.out;
  // 2 s at 16.368 MHz, four samples a byte.
  EXPECT_EQ(std::filesystem::file_size(dir / "rec.bin"), 2u * 16368000u / 4u);
  // No rate, IF or format given: check takes them from the description. The search starts
  // 100 ms in: over the first few tens of milliseconds the sample generator's start leaves a
  // weak peak of a PRN the record does not hold (PRN 14 here, at 0 Hz).
  ExpectCheckFindsTheDescribed(*this, "rec.bin",
                               nlohmann::json::parse(ReadFile(dir / "rec.sigmf-meta")),
                               "from rec.sigmf-meta");
  // An explicit option wins over the description: read as one level a byte, nothing is there.
  const CliResult wrong = Run({"check", "rec.bin", "--ms", "10", "--format", "direct"});
  EXPECT_TRUE(Found(wrong.out).empty()) << wrong.out;
}

TEST_F(Record, IqOptionsAreRefusedWithTheRealFormsOwn) {
  const std::string out = (dir / "iq.bin").string();
  struct Case {
    std::vector<std::string> extra;
    std::string says;
  };
  const std::vector<Case> cases = {
      {{"--iq8", "--iq16"}, "--iq8 and --iq16"},
      {{"--iq8", "--packed"}, "--packed"},
      {{"--iq16", "--bits", "2"}, "--bits"},
      {{"--iq8", "--fs", "999999"}, "--fs 999999"},
      {{"--iq8", "--fs", "60000001"}, "--fs 60000001"},
      {{"--iq8", "--fs", "2600000.5"}, "--fs 2600000.5"},
      // Half the rate or more away from the centre folds L1 over.
      {{"--iq8", "--fs", "2000000", "--if", "1000000"}, "IqIfOffset"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> extra = c.extra;
    extra.insert(extra.end(), {"--seconds", "2", "-o", out});
    const CliResult r = Run(Munich(extra));
    EXPECT_EQ(r.status, 2) << c.says << "\n" << r.err;
    EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "iq.bin"));
  // The real form's own rate rule does not apply: 2.6 MHz is no generator rate, and no IF
  // stands in the way.
  const CliResult ok = Run(Munich({"--iq8", "--fs", "2600000", "--seconds", "1", "-o", out}));
  EXPECT_EQ(ok.status, 0) << ok.err;
}

TEST_F(Record, Iq8RecordingIsDescribedAsWrittenAndCheckFindsItsSatellites) {
  // With noise, as a receiver's front end would add it: on a noise-free file the
  // cross-correlation peaks of absent satellites pass a threshold that assumes noise.
  std::vector<std::string> args = Munich({"--iq8", "--fs", "2600000", "--seconds", "2", "-o", "iq.bin"});
  args.insert(args.begin(), {"--set", "IqNoise=1"});
  const CliResult r = Run(args);
  ASSERT_EQ(r.status, 0) << r.err;
  // I and Q a byte each, 2 s at 2.6 MHz; a block is one millisecond of 2600 samples.
  const auto size = static_cast<int64_t>(std::filesystem::file_size(dir / "iq.bin"));
  EXPECT_NEAR(size, 2 * 2600000 * 2, 2 * 2600);

  const auto meta = nlohmann::json::parse(ReadFile(dir / "iq.sigmf-meta"));
  EXPECT_EQ(meta.at("global").at("core:datatype"), "ci8");
  EXPECT_EQ(meta.at("global").at("core:sample_rate").get<double>(), 2600000.0);
  EXPECT_EQ(meta.at("captures")[0].at("core:frequency").get<double>(), 1575420000.0);
  EXPECT_EQ(meta.at("annotations")[0].at("core:sample_count").get<int64_t>(), size / 2);
  // The scale as the run chose it from the noise, and the noise the receiver will see.
  const auto& g = meta.at("global");
  EXPECT_NEAR(g.at("vorel:amplitude").get<double>(), 2.7, 1e-6);
  EXPECT_NEAR(g.at("vorel:noise_cn0_dbhz").get<double>(), 45.5, 1e-9);
  EXPECT_EQ(g.at("vorel:clipped_values").get<int64_t>(), 0);
  const std::string conf = ReadFile(dir / "iq.gnss-sdr.conf");
  for (const char* line : {"SignalSource.item_type=ibyte\n", "SignalSource.sampling_frequency=2600000\n",
                           "DataTypeAdapter.implementation=Ibyte_To_Complex\n", "InputFilter.IF=0\n"})
    EXPECT_NE(conf.find(line), std::string::npos) << line << conf;
  EXPECT_EQ(conf.find("sample_type=real"), std::string::npos) << conf;
  ExpectCheckFindsTheDescribed(*this, "iq.bin", meta, "ci8");
}

TEST_F(Record, Iq16OffsetMovesTheCentreAndTheReceiversIf) {
  const CliResult r =
      Run(Munich({"--iq16", "--fs", "3000000", "--if", "250000", "--seconds", "1", "-o", "w.bin"}));
  ASSERT_EQ(r.status, 0) << r.err;
  // Four bytes a sample.
  EXPECT_NEAR(static_cast<double>(std::filesystem::file_size(dir / "w.bin")), 4.0 * 3000000,
              4.0 * 3000);
  const auto meta = nlohmann::json::parse(ReadFile(dir / "w.sigmf-meta"));
  EXPECT_EQ(meta.at("global").at("core:datatype"), "ci16_le");
  // L1 lies 250 kHz above the centre.
  EXPECT_EQ(meta.at("captures")[0].at("core:frequency").get<double>(), 1575170000.0);
  EXPECT_EQ(meta.at("global").at("vorel:if_frequency").get<double>(), 250000.0);
  const std::string conf = ReadFile(dir / "w.gnss-sdr.conf");
  for (const char* line : {"SignalSource.item_type=ishort\n", "InputFilter.IF=250000\n",
                           "DataTypeAdapter.implementation=Ishort_To_Complex\n"})
    EXPECT_NE(conf.find(line), std::string::npos) << line << conf;
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
