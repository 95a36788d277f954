// zb import: CSV becomes a table, and nothing half-done stays.
#include <filesystem>

#include "tool.h"

namespace test {
namespace {

// The fields of a table as a schema: "A:C3,B:N5.2".
std::string SchemaOf(const std::string& name) {
    Bytes file = ReadFile(name);
    std::string schema;
    for (size_t at = 32; file[at] != '\x0D'; at += 32) {
        if (!schema.empty()) schema += ",";
        schema += std::string(file.c_str() + at) + ":" + file[at + 11] +
                  std::to_string(static_cast<unsigned char>(file[at + 16]));
        if (file[at + 17] != 0) schema += "." + std::to_string(file[at + 17]);
    }
    return schema;
}

size_t FilesHere() {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(".")) ++count;
    return count;
}

TEST_F(Tool, TypesAreGuessedFromTheData) {
    WriteFile("in.csv",
              "Full name,Born on,Amount,Paid?,Zip,Mixed,Nothing\n"
              "Zoé,1970-01-01,1.5,T,00501,1,\n"
              "Bo,,-1234.25,no,12345,x,\n");
    Result result = Zb({"import", "in.csv", "t.dbf"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "zb: t.dbf: imported 2 records of 7 fields\n");
    EXPECT_EQ(SchemaOf("t.dbf"), "FULL_NAME:C3,BORN_ON:D8,AMOUNT:N8.2,PAID:L1,ZIP:C5,MIXED:C1,NOTHING:C1");
    EXPECT_EQ(Zb({"export", "t.dbf", "--no-header"}).out,
              "Zoé,1970-01-01,1.50,T,00501,1,\nBo,,-1234.25,F,12345,x,\n");
}

TEST_F(Tool, ASchemaSaysWhatTheFieldsAre) {
    WriteFile("in.csv", "B,a\n2,x\n3,yy\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--schema", "A:C5,B:N4.1"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 97), " x     2.0 yy    3.0\x1A");
}

TEST_F(Tool, CsvAsOthersWriteIt) {
    WriteFile("in.csv",
              "\xEF\xBB\xBF"
              "A,B\r\n\"x,\"\"1\"\"\r\nz\",1\r\n\r\n,\"\"\r\ny,2");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf"}).status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "A,B\n\"x,\"\"1\"\"\r\nz\",1\n,\ny,2\n");
    WriteFile("in.csv", "A;B\n1,5;2\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--force", "--delimiter", ";"}).status, 0);
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "A,B\n\"1,5\",2\n");
}

TEST_F(Tool, FromStandardInputAndWithoutTitles) {
    EXPECT_EQ(Zb({"import", "-", "t.dbf", "--no-header"}, "1,a\n2,bb\n").status, 0);
    EXPECT_EQ(SchemaOf("t.dbf"), "FIELD1:N1,FIELD2:C2");
    EXPECT_EQ(Zb({"export", "t.dbf", "--no-header"}).out, "1,a\n2,bb\n");
}

TEST_F(Tool, TitlesBecomeFieldNames) {
    WriteFile("in.csv", "A long title one,A long title two,2nd,,a-b\n1,2,3,4,5\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf"}).status, 0);
    EXPECT_EQ(SchemaOf("t.dbf"), "A_LONG_TIT:N1,A_LONG_T_2:N1,F2ND:N1,FIELD:N1,A_B:N1");
}

TEST_F(Tool, TheEncodingIsStatedBesideTheTable) {
    WriteFile("in.csv", "A\nПри\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--encoding", "cp866"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 65), " \x8F\xE0\xA8\x1A");
    EXPECT_EQ(ReadFile("t.cpg"), "CP866\n");
    EXPECT_EQ(Zb({"export", "t.dbf"}).out, "A\nПри\n");
}

TEST_F(Tool, CsvInAnotherEncoding) {
    WriteFile("in.csv", "A\nZo\x82\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--csv-encoding", "cp850"}).status, 0);
    EXPECT_EQ(ReadFile("t.dbf", 65), " Zo\xE9\x1A");
    EXPECT_FALSE(FileExists("t.cpg"));
}

TEST_F(Tool, AnImportThatFailsLeavesNothing) {
    WriteFile("in.csv", "A,B\nx,1\ny,two\n");
    Result result = Zb({"import", "in.csv", "t.dbf", "--schema", "A:C1,B:N3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: in.csv, line 3: ErrFieldValue (-33): a value that the field can't hold; B: 'two' is no "
              "number; t.dbf "
              "was not made\n");
    EXPECT_EQ(FilesHere(), 1u);
    WriteFile("t.dbf", "mine");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--schema", "A:C1,B:N3", "--force"}).status, 1);
    EXPECT_EQ(ReadFile("t.dbf"), "mine");
    EXPECT_EQ(FilesHere(), 2u);
}

TEST_F(Tool, LooseStoresWhatFitsAndTellsTheRest) {
    WriteFile("in.csv", "A,B\nxyz,1.26\ny,two\nlast,99\nq\n");
    Result result = Zb({"import", "in.csv", "t.dbf", "--schema", "A:C2,B:N3.1", "--loose"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err,
              "zb: t.dbf: imported 4 records of 2 fields\n"
              "zb: t.dbf: 1 number rounded\n"
              "zb: t.dbf: 2 texts cut to the field's width\n"
              "zb: t.dbf: 2 values left blank, which the fields can't hold\n"
              "zb: t.dbf: 1 row with too few or too many values\n");
    EXPECT_EQ(ReadFile("t.dbf", 97), " xy1.3 y     la    q    \x1A");
}

TEST_F(Tool, ACutDoesNotSplitACharacter) {
    WriteFile("in.csv", "A\na中文\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--schema", "A:C4", "--loose", "--encoding", "gbk"}).status,
              0);
    EXPECT_EQ(ReadFile("t.dbf", 65), " a\xD6\xD0 \x1A");
}

TEST_F(Tool, RowsOfTheWrongLengthAreRefused) {
    WriteFile("in.csv", "A,B\n1,2\n3\n");
    Result result = Zb({"import", "in.csv", "t.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err, "zb: in.csv, line 3: 1 value instead of 2; t.dbf was not made\n");
    WriteFile("in.csv", "A\n\"x\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf"}).status, 4);
    WriteFile("in.csv", "");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf"}).status, 4);
    EXPECT_FALSE(FileExists("t.dbf"));
}

TEST_F(Tool, AppendAddsToATableThatIsThere) {
    WriteFile("t.dbf", Table({{"A", 'C', 2}, {"N", 'N', 2}}, {" a  1"}));
    WriteFile("in.csv", "N,A\n2,b\n3,c\n");
    Result result = Zb({"import", "in.csv", "t.dbf", "--append"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "zb: t.dbf: added 2 records of 2 fields\n");
    EXPECT_EQ(ReadFile("t.dbf", 97), " a  1 b  2 c  3\x1A");
}

TEST_F(Tool, AnAppendThatFailsTellsHowFarItCame) {
    WriteFile("t.dbf", Table({{"N", 'N', 2}}, {}));
    WriteFile("in.csv", "N\n1\n2\n333\n");
    Result result = Zb({"import", "in.csv", "t.dbf", "--append"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: in.csv, line 4: ErrFieldValue (-33): a value that the field can't hold; N: '333' has too "
              "many digits "
              "for N2.0; 2 records before it added to t.dbf\n");
    EXPECT_EQ(ReadFile("t.dbf", 65), "  1  2\x1A");
}

TEST_F(Tool, ColumnsThatFitNoField) {
    WriteFile("in.csv", "A,X\n1,2\n");
    Result result = Zb({"import", "in.csv", "t.dbf", "--schema", "A:C1,B:C1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "zb: in.csv: there is no field for the column 'X'; t.dbf was not made\n");
    WriteFile("in.csv", "A,a\n1,2\n");
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--schema", "A:C1"}).status, 2);
}

TEST_F(Tool, AnExportComesBackTheSame) {
    Bytes table = Table({{"C", 'C', 8}, {"N", 'N', 8, 3}, {"D", 'D', 8}, {"L", 'L', 1}},
                        {" a,\"b\" \xE9 "
                         "   1.250"
                         "20240229T",
                         "*          -0.500        F", " x\ny      100.000        ?"});
    WriteFile("t.dbf", table);
    ASSERT_EQ(Zb({"export", "t.dbf", "-o", "t.csv", "--deleted", "include"}).status, 0);
    ASSERT_EQ(Zb({"import", "t.csv", "u.dbf", "--schema", "C:C8,N:N8.3,D:D,L:L"}).status, 0);
    Bytes want = table.substr(161);
    want[want.size() - 2] = ' ';  // an unknown logical is a blank one
    EXPECT_EQ(ReadFile("u.dbf", 161), want);
}

TEST_F(Tool, ABarOnATerminalForLongWork) {
    std::string csv = "A,B\n";
    for (int row = 0; row < 1500000; ++row) csv += "some text,1234567\n";
    WriteFile("in.csv", csv);
    std::string shown = ZbOnTerminal({"import", "in.csv", "t.dbf"}).out;
    EXPECT_NE(shown.find("importing ["), std::string::npos);
    EXPECT_EQ(Zb({"import", "in.csv", "t.dbf", "--force"}).err,
              "zb: t.dbf: imported 1500000 records of 2 fields\n");
}

// ---- JSON lines ----

TEST_F(Tool, JsonLinesBecomeATable) {
    WriteFile(
        "in.jsonl",
        "{\"name\":\"Zo\\u00e9\",\"born\":\"1970-01-01\",\"amount\":1.50,\"paid\":true,\"zip\":\"12345\"}\n"
        "\n"
        "{\"amount\":-1.2e3,\"name\":\"Bo\",\"more\":1234567890123456.89,\"paid\":null}\r\n");
    Result result = Zb({"import", "in.jsonl", "t.dbf"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "zb: t.dbf: imported 2 records of 6 fields\n");
    EXPECT_EQ(SchemaOf("t.dbf"), "NAME:C3,BORN:D8,AMOUNT:N8.2,PAID:L1,ZIP:C5,MORE:N19.2");
    EXPECT_EQ(Zb({"export", "t.dbf", "--no-header"}).out,
              "Zoé,1970-01-01,1.50,T,12345,\nBo,,-1200.00,,,1234567890123456.89\n");
}

TEST_F(Tool, JsonLinesComeBackAsTheyWent) {
    WriteFile("t.dbf", Table({{"A", 'C', 3}, {"N", 'N', 6, 2}, {"D", 'D', 8}, {"L", 'L', 1}},
                             {" a\"b  1.5020240229T", "*x\ny               "}));
    Result lines = Zb({"export", "t.dbf", "--format", "jsonl", "--deleted", "include"});
    EXPECT_EQ(Zb({"import", "-", "u.dbf", "--format", "jsonl", "--schema", "A:C3,N:N6.2,D:D,L:L"}, lines.out)
                  .status,
              0);
    EXPECT_EQ(ReadFile("u.dbf", 161), ReadFile("t.dbf", 161));
    // Lines of a listing carry record numbers, which mean nothing here.
    lines = Zb({"list", "t.dbf", "--json"});
    Result added = Zb({"import", "-", "u.dbf", "--format", "jsonl", "--append"}, lines.out);
    EXPECT_EQ(added.err, "zb: u.dbf: added 1 record of 4 fields\n");
    EXPECT_EQ(Zb({"diff", "t.dbf", "u.dbf", "--brief"}).status, 1);
}

TEST_F(Tool, JsonLinesThatMakeNoRecord) {
    auto refusal = [](const std::string& line) {
        WriteFile("in.ndjson", "{\"A\":\"x\"}\n" + line + "\n");
        Result result = Zb({"import", "in.ndjson", "t.dbf"});
        EXPECT_NE(result.status, 0) << line;
        EXPECT_FALSE(FileExists("t.dbf"));
        return result.err;
    };
    EXPECT_EQ(refusal("nonsense"), "zb: in.ndjson, line 2: the line is no JSON\n");
    EXPECT_EQ(refusal("{\"A\":1} x"), "zb: in.ndjson, line 2: the line is no JSON\n");
    EXPECT_EQ(refusal("[1]"), "zb: in.ndjson, line 2: the line is no JSON object\n");
    EXPECT_EQ(refusal("7"), "zb: in.ndjson, line 2: the line is no JSON object\n");
    EXPECT_EQ(refusal("{\"A\":[1]}"),
              "zb: in.ndjson, line 2: 'A' is a list or an object, which no field can hold\n");
    WriteFile("in.ndjson", "{\"A\":\"x\"}\n{\"B\":\"x\"}\n");
    Result unknown = Zb({"import", "in.ndjson", "t.dbf", "--schema", "A:C1"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "zb: in.ndjson: there is no field for the column 'B'; t.dbf was not made\n");
}

}  // namespace
}  // namespace test
