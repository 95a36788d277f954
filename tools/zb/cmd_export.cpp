// zb export: a table's records for other programs.
#include <filesystem>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "output.h"
#include "rows.h"
#include "sql.h"
#include "terminal.h"

namespace tool {
namespace {

enum class Format { csv, json, jsonLines, sqlite, postgres };

struct Options {
    std::string file;
    ScanOptions scan;
    Format format = Format::csv;
    std::string output;
    std::string delimiter = ",";
    std::string table;
    bool noHeader = false;
    bool noCreate = false;
    bool force = false;
};

// The table's name there is its file's name here.
void WriteSql(Scan& scan, const Options& options, Output& output, Progress& progress) {
    SqlOptions sql;
    sql.dialect = options.format == Format::sqlite ? SqlDialect::sqlite : SqlDialect::postgres;
    sql.table = options.table.empty() ? std::filesystem::path(options.file).stem().string() : options.table;
    sql.addToOne = options.noCreate;
    SqlWriter writer(scan, sql, output);
    writer.Begin();
    while (scan.Next()) {
        writer.Record();
        progress.At(scan.record());
    }
    writer.End();
}

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
    if (options.format == Format::sqlite || options.format == Format::postgres)
        return WriteSql(scan, options, output, progress);
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
    Command command(app, "export", "Write a table's records as CSV, JSON or SQL, in UTF-8");
    command.Positional("FILE", options->file, "The table");
    command.Choice("--format", options->format,
                   {{"csv", Format::csv},
                    {"json", Format::json},
                    {"jsonl", Format::jsonLines},
                    {"sqlite", Format::sqlite},
                    {"postgres", Format::postgres}},
                   "CSV, one JSON array, a JSON object a line, or SQL (default: csv)");
    command.File("-o,--output", options->output, "The file to write (default: standard output)");
    command.Flag("--force", options->force, "Replace the output file if it exists");
    command.Option("--delimiter", options->delimiter,
                   "Between the values of CSV: one character, or tab (default: ,)");
    command.Flag("--no-header", options->noHeader, "CSV without the line of names");
    command.Option("--table", options->table, "The table's name in SQL (default: that of the file)");
    command.Flag("--no-create", options->noCreate, "SQL for a table that is there");
    AddScanOptions(command, options->scan);
    command.Footer(
        "SQL comes as one transaction. For PostgreSQL it is a COPY for psql, with names in lower\n"
        "case and numbers as numeric. For SQLite numbers of more than 15 places come as text,\n"
        "since it would round them.\n");
    command.Examples(
        "  zb export people.dbf -o people.csv\n"
        "  zb export people.dbf --format jsonl --fields NAME,BORN | head\n"
        "  zb export people.dbf --format sqlite | sqlite3 people.db\n"
        "  zb export people.dbf --format postgres | psql mydb\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
