#include "iconv.h"

#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Pages {
    UINT from, to;
};

// The code page of an encoding; 0 for one that isn't known.
UINT PageOf(const std::string& name) {
    auto number = [&](size_t prefix) {
        return static_cast<UINT>(strtoul(name.c_str() + prefix, nullptr, 10));
    };
    UINT page = 0;
    if (name == "UTF-8") page = CP_UTF8;
    if (name == "ASCII" || name == "US-ASCII") page = 20127;
    if (name == "MACINTOSH") page = 10000;
    if (name == "MAC-CYRILLIC") page = 10007;
    if (name == "MAC-CENTRALEUROPE") page = 10029;
    if (name.rfind("CP", 0) == 0) page = number(2);
    if (name.rfind("ISO-8859-", 0) == 0) page = 28590 + number(9);
    return page != 0 && IsValidCodePage(page) ? page : 0;
}

// The bytes that the character at the start of a text takes by its first byte.
size_t LengthOf(UINT page, const char* text) {
    auto first = static_cast<unsigned char>(*text);
    if (page == CP_UTF8) return first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    return IsDBCSLeadByteEx(page, static_cast<BYTE>(first)) ? 2 : 1;
}

// Converts one character; its bytes in the other encoding, or -1.
int ConvertOne(const Pages& pages, const char* from, size_t length, char* to, int size) {
    wchar_t wide[4];
    int units =
        MultiByteToWideChar(pages.from, MB_ERR_INVALID_CHARS, from, static_cast<int>(length), wide, 4);
    if (units <= 0) return -1;
    if (pages.to == CP_UTF8) {
        int bytes =
            WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, units, to, size, nullptr, nullptr);
        return bytes > 0 ? bytes : -1;
    }
    BOOL replaced = FALSE;
    int bytes =
        WideCharToMultiByte(pages.to, WC_NO_BEST_FIT_CHARS, wide, units, to, size, nullptr, &replaced);
    return bytes > 0 && !replaced ? bytes : -1;
}

size_t Stop(int reason) {
    errno = reason;
    return static_cast<size_t>(-1);
}

}  // namespace

iconv_t iconv_open(const char* to, const char* from) {
    Pages pages = {PageOf(from), PageOf(to)};
    if (!pages.from || !pages.to) return reinterpret_cast<iconv_t>(Stop(EINVAL));
    return new Pages(pages);
}

size_t iconv(iconv_t converter, char** in, size_t* inLeft, char** out, size_t* outLeft) {
    const Pages& pages = *static_cast<Pages*>(converter);
    if (!in || !*in) return 0;  // nothing is ever kept back
    while (*inLeft > 0) {
        size_t length = LengthOf(pages.from, *in);
        if (length > *inLeft) return Stop(EINVAL);
        char bytes[8];
        int count = ConvertOne(pages, *in, length, bytes, sizeof bytes);
        if (count < 0) return Stop(EILSEQ);
        if (static_cast<size_t>(count) > *outLeft) return Stop(E2BIG);
        memcpy(*out, bytes, static_cast<size_t>(count));
        *out += count;
        *outLeft -= static_cast<size_t>(count);
        *in += length;
        *inLeft -= length;
    }
    return 0;
}

int iconv_close(iconv_t converter) {
    delete static_cast<Pages*>(converter);
    return 0;
}
