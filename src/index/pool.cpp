#include "index/pool.h"

#include <algorithm>

#include "file/operations.h"

namespace zb {

Code PagePool::Open(int buffers, int bytes, int addressUnit) {
    pageSize = bytes;
    unit = addressUnit;
    count = static_cast<int16_t>(buffers);
    inUse = 0;
    int stride = bytes + Margin;
    if (Code code = memory.Alloc(static_cast<size_t>(buffers * stride)); code < 0) return code;
    for (int i = 0; i < buffers; i++) entries[i] = {0, memory.data + i * stride, false, false};
    return 0;
}

Code PagePool::Write(uint16_t file, const PageBuffer& buffer) {
    if (Hseek(file, int64_t{buffer.page} * unit) < 0) return CurrentCode();
    return Hwrite(file, buffer.data, static_cast<int16_t>(pageSize), true);
}

Code PagePool::Fetch(const char* unitName, uint16_t file, uint32_t page) {
    int at = 0;
    while (at < inUse && entries[at].page != page) at++;
    if (at == inUse) {
        at = std::min<int>(inUse, count - 1);
        PageBuffer& buffer = entries[at];
        if (at < inUse && buffer.dirty && Write(file, buffer) < 0) return Pass(unitName);
        // A read that fails leaves the buffer empty, at the end of those in use.
        inUse = static_cast<int16_t>(at);
        buffer.dirty = buffer.checked = false;
        if (HreadAt(file, int64_t{page} * unit, buffer.data, static_cast<int16_t>(pageSize)) < 0)
            return Pass(unitName);
        buffer.page = page;
        inUse = static_cast<int16_t>(at + 1);
    }
    PageBuffer front = entries[at];
    for (; at > 0; at--) entries[at] = entries[at - 1];
    entries[0] = front;
    return CurrentCode();
}

Code PagePool::Put(const char* unitName, uint16_t file, uint32_t page) {
    if (inUse == 0) return Fail(unitName, ErrNoPageHeld);
    int at = 0;
    while (at < inUse && entries[at].page != page) at++;
    if (at == inUse) return Fail(unitName, ErrPageNotHeld);
    if (Write(file, entries[at]) < 0) return Pass(unitName);
    entries[at].dirty = false;
    std::rotate(entries + at, entries + at + 1, entries + inUse);
    inUse--;
    return CurrentCode();
}

}  // namespace zb
