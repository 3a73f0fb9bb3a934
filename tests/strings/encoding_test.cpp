// encoding_test.cpp - the encoding service against ICU.
#include <gtest/gtest.h>

#include "qv/encoding.h"

TEST(EncodingLookup, KnowsUtf8) { EXPECT_EQ(LookupEncoding_L("utf8"), UTF8Encoding_L()); }
