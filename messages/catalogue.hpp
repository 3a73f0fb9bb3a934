// catalogue.hpp - the compiled-in catalogue of message texts (rows in catalogue.inc).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "qv/msgclass.h"

namespace qv {

struct CatalogueEntry {
    uint32_t number;
    PWSeverity severity;
    const char *text;
};

// Every row, in ascending order of number.
std::span<const CatalogueEntry> catalogue();
// The row of `number`, or null when the catalogue has none.
const CatalogueEntry *find_catalogue_entry(uint32_t number);
// `text` with "%1", "%2" ... replaced by the parameters in order and "%%" by "%"; a slot
// with no parameter stays as written.
std::string fill_slots(std::string_view text, const std::vector<PWParam> &parameters);

} // namespace qv
