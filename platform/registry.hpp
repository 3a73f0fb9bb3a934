// registry.hpp - the registry-like store: a text file of keys and typed values that stands
// in for the system registry that Get_Registry_L reads (qv/qvvar.h).
//
// The file is named by the preference QV_REGISTRY_FILE, else it is
// <install root>/quillon/registry.txt. It is read afresh on every look-up. Format:
//
//     # a comment (also lines starting with ';'); blank lines are skipped
//     [HKEY_LOCAL_MACHINE\SOFTWARE\Quillon\Paths]
//     InstallDir = sz:/opt/quillon
//     "Log Dir"  = expand_sz:$HOME/logs
//     Retries    = dword:3
//     @          = sz:the key's default value
//
// A line "[root\part\part ...]" opens a key: the root is a root key's name (HKEY_CLASSES_ROOT,
// HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_CONFIG) or its short form
// (HKCR, HKCU, HKLM, HKU, HKCC); parts are separated by '\' or '/', and empty parts are
// dropped. The lines after it, up to the next key, are its values: "name = type:data", the
// name bare or in double quotes, "@" for the default value. The types sz and expand_sz are
// text, the data being the rest of the line (blanks around it dropped; a text wholly in
// double quotes loses them); any other type (dword, qword, binary, multi_sz ...) is a value
// that is not text. Key parts, root names and value names compare without case; a key may
// be opened more than once, and the first line naming a value wins. Lines that fit none of
// these forms are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/heap.hpp"

namespace qv {

enum class RegistryOutcome { missing, text, other };

struct RegistryValue {
    RegistryOutcome outcome = RegistryOutcome::missing;
    String text; // the data of a text value
};

// The bytes the system call reads a value into: a text must be shorter to be returned.
constexpr std::size_t registry_buffer_size = 4096;

// The name of one of the five root keys (0x80000000 ...), or null.
const char *registry_root_name(uintptr_t root_key);

// The value `name` ("" for the default value) of the key `root`\`key_path` in the store.
// Missing when there is no store file, no such key or no such value.
RegistryValue read_registry_value(std::string_view root, std::string_view key_path,
                                  std::string_view name);

} // namespace qv
