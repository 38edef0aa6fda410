#pragma once
// The scintillation table a DIF run reads when scintillation acts on all satellites
// (ScintType 0): one line per satellite channel per period of 1000 / ScintRate ms, each
// line ten columns, a phase and an amplitude for bubble classes 1 to 5. Classes 1 to 3
// come from three generated series (one ScintIndex each); classes 4 and 5 are left calm
// (phase 0, amplitude 1).

#include <array>
#include <cstdint>
#include <string>

#include "scintillation/scint_generator.h"
#include "scintillation/scint_settings.h"

namespace vorel::scintillation {

inline constexpr int kTableClasses = 3;
inline constexpr int kTableColumnPairs = 5;

struct ScintTableArgs {
  std::array<double, kTableClasses> indices{0.2, 0.5, 0.8};  // ScintIndex of classes 1 to 3
  int32_t ScintRate = 0;  // values per second; 0 means 1, as the DIF run takes it
  int32_t channels = 1;   // lines per period: the channels of the record
};

struct ScintTable {
  int32_t periodMs = 0;
  int32_t periods = 0;  // periods within the 250 s of a series
  std::array<ScintSeries, kTableClasses> series;
  std::string text;
};

// The value of `values` (20 per second) at `ms` milliseconds, linear between samples and
// held at the last one.
double SeriesAt(const std::vector<double>& values, int64_t ms);

// Generates the three series (the settings with each index in turn) and lays out the table.
// Returns 0; -1 with `error` for bad arguments or settings; -2 when a series is refused
// (`error` names the class and the index).
int MakeScintTable(const ScintSettings& settings, ScintFilter* ampFilter, ScintFilter* phaseFilter,
                   const ScintTableArgs& args, ScintTable& table, std::string& error);

}  // namespace vorel::scintillation
