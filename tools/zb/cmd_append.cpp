// zb append: one record more.
#include <memory>

#include "assign.h"
#include "commands.h"
#include "options.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::vector<std::string> values;
    OpenOptions open;
    TextOptions text{{}, BadText::refuse};
    std::string memo;
    bool loose = false;
};

void Run(const Options& options) {
    std::vector<Assignment> assignments = ParseAssignments(options.values);
    Data data(options.file, Access::write, options.open);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    Assigner assigner(data, assignments, codec);
    if (assigner.hasMemos()) assigner.OpenMemos(options.memo, options.open.wait);
    data.Clear();
    assigner.Assign(options.loose, options.text);
    if (!assigner.hasMemos()) data.LockForAppend();
    uint32_t record = data.Append();
    if (!assigner.hasMemos()) data.UnlockForAppend();
    data.Close();
    Say(data.path() + ": added record " + std::to_string(record));
}

}  // namespace

void AddAppend(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "append", "Add a record");
    command.Positional("FILE", options->file, "The table");
    command.Rest("FIELD=VALUE", options->values, "The record's values; other fields stay blank", true);
    command.Flag("--loose", options->loose, "Store values that don't fit as they fit");
    command.File("--memo", options->memo, "The memo file (default: beside the table, .DBT or .FPT)");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Footer("A memo field takes its text, which goes to the memo file.\n");
    command.Examples(
        "  zb append people.dbf NAME=Smith BORN=1970-01-01 AMOUNT=12.50\n"
        "  zb append people.dbf NAME=Jones 'NOTE=Called twice.'\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
