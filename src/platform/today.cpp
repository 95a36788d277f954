#include "platform/today.h"

#include <cstdlib>

namespace zb {
namespace {

bool IsLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

}  // namespace

void ReplaceDate(LocalTime* now, const char* text) {
    if (!text) return;
    for (int i = 0; i < 10; i++) {
        bool fits = i == 4 || i == 7 ? text[i] == '-' : text[i] >= '0' && text[i] <= '9';
        if (!fits) return;
    }
    if (text[10] != 0) return;
    int year = atoi(text);
    int month = atoi(text + 5);
    int day = atoi(text + 8);
    constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1 || month < 1 || month > 12 || day < 1) return;
    if (day > lengths[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0)) return;
    now->year = year;
    now->month = month;
    now->day = day;
    // Counted from March on, so that the leap day comes last: the months' shift
    // against the week then follows one line.
    int shiftedYear = month < 3 ? year - 1 : year;
    int shiftedMonth = month < 3 ? month + 9 : month - 3;
    now->dayOfWeek = (shiftedYear + shiftedYear / 4 - shiftedYear / 100 + shiftedYear / 400 +
                      (13 * shiftedMonth + 2) / 5 + day + 2) %
                     7;
}

}  // namespace zb
