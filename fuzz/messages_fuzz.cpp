// messages_fuzz.cpp - message texts and log-file names from arbitrary parameters.
//
// A message of the catalogue gets fuzzed parameters (texts, signed and unsigned numbers);
// its text must be the catalogue's with each "%n" slot replaced by the n-th parameter
// once, whatever the parameters hold ("%1" in a parameter stays as it is). A log-file root
// name must be the kind's word, the name with every control character (C0, DEL, C1),
// invalid UTF-8 byte and character that paths or shells treat specially made '_', and the
// number in at least four digits.
//
// Input: a byte choosing the message, three parameters (a kind byte, then a text or eight
// bytes), a kind letter, a number and a name.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qv/encoding.h"
#include "qv/feedback.h"
#include "qv/message.h"

namespace {

struct Row {
    uint32_t number;
    const char *text; // as in the catalogue
};

constexpr Row rows[] = {
    {QV_MSG_EXCEPTION_RAISED, "%1 was raised in %2 at line %3."},
    {QV_MSG_C_FUNCTION_ERROR, "%1 failed with error %2: %3."},
    {QV_MSG_GLOSSARY_LINE_SKIPPED,
     "Line %2 of the glossary file '%1' was skipped: a number and a text were expected, not '%3'."},
};

std::string fill(std::string_view text, const std::vector<std::string> &parameters) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '3')
            out += parameters[static_cast<size_t>(text[++i] - '1')];
        else
            out += text[i];
    }
    return out;
}

void check_message(fuzz::Input &input) {
    const Row &row = rows[input.choose(std::size(rows))];
    PWMessage *message = NewMessage_L(row.number, MESSAGE_SEVERITY_ERROR);
    FUZZ_CHECK(message != nullptr, "NewMessage_L(%08x) gave null", row.number);
    std::vector<std::string> parameters;
    for (int i = 0; i < 3; ++i) {
        uint8_t kind = input.byte();
        if (kind % 3 == 0) {
            std::string text = input.text();
            text = text.substr(0, text.find('\0'));
            MessageAddText_L(message, text.c_str());
            parameters.push_back(text);
        } else {
            uint64_t bits = 0;
            for (int b = 0; b < 8; ++b) bits = bits << 8 | input.byte();
            if (kind % 3 == 1) {
                MessageAddSigned_L(message, static_cast<int64_t>(bits));
                parameters.push_back(std::to_string(static_cast<int64_t>(bits)));
            } else {
                MessageAddUnsigned_L(message, bits);
                parameters.push_back(std::to_string(bits));
            }
        }
    }
    const std::string expected = fill(row.text, parameters);
    const std::string got = StringMessage_L(message);
    FUZZ_CHECK(got == expected, "message %08x: \"%s\", model \"%s\"", row.number,
               fuzz::hex(got).c_str(), fuzz::hex(expected).c_str());
    FreeMessage_L(message);
}

std::string model_printable(const std::string &name) {
    std::string out;
    for (size_t at = 0; at < name.size();) {
        int32_t c = 0;
        int32_t n = DecodeUTF8_L(name.data() + at, static_cast<int32_t>(name.size() - at), &c);
        bool invalid = c == 0xFFFD && name.compare(at, 3, "\xEF\xBF\xBD") != 0;
        if (invalid) {
            out += '_';
            ++at;
            continue;
        }
        bool control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
        bool special = c < 0x80 && std::strchr("/\\:*?\"<>|", c) != nullptr;
        out += control || special ? std::string("_") : name.substr(at, static_cast<size_t>(n));
        at += static_cast<size_t>(n);
    }
    return out;
}

void check_log_name(fuzz::Input &input) {
    static constexpr char kinds[] = "BSJX";
    const char kind = kinds[input.choose(4)];
    const int32_t number = input.integer();
    std::string name = input.text();
    name = name.substr(0, name.find('\0'));
    const char *word = kind == 'B'   ? "Build"
                       : kind == 'S' ? "DimBuild"
                       : kind == 'J' ? "Job"
                                     : "Unknown";
    char digits[32];
    std::snprintf(digits, sizeof digits, "%04ld", static_cast<long>(number));
    const std::string expected = std::string(word) + "_" + model_printable(name) + "_" + digits;
    char *root = DefaultLogFileRoot_L(kind, name.c_str(), number, 0, nullptr);
    const std::string got = root != nullptr ? root : "<null>";
    std::free(root);
    FUZZ_CHECK(got == expected, "DefaultLogFileRoot_L(%c, %s, %d) = \"%s\", model \"%s\"", kind,
               fuzz::hex(name).c_str(), number, fuzz::hex(got).c_str(),
               fuzz::hex(expected).c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const char *raised = fuzz::protected_run([&] {
        check_message(input);
        check_log_name(input);
    });
    FUZZ_CHECK(raised == nullptr, "raised %s", raised);
    return 0;
}
