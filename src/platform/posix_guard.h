// Copying out of a mapped file that somebody may be cutting shorter.
#pragma once

#include <cstddef>

namespace zb {

// A range of addresses that holds a mapped file.
struct Mapping {
    const unsigned char* bytes;
    size_t size;
};

// Lets GuardedCopy survive a page that has gone, from now on for the rest of the
// process. False when the system refuses; then nothing may be copied.
bool GuardInstall();

// Copies out of a mapping. False when it met a page that has gone; `to` then
// holds nothing of use.
bool GuardedCopy(void* to, const Mapping& mapping, size_t position, size_t count);

}  // namespace zb
