// NDX keys: compare, find, walk.
#include <cstring>

#include "index/leaves.h"
#include "index/ndx/ndx.h"

namespace zb {
namespace {

// A search key, made ready to be compared with the keys of pages: numbers, and the
// first 8 bytes of texts that compare by byte value, as one number.
class SearchKey {
  public:
    SearchKey(const NdxFile& index, const uint8_t* key, int mode) {
        int keyLength = index.keyLength();
        StoreLe64(bytes, 0);  // a key may be shorter
        memcpy(bytes, key, static_cast<size_t>(keyLength));
        if (index.keyType == NdxNumeric) {
            // Numbers of another length, in files of other makers, are compared as
            // such where the pair is looked for; all other searches see doubles.
            if (mode & 2 && keyLength != sizeof(double)) {
                kind = Float;
                length = keyLength;
                return;
            }
            kind = Number;
            first = SortableDouble(LoadLeDouble(bytes));
            return;
        }
        length = static_cast<int>(strnlen(reinterpret_cast<char*>(bytes), static_cast<size_t>(keyLength)));
        if ((mode & 4) && memchr(bytes, '?', static_cast<size_t>(length)))
            kind = Wild;
        else if (!library.asciiSort)
            kind = Collated;
        if (mode & 2) length = keyLength;
        mask = length >= 8 ? ~uint64_t{0} : length == 0 ? 0 : ~uint64_t{0} << (64 - 8 * length);
        first = LoadBe64(bytes) & mask;
    }

    // `key` has 8 bytes, if need be beyond its end.
    int Compare(const uint8_t* key) const {
        uint64_t other;
        switch (kind) {
            case Bytes: other = LoadBe64(key) & mask; break;
            case Number: other = SortableDouble(LoadLeDouble(key)); break;
            case Float: return CompareSigned(bytes, key, length, true);
            case Collated: return CollateText(bytes, key, length);
            default: return CompareWild(bytes, key, length);
        }
        if (first != other) return first < other ? -1 : 1;
        return length > 8 ? memcmp(bytes + 8, key + 8, static_cast<size_t>(length - 8)) : 0;
    }

  private:
    enum Kind : uint8_t { Bytes, Number, Float, Collated, Wild };
    KeyBuffer bytes;
    uint64_t first = 0;
    uint64_t mask = 0;
    int length = 0;  // 0 for doubles
    Kind kind = Bytes;
};

struct NdxTree {
    using Index = NdxFile;
    using Page = NdxPage;
    using Search = SearchKey;
    static constexpr UnitNames Units = NdxUnits;
    static constexpr char EntryUnit[] = "Nkentry";
    static constexpr char PageUnit[] = "Npget";

    static Code Get(NdxFile& index, uint32_t page, NdxPage* view) { return Npget(index, page, view); }
    static bool IsText(const NdxFile& index) { return index.keyType == NdxCharacter; }
    static uint32_t PagesThere(const NdxFile& index) { return NdxPagesThere(index); }
};

using Tree = Leaves<NdxTree>;

}  // namespace

int CompareSigned(const uint8_t* a, const uint8_t* b, int length, bool magnitude) {
    uint8_t highA = a[length - 1];
    uint8_t highB = b[length - 1];
    if ((highA ^ highB) & 0x80) return highA & 0x80 ? -1 : 1;
    int difference = (highA & 0x7F) - (highB & 0x7F);
    for (int i = length - 2; difference == 0 && i >= 0; i--) difference = a[i] - b[i];
    if (magnitude && highA & 0x80) return difference > 0 ? -1 : difference < 0;
    return difference;
}

Code Nktop(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Top(index, key, record); }
Code Nkbot(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Bottom(index, key, record); }
Code Nknext(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Next(index, key, record); }
Code Nkprev(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Previous(index, key, record); }
Code Nkcur(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Current(index, key, record); }

Code Nkfind(NdxFile& index, uint8_t* key, uint32_t* record, int mode) {
    return Tree::Find(index, key, record, mode);
}

}  // namespace zb
