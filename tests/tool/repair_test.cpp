// zb repair: what it mends, what it leaves, and where the old files are.
#include <filesystem>

#include "tool.h"

namespace test {
namespace {

const std::vector<Column> kFields{{"NAME", 'C', 4}, {"N", 'N', 3}};

Bytes Good() { return Table(kFields, {" Anna  1", "*Bert  2", " Cleo  3"}); }

TEST_F(Tool, RepairOfASoundTableDoesNothing) {
    WriteFile("t.dbf", Good());
    Result result = Zb({"repair", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: t.dbf: there is nothing to mend\n");
    EXPECT_FALSE(FileExists("repaired"));
}

TEST_F(Tool, RepairSetsTheCountByTheLength) {
    Bytes high = Good(), low = Good();
    high[4] = 7;
    low[4] = 1;
    for (const Bytes& table : {high, low}) {
        WriteFile("t.dbf", table);
        Result result = Zb({"repair", "t.dbf", "--force"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "zb: repaired/t.dbf: set the count from " + std::to_string(int{table[4]}) +
                                  " records to 3\n");
        EXPECT_EQ(ReadFile("repaired/t.dbf"), Good());
        EXPECT_EQ(ReadFile("t.dbf"), table);
    }
}

TEST_F(Tool, RepairKeepsARecordThatIsCut) {
    Bytes table = Good();
    WriteFile("t.dbf", table.substr(0, table.size() - 3));
    Result result = Zb({"repair", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "zb: repaired/t.dbf: filled record 3, which the file's end cuts, with blanks\n"
              "zb: repaired/t.dbf: put an end mark behind the last record\n");
    EXPECT_EQ(ReadFile("repaired/t.dbf", 97), " Anna  1*Bert  2 Cleo   \x1A");
}

TEST_F(Tool, RepairPutsTheEndMark) {
    Bytes table = Good();
    WriteFile("t.dbf", table.substr(0, table.size() - 1));
    EXPECT_EQ(Zb({"repair", "t.dbf", "-o", "out"}).err,
              "zb: out/t.dbf: put an end mark behind the last record\n");
    EXPECT_EQ(ReadFile("out/t.dbf"), table);
}

TEST_F(Tool, RepairLeavesBytesBehindTheEndMarkAlone) {
    Bytes table = Good() + "who knows";
    table[4] = 5;
    WriteFile("t.dbf", table);
    Result result = Zb({"repair", "t.dbf", "--in-place"});
    EXPECT_EQ(
        result.err,
        "zb: t.dbf: the old file is kept as t.dbf.orig\nzb: t.dbf: set the count from 5 records to 3\n");
    EXPECT_EQ(ReadFile("t.dbf", 97), table.substr(97));
    EXPECT_EQ(ReadFile("t.dbf.orig"), table);
}

TEST_F(Tool, RepairInPlaceKeepsTheOldFiles) {
    Bytes table = Good();
    table[4] = 9;
    WriteFile("t.dbf", table);
    Result result = Zb({"repair", "t.dbf", "--in-place"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "zb: t.dbf: the old file is kept as t.dbf.orig\n"
              "zb: t.dbf: set the count from 9 records to 3\n");
    EXPECT_EQ(ReadFile("t.dbf"), Good());
    EXPECT_EQ(ReadFile("t.dbf.orig"), table);
    table[4] = 8;
    WriteFile("t.dbf", table);
    EXPECT_EQ(Zb({"repair", "t.dbf", "--in-place"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf.orig2"), table);
    EXPECT_EQ(ReadFile("t.dbf.orig", 4, 1), "\x09");
}

TEST_F(Tool, RepairDoesNotGuessAStructure) {
    Bytes table = Good();
    table[10] = 9;
    WriteFile("t.dbf", table);
    Result result = Zb({"repair", "t.dbf", "--in-place"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(
        result.err,
        "zb: t.dbf: can't be mended without guessing: the header tells records of 9 bytes, and the widths "
        "of the fields add up to 8\n");
    EXPECT_EQ(ReadFile("t.dbf"), table);
}

TEST_F(Tool, RepairMovesThePlaceOfNewMemos) {
    auto padded = [](Bytes bytes, size_t length) {
        bytes.resize(length);
        return bytes;
    };
    WriteFile("t.dbf", Table({{"NOTE", 'M', 10}}, {"          2", " " + std::string(10, ' '), "          9"},
                             0, 0x83));
    Bytes memos = padded("\x01", 512) + padded("one\x1A\x1A", 512) + "two\x1A\x1A";
    WriteFile("t.dbt", memos);
    Result result = Zb({"repair", "t.dbf", "--in-place"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err,
              "zb: t.dbt: the old file is kept as t.dbt.orig\n"
              "zb: t.dbt: moved the place of the next memo from block 1 to 3, behind all others\n"
              "zb: not mended: t.dbt: NOTE names a block outside the memo file: record 3\n");
    EXPECT_EQ(ReadFile("t.dbt", 0, 4), Hex("03 00 00 00"));
    EXPECT_EQ(ReadFile("t.dbt", 4), memos.substr(4));
    EXPECT_EQ(ReadFile("t.dbt.orig"), memos);

    WriteFile("f.dbf", Table({{"NOTE", 'M', 10}}, {"          8"}, 0, 0xF5));
    WriteFile("f.fpt", padded(Hex("00 00 00 08 00 00 00 40"), 512) + Hex("00 00 00 01 00 00 00 03") + "fox");
    EXPECT_EQ(Zb({"repair", "f.dbf"}).status, 0);
    EXPECT_EQ(ReadFile("repaired/f.fpt", 0, 8), Hex("00 00 00 09 00 00 00 40"));
    EXPECT_EQ(Zb({"export", "repaired/f.dbf"}).out, "NOTE\nfox\n");
}

TEST_F(Tool, RepairMakesStaleIndexesAnew) {
    WriteFile("t.dbf", Good());
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "t.mdx", "--tag", "NAME", "--on", "NAME", "--tag", "N", "--on",
                  "N", "--unique"})
                  .status,
              0);
    for (const char* name : {"a.ndx", "b.ntx", "c.idx"})
        ASSERT_EQ(Zb({"index", "create", "t.dbf", name, "--on", "N"}).status, 0) << name;
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "d.idx", "--on", "NAME", "--compact"}).status, 0);
    ASSERT_EQ(Zb({"set", "t.dbf", "1", "NAME=Zoe", "N=9"}).status, 0);
    ASSERT_EQ(Zb({"check", "."}).status, 4);
    Bytes stale = ReadFile("b.ntx");
    Result result = Zb({"repair", "t.dbf", "a.ndx", "b.ntx", "c.idx", "d.idx", "--in-place"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile("b.ntx.orig"), stale);
    Result check = Zb({"check", "t.dbf", "a.ndx", "b.ntx", "c.idx", "d.idx"});
    EXPECT_EQ(check.status, 0) << check.out;
    EXPECT_NE(check.out.find("NAME on NAME of t.dbf, 3 keys; N on N of t.dbf, 3 keys: sound"),
              std::string::npos)
        << check.out;
    EXPECT_NE(Zb({"index", "info", "d.idx"}).out.find("IDX, compact"), std::string::npos);
}

TEST_F(Tool, RepairCopiesWhatIsSoundToTheNewPlace) {
    Bytes table = Good();
    WriteFile("t.dbf", table);
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "t.ndx", "--on", "NAME"}).status, 0);
    table[4] = 5;
    WriteFile("t.dbf", table);
    WriteFile("t.cpg", "CP850\n");
    Result result = Zb({"repair", "t.dbf"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile("repaired/t.ndx"), ReadFile("t.ndx"));
    EXPECT_EQ(ReadFile("repaired/t.cpg"), "CP850\n");
    EXPECT_EQ(Zb({"check", "repaired"}).status, 0);
    table[4] = 2;
    WriteFile("t.dbf", table);
    EXPECT_EQ(Zb({"repair", "t.dbf"}).status, 1) << "the place is taken";
}

TEST_F(Tool, RepairTellsAnIndexThatHasNoHeader) {
    WriteFile("t.dbf", Good());
    WriteFile("t.ndx", "nonsense");
    Result result = Zb({"repair", "t.dbf", "--in-place"});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.err.find("zb: not mended: t.ndx: can't be made anew: "), std::string::npos)
        << result.err;
    EXPECT_EQ(ReadFile("t.ndx"), "nonsense");
    EXPECT_FALSE(FileExists("t.ndx.orig"));
}

}  // namespace
}  // namespace test
