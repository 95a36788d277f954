// Pack of both memo formats.
#include <cstring>

#include "support/memo.h"
#include "support/system.h"

using namespace test;

namespace {

// One format's calls under common names.
struct Format {
    const char* name;  // of the memo file
    int16_t dialect;
    uint16_t mode;  // that pack opens with, the shared bit apart
    int32_t firstBlock;
    std::function<int32_t(const char*)> create;
    int32_t(ZB_CALL* open)(int16_t*, const char*, uint16_t);
    int32_t(ZB_CALL* close)(int16_t);
    std::function<int32_t(int16_t, int32_t*, const char*)> write;
    std::function<int32_t(int16_t, int32_t, void**)> read;
    int32_t(ZB_CALL* pack)(int16_t, int16_t*);
    std::function<uint16_t(int16_t)> flags;
};

uint16_t DbtFlags(int16_t memo) {
    ZbDbtInfo info;
    EXPECT_EQ(ZBDTINFO(memo, &info), 0);
    return info.flags;
}

uint16_t FptFlags(int16_t memo) {
    ZbFptInfo info;
    EXPECT_EQ(ZBDWINFO(memo, &info), 0);
    return info.flags;
}

Format DbtFormat(int16_t dialect, int16_t multiplier) {
    return {"memo.dbt",
            dialect,
            static_cast<uint16_t>(dialect),
            1,
            [=](const char* name) { return ZBDTCREATEX(name, multiplier, dialect); },
            ZBDTOPENX,
            ZBDTCLOSE,
            [](int16_t memo, int32_t* block, const char* text) { return ZBDTRPUT(memo, block, text, 0); },
            [](int16_t memo, int32_t block, void** text) { return ZBDTRGET(memo, block, text, 0); },
            ZBDTPACK,
            DbtFlags};
}

Format FptFormat(int16_t size) {
    return {"memo.fpt",
            4,
            0,
            size <= 32 ? 1 : (size + 511) / size,
            [=](const char* name) { return ZBDWCREATE(name, size); },
            ZBDWOPENX,
            ZBDWCLOSE,
            [](int16_t memo, int32_t* block, const char* text) { return ZBDWRPUT(memo, block, text, 0); },
            ZBDWRGET,
            ZBDWPACK,
            FptFlags};
}

class MemoPack : public LibraryTest, public testing::WithParamInterface<int> {
  protected:
    static Format Formats(int number) {
        switch (number) {
            case 0: return DbtFormat(1, 1);
            case 1: return DbtFormat(2, 3);
            case 2: return FptFormat(64);
            default: return FptFormat(2);
        }
    }

    // A data file with two memo columns around a number, and its memo file.
    void SetUp() override {
        LibraryTest::SetUp();
        ZbFieldSpec specs[] = {{"A", 'M', 10, 0}, {"N", 'N', 3, 0}, {"B", 'M', 10, 0}};
        ASSERT_EQ(ZBDDCREATE("data.dbf", 3, specs, format.dialect), 0);
        ASSERT_EQ(format.create(format.name), 0);
        ASSERT_EQ(OpenData(0), 0);
        ASSERT_EQ(format.open(&memo, format.name, format.mode), 0);
    }

    int32_t OpenData(int bits) {
        uint16_t handle;
        int32_t code = ZBDDOPENX(&handle, "data.dbf", static_cast<uint16_t>(format.dialect | bits));
        data = static_cast<int16_t>(handle);
        return code;
    }

    // "" is an empty pointer.
    void Add(const std::string& a, int number, const std::string& b) {
        EXPECT_EQ(ZBDDRCLEAR(data), 0);
        EXPECT_EQ(ZBDDFPUTS(data, 0, Pointer(a).c_str()), 0);
        double value = number;
        EXPECT_EQ(ZBDDFPUT(data, 1, &value), 0);
        EXPECT_EQ(ZBDDFPUTS(data, 2, Pointer(b).c_str()), 0);
        uint32_t recordNo;
        EXPECT_EQ(ZBDDRPUT(data, &recordNo, 0), 0);
    }
    std::string Pointer(const std::string& text) {
        if (text.empty()) return std::string(10, ' ');
        int32_t block = 0;
        EXPECT_EQ(format.write(memo, &block, text.c_str()), 0);
        char digits[12];
        snprintf(digits, sizeof digits, "%10d", block);
        return digits;
    }

    // A field's ten bytes as they stand in the file.
    Bytes Stored(int record, int field) {
        return ReadFile("data.dbf", 32 * 3 + 33 + 24 * static_cast<size_t>(record - 1) + (field ? 14 : 1),
                        10);
    }
    std::string Text(int record, int field) {
        void* text = nullptr;
        int32_t code = format.read(memo, std::stoi(Stored(record, field)), &text);
        if (code < 0) return "<" + std::to_string(code) + ">";
        std::string copy = static_cast<char*>(text);
        ZBMFREE(text);
        return copy;
    }
    std::string Backup() { return "memo.BKT"; }
    std::string Work(int number = 0) {
        return std::to_string(number) + (format.pack == ZBDTPACK ? ".DBT" : ".FPT");
    }

    Format format = Formats(GetParam());
    int16_t data = -1, memo = -1;
};

INSTANTIATE_TEST_SUITE_P(Formats, MemoPack, testing::Range(0, 4));

TEST_P(MemoPack, LiveMemosMoveTogetherAndEmptyPointersStay) {
    Add("one", 1, test::Text(700));
    Add("gone", 2, "gone too");
    Add("", 3, "three");
    Add("four", 4, "");
    ASSERT_EQ(ZBDDRDEL(data, 2), 0);
    Bytes deleted = Stored(2, 0) + Stored(2, 1);
    Bytes before = ReadFile(format.name);
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_EQ(ZBECODE(), 0);

    char first[12];
    snprintf(first, sizeof first, "%10d", format.firstBlock);
    EXPECT_EQ(Stored(1, 0), first);
    EXPECT_EQ(Text(1, 0), "one");
    EXPECT_EQ(Text(1, 1), test::Text(700));
    EXPECT_EQ(Stored(2, 0) + Stored(2, 1), deleted);
    EXPECT_EQ(Stored(3, 0), std::string(10, ' '));
    EXPECT_EQ(Text(3, 1), "three");
    EXPECT_EQ(Text(4, 0), "four");
    EXPECT_EQ(Stored(4, 1), std::string(10, ' '));
    EXPECT_EQ(ReadFile(Backup()), before);
    EXPECT_FALSE(FileExists(Work()));
    EXPECT_LT(FileSize(format.name), before.size());
    EXPECT_EQ(format.flags(memo), 2);  // shared, though it was exclusive
    // The whole-file lock is gone.
    uint16_t conflict = 0;
    EXPECT_EQ(ZBDDLOCK(data, 2, &conflict), 0);
    EXPECT_EQ(conflict, 0);
}

TEST_P(MemoPack, APointerOfZeroAndBlanksIsEmpty) {
    Add("one", 1, "");
    PatchFile("data.dbf", 32 * 3 + 33 + 14, "         0");
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_EQ(Stored(1, 1), "         0");
}

TEST_P(MemoPack, AFileWithoutRecordsGivesANewOne) {
    ASSERT_EQ(format.create("fresh"), 0);
    Pointer("dead");
    ASSERT_EQ(format.pack(data, &memo), 0);
    Bytes packed = ReadFile(format.name), fresh = ReadFile("fresh");
    if (GetParam() == 1) packed.replace(8, 8, fresh.substr(8, 8));  // the work file's name
    EXPECT_EQ(packed, fresh);
}

TEST_P(MemoPack, TheWorkFileTakesTheFirstFreeNumberAndAnOldBackupGoes) {
    WriteFile(Work(0), "mine");
    WriteFile(Backup(), "old");
    Add("one", 1, "two");
    Bytes before = ReadFile(format.name);
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_EQ(ReadFile(Work(0)), "mine");
    EXPECT_FALSE(FileExists(Work(1)));
    EXPECT_EQ(ReadFile(Backup()), before);
    if (GetParam() == 1) {
        EXPECT_EQ(ReadFile(format.name, 8, 8), "1" + Fill(7));
    }
}

TEST_P(MemoPack, TheHandleChangesWhenALowerSlotIsFree) {
    ASSERT_EQ(format.close(memo), 0);
    int16_t other;
    ASSERT_EQ(format.create("other"), 0);
    ASSERT_EQ(format.open(&other, "other", format.mode), 0);
    ASSERT_EQ(format.open(&memo, format.name, format.mode), 0);
    ASSERT_EQ(format.close(other), 0);
    Add("one", 1, "two");
    int16_t before = memo;
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_LT(memo, before);
    EXPECT_EQ(Text(1, 0), "one");
}

TEST_P(MemoPack, FilesInAnotherDirectoryAreWorkedOnThere) {
    ASSERT_EQ(format.close(memo), 0);
    ASSERT_EQ(system("mkdir sub.dir"), 0);
    ASSERT_EQ(format.create("sub.dir/plain"), 0);
    ASSERT_EQ(format.open(&memo, "sub.dir/plain", format.mode), 0);
    Add("one", 1, "two");
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_TRUE(FileExists("sub.dir/plain.BKT"));  // added where there is no extension
    EXPECT_TRUE(FileExists("sub.dir/plain"));
    EXPECT_EQ(Text(1, 1), "two");
}

TEST_P(MemoPack, ABackupThatWouldBeTheFileIsRefused) {
    ASSERT_EQ(format.close(memo), 0);
    ASSERT_EQ(format.create("x.BKT"), 0);
    ASSERT_EQ(format.open(&memo, "x.BKT", format.mode), 0);
    Bytes before = ReadFile("x.BKT");
    EXPECT_EQ(format.pack(data, &memo), -14);
    EXPECT_EQ(ReadFile("x.BKT"), before);
    EXPECT_FALSE(FileExists(Work()));
}

TEST_P(MemoPack, ABackupNameThatIsTooLongIsRefused) {
    if (!OpensLongNames()) GTEST_SKIP() << "no file of such a name opens";
    ASSERT_EQ(format.close(memo), 0);
    std::string sub(200, 'd');
    ASSERT_EQ(system(("mkdir " + sub).c_str()), 0);
    std::string name = sub + "/" + std::string(59, 'x');
    ASSERT_EQ(name.size(), 260u);
    ASSERT_EQ(format.create(name.c_str()), 0);
    ASSERT_EQ(format.open(&memo, name.c_str(), format.mode), 0);
    EXPECT_EQ(format.pack(data, &memo), -14);
    EXPECT_FALSE(FileExists(sub + "/" + Work()));
}

TEST_P(MemoPack, ChecksComeInTheirOrder) {
    ZBESCODE(-6);
    EXPECT_EQ(format.pack(data, nullptr), -6);
    ZBESCODE(0);
    EXPECT_EQ(format.pack(95, nullptr), -21);
    ZBESCODE(0);
    int16_t bad = 90;
    EXPECT_EQ(format.pack(91, &bad), -13);
    ZBESCODE(0);
    EXPECT_EQ(format.pack(data, &bad), -13);
    ZBESCODE(0);
    EXPECT_EQ(format.pack(data, &data), -13);
    ZBESCODE(0);
    EXPECT_EQ(format.pack(memo, &memo), -13);
    ZBESCODE(0);
    ASSERT_EQ(format.close(memo), 0);
    ASSERT_EQ(format.open(&memo, format.name, static_cast<uint16_t>(format.mode | ZB_ReadOnly)), 0);
    EXPECT_EQ(format.pack(data, &memo), -36);
    EXPECT_FALSE(FileExists(Work()));
    EXPECT_FALSE(FileExists(Backup()));
}

TEST_P(MemoPack, PointersCountModulo2ToThe32ndAsFieldReadsCountThem) {
    Add("one", 1, "");
    std::string pointer = std::to_string((int64_t{1} << 32) + format.firstBlock);
    ASSERT_EQ(pointer.size(), 10u);
    PatchFile("data.dbf", 32 * 3 + 33 + 1, pointer);
    ASSERT_EQ(format.pack(data, &memo), 0);
    EXPECT_EQ(Text(1, 0), "one");
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    uint32_t block = 0;
    ASSERT_EQ(ZBDDFGET(data, 0, &block), 0);
    EXPECT_EQ(block, static_cast<uint32_t>(format.firstBlock));
}

// What a failure while records are copied leaves.
TEST_P(MemoPack, ABadPointerLeavesTheFirstRecordsChangedAndTheWorkFileOpen) {
    Pointer("dead");
    Add("one", 1, "");
    Add("two", 2, "");
    PatchFile("data.dbf", 32 * 3 + 33 + 24 + 1, "999999999 ");
    Bytes before = ReadFile(format.name);
    Bytes old = Stored(1, 0);
    int16_t handle = memo;
    EXPECT_EQ(format.pack(data, &memo), -4);
    ZBESCODE(0);
    EXPECT_EQ(memo, handle);
    EXPECT_EQ(ReadFile(format.name), before);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_FALSE(FileExists(Backup()));
    EXPECT_NE(Stored(1, 0), old);  // a block of the work file
    EXPECT_EQ(Stored(2, 0), "999999999 ");
    // The work file is still open, and nobody else gets it to write.
    int16_t again;
    EXPECT_LT(format.open(&again, Work().c_str(), format.mode), 0);
    ZBESCODE(0);
}

TEST_P(MemoPack, ABadPointerLeavesTheDataFileLocked) {
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    Add("one", 1, "");
    PatchFile("data.dbf", 32 * 3 + 33 + 1, "999999999 ");
    EXPECT_EQ(format.pack(data, &memo), -4);
    ZBESCODE(0);
    int16_t first = data;
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    uint16_t conflict = 0;
    EXPECT_EQ(ZBDDLOCK(data, 1, &conflict), 0);
    EXPECT_EQ(conflict, 100);
    EXPECT_EQ(ZBDDUNLOCK(first, 2, nullptr), 0);
    EXPECT_EQ(ZBDDLOCK(data, 1, &conflict), 0);
    EXPECT_EQ(conflict, 0);
}

TEST_P(MemoPack, ADataFileThatIsReadOnlyFailsAtTheFirstRecordWithAMemo) {
    Add("", 1, "");
    Add("one", 2, "");
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(OpenData(ZB_ReadOnly), 0);
    EXPECT_EQ(format.pack(data, &memo), -36);
    EXPECT_TRUE(FileExists(Work()));
    EXPECT_FALSE(FileExists(Backup()));
}

TEST_P(MemoPack, PackGoesOnWhenAnotherHoldsTheLock) {
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    Add("one", 1, "two");
    int16_t first = data;
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    uint16_t conflict = 7;
    ASSERT_EQ(ZBDDLOCK(data, 1, &conflict), 0);
    ASSERT_EQ(conflict, 0);
    EXPECT_EQ(format.pack(first, &memo), 0);
    EXPECT_EQ(Text(1, 0), "one");
}

TEST_P(MemoPack, TheLockRefreshesTheRecordCount) {
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    int16_t stale = data;
    ASSERT_EQ(OpenData(ZB_Shared), 0);
    Pointer("dead");
    Add("one", 1, "two");
    ASSERT_EQ(format.pack(stale, &memo), 0);
    EXPECT_EQ(Text(1, 0), "one");
    EXPECT_EQ(Text(1, 1), "two");
}

}  // namespace
