#include "cli_runner.h"

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

#include "test_support.h"

namespace vorel::test {
namespace {

std::string Quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) {
    if (c == '\'') q += "'\\''";
    else q += c;
  }
  return q + "'";
}

}  // namespace

std::string VorelPath() { return (BinaryDir() / "vorel").string(); }

CliResult RunVorel(const std::vector<std::string>& arguments, const std::string& workDir) {
  ScratchDir errDir("cli-stderr");
  const std::string errFile = (errDir / "err.txt").string();
  std::string line = "cd " + Quote(workDir) + " && " + Quote(VorelPath());
  for (const auto& a : arguments) line += " " + Quote(a);
  line += " </dev/null 2>" + Quote(errFile);
  CliResult r = RunShell(line);
  r.err = ReadFile(errFile);
  return r;
}

CliResult RunShell(const std::string& commandLine) {
  CliResult r;
  FILE* pipe = popen(commandLine.c_str(), "r");
  if (!pipe) return r;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
  const int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

}  // namespace vorel::test
