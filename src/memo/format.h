// The memo file formats.
//
// A memo field of a data record holds, as ten characters, the number of a block
// in the memo file. The memo begins there and takes as many whole blocks as it
// needs; block 0 is the header's. Three layouts exist.
//
// .DBT, terminated (dialects 1, 3, 5, 6, 7, 66), little-endian, blocks of 512
//
//   header
//     0    4  next block   where the next new memo goes
//     4  508  zero
//   512    1  0x1A         in a new file, until the first memo goes there
//   memo
//     the text, 0x1A, 0x1A, and whatever stood in the rest of the last block
//
//   "Hi", the first memo of a new file, written by ZBDTRPUT as block 1:
//
//   000000  02 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00    next block 2
//   ...
//   000200  48 69 1A 1A                                         Hi, end mark
//
// .DBT, counted (dialect 2), little-endian, blocks of 512 to 16384
//
//   header
//     0   4  next block    head of the free chain, or the block behind the last
//     4   4  zero
//     8   8  name          of the file as given, up to the first point, upper case
//    16   2  zero
//    18   2  marks         2, 1
//    20   2  block size    512 times 1 to 32
//    22   2  zero          checked at open
//    24      zero to the end of the block, then 0x1A in a new file
//   memo
//     0   2  mark          0xFFFF
//     2   2  mark          8
//     4   4  length        of the text, and these 8 bytes
//     8      text, then its beginning once more, zeros behind its end, to the end of the block
//   free run, in its first block
//     0   4  next          block of the next free run; the file's end ends the chain
//     4   4  count         blocks in this run
//
//   "Hi", the first memo of a new file NOTES.DBT, written by ZBDTRPUT as block 1:
//
//   000000  02 00 00 00 00 00 00 00  4E 4F 54 45 53 00 00 00    next block 2, NOTES
//   000010  00 00 02 01 00 02 00 00  00 00 00 00 00 00 00 00    marks, blocks of 512
//   ...
//   000200  FF FF 08 00 0A 00 00 00  48 69 48 69 00 00 00 00    length 10, Hi, Hi again
//   ...
//   0003F0  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00
//
// .FPT, big-endian, blocks of 33 to 16384
//
//   header
//     0   4  next block    where the next new memo goes
//     4   4  block size
//     8      whatever the system gives, to the end of the last header block (512 bytes at least)
//   memo
//     0   4  type          1
//     4   4  length        of the text alone
//     8      text, and whatever stood in the rest of the last block
//
//   "Hi", the first memo of a new file with blocks of 64, written by ZBDWRPUT as block 8:
//
//   000000  00 00 00 09 00 00 00 40                             next block 9, blocks of 64
//   ...
//   000200  00 00 00 01 00 00 00 02  48 69                      type 1, length 2, Hi
#pragma once

#include "memo/memo.h"

namespace zb {

enum class Layout { None, Terminated, Counted };

inline constexpr int DialectMemoOnly = 66;  // a .DBT dialect that no data file has

inline constexpr int MinBlockSize = 512;  // of a .DBT file, and what multipliers count
inline constexpr int MaxBlockSize = 16384;
inline constexpr int MaxMultiplier = 32;    // at a creation
inline constexpr int MinFptBlockSize = 33;  // smaller sizes at a creation are multipliers
inline constexpr int FptHeaderRoom = 512;   // bytes that a header's blocks hold at least

inline constexpr int DbtHeaderSize = 24;          // on disk
inline constexpr int FptHeaderSize = 8;           // on disk
inline constexpr int NameOffset = 8;              // on disk, counted header
inline constexpr int NameSize = 8;                // on disk
inline constexpr int MarksOffset = 18;            // on disk, counted header
inline constexpr int BlockSizeOffset = 20;        // on disk, counted header
inline constexpr int ZeroOffset = 22;             // on disk, counted header
inline constexpr uint8_t LayoutMarks[] = {2, 1};  // on disk

inline constexpr char MemoEnd = 0x1A;             // on disk
inline constexpr char SoftReturn[] = "\x8D\x0A";  // on disk, where a line was wrapped

inline constexpr int MemoHeadSize = 8;                // on disk, counted and .FPT memos
inline constexpr int LengthOffset = 4;                // on disk, counted and .FPT memos
inline constexpr uint32_t CountedMarks = 0x0008FFFF;  // on disk
inline constexpr uint32_t FptTextType = 1;            // on disk

// An open .DBT file.
struct DbtFile : MemoFile {
    int32_t nextBlock;
    int16_t blockSize;
    int32_t fileSize;  // in blocks straight after the open, in bytes after any Thget
    uint8_t dialect;
};

// An open .FPT file.
struct FptFile : MemoFile {
    int32_t nextBlock;
    int32_t blockSize;
};

}  // namespace zb
