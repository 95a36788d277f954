// zb create: a new table without records.
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
    CLI::App* command = app.add_subcommand("create", "Make a table without records");
    command->add_option("FILE", options->file, "The table")->required();
    command->add_option("--schema", options->schema, "The fields: \"NAME:C20,BORN:D,AMOUNT:N10.2,PAID:L\"")
        ->required();
    command
        ->add_option("--dialect", options->dialect,
                     "Dialect 1 to 9 (default: the simplest that holds the fields)")
        ->check(CLI::Range(1, 9));
    command->add_flag("--force", options->force, "Replace the file if it exists");
    command->callback([options] { Run(*options); });
}

}  // namespace tool
