// The pages of a tag that is being built. One key after the other goes into the
// tree, and most change the page that the one before changed: so pages stay in
// memory and each is written once. What reaches the file in the end is what
// writing them one by one leaves there.
//
// Until the end the file shows the tag as it was: its first root, which is written
// last but for the number of the new one, leads to no other page. So a build that
// can't write all its pages loses those that it took, and nothing else.
#pragma once

#include "index/mdx/format.h"

namespace zb {

class MdxKept {
  public:
    // So much is kept; a test may lower it.
    inline static int64_t mostBytes = 16 << 20;

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
    struct Page {
        uint8_t* data;
        bool dirty;
    };

    Code Load(uint32_t number);
    Code WritePages();
    void Drop(uint32_t index);
    uint32_t rootIndex() const { return firstRoot - MdxFirstPage; }

    MdxTag* tag;
    uint32_t firstRoot;
    Block<Page> pages;  // by page number, less the first
    uint32_t room;
    int64_t bytes;
};

}  // namespace zb
