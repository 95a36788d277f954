// The .DBF format.
//
// A file is a header of 32 bytes, a table of field descriptors of 32 bytes each,
// a terminator, and records of one length. Numbers are little-endian.
//
//   header
//     0   1  version               3 without memo fields; see VersionOf
//     1   1  date byte             the day of the month of the last update
//     2   1  month                 written at creation only
//     3   1  third date byte       0 at creation, never written after that
//     4   4  record count          signed
//     8   2  header length         bytes before the first record, signed
//    10   2  record length         the delete flag included, signed
//    14   1  transaction byte      reported, never acted on
//    15   1  encryption byte       reported, never acted on
//    28   1  production-index byte 0 or 1
//
//   field descriptor, from offset 32
//     0  11  name                  upper case, at most 10 characters, zero-padded
//    11   1  type                  C D F L M N
//    16   1  length                low byte of the width
//    17   1  decimals              for C fields: high byte of the width
//
//   terminator: 0x0D as the last byte of the header, or, in DialectPaddedHeader,
//   a whole descriptor that begins with it and is otherwise zero.
//
//   record n, from 1, at header length + record length * (n - 1): the delete
//   flag (blank or '*'), then the fields as text, without separators. Behind the
//   last record stands 0x1A.
//
// Two fields, NAME C(5) and BORN D, and one record:
//
//   03 15 0B 00  01 00 00 00  61 00  0E 00  ...    header, 97 bytes before the records
//   4E 41 4D 45 00 00 00 00 00 00 00  43  00 00 00 00  05 00  ...
//   42 4F 52 4E 00 00 00 00 00 00 00  44  00 00 00 00  08 00  ...
//   0D
//   20  41 4E 4E 41 20  31 39 39 36 30 32 32 39    " ANNA 19960229"
//   1A
#pragma once

#include "core/block.h"
#include "core/bytes.h"

namespace zb {

enum Dialect : uint8_t {
    DialectClassic = 1,
    DialectDb4 = 2,
    DialectClassicAlt = 3,
    DialectFox128 = 4,
    DialectWide = 5,
    DialectWideChar = 6,
    DialectEofFill = 7,
    DialectFox255 = 8,
    DialectPaddedHeader = 9
};

inline constexpr int HeaderSize = 32;        // on disk
inline constexpr int DescriptorSize = 32;    // on disk
inline constexpr uint8_t HeaderEnd = 0x0D;   // on disk
inline constexpr uint8_t FileEnd = 0x1A;     // on disk
inline constexpr uint8_t LiveFlag = ' ';     // on disk
inline constexpr uint8_t DeletedFlag = '*';  // on disk

// Bit of DataFile::dialect: the file has memo fields.
inline constexpr uint8_t DialectHasMemo = 0x80;

// One field of an open file.
struct Field {
    char name[11];
    uint8_t type;
    uint16_t offset;  // in the record, the delete flag counted
    uint16_t width;
    uint8_t decimals;  // as on disk: for a C field the high byte of the width
    double maxValue;   // the largest value of an N or F field
};

// The control block of an open data file.
struct DataFile {
    uint32_t currentRecord;  // the record in recordBuffer; 0 when none

    // The read-ahead buffer, there only while a bulk build runs.
    uint32_t aheadFirst;
    Block<uint8_t> ahead;
    Block<uint16_t> aheadOffsets;
    int16_t aheadBytes;
    int16_t aheadCapacity;
    int16_t aheadCount;  // 0 marks it as empty

    Block<uint8_t> record;  // one record as it stands on disk

    uint32_t lockOffset;  // the last byte range that was to be locked
    uint32_t lockLength;
    uint8_t reservedFlag;
    uint16_t readerSlot;  // 2147483647 less the offset of the shared lock's byte

    int16_t heldCount;  // record locks held
    uint16_t heldCapacity;
    Block<uint32_t> heldList;

    uint16_t flags;   // ObjectFlags
    uint16_t handle;  // of the file layer
    uint8_t header[HeaderSize];
    Block<Field> fields;
    int16_t maxFieldWidth;
    int16_t fieldCount;
    uint16_t autoFlush;  // the flush argument of every write
    char name[261];
    uint8_t modified;  // ModifiedKind of the last change
    uint8_t dialect;   // low 7 bits; DialectHasMemo

    uint8_t version() const { return header[0]; }
    int32_t recordCount() const { return static_cast<int32_t>(LoadLe32(header + 4)); }
    void setRecordCount(int32_t count) { StoreLe32(header + 4, static_cast<uint32_t>(count)); }
    int16_t headerLength() const { return static_cast<int16_t>(LoadLe16(header + 8)); }
    int16_t recordLength() const { return static_cast<int16_t>(LoadLe16(header + 10)); }
    bool readOnly() const { return flags & 1; }
    int64_t positionOf(int64_t recordNo) const { return headerLength() + recordLength() * (recordNo - 1); }
};

enum ModifiedKind : uint8_t { ModifiedFlag = 1, ModifiedAppend = 0x20, ModifiedUpdate = 0x40 };

}  // namespace zb
