// Workloads and their contenders, and the report of what they took.
//
// A contender is a type whose constructor prepares one round, whose Run is what
// is timed, and whose destructor cleans up; it is made anew for each round. The
// contenders of a workload run in turn, round after round, and the report holds
// their medians: whatever else the machine is doing meets all of them alike.
//
// All workloads are registered anew for each size of the data set; what they
// took is kept.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// What stands beside the library in a workload: a store that does the same, or
// the least that the system has to do.
enum class Role { Own, Peer, Floor };

// What one item of a contender costs, counted in a small run.
struct Counts {
    double instructions = -1;  // below 0: not counted
    double reads = -1;         // of the library, where each is made a call
    std::string calls;         // the kinds of system calls, with how many of each
};

// One round: seconds, and what was done in them.
struct Round {
    double seconds;
    uint64_t items;
};

// The rounds at one size.
struct Times {
    std::vector<Round> rounds;

    double PerItem() const;  // the median, in seconds
};

struct Contender {
    std::string name;
    Role role;
    std::function<Round()> run;                     // empty when it doesn't take part at this size
    std::vector<std::pair<uint32_t, Times>> times;  // by records
    Counts counts;

    const Times* TimesAt(uint32_t records) const;
};

struct Aim {
    std::string ours, peer;
    double ratio;
};

struct WorkloadReport {
    std::string name, title, unit, text;
    std::vector<Contender> contenders;
    std::vector<Aim> aims;
    std::vector<std::pair<std::string, std::string>> reasons;
    std::function<void()> prepare;
    bool registered = false;  // takes part at this size

    const Contender* Find(const std::string& contender) const;
};

extern std::vector<WorkloadReport> workloads;

// Begins a size: forgets what was registered for the one before.
void BeginSize();

// Begins a workload: what is named by Contend from here on belongs to it.
// `unit` is what an item is called, and `text` tells what is done to it.
void Workload(const std::string& name, const std::string& title, const std::string& unit,
              const std::string& text);

// What must be there for the workload begun last: called before its first round,
// and so not for workloads that aren't run.
void Needs(std::function<void()> prepare);

// What the library is to reach in the workload begun last: `ours` takes at most
// 1 / `ratio` of the time of `peer`.
void AimAt(const std::string& ours, const std::string& peer, double ratio);

// Why a peer is ahead of the library in the workload begun last, where it is, and
// what it would take to catch up.
void Reason(const std::string& peer, const std::string& text);

void AddContender(const std::string& name, Role role, std::function<Round()> run);

// Runs the part of a contender that counts, and tells the seconds it took.
double Measure(const std::function<void()>& work);

// `items` is how many are done in a round, unless the work tells it afterwards.
template <class Work, class... Args>
void ContendAs(Role role, const std::string& name, uint64_t items, Args... args) {
    AddContender(name, role, [=] {
        Work work(args...);
        double seconds = Measure([&] { work.Run(); });
        if constexpr (requires { work.Items(); })
            return Round{seconds, work.Items()};
        else
            return Round{seconds, items};
    });
}
template <class Work, class... Args>
void Own(const std::string& name, uint64_t items, Args... args) {
    ContendAs<Work>(Role::Own, "zb" + (name.empty() ? "" : " " + name), items, args...);
}
template <class Work, class... Args>
void Peer(const std::string& name, uint64_t items, Args... args) {
    ContendAs<Work>(Role::Peer, name, items, args...);
}
template <class Work, class... Args>
void Floor(const std::string& name, uint64_t items, Args... args) {
    ContendAs<Work>(Role::Floor, name, items, args...);
}

// Runs what is registered and whose name matches, `rounds` times each.
void RunWorkloads(const std::string& filter, int rounds);

// The page on all workloads that were run. `measures` are sections that stand
// behind them as they are, `plotName` the picture's place as the page links it.
std::string Page(const std::string& head, const std::string& measures, const std::string& plotName);

// Numbers as the page has them.
std::string Format(const char* format, double value);
std::string Grouped(uint64_t number);

}  // namespace bench
