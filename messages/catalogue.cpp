// catalogue.cpp - the table of message texts, compiled into the library so that messages
// have their words even where no message files are installed. The rows live in
// catalogue.inc (one file to edit when a message is added); lookup is a binary search.
//
// A message's text is made by one walk over its catalogue text (write_message), which hands
// its pieces to a sink: a growing string for PWMessage::Text, or a fixed buffer for the texts
// that must be made without allocating (the fatal reports, Exc_Message_L).
#define QV_MODULE "msgclass"
#include "messages/catalogue.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
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

// Reads the decimal digits from text[at] on into `slot` (saturating, so a huge slot
// number is simply one with no parameter) and returns the position after them.
std::size_t read_slot(std::string_view text, std::size_t at, std::size_t &slot) {
    slot = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
        slot = std::min<std::size_t>(slot * 10 + static_cast<std::size_t>(text[at] - '0'), 100000);
        ++at;
    }
    return at;
}

// Hands `text` to `put` piece by piece with its slots filled by put_parameter(i) for
// parameter i (0-based) of `count`.
template <class Put, class PutParameter>
void walk_slots(std::string_view text, std::size_t count, Put &&put, PutParameter &&put_parameter) {
    std::size_t plain = 0; // start of the text not yet handed over
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] != '%' || i + 1 == text.size()) {
            ++i;
            continue;
        }
        put(text.substr(plain, i - plain));
        if (text[i + 1] == '%') {
            put("%");
            plain = i += 2;
            continue;
        }
        std::size_t slot = 0;
        std::size_t end = read_slot(text, i + 1, slot);
        if (slot >= 1 && slot <= count) {
            put_parameter(slot - 1);
            plain = end;
        } else {
            plain = i; // no such parameter: the slot stays as written
        }
        i = end == i + 1 ? i + 1 : end;
    }
    put(text.substr(plain));
}

template <class Put, class PutParameter>
void write_message(uint32_t number, std::size_t count, Put &&put, PutParameter &&put_parameter) {
    if (const CatalogueEntry *entry = find_catalogue_entry(number)) {
        walk_slots(entry->text, count, put, put_parameter);
        return;
    }
    char head[48];
    std::snprintf(head, sizeof head, "Message 0x%08" PRIX32 " has no text", number);
    put(head);
    for (std::size_t i = 0; i < count; ++i) {
        put(i == 0 ? ": " : ", ");
        put_parameter(i);
    }
}

// A terminated text in a fixed buffer; what does not fit is dropped.
class FixedText {
  public:
    explicit FixedText(std::span<char> buffer) : buffer_(buffer) {
        if (!buffer_.empty()) buffer_[0] = '\0';
    }
    void operator()(std::string_view piece) {
        if (buffer_.empty()) return;
        const std::size_t room = buffer_.size() - 1 - length_;
        const std::size_t count = std::min(room, piece.size());
        std::memcpy(buffer_.data() + length_, piece.data(), count);
        length_ += count;
        buffer_[length_] = '\0';
    }
    std::size_t length() const { return length_; }

  private:
    std::span<char> buffer_;
    std::size_t length_ = 0;
};

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

std::string fill_slots(std::string_view text, const std::vector<PWParam> &parameters) {
    std::string out;
    out.reserve(text.size());
    walk_slots(
        text, parameters.size(), [&](std::string_view piece) { out += piece; },
        [&](std::size_t i) { out += parameters[i].Text(); });
    return out;
}

std::string message_text(uint32_t number, const std::vector<PWParam> &parameters) {
    std::string out;
    write_message(
        number, parameters.size(), [&](std::string_view piece) { out += piece; },
        [&](std::size_t i) { out += parameters[i].Text(); });
    return out;
}

std::size_t message_text(std::span<char> buffer, uint32_t number,
                         std::span<const std::string_view> parameters) {
    FixedText out(buffer);
    write_message(number, parameters.size(), out, [&](std::size_t i) { out(parameters[i]); });
    return out.length();
}

} // namespace qv
