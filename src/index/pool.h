// The page pool: the few pages that one call on an index holds, most recently
// fetched first. No page outlives the call.
#pragma once

#include "core/library.h"

namespace zb {

struct PageBuffer {
    uint32_t page;  // as the family addresses it
    uint8_t* data;
    bool dirty;    // taken for use, and not yet put
    bool checked;  // found sound since it was read
};

struct PagePool {
    static constexpr int MaxBuffers = 4;

    // A page whose header lies about its entries is looked at a little beyond
    // its end at most: that much stands behind each buffer.
    static constexpr int Margin = 128;

    PageBuffer entries[MaxBuffers];
    Block<uint8_t> memory;
    int pageSize;   // bytes
    int unit;       // bytes by which an address counts
    int16_t count;  // buffers
    int16_t inUse;  // entries that hold a page

    Code Open(int buffers, int bytes, int addressUnit);
    void Close() { memory.Free(); }

    // Makes a page the front entry, reading it unless it is there. The buffer
    // given up for it is that fetched longest ago, which is written first if it
    // is dirty. The data stay where they are until the page is given up, so the
    // last pages fetched, as many as there are buffers, can be used side by side.
    Code Get(const char* unitName, uint16_t file, uint32_t page, uint8_t** data) {
        if ((inUse == 0 || entries[0].page != page) && Fetch(unitName, file, page) < 0) return CurrentCode();
        *data = entries[0].data;
        return CurrentCode();
    }

    // Writes a page to the file and forgets it: the next Get reads it again.
    // ErrNoPageHeld, ErrPageNotHeld; a page whose write fails stays.
    Code Put(const char* unit, uint16_t file, uint32_t page);

    // Takes the front entry, just fetched, for new use.
    void TakeFront() { entries[0].dirty = true; }

    // Whether the front entry has been found sound, for families whose check of a
    // page is too long to be made at every Get.
    bool FrontChecked() const { return entries[0].checked; }
    void MarkFrontChecked() { entries[0].checked = true; }

    // Gives the front entry another address, under which its Put will write it.
    void MoveFront(uint32_t page) { entries[0].page = page; }

    void Forget() { inUse = 0; }

  private:
    Code Fetch(const char* unitName, uint16_t file, uint32_t page);
    Code Write(uint16_t file, const PageBuffer& buffer);
};

}  // namespace zb
