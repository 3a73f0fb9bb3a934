// registry.cpp - the registry-like store file (format in registry.hpp).
//
// A look-up reads the file line by line: a key line decides whether the lines after it
// belong to the key sought (its parts compared one by one without case), and the first value
// line of a matching key that names the value sought ends the search.
#include "platform/registry.hpp"

#include <strings.h>

#include <array>
#include <cstdio>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "platform/files.hpp"
#include "qv/encoding.h"
#include "qv/platform.h"

namespace {

constexpr std::string_view blanks = " \t\r";

struct RootKey {
    uintptr_t handle;
    const char *name;
    const char *short_name;
};

constexpr std::array<RootKey, 5> root_keys{{
    {0x80000000u, "HKEY_CLASSES_ROOT", "HKCR"},
    {0x80000001u, "HKEY_CURRENT_USER", "HKCU"},
    {0x80000002u, "HKEY_LOCAL_MACHINE", "HKLM"},
    {0x80000003u, "HKEY_USERS", "HKU"},
    {0x80000005u, "HKEY_CURRENT_CONFIG", "HKCC"},
}};

std::string_view trim(std::string_view text) {
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view unquoted(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        return text.substr(1, text.size() - 2);
    return text;
}

// Case-insensitive equality of two UTF-8 texts of known length.
bool same(std::string_view a, std::string_view b) {
    qv::String left(a), right(b);
    return StricmpUTF8_L(left.c_str(), right.c_str()) == 0;
}

// Takes the next non-empty part of a key path ('\' or '/' between parts) off `path`.
std::string_view next_part(std::string_view &path) {
    std::size_t start = path.find_first_not_of("\\/");
    if (start == std::string_view::npos) {
        path = {};
        return {};
    }
    path.remove_prefix(start);
    std::size_t end = path.find_first_of("\\/");
    std::string_view part = path.substr(0, end);
    path.remove_prefix(end == std::string_view::npos ? path.size() : end);
    return part;
}

bool same_root(std::string_view written, std::string_view root) {
    for (const RootKey &key : root_keys)
        if (same(root, key.name)) return same(written, key.name) || same(written, key.short_name);
    return false;
}

// Whether the key line's path "root\parts" names the key sought.
bool same_key(std::string_view written, std::string_view root, std::string_view path) {
    if (!same_root(next_part(written), root)) return false;
    for (;;) {
        std::string_view a = next_part(written), b = next_part(path);
        if (a.empty() || b.empty()) return a.empty() && b.empty();
        if (!same(a, b)) return false;
    }
}

// Reads a value line "name = type:data" naming `name` ("" for "@") into `found`.
bool value_line(std::string_view line, std::string_view name, qv::RegistryValue &found) {
    std::size_t equals = line.find('=');
    if (line.front() == '"') equals = line.find('=', line.find('"', 1));
    if (equals == std::string_view::npos) return false;
    std::string_view written = trim(line.substr(0, equals));
    if (written == "@" ? !name.empty() : !same(unquoted(written), name)) return false;
    std::string_view rest = trim(line.substr(equals + 1));
    std::size_t colon = rest.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view type = trim(rest.substr(0, colon));
    if (same(type, "sz") || same(type, "expand_sz")) {
        found.outcome = qv::RegistryOutcome::text;
        found.text = unquoted(trim(rest.substr(colon + 1)));
    } else {
        found.outcome = qv::RegistryOutcome::other;
    }
    return true;
}

qv::String store_path() {
    qv::HeapText preference(GetPreference_L("QV_REGISTRY_FILE"));
    if (preference != nullptr) return preference.get();
    qv::HeapText root(GetInstallRoot_L());
    if (root == nullptr) return {};
    qv::String path(root.get());
    path += "/quillon/registry.txt";
    return path;
}

} // namespace

const char *qv::registry_root_name(uintptr_t root_key) {
    for (const RootKey &key : root_keys)
        if (key.handle == root_key) return key.name;
    return nullptr;
}

qv::RegistryValue qv::read_registry_value(std::string_view root, std::string_view key_path,
                                          std::string_view name) {
    RegistryValue found;
    qv::String path = store_path();
    if (path.empty()) return found;
    qv::File file(fopen8_L(path.c_str(), "rb"));
    if (!file) return found;
    qv::HeapText buffer;
    bool in_key = false;
    while (qv::read_line(buffer, file.get()) != nullptr) {
        std::string_view line = trim(buffer.get());
        if (line.empty() || line.front() == '#' || line.front() == ';') continue;
        if (line.front() == '[' && line.back() == ']')
            in_key = same_key(line.substr(1, line.size() - 2), root, key_path);
        else if (in_key && value_line(line, name, found))
            return found;
    }
    return found;
}
