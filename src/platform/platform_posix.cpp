// The POSIX platform.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "platform/platform.h"

namespace zb {
namespace {

struct File {
    int fd;
    int64_t position;
};
File files[256];

class PosixPlatform final : public Platform {
  public:
    uint32_t error = 0;
    bool Failed() {
        error = errno == ENOENT || errno == ENOTDIR ? 2 : errno == EACCES ? 13 : static_cast<uint32_t>(errno);
        return false;
    }
    PlatformHandle Open(const char* name, unsigned flags) override {
        int mode = flags & OpenWrite ? O_RDWR : O_RDONLY;
        if (!(flags & OpenExisting)) mode |= O_CREAT | O_TRUNC;
        int fd = open(name, mode | O_CLOEXEC, 0666);
        if (fd < 0) {
            Failed();
            return PlatformHandle::None;
        }
        files[fd] = {fd, 0};
        return static_cast<PlatformHandle>(fd);
    }
    File& At(PlatformHandle h) { return files[static_cast<uint32_t>(h) & 255]; }
    bool Read(PlatformHandle h, void* buffer, uint32_t count, uint32_t* done) override {
        ssize_t n = pread(At(h).fd, buffer, count, At(h).position);
        if (n < 0) return Failed();
        *done = static_cast<uint32_t>(n);
        At(h).position += n;
        return true;
    }
    bool Write(PlatformHandle h, const void* buffer, uint32_t count, uint32_t* done) override {
        ssize_t n = pwrite(At(h).fd, buffer, count, At(h).position);
        if (n < 0) return Failed();
        *done = static_cast<uint32_t>(n);
        At(h).position += n;
        return true;
    }
    bool Seek(PlatformHandle h, int64_t offset, SeekFrom origin, uint32_t* position) override {
        struct stat st;
        int64_t base = origin == SeekFrom::Current ? At(h).position : 0;
        if (origin == SeekFrom::End) {
            if (fstat(At(h).fd, &st) < 0) return Failed();
            base = st.st_size;
        }
        if (base + offset < 0 || base + offset > MaxPosition) {
            error = 131;
            return false;
        }
        At(h).position = base + offset;
        *position = static_cast<uint32_t>(base + offset);
        return true;
    }
    bool SetEnd(PlatformHandle h) override { return ftruncate(At(h).fd, At(h).position) == 0 || Failed(); }
    bool Close(PlatformHandle h) override {
        if (h == PlatformHandle::None) return false;
        return close(At(h).fd) == 0 || Failed();
    }
    bool Delete(const char* name) override { return unlink(name) == 0 || Failed(); }
    bool Lock(PlatformHandle, uint32_t, uint32_t) override { return true; }
    bool Unlock(PlatformHandle, uint32_t, uint32_t) override { return true; }
    uint32_t LastError() override { return error; }
    int Rename(const char* newName, const char* oldName) override {
        return rename(oldName, newName) == 0 ? 0 : errno;
    }
    bool Exists(const char* name) override { return access(name, F_OK) == 0; }
    void* Allocate(size_t bytes) override { return calloc(1, bytes); }
    void* Reallocate(void* memory, size_t bytes) override { return realloc(memory, bytes); }
    void Free(void* memory) override { free(memory); }
    void ProfileText(const char*, const char*, char* text, size_t) override { *text = 0; }
    int32_t ProfileNumber(const char*, const char*, int32_t fallback) override { return fallback; }
    LocalTime Now() override {
        time_t now = time(nullptr);
        tm t;
        localtime_r(&now, &t);
        return {t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_wday, t.tm_hour, t.tm_min, t.tm_sec};
    }
    void Message(const char* caption, const char* text) override {
        fprintf(stderr, "%s: %s\n", caption, text);
    }
};

PosixPlatform native;

}  // namespace

Platform& NativePlatform() { return native; }

}  // namespace zb
