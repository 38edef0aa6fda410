#include "scintillation/scint_table.h"

#include <fmt/format.h>

#include <cmath>

namespace vorel::scintillation {

double SeriesAt(const std::vector<double>& values, int64_t ms) {
  if (values.empty()) return 0.0;
  // 20 samples per second: sample i lies at 50 i ms.
  const int64_t i = ms / 50;
  const int64_t last = static_cast<int64_t>(values.size()) - 1;
  if (i >= last) return values[last];
  const double fraction = static_cast<double>(ms - 50 * i) / 50.0;
  return values[i] + (values[i + 1] - values[i]) * fraction;
}

int MakeScintTable(const ScintSettings& settings, ScintFilter* ampFilter, ScintFilter* phaseFilter,
                   const ScintTableArgs& args, ScintTable& table, std::string& error) {
  table = ScintTable{};
  const int32_t rate = args.ScintRate == 0 ? 1 : args.ScintRate;
  if (rate < 1 || rate > 1000) {
    error = fmt::format("ScintRate = {}: the table needs 1 to 1000 values per second (0 means 1)",
                        args.ScintRate);
    return -1;
  }
  if (args.channels < 1 || args.channels > 32) {
    error = fmt::format("--channels {}: a record has 1 to 32 channels", args.channels);
    return -1;
  }
  // The DIF run's period, in whole milliseconds.
  table.periodMs = 1000 / rate;
  const int64_t spanMs = static_cast<int64_t>(kScintSamples) * 50;
  table.periods = static_cast<int32_t>((spanMs + table.periodMs - 1) / table.periodMs);
  for (int c = 0; c < kTableClasses; ++c) {
    ScintSettings s = settings;
    s.ScintIndex = args.indices[c];
    const int status = GenerateScint(s, ampFilter, phaseFilter, table.series[c], error);
    if (status == -2) {
      error = fmt::format("class {}, ScintIndex {}: {}", c + 1, args.indices[c], error);
      return -2;
    }
    if (status != 0) return -1;
  }
  fmt::memory_buffer out;
  for (int32_t j = 0; j < table.periods; ++j) {
    const int64_t ms = static_cast<int64_t>(j) * table.periodMs;
    fmt::memory_buffer line;
    for (int c = 0; c < kTableColumnPairs; ++c) {
      double phase = 0.0, amplitude = 1.0;
      if (c < kTableClasses) {
        phase = SeriesAt(table.series[c].phaseOut, ms);
        amplitude = SeriesAt(table.series[c].ampOut, ms);
      }
      fmt::format_to(std::back_inserter(line), "{}{:.6f} {:.6f}", c == 0 ? "" : " ", phase,
                     amplitude);
    }
    line.push_back('\n');
    for (int32_t k = 0; k < args.channels; ++k) out.append(line.data(), line.data() + line.size());
  }
  table.text = fmt::to_string(out);
  return 0;
}

}  // namespace vorel::scintillation
