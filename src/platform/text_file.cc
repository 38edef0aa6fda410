#include "platform/text_file.h"

#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

OutputFile::~OutputFile() {
  if (writePath_ == path_)
    (void)Close();
  else
    Abandon();
}

bool OutputFile::Open(const std::filesystem::path& path) { return OpenAs(path, false); }
bool OutputFile::OpenInPlace(const std::filesystem::path& path) { return OpenAs(path, true); }

void OutputFile::Fail(const char* what, int error) {
  if (!failed_) error_ = fmt::format("{} {}: {}", what, path_, std::strerror(error));
  failed_ = true;
}

bool OutputFile::OpenAs(const std::filesystem::path& path, bool inPlace) {
  Abandon();
  path_ = path.string();
  failed_ = false;
  error_.clear();
  buffer_.clear();
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    Fail("cannot create", EISDIR);
    return false;
  }
  if (std::filesystem::exists(path, ec) && ::access(path_.c_str(), W_OK) != 0) {
    Fail("cannot create", errno);
    return false;
  }
  // A device or a pipe (/dev/null, a FIFO) is written where it is, never replaced.
  if (inPlace || (std::filesystem::exists(path, ec) && !std::filesystem::is_regular_file(path, ec))) {
    writePath_ = path_;
  } else {
    const std::filesystem::path p(path);
    writePath_ = (p.parent_path() / ("." + p.filename().string() + ".part")).string();
  }
  file_ = std::fopen(writePath_.c_str(), "wb");
  if (!file_) {
    Fail("cannot create", errno);
    writePath_.clear();
    return false;
  }
  if (!streamBuffer_) streamBuffer_ = std::make_unique<char[]>(kStreamBufferSize);
  std::setvbuf(file_, streamBuffer_.get(), _IOFBF, kStreamBufferSize);
  return true;
}

void OutputFile::Flush() {
  if (file_ && buffer_.size() > 0) {
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size())
      Fail("cannot write", errno);
  }
  buffer_.clear();
}

bool OutputFile::Close() {
  if (!file_) {
    buffer_.clear();
    return !failed_ || writePath_.empty();
  }
  Flush();
  if (std::ferror(file_)) Fail("cannot write", EIO);
  if (std::fflush(file_) != 0) Fail("cannot write", errno);
  if (std::fclose(file_) != 0) Fail("cannot write", errno);
  file_ = nullptr;
  const std::string written = writePath_;
  writePath_.clear();
  if (written == path_) return !failed_;
  if (!failed_ && std::rename(written.c_str(), path_.c_str()) != 0) Fail("cannot rename to", errno);
  if (failed_) std::remove(written.c_str());
  return !failed_;
}

void OutputFile::Abandon() {
  buffer_.clear();
  if (file_) {
    std::fclose(file_);
    file_ = nullptr;
    if (writePath_ != path_) std::remove(writePath_.c_str());
  }
  writePath_.clear();
}

bool WriteWholeFile(const std::filesystem::path& path, std::string_view text, std::string& error) {
  OutputFile file;
  if (!file.Open(path)) {
    error = fmt::format("{}: cannot be created ({})", path.string(), file.error());
    return false;
  }
  file.Write(text);
  if (!file.Close()) {
    error = file.error();
    return false;
  }
  return true;
}

}  // namespace vorel::platform
