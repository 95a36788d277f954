// zb diff: structure and records, by position and by key.
#include <unistd.h>

#include "tool.h"

namespace test {
namespace {

const std::vector<Column> kFields{{"CODE", 'C', 2}, {"N", 'N', 5, 1}, {"BORN", 'D', 8}};

Bytes Old() { return Table(kFields, {" AA  1.519700101", " BB  2.0        ", "*CC     20010203"}); }

TEST_F(Tool, DiffOfEqualTablesSaysNothing) {
    WriteFile("a.dbf", Old());
    WriteFile("b.dbf", Old());
    Result result = Zb({"diff", "a.dbf", "b.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    // The same values in wider fields: the structure alone differs.
    WriteFile("b.dbf", Table({{"CODE", 'C', 4}, {"N", 'N', 6, 2}, {"BORN", 'D', 8}},
                             {" AA    1.5019700101", " BB      +2        ", "*CC        20010203"}));
    result = Zb({"diff", "a.dbf", "b.dbf"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "--- a.dbf, 3 records\n+++ b.dbf, 3 records\n"
              "- field CODE C2\n+ field CODE C4\n- field N N5.1\n+ field N N6.2\n");
}

TEST_F(Tool, DiffByPosition) {
    WriteFile("a.dbf", Old());
    WriteFile("b.dbf", Table(kFields, {" AA  1.519700101", "*BX  3.020240101"}));
    Result result = Zb({"diff", "a.dbf", "b.dbf"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "--- a.dbf, 3 records\n+++ b.dbf, 2 records\n"
              "! record 2\n"
              "    _deleted: 'F' -> 'T'\n"
              "    CODE: 'BB' -> 'BX'\n"
              "    N: '2.0' -> '3.0'\n"
              "    BORN: '' -> '2024-01-01'\n"
              "- record 3, deleted: CODE 'CC', BORN '2001-02-03'\n");
    EXPECT_EQ(Zb({"diff", "b.dbf", "a.dbf"}).out.find("+ record 3, deleted: CODE 'CC'") != std::string::npos,
              true);
}

TEST_F(Tool, DiffByKey) {
    WriteFile("a.dbf", Old());
    WriteFile("b.dbf", Table(kFields, {"*CC     20010203", " AA  9.519700101", " DD             "}));
    Result result = Zb({"diff", "a.dbf", "b.dbf", "--key", "code"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "--- a.dbf, 3 records\n+++ b.dbf, 3 records\n"
              "! record 1 -> 2 (code AA)\n"
              "    N: '1.5' -> '9.5'\n"
              "- record 2: CODE 'BB', N '2.0'\n"
              "+ record 3: CODE 'DD'\n");
    // Keys that are there twice pair off in their order.
    WriteFile("a.dbf", Table(kFields, {" AA  1.0        ", " AA  2.0        "}));
    WriteFile("b.dbf", Table(kFields, {" ZZ             ", " AA  1.0        ", " AA  2.0        "}));
    EXPECT_EQ(Zb({"diff", "a.dbf", "b.dbf", "--key", "CODE"}).out,
              "--- a.dbf, 2 records\n+++ b.dbf, 3 records\n+ record 1: CODE 'ZZ'\n");
}

TEST_F(Tool, DiffOfSomeFieldsAndInShort) {
    WriteFile("a.dbf", Old());
    WriteFile("b.dbf", Table(kFields, {" AA  9.019700101", " BB  2.0        ", "*CC     20010203"}));
    EXPECT_EQ(Zb({"diff", "a.dbf", "b.dbf", "--fields", "CODE,BORN"}).status, 0);
    Result brief = Zb({"diff", "a.dbf", "b.dbf", "--brief"});
    EXPECT_EQ(brief.status, 1);
    EXPECT_EQ(brief.out, "a.dbf and b.dbf differ\n");
}

TEST_F(Tool, DiffOfMemosIsOneOfTheirTexts) {
    for (const char* name : {"a.dbf", "b.dbf"})
        ASSERT_EQ(Zb({"create", name, "--schema", "NOTE:M"}).status, 0);
    ASSERT_EQ(Zb({"append", "b.dbf", "NOTE=gone again"}).status, 0);
    ASSERT_EQ(Zb({"append", "a.dbf", "NOTE=first"}).status, 0);
    ASSERT_EQ(Zb({"append", "b.dbf", "NOTE=first"}).status, 0);
    ASSERT_EQ(Zb({"delete", "b.dbf", "1"}).status, 0);
    ASSERT_EQ(Zb({"pack", "b.dbf"}).status, 0);
    EXPECT_EQ(Zb({"diff", "a.dbf", "b.dbf"}).status, 0);
    ASSERT_EQ(Zb({"set", "b.dbf", "1", "NOTE=other"}).status, 0);
    EXPECT_NE(Zb({"diff", "a.dbf", "b.dbf"}).out.find("    NOTE: 'first' -> 'other'\n"), std::string::npos);
    unlink("b.dbt");
    Result result = Zb({"diff", "a.dbf", "b.dbf"});
    EXPECT_EQ(result.err, "zb: b.dbf: there is no memo file b.dbt, memos compare by their numbers\n");
    EXPECT_NE(result.out.find("    NOTE: 'first' -> '2'\n"), std::string::npos) << result.out;
}

TEST_F(Tool, DiffAsJson) {
    WriteFile("a.dbf", Old());
    WriteFile("b.dbf",
              Table({{"CODE", 'C', 2}, {"N", 'N', 5, 1}, {"X", 'L', 1}}, {" AA  1.5T", " BB     ?"}));
    EXPECT_EQ(Zb({"diff", "a.dbf", "b.dbf", "--json"}).out,
              "{\"change\":\"fieldRemoved\",\"field\":\"BORN\",\"type\":\"D\"}\n"
              "{\"change\":\"fieldAdded\",\"field\":\"X\",\"type\":\"L\"}\n"
              "{\"change\":\"changed\",\"a\":2,\"b\":2,\"fields\":{\"N\":[2.0,null]}}\n"
              "{\"change\":\"removed\",\"record\":3,\"_deleted\":true,\"fields\":{\"CODE\":\"CC\",\"N\":null,"
              "\"BORN\":\"2001-02-03\"}}\n");
}

TEST_F(Tool, DiffOfWhatCannotBeComparedEndsWithTwo) {
    WriteFile("a.dbf", Old());
    EXPECT_EQ(Zb({"diff", "a.dbf", "none.dbf"}).status, 2);
    EXPECT_EQ(Zb({"diff", "a.dbf", "a.dbf", "--key", "NO"}).status, 2);
    EXPECT_EQ(Zb({"diff", "a.dbf"}).status, 2);
    WriteFile("b.dbf", "short");
    EXPECT_EQ(Zb({"diff", "a.dbf", "b.dbf"}).status, 2);
}

}  // namespace
}  // namespace test
