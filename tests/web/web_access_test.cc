// The server's gatekeeping: the token and the paths it will touch.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "test_support.h"
#include "web/access.h"

namespace vorel::web {
namespace {

namespace fs = std::filesystem;

TEST(WebAccess, TokensAreRandom128BitHexAndComparedWhole) {
  const std::string a = NewAccessToken(), b = NewAccessToken();
  EXPECT_EQ(a.size(), 32u);
  EXPECT_EQ(a.find_first_not_of("0123456789abcdef"), std::string::npos) << a;
  EXPECT_NE(a, b);
  EXPECT_TRUE(SameToken(a, a));
  EXPECT_FALSE(SameToken(a, b));
  EXPECT_FALSE(SameToken(a, a.substr(0, 31)));
  EXPECT_FALSE(SameToken("", ""));  // an empty token never opens the door
}

TEST(WebAccess, CookieValueFindsTheNamedCookieOnly) {
  EXPECT_EQ(CookieValue("a=1; vorel_token=abc; b=2", "vorel_token"), "abc");
  EXPECT_EQ(CookieValue("vorel_token=x", "vorel_token"), "x");
  EXPECT_EQ(CookieValue("my_vorel_token=x; b=2", "vorel_token"), "");
  EXPECT_EQ(CookieValue("", "vorel_token"), "");
}

TEST(WebAccess, LoopbackHostsAreTold) {
  EXPECT_TRUE(IsLoopbackHost("127.0.0.1"));
  EXPECT_TRUE(IsLoopbackHost("127.1.2.3"));
  EXPECT_TRUE(IsLoopbackHost("::1"));
  EXPECT_FALSE(IsLoopbackHost("0.0.0.0"));
  EXPECT_FALSE(IsLoopbackHost("192.168.1.5"));
}

TEST(WebAccess, PathsStayInsideTheDataDirectory) {
  test::ScratchDir dir("web-paths");
  const fs::path root = dir / "VLD";
  fs::create_directories(root / "NAV");
  test::WriteFile(root / "NAV" / "navbin1", "x");
  test::WriteFile(dir / "secret.txt", "s");
  fs::create_symlink(dir / "secret.txt", root / "link-out");
  fs::create_directory_symlink(dir.path(), root / "dir-out");
  fs::create_symlink(root / "NAV" / "navbin1", root / "link-in");

  fs::path p;
  std::string error;
  ASSERT_TRUE(ResolveInDataDir(root, "NAV/navbin1", p, error)) << error;
  EXPECT_EQ(p, fs::canonical(root / "NAV" / "navbin1"));
  EXPECT_TRUE(ResolveInDataDir(root, "new/file.toml", p, error)) << error;  // need not exist
  EXPECT_TRUE(ResolveInDataDir(root, "link-in", p, error)) << error;

  for (const char* refused : {"", "../secret.txt", "NAV/../../secret.txt", "/etc/passwd",
                              "link-out", "dir-out/secret.txt", "."}) {
    EXPECT_FALSE(ResolveInDataDir(root, refused, p, error)) << refused;
    EXPECT_FALSE(error.empty());
  }
  ResolveInDataDir(root, (dir / "secret.txt").string(), p, error);
  EXPECT_NE(error.find("inside the data directory"), std::string::npos) << error;
}

}  // namespace
}  // namespace vorel::web
