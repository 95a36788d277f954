#include "core/number.h"

#include <algorithm>
#include <cctype>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace zb {
namespace {

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

// Without regard to case; the word is in small letters.
bool StartsWith(const char* text, const char* end, const char* word) {
    for (; *word; word++, text++)
        if (text == end || ToLower(*text) != *word) return false;
    return true;
}

// The powers of ten that a double holds exactly.
constexpr double ExactPower[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int MaxExactPower = 22;
constexpr uint64_t MaxExactInteger = uint64_t{1} << 53;
constexpr int MaxDigits = 19;  // of a 64-bit integer

// Whether an operation on two doubles is rounded once, to a double.
constexpr bool RoundsOnce = FLT_EVAL_METHOD == 0;

// The value of a number without its sign, decimal or, behind its "0x",
// hexadecimal. One that no double comes near is 0 or infinity, by the place of
// its first digit and the exponent.
double Parse(const char* text, const char* end, std::chars_format format) {
    double value = 0.0;
    if (std::from_chars(text, end, value, format).ec != std::errc::result_out_of_range) return value;

    bool hexadecimal = format == std::chars_format::hex;
    int64_t place = 0;
    bool point = false, significant = false;
    for (; text != end; text++) {
        if (*text == '.' && !point) {
            point = true;
        } else if (!IsDigit(*text) && !(hexadecimal && std::isxdigit(static_cast<unsigned char>(*text)))) {
            break;
        } else {
            if (*text != '0') significant = true;
            if (significant && !point) place++;
            if (!significant && point) place--;
        }
    }
    if (hexadecimal) place *= 4;
    int64_t exponent = 0;
    if (text != end && ToLower(*text) == (hexadecimal ? 'p' : 'e') && ++text != end) {
        bool negative = *text == '-';
        if (*text == '-' || *text == '+') text++;
        for (; text != end && IsDigit(*text) && exponent < int64_t{1} << 40; text++)
            exponent = exponent * 10 + (*text - '0');
        if (negative) exponent = -exponent;
    }
    return place + exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

double Scan(const char* text, const char* end) {
    while (text != end && *text == ' ') text++;  // mostly that is all
    while (text != end && IsSpace(*text)) text++;
    bool negative = text != end && *text == '-';
    if (text != end && (*text == '-' || *text == '+')) text++;
    auto Signed = [negative](double value) { return negative ? -value : value; };

    const char* number = text;
    uint64_t integer = 0;
    for (; text != end && IsDigit(*text); text++) integer = integer * 10 + static_cast<uint64_t>(*text - '0');
    auto digits = text - number;
    int64_t decimals = 0;
    if (text != end && *text == '.') {
        const char* fraction = ++text;
        for (; text != end && IsDigit(*text); text++)
            integer = integer * 10 + static_cast<uint64_t>(*text - '0');
        decimals = text - fraction;
        digits += decimals;
    }
    char next = text != end ? ToLower(*text) : '\0';
    if (digits == 0) {
        if (StartsWith(number, end, "nan")) return Signed(std::numeric_limits<double>::quiet_NaN());
        // Behind "inf" an "i" must go on to "infinity".
        if (!StartsWith(number, end, "inf")) return 0.0;
        if (StartsWith(number, end, "infi") && !StartsWith(number, end, "infinity")) return 0.0;
        return Signed(std::numeric_limits<double>::infinity());
    }
    if (next == 'x' && text - number == 1 && *number == '0') {
        // "0x" and nothing is refused, sign and all; "0x." is a zero.
        const char* behind = text + 1;
        if (behind == end || (*behind != '.' && !std::isxdigit(static_cast<unsigned char>(*behind))))
            return 0.0;
        return Signed(Parse(behind, end, std::chars_format::hex));
    }
    if (RoundsOnce && next != 'e' && digits <= MaxDigits && integer <= MaxExactInteger &&
        decimals <= MaxExactPower)
        return Signed(static_cast<double>(integer) / ExactPower[decimals]);
    return Signed(Parse(number, end, std::chars_format::general));
}

// The longest number in fixed notation: a sign, the digits of the largest
// double, a point and the digits of the smallest. Beyond those all are zeros.
constexpr int MaxIntegerDigits = 309;
constexpr int MaxDecimals = 1074;

constexpr uint64_t Power[] = {1,
                              10,
                              100,
                              1000,
                              10000,
                              100000,
                              1000000,
                              10000000,
                              100000000,
                              1000000000,
                              10000000000,
                              100000000000,
                              1000000000000,
                              10000000000000,
                              100000000000000,
                              1000000000000000};
constexpr int MaxPower = 15;

struct Wide {
    uint64_t high, low;
};

Wide Multiply(uint64_t a, uint64_t b) {
    constexpr uint64_t half = 0xFFFFFFFF;
    uint64_t low = (a & half) * (b & half);
    uint64_t middle = (a >> 32) * (b & half) + (low >> 32);
    uint64_t other = (a & half) * (b >> 32) + (middle & half);
    return {(a >> 32) * (b >> 32) + (middle >> 32) + (other >> 32), other << 32 | (low & half)};
}

// The short way for numbers of everyday size: exact in fixed point, the whole
// part beside 64 bits of fraction, and rounded to even as the printer does it.
// Null for numbers that need more.
char* ToFixed(char* to, double value, int decimals) {
    double magnitude = std::fabs(value);
    if (!(magnitude < static_cast<double>(MaxExactInteger)) || decimals > MaxPower) return nullptr;
    auto whole = static_cast<uint64_t>(magnitude);
    double rest = (magnitude - static_cast<double>(whole)) * 0x1p64;
    auto bits = static_cast<uint64_t>(rest);
    if (static_cast<double>(bits) != rest) return nullptr;

    auto [fraction, remainder] = Multiply(bits, Power[decimals]);
    constexpr uint64_t tie = uint64_t{1} << 63;
    uint64_t odd = (decimals ? fraction : whole) & 1;
    if (remainder > tie || (remainder == tie && odd)) fraction++;
    if (fraction == Power[decimals]) fraction = 0, whole++;

    if (std::signbit(value)) *to++ = '-';
    to = std::to_chars(to, to + MaxDigits, whole).ptr;
    if (decimals == 0) return to;
    *to++ = '.';
    for (char* digit = to + decimals; digit != to; fraction /= 10)
        *--digit = static_cast<char>('0' + fraction % 10);
    return to + decimals;
}

// Text of a bounded buffer, counted on beyond its end.
class Output {
  public:
    Output(char* to, size_t room) : text(to), size(room) {}
    void Add(const char* from, size_t count) {
        if (length < size) memcpy(text + length, from, std::min(count, size - length));
        length += count;
    }
    void Fill(char c, size_t count) {
        if (length < size) memset(text + length, c, std::min(count, size - length));
        length += count;
    }
    size_t End() {
        if (size > 0) text[std::min(length, size - 1)] = '\0';
        return length;
    }

  private:
    char* text;
    size_t size;
    size_t length = 0;
};

}  // namespace

double ScanDouble(const char* text) { return Scan(text, text + strlen(text)); }

double ScanDouble(const char* text, size_t length) { return Scan(text, text + length); }

size_t PrintDouble(char* text, size_t size, double value, int width, int decimals, bool zeroFill) {
    char digits[1 + MaxIntegerDigits + 1 + MaxDecimals];
    int precision = std::clamp(decimals, 0, MaxDecimals);
    char* end = ToFixed(digits, value, precision);
    if (!end)
        end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, precision).ptr;
    auto count = static_cast<size_t>(end - digits);
    auto zeros = static_cast<size_t>(std::isfinite(value) ? std::max(decimals, 0) - precision : 0);
    auto room = static_cast<size_t>(std::max(width, 0));
    size_t fill = room > count + zeros ? room - count - zeros : 0;

    Output output(text, size);
    const char* start = digits;
    if (!zeroFill || !std::isfinite(value)) {
        output.Fill(' ', fill);
    } else {
        if (*start == '-') output.Add(start++, 1);
        output.Fill('0', fill);
    }
    output.Add(start, static_cast<size_t>(end - start));
    output.Fill('0', zeros);
    return output.End();
}

void PrintUnsigned(char* text, unsigned long value, int width) {
    char digits[10];
    auto* end = std::to_chars(digits, digits + sizeof digits, static_cast<uint32_t>(value)).ptr;
    auto count = static_cast<int>(end - digits);
    int fill = std::max(width - count, 0);
    memset(text, ' ', static_cast<size_t>(fill));
    memcpy(text + fill, digits, static_cast<size_t>(count));
    text[fill + count] = '\0';
}

}  // namespace zb
