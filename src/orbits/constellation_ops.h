#pragma once
// Editing of the constellation table: the orbit panel (one record of both sets shown and
// written back), the bulk clears of correction terms, the PRN selector's range, and the
// built-in Galileo constellation.
//
// The orbit panel is a plain record here. The operations keep the panel's habits:
// `ShowOrbitRecord` fills Keplerian row 2 (`week`) and not row 11 (`IDOT`), `ApplyOrbitPanel`
// takes row 11 and not row 2, and `healthy` can raise a record to usable but never
// lower it.

#include <array>
#include <cstdint>
#include <string>

#include "orbits/orbit_record.h"

namespace vorel::orbits {

// Row counts of the orbit panel's tables.
inline constexpr int kKeplerianRows =
    11;                                  // toe week M0 deltaN e sqrtA Omega0 i0 omega OmegaDot IDOT
inline constexpr int kHarmonicRows = 6;  // Cuc Cus Crc Crs Cic Cis
inline constexpr int kClockRows = 3;     // toc af0 af1

// One panel table per set; index 0 is row 1.
struct OrbitPanelSet {
  std::array<double, kKeplerianRows> keplerian{};
  std::array<double, kHarmonicRows> harmonic{};
  std::array<double, kClockRows> clock{};
};

struct OrbitPanel {
  int32_t selectedPrn = 1;     // 1-based; set down to satelliteCount when above it
  int32_t selectedRecord = 0;  // 0-based record index, not held to recordCount
  OrbitPanelSet trueSet;
  OrbitPanelSet broadcastSet;
  bool healthy = false;
};

// What the orbit side keeps for one program start beside the table itself.
struct ConstellationState {
  // Source indicators: a file load turns OrbitsValid on and galileoLoaded off, the
  // Galileo loader does the reverse.
  bool OrbitsValid = false;
  bool galileoLoaded = false;
  // The main panel's orbit indicator, turned on by a successful file load.
  bool orbitIndicator = false;
  // Path of the last orbit file chosen.
  std::string orbitFileName;
  // Upper bound of the PRN selector (SetSignalSystem); 32 matches selector value 0.
  int32_t satelliteCount = 32;
  OrbitPanel panel;
};

// Copies record `selectedRecord` of PRN `selectedPrn` of both sets into the panel and
// sets `healthy` from the broadcast record's status. `selectedPrn` is first set down to
// `satelliteCount` (and up to 1). Returns 0; -1 when the PRN or record index lies outside
// the table, in which case the tables of the panel are left as they were.
int ShowOrbitRecord(const ConstellationTable& table, int32_t satelliteCount, OrbitPanel& panel);

// Writes the panel into record `selectedRecord` of both sets: Keplerian rows 1 and 3 to 11,
// the six harmonic rows and toc, af0, af1; status 7 in both sets when `healthy` is on.
// Returns 1 always; a PRN or record index outside the table writes nothing.
int ApplyOrbitPanel(ConstellationTable& table, int32_t satelliteCount, OrbitPanel& panel);

// Bulk clears over PRN 1 to 32 and their records below recordCount, each followed by
// ShowOrbitRecord. The B variants act on the broadcast set, the others on the true set.
// Each returns 0.
int ClearBroadcastHarmonics(ConstellationTable& table, ConstellationState& state);
int ClearBroadcastClocks(ConstellationTable& table, ConstellationState& state);
int ClearTrueHarmonics(ConstellationTable& table, ConstellationState& state);
int ClearTrueClocks(ConstellationTable& table, ConstellationState& state);

// Sets the PRN selector's upper bound from the signal-system selector. Returns 0.
int SetSignalSystem(int32_t signalSystem, ConstellationState& state);
int32_t SatelliteCountForSystem(int32_t signalSystem);

// Fills true record 0 of PRN 1 to 30 with the built-in 27 + 3 satellite constellation
// and switches the source indicators to it. Returns 0.
int LoadGalileo(ConstellationTable& table, ConstellationState& state);

// The `show-orbit` command: selects PRN and record on the panel, shows the record and
// writes the panel as text to `out`. Returns 0, or -1 when PRN or record lie outside the
// table (nothing is written then).
struct ShowOrbitArgs {
  int32_t prn = 1;
  int32_t record = 0;
};
int ShowOrbit(const ConstellationTable& table, ConstellationState& state, const ShowOrbitArgs& args,
              std::string& out);

// The panel as text, as `show-orbit` prints it.
std::string FormatOrbitPanel(const ConstellationTable& table, const OrbitPanel& panel);

}  // namespace vorel::orbits
