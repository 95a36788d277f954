// zb: looks into xBase tables and changes them. Data go to standard output, talk
// goes to standard error, and the exit status tells failures apart.
#include <clocale>
#include <exception>

#include "commands.h"
#include "failure.h"
#include "terminal.h"
#include "zb.h"

namespace {

using tool::Exit;

constexpr const char* kFooter =
    "Exit status: 0 done; 1 failed; 2 the command line makes no sense; 3 a file, field or record\n"
    "isn't there; 4 the file is damaged or isn't of this kind.\n";

// The library for as long as the command runs; what is still open is closed at the end.
class Library {
  public:
    Library() {
        constexpr uint8_t kPlainDates = 4;  // YYYYMMDD
        tool::Check(ZBDINIT(100, kPlainDates), "libzb");
    }
    ~Library() {
        ZBESCODE(0);
        ZBDTERM();
    }
};

int End(Exit status) { return static_cast<int>(status); }

int Run(int argc, char** argv) {
    CLI::App app("Reads, writes and keeps xBase tables (.DBF)", "zb");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.set_version_flag("--version", "zb " ZB_VERSION);
#define ZB_ADD(name) tool::Add##name(app);
    ZB_COMMANDS(ZB_ADD)
#undef ZB_ADD
    Library library;
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::ParseError& error) {
        tool::SayFailure(std::string(error.what()) + " (zb --help tells more)");
        return End(Exit::usage);
    }
    return End(Exit::ok);
}

}  // namespace

int main(int argc, char** argv) {
    // For the width of characters alone: numbers and texts are the same everywhere.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        return Run(argc, argv);
    } catch (const tool::Failure& failure) {
        tool::SayFailure(failure.what());
        return End(failure.status);
    } catch (const std::exception& error) {
        tool::SayFailure(error.what());
        return End(Exit::other);
    }
}
