#include <algorithm>
#include <cstring>
#include <filesystem>

#include "support/dbf.h"
#include "support/system.h"

namespace test {
namespace {

class DataFile : public LibraryTest {
  protected:
    uint16_t handle = 7;

    int Open(const Bytes& bytes, int mode = 0) {
        WriteFile("a.dbf", bytes);
        return Reopen(mode);
    }
    int Reopen(int mode = 0) { return ZBDDOPENX(&handle, "a.dbf", static_cast<uint16_t>(mode)); }
    int Close() { return ZBDDCLOSE(static_cast<int16_t>(handle)); }
    int16_t Data() const { return static_cast<int16_t>(handle); }
    ZbDataInfo Info() {
        ZbDataInfo info;
        memset(&info, 0, sizeof info);
        EXPECT_EQ(ZBDDINFO(Data(), &info), 0);
        return info;
    }
    // Opens, expects the code, and that nothing is left of it.
    void Refused(const Bytes& bytes, int mode, int code) {
        handle = 7;
        EXPECT_EQ(Open(bytes, mode), code);
        EXPECT_EQ(ZBECODE(), code);
        EXPECT_EQ(handle, 65535);
        ZBESCODE(0);
        WriteFile("good.dbf", People({Anna}));
        uint16_t good = 7;
        EXPECT_EQ(ZBDDOPENX(&good, "good.dbf", 0), 0);
        EXPECT_EQ(good, 0) << "the slot was not given back";
        EXPECT_EQ(ZBDDCLOSE(static_cast<int16_t>(good)), 0);
    }
    void RefusedAndLogged(const Bytes& bytes, int mode, int code, const std::vector<LogEntry>& log) {
        StartLog();
        Refused(bytes, mode, code);
        EXPECT_EQ(Log(), log);
        ZBESLOG(0, nullptr);
    }
};

// ---- what opens ----

TEST_F(DataFile, TheBytesOfAFileByHand) {
    EXPECT_EQ(People({Anna}), Hex("03 15 0B 00  01 00 00 00  61 00  0E 00  00 00 00 00"
                                  "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                  "4E 41 4D 45 00 00 00 00 00 00 00 43 00 00 00 00"
                                  "05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                  "42 4F 52 4E 00 00 00 00 00 00 00 44 00 00 00 00"
                                  "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                  "0D"
                                  "20 41 4E 4E 41 20 31 39 39 36 30 32 32 39"
                                  "1A"));
}

TEST_F(DataFile, ModeZeroOpensAsTheClassicDialect) {
    ASSERT_EQ(Open(People({Anna, Bert})), 0);
    EXPECT_EQ(handle, 0);
    ZbDataInfo info = Info();
    EXPECT_EQ(+info.dialect, 1);
    EXPECT_EQ(+info.hasMemo, 0);
    EXPECT_EQ(+info.infoFlags, 0);
    EXPECT_STREQ(info.name, "a.dbf");
    EXPECT_EQ(+info.lockOffset, 0u);
    EXPECT_EQ(+info.lockLength, 0u);
    uint32_t count = 0;
    EXPECT_EQ(ZBDDSIZE(Data(), &count), 0);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(Close(), 0);
}

TEST_F(DataFile, EveryDialectOpensItsVersions) {
    struct {
        int dialect;
        std::vector<int> versions;
    } const table[] = {{1, {3, 131}}, {2, {3, 131, 139}}, {3, {3, 131}}, {4, {3, 245}}, {5, {3, 131}},
                       {6, {3, 131}}, {7, {3, 131}},      {8, {3, 245}}, {9, {3, 131}}};
    WriteFile("a.dbf", People({Anna}));
    for (auto& row : table) {
        for (int version : {0, 1, 2, 3, 4, 48, 67, 130, 131, 132, 138, 139, 140, 203, 244, 245, 246, 255}) {
            bool fits = std::find(row.versions.begin(), row.versions.end(), version) != row.versions.end();
            PatchFile("a.dbf", 0, Bytes(1, static_cast<char>(version)));
            ASSERT_EQ(Reopen(row.dialect), fits ? 0 : -18) << row.dialect << " " << version;
            ZBESCODE(0);
            if (fits) {
                EXPECT_EQ(+Info().dialect, row.dialect);
                ASSERT_EQ(Close(), 0);
            }
        }
    }
}

TEST_F(DataFile, Version139OpensAsDialect2AndNotAs1) {
    Bytes file = Dbf(139, 11, {DbfField("NOTE", 'M', 10)}, {});
    RefusedAndLogged(file, 1, -18, {});
    EXPECT_EQ(Open(file, 2), 0);
    EXPECT_EQ(+Info().hasMemo, 1);
    EXPECT_EQ(+Info().dialect, 2);
}

TEST_F(DataFile, Version245WithAMemoFieldIsRefusedAsDialect1) {
    Bytes file = Dbf(245, 11, {DbfField("NOTE", 'M', 10)}, {});
    RefusedAndLogged(file, 1, -18, {});
    EXPECT_EQ(Open(file, 4), 0);
    EXPECT_EQ(+Info().hasMemo, 1);
}

TEST_F(DataFile, Version3WithAMemoFieldIsRefusedInAllDialects) {
    for (int dialect = 0; dialect <= 9; dialect++)
        RefusedAndLogged(Dbf(3, 11, {DbfField("NOTE", 'M', 10)}, {}), dialect, -18,
                         {{"Ddfields", -18}, {"Ddopen", -18}});
}

TEST_F(DataFile, TwoMemoFieldsOpen) {
    Bytes file = Dbf(245, 21, {DbfField("NOTE", 'M', 10), DbfField("MORE", 'M', 10)}, {});
    EXPECT_EQ(Open(file, 8), 0);
    EXPECT_EQ(+Info().dialect, 8);
}

TEST_F(DataFile, AHeaderOneByteLongerOpensLikeTheUsualOne) {
    Bytes file = DbfHeader(3, 1, 98, 14) + People({}).substr(32, 65) + '\0' + Anna + '\x1A';
    ASSERT_EQ(Open(file), 0);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFO(Data(), &info), 0);
    EXPECT_EQ(info.fieldCount, 2);
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(info.buffer), 14), Anna);
}

TEST_F(DataFile, AHeaderWithoutATerminatorOpens) {
    EXPECT_EQ(Open(DbfHeader(3, 1, 96, 14) + People({}).substr(32, 64) + Anna), 0);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
}

TEST_F(DataFile, APaddedHeaderGivesDialect9WhateverTheMode) {
    Bytes file = DbfHeader(3, 1, 128, 14) + People({}).substr(32, 64) + '\x0D' + Fill(31) + Anna + '\x1A';
    for (int mode = 0; mode <= 9; mode++) {
        ASSERT_EQ(Open(file, mode), 0);
        EXPECT_EQ(+Info().dialect, 9);
        ZbDataRecordInfo info;
        ASSERT_EQ(ZBDDRINFO(Data(), &info), 0);
        EXPECT_EQ(info.fieldCount, 2);
        EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
        ASSERT_EQ(Close(), 0);
    }
}

TEST_F(DataFile, AFileWithoutFieldsOpens) {
    for (int headerLength : {32, 33, 34})
        for (int dialect : {1, 9}) {
            ASSERT_EQ(Open(DbfHeader(3, 2, headerLength, 1) + Fill(size_t(headerLength) - 32, 0x0D) + " *",
                           dialect),
                      0);
            EXPECT_EQ(ZBDDRGET(Data(), 2), 1);
            ASSERT_EQ(Close(), 0);
        }
}

TEST_F(DataFile, LowerCaseNamesAndTypesAreRaised) {
    Bytes file = Dbf(3, 14, {DbfField("nAmE", 'c', 5), DbfField("b_1", 'd', 8)}, {Anna});
    ASSERT_EQ(Open(file), 0);
    ZbFieldSpec specs[2];
    uint16_t widest = 0;
    ASSERT_EQ(ZBDDFINFO(Data(), &widest, specs), 0);
    EXPECT_STREQ(specs[0].name, "NAME");
    EXPECT_EQ(specs[0].type, 'C');
    EXPECT_STREQ(specs[1].name, "B_1");
    EXPECT_EQ(specs[1].type, 'D');
    EXPECT_EQ(widest, 8);
}

TEST_F(DataFile, AnEmptyFieldNameAndOneOfTenCharactersOpen) {
    EXPECT_EQ(Open(Dbf(3, 3, {DbfField("", 'L', 1), DbfField("ABCDEFGHIJ", 'L', 1)}, {})), 0);
}

TEST_F(DataFile, WideTextTakesItsHighByteFromTheDecimals) {
    Bytes record = ' ' + Fill(0x0132, 'x');
    ASSERT_EQ(Open(Dbf(3, 0x0133, {DbfField("TEXT", 'C', 0x32, 1)}, {record})), 0);
    ZbFieldSpec spec;
    uint16_t widest = 0;
    ASSERT_EQ(ZBDDFINFO(Data(), &widest, &spec), 0);
    EXPECT_EQ(spec.width, 0x0132);
    EXPECT_EQ(spec.decimals, 1);
    EXPECT_EQ(widest, 0x0132);
}

TEST_F(DataFile, TheMostFieldsThatAHeaderHoldsOpen) {
    std::vector<Bytes> fields(1022, DbfField("F", 'L', 1));
    ASSERT_EQ(Open(Dbf(3, 1023, fields, {' ' + Fill(1022, 'T')})), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFO(Data(), &info), 0);
    EXPECT_EQ(info.fieldCount, 1022);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
}

TEST_F(DataFile, TheWidestRecordOpens) {
    Bytes record = ' ' + Fill(32766, 'x');
    ASSERT_EQ(Open(Dbf(3, 32767, {DbfField("TEXT", 'C', 0xFE, 0x7F)}, {record})), 0);
    ASSERT_EQ(ZBDDRGET(Data(), 1), 0);
    ZbDataRecordInfo info;
    ASSERT_EQ(ZBDDRINFO(Data(), &info), 0);
    EXPECT_EQ(info.recordLength, 32767);
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(info.buffer), 32767), record);
}

// Nothing that a file may say of its numbers reaches beyond the text of nines.
TEST_F(DataFile, AnyWidthAndDecimalsOfANumberOpen) {
    for (int width : {0, 1, 2, 20, 255})
        for (int decimals : {0, 1, 2, 19, 128, 254, 255}) {
            ASSERT_EQ(Open(Dbf(3, 1 + width, {DbfField("N", 'N', width, decimals)}, {})), 0);
            ASSERT_EQ(Close(), 0);
        }
}

// ---- the file's length ----

TEST_F(DataFile, TheLengthMayLackTheEndMarkOrFillARecordWithIt) {
    Bytes file = People({Anna, Bert});
    Bytes bare = file.substr(0, file.size() - 1);
    EXPECT_EQ(Open(file), 0);
    Close();
    EXPECT_EQ(Open(bare), 0);
    Close();
    EXPECT_EQ(Open(bare + Fill(14, 0x1A)), 0);
    Close();
    for (size_t more : {2, 13, 15}) {
        StartLog();
        EXPECT_EQ(Open(bare + Fill(more, 0x1A)), 7);
        EXPECT_EQ(ZBECODE(), 7);
        EXPECT_TRUE(Log().empty());
        EXPECT_EQ(ZBDDRGET(Data(), 2), 1);
        EXPECT_EQ(Close(), 0);
    }
}

TEST_F(DataFile, AFileCutByOneRecordOpensWithAWarning) {
    ASSERT_EQ(Open(People({Anna, Bert, Cleo}).substr(0, 97 + 2 * 14)), 7);
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
    EXPECT_EQ(ZBDDRGET(Data(), 2), 1);
    EXPECT_EQ(ZBDDRGET(Data(), 3), -2);
    ZBESCODE(0);
    EXPECT_EQ(Close(), 0);
}

TEST_F(DataFile, AWrongRecordCountIsAWarning) {
    for (int64_t count : {int64_t{0}, int64_t{5}, int64_t{0x7FFFFFFF}, int64_t{-1}, int64_t{-2147483648}}) {
        Bytes file = People({Anna, Bert});
        file.replace(4, 4, Le32(count));
        ASSERT_EQ(Open(file), 7) << count;
        uint32_t size = 0;
        EXPECT_EQ(ZBDDSIZE(Data(), &size), 0);
        EXPECT_EQ(size, static_cast<uint32_t>(count));
        ASSERT_EQ(Close(), 0);
    }
}

// 65 + 16 * 2^28 bytes are 65 in 32 bits, which is what the file has.
TEST_F(DataFile, TheExpectedLengthIsTakenInFull) {
    EXPECT_EQ(Open(DbfHeader(3, 0x10000000, 65, 16) + DbfField("T", 'C', 15) + '\x0D'), 7);
}

TEST_F(DataFile, ALengthThatCantBeHadIsNoObjection) {
    WriteFile("a.dbf", People({Anna}));
    std::filesystem::resize_file("a.dbf", uintmax_t{3} << 30);
    EXPECT_EQ(Reopen(), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
}

// ---- what doesn't open ----

TEST_F(DataFile, AHeaderCutAtAnyLengthIsAShortRead) {
    Bytes file = People({Anna});
    for (size_t length = 0; length < 96; length++) {
        StartLog();
        handle = 7;
        ASSERT_EQ(Open(file.substr(0, length)), -2) << length;
        EXPECT_EQ(handle, 65535);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Ddopen", -2}}));
        ZBESCODE(0);
    }
    ASSERT_EQ(Open(file.substr(0, 96)), 7);
    EXPECT_EQ(ZBDDRGET(Data(), 1), -2);
}

TEST_F(DataFile, APaddedHeaderCutAtAnyLengthOfItsLastBlockIsAShortRead) {
    Bytes file = DbfHeader(3, 0, 128, 14) + People({}).substr(32, 64) + '\x0D' + Fill(31);
    for (size_t length = 96; length < 128; length++) Refused(file.substr(0, length), 9, -2);
    EXPECT_EQ(Open(file, 9), 0);
}

TEST_F(DataFile, ADialectAboveNineIsRefusedOnceTheHeaderIsRead) {
    for (int dialect : {10, 127, 128, 129, 255}) RefusedAndLogged(People({}), dialect, -12, {});
    Refused(Hex("03"), 10, -2);
}

TEST_F(DataFile, HeaderLengthsThatDontFitAreRefused) {
    for (int length : {3, 31, 35, 63, 99, 127}) {
        Bytes file = People({Anna});
        file.replace(8, 2, Le16(length));
        RefusedAndLogged(file, 0, -19, {{"Ddopen", -19}});
    }
}

TEST_F(DataFile, AHeaderLengthBelow32IsRefused) {
    for (int length : {0, 1, 2, 0x8000, 0x8021, 0xFFE0, 0xFFE1}) {
        Bytes file = People({Anna});
        file.replace(8, 2, Le16(length));
        RefusedAndLogged(file, 0, -19, {{"Ddopen", -19}});
    }
}

TEST_F(DataFile, TheProductionByteIsCheckedInTwoDialects) {
    for (int dialect = 1; dialect <= 9; dialect++)
        for (int byte : {0, 1, 2, 128, 255}) {
            Bytes file = People({Anna});
            file[28] = static_cast<char>(byte);
            if ((dialect == 2 || dialect == 8) && byte > 1) {
                RefusedAndLogged(file, dialect, -35, {{"Ddopen", -35}});
            } else {
                ASSERT_EQ(Open(file, dialect), 0);
                EXPECT_EQ(+Info().production, static_cast<int8_t>(byte));
                ASSERT_EQ(Close(), 0);
            }
        }
}

TEST_F(DataFile, TheHeaderLengthIsLookedAtBeforeTheProductionByteAndAfterTheVersion) {
    Bytes file = People({Anna});
    file.replace(8, 2, Le16(99));
    file[28] = 2;
    Refused(file, 2, -19);
    file[0] = 4;
    Refused(file, 2, -18);
    Refused(file, 12, -12);
}

TEST_F(DataFile, AFieldNameOfElevenCharactersIsRefused) {
    for (const char* name : {"ABCDEFGHIJK", "ABCDEFGHIJ\x01"})
        RefusedAndLogged(Dbf(3, 2, {DbfField(name, 'L', 1)}, {}), 0, -28,
                         {{"Ddfields", -28}, {"Ddopen", -28}});
}

TEST_F(DataFile, AnUnknownFieldTypeIsRefused) {
    for (char type : {'\0', ' ', 'B', 'G', 'I', 'Z', '\xC3', '['})
        RefusedAndLogged(Dbf(3, 2, {DbfField("A", type, 1)}, {}), 0, -31,
                         {{"Ddfields", -31}, {"Ddopen", -31}});
}

TEST_F(DataFile, TheFirstBadFieldDecides) {
    Refused(Dbf(3, 99, {DbfField("A", 'L', 1), DbfField("B", 'M', 10), DbfField("C", 'X', 1)}, {}), 0, -18);
    Refused(Dbf(3, 99, {DbfField("A", 'X', 1), DbfField("B", 'M', 10)}, {}), 0, -31);
    Refused(Dbf(3, 99, {DbfField("ABCDEFGHIJK", 'X', 1)}, {}), 0, -28);
}

TEST_F(DataFile, WidthsThatDontAddUpToTheRecordAreRefused) {
    for (int length : {0, 1, 13, 15}) {
        Bytes file = People({});
        file.replace(10, 2, Le16(length));
        RefusedAndLogged(file, 0, -32, {{"Ddopen", -32}});
    }
    Refused(DbfHeader(3, 0, 33, 0) + '\x0D', 0, -32);
    Refused(DbfHeader(3, 0, 33, 2) + '\x0D', 0, -32);
}

TEST_F(DataFile, ANegativeRecordLengthIsRefused) {
    for (int length : {0x8000, 0xFFFF}) {
        Bytes file = People({});
        file.replace(10, 2, Le16(length));
        RefusedAndLogged(file, 0, -32, {{"Ddopen", -32}});
    }
}

// 1 + 32768 + 32768 comes to 1 in 16 bits.
TEST_F(DataFile, TheSumOfTheWidthsDoesntWrap) {
    Bytes half = DbfField("A", 'C', 0, 128);
    Refused(Dbf(3, 1, {half, half}, {}), 0, -32);
    Refused(Dbf(3, 0x7FFF, {DbfField("A", 'C', 0xFF, 0xFF), DbfField("B", 'C', 0xFF, 0x7F)}, {}), 0, -32);
}

TEST_F(DataFile, AFileThatIsntThereIsRefused) {
    StartLog();
    EXPECT_EQ(ZBDDOPENX(&handle, "none.dbf", 0), -46);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hopen", -46}, {"Ddopen", -46}}));
    EXPECT_FALSE(FileExists("none.dbf"));
}

TEST_F(DataFile, AnEmptyNameIsRefused) {
    EXPECT_EQ(ZBDDOPENX(&handle, "", 0), -14);
    EXPECT_EQ(handle, 65535);
    ZBESCODE(0);
    EXPECT_EQ(Open(People({})), 0);
    EXPECT_EQ(handle, 0);
}

TEST_F(DataFile, ANameOf260BytesOpensAndOneOf261DoesNot) {
    WriteFile("ab.dbf", People({Anna}));
    std::string path;
    while (path.size() < 254) path += "./";
    ASSERT_EQ(path.size(), 254u);
    std::string fits = path + "ab.dbf", exceeds = path + "/ab.dbf";
    ASSERT_EQ(fits.size(), 260u);
    ASSERT_EQ(ZBDDOPENX(&handle, fits.c_str(), 0), 0);
    EXPECT_EQ(Info().name, fits);
    ASSERT_EQ(Close(), 0);

    StartLog();
    // Where the system opens it the library refuses it.
    EXPECT_EQ(ZBDDOPENX(&handle, exceeds.c_str(), 0), OpensLongNames() ? -14 : -46);
    EXPECT_EQ(handle, 65535);
    EXPECT_EQ(Log().back(), (LogEntry{"Ddopen", OpensLongNames() ? -14 : -46}));
    EXPECT_EQ(Log().size(), OpensLongNames() ? 1u : 2u);
    ZBESCODE(0);
    // Nothing holds the file open.
    EXPECT_EQ(ZBDDOPENX(&handle, "ab.dbf", 0), 0);
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(+Info().infoFlags, 0);
}

TEST_F(DataFile, NullArgumentsAreRefusedAndLeaveTheHandleAlone) {
    StartLog();
    EXPECT_EQ(ZBDDOPENX(nullptr, "a.dbf", 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDOPENX(&handle, nullptr, 0), -21);
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Ddopen", -21}, {"Ddopen", -21}}));
}

TEST_F(DataFile, APendingFailureComesBeforeNullArguments) {
    StartLog();
    ZBESCODE(-33);
    EXPECT_EQ(ZBDDOPENX(nullptr, nullptr, 0), -33);
    EXPECT_EQ(ZBDDOPENX(&handle, "a.dbf", 0), -33);
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Ddopen", -33}, {"Ddopen", -33}}));
}

TEST_F(DataFile, APendingWarningIsClearedByTheOpen) {
    ZBESCODE(6);
    EXPECT_EQ(Open(People({Anna})), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(DataFile, ManyRefusalsUseNothingUp) {
    Bytes file = People({Anna});
    file[43] = 'X';
    WriteFile("a.dbf", file);
    for (int i = 0; i < 250; i++) {
        ASSERT_EQ(Reopen(), -31);
        ZBESCODE(0);
    }
    EXPECT_EQ(Open(People({Anna})), 0);
}

TEST_F(DataFile, TheNinetySixthFileFindsNoSlot) {
    WriteFile("a.dbf", People({Anna}));
    for (int i = 0; i < 95; i++) {
        ASSERT_EQ(Reopen(ZB_Shared), 0);
        ASSERT_EQ(handle, i);
    }
    EXPECT_EQ(Reopen(ZB_Shared), -8);
    EXPECT_EQ(handle, 65535);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDCLOSE(40), 0);
    EXPECT_EQ(Reopen(ZB_Shared), 0);
    EXPECT_EQ(handle, 40);
}

TEST_F(DataFile, ALibraryWithoutSlotsOpensNothing) {
    ASSERT_EQ(ZBDINIT(5, 1), 0);
    EXPECT_EQ(Open(People({Anna})), -8);
    EXPECT_EQ(handle, 65535);
}

TEST_F(DataFile, ALibraryWithoutATableOpensNothing) {
    ASSERT_EQ(ZBDINIT(4, 1), -13);
    ZBESCODE(0);
    EXPECT_EQ(Open(People({Anna})), -58);
    ZBESCODE(0);
    uint32_t count = 7;
    EXPECT_EQ(ZBDDSIZE(0, &count), -58);
}

TEST_F(DataFile, ALibraryThatIsntStartedOpensNothing) {
    ZBDTERM();
    EXPECT_EQ(Open(People({Anna})), -59);
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(ZBDDCLOSE(0), -59);
    uint32_t count = 7;
    EXPECT_EQ(ZBDDSIZE(0, &count), -59);
    EXPECT_EQ(ZBDDFLUSH(0), -59);
}

// Whatever one byte of the header and the table says: the file is refused, or all
// calls on it come to an end within their buffers.
TEST_F(DataFile, AnyByteOfTheHeaderAndTheTableMayBeAnything) {
    Bytes file = Dbf(131, 1 + 3 + 8 + 6 + 1 + 10,
                     {DbfField("TEXT", 'C', 3), DbfField("DAY", 'D', 8), DbfField("AMOUNT", 'N', 6, 2),
                      DbfField("SURE", 'L', 1), DbfField("NOTE", 'M', 10)},
                     {" abc19960229 12.50T        77", "*xyz19701231  0.01F          "});
    WriteFile("a.dbf", file);
    Bytes image(70000, '\0');
    int opened = 0;
    for (size_t at = 0; at < 193; at++) {
        for (int value : {0, 1, 0x0D, 0x21, 0x43, 0x7F, 0x80, 0xFF}) {
            PatchFile("a.dbf", at, Bytes(1, static_cast<char>(value)));
            if (Reopen(at % 2 ? 7 : 2) >= 0) {
                opened++;
                for (int32_t n : {1, 2, 3}) {
                    ZBDDRGETX(Data(), image.data(), n);
                    ZBESCODE(0);
                }
                uint32_t number = 0;
                image.assign(image.size(), '\0');
                ZBDDRPUTX(Data(), image.data(), &number, 0);
                ZBESCODE(0);
                ASSERT_EQ(Close(), 0);
            }
            ZBESCODE(0);
            PatchFile("a.dbf", 0, file);
        }
    }
    EXPECT_GT(opened, 100);
}

// ---- modes ----

TEST_F(DataFile, OpenSharedWithReadOnlyIsAReadOnlySharedOpen) {
    WriteFile("a.dbf", People({Anna}));
    ASSERT_EQ(Reopen(ZB_OpenShared | ZB_ReadOnly), 0);
    EXPECT_EQ(+Info().infoFlags, 3);
    uint32_t number = 1;
    EXPECT_EQ(ZBDDRPUT(Data(), &number, 256), -36);
}

TEST_F(DataFile, TheFlagsTellTheMode) {
    struct {
        int mode;
        int flags;
    } const table[] = {
        {0, 0},      {ZB_ReadOnly, 1},      {ZB_Shared, 2}, {ZB_ReadOnly | ZB_Shared, 3}, {ZB_OpenShared, 2},
        {0x0200, 0}, {ZB_OpenShared | 4, 2}};
    for (auto& row : table) {
        ASSERT_EQ(Open(People({Anna}), row.mode), 0);
        EXPECT_EQ(+Info().infoFlags, row.flags) << row.mode;
        ASSERT_EQ(Close(), 0);
    }
}

TEST_F(DataFile, WhereTheExclusiveOpenFailsTheFileIsReadOnlyAndShared) {
    WriteFile("a.dbf", People({Anna}));
    ASSERT_EQ(Reopen(ZB_ReadOnly | ZB_Shared), 0);
    uint16_t second = 7;
    StartLog();
    ASSERT_EQ(ZBDDOPENX(&second, "a.dbf", 0), 0);
    EXPECT_TRUE(Log().empty());
    handle = second;
    EXPECT_EQ(+Info().infoFlags, 3);
    EXPECT_EQ(ZBDDRGET(Data(), 1), 0);
    uint32_t number = 1;
    EXPECT_EQ(ZBDDRPUT(Data(), &number, 256), -36);
}

TEST_F(DataFile, AFileHeldExclusivelyCantBeHadAtAll) {
    ASSERT_EQ(Open(People({Anna})), 0);
    uint16_t second = 7;
    EXPECT_EQ(ZBDDOPENX(&second, "a.dbf", ZB_Shared), -46);
    EXPECT_EQ(second, 65535);
}

// ---- close ----

TEST_F(DataFile, ClosingAnUnchangedFileWritesNothing) {
    Bytes file = People({Anna, Bert});
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(ZBDDRGET(Data(), 1), 0);
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataFile, ClosingAChangedFileChangesOffset1Only) {
    Bytes file = People({Anna});
    file[1] = 77;
    file[2] = 88;
    file[3] = 99;
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(ZBDDRGET(Data(), 1), 0);
    uint32_t number = 1;
    ASSERT_EQ(ZBDDRPUT(Data(), &number, 256), 0);
    EXPECT_EQ(ReadFile("a.dbf"), file);
    int16_t year, month, day, dayOfWeek;
    ASSERT_EQ(ZBCDIGET(&year, &month, &day, &dayOfWeek), 0);
    ASSERT_EQ(Close(), 0);
    file[1] = static_cast<char>(day);
    EXPECT_EQ(ReadFile("a.dbf"), file);
}

TEST_F(DataFile, AClosedHandleIsBadAndItsSlotIsFree) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ASSERT_EQ(Close(), 0);
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(Close(), -13);
    ZBESCODE(0);
    ASSERT_EQ(Reopen(), 0);
    EXPECT_EQ(handle, 0);
}

TEST_F(DataFile, ARestartClosesTheFileAndWritesItsDate) {
    Bytes file = People({Anna});
    file[1] = 99;
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(ZBDDRDEL(Data(), 1), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_NE(ReadFile("a.dbf", 1, 1), "\x63");
    EXPECT_EQ(ZBDDRGET(Data(), 1), -13);
}

TEST_F(DataFile, ARestartClosesAllFilesAndTheirHandlesAreBad) {
    const char* const names[] = {"a.dbf", "b.dbf", "c.dbf"};
    auto openAll = [&] {
        for (int16_t i = 0; i < 3; i++) {
            ASSERT_EQ(ZBDDOPENX(&handle, names[i], 0), 0);  // each held exclusively
            ASSERT_EQ(handle, i);
        }
    };
    for (auto* name : names) WriteFile(name, People({Anna}));
    openAll();
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    for (int16_t i = 0; i < 3; i++) {
        EXPECT_EQ(ZBDDRGET(i, 1), -13);
        ZBESCODE(0);
        EXPECT_EQ(ZBDDCLOSE(i), -13);
        ZBESCODE(0);
    }
    openAll();
    EXPECT_EQ(ZBDDRGET(2, 1), 0);
}

TEST_F(DataFile, AfterAQuickCloseTheFileCanOnlyBeGivenUp) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ASSERT_EQ(ZBDQCLOSE(), 0);
    uint32_t count = 7;
    EXPECT_EQ(ZBDDSIZE(Data(), &count), -46);
    EXPECT_EQ(count, 7u);
    ZBESCODE(0);
    EXPECT_EQ(Close(), -46);
    ZBESCODE(0);
    EXPECT_EQ(Close(), -46);
    ZBESCODE(0);
    // The file itself is free for others.
    uint16_t other = 7;
    EXPECT_EQ(ZBDDOPENX(&other, "a.dbf", 0), 0);
    EXPECT_EQ(other, 1);
}

TEST_F(DataFile, AQuickCloseWritesNoDate) {
    Bytes file = People({Anna});
    file[1] = 99;
    ASSERT_EQ(Open(file), 0);
    ASSERT_EQ(ZBDDRDEL(Data(), 1), 0);
    ASSERT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(ReadFile("a.dbf", 1, 1), "\x63");
}

// ---- queries ----

TEST_F(DataFile, LastUpdateMakesADateOfOneByte) {
    Bytes file = People({Anna});
    file[1] = 12;
    ASSERT_EQ(Open(file), 0);
    char text[12] = "";
    EXPECT_EQ(ZBDDLUD(Data(), text, 1), 0);
    EXPECT_STREQ(text, "12/12/12");
    EXPECT_EQ(ZBDDLUD(Data(), text, 2), 0);
    EXPECT_STREQ(text, "12/12/1912");
    EXPECT_EQ(ZBDDLUD(Data(), text, 4), 0);
    EXPECT_STREQ(text, "19121212");
    EXPECT_EQ(Close(), 0);

    file[1] = 7;
    ASSERT_EQ(Open(file), 0);
    EXPECT_EQ(ZBDDLUD(Data(), text, 7), 0);
    EXPECT_STREQ(text, "07.07.1907");
}

TEST_F(DataFile, LastUpdateOfADayThatIsNoMonthIsABadDate) {
    for (int byte : {0, 13, 31, 127, 128, 200, 255}) {
        Bytes file = People({Anna});
        file[1] = static_cast<char>(byte);
        ASSERT_EQ(Open(file), 0);
        char text[12] = "";
        EXPECT_EQ(ZBDDLUD(Data(), text, 1), -15) << byte;
        ZBESCODE(0);
        ASSERT_EQ(Close(), 0);
    }
}

TEST_F(DataFile, LastUpdateInAnUnknownStyleIsABadOption) {
    Bytes file = People({Anna});
    file[1] = 5;
    ASSERT_EQ(Open(file), 0);
    char text[12] = "";
    for (int style : {0, 16, -1}) {
        EXPECT_EQ(ZBDDLUD(Data(), text, style), -12) << style;
        ZBESCODE(0);
    }
    EXPECT_EQ(ZBDDLUD(Data(), text, 0x10002), 0);  // of the style, 16 bits count
    EXPECT_STREQ(text, "05/05/1905");
}

TEST_F(DataFile, InfoTellsTheHeaderBytesWithTheirSigns) {
    Bytes file = People({Anna});
    file[14] = 1;
    file[15] = static_cast<char>(0x80);
    file[28] = static_cast<char>(0xFF);
    ASSERT_EQ(Open(file), 0);
    ZbDataInfo info = Info();
    EXPECT_EQ(+info.transaction, 1);
    EXPECT_EQ(+info.encryption, -128);
    EXPECT_EQ(+info.production, -1);
    EXPECT_EQ(+info.reservedFlag, 0);
}

TEST_F(DataFile, InfoWritesThreeBitsOfItsFlags) {
    ASSERT_EQ(Open(People({Anna}), ZB_Shared), 0);
    ZbDataInfo info;
    memset(&info, 0xFF, sizeof info);
    ASSERT_EQ(ZBDDINFO(Data(), &info), 0);
    EXPECT_EQ(+info.infoFlags, 0xFFFA);
    EXPECT_EQ(Bytes(info.name, sizeof info.name), "a.dbf" + Fill(256));
}

TEST_F(DataFile, InfoOfAMemoFileHasTheDialectWithoutTheMemoBit) {
    ASSERT_EQ(Open(Dbf(131, 11, {DbfField("NOTE", 'M', 10)}, {}), 7), 0);
    ZbDataInfo info = Info();
    EXPECT_EQ(+info.dialect, 7);
    EXPECT_EQ(+info.hasMemo, 1);
}

TEST_F(DataFile, SizeIsThatOfTheMemoryUntilARefresh) {
    ASSERT_EQ(Open(People({Anna}), ZB_Shared), 0);
    PatchFile("a.dbf", 4, Le32(5));
    uint32_t count = 0;
    ASSERT_EQ(ZBDDSIZE(Data(), &count), 0);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(ZBDDHGET(Data()), 0);
    ASSERT_EQ(ZBDDSIZE(Data(), &count), 0);
    EXPECT_EQ(count, 5u);
}

TEST_F(DataFile, ARefreshOfAFileCutToNothingIsAShortRead) {
    ASSERT_EQ(Open(People({Anna}), ZB_Shared), 0);
    WriteFile("a.dbf", "");
    StartLog();
    EXPECT_EQ(ZBDDHGET(Data()), -2);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"HeaderRefresh", -2}, {"Ddhget", -2}}));
}

// ---- what all calls on a data handle share ----

struct Call {
    const char* name;
    const char* unit;
    std::function<int(int16_t)> run;
};

ZbDataInfo anyInfo;
ZbDataRecordInfo anyRecordInfo;
uint32_t anyNumber;
uint16_t anyConflict;
char anyText[64];

std::vector<Call> Calls() {
    return {
        {"ZBDDCLOSE", "Ddclose", [](int16_t h) { return ZBDDCLOSE(h); }},
        {"ZBDDHGET", "Ddhget", [](int16_t h) { return ZBDDHGET(h); }},
        {"ZBDDSIZE", "Ddsize", [](int16_t h) { return ZBDDSIZE(h, &anyNumber); }},
        {"ZBDDLUD", "Ddlud", [](int16_t h) { return ZBDDLUD(h, anyText, 1); }},
        {"ZBDDINFO", "Ddinfo", [](int16_t h) { return ZBDDINFO(h, &anyInfo); }},
        {"ZBDDRGET", "Drget", [](int16_t h) { return ZBDDRGET(h, 1); }},
        {"ZBDDRGETX", "Drget", [](int16_t h) { return ZBDDRGETX(h, anyText, 1); }},
        {"ZBDDRPUT", "Drput", [](int16_t h) { return ZBDDRPUT(h, &anyNumber, 0); }},
        {"ZBDDRPUTX", "Drput", [](int16_t h) { return ZBDDRPUTX(h, anyText, &anyNumber, 0); }},
        {"ZBDDRDEL", "Drdel", [](int16_t h) { return ZBDDRDEL(h, 1); }},
        {"ZBDDRUNDEL", "Drundel", [](int16_t h) { return ZBDDRUNDEL(h, 1); }},
        {"ZBDDRSTAT", "Drstat", [](int16_t h) { return ZBDDRSTAT(h); }},
        {"ZBDDRCLEAR", "Drclear", [](int16_t h) { return ZBDDRCLEAR(h); }},
        {"ZBDDRNUM", "Drnum", [](int16_t h) { return ZBDDRNUM(h, &anyNumber); }},
        {"ZBDDRINFO", "Drinfo", [](int16_t h) { return ZBDDRINFO(h, &anyRecordInfo); }},
        {"ZBDDRINFOH", "Drinfoh", [](int16_t h) { return ZBDDRINFOH(h, &anyRecordInfo); }},
        {"ZBDDLOCK", "Ddlock", [](int16_t h) { return ZBDDLOCK(h, 1, &anyConflict); }},
        {"ZBDDUNLOCK", "Ddunlock", [](int16_t h) { return ZBDDUNLOCK(h, 1, &anyConflict); }},
        {"ZBDDRLOCK", "Drlock", [](int16_t h) { return ZBDDRLOCK(h, 1, 7, &anyConflict); }},
    };
}

void SetOutputs() {
    anyNumber = 77;
    anyConflict = 78;
    memset(anyText, 'q', sizeof anyText);
    memset(&anyInfo, 'q', sizeof anyInfo);
    memset(&anyRecordInfo, 'q', sizeof anyRecordInfo);
}

void ExpectOutputsAlone(const char* name) {
    EXPECT_EQ(anyNumber, 77u) << name;
    EXPECT_EQ(anyConflict, 78) << name;
    EXPECT_EQ(Bytes(anyText, sizeof anyText), Fill(sizeof anyText, 'q')) << name;
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&anyInfo), sizeof anyInfo), Fill(sizeof anyInfo, 'q')) << name;
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&anyRecordInfo), sizeof anyRecordInfo),
              Fill(sizeof anyRecordInfo, 'q'))
        << name;
}

TEST_F(DataFile, EveryCallRefusesABadHandle) {
    ASSERT_EQ(Open(People({Anna})), 0);
    SetOutputs();
    StartLog();
    for (auto& call : Calls())
        for (int16_t bad :
             {int16_t{-1}, int16_t{-32768}, int16_t{1}, int16_t{94}, int16_t{95}, int16_t{32767}}) {
            WriteFile("test.log", "");
            EXPECT_EQ(call.run(bad), -13) << call.name << " " << bad;
            EXPECT_EQ(ZBECODE(), -13);
            // The bind doesn't log it, the call does.
            EXPECT_EQ(Log(), (std::vector<LogEntry>{{call.unit, -13}})) << call.name;
            ExpectOutputsAlone(call.name);
            ZBESCODE(0);
        }
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}));
}

TEST_F(DataFile, EveryCallIsStoppedByAPendingFailure) {
    ASSERT_EQ(Open(People({Anna})), 0);
    SetOutputs();
    StartLog();
    for (auto& call : Calls()) {
        WriteFile("test.log", "");
        ZBESCODE(-33);
        EXPECT_EQ(call.run(Data()), -33) << call.name;
        EXPECT_EQ(call.run(-1), -33) << call.name;
        EXPECT_EQ(Log(), (std::vector<LogEntry>{
                             {"Dslock", -33}, {call.unit, -33}, {"Dslock", -33}, {call.unit, -33}}));
        ExpectOutputsAlone(call.name);
    }
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}));
    EXPECT_EQ(Close(), 0);
}

TEST_F(DataFile, EveryCallClearsAWarning) {
    for (auto& call : Calls()) {
        Bytes file = People({Anna});
        file[1] = 5;
        ASSERT_EQ(Open(file), 0);
        if (!strcmp(call.name, "ZBDDUNLOCK")) {
            ASSERT_EQ(ZBDDLOCK(Data(), 1, nullptr), 0);
        }
        memset(anyText, 0, sizeof anyText);
        ZBESCODE(6);
        EXPECT_EQ(call.run(Data()), 0) << call.name;
        EXPECT_EQ(ZBECODE(), 0) << call.name;
        ZBDINIT(100, 1);
    }
}

TEST_F(DataFile, EveryCallFailsAfterAQuickClose) {
    ASSERT_EQ(Open(People({Anna})), 0);
    ASSERT_EQ(ZBDQCLOSE(), 0);
    for (auto& call : Calls()) {
        EXPECT_EQ(call.run(Data()), -46) << call.name;
        ZBESCODE(0);
    }
}

TEST_F(DataFile, NullOutputsAreRefusedBeforeTheBind) {
    const std::vector<Call> nulls = {
        {"ZBDDSIZE", "Ddsize", [](int16_t h) { return ZBDDSIZE(h, nullptr); }},
        {"ZBDDLUD", "Ddlud", [](int16_t h) { return ZBDDLUD(h, nullptr, 1); }},
        {"ZBDDINFO", "Ddinfo", [](int16_t h) { return ZBDDINFO(h, nullptr); }},
        {"ZBDDRPUT", "Drput", [](int16_t h) { return ZBDDRPUT(h, nullptr, 0); }},
        {"ZBDDRPUTX", "Drput", [](int16_t h) { return ZBDDRPUTX(h, anyText, nullptr, 0); }},
        {"ZBDDRNUM", "Drnum", [](int16_t h) { return ZBDDRNUM(h, nullptr); }},
        {"ZBDDRINFO", "Drinfo", [](int16_t h) { return ZBDDRINFO(h, nullptr); }},
        {"ZBDDRINFOH", "Drinfoh", [](int16_t h) { return ZBDDRINFOH(h, nullptr); }},
    };
    ASSERT_EQ(Open(People({Anna})), 0);
    StartLog();
    for (auto& call : nulls)
        for (int pending : {0, 6, -33})
            for (int16_t h : {Data(), int16_t{50}, int16_t{-1}}) {
                WriteFile("test.log", "");
                ZBESCODE(static_cast<int16_t>(pending));
                EXPECT_EQ(call.run(h), -21) << call.name;
                EXPECT_EQ(Log(), (std::vector<LogEntry>{{call.unit, -21}})) << call.name;
            }
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("a.dbf"), People({Anna}));
}

}  // namespace
}  // namespace test
