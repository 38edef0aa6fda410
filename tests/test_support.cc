#include "test_support.h"

#include <fstream>
#include <sstream>
#include <unistd.h>

namespace vorel::test {

std::filesystem::path SharedDir() { return VOREL_TEST_SHARED_DIR; }
bool HaveShared() { return std::filesystem::is_directory(SharedDir() / "data"); }
std::filesystem::path DataDir() { return VOREL_TEST_DATA_DIR; }
std::filesystem::path BinaryDir() { return VOREL_TEST_BINARY_DIR; }

ScratchDir::ScratchDir(const std::string& name) {
  path_ = std::filesystem::temp_directory_path() /
          ("vorel-test-" + name + "-" + std::to_string(::getpid()));
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::string current;
  for (char c : text) {
    if (c == '\n') {
      lines.push_back(current);
      current.clear();
    } else {
      current.push_back(c);
    }
  }
  if (!current.empty()) lines.push_back(current);
  return lines;
}

CapturedMessages::CapturedMessages() : messages(platform::Messages::Silent()) {
  messages.warning = [this](std::string_view text) { warnings.emplace_back(text); };
  messages.popup = [this](std::string_view title, std::string_view text) {
    popups.push_back(std::string(title) + ": " + std::string(text));
  };
  messages.info = [this](std::string_view text) { infos.emplace_back(text); };
}

bool CapturedMessages::Warned(const std::string& part) const {
  for (const std::string& w : warnings)
    if (w.find(part) != std::string::npos) return true;
  return false;
}

}  // namespace vorel::test
