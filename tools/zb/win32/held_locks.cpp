#include "../held_locks.h"

#include "../failure.h"

namespace tool {

std::vector<HeldLock> ReadLocks(const std::string& path) {
    throw Failure(Exit::other, path + ": Windows doesn't tell who holds locks on a file");
}

}  // namespace tool
