#include "dif/worker_team.h"

#include <algorithm>
#include <atomic>

namespace vorel::dif {

WorkerTeam::WorkerTeam(int members) : members_(std::max(1, members)) {
  threads_.reserve(static_cast<size_t>(members_ - 1));
  for (int m = 0; m + 1 < members_; ++m) threads_.emplace_back([this, m] { WorkerLoop(m); });
}

WorkerTeam::~WorkerTeam() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    quit_ = true;
  }
  start_.notify_all();
  for (std::thread& t : threads_) t.join();
}

void WorkerTeam::WorkerLoop(int member) {
  int64_t seen = 0;
  for (;;) {
    const std::function<void(int)>* job;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      start_.wait(lock, [&] { return quit_ || generation_ != seen; });
      if (quit_) return;
      seen = generation_;
      job = job_;
    }
    (*job)(member);
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (--running_ == 0) finished_.notify_one();
    }
  }
}

void WorkerTeam::Run(const std::function<void(int)>& job) {
  if (members_ > 1) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      job_ = &job;
      running_ = members_ - 1;
      ++generation_;
    }
    start_.notify_all();
  }
  job(members_ - 1);
  if (members_ > 1) {
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&] { return running_ == 0; });
    job_ = nullptr;
  }
}

void WorkerTeam::ForEach(int count, const std::function<void(int)>& fn) {
  std::atomic<int> next{0};
  Run([&](int /*member*/) {
    for (int i = next.fetch_add(1, std::memory_order_relaxed); i < count;
         i = next.fetch_add(1, std::memory_order_relaxed))
      fn(i);
  });
}

}  // namespace vorel::dif
