// The bind of a data handle, and the locks by which programs share a data file.
//
// Programs agree by byte ranges far beyond any data, the same in every dialect:
//
//   0x5FFFFFC0 to 0x7FFFFFBE   one byte a record: record n at 0x7FFFFFBF - n
//   0x7FFFFFBF to 0x7FFFFFFC   62 reader slots of the shared lock, the last first
//   0x7FFFFFFD                 covered by the range locks only
//   0x7FFFFFFE                 the header byte
#include <algorithm>
#include <cstring>

#include "data/data.h"
#include "file/operations.h"

namespace zb {
namespace {

struct Range {
    uint32_t offset;
    uint32_t length;
};

constexpr uint32_t RecordBase = 0x7FFFFFBF;  // record n's byte is n below
constexpr uint32_t ReaderBase = 0x7FFFFFFF;  // reader slot s is s below
constexpr uint32_t LowestRecord = 0x5FFFFFC0;
constexpr uint16_t FirstReaderSlot = 3;
constexpr uint16_t LastReaderSlot = 64;

constexpr Range HeaderRange{0x7FFFFFFE, 1};
constexpr Range AllRange{LowestRecord, 0x7FFFFFFF - LowestRecord};
constexpr Range BodyRange{LowestRecord, 0x7FFFFFFE - LowestRecord};
constexpr Range RecordsRange{LowestRecord, RecordBase - LowestRecord};
constexpr Range ReadersRange{RecordBase, 63};

constexpr uint16_t HeldStep = 100;
constexpr uint16_t HeldMost = 16384;

Range RangeOf(int16_t kind) {
    return kind == LockHeader ? HeaderRange : kind == LockAll ? AllRange : BodyRange;
}

Range RecordRange(uint32_t recordNo) { return {RecordBase - recordNo, 1}; }

Range ReaderRange(uint16_t slot) { return {ReaderBase - slot, 1}; }

void Name(DataFile& file, Range range) {
    file.lockOffset = range.offset;
    file.lockLength = range.length;
}

bool TakeLock(DataFile& file, Range range) {
    Name(file, range);
    return Hlock(file.handle, LockOp::Lock, range.offset, range.length) >= 0;
}

// Gives up the range named last.
Code GiveLock(DataFile& file) { return Hlock(file.handle, LockOp::Unlock, file.lockOffset, file.lockLength); }

void Tell(uint16_t* conflict, uint16_t value) {
    if (conflict) *conflict = value;
}

// A reader must find no record and no file locked. It holds a slot from then
// on, which stands in the way of those who want the whole file.
bool TakeReaderSlot(DataFile& file) {
    if (!TakeLock(file, RecordsRange)) return false;
    SetCode(0);
    GiveLock(file);
    for (file.readerSlot = FirstReaderSlot;; file.readerSlot++) {
        SetCode(0);
        if (TakeLock(file, ReaderRange(file.readerSlot))) return true;
        if (file.readerSlot == LastReaderSlot) return false;
    }
}

uint32_t* FindHeld(DataFile& file, uint32_t recordNo) {
    uint32_t* end = file.heldList.data + file.heldCount;
    uint32_t* found = std::find(file.heldList.data, end, recordNo);
    return found == end ? nullptr : found;
}

bool AddHeld(DataFile& file, uint32_t recordNo) {
    if (file.heldCount == file.heldCapacity) {
        if (file.heldCapacity >= HeldMost) return false;
        auto capacity = static_cast<uint16_t>(std::min(file.heldCapacity + HeldStep, int{HeldMost}));
        if (BlockRealloc(file.heldList.memory, capacity * sizeof(uint32_t)) < 0) return false;
        if (file.heldList.Lock() < 0) return false;
        file.heldCapacity = capacity;
    }
    file.heldList[file.heldCount++] = recordNo;
    return true;
}

void RemoveHeld(DataFile& file, uint32_t* held) {
    uint32_t* end = file.heldList.data + file.heldCount;
    std::copy(held + 1, end, held);
    end[-1] = 0;
    file.heldCount--;
}

void TryRecord(DataFile& file, uint32_t recordNo, uint16_t* conflict) {
    if (FindHeld(file, recordNo)) return;
    if (TakeLock(file, RecordRange(recordNo))) {
        GiveLock(file);
    } else {
        Tell(conflict, LockConflict);
        SetCode(0);
    }
}

void TakeRecord(DataFile& file, uint32_t recordNo, uint16_t* conflict) {
    if (FindHeld(file, recordNo)) return;
    // With the list full the byte stays locked, until the file is closed.
    if (TakeLock(file, RecordRange(recordNo)) && AddHeld(file, recordNo)) return;
    Tell(conflict, LockConflict);
    SetCode(0);
}

void ReleaseRecord(DataFile& file, uint32_t* held) {
    Name(file, RecordRange(*held));
    GiveLock(file);
    RemoveHeld(file, held);
}

}  // namespace

DataFile* Dslock(int handle) {
    auto* file = BindObject<DataFile>("Dslock", handle, SlotData, false);
    if (!file) return nullptr;
    if (file->fields.Lock() < 0 || file->record.Lock(static_cast<size_t>(file->recordLength())) < 0) {
        Pass("Dslock");
        return nullptr;
    }
    return file;
}

Code DataLock(DataFile& file, int16_t kind, uint16_t* conflict) {
    Tell(conflict, 0);
    SetCode(0);
    bool granted;
    switch (kind) {
        case LockHeader:
        case LockAll:
        case LockRecords: granted = TakeLock(file, RangeOf(kind)); break;
        case LockShared: granted = TakeReaderSlot(file); break;
        case LockTry: granted = TakeLock(file, ReadersRange); break;
        default: return 0;
    }
    if (!granted) {
        Pass("DataLock");
        Tell(conflict, LockConflict);
    } else if (kind == LockTry) {
        GiveLock(file);
    } else {
        HeaderRefresh(file);
    }
    return SetCode(0);
}

Code DataUnlock(DataFile& file, int16_t kind, uint16_t* conflict) {
    Tell(conflict, 0);
    switch (kind) {
        case LockHeader:
        case LockAll:
        case LockRecords: Name(file, RangeOf(kind)); break;
        case LockShared: Name(file, ReaderRange(file.readerSlot)); break;
        default: break;  // the range that the last call named
    }
    SetCode(0);
    return GiveLock(file);
}

Code HeaderRefresh(DataFile& file) {
    if (Hseek(file.handle, 4) < 0) return Pass("HeaderRefresh");
    if (Hread(file.handle, file.header + 4, 4) < 0) return Pass("HeaderRefresh");
    return CurrentCode();
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDLOCK(int16_t data, int16_t kind, uint16_t* conflict) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddlock");
    return DataLock(*file, kind, conflict);
}

int32_t ZB_CALL ZBDDUNLOCK(int16_t data, int16_t kind, uint16_t* conflict) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddunlock");
    return DataUnlock(*file, kind, conflict);
}

int32_t ZB_CALL ZBDDRLOCK(int16_t data, uint32_t recordNo, int16_t kind, uint16_t* conflict) {
    DataFile* file = Dslock(data);
    if (!file || file->heldList.Lock() < 0) return Pass("Drlock");
    Tell(conflict, 0);
    Name(*file, RecordRange(recordNo));
    switch (kind) {
        case LockTry: TryRecord(*file, recordNo, conflict); break;
        case LockTake: TakeRecord(*file, recordNo, conflict); break;
        case LockRelease:
            if (recordNo == 0) {
                while (file->heldCount > 0) ReleaseRecord(*file, &file->heldList[file->heldCount - 1]);
            } else if (uint32_t* held = FindHeld(*file, recordNo)) {
                ReleaseRecord(*file, held);
            }
            break;
        default: break;
    }
    return CurrentCode();
}

int32_t ZB_CALL ZBDDHLOCK(int16_t) { return 0; }
