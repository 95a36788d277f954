// What the POSIX platform asks of the system: how many calls, which, and what
// becomes of one that fails.
#include <linux/magic.h>
#include <unistd.h>

#include "platform/fixture.h"
#include "support/call_spy.h"

namespace test {
namespace {

using zb::PosixCalls;

struct Spies {
    CallSpy<&PosixCalls::open> open;
    CallSpy<&PosixCalls::close> close;
    CallSpy<&PosixCalls::pread> pread;
    CallSpy<&PosixCalls::pwrite> pwrite;
    CallSpy<&PosixCalls::fstat> fstat;
    CallSpy<&PosixCalls::ftruncate> ftruncate;
    CallSpy<&PosixCalls::lock> lock;
    CallSpy<&PosixCalls::mmap> mmap;
    CallSpy<&PosixCalls::munmap> munmap;

    int All() const {
        return open.Count() + close.Count() + pread.Count() + pwrite.Count() + fstat.Count() +
               ftruncate.Count() + lock.Count() + mmap.Count() + munmap.Count();
    }
};

class PosixSystemCalls : public PlatformTest {
  protected:
    bool Fails(bool success, uint32_t error) { return !success && real.LastError() == error; }

    Environment reads{"ZB_READS", nullptr};
    uint32_t done = 0;
    char bytes[8192] = {};
};

class PosixMappedCalls : public PosixSystemCalls {
  protected:
    void SetUp() override {
        if (!MapsFiles) GTEST_SKIP() << "reads are calls here";
    }
};

constexpr auto None = PlatformHandle::None;

TEST_F(PosixMappedCalls, AWarmReadAndItsSeekMakeNone) {
    WriteFile("a", Fill(10000, 'a'));
    auto file = Open("a");
    ReadAt(file, 0, 80);
    Spies spies;
    for (int i = 0; i < 100; i++) ReadAt(file, i * 80, 80);
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(PosixMappedCalls, OneMappingServesAllHandlesAndGoesWithTheLast) {
    WriteFile("a", Fill(100, 'a'));
    Spies spies;
    auto one = Open("a");
    auto two = Open("a", SharedReadOnly);
    EXPECT_EQ(spies.mmap.Count(), 0);
    ReadAt(one, 0, 10);
    ReadAt(two, 0, 10);
    EXPECT_EQ(spies.mmap.Count(), 1);
    Close(one);
    ReadAt(two, 0, 10);
    EXPECT_EQ(spies.munmap.Count(), 0);
    Close(two);
    EXPECT_EQ(spies.munmap.Count(), 1);
}

TEST_F(PosixMappedCalls, OnlyAReadBeyondTheKnownEndAsksForTheLength) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(100, 'a'));
    ReadAt(file, 0, 100);
    Spies spies;
    ReadAt(file, 0, 100);
    EXPECT_EQ(spies.All(), 0);
    ReadAt(file, 0, 101);
    EXPECT_EQ(spies.fstat.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(PosixMappedCalls, ZerosInTheLastPageAskForTheLength) {
    const auto page = static_cast<int64_t>(sysconf(_SC_PAGESIZE));
    auto file = Open("a", Created);
    WriteAt(file, page, Fill(100));
    ReadAt(file, 0, 1);
    Spies spies;
    ReadAt(file, 0, 100);
    EXPECT_EQ(spies.All(), 0);
    ReadAt(file, page, 50);
    EXPECT_EQ(spies.fstat.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(PosixMappedCalls, ZerosInTheLastPageOfAPagedFileAskNothing) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(1024, 0));
    zb::NativePlatform().Hint(file, zb::ReadHint::Pages);
    ReadAt(file, 0, 512);
    Spies spies;
    ReadAt(file, 512, 512);
    EXPECT_EQ(spies.All(), 0);
    Close(file);
}

TEST_F(PosixSystemCalls, AFileReadOnceIsNotMapped) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(1024, 'a'));
    zb::NativePlatform().Hint(file, zb::ReadHint::Once);
    Spies spies;
    EXPECT_EQ(ReadAt(file, 100, 50), Fill(50, 'a'));
    EXPECT_EQ(spies.mmap.Count(), 0);
    EXPECT_EQ(spies.pread.Count(), 1);
    Close(file);
}

TEST_F(PosixSystemCalls, ReleasedReadsAreReadAgain) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(10000, 'a'));
    EXPECT_EQ(ReadAt(file, 0, 10), Fill(10, 'a'));
    zb::NativePlatform().ReleaseReads(file);
    EXPECT_EQ(ReadAt(file, 4090, 10), Fill(10, 'a'));
    Close(file);
}

TEST_F(PosixMappedCalls, ALargeReadIsOnePread) {
    WriteFile("a", Fill(10000, 'a'));
    auto file = Open("a");
    ReadAt(file, 0, 1);
    Spies spies;
    ReadAt(file, 0, 4096);
    EXPECT_EQ(spies.All(), 0);
    ReadAt(file, 0, 4097);
    EXPECT_EQ(spies.pread.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(PosixSystemCalls, AWriteIsOneAndAWriteOfNothingNone) {
    auto file = Open("a", Created);
    Spies spies;
    WriteAt(file, 0, "abc");
    EXPECT_EQ(spies.pwrite.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
    WriteAt(file, 0, "");
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(PosixSystemCalls, OpensByKind) {
    WriteFile("a", "abc");
    Spies spies;
    auto file = Open("a");
    EXPECT_EQ(spies.open.Count(), 1);
    EXPECT_EQ(spies.fstat.Count(), 1);
    EXPECT_EQ(spies.lock.Count(), 2);
    EXPECT_EQ(spies.All(), 4);
    Close(file);
    EXPECT_EQ(spies.All(), 5);
    Open("new", Created);
    EXPECT_EQ(spies.ftruncate.Count(), 0);
    Open("a", Created);
    EXPECT_EQ(spies.ftruncate.Count(), 1);
}

TEST_F(PosixSystemCalls, ReadsByPreadWhereToldTo) {
    reads.Set("pread");
    WriteFile("a", Fill(100, 'a'));
    auto file = Open("a");
    Spies spies;
    EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(spies.pread.Count(), 1);
    EXPECT_EQ(spies.mmap.Count(), 0);
}

TEST_F(PosixMappedCalls, ReadsByPreadWhereTheMappingIsRefused) {
    WriteFile("a", Fill(100, 'a'));
    auto file = Open("a");
    Spies spies;
    spies.mmap.Fail(1, ENOMEM);
    EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(spies.mmap.Count(), 1);
    EXPECT_EQ(spies.pread.Count(), 2);
}

TEST_F(PosixMappedCalls, TheMappingGrowsWithItsFile) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(100, 'a'));
    EXPECT_EQ(ReadAt(file, 0, 100), Fill(100, 'a'));
    CallSpy<&PosixCalls::mremap> mremap;
    Spies spies;
    for (int64_t at : {int64_t{1} << 25, int64_t{1} << 26, int64_t{1} << 28, zb::MaxPosition - 100}) {
        WriteAt(file, at, Fill(100, 'b'));
        EXPECT_EQ(ReadAt(file, at, 100), Fill(100, 'b'));
        EXPECT_EQ(ReadAt(file, 0, 100), Fill(100, 'a'));
    }
    EXPECT_EQ(mremap.Count(), 3);  // up to 64 MiB are mapped from the beginning
    EXPECT_EQ(spies.mmap.Count(), 0);
    EXPECT_EQ(spies.pread.Count(), 0);
    Close(file);
    EXPECT_EQ(spies.munmap.Count(), 1);
}

TEST_F(PosixMappedCalls, ReadsByPreadWhatTheMappingMayNotGrowTo) {
    auto file = Open("a", Created);
    WriteAt(file, 0, Fill(100, 'a'));
    ReadAt(file, 0, 100);
    WriteAt(file, 1 << 28, Fill(100, 'b'));
    CallSpy<&PosixCalls::mremap> mremap;
    mremap.Fail(1, ENOMEM, CallSpy<&PosixCalls::mremap>::Forever);
    Spies spies;
    EXPECT_EQ(ReadAt(file, 1 << 28, 100), Fill(100, 'b'));
    EXPECT_EQ(spies.pread.Count(), 1);
    EXPECT_EQ(ReadAt(file, 0, 100), Fill(100, 'a'));
    EXPECT_EQ(spies.pread.Count(), 1);
    Close(file);
}

class ReadMapped : public PosixMappedCalls {
  protected:
    bool Read(PlatformHandle file, int64_t position, uint32_t count) {
        return real.ReadMapped(file, position, bytes, count);
    }
};

TEST_F(ReadMapped, GivesWhatIsMappedAndMovesThePosition) {
    WriteFile("a", Fill(100, 'a') + "0123456789");
    auto file = Open("a");
    EXPECT_FALSE(Read(file, 0, 10));  // nothing is mapped before the first read
    ReadAt(file, 0, 1);
    Spies spies;
    EXPECT_TRUE(Read(file, 100, 5));
    EXPECT_EQ(std::string(bytes, 5), "01234");
    EXPECT_TRUE(real.Read(file, bytes, 5, &done));
    EXPECT_EQ(std::string(bytes, 5), "56789");
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(ReadMapped, DoesNothingWhereACallIsNeeded) {
    WriteFile("a", Fill(5000, 'a') + std::string(10, '\0'));
    auto file = Open("a");
    ReadAt(file, 0, 3);
    Spies spies;
    EXPECT_FALSE(Read(file, 5000, 11));  // beyond the known end
    EXPECT_FALSE(Read(file, 4995, 10));  // zeros at the end
    EXPECT_FALSE(Read(file, 0, 4097));
    EXPECT_FALSE(Read(file, 0, 0));
    EXPECT_FALSE(Read(file, -1, 1));
    EXPECT_FALSE(Read(PlatformHandle::None, 0, 1));
    EXPECT_EQ(spies.All(), 0);
    EXPECT_TRUE(real.Read(file, bytes, 1, &done));  // the position is as it was
    EXPECT_EQ(bytes[0], 'a');
    EXPECT_EQ(Position(file), 4u);
}

decltype(statfs::f_type) pretended;

// Lets every file system be the one that a test pretends.
void Pretend(uint32_t type) {
    pretended = static_cast<decltype(pretended)>(type);
    zb::posixCalls.fstatfs = [](int, struct statfs* status) {
        *status = {};
        status->f_type = pretended;
        return 0;
    };
}

TEST_F(PosixMappedCalls, ReadsByPreadWhereTheFileSystemIsNotLocal) {
    RestoredCalls restored;
    for (uint32_t type : {uint32_t{NFS_SUPER_MAGIC}, uint32_t{SMB2_SUPER_MAGIC}, uint32_t{FUSE_SUPER_MAGIC},
                          uint32_t{V9FS_MAGIC}, 0x12345678u}) {
        Pretend(type);
        WriteFile("a", Fill(100, 'a'));
        auto file = Open("a");
        CallSpy<&PosixCalls::mmap> mmap;
        CallSpy<&PosixCalls::fstatfs> fstatfs;
        EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
        EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
        EXPECT_EQ(mmap.Count(), 0) << type;
        EXPECT_EQ(fstatfs.Count(), 1);
        Close(file);
    }
}

TEST_F(PosixSystemCalls, ReadsByPreadWhereTheFileSystemCantBeTold) {
    WriteFile("a", Fill(100, 'a'));
    auto file = Open("a");
    CallSpy<&PosixCalls::fstatfs> fstatfs;
    CallSpy<&PosixCalls::mmap> mmap;
    fstatfs.Fail(1, EIO);
    EXPECT_EQ(ReadAt(file, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(mmap.Count(), 0);
}

TEST_F(PosixMappedCalls, AnOverlayIsMappedThroughAWriterAlone) {
    RestoredCalls restored;
    Pretend(OVERLAYFS_SUPER_MAGIC);
    WriteFile("a", Fill(100, 'a'));
    CallSpy<&PosixCalls::mmap> mmap;
    CallSpy<&PosixCalls::fstatfs> fstatfs;
    auto reader = Open("a", SharedReadOnly);
    EXPECT_EQ(ReadAt(reader, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(mmap.Count(), 0);
    auto writer = Open("a");
    EXPECT_EQ(ReadAt(writer, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(mmap.Count(), 1);
    CallSpy<&PosixCalls::pread> pread;
    EXPECT_EQ(ReadAt(reader, 10, 80), Fill(80, 'a'));
    EXPECT_EQ(pread.Count(), 0);
    EXPECT_EQ(fstatfs.Count(), 1);
}

TEST_F(PosixSystemCalls, InterruptedCallsAreMadeAgain) {
    reads.Set("pread");
    WriteFile("a", "abc");
    Spies spies;
    spies.open.Fail(1, EINTR);
    spies.lock.Fail(1, EINTR);
    auto file = Open("a");
    ASSERT_NE(file, None);
    spies.pread.Fail(1, EINTR, 3);
    EXPECT_EQ(ReadAt(file, 0, 3), "abc");
    spies.pwrite.Fail(1, EINTR, 3);
    WriteAt(file, 0, "xyz");
    spies.ftruncate.Fail(1, EINTR, 3);
    EXPECT_TRUE(CutTo(file, 2));
    spies.lock.Fail(1, EINTR, 3);
    EXPECT_TRUE(real.Lock(file, 0, 1));
    spies.lock.Fail(1, EINTR, 3);
    EXPECT_TRUE(real.Unlock(file, 0, 1));
    spies.ftruncate.Fail(1, EINTR, 3);
    Open("a", Created);
    EXPECT_EQ(FileSize("a"), 0u);
}

TEST_F(PosixSystemCalls, APartialWriteGoesOnAndAPartialReadToo) {
    RestoredCalls restored;
    reads.Set("pread");
    zb::posixCalls.pwrite = [](int fd, const void* from, size_t count, off_t position) {
        return ::pwrite(fd, from, count < 3 ? count : 3, position);
    };
    zb::posixCalls.pread = [](int fd, void* to, size_t count, off_t position) {
        return ::pread(fd, to, count < 4 ? count : 4, position);
    };
    auto file = Open("a", Created);
    WriteAt(file, 0, "0123456789");
    EXPECT_EQ(ReadAt(file, 1, 100), "123456789");
}

TEST_F(PosixSystemCalls, AWriteThatFailsHalfWayTellsWhatWasWritten) {
    RestoredCalls restored;
    auto file = Open("a", Created);
    zb::posixCalls.pwrite = [](int fd, const void* from, size_t count, off_t position) -> ssize_t {
        if (position == 0) return ::pwrite(fd, from, count < 3 ? count : 3, position);
        errno = ENOSPC;
        return -1;
    };
    EXPECT_TRUE(Fails(real.Write(file, "0123456789", 10, &done), 112));
    EXPECT_EQ(done, 3u);
    EXPECT_EQ(Position(file), 3u);
    EXPECT_EQ(ReadAt(file, 0, 10), "012");
}

TEST_F(PosixSystemCalls, FailuresComeWithTheirNumbers) {
    reads.Set("pread");
    WriteFile("a", "abc");
    auto file = Open("a");
    struct {
        int number;
        uint32_t error;
    } errors[] = {{ENOENT, 2}, {ENOTDIR, 2}, {EBADF, 6},    {EACCES, 13},
                  {EPERM, 13}, {EROFS, 13},  {ENOSPC, 112}, {EIO, static_cast<uint32_t>(EIO)}};
    Spies spies;
    for (auto [number, error] : errors) {
        spies.open.Fail(1, number);
        EXPECT_EQ(Open("a"), None);
        EXPECT_EQ(real.LastError(), error);
        done = 7;
        spies.pread.Fail(1, number);
        EXPECT_TRUE(Fails(real.Read(file, bytes, 1, &done), error));
        EXPECT_EQ(done, 0u);
        done = 7;
        spies.pwrite.Fail(1, number);
        EXPECT_TRUE(Fails(real.Write(file, bytes, 1, &done), error));
        EXPECT_EQ(done, 0u);
        spies.fstat.Fail(1, number);
        EXPECT_TRUE(Fails(real.Seek(file, 0, SeekFrom::End, &done), error));
        spies.ftruncate.Fail(1, number);
        EXPECT_TRUE(Fails(real.SetEnd(file), error));
        CallSpy<&PosixCalls::unlink> unlink;
        unlink.Fail(1, number);
        EXPECT_TRUE(Fails(real.Delete("a"), error));
        CallSpy<&PosixCalls::rename> rename;
        rename.Fail(1, number);
        EXPECT_EQ(real.Rename("b", "a"), number);
        if (number == EACCES) continue;  // a lock that is held
        spies.lock.Fail(1, number);
        EXPECT_TRUE(Fails(real.Lock(file, 0, 1), error));
    }
}

TEST_F(PosixMappedCalls, AReadThatCantAskForTheLengthFails) {
    WriteFile("a", "abc");
    auto file = Open("a");
    CallSpy<&PosixCalls::fstat> fstat;
    fstat.Fail(1, EIO);
    EXPECT_TRUE(Fails(real.Read(file, bytes, 10, &done), static_cast<uint32_t>(EIO)));
    EXPECT_EQ(Position(file), 0u);
}

TEST_F(PosixSystemCalls, AFailedOpenLeavesNothingOpen) {
    WriteFile("a", "abc");
    Spies spies;
    auto refused = [&](uint32_t error) {
        int before = spies.close.Count();
        return Open("a", Created) == None && real.LastError() == error && spies.close.Count() == before + 1;
    };
    spies.fstat.Fail(1, EIO);
    EXPECT_TRUE(refused(static_cast<uint32_t>(EIO)));
    spies.lock.Fail(1, ENOLCK);
    EXPECT_TRUE(refused(static_cast<uint32_t>(ENOLCK)));
    spies.lock.Fail(2, ENOLCK);
    EXPECT_TRUE(refused(static_cast<uint32_t>(ENOLCK)));
    spies.ftruncate.Fail(1, EIO);
    EXPECT_TRUE(refused(static_cast<uint32_t>(EIO)));
    EXPECT_EQ(ReadFile("a"), "abc");
    CallSpy<&PosixCalls::realloc> realloc;
    realloc.Fail(1, ENOMEM, realloc.Forever);
    // The table of files may have room left, the image never has.
    EXPECT_EQ(Open("a"), None);
    EXPECT_EQ(real.LastError(), 8u);
}

TEST_F(PosixSystemCalls, AFailedCloseHasClosed) {
    WriteFile("a", "abc");
    auto file = Open("a");
    RestoredCalls restored;
    zb::posixCalls.close = [](int fd) {
        ::close(fd);
        errno = EIO;
        return -1;
    };
    EXPECT_TRUE(Fails(Close(file), static_cast<uint32_t>(EIO)));
    EXPECT_TRUE(Fails(real.Close(file), 6));
}

TEST_F(PosixSystemCalls, AnInterruptedCloseHasClosed) {
    WriteFile("a", "abc");
    auto file = Open("a");
    RestoredCalls restored;
    zb::posixCalls.close = [](int fd) {
        ::close(fd);
        errno = EINTR;
        return -1;
    };
    EXPECT_TRUE(Close(file));
}

TEST_F(PosixSystemCalls, ALockWithoutMemoryForItTakesNothing) {
    WriteFile("a", "abc");
    auto one = Open("a");
    auto two = Open("a");
    {
        CallSpy<&PosixCalls::realloc> realloc;
        realloc.Fail(1, ENOMEM);
        EXPECT_TRUE(Fails(real.Lock(one, 5, 5), 8));
    }
    EXPECT_TRUE(real.Lock(two, 5, 5));
}

}  // namespace
}  // namespace test
