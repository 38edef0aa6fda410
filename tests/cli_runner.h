#pragma once
// Runs the `vorel` executable as a user would and collects its exit status and output.

#include <string>
#include <vector>

namespace vorel::test {

struct CliResult {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs build/<preset>/vorel with `arguments` in `workDir`; stdin is closed.
CliResult RunVorel(const std::vector<std::string>& arguments, const std::string& workDir);

// Runs a shell command line and returns its status and output (stdout and stderr joined).
CliResult RunShell(const std::string& commandLine);

std::string VorelPath();

}  // namespace vorel::test
