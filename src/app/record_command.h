#pragma once
// `record`: one command from an orbit file to a recording a software receiver reads, with
// its SigMF description and a GNSS-SDR configuration beside it. The navigation messages,
// the 1 ms observation record (in a temporary folder, removed at the end) and the samples
// are made in one go, with the receiver profile on unless the user says otherwise.

#include <functional>
#include <string>

#include "app/commands.h"

namespace CLI {
class App;
}

namespace vorel::app {

// The assignment that turns on what real receivers need from a recording; an explicit
// --set of the same setting wins.
inline constexpr char kRecordProfile[] = "Profile=receiver";

// "2010-07-01T10:00:00", with optional fractional seconds and a trailing "Z". Returns
// false when the text is not such a date or a field is out of its range.
bool ParseStartTime(const std::string& text, int32_t& year, int32_t& month, int32_t& day,
                    int32_t& hour, int32_t& minute, double& second);

// The sampling-frequency and decimation settings that give `fs` Hz in the file: the
// generator samples at 16368, 40920 or 54560 kHz and keeps every sample, every 2nd or
// every 3rd. False when no such pair gives `fs` exactly.
bool RateSettings(double fs, std::string& samplingFrequency, std::string& decimation);

std::function<int(CommandContext&)> RecordCommand(CLI::App& parser);

}  // namespace vorel::app
