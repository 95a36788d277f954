// Numbers against the C library, which is exact on these systems.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "core/number.h"

namespace zb {
namespace {

uint64_t Bits(double value) {
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Equal to the sign of a zero; every not-a-number equals every other of its sign.
bool Same(double a, double b) {
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b) && std::signbit(a) == std::signbit(b);
    return Bits(a) == Bits(b);
}

double ScannedByLibrary(const std::string& text) {
    double value = 0.0;
    return sscanf(text.c_str(), "%lf", &value) == 1 ? value : 0.0;
}

void ExpectScan(const std::string& text) {
    double expected = ScannedByLibrary(text);
    EXPECT_TRUE(Same(ScanDouble(text.c_str()), expected))
        << "'" << text << "' " << ScanDouble(text.c_str()) << " " << expected;
    // In a buffer of the exact size, so that a byte too far is seen.
    std::vector<char> exact(text.begin(), text.end());
    EXPECT_TRUE(Same(ScanDouble(exact.data(), exact.size()), expected)) << "'" << text << "'";
}

std::string PrintedByLibrary(double value, int width, int decimals, bool zeroFill) {
    char text[2000];
    snprintf(text, sizeof text, zeroFill ? "%0*.*f" : "%*.*f", width, decimals, value);
    return text;
}

void ExpectPrint(double value, int width, int decimals) {
    for (bool zeroFill : {false, true}) {
        std::string expected = PrintedByLibrary(value, width, decimals, zeroFill);
        char text[2000];
        EXPECT_EQ(PrintDouble(text, sizeof text, value, width, decimals, zeroFill), expected.size());
        EXPECT_EQ(text, expected);
    }
}

TEST(ScanDouble, ReadsWhatTheScannerReads) {
    for (const char* text : {"",
                             " ",
                             "0",
                             "-0",
                             "+0",
                             "1",
                             "  42",
                             "\t\n\v\f\r7",
                             "12.50",
                             "12.50   ",
                             "-3.",
                             "-.5",
                             ".",
                             "-",
                             "+.",
                             "+-1",
                             "1..2",
                             "1.2.3",
                             "99.99",
                             "1 2",
                             "12abc",
                             "1e5",
                             "1E-5",
                             "1e",
                             "1e+",
                             "1e+-5",
                             "1.e2",
                             "e5",
                             "0e",
                             "1e5.5",
                             "0x",
                             "-0x",
                             "0xg",
                             "-0xg",
                             "0x.",
                             "-0x.",
                             "0x1",
                             "0X1.8p3",
                             "0x.8",
                             "0xp1",
                             "0x.p1",
                             "0x1p",
                             "0x1p+",
                             "0x1p-",
                             "0x1e5",
                             "00x1",
                             "0x0p",
                             "-0x0",
                             "inf",
                             "-INF",
                             "infi",
                             "-infi",
                             "infinity",
                             "infinit",
                             "Infinityx",
                             "in",
                             "nan",
                             "-nan",
                             "nan(1)",
                             "na",
                             "1e308",
                             "1e309",
                             "-1e309",
                             "1e-309",
                             "1e-330",
                             "-1e-400",
                             "4.9e-324",
                             "2e-324",
                             "3e-324",
                             "0e999999",
                             "0.0e-99999",
                             "1e99999999999999999999",
                             "1e-99999999999999999999",
                             "0x1p2000",
                             "-0x1p-2000",
                             "0x1P2000",
                             "9007199254740991",
                             "9007199254740992",
                             "9007199254740993",
                             "9007199254740993.0000000000000000001",
                             "123456789012345678901234567890",
                             "18446744073709551616",
                             "1844674407370955161.6",
                             "0.1234567890123456789",
                             "179769313486231580793e289",
                             "0.00000000000000000000001",
                             "0.000000000000000000000012345"})
        ExpectScan(text);
    ExpectScan(std::string(400, '9'));
    ExpectScan("0." + std::string(400, '0') + "1");
    ExpectScan("0." + std::string(400, '0') + "1e+410");
    ExpectScan("1" + std::string(400, '0') + "e-395");
    ExpectScan("1" + std::string(400, '0') + ".0e-800");
    ExpectScan("." + std::string(400, '0'));
    ExpectScan("0x" + std::string(400, 'f'));
    ExpectScan("0x." + std::string(400, '0') + "1");
}

TEST(ScanDouble, AgreesWithTheScannerOnRandomTexts) {
    std::mt19937 random(20240611);
    const std::string letters = " +-.0123456789eExXinfap";
    for (int i = 0; i < 200000; i++) {
        std::string text;
        for (auto n = random() % 12; n > 0; n--) text += letters[random() % letters.size()];
        ExpectScan(text);
        if (HasFailure()) break;
    }
}

TEST(ScanDouble, AgreesWithTheScannerOnRandomNumbers) {
    std::mt19937 random(4711);
    for (int i = 0; i < 200000; i++) {
        std::string text;
        if (random() % 3 == 0) text += '-';
        for (auto n = random() % 22; n > 0; n--) text += static_cast<char>('0' + random() % 10);
        if (random() % 4) text += '.';
        for (auto n = random() % 22; n > 0; n--) text += static_cast<char>('0' + random() % 10);
        if (random() % 4 == 0) text += "e" + std::to_string(static_cast<int>(random() % 700) - 350);
        ExpectScan(text);
        if (HasFailure()) break;
    }
}

TEST(ScanDouble, AgreesWithTheScannerOnRandomHexadecimalNumbers) {
    std::mt19937 random(16);
    const std::string letters = "0123456789abcdefABCDEF";
    for (int i = 0; i < 100000; i++) {
        std::string text = random() % 2 ? "0x" : "-0X";
        for (auto n = random() % 20; n > 0; n--) text += letters[random() % letters.size()];
        if (random() % 3) text += '.';
        for (auto n = random() % 20; n > 0; n--) text += letters[random() % letters.size()];
        if (random() % 4) text += "p" + std::to_string(static_cast<int>(random() % 2400) - 1200);
        ExpectScan(text);
        if (HasFailure()) break;
    }
}

TEST(PrintDouble, PrintsWhatThePrinterPrints) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (double value : {0.0,
                         -0.0,
                         1.0,
                         -1.0,
                         0.5,
                         1.5,
                         2.5,
                         -2.5,
                         0.125,
                         0.375,
                         1e15,
                         1e17,
                         1e22,
                         1e23,
                         1e300,
                         1.7976931348623157e308,
                         -1.7976931348623157e308,
                         4.9e-324,
                         2.2250738585072014e-308,
                         0.1,
                         99.99,
                         99.995,
                         1.005,
                         9.995,
                         0.9999999,
                         9007199254740992.0,
                         9007199254740991.5,
                         4503599627370496.5,
                         18446744073709551616.0,
                         1e19,
                         5e-5,
                         -4e-9,
                         infinity,
                         -infinity,
                         nan,
                         -nan})
        for (int decimals = 0; decimals <= 20; decimals++)
            for (int width = 0; width <= 40; width += 5) ExpectPrint(value, width, decimals);
    for (int decimals : {100, 255, 1073, 1074, 1075, 1200}) {
        ExpectPrint(4.9e-324, 10, decimals);
        ExpectPrint(-1.7976931348623157e308, 1900, decimals);
        ExpectPrint(-infinity, 10, decimals);
    }
}

TEST(PrintDouble, AgreesWithThePrinterOnRandomNumbers) {
    std::mt19937_64 random(815);
    for (int i = 0; i < 40000; i++) {
        int width = static_cast<int>(random() % 41);
        int decimals = static_cast<int>(random() % 21);
        uint64_t bits = random();
        double value;
        memcpy(&value, &bits, sizeof value);
        ExpectPrint(value, width, decimals);
        // Amounts, and values whose next digit is a tie.
        ExpectPrint(static_cast<double>(static_cast<int64_t>(random() % 2000000001) - 1000000000) / 100,
                    width, decimals);
        ExpectPrint(std::ldexp(static_cast<double>(random() % 4096), -static_cast<int>(random() % 12)), width,
                    decimals);
        ExpectPrint(static_cast<double>(random() >> random() % 64), width, decimals);
        if (HasFailure()) break;
    }
}

}  // namespace
}  // namespace zb
