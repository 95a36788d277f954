// Failures: one line with the code's name, its meaning and the file, and an exit
// status that tells their kinds apart.
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>

#include "tool.h"

namespace test {
namespace {

const std::vector<Column> kOne{{"A", 'C', 3}};

TEST_F(Tool, UsageFailuresEndWithTwo) {
    WriteFile("t.dbf", Table(kOne, {" abc"}));
    for (const Arguments& arguments : std::vector<Arguments>{{},
                                                             {"nonsense"},
                                                             {"list"},
                                                             {"list", "t.dbf", "--nonsense"},
                                                             {"list", "t.dbf", "--deleted", "perhaps"},
                                                             {"list", "t.dbf", "--records", "3-2"},
                                                             {"list", "t.dbf", "--records", "0"},
                                                             {"list", "t.dbf", "--records", "x"},
                                                             {"list", "t.dbf", "--dialect", "10"},
                                                             {"export", "t.dbf", "--format", "xml"},
                                                             {"export", "t.dbf", "--delimiter", "ab"},
                                                             {"append", "t.dbf", "A"},
                                                             {"set", "t.dbf", "one", "A=1"}}) {
        Result result = Zb(arguments);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.substr(0, 4), "zb: ");
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST_F(Tool, HelpAndVersionAreData) {
    Result help = Zb({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const char* command :
         {"info", "list", "export", "import", "create", "append", "set", "delete", "recall", "pack"})
        EXPECT_NE(help.out.find(command), std::string::npos) << command;
    EXPECT_EQ(Zb({"list", "--help"}).status, 0);
    EXPECT_EQ(Zb({"--version"}).out, "zb 1.0.0\n");
}

TEST_F(Tool, WhatIsNotThereEndsWithThree) {
    WriteFile("t.dbf", Table(kOne, {" abc"}));
    Result file = Zb({"list", "none.dbf"});
    EXPECT_EQ(file.status, 3);
    EXPECT_EQ(file.err,
              "zb: none.dbf: ErrOpen (-46): the file couldn't be opened or created; there is no such file\n");
    Result field = Zb({"list", "t.dbf", "--fields", "B"});
    EXPECT_EQ(field.status, 3);
    EXPECT_EQ(field.err,
              "zb: t.dbf: ErrFieldName (-28): a field name that is empty, too long or unknown; there is no "
              "field B (zb info shows all)\n");
    EXPECT_EQ(Zb({"set", "t.dbf", "2", "A=x"}).status, 3);
    EXPECT_EQ(Zb({"set", "t.dbf", "0", "A=x"}).status, 3);
    EXPECT_EQ(Zb({"recall", "t.dbf", "2"}).status, 3);
    EXPECT_EQ(Zb({"import", "none.csv", "u.dbf"}).status, 3);
}

TEST_F(Tool, DamagedAndForeignFilesEndWithFour) {
    WriteFile("short.dbf", "\n");
    Result result = Zb({"info", "short.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err, "zb: short.dbf: ErrRead (-2): a read failed or was short\n");

    WriteFile("version.dbf", Table(kOne, {}, 0, 0x30));
    result = Zb({"list", "version.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err,
              "zb: version.dbf: ErrFileType (-18): the version or signature doesn't fit the dialect or file "
              "type; its "
              "version byte is 0x30\n");

    WriteFile("type.dbf", Table({{"A", 'X', 3}}, {}));
    result = Zb({"list", "type.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.err,
              "zb: type.dbf: ErrFieldType (-31): an unknown field type, or one that the dialect lacks\n");

    Bytes length = Table(kOne, {});
    length[10] = 9;
    WriteFile("length.dbf", length);
    EXPECT_EQ(Zb({"list", "length.dbf"}).status, 4);
}

TEST_F(Tool, ATableCutShortShowsWhatItHas) {
    Bytes table = Table(kOne, {" abc", " def", " ghi"});
    WriteFile("t.dbf", table.substr(0, table.size() - 4));
    Result result = Zb({"export", "t.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.out, "A\nabc\ndef\n");
    EXPECT_EQ(result.err,
              "zb: t.dbf: WarnFileSize (7): the file's length doesn't fit its header (zb check tells more)\n"
              "zb: t.dbf: ErrRead (-2): a read failed or was short; record 3; only the records before it are "
              "shown\n");
    result = Zb({"info", "t.dbf"});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.out.find("records     3 (2 live, 0 deleted)\n"), std::string::npos) << result.out;
}

TEST_F(Tool, NamesThatDifferInCaseAreFoundWhereOneMatches) {
    mkdir("sub", 0777);
    WriteFile("sub/Table.DBF", Table(kOne, {" abc"}));
    EXPECT_EQ(Zb({"export", "sub/table.dbf"}).out, "A\nabc\n");
    WriteFile("sub/TABLE.dbf", Table(kOne, {" def"}));
    Result two = Zb({"export", "sub/table.dbf"});
    EXPECT_EQ(two.status, 3);
    EXPECT_NE(two.err.find("several files differ from it in case only:"), std::string::npos) << two.err;
    EXPECT_EQ(Zb({"export", "sub/Table.DBF"}).out, "A\nabc\n");
    EXPECT_EQ(Zb({"list", "sub"}).status, 1);
}

class Locked : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        WriteFile("t.dbf", Table(kOne, {" abc", " def"}));
    }
    void Open(uint16_t mode) {
        uint16_t opened = 0;
        ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", mode), 0);
        handle = static_cast<int16_t>(opened);
    }
    int16_t handle = -1;
    uint16_t conflict = 0;
};

constexpr uint16_t kShared = 1 | ZB_Shared;

TEST_F(Locked, AnAppendGivesWayToTheHeaderLock) {
    Open(kShared);
    ASSERT_EQ(ZBDDLOCK(handle, 1, &conflict), 0);
    Bytes before = ReadFile("t.dbf");
    Result result = Zb({"append", "t.dbf", "A=x", "--wait", "0.1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: t.dbf: ErrLockViolation (-37): a lock is held by another program; no record was added (zb "
              "locks shows who holds it)\n");
    EXPECT_EQ(ReadFile("t.dbf"), before);
    ZBDDUNLOCK(handle, 1, &conflict);
    EXPECT_EQ(Zb({"append", "t.dbf", "A=x", "--wait", "0.1"}).status, 0);
}

TEST_F(Locked, ChangesGiveWayToTheLockOfTheirRecord) {
    Open(kShared);
    ASSERT_EQ(ZBDDRLOCK(handle, 2, 7, &conflict), 0);
    Result result = Zb({"set", "t.dbf", "2", "A=x", "--wait", "0.1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: t.dbf: ErrLockViolation (-37): a lock is held by another program; record 2 is unchanged "
              "(zb locks shows who holds it)\n");
    EXPECT_EQ(Zb({"set", "t.dbf", "1", "A=x", "--wait", "0.1"}).status, 0);
    result = Zb({"delete", "t.dbf", "1-2", "--wait", "0.1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: t.dbf: ErrLockViolation (-37): a lock is held by another program; record 2 is unchanged "
              "(zb locks shows who holds it); "
              "1 record "
              "before it deleted\n");
    EXPECT_EQ(ReadFile("t.dbf", 65), "*x   def\x1A");
    EXPECT_EQ(Zb({"list", "t.dbf"}).status, 0);
}

TEST_F(Locked, PackWantsTheFileForItself) {
    Open(kShared);
    Bytes before = ReadFile("t.dbf");
    Result result = Zb({"pack", "t.dbf", "--wait", "0.1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.err,
        "zb: t.dbf: ErrLockViolation (-37): a lock is held by another program; another program has the file "
        "open (zb locks shows which)\n");
    EXPECT_EQ(ReadFile("t.dbf"), before);
    EXPECT_FALSE(FileExists("t.BAK"));
}

TEST_F(Locked, AFileThatAnotherKeepsToItself) {
    Open(1);
    Result result = Zb({"list", "t.dbf", "--wait", "0.1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: t.dbf: ErrOpen (-46): the file couldn't be opened or created; another program may keep it "
              "to itself (zb locks shows which)\n");
}

TEST_F(Tool, AFullDiskIsTold) {
    WriteFile("t.dbf", Table(kOne, {" abc"}));
    int status = std::system(ZB_TOOL " export t.dbf >/dev/full 2>err.txt");
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(ReadFile("err.txt"),
              "zb: standard output: ErrWrite (-1): a write failed or was short; No space left on device\n");
}

TEST_F(Tool, AnOutputThatCannotBeMade) {
    WriteFile("t.dbf", Table(kOne, {" abc"}));
    Result result = Zb({"export", "t.dbf", "-o", "none/out.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "zb: none/out.csv: ErrOpen (-46): the file couldn't be opened or created; No such file or "
              "directory\n");
}

}  // namespace
}  // namespace test
