#pragma once
// The blocks of a real-sample run, made on the run's threads and written in order.
//
// A generator plans each block (BlockSource::plan: its paths, noise seed and alignments,
// read from the record block after block); the engine makes the samples: every path of
// every channel in order into the block's sum, then the noise, the filter, the quantiser and
// the packing, and writes the bytes. With one thread each block is planned, made and
// written in turn on the caller's thread.
//
// With more, the blocks go out in batches of consecutive blocks, each batch to the thread
// that asks first. A channel's state at the start of a batch depends on every block before
// it, so each thread keeps its own copy of every channel's state and takes it over the
// batches other threads make with SkipPathRange, which touches only the samples where a
// channel's state can change: a few per path and block. Where the filter is on, the last
// inputs of the block before a batch are made as well, for the filter's memory. So every
// byte of a block is the same whichever thread makes it, and no block's samples cross from
// one core to another. The caller's thread writes the finished batches in order and decides
// whether the run goes on; the others never wait for anything but a free place in the ring
// of batches, and they wait by sleeping.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "dif/channel_kernel.h"
#include "dif/dif_settings.h"
#include "dif/scn_reader.h"
#include "dif/worker_team.h"
#include "platform/fir.h"
#include "platform/random.h"

namespace vorel::dif {

struct GeneratorContext;
struct GeneratorReport;
struct GeneratorSpeed;

// What aligning a channel sets, worked out when its block is planned and put in place by
// the thread that runs the channel (the planner never touches a channel's state).
struct Alignment {
  int32_t bitNumber = 0;
  int32_t navBit = 0;
  int32_t msInBit = 0;
  int32_t codeIndex = 0;
  float codeFraction = 0.0f;
  bool beforeRow = false;
  bool pastRow = false;
};

void ApplyAlignment(const Alignment& a, ChannelNco& nco, BitFeed& feed);

struct PlannedChannel {
  int32_t unit = 0;       // index of the channel's NCO and bit feed
  int32_t firstPath = 0;  // its paths in the block's list
  int32_t endPath = 0;
  bool align = false;
  Alignment alignment;
};

// One block as the planner hands it over, and what the run leaves behind if this block
// turns out to be its last: the worker's rand, the record reader's statics and issues.
struct BlockPlan {
  bool recordEnded = false;  // the record ended where this block's epoch should be: no block
  uint32_t seed = 0;
  std::vector<PathArgs> paths;
  std::vector<PlannedChannel> channels;
  platform::RandState rand;
  ScnReaderStatics statics;
  ScnReadIssues issues;
};

// What differs between the two generators: how a block is planned (block after block, on
// whichever thread takes the next batch) and what the warnings say.
struct BlockSource {
  std::function<void(int64_t block, BlockPlan& plan)> plan;
  std::function<std::string(int64_t ms)> rowEnded;
  std::function<std::string(int64_t ms)> recordEnded;
};

class BlockEngine {
 public:
  // `filter`: the taps and the (cleared) memory the run's filter starts with.
  BlockEngine(const DifSettings& s, const platform::FirState& filter, std::FILE* output,
              const GeneratorSpeed& speed);

  WorkerTeam& team() { return team_; }

  // Makes blocks 0 .. total - 1, fewer if the run ends early, from the channel states
  // ncos[0 .. units - 1] and feeds[...] (left as they were). `last` takes the rand, statics
  // and issues of the last block the run used (made, or found missing from the record).
  void Run(const ChannelNco* ncos, const BitFeed* feeds, int32_t units, int64_t total,
           const BlockSource& source, GeneratorContext& ctx, GeneratorReport& report,
           BlockPlan& last);

 private:
  const DifSettings& s_;
  const platform::FirState& filter_;
  std::FILE* output_;
  bool vectorised_;
  int takeTurns_;  // tests: batches of this many blocks, taken by the threads in turn
  WorkerTeam team_;
};

}  // namespace vorel::dif
