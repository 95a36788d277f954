// Memory blocks: zero-filled, with 128 bytes more than was asked for, named by a
// handle. A block never moves but by a reallocation, so a lock is no more than
// the look-up of the address; a handle that has been freed is recognised.
#pragma once

#include <cstddef>

#include "core/code.h"

namespace zb {

using BlockHandle = ZbBlock;

// Bytes that every block has beyond its size. Text that fills its block still
// ends in a zero byte.
inline constexpr uint32_t BlockSlack = 128;

// Gives a new block. On failure ErrMemory, logged, with 0 in the handle.
Code BlockAlloc(BlockHandle* handle, size_t size);

// Resizes a block, which may move; what is gained is zero-filled. On failure
// ErrMemory, logged, and the block is as it was.
Code BlockRealloc(BlockHandle handle, size_t size);

// Frees a block. A handle that names none is passed over; the pending code comes
// back, as from every free.
Code BlockFree(BlockHandle handle);

// The block that begins at an address, or 0.
BlockHandle BlockAt(const void* address);

// The address of a block, or null with ErrLockBlock set and logged: for a handle
// that names no block, and for a block of less than `size` bytes.
void* BlockAddress(BlockHandle handle, size_t size = 0);

// The same without a code: null for a handle that names no block.
void* BlockPeek(BlockHandle handle);

// The bytes of a block, the slack among them; 0 for a handle that names none.
size_t BlockSize(BlockHandle handle);

// Counts the frees and reallocations, by which alone an address goes bad: one
// found at the same count is still the block's.
extern uint64_t blockChanges;

// A block handle with its address. It lives in zero-filled control blocks, so it
// has no destructor: close operations free what they own.
template <class T>
struct Block {
    BlockHandle memory;
    uint32_t elements;  // that the block was last seen to hold
    T* data;
    uint64_t foundAt;  // blockChanges at that look-up

    Code Alloc(size_t count) {
        data = nullptr;
        if (Code code = BlockAlloc(&memory, count * sizeof(T)); code < 0) return code;
        Keep(BlockPeek(memory), count);
        return 0;
    }
    // On failure the block is as it was.
    Code Resize(size_t count) {
        if (Code code = BlockRealloc(memory, count * sizeof(T)); code < 0) return code;
        Keep(BlockPeek(memory), count);
        return 0;
    }
    // Makes sure of the address, as each bind does: the host may have freed or
    // resized a block whose handle it was given. One that no longer holds `count`
    // elements can't be used.
    Code Lock(size_t count = 0) {
        if (!data || foundAt != blockChanges || count > elements)
            Keep(BlockAddress(memory, count * sizeof(T)), count);
        return data ? Code{0} : ErrLockBlock;
    }
    void Free() {
        if (memory) BlockFree(memory);
        memory = 0;
        data = nullptr;
    }
    T& operator[](ptrdiff_t index) const { return data[index]; }

  private:
    void Keep(void* address, size_t count) {
        data = static_cast<T*>(address);
        elements = static_cast<uint32_t>(count);
        foundAt = blockChanges;
    }
};

}  // namespace zb
