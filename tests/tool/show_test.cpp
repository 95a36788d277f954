// zb info, list and export: what a table holds comes out as it should.
#include <nlohmann/json.hpp>

#include "tool.h"

namespace test {
namespace {

using Json = nlohmann::json;

const std::vector<Column> kPeople{
    {"NAME", 'C', 6}, {"BORN", 'D', 8}, {"AMOUNT", 'N', 7, 2}, {"PAID", 'L', 1}};

Bytes People() {
    return Table(kPeople, {" Anna  19700101   1.50T", "*Bert  19851231 -20.00F", " Cleo          1000.00 "});
}

TEST_F(Tool, InfoTellsAllThatTheHeaderSays) {
    WriteFile("people.dbf", People());
    Result result = Zb({"info", "people.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "file        people.dbf\n"
              "version     0x03\n"
              "dialect     1 DialectClassic (by the version byte and the fields)\n"
              "encoding    CP1252 (no language byte, no .cpg file; the default)\n"
              "date        2024-02-29 (bytes 7C 02 1D)\n"
              "records     3 (2 live, 1 deleted)\n"
              "production  no index\n"
              "header      161 bytes\n"
              "record      23 bytes\n"
              "length      231 bytes\n"
              "\n"
              "#  FIELD   TYPE  WIDTH  DECIMALS\n"
              "0  NAME    C         6         0\n"
              "1  BORN    D         8         0\n"
              "2  AMOUNT  N         7         2\n"
              "3  PAID    L         1         0\n");
}

TEST_F(Tool, InfoAsJson) {
    WriteFile("people.dbf", People());
    Json info = Json::parse(Zb({"info", "people.dbf", "--json"}).out);
    EXPECT_EQ(info["records"], 3);
    EXPECT_EQ(info["deleted"], 1);
    EXPECT_EQ(info["encoding"], "CP1252");
    EXPECT_EQ(info["fields"].size(), 4u);
    EXPECT_EQ(info["fields"][2], Json::parse(R"({"name":"AMOUNT","type":"N","width":7,"decimals":2})"));
}

TEST_F(Tool, TheDialectFollowsTheVersionAndTheFields) {
    const std::vector<Column> plain{{"A", 'C', 1}}, floating{{"A", 'F', 20, 2}}, memo{{"A", 'M', 10}};
    auto dialect = [](const Bytes& table) {
        WriteFile("t.dbf", table);
        return Json::parse(Zb({"info", "t.dbf", "--json"}).out)["dialect"].get<int>();
    };
    EXPECT_EQ(dialect(Table(plain, {" x"})), 1);
    EXPECT_EQ(dialect(Table(floating, {})), 2);
    EXPECT_EQ(dialect(Table(memo, {}, 0, 0x83)), 1);
    EXPECT_EQ(dialect(Table(memo, {}, 0, 0x8B)), 2);
    EXPECT_EQ(dialect(Table(memo, {}, 0, 0xF5)), 8);
    Bytes odd = Table(memo, {}, 0, 0xF5);
    odd[28] = 7;
    EXPECT_EQ(dialect(odd), 4);
    // The end mark fills a whole record.
    EXPECT_EQ(dialect(Table(plain, {" x"}) + "\x1A"), 7);
    WriteFile("t.dbf", Table(plain, {" x"}));
    EXPECT_EQ(Json::parse(Zb({"info", "t.dbf", "--json", "--dialect", "5"}).out)["dialect"], 5);
}

TEST_F(Tool, ListAlignsColumnsAndPassesDeletedRecordsOver) {
    WriteFile("people.dbf", People());
    Result result = Zb({"list", "people.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "#  NAME  BORN         AMOUNT  PAID\n"
              "1  Anna  1970-01-01     1.50  T\n"
              "3  Cleo              1000.00\n");
}

TEST_F(Tool, DeletedRecordsOnRequest) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(Zb({"list", "people.dbf", "--deleted", "include", "--fields", "NAME"}).out,
              "#  *  NAME\n1     Anna\n2  *  Bert\n3     Cleo\n");
    EXPECT_EQ(Zb({"list", "people.dbf", "--deleted", "only", "--fields", "paid,name"}).out,
              "#  *  PAID  NAME\n2  *  F     Bert\n");
    EXPECT_EQ(Zb({"export", "people.dbf", "--deleted", "include", "--fields", "NAME"}).out,
              "NAME,_deleted\nAnna,F\nBert,T\nCleo,F\n");
}

TEST_F(Tool, RangesAndLimits) {
    WriteFile("n.dbf", Table({{"N", 'N', 1}}, {" 1", " 2", " 3", " 4", " 5"}));
    auto numbers = [](const Arguments& more) {
        Arguments arguments{"export", "n.dbf", "--no-header"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Zb(arguments).out;
    };
    EXPECT_EQ(numbers({"--records", "2-3"}), "2\n3\n");
    EXPECT_EQ(numbers({"--records", "4-"}), "4\n5\n");
    EXPECT_EQ(numbers({"--records", "-2"}), "1\n2\n");
    EXPECT_EQ(numbers({"--records", "3"}), "3\n");
    EXPECT_EQ(numbers({"--records", "7-9"}), "");
    EXPECT_EQ(numbers({"--records", "2-", "--limit", "2"}), "2\n3\n");
    EXPECT_EQ(numbers({"--limit", "0"}), "");
}

TEST_F(Tool, ListAsJsonLines) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(Zb({"list", "people.dbf", "--json"}).out,
              "{\"_record\":1,\"NAME\":\"Anna\",\"BORN\":\"1970-01-01\",\"AMOUNT\":1.50,\"PAID\":true}\n"
              "{\"_record\":3,\"NAME\":\"Cleo\",\"BORN\":null,\"AMOUNT\":1000.00,\"PAID\":null}\n");
}

TEST_F(Tool, ExportAsJsonIsOneArray) {
    WriteFile("people.dbf", People());
    Json all = Json::parse(Zb({"export", "people.dbf", "--format", "json"}).out);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0], Json::parse(R"({"NAME":"Anna","BORN":"1970-01-01","AMOUNT":1.5,"PAID":true})"));
    EXPECT_EQ(Zb({"export", "people.dbf", "--format", "json", "--limit", "0"}).out, "[]\n");
    EXPECT_EQ(Zb({"export", "people.dbf", "--format", "jsonl", "--limit", "0"}).out, "");
    EXPECT_EQ(Zb({"export", "people.dbf", "--format", "jsonl", "--fields", "NAME"}).out,
              "{\"NAME\":\"Anna\"}\n{\"NAME\":\"Cleo\"}\n");
}

TEST_F(Tool, JsonNumbersKeepTheirDigitsAndBecomeWellFormed) {
    WriteFile("n.dbf", Table({{"N", 'N', 20, 2}},
                             {" 12345678901234567.89", "                   .5", "                 -.25",
                              "                   7.", "                 +007"}));
    EXPECT_EQ(Zb({"export", "n.dbf", "--format", "jsonl"}).out,
              "{\"N\":12345678901234567.89}\n{\"N\":0.5}\n{\"N\":-0.25}\n{\"N\":7.0}\n{\"N\":7}\n");
}

TEST_F(Tool, CsvQuotesWhatNeedsIt) {
    WriteFile("c.dbf", Table({{"A", 'C', 6}, {"B", 'C', 3}}, {" a,b   1  ", " say\"x ok ", "  x\ny     "}));
    EXPECT_EQ(Zb({"export", "c.dbf"}).out, "A,B\n\"a,b\",1\n\"say\"\"x\",ok\n\" x\ny\",\n");
    EXPECT_EQ(Zb({"export", "c.dbf", "--delimiter", "tab", "--no-header", "--limit", "1"}).out, "a,b\t1\n");
}

TEST_F(Tool, ARowOfOneEmptyValueIsNoEmptyLine) {
    WriteFile("c.dbf", Table({{"A", 'C', 3}}, {"    ", " x  "}));
    EXPECT_EQ(Zb({"export", "c.dbf"}).out, "A\n\"\"\nx\n");
}

TEST_F(Tool, ExportToAFileReplacesItOnlyWithForce) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(Zb({"export", "people.dbf", "-o", "out.csv", "--fields", "NAME"}).status, 0);
    EXPECT_EQ(ReadFile("out.csv"), "NAME\nAnna\nCleo\n");
    WriteFile("out.csv", "mine");
    Result refused = Zb({"export", "people.dbf", "-o", "out.csv"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(
        refused.err,
        "zb: out.csv: ErrAccess (-40): an erase or rename was refused; the file exists and is left as it was "
        "(--force replaces it)\n");
    EXPECT_EQ(ReadFile("out.csv"), "mine");
    EXPECT_EQ(Zb({"export", "people.dbf", "-o", "out.csv", "--force", "--fields", "NAME"}).status, 0);
    EXPECT_EQ(ReadFile("out.csv"), "NAME\nAnna\nCleo\n");
}

TEST_F(Tool, ValuesThatDoNotParseNeverEndAListing) {
    Bytes table =
        Table({{"D", 'D', 8}, {"N", 'N', 4, 1}, {"L", 'L', 1}},
              {" 20230229****X", " 00000000 1,5?", " 2023AB01" + Bytes(4, '\0') + "t", "           12y"});
    WriteFile("bad.dbf", table);
    Result empty = Zb({"export", "bad.dbf"});
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.out, "D,N,L\n,,\n,,\n,,T\n,12,T\n");
    EXPECT_EQ(empty.err, "zb: bad.dbf: 7 values don't parse, shown empty\n");
    Result raw = Zb({"export", "bad.dbf", "--bad-values", "raw"});
    EXPECT_EQ(raw.out, "D,N,L\n20230229,****,X\n00000000,\" 1,5\",\n2023AB01,,T\n,12,T\n");
    EXPECT_EQ(raw.err, "zb: bad.dbf: 7 values don't parse, shown as raw text\n");
    EXPECT_EQ(Zb({"export", "bad.dbf", "--format", "jsonl", "--limit", "1"}).out,
              "{\"D\":null,\"N\":null,\"L\":null}\n");
    EXPECT_EQ(Zb({"export", "bad.dbf", "--format", "jsonl", "--limit", "1", "--bad-values", "raw"}).out,
              "{\"D\":\"20230229\",\"N\":\"****\",\"L\":\"X\"}\n");
}

TEST_F(Tool, ZeroBytesThatPadATextAreNoPartOfIt) {
    WriteFile("z.dbf", Table({{"C", 'C', 5}, {"N", 'N', 3}}, {Bytes(" ab\0\0\0 1\0", 9)}));
    EXPECT_EQ(Zb({"export", "z.dbf"}).out, "C,N\nab,1\n");
}

TEST_F(Tool, FieldsOfTheSameNameStayApart) {
    WriteFile("twice.dbf", Table({{"A", 'C', 1}, {"A", 'C', 1}}, {" xy"}));
    EXPECT_EQ(Zb({"export", "twice.dbf"}).out, "A,A_2\nx,y\n");
}

TEST_F(Tool, ControlCharactersDoNotReachTheTerminalFromATable) {
    WriteFile("esc.dbf", Table({{"C", 'C', 6}}, {" \x1B[2J\na"}));
    EXPECT_EQ(Zb({"list", "esc.dbf"}).out, "#  C\n1  \\x1B[2J\\x0Aa\n");
}

TEST_F(Tool, AlignmentCountsColumnsAndNotBytes) {
    WriteFile("w.dbf", Table({{"A", 'C', 4}, {"B", 'C', 1}}, {" \xD6\xD0\xCE\xC4x", " ab  y"}, 0x4D));
    EXPECT_EQ(Zb({"list", "w.dbf"}).out, "#  A     B\n1  中文  x\n2  ab    y\n");
}

TEST_F(Tool, ColourIsForTerminalsWithoutNoColor) {
    WriteFile("a.dbf", Table({{"A", 'C', 1}}, {" x"}));
    EXPECT_EQ(ZbOnTerminal({"list", "a.dbf"}).out, "\x1b[1m#  A\x1b[0m\r\n1  x\r\n");
    EXPECT_EQ(ZbOnTerminal({"list", "a.dbf"}, {}, {"NO_COLOR=1"}).out, "#  A\r\n1  x\r\n");
    EXPECT_EQ(Zb({"list", "a.dbf"}).out, "#  A\n1  x\n");
}

}  // namespace
}  // namespace test
