// A platform whose files live in memory, which counts what the library asks of
// it: the operations of each call, the memory of each allocation, and what is
// left allocated. Whoever asks for too much has met a circle in a file or
// believed a number in it, and ends the process.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace fuzz {

// Ends the process, for the fuzzer to see.
[[noreturn]] void Broken(const char* what, const char* file = __builtin_FILE(), int line = __builtin_LINE());

class MemoryPlatform final : public zb::Platform {
  public:
    // No file grows beyond this: it is a disk that is full.
    static constexpr size_t MaxFile = 1 << 20;

    MemoryPlatform();
    ~MemoryPlatform();
    MemoryPlatform(const MemoryPlatform&) = delete;
    MemoryPlatform& operator=(const MemoryPlatform&) = delete;

    void Put(const std::string& name, std::string bytes);
    // Null when there is no such file. Good until the next call of the platform.
    std::string* Find(const std::string& name);
    size_t TotalBytes() const;

    // Sets the operations that the library may use from here on; a call of a
    // host's function within a call doesn't set them anew.
    void Allow(uint64_t operations) { left = operations; }
    uint64_t Left() const { return left; }

    // Blocks that the library holds, and the platform's files that are open.
    size_t Allocations() const { return allocations; }
    size_t OpenFiles() const;
    void CloseAll();

    std::string profile[2];  // the texts of "datesort" and "asciisort"

    zb::PlatformHandle Open(const char* name, unsigned flags) override;
    bool Read(zb::PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) override;
    bool ReadMapped(zb::PlatformHandle file, int64_t position, void* buffer, uint32_t count) override;
    bool Write(zb::PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) override;
    bool Seek(zb::PlatformHandle file, int64_t offset, zb::SeekFrom origin, uint32_t* position) override;
    bool SetEnd(zb::PlatformHandle file) override;
    bool Close(zb::PlatformHandle file) override;
    bool Delete(const char* name) override;
    bool Lock(zb::PlatformHandle file, uint32_t offset, uint32_t length) override;
    bool Unlock(zb::PlatformHandle file, uint32_t offset, uint32_t length) override;
    uint32_t LastError() override { return lastError; }
    int Rename(const char* newName, const char* oldName) override;
    bool Exists(const char* name) override;
    void* Allocate(size_t bytes) override;
    void* Reallocate(void* memory, size_t bytes) override;
    void Free(void* memory) override;
    void ProfileText(const char* section, const char* key, char* text, size_t size) override;
    int32_t ProfileNumber(const char* section, const char* key, int32_t fallback) override;
    zb::LocalTime Now() override;
    void Message(const char*, const char*) override {}

  private:
    struct File {
        std::string name;
        std::string bytes;
    };
    struct Range {
        uint32_t offset, length;
    };
    struct Handle {
        std::shared_ptr<File> file;  // null while the entry is free
        unsigned flags;
        int64_t position;
        std::vector<Range> locks;
    };

    void Count();
    void CheckMemory(size_t bytes) const;
    bool Failed(uint32_t error) {
        lastError = error;
        return false;
    }
    Handle* HandleOf(zb::PlatformHandle file);
    std::shared_ptr<File> FileOf(const std::string& name) const;

    zb::Platform* previous;
    std::vector<std::shared_ptr<File>> files;
    std::vector<Handle> handles;
    uint64_t left = UINT64_MAX;
    size_t allocations = 0;
    uint32_t lastError = 0;
};

}  // namespace fuzz
