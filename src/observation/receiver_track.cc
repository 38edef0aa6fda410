#include "observation/receiver_track.h"

#include <fmt/format.h>

#include "platform/messages.h"
#include "platform/scan.h"
#include "platform/text_file.h"

namespace vorel::observation {

void OnceWarner::Report(const platform::LineReader& file, const std::string& line) {
  if (reported_) return;
  reported_ = true;
  messages_.Warn(
      fmt::format("{} {}, line {}: cannot read \"{}\"; the previous values stay in "
                  "force (reported once per run)",
                  what_, file.path(), file.lineNumber(), line.substr(0, 60)));
}

bool TrajectoryFileTrack::Next(ReceiverFix& fix) {
  const int lineLength = file_.ReadLine(line_);
  if (lineLength > 0 &&
      platform::ScanLine(line_, kTrajectoryFormat,
                         {&fix.timeMs, &fix.latitude, &fix.longitude, &fix.altitude}) < 4)
    warner_.Report(file_, line_);
  if (lineLength == 0)
    messages_.Warn(fmt::format("trajectory file {}, line {} is empty: the run ends there",
                               file_.path(), file_.lineNumber()));
  return lineLength > 0;
}

}  // namespace vorel::observation
