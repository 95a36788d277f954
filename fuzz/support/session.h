// What the targets share: a started library over files in memory, calls whose
// codes and costs are looked at, buffers of the very size that the contract
// tells, and files to be damaged.
#pragma once

#include <cstdlib>
#include <string>
#include <type_traits>

#include "support/input.h"
#include "support/memory_platform.h"
#include "zb.h"

namespace fuzz {

// Whether a code is one that zb.h lists, or a platform's number.
bool IsDocumented(int32_t code);

// A started library, and at its end a stopped one that has left nothing behind.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Makes one call of the library and holds it against the contract: the code
    // is a documented one and stands, and what it cost follows from the size of
    // the files. A failure is cleared then. `costly` is for calls that go over
    // whole files many times.
    template <class Call>
    int32_t Do(Call call, unsigned costly = 1) {
        bool outermost = depth++ == 0;
        if (outermost) platform.Allow((4000 + 4 * uint64_t{platform.TotalBytes()}) * costly);
        int32_t code = call();
        if (--depth == 0) platform.Allow(UINT64_MAX);
        if (!IsDocumented(code)) Broken("a code that isn't documented");
        if (code < 0) {
            if (code != ZBECODE()) Broken("the code that stands isn't the one returned");
            ZBESCODE(0);
        }
        return code;
    }

    // Whether files may stay open and blocks allocated: some calls leave them so.
    void MayLeaveFiles() { mayLeaveFiles = true; }
    void MayLeaveMemory() { mayLeaveMemory = true; }

    MemoryPlatform platform;

  private:
    int depth = 0;
    bool mayLeaveFiles = false;
    bool mayLeaveMemory = false;
};

// Memory of exactly so many bytes: one byte beyond is seen.
class Exactly {
  public:
    explicit Exactly(size_t bytes, int fill = 0xCD) : size(bytes), memory(static_cast<char*>(malloc(bytes))) {
        memset(memory, fill, size);
    }
    explicit Exactly(const std::string& text) : Exactly(text.size() + 1) {
        memcpy(memory, text.c_str(), size);
    }
    ~Exactly() { free(memory); }
    Exactly(const Exactly&) = delete;
    Exactly& operator=(const Exactly&) = delete;

    // Copies as much as there is room for.
    void Set(const std::string& bytes) {
        memcpy(memory, bytes.data(), bytes.size() < size ? bytes.size() : size);
    }

    char* text() const { return memory; }
    void* data() const { return memory; }
    size_t Size() const { return size; }

  private:
    size_t size;
    char* memory;
};

// Changes bytes of a file as the input says: first the count of changes, then 8
// or 12 bytes a change.
void Damage(FuzzInput& input, std::string& bytes);

// The file to begin with: one of the seeds with damage done to it, or what the
// input holds as it stands.
std::string StartFile(FuzzInput& input, const std::string* seeds, size_t count);

}  // namespace fuzz
