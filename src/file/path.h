// Names of files, taken apart. A directory part ends at the last of ':', '\'
// and '/'.
#pragma once

#include <cstddef>

namespace zb {

// A control block keeps a name of up to this many bytes, and its terminator.
inline constexpr size_t MaxName = 260;

// Length of the directory part, the separator included; 0 when there is none.
size_t DirectoryLength(const char* path);

// Writes the path with everything from the last point of the file name on
// replaced by `extension` (which begins with the point); without a point the
// extension is added. `out` holds `size` bytes; false if that is too short.
bool ReplaceExtension(char* out, size_t size, const char* path, const char* extension);

// Writes the first name of the form directory, number, extension that doesn't
// exist, counting from 0, in the directory of `path`.
bool WorkName(char* out, size_t size, const char* path, const char* extension);

}  // namespace zb
