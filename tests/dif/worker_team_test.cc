#include "dif/worker_team.h"

#include <gtest/gtest.h>

#include <atomic>
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

}  // namespace
}  // namespace vorel::dif
