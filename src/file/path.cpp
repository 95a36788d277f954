#include "file/path.h"

#include <cstdio>
#include <cstring>

#include "file/operations.h"
#include "platform/platform.h"

namespace zb {

size_t DirectoryLength(const char* path) {
    size_t length = strlen(path);
    while (length && path[length - 1] != ':' && path[length - 1] != '\\' && path[length - 1] != '/') length--;
    return length;
}

bool ReplaceExtension(char* out, size_t size, const char* path, const char* extension) {
    const char* name = path + DirectoryLength(path);
    const char* point = strrchr(name, '.');
    size_t kept = point ? static_cast<size_t>(point - path) : strlen(path);
    if (kept + strlen(extension) >= size) return false;
    memcpy(out, path, kept);
    strcpy(out + kept, extension);
    return true;
}

bool WorkName(char* out, size_t size, const char* path, const char* extension) {
    int directory = static_cast<int>(DirectoryLength(path));
    for (int number = 0;; number++) {
        int length = snprintf(out, size, "%.*s%d%s", directory, path, number, extension);
        if (length < 0 || static_cast<size_t>(length) >= size) return false;
        if (!Hexist(out)) return true;
    }
}

}  // namespace zb
