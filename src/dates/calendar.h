// What the date and time functions share.
#pragma once

#include <cstdint>

namespace zb {

// Whether year 0 to 9999, month and day make a date, by MonthDays as it stands:
// who asks calls ZBCDILEAP for the year first.
bool IsDate(int year, int month, int day);

// The day of the year, by MonthDays as it stands.
int DayOfYear(int month, int day);

// Writes `width` digits of a value that isn't negative, filled with zeros.
inline void PutDigits(char* text, int value, int width) {
    for (; width > 0; width--, value /= 10) text[width - 1] = static_cast<char>('0' + value % 10);
}

}  // namespace zb
