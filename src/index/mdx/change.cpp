// MDX keys: add and delete.
#include <cstring>

#include "index/mdx/mdx.h"

namespace zb {
namespace {

// The entry that waits to be inserted at the level in hand.
struct Entering {
    KeyBuffer key;
    uint32_t record;  // 0 above the leaf
    uint32_t left;    // the child of the entry; 0 in the leaf
    uint32_t right;   // the child behind it; 0 in the leaf
    bool split;       // it waits one level up
};

// A key as it is stored: a text ends at its first zero byte and is padded with
// blanks.
void StoredKey(const MdxTag& tag, const uint8_t* key, KeyBuffer& stored) {
    auto length = static_cast<size_t>(tag.keyLength());
    size_t given = tag.keyType == 'C' ? strnlen(reinterpret_cast<const char*>(key), length) : length;
    memcpy(stored, key, given);
    memset(stored + given, ' ', length - given);
}

int SearchMode(const MdxTag& tag) { return tag.unique() ? 1 : 2; }

void CopyEntries(const MdxPage& to, int toSlot, const MdxPage& from, int fromSlot, int count) {
    memmove(to.entry(toSlot), from.entry(fromSlot), static_cast<size_t>(count * from.entryLength));
}

// The same with the value that stands behind the entries.
void CopyThrough(const MdxPage& to, int toSlot, const MdxPage& from, int fromSlot, int count) {
    memmove(to.entry(toSlot), from.entry(fromSlot), static_cast<size_t>(count * from.entryLength + 4));
}

void CopyKey(const MdxTag& tag, uint8_t* to, const uint8_t* from) {
    memcpy(to, from, static_cast<size_t>(tag.keyLength()));
}

// The lower half moves to a new page. The old page keeps its number and the
// upper half, so the parent's pointer to it stays right.
Code Mksplit(MdxTag& tag, MdxPage& old, Entering& pending) {
    MdxPage fresh;
    if (Mpnew(tag, &fresh) < 0) return Pass("Mksplit");
    if (fresh.number == old.number) return Fail("Mksplit", ErrStructure);
    int slot = tag.position.top().slot;
    int count = old.count();
    bool leaf = old.isLeaf();
    int rightCount = (count + 1) / 2;
    int leftCount = count + 1 - rightCount;

    // All entries in order, the waiting one at its slot.
    auto place = [&](int at, MdxPage& to, int toSlot) {
        if (at == slot) {
            to.setValue(toSlot, leaf ? pending.record : pending.left);
            CopyKey(tag, to.key(toSlot), pending.key);
        } else {
            CopyEntries(to, toSlot, old, at < slot ? at : at - 1, 1);
        }
    };
    uint32_t lastChild = old.value(count);
    for (int i = 0; i < leftCount; i++) place(i, fresh, i);
    fresh.setValue(leftCount, 0);
    fresh.setCount(leaf ? leftCount : leftCount - 1);

    for (int i = 0; i < rightCount; i++) place(leftCount + i, old, i);
    if (slot >= leftCount) tag.position.top().slot = static_cast<int16_t>(slot - leftCount);
    old.setValue(rightCount, lastChild);
    old.setCount(rightCount);

    CopyKey(tag, pending.key, fresh.key(leftCount - 1));
    pending.left = fresh.number;
    pending.right = old.number;
    if (Mpput(tag, fresh) < 0 || Mpput(tag, old) < 0) return Pass("Mksplit");
    return CurrentCode();
}

// Inserts the waiting entry in the page at the top of the path, or splits it.
// Whether the page is full is told by the low bytes of both counts: a tag with
// more than 255 keys a page has it split before it is full.
Code Mkinsert(MdxTag& tag, MdxPage& page, Entering& pending) {
    pending.split = false;
    int count = page.count();
    int slot = tag.position.top().slot;
    if (slot < 0 || slot > count) return Fail("Mkinsert", ErrStructure);
    if (static_cast<uint8_t>(count) == static_cast<uint8_t>(tag.maxKeys)) {
        pending.split = true;
        return Mksplit(tag, page, pending) < 0 ? Pass("Mkinsert") : CurrentCode();
    }
    bool leaf = page.isLeaf();
    CopyThrough(page, slot + 1, page, slot, count - slot);
    CopyKey(tag, page.key(slot), pending.key);
    if (leaf) {
        page.setValue(slot, pending.record);
    } else {
        page.setValue(slot, pending.left);
        page.setValue(slot + 1, pending.right);
    }
    page.setCount(count + 1);
    return Mpput(tag, page) < 0 ? Pass("Mkinsert") : CurrentCode();
}

// A new root over the two halves of the old one.
Code GrowRoot(MdxTag& tag, const Entering& pending) {
    MdxPage root;
    if (Mpnew(tag, &root) < 0) return CurrentCode();
    root.setCount(1);
    CopyKey(tag, root.key(0), pending.key);
    root.setValue(0, pending.left);
    root.setValue(1, pending.right);
    if (Mpput(tag, root) < 0) return CurrentCode();
    tag.rootPage = root.number;
    return MdxWriteRoot(tag);
}

}  // namespace

Code Mkadd(MdxTag& tag, const uint8_t* key, uint32_t record) {
    Position& position = tag.position;
    Entering pending{};
    StoredKey(tag, key, pending.key);
    pending.record = record;
    Code code = Mkfind(tag, pending.key, &pending.record, SearchMode(tag));
    if (code < 0) return Pass("Mkadd");
    if (code == KeyNear) {
        // The path stands on the entry before the place.
        code = Mknext(tag, pending.key, &pending.record);
        if (code < 0) return Pass("Mkadd");
        if (code == KeyEnd) position.top().slot++;
    }
    SetCode(0);

    // The search wrote over the key and the record.
    StoredKey(tag, key, pending.key);
    pending.record = record;
    pending.split = true;
    while (position.pathDepth >= 0 && pending.split) {
        MdxPage page;
        if (Mpget(tag, position.top().page, &page) < 0 || Mkinsert(tag, page, pending) < 0)
            return Pass("Mkadd");
        pending.record = 0;
        position.pathDepth--;
    }
    if (pending.split && GrowRoot(tag, pending) < 0) return Pass("Mkadd");
    return CurrentCode();
}

namespace {

// Corrects the separator above a leaf whose last key went: the lowest entry on
// the path that has a key for this subtree.
Code Mkfixsep(MdxTag& tag, const KeyBuffer& key) {
    const Position& position = tag.position;
    for (int level = position.pathDepth - 1; level >= 0; level--) {
        MdxPage page;
        if (Mpget(tag, position.path[level].page, &page) < 0) return Pass("Mkfixsep");
        int slot = position.path[level].slot;
        if (slot >= page.count()) continue;
        CopyKey(tag, page.key(slot), key);
        return Mpput(tag, page) < 0 ? Pass("Mkfixsep") : CurrentCode();
    }
    return CurrentCode();
}

// Removes the entry at the path's slot from the leaf in hand, and leaves the leaf
// in hand, changed and not yet put.
Code Mkremove(MdxTag& tag, MdxPage& page) {
    int16_t& slot = tag.position.top().slot;
    int count = page.count() - 1;
    if (slot < 0 || slot > count) return Fail("Mkremove", ErrStructure);
    tag.pool.TakeFront();
    page.setCount(count);
    CopyThrough(page, slot, page, slot + 1, count - slot);
    if (slot == count) {
        slot--;
        KeyBuffer highest{};
        if (count > 0) {
            CopyKey(tag, highest, page.key(slot));
            if (Mkfixsep(tag, highest) < 0) return Pass("Mkremove");
        }
    }
    return Mpget(tag, page.number, &page) < 0 ? Pass("Mkremove") : CurrentCode();
}

// A page, its neighbour and the parent, with the parent's key between the two.
struct Family {
    MdxPage parent;
    MdxPage left;
    MdxPage right;
    int separator;
};

// Joins two neighbours in the left one.
Code Mkmerge(MdxTag& tag, Family& family, bool leaf) {
    MdxPage& target = family.left;
    MdxPage& source = family.right;
    MdxPage& parent = family.parent;
    int count = target.count();
    int added = source.count();
    if (!leaf) CopyKey(tag, target.key(count++), parent.key(family.separator));
    CopyThrough(target, count, source, 0, added);
    target.setCount(count + added);

    // The separator goes with the pointer behind it: the one before stays.
    int left = parent.count() - 1;
    int slot = family.separator;
    memmove(parent.entry(slot) + 4, parent.entry(slot + 1) + 4,
            static_cast<size_t>((left - slot) * parent.entryLength));
    parent.setCount(left);

    if (Mpput(tag, parent) < 0 || Mpput(tag, target) < 0 || Mpfree(tag, source.number) < 0)
        return Pass("Mkmerge");
    return CurrentCode();
}

// Moves the last entries of the left neighbour into the short page on its right.
// In leaves with an odd number of keys between them the separator is the last key
// but one of the left page.
void TakeFromLeft(const MdxTag& tag, Family& family, bool leaf) {
    MdxPage& sibling = family.left;
    MdxPage& page = family.right;
    int have = page.count();
    int count = (sibling.count() + have) / 2;
    int moved = count - have;
    int left = sibling.count() - moved;
    uint8_t* separator = family.parent.key(family.separator);
    if (leaf) {
        CopyEntries(page, moved, page, 0, have);
        CopyEntries(page, 0, sibling, left, moved);
        sibling.setValue(left, 0);
        page.setValue(count, 0);
        CopyKey(tag, separator, sibling.key(count - 1));
    } else {
        CopyThrough(page, moved, page, 0, have);
        CopyKey(tag, page.key(moved - 1), separator);
        CopyThrough(page, 0, sibling, left + 1, moved - 1);
        CopyKey(tag, separator, sibling.key(left));
    }
    sibling.setCount(left);
    page.setCount(count);
}

// Moves the first entries of the right neighbour into the short page on its left.
// Nothing is cleared here: in a leaf, what stands behind the entries that came
// stays, and where it isn't 0 the page reads as a branch from now on.
void TakeFromRight(const MdxTag& tag, Family& family, bool leaf) {
    MdxPage& sibling = family.right;
    MdxPage& page = family.left;
    int have = page.count();
    int count = (sibling.count() + have) / 2;
    int moved = count - have;
    int left = sibling.count() - moved;
    uint8_t* separator = family.parent.key(family.separator);
    if (leaf) {
        CopyEntries(page, have, sibling, 0, moved);
    } else {
        CopyKey(tag, page.key(have), separator);
        CopyThrough(page, have + 1, sibling, 0, moved - 1);
    }
    CopyKey(tag, separator, sibling.key(moved - 1));
    CopyThrough(sibling, 0, sibling, moved, left);
    sibling.setCount(left);
    page.setCount(count);
}

// Puts the page in hand, at the path's level; a short one is joined with a
// neighbour or takes keys from it. With a left and a right one the right one counts.
Code MendPage(MdxTag& tag, MdxPage& page, bool leaf, bool* merged) {
    const Position& position = tag.position;
    if (position.pathDepth == 0 || page.count() >= tag.minKeys)
        return Mpput(tag, page) < 0 ? Pass("Mkdel") : CurrentCode();
    const PathEntry& above = position.path[position.pathDepth - 1];
    MdxPage parent, sibling;
    if (above.page == page.number) return Fail("Mkdel", ErrStructure);
    if (Mpget(tag, above.page, &parent) < 0) return Pass("Mkdel");
    bool right = above.slot < parent.count();
    int neighbour = right ? above.slot + 1 : above.slot - 1;
    if (parent.count() == 0 || neighbour < 0 || neighbour > parent.count())
        return Fail("Mkdel", ErrStructure);
    if (Mpget(tag, parent.child(neighbour), &sibling) < 0) return Pass("Mkdel");
    if (sibling.number == page.number || sibling.number == parent.number) return Fail("Mkdel", ErrStructure);

    Family family =
        right ? Family{parent, page, sibling, above.slot} : Family{parent, sibling, page, above.slot - 1};
    if (sibling.count() + page.count() < tag.maxKeys) {
        *merged = true;
        return Mkmerge(tag, family, leaf);
    }
    if (right)
        TakeFromRight(tag, family, leaf);
    else
        TakeFromLeft(tag, family, leaf);
    if (Mpput(tag, sibling) < 0 || Mpput(tag, parent) < 0 || Mpput(tag, page) < 0) return Pass("Mkdel");
    return CurrentCode();
}

// A root that has one child left and no key gives way to it.
Code ShrinkRoot(MdxTag& tag) {
    MdxPage root;
    if (Mpget(tag, tag.rootPage, &root) < 0) return CurrentCode();
    if (root.count() != 0 || root.isLeaf()) return CurrentCode();
    tag.rootPage = root.child(0);
    if (Mpfree(tag, root.number) < 0) return CurrentCode();
    return MdxWriteRoot(tag);
}

}  // namespace

Code Mkdel(MdxTag& tag, const uint8_t* key, uint32_t record) {
    Position& position = tag.position;
    KeyBuffer stored{};
    StoredKey(tag, key, stored);
    Code code = Mkfind(tag, stored, &record, SearchMode(tag));
    if (code < 0) return Pass("Mkdel");
    if (code == KeyNear || code == KeyEmpty) return code;
    // A key below all others ends its search on the first key with KeyEnd, and
    // takes that one away.
    SetCode(0);

    MdxPage page;
    if (Mpget(tag, position.top().page, &page) < 0 || Mkremove(tag, page) < 0) return Pass("Mkdel");
    for (bool leaf = true, merged = true; merged; leaf = false) {
        merged = false;
        if (MendPage(tag, page, leaf, &merged) < 0) return Pass("Mkdel");
        if (--position.pathDepth > 0) {
            if (Mpget(tag, position.top().page, &page) < 0) return Pass("Mkdel");
        } else {
            break;
        }
    }
    return ShrinkRoot(tag) < 0 ? Pass("Mkdel") : CurrentCode();
}

}  // namespace zb
