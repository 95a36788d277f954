// IDX keys: add and delete.
#include <algorithm>
#include <cstring>

#include "file/operations.h"
#include "index/idx/idx.h"

namespace zb {

// Packed entries

IdxShared Ikdiff(const uint8_t* before, const uint8_t* key, int keyLength) {
    int dup = static_cast<int>(std::mismatch(key, key + keyLength, before).first - key);
    int trail = 0;
    if (dup < keyLength)
        while (trail < keyLength && key[keyLength - 1 - trail] == before[keyLength - 1 - trail]) trail++;
    return {dup, trail, keyLength - dup - trail};
}

uint32_t Ikpack(const IdxPage& page, const IdxShared& shared, uint32_t record) {
    auto shifted = [](uint32_t value, int bits) { return bits < 32 ? value << bits : 0; };
    auto trail = static_cast<uint32_t>(page.trailMask() & shared.trailCount);
    auto dup = static_cast<uint32_t>(page.dupMask() & shared.dupCount);
    return shifted(shifted(trail, page.dupBits()) | dup, page.recordBits()) |
           (page.index->recordMask & record);
}

void IdxStorePacked(uint8_t* to, uint32_t packed, int entryBytes) {
    for (int i = 0; i < entryBytes; i++) to[i] = static_cast<uint8_t>(packed >> 8 * i);
}

namespace {

// The entry that waits to be inserted at the level in hand.
struct Entering {
    KeyBuffer key;
    uint32_t record;     // 0 above the leaf
    uint32_t left;       // child of the entry; 0 in the leaf
    uint32_t right;      // child of the entry after it; 0 in the leaf
    bool split;          // it waits one level up
    bool updateParents;  // a new last key of its page is to be carried up
};

bool InPage(int from, int to) { return from >= 0 && from <= to && to <= IdxPageSize; }

// Carries a page's new last key up: into the entry above it, and on as long as
// that is its page's last.
Code Ikparent(IdxFile& index, const KeyBuffer& key) {
    const Position& position = index.position;
    for (int level = position.pathDepth - 1; level >= 0; level--) {
        IdxPage page;
        if (Ipget(index, position.path[level].page, &page) < 0) return Pass("Ikparent");
        int slot = position.path[level].slot;
        if (slot < 0 || slot >= page.count()) continue;
        bool last = slot == page.count() - 1;
        memcpy(page.key(slot), key, static_cast<size_t>(index.keyLength()));
        if (Ipput(index, page) < 0) return Pass("Ikparent");
        if (!last) break;
    }
    return SetCode(0);
}

Code Iksplit(IdxFile& index, const IdxPage& old, Entering& pending);

// Puts the page that took the entry, and tells those above if it is now the last.
Code Inserted(IdxFile& index, const IdxPage& page, int slot, const Entering& pending) {
    bool last = slot == page.count() - 1;
    if (Ipput(index, page) < 0) return CurrentCode();
    return pending.updateParents && last ? Ikparent(index, pending.key) : CurrentCode();
}

// In a packed leaf nothing is known of the keys that stand there: the new one is
// packed as if the key before it were fill bytes, and so is the one behind it,
// whose own bytes are lost.
Code InsertPacked(IdxFile& index, const IdxPage& page, Entering& pending) {
    int length = index.keyLength();
    int count = page.count();
    int slot = index.position.top().slot;
    if (slot < 0 || slot > count) return Fail("Ikinsert", ErrStructure);
    bool follows = slot < count;

    IdxReader reader(page);
    for (int i = 0; i < slot; i++)
        if (reader.Ikdecode() < 0) return Pass("Ikinsert");
    int keyCursor = reader.keyCursor;
    KeyBuffer fill;
    memset(fill, index.fillByte, sizeof fill);
    IdxShared shared = Ikdiff(fill, pending.key, length);
    IdxShared following{};
    int growth = shared.storedCount;
    if (follows) {
        if (reader.Ikdecode() < 0) return Pass("Ikinsert");
        following = Ikdiff(pending.key, fill, length);
        growth += following.storedCount - reader.storedCount;
    }

    int entryBytes = page.entryBytes();
    if (page.freeSpace() < entryBytes + growth)
        return Iksplit(index, page, pending) < 0 ? Pass("Ikinsert") : CurrentCode();

    // Everything is held against the page before the first byte changes. Where
    // the bytes to move end behind the page, the new keys must cover the place
    // of those that aren't there; in a sound leaf they do. Where entries repeat
    // themselves the keys can come to stand over the page's header: over all but
    // the width of the packed entries, without which there are none.
    int bottom = page.keysBottom();
    int end = std::min(bottom + growth, IdxPageSize);
    int stored = shared.storedCount + following.storedCount;
    int keysBegin = keyCursor - stored;
    bool covered = bottom + growth == end || (keysBegin <= end - growth && bottom <= keyCursor);
    bool moves = growth == 0 || (growth > 0 && covered && InPage(bottom - growth, bottom));
    bool overWidth = keysBegin <= IdxEntryBytesAt && keyCursor > IdxEntryBytesAt;
    bool writes = stored == 0 || (!overWidth && InPage(keysBegin, keyCursor));
    if (!moves || !writes || !InPage(page.packedAt(0), page.packedAt(count + 1)))
        return Fail("Ikinsert", ErrStructure);

    // Only as many bytes move as are gained, whatever lies above them.
    if (growth > 0)
        memmove(page.data + bottom - growth, page.data + bottom, static_cast<size_t>(end - bottom));
    // The packed entries move up byte by byte from the first: one that moves by
    // its own length repeats itself over all behind it.
    int at = page.packedAt(slot);
    for (int i = at; i < page.packedAt(count); i++) page.data[i + entryBytes] = page.data[i];

    auto writeKey = [&](const uint8_t* key, const IdxShared& part) {
        keyCursor -= part.storedCount;
        if (part.storedCount > 0)
            memcpy(page.data + keyCursor, key + part.dupCount, static_cast<size_t>(part.storedCount));
    };
    writeKey(pending.key, shared);
    IdxStorePacked(page.data + at, Ikpack(page, shared, pending.record), entryBytes);
    if (follows) {
        writeKey(fill, following);
        IdxStorePacked(page.data + at + entryBytes, Ikpack(page, following, reader.record), entryBytes);
    }
    page.setFreeSpace(page.freeSpace() - entryBytes - growth);
    page.setCount(page.count() + 1);
    return Inserted(index, page, slot, pending) < 0 ? Pass("Ikinsert") : CurrentCode();
}

// Inserts the waiting entry in the page in hand, at the path's top slot, or
// splits the page.
Code Ikinsert(IdxFile& index, const IdxPage& page, Entering& pending) {
    pending.split = false;
    if (page.isPacked()) return InsertPacked(index, page, pending);
    int count = page.count();
    int slot = index.position.top().slot;
    bool leaf = page.isLeaf();
    if (slot < 0 || slot > count) return Fail("Ikinsert", ErrStructure);
    if (count >= index.maxEntries)
        return Iksplit(index, page, pending) < 0 ? Pass("Ikinsert") : CurrentCode();
    // Above the leaves an entry goes in front of the one that was split.
    if (!leaf && slot + 1 >= index.maxEntries) return Fail("Ikinsert", ErrStructure);

    memmove(page.entry(slot + 1), page.entry(slot), static_cast<size_t>((count - slot) * index.entrySize));
    memcpy(page.key(slot), pending.key, static_cast<size_t>(index.keyLength()));
    if (leaf || index.compact()) page.setRecord(slot, pending.record);
    if (!leaf) {
        page.setChild(slot, pending.left);
        page.setChild(slot + 1, pending.right);
    }
    page.setCount(count + 1);
    return Inserted(index, page, slot, pending) < 0 ? Pass("Ikinsert") : CurrentCode();
}

// The new page takes the lower entries. The old one keeps its offset and the
// upper entries, so the entry that leads to it stays right. One place is left
// free in the page that takes the waiting entry. Tells whether that is the new one.
bool SplitEntries(IdxFile& index, const IdxPage& old, const IdxPage& fresh) {
    int16_t& slot = index.position.top().slot;
    int upper = index.upperEntries;
    int half = index.halfEntries;
    bool intoFresh = slot <= upper;
    int from = upper;
    int copied = half;
    if (!intoFresh) {
        slot = static_cast<int16_t>(slot - upper - 1);
        from++;
        copied--;
    }
    memcpy(fresh.entry(0), old.entry(0), IdxPageSize - IdxEntriesAt);
    memcpy(old.entry(0), fresh.entry(from), static_cast<size_t>(copied * index.entrySize));
    old.setCount(intoFresh ? half : half - 1);
    fresh.setCount(intoFresh ? upper : upper + 1);
    return intoFresh;
}

// A packed leaf keeps the lower entries, and the new page takes the upper ones;
// what follows treats the new page as the lower one all the same. The first
// entry of the new page loses its key.
Code SplitPacked(IdxFile& index, const IdxPage& old, const IdxPage& fresh, bool* intoFresh) {
    int count = old.count();
    int moved = count / 2;
    int kept = count - moved;
    int entryBytes = old.entryBytes();
    memcpy(fresh.data, old.data, IdxPackedAt);
    fresh.setFreeSpace(IdxEmptyLeafSpace);
    int16_t& slot = index.position.top().slot;
    *intoFresh = slot >= kept;
    if (*intoFresh) slot = static_cast<int16_t>(slot - kept);

    IdxReader reader(old);
    for (int i = 0; i <= kept; i++)
        if (reader.Ikdecode() < 0) return CurrentCode();
    int bottom = old.keysBottom();
    int bytes = reader.keyCursor - bottom;
    if (moved < 1 || bytes < 0 || !InPage(bottom, reader.keyCursor) || !InPage(0, old.packedAt(count)))
        return Fail("Iksplit", ErrStructure);
    KeyBuffer fill;
    memset(fill, index.fillByte, sizeof fill);
    IdxShared first = Ikdiff(fill, fill, index.keyLength());

    memcpy(fresh.data + IdxPageSize - bytes, old.data + bottom, static_cast<size_t>(bytes));
    memcpy(fresh.data + fresh.packedAt(1), old.data + old.packedAt(kept + 1),
           static_cast<size_t>((moved - 1) * entryBytes));
    IdxStorePacked(fresh.data + fresh.packedAt(0), Ikpack(fresh, first, reader.record), entryBytes);
    fresh.setCount(moved);
    fresh.setFreeSpace(fresh.freeSpace() - moved * entryBytes - bytes);
    old.setCount(kept);
    old.setFreeSpace(old.freeSpace() + moved * entryBytes + reader.storedCount + bytes);
    return CurrentCode();
}

Code PutHalves(IdxFile& index, const IdxPage& old, const IdxPage& fresh) {
    // Pages given back are never taken out of their neighbours' siblings, so the
    // left one may be any page by now, the new one among them.
    uint32_t left = old.left() == fresh.offset ? IdxNone : old.left();
    fresh.setLeft(left);
    old.setLeft(fresh.offset);
    fresh.setRight(old.offset);
    if (left == IdxNone) return Ipput(index, fresh) < 0 ? CurrentCode() : Ipput(index, old);
    IdxPage neighbour;
    if (Ipput(index, old) < 0 || IpgetRaw(index, left, &neighbour) < 0) return CurrentCode();
    neighbour.setRight(fresh.offset);
    return Ipput(index, neighbour) < 0 ? CurrentCode() : Ipput(index, fresh);
}

Code Iksplit(IdxFile& index, const IdxPage& old, Entering& pending) {
    IdxPage fresh;
    if (Iknewpage(index, &fresh) < 0) return Pass("Iksplit");
    if (fresh.offset == old.offset) return Fail("Iksplit", ErrStructure);
    old.setAttributes(old.attributes() & ~IdxRoot);
    fresh.setAttributes(old.attributes());
    bool intoFresh = false;
    if (!old.isPacked())
        intoFresh = SplitEntries(index, old, fresh);
    else if (SplitPacked(index, old, fresh, &intoFresh) < 0)
        return Pass("Iksplit");
    if (PutHalves(index, old, fresh) < 0) return Pass("Iksplit");

    IdxPage page;
    if (Ipget(index, intoFresh ? fresh.offset : old.offset, &page) < 0) return Pass("Iksplit");
    pending.updateParents = false;
    if (Ikinsert(index, page, pending) < 0) return Pass("Iksplit");
    pending.right = old.offset;
    pending.left = fresh.offset;
    pending.split = pending.updateParents = true;

    int16_t& slot = index.position.top().slot;
    if (!intoFresh) {
        if (Ipget(index, old.offset, &page) < 0) return Pass("Iksplit");
        if (slot == page.count() - 1)
            if (Ikentry(index, page, slot, pending.key, &pending.record) < 0 ||
                Ikparent(index, pending.key) < 0)
                return Pass("Iksplit");
    }
    if (Ipget(index, fresh.offset, &page) < 0) return Pass("Iksplit");
    slot = static_cast<int16_t>(page.lastSlot());
    return Ikentry(index, page, slot, pending.key, &pending.record) < 0 ? Pass("Iksplit") : CurrentCode();
}

// The last key of a new root's child, read as from an uncompressed page: of a
// packed leaf these are bytes of its packed entries.
Code TakeLastKey(IdxFile& index, const IdxPage& root, int slot, uint32_t offset) {
    IdxPage child;
    if (Ipget(index, offset, &child) < 0) return CurrentCode();
    int last = child.count() - 1;
    int length = index.keyLength();
    if (offset == root.offset || last < 0 || last > index.maxEntries ||
        IdxEntriesAt + last * index.entrySize + length > IdxPageSize)
        return Fail("Ikroot", ErrStructure);
    memcpy(root.key(slot), child.key(last), static_cast<size_t>(length));
    root.setChild(slot, offset);
    return CurrentCode();
}

// A new root over the two halves of the old one.
Code GrowRoot(IdxFile& index, const Entering& pending, uint32_t record) {
    IdxPage root;
    if (Iknewpage(index, &root) < 0) return CurrentCode();
    root.setCount(2);
    root.setAttributes(IdxRoot);
    root.setLeft(IdxNone);
    root.setRight(IdxNone);
    if (TakeLastKey(index, root, 0, pending.left) < 0 || TakeLastKey(index, root, 1, pending.right) < 0)
        return CurrentCode();
    // The one record number above the leaves that an add gets right, it stores in
    // the byte order of the header.
    if (index.compact()) StoreLe32(root.entry(1) + index.keyLength(), record);
    if (Ipput(index, root) < 0) return CurrentCode();
    index.rootPage = root.offset;
    return IdxWriteRoot(index);
}

}  // namespace

Code Ikadd(IdxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    auto length = static_cast<size_t>(index.keyLength());
    Entering pending{};
    memcpy(pending.key, key, length);
    pending.record = record;
    Code code = Ikfind(index, pending.key, &pending.record, index.unique() ? 1 : 2);
    if (code < 0) return Pass("Ikadd");
    if (code == KeyNear) {
        // The path stands on the entry before the place.
        code = Iknext(index, pending.key, &pending.record);
        if (code < 0) return Pass("Ikadd");
        if (code == KeyEnd) position.top().slot++;
    }
    SetCode(0);

    // The search wrote over the key and the record.
    memcpy(pending.key, key, length);
    pending.record = record;
    pending.split = pending.updateParents = true;
    while (position.pathDepth >= 0 && pending.split) {
        IdxPage page;
        if (Ipget(index, position.top().page, &page) < 0 || Ikinsert(index, page, pending) < 0)
            return Pass("Ikadd");
        pending.record = 0;
        position.pathDepth--;
    }
    if (pending.split && GrowRoot(index, pending, record) < 0) return Pass("Ikadd");
    return CurrentCode();
}

namespace {

// Removes the entry at the path's top slot from the page in hand, and gives the
// page back if that was its last one. A packed leaf loses its highest slot,
// whichever entry was meant.
Code Ikremove(IdxFile& index, IdxPage& page, bool* emptied) {
    Position& position = index.position;
    int16_t& slot = position.top().slot;
    int count = page.count() - 1;
    bool packed = page.isPacked();
    if (!packed && (slot < 0 || slot > count)) return Fail("Ikremove", ErrStructure);
    page.setCount(count);
    index.pool.TakeFront();
    if (!packed && slot < count) {
        memmove(page.entry(slot), page.entry(slot + 1),
                static_cast<size_t>((count - slot) * index.entrySize));
    } else if (!packed) {
        slot--;
        if (page.isLeaf() && count > 0) {
            KeyBuffer highest{};
            memcpy(highest, page.key(slot), static_cast<size_t>(index.keyLength()));
            if (Ikparent(index, highest) < 0) return Pass("Ikremove");
            if (Ipget(index, position.top().page, &page) < 0) return Pass("Ikremove");
        }
    }
    *emptied = position.pathDepth > 0 && page.count() == 0;
    if ((*emptied ? Ikfreepage(index, page.offset) : Ipput(index, page)) < 0) return Pass("Ikremove");
    return CurrentCode();
}

// A root with one child gives way to it. With none it becomes an empty leaf.
Code Ikroot(IdxFile& index) {
    IdxPage root;
    if (Ipget(index, index.rootPage, &root) < 0) return Pass("Ikroot");
    if (root.isLeaf() || root.count() > 1) return CurrentCode();
    if (root.count() == 0) {
        IdxFormatRoot(root.data, index.keyLength(), index.compact());
        return Ipput(index, root) < 0 ? Pass("Ikroot") : CurrentCode();
    }
    index.rootPage = root.child(0);
    if (Ikfreepage(index, root.offset) < 0 || Ipget(index, index.rootPage, &root) < 0) return Pass("Ikroot");
    root.setAttributes(root.attributes() | IdxRoot);
    if (Ipput(index, root) < 0 || IdxWriteRoot(index) < 0) return Pass("Ikroot");
    return CurrentCode();
}

}  // namespace

Code Ikdel(IdxFile& index, const uint8_t* key, uint32_t record) {
    Position& position = index.position;
    KeyBuffer wanted{};
    memcpy(wanted, key, static_cast<size_t>(index.keyLength()));
    Code code = Ikfind(index, wanted, &record, index.unique() ? 1 : 2);
    if (code < 0) return Pass("Ikdel");
    // A key below all others ends its search on the first key with KeyEnd, and
    // takes that one away.
    if (code == KeyNear || code == KeyEmpty) return code;

    bool emptied = true;
    for (; emptied && position.pathDepth >= 0; position.pathDepth--) {
        IdxPage page;
        if (Ipget(index, position.top().page, &page) < 0 || Ikremove(index, page, &emptied) < 0)
            return Pass("Ikdel");
    }
    return Ikroot(index) < 0 ? Pass("Ikdel") : CurrentCode();
}

}  // namespace zb
