// Dates as numbers: the calendar's rules, day numbers, days of the week, today.
#include "dates/calendar.h"

#include <cstring>

#include "core/library.h"
#include "dates/dates.h"
#include "platform/platform.h"

namespace zb {

int8_t MonthDays[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool IsDate(int year, int month, int day) {
    return year >= 0 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 && day <= MonthDays[month];
}

int DayOfYear(int month, int day) {
    for (int m = 1; m < month && m <= 12; m++) day += MonthDays[m];
    return day;
}

double DayCount(int year, int month, int day) {
    constexpr int32_t dayZero = 1721410;
    auto before = static_cast<int32_t>((year - 1) * 365.25);
    return static_cast<double>(before + DayOfYear(month, day) + dayZero);
}

namespace {

constexpr int February = 2;
constexpr int32_t LastDay = 3652059;  // 31 December 9999

// Both directions of the day numbers work with the mean length of a year, which
// hits a year's first day or misses it by one. Stored day numbers depend on the
// very results: neither constant may be made more exact.
constexpr double YearLength = 365.2425;
constexpr double YearsPerDay = 0.002737907006988508;

constexpr const char* MonthName[] = {"January", "February", "March",     "April",   "May",      "June",
                                     "July",    "August",   "September", "October", "November", "December"};
constexpr const char* DayName[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                   "Thursday", "Friday", "Saturday"};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBCDILEAP(int16_t year) {
    bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    MonthDays[February] = leap ? 29 : 28;
    return leap;
}

int32_t ZB_CALL ZBCDI2L(int32_t* day, int16_t year, int16_t month, int16_t dayOfMonth) {
    if (Pending()) return CurrentCode();
    if (!day) return Fail("I2l", ErrNullPointer);
    ZBCDILEAP(year);
    if (!IsDate(year, month, dayOfMonth)) return Fail("I2l", ErrBadDate);
    *day = static_cast<int32_t>((year - 1) * YearLength) + DayOfYear(month, dayOfMonth);
    return SetCode(0);
}

int32_t ZB_CALL ZBCDL2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, int32_t day) {
    if (Pending()) return CurrentCode();
    if (!year || !month || !dayOfMonth) return Fail("L2i", ErrNullPointer);
    if (day < 1 || day > LastDay) return Fail("L2i", ErrBadDate);

    auto past = static_cast<int32_t>(day * YearsPerDay);
    // Sixteen bits, wrapping: what is cut off cancels out in the difference.
    auto left = static_cast<int16_t>(day - 365 * past - past / 4 - past / 400 + past / 100);
    if (left == 0) {
        *year = static_cast<int16_t>(past);
        *month = 12;
        *dayOfMonth = 31;
        return SetCode(0);
    }
    auto found = static_cast<int16_t>(past + 1);
    ZBCDILEAP(found);
    if (left > 366) return Fail("L2i", ErrBadDate);
    int16_t m = 1;
    for (; m <= 12 && left > MonthDays[m]; m++) left = static_cast<int16_t>(left - MonthDays[m]);
    // The estimate fell a year short, and the year has no such day.
    if (m > 12) return Fail("L2i", ErrBadDate);
    *year = found;
    *month = m;
    *dayOfMonth = left;
    return SetCode(0);
}

int32_t ZB_CALL ZBCDL2DOW(int16_t* dayOfWeek, int32_t day) {
    if (Pending()) return CurrentCode();
    if (!dayOfWeek) return Fail("L2dow", ErrNullPointer);
    if (day < 1 || day > LastDay) return Fail("L2dow", ErrBadDate);
    *dayOfWeek = static_cast<int16_t>(day % 7);
    return SetCode(0);
}

int32_t ZB_CALL ZBCDSDAY(char* name, int16_t dayOfWeek) {
    if (Pending()) return CurrentCode();
    if (!name) return Fail("Sday", ErrNullPointer);
    if (dayOfWeek < 0 || dayOfWeek > 6) return Fail("Sday", ErrBadDate);
    strcpy(name, DayName[dayOfWeek]);
    return SetCode(0);
}

int32_t ZB_CALL ZBCDSMONTH(char* name, int16_t month) {
    if (Pending()) return CurrentCode();
    if (!name) return Fail("Smonth", ErrNullPointer);
    if (month < 1 || month > 12) return Fail("Smonth", ErrBadDate);
    strcpy(name, MonthName[month - 1]);
    return SetCode(0);
}

int32_t ZB_CALL ZBCDIPERM(int16_t* days, int16_t year, int16_t month) {
    if (Pending()) return CurrentCode();
    if (!days) return Fail("Iperm", ErrNullPointer);
    // The year 0, which the conversions take, has no months here.
    if (year < 1 || year > 9999 || month < 1 || month > 12) return Fail("Iperm", ErrBadDate);
    if (month == February) ZBCDILEAP(year);
    *days = MonthDays[month];
    return SetCode(0);
}

int32_t ZB_CALL ZBCDIGET(int16_t* year, int16_t* month, int16_t* dayOfMonth, int16_t* dayOfWeek) {
    if (Pending()) return CurrentCode();
    if (!year || !month || !dayOfMonth || !dayOfWeek) return Fail("Iget", ErrNullPointer);
    LocalTime now = platform->Now();
    *year = static_cast<int16_t>(now.year);
    *month = static_cast<int16_t>(now.month);
    *dayOfMonth = static_cast<int16_t>(now.day);
    *dayOfWeek = static_cast<int16_t>(now.dayOfWeek);
    return SetCode(0);
}
