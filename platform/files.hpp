// files.hpp - line reading for the library's own readers (glossaries, qv.ini), into an owned
// heap text.
#pragma once

#include <cstdio>

#include "core/heap.hpp"

namespace qv {

// GetLFTerminatedLine_L into `line`, which owns the block at every moment (also when a raise
// passes). Returns the line, or null at end of file or after ALLOC_FAILURE.
char *read_line(HeapText &line, std::FILE *stream);

} // namespace qv
