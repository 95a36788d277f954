// MDX keys: compare, find, walk.
#include <cstring>

#include "index/leaves.h"
#include "index/mdx/decimal.h"
#include "index/mdx/mdx.h"

namespace zb {
namespace {

// Compares doubles by their bytes, of which `length` are stored.
int CompareDouble(const uint8_t* a, const uint8_t* b, int length) {
    uint8_t highA = a[length - 1];
    uint8_t highB = b[length - 1];
    bool negative = highA & 0x80;
    if ((highA ^ highB) & 0x80) return negative ? -1 : 1;
    int order = highA - highB;
    for (int i = length - 2; order == 0 && i >= 0; i--) order = a[i] - b[i];
    return negative ? -order : order;
}

// A search key, made ready to be compared with the keys of pages.
class SearchKey {
  public:
    SearchKey(const MdxTag& tag, const uint8_t* key, int mode) : bytes{}, length(tag.keyLength()) {
        switch (tag.keyType) {
            case 'D': kind = Date; break;
            case 'N': kind = Number; break;
            default: kind = Text;
        }
        if (kind != Text) {
            memcpy(bytes, key, static_cast<size_t>(length));
            return;
        }
        size_t text = strnlen(reinterpret_cast<const char*>(key), static_cast<size_t>(length));
        memcpy(bytes, key, text);
        if (mode == 2) return;
        length = static_cast<int>(text);
        if ((mode & 4) && memchr(bytes, '?', text)) kind = Wild;
    }

    int Compare(const uint8_t* key) const {
        switch (kind) {
            case Wild: return CompareWild(bytes, key, length);
            case Date: return CompareDouble(bytes, key, length);
            case Number: return CompareDecimal(bytes, key, length);
            default: return CompareText(bytes, key, length);
        }
    }

  private:
    enum Kind : uint8_t { Text, Wild, Date, Number };
    KeyBuffer bytes;
    int length;
    Kind kind;
};

struct MdxTree {
    using Index = MdxTag;
    using Page = MdxPage;
    using Search = SearchKey;
    static constexpr UnitNames Units = MdxUnits;
    static constexpr char EntryUnit[] = "Mkentry";
    static constexpr char PageUnit[] = "Mpget";

    static Code Get(MdxTag& tag, uint32_t page, MdxPage* view) { return Mpget(tag, page, view); }
    static bool IsText(const MdxTag& tag) { return tag.keyType == 'C'; }
    static uint32_t PagesThere(const MdxTag& tag) { return MdxPagesThere(*tag.file); }
};

using Tree = Leaves<MdxTree>;

}  // namespace

Code Mktop(MdxTag& tag, uint8_t* key, uint32_t* record) { return Tree::Top(tag, key, record); }
Code Mkbot(MdxTag& tag, uint8_t* key, uint32_t* record) { return Tree::Bottom(tag, key, record); }
Code Mknext(MdxTag& tag, uint8_t* key, uint32_t* record) { return Tree::Next(tag, key, record); }
Code Mkprev(MdxTag& tag, uint8_t* key, uint32_t* record) { return Tree::Previous(tag, key, record); }
Code Mkcur(MdxTag& tag, uint8_t* key, uint32_t* record) { return Tree::Current(tag, key, record); }

Code Mkfind(MdxTag& tag, uint8_t* key, uint32_t* record, int mode) {
    return Tree::Find(tag, key, record, mode);
}

}  // namespace zb
