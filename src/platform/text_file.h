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
// writes. By default it writes to a temporary name beside the target and renames it
// over the target only when `Close` finds that every byte reached the disk: a failed or
// abandoned file leaves whatever stood at the target before untouched. A file that is
// destroyed without `Close` is abandoned. `OpenInPlace` writes the target directly (for
// files kept open for the life of a program start).

#include <cstdio>
#include <filesystem>
#include <memory>
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
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Opens for writing. Returns false when the file cannot be created (a missing or
  // read-only folder, a target that is a folder or a read-only file); error() says why.
  bool Open(const std::filesystem::path& path);
  bool OpenInPlace(const std::filesystem::path& path);
  // Flushes and closes; the file takes its name only if every write succeeded. Returns
  // false otherwise (error() names the file and the cause). Closing a closed file is a
  // no-op that returns true.
  bool Close();
  // Closes and removes what was written; an earlier file at the target stays as it was.
  void Abandon();
  const std::string& error() const { return error_; }
  // The stream, for writers that hand bytes to the C library themselves. A failed
  // write on it is seen by Close.
  std::FILE* stream() { return file_; }
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
  // The C library's buffer of the stream: given here, since glibc takes the size only with
  // a buffer of the caller's and otherwise writes in 4 KiB steps.
  static constexpr size_t kStreamBufferSize = 1 << 18;
  bool OpenAs(const std::filesystem::path& path, bool inPlace);
  void Fail(const char* what, int error);
  std::FILE* file_ = nullptr;
  std::string path_;
  std::string writePath_;  // the temporary name, or the target itself in place
  fmt::memory_buffer buffer_;
  std::unique_ptr<char[]> streamBuffer_;  // outlives the stream: freed only after fclose
  bool failed_ = false;
  std::string error_;
};

// Writes `text` as the whole of `path` (under a temporary name, renamed when whole).
// Returns false with `error` naming the file when it could not be created or written.
bool WriteWholeFile(const std::filesystem::path& path, std::string_view text, std::string& error);

}  // namespace vorel::platform
