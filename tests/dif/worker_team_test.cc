#include "dif/worker_team.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace vorel::dif {
namespace {

TEST(WorkerTeam, EveryMemberRunsEachJobAndTheCallerIsTheLast) {
  for (int members : {1, 2, 5}) {
    WorkerTeam team(members);
    for (int round = 0; round < 50; ++round) {
      std::vector<int> ran(static_cast<size_t>(members), 0);
      std::thread::id callerRan;
      team.Run([&](int m) {
        ran[m] += 1;
        if (m == members - 1) callerRan = std::this_thread::get_id();
      });
      for (int m = 0; m < members; ++m) EXPECT_EQ(ran[m], 1) << members << " " << m;
      EXPECT_EQ(callerRan, std::this_thread::get_id());
    }
    std::vector<std::atomic<int>> hits(97);
    team.ForEach(97, [&](int i) { hits[i].fetch_add(1); });
    for (auto& h : hits) EXPECT_EQ(h.load(), 1);
  }
}

// Three stages hand 20000 items down a ring of 16, each stage adding its mark to every item
// in order; the first stage also waits for free slots. Every item must come out complete,
// and a sleeping consumer must be woken about once a batch, not once an item.
TEST(Milestones, APipelineOverARingHandsEveryItemOnInOrder) {
  constexpr int kStages = 3, kRing = 16, kBatch = 4;
  constexpr int64_t kItems = 20000;
  Milestones ms(kStages, kStages);
  std::vector<int64_t> ring(kRing, 0);
  std::vector<int64_t> out;
  out.reserve(kItems);
  WorkerTeam team(kStages);
  team.Run([&](int stage) {
    for (int64_t b = 0; b < kItems; ++b) {
      if (stage == 0) {
        if (b >= kRing && ms.Await(0, kStages - 1, b - kRing + 1, b - kRing + kBatch) < 0) break;
        ring[b % kRing] = b * 10;
      } else {
        if (ms.Await(stage, stage - 1, b + 1, b + kBatch) < 0) break;
        ring[b % kRing] += stage;
        if (stage == kStages - 1) out.push_back(ring[b % kRing]);
      }
      // Uneven work, so that every stage gets ahead and falls behind now and then.
      if ((b * (stage + 3)) % 997 == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
      ms.Publish(stage, b + 1);
    }
    ms.Close(stage);
  });
  ASSERT_EQ(out.size(), static_cast<size_t>(kItems));
  for (int64_t b = 0; b < kItems; ++b) ASSERT_EQ(out[b], b * 10 + 3) << b;
  for (int s = 0; s < kStages; ++s) EXPECT_LT(ms.Sleeps(s), kItems / 2) << s;
}

TEST(Milestones, HaltAndCloseEndTheWaitsThatCannotBeMet) {
  {
    Milestones ms(2, 2);
    std::atomic<int64_t> got{0};
    std::thread waiter([&] { got = ms.Await(1, 0, 5, 10); });
    ms.Publish(0, 3);
    ms.Close(0);  // the producer stops short of the need
    waiter.join();
    EXPECT_EQ(got.load(), -1);
  }
  {
    Milestones ms(2, 2);
    std::atomic<int64_t> got{0};
    std::thread waiter([&] { got = ms.Await(1, 0, 5, 100); });
    ms.Publish(0, 6);  // the need is met but not the wish: a close wakes it with what there is
    ms.Close(0);
    waiter.join();
    EXPECT_EQ(got.load(), 6);
  }
  {
    Milestones ms(2, 2);
    std::atomic<int64_t> got{0};
    std::thread waiter([&] { got = ms.Await(1, 0, 5, 5); });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ms.Halt();
    waiter.join();
    EXPECT_EQ(got.load(), -1);
    EXPECT_TRUE(ms.Halted());
  }
}

// A producer that goes to sleep itself lowers its consumer's wish to its need, so that a
// consumer waiting for a batch does not wait for blocks that will not come: here the
// consumer needs item 1, wishes for 8, and the producer stops at 1 to wait for the consumer.
TEST(Milestones, AProducerAboutToSleepLetsItsConsumerTakeWhatThereIs) {
  Milestones ms(2, 2);
  std::atomic<int64_t> consumed{0};
  std::thread consumer([&] {
    const int64_t got = ms.Await(1, 0, 1, 8);
    consumed = got;
    ms.Publish(1, 1);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ms.Publish(0, 1);
  // The producer now needs the consumer's first item before it goes on.
  EXPECT_EQ(ms.Await(0, 1, 1, 1), 1);
  consumer.join();
  EXPECT_EQ(consumed.load(), 1);
}

// The first stage now and then waits until the second has caught up completely (as a
// channel moving to an earlier stage does), while the second sleeps for batches: however
// the two meet, neither may sleep for ever. A watchdog halts a run that hangs.
TEST(Milestones, AProducerWaitingForItsConsumerNeverDeadlocks) {
  for (int round = 0; round < 20; ++round) {
    constexpr int64_t kItems = 4000;
    Milestones ms(2, 2);
    std::atomic<bool> finished{false};
    std::atomic<int64_t> consumed{0};
    std::thread watchdog([&] {
      for (int k = 0; k < 2000 && !finished.load(); ++k)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      if (!finished.load()) ms.Halt();
    });
    WorkerTeam team(2);
    team.Run([&](int stage) {
      for (int64_t b = 0; b < kItems; ++b) {
        if (stage == 0) {
          if (b >= 8 && ms.Await(0, 1, b - 7, b - 4) < 0) break;
          if ((b * 7919) % 13 == 0 && ms.Await(0, 1, b, b) < 0) break;  // wait for everything
        } else {
          if (ms.Await(1, 0, b + 1, b + 4) < 0) break;
          consumed.store(b + 1);
        }
        if ((b + round) % 97 == 0) std::this_thread::yield();
        ms.Publish(stage, b + 1);
      }
      ms.Close(stage);
    });
    finished.store(true);
    watchdog.join();
    ASSERT_FALSE(ms.Halted()) << "deadlock in round " << round << " after " << consumed.load();
    ASSERT_EQ(consumed.load(), kItems);
  }
}

}  // namespace
}  // namespace vorel::dif
