// A growable array for the platform's own tables. Its elements move by plain
// copying of bytes, it has no destructor, and a failure to grow leaves it as it
// was.
#pragma once

#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "platform/posix_calls.h"

namespace zb {

template <class T>
struct PosixArray {
    static_assert(std::is_trivially_copyable_v<T>);

    T* data;
    size_t count;
    size_t capacity;

    // Makes room for one more element. False when there is no memory.
    bool Reserve() {
        if (count < capacity) return true;
        size_t wanted = capacity ? capacity * 2 : 8;
        auto* grown = static_cast<T*>(posixCalls.realloc(data, wanted * sizeof(T)));
        if (!grown) return false;
        data = grown;
        capacity = wanted;
        return true;
    }
    // Needs the room that Reserve made.
    void Insert(size_t index, const T& element) {
        memmove(data + index + 1, data + index, (count - index) * sizeof(T));
        data[index] = element;
        count++;
    }
    void Remove(size_t index) {
        count--;
        memmove(data + index, data + index + 1, (count - index) * sizeof(T));
    }
    void Free() {
        free(data);
        *this = {};
    }
    T& operator[](size_t index) const { return data[index]; }
};

}  // namespace zb
