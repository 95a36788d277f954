#include "index/index.h"

#include <algorithm>

#include "core/ascii.h"
#include "core/bytes.h"
#include "file/operations.h"

namespace zb {
namespace {

// The collating sequence, lowest byte first. Bytes that it lacks sort behind it
// and equal each other.
constexpr uint8_t CollationOrder[130] = {
    ' ',  '0',  '1',  '2', '3',  '4',  '5',  '6',  '7',  '8',  '9', 'A',  0xC4, 0xC5, 'B',  'C',  0xC7,
    'D',  'E',  0xC9, 'F', 'G',  'H',  'I',  'J',  'K',  'L',  'M', 'N',  0xD1, 'O',  0xD6, 'P',  'Q',
    'R',  'S',  'T',  'U', 0xDC, 'V',  'W',  'X',  'Y',  'Z',  'a', 0xE1, 0xE0, 0xE2, 0xE4, 0xE5, 'b',
    'c',  0xE7, 'd',  'e', 0xE9, 0xE8, 0xEA, 0xEB, 'f',  'g',  'h', 'i',  0xED, 0xEC, 0xEE, 0xEF, 'j',
    'k',  'l',  'm',  'n', 0xF1, 'o',  0xF3, 0xF2, 0xF4, 0xF6, 'p', 'q',  'r',  's',  't',  'u',  0xFA,
    0xF9, 0xFB, 0xFC, 'v', 'w',  'x',  'y',  0xFF, 'z',  '(',  ')', '[',  ']',  '{',  '}',  '<',  '>',
    '=',  '+',  '-',  '%', '*',  '.',  ',',  ';',  ':',  '?',  '!', '/',  '\\', '|',  '@',  '&',  '#',
    '$',  0xA3, '"',  '`', '\'', '^',  '~',  '_',  0xB5, 0xB0, 0xA8};

struct Ranks {
    uint8_t of[256];
};

constexpr uint8_t Unranked = 255;

constexpr Ranks RankBytes() {
    Ranks ranks{};
    for (uint8_t& rank : ranks.of) rank = Unranked;
    for (int i = 0; i < 130; i++) ranks.of[CollationOrder[i]] = static_cast<uint8_t>(i);
    return ranks;
}

constexpr Ranks ranks = RankBytes();

}  // namespace

int CollateText(const uint8_t* a, const uint8_t* b, int length) {
    for (int i = 0; i < length; i++)
        if (a[i] != b[i])
            if (int difference = ranks.of[a[i]] - ranks.of[b[i]]) return difference;
    return 0;
}

int CompareWild(const uint8_t* a, const uint8_t* b, int length) {
    for (int i = 0; i < length; i++)
        if (a[i] != '?' && a[i] != b[i]) return a[i] - b[i];
    return 0;
}

int TreeLevels(int factor, int64_t limit) {
    int levels = 1;
    for (int64_t size = 1; size < limit && levels < MaxLevels; size *= factor) levels++;
    return levels;
}

size_t SqueezeBlanks(char* expression) {
    char* end = std::remove(expression, expression + strlen(expression), ' ');
    *end = 0;
    return static_cast<size_t>(end - expression);
}

void CopyUpper(char* to, const char* from) {
    while ((*to++ = AsciiUpper(*from++))) {
    }
}

Code WriteHeaderFields(uint16_t file, int offset, std::initializer_list<uint32_t> values) {
    uint8_t bytes[16];
    int length = 0;
    for (uint32_t value : values) {
        StoreLe32(bytes + length, value);
        length += 4;
    }
    if (Hseek(file, offset) < 0) return CurrentCode();
    return Hwrite(file, bytes, static_cast<int16_t>(length), true);
}

uint16_t AccessFlags(uint16_t before, uint16_t objectFlags) {
    unsigned bits = (objectFlags & 1) | (objectFlags & 4) >> 1 | (objectFlags & 2) << 1;
    return static_cast<uint16_t>((before & ~7u) | bits);
}

void CopyExpression(char (&field)[100], const char* expression) {
    memcpy(field, expression, std::min(strlen(expression) + 1, sizeof field));
}

}  // namespace zb
