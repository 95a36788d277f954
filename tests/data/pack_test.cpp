// Every stage at which a pack can fail, and what it leaves there.
#include "data/left_files.h"
#include "support/data_files.h"
#include "support/fake_platform.h"

namespace test {
namespace {

struct PackFailure : LibraryTest {
    FakePlatform fake;
    int16_t data = -1;
    int16_t given = -1;
    Bytes before;

    // Records: a live one, a deleted one, a live one. A write changed the file
    // since its open.
    void SetUp() override {
        LibraryTest::SetUp();
        data = CreateAndOpen("T.DBF", {Spec("TEXT", 'C', 3)}, 1);
        for (const char* text : {"abc", "def", "ghi"}) {
            ASSERT_EQ(ZBDDFPUT(data, 0, text), 0);
            Append(data);
        }
        ASSERT_EQ(ZBDDRDEL(data, 2), 0);
        before = ReadFile("T.DBF");
        given = data;
        fake.Reset();
        StartLog();
    }

    void TearDown() override {
        LibraryTest::TearDown();
        CloseLeftFiles();
    }

    // Packs, and clears the code.
    int32_t PackIt() {
        int32_t code = ZBDDPACK(&data);
        EXPECT_TRUE(fake.HasFailed());
        EXPECT_EQ(ZBECODE(), code);
        ZBESCODE(0);
        fake.Reset();
        return code;
    }
    LogEntry LastLog() {
        auto log = Log();
        return log.empty() ? LogEntry{} : log.back();
    }
    // The old file stands under its own name, whole and open under its handle.
    void ExpectOldFileOpen() {
        EXPECT_EQ(ReadFile("T.DBF"), before);
        EXPECT_EQ(data, given);
        EXPECT_EQ(ZBDDRGET(data, 3), 0);
        EXPECT_EQ(RecordBytes(data), " ghi");
    }
    bool IsOpen(int16_t handle) {
        bool open = ZBDDRSTAT(handle) != -13;
        ZBESCODE(0);
        return open;
    }
    const Bytes Packed = " abc ghi";
};

TEST_F(PackFailure, NoMemoryForTheFields) {
    fake.Fail(Call::Allocate, 1, 0);
    EXPECT_EQ(PackIt(), -3);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Mgalloc", -3}, {"Dpack", -3}}));
    ExpectOldFileOpen();
    EXPECT_FALSE(FileExists("0.DBF"));
}

TEST_F(PackFailure, TheWorkFileCannotBeCreated) {
    fake.Fail(Call::Open, 1, 13);
    EXPECT_EQ(PackIt(), -46);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hcreate", -46}, {"Dcreate", -46}, {"Dpack", -46}}));
    ExpectOldFileOpen();
    EXPECT_FALSE(FileExists("0.DBF"));
}

TEST_F(PackFailure, TheWorkFileCannotBeWritten) {
    fake.Fail(Call::Write, 2, 112);
    EXPECT_EQ(PackIt(), -1);
    ExpectOldFileOpen();
    EXPECT_EQ(FileSize("0.DBF"), 32u);
}

TEST_F(PackFailure, TheWorkFileCannotBeOpened) {
    fake.Fail(Call::Open, 2, 13, 2);
    EXPECT_EQ(PackIt(), -46);
    EXPECT_EQ(LastLog(), (LogEntry{"Dpack", -46}));
    ExpectOldFileOpen();
    EXPECT_EQ(FileSize("0.DBF"), 66u);
    EXPECT_FALSE(IsOpen(1));
}

// Had for reading only, it fails at its first record.
TEST_F(PackFailure, TheWorkFileCannotBeOpenedForWriting) {
    fake.Fail(Call::Open, 2, 13);
    EXPECT_EQ(PackIt(), -1);
    ExpectOldFileOpen();
    EXPECT_TRUE(IsOpen(1));
}

TEST_F(PackFailure, ARecordCannotBeRead) {
    // Before it come the record count after the lock, and header and fields of
    // the work file.
    fake.Fail(Call::Read, 5, 5);
    EXPECT_EQ(PackIt(), -2);
    // The last line is of the unlock of the new file, on which no lock is held.
    EXPECT_EQ(Log(), (std::vector<LogEntry>{
                         {"DataRead", -2}, {"Dpack", -2}, {"Hlock", static_cast<int16_t>(158 | 0xC000)}}));
    ExpectOldFileOpen();
    EXPECT_EQ(ReadFile("0.DBF", 65), " abc\x1A");
    EXPECT_TRUE(IsOpen(1));
    EXPECT_FALSE(FileExists("T.BAK"));
}

TEST_F(PackFailure, ARecordIsMissing) {
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    WriteFile("T.DBF", before.substr(0, 65 + 6));
    before = ReadFile("T.DBF");
    uint16_t handle = 0;
    ASSERT_EQ(ZBDDOPENX(&handle, "T.DBF", 1), 7);
    EXPECT_EQ(ZBDDPACK(&data), -2);
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("T.DBF"), before);
    EXPECT_TRUE(IsOpen(data));
    EXPECT_TRUE(IsOpen(1));
    EXPECT_FALSE(FileExists("T.BAK"));
}

TEST_F(PackFailure, ARecordCannotBeWritten) {
    fake.Fail(Call::Write, 4, 112);  // header, field and end of the work file come before
    EXPECT_EQ(PackIt(), -1);
    ExpectOldFileOpen();
    EXPECT_EQ(FileSize("0.DBF"), 66u);
    EXPECT_TRUE(IsOpen(1));
    // The new file's own lock is given up in vain, then nothing more happens.
    EXPECT_FALSE(FileExists("T.BAK"));
}

TEST_F(PackFailure, TheSecondRecordCannotBeWritten) {
    fake.Fail(Call::Write, 7, 112);
    EXPECT_EQ(PackIt(), -1);
    ExpectOldFileOpen();
    EXPECT_EQ(ReadFile("0.DBF", 65), " abc\x1A");
}

TEST_F(PackFailure, TheOldFileKeepsItsLockUntilItIsClosed) {
    fake.Fail(Call::Write, 4, 112);
    EXPECT_EQ(PackIt(), -1);
    EXPECT_EQ(ZBDDUNLOCK(data, 2, nullptr), 0);
}

// That is no failure: the end mark stays, and the log alone tells.
TEST_F(PackFailure, TheWorkFileCannotBeCut) {
    fake.Fail(Call::SetEnd, 1, 5);
    EXPECT_EQ(PackIt(), 0);
    bool logged = false;
    for (auto& entry : Log()) logged |= entry.unit == "Hsize";
    EXPECT_TRUE(logged);
    EXPECT_EQ(ReadFile("T.DBF", 65), Packed + "\x1A");
    EXPECT_EQ(ReadFile("T.BAK", 65), " abc*def ghi\x1A");
}

TEST_F(PackFailure, TheOldBackupCannotBeErased) {
    WriteFile("T.BAK", "old");
    fake.Fail(Call::Delete, 1, 13);
    EXPECT_EQ(PackIt(), -40);
    EXPECT_EQ(LastLog(), (LogEntry{"Dpack", -40}));
    ExpectOldFileOpen();
    EXPECT_EQ(ReadFile("0.DBF", 65), Packed);
    EXPECT_EQ(ReadFile("T.BAK"), "old");
    EXPECT_TRUE(IsOpen(1));
}

TEST_F(PackFailure, TheNewFileCannotBeClosed) {
    fake.Fail(Call::Close, 2, 6);  // the first was that of the creation
    EXPECT_EQ(PackIt(), -13);
    EXPECT_EQ(LastLog(), (LogEntry{"Dpack", -13}));
    ExpectOldFileOpen();
    EXPECT_EQ(ReadFile("0.DBF", 65), Packed);
    EXPECT_TRUE(IsOpen(1));
    EXPECT_FALSE(FileExists("T.BAK"));
}

TEST_F(PackFailure, TheOldFileCannotBeClosed) {
    fake.Fail(Call::Close, 3, 6);
    EXPECT_EQ(PackIt(), -13);
    EXPECT_EQ(ReadFile("T.DBF", 65), before.substr(65));
    EXPECT_EQ(ReadFile("0.DBF", 65), Packed);
    EXPECT_TRUE(IsOpen(given));
    EXPECT_FALSE(IsOpen(1));
    EXPECT_EQ(data, given);
}

TEST_F(PackFailure, TheOldFileCannotBeRenamed) {
    fake.Fail(Call::Rename, 1, 13);
    EXPECT_EQ(PackIt(), -40);
    EXPECT_EQ(LastLog(), (LogEntry{"Dpack", -40}));
    EXPECT_EQ(ReadFile("T.DBF", 65), before.substr(65));
    EXPECT_EQ(ReadFile("0.DBF", 65), Packed);
    EXPECT_FALSE(IsOpen(0));
    EXPECT_FALSE(IsOpen(1));
    EXPECT_EQ(data, given);
}

TEST_F(PackFailure, TheNewFileCannotBeRenamed) {
    fake.Fail(Call::Rename, 2, 13);
    EXPECT_EQ(PackIt(), -40);
    EXPECT_FALSE(FileExists("T.DBF"));
    EXPECT_EQ(ReadFile("T.BAK", 65), before.substr(65));
    EXPECT_EQ(ReadFile("0.DBF", 65), Packed);
    EXPECT_FALSE(IsOpen(0));
    EXPECT_EQ(data, given);
}

TEST_F(PackFailure, TheNewFileCannotBeOpenedAtLast) {
    fake.Fail(Call::Open, 3, 13, 2);
    EXPECT_EQ(PackIt(), -46);
    EXPECT_EQ(LastLog(), (LogEntry{"Dpack", -46}));
    EXPECT_EQ(ReadFile("T.DBF", 65), Packed);
    EXPECT_EQ(ReadFile("T.BAK", 65), before.substr(65));
    EXPECT_FALSE(FileExists("0.DBF"));
    EXPECT_EQ(data, -1);
}

TEST_F(PackFailure, NoSlotForTheWorkFile) {
    ASSERT_EQ(ZBDTERM(), 0);
    ASSERT_EQ(ZBDINIT(6, 1), 0);  // one slot
    data = Open("T.DBF", 1);
    before = ReadFile("T.DBF");
    EXPECT_EQ(ZBDDPACK(&data), -8);
    ZBESCODE(0);
    ExpectOldFileOpen();
    EXPECT_EQ(FileSize("0.DBF"), 66u);
}

// A refused lock shows in the log alone.
TEST_F(PackFailure, TheLockIsRefused) {
    fake.Fail(Call::Lock, 1, 33);
    EXPECT_EQ(PackIt(), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), Packed);
}

// Each record is written as by any other append: the record, the end mark, the
// record count. The last cut takes the end mark away.
TEST_F(PackFailure, TheWritesOfAPack) {
    ASSERT_EQ(ZBDDPACK(&data), 0);
    std::vector<uint32_t> writes;
    for (auto& entry : fake.Trace())
        if (entry.call == Call::Write) writes.push_back(entry.count);
    EXPECT_EQ(writes, (std::vector<uint32_t>{32, 32, 2, 4, 1, 4, 4, 1, 4, 3, 3}));
    EXPECT_EQ(fake.Count(Call::SetEnd), 1);
}

}  // namespace
}  // namespace test
