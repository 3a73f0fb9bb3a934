// catalogue.hpp - the compiled-in catalogue of message texts (rows in catalogue.inc), and the
// filling of a text's numbered slots with parameters.
#pragma once

#include <cstddef>
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
// The full text of message `number` with `parameters`: its catalogue text with the slots
// filled, or for an uncatalogued number "Message 0x<8 hex digits> has no text" and the
// parameters after ": ", separated by ", ".
std::string message_text(uint32_t number, const std::vector<PWParam> &parameters);
// The same with text parameters, written into `buffer` and terminated, cut short at its
// size. Allocates nothing; returns the length written.
std::size_t message_text(std::span<char> buffer, uint32_t number,
                         std::span<const std::string_view> parameters);

} // namespace qv
