#include "command_tree.h"

#include <CLI/CLI.hpp>

#include "command_line.h"

namespace tool {
namespace {

std::vector<std::string> Split(const std::string& text, char at) {
    std::vector<std::string> parts;
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find(at, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

bool NamesAFile(const std::string& name) {
    for (const char* one : {"FILE", "INDEX", "INPUT", "A", "B"})
        if (name == one) return true;
    return false;
}

OptionNode Describe(const CLI::Option& option) {
    OptionNode node;
    node.positional = option.get_positional();
    node.help = option.get_description();
    node.needed = option.get_required();
    node.many = option.get_items_expected_max() > 1;
    if (node.positional) {
        node.names = {option.get_name(true)};
        node.isFile = NamesAFile(node.names[0]);
        return node;
    }
    for (const std::string& name : option.get_snames()) node.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) node.names.push_back("--" + name);
    if (option.get_items_expected_max() == 0) return node;
    node.value = option.get_option_text();
    if (!node.value.empty()) {
        node.words = Split(node.value, '|');
    } else {
        std::string type = option.get_type_name();
        node.value = type.substr(0, type.find(':'));
    }
    node.isFile = node.value == "FILE";
    return node;
}

void Add(const CLI::App& app, const std::vector<std::string>& path, std::vector<CommandNode>& nodes) {
    CommandNode node;
    node.path = path;
    node.help = app.get_description();
    std::string footer = app.get_footer();
    size_t examples = footer.find(kExamples);
    node.notes = footer.substr(0, examples);
    if (examples != std::string::npos) node.examples = footer.substr(footer.find('\n', examples) + 1);
    for (const CLI::Option* option : app.get_options()) node.options.push_back(Describe(*option));
    std::vector<const CLI::App*> below = app.get_subcommands([](const CLI::App*) { return true; });
    for (const CLI::App* one : below) node.commands.push_back(one->get_name());
    nodes.push_back(node);
    for (const CLI::App* one : below) {
        std::vector<std::string> longer = path;
        longer.push_back(one->get_name());
        Add(*one, longer, nodes);
    }
}

}  // namespace

std::string CommandNode::Title(const char* between) const {
    std::string title = "zb";
    for (const std::string& word : path) title += between + word;
    return title;
}

std::vector<CommandNode> CommandTree(const CLI::App& app) {
    std::vector<CommandNode> nodes;
    Add(app, {}, nodes);
    return nodes;
}

}  // namespace tool
