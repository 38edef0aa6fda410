#include "platform/text_file.h"

#include <stdio.h>

#include <cstdlib>

namespace vorel::platform {

bool LineReader::Open(const std::filesystem::path& path) {
  Close();
  path_ = path.string();
  lineNumber_ = 0;
  file_ = std::fopen(path_.c_str(), "rb");
  return file_ != nullptr;
}

void LineReader::Close() {
  if (file_) std::fclose(file_);
  file_ = nullptr;
}

LineReader::~LineReader() {
  Close();
  std::free(raw_);
}

int LineReader::ReadLine(std::string& line, size_t maxChars) {
  line.clear();
  if (!file_) return -1;
  // One read of the whole line through the C library's buffer, then the system's rules:
  // at most maxChars kept, the rest of the line dropped.
  const ssize_t got = ::getline(&raw_, &rawCapacity_, file_);
  if (got < 0) return -1;
  ++lineNumber_;
  size_t length = static_cast<size_t>(got);
  if (length > 0 && raw_[length - 1] == '\n') --length;
  if (length > maxChars) length = maxChars;
  line.assign(raw_, length);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return static_cast<int>(line.size());
}

bool OutputFile::Open(const std::filesystem::path& path) {
  Close();
  path_ = path.string();
  failed_ = false;
  buffer_.clear();
  file_ = std::fopen(path_.c_str(), "wb");
  return file_ != nullptr;
}

void OutputFile::Flush() {
  if (file_ && buffer_.size() > 0) {
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) failed_ = true;
  }
  buffer_.clear();
}

bool OutputFile::Close() {
  if (!file_) {
    buffer_.clear();
    return true;
  }
  Flush();
  if (std::fclose(file_) != 0) failed_ = true;
  file_ = nullptr;
  return !failed_;
}

}  // namespace vorel::platform
