// zb: looks into xBase tables and changes them. Data go to standard output, talk
// goes to standard error, and the exit status tells failures apart.
#include <clocale>
#include <exception>

#include "command.h"
#include "failure.h"
#include "terminal.h"
#include "zb.h"

namespace {

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

}  // namespace

int main(int argc, char** argv) {
    // For the width of characters alone: numbers and texts are the same everywhere.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        Library library;
        return tool::RunCommandLine(argc, argv);
    } catch (const tool::Failure& failure) {
        tool::SayFailure(failure.what());
        return static_cast<int>(failure.status);
    } catch (const std::exception& error) {
        tool::SayFailure(error.what());
        return static_cast<int>(tool::Exit::other);
    }
}
