// Manual pages and completion of the shell, made of the commands as they parse
// their lines: what these tell is never behind the tool.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

// The page of zb itself, or of a command: "index", "create". Throws a usage
// failure when there is no such command.
std::string ManPage(const CLI::App& app, const std::vector<std::string>& command);

// All of them, as zb.1, zb-list.1, zb-index-create.1 and so on.
void WriteManPages(const CLI::App& app, const std::string& directory);

// For "bash", "zsh" or "fish". Throws a usage failure for others.
std::string Completion(const CLI::App& app, const std::string& shell);

}  // namespace tool
