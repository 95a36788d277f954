// The pages of a tag that is being built. One key after the other goes into the
// tree, and most change the page that the one before changed: so pages stay in
// memory and each is written once. What reaches the file in the end is what
// writing them one by one leaves there.
#pragma once

#include "index/mdx/format.h"

namespace zb {

class MdxKept {
  public:
    // From here on, until End, the tag's pages and the header's free list live in
    // memory.
    void Begin(MdxTag& of);

    // A page that is kept, read at first.
    Code Get(uint32_t number, uint8_t** data);

    // Marks a kept page as one to be written.
    void Put(uint32_t number) { pages[number - MdxFirstPage].dirty = true; }

    // Between keys: writes what was changed and gives up the pages where they have
    // become many.
    Code Relieve();

    // Writes all that was changed; the tag is as before Begin. What fails is told
    // by the code.
    Code End();

  private:
    static constexpr int64_t MostBytes = 16 << 20;
    struct Page {
        uint8_t* data;
        bool dirty;
    };

    Code Write();
    void Drop();

    MdxTag* tag;
    Block<Page> pages;  // by page number, less the first
    uint32_t room;
    int64_t bytes;
};

}  // namespace zb
