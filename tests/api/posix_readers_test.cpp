// The files that the library writes, read by programs of others.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "support/data_files.h"

namespace test {
namespace {

bool Installed(const std::string& program) {
    return system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

#define NEED(program) ASSERT_TRUE(Installed(program)) << program << " isn't installed (see scripts/packages)"

// What a command writes; the test fails where the command does.
std::string Output(const std::string& command) {
    std::string text;
    FILE* pipe = popen((command + " 2>errors").c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    if (!pipe) return text;
    char bytes[4096];
    while (size_t count = fread(bytes, 1, sizeof bytes, pipe)) text.append(bytes, count);
    int status = pclose(pipe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << "\n" << ReadFile("errors");
    return text;
}

// The live records of a table, by one reader. Which values it quotes depends on
// its version.
std::string AsCsv(const std::string& file) {
    std::string text = Output("ogr2ogr -f CSV /vsistdout/ " + file);
    std::erase(text, '"');
    return text;
}

// All records, by another, which prints fields as their text: a line of words for
// each, with one blank between.
std::string AsDump(const std::string& file) {
    std::istringstream lines(Output("dbfdump -r " + file));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        const char* blank = "";
        for (std::string word; words >> word; blank = " ") text += blank + word;
        text += '\n';
    }
    return text;
}

class OtherReaders : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_EQ(ZBCDSTYLE(4), 0);
    }
    // Four records, of which the third is deleted. The file is open.
    int16_t Write(const std::string& name, int dialect, bool memo = false) {
        Specs specs = {Spec("NAME", 'C', 10), Spec("PRICE", 'N', 8, 2), Spec("BORN", 'D'),
                       Spec("COUNT", 'N', 4)};
        if (memo) specs.push_back(Spec("NOTE", 'M'));
        int16_t data = CreateAndOpen(name, specs, dialect);
        struct {
            const char* name;
            double price;
            const char* born;
            double count;
        } const rows[] = {{"Anna", 10.5, "19960229", 7},
                          {"Bert", -3.25, "19701231", -1},
                          {"Gone", 1, "20200101", 0},
                          {"Cleo", 0, "20010101", 9999}};
        uint32_t block = 12;
        for (auto& row : rows) {
            EXPECT_EQ(ZBDDFPUT(data, 0, row.name), 0);
            EXPECT_EQ(ZBDDFPUT(data, 1, &row.price), 0);
            EXPECT_EQ(ZBDDFPUT(data, 2, row.born), 0);
            EXPECT_EQ(ZBDDFPUT(data, 3, &row.count), 0);
            if (memo) {
                EXPECT_EQ(ZBDDFPUT(data, 4, &block), 0);
                block++;
            }
            Append(data);
        }
        EXPECT_EQ(ZBDDRDEL(data, 3), 0);
        return data;
    }
};

constexpr char Csv[] =
    "NAME,PRICE,BORN,COUNT\n"
    "Anna,10.50,1996/02/29,7\n"
    "Bert,-3.25,1970/12/31,-1\n"
    "Cleo,0.00,2001/01/01,9999\n";

constexpr char Dump[] =
    "NAME PRICE BORN COUNT\n"
    "Anna 10.50 19960229 7\n"
    "Bert -3.25 19701231 -1\n"
    "Gone 1.00 20200101 0 (DELETED)\n"
    "Cleo 0.00 20010101 9999\n";

constexpr char PackedDump[] =
    "NAME PRICE BORN COUNT\n"
    "Anna 10.50 19960229 7\n"
    "Bert -3.25 19701231 -1\n"
    "Cleo 0.00 20010101 9999\n";

constexpr char MemoCsv[] =
    "NAME,PRICE,BORN,COUNT,NOTE\n"
    "Anna,10.50,1996/02/29,7,12\n"
    "Bert,-3.25,1970/12/31,-1,13\n"
    "Cleo,0.00,2001/01/01,9999,15\n";

TEST_F(OtherReaders, ReadEveryDialectAsCsv) {
    NEED("ogr2ogr");
    for (int dialect = 1; dialect <= 9; dialect++) {
        EXPECT_EQ(ZBDDCLOSE(Write("T.DBF", dialect)), 0);
        EXPECT_EQ(AsCsv("T.DBF"), Csv) << dialect;
    }
}

TEST_F(OtherReaders, DumpEveryDialect) {
    NEED("dbfdump");
    for (int dialect = 1; dialect <= 9; dialect++) {
        EXPECT_EQ(ZBDDCLOSE(Write("T.DBF", dialect)), 0);
        EXPECT_EQ(AsDump("T.DBF"), Dump) << dialect;
    }
}

TEST_F(OtherReaders, ReadEveryVersionWithMemoFields) {
    NEED("ogr2ogr");
    for (int dialect : {1, 2, 4}) {
        EXPECT_EQ(ZBDDCLOSE(Write("T.DBF", dialect, true)), 0);
        EXPECT_EQ(AsCsv("T.DBF"), MemoCsv) << dialect;
    }
}

TEST_F(OtherReaders, ReadAFileThatIsStillOpen) {
    NEED("ogr2ogr");
    Write("T.DBF", 1);
    EXPECT_EQ(AsCsv("T.DBF"), Csv);
}

// It has no end mark.
TEST_F(OtherReaders, ReadAPackedFile) {
    NEED("ogr2ogr");
    NEED("dbfdump");
    int16_t data = Write("T.DBF", 1);
    ASSERT_EQ(ZBDDPACK(&data), 0);
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    EXPECT_EQ(AsCsv("T.DBF"), Csv);
    EXPECT_EQ(AsDump("T.DBF"), PackedDump);
}

TEST_F(OtherReaders, ReadAFileWithoutRecords) {
    NEED("ogrinfo");
    NEED("dbfdump");
    ASSERT_EQ(Create("T.DBF", {Spec("NAME", 'C', 10), Spec("PRICE", 'N', 8, 2), Spec("BORN", 'D')}, 1), 0);
    std::string info = Output("ogrinfo -ro -al T.DBF");
    EXPECT_NE(info.find("Feature Count: 0\n"), std::string::npos) << info;
    EXPECT_NE(info.find("NAME: String (10.0)\nPRICE: Real (8.2)\nBORN: Date (10.0)\n"), std::string::npos)
        << info;
    EXPECT_EQ(AsDump("-h T.DBF"),
              "Field 0: Type=C/String, Title=`NAME', Width=10, Decimals=0\n"
              "Field 1: Type=N/Double, Title=`PRICE', Width=8, Decimals=2\n"
              "Field 2: Type=D/Double, Title=`BORN', Width=8, Decimals=0\n"
              "NAME PRICE BORN\n");
}

}  // namespace
}  // namespace test
