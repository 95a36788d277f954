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

// Whether a tool is there and may watch a program.
bool Works(const std::string& tool) { return system((tool + " true >/dev/null 2>&1").c_str()) == 0; }

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

using Calls = std::map<std::string, double>;

// Runs a contender under strace: the calls per item, by name.
Calls TraceCalls(const std::string& run) {
    double items = NumberAfter(OutputOf(std::string("strace -qq -o ") + TraceName + " " + run), "Items:");
    Calls calls;
    std::ifstream trace(TraceName);
    std::string line;
    bool inside = false;
    while (std::getline(trace, line)) {
        if (line.rfind(MarkLine, 0) == 0)
            inside = !inside;
        else if (inside)
            calls[line.substr(0, line.find('('))] += 1 / items;
    }
    return calls;
}

// The calls that are made for more than one item of twenty, the most frequent first.
std::string Listed(const Calls& calls) {
    std::vector<std::pair<std::string, double>> sorted;
    for (auto& call : calls)
        if (call.second >= 0.05) sorted.push_back(call);
    std::stable_sort(sorted.begin(), sorted.end(), [](auto& a, auto& b) { return a.second > b.second; });
    std::string list;
    for (auto& [name, count] : sorted) list += (list.empty() ? "" : ", ") + Format("%.1f ", count) + name;
    return list.empty() ? "none" : list;
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

void CountContenders(const std::string& program, const std::string& filter, bool all) {
    bool valgrind = Works("valgrind --tool=none");
    bool strace = Works("strace -o /dev/null");
    puts("Counting instructions and system calls");
    for (auto& workload : workloads) {
        if (!workload.registered || !std::regex_search(workload.name, std::regex(filter))) continue;
        for (auto& contender : workload.contenders) {
            if (!contender.run || (!all && &contender != &workload.contenders[0])) continue;
            std::string run = program + " --records=" + std::to_string(sizes.records) +
                              " '--count=" + workload.name + "/" + contender.name + "' .";
            Counts& counts = contender.counts;
            if (strace) {
                counts.calls = Listed(TraceCalls(run));
                // Reads by mapping show when they are forced to be calls.
                if (contender.role == Role::Own)
                    counts.reads = TraceCalls("-E ZB_READS=pread " + run)["pread64"];
            }
            if (valgrind && contender.role != Role::Floor) {
                std::string out = OutputOf(
                    "valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no "
                    "'--toggle-collect=bench::CountedPart*' " +
                    run);
                counts.instructions = NumberAfter(out, "Collected :") / NumberAfter(out, "Items:");
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
