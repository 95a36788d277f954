// Workloads and their contenders, and the report of what they took.
//
// A contender is a type whose constructor prepares one round, whose Run is what
// is timed, and whose destructor cleans up; it is made anew for each round. The
// contenders of a workload run in turn, round after round, and the report holds
// their medians: whatever else the machine is doing meets all of them alike.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <utility>

namespace bench {

// Begins a workload: what is named by Contend from here on belongs to it.
// `unit` is what an item is called, and `text` tells what is done to it.
void Workload(const std::string& name, const std::string& title, const std::string& unit,
              const std::string& text);

// What must be there for the workload begun last: called before its first round,
// and so not for workloads that aren't run.
void Needs(std::function<void()> prepare);

std::string QualifiedName(const std::string& contender);

// A contender of the workload begun last. Names of the library's own begin with
// "zb".
template <class Work, class... Args>
void Contend(const std::string& name, uint64_t items, Args... args) {
    benchmark::RegisterBenchmark(QualifiedName(name).c_str(),
                                 [=](benchmark::State& state) {
                                     Work work(args...);
                                     for (auto _ : state) work.Run();
                                     state.counters["items"] = static_cast<double>(items);
                                 })
        ->Iterations(1)
        ->UseRealTime();
}

// What the library is to reach in the workload begun last: `ours` takes at most
// 1 / `ratio` of the time of `peer`.
void Aim(const std::string& ours, const std::string& peer, double ratio);

// Runs the workloads whose names match, `rounds` times each, and writes the
// report. `measures` is a section that stands behind the tables as it is.
void RunAndReport(const std::string& filter, int rounds, const std::string& head, const std::string& measures,
                  const std::string& fileName);

}  // namespace bench
