// zb create: a new table without records.
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "schema.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string schema;
    int dialect = 0;
    bool force = false;
};

void Run(const Options& options) {
    std::vector<Field> fields = ParseSchema(options.schema);
    MayReplace(options.file, options.force);
    PartFile part(options.file);
    CreateTable(part.path(), fields, options.dialect);
    part.Commit();
    Say(options.file + ": created with " + Count(fields.size(), "field"));
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
    command.Flag("--force", options->force, "Replace the file if it exists");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
