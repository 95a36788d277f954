// IDX keys: decode packed leaves, find, walk.
#include <algorithm>
#include <cstring>

#include "file/operations.h"
#include "index/idx/idx.h"

namespace zb {

// The work value keeps, above the bytes read, what the entry before left there.
Code IdxReader::Ikdecode() {
    int bytes = page.entryBytes();
    entryCursor += bytes;
    if (entryCursor < 0 || entryCursor + bytes > IdxPageSize) return Fail("Ikdecode", ErrStructure);
    for (int i = 0; i < bytes; i++)
        work = (work & ~(uint32_t{0xFF} << 8 * i)) | uint32_t{page.data[entryCursor + i]} << 8 * i;
    record = page.index->recordMask & work;
    // The shifts keep the sign; widths that lie shift everything else out.
    work = static_cast<uint32_t>(static_cast<int32_t>(work) >> std::min(page.recordBits(), 31));
    dupCount = page.dupMask() & static_cast<int>(work & 0xFFFF);
    work = static_cast<uint32_t>(static_cast<int32_t>(work) >> std::min(page.dupBits(), 31));
    trailCount = page.trailMask() & static_cast<int>(work & 0xFFFF);
    storedCount = page.index->keyLength() - trailCount - dupCount;
    keyCursor -= storedCount;
    return CurrentCode();
}

// Gives the entry at a slot. A packed leaf shows its record numbers only: its
// keys are never put together again, and what is given for each is fill bytes.
Code Ikentry(IdxFile& index, const IdxPage& page, int slot, uint8_t* key, uint32_t* record) {
    auto length = static_cast<size_t>(index.keyLength());
    if (page.isPacked()) {
        if (slot < 0) return Fail("Ikentry", ErrStructure);
        IdxReader reader(page);
        for (int i = 0; i <= slot; i++)
            if (reader.Ikdecode() < 0) return Pass("Ikentry");
        memset(key, index.fillByte, length);
        *record = reader.record;
    } else {
        if (slot < 0 || slot >= page.count()) return Fail("Ikentry", ErrStructure);
        memcpy(key, page.key(slot), length);
        *record = page.record(slot);
    }
    if (index.fillByte == ' ') key[length] = 0;
    return CurrentCode();
}

namespace {

// The mask of the record numbers comes from the first page that a search or a
// walk looks for it in, be it a packed leaf or not, and stays.
void NoteRecordMask(IdxFile& index, const IdxPage& page) {
    if (index.recordMask == 0) index.recordMask = page.recordMask();
}

// Goes from the page in hand to the child of its entry at the top slot.
Code GoDown(IdxFile& index, IdxPage& page, bool last) {
    Position& position = index.position;
    int slot = position.top().slot;
    if (slot < 0 || slot >= page.count()) return Fail("Ipget", ErrStructure);
    uint32_t child = page.child(slot);
    if (Ipget(index, child, &page) < 0) return CurrentCode();
    if (page.count() == 0 || !position.Push(child, last ? page.lastSlot() : 0))
        return Fail("Ipget", ErrStructure);
    return CurrentCode();
}

// Goes down along the first entry of each page or the last, to the leaf.
Code Descend(IdxFile& index, IdxPage& page, bool last) {
    while (!page.isLeaf())
        if (GoDown(index, page, last) < 0) return CurrentCode();
    return CurrentCode();
}

// Goes to the first or the last key of the index.
Code GoToEnd(IdxFile& index, bool last, uint8_t* key, uint32_t* record) {
    IdxPage page;
    if (Ipget(index, index.rootPage, &page) < 0) return CurrentCode();
    if (page.count() == 0) return SetCode(KeyEmpty);
    index.position.Start(index.rootPage, last ? page.lastSlot() : 0);
    if (Descend(index, page, last) < 0) return CurrentCode();
    NoteRecordMask(index, page);
    if (Ikentry(index, page, index.position.top().slot, key, record) < 0) return CurrentCode();
    return SetCode(0);
}

}  // namespace

Code Iktop(IdxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, false, key, record) < 0 ? Pass("Iktop") : CurrentCode();
}

Code Ikbot(IdxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, true, key, record) < 0 ? Pass("Ikbot") : CurrentCode();
}

Code Iknext(IdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Iktop(index, key, record);
    IdxPage page;
    if (Ipget(index, position.top().page, &page) < 0) return Pass("Iknext");
    if (++position.top().slot >= page.count()) {
        do {
            if (--position.pathDepth < 0) {
                if (Ikbot(index, key, record) < 0) return Pass("Iknext");
                return SetCode(KeyEnd);
            }
            if (Ipget(index, position.top().page, &page) < 0) return Pass("Iknext");
        } while (++position.top().slot >= page.count());
        if (Descend(index, page, false) < 0) return Pass("Iknext");
    }
    return Ikentry(index, page, position.top().slot, key, record) < 0 ? Pass("Iknext") : CurrentCode();
}

Code Ikprev(IdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Ikbot(index, key, record);
    IdxPage page;
    if (Ipget(index, position.top().page, &page) < 0) return Pass("Ikprev");
    if (--position.top().slot < 0) {
        do {
            if (--position.pathDepth < 0) {
                if (Iktop(index, key, record) < 0) return Pass("Ikprev");
                return SetCode(KeyEnd);
            }
            if (Ipget(index, position.top().page, &page) < 0) return Pass("Ikprev");
        } while (--position.top().slot < 0);
        if (Descend(index, page, true) < 0) return Pass("Ikprev");
    }
    return Ikentry(index, page, position.top().slot, key, record) < 0 ? Pass("Ikprev") : CurrentCode();
}

// Find

namespace {

// Where a search stands in a page: at a slot whose key is the one searched for or
// above it, or behind the last.
struct Place {
    enum Outcome : uint8_t { Found, Above, Behind } outcome;
    int slot;
};

// A search key, made ready to be compared with the keys of pages.
class SearchKey {
  public:
    SearchKey(const IdxFile& index, const uint8_t* key, uint32_t record, int mode)
        : bytes{}, length(index.keyLength()), wantedRecord(record), exact(mode == 2) {
        memcpy(bytes, key, static_cast<size_t>(length));
        prefix = LoadBe64(bytes);
    }

    int Compare(const uint8_t* key) const { return memcmp(bytes, key, static_cast<size_t>(length)); }

    // Entry by entry, which a page whose last key doesn't tell what lies below it
    // needs: a build leaves one on each level.
    Place FindIn(const IdxPage& page) const {
        int count = page.count();
        bool leaf = page.isLeaf();
        for (int slot = FirstNotBelow(page, 0, count); slot < count;
             slot = FirstNotBelow(page, slot + 1, count)) {
            if (Compare(page.key(slot)) != 0) return {Place::Above, slot};
            if (!leaf || Takes(page.record(slot))) return {Place::Found, slot};
        }
        return {Place::Behind, page.lastSlot()};
    }

    // In a packed leaf every key reads as fill bytes, and so stands on the same
    // side of the one searched for.
    Code FindInPacked(const IdxPage& page, const uint8_t* fill, uint32_t* record, Place* place) const {
        int order = Compare(fill);
        IdxReader reader(page);
        for (int slot = 0;; slot++) {
            if (reader.Ikdecode() < 0) return CurrentCode();
            place->slot = slot;
            if (order < 0) {
                place->outcome = Place::Above;
                break;
            }
            if (order == 0 && Takes(reader.record)) {
                place->outcome = Place::Found;
                *record = reader.record;
                break;
            }
            if (slot + 1 >= page.count()) {
                place->outcome = Place::Behind;
                break;
            }
        }
        return CurrentCode();
    }

  private:
    bool Takes(uint32_t record) const { return !exact || record == wantedRecord; }

    int FirstNotBelow(const IdxPage& page, int slot, int count) const {
        int step = page.index->entrySize;
        const uint8_t* key = page.key(slot);
        if (length >= 8) {
            for (; slot < count; slot++, key += step) {
                uint64_t other = LoadBe64(key);
                if (other > prefix || (other == prefix && Compare(key) <= 0)) break;
            }
        } else {
            while (slot < count && Compare(key) > 0) slot++, key += step;
        }
        return slot;
    }

    KeyBuffer bytes;
    uint64_t prefix = 0;
    int length;
    uint32_t wantedRecord;
    bool exact;
};

// Steps from leaf to leaf that a search takes without a thought of pages in a
// circle. A sound tree seldom needs more than one.
constexpr uint32_t FewSteps = 16;

// More leaves than any tree in the file has, whatever the header says.
uint32_t PagesThere(const IdxFile& index) {
    uint32_t length = 0;
    Hlen(index.handle, &length);
    return length / IdxPageSize;
}

}  // namespace

Code Ikfind(IdxFile& index, uint8_t* key, uint32_t* record, int mode) {
    Position& position = index.position;
    SearchKey wanted(index, key, *record, mode);

    IdxPage page;
    if (Ipget(index, index.rootPage, &page) < 0) return Pass("Ikfind");
    position.Start(index.rootPage, 0);
    NoteRecordMask(index, page);
    if (page.count() == 0) return SetCode(KeyEmpty);
    if (index.compact()) memset(key, index.fillByte, static_cast<size_t>(index.keyLength()));

    for (uint32_t leaves = 0;;) {
        if (!page.isLeaf()) {
            // Above the last entry too the way leads down, into its child.
            position.top().slot = static_cast<int16_t>(wanted.FindIn(page).slot);
            if (GoDown(index, page, false) < 0) return Pass("Ikfind");
            continue;
        }

        Place place{};
        if (!page.isPacked())
            place = wanted.FindIn(page);
        else if (wanted.FindInPacked(page, key, record, &place) < 0)
            return Pass("Ikfind");
        position.top().slot = static_cast<int16_t>(place.slot);
        Code code;
        switch (place.outcome) {
            case Place::Found:
                if (!page.isPacked() && Ikentry(index, page, place.slot, key, record) < 0)
                    return Pass("Ikfind");
                return SetCode(0);

            case Place::Above:
                code = Ikprev(index, key, record);
                if (code < 0) return Pass("Ikfind");
                if (code == KeyEnd) {
                    *record = BeforeFirst;
                    return code;
                }
                return SetCode(KeyNear);

            case Place::Behind:
                // The next leaf can still hold it, where keys repeat or a page was dropped.
                code = Iknext(index, key, record);
                if (code < 0) return Pass("Ikfind");
                if (code == KeyEnd) return SetCode(KeyNear);
                if (++leaves > FewSteps && leaves > PagesThere(index)) return Fail("Ikfind", ErrStructure);
                if (Ipget(index, position.top().page, &page) < 0) return Pass("Ikfind");
        }
    }
}

Code Ikcur(IdxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.currentRecord == 0) return SetCode(KeyEnd);
    Code code = Ikfind(index, position.currentKey, &position.currentRecord, 2);
    if (code < 0) return Pass("Ikcur");
    if (code == KeyEmpty) return code;
    IdxPage page;
    if (Ipget(index, position.top().page, &page) < 0) return Pass("Ikcur");
    return Ikentry(index, page, position.top().slot, key, record) < 0 ? Pass("Ikcur") : code;
}

}  // namespace zb
