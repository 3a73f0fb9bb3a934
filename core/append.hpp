// append.hpp - appending to heap texts in amortised time (module "alloc", alloc.cpp).
//
// The texts the library appends to (the formatter's *out, the text of a counted string that
// Astrcat_SL grows) carry no length, and C's way with them (strlen, then realloc to the
// exact new size) reallocates on every append. Growth here asks the block how much room it
// has (malloc_usable_size) and, when that is not enough, grows it by half again at least, so
// n appends reallocate O(log n) times. The text is measured with strlen on every append: the
// caller owns it and may cut it anywhere between two appends.
//
// One-byte terminators only (UTF-8, single-byte and multibyte texts).
#pragma once

#include <cstddef>

namespace qv {

// Starts an append of `extra` bytes to the heap text `text`: *length receives the bytes
// before its terminator, and the block gets room for them, the extra bytes and a terminator,
// growing by half again at least. Returns the block, moved or not, or null when realloc
// failed (ALLOC_FAILURE raised as by QV_REALLOC from module and line; the old block is
// untouched). Every call counts as an allocation for the failure test hook
// (TestFailAllocation_L), whether the block grows or not. The caller writes its bytes and
// the terminator.
char *prepare_append(char *text, std::size_t extra, std::size_t *length, const char *module,
                     int line);

} // namespace qv
