// NDX files: 512-byte pages addressed by number, keys in the leaves.
#include <bit>
#include <cstring>

#include "pages/pages.h"

namespace pages {
namespace {

constexpr size_t PageSize = 512;
constexpr int MaxLevels = 32;

uint64_t Sortable(std::string_view key) {
    uint64_t bits = Le32(key, 0) | uint64_t{Le32(key, 4)} << 32;
    return bits >> 63 ? ~bits : bits | uint64_t{1} << 63;
}

class NdxSurvey {
  public:
    NdxSurvey(std::string image, const EntrySink& entrySink, const KeyOrder& keyOrder)
        : bytes(std::move(image)), sink(entrySink), order(keyOrder) {}

    Survey Run() {
        ReadHeader();
        seen.assign(pageCount, false);
        if (root < 1 || root >= pageCount)
            Fault("the root page %u lies outside the file", root);
        else
            Visit(root, 1, nullptr);
        LookAtTheRest();
        if (survey.pages > 1 && fullLeaves > 0)
            Note(
                "%u leaves are full: one that loses all its keys beside a full one stays as an empty page, "
                "where walks and adds stop (after many deletes make the index anew)",
                fullLeaves);
        return survey;
    }

  private:
    std::string bytes;
    const EntrySink& sink;
    const KeyOrder& order;
    Survey survey;
    std::vector<bool> seen;
    uint32_t root = 0, pageCount = 0;
    int keysPerPage = 0, entrySize = 0;
    uint32_t fullLeaves = 0;
    bool any = false;
    Entry last;

    template <class... Values>
    void Fault(const char* format, Values... values) {
        survey.faults.push_back(Text(format, values...));
    }
    template <class... Values>
    void Hazard(const char* format, Values... values) {
        survey.hazards.push_back(Text(format, values...));
    }
    template <class... Values>
    void Note(const char* format, Values... values) {
        survey.notes.push_back(Text(format, values...));
    }

    void ReadHeader() {
        if (bytes.size() < 2 * PageSize) throw NotAnIndex("shorter than a header and a page");
        root = Le32(bytes, 0);
        pageCount = Le32(bytes, 4);
        survey.format = "NDX";
        survey.keyLength = Le16(bytes, 12);
        keysPerPage = Le16(bytes, 14);
        survey.numeric = Le16(bytes, 16) == 1;
        entrySize = Le16(bytes, 18);
        survey.unique = bytes[23] & 1;
        survey.expression = bytes.substr(24, 224);
        survey.expression.resize(strlen(survey.expression.c_str()));
        int length = survey.keyLength;
        if (length < 1 || length > 100 || Le16(bytes, 16) > 1)
            throw NotAnIndex("its header isn't an NDX header");
        if (entrySize < length + 8 || entrySize > length + 11 || keysPerPage < 2 ||
            keysPerPage * entrySize > 508)
            throw NotAnIndex("its header isn't an NDX header");
        if (bytes.size() != uint64_t{pageCount} * PageSize)
            Fault("the header counts %u pages, the file has %zu bytes", pageCount, bytes.size());
        pageCount = static_cast<uint32_t>(std::min<uint64_t>(pageCount, bytes.size() / PageSize));
    }

    int Compare(std::string_view a, std::string_view b) const {
        if (survey.numeric) return Sortable(a) < Sortable(b) ? -1 : Sortable(a) > Sortable(b);
        return order ? order(a, b) : a.compare(b);
    }

    size_t EntryAt(uint32_t page, int i) const {
        return page * PageSize + 4 + static_cast<size_t>(i * entrySize);
    }
    std::string KeyAt(uint32_t page, int i) const {
        return bytes.substr(EntryAt(page, i) + 8, static_cast<size_t>(survey.keyLength));
    }

    // Visits a subtree; its keys may not go above `bound`.
    void Visit(uint32_t page, int level, const std::string* bound) {
        if (page < 1 || page >= pageCount) return Fault("page %u, a child, lies outside the file", page);
        if (seen[page]) return Fault("page %u is reached twice", page);
        seen[page] = true;
        survey.pages++;
        if (level > MaxLevels) return Fault("page %u lies deeper than any tree goes", page);
        int count = static_cast<signed char>(bytes[page * PageSize]);
        if (count < 0 || count > keysPerPage) return Fault("page %u holds %d keys", page, count);
        if (Le32(bytes, EntryAt(page, 0)) == 0) return VisitLeaf(page, level, count, bound);

        // A separator may be too high: it isn't lowered when a leaf loses its last
        // key. Searches that it leads too far left step on to the next leaf. Too
        // low it may not be.
        std::string before;
        for (int i = 0; i <= count; i++) {
            std::string key = i < count ? KeyAt(page, i) : std::string();
            const std::string* limit = i < count ? &key : bound;
            if (i > 0 && i < count && Compare(before, key) > 0)
                Note("page %u: key %d is higher than key %d", page, i - 1, i);
            if (i < count && bound && Compare(key, *bound) > 0) {
                Note("page %u: key %d lies above the key over the page", page, i);
                limit = bound;
            }
            Visit(Le32(bytes, EntryAt(page, i)), level + 1, limit);
            before = key;
        }
    }

    void VisitLeaf(uint32_t page, int level, int count, const std::string* bound) {
        if (survey.levels == 0) survey.levels = level;
        if (level != survey.levels)
            Fault("page %u, a leaf, stands on level %d, others on %d", page, level, survey.levels);
        if (count == 0 && page != root)
            Hazard("page %u is a leaf without keys: walks and adds stop there with ErrStructure (-6)", page);
        if (count == keysPerPage) fullLeaves++;
        for (int i = 0; i < count; i++) {
            Entry entry{KeyAt(page, i), Le32(bytes, EntryAt(page, i) + 4), page};
            if (bound && Compare(entry.key, *bound) > 0)
                Fault("page %u: key %d lies above the key over the page", page, i);
            if (any) {
                int step = Compare(last.key, entry.key);
                if (step > 0 || (step == 0 && !survey.unique && last.record > entry.record))
                    Fault("page %u: key %d is out of order", page, i);
            }
            survey.keys++;
            any = true;
            if (sink) sink(entry);
            last = std::move(entry);
        }
    }

    void LookAtTheRest() {
        for (uint32_t page = 1; page < pageCount; page++) {
            if (seen[page]) continue;
            if (static_cast<unsigned char>(bytes[page * PageSize]) == 0xFF)
                survey.freePages++;
            else
                Fault("page %u is never reached and isn't free", page);
        }
    }
};

}  // namespace

Survey SurveyNdx(const std::string& file, const EntrySink& sink, const KeyOrder& order) {
    return NdxSurvey(Load(file), sink, order).Run();
}

}  // namespace pages
