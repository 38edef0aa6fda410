#include "dif/scn_reader.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/scan.h"

namespace vorel::dif {

std::string ScnReadIssues::Describe(const std::string& path) const {
  std::string text;
  auto add = [&](int32_t n, const char* what) {
    if (n > 0) text += fmt::format("{}{} {}", text.empty() ? "" : "; ", n, what);
  };
  add(unreadLines, "satellite line(s) did not scan in full and were skipped");
  add(prnOutOfRange, "line(s) named a PRN outside 1 to 32 and were skipped");
  add(extraChannels, "channel line(s) beyond 32 in an epoch were dropped");
  if (text.empty()) return text;
  return fmt::format("record {}: {} (first at line {})", path, text, firstLine);
}

bool ReadScnEpoch(platform::LineReader& file, ScnReaderStatics& statics, RecordState& record,
                  int32_t& timeMs, int32_t& count, ScnReadIssues& issues) {
  const int32_t listed = std::clamp(statics.count, 0, 32);
  for (int32_t j = 0; j < listed; ++j) {
    const int32_t prn = record.prnList[j];
    if (prn < 1 || prn > 32) continue;
    record.codeRange[prn - 1].previous = record.codeRange[prn - 1].next;
    record.carrierRange[prn - 1].previous = record.carrierRange[prn - 1].next;
    record.third[prn - 1].previous = record.third[prn - 1].next;
  }
  timeMs = statics.timeMs;
  count = statics.count;

  std::string line;
  if (file.ReadLine(line) < 0) return false;
  platform::ScanLine(line, "%s>%d", {&statics.timeMs});
  if (file.ReadLine(line) < 0) return false;
  platform::ScanLine(line, "%s>%d", {&statics.count});

  auto note = [&](int32_t& counter) {
    if (issues.firstLine == 0) issues.firstLine = file.lineNumber();
    ++counter;
  };
  for (int32_t j = 0; j < statics.count; ++j) {
    if (file.ReadLine(line) < 0) {
      note(issues.unreadLines);
      break;
    }
    int32_t prn = 0, bubble = 0;
    double code = 0.0, carrier = 0.0;
    const bool whole =
        platform::ScanLine(line, "%s>%d%f%f%d", {&prn, &code, &carrier, &bubble}) == 4;
    if (j >= 32) {
      note(issues.extraChannels);
      continue;
    }
    if (!whole) {
      // A line that does not scan in full leaves its slot empty for this epoch.
      note(issues.unreadLines);
      record.prnList[j] = 0;
      continue;
    }
    record.prnList[j] = prn;
    if (prn < 1 || prn > 32) {
      note(issues.prnOutOfRange);
      continue;
    }
    record.codeRange[prn - 1].next = code;
    record.carrierRange[prn - 1].next = carrier;
    record.third[prn - 1].next = 1.0;
    record.bubbleClass[prn - 1] = bubble;
  }
  return true;
}

}  // namespace vorel::dif
