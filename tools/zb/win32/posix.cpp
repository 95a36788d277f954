#include "posix.h"

#include <direct.h>
#include <windows.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

char* mkdtemp(char* pattern) {
    constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    size_t length = strlen(pattern);
    if (length < 6) {
        errno = EINVAL;
        return nullptr;
    }
    unsigned long long state = GetTickCount64() * 1000003u + GetCurrentProcessId();
    for (int tries = 0; tries < 100; tries++) {
        for (size_t i = length - 6; i < length; i++) {
            state = state * 6364136223846793005u + 1442695040888963407u;
            pattern[i] = letters[(state >> 33) % (sizeof letters - 1)];
        }
        if (_mkdir(pattern) == 0) return pattern;
        if (errno != EEXIST) return nullptr;
    }
    return nullptr;
}

ssize_t getline(char** line, size_t* room, FILE* file) {
    ssize_t length = 0;
    for (int c = 0; c != '\n' && (c = getc(file)) != EOF;) {
        if (!*line || static_cast<size_t>(length) + 2 > *room) {
            size_t wanted = *line ? *room * 2 : 256;
            auto* grown = static_cast<char*>(realloc(*line, wanted));
            if (!grown) return -1;
            *line = grown;
            *room = wanted;
        }
        (*line)[length++] = static_cast<char>(c);
        (*line)[length] = 0;
    }
    return length ? length : -1;
}

int setenv(const char* name, const char* value, int replace) {
    return !replace && getenv(name) ? 0 : _putenv_s(name, value);
}

int wcwidth(wchar_t character) {
    unsigned c = character;
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) return c == 0 ? 0 : -1;
    if ((c >= 0x300 && c < 0x370) || (c >= 0x200B && c < 0x2010) || (c >= 0x20D0 && c < 0x2100)) return 0;
    bool wide = (c >= 0x1100 && c < 0x1160) || (c >= 0x2E80 && c < 0xA4D0) || (c >= 0xAC00 && c < 0xD7A4) ||
                (c >= 0xF900 && c < 0xFB00) || (c >= 0xFE30 && c < 0xFE70) || (c >= 0xFF00 && c < 0xFF61) ||
                (c >= 0xFFE0 && c < 0xFFE7);
    return wide ? 2 : 1;
}

namespace {

// The tool writes UTF-8.
[[maybe_unused]] const BOOL console = SetConsoleOutputCP(CP_UTF8);

}  // namespace
