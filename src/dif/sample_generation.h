#pragma once
// The two sample generators: a .scn record followed a millisecond at a time, or one
// satellite at a constant Doppler without a record. Each block is the sum over channels and
// paths of carrier table x code x bit, plus noise, filtered if asked, quantised against its
// own range, packed and written.

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "dif/channel_kernel.h"
#include "dif/dif_settings.h"
#include "dif/dif_state.h"
#include "dif/scint_reading.h"
#include "dif/scn_reader.h"
#include "platform/aligned_buffer.h"
#include "platform/fir.h"
#include "platform/messages.h"
#include "platform/random.h"
#include "platform/text_file.h"

namespace vorel::dif {

inline constexpr int kMaxPaths = 8;

struct MultipathRecord {
  int32_t count = 0;
  std::array<float, kMaxPaths> amplitude{};
  std::array<float, kMaxPaths> delay{};
  std::array<float, kMaxPaths> startTime{};
};
using MultipathRecords = std::array<MultipathRecord, 32>;

// Walks the rows with the inherited switch (set at the start; "n" clears it and skips the
// row, "y" sets it, any other text keeps it). A switched-on row adds a path to its PRN's
// record. Rows whose PRN is outside 1..32 are skipped and counted in `skippedRows`.
void LoadMultipathTable(const std::array<MultipathRow, kMultipathRows>& rows, int32_t rowCount,
                        MultipathRecords& records, int32_t& skippedRows);

// trunc(timeMs / 750000.0) x 37500: the first bit of the 12.5-minute frame holding the time.
int32_t BitBaseForTime(int32_t timeMs);

// Sets navBit, msInBit and bitNumber from the transmission time of `range` metres at
// `timeMs` and returns the code phase in samples.
float AlignChannel(int32_t n, int32_t timeMs, const int32_t* row, double range, int32_t base,
                   ChannelNco& nco, BitFeed& feed);

// How the generators make their numbers: every variant writes the same bytes.
struct GeneratorSpeed {
  bool vectorised = true;  // eight or sixteen samples at a time where the plain loop allows it
  int threads = 1;         // threads making the blocks, the caller's among them (docs/dif.md)
  int turns = 0;           // tests: batches of this many blocks, taken by the threads in turn
                           // in a ring of one batch more than threads (0: the run's own
                           // batches, taken by whichever thread is free first)
};

struct GeneratorContext {
  DifState& state;
  platform::RandState& rand;
  std::atomic<uint8_t>& RunActive;
  const platform::Messages& messages;
  GeneratorSpeed speed;
};

struct GeneratorFiles {
  platform::LineReader* record = nullptr;
  platform::LineReader* scint = nullptr;
  std::FILE* output = nullptr;  // null: the bytes go nowhere
};

// What a run did, for the front end's summary.
struct GeneratorReport {
  int64_t blocks = 0;
  int64_t bytes = 0;
  bool stopped = false;      // RunActive was cleared
  bool recordEnded = false;  // the .scn record ended before Duration
  bool rowEnded = false;     // a navigation row ran out
  int64_t heldValues = 0;    // I/Q form: values held at the format's limits (clipped)
  std::string refusal;       // an input the run cannot read: nothing it wrote is kept
};

// Reads the record's first two epochs, which every generator needs before its first block.
// False (with a warning and the report's recordEnded set) when the record holds fewer.
bool ReadFirstTwoEpochs(RecordState& record, const GeneratorFiles& files, GeneratorContext& ctx,
                        GeneratorReport& report, int32_t& timeMs, int32_t& count,
                        ScnReadIssues& issues);

// Warns of what the record's reading passed over or mended, when there was anything.
void WarnScnIssues(const ScnReadIssues& issues, const GeneratorFiles& files,
                   GeneratorContext& ctx);

// Whole milliseconds of the run's Duration; 0 when it has none.
int64_t RunMilliseconds(const DifSettings& s);

// What a run sets up before its blocks: the filter and the 32 sampled codes (n = SamplesPerMs).
struct RunBuffers {
  platform::FirState filter;
  std::vector<platform::AlignedBuffer<int32_t>> codeTables;  // 32 x n
  void Allocate(int32_t n);
};

int GenerateScenarioSamples(const DifSettings& s, RunBuffers& buffers, RecordState& record,
                            ScintillationState& scint, const MultipathRecords& multipath,
                            const GeneratorFiles& files, GeneratorContext& context,
                            GeneratorReport& report);

int GenerateTestSamples(const DifSettings& s, RunBuffers& buffers, ScintillationState& scint,
                        const MultipathRecords& multipath, const GeneratorFiles& files,
                        GeneratorContext& context, GeneratorReport& report);

}  // namespace vorel::dif
