// The file operations: what each sets, logs and returns.
#include "file/operations.h"

#include <filesystem>

#include "file/path.h"
#include "support/fake_platform.h"
#include "support/file_handles.h"
#include "support/support.h"

namespace zb {
namespace {

using test::Bytes;
using test::Call;
using test::FakePlatform;

class Operations : public test::LibraryTest {
  protected:
    void SetUp() override {
        test::DropFileHandles();
        LibraryTest::SetUp();
        StartLog();
    }
    void TearDown() override {
        for (uint16_t handle = 2; handle < 102; handle++) PfClose(handle);
        LibraryTest::TearDown();
    }
    // Whether a call gave a code, left it standing, and wrote these lines to the
    // log; clears both.
    bool Gave(Code result, Code code, std::vector<LogEntry> lines = {}) {
        EXPECT_EQ(result, code);
        EXPECT_EQ(CurrentCode(), code);
        EXPECT_TRUE(Log() == lines);
        bool fits = result == code && CurrentCode() == code && Log() == lines;
        SetCode(0);
        StartLog();
        return fits;
    }
    uint16_t FileWith(const Bytes& bytes) {
        uint16_t handle = 0;
        test::WriteFile("a", bytes);
        EXPECT_EQ(PfOpen("a", OpenRead | OpenWrite | ShareFully, &handle), 1);
        return handle;
    }
    uint32_t Position(uint16_t handle) {
        uint32_t position = 0;
        EXPECT_EQ(PfSeek(handle, 0, SeekFrom::Current, &position), 1);
        return position;
    }
    static constexpr Code Platform(unsigned number) { return static_cast<Code>(number | 0xC000); }
};

TEST_F(Operations, APendingFailureIsLoggedAndReturnedAndNothingIsDone) {
    uint16_t handle = FileWith("0123456789");
    uint16_t other = 7, flags = 0;
    uint32_t out = 7;
    uint8_t flag = 7;
    char byte = 'x';
    struct {
        const char* name;
        std::function<Code()> call;
    } calls[] = {
        {"Hseek", [&] { return Hseek(handle, 1); }},
        {"Htell", [&] { return Htell(handle, &out); }},
        {"Hlen", [&] { return Hlen(handle, &out); }},
        {"Hread", [&] { return Hread(handle, &byte, 1); }},
        {"Hwrite", [&] { return Hwrite(handle, &byte, 1, true); }},
        {"Hflush", [&] { return Hflush(handle); }},
        {"Herase", [&] { return Herase("a"); }},
        {"Hrename", [&] { return Hrename("b", "a"); }},
        {"Hlock", [&] { return Hlock(handle, LockOp::Lock, 0, 1); }},
        {"Hcreate", [&] { return Hcreate(&other, "b"); }},
        {"Hopen", [&] { return Hopen(&other, "a", 0, &flags, 0); }},
        {"Hreopen", [&] { return Hreopen(&other, "a", 0, 0); }},
    };
    for (auto& [name, call] : calls) {
        FakePlatform fake;
        SetCode(-33);
        EXPECT_TRUE(Gave(call(), -33, {{name, -33}})) << name;
        EXPECT_TRUE(fake.Trace().empty()) << name;
    }
    SetCode(-33);
    EXPECT_TRUE(Gave(Heof(handle, &flag), -33, {{"Htell", -33}, {"Heof", -33}}));
    EXPECT_EQ(other, 7);
    EXPECT_EQ(out, 7u);
    EXPECT_EQ(flag, 7);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(Position(handle), 0u);
}

TEST_F(Operations, SizeAndCloseDontLookAtAPendingFailure) {
    uint16_t handle = FileWith("0123456789");
    SetCode(-33);
    EXPECT_TRUE(Gave(Hsize(handle, 4), -33));
    EXPECT_EQ(test::FileSize("a"), 4u);
    SetCode(-33);
    EXPECT_TRUE(Gave(Hclose(handle), -33));
    EXPECT_EQ(FhmapLookup(2), PlatformHandle::None);
}

TEST_F(Operations, Seek) {
    uint16_t handle = FileWith("0123456789");
    EXPECT_TRUE(Gave(Hseek(handle, 4), 0));
    EXPECT_EQ(Position(handle), 4u);
    EXPECT_TRUE(Gave(Hseek(handle, 0x7FFFFFFF), 0));
    EXPECT_TRUE(Gave(Hseek(handle, 0x80000000), ErrSeek, {{"Hseek", -4}}));
    EXPECT_TRUE(Gave(Hseek(handle, -1), ErrSeek, {{"Hseek", -4}}));
    EXPECT_TRUE(Gave(Hseek(99, 0), ErrSeek, {{"Hseek", -4}}));
}

TEST_F(Operations, AWarningStands) {
    uint16_t handle = FileWith("0123456789");
    SetCode(WarnFileSize);
    EXPECT_TRUE(Gave(Hseek(handle, 4), WarnFileSize));
}

TEST_F(Operations, Tell) {
    uint16_t handle = FileWith("0123456789");
    uint32_t position = 7;
    Hseek(handle, 4);
    EXPECT_TRUE(Gave(Htell(handle, &position), 0));
    EXPECT_EQ(position, 4u);
    EXPECT_TRUE(Gave(Htell(handle, nullptr), ErrNullPointer, {{"Htell", -21}}));
}

TEST_F(Operations, ATellThatFailsWritesItsOutputAllTheSame) {
    uint32_t position = 7;
    EXPECT_TRUE(Gave(Htell(99, &position), Platform(6), {{"Htell", Platform(6)}}));
    EXPECT_EQ(position, 0xFFFFFFFFu);
}

TEST_F(Operations, Length) {
    uint16_t handle = FileWith("0123456789");
    uint32_t length = 7;
    Hseek(handle, 4);
    EXPECT_TRUE(Gave(Hlen(handle, &length), 0));
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(Position(handle), 4u);
    EXPECT_TRUE(Gave(Hlen(handle, nullptr), ErrNullPointer, {{"Hlen", -21}}));
    EXPECT_TRUE(Gave(Hlen(99, &length), ErrSeek, {{"Hlen", -4}}));
}

TEST_F(Operations, LengthLooksAtItsFirstTwoSeeksAlone) {
    uint16_t handle = FileWith("0123456789");
    uint32_t length = 7;
    FakePlatform fake;
    fake.Fail(Call::Seek, 1, 6);
    EXPECT_TRUE(Gave(Hlen(handle, &length), ErrSeek, {{"Hlen", -4}}));
    EXPECT_EQ(fake.Count(Call::Seek), 1);
    fake.Reset();
    fake.Fail(Call::Seek, 2, 6);
    EXPECT_TRUE(Gave(Hlen(handle, &length), ErrSeek, {{"Hlen", -4}}));
    EXPECT_EQ(fake.Count(Call::Seek), 2);
    fake.Reset();
    fake.Fail(Call::Seek, 3, 6);
    EXPECT_TRUE(Gave(Hlen(handle, &length), 0));
    EXPECT_EQ(length, 10u);
    EXPECT_EQ(fake.Count(Call::Seek), 3);
}

TEST_F(Operations, EndOfFileIsBehindTheLastByte) {
    uint16_t handle = FileWith("0123456789");
    uint8_t flag = 7;
    Hseek(handle, 9);
    EXPECT_TRUE(Gave(Heof(handle, &flag), 0));
    EXPECT_EQ(flag, 0);
    Hseek(handle, 10);
    EXPECT_TRUE(Gave(Heof(handle, &flag), 0));
    EXPECT_EQ(flag, 1);
    Hseek(handle, 11);
    EXPECT_TRUE(Gave(Heof(handle, &flag), 0));
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(Position(handle), 11u);
}

TEST_F(Operations, EndOfFileTellsBeforeItLooksAtItsOutput) {
    uint16_t handle = FileWith("0123456789");
    uint8_t flag = 7;
    EXPECT_TRUE(Gave(Heof(99, nullptr), Platform(6), {{"Htell", Platform(6)}, {"Heof", Platform(6)}}));
    EXPECT_TRUE(Gave(Heof(handle, nullptr), ErrNullPointer, {{"Heof", -21}}));
    FakePlatform fake;
    fake.Fail(Call::Seek, 3, 6);
    EXPECT_TRUE(Gave(Heof(handle, &flag), ErrSeek, {{"Hlen", -4}, {"Heof", -4}}));
    EXPECT_EQ(flag, 7);
}

TEST_F(Operations, Read) {
    uint16_t handle = FileWith("0123456789");
    char bytes[20];
    EXPECT_TRUE(Gave(Hread(handle, bytes, 4), 0));
    EXPECT_EQ(Bytes(bytes, 4), "0123");
    EXPECT_EQ(Position(handle), 4u);
    EXPECT_TRUE(Gave(Hread(handle, bytes, 0), 0));
    EXPECT_TRUE(Gave(Hread(handle, nullptr, 4), ErrNullPointer, {{"Hread", -21}}));
    EXPECT_TRUE(Gave(Hread(99, bytes, 4), ErrRead));
    EXPECT_TRUE(Gave(Hread(handle, bytes, -1), ErrRead));
}

TEST_F(Operations, AShortReadIsAFailureWithoutALogLineAndHasMoved) {
    uint16_t handle = FileWith("0123456789");
    char bytes[20];
    uint32_t done = 7;
    Hseek(handle, 5);
    EXPECT_TRUE(Gave(Hread(handle, bytes, 10), ErrRead));
    EXPECT_EQ(Position(handle), 10u);
    Hseek(handle, 5);
    EXPECT_TRUE(Gave(HreadSome(handle, bytes, 10, &done), ErrRead));
    EXPECT_EQ(done, 5u);
}

TEST_F(Operations, Write) {
    uint16_t handle = FileWith("0123456789");
    Hseek(handle, 5);
    EXPECT_TRUE(Gave(Hwrite(handle, "abc", 3, true), 0));
    EXPECT_EQ(test::ReadFile("a"), "01234abc89");
    EXPECT_EQ(Position(handle), 8u);
    EXPECT_TRUE(Gave(Hwrite(handle, "abc", 0, false), 0));
    EXPECT_TRUE(Gave(Hwrite(handle, nullptr, 3, false), ErrNullPointer, {{"Hwrite", -21}}));
    EXPECT_TRUE(Gave(Hwrite(99, "abc", 3, true), ErrWrite));
    EXPECT_TRUE(Gave(Hwrite(handle, "abc", -1, true), ErrWrite));
    FakePlatform fake;
    fake.Fail(Call::Write, 1, 112);
    EXPECT_TRUE(Gave(Hwrite(handle, "abc", 3, true), ErrWrite));
}

TEST_F(Operations, Flush) { EXPECT_TRUE(Gave(Hflush(99), 0)); }

TEST_F(Operations, ASizeThatCantBeSetIsLoggedAndSetsNoCode) {
    EXPECT_TRUE(Gave(Hsize(99, 0), 0, {{"Hsize", 0}}));
    SetCode(WarnFileSize);
    EXPECT_TRUE(Gave(Hsize(99, 0), WarnFileSize, {{"Hsize", WarnFileSize}}));
}

TEST_F(Operations, ExistenceIsNoCode) {
    test::WriteFile("a", "");
    std::filesystem::create_directory("dir");
    EXPECT_EQ(Hexist("a"), 1);
    EXPECT_EQ(Hexist("dir"), 1);
    EXPECT_EQ(Hexist("missing"), 0);
    EXPECT_EQ(Hexist(nullptr), 0);
    SetCode(-33);
    EXPECT_EQ(Hexist("a"), 1);
    EXPECT_TRUE(Gave(CurrentCode(), -33));
}

TEST_F(Operations, Erase) {
    test::WriteFile("a", "");
    EXPECT_TRUE(Gave(Herase("a"), 0));
    EXPECT_FALSE(test::FileExists("a"));
    EXPECT_TRUE(Gave(Herase(nullptr), ErrNullPointer, {{"Herase", -21}}));
}

TEST_F(Operations, EraseOfAMissingFileIsAWarningThatTheNextBindClears) {
    EXPECT_EQ(Herase("missing"), KeyNear);
    EXPECT_EQ(CurrentCode(), KeyNear);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(SlotBind("Test", 0, SlotData, false), nullptr);
    EXPECT_EQ(CurrentCode(), ErrBadHandle);
}

TEST_F(Operations, EraseFailures) {
    FakePlatform fake;
    fake.Fail(Call::Delete, 1, 13);
    EXPECT_TRUE(Gave(Herase("a"), ErrAccess, {{"Herase", -40}}));
    fake.Fail(Call::Delete, 1, 21);
    EXPECT_TRUE(Gave(Herase("a"), Platform(21), {{"Herase", Platform(21)}}));
    // A sharing violation is a missing file.
    fake.Fail(Call::Delete, 1, 32);
    EXPECT_TRUE(Gave(Herase("a"), KeyNear));
}

TEST_F(Operations, RenameTakesTheNewNameFirst) {
    test::WriteFile("old", "abc");
    EXPECT_TRUE(Gave(Hrename("new", "old"), 0));
    EXPECT_EQ(test::ReadFile("new"), "abc");
    EXPECT_FALSE(test::FileExists("old"));
    EXPECT_TRUE(Gave(Hrename(nullptr, "new"), ErrNullPointer, {{"Hrename", -21}}));
    EXPECT_TRUE(Gave(Hrename("old", nullptr), ErrNullPointer, {{"Hrename", -21}}));
}

TEST_F(Operations, RenameFailures) {
    EXPECT_TRUE(Gave(Hrename("new", "missing"), ErrRenameMissing, {{"Hrename", -5}}));
    FakePlatform fake;
    fake.Fail(Call::Rename, 1, 13);
    EXPECT_TRUE(Gave(Hrename("new", "old"), ErrAccess, {{"Hrename", -40}}));
    fake.Fail(Call::Rename, 1, 18);
    EXPECT_TRUE(Gave(Hrename("new", "old"), Platform(18), {{"Hrename", Platform(18)}}));
}

TEST_F(Operations, LockAndUnlock) {
    uint16_t one = FileWith("a");
    uint16_t two = FileWith("a");
    EXPECT_TRUE(Gave(Hlock(one, LockOp::Lock, 100, 10), 0));
    EXPECT_TRUE(Gave(Hlock(two, LockOp::Lock, 109, 1), ErrLockViolation, {{"Hlock", -37}}));
    EXPECT_TRUE(Gave(Hlock(one, LockOp::Unlock, 100, 10), 0));
    EXPECT_TRUE(Gave(Hlock(two, LockOp::Lock, 109, 1), 0));
    EXPECT_TRUE(Gave(Hlock(one, LockOp::Unlock, 100, 10), Platform(158), {{"Hlock", Platform(158)}}));
    // Every number but 0 unlocks.
    EXPECT_TRUE(Gave(Hlock(two, static_cast<LockOp>(200), 109, 1), 0));
    EXPECT_TRUE(Gave(Hlock(one, LockOp::Lock, 109, 1), 0));
}

TEST_F(Operations, LockFailures) {
    EXPECT_TRUE(Gave(Hlock(0, LockOp::Lock, 0, 1), ErrNullPointer));
    EXPECT_TRUE(Gave(Hlock(0, LockOp::Unlock, 0, 1), ErrNullPointer));
    for (auto operation : {LockOp::Lock, LockOp::Unlock}) {
        for (auto [error, code] : {std::pair<uint32_t, Code>{1, ErrBadOption},
                                   {6, ErrBadHandle},
                                   {33, ErrLockViolation},
                                   {36, ErrShareBuffer},
                                   {5, Platform(5)},
                                   {32, Platform(2)}}) {
            FakePlatform fake;
            fake.Fail(operation == LockOp::Lock ? Call::Lock : Call::Unlock, 1, error);
            EXPECT_TRUE(Gave(Hlock(2, operation, 0, 1), code, {{"Hlock", code}})) << error;
        }
    }
}

TEST_F(Operations, Create) {
    uint16_t one = 7, two = 7;
    test::WriteFile("a", "abc");
    EXPECT_TRUE(Gave(Hcreate(&one, "a"), 0));
    EXPECT_EQ(one, 2);
    EXPECT_EQ(test::FileSize("a"), 0u);
    // A created file is never exclusive.
    EXPECT_TRUE(Gave(Hcreate(&two, "a"), 0));
    EXPECT_EQ(two, 3);
    char byte;
    EXPECT_TRUE(Gave(Hwrite(one, "x", 1, true), 0));
    EXPECT_TRUE(Gave(Hread(two, &byte, 1), 0));
}

TEST_F(Operations, CreateFailures) {
    uint16_t handle = 7;
    EXPECT_TRUE(Gave(Hcreate(nullptr, "a"), ErrNullPointer));
    EXPECT_TRUE(Gave(Hcreate(&handle, nullptr), ErrNullPointer));
    EXPECT_TRUE(Gave(Hcreate(&handle, ""), ErrBadName, {{"Hcreate", -14}}));
    EXPECT_EQ(handle, 7);
    EXPECT_TRUE(Gave(Hcreate(&handle, "missing/a"), ErrOpen, {{"Hcreate", -46}}));
    EXPECT_EQ(handle, 65535);
}

class Opens : public Operations {
  protected:
    void SetUp() override {
        Operations::SetUp();
        test::WriteFile("a", "abc");
        ASSERT_EQ(library.table.Lock(), 0);
        library.table[3].closedFlag = 1;
    }
    bool Opened(uint16_t mode, uint16_t flagsBefore, uint16_t flagsAfter) {
        uint16_t handle = 7;
        uint16_t flags = flagsBefore;
        bool fits = Gave(Hopen(&handle, "a", mode, &flags, 3), 0);
        EXPECT_EQ(flags, flagsAfter);
        EXPECT_EQ(library.table[3].closedFlag, 0);
        if (fits) PfClose(handle);
        return fits && flags == flagsAfter;
    }
    // Another open of the file with these flags, while Opened is tried.
    uint16_t Hold(unsigned flags) {
        uint16_t handle = 0;
        EXPECT_EQ(PfOpen("a", flags, &handle), 1);
        return handle;
    }
};

TEST_F(Opens, TheModeSetsAndClearsTheTwoFlagsAndNoOther) {
    EXPECT_TRUE(Opened(0, 0, 0));
    EXPECT_TRUE(Opened(0, 0xFFFF, 0xFFFA));
    EXPECT_TRUE(Opened(ZB_ReadOnly, 0, FlagReadOnly));
    EXPECT_TRUE(Opened(ZB_Shared, 0, FlagShared));
    EXPECT_TRUE(Opened(ZB_ReadOnly | ZB_Shared, 0x10, 0x10 | FlagReadOnly | FlagShared));
    EXPECT_TRUE(Opened(ZB_OpenShared, 0, 0));  // spelled out before it comes here
    EXPECT_TRUE(Opened(0x00FF, 0, 0));
}

TEST_F(Opens, ThePlatformIsAskedForWhatTheModeSays) {
    FakePlatform fake;
    EXPECT_TRUE(Opened(0, 0, 0));
    EXPECT_EQ(fake.Count(Call::Open), 1);
    // Exclusive: not beside anybody else; then it falls back to reading, shared.
    Hold(OpenRead | ShareFully);
    EXPECT_TRUE(Opened(0, 0, FlagReadOnly | FlagShared));
    EXPECT_TRUE(Opened(ZB_ReadOnly, 0, FlagReadOnly | FlagShared));
    EXPECT_TRUE(Opened(ZB_Shared, 0, FlagShared));
}

TEST_F(Opens, WhatCantBeHadForWritingIsOpenedForReading) {
    Hold(OpenRead | ShareRead);
    uint16_t handle = 7, flags = 0;
    EXPECT_TRUE(Gave(Hopen(&handle, "a", ZB_Shared, &flags, 3), 0));
    EXPECT_EQ(flags, FlagReadOnly | FlagShared);
    char bytes[3];
    EXPECT_TRUE(Gave(Hread(handle, bytes, 3), 0));
    EXPECT_TRUE(Gave(Hwrite(handle, "x", 1, false), ErrWrite));
}

TEST_F(Opens, WhatCantBeOpenedAtAllSetsBothFlagsToo) {
    Hold(OpenRead | OpenWrite);
    uint16_t handle = 7, flags = 0x10;
    EXPECT_TRUE(Gave(Hopen(&handle, "a", 0, &flags, 3), ErrOpen, {{"Hopen", -46}}));
    EXPECT_EQ(flags, 0x10 | FlagReadOnly | FlagShared);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(library.table[3].closedFlag, 1);
    FakePlatform fake;
    EXPECT_TRUE(Gave(Hopen(&handle, "missing", ZB_ReadOnly, &flags, 3), ErrOpen, {{"Hopen", -46}}));
    EXPECT_EQ(fake.Count(Call::Open), 2);
}

TEST_F(Opens, ArgumentsAreCheckedBeforeAnythingChanges) {
    uint16_t handle = 7, flags = 0x10;
    EXPECT_TRUE(Gave(Hopen(nullptr, "a", 0, &flags, 3), ErrNullPointer, {{"Hopen", -21}}));
    EXPECT_TRUE(Gave(Hopen(&handle, nullptr, 0, &flags, 3), ErrNullPointer, {{"Hopen", -21}}));
    EXPECT_TRUE(Gave(Hopen(&handle, "a", 0, nullptr, 3), ErrNullPointer, {{"Hopen", -21}}));
    EXPECT_TRUE(Gave(Hopen(&handle, "", 0, &flags, 3), ErrBadName, {{"Hopen", -14}}));
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(flags, 0x10);
}

TEST_F(Opens, AReopenDoesNothingForAFileThatIsOpen) {
    library.table[3].closedFlag = 0;
    FakePlatform fake;
    EXPECT_TRUE(Gave(Hreopen(nullptr, nullptr, 0, 3), 0));
    SetCode(WarnDeleted);
    EXPECT_EQ(Hreopen(nullptr, nullptr, 0, 3), 0);
    EXPECT_TRUE(fake.Trace().empty());
}

TEST_F(Opens, AReopenOpensInTheModeOfTheFlags) {
    uint16_t handle = 7;
    EXPECT_TRUE(Gave(Hreopen(&handle, "a", FlagReadOnly | FlagShared, 3), 0));
    EXPECT_EQ(handle, 2);
    EXPECT_EQ(library.table[3].closedFlag, 0);
    EXPECT_TRUE(Gave(Hwrite(handle, "x", 1, false), ErrWrite));
    library.table[3].closedFlag = 1;
    EXPECT_TRUE(Gave(Hreopen(&handle, "a", FlagShared, 3), 0));
    EXPECT_TRUE(Gave(Hwrite(handle, "x", 1, false), 0));
    // There is no falling back to reading.
    library.table[3].closedFlag = 1;
    EXPECT_TRUE(Gave(Hreopen(&handle, "a", 0, 3), ErrOpen, {{"Hreopen", -46}}));
    EXPECT_EQ(library.table[3].closedFlag, 1);
}

TEST_F(Opens, AReopenWithoutANameFails) {
    uint16_t handle = 7;
    EXPECT_TRUE(Gave(Hreopen(&handle, "", 0, 3), ErrOpen, {{"Hreopen", -46}}));
    EXPECT_TRUE(Gave(Hreopen(nullptr, "a", 0, 3), ErrNullPointer, {{"Hreopen", -21}}));
    EXPECT_TRUE(Gave(Hreopen(&handle, nullptr, 0, 3), ErrNullPointer, {{"Hreopen", -21}}));
    EXPECT_EQ(library.table[3].closedFlag, 1);
}

TEST_F(Operations, CloseOfWhatIsNotOpen) {
    uint16_t handle = FileWith("a");
    EXPECT_TRUE(Gave(Hclose(handle), 0));
    EXPECT_TRUE(Gave(Hclose(handle), ErrBadHandle, {{"Hclose", -13}}));
    EXPECT_TRUE(Gave(Hclose(0), ErrBadHandle, {{"Hclose", -13}}));
    EXPECT_TRUE(Gave(Hclose(65535), ErrBadHandle, {{"Hclose", -13}}));
}

TEST_F(Operations, ACloseThatThePlatformRefuses) {
    uint16_t handle = FileWith("a");
    FakePlatform fake;
    fake.Fail(Call::Close, 1, 5);
    EXPECT_TRUE(Gave(Hclose(handle), ErrBadHandle, {{"Hclose", -13}}));
    EXPECT_EQ(FhmapLookup(2), PlatformHandle::None);
}

}  // namespace
}  // namespace zb
