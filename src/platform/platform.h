// The one seam between the library and the system beneath it. Everything above
// speaks to the current Platform and knows nothing of which one it is; tests put
// one of their own in its place, to count calls or to fail the n-th.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zb {

// An open file of the platform. None is what a failed open gives.
enum class PlatformHandle : uint32_t { None = 0xFFFFFFFF };

enum class SeekFrom { Start = 0, Current = 1, End = 2 };

// Errors are those of the Win32 interface on every platform. Whatever isn't in
// this list comes as the system's own number.
enum PlatformError : uint32_t {
    ErrorNotFound = 2,
    ErrorBadHandle = 6,
    ErrorNoMemory = 8,
    ErrorAccess = 13,
    ErrorSharing = 32,        // contradicts the share mode of another open
    ErrorLockViolation = 33,  // overlaps a range that is locked
    ErrorDiskFull = 112,
    ErrorBadPosition = 131,
    ErrorNotLocked = 158,
    ErrorSignalPending = 162,  // a read may go on after this one
    ErrorIoPending = 997       // and this one
};

// What an open wants and what it lets others have; the same bits as the file
// layer's open flags.
enum OpenFlags : unsigned {
    OpenRead = 1,
    OpenWrite = 2,
    ShareRead = 4,
    ShareWrite = 8,
    ShareFully = 32,       // both of the two above
    OpenExisting = 0x8000  // without it the file is created or emptied
};

enum class ReadHint {
    // In pages that the file's own header counts. Who cuts such a file within a
    // page has damaged it anyhow, so its end isn't watched as closely as that of
    // a file of records.
    Pages,
    // Here and there, and each byte once: what is read shall not stay mapped and
    // count as the memory of the process.
    Once
};

// The largest position or size that the library uses: 31 bits.
inline constexpr int64_t MaxPosition = 0x7FFFFFFF;

struct LocalTime {
    int year;  // full
    int month;
    int day;
    int dayOfWeek;  // 0 is Sunday
    int hour;
    int minute;
    int second;
};

class Platform {
  public:
    // Files. A call that returns false (or None) has set LastError.

    // Opens or creates a file. An open that contradicts the share mode of
    // another open of the same file, in this process or another, fails with ErrorSharing;
    // that is checked before an existing file is emptied.
    virtual PlatformHandle Open(const char* name, unsigned flags) = 0;

    // Reads at the file's position, which moves by what was read. A read that
    // meets the end of the file is short and succeeds.
    virtual bool Read(PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) = 0;

    // A seek and a read in one, where that takes no call of the system: copies all
    // of the bytes, and the position is behind them. False when nothing was done.
    virtual bool ReadMapped(PlatformHandle, int64_t, void*, uint32_t) { return false; }

    // Writes at the file's position, which moves by what was written.
    virtual bool Write(PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) = 0;

    // Moves the position and tells the new one. Positions below 0 or above
    // MaxPosition are refused and leave it where it was.
    virtual bool Seek(PlatformHandle file, int64_t offset, SeekFrom origin, uint32_t* position) = 0;

    // Makes the file end at its position.
    virtual bool SetEnd(PlatformHandle file) = 0;

    virtual bool Close(PlatformHandle file) = 0;
    virtual bool Delete(const char* name) = 0;

    // Byte-range locks that never wait, belong to the handle, conflict between
    // handles of one process as between processes, and end with the handle. A
    // range that overlaps one held by the same handle is refused like one that
    // another holds, and an unlock must name a held range exactly.
    virtual bool Lock(PlatformHandle file, uint32_t offset, uint32_t length) = 0;
    virtual bool Unlock(PlatformHandle file, uint32_t offset, uint32_t length) = 0;

    // Tells how a file is going to be read, which changes nothing but the cost.
    virtual void Hint(PlatformHandle, ReadHint) {}

    // Lets go of what reads of a file have mapped: it would count as the memory
    // of a process that has read a large file once.
    virtual void ReleaseReads(PlatformHandle) {}

    // The error of the last call that failed.
    virtual uint32_t LastError() = 0;

    // Whether two spellings of a name lead to one file.
    virtual bool SameName(const char* one, const char* other) { return strcmp(one, other) == 0; }

    // The C library's rename and existence test: 0 or the error number, and
    // whether the name can be reached.
    virtual int Rename(const char* newName, const char* oldName) = 0;
    virtual bool Exists(const char* name) = 0;

    // Memory. Null when there is none.

    virtual void* Allocate(size_t bytes) = 0;  // zero-filled
    virtual void* Reallocate(void* memory, size_t bytes) = 0;
    virtual void Free(void* memory) = 0;

    // Configuration, clock and screen.

    // The value of a key in the profile file, cut to size - 1 characters, or an
    // empty text; and as a whole number, or the fallback.
    virtual void ProfileText(const char* section, const char* key, char* text, size_t size) = 0;
    virtual int32_t ProfileNumber(const char* section, const char* key, int32_t fallback) = 0;

    virtual LocalTime Now() = 0;

    // Shows a text to the person at the machine.
    virtual void Message(const char* caption, const char* text) = 0;

  protected:
    ~Platform() = default;
};

// The platform of the system that the library was built for.
Platform& NativePlatform();

// The platform in use.
extern Platform* platform;

}  // namespace zb
