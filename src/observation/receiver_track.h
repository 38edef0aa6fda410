#pragma once
// Where the receiver is at each epoch of a run: a static receiver stepped by the
// observation interval, or a trajectory file read a line at a time. The loop asks the
// track for the next epoch and knows no more of where the positions come from.

#include <cstdint>
#include <string>

#include "platform/messages.h"
#include "platform/text_file.h"

namespace vorel::observation {

inline constexpr char kTrajectoryFormat[] = "%s>%d%s[w1d]%f%s[w1d]%f%s[w1d]%f%s[d]";

// The receiver at one epoch.
struct ReceiverFix {
  int32_t timeMs = 0;      // ms of the week
  double latitude = 0.0;   // deg
  double longitude = 0.0;  // deg
  double altitude = 0.0;   // m
};

class ReceiverTrack {
 public:
  virtual ~ReceiverTrack() = default;
  // Moves `fix` to the next epoch. False when the track ends with this epoch, which is
  // still computed at the time and place left in `fix`.
  virtual bool Next(ReceiverFix& fix) = 0;
  // False for a receiver that stays where it is: its position needs no update and the
  // speed and altitude limits do not apply.
  virtual bool Moves() const = 0;
};

// Tells the user once per run about lines of a file that did not scan; the run keeps
// the values it had, as it must.
class OnceWarner {
 public:
  OnceWarner(const platform::Messages& messages, const char* what)
      : messages_(messages), what_(what) {}
  void Report(const platform::LineReader& file, const std::string& line);

 private:
  const platform::Messages& messages_;
  const char* what_;
  bool reported_ = false;
};

// A receiver that stays put; the first epoch lies one interval after the start.
class StaticTrack : public ReceiverTrack {
 public:
  explicit StaticTrack(int32_t intervalMs) : intervalMs_(intervalMs) {}
  bool Next(ReceiverFix& fix) override {
    fix.timeMs += intervalMs_;
    return true;
  }
  bool Moves() const override { return false; }

 private:
  int32_t intervalMs_;
};

// One epoch per line of a trajectory file, at the line's own time and place. A line
// that does not scan keeps the values before it (reported once); an empty line or the
// end of the file ends the track after one more epoch where the last line left it.
class TrajectoryFileTrack : public ReceiverTrack {
 public:
  TrajectoryFileTrack(platform::LineReader& file, const platform::Messages& messages)
      : file_(file), messages_(messages), warner_(messages, "trajectory file") {}
  bool Next(ReceiverFix& fix) override;
  bool Moves() const override { return true; }

 private:
  platform::LineReader& file_;
  const platform::Messages& messages_;
  OnceWarner warner_;
  std::string line_;
};

}  // namespace vorel::observation
