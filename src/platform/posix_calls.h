// The system calls through which the POSIX platform does all its work, in one
// table, so that a test can count them, fail them or cut them short.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>

#include <cstddef>

namespace zb {

struct PosixCalls {
    int (*open)(const char* name, int flags, mode_t mode);
    int (*close)(int fd);
    ssize_t (*pread)(int fd, void* buffer, size_t count, off_t position);
    ssize_t (*pwrite)(int fd, const void* buffer, size_t count, off_t position);
    int (*fstat)(int fd, struct stat* status);
    int (*fstatfs)(int fd, struct statfs* status);
    int (*ftruncate)(int fd, off_t size);
    int (*lock)(int fd, int command, struct flock* range);  // fcntl with a lock command
    void* (*mmap)(void* address, size_t size, int protection, int flags, int fd, off_t position);
    void* (*mremap)(void* address, size_t size, size_t newSize, int flags);
    int (*munmap)(void* address, size_t size);
    int (*madvise)(void* address, size_t size, int advice);
    int (*unlink)(const char* name);
    int (*rename)(const char* oldName, const char* newName);
    int (*access)(const char* name, int mode);
    void* (*realloc)(void* memory, size_t bytes);  // for the platform's own tables
};

// What the platform calls. Holds the system's own calls unless a test has put
// something else in.
extern PosixCalls posixCalls;

}  // namespace zb
