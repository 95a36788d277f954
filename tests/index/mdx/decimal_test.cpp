// Packed decimals against bytes worked out by hand.
#include "index/mdx/decimal.h"

#include <cmath>
#include <random>

#include "support/support.h"

namespace test {
namespace {

Bytes Packed(std::string_view text) {
    zb::Decimal packed;
    if (!zb::PackText(text, packed)) return "refused";
    return {reinterpret_cast<char*>(packed), sizeof packed};
}

Bytes PackedNumber(double value) {
    zb::Decimal packed;
    if (!zb::PackDouble(value, packed)) return "refused";
    return {reinterpret_cast<char*>(packed), sizeof packed};
}

// The bytes given, and zeros up to twelve.
Bytes Twelve(std::string_view digits) {
    Bytes bytes = Hex(digits);
    bytes.resize(12);
    return bytes;
}

TEST(Decimal, TextsPackAsTheyStand) {
    EXPECT_EQ(Packed("12.5"), Twelve("36 05 12 50"));
    EXPECT_EQ(Packed("  -12.50"), Twelve("36 85 12 50"));
    EXPECT_EQ(Packed("+7"), Twelve("35 05 70"));
    EXPECT_EQ(Packed("000123"), Twelve("37 05 12 30"));
    EXPECT_EQ(Packed("123"), Twelve("37 05 12 30"));
    EXPECT_EQ(Packed("0.00120"), Twelve("32 05 12 00"));
    EXPECT_EQ(Packed(".5"), Twelve("34 05 50"));
    EXPECT_EQ(Packed("00.0"), Twelve("33 05"));
    EXPECT_EQ(Packed("0"), Twelve("34 05"));
    EXPECT_EQ(Packed("-0.000"), Twelve("31 85"));
    EXPECT_EQ(Packed(""), Twelve("34 05"));
    EXPECT_EQ(Packed("1."), Twelve("35 05 10"));
    EXPECT_EQ(Packed("123.456"), Twelve("37 05 12 34 56"));  // an odd count before the point
}

TEST(Decimal, TwentyDigitsFit) {
    EXPECT_EQ(Packed("12345678901234567890"), Hex("48 05 12 34 56 78 90 12 34 56 78 90"));
    EXPECT_EQ(Packed("12345678901234567890.75"), Hex("48 05 12 34 56 78 90 12 34 56 78 90"));
    EXPECT_EQ(Packed("1234567890123456789.987"), Hex("47 05 12 34 56 78 90 12 34 56 78 99"));
    EXPECT_EQ(Packed("123456789012345.123456"), Hex("43 05 12 34 56 78 90 12 34 51 23 45"));
    EXPECT_EQ(Packed("0.0012345678901234567890"), Hex("32 05 12 34 56 78 90 12 34 56 78 90"));
    EXPECT_EQ(Packed("123456789012345678901"), "refused");
    EXPECT_EQ(Packed("0.123456789012345678901"), "refused");
    EXPECT_EQ(Packed("00000000000000000000000001"), Twelve("35 05 10"));
}

TEST(Decimal, DoublesPackWithSixDecimals) {
    EXPECT_EQ(PackedNumber(0), Twelve("2E 05"));
    EXPECT_EQ(PackedNumber(-0.0), Twelve("2E 85"));
    EXPECT_EQ(PackedNumber(-0.0000001), Twelve("2E 85"));
    EXPECT_EQ(PackedNumber(0.000001), Twelve("2F 05 10"));
    EXPECT_EQ(PackedNumber(0.00099), Twelve("31 05 99 00"));
    EXPECT_EQ(PackedNumber(0.05), Twelve("33 05 50"));
    EXPECT_EQ(PackedNumber(0.5), Twelve("34 05 50"));
    EXPECT_EQ(PackedNumber(1), Twelve("35 05 10"));
    EXPECT_EQ(PackedNumber(12.5), Twelve("36 05 12 50"));
    EXPECT_EQ(PackedNumber(-12.5), Twelve("36 85 12 50"));
    EXPECT_EQ(PackedNumber(999999.999999), Hex("3A 05 99 99 99 99 99 99 00 00 00 00"));
    EXPECT_EQ(PackedNumber(0.9999999), Twelve("35 05 10"));  // rounded up to 1
    EXPECT_EQ(PackedNumber(1e13), Hex("42 05 10 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(PackedNumber(1e19), Hex("48 05 10 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(PackedNumber(-12345678901234567168.0), Hex("48 85 12 34 56 78 90 12 34 56 71 68"));
    EXPECT_EQ(PackedNumber(1e20), "refused");
    EXPECT_EQ(PackedNumber(-1e300), "refused");
    EXPECT_EQ(PackedNumber(INFINITY), "refused");
    EXPECT_EQ(PackedNumber(NAN), "refused");
}

TEST(Decimal, PackedNumbersSortAsNumbersDo) {
    std::mt19937_64 random(1);
    auto number = [&] {
        double value = std::round(static_cast<double>(random() % 2000000) - 1000000) / 1e3;
        return random() % 3 ? value : value * 1e-3;
    };
    for (int i = 0; i < 20000; i++) {
        double a = number(), b = i % 10 ? number() : a;
        if (a == 0 || b == 0) continue;
        Bytes x = PackedNumber(a), y = PackedNumber(b);
        int order = zb::CompareDecimal(reinterpret_cast<uint8_t*>(x.data()),
                                       reinterpret_cast<uint8_t*>(y.data()), 12);
        // Six decimals are all that a key holds.
        double da = std::nearbyint(a * 1e6), db = std::nearbyint(b * 1e6);
        ASSERT_EQ((order > 0) - (order < 0), (da > db) - (da < db)) << a << ' ' << b;
    }
}

TEST(Decimal, OnlyTheSignCountsOfTheSecondByte) {
    auto compare = [](const char* a, const char* b) {
        Bytes x = Twelve(a), y = Twelve(b);
        return zb::CompareDecimal(reinterpret_cast<uint8_t*>(x.data()), reinterpret_cast<uint8_t*>(y.data()),
                                  12);
    };
    EXPECT_EQ(compare("35 05 10", "35 29 10"), 0);
    EXPECT_EQ(compare("35 85 10", "35 A9 10"), 0);
    EXPECT_LT(compare("2E 85", "2E 05"), 0);
    EXPECT_LT(compare("2E 05", "34 05"), 0);  // two zeros
    EXPECT_GT(compare("2E 85", "34 85"), 0);
    EXPECT_LT(compare("36 85 12", "35 85 90"), 0);
    EXPECT_LT(compare("35 85 20", "35 85 10"), 0);
}

// Over all sizes that fit, against a packing digit by digit of what the C library
// prints.
TEST(Decimal, DoublesOfAllSizesPackAsTheyPrint) {
    std::mt19937_64 random(2);
    for (int i = 0; i < 20000; i++) {
        double value = std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 90) - 77);
        if (random() % 2) value = -value;
        if (std::fabs(value) >= 1e20) continue;
        char text[64];
        snprintf(text, sizeof text, "%lf", value);
        std::string digits = text;
        bool negative = digits[0] == '-';
        if (negative) digits.erase(0, 1);
        size_t point = digits.find('.');
        digits.erase(point, 1);
        int place = static_cast<int>(point);
        while (!digits.empty() && digits[0] == '0') {
            digits.erase(0, 1);
            place--;
        }
        digits.resize(20, '0');
        std::string hex = negative ? "85" : "05";
        Bytes expected = Bytes(1, static_cast<char>(0x34 + place)) + Hex(hex + digits);
        ASSERT_EQ(PackedNumber(value), expected) << text;
    }
}

}  // namespace
}  // namespace test
