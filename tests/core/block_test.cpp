#include "core/block.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace zb {
namespace {

TEST(Block, FreedHandleIsRecognisedForLong) {
    BlockHandle first = 0;
    ASSERT_EQ(BlockAlloc(&first, 10), 0);
    BlockFree(first);
    for (int i = 0; i < 5000; i++) {
        BlockHandle other = 0;
        ASSERT_EQ(BlockAlloc(&other, 10), 0);
        ASSERT_NE(other, first);
        BlockFree(other);
    }
    EXPECT_EQ(BlockPeek(first), nullptr);
}

TEST(Block, ManyBlocksAreFoundByAddress) {
    std::vector<BlockHandle> handles(10000);
    for (auto& handle : handles) ASSERT_EQ(BlockAlloc(&handle, 1), 0);
    for (auto handle : handles) EXPECT_EQ(BlockAt(BlockPeek(handle)), handle);
    for (auto handle : handles) BlockFree(handle);
    for (auto handle : handles) EXPECT_EQ(BlockPeek(handle), nullptr);
}

TEST(Block, GrowthIsZeroFilledAndKeepsTheBytes) {
    BlockHandle handle = 0;
    ASSERT_EQ(BlockAlloc(&handle, 4), 0);
    memset(BlockPeek(handle), 'x', 4 + BlockSlack);
    ASSERT_EQ(BlockRealloc(handle, 1000), 0);
    auto* bytes = static_cast<char*>(BlockPeek(handle));
    EXPECT_EQ(bytes[4 + BlockSlack - 1], 'x');
    for (size_t i = 4 + BlockSlack; i < 1000 + BlockSlack; i++) ASSERT_EQ(bytes[i], 0);
    BlockFree(handle);
}

}  // namespace
}  // namespace zb
