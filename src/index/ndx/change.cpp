// NDX keys: add and delete.
#include <cstring>

#include "file/operations.h"
#include "index/ndx/ndx.h"

namespace zb {
namespace {

// The entry that waits to be inserted at the level in hand.
struct Entering {
    KeyBuffer key;
    uint32_t record;  // 0 above the leaf
    uint32_t left;    // ChildPage of the entry; 0 in the leaf
    uint32_t right;   // ChildPage of the entry after it; 0 in the leaf
    bool split;       // it waits one level up
    bool aboveLeaf;
};

// A key as it is stored: a text ends at its first zero byte, behind which nothing
// of the caller's is read, and is padded with blanks.
void StoredKey(const NdxFile& index, const uint8_t* key, KeyBuffer& stored) {
    auto length = static_cast<size_t>(index.keyLength());
    size_t given = length;
    if (index.keyType == NdxCharacter) given = strnlen(reinterpret_cast<const char*>(key), length);
    memcpy(stored, key, given);
    memset(stored + given, ' ', length - given);
}

void PutEntry(const NdxFile& index, const NdxPage& page, int slot, const Entering& entry) {
    auto to = page;
    to.setChild(slot, entry.left);
    to.setRecord(slot, entry.record);
    memcpy(to.key(slot), entry.key, static_cast<size_t>(index.keyLength()));
}

void CopyEntry(const NdxPage& to, int toSlot, const NdxPage& from, int fromSlot) {
    memmove(to.entry(toSlot), from.entry(fromSlot), static_cast<size_t>(from.entrySize));
}

// The lower half moves to a new page. The old page keeps its number and the
// upper half, so the parent's pointer to it stays right.
Code Nksplit(NdxFile& index, NdxPage& old, Entering& pending) {
    NdxPage fresh;
    if (Npnew(index, &fresh) < 0) return Pass("Nksplit");
    int slot = index.position.top().slot;
    int count = old.count();
    int rightCount = (count + 1) / 2;
    int leftCount = count + 1 - rightCount;

    // All entries in order, the waiting one at its slot.
    auto place = [&](int at, NdxPage& to, int toSlot) {
        if (at == slot)
            PutEntry(index, to, toSlot, pending);
        else
            CopyEntry(to, toSlot, old, at < slot ? at : at - 1);
    };
    uint32_t lastChild = old.child(count);
    for (int i = 0; i < leftCount; i++) place(i, fresh, i);
    fresh.setChild(leftCount, 0);
    fresh.setCount(pending.aboveLeaf ? leftCount - 1 : leftCount);

    for (int i = 0; i < rightCount; i++) place(leftCount + i, old, i);
    if (slot >= leftCount) index.position.top().slot = static_cast<int16_t>(slot - leftCount);
    old.setChild(rightCount, lastChild);
    old.setCount(rightCount);

    memcpy(pending.key, fresh.key(leftCount - 1), static_cast<size_t>(index.keyLength()));
    pending.left = fresh.number;
    pending.right = old.number;
    if (Npput(index, fresh) < 0 || Npput(index, old) < 0) return Pass("Nksplit");
    return CurrentCode();
}

// Inserts the waiting entry in the page at the top of the path, or splits it.
Code Nkinsert(NdxFile& index, NdxPage& page, Entering& pending) {
    pending.split = false;
    int count = page.count();
    int slot = index.position.top().slot;
    if (slot < 0 || slot > count) return Fail("Nkinsert", ErrStructure);
    if (count >= index.keysPerPage) {
        pending.split = true;
        return Nksplit(index, page, pending) < 0 ? Pass("Nkinsert") : CurrentCode();
    }
    // The entries from the slot on, with the final ChildPage.
    memmove(page.entry(slot + 1), page.entry(slot), static_cast<size_t>(page.offset(count - slot)));
    PutEntry(index, page, slot, pending);
    page.setChild(slot + 1, pending.right);
    page.setCount(count + 1);
    return Npput(index, page) < 0 ? Pass("Nkinsert") : CurrentCode();
}

// A new root over the two halves of the old one.
Code GrowRoot(NdxFile& index, const Entering& pending) {
    NdxPage root;
    if (Npnew(index, &root) < 0) return CurrentCode();
    root.setCount(1);
    PutEntry(index, root, 0, pending);
    root.setChild(1, pending.right);
    if (Npput(index, root) < 0) return CurrentCode();
    index.rootPage = root.number;
    return NdxWriteRoot(index);
}

}  // namespace

Code Nkadd(NdxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    Entering pending{};
    StoredKey(index, key, pending.key);
    pending.record = record;
    Code code = Nkfind(index, pending.key, &pending.record, index.unique ? 1 : 2);
    if (code < 0) return Pass("Nkadd");
    if (code == KeyNear) {
        // The path stands on the entry before the place.
        code = Nknext(index, pending.key, &pending.record);
        if (code < 0) return Pass("Nkadd");
        if (code == KeyEnd) position.top().slot++;
    }
    SetCode(0);

    // The search wrote over the key and the record.
    StoredKey(index, key, pending.key);
    pending.record = record;
    pending.split = true;
    while (position.pathDepth >= 0 && pending.split) {
        NdxPage page;
        if (Npget(index, position.top().page, &page) < 0 || Nkinsert(index, page, pending) < 0)
            return Pass("Nkadd");
        pending.record = 0;
        pending.aboveLeaf = true;
        position.pathDepth--;
    }
    if (pending.split && GrowRoot(index, pending) < 0) return Pass("Nkadd");
    return CurrentCode();
}

namespace {

// Corrects the separator above a leaf whose last key went: the lowest entry on
// the path that has a key for this subtree.
Code Nkfixsep(NdxFile& index, const KeyBuffer& key) {
    const Position& position = index.position;
    for (int level = position.pathDepth - 1; level >= 0; level--) {
        NdxPage page;
        if (Npget(index, position.path[level].page, &page) < 0) return Pass("Nkfixsep");
        int slot = position.path[level].slot;
        if (slot >= page.count()) continue;
        memcpy(page.key(slot), key, static_cast<size_t>(index.keyLength()));
        return Npput(index, page) < 0 ? Pass("Nkfixsep") : CurrentCode();
    }
    return CurrentCode();
}

// Removes the entry at the path's slot from the leaf in hand, and leaves the
// leaf in hand.
Code Nkremove(NdxFile& index, NdxPage& page) {
    int16_t& slot = index.position.top().slot;
    int count = page.count() - 1;
    if (slot < 0 || slot > count) return Fail("Nkremove", ErrStructure);
    page.setCount(count);
    if (slot < count) {
        memmove(page.entry(slot), page.entry(slot + 1), static_cast<size_t>(page.offset(count - slot)));
        if (Npput(index, page) < 0) return Pass("Nkremove");
    } else {
        slot--;
        KeyBuffer highest{};
        if (count) memcpy(highest, page.key(slot), static_cast<size_t>(index.keyLength()));
        if (Npput(index, page) < 0) return Pass("Nkremove");
        if (count && Nkfixsep(index, highest) < 0) return Pass("Nkremove");
    }
    return Npget(index, index.position.top().page, &page) < 0 ? Pass("Nkremove") : CurrentCode();
}

// Joins a page with its neighbour: the right one of the two into the left one.
// `slot` is the parent's entry of the left one, whose key separates them.
Code Nkmerge(NdxFile& index, NdxPage& parent, int slot, NdxPage& target, NdxPage& source, bool leaf) {
    int count = target.count();
    int added = source.count();
    if (!leaf) {
        // The separator comes down, over the ChildPage that is already there.
        memcpy(target.key(count), parent.key(slot), static_cast<size_t>(index.keyLength()));
        count++;
    }
    // The source's entries, in an interior page with its final ChildPage.
    int bytes = added * source.entrySize + (leaf ? 0 : 4);
    memcpy(target.entry(count), source.entry(0), static_cast<size_t>(bytes));
    target.setCount(count + added);

    int left = parent.count() - 1;
    memmove(parent.entry(slot) + 4, parent.entry(slot + 1) + 4,
            static_cast<size_t>((left - slot) * parent.entrySize));
    parent.setCount(left);

    uint32_t freed = source.number;
    if (Npput(index, target) < 0 || Npput(index, parent) < 0 || Npfree(index, freed) < 0)
        return Pass("Nkmerge");
    return CurrentCode();
}

// Joins the page in hand, at the path's level, with a neighbour if it is short
// and both fit in one. Keys are never moved between neighbours otherwise.
Code MendShortPage(NdxFile& index, NdxPage& page, bool leaf, bool* merged) {
    Position& position = index.position;
    if (position.pathDepth <= 0 || page.count() >= index.halfKeys) return CurrentCode();
    const PathEntry& above = position.path[position.pathDepth - 1];
    NdxPage parent;
    if (Npget(index, above.page, &parent) < 0) return Pass("Nkdel");
    if (parent.count() == 0) return CurrentCode();
    int slot = above.slot;
    bool right = parent.count() > slot;
    NdxPage neighbour;
    if (Npget(index, parent.child(right ? slot + 1 : slot - 1), &neighbour) < 0) return Pass("Nkdel");
    if (neighbour.number == page.number || neighbour.number == parent.number)
        return Fail("Nkdel", ErrStructure);
    if (page.count() + neighbour.count() >= index.keysPerPage) return CurrentCode();
    *merged = true;
    return right ? Nkmerge(index, parent, slot, page, neighbour, leaf)
                 : Nkmerge(index, parent, slot - 1, neighbour, page, leaf);
}

// A root that has one child left and no key gives way to it.
Code ShrinkRoot(NdxFile& index) {
    NdxPage root;
    if (Npget(index, index.rootPage, &root) < 0) return CurrentCode();
    if (root.count() != 0 || root.isLeaf()) return CurrentCode();
    index.rootPage = root.child(0);
    if (Npfree(index, root.number) < 0) return CurrentCode();
    return NdxWriteRoot(index);
}

}  // namespace

Code Nkdel(NdxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    KeyBuffer stored{};
    StoredKey(index, key, stored);
    Code code = Nkfind(index, stored, &record, index.unique ? 1 : 2);
    if (code < 0) return Pass("Nkdel");
    // A key below all others ends its search on the first key with KeyEnd, and
    // takes that one away.
    if (code == KeyNear || code == KeyEmpty) return code;

    NdxPage page;
    if (Npget(index, position.top().page, &page) < 0 || Nkremove(index, page) < 0) return Pass("Nkdel");
    bool merged = false;
    for (bool leaf = true;; leaf = false) {
        if (MendShortPage(index, page, leaf, &merged) < 0) return Pass("Nkdel");
        if (--position.pathDepth > 0 && Npget(index, position.top().page, &page) < 0) return Pass("Nkdel");
        if (!merged || position.pathDepth < 1) break;
    }
    return ShrinkRoot(index) < 0 ? Pass("Nkdel") : CurrentCode();
}

}  // namespace zb
