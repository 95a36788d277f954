// Times of day as numbers and as text.
#include <cstdlib>
#include <cstring>

#include "core/code.h"
#include "dates/calendar.h"
#include "platform/platform.h"

namespace zb {
namespace {

enum TimeStyle : int16_t { TimeFull = 1, TimeShort = 2 };  // "hh:mm:ss" and "hhmm"

constexpr size_t FullLength = 8;
constexpr size_t ShortLength = 4;

bool IsTime(int hours, int minutes, int seconds) {
    return hours >= 0 && hours <= 23 && minutes >= 0 && minutes <= 59 && seconds >= 0 && seconds <= 59;
}

// One number as the C library's scanner takes "%2d": blanks in front don't
// count, a sign does.
bool ScanPair(const char*& text, int16_t& value) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) text++;
    int width = 2;
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') text++, width--;
    if (*text < '0' || *text > '9') return false;
    int number = 0;
    for (; width > 0 && *text >= '0' && *text <= '9'; width--) number = number * 10 + (*text++ - '0');
    value = static_cast<int16_t>(negative ? -number : number);
    return true;
}

bool ScanColon(const char*& text) { return *text == ':' && text++; }

// The two places of "%02d", for a value that ScanPair gave.
void PutPair(char* text, int value) {
    if (value < 0) {
        *text++ = '-';
        PutDigits(text, -value, 1);
    } else {
        PutDigits(text, value, 2);
    }
}

void PutFull(char* text, int hours, int minutes, int seconds) {
    PutPair(text, hours);
    text[2] = ':';
    PutPair(text + 3, minutes);
    text[5] = ':';
    PutPair(text + 6, seconds);
    text[FullLength] = '\0';
}

void PutShort(char* text, int hours, int minutes) {
    PutPair(text, hours);
    PutPair(text + 2, minutes);
    text[ShortLength] = '\0';
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBCTI2S(char* text, int16_t style, int16_t hours, int16_t minutes, int16_t seconds) {
    if (Pending()) return CurrentCode();
    if (!text) return Fail("Ti2s", ErrNullPointer);
    if (!IsTime(hours, minutes, seconds)) return Fail("Ti2s", ErrBadTime);
    switch (style) {
        case TimeFull: PutFull(text, hours, minutes, seconds); break;
        case TimeShort: PutShort(text, hours, minutes); break;
        default: return Fail("Ti2s", ErrBadOption);
    }
    return SetCode(0);
}

int32_t ZB_CALL ZBCTS2I(int16_t* hours, int16_t* minutes, int16_t* seconds, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!hours || !minutes || !seconds || !text) return Fail("Ts2i", ErrNullPointer);

    // The numbers printed again must give the very text: nothing that only
    // scans is taken for a time.
    char printed[FullLength + 1];
    const char* p = text;
    int16_t h, m, s = 0;
    switch (style) {
        case TimeFull:
            if (strnlen(text, FullLength + 1) != FullLength) return Fail("Ts2i", ErrBadTime);
            if (!ScanPair(p, h) || !ScanColon(p) || !ScanPair(p, m) || !ScanColon(p) || !ScanPair(p, s))
                return Fail("Ts2i", ErrBadTime);
            *hours = h;
            *minutes = m;
            *seconds = s;
            PutFull(printed, h, m, s);
            if (*text == ' ') *printed = ' ';
            break;
        case TimeShort:
            if (strnlen(text, ShortLength + 1) != ShortLength) return Fail("Ts2i", ErrBadTime);
            *seconds = 0;
            if (!ScanPair(p, h) || !ScanPair(p, m)) return Fail("Ts2i", ErrBadTime);
            *hours = h;
            *minutes = m;
            PutShort(printed, h, m);
            break;
        default: return Fail("Ts2i", ErrBadOption);
    }
    if (strcmp(text, printed) != 0 || !IsTime(h, m, s)) return Fail("Ts2i", ErrBadTime);
    return SetCode(0);
}

int32_t ZB_CALL ZBCTSVALID(const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t hours, minutes, seconds;
    return ZBCTS2I(&hours, &minutes, &seconds, text, style) < 0 ? Pass("Tsvalid") : CurrentCode();
}

int32_t ZB_CALL ZBCTSDIFF(uint32_t* seconds, const char* text1, int16_t style1, const char* text2,
                          int16_t style2) {
    if (Pending()) return CurrentCode();
    int16_t hours1, minutes1, seconds1, hours2, minutes2, seconds2;
    if (ZBCTS2I(&hours1, &minutes1, &seconds1, text1, style1) < 0) return Pass("Tsdiff");
    if (ZBCTS2I(&hours2, &minutes2, &seconds2, text2, style2) < 0) return Pass("Tsdiff");
    if (!seconds) return Fail("Tsdiff", ErrNullPointer);
    int apart = ((hours1 - hours2) * 60 + minutes1 - minutes2) * 60 + seconds1 - seconds2;
    *seconds = static_cast<uint32_t>(std::abs(apart));
    return SetCode(0);
}

int32_t ZB_CALL ZBCTIGET(int16_t* hours, int16_t* minutes, int16_t* seconds, int16_t* hundredths) {
    if (Pending()) return CurrentCode();
    if (!hours || !minutes || !seconds || !hundredths) return Fail("Tiget", ErrNullPointer);
    LocalTime now = platform->Now();
    *hours = static_cast<int16_t>(now.hour);
    *minutes = static_cast<int16_t>(now.minute);
    *seconds = static_cast<int16_t>(now.second);
    *hundredths = 0;
    return SetCode(0);
}

int32_t ZB_CALL ZBCTSGET(char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    int16_t hours, minutes, seconds, hundredths;
    if (ZBCTIGET(&hours, &minutes, &seconds, &hundredths) < 0) return Pass("Tsget");
    if (ZBCTI2S(text, style, hours, minutes, seconds) < 0) return Pass("Tsget");
    return CurrentCode();
}
