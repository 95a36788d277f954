// Another process beside the test's own.
#pragma once

#include <cstdint>
#include <functional>

namespace test {

// Another process, which is there before this one starts work, runs `body` in the
// test's directory and reports by its exit status; 0 when every check in it
// passed. The two can keep step by Tell and Await, a byte each way.
//
// Where the system has no fork, the other one is the test program once more: it
// runs the same test, in another directory, up to here. So what a test does to
// files before this may not depend on who else does it.
class Process {
  public:
    explicit Process(std::function<int(Process&)> body);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void Tell(char byte = '.');
    char Await();  // 0 when the other side has ended
    int Wait();    // its exit status; -9 if it was killed
    void Kill();

  private:
    intptr_t id = 0;  // what the system calls it; 0 when it has ended
    intptr_t in = 0;
    intptr_t out = 0;
};

}  // namespace test
