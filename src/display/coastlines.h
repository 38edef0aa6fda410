#pragma once
// The land outlines of the base picture: Natural Earth's 1:110m land (public domain),
// kept in data/world/coastlines-110m.txt as rings of longitude/latitude pairs. A ring that
// crosses 180 degrees runs on past it rather than jumping across the map.

#include <filesystem>
#include <string>
#include <vector>

namespace vorel::display {

struct LonLat {
  double lon = 0.0;
  double lat = 0.0;
};

using Ring = std::vector<LonLat>;

inline constexpr const char* kCoastlineFile = "coastlines-110m.txt";

// Where the file is looked for: the data directory's "world" folder, then where it is
// installed, then the source tree's data/world.
std::vector<std::filesystem::path> CoastlineSearchDirs(const std::filesystem::path& dataDir);

// Reads the first file found. False with the reason in `error` (missing, unreadable, or a
// line that is neither a ring header nor a pair of numbers).
bool LoadCoastlines(const std::vector<std::filesystem::path>& dirs, std::vector<Ring>& rings,
                    std::string& error);

}  // namespace vorel::display
