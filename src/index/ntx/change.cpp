// NTX keys: add and delete.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "index/ntx/ntx.h"

namespace zb {

void Cktblmove(const NtxPage& page, int to, int from, int count) {
    uint8_t saved[2 * (NtxMaxKeys(MinKeyLength) / 2 + 1)];
    int displaced = std::min(std::abs(to - from), count);
    auto bytes = [](int places) { return static_cast<size_t>(2 * places); };
    int writtenOver = to < from ? to : std::max(from + count, to);
    memcpy(saved, page.place(writtenOver), bytes(displaced));
    memmove(page.place(to), page.place(from), bytes(count));
    memcpy(page.place(to < from ? std::max(to + count, from) : from), saved, bytes(displaced));
}

namespace {

// The item that waits to be inserted at the level in hand.
struct Entering {
    KeyBuffer key;
    uint32_t record;
    uint32_t left;   // ChildPage of the item; 0 in the leaf
    uint32_t right;  // ChildPage of the item after it; 0 in the leaf
    bool split;      // it waits one level up
};

// Items of damaged pages may lie over one another, so all copies allow for that.
void CopyItem(const NtxPage& to, int toSlot, const NtxPage& from, int fromSlot) {
    memmove(to.item(toSlot), from.item(fromSlot), static_cast<size_t>(from.itemSize));
}

// Copies the record number and the key, and leaves the ChildPage.
void CopyEntry(const NtxPage& to, int toSlot, const NtxPage& from, int fromSlot) {
    memmove(to.item(toSlot) + 4, from.item(fromSlot) + 4, static_cast<size_t>(from.itemSize - 4));
}

void PutItem(NtxPage& page, int slot, const Entering& entry) {
    page.setChild(slot, entry.left);
    page.setRecord(slot, entry.record);
    memcpy(page.key(slot), entry.key, static_cast<size_t>(page.itemSize - 8));
    page.setChild(slot + 1, entry.right);
}

// Puts a spare item, that of the last place, into another place.
void OpenPlace(const NtxPage& page, int slot) { Cktblmove(page, slot + 1, slot, page.maxKeys - slot); }

// Makes the item of a place the last spare one.
void ClosePlace(const NtxPage& page, int slot) { Cktblmove(page, slot, slot + 1, page.maxKeys - slot); }

// The spare items of a page are drawn upon next.
Code CheckSpares(const char* unit, const NtxPage& page) {
    return page.PlacesHold(page.count(), page.maxKeys) ? CurrentCode() : Fail(unit, ErrStructure);
}

// The lower half of a full page moves to a new one. The old page keeps its offset
// and the upper half, so the parent's pointer to it stays right; the highest key
// of the lower half waits for the level above.
Code Cksplit(NtxFile& index, NtxPage& old, NtxPage& fresh, Entering& pending) {
    int full = index.maxKeys;
    int half = full / 2;
    int16_t& slot = index.position.top().slot;
    if (slot <= half) {
        for (int i = 0; i < slot; i++) CopyItem(fresh, i, old, i);
        for (int i = slot; i < half; i++) CopyItem(fresh, i + 1, old, i);
        Cktblmove(old, 0, half, full - half + 1);
        PutItem(fresh, slot, pending);
    } else {
        for (int i = 0; i <= half; i++) CopyItem(fresh, i, old, i);
        int place = slot - half - 1;
        if (place > 0) Cktblmove(old, 0, half + 1, place);
        Cktblmove(old, place + 1, slot, full - place - half);
        slot = static_cast<int16_t>(place);
        PutItem(old, slot, pending);
    }
    fresh.setCount(half);
    old.setCount(full - half);

    memcpy(pending.key, fresh.key(half), static_cast<size_t>(index.keyLength()));
    pending.record = fresh.record(half);
    pending.left = fresh.offset;
    pending.right = old.offset;
    if (Cpput(index, fresh) < 0 || Cpput(index, old) < 0) return Pass("Cksplit");
    return CurrentCode();
}

// Inserts the waiting item in the page at the top of the path, or splits it.
Code Ckinsert(NtxFile& index, NtxPage& page, Entering& pending) {
    pending.split = false;
    int count = page.count();
    int slot = index.position.top().slot;
    if (slot < 0 || slot > count) return Fail("Ckinsert", ErrStructure);
    if (count < index.maxKeys) {
        if (CheckSpares("Ckinsert", page) < 0) return CurrentCode();
        OpenPlace(page, slot);
        PutItem(page, slot, pending);
        page.setCount(count + 1);
        return Cpput(index, page) < 0 ? Pass("Ckinsert") : CurrentCode();
    }
    if (index.freeHead == page.offset) return Fail("Ckinsert", ErrStructure);
    NtxPage fresh;
    if (Cknewpage(index, &fresh) < 0 || Cpget(index, page.offset, &page) < 0) return Pass("Ckinsert");
    pending.split = true;
    return Cksplit(index, page, fresh, pending) < 0 ? Pass("Ckinsert") : CurrentCode();
}

// A new root over the two halves of the old one.
Code GrowRoot(NtxFile& index, const Entering& pending) {
    NtxPage root;
    if (Cknewpage(index, &root) < 0) return CurrentCode();
    root.setCount(1);
    PutItem(root, 0, pending);
    if (Cpput(index, root) < 0) return CurrentCode();
    index.rootPage = root.offset;
    return CurrentCode();
}

// The path stands on the entry before the place of a new key. Brings it to the
// place: behind that entry in its leaf, or, when it stands above the leaves, the
// first place of the leaf that follows it. A leaf without keys is such a leaf too.
Code GoToPlace(NtxFile& index) {
    Position& position = index.position;
    NtxPage page;
    if (Cpget(index, position.top().page, &page) < 0) return CurrentCode();
    bool leaf = page.child(position.top().slot) == 0;
    position.top().slot++;
    return leaf ? CurrentCode() : CkDescend(index, page, false);
}

}  // namespace

// A key that is there already isn't refused: it goes before the entry found. So
// where that entry stands above the leaves, its subtree is cut off. Callers add
// an entry once.
Code Ckadd(NtxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    Entering pending{};
    NtxStoredKey(index, key, pending.key);
    pending.record = record;
    Code code = Ckfind(index, pending.key, &pending.record, index.unique ? 1 : 2);
    if (code < 0) return Pass("Ckadd");
    if (code == KeyNear && GoToPlace(index) < 0) return Pass("Ckadd");
    SetCode(0);

    // The search wrote over the key and the record.
    NtxStoredKey(index, key, pending.key);
    pending.record = record;
    pending.split = true;
    for (; position.pathDepth >= 0 && pending.split; position.pathDepth--) {
        NtxPage page;
        if (Cpget(index, position.top().page, &page) < 0 || Ckinsert(index, page, pending) < 0)
            return Pass("Ckadd");
    }
    if (pending.split && GrowRoot(index, pending) < 0) return Pass("Ckadd");
    return NtxWriteVersion(index) < 0 ? Pass("Ckadd") : CurrentCode();
}

namespace {

// Moves one key from the sibling, through the parent, into the short page. The
// page's count becomes the half whatever it was: a page that was shorter still,
// as a build can leave it, gains false keys here. That is meant to stay.
Code Ckrotate(NtxFile& index, NtxPage& page, NtxPage& parent, NtxPage& sibling, bool left) {
    int slot = index.position.path[index.position.pathDepth - 1].slot;
    int given = sibling.count() - 1;
    if (left) {
        OpenPlace(page, 0);
        CopyEntry(page, 0, parent, slot - 1);
        page.setCount(index.halfKeys);
        page.setChild(0, sibling.child(given + 1));
        sibling.setCount(given);
        CopyEntry(parent, slot - 1, sibling, given);
    } else {
        CopyEntry(page, page.count(), parent, slot);
        page.setCount(index.halfKeys);
        page.setChild(index.halfKeys, sibling.child(0));
        sibling.setCount(given);
        CopyEntry(parent, slot, sibling, 0);
        ClosePlace(sibling, 0);
    }
    if (Cpput(index, sibling) < 0 || Cpput(index, parent) < 0 || Cpput(index, page) < 0)
        return Pass("Ckrotate");
    return CurrentCode();
}

// Folds the right page of the two into the left one, which then counts as full
// whatever it holds: that is meant to stay too. The separator is left in the
// parent in the shape of a leaf's item, to be removed from there next.
Code Ckmerge(NtxFile& index, NtxPage& page, NtxPage& parent, NtxPage& sibling, bool left) {
    int16_t& slot = index.position.path[index.position.pathDepth - 1].slot;
    if (left) slot--;
    NtxPage& target = left ? sibling : page;
    NtxPage& source = left ? page : sibling;
    int held = target.count();
    int added = source.count();
    CopyEntry(target, held, parent, slot);
    for (int i = 0; i <= added; i++) CopyItem(target, held + i + 1, source, i);
    target.setCount(index.maxKeys);
    parent.setChild(slot, 0);
    parent.setChild(slot + 1, target.offset);
    uint32_t freed = source.offset;
    if (Cpput(index, target) < 0 || Cpput(index, parent) < 0 || Ckfreepage(index, freed) < 0)
        return Pass("Ckmerge");
    return CurrentCode();
}

// What a short page is filled up with: its right neighbour, or the left one where
// there is none.
struct Neighbour {
    NtxPage parent, sibling;
    bool left;
};

// That of the page on a level of the path.
Code FindNeighbour(NtxFile& index, int level, Neighbour* found) {
    const PathEntry& above = index.position.path[level - 1];
    uint32_t page = index.position.path[level].page;
    NtxPage& parent = found->parent;
    if (Cpget(index, above.page, &parent) < 0) return CurrentCode();
    found->left = parent.count() <= above.slot;
    if (found->left && above.slot < 1) return Fail("Ckremove", ErrSeek);  // a parent without keys
    if (found->left && above.slot > parent.count()) return Fail("Ckremove", ErrStructure);
    uint32_t sibling = parent.child(found->left ? above.slot - 1 : above.slot + 1);
    if (Cpget(index, sibling, &found->sibling) < 0) return CurrentCode();
    if (sibling == page || sibling == above.page || page == above.page) return Fail("Ckremove", ErrStructure);
    return CurrentCode();
}

// Follows a removal from a leaf of so many keys upwards without making it. Where
// a page would have to be filled up and its parent has no keys, as a build can
// leave the last ones, the delete fails while nothing is written yet.
Code CheckNeighbours(NtxFile& index, int count) {
    for (int level = index.position.pathDepth; level > 0 && count <= index.halfKeys; level--) {
        Neighbour near;
        if (FindNeighbour(index, level, &near) < 0) return CurrentCode();
        if (near.sibling.count() + count - 1 >= index.maxKeys) break;
        count = near.parent.count();
    }
    return CurrentCode();
}

// Fills up a page that has become short, and isn't written yet.
Code MendShortPage(NtxFile& index, NtxPage& page, bool* merged) {
    Neighbour near;
    if (FindNeighbour(index, index.position.pathDepth, &near) < 0) return CurrentCode();
    auto& [parent, sibling, left] = near;
    *merged = sibling.count() + page.count() < index.maxKeys;
    if (CheckSpares("Ckremove", *merged && left ? sibling : page) < 0) return CurrentCode();
    return *merged ? Ckmerge(index, page, parent, sibling, left)
                   : Ckrotate(index, page, parent, sibling, left);
}

// The item to be removed stands above the leaves: the key before it, the last one
// beneath its child, takes its place and is removed instead. The leaf comes to be
// the page in hand.
Code TakePredecessor(NtxFile& index, NtxPage& page) {
    Position& position = index.position;
    int level = position.pathDepth;
    if (CkDescend(index, page, true) < 0) return CurrentCode();
    int slot = --position.top().slot;
    if (slot < 0) return Fail("Ckremove", ErrStructure);
    if (CheckNeighbours(index, page.count()) < 0) return CurrentCode();

    NtxPage upper;
    if (Cpget(index, position.top().page, &page) < 0 || Cpget(index, position.path[level].page, &upper) < 0)
        return CurrentCode();
    CopyEntry(upper, position.path[level].slot, page, slot);
    if (Cpput(index, upper) < 0) return CurrentCode();
    return Cpget(index, position.top().page, &page);
}

// Removes the item at the path's place from the page in hand. `merged` tells that
// a separator is left to be removed one level up.
Code Ckremove(NtxFile& index, NtxPage& page, bool* merged) {
    Position& position = index.position;
    *merged = false;
    int slot = position.top().slot;
    if (slot < 0 || slot >= page.count()) return Fail("Ckremove", ErrStructure);
    if (page.child(slot) != 0) {
        if (TakePredecessor(index, page) < 0) return Pass("Ckremove");
    } else if (CheckNeighbours(index, page.count()) < 0 || Cpget(index, position.top().page, &page) < 0) {
        return Pass("Ckremove");
    }

    ClosePlace(page, position.top().slot);
    page.setCount(page.count() - 1);
    bool sound = position.pathDepth == 0 || page.count() >= index.halfKeys;
    Code code = sound ? Cpput(index, page) : MendShortPage(index, page, merged);
    return code < 0 ? Pass("Ckremove") : code;
}

// A root that has one child left and no key gives way to it.
Code ShrinkRoot(NtxFile& index) {
    NtxPage root;
    if (Cpget(index, index.rootPage, &root) < 0) return CurrentCode();
    if (root.count() != 0 || root.child(0) == 0) return CurrentCode();
    index.rootPage = root.child(0);
    return Ckfreepage(index, root.offset);
}

}  // namespace

Code Ckdel(NtxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    KeyBuffer found = {};
    memcpy(found, key, strnlen(reinterpret_cast<const char*>(key), static_cast<size_t>(index.keyLength())));
    Code code = Ckfind(index, found, &record, index.unique ? 1 : 2);
    if (code < 0) return Pass("Ckdel");
    // A key below all others ends its search on the first key with KeyEnd, and
    // takes that one away.
    if (code == KeyNear || code == KeyEmpty) return code;

    bool merged = true;
    for (; merged && position.pathDepth >= 0; position.pathDepth--) {
        NtxPage page;
        if (Cpget(index, position.top().page, &page) < 0 || Ckremove(index, page, &merged) < 0)
            return Pass("Ckdel");
    }
    if (ShrinkRoot(index) < 0 || NtxWriteVersion(index) < 0) return Pass("Ckdel");
    return CurrentCode();
}

}  // namespace zb
