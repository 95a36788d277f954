// NDX keys: compare, find, walk.
#include <algorithm>
#include <cstring>

#include "index/ndx/ndx.h"

namespace zb {
namespace {

// A search key, made ready to be compared with the keys of pages.
class SearchKey {
  public:
    SearchKey(const NdxFile& index, const uint8_t* key, int mode) : bytes{} {
        int keyLength = index.keyLength();
        memcpy(bytes, key, static_cast<size_t>(keyLength));
        if (index.keyType == NdxNumeric) {
            kind = Number;
            sortable = SortableDouble(LoadLeDouble(bytes));
            return;
        }
        length = static_cast<int>(strnlen(reinterpret_cast<char*>(bytes), static_cast<size_t>(keyLength)));
        if ((mode & 4) && memchr(bytes, '?', static_cast<size_t>(length))) kind = Wild;
        if (mode & 2) length = keyLength;
    }

    int Compare(const uint8_t* key) const {
        switch (kind) {
            case Text: return CompareText(bytes, key, length);
            case Wild: return CompareWild(bytes, key, length);
            default: break;
        }
        uint64_t other = SortableDouble(LoadLeDouble(key));
        return sortable < other ? -1 : sortable > other;
    }

  private:
    enum Kind : uint8_t { Text, Wild, Number };
    KeyBuffer bytes;
    uint64_t sortable = 0;
    int length = 0;
    Kind kind = Text;
};

// Gives the entry at a slot. A leaf that has none there has lost its keys.
Code Deliver(const NdxFile& index, const NdxPage& page, int slot, uint8_t* key, uint32_t* record) {
    if (slot < 0 || slot >= page.count()) return Fail("Nkentry", ErrStructure);
    memcpy(key, page.key(slot), static_cast<size_t>(index.keyLength()));
    if (index.keyType == NdxCharacter) key[index.keyLength()] = 0;
    *record = page.record(slot);
    return CurrentCode();
}

// Goes down from the page in hand, whose place on the path is set, along the
// first child of each page or the last, to the leaf.
Code Descend(NdxFile& index, NdxPage& page, bool last) {
    Position& position = index.position;
    while (!page.isLeaf()) {
        uint32_t child = page.child(position.top().slot);
        if (Npget(index, child, &page) < 0) return CurrentCode();
        if (!position.Push(child, last ? page.count() : 0)) return Fail("Npget", ErrStructure);
    }
    return CurrentCode();
}

// Goes to the first or the last key of the index.
Code GoToEnd(NdxFile& index, bool last, uint8_t* key, uint32_t* record) {
    NdxPage page;
    if (Npget(index, index.rootPage, &page) < 0) return CurrentCode();
    if (page.count() == 0) return SetCode(KeyEmpty);
    index.position.Start(index.rootPage, last ? page.count() : 0);
    if (Descend(index, page, last) < 0) return CurrentCode();
    if (last) index.position.top().slot--;
    return Deliver(index, page, index.position.top().slot, key, record);
}

}  // namespace

Code Nktop(NdxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, false, key, record) < 0 ? Pass("Nktop") : CurrentCode();
}

Code Nkbot(NdxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, true, key, record) < 0 ? Pass("Nkbot") : CurrentCode();
}

Code Nknext(NdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Nktop(index, key, record);
    NdxPage page;
    if (Npget(index, position.top().page, &page) < 0) return Pass("Nknext");
    if (++position.top().slot >= page.count()) {
        do {
            if (--position.pathDepth < 0) {
                if (Nkbot(index, key, record) < 0) return Pass("Nknext");
                return SetCode(KeyEnd);
            }
            if (Npget(index, position.top().page, &page) < 0) return Pass("Nknext");
        } while (++position.top().slot > page.count());
        if (Descend(index, page, false) < 0) return Pass("Nknext");
    }
    return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass("Nknext") : CurrentCode();
}

Code Nkprev(NdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Nkbot(index, key, record);
    NdxPage page;
    if (Npget(index, position.top().page, &page) < 0) return Pass("Nkprev");
    if (--position.top().slot < 0) {
        do {
            if (--position.pathDepth < 0) {
                if (Nktop(index, key, record) < 0) return Pass("Nkprev");
                return SetCode(KeyEnd);
            }
            if (Npget(index, position.top().page, &page) < 0) return Pass("Nkprev");
        } while (--position.top().slot < 0);
        if (Descend(index, page, true) < 0) return Pass("Nkprev");
        position.top().slot--;
    }
    return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass("Nkprev") : CurrentCode();
}

Code Nkfind(NdxFile& index, uint8_t* key, uint32_t* record, int mode) {
    Position& position = index.position;
    SearchKey wanted(index, key, mode);
    uint32_t wantedRecord = mode & 2 ? *record : 0xFFFFFFFF;

    NdxPage page;
    if (Npget(index, index.rootPage, &page) < 0) return Pass("Nkfind");
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
                if (Deliver(index, page, middle, key, record) < 0) return Pass("Nkfind");
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
            if (Npget(index, child, &page) < 0) return Pass("Nkfind");
            if (!position.Push(child, 0)) return Fail("Nkfind", ErrStructure);
            continue;
        }

        position.top().slot = static_cast<int16_t>(middle);
        if (low == page.count()) {
            // Above all of this leaf, which a separator may be too: look in the next.
            Code code = Nknext(index, key, record);
            if (code < 0) return Pass("Nkfind");
            if (code == KeyEnd) return SetCode(KeyNear);
            if (++leaves > index.pageCount) return Fail("Nkfind", ErrStructure);
            if (Npget(index, position.top().page, &page) < 0) return Pass("Nkfind");
            continue;
        }
        if (high >= 0) {
            position.top().slot = static_cast<int16_t>(high);
            if (Deliver(index, page, high, key, record) < 0) return Pass("Nkfind");
            return SetCode(KeyNear);
        }
        Code code = Nkprev(index, key, record);
        if (code < 0) return Pass("Nkfind");
        if (code == KeyEnd) {
            *record = BeforeFirst;
            return code;
        }
        return SetCode(KeyNear);
    }
}

Code Nkcur(NdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.currentRecord == 0) return SetCode(KeyEnd);
    Code code = Nkfind(index, position.currentKey, &position.currentRecord, 2);
    if (code < 0) return Pass("Nkcur");
    if (code == KeyEmpty) return code;
    NdxPage page;
    if (Npget(index, position.top().page, &page) < 0) return Pass("Nkcur");
    return Deliver(index, page, position.top().slot, key, record) < 0 ? Pass("Nkcur") : code;
}

}  // namespace zb
