#include <filesystem>

#include "support/data_files.h"
#include "support/environment.h"
#include "support/system.h"

namespace test {
namespace {

struct Pack : LibraryTest {
    Environment today{"ZB_TODAY", "1996-02-29"};

    // A file with one record for each text; those that begin with '*' are deleted.
    int16_t Make(const std::string& name, const std::vector<Bytes>& texts, int dialect = 1,
                 bool memo = false) {
        Specs specs = {Spec("TEXT", 'C', 3)};
        if (memo) specs.push_back(Spec("NOTE", 'M'));
        int16_t data = CreateAndOpen(name, specs, dialect);
        int32_t number = 0;
        for (auto& text : texts) {
            EXPECT_EQ(ZBDDRCLEAR(data), 0);
            EXPECT_EQ(ZBDDFPUT(data, 0, text.substr(1).c_str()), 0);
            Append(data);
            number++;
            if (text[0] == '*') {
                EXPECT_EQ(ZBDDRDEL(data, number), 0);
            }
        }
        return data;
    }
    // Makes and closes it, changes bytes of it and opens it.
    int16_t MakePatched(const std::vector<Bytes>& texts, size_t offset, const Bytes& bytes) {
        EXPECT_EQ(ZBDDCLOSE(Make("T.DBF", texts)), 0);
        PatchFile("T.DBF", offset, bytes);
        return Open("T.DBF", 1);
    }
    uint32_t Count(int16_t data) {
        uint32_t count = 77;
        EXPECT_EQ(ZBDDSIZE(data, &count), 0);
        return count;
    }
    const Bytes Descriptor =
        Hex("54 45 58 54 00 00 00 00 00 00 00 43 00 00 00 00"
            "03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
};

TEST_F(Pack, DeletedRecordsGoAndTheBackupStays) {
    int16_t data = MakePatched({" abc", "*def", " ghi", "*jkl"}, 28, "\1");
    Bytes before = ReadFile("T.DBF");
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(Count(data), 2u);
    // Day, month and no year; two records; production byte 0; no end mark.
    EXPECT_EQ(ReadFile("T.DBF"), Hex("03 1D 02 00 02 00 00 00 41 00 04 00 00 00 00 00"
                                     "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00") +
                                     Descriptor + "\x0D abc ghi");
    EXPECT_EQ(ReadFile("T.BAK"), before);
    EXPECT_FALSE(FileExists("0.DBF"));
}

TEST_F(Pack, AFileWithoutDeletedRecordsIsRewrittenAllTheSame) {
    int16_t data = Make("T.DBF", {" abc", " def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), " abc def");
    EXPECT_EQ(ReadFile("T.BAK", 65), " abc def\x1A");
}

TEST_F(Pack, AFileWithAllRecordsDeletedIsItsHeader) {
    int16_t data = Make("T.DBF", {"*abc", "*def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(Count(data), 0u);
    EXPECT_EQ(FileSize("T.DBF"), 65u);
    EXPECT_EQ(ReadFile("T.DBF", 4, 4), Hex("00 00 00 00"));
}

TEST_F(Pack, AnEmptyFile) {
    int16_t data = Make("T.DBF", {});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(FileSize("T.DBF"), 65u);
}

TEST_F(Pack, WhatIsNoBlankFlagCountsAsDeleted) {
    int16_t data = MakePatched({" abc", " def"}, 65, "x");
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), " def");
}

TEST_F(Pack, MemoBlockNumbersAreCarriedOver) {
    int16_t data = Make("T.DBF", {" abc"}, 2, true);
    uint32_t block = 17, recordNo = 1;
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    ASSERT_EQ(ZBDDFPUT(data, 1, &block), 0);
    ASSERT_EQ(ZBDDRPUT(data, &recordNo, 256), 0);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 97), " abc        17");
    EXPECT_EQ(ReadFile("T.DBF", 0, 1), "\x8B");
}

TEST_F(Pack, TheFileIsWritableAfterwards) {
    int16_t data = Make("T.DBF", {" abc", "*def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    ASSERT_EQ(ZBDDFPUT(data, 0, "new"), 0);
    Append(data);
    EXPECT_EQ(ReadFile("T.DBF", 65), " abc new\x1A");
}

TEST_F(Pack, TheFileIsSharedAfterwards) {
    int16_t data = Make("T.DBF", {" abc"});
    uint16_t other = 0;
    ASSERT_EQ(ZBDDPACK(&data), 0);
    ZbDataInfo info{};
    ASSERT_EQ(ZBDDINFO(data, &info), 0);
    EXPECT_EQ(info.infoFlags & 7, 2);
    EXPECT_STREQ(info.name, "T.DBF");
    EXPECT_EQ(ZBDDOPENX(&other, "T.DBF", 1 | ZB_Shared), 0);
}

TEST_F(Pack, TheHandleChangesIfALowerSlotIsFree) {
    int16_t other = Make("A.DBF", {});
    int16_t data = Make("T.DBF", {" abc"});
    ASSERT_EQ(other, 0);
    ASSERT_EQ(data, 1);
    ASSERT_EQ(ZBDDCLOSE(other), 0);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(data, 0);
    EXPECT_EQ(ZBDDRGET(1, 1), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDRGET(0, 1), 0);
}

TEST_F(Pack, TheHandleStaysIfNoLowerSlotIsFree) {
    int16_t data = Make("T.DBF", {" abc"});
    int16_t other = Make("A.DBF", {});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(data, 0);
    EXPECT_EQ(ZBDDCLOSE(other), 0);
}

// ---- names ----

TEST_F(Pack, ANameWithoutAPointGetsTheExtensionAdded) {
    int16_t data = Make("TABLE", {" abc", "*def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("TABLE", 65), " abc");
    EXPECT_TRUE(FileExists("TABLE.BAK"));
}

TEST_F(Pack, TheLastPointBeginsTheExtension) {
    int16_t data = Make("my.table.x", {" abc"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_TRUE(FileExists("my.table.BAK"));
}

TEST_F(Pack, TheOtherFilesLieInTheDirectoryOfTheFile) {
    std::filesystem::create_directory("dir.x");
    int16_t data = Make("dir.x/TABLE", {" abc", "*def"});
    WriteFile("dir.x/0.DBF", "taken");
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("dir.x/TABLE", 65), " abc");
    EXPECT_TRUE(FileExists("dir.x/TABLE.BAK"));
    EXPECT_FALSE(FileExists("dir.x/1.DBF"));
    EXPECT_EQ(ReadFile("dir.x/0.DBF"), "taken");
    EXPECT_FALSE(FileExists("TABLE.BAK"));
}

TEST_F(Pack, AWorkFileThatExistsIsLeftAlone) {
    WriteFile("0.DBF", "taken");
    WriteFile("1.DBF", "taken");
    int16_t data = Make("T.DBF", {" abc", "*def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), " abc");
    EXPECT_EQ(ReadFile("0.DBF"), "taken");
    EXPECT_EQ(ReadFile("1.DBF"), "taken");
    EXPECT_FALSE(FileExists("2.DBF"));
}

TEST_F(Pack, AnOlderBackupIsReplaced) {
    WriteFile("T.BAK", "old");
    int16_t data = Make("T.DBF", {" abc"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.BAK", 65), " abc\x1A");
}

TEST_F(Pack, AFileThatIsItsOwnBackupIsRefused) {
    int16_t data = Make("T.BAK", {" abc", "*def"});
    Bytes before = ReadFile("T.BAK");
    StartLog();
    EXPECT_EQ(ZBDDPACK(&data), -14);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dpack", -14}}));
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("T.BAK"), before);
    EXPECT_FALSE(FileExists("0.DBF"));
    // Not even a lock was asked for.
    ZbDataInfo info{};
    ASSERT_EQ(ZBDDINFO(data, &info), 0);
    EXPECT_EQ(+info.lockLength, 0u);
}

TEST_F(Pack, ABackupNameInOtherLettersIsAnotherFileWhereTheSystemSaysSo) {
    WriteFile("letters", "");
    bool same = FileExists("LETTERS");
    int16_t data = Make("T.bak", {" abc", "*def"});
    Bytes before = ReadFile("T.bak");
    ASSERT_EQ(ZBDDPACK(&data), same ? -14 : 0);
    if (same) {
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("T.bak"), before);
        return;
    }
    EXPECT_EQ(ReadFile("T.bak", 65), " abc");
    EXPECT_EQ(ReadFile("T.BAK", 65), " abc*def\x1A");
}

TEST_F(Pack, ADirectoryMayBeLongerThan64Bytes) {
    std::string name;
    for (int i = 0; i < 120; i++) name += "./";
    int16_t data = Make(name + "T.DBF", {" abc", "*def"});
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), " abc");
}

TEST_F(Pack, ABackupNameTooLongIsRefused) {
    std::string name;
    for (int i = 0; i < 127; i++) name += "./";
    int16_t fits = Make(name + "TT", {" abc", "*def"});  // 256, and ".BAK" makes 260
    EXPECT_EQ(ZBDDPACK(&fits), 0);
    int16_t data = Make(name + "./U", {" abc", "*def"});
    Bytes before = ReadFile("U");
    EXPECT_EQ(ZBDDPACK(&data), -14);
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("U"), before);
    EXPECT_FALSE(FileExists("0.DBF"));
    EXPECT_EQ(Count(data), 2u);
}

// ---- dialects ----

TEST_F(Pack, EveryDialectKeepsItsForm) {
    for (int dialect = 1; dialect <= 9; dialect++) {
        for (bool memo : {false, true}) {
            int16_t data = Make("T.DBF", {"*abc", " def", "*ghi", " jkl"}, dialect, memo);
            Bytes header = ReadFile("T.DBF", 0, 4) + Hex("02 00 00 00") + ReadFile("T.DBF", 8, 4) + Fill(20);
            size_t end = memo ? 97 : 65;
            if (dialect == 9) end += 31;
            Bytes table = ReadFile("T.DBF", 32, end - 32);
            Bytes room = memo ? Fill(10, ' ') : "";
            ASSERT_EQ(ZBDDPACK(&data), 0) << dialect;
            EXPECT_EQ(ReadFile("T.DBF"), header + table + " def" + room + " jkl" + room) << dialect;
            ZbDataInfo info{};
            ASSERT_EQ(ZBDDINFO(data, &info), 0);
            EXPECT_EQ(+info.dialect, dialect);
            ASSERT_EQ(ZBDDCLOSE(data), 0);
        }
    }
}

TEST_F(Pack, AFileIsWrittenInTheDialectItWasOpenedAs) {
    ASSERT_EQ(ZBDDCLOSE(Make("T.DBF", {" abc"}, 1, true)), 0);
    EXPECT_EQ(ReadFile("T.DBF", 0, 1), "\x83");
    int16_t data = Open("T.DBF", 2);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 0, 1), "\x8B");
}

TEST_F(Pack, AFileOverTheLimitsOfTheDialectIsRefused) {
    ASSERT_EQ(ZBDDCLOSE(CreateAndOpen("T.DBF", {Spec("N", 'N', 20)}, 2)), 0);
    Bytes before = ReadFile("T.DBF");
    int16_t data = Open("T.DBF", 1);
    StartLog();
    EXPECT_EQ(ZBDDPACK(&data), -29);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dcreate", -29}, {"Dpack", -29}}));
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("T.DBF"), before);
    EXPECT_FALSE(FileExists("0.DBF"));
    EXPECT_EQ(ZBDDCLOSE(data), 0);
}

// Field tables with dates of other widths: a new file would have them 8 wide.
TEST_F(Pack, ARecordOfAnotherLengthIsRefused) {
    for (int width : {200, 2}) {
        ASSERT_EQ(ZBDDCLOSE(Make("T.DBF", {" abc"})), 0);
        PatchFile("T.DBF", 10, Fill(1, width + 1));
        PatchFile("T.DBF", 32 + 11, "D");
        PatchFile("T.DBF", 32 + 16, Fill(1, width));
        WriteFile("T.DBF", ReadFile("T.DBF", 0, 65) + " " + Fill(static_cast<size_t>(width), 'x') + "\x1A");
        Bytes before = ReadFile("T.DBF");
        int16_t data = Open("T.DBF", 1);
        EXPECT_EQ(ZBDDPACK(&data), -32);
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("T.DBF"), before);
        EXPECT_FALSE(FileExists("T.BAK"));
        EXPECT_EQ(ZBDDCLOSE(data), 0);
    }
}

// ---- who else has the file ----

// Where the name of an open file can't be taken away, the swap of the files is
// refused and the old one stays.
void ExpectPackBesideOthers(int16_t* data) { EXPECT_EQ(ZBDDPACK(data), RemovesOpenFiles() ? 0 : -40); }

TEST_F(Pack, ALockHeldByAnotherGoesUnnoticed) {
    ASSERT_EQ(ZBDDCLOSE(Make("T.DBF", {" abc", "*def"})), 0);
    int16_t data = Open("T.DBF", 1 | ZB_Shared);
    int16_t other = Open("T.DBF", 1 | ZB_Shared);
    uint16_t conflict = 7;
    ASSERT_EQ(ZBDDLOCK(other, 2, &conflict), 0);
    ASSERT_EQ(conflict, 0);
    ExpectPackBesideOthers(&data);
    EXPECT_EQ(ReadFile("T.DBF", 65), RemovesOpenFiles() ? " abc" : " abc*def\x1A");
}

TEST_F(Pack, TheRecordsOfOthersAreSeen) {
    ASSERT_EQ(ZBDDCLOSE(Make("T.DBF", {" abc"})), 0);
    int16_t data = Open("T.DBF", 1 | ZB_Shared);
    int16_t other = Open("T.DBF", 1 | ZB_Shared);
    ASSERT_EQ(ZBDDFPUT(other, 0, "new"), 0);
    Append(other);
    ExpectPackBesideOthers(&data);
    EXPECT_EQ(ReadFile("T.DBF", 65), RemovesOpenFiles() ? " abc new" : " abc new\x1A");
}

TEST_F(Pack, TheOldFileGetsItsDateIfItWasChanged) {
    int16_t data = MakePatched({" abc"}, 1, "\x63");
    ASSERT_EQ(ZBDDRDEL(data, 1), 0);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.BAK", 1, 1), "\x1D");
    EXPECT_EQ(ReadFile("T.DBF", 1, 1), "\x1D");
}

TEST_F(Pack, TheOldFileKeepsItsDateIfItWasNot) {
    int16_t data = MakePatched({" abc"}, 1, "\x63");
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.BAK", 1, 1), "\x63");
    EXPECT_EQ(ReadFile("T.DBF", 1, 1), "\x1D");
}

// ---- arguments ----

TEST_F(Pack, APendingCodeComesBeforeTheNullPointer) {
    ZBESCODE(-33);
    StartLog();
    EXPECT_EQ(ZBDDPACK(nullptr), -33);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dpack", -33}}));
}

TEST_F(Pack, NullPointer) {
    StartLog();
    EXPECT_EQ(ZBDDPACK(nullptr), -21);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dpack", -21}}));
}

TEST_F(Pack, WrongHandles) {
    for (int16_t wrong : {int16_t{-1}, int16_t{0}, int16_t{95}, int16_t{32767}}) {
        int16_t handle = wrong;
        StartLog();
        EXPECT_EQ(ZBDDPACK(&handle), -13);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dpack", -13}}));
        EXPECT_EQ(handle, wrong);
        ZBESCODE(0);
    }
}

TEST_F(Pack, AReadOnlyFileIsNotTouched) {
    ASSERT_EQ(ZBDDCLOSE(Make("T.DBF", {" abc", "*def"})), 0);
    Bytes before = ReadFile("T.DBF");
    int16_t data = Open("T.DBF", 1 | ZB_ReadOnly);
    StartLog();
    EXPECT_EQ(ZBDDPACK(&data), -36);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dpack", -36}}));
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("T.DBF"), before);
    EXPECT_FALSE(FileExists("T.BAK"));
    EXPECT_FALSE(FileExists("0.DBF"));
}

TEST_F(Pack, ManyRecords) {
    std::vector<Bytes> texts;
    Bytes live;
    for (int i = 0; i < 500; i++) {
        Bytes text = std::to_string(100 + i);
        texts.push_back((i % 3 ? " " : "*") + text);
        if (i % 3) live += " " + text;
    }
    int16_t data = Make("T.DBF", texts);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 65), live);
    EXPECT_EQ(ReadFile("T.DBF", 4, 4), Hex("4D 01 00 00"));
}

}  // namespace
}  // namespace test
