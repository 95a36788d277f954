// bench [--quick] [--rounds=N] [--only=REGEX] [--report=FILE] DIRECTORY
//
// Makes the data set in a new directory below DIRECTORY, which should lie on a
// disk and not in memory, runs all workloads there and writes the report.
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "data.h"
#include "files.h"
#include "peers.h"
#include "report.h"
#include "workloads.h"

namespace bench {
namespace {

std::string ProcessorName() {
    std::ifstream info("/proc/cpuinfo");
    std::string line;
    while (std::getline(info, line))
        if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    return "unknown processor";
}

std::string Head(int rounds) {
    utsname system{};
    uname(&system);
    char date[32];
    time_t now = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d", localtime(&now));
    std::string count = std::to_string(sizes.records);
    return "# Benchmarks\n\n"
           "Written by `scripts/bench`; what it measures stands in `bench/`.\n\n"
           "- Taken on " +
           std::string(date) + ": " + ProcessorName() + ", " +
           std::to_string(std::thread::hardware_concurrency()) + " cores, " + system.sysname + " " +
           system.release + ", g++ " + __VERSION__ + ", -O2 with link-time optimisation.\n" + "- Beside " +
           PeerVersions() + ", shapelib 1.5, all from Debian.\n" + "- Data: " + count + " records of " +
           std::to_string(RecordLength) +
           " bytes with five fields: name C(20), text C(38), amount N(12,2), date D, flag L. Names and "
           "amounts are "
           "unique and in random order. " +
           std::to_string(sizes.lookups) + " look-ups, " + std::to_string(sizes.adds) + " adds, " +
           std::to_string(sizes.memos) + " memos.\n" + "- Each time is the median of " +
           std::to_string(rounds) +
           " rounds, in which all contenders of a workload take turns. Files are on disk and in the system's "
           "cache. "
           "\"Against\" is how many times the time of the library's own the contender takes: above 1 the "
           "library is "
           "faster.\n"
           "- Durability: the library hands every write to the system at once, keeps none back and syncs "
           "none. "
           "SQLite runs with synchronous=OFF, journal_mode=OFF (unless told), a cache that holds the whole "
           "file and "
           "mmap; LMDB with MDB_NOSYNC. shapelib writes through a buffer.\n\n";
}

// What bench_memory, which stands beside this program, has to say.
std::string MemoryReport(const std::string& program) {
    FILE* pipe = popen((program + " " + DataName).c_str(), "r");
    Check(pipe, program.c_str());
    std::string out;
    char line[512];
    while (fgets(line, sizeof line, pipe)) out += line;
    Check(pclose(pipe) == 0, program.c_str());
    return out;
}

int Main(int argc, char** argv) {
    bool quick = false;
    int rounds = 7;
    std::string only = "";
    std::string report = "benchmarks.md";
    std::string place;
    for (int i = 1; i < argc; i++) {
        std::string argument = argv[i];
        if (argument == "--quick")
            quick = true;
        else if (argument.rfind("--rounds=", 0) == 0)
            rounds = atoi(argv[i] + 9);
        else if (argument.rfind("--only=", 0) == 0)
            only = argument.substr(7);
        else if (argument.rfind("--report=", 0) == 0)
            report = argument.substr(9);
        else
            place = argument;
    }
    Check(!place.empty() && rounds > 0,
          "usage: bench [--quick] [--rounds=N] [--only=REGEX] [--report=FILE] DIRECTORY");
    sizes = quick ? Sizes{50000, 20000, 10000, 2000} : Sizes{1000000, 200000, 200000, 100000};

    namespace fs = std::filesystem;
    std::string program = fs::canonical("/proc/self/exe").string() + "_memory";
    report = fs::absolute(report).string();
    std::string directory = (fs::absolute(place) / "bench-XXXXXX").string();
    Check(mkdtemp(directory.data()), directory.c_str());
    Check(chdir(directory.c_str()) == 0, directory.c_str());

    char name[] = "bench";
    char* arguments[] = {name, nullptr};
    int one = 1;
    benchmark::Initialize(&one, arguments);
    CheckCode(ZBDINIT(100, 0), "ZBDINIT");
    puts("Making the data set");
    fflush(stdout);
    MakeDataFile();
    if (only.rfind("memo", 0) != 0) MakeSqliteFiles();
    RecordWorkloads();
    IndexWorkloads();
    MemoWorkloads();
    std::string memory = MemoryReport(program);
    fputs(memory.c_str(), stdout);
    RunAndReport(only, rounds, Head(rounds), memory, report);
    ZBDTERM();
    fs::remove_all(directory);
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::Main(argc, argv); }
