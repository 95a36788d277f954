// The sorting of the bulk builds, on its own.
#include "index/build.h"

#include <algorithm>
#include <random>
#include <set>

#include "support/fake_platform.h"
#include "support/support.h"

namespace test {
namespace {

using zb::RunSorter;

class SortedRuns : public LibraryTest {
  protected:
    std::mt19937_64 random{42};

    // Sorts `records` records whose keys `makeKey` makes; every record comes
    // back once, and none before a lower one.
    template <class MakeKey>
    void Sort(int keyLength, uint32_t records, bool collate, MakeKey makeKey) {
        RunSorter sorter{};
        ASSERT_EQ(sorter.Size(keyLength, records, collate, 512, 2048), 0);
        ASSERT_EQ(sorter.CreateWorkFile(), 0);
        uint32_t record = 1;
        for (uint32_t run = 0; run < sorter.runCount(); run++) {
            uint32_t count = sorter.RunSize(run);
            for (uint32_t i = 0; i < count; i++, record++) {
                makeKey(sorter.Item(i), record);
                sorter.Number(sorter.Item(i), record);
            }
            ASSERT_EQ(sorter.StoreRun(run), 0);
        }
        ASSERT_EQ(record, records + 1);

        std::vector<bool> seen(records + 1);
        std::string before;
        uint32_t taken = 0;
        bool inOrder = true;
        auto length = static_cast<size_t>(keyLength);
        ASSERT_EQ(sorter.Merge([&](const uint8_t* item) {
            std::string whole(reinterpret_cast<const char*>(item), length + 4);
            if (taken++) {
                int order = 0;
                if (collate)
                    order = zb::CollateText(reinterpret_cast<const uint8_t*>(before.data()), item, keyLength);
                inOrder &= order < 0 || (order == 0 && before < whole);
            }
            uint32_t number = zb::LoadBe32(item + keyLength);
            inOrder &= number >= 1 && number <= records && !seen[number];
            seen[number] = true;
            before = std::move(whole);
            return zb::Code{0};
        }),
                  0);
        EXPECT_TRUE(inOrder);
        EXPECT_EQ(taken, records);
        sorter.Finish();
        EXPECT_FALSE(FileExists("stacks.tmp"));
    }

    auto RandomBytes(size_t length) {
        return [this, length](uint8_t* key, uint32_t) {
            for (size_t i = 0; i < length; i++) key[i] = static_cast<uint8_t>(random() % 4 + 'A');
        };
    }
};

TEST_F(SortedRuns, OneRecord) { Sort(8, 1, false, RandomBytes(8)); }

TEST_F(SortedRuns, OneRunAndOneMore) {
    uint32_t perRun = 65000 / 12;
    Sort(8, perRun, false, RandomBytes(8));
    Sort(8, perRun + 1, false, RandomBytes(8));
}

TEST_F(SortedRuns, ManyRuns) { Sort(20, 60000, false, RandomBytes(20)); }

TEST_F(SortedRuns, ShortKeysAreEqualAndGoByRecordNumber) { Sort(1, 30000, false, RandomBytes(1)); }

TEST_F(SortedRuns, CollatedKeys) {
    Sort(10, 30000, true, [this](uint8_t* key, uint32_t) {
        for (int i = 0; i < 10; i++) key[i] = static_cast<uint8_t>(random());
    });
}

// 65000 / 104 is 625 sort records a run. With more runs than that a run's share
// of the buffer would hold none, and groups of runs are merged first.
TEST_F(SortedRuns, MoreRunsThanTheBufferHasRoomFor) { Sort(100, 400000, false, RandomBytes(100)); }

// With little memory the buffer is small, and more than one pass is needed.
TEST_F(SortedRuns, LittleMemoryAndSeveralPasses) {
    FakePlatform fake;
    // The buffer is asked for until its size has come down to 2536 bytes: 24 sort
    // records a run.
    fake.Fail(Call::Allocate, 1, 8, (65000 - 2536) / 512);
    Sort(100, 30000, false, RandomBytes(100));
    EXPECT_TRUE(fake.HasFailed());
}

TEST_F(SortedRuns, NoBufferAtAllIsNoMemory) {
    FakePlatform fake;
    fake.Fail(Call::Allocate, 1, 8, FakePlatform::Forever);
    RunSorter sorter{};
    EXPECT_EQ(sorter.Size(8, 100, false, 512, 2048), -3);
    // 65000, 64488 ... down to 2536; at 2048 and below there is no try.
    EXPECT_EQ(fake.Count(Call::Allocate), 123);
}

TEST_F(SortedRuns, WorkFileFailuresHaveTheirCodes) {
    struct Case {
        Call call;
        int code;
    };
    for (Case c : {Case{Call::Write, -1}, Case{Call::Read, -2}, Case{Call::Seek, -4}}) {
        RunSorter sorter{};
        ASSERT_EQ(sorter.Size(8, 100, false, 512, 2048), 0);
        ASSERT_EQ(sorter.CreateWorkFile(), 0);
        for (uint32_t i = 0; i < 100; i++) sorter.Number(sorter.Item(i), i + 1);
        FakePlatform fake;
        fake.Fail(c.call, 1, 5);
        zb::Code code = sorter.StoreRun(0);
        if (code == 0) code = sorter.Merge([](const uint8_t*) { return zb::Code{0}; });
        EXPECT_EQ(code, c.code);
        ZBESCODE(0);
        sorter.Finish();
        EXPECT_FALSE(FileExists("stacks.tmp"));
    }
}

}  // namespace
}  // namespace test
