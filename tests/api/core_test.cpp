#include <cstring>

#include "support/support.h"

namespace test {
namespace {

using Core = LibraryTest;

TEST_F(Core, AllocatingSizeZeroGivesABlockOf128ZeroBytes) {
    ZbBlock handle = 0;
    ASSERT_EQ(_ZBMALLOC(&handle, 0), 0);
    EXPECT_NE(handle, 0u);
    EXPECT_NE(handle, 0xFFFFFFFFu);
    void* address = nullptr;
    ASSERT_EQ(_ZBMLOCK(&address, handle), 0);
    EXPECT_EQ(Bytes(static_cast<char*>(address), 128), Fill(128));
    EXPECT_EQ(_ZBMUNLOCK(handle), 0);
    EXPECT_EQ(_ZBMFREE(handle), 0);
}

TEST_F(Core, FreeOfAFreedHandleReturnsThePendingCode) {
    ZbBlock handle = 0;
    ASSERT_EQ(_ZBMALLOC(&handle, 10), 0);
    ASSERT_EQ(_ZBMFREE(handle), 0);
    ZBESCODE(-33);
    EXPECT_EQ(_ZBMFREE(handle), -33);
    EXPECT_EQ(ZBECODE(), -33);
}

TEST_F(Core, VersionThreeIsTheOnlyOne) {
    ZBESCODE(-33);
    EXPECT_EQ(ZBDVERSION(3), 0);
    EXPECT_EQ(ZBDVERSION(2), -18);
    EXPECT_EQ(ZBECODE(), -33);
}

}  // namespace
}  // namespace test
