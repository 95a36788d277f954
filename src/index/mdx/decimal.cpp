#include "index/mdx/decimal.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/number.h"

namespace zb {
namespace {

constexpr uint8_t PointAtStart = 0x34;
constexpr uint8_t Positive = 0x05;
constexpr uint8_t SignBit = 0x80;
constexpr size_t MaxDigits = 20;

std::string_view Skip(std::string_view text, char c) {
    return text.substr(std::min(text.find_first_not_of(c), text.size()));
}

}  // namespace

bool PackText(std::string_view text, Decimal& packed) {
    text = Skip(text, ' ');
    bool negative = !text.empty() && text[0] == '-';
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
    text = Skip(text, '0');

    size_t point = std::min(text.find('.'), text.size());
    std::string_view whole = text.substr(0, point);
    std::string_view fraction = text.substr(std::min(point + 1, text.size()));
    auto place = static_cast<int>(whole.size());
    if (whole.empty()) {
        std::string_view digits = Skip(fraction, '0');
        place = -static_cast<int>(fraction.size() - digits.size());
        fraction = digits;
        if (fraction.size() > MaxDigits) return false;
    }
    if (whole.size() > MaxDigits) return false;
    // Behind whole digits the rest is cut to what there is room for.
    fraction = fraction.substr(0, MaxDigits - whole.size());

    memset(packed, 0, sizeof packed);
    packed[0] = static_cast<uint8_t>(PointAtStart + place);
    packed[1] = negative ? Positive | SignBit : Positive;
    size_t nibble = 0;
    for (std::string_view digits : {whole, fraction})
        for (char digit : digits) {
            packed[2 + nibble / 2] |= static_cast<uint8_t>((digit & 0xF) << (nibble % 2 ? 0 : 4));
            nibble++;
        }
    return true;
}

bool PackDouble(double value, Decimal& packed) {
    if (!std::isfinite(value)) return false;
    constexpr int decimals = 6;
    char text[1 + MaxDigits + 1 + decimals + 1];
    size_t length = PrintDouble(text, sizeof text, value, 0, decimals);
    return length < sizeof text && PackText({text, length}, packed);
}

int CompareDecimal(const uint8_t* a, const uint8_t* b, int length) {
    bool negative = a[1] & SignBit;
    if ((a[1] ^ b[1]) & SignBit) return negative ? -1 : 1;
    int order = a[0] - b[0];
    if (order == 0) order = memcmp(a + 2, b + 2, static_cast<size_t>(std::max(length - 2, 0)));
    return negative ? (order < 0) - (order > 0) : order;
}

}  // namespace zb
