// What exists once per process: the client, the table of open objects, the
// configuration. A process is one client, so the values that each call works
// with and the values that the client entry keeps are the same ones.
#pragma once

#include "core/block.h"

namespace zb {

enum SlotType : uint8_t {
    SlotFree = 0,
    SlotData = 1,
    SlotNdx = 2,
    SlotDbt = 3,
    SlotFpt = 4,
    SlotMdx = 5,
    SlotIdx = 6,
    SlotNtx = 7
};

// One open object. The object's handle is the slot's index in the table.
struct ObjectSlot {
    Block<uint8_t> control;  // its handle is 0 when free
    uint64_t serial;         // of the object; no two ever have the same
    uint8_t slotType;
    uint8_t closedFlag;  // the platform file was given up by ZBDQCLOSE
    char fileName[128];  // never written: a reopen gets an empty name, and fails
};

struct Library {
    bool attached;
    Code code;
    Code codeMirror;  // the value last read or written, ErrNotAttached without a client

    uint16_t dateStyle;
    bool asciiSort;  // character keys compare by byte value, not by CollationOrder

    Block<ObjectSlot> table;
    int16_t slotCount;
    uint16_t openCount;
    uint64_t lastSerial;  // of the objects, counted from the process's start

    // The table of the host's functions (see expr/): absent while capacity is 0.
    BlockHandle userFuncMemory;
    int16_t userFuncCount;
    int16_t userFuncCapacity;

    uint16_t logSwitch;
    char logName[31];

    uint32_t hostValue;  // what the host gave to QV4InitInstance
};

extern Library library;

// Begins a call of the client's: clears the code. ErrNotAttached without a client.
inline Code ClientRestore() {
    if (!library.attached) return library.codeMirror = ErrNotAttached;
    return library.code = library.codeMirror = 0;
}

// Takes the first free slot and gives it a zero-filled control block of `size`
// bytes. ErrNullPointer, ErrNoSlot (the handle is then -1), ErrBadSignature for
// an unknown type, ErrMemory (-1).
Code SlotAlloc(int16_t* handle, unsigned slotType, size_t size, void** block);

// Frees a slot with its control block.
void SlotRelease(int handle);

// The serial number of the object that a handle names, 0 without one. After a
// host's function has run, this alone tells an object from another that has
// taken its slot, and perhaps its memory.
uint64_t SlotSerial(int handle);

// The control block of a handle of one type, with its address refreshed: the
// first half of every bind. Null with the code set: the pending one (logged),
// ErrNotAttached, ErrBadHandle (logged only where `logBadHandle` says so) or
// ErrLockBlock.
void* SlotBind(const char* unit, int handle, SlotType type, bool logBadHandle);

}  // namespace zb
