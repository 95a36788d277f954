// What the tests of the platforms share.
#pragma once

#include <memory>

#include "platform/platform.h"
#include "support/environment.h"
#include "support/support.h"

namespace test {

using zb::OpenExisting;
using zb::OpenRead;
using zb::OpenWrite;
using zb::PlatformHandle;
using zb::SeekFrom;
using zb::ShareFully;
using zb::ShareRead;
using zb::ShareWrite;

inline constexpr unsigned Shared = OpenRead | OpenWrite | ShareFully | OpenExisting;
inline constexpr unsigned SharedReadOnly = OpenRead | ShareFully | OpenExisting;
inline constexpr unsigned Created = OpenRead | OpenWrite | ShareFully;

// Speaks to the real platform, and closes at the end whatever it has opened.
class PlatformTest : public DirectoryTest {
  protected:
    ~PlatformTest() override {
        for (PlatformHandle file : opened) real.Close(file);
    }

    PlatformHandle Open(const char* name, unsigned flags = Shared) {
        PlatformHandle file = real.Open(name, flags);
        if (file != PlatformHandle::None) opened.push_back(file);
        return file;
    }
    bool Close(PlatformHandle file) {
        std::erase(opened, file);
        return real.Close(file);
    }
    bool SeekTo(PlatformHandle file, int64_t position) {
        uint32_t now;
        return real.Seek(file, position, SeekFrom::Start, &now);
    }
    uint32_t Position(PlatformHandle file) {
        uint32_t now = 0;
        EXPECT_TRUE(real.Seek(file, 0, SeekFrom::Current, &now));
        return now;
    }
    Bytes ReadAt(PlatformHandle file, int64_t position, uint32_t count) {
        Bytes bytes(count, '?');
        uint32_t done = 0;
        EXPECT_TRUE(SeekTo(file, position));
        EXPECT_TRUE(real.Read(file, bytes.data(), count, &done)) << real.LastError();
        EXPECT_LE(done, count);
        EXPECT_EQ(Position(file), position + done);
        return bytes.substr(0, done);
    }
    void WriteAt(PlatformHandle file, int64_t position, const Bytes& bytes) {
        uint32_t done = 0;
        EXPECT_TRUE(SeekTo(file, position));
        EXPECT_TRUE(real.Write(file, bytes.data(), static_cast<uint32_t>(bytes.size()), &done))
            << real.LastError();
        EXPECT_EQ(done, bytes.size());
    }
    bool CutTo(PlatformHandle file, int64_t size) { return SeekTo(file, size) && real.SetEnd(file); }

    zb::Platform& real = zb::NativePlatform();

  private:
    std::vector<PlatformHandle> opened;
};

// Runs a piece of work in another process that is there before any file is
// opened here, so that the two share nothing.
inline int InAnotherProcess(std::function<void()> work) {
    Process other([&](Process&) {
        work();
        return 0;
    });
    return other.Wait();
}

}  // namespace test
