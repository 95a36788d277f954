// What both memo formats share: the common part of their control blocks, open
// and close, reading and writing a text, and the frame of pack.
#pragma once

#include "data/data.h"
#include "file/operations.h"
#include "file/path.h"

namespace zb {

// Values of the high byte of a write's option.
inline constexpr unsigned MemoNew = ZB_MemoNew;
inline constexpr unsigned MemoReplace = ZB_MemoReplace;

// The common part of a memo file's control block.
struct MemoFile {
    uint16_t flags;  // ObjectFlags
    uint16_t handle;
    bool flushEachWrite;  // the flush argument of every write of a memo
    uint8_t reported;     // cleared at open and shown by the information calls
    char path[MaxName + 1];

    bool readOnly() const { return flags & FlagReadOnly; }
};

// How a format opens.
struct MemoFormat {
    const char* unit;
    SlotType type;
    size_t controlSize;
    uint16_t unopened;  // value of MemoFile::handle with which a failed open closes nothing
    // Reads and checks the header of the file just opened, and keeps its name.
    Code (*readHeader)(MemoFile& file, const char* path, uint16_t mode);
};

// A failure after the slot was taken gives the slot back and stores -1.
Code MemoOpen(const MemoFormat& format, int16_t* handle, const char* path, uint16_t mode);

// Keeps the name that a file was opened by. ErrBadName for one that is too long.
Code KeepPath(const char* unit, MemoFile& file, const char* path);

// Close and quick close of what the family's bind gave, null included.
Code MemoClose(const char* unit, MemoFile* file, int handle);
Code MemoQuickClose(const char* unit, MemoFile* file);

// The flags word of the information records.
uint16_t MemoInfoFlags(const MemoFile& file);

// Where a block begins.
inline int64_t BlockPosition(int32_t block, int32_t blockSize) { return int64_t{block} * blockSize; }

// Blocks that `bytes` bytes take.
inline size_t BlocksFor(size_t bytes, int32_t blockSize) {
    auto size = static_cast<size_t>(blockSize);
    return (bytes + size - 1) / size;
}

// Reads a text of a stored length into a new block, and ends it with a zero.
// ErrStructure for a negative length, ErrRead for one beyond a single transfer.
Code ReadText(const char* unit, const MemoFile& file, int64_t length, Block<char>* text);

// Gathers adjacent bytes, so that a memo goes out in as few writes as can be.
// No text longer than a single transfer passes: it gives ErrWrite, as do writes
// that fail; what would end beyond the last position of a file gives ErrSeek.
// None of these is logged.
class MemoWriter {
  public:
    MemoWriter(uint16_t fileHandle, bool flushEach) : handle(fileHandle), flush(flushEach) {}

    // Goes to where the next byte is to stand; at first that is the file's start.
    Code Start(int64_t at);
    Code Put(const void* bytes, size_t count);
    Code PutZeros(size_t count);
    Code Finish();

  private:
    // The file layer follows 4096 bytes up with an empty write.
    static constexpr size_t Room = 4095;

    uint16_t handle;
    bool flush;
    int64_t position = 0;  // of the next byte that is put
    size_t used = 0;
    char buffer[Room];
};

// What pack needs of a format.
struct PackFormat {
    const char* unit;
    const char* extension;  // of the work file
    MemoFile* (*bind)(int handle);
    uint16_t (*mode)(const MemoFile& file);  // to open a file of the same kind
    int32_t (*create)(const char* name, const MemoFile& like);
    int32_t(ZB_CALL* open)(int16_t* handle, const char* path, uint16_t mode);
    int32_t(ZB_CALL* close)(int16_t handle);
    int32_t (*read)(int16_t memo, int32_t block, void** text);
    int32_t (*write)(int16_t memo, int32_t* block, const char* text);
};

// Copies the memos that the live records of a data file name to a new file, which
// then takes the old one's place, and the new block numbers into the records.
Code MemoPack(const PackFormat& format, int16_t dataHandle, int16_t* memo);

// The bind of each family.
struct DbtFile;
struct FptFile;
DbtFile* Tslock(int handle);
FptFile* Wslock(int handle);

// Close the platform file of an object and keep the object.
Code DbtQuickClose(int handle);
Code FptQuickClose(int handle);

}  // namespace zb
