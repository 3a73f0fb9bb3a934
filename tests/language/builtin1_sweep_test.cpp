// The sweep: every function of this half called, described and evaluated, with each
// argument position given each type's extreme values and NULL while the other positions
// hold ordinary values. Every call must give a value or NULL (run under the address
// sanitizer: no crash, no leak, no read out of bounds), and no call may hang.
#include <cfloat>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "builtin1_adapter.hpp"

namespace {

using qvtest::builtin1::Owned;
using Sweep = qvtest::LanguageTest;

using Maker = std::function<void(QV_VALUE_T *)>;

void number_text(QV_VALUE_T *v, const char *digits, int32_t precision, int32_t scale) {
    SetValueTypePrecScale_L(v, QV_TYPE_NUMBER, precision, scale);
    StringToBestNumberType_L(digits, v, 0, nullptr);
}
void integers(QV_VALUE_T *v, int64_t count) {
    ModifyArray_L(v, 0);
    qvtest::Value item;
    for (int64_t i = 0; i < count; ++i) {
        SetIntegerValue_L(item.get(), (i * 7919) % 1000);
        AppendArrayValue_L(v, item.get());
    }
}

struct Extreme {
    const char *what;
    Maker make;
};

std::vector<Extreme> extremes() {
    static const std::string megabyte(1 << 20, 'a');
    static const std::string nines(77, '9');
    static const std::string fraction = "0." + std::string(77, '9');
    return {
        {"NULL", [](QV_VALUE_T *v) { FreeValue_L(v); }},
        {"NULL CHAR", [](QV_VALUE_T *v) { FreeValue_L(SetValueType_L(v, QV_TYPE_CHAR)); }},
        {"NULL ARRAY", [](QV_VALUE_T *v) { FreeValue_L(SetValueType_L(v, QV_TYPE_ARRAY)); }},
        {"empty text", [](QV_VALUE_T *v) { SetTextValue_L(v, "", nullptr); }},
        {"1 MB text", [](QV_VALUE_T *v) { SetTextValue_L(v, megabyte.c_str(), nullptr); }},
        {"invalid UTF-8", [](QV_VALUE_T *v) { SetTextValue_L(v, "\xff\xfe\xc3(\x80", nullptr); }},
        {"Latin-1 text", [](QV_VALUE_T *v) { SetTextValue_L(v, "\xe9t\xe9", Latin1Encoding_L()); }},
        {"UTF-16 text",
         [](QV_VALUE_T *v) {
             const char16_t text[] = u"\xfeff-12x";
             SetTextValue_L(v, reinterpret_cast<const char *>(text), UTF16Encoding_L());
         }},
        {"CLOB",
         [](QV_VALUE_T *v) {
             SetTextValue_L(v, "clob text", nullptr);
             v->descriptor.type = QV_TYPE_CLOB;
         }},
        {"INTEGER min", [](QV_VALUE_T *v) { SetIntegerValue_L(v, INT64_MIN); }},
        {"INTEGER max", [](QV_VALUE_T *v) { SetIntegerValue_L(v, INT64_MAX); }},
        {"INTEGER -1", [](QV_VALUE_T *v) { SetIntegerValue_L(v, -1); }},
        {"INTEGER 0", [](QV_VALUE_T *v) { SetIntegerValue_L(v, 0); }},
        {"FLOAT NaN", [](QV_VALUE_T *v) { SetFloatValue_L(v, std::nan("")); }},
        {"FLOAT inf", [](QV_VALUE_T *v) { SetFloatValue_L(v, INFINITY); }},
        {"FLOAT -inf", [](QV_VALUE_T *v) { SetFloatValue_L(v, -INFINITY); }},
        {"FLOAT -0.0", [](QV_VALUE_T *v) { SetFloatValue_L(v, -0.0); }},
        {"FLOAT max", [](QV_VALUE_T *v) { SetFloatValue_L(v, DBL_MAX); }},
        {"FLOAT tiny", [](QV_VALUE_T *v) { SetFloatValue_L(v, 4.9e-324); }},
        {"NUMBER(77) near 10^77", [](QV_VALUE_T *v) { number_text(v, nines.c_str(), 77, 0); }},
        {"NUMBER(77,77)", [](QV_VALUE_T *v) { number_text(v, fraction.c_str(), 77, 77); }},
        {"NUMBER -10^76",
         [](QV_VALUE_T *v) { number_text(v, ("-1" + std::string(76, '0')).c_str(), 77, 0); }},
        {"BOOLEAN", [](QV_VALUE_T *v) { SetBooleanValue_L(v, 1); }},
        {"DATE",
         [](QV_VALUE_T *v) {
             QV_DATE_T date{2009, 4, 30, 12, 34, 56, 0, 0};
             SetDateValue_L(v, QV_TYPE_DATE, &date);
         }},
        {"BINARY", [](QV_VALUE_T *v) { SetBinaryValue_L(v, "\x00\xff", 2); }},
        {"array of 0", [](QV_VALUE_T *v) { integers(v, 0); }},
        {"array of 10,000", [](QV_VALUE_T *v) { integers(v, 10000); }},
        {"nested array",
         [](QV_VALUE_T *v) {
             integers(v, 3);
             qvtest::Value inner;
             integers(inner.get(), 2);
             AppendArrayValue_L(v, inner.get());
         }},
        {"untyped", [](QV_VALUE_T *v) { FreeValue_L(v), v->descriptor.type = 0, v->is_null = 0; }},
    };
}

// An ordinary value for a position of the mask.
void ordinary(QV_VALUE_T *v, uint32_t mask) {
    if (mask == QV_TYPE_ARRAY) return integers(v, 3);
    if (mask == QV_TYPE_BOOLEAN) return (void)SetBooleanValue_L(v, 1);
    if ((mask & QV_TYPE_CHAR) == 0) return (void)SetIntegerValue_L(v, 2);
    SetTextValue_L(v, "abc", nullptr);
}

// Calls the row with `count` arguments made by `make`, described then evaluated.
void call(const ExpFunction &row, uint32_t count,
          const std::function<void(uint32_t, QV_VALUE_T *)> &make, const std::string &what) {
    std::vector<Owned> arguments(count);
    std::vector<QV_VALUE_T *> pointers;
    for (uint32_t i = 0; i < count; ++i) {
        make(i, &arguments[i].value);
        pointers.push_back(&arguments[i].value);
    }
    Owned result;
    EXP_CALL_FRAME_T frame{
        &row, static_cast<int32_t>(count), pointers.data(), QV_MODE_DESCRIBE, nullptr, nullptr};
    ASSERT_EQ(CallFunction_L(&result.value, &frame), 0) << what;
    frame.mode = QV_MODE_EVALUATE;
    const char *raised = qvtest::raised_by([&] { CallFunction_L(&result.value, &frame); });
    EXPECT_EQ(raised, nullptr) << what;
    const QV_VALUE_T &v = result.value;
    EXPECT_TRUE(v.is_null || v.descriptor.type != 0) << what;
    if (!v.is_null) std::free(ValueToChar_L(&v)); // its text form can be made
}

TEST_F(Sweep, EveryPositionTakesEveryExtremeValue) {
    const std::vector<Extreme> values = extremes();
    int calls = 0;
    for (const ExpFunction *row = Get_BuiltInFns_L(); row->name != nullptr; ++row) {
        if (row->number == QV_FUNCTION_EXIT) continue; // it ends the run by design
        const uint32_t positions = row->repeat ? row->min_args + 1 : row->max_args;
        auto mask_of = [row](uint32_t i) { // the last listed mask repeats
            uint32_t mask = 0;
            for (uint32_t k = 0; k <= i && k < QV_MAX_ARGUMENTS; ++k)
                if (row->arg_types[k] != 0) mask = row->arg_types[k];
            return mask;
        };
        // The fewest arguments, all ordinary.
        call(
            *row, row->min_args, [&](uint32_t i, QV_VALUE_T *v) { ordinary(v, mask_of(i)); },
            std::string(row->name) + " with its fewest arguments");
        for (uint32_t position = 0; position < positions; ++position) {
            for (const Extreme &extreme : values) {
                call(
                    *row, positions,
                    [&](uint32_t i, QV_VALUE_T *v) {
                        if (i == position)
                            extreme.make(v);
                        else
                            ordinary(v, mask_of(i));
                    },
                    std::string(row->name) + " position " + std::to_string(position + 1) + ": " +
                        extreme.what);
                ++calls;
            }
        }
    }
    EXPECT_GT(calls, 3000);
}

} // namespace
