#include "platform/posix_profile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/posix_calls.h"

namespace zb {
namespace {

constexpr char FileName[] = "QVDB4XX.INI";

// No more of the file than this is looked at.
constexpr size_t MaxProfile = 64 * 1024;

struct Span {
    const char* begin;
    const char* end;

    size_t Length() const { return static_cast<size_t>(end - begin); }
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// The value of a digit, or what no base reaches.
uint32_t DigitOf(char c) {
    if (c >= '0' && c <= '9') return static_cast<uint32_t>(c - '0');
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? static_cast<uint32_t>(c - 'a' + 10) : 99;
}

Span Trimmed(Span text) {
    while (text.begin < text.end && IsBlank(*text.begin)) text.begin++;
    while (text.begin < text.end && IsBlank(text.end[-1])) text.end--;
    return text;
}

Span Unquoted(Span text) {
    if (text.Length() < 2) return text;
    char quote = *text.begin;
    if ((quote != '"' && quote != '\'') || text.end[-1] != quote) return text;
    return {text.begin + 1, text.end - 1};
}

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool IsName(Span text, const char* name) {
    if (text.Length() != strlen(name)) return false;
    for (size_t i = 0; i < text.Length(); i++)
        if (Upper(text.begin[i]) != Upper(name[i])) return false;
    return true;
}

const char* Find(Span text, char c) { return static_cast<const char*>(memchr(text.begin, c, text.Length())); }

// The file, or -1. One that exists and can't be read ends the search too.
int OpenProfile() {
    char path[4096];
    auto open = [](const char* name) {
        return posixCalls.open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0);
    };
    auto missing = [] { return errno == ENOENT || errno == ENOTDIR; };

    int fd = open(FileName);
    if (fd >= 0 || !missing()) return fd;

    const char* settings = getenv("XDG_CONFIG_HOME");
    const char* home = getenv("HOME");
    int length = 0;
    if (settings && *settings)
        length = snprintf(path, sizeof path, "%s/%s", settings, FileName);
    else if (home && *home)
        length = snprintf(path, sizeof path, "%s/.config/%s", home, FileName);
    if (length > 0 && static_cast<size_t>(length) < sizeof path) {
        fd = open(path);
        if (fd >= 0 || !missing()) return fd;
    }
    snprintf(path, sizeof path, "/etc/%s", FileName);
    return open(path);
}

// The file's text in memory that the caller frees, or null.
char* ReadProfile(size_t* length) {
    int fd = OpenProfile();
    if (fd < 0) return nullptr;
    auto* text = static_cast<char*>(posixCalls.realloc(nullptr, MaxProfile));
    *length = 0;
    while (text && *length < MaxProfile) {
        ssize_t got = posixCalls.pread(fd, text + *length, MaxProfile - *length, static_cast<off_t>(*length));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        *length += static_cast<size_t>(got);
    }
    posixCalls.close(fd);
    return text;
}

// The value of the key that stands first in the first section of the name. A key
// without an equals sign has none.
bool FindValue(Span text, const char* section, const char* key, Span* value) {
    bool inside = false;
    while (text.begin < text.end) {
        const char* newline = Find(text, '\n');
        Span line = Trimmed({text.begin, newline ? newline : text.end});
        text.begin = newline ? newline + 1 : text.end;
        if (line.Length() == 0 || *line.begin == ';') continue;
        const char* bracket = line.end;
        while (bracket > line.begin && bracket[-1] != ']') bracket--;
        if (*line.begin == '[' && bracket > line.begin) {
            if (inside) return false;
            inside = IsName(Trimmed({line.begin + 1, bracket - 1}), section);
            continue;
        }
        const char* equals = Find(line, '=');
        if (!inside || !IsName(Trimmed({line.begin, equals ? equals : line.end}), key)) continue;
        if (!equals) return false;
        *value = Unquoted(Trimmed({equals + 1, line.end}));
        return true;
    }
    return false;
}

}  // namespace

bool ProfileValue(const char* section, const char* key, char* text, size_t size) {
    if (size == 0) return false;
    text[0] = 0;
    size_t length;
    char* profile = ReadProfile(&length);
    if (!profile) return false;
    Span value;
    bool found = FindValue({profile, profile + length}, section, key, &value);
    if (found) {
        size_t kept = value.Length() < size ? value.Length() : size - 1;
        memcpy(text, value.begin, kept);
        text[kept] = 0;
    }
    free(profile);
    return found;
}

int32_t ProfileInteger(const char* text) {
    while (*text && static_cast<unsigned char>(*text) <= ' ') text++;
    bool negative = *text == '-';
    if (negative || *text == '+') text++;
    uint32_t base = 10;
    if (*text == '0') {
        if (text[1] == 'x') base = 16;
        if (text[1] == 'o') base = 8;
        if (text[1] == 'b') base = 2;
        if (base != 10) text += 2;
    }
    uint32_t number = 0;  // wraps, as 32 bits do
    for (uint32_t digit; (digit = DigitOf(*text)) < base; text++) number = number * base + digit;
    return static_cast<int32_t>(negative ? 0 - number : number);
}

}  // namespace zb
