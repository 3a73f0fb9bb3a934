// values.hpp - what the value suites share: an owning value record, makers for one value of
// every type, and the text form of a value as a std::string.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "qv/dataval.h"
#include "qv/date.h"
#include "qv/precise.h"
#include "qv/qvstrlib.h"

namespace qvtest {

// A value record freed when it goes.
struct Value : QV_VALUE_T {
    Value() : QV_VALUE_T{} {}
    explicit Value(uint32_t type, int32_t precision = 0, int32_t scale = 0) : QV_VALUE_T{} {
        descriptor = {type, precision, scale, 0};
        is_null = 1;
    }
    Value(Value &&other) noexcept : QV_VALUE_T(other) { static_cast<QV_VALUE_T &>(other) = {}; }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    ~Value() { FreeValue_L(this); }
};

inline Value text(const char *t, const QV_ENCODING_T *encoding = nullptr) {
    Value v;
    SetTextValue_L(&v, t, encoding);
    return v;
}
inline Value integer(int64_t i) {
    Value v;
    SetIntegerValue_L(&v, i);
    return v;
}
inline Value real(double d) {
    Value v;
    SetFloatValue_L(&v, d);
    return v;
}
inline Value boolean(bool b) {
    Value v;
    SetBooleanValue_L(&v, b);
    return v;
}
// A NUMBER(p, s) read from text.
inline Value number(const char *t, int32_t p = 0, int32_t s = 0) {
    Value v;
    if (p > 0) NewPrecise_L(&v, p, s);
    EXPECT_EQ(StringToPrecise_L(&v, t), 0) << t;
    return v;
}
inline Value bytes(std::vector<uint8_t> b) {
    Value v;
    SetBinaryValue_L(&v, b.data(), static_cast<uint32_t>(b.size()));
    return v;
}
inline QV_DATE_T date_of(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int f = 0,
                         int zone = 0) {
    QV_DATE_T date{};
    date.year = static_cast<int16_t>(y);
    date.month = static_cast<uint8_t>(mo);
    date.day = static_cast<uint8_t>(d);
    date.hour = static_cast<uint8_t>(h);
    date.minute = static_cast<uint8_t>(mi);
    date.second = static_cast<uint8_t>(s);
    date.fraction = f;
    date.zone = static_cast<int16_t>(zone);
    return date;
}
inline Value date(uint32_t type, QV_DATE_T d) {
    Value v;
    SetDateValue_L(&v, type, &d);
    return v;
}
inline Value interval(bool negative, uint32_t days, uint32_t h, uint32_t m, uint32_t s,
                      uint32_t f = 0) {
    Value v(QV_TYPE_INTERVAL_DS);
    v.is_null = 0;
    v.payload.interval_ds = {static_cast<uint8_t>(negative), days, h, m, s, f};
    return v;
}
inline Value interval_ym(bool negative, uint32_t years, uint32_t months) {
    Value v(QV_TYPE_INTERVAL_YM);
    v.is_null = 0;
    v.payload.interval_ym = {static_cast<uint8_t>(negative), years, months};
    return v;
}
// A CHAR or BINARY turned into a CLOB or BLOB by a copying conversion.
inline Value as_type(const QV_VALUE_T &source, uint32_t type, int32_t precision = 0) {
    Value v(type, precision);
    ConvertValue_L(&v, &source, 0, 0);
    return v;
}
inline Value array(std::vector<Value> elements) {
    Value v;
    ModifyArray_L(&v, 0);
    for (Value &e : elements) EXPECT_EQ(AppendArrayValue_L(&v, &e), 0);
    return v;
}

// The text form of a value, "NULL" for a NULL one.
inline std::string shown(const QV_VALUE_T &value) {
    char *t = ValueToChar_L(&value);
    std::string s = t != nullptr ? t : "NULL";
    std::free(t);
    return s;
}

} // namespace qvtest
