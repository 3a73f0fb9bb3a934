// arguments.cpp - checking option values (see arguments.hpp).
#include "arguments.hpp"

#include <algorithm>

#include "types.hpp"

namespace qvtool {
namespace {

std::string_view trim(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

bool starts_name(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

std::string quoted(std::string_view text) {
    return std::string(1, '\'').append(text).append(1, '\'');
}

} // namespace

bool is_name(std::string_view text) {
    return !text.empty() && starts_name(text[0]) &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return starts_name(c) || (c >= '0' && c <= '9') || c == '.'; });
}

std::string parse_binding(std::string_view option, std::string_view text, Binding &binding) {
    const std::string where = std::string(option) + " " + quoted(text) + ": ";
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) return where + "expected NAME[:TYPE]=VALUE";
    std::string_view name = text.substr(0, equals);
    const std::size_t colon = name.find(':');
    const std::string_view declaration =
        colon == std::string_view::npos ? std::string_view() : name.substr(colon + 1);
    name = trim(name.substr(0, colon));
    if (option == "--var" && !name.empty() && name[0] == '$') name.remove_prefix(1);
    if (!is_name(name)) return where + quoted(name) + " is not a name";
    binding.name = std::string(name);
    binding.value = std::string(text.substr(equals + 1));
    binding.typed = colon != std::string_view::npos;
    if (!binding.typed) {
        binding.type = infer_type(binding.value);
        return "";
    }
    const std::string error = parse_type(declaration, binding.type);
    return error.empty() ? "" : where + error;
}

std::string parse_derivation(std::string_view text, Derivation &derivation) {
    const std::size_t assign = text.find(":=");
    const std::string_view name = trim(text.substr(0, assign));
    if (assign == std::string_view::npos || trim(text.substr(assign + 2)).empty())
        return "-e " + quoted(text) + ": expected NAME := EXPRESSION";
    if (!is_name(name)) return "-e " + quoted(text) + ": " + quoted(name) + " is not a name";
    derivation = {std::string(name), std::string(trim(text.substr(assign + 2)))};
    return "";
}

std::string parse_delimiter(std::string_view text, char &delimiter) {
    if (text == "\\t" || text == "tab") text = "\t";
    if (text.size() != 1) return "--delimiter " + quoted(text) + ": the delimiter is one byte";
    if (text[0] == '"' || text[0] == '\r' || text[0] == '\n')
        return "--delimiter: a quote, CR or LF cannot be the delimiter";
    delimiter = text[0];
    return "";
}

} // namespace qvtool
