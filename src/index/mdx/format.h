// The MDX format: up to 47 indexes, called tags, in one file, with one free list.
// A page number counts units of 512 bytes from the start of the file, whatever
// the size of a block. A block, what is taken and given back, is blockUnits units
// long, so the numbers of blocks step by blockUnits. Numbers are little-endian.
//
//   0     the header, 48 bytes in a unit
//   512   the tag table, 48 rows of 32 bytes
//   2048  blocks: tag headers, tree pages, free ones
//
//   header
//     0    1  version         2
//     1    3  year, month, day of creation; the year less 1900, 80 to 119
//     4   16  file name       without directory and extension, upper case
//    20    2  blockUnits      1 to 32
//    22    2  blockBytes      blockUnits * 512
//    24    1  production flag
//    25    1  48              rows of the tag table
//    26    1  32              bytes of a row
//    28    2  tagCount        0 to 47, signed
//    32    4  nextPage        the page number where the file grows
//    36    4  freeHead        the first free block, 0 without one
//    40    4  freeCount
//    44    3  year, month, day of update; written at creation only
//
//   row of the tag table; row 0 is the head of the list, tag n is row n
//     0    4  page of the tag's header
//     4   11  name            upper case, at most 10 characters, zero-padded
//    17    1  row of the next tag, 0 at the end: written, never followed
//    18    1  row of the tag before
//    19    1  2
//    20    1  key type        C, D or N
//
//   tag header, a block
//     0    4  rootPage
//     8    1  tagFlags        0x40 unique, 0x08 marked, 0x10 plain expression
//     9    1  key type
//    12    2  keyLength       1 to 100
//    14    2  maxKeys         keys of a full page
//    16    2  date mark       1 for a date key
//    18    2  entryLength     keyLength rounded up to a multiple of 4, plus 4
//    24       expression      zero-terminated, upper case, without blanks
//
//   tree page, a block
//     0    4  keyCount        only the low two bytes are used
//     4    4  0; in a free page the number of the next free one
//     8       entries         a value of 4 bytes and the key, entryLength in all
//             trailing pointer  a value behind the last entry
//
// Keys stand in the leaves, in order, each with its record number as value. In a
// branch the value is the page of the child that holds the keys up to the entry's,
// and the trailing pointer is the last child. Nothing but a trailing pointer that
// isn't 0 tells a branch from a leaf.
//
// A tag over C(5) keys in blocks of one unit (entryLength 12, 41 keys a page) that
// holds ANNA for record 1: the tag's header at page 4, its root at page 5.
//
//   800  05 00 00 00  00 00 00 00  10 43 00 00  05 00  29 00  00 00  0C 00 ...
//   818  4E 41 4D 45 00                                       "NAME"
//   A00  01 00 00 00  00 00 00 00                             one key
//   A08  01 00 00 00  41 4E 4E 41 20 00 00 00                 1 "ANNA "
//   A14  00 00 00 00                                          no child: a leaf
#pragma once

#include "core/bytes.h"
#include "index/index.h"
#include "index/pool.h"

namespace zb {

inline constexpr int MdxUnit = 512;       // on disk
inline constexpr int MdxHeaderSize = 48;  // on disk
inline constexpr int MdxTableAt = 512;    // on disk
inline constexpr int MdxRows = 48;        // on disk
inline constexpr int MdxRowSize = 32;     // on disk
inline constexpr int MdxTableSize = MdxRows * MdxRowSize;
inline constexpr uint32_t MdxFirstPage = 4;   // on disk: behind the tag table
inline constexpr int MdxEntriesAt = 8;        // on disk
inline constexpr int MdxTagHeaderRead = 248;  // the bytes of a tag header that mean something
inline constexpr int MdxMaxUnits = 32;
inline constexpr int MdxMaxBlock = MdxMaxUnits * MdxUnit;
inline constexpr int MdxMaxTags = MdxRows - 1;
inline constexpr size_t MdxMaxTagName = 10;
inline constexpr size_t MdxMaxExpression = 220;

enum MdxTagFlags : uint8_t { MdxUnique = 0x40, MdxPlain = 0x10, MdxMarked = 0x08, MdxUnknownFlags = 0xA7 };

struct MdxFile;
class MdxKept;

// One tag. While it isn't attached only the fields of its table row count.
struct MdxTag {
    uint32_t headerPage;
    char name[11];
    uint8_t nextTag;
    uint8_t previousTag;
    uint8_t keyType;

    bool attached;
    uint8_t tagFlags;
    MdxFile* file;  // as the last bind found it
    MdxKept* kept;  // while the tag is being built: where its pages are
    uint32_t rootPage;
    int16_t keyBytes;
    int16_t maxKeys;
    int16_t minKeys;
    int16_t dateMark;
    int16_t entryLength;
    char expression[224];
    PagePool pool;
    Position position;

    int keyLength() const { return keyBytes; }
    bool unique() const { return tagFlags & MdxUnique; }
};

// An open MDX file.
struct MdxFile {
    uint16_t handle;  // of the file layer
    uint16_t flags;   // ObjectFlags
    uint8_t header[MdxHeaderSize];
    uint8_t table[MdxTableSize];  // as read at the open, and as written since
    char path[261];
    int8_t reported;
    MdxTag tags[MdxRows];

    int blockUnits() const { return LoadLe16(header + 20); }
    int blockBytes() const { return LoadLe16(header + 22); }
    int tagCount() const { return static_cast<int16_t>(LoadLe16(header + 28)); }
    void setTagCount(int count) { StoreLe16(header + 28, static_cast<uint16_t>(count)); }
    uint32_t nextPage() const { return LoadLe32(header + 32); }
    void setNextPage(uint32_t page) { StoreLe32(header + 32, page); }
    uint32_t freeHead() const { return LoadLe32(header + 36); }
    void setFreeHead(uint32_t page) { StoreLe32(header + 36, page); }
    uint32_t freeCount() const { return LoadLe32(header + 40); }
    void setFreeCount(uint32_t count) { StoreLe32(header + 40, count); }
    bool readOnly() const { return flags & 1; }
    bool inFile(uint32_t page) const { return page >= MdxFirstPage && page < nextPage(); }
};

// A page in hand.
struct MdxPage {
    uint8_t* data;
    int entryLength;
    uint32_t number;

    int count() const { return LoadLe16(data); }
    void setCount(int count) { StoreLe16(data, static_cast<uint16_t>(count)); }
    int offset(int i) const { return MdxEntriesAt + i * entryLength; }
    uint8_t* entry(int i) const { return data + offset(i); }
    uint32_t value(int i) const { return LoadLe32(entry(i)); }
    void setValue(int i, uint32_t value) { StoreLe32(entry(i), value); }
    uint32_t child(int i) const { return value(i); }
    uint32_t record(int i) const { return value(i); }
    uint8_t* key(int i) const { return entry(i) + 4; }
    bool isLeaf() const { return value(count()) == 0; }
    uint32_t freeLink() const { return LoadLe32(data + 4); }
    void setFreeLink(uint32_t page) { StoreLe32(data + 4, page); }
};

}  // namespace zb
