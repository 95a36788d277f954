// NTX indexes from inside: the table, the calls that reach the platform, and what
// is left when one of them fails.
#include "index/ntx/ntx.h"

#include <algorithm>
#include <functional>
#include <numeric>

#include "support/fake_platform.h"
#include "support/ntx.h"
#include "support/system.h"

namespace test {
namespace {

// Every move that a table of 9 places allows, and some of those of 91.
TEST(NtxTable, MovesKeepItAPermutation) {
    for (int keyLength : {100, 1}) {
        int maxKeys = zb::NtxMaxKeys(keyLength);
        int step = keyLength == 1 ? 7 : 1;
        std::vector<uint8_t> bytes(1024);
        zb::NtxPage page{bytes.data(), 1024, keyLength + 8, maxKeys};
        std::vector<int> slots(static_cast<size_t>(maxKeys) + 1), whole(slots);
        std::iota(whole.begin(), whole.end(), 0);
        for (int to = 0; to <= maxKeys; to += step) {
            for (int from = 0; from <= maxKeys; from += step) {
                for (int count = maxKeys + 1 - std::max(to, from); count >= 0; count -= step) {
                    page.Format();
                    zb::Cktblmove(page, to, from, count);
                    for (size_t i = 0; i < slots.size(); i++)
                        slots[i] =
                            (zb::LoadLe16(page.place(static_cast<int>(i))) - page.itemsAt()) / page.itemSize;
                    for (int i = 0; i < count; i++) ASSERT_EQ(slots[static_cast<size_t>(to + i)], from + i);
                    std::sort(slots.begin(), slots.end());
                    ASSERT_EQ(slots, whole) << to << ' ' << from << ' ' << count;
                }
            }
        }
    }
}

TEST(NtxTable, MoveByLessThanItsLengthTurnsThePlacesRound) {
    std::vector<uint8_t> bytes(1024);
    zb::NtxPage page{bytes.data(), 1024, 108, 8};
    auto slots = [&] {
        std::vector<int> found;
        for (int i = 0; i <= 8; i++) found.push_back((zb::LoadLe16(page.place(i)) - 20) / 108);
        return found;
    };
    page.Format();
    zb::Cktblmove(page, 0, 3, 5);
    EXPECT_EQ(slots(), (std::vector<int>{3, 4, 5, 6, 7, 0, 1, 2, 8}));
    page.Format();
    zb::Cktblmove(page, 0, 5, 2);
    EXPECT_EQ(slots(), (std::vector<int>{5, 6, 2, 3, 4, 0, 1, 7, 8}));
    page.Format();
    zb::Cktblmove(page, 3, 1, 5);
    EXPECT_EQ(slots(), (std::vector<int>{0, 6, 7, 1, 2, 3, 4, 5, 8}));
    page.Format();
    zb::Cktblmove(page, 5, 1, 2);
    EXPECT_EQ(slots(), (std::vector<int>{0, 5, 6, 3, 4, 1, 2, 7, 8}));
}

TEST(NtxTable, PathHasRoomForEveryLegalTree) {
    EXPECT_EQ(zb::TreeLevels(45, zb::MaxTreeSize / 46), 6);
    EXPECT_EQ(zb::TreeLevels(4, zb::MaxTreeSize / 5), 16);
}

class NtxInside : public LibraryTest {
  protected:
    NtxIndex index;

    void Grow(int count) {
        index.Make('C', 100);
        for (int i = 1; i <= count; i++) ASSERT_EQ(index.Add(NumberedKey(i), static_cast<uint32_t>(i)), 0);
    }
};

// Sizes of the writes since the platform was put in place.
std::vector<uint32_t> WritesOf(const FakePlatform& platform) {
    std::vector<uint32_t> writes;
    for (auto& entry : platform.Trace())
        if (entry.call == Call::Write && entry.count) writes.push_back(entry.count);
    return writes;
}

// A page is written once, committed with the header's 4 or 6 bytes.
TEST_F(NtxInside, AddWritesThePageAndTheVersion) {
    Grow(3);
    FakePlatform platform;
    ASSERT_EQ(index.Add(NumberedKey(4), 4), 0);
    EXPECT_EQ(WritesOf(platform), (std::vector<uint32_t>{1024, 6}));
}

TEST_F(NtxInside, SplitOfTheRootWritesLowerPagesFirst) {
    Grow(8);
    FakePlatform platform;
    ASSERT_EQ(index.Add(NumberedKey(9), 9), 0);
    // The free head for the new page, both halves, the free head for the root, the
    // root, and the version with the new root's place.
    EXPECT_EQ(WritesOf(platform), (std::vector<uint32_t>{4, 1024, 1024, 4, 1024, 6}));
}

TEST_F(NtxInside, KeyOverFromTheNeighbourWritesThreePagesAndTheVersion) {
    Grow(10);
    FakePlatform platform;
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    EXPECT_EQ(WritesOf(platform), (std::vector<uint32_t>{1024, 1024, 1024, 6}));
}

TEST_F(NtxInside, MergeWritesItsPagesFirstAndFreesThemOneByOne) {
    Grow(9);
    FakePlatform platform;
    ASSERT_EQ(index.Delete(NumberedKey(1), 1), 0);
    // Both pages in one, the parent, the free head and the page freed; the parent
    // without its separator, the free head and the old root; the version.
    EXPECT_EQ(WritesOf(platform), (std::vector<uint32_t>{1024, 1024, 4, 1024, 1024, 4, 1024, 6}));
}

TEST_F(NtxInside, KeyAboveTheLeavesIsWrittenBeforeItsLeaf) {
    Grow(9);
    ASSERT_EQ(index.Add("045", 45), 0);
    FakePlatform platform;
    ASSERT_EQ(index.Delete(NumberedKey(5), 5), 0);
    EXPECT_EQ(WritesOf(platform), (std::vector<uint32_t>{1024, 1024, 6}));
}

// Whatever call fails on the way, the position is as it was and no page of the
// failed call is believed.
TEST_F(NtxInside, FailedCallsLeaveThePosition) {
    Grow(60);
    ASSERT_EQ(index.Find(NumberedKey(30)), 0);
    int failures = 0;
    auto Add = [&] { return index.Add("30x", 5); };
    auto Next = [&] { return index.Next(); };
    auto Delete = [&] { return index.Delete("30x", 5); };
    for (std::function<int()> work :
         {std::function<int()>(Add), std::function<int()>(Next), std::function<int()>(Delete)}) {
        for (Call kind : {Call::Read, Call::Write, Call::Seek, Call::SetEnd}) {
            for (int nth = 1;; nth++) {
                FakePlatform platform;
                platform.Fail(kind, nth, 1117);
                int code = work();
                bool failed = platform.HasFailed();
                platform.Reset();
                ZBESCODE(0);
                if (!failed) break;
                if (code < 0) {
                    failures++;
                    ASSERT_EQ(index.Current(), 0) << static_cast<int>(kind) << ' ' << nth;
                    ASSERT_EQ(index.record, 30u);
                }
            }
            ASSERT_EQ(index.Find(NumberedKey(30)), 0);
            index.Delete("30x", 5);
        }
    }
    EXPECT_GT(failures, 20);
}

// The entry of the position has gone, and the step fails after the entry before it
// was found: the position is still where the other entry was.
TEST_F(NtxInside, FailedStepDoesNotMoveThePositionOfAnEntryThatHasGone) {
    Grow(60);
    int failures = 0;
    for (int gone = 12; gone <= 40; gone++) {
        Bytes key = NumberedKey(gone);
        auto record = static_cast<uint32_t>(gone);
        for (bool forward : {true, false}) {
            bool failed = true;
            for (int nth = 1; failed; nth++) {
                ASSERT_EQ(index.Find(key), 0);
                ASSERT_EQ(index.Delete(key, record), 0);
                FakePlatform platform;
                platform.Fail(Call::Read, nth, 1117);
                int code = forward ? index.Next() : index.Previous();
                failed = platform.HasFailed();
                platform.Reset();
                ZBESCODE(0);
                ASSERT_EQ(code < 0, failed);
                ASSERT_EQ(index.Add(key, record), 0);
                if (!failed) break;
                failures++;
                ASSERT_EQ(index.Current(), 0) << gone << ' ' << nth;
                ASSERT_EQ(index.record, record);
            }
        }
    }
    EXPECT_GT(failures, 100);
}

TEST_F(NtxInside, PagesThatAreNotHeldCantBePut) {
    Grow(9);
    zb::NtxFile* file = zb::Cslock(index.handle);
    ASSERT_NE(file, nullptr);
    zb::NtxPage page, other;
    ASSERT_EQ(zb::Cpget(*file, 2048, &page), 0);
    other = page;
    other.offset = 1024;
    StartLog();
    EXPECT_EQ(zb::Cpput(*file, other), -10);
    ZBESCODE(0);
    EXPECT_EQ(zb::Cpput(*file, page), 0);
    EXPECT_EQ(zb::Cpput(*file, page), -9);
    ZBESCODE(0);
    page.offset = 512;
    EXPECT_EQ(zb::Cpput(*file, page), -4);
    ZBESCODE(0);
    // Whether the file may be written comes before the page's place.
    file->flags = 1;
    EXPECT_EQ(zb::Cpput(*file, page), -36);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Cpput", -10}, {"Cpput", -9}, {"Cpput", -4}, {"Cpput", -36}}));
    ZBESCODE(0);
    zb::Cpforget(*file);
}

TEST_F(NtxInside, OpenWithoutMemoryFailsAndGivesTheSlotBack) {
    ASSERT_EQ(index.Create('C', 5), 0);
    for (int nth = 1;; nth++) {
        FakePlatform platform;
        platform.Fail(Call::Allocate, nth, 8);
        int code = index.Open();
        if (!platform.HasFailed()) {
            EXPECT_GT(nth, 2);
            ASSERT_EQ(code, 0);
            break;
        }
        ASSERT_EQ(code, -3);
        ASSERT_EQ(ZBECODE(), -3);
        ASSERT_EQ(index.handle, -1);
        ZBESCODE(0);
    }
    EXPECT_EQ(index.handle, 0);
}

TEST_F(NtxInside, CreateThatCantWriteLeavesItsFile) {
    FakePlatform platform;
    platform.Fail(Call::Write, 1, 112);
    EXPECT_EQ(index.Create('C', 5), -1);
    EXPECT_TRUE(FileExists(index.file));
    // It stays open.
    EXPECT_EQ(platform.Count(Call::Close), 0);
}

// What a build created it takes away, also when the empty index can't be closed.
TEST_F(NtxInside, BuildWhoseNewIndexCantBeClosedLeavesNone) {
    WriteFile("t.dbf", Dbf(3, 6, {DbfField("NAME", 'C', 5)}, {" ANNA "}));
    uint16_t data;
    ASSERT_EQ(ZBDDOPENX(&data, "t.dbf", 1), 0);
    FakePlatform platform;
    platform.Fail(Call::Close, 1, 6);
    char expression[] = "NAME";
    EXPECT_EQ(ZBDCINDEX(static_cast<int16_t>(data), "t.ntx", 'C', expression, 5, 0), -13);
    EXPECT_FALSE(FileExists("t.ntx"));
}

// After any failure of a build neither the index nor the work file is there, the
// lock on the data file is given back, and the next build succeeds.
TEST_F(NtxInside, FailedBuildCleansUpAfterEveryCall) {
    std::vector<Bytes> records;
    for (int i = 1; i <= 20; i++) records.push_back(" " + NumberedKey(i));
    WriteFile("t.dbf", Dbf(3, 101, {DbfField("NAME", 'C', 100)}, records));
    int16_t data = -1;
    auto OpenTable = [&] {
        uint16_t opened;
        ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 1 | ZB_Shared), 0);
        data = static_cast<int16_t>(opened);
    };
    OpenTable();
    // The third file opened is the index, once more: it can be had for reading only
    // and then not be written. The fourth seek is that back from the end at which
    // its length was taken: nobody looks at it, but the header can't be read there.
    auto CodeOf = [](Call kind, int nth) {
        switch (kind) {
            case Call::Open: return nth == 3 ? -1 : -46;
            case Call::Read: return -2;
            case Call::Write: return -1;
            case Call::Seek: return nth == 4 ? -2 : -4;
            default: return -3;
        }
    };
    int failures = 0;
    int silent = 0;
    int files = 0;
    for (const char* expression : {"NAME", "LEFT(NAME,9)"}) {
        for (Call kind : {Call::Open, Call::Read, Call::Write, Call::Seek, Call::Allocate}) {
            bool failed = true;
            for (int nth = 1; failed; nth++) {
                SCOPED_TRACE(testing::Message() << expression << ' ' << static_cast<int>(kind) << ' ' << nth);
                index.file = std::to_string(++files) + ".ntx";
                FakePlatform platform;
                platform.Fail(kind, nth, 1117);
                Bytes text = expression;
                int code = ZBDCINDEX(data, index.file.c_str(), 'C', text.data(), 100, 0);
                failed = platform.HasFailed();
                platform.Reset();
                ASSERT_EQ(ZBECODE(), code);
                if (code < 0) {
                    ASSERT_EQ(code, CodeOf(kind, nth));
                }
                ZBESCODE(0);
                ASSERT_FALSE(FileExists("stacks.tmp"));
                ASSERT_TRUE(failed || code == 0);
                // Where the file couldn't be written at first it stays open.
                bool removed = RemovesOpenFiles() || kind != Call::Write || nth > 1;
                ASSERT_EQ(FileExists(index.file), code == 0 || !removed);
                failures += code < 0;
                uint16_t conflict = 1;
                ASSERT_EQ(ZBDDLOCK(data, 2, &conflict), 0);
                ASSERT_EQ(conflict, 0);
                ASSERT_EQ(ZBDDUNLOCK(data, 2, nullptr), 0);
                if (code == 0) {
                    // Also where the close failed in silence.
                    silent += failed;
                    ASSERT_EQ(index.Open(), 0);
                    ASSERT_EQ(index.Records().size(), 20u);
                    ASSERT_EQ(index.Close(), 0);
                }
            }
        }
    }
    EXPECT_GT(failures, 40);
    EXPECT_GE(silent, 4);  // the seek and the write of the close, by either expression
}

int16_t closedByHost;
int32_t CloseTheIndex(ZbEvalState*) { return ZBDCCLOSE(closedByHost); }

// A function of the host's that closes the index under its own build ends it.
TEST_F(NtxInside, BuildWhoseIndexIsClosedByAFunctionEnds) {
    WriteFile("t.dbf", Dbf(3, 6, {DbfField("NAME", 'C', 5)}, {" ANNA ", " BERT "}));
    uint16_t opened;
    ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 1), 0);
    char name[] = "CLOSE(";
    ASSERT_EQ(ZBDXADD(name, CloseTheIndex), 0);
    closedByHost = static_cast<int16_t>(opened + 1);
    char expression[] = "CLOSE(NAME)";
    EXPECT_LT(ZBDCINDEX(static_cast<int16_t>(opened), "t.ntx", 'C', expression, 5, 0), 0);
    ZBESCODE(0);
    EXPECT_FALSE(FileExists("t.ntx"));
    EXPECT_FALSE(FileExists("stacks.tmp"));
    EXPECT_EQ(ZBDXDEL(name), 0);
}

}  // namespace
}  // namespace test
