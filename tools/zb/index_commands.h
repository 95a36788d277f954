// The subcommands of zb index.
#pragma once

#include "command.h"

namespace tool {

void AddIndexCreate(CLI::App& index);
void AddIndexInfo(CLI::App& index);
void AddIndexList(CLI::App& index);
void AddIndexCheck(CLI::App& index);
void AddIndexTags(CLI::App& index);
void AddIndexErase(CLI::App& index);

}  // namespace tool
