// paths.hpp - the installation root as found without reading qv.ini, for the code that
// locates qv.ini itself (reading the preference QV_INSTALL_ROOT from the file would need
// the file first).
#pragma once

#include <optional>

#include "core/heap.hpp"

namespace qv {

// <prefix> when the library file `file` lies in <prefix>/lib, lib64 or lib32, or a folder
// below one (the nearest wins; the prefix of /lib is empty); nothing otherwise.
std::optional<String> install_prefix_of(const String &file);
// <prefix>/share from the library's own location, else the configured data directory.
String install_root_from_location();
// The environment variable QV_INSTALL_ROOT when set, else install_root_from_location().
String install_root_from_environment();

} // namespace qv
