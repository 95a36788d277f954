// Numbers as text, both ways, with the results of the C library's scanner and
// printer in the "C" locale whatever the process's locale is.
#pragma once

#include <cstddef>

namespace zb {

// What the scanner's "%lf" reads from the start of a text: blanks in front are
// skipped and what follows the number is passed over. A text without a number
// gives 0.0.
double ScanDouble(const char* text);

// The same for `length` bytes that need no terminator.
double ScanDouble(const char* text, size_t length);

// What "%<width>.<decimals>lf" prints, or "%0<width>.<decimals>lf" with zeroFill.
// At most size - 1 characters are written, and a terminator; the full length
// comes back.
size_t PrintDouble(char* text, size_t size, double value, int width, int decimals, bool zeroFill = false);

// What "%<width>lu" prints of a 32-bit value (at most 11 bytes with the terminator).
void PrintUnsigned(char* text, unsigned long value, int width);

}  // namespace zb
