// Share modes and byte-range locks, both built on the kernel's locks that belong
// to an open file description. Those conflict between two handles of one process
// as between two processes, never wait here, and end with the handle. All calls
// give 0 or a PlatformError.
#pragma once

#include <cstdint>

#include "platform/posix_array.h"

namespace zb {

// Declares an open by marks on bytes that lie far beyond all data and all other
// locks, and holds it against the marks of others. `flags` are the OpenFlags,
// with ShareFully spelled out. 0, or an errno: EBUSY for a contradiction. The
// marks go when the descriptor is closed, which the caller does on failure.
uint32_t ClaimShare(int fd, unsigned flags);

// The ranges that one handle holds, in order of offset.
struct LockRange {
    uint32_t offset;
    uint32_t length;
};
using HeldRanges = PosixArray<LockRange>;

// Takes a range. ErrorLockViolation if it overlaps one that this handle or
// another holds.
uint32_t LockHeldRange(int fd, bool writable, HeldRanges& held, uint32_t offset, uint32_t length);

// Gives back a range. ErrorNotLocked if it isn't exactly one that is held.
uint32_t UnlockHeldRange(int fd, HeldRanges& held, uint32_t offset, uint32_t length);

}  // namespace zb
