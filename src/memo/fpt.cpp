// .FPT memo files.
#include <cstring>

#include "memo/format.h"

namespace zb {
namespace {

constexpr int MaxSize = 511;  // the largest block size in bytes that a creation takes

// A size at a creation is a multiplier or a number of bytes.
int32_t BlockSizeOf(int16_t size) { return size <= MaxMultiplier ? size * MinBlockSize : size; }

FptFile& Fpt(MemoFile& file) { return static_cast<FptFile&>(file); }

// ---- create and open ----

Code WriteNewFile(uint16_t handle, int32_t blockSize) {
    auto first = static_cast<int32_t>(BlocksFor(FptHeaderRoom, blockSize));
    uint8_t header[FptHeaderSize];
    StoreBe32(header, static_cast<uint32_t>(first));
    StoreBe32(header + 4, static_cast<uint32_t>(blockSize));
    if (Hwrite(handle, header, sizeof header, false) < 0) return Pass("Wcreate");
    Hsize(handle, BlockPosition(first, blockSize));
    return CurrentCode();
}

Code ReadHeader(MemoFile& memo, const char* path, uint16_t mode) {
    FptFile& file = Fpt(memo);
    int kind = mode & 0xFF;
    if (kind != 0 && kind != DialectFox128) return Fail("Wopen", ErrFileType);

    uint32_t length;
    uint8_t header[FptHeaderSize];
    if (Hlen(file.handle, &length) < 0) return Pass("Wopen");
    if (length < FptHeaderRoom) return Fail("Wopen", ErrMemoShort);
    if (Hseek(file.handle, 0) < 0) return Pass("Wopen");
    if (Hread(file.handle, header, sizeof header) < 0) return Pass("Wopen");
    file.nextBlock = static_cast<int32_t>(LoadBe32(header));
    file.blockSize = static_cast<int32_t>(LoadBe32(header + 4));
    if (Code code = KeepPath("Wopen", file, path); code < 0) return code;
    if (file.blockSize < MinFptBlockSize || file.blockSize > MaxBlockSize) return Fail("Wopen", ErrBlockSize);
    return CurrentCode();
}

constexpr MemoFormat format = {"Wopen", SlotFpt, sizeof(FptFile), NoFile, ReadHeader};

// What another program did is seen by this alone: every read and write begins with it.
Code Whget(FptFile& file) {
    uint8_t bytes[4];
    if (Hseek(file.handle, 0) < 0) return Pass("Whget");
    if (Hread(file.handle, bytes, sizeof bytes) < 0) return Pass("Whget");
    file.nextBlock = static_cast<int32_t>(LoadBe32(bytes));
    return CurrentCode();
}

// The length that the memo at a block tells. The position is then at its text.
Code ReadLength(const char* unit, const FptFile& file, int32_t block, int32_t* length) {
    uint8_t head[MemoHeadSize];
    if (Hseek(file.handle, BlockPosition(block, file.blockSize)) < 0) return Pass(unit);
    if (Hread(file.handle, head, sizeof head) < 0) return Pass(unit);
    *length = static_cast<int32_t>(LoadBe32(head + LengthOffset));
    return CurrentCode();
}

// ---- read ----

Code Wrget(int16_t memo, int32_t block, Block<char>* text) {
    FptFile* file = Wslock(memo);
    if (!file || Whget(*file) < 0) return Pass("Wrget");
    if (block <= 0 || block >= file->nextBlock) return Fail("Wrget", ErrSeek);
    int32_t length;
    if (Code code = ReadLength("Wrget", *file, block, &length); code < 0) return code;
    if (ReadText("Wrget", *file, length, text) < 0) text->Free();
    return CurrentCode();
}

// ---- write ----

// The bytes that a memo is taken to own: whole blocks for its text, its head not
// counted. The sum runs in 16 bits, and in full where those would go round for ever.
int32_t OldCapacity(int32_t blockSize, int32_t stored) {
    auto length = static_cast<int16_t>(stored);
    auto capacity = static_cast<int16_t>(blockSize);
    while (capacity < length) {
        capacity = static_cast<int16_t>(capacity + blockSize);
        if (capacity == blockSize)
            return static_cast<int32_t>(BlocksFor(static_cast<size_t>(length), blockSize)) * blockSize;
    }
    return capacity;
}

Code Wrput(FptFile& file, int32_t* block, const char* text, unsigned kind) {
    if (file.readOnly()) return Fail("Wrput", ErrReadOnly);
    if (kind != MemoNew && kind != MemoReplace) return Fail("Wrput", ErrBadOption);
    size_t length = strlen(text);
    size_t needed = length + MemoHeadSize;
    if (kind == MemoReplace) {
        int32_t old;
        if (Code code = ReadLength("Wrput", file, *block, &old); code < 0) return code;
        if (static_cast<size_t>(OldCapacity(file.blockSize, old)) < needed) kind = MemoNew;
    }
    if (kind == MemoNew) {
        *block = file.nextBlock;
        Hsize(file.handle, BlockPosition(*block, file.blockSize));
    }

    MemoWriter writer(file.handle, file.flushEachWrite);
    uint8_t head[MemoHeadSize];
    StoreBe32(head, FptTextType);
    StoreBe32(head + LengthOffset, static_cast<uint32_t>(length));
    if (writer.Start(BlockPosition(*block, file.blockSize)) < 0 || writer.Put(head, sizeof head) < 0 ||
        writer.Put(text, length) < 0 || writer.Finish() < 0)
        return Pass("Wrput");
    if (kind != MemoNew) return CurrentCode();

    uint8_t bytes[4];
    uint32_t next = static_cast<uint32_t>(*block) + static_cast<uint32_t>(BlocksFor(needed, file.blockSize));
    StoreBe32(bytes, next);
    if (Hseek(file.handle, 0) < 0) return Pass("Wrput");
    file.nextBlock = static_cast<int32_t>(next);
    if (Hwrite(file.handle, bytes, sizeof bytes, file.flushEachWrite) < 0) return Pass("Wrput");
    return CurrentCode();
}

// ---- pack ----

MemoFile* BindForPack(int handle) { return Wslock(handle); }

uint16_t ModeOf(const MemoFile&) { return 0; }

int32_t CreateLike(const char* name, const MemoFile& like) {
    int32_t size = static_cast<const FptFile&>(like).blockSize;
    return ZBDWCREATE(name, static_cast<int16_t>(size <= MaxSize ? size : size >> 9));
}

int32_t ReadForPack(int16_t memo, int32_t block, void** text) { return ZBDWRGET(memo, block, text); }

int32_t WriteForPack(int16_t memo, int32_t* block, const char* text) {
    return ZBDWRPUT(memo, block, text, ZB_MemoNew);
}

constexpr PackFormat packFormat = {"Wpack",   ".FPT",    BindForPack, ModeOf,      CreateLike,
                                   ZBDWOPENX, ZBDWCLOSE, ReadForPack, WriteForPack};

}  // namespace

FptFile* Wslock(int handle) { return BindObject<FptFile>("Wslock", handle, SlotFpt); }

Code FptQuickClose(int handle) { return MemoQuickClose("Wqclose", Wslock(handle)); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDWCREATE(const char* path, int16_t size) {
    if (Pending()) return Pass("Wcreate");
    if (!path) return Fail("Wcreate", ErrNullPointer);
    if (size < 1 || size > MaxSize) return Fail("Wcreate", ErrBlockSize);
    SetCode(0);
    uint16_t handle;
    if (Hcreate(&handle, path) < 0) return Pass("Wcreate");
    Code code = WriteNewFile(handle, BlockSizeOf(size));
    if (Hclose(handle) < 0) Pass("Wcreate");
    return code < 0 ? SetCode(code) : CurrentCode();
}

int32_t ZB_CALL ZBDWOPENX(int16_t* memo, const char* path, uint16_t mode) {
    return MemoOpen(format, memo, path, mode);
}

int32_t ZB_CALL ZBDWCLOSE(int16_t memo) { return MemoClose("Wclose", Wslock(memo), memo); }

int32_t ZB_CALL ZBDWHGET(int16_t memo) {
    FptFile* file = Wslock(memo);
    return file ? Whget(*file) : Pass("Whget");
}

int32_t ZB_CALL ZBDWRGET(int16_t memo, int32_t block, void** text) {
    if (!text) return Fail("Wrget", ErrNullPointer);
    Block<char> memory{};
    Code code = Wrget(memo, block, &memory);
    *text = memory.data;
    return code;
}

int32_t ZB_CALL ZBDWRPUT(int16_t memo, int32_t* block, const char* text, int16_t option) {
    if (!block || !text) return Fail("Wrput", ErrNullPointer);
    FptFile* file = Wslock(memo);
    if (!file || Whget(*file) < 0) return Pass("Wrput");
    return Wrput(*file, block, text, static_cast<uint16_t>(option));
}

int32_t ZB_CALL ZBDWINFO(int16_t memo, ZbFptInfo* info) {
    if (!info) return SetCode(ErrNullPointer);
    FptFile* file = Wslock(memo);
    if (!file) return Pass("Winfo");
    info->flags = MemoInfoFlags(*file);
    memcpy(info->path, file->path, sizeof info->path);
    info->reported = file->reported;
    return CurrentCode();
}

int32_t ZB_CALL ZBDWPACK(int16_t data, int16_t* memo) { return MemoPack(packFormat, data, memo); }
