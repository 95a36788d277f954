// NTX keys: compare, find, walk.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "core/number.h"
#include "index/ntx/ntx.h"

namespace zb {

int NtxStoredKey(const NtxFile& index, const uint8_t* key, KeyBuffer& stored) {
    auto length = static_cast<size_t>(index.keyLength());
    size_t text = strnlen(reinterpret_cast<const char*>(key), length);
    memcpy(stored, key, text);
    memset(stored + text, ' ', length - text);
    return static_cast<int>(text);
}

bool NtxNumberText(char (&text)[MaxKeyLength + 12], double value, int keyLength, int decimals) {
    return std::isfinite(value) && decimals <= MaxKeyLength &&
           PrintDouble(text, sizeof text, value, keyLength, decimals, true) <= static_cast<size_t>(keyLength);
}

namespace {

// A search key, made ready to be compared with the keys of pages: by its first 8
// bytes as one number, and the rest only where these are equal.
class SearchKey {
  public:
    SearchKey(const NtxFile& index, const uint8_t* key, bool whole) {
        StoreLe64(bytes, 0);  // a key may be shorter
        length = NtxStoredKey(index, key, bytes);
        if (whole) length = index.keyLength();
        mask = length >= 8 ? ~uint64_t{0} : length == 0 ? 0 : ~uint64_t{0} << (64 - 8 * length);
        prefix = LoadBe64(bytes) & mask;
    }

    // `key` has 8 bytes, if need be beyond its end.
    int Compare(const uint8_t* key) const {
        uint64_t other = LoadBe64(key) & mask;
        if (prefix != other) return prefix < other ? -1 : 1;
        return length > 8 ? memcmp(bytes + 8, key + 8, static_cast<size_t>(length - 8)) : 0;
    }

  private:
    KeyBuffer bytes;
    uint64_t prefix;
    uint64_t mask;
    int length;
};

// Gives the item at a place. A damaged page may have none there.
Code Deliver(const NtxFile& index, const NtxPage& page, int slot, uint8_t* key, uint32_t* record) {
    if (slot < 0 || slot >= page.count()) return Fail("Ckitem", ErrStructure);
    memcpy(key, page.key(slot), static_cast<size_t>(index.keyLength()));
    *record = page.record(slot);
    return CurrentCode();
}

// The same for a walk, which ends the key with a zero.
Code DeliverTop(const NtxFile& index, const NtxPage& page, uint8_t* key, uint32_t* record) {
    if (Deliver(index, page, index.position.path[index.position.pathDepth].slot, key, record) < 0)
        return CurrentCode();
    key[index.keyLength()] = 0;
    return CurrentCode();
}

// The subtree that hangs at the path's place of the page in hand; 0 in a leaf.
uint32_t ChildAtTop(const NtxFile& index, const NtxPage& page) {
    int slot = index.position.path[index.position.pathDepth].slot;
    return slot >= 0 && slot <= page.count() ? page.child(slot) : 0;
}

// Goes up to the next key behind, or before, the subtree that the path is in.
// `found` is false where there is none.
Code Climb(NtxFile& index, NtxPage& page, bool forward, bool* found) {
    Position& position = index.position;
    *found = false;
    while (position.pathDepth > 0 && !*found) {
        position.pathDepth--;
        if (Cpget(index, position.top().page, &page) < 0) return CurrentCode();
        *found = forward ? position.top().slot < page.count() : --position.top().slot >= 0;
    }
    return CurrentCode();
}

// Goes to the first or the last key of the index. A leaf without keys is stepped
// over.
Code GoToEnd(NtxFile& index, bool last, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    NtxPage page;
    if (Cpget(index, index.rootPage, &page) < 0) return CurrentCode();
    if (page.count() == 0) return SetCode(KeyEmpty);
    position.Start(index.rootPage, last ? page.count() : 0);
    if (CkDescend(index, page, last) < 0) return CurrentCode();
    bool found = page.count() > 0;
    if (last) position.top().slot--;
    if (!found && Climb(index, page, !last, &found) < 0) return CurrentCode();
    return DeliverTop(index, page, key, record);
}

}  // namespace

Code CkDescend(NtxFile& index, NtxPage& page, bool last) {
    Position& position = index.position;
    while (uint32_t child = ChildAtTop(index, page)) {
        if (Cpget(index, child, &page) < 0) return CurrentCode();
        if (!position.Push(child, last ? page.count() : 0)) return Fail("Cpget", ErrStructure);
    }
    return CurrentCode();
}

Code Cktop(NtxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, false, key, record) < 0 ? Pass("Cktop") : CurrentCode();
}

Code Ckbot(NtxFile& index, uint8_t* key, uint32_t* record) {
    return GoToEnd(index, true, key, record) < 0 ? Pass("Ckbot") : CurrentCode();
}

Code Cknext(NtxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Cktop(index, key, record);
    NtxPage page;
    if (Cpget(index, position.top().page, &page) < 0) return Pass("Cknext");
    position.top().slot++;
    if (CkDescend(index, page, false) < 0) return Pass("Cknext");
    if (position.top().slot >= page.count()) {
        bool found;
        if (Climb(index, page, true, &found) < 0) return Pass("Cknext");
        if (!found) {
            if (Ckbot(index, key, record) < 0) return Pass("Cknext");
            return SetCode(KeyEnd);
        }
    }
    return DeliverTop(index, page, key, record) < 0 ? Pass("Cknext") : CurrentCode();
}

Code Ckprev(NtxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.pathDepth < 0) return Ckbot(index, key, record);
    NtxPage page;
    if (Cpget(index, position.top().page, &page) < 0) return Pass("Ckprev");
    if (CkDescend(index, page, true) < 0) return Pass("Ckprev");
    if (--position.top().slot < 0) {
        bool found;
        if (Climb(index, page, false, &found) < 0) return Pass("Ckprev");
        if (!found) {
            if (Cktop(index, key, record) < 0) return Pass("Ckprev");
            return SetCode(KeyEnd);
        }
    }
    return DeliverTop(index, page, key, record) < 0 ? Pass("Ckprev") : CurrentCode();
}

namespace {

// From the end of a leaf, goes on through the keys that follow, for as long as
// they equal the key but not the pair that is looked for.
Code FindBehind(NtxFile& index, const SearchKey& wanted, uint8_t* key, uint32_t* record, bool pair,
                uint32_t wantedRecord) {
    KeyBuffer found = {};
    uint64_t steps = 0;
    for (;;) {
        Code code = Cknext(index, key, record);
        if (code < 0) return code;
        if (code == KeyEnd) return SetCode(KeyNear);
        memcpy(found, key, static_cast<size_t>(index.keyLength()));
        if (wanted.Compare(found) != 0) {
            if (Ckprev(index, key, record) < 0) return CurrentCode();
            return SetCode(KeyNear);
        }
        if (!pair || *record == wantedRecord) return SetCode(0);
        // More keys than the file has room for: the pages run in a circle.
        if (++steps > uint64_t{index.fileLength} / NtxPageSize * static_cast<uint64_t>(index.maxKeys))
            return Fail("Ckfind", ErrStructure);
    }
}

}  // namespace

// Equal keys stand in the order of their arrival. A search for a key stops at the
// first of them, so an equal key above the leaves sends it to the left. A search
// for a pair takes the first entry with that record number, wherever it stands.
Code Ckfind(NtxFile& index, uint8_t* key, uint32_t* record, int mode) {
    Position& position = index.position;
    bool pair = mode == 2;
    SearchKey wanted(index, key, pair);
    uint32_t wantedRecord = pair ? *record : 0;

    NtxPage page;
    if (Cpget(index, index.rootPage, &page) < 0) return Pass("Ckfind");
    position.Start(index.rootPage, 0);
    if (page.count() == 0) return SetCode(KeyEmpty);

    for (;;) {
        int count = page.count();
        int slot = 0;
        for (; slot < count; slot++) {
            int order = wanted.Compare(page.key(slot));
            if (order > 0) continue;
            if (order < 0) break;
            bool leaf = page.child(slot) == 0;
            if (pair ? page.record(slot) == wantedRecord : leaf) {
                position.top().slot = static_cast<int16_t>(slot);
                Deliver(index, page, slot, key, record);
                return SetCode(0);
            }
            if (!leaf) break;
        }

        // Whether there is a way down is told by the item compared last.
        bool below = page.child(std::min(slot, std::max(count - 1, 0))) != 0;
        if (below) {
            position.top().slot = static_cast<int16_t>(slot);
            uint32_t child = page.child(slot);
            if (Cpget(index, child, &page) < 0) return Pass("Ckfind");
            if (!position.Push(child, 0)) return Fail("Ckfind", ErrStructure);
            continue;
        }
        if (slot == count) {
            position.top().slot = static_cast<int16_t>(std::max(count - 1, 0));
            Code code = FindBehind(index, wanted, key, record, pair, wantedRecord);
            return code < 0 ? Pass("Ckfind") : code;
        }
        position.top().slot = static_cast<int16_t>(slot);
        Code code = Ckprev(index, key, record);
        if (code < 0) return Pass("Ckfind");
        if (code == KeyEnd) {
            *record = BeforeFirst;
            return code;
        }
        return SetCode(KeyNear);
    }
}

Code Ckcur(NtxFile& index, uint8_t* key, uint32_t* record) {
    Position& position = index.position;
    if (position.currentRecord == 0) return SetCode(KeyEnd);
    Code code = Ckfind(index, position.currentKey, &position.currentRecord, 2);
    if (code < 0) return Pass("Ckcur");
    if (code == KeyEmpty) return code;
    NtxPage page;
    if (Cpget(index, position.top().page, &page) < 0 || DeliverTop(index, page, key, record) < 0)
        return Pass("Ckcur");
    return code;
}

}  // namespace zb
