// The NTX format: one index a file, in units of 1024 bytes. Unit 0 is the header,
// every other unit a tree page or a free one; a page is addressed by its byte
// offset in the file. Numbers are little-endian.
//
//   header
//     0    2  Signature       6 at creation, never looked at
//     2    2  Version         1 at creation, one more with every change
//     4    4  RootPage        1024 at creation
//     8    4  FreeHead        the first free page, or 0
//    12    2  ItemSize        KeyLength + 8
//    14    2  KeyLength       1 to 100
//    16    2  Decimals        of a numeric key, else 0
//    18    2  MaxKeys         (1020 / (KeyLength + 10) - 1), made even downwards
//    20    2  HalfKeys        MaxKeys / 2
//    22  256  KeyExpression   zero-terminated, upper case, without blanks
//   278    2  Unique          1 or 0
//
//   page
//     0    2  KeyCount        only the low byte is used, signed
//     2       ItemTable       MaxKeys + 1 numbers of 2 bytes: where in the page the
//                             items stand, in key order
//             items           MaxKeys + 1 slots of ItemSize bytes each
//
//   item
//     0    4  ChildPage       the subtree of the keys below this item's; 0 in a leaf
//     4    4  RecordNumber
//     8       KeyBytes        text, filled with blanks
//
// Every key stands once, in a leaf or in an interior page. A page with n keys has
// them in the items 0 to n - 1; item n counts for its ChildPage alone, the subtree
// above the last key. An item without a ChildPage stands in a leaf. Items stay
// where they are: keys come and go through the table, which is a permutation of
// the slots at all times, the spare ones behind item n.
//
//   free page: the offset of the next free page, or 0, in its first 4 bytes
//
// The index of a C(5) key (ItemSize 13, MaxKeys 66, the table of 134 bytes) that
// holds BERTA for record 1 and then got ANNA for record 2:
//
//   000  06 00  03 00  00 04 00 00  00 00 00 00  0D 00  05 00  00 00  42 00  21 00
//   016  4E 41 4D 45 00                                       "NAME"
//   400  02 00                                                two keys
//   402  D5 03  E2 03  88 00  95 00 ...                       slots 65, 66, 0, 1 ...
//   7D5  00 00 00 00  02 00 00 00  41 4E 4E 41 20             "ANNA "
//   7E2  00 00 00 00  01 00 00 00  42 45 52 54 41             "BERTA"
#pragma once

#include "core/bytes.h"
#include "index/index.h"
#include "index/pool.h"

namespace zb {

inline constexpr int NtxPageSize = 1024;   // on disk
inline constexpr int NtxHeaderRead = 280;  // the bytes of the header that mean something
inline constexpr int NtxTableAt = 2;       // on disk
inline constexpr int NtxMaxExpression = 255;
inline constexpr int NtxSignature = 6;  // on disk

// Keys that a page may hold: what is left of it by the count and the table's
// additional place, in items and their places, less one, made even.
constexpr int NtxMaxKeys(int keyLength) { return ((1020 / (keyLength + 10)) - 1) & ~1; }

// An open NTX file.
struct NtxFile {
    uint16_t handle;  // of the file layer
    uint16_t flags;   // ObjectFlags

    // The length that pages are held against. A call takes it anew only when
    // something depends on it: a page beyond it, or room for a new one.
    uint32_t fileLength;
    bool lengthTaken;

    uint16_t version;
    uint32_t rootPage;
    uint32_t freeHead;
    uint16_t keyBytes;
    uint16_t decimals;
    uint16_t unique;
    char expression[256];
    int8_t reportedFlag;

    PagePool pool;
    Position position;
    int16_t maxKeys;
    int16_t halfKeys;
    bool headerDirty;
    char fileName[261];

    int keyLength() const { return keyBytes; }
    int itemSize() const { return keyBytes + 8; }
    bool readOnly() const { return flags & 1; }
};

// A page in hand. Items are named by their place in the table.
struct NtxPage {
    uint8_t* data;
    uint32_t offset;
    int itemSize;
    int maxKeys;

    int count() const { return static_cast<int8_t>(data[0]); }
    void setCount(int count) { data[0] = static_cast<uint8_t>(count); }
    uint8_t* place(int i) const { return data + NtxTableAt + 2 * i; }
    int itemsAt() const { return NtxTableAt + 2 * (maxKeys + 1); }
    uint8_t* item(int i) const { return data + LoadLe16(place(i)); }
    uint32_t child(int i) const { return LoadLe32(item(i)); }
    void setChild(int i, uint32_t page) { StoreLe32(item(i), page); }
    uint32_t record(int i) const { return LoadLe32(item(i) + 4); }
    void setRecord(int i, uint32_t record) { StoreLe32(item(i) + 4, record); }
    uint8_t* key(int i) const { return item(i) + 8; }
    uint32_t freeLink() const { return LoadLe32(data); }
    void setFreeLink(uint32_t page) { StoreLe32(data, page); }

    // No keys, and the items in the order of their slots. Their bytes stay.
    void Format() {
        StoreLe16(data, 0);
        for (int i = 0; i <= maxKeys; i++)
            StoreLe16(place(i), static_cast<uint16_t>(itemsAt() + i * itemSize));
    }

    // Whether the places from one to another, both included, name bytes of the
    // page behind its table.
    bool PlacesHold(int from, int to) const {
        auto first = static_cast<unsigned>(itemsAt());
        unsigned span = static_cast<unsigned>(NtxPageSize - itemSize) - first;
        bool hold = true;
        for (int i = from; i <= to; i++) hold &= LoadLe16(place(i)) - first <= span;
        return hold;
    }
};

}  // namespace zb
