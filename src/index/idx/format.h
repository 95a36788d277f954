// The IDX format: one index a file, in units of 512 bytes, in a standard and a
// compact form. A page is addressed by its byte offset. Header fields and the
// sibling offsets of pages are little-endian; record numbers and child offsets
// in entries are big-endian, so that they compare as bytes.
//
//   header                  standard  compact
//     0    4  RootPage      512       1024       at creation
//     4    4  FreeHead      -1        0          first free page; -1 and 0: none
//     8    4  FileEnd       1024      0          0: as long as the file is
//    12    2  KeyLength                          1 to 100
//    14    1  IndexFlags                         bit 0 unique, bits 5 to 7 compact
//    16  220  KeyExpression           zeros      zero-terminated, upper case, no blanks
//   502    2  Descending    0                    reported, never acted on
//   504    2  ForLength     0         length + 1 of the expression
//   506    2  ExpressionStart  0      1          less 1, plus 512: where it stands
//   510    2  ExpressionLength 0      length + 1
//
//   the unit at 512 of a compact file holds the expression, zero-terminated
//
//   page
//     0    2  Attributes    bit 0 root, bit 1 leaf; only the low byte is used
//     2    2  KeyCount      only the low byte is used, signed
//     4    4  LeftPage      -1: none
//     8    4  RightPage     -1: none
//    12       entries       EntrySize bytes each
//
//   entry of a leaf (standard)   KeyBytes, record number
//   entry above the leaves       KeyBytes, in compact form the record number, child page
//
// Keys stand in the leaves, in order. An entry above the leaves repeats the
// highest key of its child's subtree. There is no child beyond the last entry.
// Walks go by the path from the root; the sibling offsets are kept for others.
//
//   leaf of a compact file, from offset 12
//    12    2  FreeSpace     488 when empty
//    14    4  RecordMask    the low RecordBits bits
//    18    1  DupMask
//    19    1  TrailMask
//    20    1  RecordBits
//    21    1  DupBits       n, the bits that KeyLength takes
//    22    1  TrailBits     n
//    23    1  EntryBytes    2 where n is 1, 3 up to 5, else 4
//    24       packed entries, upward
//   512       key bytes, downward: the first entry's end here
//
//   packed entry, a little-endian number: from the low bits up the record number,
//   how many bytes at the front of the key equal the key before it, and how many
//   at its end do. What lies between is stored. Before the first key stands one
//   of fill bytes alone: blanks for character keys, otherwise zeros.
//
//   free page: its first 4 bytes hold the next free page's offset, or the end
//   mark that FreeHead had.
//
// The index of a C(5) key that holds ANNA for record 1, standard:
//
//   000  00 02 00 00  FF FF FF FF  00 04 00 00  05 00  00  00
//   010  4E 41 4D 45 00                                             "NAME"
//   200  03 00  01 00  FF FF FF FF  FF FF FF FF                     root, leaf, one key
//   20C  41 4E 4E 41 20  00 00 00 01                                "ANNA ", record 1
//
// and as a build packs it (n is 3, RecordBits 18: trailing count 1, front 0,
// record 1 make 001 000 000000000000000001 in bits):
//
//   000  00 04 00 00  00 00 00 00  00 00 00 00  05 00  20  00
//   1F8  05 00  01 00  00 00  05 00
//   200  4E 41 4D 45 00
//   400  03 00  01 00  FF FF FF FF  FF FF FF FF
//   40C  E1 01  FF FF 03 00  07  07  12  03  03  03
//   418  01 00 20
//   5FC  41 4E 4E 41                                                "ANNA"
#pragma once

#include "core/bytes.h"
#include "index/index.h"
#include "index/pool.h"

namespace zb {

inline constexpr int IdxPageSize = 512;        // on disk
inline constexpr int IdxEntriesAt = 12;        // on disk
inline constexpr int IdxEntryBytesAt = 23;     // on disk
inline constexpr int IdxPackedAt = 24;         // on disk
inline constexpr int IdxEmptyLeafSpace = 488;  // on disk: a packed leaf behind its header
inline constexpr int IdxMaxExpression = 220;
inline constexpr int IdxMaxEntryBytes = 4;
inline constexpr uint32_t IdxNone = 0xFFFFFFFF;  // on disk: no sibling, no free page

enum IdxIndexFlags : uint8_t { IdxUnique = 0x01, IdxCompact = 0x20, IdxCompactMask = 0xE0 };  // on disk
enum IdxAttributes : uint8_t { IdxRoot = 1, IdxLeaf = 2 };                                    // on disk

// An open IDX file.
struct IdxFile {
    uint16_t handle;  // of the file layer
    uint16_t flags;   // ObjectFlags

    int32_t fileLength;   // bounds the pages, and is where a new one goes
    uint32_t recordMask;  // of the packed leaves: 0 until one was seen, then kept

    uint32_t rootPage;
    uint32_t freeHead;
    uint32_t fileEnd;
    uint16_t keyBytes;
    uint8_t indexFlags;
    uint16_t descending;
    char expression[224];
    int8_t reportedFlag;

    PagePool pool;
    Position position;
    int8_t entrySize;
    int8_t maxEntries;
    int8_t halfEntries;
    int8_t upperEntries;
    int16_t childOffset;
    bool headerDirty;
    uint8_t keyType;   // '?' until the caller tells it
    uint8_t fillByte;  // stands for what a packed leaf doesn't store
    char fileName[261];

    int keyLength() const { return keyBytes; }
    bool readOnly() const { return flags & 1; }
    bool unique() const { return indexFlags & IdxUnique; }
    bool compact() const { return indexFlags & IdxCompactMask; }
    bool hasFreePage() const { return freeHead != 0 && freeHead != IdxNone; }
};

// A page in hand.
struct IdxPage {
    uint8_t* data;
    const IdxFile* index;
    uint32_t offset;

    int attributes() const { return data[0]; }
    void setAttributes(int attributes) const { data[0] = static_cast<uint8_t>(attributes); }
    bool isLeaf() const { return data[0] & IdxLeaf; }
    bool isPacked() const { return isLeaf() && index->compact(); }
    int count() const { return static_cast<int8_t>(data[2]); }
    void setCount(int count) const { data[2] = static_cast<uint8_t>(count); }
    // A packed leaf of more than 127 entries looks as if it had less than none:
    // of those the first alone is seen.
    int lastSlot() const { return count() > 0 ? count() - 1 : 0; }
    uint32_t left() const { return LoadLe32(data + 4); }
    void setLeft(uint32_t page) const { StoreLe32(data + 4, page); }
    void setRight(uint32_t page) const { StoreLe32(data + 8, page); }

    uint8_t* entry(int i) const { return data + IdxEntriesAt + i * index->entrySize; }
    uint8_t* key(int i) const { return entry(i); }
    uint32_t record(int i) const { return LoadBe32(entry(i) + index->keyBytes); }
    void setRecord(int i, uint32_t record) const { StoreBe32(entry(i) + index->keyBytes, record); }
    uint32_t child(int i) const { return LoadBe32(entry(i) + index->childOffset); }
    void setChild(int i, uint32_t page) const { StoreBe32(entry(i) + index->childOffset, page); }

    int freeSpace() const { return LoadLe16(data + 12); }
    void setFreeSpace(int bytes) const { StoreLe16(data + 12, static_cast<uint16_t>(bytes)); }
    uint32_t recordMask() const { return LoadLe32(data + 14); }
    uint8_t dupMask() const { return data[18]; }
    uint8_t trailMask() const { return data[19]; }
    int recordBits() const { return data[20]; }
    int dupBits() const { return data[21]; }
    int entryBytes() const { return data[IdxEntryBytesAt]; }
    int packedAt(int i) const { return IdxPackedAt + i * entryBytes(); }
    // Where the stored bytes of the last key begin, if the counts are right.
    int keysBottom() const { return packedAt(count()) + freeSpace(); }
};

}  // namespace zb
