// What memo calls leave when the platform fails under them, and what they cost.
#include "memo/format.h"
#include "support/fake_platform.h"
#include "support/memo.h"

using namespace test;
using namespace zb;

namespace {

// ---- .DBT ----

class DbtFailure : public DbtTest {};

TEST_F(DbtFailure, ACreationThatCannotWriteClosesItsFile) {
    FakePlatform fake;
    fake.Fail(Call::Write, 1, 112);
    EXPECT_EQ(ZBDTCREATE("memo.dbt"), -1);
    EXPECT_EQ(fake.Count(Call::Close), 1);
    EXPECT_EQ(FileSize("memo.dbt"), 0u);
    ZBESCODE(0);
    fake.Fail(Call::Close, 1, 6);
    EXPECT_EQ(ZBDTCREATE("memo.dbt"), -13);
    EXPECT_EQ(FileSize("memo.dbt"), 513u);
}

TEST_F(DbtFailure, AnOpenThatCannotReadGivesItsSlotBack) {
    ASSERT_EQ(ZBDTCREATE("memo.dbt"), 0);
    FakePlatform fake;
    int16_t memo = 77;
    fake.Fail(Call::Read, 1, 5);
    EXPECT_EQ(ZBDTOPENX(&memo, "memo.dbt", 1), -2);
    EXPECT_EQ(memo, -1);
    EXPECT_EQ(fake.Count(Call::Close), 1);
    ZBESCODE(0);
    fake.Fail(Call::Seek, 1, 5);
    EXPECT_EQ(ZBDTOPENX(&memo, "memo.dbt", 1), -4);
    ZBESCODE(0);
    fake.Fail(Call::Allocate, 1, 8);
    EXPECT_EQ(ZBDTOPENX(&memo, "memo.dbt", 1), -3);
    ZBESCODE(0);
    EXPECT_EQ(Open(1), 0);
}

TEST_F(DbtFailure, AFailedOpenClosesEvenWhatIsNotOpenAndKeepsItsCode) {
    StartLog();
    int16_t memo;
    EXPECT_EQ(ZBDTOPENX(&memo, "missing", 1), -46);
    std::vector<LogEntry> expected = {{"Hopen", -46}, {"Topen", -46}, {"Hclose", -13}};
    EXPECT_EQ(Log(), expected);
    ZBESCODE(0);
    StartLog();
    EXPECT_EQ(ZBDTOPENX(&memo, "", 1), -14);
    expected = {{"Hopen", -14}, {"Topen", -14}};
    EXPECT_EQ(Log(), expected);
    ZBESCODE(0);
    StartLog();
    EXPECT_EQ(ZBDWOPENX(&memo, "missing", 0), -46);
    expected = {{"Hopen", -46}, {"Wopen", -46}};
    EXPECT_EQ(Log(), expected);
    ZBESCODE(0);
    StartLog();
    EXPECT_EQ(ZBDWOPENX(&memo, "", 0), -14);
    expected = {{"Hopen", -14}, {"Wopen", -14}, {"Hclose", -13}};
    EXPECT_EQ(Log(), expected);
}

TEST_F(DbtFailure, ACloseThatFailsGivesTheHandleUp) {
    int16_t memo = Make(1);
    FakePlatform fake;
    fake.Fail(Call::Close, 1, 6);
    EXPECT_EQ(ZBDTCLOSE(memo), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDTCLOSE(memo), -13);
    ZBESCODE(0);
    EXPECT_EQ(Open(1), memo);
    fake.Fail(Call::Close, 1, 6);
    EXPECT_EQ(DbtQuickClose(memo), -13);
}

TEST_F(DbtFailure, TheSizeIsInBlocksAfterTheOpenAndInBytesAfterARefresh) {
    int16_t memo = Make(2, 2);
    EXPECT_EQ(Tslock(memo)->fileSize, 1);
    EXPECT_EQ(ZBDTHGET(memo), 0);
    EXPECT_EQ(Tslock(memo)->fileSize, 1025);
    EXPECT_EQ(Tslock(memo)->blockSize, 1024);
    EXPECT_TRUE(Tslock(memo)->flushEachWrite);
}

TEST_F(DbtFailure, AWriteRaisesTheSizeToItsBlockNumber) {
    int16_t memo = Make(1);
    ASSERT_EQ(Replace(memo, 3000, "x"), 3000);
    EXPECT_EQ(Tslock(memo)->fileSize, 3000);
    ASSERT_EQ(Replace(memo, 3000, "x"), 3000);
    EXPECT_EQ(Tslock(memo)->fileSize, 3000 * 512 + 3);
}

TEST_F(DbtFailure, ADialectWithoutALayoutIsRefusedByAWrite) {
    int16_t memo = Make(1);
    Tslock(memo)->dialect = 4;
    Put(memo, "x");
    EXPECT_EQ(ZBECODE(), -12);
}

TEST_F(DbtFailure, ARefreshThatFailsStopsReadAndWrite) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "x"), 1);
    FakePlatform fake;
    StartLog();
    fake.Fail(Call::Read, 1, 5);
    EXPECT_EQ(Get(memo, 1), "<-2>");
    std::vector<LogEntry> expected = {{"Thget", -2}, {"Trget", -2}};
    EXPECT_EQ(Log(), expected);
    ZBESCODE(0);
    StartLog();
    fake.Fail(Call::Seek, 1, 5);
    EXPECT_EQ(Put(memo, "y"), -7);
    expected = {{"Hseek", -4}, {"Thget", -4}, {"Trput", -4}};
    EXPECT_EQ(Log(), expected);
    EXPECT_EQ(fake.Count(Call::Write), 0);
}

TEST_F(DbtFailure, ReadingGivesNothingBackWithoutMemory) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        ASSERT_EQ(Put(memo, Text(600)), 1);
        FakePlatform fake;
        fake.Fail(Call::Allocate, 1, 8);
        EXPECT_EQ(Get(memo, 1), "<-3>");
        ZBESCODE(0);
        if (dialect == 1) {
            fake.Fail(Call::Reallocate, 1, 8);
            EXPECT_EQ(Get(memo, 1), "<-3>");
            ZBESCODE(0);
        }
        EXPECT_EQ(Get(memo, 1), Text(600));
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(DbtFailure, AReadThatFailsInsideATerminatedMemoIsNotPassedOver) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, Text(1500)), 1);
    for (int read : {2, 3, 4}) {
        FakePlatform fake;
        fake.Fail(Call::Read, read, 5);
        EXPECT_EQ(Get(memo, 1), "<-2>") << read;
        ZBESCODE(0);
        EXPECT_EQ(Get(memo, 1), Text(1500));
    }
}

TEST_F(DbtFailure, AReadThatComesShortInsideATerminatedMemoLeavesNoHole) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, Text(1500)), 1);
    for (uint32_t bytes : {1, 100, 511}) {
        FakePlatform fake;
        fake.Shorten(Call::Read, 2, bytes);
        EXPECT_EQ(Get(memo, 1), Text(1500)) << bytes;
    }
    FakePlatform fake;
    fake.Shorten(Call::Read, 2, 0, FakePlatform::Forever);
    EXPECT_EQ(Get(memo, 1), "<-2>");
}

TEST_F(DbtFailure, AReadThatFailsInTheScanOfAnOldMemoStopsTheReplace) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, Text(1500)), 1);
    Bytes before = ReadFile("memo.dbt");
    FakePlatform fake;
    fake.Fail(Call::Read, 2, 5);
    EXPECT_EQ(Replace(memo, 1, Text(1400)), 1);
    EXPECT_EQ(ZBECODE(), -2);
    EXPECT_EQ(ReadFile("memo.dbt"), before);
}

TEST_F(DbtFailure, AFailedNewTerminatedMemoLeavesTheNextBlock) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "one"), 1);
    Bytes before = ReadFile("memo.dbt");
    FakePlatform fake;
    fake.Fail(Call::Write, 1, 112);
    EXPECT_EQ(Put(memo, "two"), static_cast<int32_t>(before.size()));  // no block
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(ReadFile("memo.dbt"), before);
    ZBESCODE(0);
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(Put(memo, "two"), 2);
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("02 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 1024), "two" + Hex("1A 1A"));
    EXPECT_EQ(Tslock(memo), nullptr);
    ZBESCODE(0);
    EXPECT_EQ(Tslock(memo)->nextBlock, 2);
    EXPECT_EQ(Put(memo, "three"), 2);
}

TEST_F(DbtFailure, AFailedReplaceInPlaceOfACountedMemoKeepsTheOldLength) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "one"), 1);
    Bytes before = ReadFile("memo.dbt");
    FakePlatform fake;
    fake.Fail(Call::Write, 1, 112);
    EXPECT_EQ(Replace(memo, 1, "longer"), 1);
    EXPECT_EQ(ReadFile("memo.dbt"), before);
    ZBESCODE(0);
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(Replace(memo, 1, "longer"), 1);
    EXPECT_EQ(ZBECODE(), -1);
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "lon");
    EXPECT_EQ(fake.Count(Call::Write), 3);
}

TEST_F(DbtFailure, AnEntryPutOnTheChainBeforeTheFailureStays) {
    int16_t memo = Make(2);
    ASSERT_EQ(Put(memo, "one"), 1);
    FakePlatform fake;
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(Replace(memo, 1, Text(600)), 1);
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(ReadFile("memo.dbt", 512, 8), Hex("02 00 00 00 01 00 00 00"));
    EXPECT_EQ(ReadFile("memo.dbt", 0, 4), Hex("02 00 00 00"));
    EXPECT_EQ(FileSize("memo.dbt"), 1024u);
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "<-6>");
}

TEST_F(DbtFailure, ReadingAndWritingCostNoMoreCallsThanTheyMust) {
    for (int dialect : {1, 2}) {
        int16_t memo = Make(dialect);
        ASSERT_EQ(Put(memo, "one"), 1);
        FakePlatform fake;
        auto calls = [&](Call kind) {
            int count = fake.Count(kind);
            return count;
        };
        EXPECT_EQ(Get(memo, 1), "one");
        EXPECT_EQ(calls(Call::Read), dialect == 1 ? 2 : 3);  // the head of a counted memo
        EXPECT_EQ(calls(Call::Allocate), 1);
        fake.Reset();
        EXPECT_EQ(Put(memo, Text(1000)), 2);
        EXPECT_EQ(calls(Call::Read), 1);
        EXPECT_EQ(calls(Call::Write), 2);  // the memo and the next block
        fake.Reset();
        EXPECT_EQ(Replace(memo, 1, "two"), 1);
        EXPECT_EQ(calls(Call::Write), dialect == 1 ? 2 : 3);  // and a counted memo's length
        EXPECT_EQ(calls(Call::Allocate), 0);
        fake.Reset();
        if (dialect == 1) {
            Put(memo, std::string(3000, 'x'), 10);
            EXPECT_EQ(calls(Call::Write), 2);
        }
        EXPECT_EQ(ZBDTCLOSE(memo), 0);
    }
}

TEST_F(DbtFailure, NothingPassesTheHandleLevelInMoreThanOneTransfer) {
    int16_t memo = Make(1);
    FakePlatform fake;
    ASSERT_EQ(Put(memo, Text(32767)), 1);
    for (auto& entry : fake.Trace())
        if (entry.call == Call::Write) {
            EXPECT_GT(entry.count, 0u);
            EXPECT_LE(entry.count, 4096u);
        }
    fake.Reset();
    Put(memo, Text(32768));
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(fake.Count(Call::Write), 0);
}

// ---- .FPT ----

class FptFailure : public FptTest {};

TEST_F(FptFailure, ACreationThatCannotSetTheSizeSucceeds) {
    FakePlatform fake;
    fake.Fail(Call::SetEnd, 1, 112);
    EXPECT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
    EXPECT_EQ(ReadFile("memo.fpt"), Hex("00 00 00 01 00 00 02 00"));
    fake.Fail(Call::Write, 1, 112);
    EXPECT_EQ(ZBDWCREATE("memo.fpt", 1), -1);
    EXPECT_EQ(FileSize("memo.fpt"), 0u);
    EXPECT_EQ(fake.Count(Call::Close), 2);
}

TEST_F(FptFailure, AFailureAfterTheSizeStepLeavesTheNextBlock) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, Text(70)), 8);
    ASSERT_EQ(FileSize("memo.fpt"), 512u + 78);
    FakePlatform fake;
    fake.Fail(Call::Write, 1, 112);
    EXPECT_EQ(Put(memo, "two"), 10);
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(FileSize("memo.fpt"), 512u + 128);
    ZBESCODE(0);
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(Put(memo, "two"), 10);
    EXPECT_EQ(ZBECODE(), -1);
    EXPECT_EQ(ReadFile("memo.fpt", 0, 4), Be32(10));
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 10), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Put(memo, "three"), 10);
}

TEST_F(FptFailure, ASizeStepThatFailsIsLoggedAlone) {
    int16_t memo = Make(64);
    FakePlatform fake;
    StartLog();
    fake.Fail(Call::SetEnd, 1, 112);
    EXPECT_EQ(Put(memo, "one"), 8);
    EXPECT_EQ(ZBECODE(), 0);
    std::vector<LogEntry> expected = {{"Hsize", 0}};
    EXPECT_EQ(Log(), expected);
    EXPECT_EQ(Get(memo, 8), "one");
}

TEST_F(FptFailure, ReadingFailsWithItsParts) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, "one"), 8);
    FakePlatform fake;
    for (int nth : {1, 2, 3}) {
        fake.Fail(Call::Read, nth, 5);
        EXPECT_EQ(Get(memo, 8), "<-2>") << nth;
        ZBESCODE(0);
        fake.Reset();
    }
    fake.Fail(Call::Allocate, 1, 8);
    EXPECT_EQ(Get(memo, 8), "<-3>");
    ZBESCODE(0);
    fake.Fail(Call::Seek, 2, 5);
    EXPECT_EQ(Get(memo, 8), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 8), "one");
    fake.Fail(Call::Close, 1, 6);
    EXPECT_EQ(FptQuickClose(memo), -13);
}

TEST_F(FptFailure, ReadingAndWritingCostNoMoreCallsThanTheyMust) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, "one"), 8);
    FakePlatform fake;
    EXPECT_EQ(Get(memo, 8), "one");
    EXPECT_EQ(fake.Count(Call::Read), 3);
    fake.Reset();
    EXPECT_EQ(Put(memo, Text(1000)), 9);
    EXPECT_EQ(fake.Count(Call::Read), 1);
    EXPECT_EQ(fake.Count(Call::Write), 2);
    EXPECT_EQ(fake.Count(Call::SetEnd), 1);
    fake.Reset();
    EXPECT_EQ(Replace(memo, 8, "two"), 8);
    EXPECT_EQ(fake.Count(Call::Write), 1);
    EXPECT_EQ(fake.Count(Call::SetEnd), 0);
}

// ---- pack ----

// A data file with one memo, by either format.
class PackFailure : public LibraryTest, public testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ZbFieldSpec spec = {"M", 'M', 10, 0};
        int16_t dialect = fpt ? 4 : 1;
        ASSERT_EQ(ZBDDCREATE("data.dbf", 1, &spec, dialect), 0);
        uint16_t handle;
        ASSERT_EQ(ZBDDOPENX(&handle, "data.dbf", static_cast<uint16_t>(dialect | ZB_Shared)), 0);
        data = static_cast<int16_t>(handle);
        int32_t block = 0;
        if (fpt) {
            ASSERT_EQ(ZBDWCREATE("memo.x", 1), 0);
            ASSERT_EQ(ZBDWOPENX(&memo, "memo.x", 0), 0);
            ASSERT_EQ(ZBDWRPUT(memo, &block, "dead", 0), 0);
            ASSERT_EQ(ZBDWRPUT(memo, &block, "live", 0), 0);
        } else {
            ASSERT_EQ(ZBDTCREATE("memo.x"), 0);
            ASSERT_EQ(ZBDTOPENX(&memo, "memo.x", 1), 0);
            ASSERT_EQ(ZBDTRPUT(memo, &block, "dead", 0), 0);
            ASSERT_EQ(ZBDTRPUT(memo, &block, "live", 0), 0);
        }
        ASSERT_EQ(block, 2);
        ASSERT_EQ(ZBDDRCLEAR(data), 0);
        ASSERT_EQ(ZBDDFPUTS(data, 0, "         2"), 0);
        uint32_t recordNo;
        ASSERT_EQ(ZBDDRPUT(data, &recordNo, 0), 0);
        before = ReadFile("memo.x");
        WriteFile("memo.BKT", "old");
    }
    int32_t Pack() { return fpt ? ZBDWPACK(data, &memo) : ZBDTPACK(data, &memo); }
    int32_t Refresh(int16_t handle) { return fpt ? ZBDWHGET(handle) : ZBDTHGET(handle); }
    Bytes Pointer() { return ReadFile("data.dbf", 66, 10); }
    std::string Work() { return fpt ? "0.FPT" : "0.DBT"; }
    // Whether another handle finds the data file locked.
    bool Locked() {
        ZBESCODE(0);
        uint16_t other, conflict;
        EXPECT_EQ(ZBDDOPENX(&other, "data.dbf", static_cast<uint16_t>((fpt ? 4 : 1) | ZB_Shared)), 0);
        EXPECT_EQ(ZBDDLOCK(static_cast<int16_t>(other), 1, &conflict), 0);
        EXPECT_EQ(ZBDDCLOSE(static_cast<int16_t>(other)), 0);
        return conflict == 100;
    }
    bool Open(int16_t handle) {
        ZBESCODE(0);
        bool open = Refresh(handle) == 0;
        ZBESCODE(0);
        return open;
    }

    bool fpt = GetParam();
    int16_t data = -1, memo = -1;
    Bytes before;
};

INSTANTIATE_TEST_SUITE_P(Formats, PackFailure, testing::Bool());

TEST_P(PackFailure, TheWorkFileCannotBeMade) {
    FakePlatform fake;
    fake.Fail(Call::Open, 1, 13);
    EXPECT_EQ(Pack(), -46);
    EXPECT_FALSE(FileExists(Work()));
    EXPECT_EQ(ReadFile("memo.x"), before);
    EXPECT_EQ(ReadFile("memo.BKT"), "old");
    EXPECT_EQ(Pointer(), "         2");
    EXPECT_TRUE(Open(memo));
    EXPECT_TRUE(Locked());
}

TEST_P(PackFailure, TheWorkFileCannotBeOpened) {
    FakePlatform fake;
    fake.Fail(Call::Open, 2, 13, 2);
    EXPECT_EQ(Pack(), -46);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_EQ(ReadFile("memo.x"), before);
    EXPECT_EQ(Pointer(), "         2");
    EXPECT_TRUE(Open(memo));
    EXPECT_TRUE(Locked());
}

TEST_P(PackFailure, ARecordCannotBeRead) {
    FakePlatform fake;
    fake.Fail(Call::Read, 3, 5);  // behind the record count and the work file's header
    EXPECT_EQ(Pack(), -2);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_EQ(Pointer(), "         2");
    EXPECT_TRUE(Open(memo));
    EXPECT_TRUE(Open(static_cast<int16_t>(memo + 1)));  // the work file
    EXPECT_TRUE(Locked());
}

TEST_P(PackFailure, AMemoCannotBeWritten) {
    FakePlatform fake;
    fake.Fail(Call::Write, 2, 112);  // behind the work file's header
    EXPECT_EQ(Pack(), -1);
    EXPECT_EQ(Pointer(), "         2");
    EXPECT_TRUE(Open(memo));
    EXPECT_TRUE(Open(static_cast<int16_t>(memo + 1)));
    EXPECT_TRUE(Locked());
}

TEST_P(PackFailure, ARecordCannotBeWritten) {
    FakePlatform fake;
    fake.Fail(Call::Write, 4, 112);  // behind the header, the memo and the next block
    EXPECT_EQ(Pack(), -1);
    EXPECT_EQ(Pointer(), "         2");
    EXPECT_TRUE(Open(static_cast<int16_t>(memo + 1)));
    EXPECT_TRUE(Locked());
}

TEST_P(PackFailure, TheOldBackupCannotBeErased) {
    FakePlatform fake;
    fake.Fail(Call::Delete, 1, 13);
    EXPECT_EQ(Pack(), -40);
    EXPECT_EQ(ReadFile("memo.BKT"), "old");
    EXPECT_EQ(ReadFile("memo.x"), before);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_EQ(Pointer(), "         1");
    EXPECT_TRUE(Open(memo));
    EXPECT_TRUE(Open(static_cast<int16_t>(memo + 1)));
    EXPECT_FALSE(Locked());
}

TEST_P(PackFailure, TheFirstRenameFails) {
    FakePlatform fake;
    fake.Fail(Call::Rename, 1, 13);
    EXPECT_EQ(Pack(), -40);
    EXPECT_FALSE(FileExists("memo.BKT"));
    EXPECT_EQ(ReadFile("memo.x"), before);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_EQ(Pointer(), "         1");
    EXPECT_FALSE(Open(memo));
    EXPECT_FALSE(Open(static_cast<int16_t>(memo + 1)));
    EXPECT_FALSE(Locked());
}

TEST_P(PackFailure, TheSecondRenameFails) {
    FakePlatform fake;
    fake.Fail(Call::Rename, 2, 18);
    EXPECT_EQ(Pack(), static_cast<int16_t>(0xC000 | 18));
    EXPECT_EQ(ReadFile("memo.BKT"), before);
    EXPECT_FALSE(FileExists("memo.x"));
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_FALSE(Open(memo));
}

TEST_P(PackFailure, TheLastOpenFails) {
    FakePlatform fake;
    fake.Fail(Call::Open, 3, 13, 2);
    EXPECT_EQ(Pack(), -46);
    EXPECT_EQ(memo, -1);
    EXPECT_EQ(ReadFile("memo.BKT"), before);
    EXPECT_TRUE(FileExists("memo.x"));
    EXPECT_FALSE(FileExists(Work()));
    EXPECT_EQ(Pointer(), "         1");
}

TEST_P(PackFailure, TheWorkFileCannotBeClosed) {
    FakePlatform fake;
    fake.Fail(Call::Close, 2, 6);  // behind that of the creation
    EXPECT_EQ(Pack(), -13);
    EXPECT_EQ(ReadFile("memo.x"), before);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_FALSE(FileExists("memo.BKT"));
    EXPECT_TRUE(Open(memo));
}

TEST_P(PackFailure, SuccessMarksTheDataFileAsChangedAndNothingElseIsLogged) {
    StartLog();
    EXPECT_EQ(Pack(), 0);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(Dslock(data)->modified, ModifiedFlag);
    EXPECT_FALSE(Locked());
}

}  // namespace
