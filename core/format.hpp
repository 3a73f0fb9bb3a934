// format.hpp - what the formatter (format.cpp, module "alloc") needs from the floor above
// it: the UTF-8 text of a counted string for %S. The counted strings live in strings/,
// which installs the conversion at load (strings/format_hook.cpp); core sees the record
// only as an incomplete type.
#pragma once

#include "core/heap.hpp"

struct QV_STRING_T;

namespace qv {

// One %S argument as it is printed: `text` in UTF-8 (null prints "<NULL>"), held by `copy`
// when a converted copy had to be made.
struct PrintableText {
    const char *text = nullptr;
    HeapText copy;
};

// Fills `printable` for `string`; false when the conversion failed (its raise returned), and
// the formatter then abandons the call. Must not call the formatter.
using CountedTextHook = bool (*)(const QV_STRING_T &string, PrintableText &printable);

// Installs the conversion; null restores the default, which prints nothing for a counted
// string.
void install_counted_text_hook(CountedTextHook hook);

} // namespace qv
