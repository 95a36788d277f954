#include <cstring>
#include <filesystem>
#include <memory>

#include "support/dbf.h"

namespace test {
namespace {

constexpr int Conflict = 100;
constexpr int16_t NotLocked = static_cast<int16_t>(0xC000 | 158);  // the platform's answer to such an unlock

// One opening of the file, shared.
class Opened {
  public:
    explicit Opened(int mode = ZB_Shared) {
        int code = ZBDDOPENX(&handle, "a.dbf", static_cast<uint16_t>(mode));
        EXPECT_GE(code, 0);
    }
    int16_t Data() const { return static_cast<int16_t>(handle); }

    // The conflict; a result other than 0 comes back as itself.
    int Lock(int kind) {
        uint16_t conflict = 7;
        int code = ZBDDLOCK(Data(), static_cast<int16_t>(kind), &conflict);
        EXPECT_EQ(ZBECODE(), code);
        return code ? code : conflict;
    }
    int Unlock(int kind) {
        uint16_t conflict = 7;
        int code = ZBDDUNLOCK(Data(), static_cast<int16_t>(kind), &conflict);
        EXPECT_EQ(conflict, 0);
        return code;
    }
    int Record(uint32_t recordNo, int kind) {
        uint16_t conflict = 7;
        int code = ZBDDRLOCK(Data(), recordNo, static_cast<int16_t>(kind), &conflict);
        EXPECT_EQ(ZBECODE(), code);
        return code ? code : conflict;
    }
    ZbDataInfo Info() {
        ZbDataInfo info;
        memset(&info, 0, sizeof info);
        EXPECT_EQ(ZBDDINFO(Data(), &info), 0);
        return info;
    }
    uint32_t Count() {
        uint32_t count = 99;
        EXPECT_EQ(ZBDDSIZE(Data(), &count), 0);
        return count;
    }
    void RangeIs(uint32_t offset, uint32_t length) {
        ZbDataInfo info = Info();
        EXPECT_EQ(uint32_t{info.lockOffset}, offset);
        EXPECT_EQ(uint32_t{info.lockLength}, length);
    }

  private:
    uint16_t handle = 7;
};

class DataLocks : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        WriteFile("a.dbf", People({Anna, Bert, Cleo}));
    }
};

// What may be held, or asked for: a file lock of a kind, or a lock of a record.
struct Want {
    int kind;
    uint32_t recordNo;  // 0 for a file lock

    int Ask(Opened& file) const { return recordNo ? file.Record(recordNo, kind) : file.Lock(kind); }
    void Release(Opened& file) const {
        int code = 0;
        if (recordNo)
            code = file.Record(recordNo, 6);
        else if (kind != 5)
            code = file.Unlock(kind);
        EXPECT_EQ(code, 0);
    }
};

constexpr Want Asked[] = {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {7, 2}, {5, 2}, {7, 3}, {5, 3}};

// Who holds what: the columns are those of Asked.
constexpr struct {
    Want held;
    int conflicts[9];
} Pairs[] = {
    //         1    2    3    4    5   r2   r2?  r3   r3?
    {{1, 0}, {100, 100, 0, 0, 0, 0, 0, 0, 0}},
    {{2, 0}, {100, 100, 100, 100, 100, 100, 100, 100, 100}},
    {{3, 0}, {0, 100, 100, 100, 100, 100, 100, 100, 100}},
    {{4, 0}, {0, 100, 100, 0, 100, 0, 0, 0, 0}},
    {{5, 0}, {0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {{7, 2}, {0, 100, 100, 100, 0, 100, 100, 0, 0}},
    {{5, 2}, {0, 0, 0, 0, 0, 0, 0, 0, 0}},
};

TEST_F(DataLocks, EveryPairOfKindsBetweenTwoHandlesOfAProcess) {
    Opened first, second;
    for (auto& pair : Pairs) {
        ASSERT_EQ(pair.held.Ask(first), 0);
        for (int i = 0; i < 9; i++) {
            int answer = Asked[i].Ask(second);
            EXPECT_EQ(answer, pair.conflicts[i]) << "held " << pair.held.kind << " " << pair.held.recordNo
                                                 << ", asked " << Asked[i].kind << " " << Asked[i].recordNo;
            if (answer == 0) Asked[i].Release(second);
        }
        pair.held.Release(first);
        // Nothing is left behind by either.
        EXPECT_EQ(second.Lock(2), 0);
        EXPECT_EQ(second.Unlock(2), 0);
    }
}

TEST_F(DataLocks, EveryPairOfKindsBetweenTwoProcesses) {
    Process other([](Process& parent) {
        ZBDINIT(100, 1);
        Opened file;
        for (auto& pair : Pairs) {
            if (pair.held.Ask(file) != 0) return 1;
            parent.Tell();
            if (!parent.Await()) return 2;
            pair.held.Release(file);
            parent.Tell();
            if (!parent.Await()) return 3;
        }
        return 0;
    });
    Opened file;
    for (auto& pair : Pairs) {
        ASSERT_TRUE(other.Await());
        for (int i = 0; i < 9; i++) {
            int answer = Asked[i].Ask(file);
            EXPECT_EQ(answer, pair.conflicts[i]) << "held " << pair.held.kind << " " << pair.held.recordNo
                                                 << ", asked " << Asked[i].kind << " " << Asked[i].recordNo;
            if (answer == 0) Asked[i].Release(file);
        }
        other.Tell();
        ASSERT_TRUE(other.Await());
        EXPECT_EQ(file.Lock(2), 0);
        EXPECT_EQ(file.Unlock(2), 0);
        other.Tell();
    }
    EXPECT_EQ(other.Wait(), 0);
}

TEST_F(DataLocks, TheRangesAreThoseOfTheMap) {
    Opened file;
    struct {
        int kind;
        uint32_t offset, length;
    } const table[] = {{1, 2147483646, 1},
                       {2, 1610612672, 536870975},
                       {3, 1610612672, 536870974},
                       {4, 2147483644, 1},
                       {5, 2147483583, 63}};
    for (auto& row : table) {
        ASSERT_EQ(file.Lock(row.kind), 0);
        file.RangeIs(row.offset, row.length);
        if (row.kind == 5) continue;
        ASSERT_EQ(file.Record(9, 0), 0);  // names another range, and no more
        file.RangeIs(2147483583 - 9, 1);
        ASSERT_EQ(file.Unlock(row.kind), 0);
        file.RangeIs(row.offset, row.length);
    }
}

TEST_F(DataLocks, EachRecordHasItsByte) {
    Opened file;
    for (uint32_t n : {1u, 2u, 536870911u}) {
        ASSERT_EQ(file.Record(n, 7), 0);
        file.RangeIs(2147483583 - n, 1);
    }
    file.RangeIs(1610612672, 1);
    // The whole file reaches just to it.
    Opened other;
    EXPECT_EQ(other.Record(536870911, 7), Conflict);
    EXPECT_EQ(file.Record(0, 6), 0);
    EXPECT_EQ(file.Lock(3), 0);
    EXPECT_EQ(other.Record(536870911, 7), Conflict);
    EXPECT_EQ(other.Record(536870912, 7), 0);
}

TEST_F(DataLocks, ANullConflictIsAllowed) {
    Opened first, second;
    EXPECT_EQ(ZBDDLOCK(first.Data(), 2, nullptr), 0);
    for (int16_t kind : {int16_t{1}, int16_t{2}, int16_t{3}, int16_t{4}, int16_t{5}})
        EXPECT_EQ(ZBDDLOCK(second.Data(), kind, nullptr), 0);
    EXPECT_EQ(ZBDDRLOCK(second.Data(), 1, 7, nullptr), 0);
    EXPECT_EQ(ZBDDRLOCK(second.Data(), 1, 5, nullptr), 0);
    EXPECT_EQ(ZBDDUNLOCK(first.Data(), 2, nullptr), 0);
}

TEST_F(DataLocks, AConflictIsLogged) {
    Opened first, second;
    ASSERT_EQ(first.Lock(1), 0);
    ASSERT_EQ(first.Record(1, 7), 0);
    StartLog();
    EXPECT_EQ(second.Lock(1), Conflict);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hlock", -37}, {"DataLock", -37}}));
    StartLog();
    EXPECT_EQ(second.Record(1, 7), Conflict);
    EXPECT_EQ(second.Record(1, 5), Conflict);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hlock", -37}, {"Hlock", -37}}));
    StartLog();
    EXPECT_EQ(second.Lock(4), Conflict);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hlock", -37}, {"DataLock", -37}}));
    second.RangeIs(1610612672, 536870911);
}

TEST_F(DataLocks, OneHandleDoesntHaveAKindTwice) {
    Opened file;
    for (int kind : {1, 2, 3}) {
        ASSERT_EQ(file.Lock(kind), 0);
        EXPECT_EQ(file.Lock(kind), Conflict);
        EXPECT_EQ(file.Unlock(kind), 0);
        EXPECT_EQ(file.Unlock(kind), NotLocked);
        EXPECT_EQ(ZBECODE(), NotLocked);
        ZBESCODE(0);
    }
}

TEST_F(DataLocks, AnUnlockOfWhatIsntLockedIsThePlatformsFailure) {
    Opened file;
    for (int kind : {1, 2, 3}) {
        StartLog();
        EXPECT_EQ(file.Unlock(kind), NotLocked);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hlock", NotLocked}}));
        ZBESCODE(0);
    }
    // Before any shared lock the reader slot is 0 and its range that of offset 2147483647.
    EXPECT_EQ(file.Unlock(4), NotLocked);
    ZBESCODE(0);
    file.RangeIs(2147483647, 1);
}

TEST_F(DataLocks, AnUnlockOfAnotherKindGivesUpTheLastRange) {
    Opened file, other;
    ASSERT_EQ(file.Lock(1), 0);
    EXPECT_EQ(file.Unlock(9), 0);
    EXPECT_EQ(other.Lock(1), 0);
    EXPECT_EQ(file.Unlock(5), NotLocked);
    ZBESCODE(0);
    file.RangeIs(2147483646, 1);
}

TEST_F(DataLocks, AnotherKindTakesNoLock) {
    Opened file, other;
    for (int kind : {0, 6, 7, 8, 9, -1}) {
        EXPECT_EQ(file.Lock(kind), 0);
        EXPECT_EQ(other.Lock(2), 0);
        EXPECT_EQ(other.Unlock(2), 0);
    }
    file.RangeIs(0, 0);
    for (int kind : {0, 1, 4, 8, -1}) {
        EXPECT_EQ(file.Record(1, kind), 0);
        EXPECT_EQ(other.Lock(2), 0);
        EXPECT_EQ(other.Unlock(2), 0);
    }
}

TEST_F(DataLocks, HeaderLockOfThePastDoesNothing) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDDHLOCK(-1), 0);
    EXPECT_EQ(ZBECODE(), -33);
}

// ---- readers ----

TEST_F(DataLocks, ThreeReadersHoldTheLastThreeSlots) {
    auto reader = [](Process& parent) {
        ZBDINIT(100, 1);
        Opened file;
        if (!parent.Await()) return 1;
        if (file.Lock(4) != 0) return 2;
        uint32_t offset = file.Info().lockOffset;
        parent.Tell(static_cast<char>(2147483647 - offset));
        if (!parent.Await()) return 3;
        return file.Unlock(4) == 0 ? 0 : 4;
    };
    Process readers[3] = {Process(reader), Process(reader), Process(reader)};
    for (int i = 0; i < 3; i++) {
        readers[i].Tell();
        EXPECT_EQ(readers[i].Await(), 3 + i);  // 2147483644, 2147483643, 2147483642
    }
    Opened file;
    EXPECT_EQ(file.Lock(5), Conflict);
    EXPECT_EQ(file.Lock(3), Conflict);
    EXPECT_EQ(file.Lock(4), 0);
    file.RangeIs(2147483641, 1);
    EXPECT_EQ(file.Unlock(4), 0);
    for (auto& process : readers) {
        process.Tell();
        EXPECT_EQ(process.Wait(), 0);
    }
    EXPECT_EQ(file.Lock(5), 0);
}

TEST_F(DataLocks, AFreedSlotIsTakenAgainFirst) {
    Opened first, second, third;
    ASSERT_EQ(first.Lock(4), 0);
    ASSERT_EQ(second.Lock(4), 0);
    ASSERT_EQ(first.Unlock(4), 0);
    ASSERT_EQ(third.Lock(4), 0);
    third.RangeIs(2147483644, 1);
}

TEST_F(DataLocks, The63rdReaderFindsNoSlot) {
    std::vector<std::unique_ptr<Opened>> readers;
    for (int i = 0; i < 63; i++) readers.push_back(std::make_unique<Opened>());
    for (uint32_t i = 0; i < 62; i++) {
        ASSERT_EQ(readers[i]->Lock(4), 0) << i;
        readers[i]->RangeIs(2147483644 - i, 1);
    }
    Opened& last = *readers[62];
    StartLog();
    EXPECT_EQ(last.Lock(4), Conflict);
    EXPECT_EQ(Log().size(), 63u);  // each slot, and the lock as a whole
    last.RangeIs(2147483583, 1);
    // Its slot stays as the search left it.
    EXPECT_EQ(last.Unlock(4), NotLocked);
    ZBESCODE(0);
    last.RangeIs(2147483583, 1);
    ASSERT_EQ(readers[61]->Unlock(4), 0);
    EXPECT_EQ(last.Lock(4), 0);
    last.RangeIs(2147483583, 1);
}

TEST_F(DataLocks, ATryWithAReaderThereLeavesNoLock) {
    Opened reader, writer, another;
    ASSERT_EQ(reader.Lock(4), 0);
    EXPECT_EQ(writer.Lock(5), Conflict);
    EXPECT_EQ(another.Lock(4), 0);
    EXPECT_EQ(another.Unlock(4), 0);
    EXPECT_EQ(reader.Unlock(4), 0);
    EXPECT_EQ(writer.Lock(5), 0);
    EXPECT_EQ(another.Lock(4), 0);
}

TEST_F(DataLocks, AHandleThatHoldsARecordGetsNoSharedLock) {
    Opened file;
    ASSERT_EQ(file.Record(1, 7), 0);
    EXPECT_EQ(file.Lock(4), Conflict);
    EXPECT_EQ(file.Record(1, 6), 0);
    EXPECT_EQ(file.Lock(4), 0);
}

TEST_F(DataLocks, AReaderMayLockRecords) {
    Opened file, other;
    ASSERT_EQ(file.Lock(4), 0);
    EXPECT_EQ(file.Record(1, 7), 0);
    EXPECT_EQ(other.Record(1, 7), Conflict);
}

TEST_F(DataLocks, AReadOnlyFileLocksLikeAnyOther) {
    Opened reader(ZB_ReadOnly | ZB_Shared), writer;
    for (auto& pair : Pairs) {
        ASSERT_EQ(pair.held.Ask(reader), 0);
        for (int i = 0; i < 9; i++) {
            int answer = Asked[i].Ask(writer);
            EXPECT_EQ(answer, pair.conflicts[i]) << pair.held.kind << " " << Asked[i].kind;
            if (answer == 0) Asked[i].Release(writer);
        }
        pair.held.Release(reader);
        ASSERT_EQ(pair.held.Ask(writer), 0);
        for (int i = 0; i < 9; i++) {
            int answer = Asked[i].Ask(reader);
            EXPECT_EQ(answer, pair.conflicts[i]) << pair.held.kind << " " << Asked[i].kind;
            if (answer == 0) Asked[i].Release(reader);
        }
        pair.held.Release(writer);
    }
}

// ---- records ----

TEST_F(DataLocks, ARecordLockedTwiceIsHeldOnce) {
    Opened file, other;
    EXPECT_EQ(file.Record(5, 7), 0);
    EXPECT_EQ(file.Record(5, 7), 0);
    EXPECT_EQ(other.Record(5, 7), Conflict);
    EXPECT_EQ(file.Record(5, 6), 0);
    EXPECT_EQ(other.Record(5, 7), 0);
    EXPECT_EQ(file.Record(5, 6), 0);  // not in its list: nothing is done
    EXPECT_EQ(other.Record(5, 5), 0);
    EXPECT_EQ(file.Record(5, 5), Conflict);
}

TEST_F(DataLocks, ATryOfARecordHeldByTheHandleItselfSucceedsAndKeepsIt) {
    Opened file, other;
    ASSERT_EQ(file.Record(5, 7), 0);
    EXPECT_EQ(file.Record(5, 5), 0);
    EXPECT_EQ(other.Record(5, 7), Conflict);
}

TEST_F(DataLocks, ATryOfARecordLeavesNoLock) {
    Opened file, other;
    EXPECT_EQ(file.Record(5, 5), 0);
    EXPECT_EQ(other.Record(5, 7), 0);
}

TEST_F(DataLocks, AReleaseOfRecord0ReleasesAllFromTheLast) {
    Opened file, other;
    for (uint32_t n : {5u, 9u, 3u}) ASSERT_EQ(file.Record(n, 7), 0);
    EXPECT_EQ(file.Record(9, 6), 0);
    EXPECT_EQ(file.Record(0, 6), 0);
    file.RangeIs(2147483583 - 5, 1);  // the first one locked is the last one given up
    for (uint32_t n : {5u, 9u, 3u}) EXPECT_EQ(other.Record(n, 7), 0);
    EXPECT_EQ(file.Record(0, 6), 0);
    file.RangeIs(2147483583, 1);
}

TEST_F(DataLocks, ARecordGivenUpBehindTheLibrarysBackLeavesTheList) {
    Opened file;
    ASSERT_EQ(file.Record(5, 7), 0);
    ASSERT_EQ(file.Unlock(9), 0);  // the range named last: that of the record
    EXPECT_EQ(file.Record(5, 6), NotLocked);
    ZBESCODE(0);
    EXPECT_EQ(file.Record(5, 6), 0);
    EXPECT_EQ(file.Record(5, 7), 0);
}

TEST_F(DataLocks, The16385thRecordGets100WithItsByteLocked) {
    Opened file, other;
    for (uint32_t n = 16385; n >= 2; n--) ASSERT_EQ(file.Record(n, 7), 0) << n;
    EXPECT_EQ(file.Record(1, 7), Conflict);
    EXPECT_EQ(other.Record(1, 7), Conflict);
    EXPECT_EQ(other.Record(2, 7), Conflict);
    EXPECT_EQ(other.Record(16386, 7), 0);
    // It isn't in the list, so that it can't be given up, and is asked for anew.
    EXPECT_EQ(file.Record(1, 6), 0);
    EXPECT_EQ(file.Record(1, 7), Conflict);
    EXPECT_EQ(file.Record(0, 6), 0);
    EXPECT_EQ(other.Record(1, 7), Conflict);
    EXPECT_EQ(other.Record(2, 7), 0);
    EXPECT_EQ(other.Record(16385, 7), 0);
    EXPECT_EQ(ZBDDCLOSE(file.Data()), 0);
    EXPECT_EQ(other.Record(1, 7), 0);
}

TEST_F(DataLocks, TheListGrowsAndShrinksInAnyOrder) {
    Opened file, other;
    for (uint32_t n = 1; n <= 500; n++) ASSERT_EQ(file.Record(n, 7), 0);
    for (uint32_t n = 1; n <= 500; n += 3) ASSERT_EQ(file.Record(n, 6), 0);
    for (uint32_t n = 1; n <= 500; n++) EXPECT_EQ(other.Record(n, 5), n % 3 == 1 ? 0 : Conflict) << n;
    ASSERT_EQ(file.Record(0, 6), 0);
    EXPECT_EQ(other.Lock(2), 0);
}

// ---- the end of a lock ----

TEST_F(DataLocks, ACloseEndsTheLocks) {
    Opened other;
    {
        Opened file;
        ASSERT_EQ(file.Lock(1), 0);
        ASSERT_EQ(file.Record(1, 7), 0);
        ASSERT_EQ(ZBDDCLOSE(file.Data()), 0);
    }
    EXPECT_EQ(other.Lock(2), 0);
}

// Whichever handle was first to read: what they share must not keep its locks.
TEST_F(DataLocks, ACloseEndsTheLocksAlsoOfTheHandleThatReadFirst) {
    Opened file, other;
    ASSERT_EQ(ZBDDRGET(file.Data(), 1), 0);
    ASSERT_EQ(ZBDDRGET(other.Data(), 1), 0);
    ASSERT_EQ(file.Lock(1), 0);
    ASSERT_EQ(file.Record(1, 7), 0);
    ASSERT_EQ(ZBDDCLOSE(file.Data()), 0);
    EXPECT_EQ(other.Lock(2), 0);
}

TEST_F(DataLocks, AClosedHandleLeavesTheLocksOfAnotherAlone) {
    Opened first, second, third;
    ASSERT_EQ(first.Lock(1), 0);
    ASSERT_EQ(ZBDDCLOSE(second.Data()), 0);
    EXPECT_EQ(third.Lock(1), Conflict);
}

TEST_F(DataLocks, TheEndOfAProcessEndsItsLocks) {
    Process other([](Process& parent) {
        ZBDINIT(100, 1);
        Opened file;
        if (file.Lock(1) != 0 || file.Record(1, 7) != 0) return 1;
        parent.Tell();
        parent.Await();
        return 0;
    });
    ASSERT_TRUE(other.Await());
    Opened file;
    EXPECT_EQ(file.Lock(1), Conflict);
    other.Kill();
    EXPECT_EQ(other.Wait(), -9);
    EXPECT_EQ(file.Lock(2), 0);
}

// ---- the refresh ----

TEST_F(DataLocks, FileLocksOfKinds1To4RefreshTheCount) {
    for (int kind : {1, 2, 3, 4}) {
        Opened file;
        PatchFile("a.dbf", 4, Le32(50 + kind));
        EXPECT_EQ(file.Count(), kind == 1 ? 3u : 50u + static_cast<uint32_t>(kind) - 1);
        ASSERT_EQ(file.Lock(kind), 0);
        EXPECT_EQ(file.Count(), 50u + static_cast<uint32_t>(kind));
        ASSERT_EQ(ZBDDCLOSE(file.Data()), 0);
    }
}

TEST_F(DataLocks, OtherLocksAndUnlocksRefreshNothing) {
    Opened file, other;
    ASSERT_EQ(file.Lock(1), 0);
    PatchFile("a.dbf", 4, Le32(50));
    EXPECT_EQ(file.Lock(5), 0);
    EXPECT_EQ(file.Lock(9), 0);
    EXPECT_EQ(file.Record(1, 7), 0);
    EXPECT_EQ(file.Record(1, 6), 0);
    EXPECT_EQ(file.Unlock(1), 0);
    EXPECT_EQ(file.Count(), 3u);
    ASSERT_EQ(other.Lock(1), 0);
    EXPECT_EQ(file.Lock(1), Conflict);
    EXPECT_EQ(file.Count(), 3u);
}

TEST_F(DataLocks, ARefreshThatFailsIsSeenInTheLogOnly) {
    Opened file, other;
    std::filesystem::resize_file("a.dbf", 5);
    StartLog();
    EXPECT_EQ(file.Lock(1), 0);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"HeaderRefresh", -2}}));
    EXPECT_EQ(other.Lock(1), Conflict);  // the lock is held all the same
}

TEST_F(DataLocks, ARecordOfAnotherProcessIsSeenAfterAnyRefresh) {
    Process other([](Process& parent) {
        ZBDINIT(100, 1);
        Opened file;
        for (int i = 0; i < 5; i++) {
            if (!parent.Await()) return 1;
            if (file.Lock(1) != 0) return 2;
            uint32_t number = 0;
            if (ZBDDRGET(file.Data(), 1) != 0 || ZBDDRPUT(file.Data(), &number, 0) != 0) return 3;
            if (number != static_cast<uint32_t>(4 + i)) return 4;
            if (file.Unlock(1) != 0) return 5;
            parent.Tell();
        }
        return 0;
    });
    Opened file;
    for (int kind : {0, 1, 2, 3, 4}) {
        other.Tell();
        ASSERT_TRUE(other.Await());
        int32_t recordNo = 4 + kind;
        EXPECT_EQ(ZBDDRGET(file.Data(), recordNo), -4);
        ZBESCODE(0);
        if (kind == 0) {
            EXPECT_EQ(ZBDDHGET(file.Data()), 0);
        } else {
            EXPECT_EQ(file.Lock(kind), 0);
            EXPECT_EQ(file.Unlock(kind), 0);
        }
        EXPECT_EQ(ZBDDRGET(file.Data(), recordNo), 0);
    }
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(ReadFile("a.dbf", 97), Anna + Bert + Cleo + Anna + Anna + Anna + Anna + Anna + '\x1A');
}

// Two writers that take the header lock around each append get every number once.
TEST_F(DataLocks, TwoProcessesAppendWithoutLosingARecord) {
    constexpr int Each = 100;
    auto writer = [](Process&) {
        ZBDINIT(100, 1);
        Opened file;
        for (int i = 0; i < Each; i++) {
            while (file.Lock(1) != 0) {
            }
            uint32_t number = 0;
            if (ZBDDRPUT(file.Data(), &number, 0) != 0 || file.Unlock(1) != 0) return 1;
        }
        return ZBDDCLOSE(file.Data()) == 0 ? 0 : 2;
    };
    {
        Process first(writer), second(writer);
        EXPECT_EQ(first.Wait(), 0);
        EXPECT_EQ(second.Wait(), 0);
    }
    EXPECT_EQ(ReadFile("a.dbf", 4, 4), Le32(3 + 2 * Each));
    EXPECT_EQ(FileSize("a.dbf"), 97u + (3 + 2 * Each) * 14 + 1);
}

}  // namespace
}  // namespace test
