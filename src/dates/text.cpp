// Dates as text: printing, parsing, and the questions asked about a text.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/code.h"
#include "dates/calendar.h"
#include "dates/styles.h"
#include "platform/platform.h"

namespace zb {
namespace {

constexpr Code DateIsBlank = KeyEmpty;
constexpr int MaxTextLength = 15;

// The digits at a field's place, read as atoi reads them: blanks in front and a
// sign are taken, and no digits are 0.
int Field(const char* text, int at, int width) {
    const char* p = text + at;
    const char* end = p + width;
    while (p != end && *p >= '\t' && *p <= '\r') p++;
    bool negative = p != end && *p == '-';
    if (p != end && (*p == '-' || *p == '+')) p++;
    int value = 0;
    for (; p != end && *p >= '0' && *p <= '9'; p++) value = value * 10 + (*p - '0');
    return negative ? -value : value;
}

// Nothing but the form's separators.
bool IsBlank(const char* text, const DateStyle& style) {
    if (style.separators == 0) return false;
    int i = 0;
    while (i < style.separators && text[i] == style.separator) i++;
    return i == style.separators && !text[i];
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBCDI2S(char* text, int16_t style, int16_t year, int16_t month, int16_t dayOfMonth) {
    if (Pending()) return CurrentCode();
    if (!text) return Fail("I2s", ErrNullPointer);
    ZBCDILEAP(year);
    if (!IsDate(year, month, dayOfMonth)) return Fail("I2s", ErrBadDate);
    auto* form = FindStyle(style);
    if (!form) return Fail("I2s", ErrBadOption);

    form->form.copy(text, form->form.size());
    text[form->length()] = '\0';
    PutDigits(text + form->yearAt, year, form->yearWidth);
    if (form->julian()) {
        PutDigits(text + form->dayAt, DayOfYear(month, dayOfMonth), form->dayWidth);
    } else {
        PutDigits(text + form->monthAt, month, 2);
        PutDigits(text + form->dayAt, dayOfMonth, form->dayWidth);
    }
    return SetCode(0);
}

int32_t ZB_CALL ZBCDS2I(int16_t* year, int16_t* month, int16_t* dayOfMonth, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!year || !month || !dayOfMonth || !text) return Fail("S2i", ErrNullPointer);
    auto Blank = [&] {
        *year = *month = *dayOfMonth = 0;
        return SetCode(DateIsBlank);
    };
    // The text without its blanks, and zeros where a field looks beyond its end.
    char squeezed[MaxTextLength + 1] = {};
    int length = 0, kept = 0;
    for (; length < MaxTextLength && text[length]; length++)
        if (text[length] != ' ') squeezed[kept++] = text[length];
    if (kept == 0 && !text[static_cast<size_t>(length) + strspn(text + length, " ")]) return Blank();
    if (text[length]) return Fail("S2i", ErrBadDate);

    auto* form = FindStyle(style);
    if (!form) return Fail("S2i", ErrBadOption);
    if (style == StyleYmd) {
        // The one style that measures without the blanks, and that complains on
        // the screen.
        if (kept != form->length()) {
            Fail("S2i", ErrBadDate);
            platform->Message(text, "mauvaise Longueur");
            return CurrentCode();
        }
    } else if (length < form->leastLength() || length > form->length()) {
        return Fail("S2i", ErrBadDate);
    }
    if (style <= 3) std::replace(squeezed, squeezed + kept, '\\', '/');
    if (IsBlank(squeezed, *form)) return Blank();

    int y = Field(squeezed, form->yearAt, form->yearWidth);
    int d = Field(squeezed, form->dayAt, form->dayWidth);
    int m = 1;
    if (form->julian()) {
        // Before the year's own February is known: the last year that anybody
        // asked about decides.
        for (; m <= 12 && d > MonthDays[m]; m++) d -= MonthDays[m];
    } else {
        m = Field(squeezed, form->monthAt, 2);
    }
    if (form->shortYear() && y >= 0 && y <= 99) y += 1900;

    if (y < 0 || y > 9999) return Fail("S2i", ErrBadDate);
    ZBCDILEAP(static_cast<int16_t>(y));
    if (!IsDate(y, m, d)) return Fail("S2i", ErrBadDate);
    *year = static_cast<int16_t>(y);
    *month = static_cast<int16_t>(m);
    *dayOfMonth = static_cast<int16_t>(d);
    return SetCode(0);
}

int32_t ZB_CALL ZBCDS2LX(int32_t* day, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDS2I(&year, &month, &dayOfMonth, text, style) < 0) return Pass("S2lx");
    if (ZBCDI2L(day, year, month, dayOfMonth) < 0) return Pass("S2lx");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDL2SX(char* text, int16_t style, int32_t day) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDL2I(&year, &month, &dayOfMonth, day) < 0) return Pass("L2sx");
    if (ZBCDI2S(text, style, year, month, dayOfMonth) < 0) return Pass("L2sx");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDS2S(char* text, int16_t styleOut, const char* textIn, int16_t styleIn) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDS2I(&year, &month, &dayOfMonth, textIn, styleIn) < 0) return Pass("S2s");
    if (ZBCDI2S(text, styleOut, year, month, dayOfMonth) < 0) return Pass("S2s");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDSDIFF(uint32_t* days, const char* text1, int16_t style1, const char* text2,
                          int16_t style2) {
    if (Pending()) return CurrentCode();
    int32_t day1, day2;
    if (ZBCDS2LX(&day1, text1, style1) < 0) return Pass("Sdiff");
    if (ZBCDS2LX(&day2, text2, style2) < 0) return Pass("Sdiff");
    if (!days) return Fail("Sdiff", ErrNullPointer);
    *days = static_cast<uint32_t>(std::abs(day1 - day2));
    return SetCode(0);
}

int32_t ZB_CALL ZBCDS2DOW(int16_t* dayOfWeek, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int32_t day;
    if (ZBCDS2LX(&day, text, style) < 0) return Pass("S2dow");
    if (ZBCDL2DOW(dayOfWeek, day) < 0) return Pass("S2dow");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDS2DAY(char* name, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t dayOfWeek;
    if (ZBCDS2DOW(&dayOfWeek, text, style) < 0) return Pass("S2day");
    if (ZBCDSDAY(name, dayOfWeek) < 0) return Pass("S2day");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDS2MON(char* name, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDS2I(&year, &month, &dayOfMonth, text, style) < 0) return Pass("S2mon");
    if (ZBCDSMONTH(name, month) < 0) return Pass("S2mon");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDSLEAP(const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDS2I(&year, &month, &dayOfMonth, text, style) < 0) return Pass("Sleap");
    return ZBCDILEAP(year);
}

int32_t ZB_CALL ZBCDSPERM(int16_t* days, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    if (ZBCDS2I(&year, &month, &dayOfMonth, text, style) < 0) return Pass("Sperm");
    if (ZBCDIPERM(days, year, month) < 0) return Pass("Sperm");
    return CurrentCode();
}

int32_t ZB_CALL ZBCDSVALID(const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth;
    return ZBCDS2I(&year, &month, &dayOfMonth, text, style) < 0 ? Pass("Svalid") : CurrentCode();
}

int32_t ZB_CALL ZBCDSGET(char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t year, month, dayOfMonth, dayOfWeek;
    if (ZBCDIGET(&year, &month, &dayOfMonth, &dayOfWeek) < 0) return Pass("Sget");
    if (ZBCDI2S(text, style, year, month, dayOfMonth) < 0) return Pass("Sget");
    return CurrentCode();
}
