// zb list: records as an aligned table, or as JSON lines.
#include <algorithm>
#include <memory>

#include "commands.h"
#include "rows.h"
#include "table.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    ScanOptions scan;
    bool json = false;
    bool full = false;
};

void ListJson(Scan& scan, Output& output) {
    while (scan.Next()) {
        AppendJsonRecord(scan, true, output.buffer());
        output.buffer() += '\n';
        output.Breathe();
    }
}

// As much of a memo as a line of a table has room for.
std::string FirstLine(const std::string& text) {
    constexpr size_t kColumns = 50;
    size_t end = std::min(text.find_first_of("\r\n"), text.size());
    while (DisplayWidth({text.data(), end}) > kColumns) end = WholeCharacters(text, end - 1);
    // What only ends the line is no loss.
    bool more = text.find_first_not_of("\r\n", end) != std::string::npos;
    return text.substr(0, end) + (more ? "\u2026" : "");
}

void ListTable(Scan& scan, bool full, Output& output) {
    std::vector<Column> columns{{"#", true}};
    if (scan.showsDeletion()) columns.push_back({"*"});
    size_t first = columns.size();
    for (size_t column = 0; column < scan.columns().size(); ++column) {
        char type = scan.columns()[column].type;
        columns.push_back({"", type == 'N' || type == 'F' || (type == 'M' && !scan.showsMemos())});
        AppendPrintable(scan.titles()[column], columns.back().title);
    }
    Table table(output, columns);
    while (scan.Next()) {
        table.Cell(0) = std::to_string(scan.record());
        if (scan.showsDeletion() && scan.isDeleted()) table.Cell(1) = "*";
        for (size_t column = 0; column < scan.columns().size(); ++column) {
            const std::string& text = scan.Get(column).text;
            bool cut = scan.columns()[column].type == 'M' && !full;
            AppendPrintable(cut ? FirstLine(text) : text, table.Cell(first + column));
        }
        table.EndRow();
    }
    table.Finish();
}

void Run(const Options& options) {
    Data data(options.file, Access::read, options.scan.open);
    Scan scan(data, options.scan);
    Output output;
    if (options.json)
        ListJson(scan, output);
    else
        ListTable(scan, options.full, output);
    output.Finish();
    scan.Report();
}

}  // namespace

void AddList(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "list", "List a table's records");
    command.Positional("FILE", options->file, "The table");
    command.Flag("--json", options->json, "As JSON, one object a line");
    command.Flag("--full", options->full, "All of a memo's text, and not only its first line");
    AddScanOptions(command, options->scan);
    command.Examples(
        "  zb list people.dbf\n"
        "  zb list people.dbf --records 10-20 --fields NAME,BORN\n"
        "  zb list people.dbf --deleted only --json\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
