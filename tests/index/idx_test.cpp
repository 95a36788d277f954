// IDX indexes from within: what reaches the platform, and failures beneath.
#include "index/idx/idx.h"

#include <map>
#include <set>

#include "index/build.h"
#include "support/fake_platform.h"
#include "support/idx.h"

namespace test {
namespace {

class IdxUnit : public LibraryTest {
  protected:
    void Create(int keyLength, int adds, int type = 'C') {
        if (index >= 0) {
            ASSERT_EQ(0, ZBDICLOSE(index));
        }
        char expression[] = "NAME";
        ASSERT_EQ(
            0, ZBDICREATE("a.idx", static_cast<uint16_t>(type), expression, static_cast<int16_t>(keyLength)));
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        index = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDIKTYPE(index, 'C'));
        length = static_cast<size_t>(keyLength);
        for (int i = 0; i < adds; i++)
            ASSERT_EQ(0, ZBDIKADD(index, Key(i).data(), static_cast<uint32_t>(i + 1)));
    }
    Bytes Key(int i) const {
        char digits[16];
        snprintf(digits, sizeof digits, "%08d", i);
        Bytes key(digits);
        key.resize(length, ' ');
        return key;
    }

    size_t length = 0;
    int16_t index = -1;
};

TEST_F(IdxUnit, AFindReadsTheHeaderAndOnePageALevel) {
    Create(100, 80);
    int depth = [] {
        IdxImage image("a.idx");
        image.Walk();
        return image.depth;
    }();
    ASSERT_GE(depth, 3);
    FakePlatform fake;
    for (int i = 0; i < 80; i++) {
        fake.Reset();
        char key[128];
        memcpy(key, Key(i).data(), 100);
        uint32_t record = 0;
        ASSERT_EQ(0, ZBDIKFIND(index, key, &record, 0));
        EXPECT_EQ(1 + depth, fake.Count(Call::Read)) << i;
    }
}

TEST_F(IdxUnit, AnAddWithoutASplitWritesOnePage) {
    Create(8, 10);
    FakePlatform fake;
    ASSERT_EQ(0, ZBDIKADD(index, Key(3).data(), 99));
    EXPECT_EQ(2, fake.Count(Call::Read));  // the header, the root
    int pages = 0;
    for (auto& entry : fake.Trace()) pages += entry.call == Call::Write && entry.count == 512;
    EXPECT_EQ(1, pages);
}

TEST_F(IdxUnit, TooFewPageBuffersEndTheOpen) {
    Create(8, 0);
    ASSERT_EQ(0, ZBDICLOSE(index));
    index = -1;
    FakePlatform fake;
    // The control block comes first, the buffers second.
    fake.Fail(Call::Allocate, 2, 8, FakePlatform::Forever);
    uint16_t handle = 7;
    EXPECT_EQ(ZB_ErrMemory, ZBDIOPENX(&handle, "a.idx", ZB_ReadOnly | ZB_Shared));
    EXPECT_TRUE(fake.HasFailed());
    EXPECT_EQ(65535, handle);
}

TEST_F(IdxUnit, APutNeedsThePageHeldInItsPlaceAndAWritableFile) {
    Create(8, 1);
    zb::IdxFile* file = zb::Islock(index);
    ASSERT_NE(nullptr, file);
    zb::IdxPage page{};
    page.offset = 512;
    EXPECT_EQ(ZB_ErrNoPageHeld, zb::Ipput(*file, page));
    ZBESCODE(0);
    ASSERT_EQ(0, zb::Ipget(*file, 512, &page));
    for (uint32_t offset : {0u, 256u, 513u, 1024u, 0xFFFFFE00u}) {
        zb::IdxPage other{page.data, file, offset};
        EXPECT_EQ(ZB_ErrSeek, zb::Ipput(*file, other)) << offset;
        ZBESCODE(0);
        EXPECT_EQ(ZB_ErrSeek, zb::Ipget(*file, offset, &other)) << offset;
        ZBESCODE(0);
    }
    file->fileLength = 1536;
    zb::IdxPage other{page.data, file, 1024};
    EXPECT_EQ(ZB_ErrPageNotHeld, zb::Ipput(*file, other));
    ZBESCODE(0);
    file->flags |= 1;
    EXPECT_EQ(ZB_ErrReadOnly, zb::Ipput(*file, page));
    ZBESCODE(0);
    file->flags &= static_cast<uint16_t>(~1);
    zb::Ipforget(*file);
}

TEST_F(IdxUnit, DerivedNumbersAreThoseOfTheFormat) {
    Create(8, 0);
    zb::IdxFile* file = zb::Islock(index);
    EXPECT_EQ(41, file->maxEntries);
    EXPECT_EQ(20, file->halfEntries);
    EXPECT_EQ(21, file->upperEntries);
    EXPECT_EQ(12, file->entrySize);
    EXPECT_EQ(0xFFFFFFFF, file->recordMask);
    EXPECT_EQ(8, file->position.levels);
    Create(8, 0, 'C' | ZB_IdxCompact);
    file = zb::Islock(index);
    EXPECT_EQ(31, file->maxEntries);
    EXPECT_EQ(0u, file->recordMask);
    Create(100, 0, 'C' | ZB_IdxCompact);
    file = zb::Islock(index);
    EXPECT_EQ(108, file->entrySize);
    EXPECT_EQ(4, file->maxEntries);
    EXPECT_EQ(31, file->position.levels);
}

// Every call to the platform fails in turn while a key is added or deleted: the
// code comes back, and the next call works.
TEST_F(IdxUnit, EveryFailureBeneathAChangeComesBack) {
    for (bool add : {true, false}) {
        int failures = 0;
        for (int nth = 1;; nth++) {
            Create(100, add ? 4 : 5);
            FakePlatform fake;
            fake.Fail(Call::Any, nth, 5);
            int32_t code = add ? ZBDIKADD(index, Key(9).data(), 9) : ZBDIKDEL(index, Key(4).data(), 5);
            bool failed = fake.HasFailed();
            fake.Reset();
            ZBESCODE(0);
            char key[128];
            uint32_t record;
            EXPECT_NE(ZB_ErrNoPageHeld, ZBDIKTOP(index, key, &record));
            ZBESCODE(0);
            if (!failed) {
                EXPECT_EQ(0, code);
                break;
            }
            failures += code < 0;
            ASSERT_LT(nth, 200);
        }
        EXPECT_GT(failures, 10);
    }
}

// Finding the position again works on the position itself, and passes through
// entries that are not it.
TEST_F(IdxUnit, AFailureOnTheWayLeavesThePosition) {
    Create(100, 0);
    Bytes same(100, 'M');
    for (uint32_t i = 1; i <= 30; i++) ASSERT_EQ(0, ZBDIKADD(index, same.data(), i));
    int failures = 0;
    for (auto step : {ZBDIKCUR, ZBDIKNEXT, ZBDIKPREV}) {
        for (int nth = 1;; nth++) {
            char key[128];
            memcpy(key, same.data(), 100);
            uint32_t record = 25;
            ASSERT_EQ(0, ZBDIKFIND(index, key, &record, 2));
            FakePlatform fake;
            fake.Fail(Call::Read, nth, 5);
            int32_t code = step(index, key, &record);
            if (!fake.HasFailed()) break;
            EXPECT_EQ(ZB_ErrRead, code);
            fake.Reset();
            ZBESCODE(0);
            EXPECT_EQ(0, ZBDIKCUR(index, key, &record)) << nth;
            EXPECT_EQ(25u, record) << nth;
            failures++;
            ASSERT_LT(nth, 100);
        }
    }
    EXPECT_GT(failures, 20);
}

TEST_F(IdxUnit, TheReaderOfPagesTellsDamage) {
    Create(100, 9);
    EXPECT_EQ(0u, pages::SurveyIdx(Readable("a.idx")).faults.size());
    EXPECT_EQ("NAME", pages::SurveyIdx(Readable("a.idx")).expression);
    Bytes good = ReadFile("a.idx");
    uint32_t root = IdxImage("a.idx").root();
    const struct {
        size_t at;
        const char* bytes;
    } cases[] = {{0, "01"},
                 {4, "00 02 00 00"},
                 {4, "01 00 00 00"},
                 {8, "01"},
                 {root, "00"},
                 {root + 2, "00"},
                 {root + 2, "05"},
                 {root + 112, "01"},
                 {512 + 12, "FF"},
                 {512, "03"},
                 {root + 12, "00"},
                 {512 + 2, "00"},
                 {root + 112 + 104, "00 00 02 00"}};
    for (auto& c : cases) {
        PatchFile("a.idx", c.at, Hex(c.bytes));
        EXPECT_NE(0u, pages::SurveyIdx(Readable("a.idx")).faults.size()) << c.at;
        WriteFile("a.idx", good);
    }
    PatchFile("a.idx", 12, Hex("00"));
    EXPECT_THROW(pages::SurveyIdx(Readable("a.idx")), pages::NotAnIndex);
    Create(10, 6, 'C' | ZB_IdxCompact);
    EXPECT_EQ(0u, pages::SurveyIdx(Readable("a.idx")).faults.size());
    good = ReadFile("a.idx");
    for (size_t at : {1024u + 2, 1024u + 12, 1024u + 20, 1024u + 23, 1024u + 26}) {
        PatchFile("a.idx", at, Hex("FF"));
        EXPECT_NE(0u, pages::SurveyIdx(Readable("a.idx")).faults.size()) << at;
        WriteFile("a.idx", good);
    }
}

class IdxBuildUnit : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ZbFieldSpec fields[] = {{"NAME", 'C', 5, 0}};
        ASSERT_EQ(0, ZBDDCREATE("a.dbf", 1, fields, 1));
        Bytes file = ReadFile("a.dbf");
        file.resize(file.size());
        file = file.substr(0, static_cast<size_t>(static_cast<uint8_t>(file[8])));
        file[4] = 60;
        for (int i = 0; i < 60; i++) file += " K" + std::to_string(1000 + i);
        WriteFile("a.dbf", file);
        uint16_t handle;
        ASSERT_GE(ZBDDOPENX(&handle, "a.dbf", 1), 0);
        data = static_cast<int16_t>(handle);
    }
    int16_t data = -1;
};

TEST_F(IdxBuildUnit, EveryFailureBeneathABuildLeavesNothingBehind) {
    int failures = 0;
    std::set<Call> kinds;
    for (int nth = 1; nth < 200; nth++) {
        // A close that fails keeps its file, so each round has its own.
        std::string name = std::to_string(nth) + ".idx";
        char expression[] = "NAME";
        FakePlatform fake;
        fake.Fail(Call::Any, nth, 5);
        int32_t code = ZBDIINDEX(data, name.c_str(), 'C', expression, 5);
        bool failed = fake.HasFailed();
        int number = 0;
        Call which = Call::Any;
        for (auto& entry : fake.Trace())
            if (entry.call != Call::Free && ++number == nth) which = entry.call;
        fake.Reset();
        ZBESCODE(0);
        // What fails to be deleted stays, and only that.
        bool stays = which == Call::Delete;
        EXPECT_TRUE(stays || !FileExists("stacks.tmp")) << nth;
        bool created = nth > 3;  // by an open, a write and a close
        EXPECT_TRUE(stays || code >= 0 || !created || !FileExists(name)) << nth;
        if (!failed) {
            EXPECT_EQ(0, code);
            EXPECT_EQ(60u, IdxImage(name).Walk().size());
            break;
        }
        failures += code < 0;
        // Of the index, the data file and the work file alike.
        const std::map<Call, int> codes = {
            {Call::Write, ZB_ErrWrite}, {Call::Read, ZB_ErrRead}, {Call::Allocate, ZB_ErrMemory}};
        if (auto expected = codes.find(which); code < 0 && expected != codes.end()) {
            EXPECT_EQ(expected->second, code) << nth;
        }
        kinds.insert(which);
    }
    EXPECT_GT(failures, 8);
    for (Call kind : {Call::Write, Call::Read, Call::Open, Call::Allocate}) EXPECT_TRUE(kinds.count(kind));
}

TEST_F(IdxBuildUnit, WithoutASortBufferThereIsNoBuild) {
    FakePlatform fake;
    // The read-ahead buffer of the data file comes first.
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 20);
        fake.Reset();
        fake.Fail(Call::Allocate, nth, 8, FakePlatform::Forever);
        char expression[] = "NAME";
        EXPECT_EQ(ZB_ErrMemory, ZBDIINDEX(data, "a.idx", 'C', expression, 5)) << nth;
        bool sorting = fake.Count(Call::Allocate) > 50;  // one after the other, each smaller
        fake.Reset();
        ZBESCODE(0);
        EXPECT_FALSE(FileExists("a.idx"));
        EXPECT_FALSE(FileExists("stacks.tmp"));
        if (sorting) break;
    }
}

TEST_F(IdxBuildUnit, WithoutAWorkFileThereIsNoBuild) {
    FakePlatform fake;
    fake.Fail(Call::Open, 2, 5, FakePlatform::Forever);  // the index, then the work file
    char expression[] = "NAME";
    EXPECT_EQ(ZB_ErrOpen, ZBDIINDEX(data, "a.idx", 'C', expression, 5));
    ZBESCODE(0);
    EXPECT_FALSE(FileExists("a.idx"));
}

}  // namespace
}  // namespace test
