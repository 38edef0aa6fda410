#pragma once
// The .scn record as the DIF generator reads it: one epoch a call.

#include <array>
#include <cstdint>
#include <string>

#include "dif/dif_state.h"
#include "platform/text_file.h"

namespace vorel::dif {

struct RangePair {
  double previous = 0.0;
  double next = 0.0;
};

// A run's record state, by PRN minus 1, and the PRN list of the newest epoch.
struct RecordState {
  std::array<RangePair, 32> codeRange{};
  std::array<RangePair, 32> carrierRange{};
  std::array<RangePair, 32> third{};  // next always 1.0; nobody reads it
  std::array<int32_t, 32> bubbleClass{};
  std::array<int32_t, 32> prnList{};
};

// What the reader met and worked around, for one warning at the end of a run.
struct ScnReadIssues {
  int32_t unreadLines = 0;    // satellite lines that did not scan in full
  int32_t prnOutOfRange = 0;  // PRNs outside 1..32: their lines are skipped
  int32_t extraChannels = 0;  // channels beyond the 32 list slots: read and dropped
  int32_t firstLine = 0;      // line number of the first such line
  std::string Describe(const std::string& path) const;
};

// One step of the record: `previous` takes `next` for the listed PRNs, `timeMs` and
// `count` are handed back as the last read left them (the epoch now in `previous`), then
// the next epoch is read into the statics and `next`. Returns false, with nothing read,
// when the record has ended (no time line left).
bool ReadScnEpoch(platform::LineReader& file, ScnReaderStatics& statics, RecordState& record,
                  int32_t& timeMs, int32_t& count, ScnReadIssues& issues);

}  // namespace vorel::dif
