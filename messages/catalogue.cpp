// catalogue.cpp - the table of message texts, compiled into the library so that messages
// have their words even where no message files are installed. The rows live in
// catalogue.inc (one file to edit when a message is added); lookup is a binary search.
#define QV_MODULE "msgclass"
#include "messages/catalogue.hpp"

#include <algorithm>
#include <iterator>

namespace qv {
namespace {

constexpr CatalogueEntry entries[] = {
#include "messages/catalogue.inc"
};

constexpr bool strictly_ascending() {
    for (std::size_t i = 1; i < std::size(entries); ++i)
        if (entries[i - 1].number >= entries[i].number) return false;
    return true;
}
static_assert(strictly_ascending(), "catalogue rows must be in ascending order, no repeats");

} // namespace

std::span<const CatalogueEntry> catalogue() {
    return entries;
}

const CatalogueEntry *find_catalogue_entry(uint32_t number) {
    const auto *found = std::lower_bound(
        std::begin(entries), std::end(entries), number,
        [](const CatalogueEntry &entry, uint32_t wanted) { return entry.number < wanted; });
    return found != std::end(entries) && found->number == number ? found : nullptr;
}

} // namespace qv
