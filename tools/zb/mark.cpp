#include "mark.h"

#include <algorithm>
#include <memory>

#include "failure.h"
#include "options.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::vector<std::string> records;
    OpenOptions open;
    bool deletes = false;
};

void Run(const Options& options) {
    std::vector<Range> ranges;
    for (const std::string& text : options.records) ranges.push_back(ParseRange(text));
    Data data(options.file, Access::write, options.open);
    uint32_t count = data.count();
    for (Range& range : ranges) {
        RequireRecord(data, range.first);
        if (range.last == UINT32_MAX) range.last = count;
        RequireRecord(data, range.last);
    }
    const char* verb = options.deletes ? "deleted" : "recalled";
    uint32_t changed = 0, already = 0;
    try {
        for (const Range& range : ranges)
            for (uint32_t record = range.first; record <= range.last; ++record) {
                data.LockRecord(record);
                bool deleted = data.Read(record);
                if (deleted == options.deletes)
                    ++already;
                else if (options.deletes)
                    data.Delete(record);
                else
                    data.Recall(record);
                if (deleted != options.deletes) ++changed;
                data.UnlockRecord(record);
            }
        data.Close();
    } catch (const Failure& failure) {
        throw Failure(failure.status,
                      std::string(failure.what()) + "; " + Count(changed, "record") + " before it " + verb);
    }
    Say(data.path() + ": " + verb + " " + Count(changed, "record") +
        (already > 0 ? ", " + std::to_string(already) + " already " + (options.deletes ? "deleted" : "live")
                     : ""));
}

}  // namespace

void AddMarkCommand(CLI::App& app, const std::string& name, const std::string& help, bool deletes) {
    auto options = std::make_shared<Options>();
    options->deletes = deletes;
    Command command(app, name, help);
    command.Positional("FILE", options->file, "The table");
    command.Rest("RECORD", options->records, "Record numbers and ranges: 3 5-7 10-");
    AddOpenOptions(command, options->open);
    command.Examples("  zb " + name + " people.dbf 3 5-7\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
