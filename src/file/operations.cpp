#include "file/operations.h"

namespace zb {
namespace {

constexpr unsigned ShareBoth = ShareRead | ShareWrite;

Code PlatformCode(uint32_t number) { return static_cast<Code>(number | 0xC000); }

}  // namespace

Code Hseek(uint16_t handle, int64_t offset) {
    if (Pending()) return Pass("Hseek");
    if (offset < 0 || !PfSeek(handle, offset, SeekFrom::Start, nullptr)) return Fail("Hseek", ErrSeek);
    return CurrentCode();
}

Code Htell(uint16_t handle, uint32_t* position) {
    if (Pending()) return Pass("Htell");
    if (!position) return Fail("Htell", ErrNullPointer);
    uint32_t at = 0xFFFFFFFF;
    bool ok = PfSeek(handle, 0, SeekFrom::Current, &at);
    *position = at;
    return ok ? CurrentCode() : Fail("Htell", PlatformCode(PfLastError()));
}

Code Hlen(uint16_t handle, uint32_t* length) {
    if (Pending()) return Pass("Hlen");
    if (!length) return Fail("Hlen", ErrNullPointer);
    uint32_t before = 0;
    if (!PfSeek(handle, 0, SeekFrom::Current, &before)) return Fail("Hlen", ErrSeek);
    if (!PfSeek(handle, 0, SeekFrom::End, length)) return Fail("Hlen", ErrSeek);
    PfSeek(handle, before, SeekFrom::Start, nullptr);
    return CurrentCode();
}

Code Heof(uint16_t handle, uint8_t* atEnd) {
    uint32_t position = 0;
    if (Htell(handle, &position) < 0) return Pass("Heof");
    if (!atEnd) return Fail("Heof", ErrNullPointer);
    uint32_t length = 0;
    if (Hlen(handle, &length) < 0) return Pass("Heof");
    *atEnd = static_cast<int32_t>(length) > static_cast<int32_t>(position) ? 0 : 1;
    return CurrentCode();
}

Code HreadSome(uint16_t handle, void* buffer, int16_t count, uint32_t* done) {
    *done = 0;
    if (Pending()) return Pass("Hread");
    if (!buffer) return Fail("Hread", ErrNullPointer);
    if (count < 0 || !PfRead(handle, buffer, static_cast<uint32_t>(count), done) ||
        *done != static_cast<uint32_t>(count))
        return SetCode(ErrRead);
    return CurrentCode();
}

Code Hread(uint16_t handle, void* buffer, int16_t count) {
    uint32_t done;
    return HreadSome(handle, buffer, count, &done);
}

Code HreadAt(uint16_t handle, int64_t offset, void* buffer, int16_t count) {
    if (!Pending() && buffer && count > 0 &&
        PfReadMapped(handle, offset, buffer, static_cast<uint32_t>(count)))
        return CurrentCode();
    return Hseek(handle, offset) < 0 ? CurrentCode() : Hread(handle, buffer, count);
}

Code Hwrite(uint16_t handle, const void* buffer, int16_t count, bool flush) {
    if (Pending()) return Pass("Hwrite");
    if (!buffer) return Fail("Hwrite", ErrNullPointer);
    if (count < 0 || !PfWrite(handle, buffer, static_cast<uint32_t>(count))) return SetCode(ErrWrite);
    return flush ? Hflush(handle) : CurrentCode();
}

Code Hflush(uint16_t handle) {
    if (Pending()) return Pass("Hflush");
    return PfCommit(handle) ? CurrentCode() : Fail("Hflush", ErrFlush);
}

Code Hsize(uint16_t handle, int64_t size) { return PfTruncate(handle, size) ? CurrentCode() : Pass("Hsize"); }

int Hexist(const char* name) { return name && platform->Exists(name) ? 1 : 0; }

Code Herase(const char* name) {
    if (Pending()) return Pass("Herase");
    if (!name) return Fail("Herase", ErrNullPointer);
    if (PfDelete(name)) return CurrentCode();
    switch (PfLastError()) {
        case 2: return SetCode(KeyNear);
        case 13: return Fail("Herase", ErrAccess);
        default: return Fail("Herase", PlatformCode(PfLastError()));
    }
}

Code Hrename(const char* newName, const char* oldName) {
    if (Pending()) return Pass("Hrename");
    if (!newName || !oldName) return Fail("Hrename", ErrNullPointer);
    switch (int error = platform->Rename(newName, oldName)) {
        case 0: return CurrentCode();
        case 2: return Fail("Hrename", ErrRenameMissing);
        case 13: return Fail("Hrename", ErrAccess);
        default: return Fail("Hrename", PlatformCode(static_cast<uint32_t>(error)));
    }
}

Code Hlock(uint16_t handle, LockOp operation, uint32_t offset, uint32_t length) {
    if (Pending()) return Pass("Hlock");
    if (handle == 0) return SetCode(ErrNullPointer);
    if (operation == LockOp::Lock ? PfLock(handle, offset, length) : PfUnlock(handle, offset, length))
        return CurrentCode();
    switch (PfLastError()) {
        case 1: return Fail("Hlock", ErrBadOption);
        case 6: return Fail("Hlock", ErrBadHandle);
        case 33: return Fail("Hlock", ErrLockViolation);
        case 36: return Fail("Hlock", ErrShareBuffer);
        default: return Fail("Hlock", PlatformCode(PfLastError()));
    }
}

Code Hcreate(uint16_t* handle, const char* name) {
    if (Pending()) return Pass("Hcreate");
    if (!handle || !name) return SetCode(ErrNullPointer);
    if (!*name) return Fail("Hcreate", ErrBadName);
    if (!PfCreate(name, OpenRead | OpenWrite | ShareFully, handle)) return Fail("Hcreate", ErrOpen);
    return CurrentCode();
}

Code Hopen(uint16_t* handle, const char* name, uint16_t mode, uint16_t* flags, int slot) {
    if (Pending()) return Pass("Hopen");
    if (!handle || !name || !flags) return Fail("Hopen", ErrNullPointer);
    if (!*name) return Fail("Hopen", ErrBadName);

    auto objectFlags = static_cast<uint16_t>(*flags & ~(FlagReadOnly | FlagShared));
    unsigned open = OpenRead | OpenWrite;
    if (mode & ZB_ReadOnly) {
        open = OpenRead;
        objectFlags |= FlagReadOnly;
    }
    if (mode & ZB_Shared) {
        open |= ShareBoth;
        objectFlags |= FlagShared;
    }
    if (!PfOpen(name, open, handle)) {
        objectFlags |= FlagReadOnly | FlagShared;
        if (!PfOpen(name, OpenRead | ShareBoth, handle)) {
            *flags = objectFlags;
            return Fail("Hopen", ErrOpen);
        }
    }
    *flags = objectFlags;
    library.table[slot].closedFlag = 0;
    return CurrentCode();
}

Code Hreopen(uint16_t* handle, const char* name, uint16_t flags, int slot) {
    if (Pending()) return Pass("Hreopen");
    if (!library.table[slot].closedFlag) return 0;
    if (!handle || !name) return Fail("Hreopen", ErrNullPointer);
    unsigned open = flags & FlagReadOnly ? OpenRead : OpenRead | OpenWrite;
    if (flags & FlagShared) open |= ShareBoth;
    if (!PfOpen(name, open, handle)) return Fail("Hreopen", ErrOpen);
    library.table[slot].closedFlag = 0;
    return CurrentCode();
}

Code Hclose(uint16_t handle) { return PfClose(handle) ? CurrentCode() : Fail("Hclose", ErrBadHandle); }

uint16_t NormalMode(uint16_t mode) {
    if (mode & ZB_OpenShared) {
        mode |= 0x0200 | ZB_Shared;
        if (mode & ZB_ReadOnly) mode &= static_cast<uint16_t>(~ZB_OpenShared);
    }
    return mode;
}

}  // namespace zb
