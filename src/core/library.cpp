#include "core/library.h"

#include <cstdio>
#include <cstring>

#include "platform/platform.h"

namespace zb {

Library library;

Code CurrentCode() {
    library.codeMirror = library.attached ? library.code : ErrNotAttached;
    return library.codeMirror;
}

Code SetCode(Code code) {
    if (!library.attached) return library.codeMirror = ErrNotAttached;
    return library.code = library.codeMirror = code;
}

void LogLine(const char* unit, int line, Code code) {
    if (!library.logSwitch) return;
    if (FILE* log = fopen(library.logName, "a+")) {
        fprintf(log, "%s\t%d\t%d\n", unit, line, code);
        fclose(log);
    }
}

Code Fail(const char* unit, Code code, int line) {
    SetCode(code);
    LogLine(unit, line, code);
    return CurrentCode();
}

Code Pass(const char* unit, int line) {
    Code code = CurrentCode();
    LogLine(unit, line, code);
    return code;
}

Code SlotAlloc(int16_t* handle, unsigned slotType, size_t size, void** block) {
    if (Pending()) return Pass("Slotalloc");
    if (!handle || !block) return Fail("Slotalloc", ErrNullPointer);
    *handle = 0;
    *block = nullptr;
    if (ClientRestore() != 0) return CurrentCode();
    if (library.table.Lock() < 0) return Pass("Slotalloc");

    int free = 0;
    while (free < library.slotCount && library.table[free].slotType != SlotFree) free++;
    if (free == library.slotCount) {
        *handle = -1;
        return Fail("Slotalloc", ErrNoSlot);
    }
    *handle = static_cast<int16_t>(free);
    if (slotType < SlotData || slotType > SlotNtx) return Fail("Slotalloc", ErrBadSignature);

    ObjectSlot& slot = library.table[free];
    if (slot.control.Alloc(size) < 0) {
        *handle = -1;
        return Pass("Slotalloc");
    }
    slot.serial = ++library.lastSerial;
    slot.slotType = static_cast<uint8_t>(slotType);
    library.openCount++;
    *block = slot.control.data;
    return SetCode(0);
}

void SlotRelease(int handle) {
    ObjectSlot& slot = library.table[handle];
    slot.control.Free();
    slot.slotType = SlotFree;
    library.openCount--;
}

uint64_t SlotSerial(int handle) {
    if (handle < 0 || handle >= library.slotCount || library.table.Lock() < 0) return 0;
    const ObjectSlot& slot = library.table[handle];
    return slot.slotType == SlotFree ? 0 : slot.serial;
}

void* SlotBind(const char* unit, int handle, SlotType type, bool logBadHandle) {
    if (Pending()) {
        Pass(unit);
        return nullptr;
    }
    ClientRestore();
    if (library.table.Lock() < 0) return nullptr;
    if (handle < 0 || handle >= library.slotCount || library.table[handle].slotType != type) {
        SetCode(ErrBadHandle);
        if (logBadHandle) Pass(unit);
        return nullptr;
    }
    ObjectSlot& slot = library.table[handle];
    if (slot.control.Lock() < 0) Pass(unit);
    return slot.control.data;
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBECODE() { return CurrentCode(); }

int32_t ZB_CALL ZBESCODE(int16_t code) { return SetCode(code); }

int32_t ZB_CALL ZBESLOG(uint16_t on, const char* name) {
    if (!library.attached) return SetCode(ErrNotAttached);
    library.logSwitch = on;
    // A name that fills its 30 bytes ends there.
    if (on == 1 && name) strncpy(library.logName, name, sizeof library.logName - 1);
    return CurrentCode();
}

int32_t ZB_CALL _ZBMALLOC(ZbBlock* handle, uint32_t size) {
    return handle ? BlockAlloc(handle, size) : Fail("Mgalloc", ErrNullPointer);
}

int32_t ZB_CALL _ZBMRALLOC(ZbBlock* handle, uint32_t size) {
    return handle ? BlockRealloc(*handle, size) : Fail("Mgralloc", ErrNullPointer);
}

int32_t ZB_CALL _ZBMFREE(ZbBlock handle) { return BlockFree(handle); }

int32_t ZB_CALL ZBMFREE(void* address) {
    BlockFree(BlockAt(address));
    return 0;
}

int32_t ZB_CALL _ZBMLOCK(void** address, ZbBlock handle) {
    if (!address) return Fail("Mglock", ErrNullPointer);
    *address = BlockAddress(handle);
    return *address ? 0 : CurrentCode();
}

int32_t ZB_CALL _ZBMUNLOCK(ZbBlock) { return 0; }
