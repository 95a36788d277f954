// The profile file: sections in brackets, lines of the form key=value.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zb {

// The value of a key in QVDB4XX.INI, cut to size - 1 characters. The file is
// looked for in the current directory, in the user's directory of settings and
// in /etc; the first that exists is read. False, with an empty text, where the
// file, the section or the key is missing.
bool ProfileValue(const char* section, const char* key, char* text, size_t size);

// The number that a value begins with: a sign perhaps, 0x, 0o or 0b perhaps, and
// digits. Else 0.
int32_t ProfileInteger(const char* text);

}  // namespace zb
