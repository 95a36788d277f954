// What the other rooms use of the calendar beyond the exported ZBCD functions.
#pragma once

#include "core/code.h"

namespace zb {

inline constexpr int StyleCount = 15;
inline constexpr int16_t StyleYmd = 4;  // yyyymmdd, the form of D fields

// The lengths of the months, entry 0 unused. ZBCDILEAP rewrites February's at
// each call, and whatever reads a month's length reads it as the last call left
// it: that dependence is part of the contract.
extern int8_t MonthDays[13];

// Characters of a date text in a style, 6 to 10; 0 for an unknown one.
int StyleLength(int style);

// The style that a "datesort" keyword names, without regard to case; 1 for any
// other text.
uint16_t StyleOfKeyword(const char* keyword);

// The day count of the index keys: whole part of (year - 1) * 365.25, plus the
// day, plus the lengths of the months before (from MonthDays), plus 1721410.
double DayCount(int year, int month, int day);

}  // namespace zb
