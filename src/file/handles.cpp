#include "file/handles.h"

namespace zb {
namespace {

// Entry 0 heads the circular list of free entries and entry 1 that of used ones;
// a file handle is the index of its entry.
struct MapEntry {
    int16_t next;
    int16_t prev;
    PlatformHandle file;  // None while the entry is free; the capacity in entry 0
};

constexpr int FreeHead = 0;
constexpr int UsedHead = 1;
constexpr int FirstHandle = 2;

MapEntry* map;
int32_t useCount;
uint32_t lastError;

int Capacity() { return map ? static_cast<int>(map[FreeHead].file) : 0; }

bool BuildMap(int capacity) {
    map = static_cast<MapEntry*>(
        platform->Allocate(static_cast<size_t>(capacity + FirstHandle) * sizeof(MapEntry)));
    if (!map) return false;
    for (int i = FirstHandle; i < capacity + FirstHandle; i++)
        map[i] = {static_cast<int16_t>(i + 1), static_cast<int16_t>(i - 1), PlatformHandle::None};
    map[FirstHandle].prev = FreeHead;
    map[capacity + 1].next = FreeHead;
    map[FreeHead] = {FirstHandle, static_cast<int16_t>(capacity + 1), static_cast<PlatformHandle>(capacity)};
    map[UsedHead] = {UsedHead, UsedHead, PlatformHandle::None};
    return true;
}

void MoveToFrontOf(int head, int entry) {
    map[map[entry].prev].next = map[entry].next;
    map[map[entry].next].prev = map[entry].prev;
    map[entry].next = map[head].next;
    map[entry].prev = static_cast<int16_t>(head);
    map[map[head].next].prev = static_cast<int16_t>(entry);
    map[head].next = static_cast<int16_t>(entry);
}

// The file handle, or -1 with the map full.
int FhmapAdd(PlatformHandle file) {
    int entry = map ? map[FreeHead].next : FreeHead;
    if (entry == FreeHead || map[entry].file != PlatformHandle::None) return -1;
    MoveToFrontOf(UsedHead, entry);
    map[entry].file = file;
    return entry;
}

int FhmapRemove(int handle) {
    if (FhmapLookup(static_cast<int16_t>(handle)) == PlatformHandle::None) return 0;
    MoveToFrontOf(FreeHead, handle);
    map[handle].file = PlatformHandle::None;
    return 1;
}

PlatformHandle FileOf(uint16_t handle) { return FhmapLookup(static_cast<int16_t>(handle)); }

int Outcome(bool success) { return success ? PfClearError() : PfRecordError(); }

}  // namespace

int FhmapAttach(int capacity) {
    if (++useCount > 1) return 1;
    return BuildMap(capacity);
}

int FhmapDetach() {
    if (useCount > 0) useCount--;
    if (useCount == 0) {
        platform->Free(map);
        map = nullptr;
    }
    return 1;
}

PlatformHandle FhmapLookup(int16_t handle) {
    if (handle < FirstHandle || handle >= Capacity() + FirstHandle) return PlatformHandle::None;
    return map[handle].file;
}

uint32_t PfLastError() { return lastError; }

int PfRecordError() {
    lastError = platform->LastError();
    if (lastError == ErrorSharing) lastError = ErrorNotFound;
    return 0;
}

int PfClearError() {
    lastError = 0;
    return 1;
}

int PfCreate(const char* name, unsigned flags, uint16_t* handle) {
    if (flags & ShareFully) flags |= ShareRead | ShareWrite;
    PlatformHandle file = platform->Open(name, flags);
    if (file == PlatformHandle::None) {
        *handle = NoFile;
        return PfRecordError();
    }
    int entry = FhmapAdd(file);
    *handle = static_cast<uint16_t>(entry);
    return entry < 0 ? 0 : PfClearError();
}

int PfOpen(const char* name, unsigned flags, uint16_t* handle) {
    return PfCreate(name, flags | OpenExisting, handle);
}

int PfRead(uint16_t handle, void* buffer, uint32_t count, uint32_t* done) {
    PfClearError();
    PlatformHandle file = FileOf(handle);
    auto* to = static_cast<uint8_t*>(buffer);
    uint32_t left = count;
    uint32_t got = 0;
    bool ok = platform->Read(file, to, left, &got);
    uint32_t total = got;
    while (!ok && left != 0 &&
           (platform->LastError() == ErrorIoPending || platform->LastError() == ErrorSignalPending)) {
        to += got;
        left -= got;
        ok = platform->Read(file, to, left, &got);
        total += got;
    }
    if (done) *done = total;
    if (!ok) return PfRecordError();
    return done || total == count;
}

int PfReadMapped(uint16_t handle, int64_t offset, void* buffer, uint32_t count) {
    return platform->ReadMapped(FileOf(handle), offset, buffer, count) ? PfClearError() : 0;
}

int PfWrite(uint16_t handle, const void* buffer, uint32_t count) {
    constexpr uint32_t Piece = 4096;
    PlatformHandle file = FileOf(handle);
    auto* from = static_cast<const uint8_t*>(buffer);
    for (bool more = true; more;) {
        more = count >= Piece;
        uint32_t piece = more ? Piece : count;
        uint32_t done = 0;
        if (!platform->Write(file, from, piece, &done) || done != piece) return PfRecordError();
        from += piece;
        count -= piece;
    }
    return PfClearError();
}

int PfSeek(uint16_t handle, int64_t offset, SeekFrom origin, uint32_t* position) {
    uint32_t ignored;
    return Outcome(platform->Seek(FileOf(handle), offset, origin, position ? position : &ignored));
}

int PfClose(uint16_t handle) {
    bool closed = platform->Close(FileOf(handle));
    if (!FhmapRemove(handle)) return 0;
    return Outcome(closed);
}

int PfDelete(const char* name) { return Outcome(platform->Delete(name)); }

int PfLock(uint16_t handle, uint32_t offset, uint32_t length) {
    return Outcome(platform->Lock(FileOf(handle), offset, length));
}

int PfUnlock(uint16_t handle, uint32_t offset, uint32_t length) {
    return Outcome(platform->Unlock(FileOf(handle), offset, length));
}

int PfTruncate(uint16_t handle, int64_t size) {
    if (!PfSeek(handle, size, SeekFrom::Start, nullptr)) return 0;
    return Outcome(platform->SetEnd(FileOf(handle)));
}

void PfHint(uint16_t handle, ReadHint hint) { platform->Hint(FileOf(handle), hint); }

void PfReleaseReads(uint16_t handle) { platform->ReleaseReads(FileOf(handle)); }

int PfCommit(uint16_t) { return 1; }

}  // namespace zb
