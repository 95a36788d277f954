// zb index info and zb index list: what an index's pages hold.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "files.h"
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
Failure DamageFailure(const std::string& title, const std::string& fault) {
    return Failure(Exit::damaged, title + ": " + DescribeCode(ZB_ErrStructure) + ": " + fault +
                                      " (zb index check tells all)");
}

void Report(const IndexPages& pages) {
    const std::vector<std::string>& faults = pages.survey().faults;
    if (!faults.empty()) throw DamageFailure(pages.title(), faults[0]);
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

void Tags(const Options& options) {
    std::string path = FindFile(options.index.index);
    const IndexFormat& format = FormatOf(path);
    if (format.tags == nullptr) throw Failure(Exit::usage, path + ": tags are in MDX files");
    pages::MdxSurvey file;
    try {
        file = pages::SurveyMdx(path);
    } catch (const pages::NotAnIndex& error) {
        throw Failure(Exit::damaged, path + ": no MDX index; " + error.what());
    }
    Output output;
    Codec codec(ChooseEncoding(options.index.text.encoding, 0, path).name, BadText::replace);
    std::unique_ptr<Table> table;
    if (!options.json)
        table = std::make_unique<Table>(
            output, std::vector<Column>{
                        {"TAG"}, {"TYPE"}, {"LENGTH", true}, {"KEYS", true}, {"UNIQUE"}, {"EXPRESSION"}});
    for (const pages::TagSurvey& tag : file.tags) {
        std::string expression;
        codec.Decode(tag.tree.expression, expression);
        if (options.json) {
            nlohmann::ordered_json one{{"tag", tag.name},
                                       {"type", std::string(1, tag.type)},
                                       {"keyLength", tag.tree.keyLength},
                                       {"keys", tag.tree.keys},
                                       {"unique", tag.tree.unique},
                                       {"expression", expression}};
            output.Write(one.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
            continue;
        }
        AppendPrintable(tag.name, table->Cell(0));
        table->Cell(1) = tag.type;
        table->Cell(2) = std::to_string(tag.tree.keyLength);
        table->Cell(3) = std::to_string(tag.tree.keys);
        table->Cell(4) = tag.tree.unique ? "yes" : "";
        AppendPrintable(expression, table->Cell(5));
        table->EndRow();
    }
    if (table) table->Finish();
    output.Finish();
    std::vector<std::string> faults = file.AllFaults();
    if (!faults.empty()) throw DamageFailure(path, faults[0]);
}

}  // namespace

void AddIndexInfo(CLI::App& index) {
    auto options = std::make_shared<Options>();
    Command command(index, "info", "Show an index's expression, keys and pages");
    AddIndexName(command, options->index);
    command.Option("--data", options->index.data, "The table: tells the type of the keys");
    command.Flag("--json", options->json, "As one JSON object");
    AddIndexOptions(command, options->index);
    command.Examples(
        "  zb index info name.ndx\n"
        "  zb index info people.mdx --tag NAME --json\n");
    command.Run([options] { Info(*options); });
}

void AddIndexList(CLI::App& index) {
    auto options = std::make_shared<Options>();
    Command command(index, "list", "List an index's keys and record numbers in order");
    AddIndexName(command, options->index);
    command.Option("--data", options->index.data, "The table: shows the records too");
    command.List("--fields", options->fields, "Fields to show, in this order: NAME,BORN (default: all)");
    command.Flag("--reverse", options->reverse, "From the last key to the first");
    command.Option("--limit", options->limit, "At most so many entries");
    command.Flag("--json", options->json, "As JSON, one object a line");
    AddIndexOptions(command, options->index);
    command.Footer(
        "Keys are read from the pages themselves, packed ones of compact IDX files too.\n"
        "\n"
        "Examples:\n"
        "  zb index list name.ndx --limit 10\n"
        "  zb index list born.ndx --type D --reverse --json\n"
        "  zb index list name.ndx --data people.dbf --fields NAME,BORN\n");
    command.Run([options] { List(*options); });
}

void AddIndexTags(CLI::App& index) {
    auto options = std::make_shared<Options>();
    Command command(index, "tags", "List the tags of an MDX file");
    AddIndexName(command, options->index);
    command.Flag("--json", options->json, "As JSON, one object a line");
    command.Examples("  zb index tags people.mdx\n");
    command.Run([options] { Tags(*options); });
}

}  // namespace tool
