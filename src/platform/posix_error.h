// The numbers that the platform gives for the system's own.
#pragma once

#include <cerrno>

#include "platform/platform.h"

namespace zb {

inline uint32_t ErrorOf(int number) {
    switch (number) {
        case ENOENT:
        case ENOTDIR: return ErrorNotFound;
        case EBADF: return ErrorBadHandle;
        case EACCES:
        case EPERM:
        case EISDIR:
        case EROFS: return ErrorAccess;
        case ENOSPC: return ErrorDiskFull;
        default: return static_cast<uint32_t>(number);
    }
}

}  // namespace zb
