// The commands. A new one is a line in this list, and a file cmd_<name>.cpp
// that defines Add<Name>: it adds its command with the options and what it runs.
#pragma once

#include "command.h"

#define ZB_COMMANDS(COMMAND)  \
    COMMAND(Info, "info")     \
    COMMAND(List, "list")     \
    COMMAND(Export, "export") \
    COMMAND(Import, "import") \
    COMMAND(Create, "create") \
    COMMAND(Append, "append") \
    COMMAND(Set, "set")       \
    COMMAND(Delete, "delete") \
    COMMAND(Recall, "recall") \
    COMMAND(Pack, "pack")     \
    COMMAND(Check, "check")   \
    COMMAND(Repair, "repair") \
    COMMAND(Diff, "diff")     \
    COMMAND(Locks, "locks")   \
    COMMAND(Memo, "memo")     \
    COMMAND(Index, "index")   \
    COMMAND(Find, "find")     \
    COMMAND(Eval, "eval")

namespace tool {

#define ZB_DECLARE(function, name) void Add##function(CLI::App& app);
ZB_COMMANDS(ZB_DECLARE)
#undef ZB_DECLARE

}  // namespace tool
