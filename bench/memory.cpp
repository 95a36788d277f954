// bench_memory DATAFILE
//
// What the library takes of memory, in processes that do nothing else: for an
// open file, and at the highest point of an index build. Writes a section of
// the report to the standard output.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "families.h"

namespace bench {
namespace {

// A line of the process's status, in KiB.
long Status(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field, 0) == 0) return atol(line.c_str() + strlen(field) + 1);
    return 0;
}

size_t Allocated() {
    struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Follows the process's own memory, which the system keeps no highest value of.
class AnonymousPeak {
  public:
    AnonymousPeak()
        : watcher([this] {
              while (!done) {
                  highest = std::max(highest, Status("RssAnon"));
                  usleep(300);
              }
          }) {}
    long Stop() {
        done = true;
        watcher.join();
        return highest;
    }

  private:
    std::atomic<bool> done = false;
    long highest = 0;
    std::thread watcher;
};

int16_t OpenData(const char* name) {
    uint16_t data;
    CheckCode(ZBDDOPENX(&data, name, static_cast<uint16_t>(int{ZB_DialectClassic} | int{ZB_Shared})), name);
    return static_cast<int16_t>(data);
}

// Runs `work` in a process of its own, with the library started.
template <class Work>
void Apart(Work work) {
    fflush(stdout);
    pid_t child = fork();
    Check(child >= 0, "fork");
    if (child == 0) {
        CheckCode(ZBDINIT(100, 0), "ZBDINIT");
        work();
        ZBDTERM();
        fflush(stdout);
        _exit(0);
    }
    int status = 0;
    Check(waitpid(child, &status, 0) == child && status == 0, "a child process", status);
}

void PrintOpen(const char* what, size_t bytes) { printf("| %s | %zu bytes |\n", what, bytes); }

// The first open of a process makes what all later ones share, and doesn't count.
template <class Open>
void PrintOpenMemory(const char* what, Open open) {
    Apart([&] {
        constexpr int Files = 20;
        open();
        size_t before = Allocated();
        for (int i = 0; i < Files; i++) open();
        PrintOpen(what, (Allocated() - before) / Files);
    });
}

template <class F>
void PrintBuildMemory(const char* dataName, On on) {
    Apart([&] {
        std::string name = std::string("memory") + F::Extension;
        int16_t data = OpenData(dataName);
        ZBDDRGET(data, 1);
        AnonymousPeak anonymous;
        // The highest value begins anew from here.
        std::ofstream("/proc/self/clear_refs") << "5";
        long before = Status("VmRSS");
        long anonymousBefore = Status("RssAnon");
        F::Build(data, name.c_str(), on);
        long peak = Status("VmHWM");
        long anonymousPeak = anonymous.Stop();
        printf("| %s, %s | %ld KiB | %ld KiB | %ld KiB |\n", F::Label, on == On::Name ? "names" : "numbers",
               before, peak - before, anonymousPeak - anonymousBefore);
        ZBDDCLOSE(data);
        unlink(name.c_str());
    });
}

void Report(const char* dataName) {
    printf(
        "### Memory\n\nWhat an open file takes, from the allocator's own count:\n\n| | memory "
        "|\n|---|---:|\n");
    PrintOpenMemory("data file", [&] { OpenData(dataName); });
    ForEachFamily([&](auto family) {
        using F = decltype(family);
        Apart([&] {
            int16_t data = OpenData(dataName);
            F::Build(data, (std::string("memory") + F::Extension).c_str(), On::Name);
            ZBDDCLOSE(data);
        });
        std::string name = std::string("memory") + F::Extension;
        PrintOpenMemory(F::Label, [&] { F::Open(name.c_str(), On::Name); });
        unlink(name.c_str());
    });
    printf("\n- Aim: below 64 KiB.\n\n");

    printf(
        "What the building of an index adds to the process at its highest point: all resident memory, that "
        "of "
        "mapped files among it, and the process's own alone.\n\n"
        "| | before | all | its own |\n|---|---:|---:|---:|\n");
    ForEachFamily([&](auto family) {
        PrintBuildMemory<decltype(family)>(dataName, On::Name);
        PrintBuildMemory<decltype(family)>(dataName, On::Amount);
    });
    printf("\n- Aim: below 8192 KiB.\n\n");
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    bench::Check(argc == 2, "usage: bench_memory DATAFILE");
    bench::SetDay();
    bench::Report(argv[1]);
    return 0;
}
