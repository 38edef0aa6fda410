#include "platform/text_file.h"

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

int LineReader::ReadLine(std::string& line, size_t maxChars) {
  line.clear();
  if (!file_) return -1;
  int c = std::getc(file_);
  if (c == EOF) return -1;
  ++lineNumber_;
  while (c != EOF && c != '\n') {
    if (line.size() < maxChars) line.push_back(static_cast<char>(c));
    c = std::getc(file_);
  }
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
