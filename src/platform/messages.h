#pragma once
// How the logic speaks to the user without knowing the front end.
//
// Warnings are one-line notes about input that the logic worked around (a line that
// did not scan, a file that could not be opened). Popups are the program's blocking
// messages, with a title ("Error message") and a text. Progress is a percentage of the
// running worker. A front end installs its own handlers; the defaults write to stderr.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vorel::platform {

struct Messages {
  std::function<void(std::string_view text)> warning;
  std::function<void(std::string_view title, std::string_view text)> popup;
  std::function<void(double percent)> progress;
  // Plain messages the program prints on the standard output (file creation notes).
  std::function<void(std::string_view text)> info;

  void Warn(std::string_view text) const;
  void Popup(std::string_view title, std::string_view text) const;
  void Progress(double percent) const;
  void Info(std::string_view text) const;

  static Messages Stderr();
  static Messages Silent();
};

// What a piece of work said, kept to be told later in the order it was said: for work on
// another thread, whose messages are told on the caller's once it is done. Progress is
// dropped.
class MessageLog {
 public:
  // Handlers that append to this log; the log must outlive them.
  Messages Recorder();
  void Replay(const Messages& to) const;

 private:
  enum class Kind { kWarning, kPopup, kInfo };
  struct Entry {
    Kind kind;
    std::string title, text;
  };
  std::vector<Entry> entries_;
};

}  // namespace vorel::platform
