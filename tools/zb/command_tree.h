// The commands, flat, with what each of their lines may hold.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

struct OptionNode {
    std::vector<std::string> names;  // "-o", "--output"; of a positional its one name
    std::string value;               // what stands behind it; nothing for a flag
    std::vector<std::string> words;  // the values that it takes, where there are a few
    std::string help;
    bool positional = false;
    bool needed = false;
    bool many = false;
    bool isFile = false;
};

struct CommandNode {
    std::vector<std::string> path;  // "index", "create"; nothing for zb itself
    std::string help;
    std::string notes;
    std::string examples;
    std::vector<OptionNode> options;
    std::vector<std::string> commands;  // the names of those beneath it

    std::string Title(const char* between) const;  // "zb index create"
};

// Each command behind the one that it is beneath; the first is zb itself.
std::vector<CommandNode> CommandTree(const CLI::App& app);

}  // namespace tool
