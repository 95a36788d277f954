// A platform that stands between the library and the real one: it counts the
// calls by kind, keeps a trace of them, fails or shortens those that a test
// picks, and knows what the library holds. For unit tests; it is in use from its
// construction to its end.
#pragma once

#include <cstdint>
#include <set>
#include <tuple>
#include <vector>

#include "platform/platform.h"

namespace test {

enum class Call {
    Open,
    Read,
    Write,
    Seek,
    SetEnd,
    Close,
    Delete,
    Lock,
    Unlock,
    Rename,
    Exists,
    Allocate,
    Reallocate,
    Free,
    ProfileText,
    ProfileNumber,
    Now,
    Message,
    Any,  // for counts and failures: every kind above that can fail
};

class FakePlatform final : public zb::Platform {
  public:
    struct TraceEntry {
        Call call;
        uint32_t count;    // bytes asked for, by Read and Write; else 0
        uint32_t how = 0;  // an Open's flags, a Seek's origin; else 0
    };

    static constexpr int Forever = INT32_MAX;

    explicit FakePlatform(zb::Platform& behind = *zb::platform) : real(behind), previous(zb::platform) {
        zb::platform = this;
    }
    ~FakePlatform() { zb::platform = previous; }
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    // Calls of a kind since the start or the last Reset.
    int Count(Call kind) const { return counts[static_cast<int>(kind)]; }
    const std::vector<TraceEntry>& Trace() const { return trace; }

    // Forgets counts, trace and whatever was to fail.
    void Reset() {
        for (int& count : counts) count = 0;
        trace.clear();
        failures.clear();
        cuts.clear();
        interruptions.clear();
        failed = false;
    }

    // Lets `times` calls of a kind fail with an error, beginning with the n-th
    // from now (the next one is the first). Exists answers no, allocations
    // give null, and nothing reaches the real platform.
    void Fail(Call kind, int nth, uint32_t error, int times = 1) {
        failures.push_back({kind, Count(kind) + nth, times, error});
    }

    // Lets calls of Read or Write, beginning with the n-th from now, move at most
    // `bytes` bytes and succeed.
    void Shorten(Call kind, int nth, uint32_t bytes, int times = 1) {
        cuts.push_back({kind, Count(kind) + nth, times, bytes});
    }

    // The same for a Read that then fails with an error although it moved bytes.
    void Interrupt(int nth, uint32_t bytes, uint32_t error) {
        Shorten(Call::Read, nth, bytes);
        interruptions.push_back({Call::Read, Count(Call::Read) + nth, 1, error});
    }

    // What was taken and not given back since the construction; Reset leaves it.
    struct Holdings {
        int files;
        int locks;
        int blocks;  // of memory
        bool operator==(const Holdings&) const = default;
    };
    Holdings Held() const { return {static_cast<int>(files.size()), static_cast<int>(locks.size()), blocks}; }

    // Whether a failure that was asked for has come to pass.
    bool HasFailed() const { return failed; }

    zb::PlatformHandle Open(const char* name, unsigned flags) override {
        if (Fails(Call::Open, 0, flags)) return zb::PlatformHandle::None;
        zb::PlatformHandle file = Passed(real.Open(name, flags));
        if (file != zb::PlatformHandle::None) files.insert(file);
        return file;
    }
    bool Read(zb::PlatformHandle file, void* buffer, uint32_t count, uint32_t* done) override {
        *done = 0;
        if (Fails(Call::Read, count)) return false;
        bool success = Passed(real.Read(file, buffer, Cut(Call::Read, count), done));
        if (const Rule* rule = Find(interruptions, Call::Read); rule && success) {
            lastError = rule->value;
            return false;
        }
        return success;
    }
    bool Write(zb::PlatformHandle file, const void* buffer, uint32_t count, uint32_t* done) override {
        *done = 0;
        if (Fails(Call::Write, count)) return false;
        return Passed(real.Write(file, buffer, Cut(Call::Write, count), done));
    }
    bool Seek(zb::PlatformHandle file, int64_t offset, zb::SeekFrom origin, uint32_t* position) override {
        return !Fails(Call::Seek, 0, static_cast<uint32_t>(origin)) &&
               Passed(real.Seek(file, offset, origin, position));
    }
    bool SetEnd(zb::PlatformHandle file) override {
        return !Fails(Call::SetEnd) && Passed(real.SetEnd(file));
    }
    // A close that fails has closed the file all the same.
    bool Close(zb::PlatformHandle file) override {
        bool success = Passed(real.Close(file));
        files.erase(file);
        std::erase_if(locks, [&](const auto& lock) { return std::get<0>(lock) == file; });
        return !Fails(Call::Close) && success;
    }
    bool Delete(const char* name) override { return !Fails(Call::Delete) && Passed(real.Delete(name)); }
    bool Lock(zb::PlatformHandle file, uint32_t offset, uint32_t length) override {
        if (Fails(Call::Lock) || !Passed(real.Lock(file, offset, length))) return false;
        locks.emplace(file, offset, length);
        return true;
    }
    bool Unlock(zb::PlatformHandle file, uint32_t offset, uint32_t length) override {
        if (Fails(Call::Unlock) || !Passed(real.Unlock(file, offset, length))) return false;
        locks.erase({file, offset, length});
        return true;
    }
    void Hint(zb::PlatformHandle file, zb::ReadHint hint) override { real.Hint(file, hint); }
    void ReleaseReads(zb::PlatformHandle file) override { real.ReleaseReads(file); }
    uint32_t LastError() override { return lastError; }
    int Rename(const char* newName, const char* oldName) override {
        return Fails(Call::Rename) ? static_cast<int>(lastError) : real.Rename(newName, oldName);
    }
    bool Exists(const char* name) override { return !Fails(Call::Exists) && real.Exists(name); }
    void* Allocate(size_t bytes) override {
        if (Fails(Call::Allocate)) return nullptr;
        void* memory = real.Allocate(bytes);
        if (memory) blocks++;
        return memory;
    }
    void* Reallocate(void* memory, size_t bytes) override {
        if (Fails(Call::Reallocate)) return nullptr;
        void* moved = real.Reallocate(memory, bytes);
        if (moved && !memory) blocks++;
        return moved;
    }
    void Free(void* memory) override {
        Note(Call::Free);
        if (memory) blocks--;
        real.Free(memory);
    }
    void ProfileText(const char* section, const char* key, char* text, size_t size) override {
        Note(Call::ProfileText);
        real.ProfileText(section, key, text, size);
    }
    int32_t ProfileNumber(const char* section, const char* key, int32_t fallback) override {
        Note(Call::ProfileNumber);
        return real.ProfileNumber(section, key, fallback);
    }
    zb::LocalTime Now() override {
        Note(Call::Now);
        return real.Now();
    }
    void Message(const char* caption, const char* text) override {
        Note(Call::Message);
        real.Message(caption, text);
    }

  private:
    struct Rule {
        Call kind;
        int first;
        int times;
        uint32_t value;
    };

    void Note(Call kind, uint32_t count = 0, uint32_t how = 0) {
        counts[static_cast<int>(kind)]++;
        trace.push_back({kind, count, how});
    }

    // The rule that the call just counted falls under, or null.
    const Rule* Find(const std::vector<Rule>& rules, Call kind) const {
        for (const Rule& rule : rules) {
            if (rule.kind != kind && rule.kind != Call::Any) continue;
            int number = Count(rule.kind);
            if (number >= rule.first && number - rule.first < rule.times) return &rule;
        }
        return nullptr;
    }

    bool Fails(Call kind, uint32_t count = 0, uint32_t how = 0) {
        Note(kind, count, how);
        counts[static_cast<int>(Call::Any)]++;
        const Rule* rule = Find(failures, kind);
        if (!rule) return false;
        lastError = rule->value;
        return failed = true;
    }

    uint32_t Cut(Call kind, uint32_t count) const {
        const Rule* rule = Find(cuts, kind);
        return rule && rule->value < count ? rule->value : count;
    }

    // Takes over the real platform's error.
    template <class Result>
    Result Passed(Result result) {
        lastError = real.LastError();
        return result;
    }

    zb::Platform& real;
    zb::Platform* previous;
    uint32_t lastError = 0;
    bool failed = false;
    int counts[static_cast<int>(Call::Any) + 1] = {};
    std::vector<TraceEntry> trace;
    std::vector<Rule> failures, cuts, interruptions;
    std::set<zb::PlatformHandle> files;
    std::set<std::tuple<zb::PlatformHandle, uint32_t, uint32_t>> locks;
    int blocks = 0;
};

}  // namespace test
