#include "core/number.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <vector>

namespace zb {
namespace {

TEST(ScanDouble, StopsAtAZeroByteAndAtTheLength) {
    EXPECT_EQ(ScanDouble("12\0003", 4), 12.0);
    EXPECT_EQ(ScanDouble("12345", 2), 12.0);
    EXPECT_EQ(ScanDouble("12345", 0), 0.0);
    EXPECT_EQ(ScanDouble("  ", 2), 0.0);
}

TEST(PrintDouble, PutsTheSignBeforeTheZerosAndFillsInfinityWithBlanks) {
    char text[40];
    EXPECT_EQ(PrintDouble(text, sizeof text, -1.5, 8, 2, true), 8u);
    EXPECT_STREQ(text, "-0001.50");
    PrintDouble(text, sizeof text, -std::numeric_limits<double>::infinity(), 8, 2, true);
    EXPECT_STREQ(text, "    -inf");
}

TEST(PrintDouble, CutsAtTheBufferAndTellsTheFullLength) {
    for (size_t size = 0; size <= 14; size++)
        for (bool zeroFill : {false, true}) {
            std::vector<char> text(size, '#'), expected(size, '#');
            int full = snprintf(expected.data(), size, zeroFill ? "%012.3f" : "%12.3f", -1234.5678);
            EXPECT_EQ(PrintDouble(text.data(), size, -1234.5678, 12, 3, zeroFill), static_cast<size_t>(full));
            EXPECT_EQ(text, expected);
        }
    std::vector<char> text(5, '#');
    EXPECT_EQ(PrintDouble(text.data(), text.size(), 1.0, 3, 1200), 1202u);
    EXPECT_STREQ(text.data(), "1.00");
}

TEST(PrintUnsigned, RightJustifies) {
    for (unsigned long value : {0ul, 1ul, 42ul, 2147483648ul, 4294967295ul})
        for (int width : {0, 1, 6, 10}) {
            char text[11], expected[11];
            snprintf(expected, sizeof expected, "%*lu", width, value);
            PrintUnsigned(text, value, width);
            EXPECT_STREQ(text, expected);
        }
}

}  // namespace
}  // namespace zb
