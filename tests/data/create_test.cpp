#include "data/left_files.h"
#include "support/data_files.h"
#include "support/fake_platform.h"

namespace test {
namespace {

struct CreationFailure : LibraryTest {
    FakePlatform fake;

    void TearDown() override {
        LibraryTest::TearDown();
        CloseLeftFiles();
    }

    // Creates a file of two fields whose n-th write fails.
    int32_t CreateWithBadWrite(int nth, int dialect) {
        fake.Reset();
        fake.Fail(Call::Write, nth, 112);
        int32_t code = Create("T.DBF", {Spec("A", 'C', 1), Spec("B", 'C', 2)}, dialect);
        EXPECT_TRUE(fake.HasFailed());
        ZBESCODE(0);
        return code;
    }
};

TEST_F(CreationFailure, AFailedWriteLeavesAPartialFile) {
    StartLog();
    EXPECT_EQ(CreateWithBadWrite(1, 1), -1);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Dcreate", -1}}));
    EXPECT_EQ(FileSize("T.DBF"), 0u);
    EXPECT_EQ(CreateWithBadWrite(2, 1), -1);
    EXPECT_EQ(FileSize("T.DBF"), 32u);
    EXPECT_EQ(CreateWithBadWrite(3, 1), -1);
    EXPECT_EQ(FileSize("T.DBF"), 64u);
    EXPECT_EQ(CreateWithBadWrite(4, 1), -1);
    EXPECT_EQ(FileSize("T.DBF"), 96u);
}

TEST_F(CreationFailure, ThePaddedDialectWritesItsEndInTwoSteps) {
    EXPECT_EQ(CreateWithBadWrite(4, 9), -1);
    EXPECT_EQ(FileSize("T.DBF"), 96u);
    EXPECT_EQ(CreateWithBadWrite(5, 9), -1);
    EXPECT_EQ(FileSize("T.DBF"), 128u);
}

TEST_F(CreationFailure, AFailedWriteLeavesTheFileOpen) {
    CreateWithBadWrite(2, 1);
    EXPECT_EQ(fake.Count(Call::Open), 1);
    EXPECT_EQ(fake.Count(Call::Close), 0);
    EXPECT_EQ(fake.Count(Call::Delete), 0);
}

TEST_F(CreationFailure, AFailedOpen) {
    fake.Fail(Call::Open, 1, 13);
    StartLog();
    EXPECT_EQ(Create("T.DBF", {Spec("A", 'C', 1)}, 1), -46);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hcreate", -46}, {"Dcreate", -46}}));
    EXPECT_FALSE(FileExists("T.DBF"));
}

TEST_F(CreationFailure, AFailedClose) {
    fake.Fail(Call::Close, 1, 6);
    StartLog();
    EXPECT_EQ(Create("T.DBF", {Spec("A", 'C', 1)}, 1), -13);
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Hclose", -13}}));
    EXPECT_EQ(FileSize("T.DBF"), 66u);
}

TEST_F(CreationFailure, ARefusalReachesNoFile) {
    fake.Reset();
    Create("T.DBF", {Spec("A", 'C', 0)}, 1);
    EXPECT_EQ(fake.Count(Call::Any), 0);
}

}  // namespace
}  // namespace test
