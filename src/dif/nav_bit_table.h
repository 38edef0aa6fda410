#pragma once
// Loading the navigation bit files into the NavBitTable.

#include <cstdint>
#include <filesystem>

#include "dif/dif_state.h"

namespace vorel::dif {

// Reads up to 87,000 little-endian 32-bit records of `path` into the row (a missing or
// short file leaves the rest of the row as it stood). Returns the number of records read,
// -1 when the file cannot be opened.
int32_t ReadNavBitFile(const std::filesystem::path& path, int32_t* row);

// Maps each bit b of the row to 2 b - 1 (0 gives -1, 1 gives +1), on several threads when
// the run may fork them: the conversion is element by element.
void ConvertNavBits(int32_t* row);

}  // namespace vorel::dif
