// zb export: a table's records for other programs.
#include <map>

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
    static const std::map<std::string, Format> formats{
        {"csv", Format::csv}, {"json", Format::json}, {"jsonl", Format::jsonLines}};
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("export", "Write a table's records as CSV or JSON, in UTF-8");
    command->add_option("FILE", options->file, "The table")->required();
    command
        ->add_option("--format", options->format,
                     "csv, json (an array) or jsonl (an object a line; default: csv)")
        ->transform(CLI::CheckedTransformer(formats))
        ->option_text("csv|json|jsonl");
    command->add_option("-o,--output", options->output, "The file to write (default: standard output)");
    command->add_flag("--force", options->force, "Replace the output file if it exists");
    command->add_option("--delimiter", options->delimiter,
                        "Between the values of CSV: one character, or tab (default: ,)");
    command->add_flag("--no-header", options->noHeader, "CSV without the line of names");
    AddScanOptions(*command, options->scan);
    command->callback([options] { Run(*options); });
}

}  // namespace tool
