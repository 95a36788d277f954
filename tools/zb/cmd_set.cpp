// zb set: other values in a record.
#include <memory>

#include "assign.h"
#include "commands.h"
#include "failure.h"
#include "options.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    uint32_t record = 0;
    std::vector<std::string> values;
    OpenOptions open;
    TextOptions text{{}, BadText::refuse};
    std::string memo;
    bool loose = false;
};

void Run(const Options& options) {
    std::vector<Assignment> assignments = ParseAssignments(options.values);
    Data data(options.file, Access::write, options.open);
    RequireRecord(data, options.record);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    Assigner assigner(data, assignments, codec);
    if (assigner.hasMemos())
        assigner.OpenMemos(options.memo, options.open.wait);
    else
        data.LockRecord(options.record);
    bool deleted = data.Read(options.record);
    assigner.Assign(options.loose, options.text);
    data.Update(options.record);
    // An update makes a record live; one that was deleted stays so.
    if (deleted) data.Delete(options.record);
    if (!assigner.hasMemos()) data.UnlockRecord(options.record);
    data.Close();
    Say(data.path() + ": changed record " + std::to_string(options.record) +
        (deleted ? ", which is deleted" : ""));
}

}  // namespace

void AddSet(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "set", "Change values of a record");
    command.Positional("FILE", options->file, "The table");
    command.Positional("RECORD", options->record, "The record's number, from 1");
    command.Rest("FIELD=VALUE", options->values, "The new values; nothing behind the = makes a field blank");
    command.Flag("--loose", options->loose, "Store values that don't fit as they fit");
    command.File("--memo", options->memo, "The memo file (default: beside the table, .DBT or .FPT)");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Footer("A memo field takes its text, which goes to the memo file.\n");
    command.Examples(
        "  zb set people.dbf 3 NAME=Smyth AMOUNT=\n"
        "  zb set people.dbf 3 'NOTE=Called twice.'\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
