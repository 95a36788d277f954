// The map of file handles and the wrappers of the platform's calls.
#include "file/handles.h"

#include "support/fake_platform.h"
#include "support/file_handles.h"
#include "support/support.h"

namespace zb {
namespace {

using test::Bytes;
using test::Call;
using test::FakePlatform;

constexpr unsigned Shared = OpenRead | OpenWrite | ShareFully;

class Handles : public test::DirectoryTest {
  protected:
    void SetUp() override {
        test::DropFileHandles();
        ASSERT_EQ(FhmapAttach(100), 1);
    }
    void TearDown() override {
        for (uint16_t handle = 2; handle < 102; handle++) PfClose(handle);
        FhmapDetach();
    }
    uint16_t Create(const char* name) {
        uint16_t handle = 0;
        EXPECT_EQ(PfCreate(name, Shared, &handle), 1);
        return handle;
    }
    // The sizes of the reads or writes that reached the platform.
    static std::vector<uint32_t> Sizes(const FakePlatform& fake, Call kind) {
        std::vector<uint32_t> sizes;
        for (auto& entry : fake.Trace())
            if (entry.call == kind) sizes.push_back(entry.count);
        return sizes;
    }
};

TEST_F(Handles, CountFromTwoAndTheLastFreedComesFirst) {
    EXPECT_EQ(Create("a"), 2);
    EXPECT_EQ(Create("b"), 3);
    EXPECT_EQ(Create("c"), 4);
    EXPECT_EQ(PfClose(2), 1);
    EXPECT_EQ(Create("d"), 2);
    EXPECT_EQ(PfClose(3), 1);
    EXPECT_EQ(PfClose(2), 1);
    EXPECT_EQ(Create("e"), 2);
    EXPECT_EQ(Create("f"), 3);
    EXPECT_EQ(Create("g"), 5);
}

TEST_F(Handles, The101stOpenFailsAndLeavesTheErrorAsItWas) {
    for (int i = 0; i < 100; i++) EXPECT_EQ(Create("a"), i + 2);
    EXPECT_EQ(PfDelete("missing"), 0);
    ASSERT_EQ(PfLastError(), 2u);
    FakePlatform fake;
    uint16_t handle = 7;
    EXPECT_EQ(PfCreate("b", Shared, &handle), 0);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(PfLastError(), 2u);
    // The platform's file stays open.
    EXPECT_EQ(fake.Count(Call::Open), 1);
    EXPECT_EQ(fake.Count(Call::Close), 0);
    EXPECT_EQ(PfClose(50), 1);
    EXPECT_EQ(Create("c"), 50);
}

TEST_F(Handles, LookupKeepsWithinTheMap) {
    for (int handle : {-32768, -1, 0, 1, 102, 103, 32767})
        EXPECT_EQ(FhmapLookup(static_cast<int16_t>(handle)), PlatformHandle::None) << handle;
    EXPECT_EQ(FhmapLookup(2), PlatformHandle::None);
    EXPECT_EQ(Create("a"), 2);
    EXPECT_NE(FhmapLookup(2), PlatformHandle::None);
    EXPECT_EQ(FhmapLookup(101), PlatformHandle::None);
}

TEST_F(Handles, TheMapOutlivesAllButItsLastDetach) {
    EXPECT_EQ(FhmapAttach(5), 1);
    uint16_t handle = Create("a");
    EXPECT_EQ(FhmapDetach(), 1);
    EXPECT_NE(FhmapLookup(2), PlatformHandle::None);
    EXPECT_EQ(PfClose(handle), 1);
    EXPECT_EQ(FhmapDetach(), 1);
    EXPECT_EQ(FhmapLookup(2), PlatformHandle::None);
    EXPECT_EQ(PfCreate("a", Shared, &handle), 0);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(FhmapDetach(), 1);
    EXPECT_EQ(FhmapAttach(3), 1);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Create("a"), i + 2);
    EXPECT_EQ(PfCreate("a", Shared, &handle), 0);
}

TEST_F(Handles, AMapThatCouldntBeBuiltIsNotBuiltByTheNextAttach) {
    FhmapDetach();
    {
        FakePlatform fake;
        fake.Fail(Call::Allocate, 1, 8);
        EXPECT_EQ(FhmapAttach(100), 0);
    }
    EXPECT_EQ(FhmapAttach(100), 1);
    uint16_t handle = 7;
    EXPECT_EQ(PfCreate("a", Shared, &handle), 0);
    EXPECT_EQ(handle, 65535);
    FhmapDetach();
    FhmapDetach();
    EXPECT_EQ(FhmapAttach(100), 1);
    EXPECT_EQ(Create("a"), 2);
}

TEST_F(Handles, CloseOfAFreeHandleFails) {
    EXPECT_EQ(PfClose(2), 0);
    EXPECT_EQ(PfClose(0), 0);
    EXPECT_EQ(PfClose(1), 0);
    EXPECT_EQ(PfClose(102), 0);
    EXPECT_EQ(PfClose(65535), 0);
}

TEST_F(Handles, CloseOfAFreeHandleLeavesTheErrorAsItWas) {
    EXPECT_EQ(PfDelete("missing"), 0);
    EXPECT_EQ(PfClose(2), 0);
    EXPECT_EQ(PfLastError(), 2u);
}

TEST_F(Handles, ACloseThatFailsFreesTheHandle) {
    uint16_t handle = Create("a");
    FakePlatform fake;
    fake.Fail(Call::Close, 1, 5);
    EXPECT_EQ(PfClose(handle), 0);
    EXPECT_EQ(PfLastError(), 5u);
    EXPECT_EQ(FhmapLookup(2), PlatformHandle::None);
}

TEST_F(Handles, AFileThatAnotherProcessHoldsAloneIsReportedMissing) {
    test::WriteFile("a", "abc");
    test::Process other([](test::Process& here) {
        NativePlatform().Open("a", OpenRead | OpenWrite | OpenExisting);
        here.Tell();
        here.Await();
        return 0;
    });
    ASSERT_EQ(other.Await(), '.');
    uint16_t handle = 7;
    EXPECT_EQ(PfOpen("a", Shared, &handle), 0);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(PfLastError(), 2u);
}

TEST_F(Handles, OpenWantsTheFileAndCreateEmptiesIt) {
    uint16_t handle = 7;
    EXPECT_EQ(PfOpen("a", Shared, &handle), 0);
    EXPECT_EQ(PfLastError(), 2u);
    EXPECT_FALSE(test::FileExists("a"));
    test::WriteFile("a", "abc");
    EXPECT_EQ(PfOpen("a", Shared, &handle), 1);
    EXPECT_EQ(PfLastError(), 0u);
    EXPECT_EQ(test::FileSize("a"), 3u);
    EXPECT_EQ(PfCreate("a", Shared, &handle), 1);
    EXPECT_EQ(test::FileSize("a"), 0u);
}

TEST_F(Handles, WritesGoInPiecesOf4096AndTheRest) {
    uint16_t handle = Create("a");
    Bytes bytes = test::Fill(10000, 'a');
    FakePlatform fake;
    auto sizes = [&](uint32_t count) {
        fake.Reset();
        EXPECT_EQ(PfWrite(handle, bytes.data(), count), 1);
        return Sizes(fake, Call::Write);
    };
    EXPECT_EQ(sizes(0), std::vector<uint32_t>({0}));
    EXPECT_EQ(sizes(4095), std::vector<uint32_t>({4095}));
    EXPECT_EQ(sizes(4096), std::vector<uint32_t>({4096, 0}));
    EXPECT_EQ(sizes(4097), std::vector<uint32_t>({4096, 1}));
    EXPECT_EQ(sizes(10000), std::vector<uint32_t>({4096, 4096, 1808}));
}

TEST_F(Handles, AWriteThatFailsOrIsShortEndsThere) {
    uint16_t handle = Create("a");
    Bytes bytes = test::Fill(10000, 'a');
    FakePlatform fake;
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(PfWrite(handle, bytes.data(), 10000), 0);
    EXPECT_EQ(PfLastError(), 112u);
    EXPECT_EQ(Sizes(fake, Call::Write), std::vector<uint32_t>({4096, 4096}));
    EXPECT_EQ(test::FileSize("a"), 4096u);
    fake.Reset();
    fake.Shorten(Call::Write, 1, 10);
    EXPECT_EQ(PfWrite(handle, bytes.data(), 10000), 0);
    EXPECT_EQ(Sizes(fake, Call::Write), std::vector<uint32_t>({4096}));
}

TEST_F(Handles, ReadAtTheEndWithACounterSucceedsWithNothing) {
    uint16_t handle = Create("a");
    char bytes[10];
    uint32_t done = 7;
    EXPECT_EQ(PfRead(handle, bytes, 10, &done), 1);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(PfLastError(), 0u);
}

TEST_F(Handles, AShortReadWithoutACounterFails) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    char bytes[20];
    uint32_t done = 7;
    ASSERT_EQ(PfSeek(handle, 5, SeekFrom::Start, nullptr), 1);
    EXPECT_EQ(PfRead(handle, bytes, 20, nullptr), 0);
    EXPECT_EQ(PfLastError(), 0u);
    ASSERT_EQ(PfSeek(handle, 5, SeekFrom::Start, nullptr), 1);
    EXPECT_EQ(PfRead(handle, bytes, 20, &done), 1);
    EXPECT_EQ(done, 5u);
    ASSERT_EQ(PfSeek(handle, 5, SeekFrom::Start, nullptr), 1);
    EXPECT_EQ(PfRead(handle, bytes, 5, nullptr), 1);
}

TEST_F(Handles, AReadThatMayGoOnGoesOn) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    ASSERT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 1);
    Bytes bytes(10, '?');
    uint32_t done = 0;
    FakePlatform fake;
    fake.Interrupt(1, 3, 997);
    fake.Interrupt(2, 2, 162);
    EXPECT_EQ(PfRead(handle, bytes.data(), 10, &done), 1);
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(bytes, "0123456789");
    EXPECT_EQ(Sizes(fake, Call::Read), std::vector<uint32_t>({10, 7, 5}));
}

TEST_F(Handles, AReadThatGoesOnEndsAtAnotherError) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    ASSERT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 1);
    char bytes[10];
    uint32_t done = 0;
    FakePlatform fake;
    fake.Interrupt(1, 3, 997);
    fake.Interrupt(2, 2, 23);
    EXPECT_EQ(PfRead(handle, bytes, 10, &done), 0);
    EXPECT_EQ(done, 5u);
    EXPECT_EQ(PfLastError(), 23u);
}

TEST_F(Handles, AReadThatGoesOnEndsWithNothingLeft) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    ASSERT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 1);
    char bytes[10];
    uint32_t done = 0;
    FakePlatform fake;
    fake.Interrupt(1, 10, 997);
    EXPECT_EQ(PfRead(handle, bytes, 10, &done), 1);
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(Sizes(fake, Call::Read), std::vector<uint32_t>({10, 0}));
    // An error of that kind with nothing left ends it too.
    ASSERT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 1);
    fake.Reset();
    fake.Interrupt(1, 10, 997);
    fake.Interrupt(2, 0, 997);
    EXPECT_EQ(PfRead(handle, bytes, 10, &done), 0);
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(PfLastError(), 997u);
    EXPECT_EQ(fake.Count(Call::Read), 2);
}

TEST_F(Handles, SeeksFromAllThreeOrigins) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    uint32_t position = 0;
    EXPECT_EQ(PfSeek(handle, -4, SeekFrom::End, &position), 1);
    EXPECT_EQ(position, 6u);
    EXPECT_EQ(PfSeek(handle, 2, SeekFrom::Current, &position), 1);
    EXPECT_EQ(position, 8u);
    EXPECT_EQ(PfSeek(handle, 1, SeekFrom::Start, &position), 1);
    EXPECT_EQ(position, 1u);
    EXPECT_EQ(PfSeek(handle, 100, SeekFrom::Start, nullptr), 1);
    EXPECT_EQ(PfSeek(handle, -1, SeekFrom::Start, nullptr), 0);
    EXPECT_EQ(PfLastError(), 131u);
    EXPECT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 1);
    EXPECT_EQ(PfLastError(), 0u);
}

TEST_F(Handles, TruncateSetsTheSizeAndLeavesThePositionThere) {
    uint16_t handle = Create("a");
    ASSERT_EQ(PfWrite(handle, "0123456789", 10), 1);
    EXPECT_EQ(PfTruncate(handle, 4), 1);
    EXPECT_EQ(test::ReadFile("a"), "0123");
    uint32_t position = 0;
    EXPECT_EQ(PfSeek(handle, 0, SeekFrom::Current, &position), 1);
    EXPECT_EQ(position, 4u);
    EXPECT_EQ(PfTruncate(handle, 6), 1);
    EXPECT_EQ(test::ReadFile("a"), "0123" + test::Fill(2));
    FakePlatform fake;
    fake.Fail(Call::Seek, 1, 131);
    EXPECT_EQ(PfTruncate(handle, 1), 0);
    EXPECT_EQ(PfLastError(), 131u);
    EXPECT_EQ(fake.Count(Call::SetEnd), 0);
    fake.Fail(Call::SetEnd, 1, 112);
    EXPECT_EQ(PfTruncate(handle, 1), 0);
    EXPECT_EQ(PfLastError(), 112u);
}

TEST_F(Handles, LocksAreThePlatformsAndBelongToTheHandle) {
    uint16_t one = Create("a");
    uint16_t two = Create("a");
    EXPECT_EQ(PfLock(one, 100, 10), 1);
    EXPECT_EQ(PfLock(two, 105, 1), 0);
    EXPECT_EQ(PfLastError(), 33u);
    EXPECT_EQ(PfUnlock(two, 105, 1), 0);
    EXPECT_EQ(PfLastError(), 158u);
    EXPECT_EQ(PfUnlock(one, 100, 10), 1);
    EXPECT_EQ(PfLastError(), 0u);
    EXPECT_EQ(PfLock(two, 105, 1), 1);
}

TEST_F(Handles, CallsOnAHandleThatIsNotOpenFail) {
    char byte;
    uint32_t done = 7;
    for (uint16_t handle : {0, 1, 2, 101, 102, 65535}) {
        EXPECT_EQ(PfRead(handle, &byte, 1, &done), 0);
        EXPECT_EQ(PfLastError(), 6u);
        EXPECT_EQ(done, 0u);
        EXPECT_EQ(PfWrite(handle, &byte, 1), 0);
        EXPECT_EQ(PfSeek(handle, 0, SeekFrom::Start, nullptr), 0);
        EXPECT_EQ(PfTruncate(handle, 0), 0);
        EXPECT_EQ(PfLock(handle, 0, 1), 0);
        EXPECT_EQ(PfUnlock(handle, 0, 1), 0);
        EXPECT_EQ(PfLastError(), 6u);
    }
}

TEST_F(Handles, CommitHasNothingToDo) {
    FakePlatform fake;
    EXPECT_EQ(PfCommit(2), 1);
    EXPECT_TRUE(fake.Trace().empty());
}

TEST_F(Handles, TheErrorIsTakenOver) {
    FakePlatform fake;
    fake.Fail(Call::Delete, 1, 32);
    EXPECT_EQ(PfDelete("a"), 0);
    EXPECT_EQ(PfLastError(), 2u);
    fake.Fail(Call::Delete, 1, 5);
    EXPECT_EQ(PfDelete("a"), 0);
    EXPECT_EQ(PfLastError(), 5u);
    EXPECT_EQ(PfClearError(), 1);
    EXPECT_EQ(PfLastError(), 0u);
    EXPECT_EQ(PfRecordError(), 0);
    EXPECT_EQ(PfLastError(), 5u);
}

}  // namespace
}  // namespace zb
