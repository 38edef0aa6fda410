#include "platform/messages.h"

#include <cstdio>

#include <fmt/format.h>

namespace vorel::platform {

void Messages::Warn(std::string_view text) const {
  if (warning) warning(text);
}
void Messages::Popup(std::string_view title, std::string_view text) const {
  if (popup) popup(title, text);
}
void Messages::Progress(double percent) const {
  if (progress) progress(percent);
}
void Messages::Info(std::string_view text) const {
  if (info) info(text);
}

Messages Messages::Stderr() {
  Messages m;
  m.warning = [](std::string_view text) { fmt::print(stderr, "warning: {}\n", text); };
  m.popup = [](std::string_view title, std::string_view text) {
    if (title.empty())
      fmt::print(stderr, "{}\n", text);
    else
      fmt::print(stderr, "{}: {}\n", title, text);
  };
  m.info = [](std::string_view text) { fmt::print("{}\n", text); };
  return m;
}

Messages Messages::Silent() { return Messages{}; }

Messages MessageLog::Recorder() {
  Messages m;
  m.warning = [this](std::string_view text) {
    entries_.push_back({Kind::kWarning, {}, std::string(text)});
  };
  m.popup = [this](std::string_view title, std::string_view text) {
    entries_.push_back({Kind::kPopup, std::string(title), std::string(text)});
  };
  m.info = [this](std::string_view text) { entries_.push_back({Kind::kInfo, {}, std::string(text)}); };
  return m;
}

void MessageLog::Replay(const Messages& to) const {
  for (const Entry& e : entries_) {
    switch (e.kind) {
      case Kind::kWarning: to.Warn(e.text); break;
      case Kind::kPopup: to.Popup(e.title, e.text); break;
      case Kind::kInfo: to.Info(e.text); break;
    }
  }
}

}  // namespace vorel::platform
