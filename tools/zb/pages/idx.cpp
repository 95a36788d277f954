// IDX files: 512-byte pages addressed by offset, keys in the leaves, which the
// compact form packs.
#include <cstring>

#include "pages/pages.h"

namespace pages {
namespace {

constexpr uint32_t PageSize = 512;
constexpr uint32_t None = 0xFFFFFFFF;
constexpr int MaxLevels = 32;
constexpr size_t EntriesAt = 12;
constexpr size_t PackedAt = 24;

class IdxSurvey {
  public:
    IdxSurvey(std::string image, const EntrySink& entrySink, char fill)
        : bytes(std::move(image)), sink(entrySink), fillByte(fill) {}

    Survey Run() {
        ReadHeader();
        seen.assign(bytes.size() / PageSize, false);
        Visit(root, 1, true);
        LookAtSiblings();
        LookAtTheRest();
        return survey;
    }

  private:
    std::string bytes;
    const EntrySink& sink;
    char fillByte;
    Survey survey;
    std::vector<bool> seen;
    std::vector<std::vector<uint32_t>> levels;  // pages, from left to right
    uint32_t root = 0;
    size_t keyLength = 0, entrySize = 0;
    int maxEntries = 0;
    bool compact = false;
    bool any = false;
    Entry last;

    template <class... Values>
    void Fault(const char* format, Values... values) {
        survey.faults.push_back(Text(format, values...));
    }
    template <class... Values>
    void Note(const char* format, Values... values) {
        survey.notes.push_back(Text(format, values...));
    }

    int ByteAt(size_t at) const { return static_cast<unsigned char>(bytes[at]); }

    void ReadHeader() {
        if (bytes.size() < 2 * PageSize) throw NotAnIndex("shorter than a header and a page");
        root = Le32(bytes, 0);
        keyLength = Le16(bytes, 12);
        compact = bytes[14] & 0xE0;
        if (keyLength < 1 || keyLength > 100) throw NotAnIndex("its header isn't an IDX header");
        entrySize = keyLength + (compact ? 8 : 4);
        maxEntries = static_cast<int>(500 / entrySize);
        survey.format = compact ? "IDX, compact" : "IDX";
        survey.keyLength = static_cast<int>(keyLength);
        survey.unique = bytes[14] & 1;
        size_t at = compact ? 511u + Le16(bytes, 506) : 16;
        size_t length = compact ? Le16(bytes, 510) : 220;
        if (at < bytes.size()) survey.expression = bytes.substr(at, length);
        survey.expression.resize(strlen(survey.expression.c_str()));
        uint32_t end = Le32(bytes, 8);
        if (bytes.size() % PageSize || (end != 0 || !compact) != (end == bytes.size()))
            Fault("the header counts %u bytes, the file has %zu", end, bytes.size());
    }

    size_t EntryAt(uint32_t page, int i) const {
        return page + EntriesAt + static_cast<size_t>(i) * entrySize;
    }

    // Visits a subtree and gives its highest key. `edge` tells that no page stands
    // to its right.
    std::string Visit(uint32_t page, int level, bool edge) {
        if (page < PageSize || page % PageSize || page > bytes.size() - PageSize) {
            Fault("page %u, %s, isn't a page of the file", page, level > 1 ? "a child" : "the root");
            return {};
        }
        if (seen[page / PageSize]) {
            Fault("page %u is reached twice", page);
            return {};
        }
        seen[page / PageSize] = true;
        survey.pages++;
        if (level > MaxLevels) {
            Fault("page %u lies deeper than any tree goes", page);
            return {};
        }
        if (levels.size() < static_cast<size_t>(level)) levels.emplace_back();
        levels[static_cast<size_t>(level) - 1].push_back(page);

        bool leaf = bytes[page] & 2;
        int count = ByteAt(page + 2);
        if (((bytes[page] & 1) != 0) != (page == root))
            Fault("page %u %s the mark of a root", page, page == root ? "lacks" : "has");
        if (bytes[page + 1] || bytes[page + 3]) Fault("page %u: attributes or count of two bytes", page);
        if (count == 0 && !(leaf && page == root)) Fault("page %u has no entries", page);
        if (leaf && compact) return VisitPacked(page, level, count);
        if (count > maxEntries) {
            Fault("page %u has %d entries", page, count);
            return {};
        }
        return leaf ? VisitLeaf(page, level, count) : VisitInterior(page, level, count, edge);
    }

    // The key over a page may be too high, since it isn't lowered when a page above
    // the leaves loses its last entry; and too low at the right edge, where a build
    // leaves whatever stood there.
    std::string VisitInterior(uint32_t page, int level, int count, bool edge) {
        std::string highest;
        for (int i = 0; i < count; i++) {
            bool rightmost = edge && i == count - 1;
            uint32_t child = Be32(bytes, EntryAt(page, i) + entrySize - 4);
            highest = Visit(child, level + 1, rightmost);
            int order = bytes.compare(EntryAt(page, i), keyLength, highest);
            if (order > 0) Note("page %u: the key over page %u is higher than its highest", page, child);
            if (order < 0 && rightmost)
                Note("page %u: the key over page %u is lower than its highest", page, child);
            if (order < 0 && !rightmost)
                Fault("page %u: the key over page %u is lower than its highest", page, child);
        }
        return highest;
    }

    std::string VisitLeaf(uint32_t page, int level, int count) {
        CheckLevel(page, level);
        for (int i = 0; i < count; i++)
            Take({bytes.substr(EntryAt(page, i), keyLength), Be32(bytes, EntryAt(page, i) + keyLength), page},
                 i);
        return count ? last.key : std::string();
    }

    std::string VisitPacked(uint32_t page, int level, int count) {
        CheckLevel(page, level);
        if (count > 127) Note("page %u: of its %d entries the first alone is seen", page, count);
        int recordBits = ByteAt(page + 20), dupBits = ByteAt(page + 21), trailBits = ByteAt(page + 22);
        auto entryBytes = static_cast<size_t>(ByteAt(page + 23));
        if (entryBytes < 1 || entryBytes > 4 ||
            static_cast<size_t>(recordBits + dupBits + trailBits) != 8 * entryBytes) {
            Fault("page %u: widths of %d, %d and %d bits in %zu bytes", page, recordBits, dupBits, trailBits,
                  entryBytes);
            return {};
        }
        size_t entriesEnd = PackedAt + static_cast<size_t>(count) * entryBytes;
        if (entriesEnd > PageSize) {
            Fault("page %u has %d entries", page, count);
            return {};
        }
        size_t keys = PageSize;
        std::string key(keyLength, fillByte);
        for (int i = 0; i < count; i++) {
            size_t at = PackedAt + static_cast<size_t>(i) * entryBytes;
            uint64_t packed = Le32(bytes, page + at) & ((uint64_t{1} << 8 * entryBytes) - 1);
            auto take = [&](int bits) {
                uint64_t value = packed & ((uint64_t{1} << bits) - 1);
                packed >>= bits;
                return value;
            };
            auto record = static_cast<uint32_t>(take(recordBits));
            auto front = static_cast<size_t>(take(dupBits));
            auto back = static_cast<size_t>(take(trailBits));
            if (front + back > keyLength || keyLength - front - back > keys - entriesEnd) {
                Fault("page %u: entry %d shares %zu and %zu bytes of its key", page, i, front, back);
                return {};
            }
            size_t stored = keyLength - front - back;
            keys -= stored;
            key.replace(front, stored, bytes, page + keys, stored);
            Take({key, record, page}, i);
        }
        if (Le16(bytes, page + 12) != keys - entriesEnd)
            Fault("page %u: %u bytes free, not %zu", page, unsigned{Le16(bytes, page + 12)},
                  keys - entriesEnd);
        return count ? key : std::string();
    }

    void CheckLevel(uint32_t page, int level) {
        if (survey.levels == 0) survey.levels = level;
        if (level != survey.levels)
            Fault("page %u, a leaf, stands on level %d, others on %d", page, level, survey.levels);
    }

    void Take(Entry entry, int i) {
        if (any && entry.key < last.key) Fault("page %u: key %d is out of order", entry.page, i);
        survey.keys++;
        any = true;
        if (sink) sink(entry);
        last = std::move(entry);
    }

    // Nobody tells the neighbours of a page that is given back.
    void LookAtSiblings() {
        for (auto& pages : levels)
            for (size_t i = 0; i < pages.size(); i++) {
                if (Le32(bytes, pages[i] + 4) != (i ? pages[i - 1] : None))
                    Note("page %u: its left sibling is %u", pages[i], Le32(bytes, pages[i] + 4));
                if (Le32(bytes, pages[i] + 8) != (i + 1 < pages.size() ? pages[i + 1] : None))
                    Note("page %u: its right sibling is %u", pages[i], Le32(bytes, pages[i] + 8));
            }
    }

    void LookAtTheRest() {
        for (uint32_t page = Le32(bytes, 4); page != 0 && page != None; page = Le32(bytes, page)) {
            if (page < PageSize || page % PageSize || page > bytes.size() - PageSize)
                return Fault("page %u on the free chain isn't a page of the file", page);
            if (seen[page / PageSize])
                return Fault("page %u on the free chain is in use, or there twice", page);
            seen[page / PageSize] = true;
            survey.freePages++;
        }
        for (size_t page = compact ? 2 : 1; page < seen.size(); page++)
            if (!seen[page]) Fault("page %zu is never reached and isn't free", page * PageSize);
    }
};

}  // namespace

Survey SurveyIdx(const std::string& file, const EntrySink& sink, char fill) {
    return IdxSurvey(Load(file), sink, fill).Run();
}

}  // namespace pages
