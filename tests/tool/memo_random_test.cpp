// Random work on a table's memos: whatever is written, every record keeps its
// text, through every layout, through moves, shared and overlapping memos, and
// through chains of free blocks left by writers that take less care.
#include <random>

#include "tool.h"
#include "zb/failure.h"
#include "zb/memo.h"

namespace test {
namespace {

struct Setup {
    int dialect;
    uint32_t blockSize;
};

class MemoRandom : public LibraryTest, public testing::WithParamInterface<Setup> {
  protected:
    static constexpr uint32_t kRecords = 24;

    void SetUp() override {
        LibraryTest::SetUp();
        std::vector<ZbFieldSpec> specs(1);
        specs[0] = {"NOTE", 'M', 10, 0};
        ASSERT_EQ(ZBDDCREATE("t.dbf", 1, specs.data(), static_cast<int16_t>(GetParam().dialect)), 0);
        tool::CreateMemoFile("t.mem", GetParam().dialect, GetParam().blockSize);
        tool::Data data = Open();
        data.Clear();
        for (uint32_t record = 1; record <= kRecords; ++record) data.Append();
        texts.resize(kRecords + 1);
        random.seed(static_cast<unsigned>(GetParam().dialect) * 1000 + GetParam().blockSize);
    }

    tool::Data Open() {
        tool::OpenOptions options;
        options.dialect = GetParam().dialect;
        return tool::Data("t.dbf", tool::Access::write, options);
    }

    uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    // Lengths near the ends of blocks and far from them.
    std::string RandomText() {
        size_t length;
        switch (Below(4)) {
            case 0: length = 1 + Below(40); break;
            case 1: length = (1 + Below(6)) * GetParam().blockSize + Below(24) - 12; break;
            case 2: length = 256 * (1 + Below(8)) - Below(10); break;
            default: length = 1 + Below(Below(20) == 0 ? 32765 : 3000); break;
        }
        std::string text(std::min(length, tool::kMemoLimit), ' ');
        for (char& c : text) c = static_cast<char>('a' + Below(26));
        return text;
    }

    void Expect(tool::Data& data, tool::MemoFile& memos) {
        std::string text;
        for (uint32_t record = 1; record <= kRecords; ++record) {
            data.Read(record);
            uint32_t block = tool::MemoNumber(data.Raw(data.fields()[0])).value();
            if (block != 0)
                ASSERT_GE(memos.Read(block, text), 0) << "record " << record;
            else
                text.clear();
            ASSERT_EQ(text, texts[record]) << "record " << record << ", block " << block;
        }
    }

    // Two careless moves in a row lose memos by themselves.
    bool ChainStands() {
        Bytes head = ReadFile("t.mem", 0, 4);
        uint32_t next = 0;
        for (size_t index = 4; index-- > 0;) next = next << 8 | static_cast<unsigned char>(head[index]);
        return next < FileSize("t.mem") / GetParam().blockSize;
    }

    // What a careless writer leaves behind in a counted file: a memo that moved
    // away, and its free run, which names the block where a memo lives now.
    void MoveCarelessly(tool::Data& data, uint32_t record) {
        data.Read(record);
        auto block = static_cast<int32_t>(tool::MemoNumber(data.Raw(data.fields()[0])).value());
        if (block == 0 || ChainStands()) return;
        std::string longer = texts[record] + std::string(GetParam().blockSize * 2, 'L');
        if (longer.size() > tool::kMemoLimit) return;
        int16_t handle;
        ASSERT_EQ(ZBDTOPENX(&handle, "t.mem", static_cast<uint16_t>(GetParam().dialect)), 0);
        ASSERT_EQ(ZBDTRPUT(handle, &block, longer.c_str(), ZB_MemoReplace), 0);
        ASSERT_EQ(ZBDTCLOSE(handle), 0);
        texts[record] = longer;
        data.Put(0, tool::MemoPointer(static_cast<uint32_t>(block), 10));
        data.Update(record);
    }

    std::mt19937 random;
    std::vector<std::string> texts;
};

TEST_P(MemoRandom, NoTextIsEverLost) {
    uint32_t refused = 0;
    for (int round = 0; round < 40; ++round) {
        tool::Data data = Open();
        // One careless move at most before a session, and not where others share the memo.
        bool counted = tool::LayoutOf(GetParam().dialect) == tool::MemoLayout::counted;
        if (counted && round % 3 == 1 && round < 20) MoveCarelessly(data, 1 + Below(4));
        if (HasFatalFailure()) return;
        tool::TableLock lock(data, 0);
        tool::MemoFile memos("t.mem", GetParam().dialect, tool::Access::write);
        memos.Survey(data);
        for (int step = 0; step < 12; ++step) {
            uint32_t record = 1 + Below(kRecords);
            data.Read(record);
            uint32_t old = tool::MemoNumber(data.Raw(data.fields()[0])).value();
            bool sharing = Below(8) == 0 && record > 4;
            if (sharing) {
                // Another record's memo for this one, too; the memo file isn't told.
                uint32_t other = 5 + Below(kRecords - 4);
                data.Read(other);
                std::string pointer(data.Raw(data.fields()[0]));
                data.Read(record);
                data.Put(0, pointer);
                data.Update(record);
                texts[record] = texts[other];
                memos.Survey(data);
                continue;
            }
            std::string text = RandomText();
            if (Below(3) == 0 && old != 0) text.resize(std::min(text.size(), texts[record].size()));
            uint32_t block = 0;
            try {
                if (!text.empty()) block = memos.Write(text, old);
            } catch (const tool::Failure&) {
                ++refused;
                continue;
            }
            data.Read(record);
            data.Put(0, tool::MemoPointer(block, 10));
            data.Update(record);
            texts[record] = text;
        }
        Expect(data, memos);
        if (HasFatalFailure()) return;
    }
    // A file that the tool alone wrote always has room for more.
    bool counted = tool::LayoutOf(GetParam().dialect) == tool::MemoLayout::counted;
    EXPECT_LE(refused, counted ? 240u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Layouts, MemoRandom,
                         testing::Values(Setup{1, 512}, Setup{3, 512}, Setup{5, 512}, Setup{6, 512},
                                         Setup{7, 512}, Setup{2, 512}, Setup{2, 1024}, Setup{2, 16384},
                                         Setup{4, 64}, Setup{8, 33}, Setup{8, 100}, Setup{8, 512},
                                         Setup{8, 16384}),
                         [](const auto& setup) {
                             return "Dialect" + std::to_string(setup.param.dialect) + "Blocks" +
                                    std::to_string(setup.param.blockSize);
                         });

}  // namespace
}  // namespace test
