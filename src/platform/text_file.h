#pragma once
// Line-oriented text input and buffered text output.
//
// LineReader::ReadLine follows the system's line reading: at most `maxChars`
// characters of a line are kept and the rest of that line is dropped; the result is
// the number of characters kept (0 for an empty line), -1 at end of file. A carriage
// return before the newline is dropped so that files written on other platforms read
// the same.
//
// OutputFile gathers formatted text in memory and hands it to the file in large
// writes. Writes are not looked at one by one; `Close` reports whether everything
// reached the file.

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace vorel::platform {

class LineReader {
 public:
  LineReader() = default;
  explicit LineReader(const std::filesystem::path& path) { Open(path); }
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool Open(const std::filesystem::path& path);
  void Close();
  bool IsOpen() const { return file_ != nullptr; }
  const std::string& path() const { return path_; }
  // Number of lines read so far: the line number of the last line read.
  int lineNumber() const { return lineNumber_; }

  int ReadLine(std::string& line, size_t maxChars = 1000);

 private:
  std::FILE* file_ = nullptr;
  std::string path_;
  int lineNumber_ = 0;
  char* raw_ = nullptr;  // the line as read, grown by the C library as needed
  size_t rawCapacity_ = 0;
};

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile() { Close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Opens for writing, truncating. Returns false when the file cannot be created.
  bool Open(const std::filesystem::path& path);
  // Flushes and closes; returns false if any write failed. Closing a closed file is a no-op.
  bool Close();
  bool IsOpen() const { return file_ != nullptr; }
  const std::string& path() const { return path_; }

  fmt::memory_buffer& buffer() { return buffer_; }
  void Write(std::string_view text) { buffer_.append(text.data(), text.data() + text.size()); MaybeFlush(); }
  void Write(const void* data, size_t size) {
    auto p = static_cast<const char*>(data);
    buffer_.append(p, p + size);
    MaybeFlush();
  }
  template <typename... Args>
  void Print(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(buffer_), format, std::forward<Args>(args)...);
    MaybeFlush();
  }
  void MaybeFlush() {
    if (buffer_.size() >= kFlushSize) Flush();
  }
  void Flush();

 private:
  static constexpr size_t kFlushSize = 1 << 16;
  std::FILE* file_ = nullptr;
  std::string path_;
  fmt::memory_buffer buffer_;
  bool failed_ = false;
};

}  // namespace vorel::platform
