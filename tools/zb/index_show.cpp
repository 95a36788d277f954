// zb index info and zb index list: what an index's pages hold.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "index.h"
#include "index_commands.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    IndexOptions index;
    std::vector<std::string> fields;
    uint64_t limit = UINT64_MAX;
    bool reverse = false;
    bool json = false;
};

// What is shown is what could be read; that it isn't all has to be told.
void Report(const IndexPages& pages) {
    const std::vector<std::string>& faults = pages.survey().faults;
    if (faults.empty()) return;
    throw Failure(Exit::damaged, pages.title() + ": " + DescribeCode(ZB_ErrStructure) + ": " + faults[0] +
                                     " (zb index check tells all)");
}

void Info(const Options& options) {
    IndexPages pages(options.index);
    const pages::Survey& survey = pages.survey();
    Value expression;
    expression.kind = Kind::text;
    pages.codec().Decode(survey.expression, expression.text);
    uint64_t length = std::filesystem::file_size(pages.path());
    Output output;
    if (options.json) {
        nlohmann::ordered_json info{{"file", pages.path()}};
        if (!pages.tag().empty()) info["tag"] = pages.tag();
        info["format"] = survey.format;
        info["expression"] = expression.text;
        info["type"] = pages.typeName();
        info["keyLength"] = survey.keyLength;
        info["unique"] = survey.unique;
        info["keys"] = survey.keys;
        info["pages"] = survey.pages;
        info["freePages"] = survey.freePages;
        info["levels"] = survey.levels;
        info["fileLength"] = length;
        output.Write(info.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    } else {
        auto line = [&](const std::string& title, const std::string& value) {
            output.Write(title + std::string(12 - title.size(), ' '));
            AppendPrintable(value, output.buffer());
            output.Write("\n");
        };
        line("file", pages.path());
        if (!pages.tag().empty()) line("tag", pages.tag());
        line("format", survey.format);
        line("expression", expression.text);
        line("type", pages.typeName() + ", " + Count(static_cast<uint64_t>(survey.keyLength), "byte") +
                         (survey.unique ? ", unique" : ""));
        line("keys", std::to_string(survey.keys));
        line("pages", std::to_string(survey.pages) + " (" + std::to_string(survey.freePages) + " free)");
        line("levels", std::to_string(survey.levels));
        line("length", Count(length, "byte"));
    }
    output.Finish();
    Report(pages);
}

void List(const Options& options) {
    IndexPages pages(options.index);
    EntryList list(pages, options.json, options.fields);
    uint64_t count = std::min<uint64_t>(options.limit, pages.entries().size());
    for (uint64_t number = 0; number < count; ++number)
        list.Show(pages.entries()[options.reverse ? pages.entries().size() - 1 - number : number]);
    list.Finish();
    Report(pages);
}

}  // namespace

void AddIndexInfo(CLI::App& index) {
    auto options = std::make_shared<Options>();
    CLI::App* command = index.add_subcommand("info", "Show an index's expression, keys and pages");
    AddIndexOptions(*command, options->index);
    command->add_option("--data", options->index.data, "The table: tells the type of the keys");
    command->add_flag("--json", options->json, "As one JSON object");
    command->callback([options] { Info(*options); });
}

void AddIndexList(CLI::App& index) {
    auto options = std::make_shared<Options>();
    CLI::App* command = index.add_subcommand("list", "List an index's keys and record numbers in order");
    AddIndexOptions(*command, options->index);
    command->add_option("--data", options->index.data, "The table: shows the records too");
    command->add_option("--fields", options->fields, "Fields to show, in this order (default: all)")
        ->delimiter(',');
    command->add_flag("--reverse", options->reverse, "From the last key to the first");
    command->add_option("--limit", options->limit, "At most so many entries");
    command->add_flag("--json", options->json, "As JSON, one object a line");
    command->footer(
        "Examples:\n"
        "  zb index list name.ndx --limit 10\n"
        "  zb index list born.ndx --type D --reverse --json\n"
        "  zb index list name.ndx --data people.dbf --fields NAME,BORN\n");
    command->callback([options] { List(*options); });
}

}  // namespace tool
