// The date module's recogniser, installed into the data types at load: WhichDataType_L
// types date literals as DATE and keeps the recogniser's flag in the extra field.
#include <gtest/gtest.h>

#include "qv/date.h"
#include "qv/datatype.h"

namespace {

TEST(DateLiteralHook, LiteralTypesSeeDates) {
    const struct {
        const char *text;
        uint32_t type, flag;
    } cases[] = {
        {"2009-04-30", QV_TYPE_DATE, QV_DATE_LITERAL_DATE},
        {"2009-04-30 12:34", QV_TYPE_DATE, QV_DATE_LITERAL_DATE | QV_DATE_LITERAL_TIME},
        {"2009-04-30 12:34:56.5 +05:30", QV_TYPE_DATE,
         QV_DATE_LITERAL_DATE | QV_DATE_LITERAL_TIME | QV_DATE_LITERAL_FRACTION |
             QV_DATE_LITERAL_ZONE},
        {"2009-04-31", QV_TYPE_CHAR, 0}, // no such day: plain text
        {"'2009-04-30'", QV_TYPE_CHAR, 0},
        {"20090430", QV_TYPE_INTEGER, 0},
    };
    for (const auto &c : cases) {
        QV_DATATYPE_T d;
        WhichDataType_L(c.text, &d);
        EXPECT_EQ(d.type, c.type) << c.text;
        EXPECT_EQ(d.extra, c.flag) << c.text;
    }
}

} // namespace
