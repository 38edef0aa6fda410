#include "web/access.h"

#include <fmt/format.h>

#include <array>
#include <random>
#include <system_error>

namespace vorel::web {

namespace fs = std::filesystem;

std::string NewAccessToken() {
  std::random_device entropy;  // /dev/urandom (getrandom) on Linux
  std::string token;
  for (int i = 0; i < 4; ++i) token += fmt::format("{:08x}", static_cast<uint32_t>(entropy()));
  return token;
}

std::string CookieValue(std::string_view header, std::string_view name) {
  while (!header.empty()) {
    const size_t end = std::min(header.find(';'), header.size());
    std::string_view pair = header.substr(0, end);
    header.remove_prefix(std::min(end + 1, header.size()));
    while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
    const size_t eq = pair.find('=');
    if (eq != std::string_view::npos && pair.substr(0, eq) == name)
      return std::string(pair.substr(eq + 1));
  }
  return {};
}

bool SameToken(std::string_view a, std::string_view b) {
  if (a.size() != b.size() || a.empty()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < a.size(); ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
  return diff == 0;
}

bool IsLoopbackHost(std::string_view host) {
  return host == "localhost" || host == "::1" || host.starts_with("127.");
}

bool ResolveInDataDir(const fs::path& root, std::string_view relative, fs::path& resolved,
                      std::string& error) {
  if (relative.empty()) {
    error = "no file named";
    return false;
  }
  const fs::path given(relative);
  if (given.is_absolute() || relative.front() == '/' || relative.front() == '\\') {
    error = fmt::format("{}: only paths inside the data directory are served", relative);
    return false;
  }
  for (const fs::path& part : given) {
    if (part == "..") {
      error = fmt::format("{}: \"..\" is not allowed in a path", relative);
      return false;
    }
  }
  std::error_code ec;
  const fs::path base = fs::weakly_canonical(root, ec);
  const fs::path full = ec ? fs::path() : fs::weakly_canonical(root / given, ec);
  if (ec) {
    error = fmt::format("{}: {}", relative, ec.message());
    return false;
  }
  // Symbolic links are followed by weakly_canonical: what lands outside the root left it.
  const fs::path inside = full.lexically_relative(base);
  if (inside.empty() || *inside.begin() == ".." || inside == ".") {
    error = fmt::format("{}: leads outside the data directory", relative);
    return false;
  }
  resolved = full;
  return true;
}

}  // namespace vorel::web
