// builtin.hpp - what the registry offers the rest of the expression language inside the
// library: the freeing of parsed scripts, and the open-file table of the current function
// struct that the file functions use.
#pragma once

#include <cstdint>
#include <cstdio>

#include "qv/builtin.h"

namespace qv {

// Scripts (struct EXPRESSION_T) belong to the script layer, which frees them; it installs
// its Free_Script_L here when the library loads. Until then a script is left alone, as
// nothing can have made one. free_script ignores null.
using ScriptFreer = void (*)(EXPRESSION_T *script);
void install_script_freer(ScriptFreer freer);
void free_script(EXPRESSION_T *script);

// The open-file table of the current function struct. A file number is the 1-based index of
// a slot; a closed file leaves its slot null, and the lowest null slot is taken again before
// the table grows (by one slot). add_open_file stores `file` and returns its number, or 0
// after an allocation failure (the file is then not stored). open_file gives the stream of
// a number, or null for a number that names no open file; close_open_file closes it and
// empties its slot, false for such a number.
int32_t add_open_file(std::FILE *file);
std::FILE *open_file(int32_t number);
bool close_open_file(int32_t number);

// True for a row of the library's constant tables (built-in and dummy).
bool is_constant_row(const ExpFunction *record);

} // namespace qv
