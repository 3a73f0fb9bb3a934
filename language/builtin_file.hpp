// builtin_file.hpp - what the file and path built-ins share (module "builtin";
// builtin_file.cpp, builtin_file_path.cpp): file names as scripts write them, translated to
// the paths the system opens.
//
// Translation: "${NAME}" and "%NAME%" become the preference NAME (GetPreference_L: the
// environment, then qv.ini) when it is set, and stay as written when it is not; a leading
// "~/" becomes the home directory ($HOME); every '\' becomes '/'.
#pragma once

#include <string_view>

#include "core/heap.hpp"
#include "language/builtin_shared.hpp"

namespace qv::builtin {

String translate_filename(std::string_view name);

// `path` made absolute (against the working directory) and normal: no "." parts, ".."
// taking away the part before it (never the root), no doubled or trailing '/'.
String full_path(std::string_view path);

// The text form of a present argument as UTF-8; false when absent or without one.
bool utf8_of(const QV_VALUE_T *value, values::TextForm &text);
// The file name argument translated; false when it is absent or has no text form.
bool read_filename(const QV_VALUE_T *value, String &path);

// Logs `number` at severity warning with the texts as its parameters.
void warn(uint32_t number, std::initializer_list<std::string_view> parameters);

} // namespace qv::builtin
