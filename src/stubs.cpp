// Holds the place of rooms that are being built.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/number.h"
#include "data/data.h"
#include "dates/dates.h"
#include "platform/platform.h"

namespace zb {
uint16_t StyleOfKeyword(const char*) { return 1; }
double ScanDouble(const char* text, size_t length) {
    char copy[300] = "";
    memcpy(copy, text, length < 299 ? length : 299);
    return strtod(copy, nullptr);
}
}  // namespace zb
using namespace zb;
int32_t ZB_CALL ZBCDI2S(char* text, int16_t, int16_t year, int16_t month, int16_t day) {
    if (month < 1 || month > 12) return Fail("Cdi2s", ErrBadDate);
    snprintf(text, 32, "%02d/%02d/%02d", month, day, year % 100);
    return SetCode(0);
}
int32_t ZB_CALL ZBCDIGET(int16_t* year, int16_t* month, int16_t* day, int16_t* dayOfWeek) {
    LocalTime now = platform->Now();
    *year = static_cast<int16_t>(now.year);
    *month = static_cast<int16_t>(now.month);
    *day = static_cast<int16_t>(now.day);
    *dayOfWeek = static_cast<int16_t>(now.dayOfWeek);
    return SetCode(0);
}
