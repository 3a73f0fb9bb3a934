// catalogue.hpp - the compiled-in catalogue of message texts (rows in catalogue.inc).
#pragma once

#include <cstdint>
#include <span>

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

} // namespace qv
