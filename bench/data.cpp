#include "data.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <random>

#include "files.h"

namespace bench {

Sizes sizes;

namespace {

// A bijection on 24 bits: odd multipliers, and shifts that fold the high bits in.
uint32_t Mix(uint32_t n) {
    n = (n * 0x9E3779B1u) & 0xFFFFFF;
    n ^= n >> 13;
    n = (n * 0x85EBCA6Bu) & 0xFFFFFF;
    n ^= n >> 11;
    return n;
}

constexpr char Syllables[64][4] = {"an",  "be",  "cor", "da", "el",  "fa",  "gar", "hu",  "il",  "jo",  "ka",
                                   "lor", "ma",  "ne",  "ol", "pe",  "qui", "ra",  "so",  "ta",  "ul",  "va",
                                   "wen", "xi",  "ya",  "zo", "ar",  "bo",  "ci",  "dor", "er",  "fi",  "go",
                                   "ha",  "is",  "ju",  "ke", "li",  "mo",  "nu",  "or",  "pa",  "re",  "sa",
                                   "te",  "um",  "vi",  "wa", "ye",  "zu",  "al",  "bra", "cla", "dri", "en",
                                   "fro", "gli", "hor", "in", "kru", "la",  "mi",  "no",  "pru"};

void Fill(char* to, int width, const char* from) {
    size_t length = strnlen(from, static_cast<size_t>(width));
    memcpy(to, from, length);
    memset(to + length, ' ', static_cast<size_t>(width) - length);
    to[width] = 0;
}

}  // namespace

Sizes SizesToTime(uint32_t records) {
    auto atMost = [records](double share, uint32_t most) {
        return std::clamp(static_cast<uint32_t>(records * share), 1u, most);
    };
    return {.records = records,
            .lookups = atMost(2, 200000),
            .ranges = atMost(0.05, 5000),
            .changes = atMost(0.1, 100000),
            .updates = atMost(0.5, 200000),
            .appends = atMost(1, 300000),
            .memos = atMost(0.2, 20000),
            .binds = 2000000};
}

Sizes SizesToCount(uint32_t records) {
    Sizes few = SizesToTime(records);
    few.lookups = std::min(few.lookups, 2000u);
    few.ranges = std::min(few.ranges, 50u);
    few.appends = few.updates = std::min(few.updates, 2000u);
    few.memos = std::min(few.memos, 500u);
    few.binds = 2000;
    return few;
}

Person PersonOf(uint32_t number) {
    Person person{};
    uint32_t drawn = Mix(number);
    char text[64];
    snprintf(text, sizeof text, "%s%s%s%s", Syllables[drawn >> 18], Syllables[drawn >> 12 & 63],
             Syllables[drawn >> 6 & 63], Syllables[drawn & 63]);
    // Some syllables run together to the same text; the number makes it unique.
    snprintf(text + strlen(text), 24, " %07u", number);
    text[0] = static_cast<char>(text[0] - 'a' + 'A');
    Fill(person.name, NameWidth, text);

    snprintf(text, sizeof text, "%s %s, house %u", Syllables[drawn & 63], Syllables[drawn >> 9 & 63],
             drawn % 997);
    Fill(person.text, TextWidth, text);
    person.amount = (drawn * 61.0 + number % 61) / 100.0;
    snprintf(person.date, sizeof person.date, "%04u%02u%02u", 1950 + drawn % 70, 1 + drawn % 12,
             1 + drawn % 28);
    person.flag = drawn & 1;
    return person;
}

int Trimmed(const char* text, int width) {
    while (width > 0 && text[width - 1] == ' ') width--;
    return width;
}

void Sortable(double amount, unsigned char (&bytes)[8]) {
    auto bits = std::bit_cast<uint64_t>(amount) | uint64_t{1} << 63;
    for (int i = 0; i < 8; i++) bytes[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
}

Key KeyOf(uint32_t number) {
    Person person = PersonOf(number);
    Key key{};
    memcpy(key.name, person.name, sizeof key.name);
    key.nameLength = Trimmed(key.name, NameWidth);
    key.amount = person.amount;
    Sortable(key.amount, key.sortable);
    key.record = number;
    return key;
}

std::vector<Key> DrawKeys(size_t count, uint32_t first, uint32_t range) {
    std::mt19937 random(4711);
    std::vector<Key> keys;
    keys.reserve(count);
    for (size_t i = 0; i < count; i++) keys.push_back(KeyOf(first + random() % range));
    return keys;
}

int16_t OpenData(const char* name, uint16_t mode) {
    uint16_t handle;
    CheckCode(ZBDDOPENX(&handle, name, mode), name);
    return static_cast<int16_t>(handle);
}

void CreateData(const char* name) {
    ZbFieldSpec specs[] = {{"NAME", 'C', NameWidth, 0},
                           {"TEXT", 'C', TextWidth, 0},
                           {"AMOUNT", 'N', AmountWidth, 2},
                           {"DATE", 'D', 8, 0},
                           {"FLAG", 'L', 1, 0}};
    CheckCode(ZBDDCREATE(name, 5, specs, ZB_DialectClassic), name);
}

void MakeDataFile() {
    CreateData(DataName);
    int64_t first = FirstRecordAt();
    FILE* file = fopen(DataName, "r+b");
    Check(file && fseek(file, 4, SEEK_SET) == 0, DataName);
    for (int shift = 0; shift < 32; shift += 8) fputc(static_cast<int>(sizes.records >> shift & 0xFF), file);
    fseek(file, first, SEEK_SET);
    for (uint32_t i = 1; i <= sizes.records; i++) {
        Person person = PersonOf(i);
        fprintf(file, " %s%s%*.2f%s%c", person.name, person.text, AmountWidth, person.amount, person.date,
                person.flag ? 'T' : 'F');
    }
    fputc(0x1A, file);
    Check(fclose(file) == 0, DataName);
}

int64_t FirstRecordAt() {
    unsigned char header[10] = {};
    FILE* file = fopen(DataName, "rb");
    Check(file && fread(header, sizeof header, 1, file) == 1 && fclose(file) == 0, DataName);
    return header[8] | header[9] << 8;
}

}  // namespace bench
