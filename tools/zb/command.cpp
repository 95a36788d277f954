#include "command.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "commands.h"
#include "failure.h"
#include "terminal.h"

namespace tool {
namespace {

constexpr const char* kFooter =
    "Exit status: 0 done; 1 failed; 2 the command line makes no sense; 3 a file, field or record\n"
    "isn't there; 4 the file is damaged or isn't of this kind.\n";

}  // namespace

Command::Command(CLI::App& app, const std::string& name, const std::string& help)
    : command(app.add_subcommand(name, help)) {}

void Command::Positional(const std::string& name, std::string& value, const std::string& help) {
    command->add_option(name, value, help)->required();
}

void Command::Positional(const std::string& name, uint32_t& value, const std::string& help) {
    command->add_option(name, value, help)->required();
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

void Command::Run(std::function<void()> body) { command->callback(std::move(body)); }

int RunCommandLine(int argc, char** argv) {
    CLI::App app("Reads, writes and keeps xBase tables (.DBF)", "zb");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.set_version_flag("--version", "zb " ZB_VERSION);
#define ZB_ADD(name) Add##name(app);
    ZB_COMMANDS(ZB_ADD)
#undef ZB_ADD
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& told) {  // help or the version was asked for
        return app.exit(told);
    } catch (const CLI::ParseError& error) {
        SayFailure(std::string(error.what()) + " (zb --help tells more)");
        return static_cast<int>(Exit::usage);
    }
    return static_cast<int>(Exit::ok);
}

}  // namespace tool
