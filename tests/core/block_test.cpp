#include "core/block.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "core/library.h"

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

// What the lock of a block may take for granted: the host can reach every handle.

struct Attached : testing::Test {
    Attached() {
        library.attached = true;
        SetCode(0);
        EXPECT_EQ(block.Alloc(10), 0);
    }
    ~Attached() override {
        SetCode(0);
        block.Free();
        library = {};
    }
    Block<uint32_t> block{};
};

TEST_F(Attached, ALockFollowsABlockThatMoves) {
    ASSERT_EQ(block.Lock(10), 0);
    for (size_t size = 10; size <= 10000000; size *= 10) {
        ASSERT_EQ(BlockRealloc(block.memory, size * sizeof(uint32_t)), 0);
        ASSERT_EQ(block.Lock(10), 0);
        EXPECT_EQ(block.data, BlockPeek(block.memory));
    }
}

TEST_F(Attached, ALockKnowsABlockThatWasFreed) {
    ASSERT_EQ(block.Lock(), 0);
    BlockFree(block.memory);
    EXPECT_EQ(block.Lock(), ErrLockBlock);
    EXPECT_EQ(block.data, nullptr);
    EXPECT_EQ(block.Lock(), ErrLockBlock);
}

TEST_F(Attached, ALockKnowsABlockThatWasCut) {
    ASSERT_EQ(BlockRealloc(block.memory, 9 * sizeof(uint32_t)), 0);
    EXPECT_EQ(block.Lock(9), 0);
    EXPECT_EQ(block.Lock(10), ErrLockBlock);
}

TEST_F(Attached, ALockForMoreThanTheLastOneLooksAgain) {
    EXPECT_EQ(block.Lock(), 0);
    EXPECT_EQ(block.Lock(10), 0);
    EXPECT_EQ(block.Lock(11), ErrLockBlock);
}

TEST_F(Attached, ALockSurvivesTheEndOfOtherBlocks) {
    Block<uint32_t> other{};
    ASSERT_EQ(other.Alloc(1), 0);
    uint32_t* before = block.data;
    other.Free();
    EXPECT_EQ(block.Lock(10), 0);
    EXPECT_EQ(block.data, before);
}

}  // namespace
}  // namespace zb
