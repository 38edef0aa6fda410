#include "platform/text_file.h"

#include <gtest/gtest.h>

#include "test_support.h"

namespace vorel::platform {
namespace {

TEST(LineReader, KeepsAtMostTheLimitAndDropsTheRestOfTheLine) {
  test::ScratchDir dir("line-reader");
  test::WriteFile(dir / "a.txt", std::string(1500, 'x') + "\r\nshort\r\n\nlast");
  LineReader r(dir / "a.txt");
  std::string line;
  EXPECT_EQ(r.ReadLine(line), 1000);
  EXPECT_EQ(line, std::string(1000, 'x'));
  EXPECT_EQ(r.ReadLine(line), 5);  // the carriage return of a CRLF file is dropped
  EXPECT_EQ(line, "short");
  EXPECT_EQ(r.ReadLine(line), 0);  // an empty line
  EXPECT_EQ(r.ReadLine(line, 3), 3);  // a last line without newline, cut to 3
  EXPECT_EQ(line, "las");
  EXPECT_EQ(r.lineNumber(), 4);
  EXPECT_EQ(r.ReadLine(line), -1);
  EXPECT_TRUE(line.empty());
  LineReader missing(dir / "none.txt");
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_EQ(missing.ReadLine(line), -1);
}

TEST(OutputFile, GathersAndReportsFailures) {
  test::ScratchDir dir("output-file");
  OutputFile f;
  ASSERT_TRUE(f.Open(dir / "o.txt"));
  for (int i = 0; i < 20000; ++i) f.Print("{:6d}\n", i);  // crosses the flush size
  EXPECT_TRUE(f.Close());
  EXPECT_EQ(test::ReadFile(dir / "o.txt").size(), 20000u * 7u);
  EXPECT_FALSE(f.Open(dir / "no" / "o.txt"));
  EXPECT_TRUE(f.Close());  // closing a file that never opened is harmless
  OutputFile full;
  if (full.Open("/dev/full")) {
    full.Print("{}", std::string(1 << 17, 'x'));
    EXPECT_FALSE(full.Close());
  }
}

}  // namespace
}  // namespace vorel::platform
