#pragma once
// Who may talk to the server, and which files it may hand out or write: a random token
// that every request carries (query, cookie or header), and paths that stay inside the
// data directory.

#include <filesystem>
#include <string>
#include <string_view>

namespace vorel::web {

inline constexpr char kTokenCookie[] = "vorel_token";
inline constexpr char kTokenHeader[] = "X-Vorel-Token";

// 128 random bits from the system's entropy source, as 32 lowercase hex digits.
std::string NewAccessToken();

// The value of cookie `name` in a Cookie header; empty when it is not there.
std::string CookieValue(std::string_view cookieHeader, std::string_view name);

// Compares in time independent of where the strings differ, so that the token cannot be
// guessed a character at a time.
bool SameToken(std::string_view a, std::string_view b);

// True for 127.0.0.0/8, ::1 and "localhost".
bool IsLoopbackHost(std::string_view host);

// Resolves `relative` (slashes, as the page sends it) inside `root`. Refuses an empty or
// absolute path, any ".." part, and a path that leaves the root through a symbolic link.
// The file need not exist. False with the reason in `error`.
bool ResolveInDataDir(const std::filesystem::path& root, std::string_view relative,
                      std::filesystem::path& resolved, std::string& error);

}  // namespace vorel::web
