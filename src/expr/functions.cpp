#include "expr/functions.h"

#include <cstring>

#include "core/ascii.h"

namespace zb {
namespace {

constexpr int FirstCapacity = 20;
constexpr int CapacityStep = 10;

UserFunction* Table() { return static_cast<UserFunction*>(BlockPeek(library.userFuncMemory)); }

// How a text sorts against a name: by its first bytes alone, as many as the name
// has.
int Compare(const char* text, size_t length, const UserFunction& entry) {
    auto nameLength = static_cast<size_t>(entry.nameLength);
    const void* name = BlockPeek(entry.name);
    if (!name) return 1;
    int order = memcmp(text, name, length < nameLength ? length : nameLength);
    return order == 0 && length < nameLength ? -1 : order;
}

struct Place {
    int index;  // of the entry, or of where it would have to stand
    bool found;
};

Place Search(const char* text, size_t length) {
    const UserFunction* table = Table();
    int low = 0;
    int high = table ? library.userFuncCount : 0;
    while (low < high) {
        int probe = (low + high - 1) / 2;
        int order = Compare(text, length, table[probe]);
        if (order == 0) return {probe, true};
        if (order < 0)
            high = probe;
        else
            low = probe + 1;
    }
    return {low, false};
}

// The entry of exactly that upper-case name, or -1.
int Exact(const char* name) {
    const UserFunction* table = Table();
    size_t length = strlen(name);
    for (int i = 0; table && i < library.userFuncCount; i++) {
        auto* stored = static_cast<const char*>(BlockPeek(table[i].name));
        if (!stored || static_cast<size_t>(table[i].nameLength) != length) continue;
        if (memcmp(name, stored, length) == 0) return i;
    }
    return -1;
}

// Makes room for one entry more.
Code Reserve() {
    if (library.userFuncCapacity == 0) {
        if (BlockAlloc(&library.userFuncMemory, FirstCapacity * sizeof(UserFunction)) < 0) return ErrMemory;
        library.userFuncCapacity = FirstCapacity;
    } else if (library.userFuncCount == library.userFuncCapacity) {
        int capacity = library.userFuncCapacity + CapacityStep;
        if (capacity > INT16_MAX) return Fail("Xadd", ErrMemory);
        if (BlockRealloc(library.userFuncMemory, static_cast<size_t>(capacity) * sizeof(UserFunction)) < 0)
            return ErrMemory;
        library.userFuncCapacity = static_cast<int16_t>(capacity);
    }
    return 0;
}

void FreeTable() {
    BlockFree(library.userFuncMemory);
    library.userFuncMemory = 0;
    library.userFuncCount = 0;
    library.userFuncCapacity = 0;
}

}  // namespace

const UserFunction* FindUserFunction(const char* text, size_t length) {
    Place place = Search(text, length);
    return place.found ? Table() + place.index : nullptr;
}

void ReleaseUserFunctions() {
    const UserFunction* table = Table();
    for (int i = 0; table && i < library.userFuncCount; i++)
        if (table[i].name) BlockFree(table[i].name);
    FreeTable();
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDXADD(char* name, ZbUserFunction function) {
    if (Code code = ClientRestore(); code != 0) return code;
    if (!name || !function) return Fail("Xadd", ErrNullPointer);
    size_t length = strlen(name);
    if (length == 0 || length > INT16_MAX) return Fail("Xadd", ErrBadName);

    AsciiUpper(name);
    Place place = Search(name, length);
    if (place.found) return SetCode(WarnFuncExists);

    BlockHandle block = 0;
    if (BlockAlloc(&block, length) < 0) return Pass("Xadd");
    if (Reserve() < 0) {
        BlockFree(block);
        return Pass("Xadd");
    }
    UserFunction* table = Table();
    if (!table) {
        BlockFree(block);
        return Fail("Xadd", ErrLockBlock);
    }
    memcpy(BlockPeek(block), name, length);
    memmove(table + place.index + 1, table + place.index,
            static_cast<size_t>(library.userFuncCount - place.index) * sizeof(UserFunction));
    table[place.index] = {block, function, static_cast<int16_t>(length)};
    library.userFuncCount++;
    return SetCode(0);
}

int32_t ZB_CALL ZBDXDEL(char* name) {
    if (Code code = ClientRestore(); code != 0) return code;
    if (!name) return Fail("Xdel", ErrNullPointer);
    if (!*name) return Fail("Xdel", ErrBadName);

    AsciiUpper(name);
    int index = Exact(name);
    if (index < 0) return SetCode(KeyNear);
    UserFunction* table = Table();
    BlockFree(table[index].name);
    library.userFuncCount--;
    memmove(table + index, table + index + 1,
            static_cast<size_t>(library.userFuncCount - index) * sizeof(UserFunction));
    if (library.userFuncCount == 0) FreeTable();
    return SetCode(0);
}

int32_t ZB_CALL ZBDXLIST(char* name, int16_t index) {
    if (Code code = ClientRestore(); code != 0) return code;
    if (!name) return Fail("Xlist", ErrNullPointer);

    if (index < 0 || index >= library.userFuncCount) return SetCode(KeyEnd);
    const UserFunction* table = Table();
    const void* stored = table ? BlockAddress(table[index].name) : nullptr;
    if (!stored) return Fail("Xlist", ErrLockBlock);
    auto length = static_cast<size_t>(table[index].nameLength);
    memcpy(name, stored, length);
    name[length] = 0;
    return SetCode(0);
}

int32_t ZB_CALL ZBDXINFO(int16_t* count, int16_t* longestName) {
    if (Code code = ClientRestore(); code != 0) return code;
    if (!count || !longestName) return Fail("Xinfo", ErrNullPointer);

    *count = library.userFuncCount;
    if (*count == 0) return SetCode(KeyEmpty);
    const UserFunction* table = Table();
    if (!table) return Fail("Xinfo", ErrLockBlock);
    *longestName = 0;
    for (int i = 0; i < *count; i++)
        if (table[i].nameLength > *longestName) *longestName = table[i].nameLength;
    return SetCode(0);
}
