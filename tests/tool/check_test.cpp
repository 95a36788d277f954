// zb check: what it finds in tables, memo files and indexes, and how it says so.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tool.h"

namespace test {
namespace {

using Json = nlohmann::json;

const std::vector<Column> kFields{{"NAME", 'C', 4}, {"BORN", 'D', 8}, {"N", 'N', 4, 1}, {"L", 'L', 1}};
const std::string kAnna = " Anna19700101 1.5T";

Bytes Good() { return Table(kFields, {kAnna, "*Bert             "}); }

std::string CheckText(const std::string& file, int status) {
    Result result = Zb({"check", file});
    EXPECT_EQ(result.status, status) << result.out << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
}

TEST_F(Tool, CheckOfASoundTable) {
    WriteFile("t.dbf", Good());
    EXPECT_EQ(CheckText("t.dbf", 0), "t.dbf: table, 2 records of 4 fields: sound\n");
}

TEST_F(Tool, CheckTellsACountThatTheFileCannotHold) {
    Bytes table = Good();
    table[4] = 5;
    WriteFile("t.dbf", table);
    EXPECT_EQ(CheckText("t.dbf", 4),
              "t.dbf: table, 5 records of 4 fields: 1 fault\n"
              "  fault: the header counts 5 records, and the file ends behind record 2 "
              "(zb repair sets the count by the file's length)\n");
    WriteFile("t.dbf", table.substr(0, table.size() - 8));
    EXPECT_NE(CheckText("t.dbf", 4).find("the file ends behind 1 whole record and 11 bytes of the next"),
              std::string::npos);
}

TEST_F(Tool, CheckFindsRecordsBehindTheCount) {
    Bytes table = Good();
    table[4] = 1;
    WriteFile("t.dbf", table);
    EXPECT_EQ(CheckText("t.dbf", 4),
              "t.dbf: table, 1 record of 4 fields: 1 fault\n"
              "  fault: the header counts 1 record, and 1 record more stand behind them "
              "(zb repair sets the count by the file's length)\n");
}

TEST_F(Tool, CheckOfTheEndOfTheFile) {
    Bytes table = Good();
    WriteFile("t.dbf", table.substr(0, table.size() - 1));
    EXPECT_NE(CheckText("t.dbf", 0).find("note: no end mark"), std::string::npos);
    WriteFile("t.dbf", table + Bytes(17, '\x1A'));
    EXPECT_EQ(CheckText("t.dbf", 0), "t.dbf: table, 2 records of 4 fields: sound\n");
    WriteFile("t.dbf", table + Fill(100));
    EXPECT_EQ(CheckText("t.dbf", 0), "t.dbf: table, 2 records of 4 fields: sound\n");
    WriteFile("t.dbf", table + "left over");
    EXPECT_NE(CheckText("t.dbf", 5).find("warning: 9 bytes that no record has stand behind the end mark"),
              std::string::npos);
}

TEST_F(Tool, CheckGathersValuesThatDoNotParse) {
    WriteFile("t.dbf", Table(kFields, {" Anna19700230 1.5T", " Anna19700101****T", " Anna1970AB01 x.5?",
                                       "xAnna19700101 1.5x"}));
    EXPECT_EQ(CheckText("t.dbf", 5),
              "t.dbf: table, 4 records of 4 fields: 5 warnings\n"
              "  warning: BORN holds no date: records 1 and 3\n"
              "  warning: N holds asterisks: a number was too large for it: record 2\n"
              "  warning: N holds no number: record 3\n"
              "  warning: the delete flag is neither a blank nor *, and counts as deleted: record 4\n"
              "  warning: L is neither true nor false: record 4\n");
    std::vector<std::string> many(12, " Anna19701301 1.5T");
    WriteFile("t.dbf", Table(kFields, many));
    EXPECT_NE(CheckText("t.dbf", 5).find("BORN holds no date: records 1, 2, 3, 4, 5, 6, 7, 8 and 4 more\n"),
              std::string::npos);
}

TEST_F(Tool, CheckOfTheStructure) {
    auto first = [](const Bytes& table) {
        WriteFile("t.dbf", table);
        std::string out = CheckText("t.dbf", 4);
        size_t at = out.find("  fault: ");
        return out.substr(at + 9, out.find('\n', at) - at - 9);
    };
    EXPECT_EQ(first("short"), "the file has 5 bytes, a header has 32");
    EXPECT_EQ(first(Table(kFields, {kAnna}, 0, 0x30)),
              "the version byte is 0x30, not one of 0x03, 0x83, 0x8B and 0xF5 (is it a table?)");
    Bytes table = Good();
    table[8] = 100;
    EXPECT_EQ(first(table), "the header tells that it has 100 bytes");
    table = Good();
    table[10] = 9;
    EXPECT_EQ(first(table),
              "the header tells records of 9 bytes, and the widths of the fields add up to 18 "
              "(nothing tells which is right)");
    EXPECT_EQ(first(Table({{"A", 'X', 3}}, {})), "field A: the type is 0x58, not one of C, N, F, D, L and M");
    EXPECT_EQ(first(Table({{"", 'C', 3}}, {})), "field without a name: a name has 1 to 10 characters");
    EXPECT_EQ(first(Table({{"A", 'M', 10}}, {})),
              "there are memo fields, and the version byte 0x03 is that of a table without");
    WriteFile("t.dbf", Table({{"A", 'C', 3}, {"A", 'D', 7}, {"B", 'N', 3, 2}}, {}));
    std::string out = CheckText("t.dbf", 5);
    EXPECT_NE(out.find("two fields have the name A"), std::string::npos);
    EXPECT_NE(out.find("field A: type D has a width of 7, not of 8"), std::string::npos);
    EXPECT_NE(out.find("field B: 2 decimals in 3 places"), std::string::npos);
}

TEST_F(Tool, CheckOfABlockOfZerosThatEndsThePaddedHeader) {
    Bytes table = Table({{"A", 'C', 3}}, {});
    table[8] = 96;
    table.insert(65, Fill(31));
    WriteFile("t.dbf", table);
    EXPECT_EQ(CheckText("t.dbf", 0), "t.dbf: table, 0 records of 1 field: sound\n");
}

// ---- memos ----

std::string Pointer(const std::string& digits) { return std::string(10 - digits.size(), ' ') + digits; }

Bytes Notes(int version, const std::vector<std::string>& numbers) {
    std::vector<std::string> records;
    for (const std::string& number : numbers) records.push_back(" " + Pointer(number));
    return Table({{"NOTE", 'M', 10}}, records, 0, version);
}

Bytes Padded(Bytes bytes, size_t length) {
    bytes.resize(length);
    return bytes;
}

TEST_F(Tool, CheckOfMemosThatEndWithAMark) {
    WriteFile("t.dbf", Notes(0x83, {"1", "", "2"}));
    Bytes memos = Padded("\x03", 512) + Padded("one\x1A\x1A", 512) + Padded("two\x1A\x1A", 512);
    WriteFile("t.dbt", memos);
    EXPECT_EQ(
        CheckText("t.dbf", 0),
        "t.dbf: table, 3 records of 1 field: sound\nt.dbt: memos of t.dbf, 2 texts: sound\n2 files: sound\n");
    EXPECT_EQ(CheckText("t.dbt", 0), CheckText("t.dbf", 0));

    memos[0] = 2;
    WriteFile("t.dbt", memos);
    EXPECT_NE(CheckText("t.dbf", 4)
                  .find("fault: the header puts the next memo at block 2, where memos are "
                        "(zb repair moves that behind all memos)\n"),
              std::string::npos);

    memos[0] = 3;
    memos[512 + 3] = memos[512 + 4] = 'x';
    memos.replace(512, 512, Bytes(512, 'x'));
    WriteFile("t.dbt", memos);
    EXPECT_NE(CheckText("t.dbf", 4).find("fault: a memo begins within another one's text: record 3"),
              std::string::npos);
    memos.resize(1024 + 2);
    WriteFile("t.dbt", memos);
    EXPECT_NE(CheckText("t.dbf", 4).find("fault: NOTE names a memo that nothing ends: records 1 and 3\n"),
              std::string::npos);
}

TEST_F(Tool, CheckOfMemoNumbers) {
    WriteFile("t.dbf", Notes(0x83, {"1", "1", "9", "0", "x"}));
    WriteFile("t.dbt", Padded("\x03", 512) + Padded("one\x1A\x1A", 512) + Padded("of nobody\x1A\x1A", 512));
    std::string out = CheckText("t.dbf", 4);
    EXPECT_NE(out.find("fault: NOTE holds no memo block number: record 5\n"), std::string::npos) << out;
    EXPECT_NE(out.find("fault: NOTE names a block outside the memo file: record 3\n"), std::string::npos);
    EXPECT_NE(out.find("warning: NOTE names a memo that another record has, too: record 2 "),
              std::string::npos);
    EXPECT_NE(out.find("note: 1 block of 512 bytes belong to no memo"), std::string::npos);
    unlink("t.dbt");
    EXPECT_NE(CheckText("t.dbf", 4).find("fault: 3 memos can't be read: there is no memo file t.dbt"),
              std::string::npos);
}

TEST_F(Tool, CheckOfMemosOfTheOtherLayouts) {
    Bytes head = Padded(Hex("03 00 00 00 00 00 00 00 4E 00 00 00 00 00 00 00 00 00 02 01 00 02"), 512);
    Bytes memos = head + Padded(Hex("FF FF 08 00 0D 00 00 00") + "there", 512) +
                  Padded(Hex("03 00 00 00 01 00 00 00"), 512);
    WriteFile("c.dbf", Notes(0x8B, {"1"}));
    WriteFile("c.dbt", memos);
    EXPECT_NE(CheckText("c.dbf", 0).find("c.dbt: memos of c.dbf, 1 text: sound\n"), std::string::npos);
    memos[0] = 2;  // the chain begins at the free block
    WriteFile("c.dbt", memos);
    EXPECT_EQ(CheckText("c.dbf", 0).find("belong to no memo"), std::string::npos);
    memos[1024] = 1;  // and leads to the memo
    WriteFile("c.dbt", memos);
    EXPECT_NE(CheckText("c.dbf", 4).find("leads to block 1, where a memo is"), std::string::npos);
    memos[1024] = 2;
    WriteFile("c.dbt", memos);
    EXPECT_NE(CheckText("c.dbf", 4).find("the chain of free blocks is a circle"), std::string::npos);
    memos[512] = 0;
    WriteFile("c.dbt", memos);
    EXPECT_NE(CheckText("c.dbf", 4).find("NOTE names a block where no memo begins: record 1"),
              std::string::npos);

    Bytes fpt =
        Padded(Hex("00 00 00 09 00 00 00 40"), 512) + Padded(Hex("00 00 00 01 00 00 00 03") + "fox", 64);
    WriteFile("f.dbf", Notes(0xF5, {"8"}));
    WriteFile("f.fpt", fpt);
    EXPECT_NE(CheckText("f.dbf", 0).find("f.fpt: memos of f.dbf, 1 text: sound\n"), std::string::npos);
    fpt[512 + 6] = 1;
    WriteFile("f.fpt", fpt);
    EXPECT_NE(
        CheckText("f.dbf", 4).find("NOTE names a memo that goes beyond the end of the memo file: record 1"),
        std::string::npos);
    fpt[7] = 1;
    WriteFile("f.fpt", fpt);
    EXPECT_NE(CheckText("f.dbf", 4).find("fault: the header tells blocks of 1 bytes"), std::string::npos);
}

// ---- indexes and directories ----

TEST_F(Tool, CheckFindsTheIndexesOfATableAndWhatTheyLack) {
    WriteFile("t.dbf", Good());
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "t.ndx", "--on", "NAME"}).status, 0);
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "other.ntx", "--on", "NAME"}).status, 0);
    EXPECT_EQ(CheckText("t.dbf", 0),
              "t.dbf: table, 2 records of 4 fields: sound\n"
              "t.ndx: NDX index on NAME of t.dbf, 2 keys: sound\n2 files: sound\n");
    EXPECT_EQ(Zb({"check", "t.dbf", "--alone"}).out, "t.dbf: table, 2 records of 4 fields: sound\n");
    ASSERT_EQ(Zb({"set", "t.dbf", "1", "NAME=Emma"}).status, 0);
    std::string out = CheckText(".", 4);
    EXPECT_NE(out.find("t.ndx: NDX index on NAME of t.dbf, 2 keys: 1 fault\n"), std::string::npos) << out;
    EXPECT_NE(out.find("other.ntx: NTX index on NAME of t.dbf, 2 keys: 1 fault\n"), std::string::npos) << out;
    EXPECT_NE(
        out.find("record 1 has the key 'Anna' on page 1, it should be 'Emma' (zb repair makes it anew)\n"),
        std::string::npos)
        << out;
    EXPECT_NE(out.find("\n3 files: 2 faults\n"), std::string::npos) << out;
    EXPECT_EQ(CheckText("other.ntx", 4).substr(0, 9), "other.ntx");
}

TEST_F(Tool, CheckTakesTheTableWhoseKeysAnIndexHas) {
    WriteFile("a.dbf", Good());
    WriteFile("b.dbf", Table(kFields, {" Bill             "}));
    ASSERT_EQ(Zb({"index", "create", "b.dbf", "key.idx", "--on", "NAME"}).status, 0);
    EXPECT_EQ(CheckText("key.idx", 0), "key.idx: IDX index on NAME of b.dbf, 1 key: sound\n");
    WriteFile("a.dbf", Table({{"X", 'C', 1}}, {}));
    unlink("b.dbf");
    EXPECT_NE(CheckText("key.idx", 5).find("warning: no table that was looked at gives its keys"),
              std::string::npos);
}

TEST_F(Tool, CheckOfAnMdxFileGoesThroughItsTags) {
    WriteFile("t.dbf", Good());
    ASSERT_EQ(
        Zb({"index", "create", "t.dbf", "t.mdx", "--tag", "NAME", "--on", "NAME", "--tag", "N", "--on", "N"})
            .status,
        0);
    EXPECT_NE(
        CheckText("t.dbf", 0)
            .find(
                "t.mdx: MDX index, 2 tags; NAME on NAME of t.dbf, 2 keys; N on N of t.dbf, 2 keys: sound\n"),
        std::string::npos);
    WriteFile("t.mdx", "nonsense");
    EXPECT_NE(CheckText("t.dbf", 4).find("no MDX index"), std::string::npos);
}

TEST_F(Tool, CheckAsJson) {
    Bytes table = Good();
    table[4] = 3;
    table.replace(161 + 5, 8, "19701301");
    WriteFile("t.dbf", table);
    Result result = Zb({"check", "t.dbf", "--json"});
    EXPECT_EQ(result.status, 4);
    Json all = Json::parse(result.out);
    EXPECT_EQ(all["faults"], 1);
    EXPECT_EQ(all["warnings"], 1);
    EXPECT_EQ(all["files"][0]["file"], "t.dbf");
    EXPECT_EQ(all["files"][0]["checked"], true);
    EXPECT_EQ(all["files"][0]["findings"][0]["code"], "countTooHigh");
    EXPECT_EQ(all["files"][0]["findings"][0]["advice"], "zb repair sets the count by the file's length");
    EXPECT_EQ(
        all["files"][0]["findings"][1],
        Json::parse(
            R"({"severity":"warning","code":"date","text":"BORN holds no date","count":1,"records":[1]})"));
}

TEST_F(Tool, CheckOfPatternsAndOfNothing) {
    mkdir("sub", 0777);
    WriteFile("sub/a.dbf", Good());
    WriteFile("sub/b.DBF", Good());
    EXPECT_EQ(Zb({"check", "sub"}).out.find("sub/a.dbf"), 0u);
    EXPECT_NE(Zb({"check", "sub"}).out.find("\n2 files: sound\n"), std::string::npos);
    EXPECT_EQ(Zb({"check", "sub/*.dbf"}).out, "sub/a.dbf: table, 2 records of 4 fields: sound\n");
    EXPECT_EQ(Zb({"check", "sub/x*"}).status, 3);
    EXPECT_EQ(Zb({"check", "none.dbf"}).status, 3);
    mkdir("empty", 0777);
    Result empty = Zb({"check", "empty"});
    EXPECT_EQ(empty.status, 3);
    EXPECT_EQ(empty.err, "zb: empty: no .dbf file is in it\n");
}

}  // namespace
}  // namespace test
