// Index files whose headers promise more than the files hold, and pages in circles
// behind them: what is done about them follows from the files' true lengths.
#include <cstring>

#include "core/bytes.h"
#include "support/environment.h"
#include "support/fake_platform.h"
#include "support/support.h"

namespace test {
namespace {

constexpr int FewCalls = 2000;

class HostileIndex : public LibraryTest {
  protected:
    Environment today{"ZB_TODAY", "1999-12-31"};

    static void Put32(Bytes& bytes, size_t at, uint32_t value) { zb::StoreLe32(bytes.data() + at, value); }
};

// Three levels of pages with 26 children each, all of them the same one.
TEST_F(HostileIndex, NdxSearchEndsThoughOneLeafIsReachedAThousandfold) {
    char expression[] = "NAME";
    ASSERT_EQ(ZBDNCREATE("x.ndx", 'C', expression, 10), 0);
    Bytes file = ReadFile("x.ndx", 0, 512);
    for (uint32_t number = 1; number <= 4; number++) {
        Bytes page = Fill(512);
        page[0] = 25;
        for (size_t i = 0; i < 26; i++) {
            size_t entry = 4 + i * 20;
            if (number < 4) Put32(page, entry, number + 1);
            if (i == 25) break;
            Put32(page, entry + 4, number < 4 ? 0 : 1);
            memset(page.data() + entry + 8, 'A', 10);
        }
        file += page;
    }
    Put32(file, 4, 0x7FFFFFFF);
    WriteFile("x.ndx", file);

    uint16_t opened;
    ASSERT_EQ(ZBDNOPENX(&opened, "x.ndx", 0), ZB_WarnFileSize);
    char key[11] = "AAAAAAAAAA";
    uint32_t record = 9;
    FakePlatform fake;
    EXPECT_EQ(ZBDNKFIND(static_cast<int16_t>(opened), key, &record, 2), ZB_ErrStructure);
    EXPECT_LT(fake.Count(Call::Any), FewCalls);
    ZBESCODE(0);
}

// The same with 35 children, addressed by their places.
TEST_F(HostileIndex, IdxSearchEndsThoughOneLeafIsReachedAThousandfold) {
    char expression[] = "NAME";
    ASSERT_EQ(ZBDICREATE("x.idx", 'C', expression, 10), 0);
    Bytes file = ReadFile("x.idx", 0, 512);
    for (uint32_t number = 1; number <= 4; number++) {
        Bytes page = Fill(512);
        page[0] = number == 1 ? 1 : number == 4 ? 2 : 0;
        page[2] = 35;
        for (size_t i = 0; i < 35; i++) {
            size_t entry = 12 + i * 14;
            memset(page.data() + entry, 'A', 10);
            zb::StoreBe32(page.data() + entry + 10, number < 4 ? (number + 1) * 512 : 1);
        }
        file += page;
    }
    Put32(file, 8, 0x7FFFFE00);
    WriteFile("x.idx", file);

    uint16_t opened;
    ASSERT_GE(ZBDIOPENX(&opened, "x.idx", 0), 0);
    char key[12] = "AAAAAAAAAA";
    uint32_t record = 9;
    FakePlatform fake;
    EXPECT_EQ(ZBDIKFIND(static_cast<int16_t>(opened), key, &record, 2), ZB_ErrStructure);
    EXPECT_LT(fake.Count(Call::Any), FewCalls);
    ZBESCODE(0);
}

// Thirty levels of branches, each with 42 children that are one and the same page.
TEST_F(HostileIndex, MdxEraseEndsThoughItsPagesAreReachedAgainAndAgain) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    int16_t handle;
    ASSERT_EQ(ZBDMOPENX(&handle, "x.mdx", 0), 0);
    char expression[] = "NAME";
    ASSERT_EQ(ZBDMTNEW(handle, "T", 'C', expression, 5), 0);
    ASSERT_EQ(ZBDMCLOSE(handle), 0);
    Bytes file = ReadFile("x.mdx", 0, 5 * 512);
    for (uint32_t number = 5; number < 35; number++) {
        Bytes page = Fill(512);
        page[0] = number < 34 ? 41 : 0;
        for (size_t i = 0; i <= 41 && number < 34; i++) Put32(page, 8 + i * 12, number + 1);
        file += page;
    }
    Put32(file, 32, 0xFFFFFFFF);
    WriteFile("x.mdx", file);

    ASSERT_EQ(ZBDMOPENX(&handle, "x.mdx", 0), ZB_WarnFileSize);
    FakePlatform fake;
    EXPECT_EQ(ZBDMTERASE(handle, "T"), ZB_ErrStructure);
    EXPECT_LT(fake.Count(Call::Any), FewCalls);
    ZBESCODE(0);
}

// A caller gives a number 8 bytes whatever the header says.
TEST_F(HostileIndex, NdxNumbersLongerThanADoubleAreRefused) {
    char expression[] = "NAME";
    ASSERT_EQ(ZBDNCREATE("x.ndx", 'C', expression, 9), 0);
    PatchFile("x.ndx", 16, Hex("01"));
    uint16_t opened;
    EXPECT_EQ(ZBDNOPENX(&opened, "x.ndx", 0), ZB_ErrKeyLength);
    ZBESCODE(0);
    ASSERT_EQ(ZBDNCREATE("x.ndx", 'C', expression, 8), 0);
    PatchFile("x.ndx", 16, Hex("01"));
    EXPECT_EQ(ZBDNOPENX(&opened, "x.ndx", 0), 0);
}

TEST_F(HostileIndex, MdxNumbersAndDatesLongerThanTheirKeysAreRefused) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    int16_t file;
    ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
    char expression[] = "NAME";
    ASSERT_EQ(ZBDMTNEW(file, "N", 'N', expression, 0), 0);
    ASSERT_EQ(ZBDMTNEW(file, "D", 'D', expression, 0), 0);
    int32_t tag;
    EXPECT_EQ(ZBDMTUSE(&tag, static_cast<uint16_t>(file), "N"), 0);
    EXPECT_EQ(ZBDMTUSE(&tag, static_cast<uint16_t>(file), "D"), 0);
    // The headers of the two stand in the blocks 4 and 6; entries of 20 and 16 bytes.
    PatchFile("x.mdx", 4 * 512 + 12, Hex("0D 00 02 00 00 00 14 00"));
    PatchFile("x.mdx", 6 * 512 + 12, Hex("09 00 02 00 01 00 10 00"));
    EXPECT_EQ(ZBDMTUSE(&tag, static_cast<uint16_t>(file), "N"), ZB_ErrKeyLength);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTUSE(&tag, static_cast<uint16_t>(file), "D"), ZB_ErrKeyLength);
    ZBESCODE(0);
}

}  // namespace
}  // namespace test
