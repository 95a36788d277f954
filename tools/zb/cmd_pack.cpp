// zb pack: removes deleted records for good.
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "options.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::vector<std::string> files;
    OpenOptions open;
};

void Pack(const std::string& file, const Options& options) {
    Data data(file, Access::exclusive, options.open);
    Encoding encoding = ChooseEncoding("", data.header().language, data.path());
    bool indexed = data.header().production == 1;
    std::string backup = WithExtension(data.path(), ".BAK");
    uint32_t before = data.count();
    try {
        data.Pack();
    } catch (const Failure& failure) {
        std::string state =
            Exists(data.path()) ? "; the table is as it was" : "; its records are in " + backup;
        throw Failure(failure.status, failure.what() + state);
    }
    uint32_t after = data.count();
    data.Close();
    Say(data.path() + ": packed from " + Count(before, "record") + " to " + std::to_string(after) +
        "; the old file is kept as " + backup);
    // Pack writes a header of its own, where the language byte is 0.
    if (data.header().language != 0) StateEncoding(data.path(), encoding);
    if (indexed) Say(data.path() + ": its indexes are out of date now (zb repair makes them anew)");
}

void Run(const Options& options) {
    for (const std::string& file : ExpandNames(options.files)) Pack(file, options);
}

}  // namespace

void AddPack(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "pack", "Remove deleted records for good; the old file stays as .BAK");
    command.Rest("FILE", options->files, "Tables; directories and patterns, too");
    AddOpenOptions(command, options->open);
    command.Examples("  zb pack people.dbf\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
