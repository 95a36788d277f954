#include "command.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "manual.h"
#include "output.h"
#include "suggest.h"
#include "terminal.h"

namespace tool {
namespace {

struct Entry {
    const char* name;
    void (*add)(CLI::App& app);
};

constexpr Entry kCommands[] = {
#define ZB_ENTRY(function, name) {name, Add##function},
    ZB_COMMANDS(ZB_ENTRY)
#undef ZB_ENTRY
};

int exitStatus = 0;

// The command that the line names; null when it names none.
const Entry* FindCommand(const std::string& word) {
    auto found = std::find_if(std::begin(kCommands), std::end(kCommands),
                              [&](const Entry& entry) { return word == entry.name; });
    return found == std::end(kCommands) ? nullptr : found;
}

[[noreturn]] void RefuseCommand(const std::string& word) {
    std::vector<std::string> names;
    for (const Entry& entry : kCommands) names.push_back(entry.name);
    std::string near = Nearest(word, names);
    throw Failure(Exit::usage, "there is no command '" + word + "'" +
                                   (near.empty() ? "" : "; did you mean zb " + near + "?") +
                                   " (zb --help tells more)");
}

// "zb index create": as far as the line was understood.
std::string ParsedCommand(const CLI::App& app) {
    std::string words = app.get_name();
    for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands()[0];
        words += " " + at->get_name();
    }
    return words;
}

// What the package is made with, and no help tells.
bool RunHidden(const CLI::App& app, const std::vector<std::string>& words) {
    if (words.empty()) return false;
    Output output;
    if (words[0] == "--completion" && words.size() == 2)
        output.Write(Completion(app, words[1]));
    else if (words[0] == "--man")
        output.Write(ManPage(app, {words.begin() + 1, words.end()}));
    else if (words[0] == "--man-pages" && words.size() == 2)
        WriteManPages(app, words[1]);
    else
        return false;
    output.Finish();
    return true;
}

}  // namespace

const char* const kExitStatus =
    "Exit status: 0 done; 1 failed; 2 the command line makes no sense; 3 a file, field or record\n"
    "isn't there; 4 the file is damaged or isn't of this kind. zb check and zb diff have more.\n";

Command::Command(CLI::App& app, const std::string& name, const std::string& help)
    : command(app.add_subcommand(name, help)) {}

void Command::Positional(const std::string& name, std::string& value, const std::string& help) {
    command->add_option(name, value, help)->required();
}

void Command::Positional(const std::string& name, uint32_t& value, const std::string& help) {
    command->add_option(name, value, help)->required();
}

void Command::MayFollow(const std::string& name, std::string& value, const std::string& help) {
    command->add_option(name, value, help);
}

void Command::Rest(const std::string& name, std::vector<std::string>& values, const std::string& help,
                   bool noneIsFine) {
    CLI::Option* option = command->add_option(name, values, help);
    if (noneIsFine)
        option->expected(0, -1);
    else
        option->required();
}

void Command::Flag(const std::string& name, bool& value, const std::string& help) {
    command->add_flag(name, value, help);
}

void Command::Option(const std::string& name, std::string& value, const std::string& help) {
    command->add_option(name, value, help);
}

void Command::File(const std::string& name, std::string& value, const std::string& help) {
    command->add_option(name, value, help)->type_name("FILE");
}

void Command::Option(const std::string& name, uint64_t& value, const std::string& help) {
    command->add_option(name, value, help);
}

void Command::Option(const std::string& name, int& value, int lowest, int highest, const std::string& help) {
    command->add_option(name, value, help)->check(CLI::Range(lowest, highest));
}

void Command::Option(const std::string& name, double& value, double lowest, double highest,
                     const std::string& help) {
    command->add_option(name, value, help)->check(CLI::Range(lowest, highest));
}

void Command::Repeated(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    command->add_option(name, values, help)->allow_extra_args(false);
}

void Command::List(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    command->add_option(name, values, help)->delimiter(',');
}

void Command::Word(const std::string& name, const std::vector<std::string>& words,
                   const std::function<void(size_t)>& chosen, const std::string& help) {
    auto choose = [words, chosen](const std::string& given) {
        auto found = std::find(words.begin(), words.end(), given);
        if (found != words.end()) chosen(static_cast<size_t>(found - words.begin()));
    };
    command->add_option_function<std::string>(name, choose, help)
        ->check(CLI::IsMember(words))
        ->option_text(CLI::detail::join(words, "|"));
}

void Command::Footer(const std::string& text) { command->footer(text); }

void Command::Examples(const std::string& lines) {
    std::string before = command->get_footer();
    command->footer(before + (before.empty() ? "" : "\n") + kExamples + lines);
}

void Command::Run(std::function<void()> body) { command->callback(std::move(body)); }

void Command::RunForStatus(std::function<int()> body) {
    command->callback([body = std::move(body)] { exitStatus = body(); });
}

int RunCommandLine(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    CLI::App app("Reads, writes and keeps xBase tables (.DBF)", "zb");
    app.allow_windows_style_options(false);  // a slash begins a path
    app.footer(kExitStatus);
    app.require_subcommand(1);
    app.set_version_flag("--version", "zb " ZB_VERSION);
    bool named = !words.empty() && words[0].substr(0, 1) != "-";
    const Entry* only = named ? FindCommand(words[0]) : nullptr;
    if (named && only == nullptr) RefuseCommand(words[0]);
    // A command line needs the options of one command, and these take time to set up.
    bool all = !named && words != std::vector<std::string>{"--version"};
    for (const Entry& entry : kCommands)
        if (all || only == &entry) entry.add(app);
    if (RunHidden(app, words)) return static_cast<int>(Exit::ok);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& told) {  // help or the version was asked for
        return app.exit(told);
    } catch (const CLI::ParseError& error) {
        SayFailure(std::string(error.what()) + " (" + ParsedCommand(app) + " --help tells more)");
        return static_cast<int>(Exit::usage);
    }
    return exitStatus;
}

}  // namespace tool
