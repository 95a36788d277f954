#include "platform/posix_calls.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace zb {

PosixCalls posixCalls = {
    [](const char* name, int flags, mode_t mode) { return ::open(name, flags, mode); },
    ::close,
    ::pread,
    ::pwrite,
    [](int fd, struct stat* status) { return ::fstat(fd, status); },
    ::fstatfs,
    ::ftruncate,
    [](int fd, int command, struct flock* range) { return ::fcntl(fd, command, range); },
    ::mmap,
    [](void* address, size_t size, size_t newSize, int flags) {
        return ::mremap(address, size, newSize, flags);
    },
    ::munmap,
    ::madvise,
    ::unlink,
    ::rename,
    ::access,
    ::realloc,
};

}  // namespace zb
