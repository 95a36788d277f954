#include "memo/memo.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zb {
namespace {

constexpr size_t MaxTransfer = INT16_MAX;

// ---- pack ----

constexpr int PointerWidth = 10;  // on disk: a block number in a data record
constexpr uint16_t UpdateRecord = 0x0100;

struct Names {
    char file[MaxName + 1];
    char backup[MaxName + 1];
    char work[MaxName + 1];
};

Code BuildNames(const PackFormat& format, const MemoFile& memo, Names* names) {
    strcpy(names->file, memo.path);
    // A file that is its own backup would be erased.
    if (!ReplaceExtension(names->backup, sizeof names->backup, names->file, ".BKT") ||
        platform->SameName(names->backup, names->file) ||
        !WorkName(names->work, sizeof names->work, names->file, format.extension))
        return Fail(format.unit, ErrBadName);
    return 0;
}

int32_t LoadPointer(const uint8_t* field) {
    char digits[PointerWidth + 1] = {};
    memcpy(digits, field, PointerWidth);
    // Modulo 2 to the 32nd, as the fields are read.
    return static_cast<int32_t>(strtoll(digits, nullptr, 10));
}

void StorePointer(uint8_t* field, int32_t block) {
    char digits[PointerWidth + 2];
    snprintf(digits, sizeof digits, "%10ld", static_cast<long>(block));
    memcpy(field, digits, PointerWidth);
}

// Copies the memos of the record in the buffer, and the record back if it names any.
Code PackRecord(const PackFormat& format, int16_t dataHandle, DataFile& data, int16_t from, int16_t to,
                uint32_t recordNo) {
    bool changed = false;
    for (int i = 0; i < data.fieldCount; i++) {
        if (data.fields[i].type != 'M') continue;
        uint8_t* field = data.record.data + data.fields[i].offset;
        int32_t block = LoadPointer(field);
        if (block == 0) continue;

        void* text;
        if (format.read(from, block, &text) < 0) return Pass(format.unit);
        Code code = static_cast<Code>(format.write(to, &block, static_cast<char*>(text)));
        ZBMFREE(text);
        if (code < 0) return Pass(format.unit);
        StorePointer(field, block);
        changed = true;
    }
    if (changed && ZBDDRPUT(dataHandle, &recordNo, UpdateRecord) < 0) return Pass(format.unit);
    return CurrentCode();
}

Code PackRecords(const PackFormat& format, int16_t dataHandle, DataFile& data, int16_t from, int16_t to) {
    int32_t count = data.recordCount();
    for (int32_t n = 0; n < count;) {
        if (DataRead(data, data.record.data, ++n) < 0) return Pass(format.unit);
        if (data.record[0] != LiveFlag) continue;
        if (Code code = PackRecord(format, dataHandle, data, from, to, static_cast<uint32_t>(n)); code < 0)
            return code;
    }
    return CurrentCode();
}

}  // namespace

// ---- open and close ----

Code MemoOpen(const MemoFormat& format, int16_t* handle, const char* path, uint16_t mode) {
    if (Pending()) return Pass(format.unit);
    if (!handle || !path) return Fail(format.unit, ErrNullPointer);
    void* control;
    if (SlotAlloc(handle, format.type, format.controlSize, &control) < 0) return Pass(format.unit);

    auto& file = *static_cast<MemoFile*>(control);
    mode = NormalMode(mode);
    if (Hopen(&file.handle, path, mode, &file.flags, *handle) < 0) {
        Pass(format.unit);
    } else {
        file.flushEachWrite = true;
        format.readHeader(file, path, mode);
    }
    Code code = CurrentCode();
    if (code >= 0) return code;

    SetCode(0);
    if (file.handle != format.unopened) Hclose(file.handle);
    SlotRelease(*handle);
    *handle = -1;
    return SetCode(code);
}

Code KeepPath(const char* unit, MemoFile& file, const char* path) {
    if (strlen(path) > MaxName) return Fail(unit, ErrBadName);
    strcpy(file.path, path);
    return CurrentCode();
}

Code MemoClose(const char* unit, MemoFile* file, int handle) {
    if (!file) return Pass(unit);
    if (Hclose(file->handle) < 0) Pass(unit);
    SlotRelease(handle);
    return CurrentCode();
}

Code MemoQuickClose(const char* unit, MemoFile* file) {
    if (!file || Hclose(file->handle) < 0) return Pass(unit);
    return CurrentCode();
}

uint16_t MemoInfoFlags(const MemoFile& file) {
    unsigned flags = file.flags;
    return static_cast<uint16_t>((flags & 1) | (flags >> 1 & 2) | (flags << 1 & 4));
}

// ---- texts ----

Code ReadText(const char* unit, const MemoFile& file, int64_t length, Block<char>* text) {
    if (length < 0) return Fail(unit, ErrStructure);
    if (length > int64_t{MaxTransfer}) return Fail(unit, ErrRead);
    if (text->Alloc(static_cast<size_t>(length) + 1) < 0) return Pass(unit);
    if (Hread(file.handle, text->data, static_cast<int16_t>(length)) < 0) return Pass(unit);
    (*text)[length] = 0;
    return CurrentCode();
}

Code MemoWriter::Start(int64_t at) {
    position = at;
    return Hseek(handle, at);
}

Code MemoWriter::Put(const void* bytes, size_t count) {
    if (count > Room - used && Finish() < 0) return CurrentCode();
    if (count > MaxTransfer) return SetCode(ErrWrite);
    position += static_cast<int64_t>(count);
    if (position > MaxPosition) return SetCode(ErrSeek);
    if (count > Room) return Hwrite(handle, bytes, static_cast<int16_t>(count), flush);
    memcpy(buffer + used, bytes, count);
    used += count;
    return CurrentCode();
}

Code MemoWriter::PutZeros(size_t count) {
    static constexpr char zeros[512] = {};
    for (; count > sizeof zeros; count -= sizeof zeros)
        if (Put(zeros, sizeof zeros) < 0) return CurrentCode();
    return Put(zeros, count);
}

Code MemoWriter::Finish() {
    auto count = static_cast<int16_t>(used);
    used = 0;
    return count ? Hwrite(handle, buffer, count, flush) : CurrentCode();
}

// ---- pack ----

Code MemoPack(const PackFormat& format, int16_t dataHandle, int16_t* memo) {
    if (Pending()) return Pass(format.unit);
    if (!memo) return Fail(format.unit, ErrNullPointer);
    DataFile* data = Dslock(dataHandle);
    if (!data) return Pass(format.unit);
    MemoFile* file = format.bind(*memo);
    if (!file) return Pass(format.unit);
    if (file->readOnly()) return Fail(format.unit, ErrReadOnly);
    Names names;
    if (BuildNames(format, *file, &names) < 0) return CurrentCode();

    // Whether granted or not. From here on only a walk that reached the end gives
    // the lock back, and on any failure what was made so far stays as it is.
    DataLock(*data, LockAll, nullptr);
    uint16_t mode = format.mode(*file);
    int16_t fresh;
    if (format.create(names.work, *file) < 0) return Pass(format.unit);
    if (format.open(&fresh, names.work, mode) < 0) return Pass(format.unit);
    if (PackRecords(format, dataHandle, *data, *memo, fresh) < 0) return CurrentCode();

    Code code = CurrentCode();
    DataUnlock(*data, LockAll, nullptr);
    SetCode(code);

    if (Herase(names.backup) < 0) return Pass(format.unit);
    data->modified = ModifiedFlag;
    if (format.close(fresh) < 0 || format.close(*memo) < 0) return Pass(format.unit);
    if (Hrename(names.backup, names.file) < 0) return Pass(format.unit);
    if (Hrename(names.file, names.work) < 0) return Pass(format.unit);
    if (format.open(memo, names.file, mode | ZB_Shared) < 0) return Pass(format.unit);
    return CurrentCode();
}

}  // namespace zb
