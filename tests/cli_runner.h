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

// RTKLIB's single-point solution of `obs` with `nav` by ../shared's check script, against
// the true place and with the options in `truthAndOptions` ("lat lon height [options]").
struct SppResult {
  int inFile = -1, solved = -2;     // epochs
  double mean3d = 1e9, max3d = 1e9;  // m
  std::string report;               // what the script printed
};
bool HaveSppCheck();  // the script and rnx2rtkp
SppResult SppCheck(const std::string& obs, const std::string& nav,
                   const std::string& truthAndOptions);

}  // namespace vorel::test
