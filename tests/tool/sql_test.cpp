// zb export to SQL: the text itself, and what two databases make of it.
#include "programs.h"

namespace test {
namespace {

const std::vector<Column> kFields{
    {"NAME", 'C', 8}, {"BORN", 'D', 8}, {"AMOUNT", 'N', 8, 2}, {"PAID", 'L', 1}};

Bytes People() {
    return Table(kFields, {" O'Hara  19700101    1.50T", "*Bert            -1000.25F",
                           " tab\t\\x\n                  "});
}

TEST_F(Tool, SqlForSqlite) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(Zb({"export", "people.dbf", "--format", "sqlite"}).out,
              "BEGIN;\n"
              "CREATE TABLE \"people\" (\n"
              "    \"NAME\" TEXT,\n"
              "    \"BORN\" TEXT,\n"
              "    \"AMOUNT\" NUMERIC,\n"
              "    \"PAID\" INTEGER\n"
              ");\n"
              "INSERT INTO \"people\" (\"NAME\", \"BORN\", \"AMOUNT\", \"PAID\") VALUES\n"
              "('O''Hara','1970-01-01',1.50,1),\n"
              "('tab\t\\x\n',NULL,NULL,NULL);\n"
              "COMMIT;\n");
}

TEST_F(Tool, SqlForPostgres) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(
        Zb({"export", "people.dbf", "--format", "postgres", "--deleted", "include", "--table", "My \"own\""})
            .out,
        "SET client_encoding = 'UTF8';\n"
        "BEGIN;\n"
        "CREATE TABLE \"my \"\"own\"\"\" (\n"
        "    \"name\" text,\n"
        "    \"born\" date,\n"
        "    \"amount\" numeric,\n"
        "    \"paid\" boolean,\n"
        "    \"_deleted\" boolean\n"
        ");\n"
        "COPY \"my \"\"own\"\"\" (\"name\", \"born\", \"amount\", \"paid\", \"_deleted\") FROM stdin;\n"
        "O'Hara\t1970-01-01\t1.50\tT\tf\n"
        "Bert\t\\N\t-1000.25\tF\tt\n"
        "tab\\t\\\\x\\n\t\\N\t\\N\t\\N\tf\n"
        "\\.\n"
        "COMMIT;\n");
}

TEST_F(Tool, SqlOfNoRecordsAndOfNoTable) {
    WriteFile("people.dbf", People());
    EXPECT_EQ(Zb({"export", "people.dbf", "--format", "sqlite", "--no-create", "--limit", "0"}).out,
              "BEGIN;\nCOMMIT;\n");
    EXPECT_EQ(
        Zb({"export", "people.dbf", "--format", "postgres", "--no-create", "--limit", "0", "--fields",
            "NAME"})
            .out,
        "SET client_encoding = 'UTF8';\nBEGIN;\nCOPY \"people\" (\"name\") FROM stdin;\n\\.\nCOMMIT;\n");
}

TEST_F(Tool, SqlOfATableThatIsCutMakesNothing) {
    Bytes people = People();
    WriteFile("people.dbf", people.substr(0, people.size() - 5));
    for (const char* format : {"sqlite", "postgres"}) {
        Result result = Zb({"export", "people.dbf", "--format", format});
        EXPECT_EQ(result.status, 4);
        EXPECT_NE(result.out.find("Hara"), std::string::npos);
        EXPECT_EQ(result.out.substr(result.out.size() - 11), "\nROLLBACK;\n");
    }
}

// Values that are hard to bring over: quotes, tabs, zero bytes, long numbers,
// other letters, memos of lines.
class SqlValues : public Tool {
  protected:
    void SetUp() override {
        Tool::SetUp();
        std::string csv = "TEXT,BIG,SMALL,DAY,YES,NOTE\n";
        csv += "\"it's \"\"quoted\"\" \\n\",1234567890123456.789,-0.5,2024-02-29,T,\"two\nlines\\N\"\n";
        csv += "Zoé €,9999999999999999.999,12,0001-01-01,F,\n";
        csv += ",,,,,\\.\n";
        for (int number = 0; number < 1200; ++number)
            csv += "row " + std::to_string(number) + "," + std::to_string(number) + ".125,0,,,\n";
        Result made =
            Zb({"import", "-", "v.dbf", "--schema", "TEXT:C20,BIG:N20.3,SMALL:N6.1,DAY:D,YES:L,NOTE:M"}, csv);
        ASSERT_EQ(made.status, 0) << made.err;
        ASSERT_EQ(Zb({"delete", "v.dbf", "3"}).status, 0);
    }

    // What the databases have to tell, as lines of values.
    const std::string kFirst = "it's \"quoted\" \\n|1234567890123456.789|-0.5|2024-02-29|";
    const std::string kSecond = "Zoé €|9999999999999999.999|12";
};

TEST_F(SqlValues, SqliteKeepsEachValue) {
    ASSERT_EQ(Shell("sqlite3 --version").status, 0) << "sqlite3 isn't installed (see scripts/packages)";
    ASSERT_EQ(Zb({"export", "v.dbf", "--format", "sqlite", "--deleted", "include", "-o", "v.sql"}).status, 0);
    Result loaded = Shell("sqlite3 -bail v.db < v.sql");
    ASSERT_EQ(loaded.status, 0) << loaded.out;
    auto query = [](const std::string& sql) { return Shell("sqlite3 v.db \"" + sql + "\"").out; };
    EXPECT_EQ(query("SELECT count(*), count(\\\"DAY\\\"), sum(_deleted), max(length(NOTE)) FROM v"),
              "1203|2|1|11\n");
    EXPECT_EQ(query("SELECT * FROM v LIMIT 1"), kFirst + "1|two\nlines\\N|0\n");
    EXPECT_EQ(query("SELECT TEXT, BIG, SMALL FROM v WHERE YES = 0"), kSecond + "\n");
    EXPECT_EQ(query("SELECT TEXT, typeof(TEXT), typeof(BIG), typeof(YES), NOTE FROM v WHERE _deleted"),
              "|text|null|null|\\.\n");
}

TEST_F(SqlValues, PostgresKeepsEachValue) {
    PostgresServer server;
    ASSERT_EQ(server.trouble(), "");
    ASSERT_EQ(Zb({"export", "v.dbf", "--format", "postgres", "--deleted", "include", "-o", "v.sql"}).status,
              0);
    Result loaded = server.Script("v.sql");
    ASSERT_EQ(loaded.status, 0) << loaded.out;
    EXPECT_EQ(
        server
            .Query("SELECT count(*), count(day), count(*) FILTER (WHERE _deleted), max(length(note)) FROM v")
            .out,
        "1203|2|1|11\n");
    EXPECT_EQ(server.Query("SELECT * FROM v LIMIT 1").out, kFirst + "t|two\nlines\\N|f\n");
    EXPECT_EQ(server.Query("SELECT text, big, small FROM v WHERE NOT yes").out, kSecond + ".0\n");
    EXPECT_EQ(server.Query("SELECT text = '', big IS NULL, yes IS NULL, note FROM v WHERE _deleted").out,
              "t|t|t|\\.\n");
    EXPECT_EQ(server.Query("SELECT sum(big) FROM v WHERE text LIKE 'row%'").out, "719550.000\n");
    // Once more, into the table that is there now.
    ASSERT_EQ(Zb({"export", "v.dbf", "--format", "postgres", "--no-create", "-o", "w.sql"}).status, 0);
    ASSERT_EQ(server.Script("w.sql").status, 0);
    EXPECT_EQ(server.Query("SELECT count(*) FROM v").out, "2405\n");
}

}  // namespace
}  // namespace test
