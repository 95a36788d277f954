// The commands. A new one is a line in this list, and a file cmd_<name>.cpp
// that defines Add<Name>: it adds its command with the options and what it runs.
#pragma once

#include "command.h"

#define ZB_COMMANDS(COMMAND) \
    COMMAND(Info)            \
    COMMAND(List)            \
    COMMAND(Export)          \
    COMMAND(Import)          \
    COMMAND(Create)          \
    COMMAND(Append)          \
    COMMAND(Set)             \
    COMMAND(Delete)          \
    COMMAND(Recall)          \
    COMMAND(Pack)            \
    COMMAND(Memo)            \
    COMMAND(Index)           \
    COMMAND(Find)            \
    COMMAND(Eval)

namespace tool {

#define ZB_DECLARE(name) void Add##name(CLI::App& app);
ZB_COMMANDS(ZB_DECLARE)
#undef ZB_DECLARE

}  // namespace tool
