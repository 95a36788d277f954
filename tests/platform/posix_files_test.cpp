// Files on the POSIX platform: names apart from what they name, and permissions.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/fixture.h"

namespace test {
namespace {

using PosixHandles = PlatformTest;

TEST_F(PosixHandles, TheNameOfAReplacedFileLeadsToTheNewOne) {
    WriteFile("a", "old");
    auto old = Open("a");
    EXPECT_EQ(ReadAt(old, 0, 3), "old");
    WriteFile("b", "new");
    ASSERT_EQ(real.Rename("a", "b"), 0);
    auto fresh = Open("a");
    EXPECT_EQ(ReadAt(fresh, 0, 3), "new");
    EXPECT_EQ(ReadAt(old, 0, 3), "old");
}

TEST_F(PosixHandles, ADeletedFileStaysReadable) {
    WriteFile("a", "abc");
    auto file = Open("a");
    EXPECT_TRUE(real.Delete("a"));
    EXPECT_EQ(ReadAt(file, 0, 5), "abc");
    EXPECT_FALSE(FileExists("a"));
}

TEST_F(PosixHandles, ALockStopsNobodyFromReadingOrWriting) {
    WriteFile("a", "0123456789");
    auto one = Open("a");
    auto two = Open("a");
    EXPECT_TRUE(real.Lock(one, 0, 100));
    EXPECT_EQ(ReadAt(two, 2, 3), "234");
    WriteAt(two, 2, "x");
    EXPECT_EQ(ReadAt(one, 2, 3), "x34");
}

TEST_F(PosixHandles, OpenFailuresOfTheSystemHaveItsNumbers) {
    auto error = [&](const char* name, unsigned flags) {
        EXPECT_EQ(Open(name, flags), PlatformHandle::None);
        return real.LastError();
    };
    EXPECT_EQ(error(std::string(300, 'x').c_str(), Shared), static_cast<uint32_t>(ENAMETOOLONG));
    ASSERT_EQ(mkfifo("pipe", 0666), 0);
    EXPECT_EQ(error("pipe", SharedReadOnly), 13u);
}

// A test that runs as the superuser does this as somebody else: nothing is
// refused to the superuser.
int WithoutPrivileges(std::function<void()> work) {
    return InAnotherProcess([&] {
        if (geteuid() == 0) {
            ASSERT_EQ(setgid(65534), 0);
            ASSERT_EQ(setuid(65534), 0);
        }
        work();
    });
}

TEST_F(PosixHandles, AFileWithoutWritePermissionIsOpenedForReading) {
    WriteFile("a", "abc");
    std::filesystem::permissions("a", std::filesystem::perms{0444});
    EXPECT_EQ(WithoutPrivileges([&] {
                  EXPECT_EQ(Open("a"), PlatformHandle::None);
                  EXPECT_EQ(real.LastError(), 13u);
                  EXPECT_EQ(Open("a", Created), PlatformHandle::None);
                  EXPECT_EQ(real.LastError(), 13u);
                  auto one = Open("a", SharedReadOnly);
                  auto two = Open("a", SharedReadOnly);
                  EXPECT_EQ(ReadAt(one, 0, 9), "abc");
                  EXPECT_TRUE(real.Lock(one, 100, 10));
                  EXPECT_FALSE(real.Lock(two, 105, 10));
                  EXPECT_EQ(real.LastError(), 33u);
              }),
              0);
    EXPECT_EQ(ReadFile("a"), "abc");
}

TEST_F(PosixHandles, WhatTheDirectoryRefusesIsAccess) {
    WriteFile("a", "abc");
    std::filesystem::permissions(".", std::filesystem::perms{0555});
    EXPECT_EQ(WithoutPrivileges([&] {
                  EXPECT_FALSE(real.Delete("a"));
                  EXPECT_EQ(real.LastError(), 13u);
                  EXPECT_EQ(real.Rename("b", "a"), EACCES);
                  EXPECT_EQ(Open("new", Created), PlatformHandle::None);
                  EXPECT_EQ(real.LastError(), 13u);
              }),
              0);
    std::filesystem::permissions(".", std::filesystem::perms{0755});
}

}  // namespace
}  // namespace test
