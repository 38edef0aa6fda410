#include "platform/data_dir.h"

#include <cctype>
#include <system_error>

namespace vorel::platform {

std::filesystem::path DataDirectory::Map(std::string_view path) const {
  // Recognise a drive-C prefix followed by VLD, whatever the slashes and their count.
  if (path.size() >= 5 && (path[0] == 'C' || path[0] == 'c') && path[1] == ':') {
    size_t i = 2;
    while (i < path.size() && (path[i] == '/' || path[i] == '\\')) ++i;
    if (i > 2 && path.substr(i, 3) == "VLD" &&
        (i + 3 == path.size() || path[i + 3] == '/' || path[i + 3] == '\\')) {
      std::filesystem::path mapped = root_;
      std::string part;
      for (size_t j = i + 3; j <= path.size(); ++j) {
        if (j == path.size() || path[j] == '/' || path[j] == '\\') {
          if (!part.empty()) mapped /= part;
          part.clear();
        } else {
          part.push_back(path[j]);
        }
      }
      return mapped;
    }
  }
  return std::filesystem::path(path);
}

bool DataDirectory::Create(std::string& error) const {
  std::error_code ec;
  for (const char* sub : {"", "NAV", "LAAS", "NEQUICK"}) {
    std::filesystem::create_directories(root_ / sub, ec);
    if (ec) {
      error = "cannot create data directory " + (root_ / sub).string() + ": " + ec.message();
      return false;
    }
  }
  return true;
}

}  // namespace vorel::platform
