#include <gtest/gtest.h>

#include "data/data.h"
#include "file/operations.h"
#include "support/dbf.h"
#include "support/environment.h"
#include "support/fake_platform.h"

namespace zb {
namespace {

using namespace test;

// One call of the trace: a read and a write with its bytes.
using Step = FakePlatform::TraceEntry;
using Steps = std::vector<std::pair<Call, uint32_t>>;

constexpr std::pair<Call, uint32_t> Seek{Call::Seek, 0};
std::pair<Call, uint32_t> Read(uint32_t count) { return {Call::Read, count}; }
std::pair<Call, uint32_t> Write(uint32_t count) { return {Call::Write, count}; }

class DataFiles : public DirectoryTest {
  protected:
    test::Environment today{"ZB_TODAY", "2024-02-29"};
    FakePlatform fake;
    uint16_t handle = 7;

    void SetUp() override { ASSERT_EQ(ZBDINIT(100, 1), 0); }
    void TearDown() override {
        fake.Reset();
        ZBDTERM();
    }
    DataFile& Open(const test::Bytes& bytes, int mode = 0) {
        WriteFile("a.dbf", bytes);
        EXPECT_GE(ZBDDOPENX(&handle, "a.dbf", static_cast<uint16_t>(mode)), 0);
        DataFile* file = Dslock(handle);
        EXPECT_NE(file, nullptr);
        fake.Reset();
        return *file;
    }
    // What was asked of files since the open or the last look.
    Steps Taken() {
        Steps steps;
        for (const Step& step : fake.Trace())
            if (step.call != Call::Allocate && step.call != Call::Free && step.call != Call::Now)
                steps.emplace_back(step.call, step.count);
        fake.Reset();
        return steps;
    }
    // Blocks taken and not given back since the last look.
    int BlocksKept() const { return fake.Count(Call::Allocate) - fake.Count(Call::Free); }
};

// A file of `count` records of `length` bytes: each begins with a blank and is
// filled with the low byte of its number.
test::Bytes Filled(int length, int count) {
    std::vector<test::Bytes> records;
    for (int i = 1; i <= count; i++) records.push_back(' ' + Fill(static_cast<size_t>(length) - 1, i));
    return Dbf(3, length, {DbfField("T", 'C', (length - 1) & 255, (length - 1) >> 8)}, records);
}

// ---- what is asked of the system ----

TEST_F(DataFiles, AnOpenReadsTheHeaderAndTheTable) {
    WriteFile("a.dbf", People({Anna}));
    fake.Reset();
    ASSERT_EQ(ZBDDOPENX(&handle, "a.dbf", 0), 0);
    EXPECT_EQ(Taken(), (Steps{{Call::Open, 0}, Read(32), Seek, Read(64), Seek, Seek, Seek}));
}

TEST_F(DataFiles, AReadIsOneSeekAndOneRead) {
    Open(People({Anna, Bert}));
    EXPECT_EQ(ZBDDRGET(0, 2), 1);
    EXPECT_EQ(Taken(), (Steps{Seek, Read(14)}));
}

TEST_F(DataFiles, AnAppendIsThreeWrites) {
    Open(People({Anna, Bert}));
    uint32_t number;
    EXPECT_EQ(ZBDDRPUT(0, &number, 0), 0);
    EXPECT_EQ(Taken(), (Steps{Seek, Write(14), Write(1), Seek, Write(4)}));
}

TEST_F(DataFiles, AnAppendInTheEofFillDialectWritesItsMarksOneByOne) {
    Open(Dbf(3, 3, {DbfField("T", 'C', 2)}, {}), DialectEofFill);
    uint32_t number;
    EXPECT_EQ(ZBDDRPUT(0, &number, 0), 0);
    EXPECT_EQ(Taken(), (Steps{Seek, Write(3), Write(1), Write(1), Write(1), Seek, Write(4)}));
}

TEST_F(DataFiles, AnUpdateIsOneWrite) {
    Open(People({Anna, Bert}));
    uint32_t number = 1;
    EXPECT_EQ(ZBDDRPUT(0, &number, 256), 0);
    EXPECT_EQ(Taken(), (Steps{Seek, Write(14)}));
}

TEST_F(DataFiles, ACloseWritesTheDayOfTheMonthOnceAfterAChange) {
    DataFile& file = Open(People({Anna}));
    EXPECT_EQ(ZBDDRDEL(0, 1), 0);
    EXPECT_EQ(file.modified, ModifiedUpdate);
    Taken();
    EXPECT_EQ(ZBDDCLOSE(0), 0);
    EXPECT_EQ(Taken(), (Steps{Seek, Write(3), {Call::Close, 0}}));
    EXPECT_EQ(ReadFile("a.dbf", 0, 5), Hex("03 1D 0B 00 01"));  // the 29th of February 2024
    Open(People({Anna}));
    EXPECT_EQ(ZBDDCLOSE(0), 0);
    EXPECT_EQ(Taken(), (Steps{{Call::Close, 0}}));
}

TEST_F(DataFiles, TheKindOfTheLastChangeIsKept) {
    DataFile& file = Open(People({Anna}));
    uint32_t number = 1;
    EXPECT_EQ(file.modified, 0);
    ZBDDRGET(0, 1);
    EXPECT_EQ(file.modified, 0);
    ZBDDRUNDEL(0, 1);
    EXPECT_EQ(file.modified, 1);
    ZBDDRPUT(0, &number, 0);
    EXPECT_EQ(file.modified, 0x20);
    ZBDDRPUT(0, &number, 256);
    EXPECT_EQ(file.modified, 0x40);
}

// ---- failures of the system ----

TEST_F(DataFiles, AnOpenThatFailsAnywhereLeavesNothing) {
    WriteFile("a.dbf", People({Anna}));
    // After the open come the header, the table and then the seeks for the
    // length, of which a failure is passed over without a word.
    const Code codes[] = {ErrRead, ErrSeek, ErrRead, 0, 0, 0};
    for (int i = 0; i < 6; i++) {
        fake.Reset();
        handle = 7;
        const Call kinds[] = {Call::Read, Call::Seek, Call::Read, Call::Seek, Call::Seek, Call::Seek};
        const int numbers[] = {1, 1, 2, 2, 3, 4};
        fake.Fail(kinds[i], numbers[i], 31);
        ASSERT_EQ(ZBDDOPENX(&handle, "a.dbf", 0), codes[i]) << i;
        EXPECT_TRUE(fake.HasFailed());
        EXPECT_EQ(CurrentCode(), codes[i]);
        EXPECT_EQ(handle, codes[i] ? 65535 : 0);
        if (codes[i]) {
            SetCode(0);
            EXPECT_EQ(fake.Count(Call::Close), 1);
        } else {
            EXPECT_EQ(ZBDDCLOSE(0), 0);
        }
        EXPECT_EQ(BlocksKept(), 0) << i;
        EXPECT_EQ(library.table[0].slotType, SlotFree);
    }
}

TEST_F(DataFiles, AnOpenWithoutMemoryLeavesNothing) {
    WriteFile("a.dbf", People({Anna}));
    for (int nth = 1; nth <= 4; nth++) {  // control block, fields, locks held, record
        fake.Reset();
        fake.Fail(Call::Allocate, nth, 8);
        handle = 7;
        ASSERT_EQ(ZBDDOPENX(&handle, "a.dbf", 0), ErrMemory) << nth;
        SetCode(0);
        EXPECT_EQ(handle, 65535);
        EXPECT_EQ(fake.Count(Call::Allocate), nth);
        EXPECT_EQ(fake.Count(Call::Free), nth - 1);
        EXPECT_EQ(fake.Count(Call::Close), nth > 1 ? 1 : 0);
    }
    fake.Reset();
    ASSERT_EQ(ZBDDOPENX(&handle, "a.dbf", 0), 0);
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(BlocksKept(), 4);
    ASSERT_EQ(ZBDDCLOSE(0), 0);
    EXPECT_EQ(BlocksKept(), 0);
}

TEST_F(DataFiles, ACloseWhoseDateCantBeWrittenLeavesTheFileOpen) {
    for (int i = 0; i < 2; i++) {
        Open(People({Anna}));
        ASSERT_EQ(ZBDDRDEL(0, 1), 0);
        fake.Fail(Call::Any, i + 1, 31);
        EXPECT_EQ(ZBDDCLOSE(0), i == 0 ? ErrSeek : ErrWrite);
        fake.Reset();
        SetCode(0);
        EXPECT_EQ(ZBDDRGET(0, 1), 1);
        // The change is forgotten: the next close writes no date.
        Taken();
        EXPECT_EQ(ZBDDCLOSE(0), 0);
        EXPECT_EQ(Taken(), (Steps{{Call::Close, 0}}));
        EXPECT_EQ(ReadFile("a.dbf", 1, 1), "\x15");
    }
}

TEST_F(DataFiles, AnAppendThatFailsLeavesTheCountRaisedAndTheRestAsItWas) {
    const Code codes[] = {ErrSeek, ErrWrite, ErrWrite, ErrSeek, ErrWrite};
    for (int i = 0; i < 5; i++) {
        DataFile& file = Open(People({Anna}));
        ASSERT_EQ(ZBDDRGET(0, 1), 0);
        fake.Fail(Call::Any, i + 1, 31);
        uint32_t number = 0;
        EXPECT_EQ(ZBDDRPUT(0, &number, 0), codes[i]) << i;
        fake.Reset();
        SetCode(0);
        EXPECT_EQ(number, 2u);
        EXPECT_EQ(file.recordCount(), 2);
        EXPECT_EQ(file.currentRecord, 1u);
        EXPECT_EQ(file.modified, 0);
        EXPECT_EQ(ReadFile("a.dbf", 4, 4), Le32(1));
        ZBDDCLOSE(0);
    }
}

TEST_F(DataFiles, AnUpdateThatFailsDoesntCountAsAChange) {
    DataFile& file = Open(People({Anna}));
    const Code codes[] = {ErrSeek, ErrWrite};
    for (int i = 0; i < 2; i++) {
        fake.Fail(Call::Any, i + 1, 31);
        uint32_t number = 1;
        EXPECT_EQ(ZBDDRPUT(0, &number, 256), codes[i]);
        fake.Reset();
        SetCode(0);
        EXPECT_EQ(file.modified, 0);
    }
}

TEST_F(DataFiles, ADeleteWhoseWriteFailsKeepsTheFlagInTheBuffer) {
    DataFile& file = Open(People({Anna}));
    fake.Fail(Call::Any, 4, 31);
    EXPECT_EQ(ZBDDRDEL(0, 1), ErrWrite);
    fake.Reset();
    SetCode(0);
    EXPECT_EQ(file.record[0], '*');
    EXPECT_EQ(file.modified, ModifiedFlag);
    EXPECT_EQ(ReadFile("a.dbf", 97, 14), Anna);
}

TEST_F(DataFiles, ALockListThatCantGrowIsAConflict) {
    DataFile& file = Open(People({Anna}), ZB_Shared);
    uint16_t conflict = 7;
    for (uint32_t n = 1; n <= 64; n++) ASSERT_EQ(ZBDDRLOCK(0, n, LockTake, &conflict), 0);
    fake.Fail(Call::Reallocate, 1, 8);
    EXPECT_EQ(ZBDDRLOCK(0, 65, LockTake, &conflict), 0);
    EXPECT_EQ(conflict, LockConflict);
    EXPECT_EQ(file.heldCount, 64);
    EXPECT_EQ(file.heldCapacity, 64);
    EXPECT_EQ(ZBDDRLOCK(0, 66, LockTake, &conflict), 0);
    EXPECT_EQ(conflict, 0);
    EXPECT_EQ(file.heldCount, 65);
    EXPECT_EQ(file.heldCapacity, 164);
    EXPECT_EQ(file.heldList[64], 66u);
}

TEST_F(DataFiles, TheListOfHeldLocksIsInOrderOfLocking) {
    DataFile& file = Open(People({Anna}), ZB_Shared);
    for (uint32_t n : {5u, 9u, 3u, 5u}) ASSERT_EQ(ZBDDRLOCK(0, n, LockTake, nullptr), 0);
    EXPECT_EQ(file.heldCount, 3);
    EXPECT_EQ(file.heldList[0], 5u);
    EXPECT_EQ(file.heldList[1], 9u);
    EXPECT_EQ(file.heldList[2], 3u);
    ASSERT_EQ(ZBDDRLOCK(0, 5, LockRelease, nullptr), 0);
    EXPECT_EQ(file.heldCount, 2);
    EXPECT_EQ(file.heldList[0], 9u);
    EXPECT_EQ(file.heldList[1], 3u);
    EXPECT_EQ(file.heldList[2], 0u);
    ASSERT_EQ(ZBDDRLOCK(0, 0, LockRelease, nullptr), 0);
    EXPECT_EQ(file.heldCount, 0);
    EXPECT_EQ(file.heldList[0], 0u);
}

// ---- the field table ----

TEST_F(DataFiles, TheFieldTableHasOffsetsWidthsAndLimits) {
    DataFile& file = Open(Dbf(
        131, 1 + 300 + 8 + 5 + 1 + 10 + 4,
        {DbfField("TEXT", 'C', 300 & 255, 300 >> 8), DbfField("DAY", 'D', 8), DbfField("PRICE", 'N', 5, 2),
         DbfField("SURE", 'L', 1), DbfField("NOTE", 'M', 10), DbfField("COUNT", 'F', 4)},
        {}));
    EXPECT_EQ(file.fieldCount, 6);
    EXPECT_EQ(file.maxFieldWidth, 300);
    EXPECT_EQ(file.dialect, DialectClassic | DialectHasMemo);
    const int offsets[] = {1, 301, 309, 314, 315, 325};
    const int widths[] = {300, 8, 5, 1, 10, 4};
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(file.fields[i].offset, offsets[i]);
        EXPECT_EQ(file.fields[i].width, widths[i]);
    }
    EXPECT_EQ(file.fields[0].decimals, 1);
    EXPECT_EQ(file.fields[2].decimals, 2);
    EXPECT_EQ(file.fields[2].maxValue, 99.99);
    EXPECT_EQ(file.fields[5].maxValue, 9999);
}

TEST_F(DataFiles, TheLargestValueOfANumberIsThatOfItsNines) {
    struct {
        int width, decimals;
        double largest;
    } const table[] = {{5, 2, 99.99},
                       {5, 0, 99999},
                       {1, 0, 9},
                       {3, 2, 0.99},
                       {2, 1, 0.9},
                       {3, 3, 999},
                       {1, 5, 9},
                       {3, 255, 999},
                       {0, 0, 0},
                       {0, 9, 0},
                       {4, 1, 99.9},
                       {20, 18, 9.99999999999999999},
                       {20, 0, 99999999999999999999.0}};
    for (auto& row : table) {
        DataFile& file = Open(Dbf(3, 1 + row.width, {DbfField("N", 'N', row.width, row.decimals)}, {}));
        EXPECT_EQ(file.fields[0].maxValue, row.largest) << row.width << " " << row.decimals;
        ZBDDCLOSE(0);
    }
}

// ---- reading ahead ----

TEST_F(DataFiles, TheReadAheadBufferFitsTheRecordLength) {
    struct {
        int length, capacity, bytes;
    } const table[] = {{2, 256, 512},   {14, 36, 504},    {63, 8, 504},     {64, 8, 512},
                       {100, 8, 800},   {2048, 8, 16384}, {2049, 7, 14343}, {4095, 4, 16380},
                       {4096, 1, 4096}, {8192, 1, 8192},  {9000, 1, 9000},  {32767, 1, 32767}};
    for (auto& row : table) {
        DataFile& file = Open(Filled(row.length, 1));
        ASSERT_EQ(AheadOpen(file), 0);
        EXPECT_EQ(file.aheadCapacity, row.capacity) << row.length;
        EXPECT_EQ(file.aheadBytes, row.bytes) << row.length;
        EXPECT_EQ(file.aheadCount, 0);
        for (int i = 0; i < row.capacity; i++) ASSERT_EQ(file.aheadOffsets[i], i * row.length);
        SetCode(6);
        EXPECT_EQ(AheadClose(file), 0);
        EXPECT_EQ(file.ahead.memory, 0u);
        EXPECT_EQ(file.aheadOffsets.memory, 0u);
        EXPECT_EQ(BlocksKept(), 0);
        ZBDDCLOSE(0);
    }
}

TEST_F(DataFiles, AWalkReadsManyRecordsAtATime) {
    DataFile& file = Open(Filled(100, 20));
    ASSERT_EQ(AheadOpen(file), 0);
    for (uint32_t n = 1; n <= 20; n++) {
        SetCode(6);
        ASSERT_EQ(DataReadAhead(file, n), 0) << n;
        EXPECT_EQ(CurrentCode(), 0);
        EXPECT_EQ(test::Bytes(reinterpret_cast<char*>(AheadRecord(file, n)), 100),
                  ' ' + Fill(99, static_cast<int>(n)));
    }
    EXPECT_EQ(Taken(), (Steps{Seek, Read(800), Seek, Read(800), Seek, Read(400)}));
    EXPECT_EQ(file.aheadCount, 4);
    EXPECT_EQ(file.aheadFirst, 17u);
    // Backwards too.
    ASSERT_EQ(DataReadAhead(file, 16), 0);
    EXPECT_EQ(*(AheadRecord(file, 16) + 1), 16);
    EXPECT_EQ(Taken(), (Steps{Seek, Read(500)}));
    EXPECT_EQ(file.currentRecord, 0u);
}

TEST_F(DataFiles, ARecordOf4096BytesOrMoreIsReadAlone) {
    for (int length : {4096, 8256, 32767}) {
        DataFile& file = Open(Filled(length, 3));
        ASSERT_EQ(AheadOpen(file), 0);
        for (uint32_t n : {1u, 2u, 3u, 3u}) {
            ASSERT_EQ(DataReadAhead(file, n), 0);
            EXPECT_EQ(test::Bytes(reinterpret_cast<char*>(AheadRecord(file, n)), static_cast<size_t>(length)),
                      ' ' + Fill(static_cast<size_t>(length) - 1, static_cast<int>(n)));
        }
        EXPECT_EQ(Taken().size(), 6u);
        ZBDDCLOSE(0);
    }
}

TEST_F(DataFiles, AReadAheadOfAFileCutShortFailsAndHoldsNothing) {
    test::Bytes bytes = Filled(100, 20);
    DataFile& file = Open(bytes.substr(0, bytes.size() - 150));
    ASSERT_EQ(AheadOpen(file), 0);
    ASSERT_EQ(DataReadAhead(file, 1), 0);
    EXPECT_EQ(DataReadAhead(file, 17), ErrRead);
    SetCode(0);
    EXPECT_EQ(file.aheadCount, 0);
    EXPECT_EQ(DataReadAhead(file, 1), 0);
    EXPECT_EQ(*(AheadRecord(file, 1) + 1), 1);
}

TEST_F(DataFiles, AReadAheadBeyondTheCountFails) {
    DataFile& file = Open(Filled(100, 20));
    ASSERT_EQ(AheadOpen(file), 0);
    for (uint32_t n : {21u, 22u, 100000u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_LT(DataReadAhead(file, n), 0) << n;
        SetCode(0);
        EXPECT_EQ(file.aheadCount, 0);
    }
}

TEST_F(DataFiles, AnOpenThatRunsOutOfMemoryForReadingAheadIsUndoneByItsClose) {
    for (int i = 0; i < 2; i++) {
        DataFile& file = Open(Filled(100, 2));
        fake.Fail(Call::Allocate, i + 1, 8);
        EXPECT_EQ(AheadOpen(file), ErrMemory);
        SetCode(0);
        EXPECT_EQ(ZBDDCLOSE(0), 0);
        EXPECT_EQ(fake.Count(Call::Free), 4 + i);  // those of the open, and what was had
    }
}

}  // namespace
}  // namespace zb
