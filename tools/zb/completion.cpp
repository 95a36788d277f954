// Completion of command lines, for three shells.
#include <algorithm>

#include "command_tree.h"
#include "failure.h"
#include "manual.h"

namespace tool {
namespace {

using Nodes = std::vector<CommandNode>;

std::string Join(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

std::string FirstSentence(const std::string& help) {
    std::string sentence = help.substr(0, help.find_first_of("\n:;("));
    while (!sentence.empty() && sentence.back() == ' ') sentence.pop_back();
    return sentence;
}

// In single quotes of any of the shells.
std::string Quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\'')
            out += "'\\''";
        else
            out += c;
    }
    return out + "'";
}

// ---- bash ----

std::string OptionWords(const CommandNode& node) {
    std::vector<std::string> words;
    for (const OptionNode& option : node.options)
        if (!option.positional) words.insert(words.end(), option.names.begin(), option.names.end());
    return Join(words, " ");
}

std::string Bash(const Nodes& nodes) {
    std::string options, commands, values;
    for (const CommandNode& node : nodes) {
        std::string path = Join(node.path, " ");
        options += "        " + Quoted(path) + ") words=" + Quoted(OptionWords(node)) + " ;;\n";
        if (!node.commands.empty())
            commands += "        " + Quoted(path) + ") words=" + Quoted(Join(node.commands, " ")) + " ;;\n";
        for (const OptionNode& option : node.options) {
            if (option.positional || option.value.empty()) continue;
            std::vector<std::string> patterns;
            for (const std::string& name : option.names) patterns.push_back(Quoted(path + " " + name));
            std::string what = option.words.empty() ? (option.isFile ? "files=1" : "")
                                                    : "words=" + Quoted(Join(option.words, " "));
            values += "        " + Join(patterns, "|") + ") value=1 " + what + " ;;\n";
        }
    }
    return "# Completion of zb for bash, made by zb --completion bash.\n"
           "_zb() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} last=${COMP_WORDS[COMP_CWORD-1]}\n"
           "    local command= words= value= files= word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case \"${command:+$command }$word\" in\n            " +
           [&] {
               std::vector<std::string> paths;
               for (const CommandNode& node : nodes)
                   if (!node.path.empty()) paths.push_back(Quoted(Join(node.path, " ")));
               return Join(paths, "|");
           }() +
           ") command=\"${command:+$command }$word\" ;;\n"
           "        esac\n"
           "    done\n"
           "    case \"$command $last\" in\n" +
           values +
           "    esac\n"
           "    if [[ -z $value && $current == -* ]]; then\n"
           "        case $command in\n" +
           options +
           "        esac\n"
           "    elif [[ -z $value ]]; then\n"
           "        files=1\n"
           "        case $command in\n" +
           commands +
           "        esac\n"
           "        [[ -n $words ]] && files=\n"
           "    fi\n"
           "    COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
           "    if [[ -n $files ]]; then\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        local IFS=$'\\n'\n"
           "        COMPREPLY=($(compgen -f -- \"$current\"))\n"
           "    fi\n"
           "}\n"
           "complete -F _zb zb\n";
}

// ---- zsh ----

// Text inside a specification, where brackets and colons mean something.
std::string ZshText(const std::string& text) {
    std::string out;
    for (char c : FirstSentence(text)) {
        if (c == '[' || c == ']' || c == ':' || c == '\\') out += '\\';
        out += c;
    }
    return out;
}

std::string ZshAction(const OptionNode& option) {
    if (!option.words.empty()) return "(" + Join(option.words, " ") + ")";
    return option.isFile ? "_files" : " ";
}

std::string ZshOptions(const CommandNode& node) {
    std::string lines;
    int place = 0;
    for (const OptionNode& option : node.options) {
        if (option.positional) {
            ++place;
            std::string where = option.many ? "*" : std::to_string(place);
            lines +=
                " \\\n        " + Quoted(where + ":" + ZshText(option.names[0]) + ":" + ZshAction(option));
            continue;
        }
        for (const std::string& name : option.names) {
            std::string one = name + "[" + ZshText(option.help) + "]";
            if (!option.value.empty()) one += ":" + ZshText(option.value) + ":" + ZshAction(option);
            lines += " \\\n        " + Quoted(one);
        }
    }
    return lines;
}

std::string Zsh(const Nodes& nodes) {
    std::string script = "#compdef zb\n# Completion of zb for zsh, made by zb --completion zsh.\n";
    for (const CommandNode& node : nodes) {
        std::string function = "_" + Join({node.Title("_")}, "");
        script += "\n" + function + "() {\n";
        if (node.commands.empty()) {
            script += "    _arguments" + ZshOptions(node) + "\n}\n";
            continue;
        }
        script += "    local state line\n    _arguments -C" + ZshOptions(node) +
                  " \\\n        '1:command:->command' '*::argument:->argument'\n"
                  "    case $state in\n    command)\n        local -a commands=(\n";
        for (const CommandNode& one : nodes)
            if (one.path.size() == node.path.size() + 1 &&
                std::equal(node.path.begin(), node.path.end(), one.path.begin()))
                script += "            " + Quoted(one.path.back() + ":" + FirstSentence(one.help)) + "\n";
        script +=
            "        )\n        _describe command commands ;;\n    argument)\n        case $line[1] in\n";
        for (const std::string& name : node.commands)
            script += "        " + name + ") " + function + "_" + name + " ;;\n";
        script += "        esac ;;\n    esac\n}\n";
    }
    return script + "\n_zb \"$@\"\n";
}

// ---- fish ----

std::string Fish(const Nodes& nodes) {
    std::string script = "# Completion of zb for fish, made by zb --completion fish.\n";
    for (const CommandNode& node : nodes) {
        std::string condition;
        for (const std::string& word : node.path)
            condition += (condition.empty() ? "" : "; and ") + ("__fish_seen_subcommand_from " + word);
        std::string line = "complete -c zb";
        for (const CommandNode& one : nodes) {
            bool below = one.path.size() == node.path.size() + 1 &&
                         std::equal(node.path.begin(), node.path.end(), one.path.begin());
            if (!below) continue;
            std::string none = node.path.empty() ? "__fish_use_subcommand"
                                                 : condition + "; and not __fish_seen_subcommand_from " +
                                                       Join(node.commands, " ");
            script += line + " -f -n " + Quoted(none) + " -a " + Quoted(one.path.back()) + " -d " +
                      Quoted(FirstSentence(one.help)) + "\n";
        }
        if (condition.empty()) condition = "__fish_use_subcommand";
        for (const OptionNode& option : node.options) {
            if (option.positional) continue;
            script += line + " -n " + Quoted(condition);
            for (const std::string& name : option.names)
                script += name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1);
            if (!option.value.empty()) script += option.isFile ? " -rF" : " -x";
            if (!option.words.empty()) script += " -a " + Quoted(Join(option.words, " "));
            script += " -d " + Quoted(FirstSentence(option.help)) + "\n";
        }
    }
    return script;
}

}  // namespace

std::string Completion(const CLI::App& app, const std::string& shell) {
    Nodes nodes = CommandTree(app);
    if (shell == "bash") return Bash(nodes);
    if (shell == "zsh") return Zsh(nodes);
    if (shell == "fish") return Fish(nodes);
    throw Failure(Exit::usage, "--completion " + shell + ": the shells are bash, zsh and fish");
}

}  // namespace tool
