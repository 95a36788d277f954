// Find and walk in the trees of NDX and MDX: keys stand in the leaves alone, a
// page above them has one child more than keys, and the key of each child but the
// last is the highest of its subtree. A family is a type with
//
//   Index, Page           its control block and its view of a page
//   Search                a search key made ready: Search(index, key, mode), and
//                         Compare(key of a page)
//   Get(index, page, &view)
//   IsText(index)         whether keys leave with a terminator
//   PagesThere(index)     more than any tree in the file can have; it may ask the platform
//   Units                 the names under which its operations log
//   EntryUnit, PageUnit   the same for an entry that isn't there and a page too deep
//
// The functions leave a warning that stands as it is, unless they have one of
// their own.
#pragma once

#include "index/index.h"

namespace zb {

template <class F>
class Leaves {
    using Index = typename F::Index;
    using Page = typename F::Page;

    // Steps from leaf to leaf that a search takes without a thought of pages in a
    // circle. A sound tree seldom needs more than one.
    static constexpr uint32_t FewSteps = 16;

  public:
    static Code Top(Index& index, uint8_t* key, uint32_t* record) {
        return GoToEnd(index, false, key, record) < 0 ? Pass(F::Units.top) : CurrentCode();
    }

    static Code Bottom(Index& index, uint8_t* key, uint32_t* record) {
        return GoToEnd(index, true, key, record) < 0 ? Pass(F::Units.bottom) : CurrentCode();
    }

    // One key forward from the path, or to the first key without one. Behind the
    // last key: that key again, and KeyEnd.
    static Code Next(Index& index, uint8_t* key, uint32_t* record) {
        Position& position = index.position;
        if (position.pathDepth < 0) return Top(index, key, record);
        Page page;
        if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.next);
        if (++position.top().slot >= page.count()) {
            do {
                if (--position.pathDepth < 0) {
                    if (Bottom(index, key, record) < 0) return Pass(F::Units.next);
                    return SetCode(KeyEnd);
                }
                if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.next);
            } while (++position.top().slot > page.count());
            if (Descend(index, page, false) < 0) return Pass(F::Units.next);
        }
        return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass(F::Units.next)
                                                                          : CurrentCode();
    }

    // The mirror image.
    static Code Previous(Index& index, uint8_t* key, uint32_t* record) {
        Position& position = index.position;
        if (position.pathDepth < 0) return Bottom(index, key, record);
        Page page;
        if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.previous);
        if (--position.top().slot < 0) {
            do {
                if (--position.pathDepth < 0) {
                    if (Top(index, key, record) < 0) return Pass(F::Units.previous);
                    return SetCode(KeyEnd);
                }
                if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.previous);
            } while (--position.top().slot < 0);
            if (Descend(index, page, true) < 0) return Pass(F::Units.previous);
            position.top().slot--;
        }
        return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass(F::Units.previous)
                                                                          : CurrentCode();
    }

    // Searches by a mode of ZBDNKFIND. The path stands on the entry that comes
    // back; for a key before all others that is the first, with KeyEnd and the
    // record number BeforeFirst.
    static Code Find(Index& index, uint8_t* key, uint32_t* record, int mode) {
        Position& position = index.position;
        typename F::Search wanted(index, key, mode);
        uint32_t wantedRecord = *record;

        Page page;
        if (F::Get(index, index.rootPage, &page) < 0) return Pass(F::Units.find);
        position.Start(index.rootPage, 0);
        if (page.count() == 0) return SetCode(KeyEmpty);

        for (uint32_t leaves = 0;;) {
            bool leaf = page.isLeaf();
            int low = 0;
            int high = page.count() - 1;
            int middle = 0;
            while (low <= high) {
                middle = (low + high) >> 1;
                int order = wanted.Compare(page.key(middle));
                if (order == 0) {
                    if (!leaf) {
                        // Equal keys are looked for in the leftmost subtree that can hold them.
                        order = -1;
                    } else if (mode == 2) {
                        order = static_cast<int32_t>(wantedRecord - page.record(middle));
                    } else if (middle != low) {
                        // Not yet known to be the first: go on left, this one included.
                        middle++;
                        order = -1;
                    }
                }
                if (order == 0) {
                    position.top().slot = static_cast<int16_t>(middle);
                    if (Deliver(index, page, middle, key, record) < 0) return Pass(F::Units.find);
                    return SetCode(0);
                }
                if (order > 0)
                    low = middle + 1;
                else
                    high = middle - 1;
            }

            if (!leaf) {
                position.top().slot = static_cast<int16_t>(low);
                uint32_t child = page.child(low);
                if (F::Get(index, child, &page) < 0) return Pass(F::Units.find);
                if (!position.Push(child, 0)) return Fail(F::Units.find, ErrStructure);
                continue;
            }

            position.top().slot = static_cast<int16_t>(middle);
            if (low == page.count()) {
                // Above all of this leaf, which a separator may be too: look in the next.
                Code code = Next(index, key, record);
                if (code < 0) return Pass(F::Units.find);
                if (code == KeyEnd) return SetCode(KeyNear);
                if (++leaves > FewSteps && leaves > F::PagesThere(index))
                    return Fail(F::Units.find, ErrStructure);
                if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.find);
                continue;
            }
            if (high >= 0) {
                position.top().slot = static_cast<int16_t>(high);
                if (Deliver(index, page, high, key, record) < 0) return Pass(F::Units.find);
                return SetCode(KeyNear);
            }
            Code code = Previous(index, key, record);
            if (code < 0) return Pass(F::Units.find);
            if (code == KeyEnd) {
                *record = BeforeFirst;
                return code;
            }
            return SetCode(KeyNear);
        }
    }

    // Finds the position again. KeyEnd without one.
    static Code Current(Index& index, uint8_t* key, uint32_t* record) {
        Position& position = index.position;
        if (position.currentRecord == 0) return SetCode(KeyEnd);
        Code code = Find(index, position.currentKey, &position.currentRecord, 2);
        if (code < 0) return Pass(F::Units.current);
        if (code == KeyEmpty) return code;
        Page page;
        if (F::Get(index, position.top().page, &page) < 0) return Pass(F::Units.current);
        return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass(F::Units.current) : code;
    }

  private:
    // Gives the entry at a slot. A leaf that has none there has lost its keys.
    static Code Deliver(const Index& index, const Page& page, int slot, uint8_t* key, uint32_t* record) {
        if (slot < 0 || slot >= page.count()) return Fail(F::EntryUnit, ErrStructure);
        memcpy(key, page.key(slot), static_cast<size_t>(index.keyLength()));
        if (F::IsText(index)) key[index.keyLength()] = 0;
        *record = page.record(slot);
        return CurrentCode();
    }

    // Goes down from the page in hand, whose place on the path is set, along the
    // first child of each page or the last, to the leaf.
    static Code Descend(Index& index, Page& page, bool last) {
        Position& position = index.position;
        while (!page.isLeaf()) {
            uint32_t child = page.child(position.top().slot);
            if (F::Get(index, child, &page) < 0) return CurrentCode();
            if (!position.Push(child, last ? page.count() : 0)) return Fail(F::PageUnit, ErrStructure);
        }
        return CurrentCode();
    }

    // Goes to the first or the last key of the index.
    static Code GoToEnd(Index& index, bool last, uint8_t* key, uint32_t* record) {
        Page page;
        if (F::Get(index, index.rootPage, &page) < 0) return CurrentCode();
        if (page.count() == 0) return SetCode(KeyEmpty);
        index.position.Start(index.rootPage, last ? page.count() : 0);
        if (Descend(index, page, last) < 0) return CurrentCode();
        if (last) index.position.top().slot--;
        return Deliver(index, page, index.position.top().slot, key, record);
    }
};

}  // namespace zb
