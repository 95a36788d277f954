// zb export: a table's records for other programs.
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "output.h"
#include "rows.h"
#include "terminal.h"

namespace tool {
namespace {

enum class Format { csv, json, jsonLines };

struct Options {
    std::string file;
    ScanOptions scan;
    Format format = Format::csv;
    std::string output;
    std::string delimiter = ",";
    bool noHeader = false;
    bool force = false;
};

void Write(Scan& scan, const Options& options, Output& output) {
    Progress progress("exporting", scan.span());
    std::string& out = output.buffer();
    if (options.format == Format::csv) {
        char delimiter = ParseDelimiter(options.delimiter);
        if (!options.noHeader) AppendCsvTitles(scan, delimiter, out);
        while (scan.Next()) {
            AppendCsvRecord(scan, delimiter, out);
            output.Breathe();
            progress.At(scan.record());
        }
        return;
    }
    bool array = options.format == Format::json;
    const char* between = array ? "[\n" : "";
    while (scan.Next()) {
        out += between;
        between = array ? ",\n" : "\n";
        AppendJsonRecord(scan, false, out);
        output.Breathe();
        progress.At(scan.record());
    }
    if (array) out += *between == '[' ? "[]" : "\n]";
    if (array || *between == '\n') out += '\n';
}

void Run(const Options& options) {
    Data data(options.file, Access::read, options.scan.open);
    Scan scan(data, options.scan);
    bool toFile = !options.output.empty() && options.output != "-";
    if (toFile) MayReplace(options.output, options.force);
    std::unique_ptr<Output> output =
        toFile ? std::make_unique<Output>(options.output) : std::make_unique<Output>();
    Write(scan, options, *output);
    output->Finish();
    scan.Report();
}

}  // namespace

void AddExport(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "export", "Write a table's records as CSV or JSON, in UTF-8");
    command.Positional("FILE", options->file, "The table");
    command.Choice("--format", options->format,
                   {{"csv", Format::csv}, {"json", Format::json}, {"jsonl", Format::jsonLines}},
                   "CSV, one JSON array, or a JSON object a line (default: csv)");
    command.Option("-o,--output", options->output, "The file to write (default: standard output)");
    command.Flag("--force", options->force, "Replace the output file if it exists");
    command.Option("--delimiter", options->delimiter,
                   "Between the values of CSV: one character, or tab (default: ,)");
    command.Flag("--no-header", options->noHeader, "CSV without the line of names");
    AddScanOptions(command, options->scan);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
