// zb append: one record more.
#include <memory>

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
    bool loose = false;
};

void Run(const Options& options) {
    std::vector<Assignment> assignments = ParseAssignments(options.values);
    Data data(options.file, Access::write, options.open);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    data.Clear();
    Assign(data, assignments, codec, options.loose, options.text);
    data.LockForAppend();
    uint32_t record = data.Append();
    data.UnlockForAppend();
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
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
