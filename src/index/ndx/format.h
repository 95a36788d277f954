// The NDX format: one index a file, in units of 512 bytes. Unit 0 is the header,
// every other unit a tree page or a free one; a page is addressed by its unit
// number. Numbers are little-endian.
//
//   header
//     0    4  RootPage        1 at creation
//     4    4  PageCount       units in the file, the header included
//    12    2  KeyLength       1 to 100
//    14    2  KeysPerPage     504 / EntrySize
//    16    2  KeyType         0 character, 1 numeric; a date key is numeric
//    18    2  EntrySize       KeyLength rounded up to a multiple of 4, plus 8
//    23    1  Unique          1 or 0
//    24  224  KeyExpression   zero-terminated, upper case, without blanks
//
//   page
//     0    4  KeyCount        only the lowest byte is used, signed
//     4       entries         EntrySize bytes each
//
//   entry
//     0    4  ChildPage       the subtree of the keys up to this entry's; 0 in a leaf
//     4    4  RecordNumber    0 in an interior page
//     8       KeyBytes
//
// Keys stand in the leaves, in order. An interior page with n keys has n + 1
// entries: the key of each of the first n is the highest of its subtree, and the
// last counts for its ChildPage alone. A page is a leaf when the ChildPage of its
// first entry is 0.
//
//   free page: 0xFF in the lowest byte of KeyCount, and at offset 4 the number of
//   the next free page, or 0. The head of the chain lives in the open index only;
//   the close moves live pages into the free ones and cuts the file.
//
// The index of a C(5) key (EntrySize 16, 31 keys a page) that holds ANNA for
// record 1:
//
//   000  01 00 00 00  02 00 00 00  00 00 00 00  05 00  1F 00  00 00  10 00 ...
//   018  4E 41 4D 45 00                                       "NAME"
//   200  01 00 00 00                                          one key
//   204  00 00 00 00  01 00 00 00  41 4E 4E 41 20  00 00 00   "ANNA "
#pragma once

#include "core/bytes.h"
#include "index/index.h"
#include "index/pool.h"

namespace zb {

inline constexpr int NdxPageSize = 512;    // on disk
inline constexpr int NdxHeaderRead = 248;  // the bytes of the header that mean something
inline constexpr int NdxEntriesAt = 4;     // on disk
inline constexpr int NdxMaxExpression = 220;
inline constexpr uint8_t NdxFreePage = 0xFF;  // on disk, where a live page has its count

enum NdxKeyType : uint16_t { NdxCharacter = 0, NdxNumeric = 1 };

// An open NDX file.
struct NdxFile {
    uint16_t handle;  // of the file layer
    uint16_t flags;   // ObjectFlags

    uint32_t freeHead;
    uint32_t rootPage;
    uint32_t pageCount;
    uint16_t keyBytes;
    uint16_t keysPerPage;
    uint16_t keyType;
    uint16_t entrySize;
    uint8_t unique;
    char expression[224];
    int8_t reportedFlag;

    PagePool pool;
    Position position;
    int8_t halfKeys;
    bool headerDirty;
    char fileName[261];

    int keyLength() const { return keyBytes; }
    bool readOnly() const { return flags & 1; }
};

// A page in hand.
struct NdxPage {
    uint8_t* data;
    int entrySize;
    uint32_t number;

    int count() const { return static_cast<int8_t>(data[0]); }
    void setCount(int count) { data[0] = static_cast<uint8_t>(count); }
    bool isFree() const { return data[0] == NdxFreePage; }
    int offset(int i) const { return NdxEntriesAt + i * entrySize; }
    uint8_t* entry(int i) const { return data + offset(i); }
    uint32_t child(int i) const { return LoadLe32(entry(i)); }
    void setChild(int i, uint32_t page) { StoreLe32(entry(i), page); }
    uint32_t record(int i) const { return LoadLe32(entry(i) + 4); }
    void setRecord(int i, uint32_t record) { StoreLe32(entry(i) + 4, record); }
    uint8_t* key(int i) const { return entry(i) + 8; }
    bool isLeaf() const { return child(0) == 0; }
    uint32_t freeLink() const { return LoadLe32(data + 4); }
    void setFreeLink(uint32_t page) { StoreLe32(data + 4, page); }
};

}  // namespace zb
