#pragma once
// The threads of a DIF run: they live for the whole run. Run(job) hands one job to every
// member (the caller is the last member) and returns when all have finished it; between jobs
// the workers sleep on a condition variable.

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vorel::dif {

class WorkerTeam {
 public:
  // `members` threads in all: the caller and members - 1 workers (none for 1).
  explicit WorkerTeam(int members);
  ~WorkerTeam();
  WorkerTeam(const WorkerTeam&) = delete;
  WorkerTeam& operator=(const WorkerTeam&) = delete;

  int members() const { return members_; }
  // job(member) on every member, member members() - 1 on the calling thread.
  void Run(const std::function<void(int member)>& job);
  // fn(0) .. fn(count - 1) shared out over the members: each takes the next index no one has
  // taken, so a long task early in the list does not leave its member a share as large as
  // the others'.
  void ForEach(int count, const std::function<void(int index)>& fn);

 private:
  void WorkerLoop(int member);

  int members_;
  std::mutex mutex_;
  std::condition_variable start_, finished_;
  const std::function<void(int)>* job_ = nullptr;
  int64_t generation_ = 0;
  int running_ = 0;
  bool quit_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace vorel::dif
