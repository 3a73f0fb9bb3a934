// builtin_shared.cpp - the rules every built-in handler keeps (module "builtin"): the
// result computed aside when it is also an argument, types taken from a model, arguments
// read as text, text results stored, and decimal places on doubles. See builtin_shared.hpp.
#define QV_MODULE "builtin"

#include "language/builtin_shared.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "qv/encoding.h"

namespace qv::builtin {

namespace {

// Wide enough to stand for an empty text in every encoding (terminators of 1, 2 or 4 bytes).
char empty_text[4] = {0, 0, 0, 0};

bool is_empty_text(const char *text, const QV_ENCODING_T *encoding) {
    const std::size_t width = values::terminator_width(encoding);
    for (std::size_t i = 0; i < width; ++i)
        if (text[i] != 0) return false;
    return true;
}

} // namespace

void run_aside(QV_VALUE_T *result, FunctionRef<void(QV_VALUE_T *aside)> body) {
    values::HeldValue aside;
    body(&*aside);
    QV_VALUE_T computed = aside.take();
    FreeValue_L(result);
    result->descriptor = computed.descriptor;
    result->payload = computed.payload;
    result->is_null = computed.is_null;
    result->owns_payload = computed.owns_payload;
}

Arguments arguments_of(const EXP_CALL_FRAME_T *frame) {
    if (frame == nullptr || frame->arguments == nullptr || frame->argument_count <= 0) return {};
    return {frame->arguments, frame->argument_count};
}

bool begin_like(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame, const QV_VALUE_T *model) {
    if (model == nullptr) return begin(result, frame, 0);
    const QV_DATATYPE_T &d = model->descriptor;
    return begin(result, frame, d.type, d.precision, d.scale);
}

bool optional_truth(const QV_VALUE_T *value, bool fallback) {
    uint8_t truth = 0;
    if (!present(value) || ValueToBoolean_L(value, &truth) != QV_VALUE_OK) return fallback;
    return truth != 0;
}

bool TextArgument::read(const QV_VALUE_T *value, bool text_only) {
    if (!present(value)) return false;
    const uint32_t type = value->descriptor.type;
    const bool text = type == QV_TYPE_CHAR || type == QV_TYPE_CLOB;
    if (text && !values::in_file(*value)) {
        string_ = value->payload.string;
        if (string_.text == nullptr) string_.text = empty_text;
        // ASCII text is UTF-8 as it stands; read as UTF-8, what is made of it may hold any
        // character (Replace('abc', 'b', '→') is 'a→c', not a substitute).
        if (string_.encoding == ASCIIEncoding_L()) string_.encoding = UTF8Encoding_L();
        return true;
    }
    if (text_only && !text) return false;
    if (!form_.make(*value)) return false;
    string_.text = const_cast<char *>(form_.data());
    string_.encoding = form_.encoding();
    return true;
}

void store_text(QV_VALUE_T *result, QV_STRING_T text) {
    if (text.text == nullptr || is_empty_text(text.text, text.encoding)) {
        FreeString_SL(&text);
        set_null(result);
        return;
    }
    values::release_payload(*result);
    result->payload.string = text;
    result->owns_payload = 1;
    result->is_null = 0;
}

void store_text_copy(QV_VALUE_T *result, std::string_view text, const QV_ENCODING_T *encoding) {
    if (text.empty() || !values::copy_text_into(*result, text, encoding)) return set_null(result);
    null_if_empty(result);
}

void store_joined(QV_VALUE_T *result, std::span<const std::string_view> pieces) {
    std::size_t size = 0;
    for (std::string_view piece : pieces) size += piece.size();
    if (size == 0 || size > kMaxResultBytes || !values::join_text_into(*result, pieces, nullptr))
        return set_null(result);
    null_if_empty(result);
}

void null_if_empty(QV_VALUE_T *result) {
    const QV_STRING_T &string = result->payload.string;
    if (string.text == nullptr || is_empty_text(string.text, string.encoding)) set_null(result);
}

bool TextJoiner::grow(std::size_t needed) {
    std::size_t capacity = capacity_ * 2 > needed ? capacity_ * 2 : needed;
    HeapText block(static_cast<char *>(QV_MALLOC(capacity)));
    if (block == nullptr) return false;
    std::memcpy(block.get(), data_, size_);
    heap_ = std::move(block);
    data_ = heap_.get();
    capacity_ = capacity;
    return true;
}

bool TextJoiner::append(std::string_view piece) {
    if (spent_) return false;
    const std::size_t needed = size_ + piece.size();
    if (needed > kMaxResultBytes || (needed > capacity_ && !grow(needed))) {
        spent_ = true;
        return false;
    }
    if (!piece.empty()) std::memcpy(data_ + size_, piece.data(), piece.size());
    size_ = needed;
    return true;
}

void TextJoiner::store(QV_VALUE_T *result) const {
    if (spent_) return set_null(result);
    store_text_copy(result, view(), nullptr);
}

// ---- Decimal places on doubles ------------------------------------------------------------

double round_double(double x, int64_t places, bool cut) {
    constexpr int kDigits = 15;
    if (!std::isfinite(x) || x == 0) return x;
    places = std::clamp<int64_t>(places, -400, 400); // beyond every double's digits
    // "-d.dddddddddddddde-308": the sign, 15 digits and the decimal exponent.
    char printed[40];
    std::snprintf(printed, sizeof printed, "%.*e", kDigits - 1, x);
    const bool negative = printed[0] == '-';
    const char *p = printed + (negative ? 1 : 0);
    char digits[kDigits];
    digits[0] = p[0];
    std::memcpy(digits + 1, p + 2, kDigits - 1);
    const long exponent = std::strtol(p + kDigits + 2, nullptr, 10);
    // Digit i weighs 10^(exponent - i); the kept ones weigh at least 10^-places.
    const int64_t keep = exponent + places + 1;
    if (keep >= kDigits) return x;
    if (keep < 0) return 0.0;
    int64_t mantissa = 0;
    for (int64_t i = 0; i < keep; ++i) mantissa = mantissa * 10 + (digits[i] - '0');
    if (!cut && digits[keep] >= '5') ++mantissa;
    if (mantissa == 0) return 0.0;
    char rebuilt[48];
    std::snprintf(rebuilt, sizeof rebuilt, "%s%llde%lld", negative ? "-" : "",
                  static_cast<long long>(mantissa), static_cast<long long>(-places));
    return std::strtod(rebuilt, nullptr);
}

} // namespace qv::builtin
