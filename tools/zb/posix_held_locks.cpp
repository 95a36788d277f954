#include "held_locks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "failure.h"
#include "zb.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kEnd = INT64_MAX;

class Descriptor {
  public:
    explicit Descriptor(const std::string& path) : number(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (number < 0) throw CodeFailure(ZB_ErrOpen, path, std::strerror(errno));
    }
    ~Descriptor() { close(number); }
    Descriptor(const Descriptor&) = delete;
    void operator=(const Descriptor&) = delete;

    const int number;
};

// "lock:	1: OFDLCK  ADVISORY  WRITE -1 08:01:4711 2147483646 2147483646"
bool ParseLine(const std::string& line, HeldLock& lock) {
    std::istringstream words(line);
    std::string mark, number, kind, strength, mode, process, file, first, last;
    if (!(words >> mark >> number >> kind >> strength >> mode >> process >> file >> first >> last))
        return false;
    if (mark != "lock:" || (kind != "OFDLCK" && kind != "POSIX")) return false;
    lock.writing = mode == "WRITE";
    auto start = std::from_chars(first.data(), first.data() + first.size(), lock.first);
    lock.last = kEnd;
    if (last != "EOF") std::from_chars(last.data(), last.data() + last.size(), lock.last);
    return start.ec == std::errc();
}

std::string FirstLine(const fs::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// The locks of one process, as far as this one may look into it.
void AddProcess(const fs::path& directory, int process, const struct stat& wanted,
                std::vector<HeldLock>& locks) {
    std::error_code error;
    for (fs::directory_iterator entry(directory / "fd", error), end; !error && entry != end;
         entry.increment(error)) {
        struct stat status = {};
        if (stat(entry->path().c_str(), &status) != 0 || status.st_ino != wanted.st_ino ||
            status.st_dev != wanted.st_dev)
            continue;
        std::string name = entry->path().filename().string();
        std::ifstream info(directory / "fdinfo" / name);
        HeldLock lock;
        lock.process = process;
        lock.program = FirstLine(directory / "comm");
        std::from_chars(name.data(), name.data() + name.size(), lock.descriptor);
        for (std::string line; std::getline(info, line);)
            if (ParseLine(line, lock)) locks.push_back(lock);
    }
}

void AddAllProcesses(const struct stat& wanted, std::vector<HeldLock>& locks) {
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
        std::string name = entry->path().filename().string();
        int process = 0;
        auto result = std::from_chars(name.data(), name.data() + name.size(), process);
        if (result.ec == std::errc() && result.ptr == name.data() + name.size())
            AddProcess(entry->path(), process, wanted, locks);
    }
}

bool Covered(int64_t first, int64_t last, const std::vector<HeldLock>& locks) {
    for (const HeldLock& lock : locks)
        if (lock.first <= first && lock.last >= last) return true;
    return false;
}

// Asks for every lock of others in a range, and adds those that no process is known for.
void Ask(int descriptor, int64_t first, int64_t last, std::vector<HeldLock>& locks) {
    struct flock question = {};
    question.l_type = F_WRLCK;
    question.l_whence = SEEK_SET;
    question.l_start = first;
    question.l_len = last == kEnd ? 0 : last - first + 1;
    if (fcntl(descriptor, F_OFD_GETLK, &question) != 0 || question.l_type == F_UNLCK) return;
    HeldLock lock;
    lock.first = std::max<int64_t>(question.l_start, first);
    lock.last = question.l_len == 0 ? last : std::min<int64_t>(question.l_start + question.l_len - 1, last);
    lock.writing = question.l_type == F_WRLCK;
    if (question.l_pid > 0) {
        lock.process = question.l_pid;
        lock.program = FirstLine("/proc/" + std::to_string(question.l_pid) + "/comm");
    }
    if (!Covered(lock.first, lock.last, locks)) locks.push_back(lock);
    if (lock.first > first) Ask(descriptor, first, lock.first - 1, locks);
    if (lock.last < last) Ask(descriptor, lock.last + 1, last, locks);
}

}  // namespace

std::vector<HeldLock> ReadLocks(const std::string& path) {
    Descriptor file(path);
    struct stat status = {};
    if (fstat(file.number, &status) != 0) throw CodeFailure(ZB_ErrRead, path, std::strerror(errno));
    std::vector<HeldLock> locks;
    AddAllProcesses(status, locks);
    Ask(file.number, 0, kEnd, locks);
    std::sort(locks.begin(), locks.end(), [](const HeldLock& a, const HeldLock& b) {
        return std::tie(a.process, a.descriptor, a.first) < std::tie(b.process, b.descriptor, b.first);
    });
    return locks;
}

}  // namespace tool
