// format_hook.cpp - the conversion behind the formatter's %S, installed into core at load:
// a counted string's text in UTF-8. Texts the encoding service can use as UTF-8 directly
// are printed as they are; others are converted into a copy that the formatter frees.
#include "core/format.hpp"
#include "qv/encoding.h"
#include "qv/qvstring.h"

namespace {

bool counted_text(const QV_STRING_T &string, qv::PrintableText &printable) {
    if (string.text == nullptr || string.encoding == nullptr || string.encoding->utf8_direct) {
        printable.text = string.text;
        return true;
    }
    char *converted = nullptr;
    if (ConvertEncoding_L(string.encoding, string.text, -1, UTF8Encoding_L(), &converted,
                          nullptr) != 0 ||
        converted == nullptr)
        return false;
    printable.copy.reset(converted);
    printable.text = converted;
    return true;
}

[[maybe_unused]] const bool installed = (qv::install_counted_text_hook(counted_text), true);

} // namespace
