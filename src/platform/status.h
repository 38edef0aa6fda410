#pragma once
// The outcome of an operation at a module boundary: it succeeded, it failed (with the
// reason, already reported to the user where it was found), or the user stopped it.
// Inside a module the program's own 0/1/-1 codes stay where they are part of a
// behaviour; at the boundary they become a Status.

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace vorel::platform {

class [[nodiscard]] Status {
 public:
  enum class Code { kOk, kFailed, kStopped };

  Status() = default;
  static Status Ok() { return Status(); }
  static Status Failed(std::string reason) { return Status(Code::kFailed, std::move(reason)); }
  static Status Stopped() { return Status(Code::kStopped, "stopped by the user"); }

  bool ok() const { return code_ == Code::kOk; }
  bool failed() const { return code_ == Code::kFailed; }
  bool stopped() const { return code_ == Code::kStopped; }
  Code code() const { return code_; }
  const std::string& reason() const { return reason_; }

  // The process exit status of a command that ended this way: 0, 1, or 130 (as after
  // SIGINT) for a run the user stopped.
  int ExitStatus() const { return code_ == Code::kOk ? 0 : code_ == Code::kFailed ? 1 : 130; }

  // A failure outweighs a stop, a stop outweighs success.
  void Update(const Status& other) {
    if (other.code_ == Code::kFailed && code_ != Code::kFailed) *this = other;
    if (other.code_ == Code::kStopped && code_ == Code::kOk) *this = other;
  }

 private:
  Status(Code code, std::string reason) : code_(code), reason_(std::move(reason)) {}
  Code code_ = Code::kOk;
  std::string reason_;
};

// Sets the run flag for the life of a run and clears it on every way out, a return or
// an exception alike.
class RunActiveScope {
 public:
  explicit RunActiveScope(std::atomic<uint8_t>& flag) : flag_(flag) {
    flag_.store(1, std::memory_order_relaxed);
  }
  ~RunActiveScope() { flag_.store(0, std::memory_order_relaxed); }
  RunActiveScope(const RunActiveScope&) = delete;
  RunActiveScope& operator=(const RunActiveScope&) = delete;

 private:
  std::atomic<uint8_t>& flag_;
};

}  // namespace vorel::platform
