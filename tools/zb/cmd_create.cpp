// zb create: a new table without records, and its memo file.
#include <memory>
#include <optional>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "memo.h"
#include "schema.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string schema;
    std::string memo;
    int dialect = 0;
    bool force = false;
};

void Run(const Options& options) {
    std::vector<Field> fields = ParseSchema(options.schema);
    MayReplace(options.file, options.force);
    int dialect = options.dialect != 0 ? options.dialect : FittingDialect(fields);
    std::optional<PartFile> memo;
    std::string memoName;
    if (HasMemoField(fields)) {
        memoName = MemoNameFor(options.file, dialect, options.memo);
        MayReplace(memoName, options.force);
        memo.emplace(memoName);
    }
    PartFile part(options.file);
    CreateTable(part.path(), fields, options.dialect);
    if (memo) CreateMemoFile(memo->path(), dialect);
    if (memo) memo->Commit();
    part.Commit();
    Say(options.file + ": created with " + Count(fields.size(), "field") +
        (memo ? ", and " + memoName + " for its memos" : ""));
}

}  // namespace

void AddCreate(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "create", "Make a table without records");
    command.Positional("FILE", options->file, "The table");
    command.Option("--schema", options->schema,
                   "The fields, needed: \"NAME:C20,BORN:D,AMOUNT:N10.2,PAID:L\"");
    command.Option("--dialect", options->dialect, 1, 9,
                   "Dialect (default: the simplest that holds the fields)");
    command.File("--memo", options->memo,
                 "The memo file of a table with memo fields (default: beside it, .DBT or .FPT)");
    command.Flag("--force", options->force, "Replace the file if it exists");
    command.Footer(
        "Types: C text, N number and F floating number with a width and decimals, D date,\n"
        "L logical, M memo.\n");
    command.Examples(
        "  zb create people.dbf --schema NAME:C20,BORN:D,AMOUNT:N10.2,PAID:L,NOTE:M\n"
        "  zb create rates.dbf --schema RATE:F20.6 --dialect 2\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
