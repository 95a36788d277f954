// Packed decimal numbers, the form of MDX number keys: 12 bytes.
//
//   0    0x34 and the number of digits before the point; for a number below 1,
//        0x34 less the zeros behind the point
//   1    0x05, or 0x85 with a minus sign
//   2    up to 20 digits, two a byte, the first significant one first; unused
//        places are 0
//
//   12.5   36 05 12 50 00 00 00 00 00 00 00 00
//   -0.05  33 85 50 00 00 00 00 00 00 00 00 00
//
// Zero has no form of its own: it is as many zeros behind the point as its text
// shows, and a minus sign stays.
#pragma once

#include <cstdint>
#include <string_view>

namespace zb {

inline constexpr int DecimalSize = 12;  // on disk
using Decimal = uint8_t[DecimalSize];

// Packs the text of a number: blanks, a sign, digits with or without a point. False,
// and nothing written, when its digits don't fit.
bool PackText(std::string_view text, Decimal& packed);

// Packs what "%lf" prints of a value. False also for infinities and NaNs.
bool PackDouble(double value, Decimal& packed);

// Compares packed numbers, of which the first `length` bytes are stored: below 0,
// 0 or above 0. Numbers are compared in stored form, so two forms of zero differ.
int CompareDecimal(const uint8_t* a, const uint8_t* b, int length);

}  // namespace zb
