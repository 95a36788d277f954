#include <cmath>
#include <limits>

#include "support/data_files.h"

namespace test {
namespace {

struct Field : LibraryTest {
    int16_t data = -1;

    void Make(const Specs& specs, int dialect = ZB_DialectDb4) {
        data = CreateAndOpen("T.DBF", specs, dialect);
    }
    void MakeOne(int type, int width = 0, int decimals = 0) { Make({Spec("VALUE", type, width, decimals)}); }

    int32_t PutNumber(double value, int fieldNo = 0) {
        return ZBDDFPUT(data, static_cast<int16_t>(fieldNo), &value);
    }
    double GetNumber(int fieldNo = 0) {
        double value = -77;
        EXPECT_EQ(ZBDDFGET(data, static_cast<int16_t>(fieldNo), &value), 0);
        return value;
    }
    uint32_t GetMemo(const Bytes& bytes) {
        SetRecord(data, " " + bytes);
        uint32_t value = 77;
        EXPECT_EQ(ZBDDFGET(data, 0, &value), 0);
        return value;
    }
    // What a read of a logical field that holds the byte stores over an 'x'.
    char GetLogical(char byte) {
        RecordOf(data)[1] = byte;
        char value = 'x';
        EXPECT_EQ(ZBDDFGET(data, 0, &value), 0);
        return value;
    }
    // What comes into the record by a write of the byte over a blank.
    char PutLogical(char byte, int32_t code) {
        RecordOf(data)[1] = ' ';
        EXPECT_EQ(ZBDDFPUT(data, 0, &byte), code);
        ZBESCODE(0);
        return RecordOf(data)[1];
    }
};

// ---- text ----

TEST_F(Field, TextTooLongIsCutWithAWarning) {
    MakeOne('C', 3);
    StartLog();
    EXPECT_EQ(ZBDDFPUT(data, 0, "ABCDE"), 5);
    EXPECT_EQ(ZBECODE(), 5);
    EXPECT_EQ(RecordBytes(data), " ABC");
    EXPECT_TRUE(Log().empty());
}

TEST_F(Field, TextIsPaddedAndKeepsItsBlanksWhenRead) {
    MakeOne('C', 5);
    SetRecord(data, " 12345");
    EXPECT_EQ(ZBDDFPUT(data, 0, "ab"), 0);
    EXPECT_EQ(RecordBytes(data), " ab   ");
    char text[7] = "??????";
    EXPECT_EQ(ZBDDFGET(data, 0, text), 0);
    EXPECT_EQ(Bytes(text, 7), Bytes("ab   \0\0", 7));
}

TEST_F(Field, TextThatFillsTheFieldIsNoWarning) {
    MakeOne('C', 3);
    EXPECT_EQ(ZBDDFPUT(data, 0, "ABC"), 0);
    EXPECT_EQ(ZBDDFPUT(data, 0, ""), 0);
    EXPECT_EQ(RecordBytes(data), "    ");
}

TEST_F(Field, TextWiderThan255) {
    Make({Spec("WIDE", 'C', 2048), Spec("LAST", 'C', 1)}, ZB_DialectWideChar);
    Bytes text = Fill(2047, 'x') + "y";
    EXPECT_EQ(ZBDDFPUT(data, 0, text.c_str()), 0);
    EXPECT_EQ(ZBDDFPUT(data, 1, "z"), 0);
    EXPECT_EQ(RecordBytes(data), " " + text + "z");
    char read[2049];
    EXPECT_EQ(ZBDDFGET(data, 0, read), 0);
    EXPECT_EQ(Bytes(read), text);
}

TEST_F(Field, AWriteTouchesItsFieldAlone) {
    Make({Spec("A", 'C', 2), Spec("B", 'N', 4, 1), Spec("C", 'C', 2)});
    SetRecord(data, "*aabbbbcc");
    EXPECT_EQ(PutNumber(1.5, 1), 0);
    EXPECT_EQ(RecordBytes(data), "*aa 1.5cc");
}

// ---- numbers ----

TEST_F(Field, NumberIsRightAligned) {
    MakeOne('N', 10, 2);
    EXPECT_EQ(PutNumber(3.5), 0);
    EXPECT_EQ(RecordBytes(data), "       3.50");
    EXPECT_EQ(GetNumber(), 3.5);
}

TEST_F(Field, NumberRoundedByTheFormatterWarns) {
    MakeOne('N', 5, 2);
    StartLog();
    EXPECT_EQ(PutNumber(1.005), 6);  // the double is a little below 1.005
    EXPECT_EQ(RecordBytes(data), "  1.00");
    EXPECT_EQ(PutNumber(1.006), 6);
    EXPECT_EQ(RecordBytes(data), "  1.01");
    EXPECT_EQ(PutNumber(0.125), 6);
    EXPECT_EQ(RecordBytes(data), "  0.12");
    EXPECT_EQ(PutNumber(1.25), 0);
    EXPECT_TRUE(Log().empty());
}

TEST_F(Field, NumberAboveTheLargestIsRefusedAndTheFieldKept) {
    MakeOne('N', 5, 2);
    SetRecord(data, "  1.25");
    StartLog();
    EXPECT_EQ(PutNumber(100.0), -33);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfieldput", -33}}));
    ZBESCODE(0);
    EXPECT_EQ(RecordBytes(data), "  1.25");
}

TEST_F(Field, TheLargestNumberFits) {
    MakeOne('N', 5, 2);
    EXPECT_EQ(PutNumber(99.99), 0);
    EXPECT_EQ(RecordBytes(data), " 99.99");
    EXPECT_EQ(PutNumber(99.994), 6);
    EXPECT_EQ(RecordBytes(data), " 99.99");
    EXPECT_EQ(PutNumber(99.996), -33);  // rounds to 100.00
}

TEST_F(Field, NegativeNumberTooLongKeepsItsFirstCharacters) {
    MakeOne('N', 6, 2);
    EXPECT_EQ(PutNumber(-12345.678), 6);
    EXPECT_EQ(RecordBytes(data), " -12345");
    EXPECT_EQ(PutNumber(-1e300), 0);
    EXPECT_EQ(RecordBytes(data), " -10000");
}

TEST_F(Field, InfinityIsAboveEveryField) {
    MakeOne('N', 10, 2);
    EXPECT_EQ(PutNumber(std::numeric_limits<double>::infinity()), -33);
    ZBESCODE(0);
    EXPECT_EQ(PutNumber(1e308), -33);
    ZBESCODE(0);
    EXPECT_EQ(RecordBytes(data), "           ");
    EXPECT_EQ(PutNumber(-std::numeric_limits<double>::infinity()), 0);
    EXPECT_EQ(RecordBytes(data), "       -inf");
}

// It is above nothing, and differs from itself.
TEST_F(Field, NotANumberIsStoredAsTextWithAWarning) {
    MakeOne('N', 10, 2);
    EXPECT_EQ(PutNumber(std::numeric_limits<double>::quiet_NaN()), 6);
    EXPECT_EQ(RecordBytes(data), "        nan");
    EXPECT_TRUE(std::isnan(GetNumber()));
}

TEST_F(Field, FloatFieldsWorkLikeNumbers) {
    MakeOne('F', 20, 16);
    EXPECT_EQ(PutNumber(0.5), 0);
    EXPECT_EQ(RecordBytes(data), "   0.5000000000000000");
    EXPECT_EQ(GetNumber(), 0.5);
}

TEST_F(Field, NumberTextOfOtherWritersIsReadLikeAScannerDoes) {
    Make({Spec("N", 'N', 8, 2), Spec("C", 'C', 2)});
    struct {
        const char* text;
        double value;
    } cases[] = {{"     -12", -12}, {"12      ", 12},   {"  1 2   ", 1},   {"1.5abc  ", 1.5},
                 {"     .5 ", 0.5}, {"1e3     ", 1000}, {"+7      ", 7},   {"abc     ", 0},
                 {"        ", 0},   {"        ", 0},    {"\t\n   2  ", 2}, {"12345678", 12345678}};
    for (auto& [text, value] : cases) {
        SetRecord(data, Bytes(" ") + text + "99");
        EXPECT_EQ(GetNumber(), value) << text;
    }
    SetRecord(data, Bytes(" 12\0003456 99", 11));
    EXPECT_EQ(GetNumber(), 12);
}

TEST_F(Field, BlankNumberIsZeroWhereverItStands) {
    Make({Spec("A", 'N', 4), Spec("B", 'C', 2), Spec("C", 'N', 4)});
    EXPECT_EQ(GetNumber(0), 0.0);
    SetRecord(data, "     99    ");
    EXPECT_EQ(GetNumber(0), 0.0);
    EXPECT_EQ(GetNumber(2), 0.0);
}

// ---- dates ----

TEST_F(Field, BlankDateAtTheEndGivesTheStylesBlankText) {
    Make({Spec("A", 'C', 2), Spec("D", 'D')});
    SetRecord(data, " xx        ");
    const size_t lengths[] = {8, 10, 8, 8, 6, 8, 10, 8, 10, 8, 10, 8, 10, 8, 10};
    for (uint16_t style = 1; style <= 15; style++) {
        ASSERT_EQ(ZBCDSTYLE(style), 0);
        char text[12];
        memset(text, '#', sizeof text);
        EXPECT_EQ(ZBDDFGET(data, 1, text), 0);
        EXPECT_EQ(Bytes(text), Fill(lengths[style - 1], ' ')) << style;
    }
}

TEST_F(Field, BlankDateBeforeBlankFieldsIsBlank) {
    Make({Spec("D", 'D'), Spec("A", 'C', 200)});
    char text[12];
    EXPECT_EQ(ZBDDFGET(data, 0, text), 0);
    EXPECT_EQ(Bytes(text), "        ");
}

TEST_F(Field, BlankDateBeforeTextIsAnInvalidDate) {
    Make({Spec("D", 'D'), Spec("A", 'C', 2)});
    SetRecord(data, "          x");
    StartLog();
    char text[12] = "";
    EXPECT_EQ(ZBDDFGET(data, 0, text), -15);
    EXPECT_EQ(Bytes(text), "        ");
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"I2s", -15}, {"Dfieldget", -15}}));
}

TEST_F(Field, DateComesInTheCurrentStyle) {
    Make({Spec("D", 'D'), Spec("A", 'C', 2)});
    SetRecord(data, " 19960229xx");
    const char* texts[] = {"02/29/96",   "02/29/1996", "1996/060",   "19960229",   "290296",
                           "29.02.96",   "29.02.1996", "29/02/96",   "29/02/1996", "29/02/96",
                           "29/02/1996", "29-02-96",   "29-02-1996", "96.02.29",   "1996.02.29"};
    for (uint16_t style = 1; style <= 15; style++) {
        ASSERT_EQ(ZBCDSTYLE(style), 0);
        char text[12];
        EXPECT_EQ(ZBDDFGET(data, 0, text), 0);
        EXPECT_EQ(Bytes(text), texts[style - 1]);
    }
}

TEST_F(Field, ADateThatIsNoneLeavesItsCharactersInTheValue) {
    MakeOne('D');
    for (const char* bad : {"19960230", "19961301", "20010229", "ABCDEFGH", "1996 229", "00000000"}) {
        SetRecord(data, Bytes(" ") + bad);
        char text[12] = "";
        EXPECT_EQ(ZBDDFGET(data, 0, text), -15) << bad;
        EXPECT_EQ(Bytes(text), bad);
        ZBESCODE(0);
    }
}

TEST_F(Field, ADateBeginningWithAZeroByteIsBlank) {
    Make({Spec("D", 'D'), Spec("A", 'C', 2)});
    SetRecord(data, Bytes(" \0009960229xx", 11));
    char text[12];
    EXPECT_EQ(ZBDDFGET(data, 0, text), 0);
    EXPECT_EQ(Bytes(text), "        ");
}

TEST_F(Field, DateIsReadInTheCurrentStyleAndStoredAsDigits) {
    MakeOne('D');
    EXPECT_EQ(ZBDDFPUT(data, 0, "02/29/96"), 0);
    EXPECT_EQ(RecordBytes(data), " 19960229");
    ASSERT_EQ(ZBCDSTYLE(7), 0);
    EXPECT_EQ(ZBDDFPUT(data, 0, "31.12.2025"), 0);
    EXPECT_EQ(RecordBytes(data), " 20251231");
    ASSERT_EQ(ZBCDSTYLE(4), 0);
    EXPECT_EQ(ZBDDFPUT(data, 0, "00010101"), 0);
    EXPECT_EQ(RecordBytes(data), " 00010101");
}

TEST_F(Field, BlankDatesStoreBlanks) {
    MakeOne('D');
    for (const char* blank : {"", "   ", "                              ", "  /  /  "}) {
        SetRecord(data, " 19960229");
        EXPECT_EQ(ZBDDFPUT(data, 0, blank), 0) << blank;
        EXPECT_EQ(ZBECODE(), 0);
        EXPECT_EQ(RecordBytes(data), "         ");
    }
    // The blank form of the day of the year is measured with its blanks in front.
    ASSERT_EQ(ZBCDSTYLE(3), 0);
    SetRecord(data, " 19960229");
    EXPECT_EQ(ZBDDFPUT(data, 0, "    /   "), 0);
    EXPECT_EQ(RecordBytes(data), "         ");
}

TEST_F(Field, InvalidDateIsRefusedAndTheFieldKept) {
    MakeOne('D');
    SetRecord(data, " 19960229");
    StartLog();
    EXPECT_EQ(ZBDDFPUT(data, 0, "02/30/96"), -15);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"S2i", -15}, {"Dfieldput", -15}}));
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFPUT(data, 0, "//"), -15);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFPUT(data, 0, "  02/29/96"), -15);  // ten characters
    ZBESCODE(0);
    EXPECT_EQ(RecordBytes(data), " 19960229");
}

// ---- logicals ----

TEST_F(Field, LogicalIsReadByItsFirstByte) {
    MakeOne('L');
    for (char c : {'T', 'Y', 'y', '\1'}) EXPECT_EQ(GetLogical(c), 1) << c;
    for (char c : {'F', 'f', 'N', 'n'}) EXPECT_EQ(GetLogical(c), 0) << c;
    for (char c : {'t', '?', '0', '1', 'x', '\xFF'}) EXPECT_EQ(GetLogical(c), 'x') << c;
}

TEST_F(Field, SmallTIsStoredAsTrueButNotReadAsTrue) {
    MakeOne('L');
    EXPECT_EQ(PutLogical('t', 0), 'T');
    EXPECT_EQ(GetLogical('t'), 'x');
}

TEST_F(Field, BlankLogicalAsTheLastFieldIsAQuestionMark) {
    Make({Spec("A", 'C', 2), Spec("L", 'L')});
    SetRecord(data, " xx ");
    char value = 'x';
    EXPECT_EQ(ZBDDFGET(data, 1, &value), 0);
    EXPECT_EQ(value, '?');
}

TEST_F(Field, BlankLogicalBeforeTextLeavesTheValueAlone) {
    Make({Spec("L", 'L'), Spec("A", 'C', 2)});
    SetRecord(data, "   x");
    EXPECT_EQ(GetLogical(' '), 'x');
    SetRecord(data, "    ");
    EXPECT_EQ(GetLogical(' '), '?');
}

TEST_F(Field, AZeroByteInALogicalCountsAsBlank) {
    Make({Spec("L", 'L'), Spec("A", 'C', 2)});
    SetRecord(data, "  xx");
    EXPECT_EQ(GetLogical('\0'), '?');
}

TEST_F(Field, LogicalIsWrittenAsTOrF) {
    MakeOne('L');
    for (char c : {'T', 't', 'Y', 'y', '\1'}) EXPECT_EQ(PutLogical(c, 0), 'T') << c;
    for (char c : {'F', 'f', 'N', 'n', '\0'}) EXPECT_EQ(PutLogical(c, 0), 'F') << c;
}

TEST_F(Field, UnknownLogicalIsRefused) {
    MakeOne('L');
    for (char c : {'?', ' ', '0', '1', '\2', 'x', '\xFF'}) EXPECT_EQ(PutLogical(c, -33), ' ') << c;
    StartLog();
    char value = '?';
    EXPECT_EQ(ZBDDFPUT(data, 0, &value), -33);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfieldput", -33}}));
}

// ---- memo fields ----

TEST_F(Field, MemoBlockNumberIsTextOfTenCharacters) {
    MakeOne('M');
    uint32_t block = 17;
    EXPECT_EQ(ZBDDFPUT(data, 0, &block), 0);
    EXPECT_EQ(RecordBytes(data), "         17");
    block = 0;
    EXPECT_EQ(ZBDDFPUT(data, 0, &block), 0);
    EXPECT_EQ(RecordBytes(data), "          0");
}

TEST_F(Field, MemoBlockNumbersBeyond31BitsComeBack) {
    MakeOne('M');
    for (uint32_t block : {2147483647u, 2147483648u, 4294967295u}) {
        EXPECT_EQ(ZBDDFPUT(data, 0, &block), 0);
        EXPECT_EQ(RecordBytes(data), " " + std::to_string(block));
        uint32_t read = 0;
        EXPECT_EQ(ZBDDFGET(data, 0, &read), 0);
        EXPECT_EQ(read, block);
    }
}

TEST_F(Field, MemoTextOfOtherWriters) {
    MakeOne('M');
    EXPECT_EQ(GetMemo("          "), 0u);
    EXPECT_EQ(GetMemo("0000000017"), 17u);
    EXPECT_EQ(GetMemo("17        "), 17u);
    EXPECT_EQ(GetMemo("   +17x   "), 17u);
    EXPECT_EQ(GetMemo("        -1"), 4294967295u);
    EXPECT_EQ(GetMemo("x         "), 0u);
    EXPECT_EQ(GetMemo("   1 7    "), 1u);
    EXPECT_EQ(GetMemo("4294967296"), 0u);
    EXPECT_EQ(GetMemo("9999999999"), 1410065407u);
}

TEST_F(Field, BlankMemoBeforeTextIsZero) {
    Make({Spec("M", 'M'), Spec("A", 'C', 2)});
    SetRecord(data, "           99");
    uint32_t value = 77;
    EXPECT_EQ(ZBDDFGET(data, 0, &value), 0);
    EXPECT_EQ(value, 0u);
}

// ---- the text forms ----

TEST_F(Field, TextFormsMoveTheBytesOfEveryType) {
    Make({Spec("D", 'D'), Spec("N", 'N', 5, 1), Spec("L", 'L'), Spec("M", 'M')});
    ASSERT_EQ(ZBCDSTYLE(7), 0);
    SetRecord(data, " 19960229  1.5T         3");
    const char* texts[] = {"19960229", "  1.5", "T", "         3"};
    for (int16_t i = 0; i < 4; i++) {
        char text[12] = "";
        EXPECT_EQ(ZBDDFGETS(data, i, text), 0);
        EXPECT_EQ(Bytes(text), texts[i]);
    }
    EXPECT_EQ(ZBDDFPUTS(data, 0, "no date"), 0);
    EXPECT_EQ(ZBDDFPUTS(data, 1, "x"), 0);
    EXPECT_EQ(ZBDDFPUTS(data, 2, "yes"), 5);
    EXPECT_EQ(ZBDDFPUTS(data, 3, ""), 0);
    EXPECT_EQ(RecordBytes(data), " no date x    y          ");
}

// ---- by name ----

TEST_F(Field, NamesAreFoundInAnyCase) {
    Make({Spec("FIRST", 'C', 3), Spec("NAME", 'C', 3)});
    int16_t number = -7;
    EXPECT_EQ(ZBDDFNAM2NO(data, &number, "name"), 0);
    EXPECT_EQ(number, 1);
    EXPECT_EQ(ZBDDFNAM2NO(data, &number, "First"), 0);
    EXPECT_EQ(number, 0);
}

TEST_F(Field, TheFirstOfTwoEqualNamesIsFound) {
    Make({Spec("A", 'C', 1), Spec("SAME", 'C', 1), Spec("SAME", 'C', 1)});
    int16_t number = -7;
    EXPECT_EQ(ZBDDFNAM2NO(data, &number, "same"), 0);
    EXPECT_EQ(number, 1);
}

TEST_F(Field, NamesAreComparedInFull) {
    Make({Spec("ABCDEFGHIJ", 'C', 3), Spec("AB", 'C', 3)});
    int16_t number = -7;
    for (const char* name : {"ABCDEFGHIJK", "ABCDEFGHI", "A", "ABC", "", " AB", "AB "}) {
        StartLog();
        EXPECT_EQ(ZBDDFNAM2NO(data, &number, name), -28) << name;
        EXPECT_EQ(number, 2);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfnam2no", -28}}));
        ZBESCODE(0);
    }
    EXPECT_EQ(ZBDDFNAM2NO(data, &number, "ab"), 0);
    EXPECT_EQ(number, 1);
}

TEST_F(Field, NameFormsReadAndWrite) {
    Make({Spec("A", 'C', 2), Spec("N", 'N', 5, 1)});
    double value = 2.5, read = 0;
    EXPECT_EQ(ZBDDFNPUT(data, "n", &value), 0);
    EXPECT_EQ(ZBDDFNGET(data, "n", &read), 0);
    EXPECT_EQ(read, 2.5);
    EXPECT_EQ(ZBDDFNPUTS(data, "a", "xyz"), 5);
    char text[6];
    EXPECT_EQ(ZBDDFNGETS(data, "N", text), 0);
    EXPECT_EQ(Bytes(text), "  2.5");
    EXPECT_EQ(RecordBytes(data), " xy  2.5");
}

TEST_F(Field, NameFormsLogAFailedSearchOnceMore) {
    MakeOne('C', 3);
    char text[8] = "same";
    StartLog();
    EXPECT_EQ(ZBDDFNGET(data, "NONE", text), -28);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFNGETS(data, "NONE", text), -28);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFNPUT(data, "NONE", text), -28);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFNPUTS(data, "NONE", text), -28);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfnam2no", -28},
                                            {"Dfnget", -28},
                                            {"Dfnam2no", -28},
                                            {"Dfngets", -28},
                                            {"Dfnam2no", -28},
                                            {"Dfnput", -28},
                                            {"Dfnam2no", -28},
                                            {"Dfnputs", -28}}));
    ZBESCODE(0);
    EXPECT_EQ(Bytes(text), "same");
    EXPECT_EQ(RecordBytes(data), "    ");
}

TEST_F(Field, NumberToName) {
    Make({Spec("first", 'C', 3), Spec("ABCDEFGHIJ", 'C', 3)});
    char name[11] = "";
    EXPECT_EQ(ZBDDFNO2NAM(data, name, 1), 0);
    EXPECT_EQ(Bytes(name), "ABCDEFGHIJ");
    EXPECT_EQ(ZBDDFNO2NAM(data, name, 0), 0);
    EXPECT_EQ(Bytes(name), "FIRST");
    for (int16_t number : {int16_t{2}, int16_t{-1}, int16_t{-32768}, int16_t{32767}}) {
        StartLog();
        EXPECT_EQ(ZBDDFNO2NAM(data, name, number), -27);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfno2nam", -27}}));
        ZBESCODE(0);
    }
    EXPECT_EQ(Bytes(name), "FIRST");
}

TEST_F(Field, InfoDescribesAllFields) {
    Make({Spec("NAME", 'C', 600), Spec("BORN", 'D'), Spec("N", 'N', 10, 3), Spec("YES", 'L'),
          Spec("NOTE", 'M')},
         ZB_DialectWideChar);
    ZbFieldSpec specs[5];
    memset(specs, '#', sizeof specs);
    uint16_t maxWidth = 0;
    EXPECT_EQ(ZBDDFINFO(data, &maxWidth, specs), 0);
    EXPECT_EQ(maxWidth, 600);
    // 600 is 2 * 256 + 88, and the decimals byte of a C field is the 2.
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&specs[0]), 18), Bytes("NAME\0#######C\0\x58\x02\2\0", 18));
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&specs[1]), 18), Bytes("BORN\0#######D\0\x08\0\0\0", 18));
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&specs[2]), 18), Bytes("N\0##########N\0\x0A\0\3\0", 18));
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&specs[3]), 18), Bytes("YES\0########L\0\x01\0\0\0", 18));
    EXPECT_EQ(Bytes(reinterpret_cast<char*>(&specs[4]), 18), Bytes("NOTE\0#######M\0\x0A\0\0\0", 18));
}

// ---- arguments ----

TEST_F(Field, FieldNumberOutOfRange) {
    MakeOne('C', 3);
    char text[8] = "same";
    for (int16_t number : {int16_t{-1}, int16_t{1}, int16_t{32767}, int16_t{-32768}}) {
        StartLog();
        EXPECT_EQ(ZBDDFGET(data, number, text), -27);
        ZBESCODE(0);
        EXPECT_EQ(ZBDDFGETS(data, number, text), -27);
        ZBESCODE(0);
        EXPECT_EQ(ZBDDFPUT(data, number, text), -27);
        ZBESCODE(0);
        EXPECT_EQ(ZBDDFPUTS(data, number, text), -27);
        ZBESCODE(0);
        EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfieldbind", -27},
                                                {"Dfget", -27},
                                                {"Dfieldbind", -27},
                                                {"Dfgets", -27},
                                                {"Dfieldbind", -27},
                                                {"Dfput", -27},
                                                {"Dfieldbind", -27},
                                                {"Dfputs", -27}}));
    }
    EXPECT_EQ(Bytes(text), "same");
}

TEST_F(Field, WrongHandles) {
    MakeOne('C', 3);
    char text[32] = "";
    int16_t number = -7;
    uint16_t width = 7;
    ZbFieldSpec spec;
    for (int16_t wrong : {int16_t{-1}, int16_t(data + 1), int16_t{95}, int16_t{32767}}) {
        auto Refused = [](int32_t code) {
            EXPECT_EQ(code, -13);
            ZBESCODE(0);
        };
        Refused(ZBDDFGET(wrong, 0, text));
        Refused(ZBDDFGETS(wrong, 0, text));
        Refused(ZBDDFPUT(wrong, 0, text));
        Refused(ZBDDFPUTS(wrong, 0, text));
        Refused(ZBDDFNGET(wrong, "VALUE", text));
        Refused(ZBDDFNGETS(wrong, "VALUE", text));
        Refused(ZBDDFNPUT(wrong, "VALUE", text));
        Refused(ZBDDFNPUTS(wrong, "VALUE", text));
        Refused(ZBDDFNAM2NO(wrong, &number, "VALUE"));
        Refused(ZBDDFNO2NAM(wrong, text, 0));
        Refused(ZBDDFINFO(wrong, &width, &spec));
        // The handle is looked at before the value's pointer.
        Refused(ZBDDFGET(wrong, 0, nullptr));
        Refused(ZBDDFPUT(wrong, 0, nullptr));
    }
    EXPECT_EQ(number, -7);
    EXPECT_EQ(width, 7);
    EXPECT_EQ(Bytes(text), "");
    StartLog();
    ZBDDFGET(-1, 0, text);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfieldbind", -13}, {"Dfget", -13}}));
}

TEST_F(Field, NullValues) {
    MakeOne('C', 3);
    SetRecord(data, " abc");
    auto Refused = [](int32_t code) {
        EXPECT_EQ(code, -21);
        EXPECT_EQ(ZBECODE(), -21);
        ZBESCODE(0);
    };
    Refused(ZBDDFGET(data, 0, nullptr));
    Refused(ZBDDFGETS(data, 0, nullptr));
    Refused(ZBDDFPUT(data, 0, nullptr));
    Refused(ZBDDFPUTS(data, 0, nullptr));
    Refused(ZBDDFNGET(data, "VALUE", nullptr));
    Refused(ZBDDFNGETS(data, "VALUE", nullptr));
    Refused(ZBDDFNPUT(data, "VALUE", nullptr));
    Refused(ZBDDFNPUTS(data, "VALUE", nullptr));
    EXPECT_EQ(RecordBytes(data), " abc");
    // The number of the field comes first.
    EXPECT_EQ(ZBDDFGET(data, 1, nullptr), -27);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFNGET(data, "NONE", nullptr), -28);
    ZBESCODE(0);
    StartLog();
    EXPECT_EQ(ZBDDFGET(data, 0, nullptr), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDDFPUT(data, 0, nullptr), -21);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dfieldget", -21}, {"Dfieldput", -21}}));
}

// These come before the bind, and so before a pending code.
TEST_F(Field, NullNamesAndOutputs) {
    MakeOne('C', 3);
    char text[8] = "";
    int16_t number = 0;
    uint16_t width = 0;
    ZbFieldSpec spec;
    auto Refused = [](int32_t code) {
        EXPECT_EQ(code, -21);
        ZBESCODE(-33);
    };
    ZBESCODE(-33);
    Refused(ZBDDFNGET(data, nullptr, text));
    Refused(ZBDDFNGETS(data, nullptr, text));
    Refused(ZBDDFNPUT(data, nullptr, text));
    Refused(ZBDDFNPUTS(data, nullptr, text));
    Refused(ZBDDFNAM2NO(data, &number, nullptr));
    Refused(ZBDDFNAM2NO(data, nullptr, "VALUE"));
    Refused(ZBDDFNO2NAM(-1, nullptr, 0));
    Refused(ZBDDFINFO(-1, nullptr, &spec));
    Refused(ZBDDFINFO(-1, &width, nullptr));
}

TEST_F(Field, APendingCodeStopsEveryCall) {
    MakeOne('C', 3);
    SetRecord(data, " abc");
    ZBESCODE(-33);
    char text[32] = "same";
    int16_t number = -7;
    uint16_t width = 7;
    ZbFieldSpec spec;
    StartLog();
    EXPECT_EQ(ZBDDFGET(data, 0, text), -33);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dslock", -33}, {"Dfieldbind", -33}, {"Dfget", -33}}));
    EXPECT_EQ(ZBDDFGETS(data, 0, text), -33);
    EXPECT_EQ(ZBDDFPUT(data, 0, text), -33);
    EXPECT_EQ(ZBDDFPUTS(data, 0, text), -33);
    EXPECT_EQ(ZBDDFNGET(data, "VALUE", text), -33);
    EXPECT_EQ(ZBDDFNGETS(data, "VALUE", text), -33);
    EXPECT_EQ(ZBDDFNPUT(data, "VALUE", text), -33);
    EXPECT_EQ(ZBDDFNPUTS(data, "VALUE", text), -33);
    EXPECT_EQ(ZBDDFNAM2NO(data, &number, "VALUE"), -33);
    EXPECT_EQ(ZBDDFNO2NAM(data, text, 0), -33);
    EXPECT_EQ(ZBDDFINFO(data, &width, &spec), -33);
    EXPECT_EQ(Bytes(text), "same");
    EXPECT_EQ(number, -7);
    EXPECT_EQ(width, 7);
    ZBESCODE(0);
    EXPECT_EQ(RecordBytes(data), " abc");
}

TEST_F(Field, AWarningDoesNotLast) {
    MakeOne('C', 3);
    EXPECT_EQ(ZBDDFPUT(data, 0, "ABCDE"), 5);
    EXPECT_EQ(ZBDDFPUT(data, 0, "ABC"), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Field, WritesToAReadOnlyFileStayInMemory) {
    MakeOne('C', 3);
    SetRecord(data, " abc");
    Append(data);
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    data = Open("T.DBF", 2 | ZB_ReadOnly);
    ASSERT_EQ(ZBDDRGET(data, 1), 0);
    EXPECT_EQ(ZBDDFPUT(data, 0, "xyz"), 0);
    EXPECT_EQ(RecordBytes(data), " xyz");
    uint32_t recordNo = 1;
    EXPECT_EQ(ZBDDRPUT(data, &recordNo, 256), -36);
    ZBESCODE(0);
    EXPECT_EQ(ReadFile("T.DBF", 65), " abc\x1A");
}

TEST_F(Field, AWriteDoesNotMarkTheFileAsChanged) {
    MakeOne('C', 3);
    Append(data);
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    PatchFile("T.DBF", 1, "\x63");
    data = Open("T.DBF", ZB_DialectDb4);
    EXPECT_EQ(ZBDDFPUT(data, 0, "xyz"), 0);
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    EXPECT_EQ(ReadFile("T.DBF", 1, 1), "\x63");
}

// ---- damaged files ----

// A field table made by hand: whatever the descriptors say, the widths sum up.
struct DamagedField : LibraryTest {
    struct Raw {
        char type;
        uint8_t length;
        uint8_t decimals;
    };
    int16_t OpenRaw(const std::vector<Raw>& fields) {
        Bytes header = Fill(32), table;
        size_t length = 1;
        for (auto& raw : fields) {
            Bytes descriptor = Fill(32);
            descriptor[0] = 'A';
            descriptor[11] = raw.type;
            descriptor[16] = static_cast<char>(raw.length);
            descriptor[17] = static_cast<char>(raw.decimals);
            table += descriptor;
            length += raw.length + (raw.type == 'C' ? raw.decimals * 256u : 0u);
        }
        header[0] = '\x83';
        size_t size = 33 + table.size();
        header[8] = static_cast<char>(size);
        header[9] = static_cast<char>(size >> 8);
        header[10] = static_cast<char>(length);
        header[11] = static_cast<char>(length >> 8);
        WriteFile("D.DBF", header + table + "\x0D\x1A");
        return Open("D.DBF", 1);
    }
};

TEST_F(DamagedField, ShortDatesMemosAndLogicalsAtTheEndStayInTheBuffer) {
    for (char type : {'D', 'M', 'L'}) {
        for (uint8_t width : {0, 1, 3}) {
            int16_t data = OpenRaw({{'C', 2, 0}, {type, width, 0}});
            ASSERT_GE(data, 0);
            char value[16] = "02/29/96";
            uint32_t block = 4000000000u;
            EXPECT_EQ(ZBDDFPUT(data, 1,
                               type == 'M'   ? static_cast<void*>(&block)
                               : type == 'L' ? "T"
                                             : value),
                      0);
            EXPECT_EQ(ZBDDFGET(data, 1, value), 0);
            ASSERT_EQ(ZBDDCLOSE(data), 0);
        }
    }
}

TEST_F(DamagedField, TheWidestNumberWithTheMostDecimals) {
    int16_t data = OpenRaw({{'N', 255, 255}, {'N', 255, 0}, {'N', 0, 9}});
    ASSERT_GE(data, 0);
    double value = -1e308;
    // 309 digits and a sign are cut to the field.
    EXPECT_EQ(ZBDDFPUT(data, 0, &value), 0);
    EXPECT_EQ(RecordBytes(data).substr(0, 8), " -100000");
    value = 1e200;  // all 200 digits of the double
    EXPECT_EQ(ZBDDFPUT(data, 1, &value), 0);
    EXPECT_EQ(RecordBytes(data).substr(256, 75), Fill(55, ' ') + "99999999999999996973");
    double read = 0;
    EXPECT_EQ(ZBDDFGET(data, 1, &read), 0);
    EXPECT_EQ(read, 1e200);
    value = -1;
    EXPECT_EQ(ZBDDFPUT(data, 2, &value), 0);
    EXPECT_EQ(ZBDDFGET(data, 2, &read), 0);
    EXPECT_EQ(read, 0.0);
}

TEST_F(DamagedField, LongDateKeepsItsEnd) {
    int16_t data = OpenRaw({{'D', 12, 0}});
    ASSERT_GE(data, 0);
    SetRecord(data, " 19960229abcd");
    char text[16];
    EXPECT_EQ(ZBDDFGET(data, 0, text), 0);
    EXPECT_EQ(Bytes(text), "02/29/96");
    EXPECT_EQ(ZBDDFPUT(data, 0, "12/31/95"), 0);
    EXPECT_EQ(RecordBytes(data), " 19951231abcd");
}

}  // namespace
}  // namespace test
