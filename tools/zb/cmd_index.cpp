// zb index: makes indexes, shows and checks them.
#include <CLI/CLI.hpp>

#include "commands.h"
#include "index_commands.h"

namespace tool {

void AddIndex(CLI::App& app) {
    CLI::App* index = app.add_subcommand("index", "Make, show and check indexes");
    index->require_subcommand(1);
    AddIndexCreate(*index);
    AddIndexInfo(*index);
    AddIndexList(*index);
    AddIndexCheck(*index);
    AddIndexTags(*index);
    AddIndexErase(*index);
    index->footer(
        "The extension of an index file tells its format: .ndx, .ntx, .idx or .mdx. An MDX file\n"
        "holds several indexes, its tags.\n"
        "\n"
        "Examples:\n"
        "  zb index create people.dbf name.ndx --on NAME\n"
        "  zb index list name.ndx --data people.dbf --fields BORN\n"
        "  zb index check people.dbf name.ndx\n");
}

}  // namespace tool
