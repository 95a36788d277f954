// What NDX operations cost in system calls.
#include <cstring>

#include "platform/posix_calls.h"
#include "support/call_spy.h"
#include "support/support.h"

namespace test {
namespace {

using zb::PosixCalls;

struct Spies {
    CallSpy<&PosixCalls::pread> pread;
    CallSpy<&PosixCalls::pwrite> pwrite;
    CallSpy<&PosixCalls::fstat> fstat;
    CallSpy<&PosixCalls::ftruncate> ftruncate;
    CallSpy<&PosixCalls::lock> lock;
    CallSpy<&PosixCalls::mmap> mmap;

    int Reads() const { return pread.Count() + fstat.Count() + lock.Count() + mmap.Count(); }
    int All() const { return Reads() + pwrite.Count() + ftruncate.Count(); }
};

class PosixNdxCalls : public LibraryTest {
  protected:
    int16_t index = -1;

    void SetUp() override {
        unsetenv("ZB_READS");
        LibraryTest::SetUp();
        if (!MapsFiles) GTEST_SKIP() << "reads are calls here";
        char expression[] = "NAME";
        uint16_t opened;
        ASSERT_EQ(ZBDNCREATE("x.ndx", 'N', expression, 8), 0);
        ASSERT_EQ(ZBDNOPENX(&opened, "x.ndx", 0), 0);
        index = static_cast<int16_t>(opened);
    }
    void Add(double value) { ASSERT_EQ(ZBDNKADD(index, &value, static_cast<uint32_t>(value)), 0); }
};

TEST_F(PosixNdxCalls, FindsAndStepsMakeNone) {
    for (int i = 1; i <= 2000; i++) Add(i);
    char key[12] = {};
    uint32_t record = 0;
    ASSERT_EQ(ZBDNKTOP(index, key, &record), 0);
    Spies spies;
    for (int i = 0; i < 50; i++) {
        double value = i * 40 + 1;
        memcpy(key, &value, 8);
        ASSERT_EQ(ZBDNKFIND(index, key, &record, 0), 0);
        ASSERT_EQ(ZBDNKNEXT(index, key, &record), 0);
        ASSERT_EQ(ZBDNKPREV(index, key, &record), 0);
    }
    ASSERT_EQ(ZBDNKBOT(index, key, &record), 0);
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(PosixNdxCalls, FindsInABuiltIndexMakeNoneThoughItsRootStandsAtTheEnd) {
    ZbFieldSpec specs[] = {{"NAME", 'N', 8, 0}};
    ASSERT_EQ(ZBDDCREATE("t.dbf", 1, specs, 2), 0);
    uint16_t data, built;
    ASSERT_EQ(ZBDDOPENX(&data, "t.dbf", 2), 0);
    for (double value = 1; value <= 500; value++) {
        ASSERT_EQ(ZBDDFPUT(static_cast<int16_t>(data), 0, &value), 0);
        uint32_t record;
        ASSERT_EQ(ZBDDRPUT(static_cast<int16_t>(data), &record, 0), 0);
    }
    char expression[] = "NAME";
    ASSERT_EQ(ZBDNINDEX(static_cast<int16_t>(data), "y.ndx", 'N', expression, 8), 0);
    ASSERT_EQ(ZBDNOPENX(&built, "y.ndx", 0), 0);
    char key[12] = {};
    uint32_t record = 0;
    ASSERT_EQ(ZBDNKTOP(static_cast<int16_t>(built), key, &record), 0);
    Spies spies;
    double value = 250;
    memcpy(key, &value, 8);
    ASSERT_EQ(ZBDNKFIND(static_cast<int16_t>(built), key, &record, 0), 0);
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(PosixNdxCalls, AnAddWritesEachChangedPageAndHeaderFieldOnce) {
    for (int i = 1; i <= 31; i++) Add(i);
    {
        Spies spies;
        Add(0.5);  // splits the root: two page counts, two halves, the new root, the root's number
        EXPECT_EQ(spies.pwrite.Count(), 6);
        EXPECT_EQ(spies.ftruncate.Count(), 2);
        EXPECT_EQ(spies.Reads(), 0);
    }
    Spies spies;
    Add(0.25);
    EXPECT_EQ(spies.pwrite.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(PosixNdxCalls, ADeleteWritesTheLeafAndTheSeparatorThatChanges) {
    for (int i = 1; i <= 40; i++) Add(i);
    Spies spies;
    double value = 20;
    ASSERT_EQ(ZBDNKDEL(index, &value, 20), 0);
    EXPECT_EQ(spies.All(), 1);
    value = 16;  // the last of the lower leaf
    ASSERT_EQ(ZBDNKDEL(index, &value, 16), 0);
    EXPECT_EQ(spies.All(), 3);
}

}  // namespace
}  // namespace test
