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

// A number after `"key": ` in the last line (a JSON object of plain numbers).
double JsonNumber(const std::string& out, const std::string& key, double missing) {
  const std::string tag = "\"" + key + "\": ";
  const size_t at = out.rfind(tag);
  if (at == std::string::npos) return missing;
  try {
    return std::stod(out.substr(at + tag.size()));
  } catch (...) {
    return missing;
  }
}

std::filesystem::path SppScript() { return SharedDir() / "tools" / "rtklib" / "spp-check.sh"; }

}  // namespace

bool HaveSppCheck() {
  return std::filesystem::exists(SppScript()) &&
         RunShell("command -v rnx2rtkp >/dev/null").status == 0;
}

SppResult SppCheck(const std::string& obs, const std::string& nav,
                   const std::string& truthAndOptions) {
  SppResult s;
  s.report = RunShell(Quote(SppScript().string()) + " " + Quote(obs) + " " + Quote(nav) + " " +
                      truthAndOptions + " 2>&1")
                 .out;
  s.inFile = static_cast<int>(JsonNumber(s.report, "epochs_in_file", -1));
  s.solved = static_cast<int>(JsonNumber(s.report, "epochs_solved", -2));
  s.mean3d = JsonNumber(s.report, "err3d_mean_m", 1e9);
  s.max3d = JsonNumber(s.report, "err3d_max_m", 1e9);
  return s;
}

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
