// zb list: records as an aligned table, or as JSON lines.
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
};

void ListJson(Scan& scan, Output& output) {
    while (scan.Next()) {
        AppendJsonRecord(scan, true, output.buffer());
        output.buffer() += '\n';
        output.Breathe();
    }
}

void ListTable(Scan& scan, Output& output) {
    std::vector<Column> columns{{"#", true}};
    if (scan.showsDeletion()) columns.push_back({"*"});
    size_t first = columns.size();
    for (size_t column = 0; column < scan.columns().size(); ++column) {
        char type = scan.columns()[column].type;
        columns.push_back({"", type == 'N' || type == 'F' || type == 'M'});
        AppendPrintable(scan.titles()[column], columns.back().title);
    }
    Table table(output, columns);
    while (scan.Next()) {
        table.Cell(0) = std::to_string(scan.record());
        if (scan.showsDeletion() && scan.isDeleted()) table.Cell(1) = "*";
        for (size_t column = 0; column < scan.columns().size(); ++column)
            AppendPrintable(scan.Get(column).text, table.Cell(first + column));
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
        ListTable(scan, output);
    output.Finish();
    scan.Report();
}

}  // namespace

void AddList(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "list", "List a table's records");
    command.Positional("FILE", options->file, "The table");
    command.Flag("--json", options->json, "As JSON, one object a line");
    AddScanOptions(command, options->scan);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
