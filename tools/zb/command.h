// One command's name, options and what it runs. The parser itself stays behind
// this, since few headers take longer to compile.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace tool {

class Command {
  public:
    Command(CLI::App& app, const std::string& name, const std::string& help);

    // What has to be given, in this order and without a name of its own.
    void Positional(const std::string& name, std::string& value, const std::string& help);
    void Positional(const std::string& name, uint32_t& value, const std::string& help);
    // The same of what may be left out.
    void MayFollow(const std::string& name, std::string& value, const std::string& help);
    // All that follows: at least one of them, unless none is fine too.
    void Rest(const std::string& name, std::vector<std::string>& values, const std::string& help,
              bool noneIsFine = false);

    void Flag(const std::string& name, bool& value, const std::string& help);
    void Option(const std::string& name, std::string& value, const std::string& help);
    void Option(const std::string& name, uint64_t& value, const std::string& help);
    void Option(const std::string& name, int& value, int lowest, int highest, const std::string& help);
    void Option(const std::string& name, double& value, double lowest, double highest,
                const std::string& help);
    // The same of a file's name.
    void File(const std::string& name, std::string& value, const std::string& help);
    // Given any number of times, each with one value.
    void Repeated(const std::string& name, std::vector<std::string>& values, const std::string& help);
    // Values separated by commas.
    void List(const std::string& name, std::vector<std::string>& values, const std::string& help);

    // One of several words.
    template <typename Value>
    void Choice(const std::string& name, Value& value,
                std::initializer_list<std::pair<const char*, Value>> choices, const std::string& help) {
        std::vector<std::string> words;
        std::vector<Value> values;
        for (const auto& choice : choices) {
            words.push_back(choice.first);
            values.push_back(choice.second);
        }
        Word(
            name, words, [&value, values](size_t index) { value = values[index]; }, help);
    }

    // What help tells behind the options, and examples, one line each, behind that.
    void Footer(const std::string& text);
    void Examples(const std::string& lines);

    void Run(std::function<void()> body);
    // The same for a body whose outcome is the exit status.
    void RunForStatus(std::function<int()> body);

  private:
    void Word(const std::string& name, const std::vector<std::string>& words,
              const std::function<void(size_t)>& chosen, const std::string& help);

    CLI::App* command;
};

// Parses the command line and runs its command; the exit status of help, or of a
// command line that makes no sense. Failures of the command itself pass through.
int RunCommandLine(int argc, char** argv);

}  // namespace tool
