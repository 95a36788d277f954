// What a contender costs in instructions and system calls: each is run once more
// for it, by this program in another process, under valgrind and under strace.
// Both count from the beginning of what is measured to its end, and nothing else.
#pragma once

#include <functional>
#include <string>

namespace bench {

// Does the work that is measured; in a process that is being counted, between
// marks that the tools see.
void Counted(const std::function<void()>& work);

// Counts the contenders that take part at this size, all or the first of each
// workload, with those of the two tools that are there. `program` is run in the
// current directory, whose files the contenders have made already.
void CountContenders(const std::string& program, const std::string& filter, bool all);

// The other side: runs one contender, named "workload/contender", for a tool.
void RunForCounting(const std::string& name);

}  // namespace bench
