
#include "support/data_files.h"
#include "support/environment.h"

namespace test {
namespace {

struct Creation : LibraryTest {
    Environment today{"ZB_TODAY", "1996-02-29"};

    // Creates a file of one field, and tells whether the code was right and
    // nothing was written on a refusal.
    void One(int dialect, const ZbFieldSpec& spec, int32_t code) {
        ZBESCODE(0);
        remove("T.DBF");
        EXPECT_EQ(Create("T.DBF", {spec}, dialect), code)
            << "dialect " << dialect << ", type " << static_cast<char>(spec.type) << ", width "
            << static_cast<int16_t>(spec.width) << ", decimals " << static_cast<int16_t>(spec.decimals);
        EXPECT_EQ(FileExists("T.DBF"), code == 0);
        ZBESCODE(0);
    }
};

constexpr int AllDialects[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
bool LongNumbers(int dialect) { return dialect == 2 || dialect == 4 || dialect == 8; }
int MostFields(int dialect) {
    constexpr int most[] = {0, 128, 255, 128, 128, 1023, 1023, 512, 255, 128};
    return most[dialect];
}

// ---- the bytes ----

const Bytes Name5 =
    Hex("4E 41 4D 45 00 00 00 00 00 00 00 43 00 00 00 00"
        "05 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
const Bytes Born =
    Hex("42 4F 52 4E 00 00 00 00 00 00 00 44 00 00 00 00"
        "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");

TEST_F(Creation, TwoFieldsInDialectOneAre98Bytes) {
    ASSERT_EQ(Create("T.DBF", {Spec("NAME", 'C', 5), Spec("BORN", 'D')}, 1), 0);
    Bytes header =
        Hex("03 1D 02 00 00 00 00 00 61 00 0E 00 00 00 00 00"
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(ReadFile("T.DBF"), header + Name5 + Born + Hex("0D 1A"));
    EXPECT_EQ(FileSize("T.DBF"), 98u);
}

TEST_F(Creation, TwoFieldsInThePaddedDialectAre129Bytes) {
    ASSERT_EQ(Create("T.DBF", {Spec("NAME", 'C', 5), Spec("BORN", 'D')}, 9), 0);
    Bytes header =
        Hex("03 1D 02 00 00 00 00 00 80 00 0E 00 00 00 00 00"
            "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(ReadFile("T.DBF"), header + Name5 + Born + Hex("0D") + Fill(31) + Hex("1A"));
    EXPECT_EQ(FileSize("T.DBF"), 129u);
}

TEST_F(Creation, DescriptorsOfEveryType) {
    ASSERT_EQ(Create("T.DBF",
                     {Spec("n", 'n', 10, 3), Spec("f", 'f', 20, 18), Spec("l", 'l', 7, 7),
                      Spec("m", 'm', 99, 2), Spec("d", 'd', 1, 1), Spec("abcdefghij", 'c', 254, 9)},
                     2 + ZB_Production),
              0);
    // 1 + 10 + 20 + 1 + 10 + 8 + 254 is 304
    EXPECT_EQ(ReadFile("T.DBF"), Hex("8B 1D 02 00 00 00 00 00 E1 00 30 01 00 00 00 00"
                                     "00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00"
                                     "4E 00 00 00 00 00 00 00 00 00 00 4E 00 00 00 00"
                                     "0A 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "46 00 00 00 00 00 00 00 00 00 00 46 00 00 00 00"
                                     "14 12 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "4C 00 00 00 00 00 00 00 00 00 00 4C 00 00 00 00"
                                     "01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "4D 00 00 00 00 00 00 00 00 00 00 4D 00 00 00 00"
                                     "0A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "44 00 00 00 00 00 00 00 00 00 00 44 00 00 00 00"
                                     "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "41 42 43 44 45 46 47 48 49 4A 00 43 00 00 00 00"
                                     "FE 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "0D 1A"));
}

TEST_F(Creation, AWideTextFieldKeepsItsHighByteAtTheDecimals) {
    ASSERT_EQ(Create("T.DBF", {Spec("WIDE", 'C', 2048)}, 6), 0);
    EXPECT_EQ(ReadFile("T.DBF", 32 + 16, 2), Hex("00 08"));
    EXPECT_EQ(ReadFile("T.DBF", 8, 4), Hex("41 00 01 08"));
    ASSERT_EQ(Create("T.DBF", {Spec("WIDE", 'c', 600)}, 6), 0);
    EXPECT_EQ(ReadFile("T.DBF", 32 + 16, 2), Hex("58 02"));
}

TEST_F(Creation, TheVersionTellsOfMemoFields) {
    constexpr int versions[] = {0, 131, 139, 131, 245, 131, 131, 131, 245, 131};
    for (int dialect : AllDialects) {
        ASSERT_EQ(Create("T.DBF", {Spec("A", 'C', 5)}, dialect), 0);
        EXPECT_EQ(ReadFile("T.DBF", 0, 1), Hex("03"));
        ASSERT_EQ(Create("T.DBF", {Spec("A", 'M'), Spec("B", 'C', 5), Spec("C", 'm')}, dialect), 0);
        EXPECT_EQ(ReadFile("T.DBF", 0, 1), Fill(1, versions[dialect])) << dialect;
    }
}

TEST_F(Creation, TheProductionByteInEveryDialect) {
    for (int dialect : AllDialects) {
        ASSERT_EQ(Create("T.DBF", {Spec("A", 'C', 5)}, dialect + ZB_Production), 0);
        EXPECT_EQ(ReadFile("T.DBF", 28, 1), Hex("01"));
        ASSERT_EQ(Create("T.DBF", {Spec("A", 'C', 5)}, dialect), 0);
        EXPECT_EQ(ReadFile("T.DBF", 28, 1), Hex("00"));
    }
}

TEST_F(Creation, AnExistingFileIsReplaced) {
    WriteFile("T.DBF", Fill(5000, 'x'));
    ASSERT_EQ(Create("T.DBF", {Spec("A", 'C', 5)}, 1), 0);
    EXPECT_EQ(FileSize("T.DBF"), 66u);
}

// ---- the caller's array ----

TEST_F(Creation, TheArrayComesBackInUpperCase) {
    Specs specs = {Spec("name", 'c', 5, 7), Spec("Born", 'd', 3, 3), Spec("n_1", 'n', 5, 2),
                   Spec("l", 'l', 9, 9),    Spec("f", 'f', 6, 1),    Spec("m", 'm', 3, 1)};
    ASSERT_EQ(ZBDDCREATE("T.DBF", 6, specs.data(), 2), 0);
    struct {
        const char* name;
        char type;
        int width, decimals;
    } expected[] = {{"NAME", 'C', 5, 0}, {"BORN", 'D', 8, 0}, {"N_1", 'N', 5, 2},
                    {"L", 'L', 1, 0},    {"F", 'F', 6, 1},    {"M", 'M', 10, 0}};
    for (size_t i = 0; i < 6; i++) {
        EXPECT_STREQ(specs[i].name, expected[i].name);
        EXPECT_EQ(specs[i].type, expected[i].type);
        EXPECT_EQ(specs[i].width, expected[i].width);
        EXPECT_EQ(specs[i].decimals, expected[i].decimals);
    }
}

// The fields before the one that fails are done, the ones behind it untouched;
// its type is the last thing to change.
TEST_F(Creation, ARefusalLeavesTheArrayHalfChanged) {
    Specs specs = {Spec("a", 'd'), Spec("b", 'c', 0, 3), Spec("c", 'd')};
    EXPECT_EQ(ZBDDCREATE("T.DBF", 3, specs.data(), 1), -29);
    EXPECT_STREQ(specs[0].name, "A");
    EXPECT_EQ(specs[0].type, 'D');
    EXPECT_EQ(specs[0].width, 8);
    EXPECT_STREQ(specs[1].name, "B");
    EXPECT_EQ(specs[1].type, 'c');
    EXPECT_EQ(specs[1].decimals, 3);
    EXPECT_STREQ(specs[2].name, "c");
    EXPECT_EQ(specs[2].type, 'd');
    ZBESCODE(0);

    Specs sum = ManyFields(17, 'c', 250);  // 16 * 250 is 4000, and the flag makes 4001
    EXPECT_EQ(ZBDDCREATE("T.DBF", 17, sum.data(), 1), -32);
    EXPECT_EQ(sum[14].type, 'C');
    EXPECT_EQ(sum[15].type, 'c');
    EXPECT_EQ(sum[15].decimals, 0);
    EXPECT_FALSE(FileExists("T.DBF"));
}

// ---- the order of the checks ----

TEST_F(Creation, APendingCodeComesFirst) {
    ZBESCODE(-33);
    StartLog();
    EXPECT_EQ(ZBDDCREATE(nullptr, 0, nullptr, 0), -33);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dcreate", -33}}));
}

TEST_F(Creation, NullPointers) {
    ZbFieldSpec spec = Spec("A", 'C', 1);
    StartLog();
    EXPECT_EQ(ZBDDCREATE(nullptr, 0, &spec, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDCREATE("T.DBF", 0, nullptr, 0), -21);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dcreate", -21}, {"Dcreate", -21}}));
}

TEST_F(Creation, AFieldCountBelowOneComesBeforeTheMode) {
    ZbFieldSpec spec = Spec("A", 'C', 1);
    for (int16_t count : {int16_t{0}, int16_t{-1}, int16_t{-32768}}) {
        EXPECT_EQ(ZBDDCREATE("T.DBF", count, &spec, 0), -27);
        ZBESCODE(0);
    }
}

TEST_F(Creation, ModeZeroAndUnknownModes) {
    for (int mode : {0, 10, 255, 256 + 1, 1024 + 1, 512, 512 + 10, -1, -32768})
        One(mode, Spec("A", 'C', 1), -18);
    ZbFieldSpec spec = Spec("", 'x');
    EXPECT_EQ(ZBDDCREATE("", 1, &spec, 0), -18);
}

TEST_F(Creation, TheFieldsComeBeforeTheNameOfTheFile) {
    EXPECT_EQ(Create("", {Spec("", 'C', 1)}, 1), -28);
    ZBESCODE(0);
    EXPECT_EQ(Create("", {Spec("A", 'C', 1)}, 1), -14);
}

TEST_F(Creation, AFileThatCannotBeMade) { EXPECT_EQ(Create("none/T.DBF", {Spec("A", 'C', 1)}, 1), -46); }

TEST_F(Creation, NameComesBeforeTypeAndTypeBeforeWidth) {
    One(1, Spec("", 'x', 0), -28);
    One(1, Spec("A", 'x', 0), -31);
    One(1, Spec("A", 'N', 0, -1), -29);
}

TEST_F(Creation, AWarningDoesNotOutliveASuccess) {
    ASSERT_EQ(ZBDDFLUSH(0), 8);
    EXPECT_EQ(Create("T.DBF", {Spec("A", 'C', 1)}, 1), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Creation, EveryRefusalIsLoggedOnce) {
    auto Refused = [&](const ZbFieldSpec& spec, int16_t code) {
        StartLog();
        EXPECT_EQ(Create("T.DBF", {spec}, 1), code);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dcreate", code}}));
        ZBESCODE(0);
    };
    Refused(Spec("", 'C', 1), -28);
    Refused(Spec("A", 'X', 1), -31);
    Refused(Spec("A", 'F', 5), -31);
    Refused(Spec("A", 'C', 0), -29);
    Refused(Spec("A", 'N', 0), -29);
    Refused(Spec("A", 'N', 5, -1), -30);
    Refused(Spec("A", 'N', 5, 4), -30);
}

// ---- limits ----

TEST_F(Creation, FieldCounts) {
    for (int dialect : AllDialects) {
        int most = MostFields(dialect);
        EXPECT_EQ(Create("T.DBF", ManyFields(most + 1, 'C', 1), dialect), -27) << dialect;
        ZBESCODE(0);
        EXPECT_FALSE(FileExists("T.DBF"));
        EXPECT_EQ(Create("T.DBF", ManyFields(most, 'C', 1), dialect), 0) << dialect;
        remove("T.DBF");
    }
}

TEST_F(Creation, NamesHave1To10Characters) {
    One(1, Spec("", 'C', 1), -28);
    One(1, Spec("ABCDEFGHIJ", 'C', 1), 0);
    One(1, Spec("ABCDEFGHIJK", 'C', 1), -28);
    One(1, Spec("ABCDEFGHIJKL", 'C', 1), -28);  // without a terminator
}

TEST_F(Creation, TextWidths) {
    for (int dialect : AllDialects) {
        int widest = dialect == 6 ? 2048 : 254;
        One(dialect, Spec("A", 'C', 0), -29);
        One(dialect, Spec("A", 'C', 1), 0);
        One(dialect, Spec("A", 'C', widest), 0);
        One(dialect, Spec("A", 'C', widest + 1), -29);
        One(dialect, Spec("A", 'C', -1), -29);
        One(dialect, Spec("A", 'C', -32768), -29);
    }
}

TEST_F(Creation, NumberWidths) {
    for (int dialect : AllDialects) {
        int widest = LongNumbers(dialect) ? 20 : 19;
        One(dialect, Spec("A", 'N', 0), -29);
        One(dialect, Spec("A", 'N', -1), -29);
        One(dialect, Spec("A", 'N', 1), 0);
        One(dialect, Spec("A", 'N', widest), 0);
        One(dialect, Spec("A", 'N', widest + 1), -29);
    }
    One(1, Spec("A", 'N', 20, 2), -29);
    One(2, Spec("A", 'N', 20, 2), 0);
}

TEST_F(Creation, NumberDecimals) {
    for (int dialect : AllDialects) {
        One(dialect, Spec("A", 'N', 5, 3), 0);
        One(dialect, Spec("A", 'N', 5, 4), -30);
        One(dialect, Spec("A", 'N', 5, -1), -30);
        One(dialect, Spec("A", 'N', 2, 1), -30);
        One(dialect, Spec("A", 'N', 3, 1), 0);
        One(dialect, Spec("A", 'N', 19, 15), 0);
        One(dialect, Spec("A", 'N', 19, 16), LongNumbers(dialect) ? 0 : -30);
        One(dialect, Spec("A", 'N', 19, 18), -30);
    }
    One(2, Spec("A", 'N', 20, 16), 0);
    One(2, Spec("A", 'N', 20, 18), 0);
    One(2, Spec("A", 'N', 20, 19), -30);
}

TEST_F(Creation, FloatFieldsInThreeDialects) {
    for (int dialect : AllDialects) {
        One(dialect, Spec("A", 'F', 10, 2), LongNumbers(dialect) ? 0 : -31);
        One(dialect, Spec("A", 'f', 10, 9), LongNumbers(dialect) ? -30 : -31);
        One(dialect, Spec("A", 'F', 0), LongNumbers(dialect) ? -29 : -31);
        One(dialect, Spec("A", 'F', 20), LongNumbers(dialect) ? 0 : -31);
        One(dialect, Spec("A", 'F', 21), LongNumbers(dialect) ? -29 : -31);
    }
}

TEST_F(Creation, UnknownTypes) {
    for (int type : std::vector<int>{0, ' ', 'X', 'x', 'B', '@', '[', 'c' + 256, 'C' + 256, 0xFFFF})
        One(2, Spec("A", type, 5), -31);
}

TEST_F(Creation, RecordLengths) {
    for (int dialect : AllDialects) {
        int longest = dialect == 6 ? 8192 : 4000;
        Specs specs;
        int left = longest - 1;
        for (; left > 254; left -= 254) specs.push_back(Spec("F" + std::to_string(specs.size()), 'C', 254));
        specs.push_back(Spec("LAST", 'C', left));
        EXPECT_EQ(Create("T.DBF", specs, dialect), 0) << dialect;
        specs.back().width++;
        EXPECT_EQ(Create("U.DBF", specs, dialect), -32) << dialect;
        ZBESCODE(0);
        EXPECT_FALSE(FileExists("U.DBF"));
    }
}

TEST_F(Creation, TheRecordLimitIsCheckedAtEachField) {
    // The fifth field is over the limit; what else is wrong with the sixth isn't looked at.
    Specs specs = ManyFields(6, 'C', 2000);
    specs[5].type = 'X';
    EXPECT_EQ(Create("T.DBF", specs, 6), -32);
}

// ---- creation and open ----

TEST_F(Creation, WhatIsCreatedOpensInItsDialect) {
    for (int dialect : AllDialects) {
        Specs specs = {Spec("C", 'C', 7), Spec("D", 'D'), Spec("L", 'L'), Spec("M", 'M'),
                       Spec("N", 'N', 19, 2)};
        if (LongNumbers(dialect)) specs.push_back(Spec("F", 'F', 20, 18));
        if (dialect == 6) specs.push_back(Spec("WIDE", 'C', 2048));
        int16_t data = CreateAndOpen("T.DBF", specs, dialect);
        ASSERT_GE(data, 0);
        ZbDataInfo info{};
        ASSERT_EQ(ZBDDINFO(data, &info), 0);
        EXPECT_EQ(+info.dialect, dialect);
        EXPECT_EQ(+info.hasMemo, 1);
        ZbFieldSpec read[8] = {};
        uint16_t width = 0;
        ASSERT_EQ(ZBDDFINFO(data, &width, read), 0);
        for (size_t i = 0; i < specs.size(); i++) {
            EXPECT_STREQ(read[i].name, specs[i].name);
            EXPECT_EQ(read[i].type, specs[i].type);
        }
        EXPECT_EQ(read[4].width, 19);
        EXPECT_EQ(read[4].decimals, 2);
        EXPECT_EQ(width, dialect == 6 ? 2048 : LongNumbers(dialect) ? 20 : 19);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
    }
}

TEST_F(Creation, TheMostFieldsOpenAgain) {
    for (int dialect : AllDialects) {
        int most = std::min(MostFields(dialect), 1022);
        int16_t data = CreateAndOpen("T.DBF", ManyFields(most, 'C', 1), dialect);
        ASSERT_GE(data, 0);
        ZbDataRecordInfo info{};
        ASSERT_EQ(ZBDDRINFO(data, &info), 0);
        EXPECT_EQ(info.fieldCount, most);
        EXPECT_EQ(info.recordLength, most + 1);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
    }
}

// The header length, 32769, is a negative number to whoever reads it.
TEST_F(Creation, TheLastFieldTooManyForAnOpen) {
    ASSERT_EQ(Create("T.DBF", ManyFields(1023, 'C', 1), 5), 0);
    EXPECT_EQ(ReadFile("T.DBF", 8, 4), Hex("01 80 00 04"));
    EXPECT_EQ(FileSize("T.DBF"), 32770u);
    uint16_t handle = 0;
    EXPECT_EQ(ZBDDOPENX(&handle, "T.DBF", 5), -19);
}

TEST_F(Creation, MemoFilesOpenWhereTheirVersionIsKnown) {
    for (int made : {1, 2, 4}) {
        ASSERT_EQ(Create("T.DBF", {Spec("M", 'M')}, made), 0);
        for (int dialect : AllDialects) {
            bool fits = made == 4   ? dialect == 4 || dialect == 8
                        : made == 2 ? dialect == 2
                                    : dialect != 4 && dialect != 8;
            uint16_t handle = 0;
            EXPECT_EQ(ZBDDOPENX(&handle, "T.DBF", static_cast<uint16_t>(dialect)), fits ? 0 : -18)
                << made << " as " << dialect;
            ZBESCODE(0);
            if (fits) ZBDDCLOSE(static_cast<int16_t>(handle));
        }
    }
}

}  // namespace
}  // namespace test
