// What deleting and recalling have in common: the delete flag of records.
#pragma once

#include <string>

#include "command.h"

namespace tool {

// Adds the command `name`, which sets or clears the flag of the records given.
void AddMarkCommand(CLI::App& app, const std::string& name, const std::string& help, bool deletes);

}  // namespace tool
