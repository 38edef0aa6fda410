#pragma once
// The threads of a DIF run and the way they wait for one another.
//
// WorkerTeam: threads that live for the whole run. Run(job) hands one job to every member
// (the caller is the last member) and returns when all have finished it; between jobs the
// workers sleep on a condition variable.
//
// Milestones: counts that only grow, one per producer (a pipeline stage: "blocks done"), and
// waits for a count to reach a number. A waiter spins only briefly, then sleeps on its own
// condition variable until the count's producer, having moved the count far enough, wakes
// it. A waiter names two numbers: what it needs (the block it works on next) and what it
// would like before it is woken (a batch of blocks further on), so that a producer wakes a
// sleeping consumer once a batch rather than once a block. A producer that is about to sleep
// itself first lowers its sleepers' wishes to their needs (Kick), so that a batch never waits
// for blocks that will not come while nobody is working; a consumer that starts to sleep
// while its producer sleeps wishes for no more than it needs. Close says a producer has made
// its last block; Halt ends every wait of the run.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
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

class Milestones {
 public:
  // `counts` counters and `waiters` waiters; waiter w produces counter w when w < counts.
  Milestones(int counts, int waiters);

  int64_t Get(int count) const { return counts_[count].value.load(std::memory_order_acquire); }
  // The producer moves its count on and wakes the sleepers whose wish it has reached.
  void Publish(int count, int64_t value);
  // The producer has made its last block: every sleeper on the count wakes.
  void Close(int count);
  // Every wait returns at once from now on.
  void Halt();
  bool Halted() const { return halted_.load(std::memory_order_acquire); }

  // Waits until count >= need, sleeping (after a short spin) until count >= wish or until
  // the producer kicks, closes or the run halts. Returns the count, or -1 when the count
  // was closed below `need` or the run halted. `waiter` is the caller's own index; its own
  // sleeping consumers are kicked before it sleeps.
  int64_t Await(int waiter, int count, int64_t need, int64_t wish);

  // Times a waiter went to sleep (for the benchmarks and the notes).
  int64_t Sleeps(int waiter) const { return sleepers_[waiter].sleeps; }

 private:
  struct alignas(64) Count {
    std::atomic<int64_t> value{0};
    std::atomic<bool> closed{false};
    std::atomic<bool> producerAsleep{false};  // its producer waits itself: wishes are off
  };
  struct alignas(64) Sleeper {
    std::atomic<int> count{-1};  // the count slept on, -1 when awake
    std::atomic<int64_t> need{0};
    std::atomic<int64_t> wish{0};
    std::mutex mutex;
    std::condition_variable wake;
    int64_t sleeps = 0;
  };
  void Kick(int count);
  void WakeIfDue(Sleeper& s, int count, int64_t value);

  std::unique_ptr<Count[]> counts_;
  std::unique_ptr<Sleeper[]> sleepers_;
  int countNumber_;
  int waiterNumber_;
  std::atomic<bool> halted_{false};
};

}  // namespace vorel::dif
