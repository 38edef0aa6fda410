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

}  // namespace vorel::platform
