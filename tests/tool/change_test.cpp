// zb create, append, set, delete, recall and pack: the table's bytes afterwards.
#include <unistd.h>

#include "tool.h"

namespace test {
namespace {

const Arguments kToday{"ZB_TODAY=2026-11-21"};

Result Today(const Arguments& arguments) { return Zb(arguments, {}, kToday); }

TEST_F(Tool, CreateWritesAnEmptyTable) {
    Result result = Today({"create", "t.dbf", "--schema", "name:c20, BORN:D,AMOUNT:N10.2,PAID:L"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "zb: t.dbf: created with 4 fields\n");
    Bytes file = ReadFile("t.dbf");
    ASSERT_EQ(file.size(), 162u);
    EXPECT_EQ(file.substr(0, 12), Hex("03 15 0B 00 00 00 00 00 A1 00 28 00"));
    EXPECT_EQ(file.substr(32, 32),
              Hex("4E 41 4D 45 00 00 00 00 00 00 00 43 00 00 00 00") + Hex("14") + Fill(15));
    EXPECT_EQ(file.substr(96, 32),
              Hex("41 4D 4F 55 4E 54 00 00 00 00 00 4E 00 00 00 00") + Hex("0A 02") + Fill(14));
    EXPECT_EQ(file.substr(160), Hex("0D 1A"));
}

TEST_F(Tool, CreateTakesTheSimplestDialectThatHoldsTheFields) {
    ASSERT_EQ(Zb({"create", "f.dbf", "--schema", "A:F20.2,B:M"}).status, 0);
    EXPECT_EQ(ReadFile("f.dbf", 0, 1), "\x8B");
    ASSERT_EQ(Zb({"create", "w.dbf", "--schema", "A:C2000"}).status, 0);
    EXPECT_EQ(ReadFile("w.dbf", 48, 2), Hex("D0 07"));
    ASSERT_EQ(Zb({"create", "m.dbf", "--schema", "B:M", "--dialect", "8"}).status, 0);
    EXPECT_EQ(ReadFile("m.dbf", 0, 1), "\xF5");
}

TEST_F(Tool, CreateLeavesAnExistingFileAlone) {
    WriteFile("t.dbf", "mine");
    EXPECT_EQ(Zb({"create", "t.dbf", "--schema", "A:C1"}).status, 1);
    EXPECT_EQ(ReadFile("t.dbf"), "mine");
    EXPECT_EQ(Zb({"create", "t.dbf", "--schema", "A:C1", "--force"}).status, 0);
    EXPECT_EQ(FileSize("t.dbf"), 66u);
}

TEST_F(Tool, OnATerminalItAsks) {
    WriteFile("t.dbf", "mine");
    Result no = ZbOnTerminal({"create", "t.dbf", "--schema", "A:C1"}, "n\n");
    EXPECT_EQ(no.status, 1);
    EXPECT_NE(no.out.find("t.dbf exists. Replace it? [y/N]"), std::string::npos) << no.out;
    EXPECT_EQ(ReadFile("t.dbf"), "mine");
    EXPECT_EQ(ZbOnTerminal({"create", "t.dbf", "--schema", "A:C1"}, "y\n").status, 0);
    EXPECT_EQ(FileSize("t.dbf"), 66u);
}

TEST_F(Tool, SchemasThatMakeNoSense) {
    auto status = [](const std::string& schema) {
        return Zb({"create", "t.dbf", "--schema", schema}).status;
    };
    for (const char* schema : {"", "A", "A:", ":C1", "A:C", "A:X5", "A:N10.", "A:N10.2x", "ABCDEFGHIJK:C1",
                               "A:C1,", "A:C1,a:C2", "A:C0", "A:N5.4", "A:N21", "A:C3000"})
        EXPECT_EQ(status(schema), 2) << schema;
    EXPECT_EQ(Zb({"create", "t.dbf", "--schema", "A:F9", "--dialect", "1"}).status, 2);
    EXPECT_FALSE(FileExists("t.dbf"));
}

TEST_F(Tool, AppendAddsARecordBehindTheLast) {
    WriteFile("t.dbf", Table({{"NAME", 'C', 4}, {"N", 'N', 6, 2}, {"D", 'D', 8}, {"L", 'L', 1}}, {}));
    Result result = Today({"append", "t.dbf", "name=Anna", "N=-1.5", "D=2024-02-29", "L=yes"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: t.dbf: added record 1\n");
    EXPECT_EQ(ReadFile("t.dbf", 161), " Anna -1.5020240229T\x1A");
    EXPECT_EQ(ReadFile("t.dbf", 0, 8), Hex("03 15 02 1D 01 00 00 00"));
    EXPECT_EQ(Zb({"append", "t.dbf"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 181), std::string(20, ' ') + "\x1A");
}

TEST_F(Tool, SetChangesTheFieldsNamedAndNoOthers) {
    WriteFile("t.dbf", Table({{"A", 'C', 3}, {"B", 'N', 3}}, {" abc  1", " def  2"}));
    EXPECT_EQ(Zb({"set", "t.dbf", "2", "B=77"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97), " abc  1 def 77\x1A");
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "A=", "B="}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97), "        def 77\x1A");
}

TEST_F(Tool, SetLeavesADeletedRecordDeleted) {
    WriteFile("t.dbf", Table({{"A", 'C', 3}}, {"*abc"}));
    Result result = Zb({"set", "t.dbf", "1", "A=x"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: t.dbf: changed record 1, which is deleted\n");
    EXPECT_EQ(ReadFile("t.dbf", 65), "*x  \x1A");
}

TEST_F(Tool, NumbersAreStoredWithAllTheirDigits) {
    WriteFile("t.dbf", Table({{"N", 'N', 20, 2}}, {std::string(21, ' ')}));
    auto stored = [](const std::string& value) {
        Result result = Zb({"set", "t.dbf", "1", "N=" + value, "--loose"});
        EXPECT_EQ(result.status, 0) << value << result.err;
        return ReadFile("t.dbf", 66, 20);
    };
    EXPECT_EQ(stored("12345678901234567.89"), "12345678901234567.89");
    EXPECT_EQ(stored("-0.005"), "               -0.01");
    EXPECT_EQ(stored("-0.001"), "                0.00");
    EXPECT_EQ(stored("9.999"), "               10.00");
    EXPECT_EQ(stored("+.5"), "                0.50");
    EXPECT_EQ(stored("007"), "                7.00");
}

TEST_F(Tool, ValuesThatDoNotFitAreRefused) {
    Bytes before =
        Table({{"C", 'C', 3}, {"N", 'N', 5, 2}, {"D", 'D', 8}, {"L", 'L', 1}}, {" abc 1.0020240101T"});
    WriteFile("t.dbf", before);
    auto refusal = [](const std::string& value) {
        Result result = Zb({"set", "t.dbf", "1", value});
        EXPECT_EQ(result.status, 1) << value;
        std::string code = "zb: t.dbf: ErrFieldValue (-33): a value that the field can't hold; ";
        std::string end = "; nothing was stored (--loose stores what fits)\n";
        EXPECT_EQ(result.err.substr(0, code.size()), code);
        EXPECT_EQ(result.err.substr(result.err.size() - end.size()), end);
        return result.err.substr(code.size(), result.err.size() - code.size() - end.size());
    };
    EXPECT_EQ(refusal("C=abcd"), "C: 'abcd' is longer than 3 bytes");
    EXPECT_EQ(refusal("N=1.005"), "N: '1.005' has more than 2 decimals");
    EXPECT_EQ(refusal("N=100"), "N: '100' has too many digits for N5.2");
    EXPECT_EQ(refusal("N=-10.5"), "N: '-10.5' has too many digits for N5.2");
    EXPECT_EQ(refusal("N=1e3"), "N: '1e3' is no number");
    EXPECT_EQ(refusal("D=2023-02-29"), "D: '2023-02-29' is no date (YYYY-MM-DD)");
    EXPECT_EQ(refusal("L=maybe"), "L: 'maybe' is neither true nor false");
    EXPECT_EQ(ReadFile("t.dbf"), before);
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "C=abcd", "N=100", "--loose"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 161, 9), " abc     ");
}

TEST_F(Tool, CreateMakesTheMemoFileToo) {
    Result result = Today({"create", "T.DBF", "--schema", "A:C3,NOTE:M"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: T.DBF: created with 2 fields, and T.DBT for its memos\n");
    EXPECT_EQ(ReadFile("T.DBT"), Hex("01") + Fill(511) + "\x1A");
    ASSERT_EQ(Zb({"create", "f.dbf", "--schema", "NOTE:M", "--dialect", "8", "--memo", "other.fpt"}).status,
              0);
    EXPECT_EQ(ReadFile("other.fpt", 0, 8), Hex("00 00 00 08 00 00 00 40"));
    // Neither file is made where one of them may not be replaced.
    WriteFile("u.dbt", "mine");
    EXPECT_EQ(Zb({"create", "u.dbf", "--schema", "NOTE:M"}).status, 1);
    EXPECT_FALSE(FileExists("u.dbf"));
    EXPECT_EQ(ReadFile("u.dbt"), "mine");
}

TEST_F(Tool, MemoFieldsTakeTextAndKeepItsBlock) {
    ASSERT_EQ(Zb({"create", "t.dbf", "--schema", "A:C3,NOTE:M"}).status, 0);
    EXPECT_EQ(Zb({"append", "t.dbf", "A=x", "NOTE=Hello"}).err, "zb: t.dbf: added record 1\n");
    EXPECT_EQ(ReadFile("t.dbf", 97), " x           1\x1A");
    EXPECT_EQ(ReadFile("t.dbt", 512), Bytes("Hello\x1A\x1A"));
    EXPECT_EQ(Zb({"append", "t.dbf", "A=y"}).status, 0);
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "NOTE=Bye"}).err, "zb: t.dbf: changed record 1\n");
    EXPECT_EQ(ReadFile("t.dbf", 97, 14), " x           1");
    EXPECT_EQ(ReadFile("t.dbt", 512, 5), Bytes("Bye\x1A\x1A"));
    // A longer text gets a place of its own.
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "A=z", "NOTE=Much longer than that"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97, 14), " z           2");
    EXPECT_EQ(Zb({"delete", "t.dbf", "1"}).status, 0);
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "NOTE=short"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97, 1), "*");
    EXPECT_EQ(Zb({"export", "t.dbf", "--deleted", "include", "--no-header"}).out, "z,short,T\ny,,F\n");
    // None at all needs no memo file.
    unlink("t.dbt");
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "NOTE="}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97, 14), "*z            ");
    EXPECT_EQ(Zb({"append", "t.dbf", "NOTE=first again"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbt", 512), Bytes("first again\x1A\x1A"));
}

TEST_F(Tool, AMemoThatDoesNotFitStoresNothing) {
    ASSERT_EQ(Zb({"create", "t.dbf", "--schema", "N:N2,NOTE:M"}).status, 0);
    Bytes table = ReadFile("t.dbf"), memos = ReadFile("t.dbt");
    Result result = Zb({"append", "t.dbf",
                        "NOTE=a\x1A"
                        "b"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(
        result.err.find("NOTE: the text has bytes that a memo of this layout can't hold; nothing was stored"),
        std::string::npos)
        << result.err;
    EXPECT_EQ(Zb({"append", "t.dbf", "NOTE=text", "N=100"}).status, 1);
    EXPECT_EQ(ReadFile("t.dbf"), table);
    EXPECT_EQ(ReadFile("t.dbt"), memos);
    EXPECT_EQ(Zb({"append", "t.dbf",
                  "NOTE=a\x1A"
                  "b",
                  "--loose"})
                  .status,
              0);
    EXPECT_EQ(ReadFile("t.dbt", 512), Bytes("ab\x1A\x1A"));
}

TEST_F(Tool, DeleteAndRecallByNumbersAndRanges) {
    WriteFile("t.dbf", Table({{"A", 'C', 1}}, {" 1", " 2", " 3", " 4", " 5"}));
    EXPECT_EQ(Zb({"delete", "t.dbf", "1", "3-4"}).err, "zb: t.dbf: deleted 3 records\n");
    EXPECT_EQ(ReadFile("t.dbf", 65), "*1 2*3*4 5\x1A");
    EXPECT_EQ(Zb({"delete", "t.dbf", "4-"}).err, "zb: t.dbf: deleted 1 record, 1 already deleted\n");
    EXPECT_EQ(Zb({"recall", "t.dbf", "-3"}).err, "zb: t.dbf: recalled 2 records, 1 already live\n");
    EXPECT_EQ(ReadFile("t.dbf", 65), " 1 2 3*4*5\x1A");
}

TEST_F(Tool, DeleteChecksAllNumbersBeforeItChangesAny) {
    Bytes before = Table({{"A", 'C', 1}}, {" 1", " 2"});
    WriteFile("t.dbf", before);
    Result result = Zb({"delete", "t.dbf", "1", "2-3"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err,
              "zb: t.dbf: ErrSeek (-4): a position or record number lies outside the file; there is no "
              "record 3 of 2\n");
    EXPECT_EQ(ReadFile("t.dbf"), before);
}

TEST_F(Tool, PackDropsDeletedRecordsAndKeepsTheOldFile) {
    Bytes before = Table({{"A", 'C', 1}}, {" 1", "*2", " 3"});
    WriteFile("t.dbf", before);
    Result result = Today({"pack", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: t.dbf: packed from 3 records to 2; the old file is kept as t.BAK\n");
    EXPECT_EQ(ReadFile("t.BAK"), before);
    EXPECT_EQ(ReadFile("t.dbf", 64), "\x0D 1 3");
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "A\n1\n3\n");
}

TEST_F(Tool, PackKeepsTheCharactersOfTheText) {
    WriteFile("t.dbf", Table({{"A", 'C', 1}}, {" \x82"}, 0x02));
    Result result = Zb({"pack", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(ReadFile("t.cpg"), "CP850\n");
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "A\né\n");
}

TEST_F(Tool, PackTellsThatIndexesAreOutOfDate) {
    Bytes table = Table({{"A", 'C', 1}}, {" 1"});
    table[28] = 1;
    WriteFile("t.dbf", table);
    EXPECT_NE(Zb({"pack", "t.dbf"})
                  .err.find("zb: t.dbf: its indexes are out of date now (zb repair makes them anew)\n"),
              std::string::npos);
}

}  // namespace
}  // namespace test
