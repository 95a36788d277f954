// zb set: other values in a record.
#include <memory>

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
    bool loose = false;
};

void Run(const Options& options) {
    std::vector<Assignment> assignments = ParseAssignments(options.values);
    Data data(options.file, Access::write, options.open);
    RequireRecord(data, options.record);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    data.LockRecord(options.record);
    bool deleted = data.Read(options.record);
    Assign(data, assignments, codec, options.loose, options.text);
    data.Update(options.record);
    // An update makes a record live; one that was deleted stays so.
    if (deleted) data.Delete(options.record);
    data.UnlockRecord(options.record);
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
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
