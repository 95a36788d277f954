// The file operations that every format uses. They speak in codes: each begins
// with the entry check (a pending failure is logged and returned, and nothing
// is done), except Hsize, Hclose and Heof. Handles are those of file/handles.h.
#pragma once

#include "core/library.h"
#include "file/handles.h"

namespace zb {

// Object flags: what the file layer keeps of an open in each control block.
enum ObjectFlags : uint16_t { FlagReadOnly = 1, FlagShared = 4 };

// ErrSeek, logged. Positions beyond 31 bits are refused.
Code Hseek(uint16_t handle, int64_t offset);

Code Htell(uint16_t handle, uint32_t* position);

// The file's length; the position is as before.
Code Hlen(uint16_t handle, uint32_t* length);

Code Heof(uint16_t handle, uint8_t* atEnd);

// ErrRead, not logged, also when fewer bytes came than were asked for.
Code Hread(uint16_t handle, void* buffer, int16_t count);

// Hseek and Hread in one, with their codes.
Code HreadAt(uint16_t handle, int64_t offset, void* buffer, int16_t count);

// Hread where a short read is wanted: tells how many bytes came.
Code HreadSome(uint16_t handle, void* buffer, int16_t count, uint32_t* done);

// ErrWrite, not logged.
Code Hwrite(uint16_t handle, const void* buffer, int16_t count, bool flush);

Code Hflush(uint16_t handle);

// Sets the file's size. A failure is logged with the code as it stands, and no
// code is set.
Code Hsize(uint16_t handle, int64_t size);

// 1 if the name can be reached, else 0; not a code.
int Hexist(const char* name);

// KeyNear (not logged) if there is no such file.
Code Herase(const char* name);

// The new name comes first.
Code Hrename(const char* newName, const char* oldName);

enum class LockOp : uint8_t { Lock = 0, Unlock = 1 };

// Every failure is logged: 33 from the platform is ErrLockViolation, and what
// has no code comes with 0xC000 set.
Code Hlock(uint16_t handle, LockOp operation, uint32_t offset, uint32_t length);

// Creates or empties a file, read and write, fully shared.
Code Hcreate(uint16_t* handle, const char* name);

// Opens an object's file as its mode says (ZB_ReadOnly, ZB_Shared), or, when
// that can't be had, for reading and fully shared: the object's flags tell what
// came of it.
Code Hopen(uint16_t* handle, const char* name, uint16_t mode, uint16_t* flags, int slot);

// At each bind: opens a file that ZBDQCLOSE gave up. The name comes from the
// slot, where it is always empty, so this fails with ErrOpen.
Code Hreopen(uint16_t* handle, const char* name, uint16_t flags, int slot);

Code Hclose(uint16_t handle);

// The open mode with ZB_OpenShared spelled out: it adds 0x200 and ZB_Shared, and
// leaves no mark of its own beside ZB_ReadOnly.
uint16_t NormalMode(uint16_t mode);

// Binds an object: SlotBind, then Hreopen of its file where that was given up.
// `Control` has the members `handle` and `flags`. Null with the code set.
template <class Control>
Control* BindObject(const char* unit, int handle, SlotType type, bool logBadHandle = true) {
    auto* control = static_cast<Control*>(SlotBind(unit, handle, type, logBadHandle));
    if (!control) return nullptr;
    ObjectSlot& slot = library.table[handle];
    if (slot.closedFlag && Hreopen(&control->handle, slot.fileName, control->flags, handle) < 0) {
        Pass(unit);
        return nullptr;
    }
    return control;
}

}  // namespace zb
