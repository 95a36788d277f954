// Letters without regard to case, by the rules of ASCII whatever the locale is.
#pragma once

namespace zb {

inline char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

inline void AsciiUpper(char* text) {
    for (; *text; text++) *text = AsciiUpper(*text);
}

inline bool EqualNoCase(const char* a, const char* b) {
    for (; AsciiUpper(*a) == AsciiUpper(*b); a++, b++)
        if (!*a) return true;
    return false;
}

}  // namespace zb
