// Files as one sees them through handles, alike on every platform and, where reads
// can go two ways, by either.
#include <filesystem>
#include <thread>

#include "platform/fixture.h"

namespace test {
namespace {

constexpr size_t page = 4096;

class PlatformFiles : public PlatformTest, public testing::WithParamInterface<const char*> {
  private:
    Environment reads{"ZB_READS", GetParam()};
};

INSTANTIATE_TEST_SUITE_P(, PlatformFiles, testing::Values("", "pread"),
                         [](const auto& test) { return *test.param ? "Pread" : "Mapped"; });

TEST_P(PlatformFiles, ReadGivesWhatWasWritten) {
    auto file = Open("a", Created);
    WriteAt(file, 0, "hello world");
    EXPECT_EQ(ReadAt(file, 6, 5), "world");
    EXPECT_EQ(ReadFile("a"), "hello world");
}

TEST_P(PlatformFiles, EachHandleHasItsOwnPosition) {
    WriteFile("a", "0123456789");
    auto one = Open("a");
    auto two = Open("a");
    EXPECT_EQ(ReadAt(one, 2, 3), "234");
    EXPECT_EQ(ReadAt(two, 7, 2), "78");
    EXPECT_EQ(Position(one), 5u);
    EXPECT_EQ(Position(two), 9u);
}

TEST_P(PlatformFiles, ReadThatMeetsTheEndIsShort) {
    WriteFile("a", "0123456789");
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, 6, 100), "6789");
    EXPECT_EQ(ReadAt(file, 10, 1), "");
    EXPECT_EQ(ReadAt(file, 5000, 10), "");
    EXPECT_EQ(ReadAt(file, zb::MaxPosition, 10), "");
    EXPECT_EQ(ReadAt(file, 6, 100000), "6789");
}

TEST_P(PlatformFiles, ReadOfNothingSucceedsAnywhere) {
    auto file = Open("a", Created);
    EXPECT_EQ(ReadAt(file, 0, 0), "");
    EXPECT_EQ(ReadAt(file, 77, 0), "");
}

TEST_P(PlatformFiles, EmptyFileGrowsUnderAReader) {
    auto writer = Open("a", Created);
    auto reader = Open("a", SharedReadOnly);
    EXPECT_EQ(ReadAt(reader, 0, 10), "");
    WriteAt(writer, 0, "abc");
    EXPECT_EQ(ReadAt(reader, 0, 10), "abc");
    WriteAt(writer, 3 * static_cast<int64_t>(page), "end");
    EXPECT_EQ(ReadAt(reader, 3 * static_cast<int64_t>(page) - 2, 10), Fill(2) + "end");
}

TEST_P(PlatformFiles, ReadSeesTheWriteOfAnotherProcess) {
    WriteFile("a", Fill(3 * page, 'a'));
    Process other([&](Process& here) {
        auto file = Open("a");
        here.Await();
        WriteAt(file, 100, "written");
        WriteAt(file, static_cast<int64_t>(3 * page), "grown");
        here.Tell();
        here.Await();
        return 0;
    });
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, 100, 7), "aaaaaaa");
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(3 * page) - 2, 7), "aa");
    other.Tell();
    EXPECT_EQ(other.Await(), '.');
    EXPECT_EQ(ReadAt(file, 100, 7), "written");
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(3 * page) - 2, 7), "aagrown");
    other.Tell();
    EXPECT_EQ(other.Wait(), 0);
}

TEST_P(PlatformFiles, PagesCutByAnotherProcessReadAsTheEnd) {
    WriteFile("a", Fill(3 * page, 'a'));
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(2 * page), 10), Fill(10, 'a'));
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", 100); }), 0);
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(2 * page), 10), "");
    EXPECT_EQ(ReadAt(file, 50, 100), Fill(50, 'a'));
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", 0); }), 0);
    EXPECT_EQ(ReadAt(file, 50, 100), "");
    EXPECT_EQ(InAnotherProcess([] { WriteFile("a", Fill(60, 'b')); }), 0);
    EXPECT_EQ(ReadAt(file, 50, 100), Fill(10, 'b'));
}

TEST_P(PlatformFiles, ReadAcrossACutPageGivesWhatIsLeft) {
    WriteFile("a", Fill(3 * page, 'a'));
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, 0, 10), Fill(10, 'a'));
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", page + 1); }), 0);
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(2 * page) - 10, 20), "");
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(page) - 5, 20), Fill(6, 'a'));
}

TEST_P(PlatformFiles, CutInsideTheLastPageIsNoticedByItsZeros) {
    WriteFile("a", Fill(3 * page + 500, 'a'));
    auto file = Open("a");
    auto last = static_cast<int64_t>(3 * page);
    EXPECT_EQ(ReadAt(file, last + 300, 200), Fill(200, 'a'));
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", 3 * page + 350); }), 0);
    EXPECT_EQ(ReadAt(file, last + 300, 200), Fill(50, 'a'));
    EXPECT_EQ(ReadAt(file, last + 300, 50), Fill(50, 'a'));
}

TEST_P(PlatformFiles, ZerosThatAreInTheFileAreRead) {
    WriteFile("a", Fill(page) + Fill(100, 'a') + Fill(20));
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(page) + 90, 30), Fill(10, 'a') + Fill(20));
    EXPECT_EQ(ReadAt(file, 0, 100), Fill(100));
}

TEST_P(PlatformFiles, OwnCutIsKnownToEveryHandleAtOnce) {
    auto one = Open("a", Created);
    auto two = Open("a");
    WriteAt(one, 0, Fill(2 * page, 'a'));
    EXPECT_EQ(ReadAt(two, 10, 100), Fill(100, 'a'));
    EXPECT_TRUE(CutTo(one, 30));
    EXPECT_EQ(ReadAt(two, 10, 100), Fill(20, 'a'));
    EXPECT_TRUE(CutTo(two, 60));
    EXPECT_EQ(ReadAt(one, 10, 100), Fill(20, 'a') + Fill(30));
    auto three = Open("a", Created);
    EXPECT_EQ(ReadAt(one, 0, 100), "");
    WriteAt(three, 0, "new");
    EXPECT_EQ(ReadAt(two, 0, 100), "new");
}

TEST_P(PlatformFiles, LargeReadsAndReadsFromAnotherThread) {
    Bytes bytes;
    for (int i = 0; i < 50000; i++) bytes += static_cast<char>(i * 7);
    WriteFile("a", bytes);
    auto file = Open("a");
    for (uint32_t count : {4095u, 4096u, 4097u, 32767u, 50000u})
        EXPECT_EQ(ReadAt(file, 3, count), bytes.substr(3, count));
    std::thread([&] { EXPECT_EQ(ReadAt(file, 11, 99), bytes.substr(11, 99)); }).join();
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", 5); }), 0);
    std::thread([&] { EXPECT_EQ(ReadAt(file, 40000, 99), ""); }).join();
}

// A file that changes its size all the time while it is read: no read fails, and
// none gives more than was ever there.
TEST_P(PlatformFiles, ReadsSurviveAFileThatKeepsBeingCut) {
    WriteFile("a", Fill(4 * page, 'x'));
    Process other([&](Process& here) {
        auto file = Open("a");
        here.Tell();
        for (int i = 0; i < 300; i++) {
            CutTo(file, static_cast<int64_t>(page) * (i % 3));
            WriteAt(file, 0, Fill(4 * page, 'x'));
        }
        return 0;
    });
    auto file = Open("a");
    ASSERT_EQ(other.Await(), '.');
    for (int i = 0; i < 3000; i++) {
        Bytes bytes = ReadAt(file, static_cast<int64_t>(page) * (i % 4) + 17, 64);
        for (char c : bytes) ASSERT_TRUE(c == 'x' || c == 0);
    }
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(ReadAt(file, static_cast<int64_t>(4 * page) - 4, 64), "xxxx");
}

TEST_P(PlatformFiles, SeekStaysWithin31Bits) {
    WriteFile("a", "0123456789");
    auto file = Open("a");
    ASSERT_TRUE(SeekTo(file, 4));
    uint32_t position = 99;
    auto refused = [&](int64_t offset, SeekFrom origin) {
        bool moved = real.Seek(file, offset, origin, &position);
        return !moved && real.LastError() == 131 && Position(file) == 4 && position == 99;
    };
    EXPECT_TRUE(refused(-1, SeekFrom::Start));
    EXPECT_TRUE(refused(0x80000000, SeekFrom::Start));
    EXPECT_TRUE(refused(0x7FFFFFFC, SeekFrom::Current));
    EXPECT_TRUE(refused(-5, SeekFrom::Current));
    EXPECT_TRUE(refused(-11, SeekFrom::End));
    EXPECT_TRUE(refused(INT64_MAX, SeekFrom::Current));
    EXPECT_TRUE(refused(INT64_MIN, SeekFrom::Start));

    EXPECT_TRUE(real.Seek(file, -3, SeekFrom::End, &position));
    EXPECT_EQ(position, 7u);
    EXPECT_TRUE(real.Seek(file, 2, SeekFrom::Current, &position));
    EXPECT_EQ(position, 9u);
    EXPECT_TRUE(real.Seek(file, 0x7FFFFFFF, SeekFrom::Start, &position));
    EXPECT_EQ(position, 0x7FFFFFFFu);
}

TEST_P(PlatformFiles, SeekToTheEndSeesForeignGrowth) {
    WriteFile("a", "0123456789");
    auto file = Open("a");
    EXPECT_EQ(ReadAt(file, 0, 10), "0123456789");
    EXPECT_EQ(InAnotherProcess([] { std::filesystem::resize_file("a", 12345); }), 0);
    uint32_t position = 0;
    EXPECT_TRUE(real.Seek(file, 0, SeekFrom::End, &position));
    EXPECT_EQ(position, 12345u);
}

TEST_P(PlatformFiles, WriteThatWouldEndBeyond31BitsIsRefused) {
    auto file = Open("a", Created);
    ASSERT_TRUE(SeekTo(file, 0x7FFFFFFE));
    uint32_t done = 7;
    EXPECT_FALSE(real.Write(file, "ab", 2, &done));
    EXPECT_EQ(real.LastError(), 112u);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(FileSize("a"), 0u);
    EXPECT_EQ(Position(file), 0x7FFFFFFEu);
}

TEST_P(PlatformFiles, TheLastBytesOfThe31BitsAreRead) {
    auto file = Open("a", Created);
    WriteAt(file, 0x7FFFFFF0, "0123456789ABCDE");
    EXPECT_EQ(FileSize("a"), 0x7FFFFFFFu);
    EXPECT_EQ(ReadAt(file, 0x7FFFFFF0, 100), "0123456789ABCDE");
    EXPECT_EQ(ReadAt(file, 0x7FFFFFFE, 1), "E");
    EXPECT_EQ(ReadAt(file, 0x7FFFFFFF, 1), "");
}

TEST_P(PlatformFiles, AFileOfMoreThan31BitsHasNoEndToSeekTo) {
    WriteFile("a", "");
    std::filesystem::resize_file("a", 0x80000000);
    auto file = Open("a");
    uint32_t position = 0;
    EXPECT_FALSE(real.Seek(file, 0, SeekFrom::End, &position));
    EXPECT_EQ(real.LastError(), 131u);
    EXPECT_TRUE(real.Seek(file, -1, SeekFrom::End, &position));
    EXPECT_EQ(position, 0x7FFFFFFFu);
    EXPECT_EQ(ReadAt(file, 0x7FFFFFFE, 1), Fill(1));
}

TEST_P(PlatformFiles, WritingBehindTheEndFillsWithZeros) {
    auto file = Open("a", Created);
    WriteAt(file, 10, "x");
    EXPECT_EQ(ReadAt(file, 0, 20), Fill(10) + "x");
}

TEST_P(PlatformFiles, SetEndGrowsWithZeros) {
    auto file = Open("a", Created);
    WriteAt(file, 0, "abc");
    EXPECT_TRUE(CutTo(file, 6));
    EXPECT_EQ(ReadAt(file, 0, 20), "abc" + Fill(3));
}

TEST_P(PlatformFiles, AReadOnlyHandleWritesNothing) {
    WriteFile("a", "abc");
    auto file = Open("a", SharedReadOnly);
    uint32_t done = 7;
    EXPECT_FALSE(real.Write(file, "x", 1, &done));
    EXPECT_EQ(real.LastError(), 13u);
    EXPECT_EQ(done, 0u);
    EXPECT_FALSE(CutTo(file, 0));
    EXPECT_EQ(ReadAt(file, 0, 5), "abc");
}

TEST_P(PlatformFiles, AWriteOnlyHandleReadsNothing) {
    WriteFile("a", "abc");
    auto file = Open("a", OpenWrite | ShareFully | OpenExisting);
    char byte;
    uint32_t done = 7;
    EXPECT_FALSE(real.Read(file, &byte, 1, &done));
    EXPECT_EQ(real.LastError(), 13u);
    EXPECT_EQ(done, 0u);
}

using PlatformHandles = PlatformTest;

TEST_F(PlatformHandles, WhatIsNotOpenIsABadHandle) {
    char byte = 0;
    uint32_t out = 7;
    WriteFile("a", "abc");
    auto closed = Open("a");
    ASSERT_TRUE(Close(closed));
    for (auto file : {PlatformHandle::None, PlatformHandle{12345}, closed}) {
        auto bad = [&](bool success) { return !success && real.LastError() == 6; };
        EXPECT_FALSE(real.Delete("missing"));  // another error in between
        EXPECT_TRUE(bad(real.Read(file, &byte, 1, &out)));
        EXPECT_EQ(out, 0u);
        EXPECT_TRUE(bad(real.Write(file, &byte, 1, &out)));
        EXPECT_TRUE(bad(real.Seek(file, 0, SeekFrom::Start, &out)));
        EXPECT_TRUE(bad(real.SetEnd(file)));
        EXPECT_TRUE(bad(real.Lock(file, 0, 1)));
        EXPECT_TRUE(bad(real.Unlock(file, 0, 1)));
        EXPECT_TRUE(bad(real.Close(file)));
    }
}

TEST_F(PlatformHandles, ManyHandlesOpenAtOnce) {
    WriteFile("a", "0123456789");
    std::vector<PlatformHandle> files;
    for (int i = 0; i < 300; i++) files.push_back(Open("a"));
    for (auto file : files) EXPECT_EQ(ReadAt(file, 4, 2), "45");
    for (auto file : files) EXPECT_TRUE(Close(file));
}

TEST_F(PlatformHandles, OpenFailuresHaveTheirNumbers) {
    auto error = [&](const char* name, unsigned flags) {
        EXPECT_EQ(Open(name, flags), PlatformHandle::None);
        return real.LastError();
    };
    WriteFile("file", "");
    std::filesystem::create_directory("dir");
    EXPECT_EQ(error("missing", Shared), 2u);
    EXPECT_EQ(error("", Shared), 2u);
    EXPECT_EQ(error("missing/file", Created), 2u);
    EXPECT_EQ(error("file/below", Shared), 2u);
    EXPECT_EQ(error("dir", SharedReadOnly), 13u);
}

TEST_F(PlatformHandles, DeleteRenameAndExistence) {
    WriteFile("a", "abc");
    std::filesystem::create_directory("dir");
    EXPECT_TRUE(real.Exists("a"));
    EXPECT_TRUE(real.Exists("dir"));
    EXPECT_FALSE(real.Exists("missing"));
    EXPECT_EQ(real.Rename("b", "missing"), ENOENT);
    EXPECT_EQ(real.Rename("b", "a"), 0);
    EXPECT_EQ(ReadFile("b"), "abc");
    EXPECT_FALSE(real.Delete("a"));
    EXPECT_EQ(real.LastError(), 2u);
    EXPECT_FALSE(real.Delete("missing/a"));
    EXPECT_EQ(real.LastError(), 2u);
    EXPECT_FALSE(real.Delete("dir"));
    EXPECT_EQ(real.LastError(), 13u);
    EXPECT_TRUE(real.Delete("b"));
}

}  // namespace
}  // namespace test
