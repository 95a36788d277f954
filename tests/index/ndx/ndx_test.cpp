// NDX indexes from within: failures beneath, and the order in which a change is
// written.
#include "index/ndx/ndx.h"

#include <functional>

#include "core/bytes.h"
#include "support/dbf.h"
#include "support/fake_platform.h"
#include "support/support.h"

namespace test {
namespace {

class NdxInside : public LibraryTest {
  protected:
    static constexpr int KeysPerPage = 4;  // of keys of 100 bytes

    int16_t index = -1;

    // Keys of 100 bytes that sort by their number.
    static Bytes Key(int number) {
        char digits[16];
        snprintf(digits, sizeof digits, "%08d", number);
        Bytes key(digits);
        key.resize(104, ' ');
        return key;
    }
    int Add(int number) { return ZBDNKADD(index, Key(number).data(), static_cast<uint32_t>(number)); }
    int Delete(int number) { return ZBDNKDEL(index, Key(number).data(), static_cast<uint32_t>(number)); }
    int Find(int number) {
        Bytes key = Key(number);
        record = static_cast<uint32_t>(number);
        return ZBDNKFIND(index, key.data(), &record, 2);
    }
    int Go(int32_t(ZB_CALL* walk)(int16_t, void*, uint32_t*)) {
        Bytes key(104, 0);
        return walk(index, key.data(), &record);
    }
    uint32_t record = 0;

    int Open() {
        uint16_t handle = 7;
        int code = ZBDNOPENX(&handle, "x.ndx", 0);
        index = static_cast<int16_t>(handle);
        return code;
    }
    // An index that holds the numbers 1 to `keys`.
    void Grow(int keys) {
        if (index >= 0) {
            ASSERT_EQ(ZBDNCLOSE(index), 0);
        }
        char expression[] = "NAME";
        ASSERT_EQ(ZBDNCREATE("x.ndx", 'C', expression, 100), 0);
        ASSERT_EQ(Open(), 0);
        for (int i = 1; i <= keys; i++) ASSERT_EQ(Add(i), 0);
    }

    // The keys of each page, the header's place first: there it is the root page.
    static std::vector<int> Counts() {
        Bytes file = ReadFile("x.ndx");
        std::vector<int> counts;
        for (size_t at = 0; at < file.size(); at += 512) counts.push_back(file[at]);
        return counts;
    }
};

TEST_F(NdxInside, PagesThatAreNotHeldCantBePut) {
    Grow(2 * KeysPerPage);
    zb::NdxFile* file = zb::Nslock(index);
    ASSERT_NE(file, nullptr);
    zb::NdxPage page, other;
    ASSERT_EQ(zb::Npget(*file, 1, &page), 0);
    other = page;
    other.number = 2;
    EXPECT_EQ(zb::Npput(*file, other), -10);
    ZBESCODE(0);
    EXPECT_EQ(zb::Npput(*file, page), 0);
    EXPECT_EQ(zb::Npput(*file, page), -9);
    ZBESCODE(0);
    for (uint32_t number : {0u, file->pageCount, 0xFFFFFFFFu}) {
        page.number = number;
        EXPECT_EQ(zb::Npput(*file, page), -4);
        ZBESCODE(0);
        EXPECT_EQ(zb::Npget(*file, number, &page), -4);
        ZBESCODE(0);
    }
    // Whether the file may be written comes before the page's place.
    file->flags |= 1;
    page.number = 0;
    EXPECT_EQ(zb::Npput(*file, page), -36);
    file->flags &= static_cast<uint16_t>(~1);
    ZBESCODE(0);
    zb::Npforget(*file);
}

TEST_F(NdxInside, OpenWithoutMemoryFailsAndGivesTheSlotBack) {
    Grow(0);
    ASSERT_EQ(ZBDNCLOSE(index), 0);
    for (int nth = 1;; nth++) {
        FakePlatform platform;
        platform.Fail(Call::Allocate, nth, 8);
        int code = Open();
        if (!platform.HasFailed()) {
            EXPECT_GT(nth, 2);
            ASSERT_EQ(code, 0);
            break;
        }
        ASSERT_EQ(code, -3);
        ASSERT_EQ(index, -1);
        ZBESCODE(0);
    }
    EXPECT_EQ(index, 0);
}

// A root that splits: the page count for the new page, the new page, the old one;
// the page count for the new root, that root, and last where it is.
TEST_F(NdxInside, ASplitIsWrittenFromTheNewPageOn) {
    const std::vector<std::vector<int>> counts = {{1, 4},       {1, 4, 0},    {1, 4, 3},   {1, 2, 3},
                                                  {1, 2, 3, 0}, {1, 2, 3, 1}, {3, 2, 3, 1}};
    for (int nth = 1; nth <= 7; nth++) {
        SCOPED_TRACE(nth);
        Grow(KeysPerPage);
        FakePlatform platform;
        platform.Fail(Call::Write, nth, 112, FakePlatform::Forever);
        EXPECT_EQ(Add(KeysPerPage + 1), nth == 7 ? 0 : -1);
        ZBESCODE(0);
        std::vector<int> expected = counts[static_cast<size_t>(nth) - 1];
        // The file grows before the page count is written.
        if (nth == 1 || nth == 4) expected.push_back(0);
        EXPECT_EQ(Counts(), expected);
        platform.Reset();
    }
}

// Leaves of 3 keys each, of which the first loses its keys and merges with the
// second: the leaf without its last key, the leaf that takes both, their parent,
// and the leaf that is given up.
TEST_F(NdxInside, AMergeIsWrittenFromTheRemainingPageOn) {
    const std::vector<std::vector<int>> steps = {
        {3, 3, 1, 2, 3}, {3, 3, 0, 2, 3}, {3, 3, 3, 2, 3}, {3, 3, 3, 1, 3}, {3, 3, 3, 1, -1}};
    for (int nth = 1; nth <= 5; nth++) {
        SCOPED_TRACE(nth);
        Grow(9);
        ASSERT_EQ(Counts(), (std::vector<int>{3, 3, 3, 2, 3}));
        ASSERT_EQ(Delete(1), 0);
        ASSERT_EQ(Delete(2), 0);
        FakePlatform platform;
        platform.Fail(Call::Write, nth, 112, FakePlatform::Forever);
        EXPECT_EQ(Delete(3), nth == 5 ? 0 : -1);
        ZBESCODE(0);
        EXPECT_EQ(Counts(), steps[static_cast<size_t>(nth) - 1]);
    }
}

// Whatever call fails on the way, the position is as it was and no page of the
// failed call is believed.
TEST_F(NdxInside, FailedCallsLeaveThePosition) {
    Grow(40);
    int failures = 0;
    const std::function<int()> calls[] = {
        [&] { return Add(41); },       [&] { return Delete(41); },   [&] { return Go(ZBDNKNEXT); },
        [&] { return Go(ZBDNKPREV); }, [&] { return Go(ZBDNKCUR); }, [&] { return Go(ZBDNKTOP); },
        [&] { return Go(ZBDNKBOT); },  [&] { return Find(7); },      [&] { return ZBDNHGET(index); }};
    for (const auto& call : calls) {
        for (Call kind : {Call::Read, Call::Write, Call::Seek}) {
            for (int nth = 1;; nth++) {
                ASSERT_EQ(Find(20), 0);
                FakePlatform platform;
                platform.Fail(kind, nth, 1117);
                int code = call();
                bool failed = platform.HasFailed();
                platform.Reset();
                ZBESCODE(0);
                if (!failed) break;
                // A file that can't be made longer shows when its end is read.
                if (kind == Call::Seek && code == -2) code = -4;
                ASSERT_EQ(code, kind == Call::Read ? -2 : kind == Call::Write ? -1 : -4);
                failures++;
                ASSERT_EQ(Go(ZBDNKCUR), 0);
                ASSERT_EQ(record, 20u);
            }
        }
    }
    EXPECT_GT(failures, 40);
}

// A build that fails beneath its own calls has their codes, leaves no work file
// and no lock, and leaves its index.
TEST_F(NdxInside, FailedBuildHasTheCodeOfWhatFailed) {
    std::vector<Bytes> records;
    for (int i = 1; i <= 20; i++) records.push_back(" " + Key(i).substr(0, 100));
    WriteFile("t.dbf", Dbf(3, 101, {DbfField("NAME", 'C', 100)}, records));
    uint16_t opened, other, conflict;
    ASSERT_EQ(ZBDDOPENX(&opened, "t.dbf", 1 | ZB_Shared), 0);
    ASSERT_EQ(ZBDDOPENX(&other, "t.dbf", 1 | ZB_Shared), 0);
    const std::pair<Call, int> kinds[] = {{Call::Read, -2}, {Call::Write, -1}, {Call::Allocate, -3}};
    for (auto [kind, expected] : kinds) {
        int failures = 0;
        for (int nth = 1;; nth++) {
            Bytes name = std::to_string(expected) + "." + std::to_string(nth);
            char expression[] = "NAME";
            FakePlatform platform;
            platform.Fail(kind, nth, 1117, kind == Call::Allocate ? FakePlatform::Forever : 1);
            int code = ZBDNINDEX(static_cast<int16_t>(opened), name.c_str(), 'C', expression, 100);
            bool failed = platform.HasFailed();
            platform.Reset();
            ZBESCODE(0);
            EXPECT_FALSE(FileExists("stacks.tmp"));
            EXPECT_TRUE(FileExists(name));
            EXPECT_EQ(ZBDDLOCK(static_cast<int16_t>(other), 2, &conflict), 0);
            EXPECT_EQ(conflict, 0);
            EXPECT_EQ(ZBDDUNLOCK(static_cast<int16_t>(other), 2, nullptr), 0);
            if (!failed) {
                EXPECT_EQ(code, 0);
                break;
            }
            // A refresh of the record count that fails shows in the log alone.
            bool refresh = kind == Call::Read && code == 0;
            EXPECT_TRUE(code == expected || refresh) << expected << ' ' << nth << ' ' << code;
            failures += code < 0;
        }
        EXPECT_GE(failures, 2) << expected;
    }
}

}  // namespace
}  // namespace test
