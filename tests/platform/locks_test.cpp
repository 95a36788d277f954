// Byte-range locks, alike on every platform.
#include "platform/fixture.h"

namespace test {
namespace {

class PlatformLocks : public PlatformTest {
  protected:
    PlatformLocks() { WriteFile("a", "0123456789"); }

    bool Refused(bool success) { return !success && real.LastError() == 33; }
    bool NotLocked(bool success) { return !success && real.LastError() == 158; }
};

TEST_F(PlatformLocks, TwoHandlesOfOneProcessKeepEachOtherOut) {
    auto one = Open("a");
    auto two = Open("a");
    EXPECT_TRUE(real.Lock(one, 100, 10));
    EXPECT_TRUE(Refused(real.Lock(two, 100, 10)));
    EXPECT_TRUE(Refused(real.Lock(two, 109, 5)));
    EXPECT_TRUE(Refused(real.Lock(two, 95, 6)));
    EXPECT_TRUE(Refused(real.Lock(two, 105, 1)));
    EXPECT_TRUE(real.Lock(two, 110, 5));
    EXPECT_TRUE(real.Lock(two, 95, 5));
    EXPECT_TRUE(real.Unlock(one, 100, 10));
    EXPECT_TRUE(real.Lock(two, 100, 10));
}

TEST_F(PlatformLocks, TwoProcessesKeepEachOtherOut) {
    Process other([&](Process& here) {
        auto file = Open("a");
        EXPECT_TRUE(real.Lock(file, 100, 10));
        here.Tell();
        here.Await();
        EXPECT_TRUE(real.Unlock(file, 100, 10));
        here.Tell();
        here.Await();
        return 0;
    });
    auto file = Open("a");
    ASSERT_EQ(other.Await(), '.');
    EXPECT_TRUE(Refused(real.Lock(file, 105, 1)));
    EXPECT_TRUE(real.Lock(file, 110, 1));
    other.Tell();
    ASSERT_EQ(other.Await(), '.');
    EXPECT_TRUE(real.Lock(file, 105, 1));
    other.Tell();
    EXPECT_EQ(other.Wait(), 0);
}

TEST_F(PlatformLocks, AKilledProcessHoldsNothing) {
    Process other([&](Process& here) {
        EXPECT_TRUE(real.Lock(Open("a"), 100, 10));
        here.Tell();
        here.Await();
        return 0;
    });
    auto file = Open("a");
    ASSERT_EQ(other.Await(), '.');
    EXPECT_TRUE(Refused(real.Lock(file, 105, 1)));
    other.Kill();
    EXPECT_EQ(other.Wait(), -9);
    EXPECT_TRUE(real.Lock(file, 105, 1));
}

TEST_F(PlatformLocks, AClosedHandleHoldsNothingAndOthersKeepTheirs) {
    auto one = Open("a");
    auto two = Open("a");
    auto three = Open("a");
    EXPECT_TRUE(real.Lock(one, 1, 1));
    EXPECT_TRUE(real.Lock(two, 2, 1));
    Close(one);
    EXPECT_TRUE(real.Lock(three, 1, 1));
    EXPECT_TRUE(Refused(real.Lock(three, 2, 1)));
    // The handle's place is given out again, without what it held.
    auto again = Open("a");
    EXPECT_TRUE(NotLocked(real.Unlock(again, 1, 1)));
}

TEST_F(PlatformLocks, AHandleIsRefusedWhatOverlapsItsOwn) {
    auto file = Open("a");
    EXPECT_TRUE(real.Lock(file, 100, 10));
    for (auto [offset, length] :
         {std::pair{100u, 10u}, {100u, 1u}, {109u, 1u}, {104u, 2u}, {90u, 11u}, {109u, 9u}, {90u, 90u}})
        EXPECT_TRUE(Refused(real.Lock(file, offset, length))) << offset;
    EXPECT_TRUE(real.Lock(file, 110, 1));
    EXPECT_TRUE(real.Lock(file, 90, 10));
}

TEST_F(PlatformLocks, AnUnlockNamesAHeldRangeExactly) {
    auto file = Open("a");
    EXPECT_TRUE(real.Lock(file, 100, 10));
    EXPECT_TRUE(real.Lock(file, 110, 10));
    for (auto [offset, length] : {std::pair{100u, 9u},
                                  {101u, 9u},
                                  {100u, 20u},
                                  {105u, 10u},
                                  {99u, 11u},
                                  {100u, 0u},
                                  {0u, 0u},
                                  {500u, 1u},
                                  {120u, 1u}})
        EXPECT_TRUE(NotLocked(real.Unlock(file, offset, length))) << offset;
    EXPECT_TRUE(real.Unlock(file, 100, 10));
    EXPECT_TRUE(NotLocked(real.Unlock(file, 100, 10)));
    auto other = Open("a");
    EXPECT_TRUE(real.Lock(other, 100, 10));
    EXPECT_TRUE(Refused(real.Lock(other, 110, 1)));
    EXPECT_TRUE(NotLocked(real.Unlock(other, 110, 10)));
}

TEST_F(PlatformLocks, ReadOnlyHandlesLockAndConflictLikeAnyOther) {
    auto writer = Open("a");
    auto one = Open("a", SharedReadOnly);
    auto two = Open("a", SharedReadOnly);
    EXPECT_TRUE(real.Lock(one, 100, 10));
    EXPECT_TRUE(Refused(real.Lock(two, 105, 10)));
    EXPECT_TRUE(Refused(real.Lock(writer, 95, 10)));
    EXPECT_TRUE(Refused(real.Lock(one, 100, 1)));
    // What was refused has left nothing behind, and has taken nothing away.
    EXPECT_TRUE(real.Lock(writer, 110, 5));
    EXPECT_TRUE(real.Lock(writer, 95, 5));
    EXPECT_TRUE(Refused(real.Lock(two, 109, 1)));
    EXPECT_TRUE(Refused(real.Lock(two, 112, 1)));
    EXPECT_TRUE(real.Unlock(one, 100, 10));
    EXPECT_TRUE(real.Lock(two, 100, 10));
    EXPECT_TRUE(real.Unlock(two, 100, 10));
    EXPECT_TRUE(real.Lock(writer, 100, 10));
}

TEST_F(PlatformLocks, ReadOnlyHandlesOfTwoProcesses) {
    Process other([&](Process& here) {
        auto file = Open("a", SharedReadOnly);
        EXPECT_TRUE(real.Lock(file, 100, 10));
        here.Tell();
        here.Await();
        return 0;
    });
    auto file = Open("a", SharedReadOnly);
    ASSERT_EQ(other.Await(), '.');
    EXPECT_TRUE(Refused(real.Lock(file, 105, 1)));
    other.Kill();
    other.Wait();
    EXPECT_TRUE(real.Lock(file, 105, 1));
}

TEST_F(PlatformLocks, ManyRangesOnOneHandle) {
    constexpr uint32_t Count = 16385;
    auto one = Open("a");
    auto two = Open("a");
    auto place = [](uint32_t n) { return 0x7FFFFFBFu - n; };
    for (uint32_t n = 1; n <= Count; n++) ASSERT_TRUE(real.Lock(one, place(n), 1));
    for (uint32_t n : {1u, 8000u, Count}) {
        EXPECT_TRUE(Refused(real.Lock(two, place(n), 1)));
        EXPECT_TRUE(Refused(real.Lock(one, place(n), 1)));
    }
    for (uint32_t n = Count; n >= 1; n--) ASSERT_TRUE(real.Unlock(one, place(n), 1));
    EXPECT_TRUE(real.Lock(two, place(Count), 1));
}

TEST_F(PlatformLocks, RangesAtTheTopOfTheOffsets) {
    auto one = Open("a");
    auto two = Open("a");
    EXPECT_TRUE(real.Lock(one, 0xFFFFFFFF, 0xFFFFFFFF));
    EXPECT_TRUE(real.Lock(two, 0x7FFFFFFE, 1));
    EXPECT_TRUE(Refused(real.Lock(two, 0xFFFFFFFF, 1)));
    EXPECT_TRUE(real.Lock(two, 0xFFFFFFFE, 1));
    EXPECT_TRUE(real.Unlock(one, 0xFFFFFFFF, 0xFFFFFFFF));
    EXPECT_TRUE(real.Lock(two, 0xFFFFFFFF, 1));
    // No lock reaches the marks of the share modes.
    EXPECT_NE(Open("a"), PlatformHandle::None);
}

TEST_F(PlatformLocks, ARangeOfLengthZeroIsHeldLikeAnyOther) {
    auto one = Open("a");
    EXPECT_TRUE(NotLocked(real.Unlock(one, 100, 0)));
    EXPECT_TRUE(real.Lock(one, 100, 0));
    EXPECT_TRUE(Refused(real.Lock(one, 0, 1000)));
    EXPECT_TRUE(real.Lock(one, 100, 10));
    EXPECT_TRUE(NotLocked(real.Unlock(one, 99, 0)));
    EXPECT_TRUE(real.Unlock(one, 100, 0));
    EXPECT_TRUE(NotLocked(real.Unlock(one, 100, 0)));
}

}  // namespace
}  // namespace test
