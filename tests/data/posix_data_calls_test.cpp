// What calls on data files and dates cost in system calls.
#include <cstring>

#include "platform/posix_calls.h"
#include "support/call_spy.h"
#include "support/data_files.h"
#include "support/environment.h"
#include "support/fake_platform.h"

namespace test {
namespace {

using zb::PosixCalls;

struct Spies {
    CallSpy<&PosixCalls::open> open;
    CallSpy<&PosixCalls::close> close;
    CallSpy<&PosixCalls::pread> pread;
    CallSpy<&PosixCalls::pwrite> pwrite;
    CallSpy<&PosixCalls::fstat> fstat;
    CallSpy<&PosixCalls::ftruncate> ftruncate;
    CallSpy<&PosixCalls::lock> lock;
    CallSpy<&PosixCalls::mmap> mmap;
    CallSpy<&PosixCalls::madvise> madvise;

    int All() const {
        return open.Count() + close.Count() + pread.Count() + pwrite.Count() + fstat.Count() +
               ftruncate.Count() + lock.Count() + mmap.Count() + madvise.Count();
    }
};

constexpr int Records = 200;  // several pages

class DataCalls : public LibraryTest {
  protected:
    explicit DataCalls(const char* way = nullptr) : reads("ZB_READS", way), byCalls(way != nullptr) {}

    void SetUp() override {
        LibraryTest::SetUp();
        if (!MapsFiles && !byCalls) GTEST_SKIP() << "reads are calls here";
        ASSERT_EQ(ZBCDSTYLE(4), 0);
        Specs specs = {Spec("NAME", 'C', 40), Spec("PRICE", 'N', 10, 2), Spec("BORN", 'D')};
        ASSERT_EQ(Create("t.dbf", specs, 1), 0);
        data = Open("t.dbf", 1 | ZB_Shared);
        double price = 1.5;
        ASSERT_EQ(ZBDDFPUT(data, 0, "Anna"), 0);
        ASSERT_EQ(ZBDDFPUT(data, 1, &price), 0);
        ASSERT_EQ(ZBDDFPUT(data, 2, "19960229"), 0);
        for (int i = 0; i < Records; i++) Append(data);
        ASSERT_EQ(ZBDDRGET(data, 1), 0);  // the first read maps the file
    }

    Environment reads;
    bool byCalls;
    int16_t data = -1;
};

class DataCallsByPread : public DataCalls {
  protected:
    DataCallsByPread() : DataCalls("pread") {}
};

TEST_F(DataCalls, ReadsOfRecordsMakeNone) {
    Spies spies;
    char image[64];
    for (int i = 1; i <= Records; i++) {
        ASSERT_EQ(ZBDDRGET(data, i), 0);
        ASSERT_EQ(ZBDDRGETX(data, image, i), 0);
    }
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(DataCallsByPread, AReadOfARecordIsOneRead) {
    Spies spies;
    for (int i = 1; i <= Records; i++) ASSERT_EQ(ZBDDRGET(data, i), 0);
    EXPECT_EQ(spies.pread.Count(), Records);
    EXPECT_EQ(spies.All(), Records);
}

TEST_F(DataCalls, ARefreshOfTheCountMakesNone) {
    Spies spies;
    ASSERT_EQ(ZBDDHGET(data), 0);
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(DataCalls, AnUpdateIsOneWrite) {
    Spies spies;
    uint32_t recordNo = 100;
    ASSERT_EQ(ZBDDRPUT(data, &recordNo, 256), 0);
    EXPECT_EQ(spies.pwrite.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(DataCalls, AnAppendIsThreeWrites) {
    Spies spies;
    Append(data);
    EXPECT_EQ(spies.pwrite.Count(), 3);  // record, end mark, record count
    EXPECT_EQ(spies.All(), 3);
}

TEST_F(DataCalls, AReadOfWhatWasJustAppendedMakesNone) {
    Append(data);
    Spies spies;
    ASSERT_EQ(ZBDDRGET(data, Records + 1), 0);
    EXPECT_EQ(spies.All(), 0);
}

TEST_F(DataCalls, ADeletionIsOneWriteAndNoneWhereTheRecordIsDeleted) {
    Spies spies;
    ASSERT_EQ(ZBDDRDEL(data, 5), 0);
    EXPECT_EQ(spies.pwrite.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
    ASSERT_EQ(ZBDDRDEL(data, 5), 0);
    EXPECT_EQ(spies.All(), 1);
}

TEST_F(DataCalls, FieldsMakeNoneAndTakeNoMemory) {
    char text[64];
    double price = 2.5;
    Spies spies;
    FakePlatform fake;
    ASSERT_EQ(ZBDDFGET(data, 0, text), 0);
    ASSERT_EQ(ZBDDFGET(data, 1, &price), 0);
    ASSERT_EQ(ZBDDFGET(data, 2, text), 0);
    ASSERT_EQ(ZBDDFGETS(data, 2, text), 0);
    ASSERT_EQ(ZBDDFNGET(data, "BORN", text), 0);
    ASSERT_EQ(ZBDDFPUT(data, 0, "Bert"), 0);
    ASSERT_EQ(ZBDDFPUT(data, 1, &price), 0);
    ASSERT_EQ(ZBDDFPUT(data, 2, "20000101"), 0);
    ASSERT_EQ(ZBDDFPUTS(data, 2, "20000102"), 0);
    ASSERT_EQ(ZBDDFNPUT(data, "NAME", "Cleo"), 0);
    EXPECT_EQ(spies.All(), 0);
    EXPECT_TRUE(fake.Trace().empty());
}

TEST_F(DataCalls, BindsMakeNoneAndTakeNoMemory) {
    uint32_t number;
    ZbDataRecordInfo record;
    ZbDataInfo info;
    Spies spies;
    FakePlatform fake;
    ASSERT_EQ(ZBDDSIZE(data, &number), 0);
    ASSERT_EQ(ZBDDRNUM(data, &number), 0);
    ASSERT_EQ(ZBDDRSTAT(data), 0);
    ASSERT_EQ(ZBDDRINFO(data, &record), 0);
    ASSERT_EQ(ZBDDINFO(data, &info), 0);
    ASSERT_EQ(ZBDDRCLEAR(data), 0);
    EXPECT_EQ(ZBDDSIZE(94, &number), -13);
    EXPECT_EQ(ZBDDSIZE(data, &number), -13);
    EXPECT_EQ(spies.All(), 0);
    EXPECT_TRUE(fake.Trace().empty());
}

TEST_F(DataCalls, DatesMakeNoneAndTakeNoMemory) {
    int16_t year, month, day, dayOfWeek;
    int32_t number;
    char text[16];
    Spies spies;
    FakePlatform fake;
    ASSERT_EQ(ZBCDS2I(&year, &month, &day, "19960229", 4), 0);
    ASSERT_EQ(ZBCDI2S(text, 15, year, month, day), 0);
    ASSERT_EQ(ZBCDI2L(&number, year, month, day), 0);
    ASSERT_EQ(ZBCDL2I(&year, &month, &day, number), 0);
    ASSERT_EQ(ZBCDL2DOW(&dayOfWeek, number), 0);
    EXPECT_TRUE(fake.Trace().empty());
    ASSERT_EQ(ZBCDIGET(&year, &month, &day, &dayOfWeek), 0);
    EXPECT_EQ(spies.All(), 0);
    EXPECT_EQ(fake.Trace().size(), 1u);  // the clock's
}

TEST_F(DataCalls, ALockAndItsReleaseAreOneCallEach) {
    Spies spies;
    ASSERT_EQ(ZBDDRLOCK(data, 7, 7, nullptr), 0);
    EXPECT_EQ(spies.lock.Count(), 1);
    ASSERT_EQ(ZBDDRLOCK(data, 7, 7, nullptr), 0);  // held already
    EXPECT_EQ(spies.lock.Count(), 1);
    ASSERT_EQ(ZBDDRLOCK(data, 7, 6, nullptr), 0);
    EXPECT_EQ(spies.lock.Count(), 2);
    ASSERT_EQ(ZBDDLOCK(data, 1, nullptr), 0);
    ASSERT_EQ(ZBDDUNLOCK(data, 1, nullptr), 0);
    EXPECT_EQ(spies.lock.Count(), 4);
    EXPECT_EQ(spies.All(), 4);
}

TEST_F(DataCalls, ACloseWritesTheDateOnceAndOnlyAfterAChange) {
    {
        Spies spies;
        ASSERT_EQ(ZBDDCLOSE(data), 0);
        EXPECT_EQ(spies.pwrite.Count(), 1);
        EXPECT_EQ(spies.close.Count(), 1);
        EXPECT_EQ(spies.All(), 2);
    }
    data = Open("t.dbf", 1);
    Spies spies;
    ASSERT_EQ(ZBDDCLOSE(data), 0);
    EXPECT_EQ(spies.close.Count(), 1);
    EXPECT_EQ(spies.All(), 1);
}

}  // namespace
}  // namespace test
