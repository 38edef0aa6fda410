#pragma once
// Small helpers shared by the tests: paths to the bundled and shared data, scratch
// directories, whole-file reads, and what the logic said to the user.

#include <filesystem>
#include <string>
#include <vector>

#include "platform/messages.h"

namespace vorel::test {

// ../shared next to the project; tests that need it skip when it is absent.
std::filesystem::path SharedDir();
bool HaveShared();
std::filesystem::path DataDir();
std::filesystem::path BinaryDir();

// A fresh, empty directory for one test, removed when the object goes.
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& name);
  ~ScratchDir();
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);
std::vector<std::string> SplitLines(const std::string& text);

// Messages whose warnings, popups ("title: text") and infos are kept to be checked;
// progress is dropped. The handlers point into the object, so it is not copied.
struct CapturedMessages {
  CapturedMessages();
  CapturedMessages(const CapturedMessages&) = delete;
  CapturedMessages& operator=(const CapturedMessages&) = delete;
  bool Warned(const std::string& part) const;  // some warning contains `part`

  std::vector<std::string> warnings, popups, infos;
  platform::Messages messages;
};

}  // namespace vorel::test

#define VOREL_REQUIRE_SHARED()                                       \
  do {                                                               \
    if (!::vorel::test::HaveShared()) GTEST_SKIP() << "../shared is absent"; \
  } while (0)
