// Fields against the C library, over random values and texts.
#include <cmath>
#include <random>

#include "core/library.h"
#include "data/data.h"
#include "support/support.h"

namespace test {
namespace {

using zb::DfieldGet;
using zb::DfieldPut;

// One field in a record of its own, without a file.
struct FieldConversion : LibraryTest {
    zb::Field field{};
    zb::DataFile file{};
    uint8_t record[1 + 255 + zb::BlockSlack] = {};
    std::mt19937_64 random{20240229};

    FieldConversion() {
        file.fields.data = &field;
        file.fieldCount = 1;
        file.record.data = record;
        field.offset = 1;
    }
    int Below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

    // The largest number of so many digits and decimals.
    void SetNumber(int width, int decimals) {
        field.type = 'N';
        field.width = static_cast<uint16_t>(width);
        field.decimals = static_cast<uint8_t>(decimals);
        std::string nines(static_cast<size_t>(width), '9');
        if (decimals > 0) nines[static_cast<size_t>(width - decimals - 1)] = '.';
        field.maxValue = strtod(nines.c_str(), nullptr);
    }
    Bytes Text() { return {reinterpret_cast<char*>(record + 1), field.width}; }
};

TEST_F(FieldConversion, NumbersArePutAsTheCLibraryPrintsThem) {
    int stored = 0, rounded = 0, refused = 0;
    for (int i = 0; i < 30000; i++) {
        int width = 1 + Below(20);
        int decimals = width > 2 ? Below(width - 1) : 0;
        SetNumber(width, decimals);
        double value;
        switch (Below(4)) {
            case 0: value = static_cast<double>(Below(2000000) - 1000000) / 100; break;
            case 1: value = Below(200) - 100; break;
            case 2: value = std::ldexp(static_cast<double>(random()) / 3, Below(80) - 70); break;
            default: value = -std::ldexp(static_cast<double>(random()), Below(400) - 200); break;
        }
        char text[700];
        snprintf(text, sizeof text, "%*.*f", width, decimals, value);
        double back = strtod(text, nullptr);
        int code = back > field.maxValue ? -33 : back != value ? 6 : 0;
        Bytes expected(static_cast<size_t>(width), '#');
        memset(record, '#', sizeof record - zb::BlockSlack);
        if (code >= 0) {
            if (code == 6) snprintf(text, sizeof text, "%*.*f", width, decimals, back);
            expected.assign(text, static_cast<size_t>(width));
        }
        ASSERT_EQ(DfieldPut(file, &value, 0, 'N'), code) << value << " into " << width << "," << decimals;
        ASSERT_EQ(Text(), expected) << value;
        ASSERT_EQ(record[1 + width], '#');
        ZBESCODE(0);
        (code == 0 ? stored : code == 6 ? rounded : refused)++;

        if (code < 0) continue;
        double read = 0;
        ASSERT_EQ(DfieldGet(file, &read, 0, 'N'), 0);
        ASSERT_EQ(read, strtod(expected.c_str(), nullptr));
    }
    EXPECT_GT(stored, 1000);
    EXPECT_GT(rounded, 1000);
    EXPECT_GT(refused, 1000);
}

TEST_F(FieldConversion, NumbersAreReadAsTheCLibraryScansThem) {
    const char letters[] = "0123456789 .-+eE*x";
    for (int i = 0; i < 30000; i++) {
        int width = 1 + Below(20);
        SetNumber(width, 0);
        for (int k = 0; k < width; k++)
            record[1 + k] = static_cast<uint8_t>(letters[Below(i % 2 ? 12 : sizeof letters - 1)]);
        double expected = strtod(Text().c_str(), nullptr), read = -77;
        ASSERT_EQ(DfieldGet(file, &read, 0, 'N'), 0);
        ASSERT_EQ(read, expected) << '"' << Text() << '"';
    }
}

TEST_F(FieldConversion, MemoBlockNumbersGoThereAndBack) {
    field.type = 'M';
    field.width = 10;
    for (int i = 0; i < 5000; i++) {
        auto block = static_cast<uint32_t>(random() >> Below(64));
        char text[16];
        snprintf(text, sizeof text, "%10lu", static_cast<unsigned long>(block));
        ASSERT_EQ(DfieldPut(file, &block, 0, 'M'), 0);
        ASSERT_EQ(Text(), text);
        uint32_t read = 0;
        ASSERT_EQ(DfieldGet(file, &read, 0, 'M'), 0);
        ASSERT_EQ(read, block);
    }
}

TEST_F(FieldConversion, DatesGoThereAndBackInEveryStyleWithAFullYear) {
    field.type = 'D';
    field.width = 8;
    for (uint16_t style : {2, 4, 7, 9, 11, 13, 15}) {
        ASSERT_EQ(ZBCDSTYLE(style), 0);
        for (int i = 0; i < 200; i++) {
            char digits[40], text[16], again[16];
            snprintf(digits, sizeof digits, "%04d%02d%02d", Below(10000), 1 + Below(12), 1 + Below(28));
            memcpy(record + 1, digits, 8);
            ASSERT_EQ(DfieldGet(file, text, 0, 'D'), 0);
            memset(record + 1, '#', 8);
            ASSERT_EQ(DfieldPut(file, text, 0, 'D'), 0);
            ASSERT_EQ(Text(), digits);
            ASSERT_EQ(DfieldGet(file, again, 0, 'D'), 0);
            ASSERT_STREQ(again, text);
        }
    }
}

// All ways of reading a date agree with the parser and the printer.
TEST_F(FieldConversion, DatesAreReadAsTheDateFunctionsReadThem) {
    field.type = 'D';
    field.width = 8;
    int good = 0;
    for (int i = 0; i < 20000; i++) {
        char digits[40];
        snprintf(digits, sizeof digits, "%04d%02d%02d", Below(10000), Below(14), Below(33));
        if (i % 4 == 0) digits[Below(8)] = "+-/:0 \x80\xB9\xFF"[Below(9)];
        memcpy(record + 1, digits, 8);
        auto style = static_cast<int16_t>(1 + Below(15));
        if (record[1] == ' ' || Text().find(' ') != Bytes::npos) continue;
        ASSERT_EQ(ZBCDSTYLE(static_cast<uint16_t>(style)), 0);

        int16_t year, month, day;
        char expected[16], text[16] = "";
        snprintf(expected, sizeof expected, "%.8s", digits);
        int32_t code = ZBCDS2I(&year, &month, &day, digits, 4);
        if (code >= 0) code = ZBCDI2S(expected, style, year, month, day);
        ZBESCODE(0);
        ASSERT_EQ(DfieldGet(file, text, 0, 'D'), code) << digits;
        ASSERT_STREQ(text, expected);
        ZBESCODE(0);
        good += code == 0;
    }
    EXPECT_GT(good, 5000);
}

TEST_F(FieldConversion, APendingCodeStopsADateAlone) {
    field.type = 'D';
    field.width = 8;
    memcpy(record + 1, "19960229", 8);
    ZBESCODE(-2);
    char text[16] = "";
    EXPECT_EQ(DfieldGet(file, text, 0, 'D'), -2);
    EXPECT_STREQ(text, "19960229");
    EXPECT_EQ(DfieldGet(file, text, 0, 'C'), 0);
    EXPECT_EQ(zb::CurrentCode(), -2);
}

TEST_F(FieldConversion, OtherTypesDoNothing) {
    field.width = 4;
    memcpy(record + 1, "abcd", 4);
    char value[8] = "same";
    for (int type : std::vector<int>{0, 'c', 'B', 'G', 'X', 255}) {
        EXPECT_EQ(DfieldGet(file, value, 0, type), 0);
        EXPECT_EQ(DfieldPut(file, "wxyz", 0, type), 0);
    }
    EXPECT_STREQ(value, "same");
    EXPECT_EQ(Text(), "abcd");
}

// The lengths of February are one state for the whole library, and reading a
// date is asking about its year.
TEST_F(FieldConversion, ReadingADateLeavesItsYearsFebruary) {
    field.type = 'D';
    field.width = 8;
    char text[16];
    int16_t year, month, day;
    for (int style : {1, 4}) {
        ASSERT_EQ(ZBCDSTYLE(static_cast<uint16_t>(style)), 0);
        memcpy(record + 1, "20010101", 8);
        ASSERT_EQ(DfieldGet(file, text, 0, 'D'), 0);
        ASSERT_EQ(ZBCDS2I(&year, &month, &day, "2000/060", 3), 0);
        EXPECT_EQ(month * 100 + day, 301);
        memcpy(record + 1, "20000101", 8);
        ASSERT_EQ(DfieldGet(file, text, 0, 'D'), 0);
        ASSERT_EQ(ZBCDS2I(&year, &month, &day, "2000/060", 3), 0);
        EXPECT_EQ(month * 100 + day, 229);
    }
}

}  // namespace
}  // namespace test
