// Outputs of a fixed set of runs against the hashes they had when the set was made:
// every record type, RINEX, navigation files, station runs, recordings in several forms
// and the printed output of the quick commands. A change of any byte fails here unless
// changing it was the point, in which case tests/golden/outputs.sha256 is made anew
// (see tests/golden/README.md).
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "cli_runner.h"
#include "test_support.h"

namespace vorel::test {
namespace {

std::map<std::string, std::string> ParseHashes(const std::string& text) {
  std::map<std::string, std::string> hashes;
  std::istringstream in(text);
  std::string hash, name;
  while (in >> hash >> name) hashes[name] = hash;
  return hashes;
}

TEST(Golden, OutputsAreByteIdenticalToTheRecordedSet) {
  const std::filesystem::path source = DataDir().parent_path();
  ScratchDir dir("golden");
  const std::string out = (dir / "out").string();
  CliResult made = RunShell("bash '" + (source / "tests" / "golden" / "make_outputs.sh").string() +
                            "' '" + VorelPath() + "' '" + source.string() + "' '" + out + "'");
  ASSERT_EQ(made.status, 0) << made.out;
  CliResult hashed = RunShell("cd '" + out + "' && find . -type f | LC_ALL=C sort | sed 's#^\\./##' "
                              "| xargs sha256sum");
  ASSERT_EQ(hashed.status, 0) << hashed.out;
  const auto expected = ParseHashes(ReadFile(source / "tests" / "golden" / "outputs.sha256"));
  const auto actual = ParseHashes(hashed.out);
  for (const auto& [name, hash] : expected) {
    auto it = actual.find(name);
    if (it == actual.end())
      ADD_FAILURE() << name << " was not written";
    else
      EXPECT_EQ(it->second, hash) << name << " changed";
  }
  for (const auto& [name, hash] : actual)
    EXPECT_TRUE(expected.count(name)) << name << " is new: not in the recorded set";
}

}  // namespace
}  // namespace vorel::test
