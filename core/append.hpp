// append.hpp - appending to heap texts in amortised time (module "alloc", alloc.cpp).
//
// The texts the library appends to (the formatter's *out, the text of a counted string that
// Astrcat_SL grows) carry no length, and C's way with them (strlen, then realloc to the
// exact new size) makes n appends cost n^2. Two things take that away:
//   - Growth asks the block how much room it has (malloc_usable_size) and, when that is not
//     enough, grows it by half again at least, so n appends reallocate O(log n) times.
//   - The library remembers where the last few texts it appended to end: address, length,
//     block size and their first and last 16 bytes. A text met again is measured from there
//     once it is seen unchanged (same address and block size, terminator in place, same
//     first and last bytes); any other text is measured with strlen.
// So a caller may append, read, overwrite bytes, or cut a text at its start or within its
// last 16 bytes between two appends; a text cut shorter elsewhere by a terminator written
// into it must be measured again: pass it through strdup, or format afresh.
//
// One-byte terminators only (UTF-8, single-byte and multibyte texts). Each thread remembers
// its own texts.
#pragma once

#include <cstddef>

namespace qv {

// Starts an append of `extra` bytes to the heap text `text`: *length receives the bytes
// before its terminator (remembered, or strlen), and the block gets room for them, the extra
// bytes and a terminator, growing by half again at least. Returns the block, moved or not,
// or null when realloc failed (ALLOC_FAILURE raised as by QV_REALLOC from module and line;
// the old block is untouched). Every call counts as an allocation for the failure test hook
// (TestFailAllocation_L), whether the block grows or not. The caller writes its bytes and the
// terminator, then calls finish_append; nothing else may append in between.
char *prepare_append(char *text, std::size_t extra, std::size_t *length, const char *module,
                     int line);

// Records where the text of the append under way now ends (its terminator written).
void finish_append(const char *text, std::size_t length);

// Forgets a text the library frees.
void forget_end(const char *text);

} // namespace qv
