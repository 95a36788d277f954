#include "core/block.h"

#include <cstring>

#include "platform/platform.h"

namespace zb {

uint64_t blockChanges;

namespace {

struct Entry {
    uint8_t* address;  // null while the entry is free
    uint32_t size;     // with the slack
    uint32_t next;     // free list, or hash chain
    uint8_t generation;
};

// A handle is the entry's index plus 1 in the low 24 bits and the entry's
// generation above. Entries are given out again first in, first out and only
// once many are free, so that a freed handle stays recognisable for long.
constexpr uint32_t IndexBits = 24;
constexpr uint32_t IndexMask = (1u << IndexBits) - 1;
constexpr uint32_t MaxEntries = IndexMask - 1;
constexpr uint32_t RestingEntries = 1024;
constexpr uint32_t None = 0xFFFFFFFF;

// No block is larger than the address space of the smallest target allows.
constexpr uint64_t MaxBlock = 0x7FFFFFFF;

struct Table {
    Entry* entries;
    uint32_t count;     // entries in use or resting
    uint32_t capacity;  // a power of two, as many as there are hash chains
    uint32_t* chains;   // by address: first entry, None when empty
    uint32_t freeFirst, freeLast, freeCount;
};

Table table{nullptr, 0, 0, nullptr, None, None, 0};

uint32_t ChainOf(const void* address) {
    uint64_t bits = reinterpret_cast<uintptr_t>(address) >> 4;
    return static_cast<uint32_t>((bits * 0x9E3779B97F4A7C15u) >> 40) & (table.capacity - 1);
}

void Chain(uint32_t index) {
    uint32_t& chain = table.chains[ChainOf(table.entries[index].address)];
    table.entries[index].next = chain;
    chain = index;
}

void Unchain(uint32_t index) {
    uint32_t* link = &table.chains[ChainOf(table.entries[index].address)];
    while (*link != index) link = &table.entries[*link].next;
    *link = table.entries[index].next;
}

bool Grow() {
    uint32_t capacity = table.capacity ? table.capacity * 2 : 2048;
    if (table.count >= MaxEntries) return false;
    auto* entries = static_cast<Entry*>(platform->Reallocate(table.entries, capacity * sizeof(Entry)));
    if (!entries) return false;
    table.entries = entries;
    auto* chains = static_cast<uint32_t*>(platform->Reallocate(table.chains, capacity * sizeof(uint32_t)));
    if (!chains) return false;
    table.chains = chains;
    table.capacity = capacity;
    memset(chains, 0xFF, capacity * sizeof(uint32_t));
    for (uint32_t i = 0; i < table.count; i++)
        if (entries[i].address) Chain(i);
    return true;
}

// An entry for a new block, or None. It is taken off its list by TakeEntry only
// once the block's memory is there.
uint32_t FindEntry() {
    if (table.freeCount > RestingEntries) return table.freeFirst;
    if (table.count < table.capacity || Grow()) return table.count;
    return table.freeCount ? table.freeFirst : None;
}

void TakeEntry(uint32_t index) {
    if (index == table.count) {
        table.count++;
        table.entries[index].generation = 0;
        return;
    }
    table.freeFirst = table.entries[index].next;
    if (--table.freeCount == 0) table.freeLast = None;
}

Entry* EntryOf(BlockHandle handle) {
    uint32_t index = (handle & IndexMask) - 1;
    if (index >= table.count) return nullptr;
    Entry& entry = table.entries[index];
    return entry.address && entry.generation == handle >> IndexBits ? &entry : nullptr;
}

}  // namespace

Code BlockAlloc(BlockHandle* handle, size_t size) {
    *handle = 0;
    uint64_t whole = uint64_t{size} + BlockSlack;
    if (whole > MaxBlock) return Fail("Mgalloc", ErrMemory);
    uint32_t index = FindEntry();
    if (index == None) return Fail("Mgalloc", ErrMemory);
    auto* address = static_cast<uint8_t*>(platform->Allocate(static_cast<size_t>(whole)));
    if (!address) return Fail("Mgalloc", ErrMemory);
    TakeEntry(index);
    Entry& entry = table.entries[index];
    entry.address = address;
    entry.size = static_cast<uint32_t>(whole);
    Chain(index);
    *handle = uint32_t{entry.generation} << IndexBits | (index + 1);
    return 0;
}

Code BlockRealloc(BlockHandle handle, size_t size) {
    Entry* entry = EntryOf(handle);
    uint64_t whole = uint64_t{size} + BlockSlack;
    if (!entry || whole > MaxBlock) return Fail("Mgralloc", ErrMemory);
    blockChanges++;
    auto index = static_cast<uint32_t>(entry - table.entries);
    Unchain(index);
    auto* address = static_cast<uint8_t*>(platform->Reallocate(entry->address, static_cast<size_t>(whole)));
    if (address) {
        if (whole > entry->size) memset(address + entry->size, 0, static_cast<size_t>(whole) - entry->size);
        entry->address = address;
        entry->size = static_cast<uint32_t>(whole);
    }
    Chain(index);
    return address ? Code{0} : Fail("Mgralloc", ErrMemory);
}

Code BlockFree(BlockHandle handle) {
    Entry* entry = EntryOf(handle);
    if (!entry) return CurrentCode();
    blockChanges++;
    auto index = static_cast<uint32_t>(entry - table.entries);
    Unchain(index);
    platform->Free(entry->address);
    entry->address = nullptr;
    entry->generation++;
    entry->next = None;
    if (table.freeLast == None)
        table.freeFirst = index;
    else
        table.entries[table.freeLast].next = index;
    table.freeLast = index;
    table.freeCount++;
    return 0;
}

BlockHandle BlockAt(const void* address) {
    if (!address || !table.capacity) return 0;
    for (uint32_t i = table.chains[ChainOf(address)]; i != None; i = table.entries[i].next)
        if (table.entries[i].address == address)
            return uint32_t{table.entries[i].generation} << IndexBits | (i + 1);
    return 0;
}

void* BlockPeek(BlockHandle handle) {
    Entry* entry = EntryOf(handle);
    return entry ? entry->address : nullptr;
}

size_t BlockSize(BlockHandle handle) {
    Entry* entry = EntryOf(handle);
    return entry ? entry->size : 0;
}

void* BlockAddress(BlockHandle handle, size_t size) {
    Entry* entry = EntryOf(handle);
    if (entry && entry->size >= size + BlockSlack) return entry->address;
    Fail("Mglock", ErrLockBlock);
    return nullptr;
}

}  // namespace zb
