// What the four index families share below their trees: the position, key
// comparison, key encodings, and the handling of key expressions.
//
// The families differ where their formats do, and the differences are kept:
//
//                   NDX              NTX             IDX               MDX
//   page            512              1024            512               blockUnits * 512
//   addressed by    number           byte offset     byte offset       number
//   keys live in    leaves           all pages       leaves            leaves
//   last child      entry KeyCount   item KeyCount   none              trailing pointer
//   leaf when       first child 0    item's child 0  attribute bit 1   trailing pointer 0
//   page search     bisection        item by item    item by item      bisection
//   short page      merge or stay    rotate, merge   stays till empty  merge, redistribute
//   numbers         double           text            sortable double   packed decimal
#pragma once

#include <bit>
#include <cstring>
#include <initializer_list>

#include "core/bytes.h"
#include "core/library.h"

namespace zb {

// Key length limits of every family.
inline constexpr int MinKeyLength = 1;
inline constexpr int MaxKeyLength = 100;

// A key in stored form, with room for its terminator and for a number.
using KeyBuffer = uint8_t[MaxKeyLength + 12];

// One level of the way from the root to the place that is worked on.
struct PathEntry {
    uint32_t page;
    int16_t slot;
};

// No legal tree is deeper, whatever the keys a page.
inline constexpr int MaxLevels = 32;

// Where an index stands. CurrentKey and CurrentRecord are the whole of it
// between calls; the path lives inside one call.
struct Position {
    KeyBuffer currentKey;
    uint32_t currentRecord;  // 0: no position
    PathEntry path[MaxLevels];
    int16_t levels;     // how deep a legal tree of this index can be
    int16_t pathDepth;  // the level worked on; -1 when no path is held

    PathEntry& top() { return path[pathDepth]; }

    // One level down. False when no legal tree goes so deep: the pages run in a
    // circle.
    bool Push(uint32_t page, int slot) {
        if (pathDepth + 1 >= levels) return false;
        path[++pathDepth] = {page, static_cast<int16_t>(slot)};
        return true;
    }
    void Start(uint32_t page, int slot) {
        pathDepth = 0;
        path[0] = {page, static_cast<int16_t>(slot)};
    }
};

// Levels that a tree can have: 1, and one more for each time that a count
// starting at 1 has to be multiplied by `factor` to reach `limit`.
int TreeLevels(int factor, int64_t limit);
inline constexpr int64_t MaxTreeSize = 0x7FFFFFFF;

// The names under which a family's key operations log.
struct UnitNames {
    const char *top, *bottom, *next, *previous, *current, *find, *add, *remove, *make;
};

// The record number by which a search tells that its key lies before all others.
inline constexpr uint32_t BeforeFirst = 0xFFFFFFFF;

// Compares texts by the collating sequence: bytes that are equal, or both
// outside it, count as equal. Below 0, 0 or above 0.
int CollateText(const uint8_t* a, const uint8_t* b, int length);

// Compares character keys: by byte value, or by the collating sequence when
// "asciisort" is 0.
inline int CompareText(const uint8_t* a, const uint8_t* b, int length) {
    if (!library.asciiSort) return CollateText(a, b, length);
    // Most keys differ in their first bytes, which compare as one number.
    if (length >= 8) {
        uint64_t left = LoadBe64(a);
        uint64_t right = LoadBe64(b);
        if (left != right) return left < right ? -1 : 1;
    }
    return memcmp(a, b, static_cast<size_t>(length));
}

// The same with each '?' of `a` matching any byte, and always by byte value.
int CompareWild(const uint8_t* a, const uint8_t* b, int length);

// A double as a number that sorts, unsigned, as the doubles do; and back.
inline uint64_t SortableDouble(double value) {
    auto bits = std::bit_cast<uint64_t>(value);
    return bits >> 63 ? ~bits : bits | uint64_t{1} << 63;
}
inline double DoubleOfSortable(uint64_t sortable) {
    return std::bit_cast<double>(sortable >> 63 ? sortable & ~(uint64_t{1} << 63) : ~sortable);
}

// The day count that the date keys of NDX and MDX hold for a blank date: it
// sorts behind every real one.
inline constexpr double BlankDate = 1e100;

// Removes every blank from an expression, in place, and tells the length left.
size_t SqueezeBlanks(char* expression);

// Copies a text with its terminator, upper-cased; `to` has room.
void CopyUpper(char* to, const char* from);

// Writes 32-bit fields that follow one another in an index's header, committed.
Code WriteHeaderFields(uint16_t file, int offset, std::initializer_list<uint32_t> values);

// The three flag bits that the info records report of an open file.
uint16_t AccessFlags(uint16_t before, uint16_t objectFlags);

// Copies a key expression into an info record's 100 bytes, its terminator with
// it where that fits.
void CopyExpression(char (&field)[100], const char* expression);

}  // namespace zb
