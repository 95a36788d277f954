#include "terminal.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tool {
namespace {

using std::chrono::milliseconds;

bool ColourWanted() {
    const char* refused = std::getenv("NO_COLOR");
    return refused == nullptr || *refused == 0;
}

}  // namespace

bool OutputIsTerminal() {
    static const bool terminal = isatty(STDOUT_FILENO) == 1;
    return terminal;
}

bool ErrorsAreTerminal() {
    static const bool terminal = isatty(STDERR_FILENO) == 1;
    return terminal;
}

bool OutputColour() { return OutputIsTerminal() && ColourWanted(); }

void Say(const std::string& line) { std::fputs(("zb: " + line + "\n").c_str(), stderr); }

void SayFailure(const std::string& line) {
    if (ErrorsAreTerminal() && ColourWanted())
        std::fputs(("\x1b[1;31mzb:\x1b[0m " + line + "\n").c_str(), stderr);
    else
        Say(line);
}

bool Confirm(const std::string& question) {
    if (isatty(STDIN_FILENO) != 1 || !ErrorsAreTerminal()) return false;
    std::fputs((question + " [y/N] ").c_str(), stderr);
    char line[16] = {};
    if (std::fgets(line, sizeof line, stdin) == nullptr) return false;
    std::string answer(line, std::strcspn(line, "\n"));
    return answer == "y" || answer == "Y" || answer == "yes";
}

std::string Count(uint64_t number, const std::string& noun) {
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

Progress::Progress(std::string what, uint64_t all)
    : title(std::move(what)),
      total(std::max<uint64_t>(all, 1)),
      active(ErrorsAreTerminal()),
      next(std::chrono::steady_clock::now() + milliseconds(400)) {}

Progress::~Progress() {
    if (drawn) std::fputs("\r\x1b[K", stderr);
}

void Progress::Draw(uint64_t done) {
    auto now = std::chrono::steady_clock::now();
    if (now < next) return;
    next = now + milliseconds(100);
    constexpr int kCells = 30;
    int percent = static_cast<int>(std::min<uint64_t>(done * 100 / total, 100));
    std::string bar(static_cast<size_t>(percent * kCells / 100), '#');
    bar.resize(kCells, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", title.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
    drawn = true;
}

}  // namespace tool
