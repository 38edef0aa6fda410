#include "display/coastlines.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>

namespace vorel::display {
namespace {

bool ParsePair(const std::string& line, LonLat& p) {
  const char* s = line.c_str();
  char* end = nullptr;
  p.lon = std::strtod(s, &end);
  if (end == s) return false;
  const char* rest = end;
  p.lat = std::strtod(rest, &end);
  return end != rest;
}

bool ReadRings(const std::filesystem::path& path, std::vector<Ring>& rings, std::string& error) {
  std::ifstream in(path);
  if (!in) {
    error = fmt::format("{} cannot be read", path.string());
    return false;
  }
  std::string line;
  int number = 0;
  size_t left = 0;  // points still due in the current ring
  while (std::getline(in, line)) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    if (line.rfind("ring ", 0) == 0) {
      if (left != 0) break;
      left = std::strtoul(line.c_str() + 5, nullptr, 10);
      rings.emplace_back();
      rings.back().reserve(left);
      continue;
    }
    LonLat p;
    if (left == 0 || !ParsePair(line, p)) {
      error = fmt::format("{} line {}: expected \"ring N\" or \"lon lat\"", path.string(), number);
      return false;
    }
    rings.back().push_back(p);
    --left;
  }
  if (left != 0) {
    error = fmt::format("{} line {}: a ring ends early", path.string(), number);
    return false;
  }
  return true;
}

}  // namespace

std::vector<std::filesystem::path> CoastlineSearchDirs(const std::filesystem::path& dataDir) {
  return {dataDir / "world", std::filesystem::path(VOREL_INSTALL_DATA_DIR) / "world",
          std::filesystem::path(VOREL_SOURCE_DATA_DIR) / "world"};
}

bool LoadCoastlines(const std::vector<std::filesystem::path>& dirs, std::vector<Ring>& rings,
                    std::string& error) {
  rings.clear();
  std::string searched;
  for (const auto& dir : dirs) {
    std::error_code ec;
    const std::filesystem::path candidate = dir / kCoastlineFile;
    if (std::filesystem::is_regular_file(candidate, ec)) return ReadRings(candidate, rings, error);
    searched += (searched.empty() ? "" : ", ") + dir.string();
  }
  error = fmt::format("{} not found; searched: {}", kCoastlineFile, searched);
  return false;
}

}  // namespace vorel::display
