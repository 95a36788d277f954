// NDX keys: compare, find, walk.
#include <cstring>

#include "index/leaves.h"
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

struct NdxTree {
    using Index = NdxFile;
    using Page = NdxPage;
    using Search = SearchKey;
    static constexpr UnitNames Units = NdxUnits;
    static constexpr char EntryUnit[] = "Nkentry";
    static constexpr char PageUnit[] = "Npget";

    static Code Get(NdxFile& index, uint32_t page, NdxPage* view) { return Npget(index, page, view); }
    static bool IsText(const NdxFile& index) { return index.keyType == NdxCharacter; }
    static uint32_t Pages(const NdxFile& index) { return index.pageCount; }
};

using Tree = Leaves<NdxTree>;

}  // namespace

Code Nktop(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Top(index, key, record); }
Code Nkbot(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Bottom(index, key, record); }
Code Nknext(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Next(index, key, record); }
Code Nkprev(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Previous(index, key, record); }
Code Nkcur(NdxFile& index, uint8_t* key, uint32_t* record) { return Tree::Current(index, key, record); }

Code Nkfind(NdxFile& index, uint8_t* key, uint32_t* record, int mode) {
    return Tree::Find(index, key, record, mode);
}

}  // namespace zb
