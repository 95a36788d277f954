// zb index check: an index's pages against the rules of its format, and its
// keys against the table's records.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "index.h"
#include "index_commands.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    IndexOptions index;
    bool json = false;
};

class IndexCheck {
  public:
    explicit IndexCheck(IndexPages& indexPages) : index(indexPages), faults(indexPages.survey().faults) {
        const pages::Survey& survey = index.survey();
        faults.insert(faults.end(), survey.hazards.begin(), survey.hazards.end());
        notes = survey.notes;
    }

    void CompareWithRecords();
    void Show(Output& output) const;
    void ShowJson(Output& output) const;
    size_t faultCount() const { return faults.size(); }

  private:
    using Places = std::vector<const pages::Entry*>;

    void LookForStrangers(const Places& byRecord, uint32_t records);
    void CompareRecord(Index& calls, uint32_t record, Places::const_iterator first,
                       Places::const_iterator end);
    bool StandsElsewhere(const std::string& key) const;
    std::string Quoted(const std::string& key) const;
    std::string Summary() const;

    IndexPages& index;
    std::vector<std::string> faults;
    std::vector<std::string> notes;
    std::vector<std::string> sorted;  // all keys of a unique index, as bytes
    uint64_t leftOut = 0;
};

std::string IndexCheck::Quoted(const std::string& key) const {
    std::string text = "'";
    AppendPrintable(index.Read(key).text, text);
    return text + "'";
}

// Keys whose record number no record has.
void IndexCheck::LookForStrangers(const Places& byRecord, uint32_t records) {
    for (const pages::Entry* entry : byRecord)
        if (entry->record < 1 || entry->record > records)
            faults.push_back("key " + Quoted(entry->key) + " on page " + std::to_string(entry->page) +
                             " is of record " + std::to_string(entry->record) + ", which isn't there");
}

bool IndexCheck::StandsElsewhere(const std::string& key) const {
    return std::binary_search(sorted.begin(), sorted.end(), key);
}

void IndexCheck::CompareRecord(Index& calls, uint32_t record, Places::const_iterator first,
                               Places::const_iterator end) {
    std::string made = calls.Make(*index.data());
    std::string name = "record " + std::to_string(record);
    if (first == end) {
        if (index.survey().unique && StandsElsewhere(made))
            ++leftOut;
        else
            faults.push_back(name + " has no key, it should be " + Quoted(made));
        return;
    }
    bool found = false;
    for (; first != end; ++first) {
        std::string where = " on page " + std::to_string((*first)->page);
        if ((*first)->key != made)
            faults.push_back(name + " has the key " + Quoted((*first)->key) + where + ", it should be " +
                             Quoted(made));
        else if (found)
            faults.push_back(name + " has its key " + Quoted(made) + " once more" + where);
        else
            found = true;
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
    if (index.survey().unique) {
        for (const pages::Entry& entry : index.entries()) sorted.push_back(entry.key);
        std::sort(sorted.begin(), sorted.end());
        uint64_t repeated = 0;
        for (size_t number = 1; number < sorted.size(); ++number)
            if (sorted[number] == sorted[number - 1]) ++repeated;
        if (repeated > 0)
            notes.push_back("the index is marked as unique and holds " + Count(repeated, "key") +
                            " beyond the first of its kind; the library adds them all the same");
    }
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
}

std::string IndexCheck::Summary() const {
    const pages::Survey& survey = index.survey();
    return index.title() + ": " + survey.format + " on " + survey.expression + ", " +
           Count(survey.keys, "key") + " in " + Count(survey.pages, "page") + ", " +
           Count(static_cast<uint64_t>(survey.levels), "level") +
           (survey.freePages > 0 ? ", " + Count(survey.freePages, "free page") : "") + ": ";
}

void IndexCheck::Show(Output& output) const {
    for (const std::string& fault : faults) output.Write("fault: " + fault + "\n");
    for (const std::string& note : notes) output.Write("note: " + note + "\n");
    output.Write(Summary() + (faults.empty() ? "clean" : Count(faults.size(), "fault")) + "\n");
}

void IndexCheck::ShowJson(Output& output) const {
    const pages::Survey& survey = index.survey();
    nlohmann::ordered_json all{{"file", index.path()}};
    if (!index.tag().empty()) all["tag"] = index.tag();
    all["format"] = survey.format;
    all["expression"] = survey.expression;
    all["keys"] = survey.keys;
    all["pages"] = survey.pages;
    all["freePages"] = survey.freePages;
    all["levels"] = survey.levels;
    all["clean"] = faults.empty();
    all["faults"] = faults;
    all["notes"] = notes;
    output.Write(all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
}

void Run(const Options& options) {
    IndexPages pages(options.index);
    IndexCheck check(pages);
    check.CompareWithRecords();
    Output output;
    if (options.json)
        check.ShowJson(output);
    else
        check.Show(output);
    output.Finish();
    if (check.faultCount() > 0)
        throw Failure(Exit::damaged, pages.title() + ": " + Count(check.faultCount(), "fault"));
}

constexpr const char* kFooter =
    "Reads every page without the library: the order of the keys, the counts, the\n"
    "links, the keys above the leaves, free pages, pages reached twice or never. Then\n"
    "makes each record's key anew and looks for it. Faults end in exit status 4; notes\n"
    "tell what is odd and allowed.\n"
    "\n"
    "Examples:\n"
    "  zb index check people.dbf name.ndx\n"
    "  zb index check people.dbf name.ndx --json\n";

}  // namespace

void AddIndexCheck(CLI::App& index) {
    auto options = std::make_shared<Options>();
    options->index.lock = true;
    CLI::App* command =
        index.add_subcommand("check", "Check an index's pages, and its keys against the table");
    command->add_option("FILE", options->index.data, "The table")->required();
    AddIndexOptions(*command, options->index);
    command->add_flag("--json", options->json, "As one JSON object");
    command->footer(kFooter);
    command->callback([options] { Run(*options); });
}

}  // namespace tool
