// The locks that programs hold on a file, as the system tells them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct HeldLock {
    int64_t first = 0;
    int64_t last = 0;
    bool writing = false;  // keeps all others out, and not only writers
    int process = 0;       // 0: the system doesn't tell
    int descriptor = -1;
    std::string program;
};

// All locks on the file, by process, descriptor and place. Throws when the file
// can't be opened.
std::vector<HeldLock> ReadLocks(const std::string& path);

}  // namespace tool
