// The client, the table of objects, codes and log, from inside.
#include "core/library.h"

#include "file/handles.h"
#include "file/operations.h"
#include "support/environment.h"
#include "support/fake_platform.h"
#include "support/file_handles.h"
#include "support/support.h"

namespace zb {
namespace {

using test::Call;
using test::Environment;
using test::FakePlatform;

// Starts and stops the library itself; only the test's own directory holds a
// profile.
class Start : public test::DirectoryTest {
  protected:
    void TearDown() override { ZBDTERM(); }

    Environment settings{"XDG_CONFIG_HOME", directory.c_str()};
};

class Slots : public test::LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        StartLog();
    }
    // Objects that no family knows how to close.
    void TearDown() override {
        for (int16_t slot : taken) SlotRelease(slot);
        LibraryTest::TearDown();
    }
    int16_t Take(unsigned type = SlotData) {
        int16_t slot = 7;
        void* control = nullptr;
        EXPECT_EQ(SlotAlloc(&slot, type, 100, &control), 0);
        taken.push_back(slot);
        return slot;
    }
    void Release(int16_t slot) {
        std::erase(taken, slot);
        SlotRelease(slot);
    }
    using Lines = std::vector<LogEntry>;

    std::vector<int16_t> taken;
    int16_t handle = 7;
    void* block = this;
};

TEST_F(Start, TableSizes) {
    for (auto [size, slots] :
         {std::pair{5, 0}, {6, 1}, {50, 45}, {99, 94}, {100, 95}, {101, 95}, {1000, 95}, {32767, 95}}) {
        EXPECT_EQ(ZBDINIT(static_cast<int16_t>(size), 1), 0);
        EXPECT_EQ(library.slotCount, slots) << size;
    }
}

TEST_F(Start, StylesFromTheArgument) {
    for (int style = 1; style <= 15; style++) {
        EXPECT_EQ(ZBDINIT(100, static_cast<uint8_t>(style)), 0);
        EXPECT_EQ(library.dateStyle, style);
    }
    EXPECT_EQ(ZBDINIT(100, static_cast<uint8_t>(271)), 0);
    EXPECT_EQ(library.dateStyle, 15);
}

TEST_F(Start, WithoutAProfileTheStyleIsOne) {
    for (int style : {0, 16, 255}) {
        EXPECT_EQ(ZBDINIT(100, static_cast<uint8_t>(style)), 0);
        EXPECT_EQ(library.dateStyle, 1);
    }
}

TEST_F(Start, TheProfileIsAskedForTheStyleOnlyWhereTheArgumentIsNone) {
    FakePlatform fake;
    ZBDINIT(100, 3);
    EXPECT_EQ(fake.Count(Call::ProfileText), 0);
    EXPECT_EQ(fake.Count(Call::ProfileNumber), 1);
    fake.Reset();
    ZBDINIT(100, 0);
    EXPECT_EQ(fake.Count(Call::ProfileText), 1);
}

TEST_F(Start, AsciiSort) {
    auto sort = [](const char* value) {
        test::WriteProfile(std::string("[Sort]\r\nAsciiSort=") + value + "\r\n");
        EXPECT_EQ(ZBDINIT(100, 1), 0);
        return library.asciiSort;
    };
    EXPECT_FALSE(sort("0"));
    EXPECT_TRUE(sort("1"));
    EXPECT_FALSE(sort("0"));
    EXPECT_TRUE(sort("7"));
    EXPECT_TRUE(sort("-1"));
    // Judged on its low 16 bits.
    EXPECT_FALSE(sort("65536"));
    EXPECT_FALSE(sort("no"));
    test::WriteProfile("[sort]\n");
    EXPECT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_TRUE(library.asciiSort);
}

TEST_F(Start, WithoutMemoryForTheTableTheClientStays) {
    FakePlatform fake;
    fake.Fail(Call::Allocate, 1, 8);
    EXPECT_EQ(ZBDINIT(100, 1), ErrMemory);
    EXPECT_EQ(ZBECODE(), ErrMemory);
    EXPECT_EQ(library.slotCount, 0);
    EXPECT_EQ(ZBDTERM(), 0);
    EXPECT_EQ(ZBECODE(), ErrNotAttached);
}

TEST_F(Start, WithoutMemoryForTheFileHandlesItSucceedsAndLeavesTheSortAsItWas) {
    test::DropFileHandles();
    library.asciiSort = false;
    {
        FakePlatform fake;
        fake.Fail(Call::Allocate, 2, 8);
        EXPECT_EQ(ZBDINIT(100, 1), 0);
        EXPECT_EQ(fake.HasFailed(), true);
        EXPECT_EQ(fake.Count(Call::ProfileNumber), 0);
    }
    EXPECT_FALSE(library.asciiSort);
    EXPECT_EQ(library.slotCount, 95);
    uint16_t handle = 7;
    EXPECT_EQ(Hcreate(&handle, "a"), ErrOpen);
    EXPECT_EQ(handle, 65535);
    FhmapDetach();
}

TEST_F(Start, TheFileHandlesOutliveAStop) {
    EXPECT_EQ(ZBDINIT(100, 1), 0);
    uint16_t handle = 0;
    EXPECT_EQ(Hcreate(&handle, "a"), 0);
    EXPECT_EQ(ZBDTERM(), 0);
    EXPECT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_NE(FhmapLookup(static_cast<int16_t>(handle)), PlatformHandle::None);
    EXPECT_EQ(Hclose(handle), 0);
}

TEST_F(Start, WithoutATableABindFailsAtItsLock) {
    EXPECT_EQ(ZBDINIT(4, 1), ErrBadHandle);
    EXPECT_EQ(ZBESCODE(0), 0);
    EXPECT_EQ(SlotBind("Test", 0, SlotData, false), nullptr);
    EXPECT_EQ(CurrentCode(), ErrLockBlock);
    EXPECT_EQ(ZBDQCLOSE(), ErrLockBlock);
}

TEST_F(Start, WhatTheHostGaveIsKept) {
    EXPECT_EQ(QV4InitInstance(5, 77), 1);
    EXPECT_EQ(library.hostValue, 77u);
}

TEST_F(Slots, AreTakenFromTheFirst) {
    EXPECT_EQ(Take(), 0);
    EXPECT_EQ(Take(), 1);
    EXPECT_EQ(Take(), 2);
    Release(1);
    Release(0);
    EXPECT_EQ(Take(), 0);
    EXPECT_EQ(Take(), 1);
    EXPECT_EQ(Take(), 3);
}

TEST_F(Slots, The96thIsRefused) {
    for (int i = 0; i < 95; i++) EXPECT_EQ(Take(), i);
    EXPECT_EQ(SlotAlloc(&handle, SlotData, 100, &block), ErrNoSlot);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(Log(), (Lines{{"Slotalloc", -8}}));
}

TEST_F(Slots, HoldAZeroedBlockOfTheirType) {
    ASSERT_EQ(SlotAlloc(&handle, SlotMdx, 100, &block), 0);
    taken.push_back(handle);
    EXPECT_EQ(test::Bytes(static_cast<char*>(block), 100), test::Fill(100));
    EXPECT_EQ(SlotBind("Test", handle, SlotMdx, true), block);
    EXPECT_EQ(SlotBind("Test", handle, SlotIdx, true), nullptr);
    EXPECT_EQ(CurrentCode(), ErrBadHandle);
}

TEST_F(Slots, AllocFailures) {
    SetCode(-33);
    EXPECT_EQ(SlotAlloc(nullptr, SlotData, 100, &block), -33);
    SetCode(0);
    EXPECT_EQ(SlotAlloc(nullptr, SlotData, 100, &block), ErrNullPointer);
    SetCode(0);
    EXPECT_EQ(SlotAlloc(&handle, SlotData, 100, nullptr), ErrNullPointer);
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(Log(), (Lines{{"Slotalloc", -33}, {"Slotalloc", -21}, {"Slotalloc", -21}}));
    for (unsigned type : {0u, 8u}) {
        SetCode(0);
        StartLog();
        handle = 7;
        EXPECT_EQ(SlotAlloc(&handle, type, 100, &block), ErrBadSignature);
        EXPECT_EQ(handle, 0);
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(Log(), (Lines{{"Slotalloc", -56}}));
    }
    SetCode(0);
    StartLog();
    FakePlatform fake;
    fake.Fail(Call::Allocate, 1, 8);
    EXPECT_EQ(SlotAlloc(&handle, SlotData, 100, &block), ErrMemory);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(Log(), (Lines{{"Mgalloc", -3}, {"Slotalloc", -3}}));
    SetCode(0);
    EXPECT_EQ(Take(), 0);
}

TEST_F(Slots, AnAllocClearsAWarning) {
    SetCode(WarnDeleted);
    Take();
    EXPECT_EQ(CurrentCode(), 0);
}

TEST_F(Slots, ABindChecksTheHandle) {
    Take();
    for (int bad : {-1, 1, 94, 95, 32767, -32768}) {
        EXPECT_EQ(SlotBind("Test", bad, SlotData, false), nullptr);
        EXPECT_EQ(CurrentCode(), ErrBadHandle);
        SetCode(0);
    }
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(SlotBind("Test", -1, SlotData, true), nullptr);
    EXPECT_EQ(Log(), (Lines{{"Test", -13}}));
}

TEST_F(Slots, ABindKeepsAFailureAndClearsAWarning) {
    Take();
    SetCode(-33);
    EXPECT_EQ(SlotBind("Test", 0, SlotData, false), nullptr);
    EXPECT_EQ(CurrentCode(), -33);
    EXPECT_EQ(Log(), (Lines{{"Test", -33}}));
    SetCode(WarnDeleted);
    EXPECT_NE(SlotBind("Test", 0, SlotData, false), nullptr);
    EXPECT_EQ(CurrentCode(), 0);
}

TEST_F(Slots, ABindOfABlockThatTheHostFreedFails) {
    Take();
    BlockFree(library.table[0].control.memory);
    EXPECT_EQ(SlotBind("Test", 0, SlotData, false), nullptr);
    EXPECT_EQ(CurrentCode(), ErrLockBlock);
    EXPECT_EQ(Log(), (Lines{{"Mglock", -58}, {"Test", -58}}));
    SetCode(0);
}

TEST_F(Slots, WhatWasQuickClosedCantBeBound) {
    struct Control {
        uint16_t handle;
        uint16_t flags;
    };
    Take();
    EXPECT_NE((BindObject<Control>("Test", 0, SlotData)), nullptr);
    library.table[0].closedFlag = 1;
    StartLog();
    EXPECT_EQ((BindObject<Control>("Test", 0, SlotData)), nullptr);
    EXPECT_EQ(CurrentCode(), ErrOpen);
    EXPECT_EQ(Log(), (Lines{{"Hreopen", -46}, {"Test", -46}}));
    EXPECT_EQ(library.table[0].closedFlag, 1);
    SetCode(0);
}

TEST_F(Slots, AQuickCloseMarksFreeSlotsToo) {
    SetCode(-33);
    EXPECT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(CurrentCode(), 0);
    for (int i = 0; i < library.slotCount; i++) EXPECT_EQ(library.table[i].closedFlag, 1);
}

}  // namespace
}  // namespace zb
