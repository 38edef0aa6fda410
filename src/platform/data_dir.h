#pragma once
// The data directory: where the program keeps its files. Paths written for the old fixed
// directory ("C:/VLD", "C:\VLD", "c:\VLD", "C://VLD//") are mapped into it, so old
// settings files keep working; the names below it stay as they were (NAV/navbin3,
// LAAS/rs1.scn, NEQUICK/CCIR11.ASC, simulated.nvb, scintGenData.dat, temp.txt).

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vorel::platform {

class DataDirectory {
 public:
  DataDirectory() : root_("VLD") {}
  explicit DataDirectory(std::filesystem::path root) : root_(std::move(root)) {}

  const std::filesystem::path& root() const { return root_; }
  std::filesystem::path operator/(std::string_view name) const { return root_ / name; }

  // A path from a setting: the old fixed directory becomes the data directory; any other
  // path is taken as it stands.
  std::filesystem::path Map(std::string_view settingPath) const;

  // Creates the directory with its NAV, LAAS and NEQUICK folders. False with `error`.
  bool Create(std::string& error) const;

 private:
  std::filesystem::path root_;
};

}  // namespace vorel::platform
