// Standard error and the terminal: messages, colour, questions, progress.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tool {

bool OutputIsTerminal();
bool ErrorsAreTerminal();
// Colour is for terminals only, and not where NO_COLOR is set.
bool OutputColour();

// One line on standard error, "zb: " before it.
void Say(const std::string& line);
void SayFailure(const std::string& line);

// Asks on a terminal; elsewhere the answer is no.
bool Confirm(const std::string& question);

// "1 record", "2 records"
std::string Count(uint64_t number, const std::string& noun);

// A bar on standard error for work that takes longer than a moment; nothing
// where that isn't a terminal.
class Progress {
  public:
    Progress(std::string title, uint64_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    void operator=(const Progress&) = delete;

    void At(uint64_t done) {
        if (active && (++calls & 255) == 0) Draw(done);
    }

  private:
    void Draw(uint64_t done);

    std::string title;
    uint64_t total;
    uint32_t calls = 0;
    bool active;
    bool drawn = false;
    std::chrono::steady_clock::time_point next;
};

}  // namespace tool
