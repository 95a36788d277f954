#include "count.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "data.h"
#include "files.h"
#include "report.h"

namespace bench {
namespace {

bool marking = false;

// A call that does nothing, and that nobody makes otherwise.
void Mark() {
    if (marking) close(-1);
}
constexpr char MarkLine[] = "close(-1)";

constexpr char TraceName[] = "calls.trace";

bool IsThere(const std::string& tool) { return system((tool + " --version >/dev/null 2>&1").c_str()) == 0; }

// The output of a shell command, both streams.
std::string OutputOf(const std::string& command) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    Check(pipe, command.c_str());
    std::string out;
    char line[512];
    while (fgets(line, sizeof line, pipe)) out += line;
    int status = pclose(pipe);
    if (status != 0) fputs(out.c_str(), stderr);
    Check(status == 0, command.c_str(), status);
    return out;
}

// The number behind a label in a tool's output.
double NumberAfter(const std::string& output, const std::string& label) {
    size_t at = output.find(label);
    Check(at != std::string::npos, label.c_str());
    return strtod(output.c_str() + at + label.size(), nullptr);
}

void CountCalls(Counts& counts, double items) {
    std::map<std::string, double> calls;
    double all = 0;
    std::ifstream trace(TraceName);
    std::string line;
    bool inside = false;
    while (std::getline(trace, line)) {
        if (line.rfind(MarkLine, 0) == 0) {
            inside = !inside;
        } else if (inside) {
            calls[line.substr(0, line.find('('))]++;
            all++;
        }
    }
    std::vector<std::pair<std::string, double>> sorted(calls.begin(), calls.end());
    std::stable_sort(sorted.begin(), sorted.end(), [](auto& a, auto& b) { return a.second > b.second; });
    counts.calls = all / items;
    counts.callNames = "";
    for (auto& [name, count] : sorted) {
        if (count / items < 0.05) continue;
        counts.callNames += (counts.callNames.empty() ? "" : ", ") + Format("%.1f ", count / items) + name;
    }
    if (counts.callNames.empty()) counts.callNames = "none";
}

}  // namespace

// What callgrind watches for: a function of its own, whatever the compiler does.
[[gnu::noinline]] void CountedPart(const std::function<void()>& work) {
    work();
    asm volatile("");  // the call isn't the last thing, and so stays inside
}

void Counted(const std::function<void()>& work) {
    Mark();
    CountedPart(work);
    Mark();
}

void CountContenders(const std::string& program, const std::string& filter) {
    bool valgrind = IsThere("valgrind");
    bool strace = IsThere("strace");
    puts("Counting instructions and system calls");
    for (auto& workload : workloads) {
        if (!workload.registered || !std::regex_search(workload.name, std::regex(filter))) continue;
        for (auto& contender : workload.contenders) {
            if (!contender.run) continue;
            std::string run = program + " --records=" + std::to_string(sizes.records) +
                              " '--count=" + workload.name + "/" + contender.name + "' .";
            if (strace) {
                std::string out = OutputOf(std::string("strace -qq -o ") + TraceName + " " + run);
                CountCalls(contender.counts, NumberAfter(out, "Items:"));
            }
            if (valgrind && contender.role != Role::Floor) {
                std::string out = OutputOf(
                    "valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no "
                    "'--toggle-collect=bench::CountedPart*' " +
                    run);
                contender.counts.instructions = NumberAfter(out, "Collected :") / NumberAfter(out, "Items:");
            }
        }
    }
    unlink(TraceName);
}

void RunForCounting(const std::string& name) {
    marking = true;
    for (auto& workload : workloads) {
        for (auto& contender : workload.contenders) {
            if (workload.name + "/" + contender.name != name) continue;
            if (workload.prepare) workload.prepare();
            Round round = contender.run();
            printf("Items: %llu\n", static_cast<unsigned long long>(round.items));
            return;
        }
    }
    Check(false, name.c_str());
}

}  // namespace bench
