// MDX files: tags over one set of blocks, keys in the leaves.
#include <algorithm>
#include <cstring>
#include <optional>

#include "pages/pages.h"

namespace pages {
namespace {

constexpr size_t Unit = 512;
constexpr uint32_t FirstPage = 4;
constexpr int MaxLevels = 32;

int Sign(bool below, bool above) { return above - below; }

int CompareDoubles(std::string_view a, std::string_view b) {
    auto sortable = [](std::string_view key) {
        uint64_t bits = Le32(key, 0) | uint64_t{Le32(key, 4)} << 32;
        return bits >> 63 ? ~bits : bits | uint64_t{1} << 63;
    };
    return Sign(sortable(a) < sortable(b), sortable(a) > sortable(b));
}

int CompareDecimals(std::string_view a, std::string_view b) {
    auto negative = [](std::string_view key) { return (static_cast<unsigned char>(key[1]) & 0x80) != 0; };
    if (negative(a) != negative(b)) return negative(a) ? -1 : 1;
    auto magnitude = [](std::string_view key) { return std::string(key.substr(0, 1)) += key.substr(2); };
    int order = magnitude(a).compare(magnitude(b));
    return negative(a) ? -order : order;
}

// What all tags share: the bytes, and which block belongs to what.
struct File {
    std::string bytes;
    uint32_t units = 0, nextPage = 0;
    size_t blockBytes = 0;
    std::vector<bool> seen;  // by block

    bool Holds(uint32_t page) const {
        return page >= FirstPage && page < nextPage && page * Unit + blockBytes <= bytes.size();
    }
    uint32_t BlockOf(uint32_t page) const { return (page - FirstPage) / units; }

    // Takes a block for something; tells what is wrong with that.
    std::string Take(uint32_t page, const char* what) {
        if (!Holds(page)) return Text("page %u, %s, lies outside the file", page, what);
        if ((page - FirstPage) % units) return Text("page %u, %s, begins within a block", page, what);
        if (seen[BlockOf(page)]) return Text("page %u, %s, is reached twice", page, what);
        seen[BlockOf(page)] = true;
        return {};
    }
};

class TreeSurvey {
  public:
    TreeSurvey(File& mdx, TagSurvey& found, size_t place, const TagEntrySink& entrySink,
               const KeyOrder& keyOrder)
        : file(mdx), tag(found), survey(found.tree), number(place), sink(entrySink), order(keyOrder) {}

    void Run(uint32_t header) {
        survey.format = "MDX";
        if (std::string wrong = file.Take(header, "a tag's header"); !wrong.empty()) return Fault(wrong);
        size_t at = header * Unit;
        uint32_t root = Le32(file.bytes, at);
        survey.unique = file.bytes[at + 8] & 0x40;
        survey.keyLength = Le16(file.bytes, at + 12);
        survey.numeric = tag.type != 'C';
        maxKeys = Le16(file.bytes, at + 14);
        entryLength = Le16(file.bytes, at + 18);
        survey.expression = file.bytes.substr(at + 24, 221).c_str();
        int length = survey.keyLength;
        if (file.bytes[at + 9] != tag.type) Fault("its type isn't that of the tag table");
        if (length < 1 || length > 100 || (tag.type == 'D' && length != 8) ||
            (tag.type == 'N' && length != 12))
            return Fault(Text("a key length of %d", length));
        if (entryLength != length + 4 && entryLength != ((length + 7) & ~3))
            return Fault(Text("an entry length of %d", entryLength));
        if (maxKeys < 2 || maxKeys * entryLength + 12 > static_cast<int>(file.blockBytes))
            return Fault(Text("%d keys a page", maxKeys));

        // Level by level, since the trailing pointer of a leaf may be a leftover:
        // the level on which any page is a leaf is that of all leaves.
        std::vector<Stop> level{{root, {}}};
        for (survey.levels = 1; !level.empty(); survey.levels++) {
            if (survey.levels > MaxLevels) return Fault("its pages run in a circle");
            if (!Admit(level)) return;
            if (std::any_of(level.begin(), level.end(),
                            [&](const Stop& stop) { return !Trailing(stop.page); }))
                return VisitLeaves(level);
            level = VisitBranches(level);
        }
    }

  private:
    // A page to visit and the lowest separator over it.
    struct Stop {
        uint32_t page;
        std::optional<std::string> bound;
    };

    File& file;
    TagSurvey& tag;
    Survey& survey;
    size_t number;
    const TagEntrySink& sink;
    const KeyOrder& order;
    int maxKeys = 0, entryLength = 0;

    void Fault(const std::string& text) { survey.faults.push_back(text); }
    void Note(const std::string& text) { survey.notes.push_back(text); }

    int Compare(std::string_view a, std::string_view b) const {
        if (tag.type == 'D') return CompareDoubles(a, b);
        if (tag.type == 'N') return CompareDecimals(a, b);
        return order ? order(a, b) : a.compare(b);
    }

    int Count(uint32_t page) const { return Le16(file.bytes, page * Unit); }
    size_t EntryAt(uint32_t page, int i) const {
        return page * Unit + 8 + static_cast<size_t>(i * entryLength);
    }
    uint32_t Value(uint32_t page, int i) const { return Le32(file.bytes, EntryAt(page, i)); }
    uint32_t Trailing(uint32_t page) const { return Value(page, Count(page)); }
    std::string KeyAt(uint32_t page, int i) const {
        return file.bytes.substr(EntryAt(page, i) + 4, static_cast<size_t>(survey.keyLength));
    }

    bool Admit(const std::vector<Stop>& level) {
        for (const Stop& stop : level) {
            if (std::string wrong = file.Take(stop.page, "a child"); !wrong.empty())
                return Fault(wrong), false;
            if (Count(stop.page) > maxKeys)
                return Fault(Text("page %u holds %d keys", stop.page, Count(stop.page))), false;
            survey.pages++;
        }
        return true;
    }

    std::vector<Stop> VisitBranches(const std::vector<Stop>& level) {
        std::vector<Stop> below;
        for (const Stop& stop : level) {
            int count = Count(stop.page);
            if (count == 0) Note(Text("page %u is a branch without keys", stop.page));
            for (int i = 0; i < count; i++) {
                std::string key = KeyAt(stop.page, i);
                if (i > 0 && Compare(KeyAt(stop.page, i - 1), key) > 0)
                    Fault(Text("page %u: keys %d and %d are out of order", stop.page, i - 1, i));
                bool above = stop.bound && Compare(key, *stop.bound) > 0;
                if (above) Note(Text("page %u: key %d lies above the separator over the page", stop.page, i));
                below.push_back({Value(stop.page, i), above ? stop.bound : key});
            }
            below.push_back({Value(stop.page, count), stop.bound});
        }
        return below;
    }

    void VisitLeaves(const std::vector<Stop>& level) {
        std::optional<Entry> last;
        std::optional<std::string> hider;  // of the last entry
        for (const Stop& stop : level) {
            int count = Count(stop.page);
            if (Trailing(stop.page)) {
                Note(Text("page %u is a leaf whose trailing pointer is a leftover: it reads as a branch",
                          stop.page));
                tag.leftovers.push_back(EntryAt(stop.page, count));
            }
            if (count == 0 && level.size() > 1) Note(Text("page %u is a leaf without keys", stop.page));
            int highest = 0;
            for (int i = 0; i < count; i++) {
                Entry entry{KeyAt(stop.page, i), Value(stop.page, i), stop.page};
                if (last) {
                    int step = Compare(last->key, entry.key);
                    if (step > 0 && hider && Compare(entry.key, *hider) > 0)
                        Note(Text("page %u: key %d went behind a key that a lower separator hides", stop.page,
                                  i));
                    else if (step > 0)
                        Fault(Text("page %u: key %d is out of order", stop.page, i));
                    else if (step == 0 && !survey.unique && last->record > entry.record)
                        Note(Text("page %u: key %d equals the one before it and has a lower record number",
                                  stop.page, i));
                }
                highest = stop.bound ? Compare(entry.key, *stop.bound) : -1;
                if (highest > 0) Note(Text("page %u: key %d is hidden by a lower separator", stop.page, i));
                survey.keys++;
                hider = highest > 0 ? stop.bound : std::nullopt;
                if (sink) sink(number, entry, hider ? &*hider : nullptr);
                last = std::move(entry);
            }
            if (stop.bound && highest < 0)
                Note(Text("page %u: the separator over it is higher than its keys", stop.page));
        }
    }
};

void VisitFreeBlocks(File& file, uint32_t head, uint32_t counted, MdxSurvey& survey) {
    for (uint32_t page = head; page != 0; page = Le32(file.bytes, page * Unit + 4)) {
        if (std::string wrong = file.Take(page, "on the free list"); !wrong.empty()) {
            survey.faults.push_back(wrong);
            break;
        }
        survey.freePages++;
    }
    if (survey.freePages != counted)
        survey.faults.push_back(Text("the header counts %u free pages, %u are", counted, survey.freePages));
}

}  // namespace

std::vector<std::string> MdxSurvey::AllFaults() const {
    std::vector<std::string> all = faults;
    for (const TagSurvey& tag : tags)
        for (const std::string& fault : tag.tree.faults) all.push_back(tag.name + ": " + fault);
    return all;
}

MdxSurvey SurveyMdx(const std::string& name, const TagEntrySink& sink, const KeyOrder& order) {
    File file;
    file.bytes = Load(name);
    const std::string& bytes = file.bytes;
    if (bytes.size() < FirstPage * Unit) throw NotAnIndex("shorter than its header and tag table");
    file.units = Le16(bytes, 20);
    file.blockBytes = Le16(bytes, 22);
    file.nextPage = Le32(bytes, 32);
    int tagCount = static_cast<int16_t>(Le16(bytes, 28));
    if (bytes[0] != 2 || file.units < 1 || file.units > 32 || file.blockBytes != file.units * Unit ||
        bytes[25] != 48 || bytes[26] != 32 || tagCount < 0 || tagCount > 47 || file.nextPage < FirstPage)
        throw NotAnIndex("its header isn't an MDX header");

    MdxSurvey survey;
    survey.blockUnits = static_cast<int>(file.units);
    if (bytes.size() != uint64_t{file.nextPage} * Unit)
        survey.faults.push_back(Text("the header ends at page %u, the file has %llu bytes", file.nextPage,
                                     static_cast<unsigned long long>(bytes.size())));
    file.seen.assign(bytes.size() / Unit / file.units + 1, false);
    for (int i = 1; i <= tagCount; i++) {
        size_t row = Unit + static_cast<size_t>(i) * 32;
        TagSurvey& tag = survey.tags.emplace_back();
        tag.name = bytes.substr(row + 4, 10).c_str();
        tag.type = bytes[row + 20];
        TreeSurvey(file, tag, survey.tags.size() - 1, sink, order).Run(Le32(bytes, row));
    }
    VisitFreeBlocks(file, Le32(bytes, 36), Le32(bytes, 40), survey);
    for (uint32_t page = FirstPage; file.Holds(page); page += file.units)
        if (!file.seen[file.BlockOf(page)])
            survey.faults.push_back(Text("page %u belongs to no tag and isn't free", page));
    return survey;
}

}  // namespace pages
