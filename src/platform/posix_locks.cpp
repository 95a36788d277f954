#include "platform/posix_locks.h"

#include <cerrno>

#include "platform/posix_error.h"

namespace zb {
namespace {

uint32_t CallLock(int fd, int command, short type, int64_t start, int64_t length,
                  struct flock* result = nullptr) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    while (posixCalls.lock(fd, command, &range) != 0) {
        if (errno == EAGAIN || errno == EACCES) return ErrorLockViolation;
        if (errno != EINTR) return ErrorOf(errno);
    }
    if (result) *result = range;
    return 0;
}

uint32_t Take(int fd, short type, int64_t start, int64_t length) {
    return CallLock(fd, F_OFD_SETLK, type, start, length);
}

// ErrorLockViolation if anybody else holds any lock in the range. A descriptor
// that can't write may ask this too.
uint32_t AskAlone(int fd, int64_t start, int64_t length) {
    struct flock found;
    if (uint32_t error = CallLock(fd, F_OFD_GETLK, F_WRLCK, start, length, &found)) return error;
    return found.l_type == F_UNLCK ? 0u : ErrorLockViolation;
}

// The marker bytes. Their order lets most opens mark and ask one run each.
constexpr int64_t Markers = int64_t{1} << 62;
constexpr unsigned UsesWrite = 1 << 0;
constexpr unsigned UsesRead = 1 << 1;
constexpr unsigned DeniesRead = 1 << 2;
constexpr unsigned DeniesWrite = 1 << 3;
constexpr unsigned MarkerCount = 4;

// Calls `visit(start, length)` for each run of marker bytes; stops at an error.
template <class Visit>
uint32_t ForEachRun(unsigned markers, Visit visit) {
    for (unsigned i = 0; i < MarkerCount;) {
        if (!(markers >> i & 1)) {
            i++;
            continue;
        }
        unsigned first = i;
        while (markers >> i & 1) i++;
        if (uint32_t error = visit(Markers + first, int64_t{i - first})) return error;
    }
    return 0;
}

// The first held range that ends beyond an offset.
size_t RangeAfter(const HeldRanges& held, uint32_t offset) {
    size_t low = 0;
    size_t high = held.count;
    while (low < high) {
        size_t middle = (low + high) / 2;
        if (uint64_t{held[middle].offset} + held[middle].length > offset)
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

}  // namespace

uint32_t ClaimShare(int fd, unsigned flags) {
    unsigned marks = 0;
    unsigned contradictions = 0;
    if (flags & OpenRead) {
        marks |= UsesRead;
        contradictions |= DeniesRead;
    }
    if (flags & OpenWrite) {
        marks |= UsesWrite;
        contradictions |= DeniesWrite;
    }
    if (!(flags & ShareRead)) {
        marks |= DeniesRead;
        contradictions |= UsesRead;
    }
    if (!(flags & ShareWrite)) {
        marks |= DeniesWrite;
        contradictions |= UsesWrite;
    }
    // Marked before asked: of two opens at one moment at least one sees the other.
    uint32_t error =
        ForEachRun(marks, [fd](int64_t start, int64_t length) { return Take(fd, F_RDLCK, start, length); });
    if (!error)
        error = ForEachRun(contradictions,
                           [fd](int64_t start, int64_t length) { return AskAlone(fd, start, length); });
    return error == ErrorLockViolation ? ErrorSharing : error;
}

uint32_t LockHeldRange(int fd, bool writable, HeldRanges& held, uint32_t offset, uint32_t length) {
    size_t place = RangeAfter(held, offset);
    uint64_t end = uint64_t{offset} + length;
    if (place < held.count && held[place].offset < end) return ErrorLockViolation;
    if (!held.Reserve()) return ErrorNoMemory;
    // To the kernel a length of 0 would be everything to the end.
    if (length != 0) {
        if (uint32_t error = Take(fd, writable ? F_WRLCK : F_RDLCK, offset, length)) return error;
        // A descriptor that can't write gets read locks alone, and those don't
        // keep each other out: ask, and give way.
        if (!writable) {
            if (uint32_t error = AskAlone(fd, offset, length)) {
                Take(fd, F_UNLCK, offset, length);
                return error;
            }
        }
    }
    held.Insert(place, {offset, length});
    return 0;
}

uint32_t UnlockHeldRange(int fd, HeldRanges& held, uint32_t offset, uint32_t length) {
    size_t place = RangeAfter(held, offset);
    // A range of length 0 ends where it begins, and so lies before.
    if (length == 0 && place > 0) place--;
    if (place == held.count || held[place].offset != offset || held[place].length != length)
        return ErrorNotLocked;
    if (length != 0)
        if (uint32_t error = Take(fd, F_UNLCK, offset, length)) return error;
    held.Remove(place);
    return 0;
}

}  // namespace zb
