// NTX files: 1024-byte pages addressed by their offset, keys in all pages.
#include <cstring>
#include <set>

#include "pages/pages.h"

namespace pages {
namespace {

constexpr uint32_t PageSize = 1024;
constexpr int MaxLevels = 32;

class NtxSurvey {
  public:
    NtxSurvey(std::string image, const EntrySink& entrySink) : bytes(std::move(image)), sink(entrySink) {}

    Survey Run() {
        ReadHeader();
        Visit(root, 1);
        FollowFreeChain();
        LookAtTheRest();
        return survey;
    }

  private:
    std::string bytes;
    const EntrySink& sink;
    Survey survey;
    std::set<uint32_t> seen;
    uint32_t root = 0;
    int maxKeys = 0, itemSize = 0;
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

    void ReadHeader() {
        if (bytes.size() < 2 * PageSize) throw NotAnIndex("shorter than a header and a page");
        survey.format = "NTX";
        root = Le32(bytes, 4);
        itemSize = Le16(bytes, 12);
        survey.keyLength = Le16(bytes, 14);
        survey.numeric = Le16(bytes, 16) != 0;
        maxKeys = Le16(bytes, 18);
        survey.unique = bytes[278] & 1;
        survey.expression = bytes.substr(22, 256);
        survey.expression.resize(strlen(survey.expression.c_str()));
        int length = survey.keyLength;
        if (length < 1 || length > 100 || itemSize != length + 8 ||
            maxKeys != ((1020 / (itemSize + 2) - 1) & ~1) || Le16(bytes, 20) != maxKeys / 2)
            throw NotAnIndex("its header isn't an NTX header");
        if (bytes.size() % PageSize) Fault("the file's %zu bytes aren't whole pages", bytes.size());
    }

    bool InFile(uint32_t page) const {
        return page >= PageSize && page % PageSize == 0 && page + PageSize <= bytes.size();
    }
    size_t ItemAt(uint32_t page, int i) const {
        return page + Le16(bytes, page + 2 + 2 * static_cast<size_t>(i));
    }
    uint32_t ChildAt(uint32_t page, int i) const { return Le32(bytes, ItemAt(page, i)); }

    // Whether the table names every slot once.
    bool TableIsWhole(uint32_t page) const {
        std::set<int> slots;
        for (int i = 0; i <= maxKeys; i++) {
            int behindTable = Le16(bytes, page + 2 + 2 * static_cast<size_t>(i)) - (2 * maxKeys + 4);
            if (behindTable < 0 || behindTable % itemSize || behindTable / itemSize > maxKeys) return false;
            slots.insert(behindTable);
        }
        return slots.size() == static_cast<size_t>(maxKeys) + 1;
    }

    void Visit(uint32_t page, int level) {
        if (!InFile(page)) return Fault("page %u, a child, lies outside the file", page);
        if (!seen.insert(page).second) return Fault("page %u is reached twice", page);
        survey.pages++;
        if (level > MaxLevels) return Fault("page %u lies deeper than any tree goes", page);
        int count = Le16(bytes, page);
        if (count > maxKeys) return Fault("page %u holds %d keys", page, count);
        if (!TableIsWhole(page)) return Fault("page %u: its table doesn't name every slot once", page);
        if (page != root && count < maxKeys / 2)
            Note("page %u holds %d keys and is less than half full", page, count);

        bool leaf = ChildAt(page, 0) == 0;
        if (leaf && survey.levels == 0) survey.levels = level;
        if (leaf && level != survey.levels)
            Fault("page %u, a leaf, stands on level %d, others on %d", page, level, survey.levels);
        for (int i = 0; i <= count; i++) {
            uint32_t child = ChildAt(page, i);
            if ((child == 0) != leaf) return Fault("page %u: some items have a child and some none", page);
            if (!leaf) Visit(child, level + 1);
            if (i < count) Take(page, i);
        }
    }

    void Take(uint32_t page, int i) {
        Entry entry{bytes.substr(ItemAt(page, i) + 8, static_cast<size_t>(survey.keyLength)),
                    Le32(bytes, ItemAt(page, i) + 4), page};
        if (any && last.key > entry.key) Fault("page %u: key %d is out of order", page, i);
        survey.keys++;
        any = true;
        if (sink) sink(entry);
        last = std::move(entry);
    }

    void FollowFreeChain() {
        for (uint32_t page = Le32(bytes, 8); page; page = Le32(bytes, page)) {
            if (!InFile(page)) return Fault("page %u, a free one, lies outside the file", page);
            if (!seen.insert(page).second) return Fault("page %u, a free one, is reached twice", page);
            survey.freePages++;
        }
    }

    void LookAtTheRest() {
        for (uint32_t page = PageSize; InFile(page); page += PageSize)
            if (!seen.count(page)) Fault("page %u is never reached and isn't free", page);
    }
};

}  // namespace

Survey SurveyNtx(const std::string& file, const EntrySink& sink) { return NtxSurvey(Load(file), sink).Run(); }

}  // namespace pages
