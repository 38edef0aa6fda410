#pragma once
// The orbit file readers: a YUMA almanac and a RINEX navigation file, each written into
// the true and the broadcast set alike, and the load command that picks between them.
//
// The readers check no format. Success (result 1) means only that one sqrtA strictly
// between 5100 and 5500 was seen; a file in which none passes is still stored whole and
// yet fails. Lines are read with the 1000-character rule. Anything the reader had to
// work around (a line that did not scan, a PRN outside the table, a satellite with more
// records than a row holds) is reported through the warning channel with file name and
// line number; the table is never written outside its rows and records.

#include <string>

#include "orbits/constellation_ops.h"
#include "orbits/orbit_record.h"
#include "platform/messages.h"
#include "platform/text_file.h"

namespace vorel::orbits {

// Reads a YUMA almanac from an opened file to its end into record 0 of both sets.
// Returns 1 on success, -1 otherwise (also when the first line cannot be read).
int ReadYumaAlmanac(platform::LineReader& file, ConstellationTable& table,
                    const platform::Messages& messages);

// Reads a RINEX navigation file; records of a PRN are stored in file order. An empty
// path is a cancelled file choice. Returns 1 on success, -1 otherwise.
int ReadRinexNavigation(ConstellationTable& table, const std::string& path,
                        const platform::Messages& messages);

// Tells an orbit file's type from its content, as the KeepOrbitEpochs value that loads
// it: 1 when a RINEX header label ("RINEX VERSION / TYPE", "END OF HEADER") comes first,
// 0 when a YUMA "ID:" line comes first, -1 when neither is met in the first 200 lines or
// the file cannot be read.
int32_t DetectOrbitFileType(const std::string& path);

// The `load-orbits` command.
struct LoadAlmanacArgs {
  // File type: 0 YUMA, 1 RINEX navigation, anything else loads nothing.
  int32_t KeepOrbitEpochs = 0;
  // The chosen file; empty means the choice was cancelled.
  std::string path;
};

// Marks record 0 of PRN 1 to 32 in both sets with status 1, reads the file, and on
// success turns OrbitsValid and the main orbit indicator on and galileoLoaded off; then
// shows the panel's record. Returns the reader's result (1 or -1), or 0 for a file type
// that loads nothing.
int LoadAlmanac(ConstellationTable& table, ConstellationState& state, const LoadAlmanacArgs& args,
                 const platform::Messages& messages);

}  // namespace vorel::orbits
