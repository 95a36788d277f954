// The subcommands of zb index.
#pragma once

#include <CLI/CLI.hpp>

namespace tool {

void AddIndexCreate(CLI::App& index);
void AddIndexInfo(CLI::App& index);
void AddIndexList(CLI::App& index);
void AddIndexCheck(CLI::App& index);

}  // namespace tool
