// zb index check: an index's pages against the rules of its format, and its
// keys against the table's records.
#include "index_check.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "files.h"
#include "index.h"
#include "index_commands.h"
#include "terminal.h"

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    IndexOptions index;
    bool json = false;
};

// One index, or one tag.
class IndexCheck {
  public:
    explicit IndexCheck(IndexPages& indexPages);

    void CompareWithRecords();
    void Show(Output& output) const;
    Json ToJson() const;
    size_t faultCount() const { return faults.size(); }
    IndexFindings TakeFindings();

  private:
    using Places = std::vector<const pages::Entry*>;

    void LookForStrangers(const Places& byRecord, uint32_t records);
    void LookForEqualKeys();
    void CompareRecord(Index& calls, uint32_t record, Places::const_iterator first,
                       Places::const_iterator end);
    std::string Comparable(const std::string& key) const;
    std::string Quoted(const std::string& key) const;

    IndexPages& index;
    std::vector<std::string> faults;
    std::vector<std::string> notes;
    std::vector<std::string> sorted;  // all keys of a unique index
    uint64_t leftOut = 0;
    uint64_t otherForms = 0;
    uint64_t withoutValue = 0;
};

IndexCheck::IndexCheck(IndexPages& indexPages) : index(indexPages), faults(indexPages.survey().faults) {
    const pages::Survey& survey = index.survey();
    faults.insert(faults.end(), survey.hazards.begin(), survey.hazards.end());
    notes = survey.notes;
    if (!notes.empty() && index.format().notes != nullptr) notes.push_back(index.format().notes);
}

std::string IndexCheck::Quoted(const std::string& key) const {
    std::string text = "'";
    AppendPrintable(index.Read(key).text, text);
    return text + "'";
}

// Where a value has more than one form, its keys are the same.
std::string IndexCheck::Comparable(const std::string& key) const {
    const IndexFormat& format = index.format();
    std::string digits;
    if (index.type() == 'N' && format.numberByValue) return format.readNumber(key, digits) ? digits : key;
    if (index.type() == 'D' && !format.builtBlankDate.empty() && format.readDate(key, digits) &&
        digits.empty())
        return digits;
    return key;
}

// Keys whose record number no record has.
void IndexCheck::LookForStrangers(const Places& byRecord, uint32_t records) {
    for (const pages::Entry* entry : byRecord)
        if (entry->record < 1 || entry->record > records)
            faults.push_back("key " + Quoted(entry->key) + " on page " + std::to_string(entry->page) +
                             " is of record " + std::to_string(entry->record) + ", which isn't there");
}

void IndexCheck::LookForEqualKeys() {
    for (const pages::Entry& entry : index.entries()) sorted.push_back(Comparable(entry.key));
    std::sort(sorted.begin(), sorted.end());
    uint64_t repeated = 0;
    for (size_t number = 1; number < sorted.size(); ++number)
        if (sorted[number] == sorted[number - 1]) ++repeated;
    if (repeated > 0)
        notes.push_back("the index is marked as unique and holds " + Count(repeated, "key") +
                        " beyond the first of its kind; the library adds them all the same");
}

void IndexCheck::CompareRecord(Index& calls, uint32_t record, Places::const_iterator first,
                               Places::const_iterator end) {
    std::string made;
    try {
        made = calls.Make(*index.data());
    } catch (const Failure& failure) {
        constexpr uint64_t kMostTold = 20;
        if (++withoutValue <= kMostTold)
            faults.push_back(std::string("no key can be made: ") + failure.what());
        else if (withoutValue == kMostTold + 1)
            faults.push_back("no keys can be made of more records");
        return;
    }
    std::string comparable = Comparable(made);
    std::string name = "record " + std::to_string(record);
    if (first == end) {
        if (std::binary_search(sorted.begin(), sorted.end(), comparable))
            ++leftOut;
        else
            faults.push_back(name + " has no key, it should be " + Quoted(made));
        return;
    }
    bool found = false;
    for (; first != end; ++first) {
        const std::string& key = (*first)->key;
        std::string where = " on page " + std::to_string((*first)->page);
        if (Comparable(key) != comparable)
            faults.push_back(name + " has the key " + Quoted(key) + where + ", it should be " + Quoted(made));
        else if (found)
            faults.push_back(name + " has its key " + Quoted(made) + " once more" + where);
        else if (key != made)
            ++otherForms;
        if (Comparable(key) == comparable) found = true;
    }
}

void IndexCheck::CompareWithRecords() {
    Data& data = *index.data();
    uint32_t records = data.count();
    Places byRecord;
    for (const pages::Entry& entry : index.entries()) byRecord.push_back(&entry);
    std::stable_sort(byRecord.begin(), byRecord.end(),
                     [](const pages::Entry* a, const pages::Entry* b) { return a->record < b->record; });
    LookForStrangers(byRecord, records);
    if (index.survey().unique) LookForEqualKeys();
    try {
        Index calls(index.format(), index.path(), index.tag(), index.type(), false);
        auto place = byRecord.cbegin();
        Progress progress("checking", records);
        for (uint32_t record = 1; record <= records; ++record) {
            data.Read(record);
            while (place != byRecord.cend() && (*place)->record < record) ++place;
            auto first = place;
            while (place != byRecord.cend() && (*place)->record == record) ++place;
            CompareRecord(calls, record, first, place);
            progress.At(record);
        }
    } catch (const Failure& failure) {
        faults.push_back(std::string("the records can't be compared: ") + failure.what());
    }
    if (leftOut > 0)
        notes.push_back(Count(leftOut, "record") + (leftOut == 1 ? " has" : " have") +
                        " no key, since another record has the same in this unique index");
    if (otherForms > 0 && index.type() == 'D')
        notes.push_back(Count(otherForms, "blank date") + (otherForms == 1 ? " stands" : " stand") +
                        " in a form that a build gives them, and that no search for a blank date finds");
    else if (otherForms > 0)
        notes.push_back(Count(otherForms, "number") + (otherForms == 1 ? " stands" : " stand") +
                        " in a form that a build gives negative ones, and that doesn't sort by size");
}

void IndexCheck::Show(Output& output) const {
    const pages::Survey& survey = index.survey();
    auto line = [&](const char* kind, const std::string& text) {
        output.Write(kind);
        output.Write(": " + text + "\n");
    };
    std::string expression;
    index.codec().Decode(survey.expression, expression);
    for (const std::string& fault : faults) line("fault", fault);
    for (const std::string& note : notes) line("note", note);
    output.Write(index.title() + ": " + survey.format + " on " + expression + ", " +
                 Count(survey.keys, "key") + " in " + Count(survey.pages, "page") + ", " +
                 Count(static_cast<uint64_t>(survey.levels), "level") +
                 (survey.freePages > 0 ? ", " + Count(survey.freePages, "free page") : "") + ": " +
                 (faults.empty() ? "clean" : Count(faults.size(), "fault")) + "\n");
}

Json IndexCheck::ToJson() const {
    const pages::Survey& survey = index.survey();
    std::string expression;
    index.codec().Decode(survey.expression, expression);
    Json all;
    if (!index.tag().empty()) all["tag"] = index.tag();
    all["format"] = survey.format;
    all["expression"] = expression;
    all["keys"] = survey.keys;
    all["pages"] = survey.pages;
    all["freePages"] = survey.freePages;
    all["levels"] = survey.levels;
    all["clean"] = faults.empty();
    all["faults"] = faults;
    all["notes"] = notes;
    return all;
}

IndexFindings IndexCheck::TakeFindings() {
    const pages::Survey& survey = index.survey();
    IndexFindings found{index.tag(), {}, survey, survey.faults.size() + survey.hazards.size(), faults, notes};
    index.codec().Decode(survey.expression, found.expression);
    return found;
}

// All tags of a file are looked at, since they share its pages; where one is
// named, only its keys are compared with the records.
void Run(const Options& options) {
    const IndexFormat& format = FormatOf(options.index.index);
    std::string path = FindFile(options.index.index);
    std::string named = options.index.tag.empty() ? "" : FindTag(format, path, options.index.tag);
    std::vector<std::string> tags{""}, fileFaults;
    if (format.tags != nullptr) {
        try {
            tags = format.tags(path);
            fileFaults = format.fileFaults(path);
        } catch (const pages::NotAnIndex& error) {
            throw Failure(Exit::damaged, path + ": no " + format.name + " index; " + error.what());
        }
    }
    Output output;
    size_t faults = fileFaults.size();
    Json parts = Json::array();
    for (const std::string& fault : fileFaults)
        if (!options.json) output.Write("fault: " + fault + "\n");
    for (const std::string& tag : tags) {
        IndexOptions one = options.index;
        one.tag = tag;
        IndexPages pages(one);
        IndexCheck check(pages);
        if (named.empty() || named == tag) check.CompareWithRecords();
        faults += check.faultCount();
        if (options.json)
            parts.push_back(check.ToJson());
        else
            check.Show(output);
    }
    if (options.json) {
        Json all{{"file", path}};
        if (format.tags == nullptr) {
            all.update(parts[0]);
        } else {
            all["clean"] = faults == 0;
            all["faults"] = fileFaults;
            all["tags"] = parts;
        }
        output.Write(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    }
    output.Finish();
    if (faults > 0) throw Failure(Exit::damaged, path + ": " + Count(faults, "fault"));
}

}  // namespace

IndexFindings FindInIndex(const IndexOptions& options) {
    IndexPages pages(options);
    IndexCheck check(pages);
    if (pages.data() != nullptr) check.CompareWithRecords();
    return check.TakeFindings();
}

namespace {

constexpr const char* kFooter =
    "Reads every page without the library: the order of the keys, the counts, the\n"
    "links, the keys above the leaves, free pages, pages reached twice or never. Then\n"
    "makes each record's key anew and looks for it. Of an MDX file all tags are checked\n"
    "and the free list that they share; with --tag the keys of that one are compared.\n"
    "Faults end in exit status 4; notes tell what is odd and allowed.\n"
    "\n"
    "Examples:\n"
    "  zb index check people.dbf name.ndx\n"
    "  zb index check people.dbf people.mdx --json\n";

}  // namespace

void AddIndexCheck(CLI::App& index) {
    auto options = std::make_shared<Options>();
    options->index.lock = true;
    Command command(index, "check", "Check an index's pages, and its keys against the table");
    command.Positional("FILE", options->index.data, "The table");
    AddIndexName(command, options->index);
    command.Flag("--json", options->json, "As one JSON object");
    AddIndexOptions(command, options->index);
    command.Footer(kFooter);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
