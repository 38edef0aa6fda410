#include "dif/worker_team.h"

#include <atomic>

#include <chrono>

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace vorel::dif {
namespace {

// The spin before a sleep: a few microseconds at most, so that a block about to be handed
// over is not waited for through the scheduler, and nothing is burnt when it is not.
constexpr int kSpinChecks = 64;

inline void Pause() {
#if defined(__x86_64__)
  _mm_pause();
#endif
}

}  // namespace

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

Milestones::Milestones(int counts, int waiters)
    : counts_(new Count[static_cast<size_t>(std::max(1, counts))]),
      sleepers_(new Sleeper[static_cast<size_t>(std::max(1, waiters))]),
      countNumber_(counts),
      waiterNumber_(waiters) {}

void Milestones::WakeIfDue(Sleeper& s, int count, int64_t value) {
  // seq_cst against the sleeper's registration: either it sees the new value before it
  // sleeps, or we see it registered here.
  if (s.count.load(std::memory_order_seq_cst) != count) return;
  if (value < s.wish.load(std::memory_order_seq_cst)) return;
  std::lock_guard<std::mutex> lock(s.mutex);  // it is asleep or about to check under the lock
  s.wake.notify_one();
}

void Milestones::Publish(int count, int64_t value) {
  counts_[count].value.store(value, std::memory_order_seq_cst);
  for (int w = 0; w < waiterNumber_; ++w) WakeIfDue(sleepers_[w], count, value);
}

void Milestones::Kick(int count) {
  const int64_t value = counts_[count].value.load(std::memory_order_seq_cst);
  for (int w = 0; w < waiterNumber_; ++w) {
    Sleeper& s = sleepers_[w];
    if (s.count.load(std::memory_order_seq_cst) != count) continue;
    std::lock_guard<std::mutex> lock(s.mutex);
    s.wish.store(s.need.load(std::memory_order_relaxed), std::memory_order_seq_cst);
    if (value >= s.need.load(std::memory_order_relaxed)) s.wake.notify_one();
  }
}

void Milestones::Close(int count) {
  counts_[count].closed.store(true, std::memory_order_seq_cst);
  for (int w = 0; w < waiterNumber_; ++w) {
    Sleeper& s = sleepers_[w];
    if (s.count.load(std::memory_order_seq_cst) != count) continue;
    std::lock_guard<std::mutex> lock(s.mutex);
    s.wake.notify_one();
  }
}

void Milestones::Halt() {
  halted_.store(true, std::memory_order_seq_cst);
  for (int w = 0; w < waiterNumber_; ++w) {
    Sleeper& s = sleepers_[w];
    std::lock_guard<std::mutex> lock(s.mutex);
    s.wake.notify_one();
  }
}

namespace {
constexpr std::chrono::milliseconds kSafetyNap{50};
}  // namespace

int64_t Milestones::Await(int waiter, int count, int64_t need, int64_t wish) {
  Count& c = counts_[count];
  int64_t value = c.value.load(std::memory_order_acquire);
  if (value >= need) return value;
  for (int k = 0; k < kSpinChecks; ++k) {
    Pause();
    value = c.value.load(std::memory_order_acquire);
    if (value >= need) return value;
    if (halted_.load(std::memory_order_relaxed)) return -1;
  }
  Sleeper& s = sleepers_[waiter];
  s.need.store(need, std::memory_order_relaxed);
  s.wish.store(std::max(need, wish), std::memory_order_seq_cst);
  s.count.store(count, std::memory_order_seq_cst);
  // Whoever waits on us must not wait for a batch we will not make while we sleep: those
  // asleep already are kicked, and those who start to sleep from now on see the mark. (All
  // seq_cst: of a producer marking itself and then looking for sleepers, and a sleeper
  // registering and then looking for the mark, at least one sees the other.)
  const bool producer = waiter < countNumber_;
  if (producer) {
    counts_[waiter].producerAsleep.store(true, std::memory_order_seq_cst);
    Kick(waiter);
  }
  if (c.producerAsleep.load(std::memory_order_seq_cst)) s.wish.store(need, std::memory_order_seq_cst);
  {
    std::unique_lock<std::mutex> lock(s.mutex);
    ++s.sleeps;
    for (;;) {
      value = c.value.load(std::memory_order_seq_cst);
      if (value >= s.wish.load(std::memory_order_seq_cst)) break;
      if (c.closed.load(std::memory_order_seq_cst) || halted_.load(std::memory_order_seq_cst))
        break;
      // A bounded sleep: should a wake-up ever be missed, the waiter looks again after
      // the nap and then asks only for what it needs, so a run can be slowed by a lost
      // wake-up but never stopped by one.
      if (s.wake.wait_for(lock, kSafetyNap) == std::cv_status::timeout)
        s.wish.store(need, std::memory_order_seq_cst);
    }
  }
  s.count.store(-1, std::memory_order_seq_cst);
  if (producer) counts_[waiter].producerAsleep.store(false, std::memory_order_seq_cst);
  if (halted_.load(std::memory_order_seq_cst)) return -1;
  return value >= need ? value : -1;
}

}  // namespace vorel::dif
