// The Win32 platform: little more than a call of the system for each of the
// platform's. The system keeps positions, share modes and locks.
#include <io.h>
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/today.h"

namespace zb {
namespace {

// A handle has 32 bits that count, on 64-bit systems too; INVALID_HANDLE_VALUE
// is None.
HANDLE SystemHandle(PlatformHandle file) { return LongToHandle(static_cast<LONG>(file)); }

PlatformHandle OwnHandle(HANDLE file) { return static_cast<PlatformHandle>(HandleToULong(file)); }

// The platform's numbers are the system's, but that several of these mean a
// missing file or a refused access.
uint32_t ErrorOf(DWORD error) {
    switch (error) {
        case ERROR_PATH_NOT_FOUND: return ErrorNotFound;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT: return ErrorAccess;
        case ERROR_HANDLE_DISK_FULL: return ErrorDiskFull;
        default: return error;
    }
}

// As long as it lives a critical failure shows no dialog.
class NoDialog {
  public:
    NoDialog() : before(SetErrorMode(SEM_FAILCRITICALERRORS)) {}
    ~NoDialog() { SetErrorMode(before); }
    NoDialog(const NoDialog&) = delete;
    NoDialog& operator=(const NoDialog&) = delete;

  private:
    UINT before;
};

// Without a directory, so that it is looked for where profiles are.
constexpr char ProfileName[] = "QVDB4XX.INI";

class Win32Platform final : public Platform {
  public:
    PlatformHandle Open(const char* name, unsigned flags) override;
    bool Read(PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) override;
    bool Write(PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) override;
    bool Seek(PlatformHandle file, int64_t offset, SeekFrom origin, uint32_t* position) override;
    bool SetEnd(PlatformHandle file) override { return Outcome(SetEndOfFile(SystemHandle(file))); }
    bool Close(PlatformHandle file) override;
    bool Delete(const char* name) override {
        NoDialog quiet;
        return Outcome(DeleteFileA(name));
    }
    bool Lock(PlatformHandle file, uint32_t offset, uint32_t length) override {
        return Outcome(LockFile(SystemHandle(file), offset, 0, length, 0));
    }
    bool Unlock(PlatformHandle file, uint32_t offset, uint32_t length) override;
    bool SameName(const char* one, const char* other) override { return _stricmp(one, other) == 0; }
    uint32_t LastError() override { return lastError; }
    int Rename(const char* newName, const char* oldName) override {
        return rename(oldName, newName) == 0 ? 0 : errno;
    }
    bool Exists(const char* name) override { return _access(name, 0) == 0; }

    void* Allocate(size_t bytes) override { return GlobalAlloc(GPTR, bytes); }
    void* Reallocate(void* memory, size_t bytes) override {
        // A block that was allocated as fixed stays so; it may move all the same.
        return memory ? GlobalReAlloc(memory, bytes, GMEM_MOVEABLE) : Allocate(bytes);
    }
    void Free(void* memory) override { GlobalFree(memory); }

    void ProfileText(const char* section, const char* key, char* text, size_t size) override {
        GetPrivateProfileStringA(section, key, "", text, static_cast<DWORD>(size), ProfileName);
    }
    int32_t ProfileNumber(const char* section, const char* key, int32_t fallback) override {
        return static_cast<int32_t>(GetPrivateProfileIntA(section, key, fallback, ProfileName));
    }
    LocalTime Now() override;
    void Message(const char* caption, const char* text) override {
        MessageBoxA(nullptr, text, caption, MB_OK);
    }

  private:
    bool Failed(uint32_t error) {
        lastError = error;
        return false;
    }
    bool Outcome(BOOL success) { return success || Failed(ErrorOf(GetLastError())); }

    // The position of a file, or -1 with the error set.
    int64_t PositionOf(PlatformHandle file);

    uint32_t lastError = 0;
};

PlatformHandle Win32Platform::Open(const char* name, unsigned flags) {
    if (flags & ShareFully) flags |= ShareRead | ShareWrite;
    DWORD access = 0;
    if (flags & OpenRead) access |= GENERIC_READ;
    if (flags & OpenWrite) access |= GENERIC_WRITE;
    DWORD share = 0;
    if (flags & ShareRead) share |= FILE_SHARE_READ;
    if (flags & ShareWrite) share |= FILE_SHARE_WRITE;
    SECURITY_ATTRIBUTES security = {sizeof security, nullptr, FALSE};
    NoDialog quiet;
    HANDLE file =
        CreateFileA(name, access, share, &security, flags & OpenExisting ? OPEN_EXISTING : CREATE_ALWAYS,
                    FILE_FLAG_RANDOM_ACCESS, nullptr);
    Outcome(file != INVALID_HANDLE_VALUE);
    return OwnHandle(file);
}

bool Win32Platform::Read(PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) {
    DWORD got = 0;
    bool success = Outcome(ReadFile(SystemHandle(file), buffer, count, &got, nullptr));
    *done = got;
    return success;
}

bool Win32Platform::Write(PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    int64_t position = PositionOf(file);
    if (position < 0) return false;
    if (position + count > MaxPosition) return Failed(ErrorDiskFull);
    DWORD put = 0;
    bool success = Outcome(WriteFile(SystemHandle(file), buffer, count, &put, nullptr));
    *done = put;
    return success;
}

int64_t Win32Platform::PositionOf(PlatformHandle file) {
    LONG high = 0;
    DWORD low = SetFilePointer(SystemHandle(file), 0, &high, FILE_CURRENT);
    if (low == INVALID_SET_FILE_POINTER && !Outcome(GetLastError() == NO_ERROR)) return -1;
    return int64_t{high} << 32 | low;
}

bool Win32Platform::Seek(PlatformHandle file, int64_t offset, SeekFrom origin, uint32_t* position) {
    int64_t base = 0;
    if (origin == SeekFrom::Current) {
        base = PositionOf(file);
        if (base < 0) return false;
    }
    if (origin == SeekFrom::End) {
        LARGE_INTEGER size;
        if (!Outcome(GetFileSizeEx(SystemHandle(file), &size))) return false;
        base = size.QuadPart;
    }
    int64_t target;
    if (__builtin_add_overflow(base, offset, &target) || target < 0 || target > MaxPosition)
        return Failed(ErrorBadPosition);
    DWORD now = SetFilePointer(SystemHandle(file), static_cast<LONG>(target), nullptr, FILE_BEGIN);
    if (!Outcome(now != INVALID_SET_FILE_POINTER)) return false;
    *position = now;
    return true;
}

bool Win32Platform::Close(PlatformHandle file) {
    // To the system this value is the process itself, which it closes with success.
    if (file == PlatformHandle::None) return Failed(ErrorBadHandle);
    return Outcome(CloseHandle(SystemHandle(file)));
}

bool Win32Platform::Unlock(PlatformHandle file, uint32_t offset, uint32_t length) {
    if (Outcome(UnlockFile(SystemHandle(file), offset, 0, length, 0))) return true;
    // Wine's word for a range that isn't held. Windows itself says it of locks alone.
    return Failed(lastError == ErrorLockViolation ? uint32_t{ErrorNotLocked} : lastError);
}

LocalTime Win32Platform::Now() {
    SYSTEMTIME t;
    GetLocalTime(&t);
    LocalTime now = {t.wYear, t.wMonth, t.wDay, t.wDayOfWeek, t.wHour, t.wMinute, t.wSecond};
    char today[16];
    DWORD length = GetEnvironmentVariableA(TodayVariable, today, sizeof today);
    if (length > 0 && length < sizeof today) ReplaceDate(&now, today);
    return now;
}

constinit Win32Platform native;

}  // namespace

Platform& NativePlatform() { return native; }

}  // namespace zb
