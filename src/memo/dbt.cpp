// .DBT memo files, in their two layouts.
#include <algorithm>
#include <cstring>

#include "memo/format.h"

namespace zb {
namespace {

constexpr size_t MaxTerminated = 65536;  // bytes of a terminated memo that can be read, its end mark included
constexpr size_t MaxStep = 16384;
constexpr int MinWidth = 10;
constexpr int MaxWidth = 132;
constexpr int32_t NoBlock = -1;

Layout LayoutOf(int dialect) {
    switch (dialect) {
        case DialectDb4: return Layout::Counted;
        case DialectClassic:
        case DialectClassicAlt:
        case DialectWide:
        case DialectWideChar:
        case DialectEofFill:
        case DialectMemoOnly: return Layout::Terminated;
        default: return Layout::None;
    }
}

DbtFile& Dbt(MemoFile& file) { return static_cast<DbtFile&>(file); }

// ---- create and open ----

// The first characters of the name as it was given, its directory included.
void StoreName(uint8_t* header, const char* path) {
    for (int i = 0; i < NameSize && path[i] && path[i] != '.'; i++) {
        char c = path[i];
        header[NameOffset + i] = static_cast<uint8_t>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
}

Code WriteNewFile(uint16_t handle, const char* path, int blockSize, Layout layout) {
    uint8_t header[DbtHeaderSize] = {};
    StoreLe32(header, 1);
    if (layout == Layout::Counted) {
        StoreName(header, path);
        memcpy(header + MarksOffset, LayoutMarks, sizeof LayoutMarks);
        StoreLe16(header + BlockSizeOffset, static_cast<uint16_t>(blockSize));
    }
    MemoWriter writer(handle, false);
    if (writer.Put(header, sizeof header) < 0 ||
        writer.PutZeros(static_cast<size_t>(blockSize) - sizeof header) < 0 || writer.Put(&MemoEnd, 1) < 0 ||
        writer.Finish() < 0)
        return Pass("Tcreate");
    return CurrentCode();
}

Code ReadHeader(MemoFile& memo, const char* path, uint16_t mode) {
    DbtFile& file = Dbt(memo);
    file.dialect = static_cast<uint8_t>(mode);
    if (file.dialect == 0) file.dialect = DialectClassic;
    Layout layout = LayoutOf(file.dialect);
    if (layout == Layout::None) return Fail("Topen", ErrFileType);

    uint32_t length;
    uint8_t header[DbtHeaderSize];
    if (Hlen(file.handle, &length) < 0) return Pass("Topen");
    if (length < sizeof header) return Fail("Topen", ErrMemoShort);
    if (Hseek(file.handle, 0) < 0) return Pass("Topen");
    if (Hread(file.handle, header, sizeof header) < 0) return Pass("Topen");
    if (Code code = KeepPath("Topen", file, path); code < 0) return code;

    file.nextBlock = static_cast<int32_t>(LoadLe32(header));
    file.blockSize = MinBlockSize;
    if (layout == Layout::Counted) {
        file.blockSize = static_cast<int16_t>(LoadLe16(header + BlockSizeOffset));
        if (file.blockSize < MinBlockSize || file.blockSize > MaxBlockSize)
            return Fail("Topen", ErrBlockSize);
        if (memcmp(header + MarksOffset, LayoutMarks, sizeof LayoutMarks) != 0 ||
            LoadLe16(header + ZeroOffset) != 0)
            return Fail("Topen", ErrBadSignature);
    }
    file.fileSize = static_cast<int32_t>(length) / file.blockSize;
    return CurrentCode();
}

constexpr MemoFormat format = {"Topen", SlotDbt, sizeof(DbtFile), 0, ReadHeader};

// What another program did is seen by this alone: every read and write begins with it.
Code Thget(DbtFile& file) {
    uint8_t bytes[4];
    uint32_t length;
    if (Hseek(file.handle, 0) < 0) return Pass("Thget");
    if (Hread(file.handle, bytes, sizeof bytes) < 0) return Pass("Thget");
    file.nextBlock = static_cast<int32_t>(LoadLe32(bytes));
    if (Hlen(file.handle, &length) < 0) return Pass("Thget");
    file.fileSize = static_cast<int32_t>(length);
    return CurrentCode();
}

Code SeekBlock(const DbtFile& file, int32_t block, int offset = 0) {
    return Hseek(file.handle, BlockPosition(block, file.blockSize) + offset);
}

// Reads the next `count` bytes, or what is left of the file. A read that came
// short has no platform error; one that has would leave a hole in the text.
Code ReadPiece(const DbtFile& file, char* piece, size_t count, uint32_t* done) {
    Code code = HreadSome(file.handle, piece, static_cast<int16_t>(count), done);
    return code == ErrRead && PfLastError() == 0 ? SetCode(0) : code;
}

// ---- read ----

// The end mark is looked for in steps that double, so that a short memo costs one
// read of its block and a long one few.
Code ReadTerminated(const DbtFile& file, int32_t block, Block<char>* text) {
    int64_t start = BlockPosition(block, file.blockSize);
    for (size_t before = 0; before < MaxTerminated;) {
        size_t step = std::min(std::clamp<size_t>(before, MinBlockSize, MaxStep), MaxTerminated - before);
        if (before == 0 ? text->Alloc(step) < 0 : text->Resize(before + step) < 0) return Pass("Trget");
        char* piece = text->data + before;
        uint32_t done;
        if (ReadPiece(file, piece, step, &done) < 0) return Pass("Trget");
        if (auto* end = static_cast<char*>(memchr(piece, MemoEnd, done))) {
            *end = 0;
            return CurrentCode();
        }
        // The end of the file is asked for only where it can be.
        before += done;
        if (done == step && start + static_cast<int64_t>(before) < file.fileSize) continue;
        uint8_t atEnd;
        if (Heof(file.handle, &atEnd) < 0) return Pass("Trget");
        if (atEnd) return Fail("Trget", ErrStructure);
        if (done == 0) return Fail("Trget", ErrRead);
    }
    return Fail("Trget", ErrFieldWidth);
}

Code ReadCounted(const DbtFile& file, Block<char>* text) {
    uint8_t head[MemoHeadSize];
    if (Hread(file.handle, head, sizeof head) < 0) return Pass("Trget");
    auto length = static_cast<int32_t>(LoadLe32(head + LengthOffset));
    return ReadText("Trget", file, int64_t{length} - MemoHeadSize, text);
}

// A soft return is its first byte and whichever follows.
void RemoveSoftReturns(char* text) {
    const char* from = text;
    while (*from) {
        if (*from != SoftReturn[0])
            *text++ = *from++;
        else
            from += from[1] ? 2 : 1;
    }
    *text = 0;
}

// The text goes into a block of the caller's to be; null on failure.
Code Trget(int16_t memo, int32_t block, int16_t option, Block<char>* text) {
    DbtFile* file = Tslock(memo);
    if (!file || Thget(*file) < 0) return Pass("Trget");
    if (block < 1 || block > file->fileSize) return Fail("Trget", ErrSeek);
    if (SeekBlock(*file, block) < 0) return Pass("Trget");

    if (LayoutOf(file->dialect) == Layout::Counted)
        ReadCounted(*file, text);
    else
        ReadTerminated(*file, block, text);
    // The option is looked at last, whatever came of the reading.
    if (option != 0 && option != ZB_MemoUnwrap) Fail("Trget", ErrBadOption);
    if (CurrentCode() < 0)
        text->Free();
    else if (option == ZB_MemoUnwrap)
        RemoveSoftReturns(text->data);
    return CurrentCode();
}

// ---- write, terminated layout ----

// The bytes before the end mark of the memo at a block, or before the end of the
// file, as a 16-bit count.
Code OldLength(const DbtFile& file, int32_t block, uint16_t* length) {
    if (SeekBlock(file, block) < 0) return Pass("Trput");
    char piece[MinBlockSize];
    uint32_t done;
    *length = 0;
    do {
        if (ReadPiece(file, piece, sizeof piece, &done) < 0) return Pass("Trput");
        if (auto* end = static_cast<char*>(memchr(piece, MemoEnd, done))) {
            *length = static_cast<uint16_t>(*length + (end - piece));
            return CurrentCode();
        }
        *length = static_cast<uint16_t>(*length + done);
    } while (done == MinBlockSize);
    return CurrentCode();
}

// Puts a text in lines of `width` characters, with a soft return where a line
// was broken, and adds the bytes to `written`.
Code PutWrapped(MemoWriter& writer, const char* text, size_t length, int width, uint16_t* written) {
    const char* end = text + length;
    const char* line = text;
    const char* point = text;  // where the line can be broken
    auto put = [&](const char* bytes, ptrdiff_t count) {
        *written = static_cast<uint16_t>(*written + count);
        return writer.Put(bytes, static_cast<size_t>(count));
    };
    // Nothing farther than the width matters, so that is how far searches go.
    auto find = [&](const char* from, char wanted) {
        ptrdiff_t window = std::min<ptrdiff_t>(end - line, width + 1) - (from - line);
        return static_cast<const char*>(memchr(from, wanted, static_cast<size_t>(window)));
    };
    while (line < end) {
        if (const char* hardReturn = find(line, '\r')) {
            // A pair, whatever its second byte is: a text that ends in the first one
            // gives its terminator.
            if (put(line, hardReturn + 2 - line) < 0) return CurrentCode();
            line = point = hardReturn + 2;
            continue;
        }
        const char* blank = find(point, ' ');
        const char* candidate = blank ? blank + 1 : end;
        bool full = candidate == end || candidate - line >= width;
        if (candidate - line <= width) point = candidate;
        if (!full) continue;

        if (point == line) point += std::min<ptrdiff_t>(width, end - line);
        if (put(line, point - line) < 0) return CurrentCode();
        if (point != end && put(SoftReturn, 2) < 0) return CurrentCode();
        line = point;
    }
    return CurrentCode();
}

// A replace goes in place when the text fits one block, when it takes no more
// blocks than the old text did, and, unchecked, whenever it is wrapped.
Code WriteTerminated(const DbtFile& file, int32_t* nextBlock, int32_t* block, const char* text, unsigned kind,
                     int width) {
    size_t length = strlen(text);
    // With its end marks, as 16 signed bits: from 32,766 characters on it counts as small.
    auto needed = static_cast<int16_t>(length + 2);
    if (kind == MemoReplace && width == 0 && needed > MinBlockSize) {
        uint16_t old;
        if (Code code = OldLength(file, *block, &old); code < 0) return code;
        if (BlocksFor(old, MinBlockSize) < BlocksFor(static_cast<size_t>(needed), MinBlockSize))
            kind = MemoNew;
    }

    MemoWriter writer(file.handle, file.flushEachWrite);
    uint16_t written = 0;
    if (writer.Start(BlockPosition(kind == MemoReplace ? *block : *nextBlock, file.blockSize)) < 0)
        return Pass("Trput");
    if (width) {
        if (PutWrapped(writer, text, length, width, &written) < 0) return Pass("Trput");
    } else {
        if (writer.Put(text, length) < 0) return Pass("Trput");
        written = static_cast<uint16_t>(length);
    }
    constexpr char marks[] = {MemoEnd, MemoEnd};
    if (writer.Put(marks, sizeof marks) < 0 || writer.Finish() < 0) return Pass("Trput");

    if (kind == MemoNew) {
        *block = *nextBlock;
        // One block more than the text takes where text and marks end with a block.
        *nextBlock += (written + file.blockSize + 2) / file.blockSize;
    }
    return CurrentCode();
}

// ---- write, counted layout ----

// A free run of blocks, as its first block tells it.
struct FreeRun {
    int32_t next;
    int32_t count;
};

Code ReadRun(const DbtFile& file, int32_t block, FreeRun* run) {
    uint8_t bytes[8];
    if (SeekBlock(file, block) < 0) return Pass("Trput");
    if (Hread(file.handle, bytes, sizeof bytes) < 0) return Pass("Trput");
    *run = {static_cast<int32_t>(LoadLe32(bytes)), static_cast<int32_t>(LoadLe32(bytes + 4))};
    return CurrentCode();
}

Code WriteRun(const DbtFile& file, int32_t block, FreeRun run) {
    uint8_t bytes[8];
    StoreLe32(bytes, static_cast<uint32_t>(run.next));
    StoreLe32(bytes + 4, static_cast<uint32_t>(run.count));
    if (SeekBlock(file, block) < 0) return Pass("Trput");
    if (Hwrite(file.handle, bytes, sizeof bytes, file.flushEachWrite) < 0) return Pass("Trput");
    return CurrentCode();
}

// The bytes that the memo at a block is taken to own. The rounding is one for
// steps of 256, kept as it is: it comes out too high for many lengths, and too low
// for a whole number of 256s that doesn't fill its block.
Code OldCapacity(const DbtFile& file, int32_t block, uint16_t* capacity) {
    uint8_t head[MemoHeadSize];
    if (SeekBlock(file, block) < 0) return Pass("Trput");
    if (Hread(file.handle, head, sizeof head) < 0) return Pass("Trput");
    uint32_t length = LoadLe32(head + LengthOffset);
    uint32_t rounded = length & 0xFF ? (length + static_cast<uint32_t>(file.blockSize)) & 0xFF00 : length;
    *capacity = static_cast<uint16_t>(rounded);
    return CurrentCode();
}

// Finds blocks for a memo: the first run of the free chain that is long enough,
// or the end of the chain. A run is never split. When the walk gets past an entry
// to the end of the chain, nothing is changed: the last entry then points at a
// memo, and later walks take that for an entry.
Code TakeBlocks(const DbtFile& file, int32_t* nextBlock, uint16_t blocks, int32_t* found) {
    int32_t end = file.fileSize / file.blockSize;
    int32_t current = *nextBlock;
    int32_t previous = NoBlock;
    FreeRun run{}, previousRun{};
    for (int32_t steps = 0; current < end; steps++) {
        if (steps > end) return Fail("Trput", ErrStructure);  // a circle
        if (Code code = ReadRun(file, current, &run); code < 0) return code;
        if (blocks <= run.count) break;
        previous = current;
        previousRun = run;
        current = run.next;
    }
    *found = current;
    if (current < end && previous != NoBlock) return WriteRun(file, previous, {run.next, previousRun.count});
    if (current < end)
        *nextBlock = end;  // the rest of the chain is forgotten
    else if (current == *nextBlock)
        *nextBlock = static_cast<int32_t>(static_cast<uint32_t>(current) + blocks);
    return CurrentCode();
}

Code WriteCounted(const DbtFile& file, int32_t* nextBlock, int32_t* block, const char* text, unsigned kind) {
    size_t length = strlen(text);
    size_t needed = length + MemoHeadSize;
    auto blocks = static_cast<uint16_t>(BlocksFor(needed, file.blockSize));
    int32_t at = *block;
    if (kind == MemoReplace) {
        uint16_t capacity;
        if (Code code = OldCapacity(file, at, &capacity); code < 0) return code;
        if (capacity < needed) {
            if (Code code = WriteRun(file, at, {*nextBlock, capacity / file.blockSize}); code < 0)
                return code;
            *nextBlock = at;
            kind = MemoNew;
        }
    }

    MemoWriter writer(file.handle, file.flushEachWrite);
    uint8_t head[MemoHeadSize];
    StoreLe32(head, CountedMarks);
    StoreLe32(head + LengthOffset, static_cast<uint32_t>(needed));
    if (kind == MemoNew) {
        if (Code code = TakeBlocks(file, nextBlock, blocks, &at); code < 0) return code;
        if (writer.Start(BlockPosition(at, file.blockSize)) < 0 || writer.Put(head, sizeof head) < 0)
            return Pass("Trput");
    } else if (writer.Start(BlockPosition(at, file.blockSize) + MemoHeadSize) < 0) {
        return Pass("Trput");
    }

    if (writer.Put(text, length) < 0) return Pass("Trput");
    // The text once more fills up the last block, and zeros where it is too short.
    size_t filler = size_t{blocks} * static_cast<size_t>(file.blockSize) - needed;
    size_t repeated = std::min(filler, length);
    if (writer.Put(text, repeated) < 0 || writer.PutZeros(filler - repeated) < 0 || writer.Finish() < 0)
        return Pass("Trput");

    // A memo in place keeps its old length until its text is there.
    if (kind != MemoNew &&
        (SeekBlock(file, at, LengthOffset) < 0 ||
         Hwrite(file.handle, head + LengthOffset, MemoHeadSize - LengthOffset, file.flushEachWrite) < 0))
        return Pass("Trput");
    *block = at;
    return CurrentCode();
}

// ---- write ----

// Until the last step the next block is a copy, so that a write that fails
// changes neither the header nor what the object knows of it.
Code Trput(DbtFile& file, int32_t* block, const char* text, uint16_t options) {
    unsigned kind = options & 0xFF00u;
    int width = options & 0xFF;
    if (file.readOnly()) return Fail("Trput", ErrReadOnly);
    if (width != 0 && (width < MinWidth || width > MaxWidth)) return Fail("Trput", ErrMemoWidth);
    if (file.dialect == DialectWideChar) width = 0;
    int32_t nextBlock = file.nextBlock;

    // Not a block: what a failed write leaves.
    if (kind == MemoNew) *block = file.fileSize;
    Code code;
    switch (LayoutOf(file.dialect)) {
        case Layout::Terminated: code = WriteTerminated(file, &nextBlock, block, text, kind, width); break;
        case Layout::Counted:
            // Any other kind would write over the header.
            if (kind != MemoNew && kind != MemoReplace) return Fail("Trput", ErrBadOption);
            code = WriteCounted(file, &nextBlock, block, text, kind);
            break;
        default: code = Fail("Trput", ErrBadOption); break;
    }
    if (code < 0) return code;

    uint8_t bytes[4];
    StoreLe32(bytes, static_cast<uint32_t>(nextBlock));
    if (Hseek(file.handle, 0) < 0) return Pass("Trput");
    if (Hwrite(file.handle, bytes, sizeof bytes, file.flushEachWrite) < 0) return Pass("Trput");
    file.nextBlock = nextBlock;
    file.fileSize = std::max(file.fileSize, *block);
    return CurrentCode();
}

// ---- pack ----

MemoFile* BindForPack(int handle) { return Tslock(handle); }

uint16_t ModeOf(const MemoFile& file) { return static_cast<const DbtFile&>(file).dialect; }

int32_t CreateLike(const char* name, const MemoFile& like) {
    auto& file = static_cast<const DbtFile&>(like);
    return ZBDTCREATEX(name, static_cast<int16_t>(file.blockSize >> 9), file.dialect);
}

int32_t ReadForPack(int16_t memo, int32_t block, void** text) { return ZBDTRGET(memo, block, text, 0); }

int32_t WriteForPack(int16_t memo, int32_t* block, const char* text) {
    return ZBDTRPUT(memo, block, text, ZB_MemoNew);
}

constexpr PackFormat packFormat = {"Tpack",   ".DBT",    BindForPack, ModeOf,      CreateLike,
                                   ZBDTOPENX, ZBDTCLOSE, ReadForPack, WriteForPack};

}  // namespace

DbtFile* Tslock(int handle) { return BindObject<DbtFile>("Tslock", handle, SlotDbt); }

Code DbtQuickClose(int handle) { return MemoQuickClose("Tqclose", Tslock(handle)); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDTCREATE(const char* path) { return ZBDTCREATEX(path, 1, ZB_DialectClassic); }

int32_t ZB_CALL ZBDTCREATEX(const char* path, int16_t multiplier, int16_t dialect) {
    if (Pending()) return Pass("Tcreate");
    if (!path) return Fail("Tcreate", ErrNullPointer);
    if (multiplier < 1 || multiplier > MaxMultiplier) return Fail("Tcreate", ErrBlockSize);
    SetCode(0);
    uint16_t handle;
    if (Hcreate(&handle, path) < 0) return Pass("Tcreate");

    // An unknown dialect is found out only now: the empty file stays.
    Layout layout = LayoutOf(dialect);
    int blockSize = layout == Layout::Counted ? multiplier * MinBlockSize : MinBlockSize;
    Code code =
        layout == Layout::None ? Fail("Tcreate", ErrFileType) : WriteNewFile(handle, path, blockSize, layout);
    if (Hclose(handle) < 0) Pass("Tcreate");
    return code < 0 ? SetCode(code) : CurrentCode();
}

int32_t ZB_CALL ZBDTOPENX(int16_t* memo, const char* path, uint16_t mode) {
    return MemoOpen(format, memo, path, mode);
}

int32_t ZB_CALL ZBDTCLOSE(int16_t memo) { return MemoClose("Tclose", Tslock(memo), memo); }

int32_t ZB_CALL ZBDTHGET(int16_t memo) {
    DbtFile* file = Tslock(memo);
    return file ? Thget(*file) : Pass("Thget");
}

int32_t ZB_CALL ZBDTRGET(int16_t memo, int32_t block, void** text, int16_t option) {
    if (!text) return Fail("Trget", ErrNullPointer);
    Block<char> memory{};
    Code code = Trget(memo, block, option, &memory);
    *text = memory.data;
    return code;
}

int32_t ZB_CALL ZBDTRGETH(int16_t memo, int32_t block, ZbBlock* text, int16_t option) {
    if (!text) return Fail("Trget", ErrNullPointer);
    Block<char> memory{};
    Code code = Trget(memo, block, option, &memory);
    *text = memory.memory ? memory.memory : 0xFFFFFFFF;
    return code;
}

int32_t ZB_CALL ZBDTRPUT(int16_t memo, int32_t* block, const char* text, uint16_t options) {
    if (!block || !text) return Fail("Trput", ErrNullPointer);
    DbtFile* file = Tslock(memo);
    if (!file || Thget(*file) < 0) return Pass("Trput");
    return Trput(*file, block, text, options);
}

int32_t ZB_CALL ZBDTINFO(int16_t memo, ZbDbtInfo* info) {
    if (!info) return Fail("Tinfo", ErrNullPointer);
    DbtFile* file = Tslock(memo);
    if (!file) return Pass("Tinfo");
    info->flags = MemoInfoFlags(*file);
    memcpy(info->path, file->path, sizeof info->path);
    info->dialect = file->dialect;
    info->reported = file->reported;
    return CurrentCode();
}

int32_t ZB_CALL ZBDTPACK(int16_t data, int16_t* memo) { return MemoPack(packFormat, data, memo); }
