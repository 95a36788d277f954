// Small integer file handles over the platform's files, and a thin wrapper for
// each platform call: non-zero on success, with the reason of a failure in
// PfLastError. Nothing here sets a code or writes the log.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace zb {

// A file handle counts from 2; NoFile is what a failed open stores.
inline constexpr uint16_t NoFile = 0xFFFF;

// Attaches to the map of file handles, making it with room for `capacity` at
// the first time. The map counts its attachments and may be attached more often
// than detached.
int FhmapAttach(int capacity);
int FhmapDetach();
PlatformHandle FhmapLookup(int16_t handle);

uint32_t PfLastError();
int PfRecordError();  // takes the platform's error; a sharing violation becomes "not found"
int PfClearError();

// Opens or creates with the flags of the platform. With the map full the
// platform's file stays open and PfLastError as it was.
int PfCreate(const char* name, unsigned flags, uint16_t* handle);
int PfOpen(const char* name, unsigned flags, uint16_t* handle);

// With `done` a short read succeeds; without it only a full one does.
int PfRead(uint16_t handle, void* buffer, uint32_t count, uint32_t* done);

// Seeks and reads, where that takes no call of the system; 0 when nothing was done.
int PfReadMapped(uint16_t handle, int64_t offset, void* buffer, uint32_t count);

// Writes in pieces of 4096 bytes and then the rest, which may be of 0 bytes.
int PfWrite(uint16_t handle, const void* buffer, uint32_t count);

int PfSeek(uint16_t handle, int64_t offset, SeekFrom origin, uint32_t* position);
int PfClose(uint16_t handle);
int PfDelete(const char* name);
int PfLock(uint16_t handle, uint32_t offset, uint32_t length);
int PfUnlock(uint16_t handle, uint32_t offset, uint32_t length);
int PfTruncate(uint16_t handle, int64_t size);
void PfHint(uint16_t handle, ReadHint hint);
void PfReleaseReads(uint16_t handle);  // lets go of what reads have mapped
int PfCommit(uint16_t handle);         // nothing to do: writes go to the system at once

}  // namespace zb
