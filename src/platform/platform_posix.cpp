// The POSIX platform. Reads go by posix_image.h, share modes and locks by
// posix_locks.h, the profile file by posix_profile.h; here stands the table of
// open files and what ties them together.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/posix_array.h"
#include "platform/posix_error.h"
#include "platform/posix_image.h"
#include "platform/posix_locks.h"
#include "platform/posix_profile.h"
#include "platform/today.h"

namespace zb {
namespace {

struct File {
    int fd;          // -1 while the entry is free
    unsigned flags;  // OpenRead, OpenWrite: what the open asked for
    int64_t position;
    FileImage* image;
    HeldRanges held;

    bool Reads() const { return flags & OpenRead; }
    bool Writes() const { return flags & OpenWrite; }
};

class PosixPlatform final : public Platform {
  public:
    PlatformHandle Open(const char* name, unsigned flags) override;
    bool Read(PlatformHandle handle, void* buffer, uint32_t count, uint32_t* done) override;
    bool ReadMapped(PlatformHandle handle, int64_t position, void* buffer, uint32_t count) override;
    bool Write(PlatformHandle handle, const void* buffer, uint32_t count, uint32_t* done) override;
    bool Seek(PlatformHandle handle, int64_t offset, SeekFrom origin, uint32_t* position) override;
    bool SetEnd(PlatformHandle handle) override;
    bool Close(PlatformHandle handle) override;
    bool Delete(const char* name) override { return posixCalls.unlink(name) == 0 || FailedCall(); }
    bool Lock(PlatformHandle handle, uint32_t offset, uint32_t length) override;
    bool Unlock(PlatformHandle handle, uint32_t offset, uint32_t length) override;
    void Hint(PlatformHandle handle, ReadHint hint) override {
        if (File* file = FileOf(handle)) ImageHint(*file->image, hint);
    }
    void ReleaseReads(PlatformHandle handle) override {
        if (File* file = FileOf(handle)) ImageRelease(*file->image);
    }
    uint32_t LastError() override { return lastError; }
    int Rename(const char* newName, const char* oldName) override {
        return posixCalls.rename(oldName, newName) == 0 ? 0 : errno;
    }
    bool Exists(const char* name) override { return posixCalls.access(name, F_OK) == 0; }

    void* Allocate(size_t bytes) override { return calloc(1, bytes); }
    void* Reallocate(void* memory, size_t bytes) override { return realloc(memory, bytes); }
    void Free(void* memory) override { free(memory); }

    void ProfileText(const char* section, const char* key, char* text, size_t size) override {
        ProfileValue(section, key, text, size);
    }
    int32_t ProfileNumber(const char* section, const char* key, int32_t fallback) override {
        char text[64];
        return ProfileValue(section, key, text, sizeof text) && *text ? ProfileInteger(text) : fallback;
    }
    LocalTime Now() override;
    void Message(const char* caption, const char* text) override {
        fprintf(stderr, "%s: %s\n", caption, text);
    }

  private:
    bool Failed(uint32_t error) {
        lastError = error;
        return false;
    }
    bool FailedCall() { return Failed(ErrorOf(errno)); }

    // The open file of a handle, or null with the error set.
    File* FileOf(PlatformHandle handle) {
        auto index = static_cast<uint32_t>(handle);
        if (index < files.count && files[index].fd >= 0) return &files[index];
        Failed(ErrorBadHandle);
        return nullptr;
    }

    uint32_t OpenInto(File* file, const char* name);

    PosixArray<File> files{};  // a handle is an index
    uint32_t lastError = 0;
};

// Opens a file whose flags are set. 0 or the error, and then nothing is held.
uint32_t PosixPlatform::OpenInto(File* file, const char* name) {
    bool create = !(file->flags & OpenExisting);
    int mode = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;  // the last keeps a pipe from waiting for its writer
    mode |= create || file->Writes() ? O_RDWR : O_RDONLY;
    if (create) mode |= O_CREAT;
    int fd;
    do fd = posixCalls.open(name, mode, 0666);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) return ErrorOf(errno);

    auto fail = [fd](uint32_t error) {
        posixCalls.close(fd);
        return error;
    };
    struct stat status {};
    if (posixCalls.fstat(fd, &status) != 0) return fail(ErrorOf(errno));
    if (!S_ISREG(status.st_mode)) return fail(ErrorAccess);
    if (uint32_t error = ClaimShare(fd, file->flags)) return fail(error);
    if (create && status.st_size != 0) {
        while (posixCalls.ftruncate(fd, 0) != 0)
            if (errno != EINTR) return fail(ErrorOf(errno));
        status.st_size = 0;
    }
    file->image = ImageJoin(status);
    if (!file->image) return fail(ErrorNoMemory);
    file->fd = fd;
    return 0;
}

PlatformHandle PosixPlatform::Open(const char* name, unsigned flags) {
    if (flags & ShareFully) flags |= ShareRead | ShareWrite;
    size_t index = 0;
    while (index < files.count && files[index].fd >= 0) index++;
    if (index == files.count && !files.Reserve()) {
        Failed(ErrorNoMemory);
        return PlatformHandle::None;
    }
    File file = {-1, flags, 0, nullptr, {}};
    if (uint32_t error = OpenInto(&file, name)) {
        Failed(error);
        return PlatformHandle::None;
    }
    if (index == files.count)
        files.Insert(index, file);
    else
        files[index] = file;
    return static_cast<PlatformHandle>(index);
}

bool PosixPlatform::Read(PlatformHandle handle, void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    File* file = FileOf(handle);
    if (!file) return false;
    if (!file->Reads()) return Failed(ErrorAccess);
    if (count == 0) return true;
    int64_t got = ImageRead(*file->image, file->fd, file->Writes(), buffer, count, file->position);
    if (got < 0) return FailedCall();
    *done = static_cast<uint32_t>(got);
    file->position += got;
    return true;
}

bool PosixPlatform::ReadMapped(PlatformHandle handle, int64_t position, void* buffer, uint32_t count) {
    auto index = static_cast<uint32_t>(handle);
    if (index >= files.count) return false;
    File& file = files[index];
    if (file.fd < 0 || !file.Reads() || !ImageCopy(*file.image, buffer, count, position)) return false;
    file.position = position + count;
    return true;
}

bool PosixPlatform::Write(PlatformHandle handle, const void* buffer, uint32_t count, uint32_t* done) {
    *done = 0;
    File* file = FileOf(handle);
    if (!file) return false;
    if (!file->Writes()) return Failed(ErrorAccess);
    if (file->position + count > MaxPosition) return Failed(ErrorDiskFull);
    auto* from = static_cast<const unsigned char*>(buffer);
    while (*done < count) {
        ssize_t put = posixCalls.pwrite(file->fd, from + *done, count - *done, file->position);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return FailedCall();
        *done += static_cast<uint32_t>(put);
        file->position += put;
        file->image->length = std::max(file->image->length, file->position);
    }
    return true;
}

bool PosixPlatform::Seek(PlatformHandle handle, int64_t offset, SeekFrom origin, uint32_t* position) {
    File* file = FileOf(handle);
    if (!file) return false;
    int64_t base = 0;
    if (origin == SeekFrom::Current) base = file->position;
    if (origin == SeekFrom::End) {
        // The known length won't do: another process may have changed it.
        struct stat status {};
        if (posixCalls.fstat(file->fd, &status) != 0) return FailedCall();
        base = file->image->length = status.st_size;
    }
    int64_t target;
    if (__builtin_add_overflow(base, offset, &target) || target < 0 || target > MaxPosition)
        return Failed(ErrorBadPosition);
    file->position = target;
    *position = static_cast<uint32_t>(target);
    return true;
}

bool PosixPlatform::SetEnd(PlatformHandle handle) {
    File* file = FileOf(handle);
    if (!file) return false;
    if (!file->Writes()) return Failed(ErrorAccess);
    while (posixCalls.ftruncate(file->fd, file->position) != 0)
        if (errno != EINTR) return FailedCall();
    file->image->length = file->position;
    return true;
}

bool PosixPlatform::Close(PlatformHandle handle) {
    File* file = FileOf(handle);
    if (!file) return false;
    // Not repeated after a failure: the descriptor has gone all the same. Its
    // locks and marks go with it.
    int result = posixCalls.close(file->fd);
    int error = errno;
    ImageLeave(file->image);
    file->held.Free();
    file->fd = -1;
    return result == 0 || error == EINTR || Failed(ErrorOf(error));
}

bool PosixPlatform::Lock(PlatformHandle handle, uint32_t offset, uint32_t length) {
    File* file = FileOf(handle);
    if (!file) return false;
    uint32_t error = LockHeldRange(file->fd, file->Writes(), file->held, offset, length);
    return error == 0 || Failed(error);
}

bool PosixPlatform::Unlock(PlatformHandle handle, uint32_t offset, uint32_t length) {
    File* file = FileOf(handle);
    if (!file) return false;
    uint32_t error = UnlockHeldRange(file->fd, file->held, offset, length);
    return error == 0 || Failed(error);
}

LocalTime PosixPlatform::Now() {
    time_t seconds = time(nullptr);
    struct tm t {};
    localtime_r(&seconds, &t);
    // A leap second is the last one of its minute.
    LocalTime now = {t.tm_year + 1900, t.tm_mon + 1,          t.tm_mday, t.tm_wday, t.tm_hour,
                     t.tm_min,         std::min(t.tm_sec, 59)};
    ReplaceDate(&now, getenv(TodayVariable));
    return now;
}

constinit PosixPlatform native;

}  // namespace

Platform& NativePlatform() { return native; }

}  // namespace zb
