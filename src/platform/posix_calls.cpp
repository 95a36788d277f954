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
    ::munmap,
    ::madvise,
    ::unlink,
    ::rename,
    ::access,
    ::realloc,
};

}  // namespace zb
