#include "manual.h"

#include <algorithm>
#include <filesystem>

#include "command_line.h"
#include "command_tree.h"
#include "failure.h"
#include "output.h"

namespace tool {
namespace {

// Text as the formatter takes it: nothing in it is a request or an escape.
std::string Roff(const std::string& text) {
    std::string out;
    bool lineStart = true;
    for (char c : text) {
        if (lineStart && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        lineStart = c == '\n';
    }
    return out;
}

std::string Bold(const std::string& text) { return "\\fB" + Roff(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Roff(text) + "\\fR"; }

std::string Sentence(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() != '.') text += '.';
    return text;
}

void AppendOption(const OptionNode& option, std::string& page) {
    page += ".TP\n";
    for (size_t index = 0; index < option.names.size(); ++index)
        page += (index > 0 ? ", " : "") +
                (option.positional ? Italic(option.names[index]) : Bold(option.names[index]));
    if (!option.value.empty()) page += " " + Italic(option.value);
    page += "\n" + Roff(Sentence(option.help)) + "\n";
}

void AppendLines(const std::string& heading, const std::string& lines, std::string& page) {
    if (lines.empty()) return;
    page += ".SH " + heading + "\n.nf\n" + Roff(lines);
    if (page.back() != '\n') page += '\n';
    page += ".fi\n";
}

void AppendSynopsis(const CommandNode& node, std::string& page) {
    page += ".SH SYNOPSIS\n" + Bold(node.Title(" "));
    if (!node.commands.empty()) page += " " + Italic("COMMAND") + " ...";
    for (const OptionNode& option : node.options) {
        if (!option.positional) continue;
        std::string name = Italic(option.names[0]) + (option.many ? "..." : "");
        page += option.needed ? " " + name : " [" + name + "]";
    }
    page += " [" + Italic("OPTION") + "...]\n";
}

void AppendOptions(const CommandNode& node, std::string& page) {
    for (bool positional : {true, false}) {
        bool any = false;
        for (const OptionNode& option : node.options) {
            if (option.positional != positional) continue;
            if (!any) page += positional ? ".SH ARGUMENTS\n" : ".SH OPTIONS\n";
            any = true;
            AppendOption(option, page);
        }
    }
}

void AppendCommands(const CommandNode& node, const std::vector<CommandNode>& all, std::string& page) {
    if (node.commands.empty()) return;
    page += ".SH COMMANDS\n";
    for (const CommandNode& one : all) {
        bool below = one.path.size() == node.path.size() + 1 &&
                     std::equal(node.path.begin(), node.path.end(), one.path.begin());
        if (below) page += ".TP\n" + Bold(one.Title(" ")) + "\n" + Roff(Sentence(one.help)) + "\n";
    }
}

constexpr const char* kSurroundings =
    ".SH ENVIRONMENT\n"
    ".TP\n\\fBNO_COLOR\\fR\nNo colours, also on a terminal.\n"
    ".TP\n\\fBZB_TODAY\\fR\nA day, as YYYY\\-MM\\-DD, that is taken for today.\n"
    ".TP\n\\fBZB_READS\\fR\nWhere it is \\fBpread\\fR, files are read by calls and not through memory.\n"
    ".SH FILES\n"
    ".TP\n\\fIQVDB4XX.INI\\fR\n"
    "Date style and order of keys; in the current directory, in \\fI$XDG_CONFIG_HOME\\fR or\n"
    "\\fI~/.config\\fR, or in \\fI/etc\\fR.\n";

void AppendSeeAlso(const CommandNode& node, const std::vector<CommandNode>& all, std::string& page) {
    page += ".SH SEE ALSO\n";
    const char* between = "";
    for (const CommandNode& one : all) {
        bool self = one.path == node.path;
        bool near = node.path.empty() ? one.path.size() == 1
                                      : one.path.size() < node.path.size() || one.path.size() == 1;
        bool beneath =
            one.path.size() == node.path.size() + 1 && !node.path.empty() && one.path[0] == node.path[0];
        if (self || !(near || beneath)) continue;
        page += between + Bold(one.Title("-")) + "(1)";
        between = ",\n";
    }
    page += "\n";
}

std::string Page(const CommandNode& node, const std::vector<CommandNode>& all) {
    std::string page = ".\\\" Made by zb --man; not to be edited.\n.TH ";
    std::string title = node.Title("-");
    for (char& c : title) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    page += Roff(title) + " 1 \"\" \"zb " ZB_VERSION "\" \"zb manual\"\n";
    page += ".SH NAME\n" + Roff(node.Title("-") + " - ") + Roff(node.help) + "\n";
    AppendSynopsis(node, page);
    AppendCommands(node, all, page);
    AppendOptions(node, page);
    if (!node.path.empty()) AppendLines("NOTES", node.notes, page);
    AppendLines("EXAMPLES", node.examples, page);
    page += ".SH EXIT STATUS\n" + Roff(std::string(kExitStatus).substr(13));
    if (node.path.empty()) page += kSurroundings;
    AppendSeeAlso(node, all, page);
    return page;
}

}  // namespace

std::string ManPage(const CLI::App& app, const std::vector<std::string>& command) {
    std::vector<CommandNode> all = CommandTree(app);
    for (const CommandNode& node : all)
        if (node.path == command) return Page(node, all);
    std::string words;
    for (const std::string& word : command) words += " " + word;
    throw Failure(Exit::usage, "--man" + words + ": there is no such command");
}

void WriteManPages(const CLI::App& app, const std::string& directory) {
    std::vector<CommandNode> all = CommandTree(app);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    for (const CommandNode& node : all) {
        Output output(directory + "/" + node.Title("-") + ".1");
        output.Write(Page(node, all));
        output.Finish();
    }
}

}  // namespace tool
