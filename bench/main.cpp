// bench [--quick] [--sizes=N,N...] [--rounds=N] [--only=REGEX] [--no-counts]
//       [--report=FILE] DIRECTORY
//
// Makes a data set of each size in a new directory below DIRECTORY, which should
// lie on a disk and not in memory, runs all workloads there, and writes the report
// and beside it its picture, FILE with the extension svg.
//
// bench --records=N --count=WORKLOAD/CONTENDER DIRECTORY
//
// Runs one contender in a directory that is made already, for CountContenders.
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "count.h"
#include "data.h"
#include "families.h"
#include "files.h"
#include "peers.h"
#include "plot.h"
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

struct Options {
    std::vector<uint32_t> sizes = {10000, Million, 10 * Million};
    int rounds = 0;  // 0: as many as suit each size
    std::string only;
    bool counts = true;
    bool quick = false;
    std::string report = "benchmarks.md";
    uint32_t records = 0;
    std::string count;
    std::string place;
};

// Small sizes need many rounds and have the time for them.
int RoundsOf(const Options& options) {
    if (options.rounds > 0) return options.rounds;
    return sizes.records < Million ? 5 : sizes.records == Million ? 3 : 1;
}

std::string Head(const Options& options) {
    utsname system{};
    uname(&system);
    char date[32];
    time_t now = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d", localtime(&now));
    std::string counts, rounds;
    for (uint32_t records : options.sizes) {
        sizes = SizesToTime(records);
        counts += (counts.empty() ? "" : "; ") + Grouped(records) + " records: " + Grouped(sizes.lookups) +
                  " look-ups";
        if (records <= Million)
            counts += ", " + Grouped(sizes.ranges) + " ranges, " + Grouped(sizes.changes) +
                      " adds and deletes, " + Grouped(sizes.updates) + " updates, " + Grouped(sizes.appends) +
                      " appends, " + Grouped(sizes.memos) + " memos of 100 to 5000 bytes";
        rounds += (rounds.empty() ? "" : ", ") + std::to_string(RoundsOf(options));
    }
    return "# Benchmarks\n\n"
           "Written by `scripts/bench`; what it measures stands in `bench/`.\n\n"
           "- Taken on " +
           std::string(date) + ": " + ProcessorName() + ", " +
           std::to_string(std::thread::hardware_concurrency()) + " cores, " + system.sysname + " " +
           system.release + ", g++ " + __VERSION__ + ", -O2 with link-time optimisation.\n- Beside " +
           PeerVersions() + ", shapelib 1.5, all from Debian.\n- Data: records of " +
           std::to_string(RecordLength) +
           " bytes with five fields: name C(20), text C(38), amount N(12,2), date D, flag L. Names and "
           "amounts are unique and in random order. " +
           counts + ".\n- Times are medians of rounds (" + rounds +
           " at these sizes), in which all contenders of a workload take turns. Files are on disk and in "
           "the system's cache. Under \"against\" stands how many times the time of the library's own each "
           "of the others takes, at each size: above 1 the library is faster.\n"
           "- Instructions (valgrind) and system calls (strace) are per item, counted in a run of a small "
           "size. \"Reads\" are those of the library, which are copies out of mapped files and no calls: "
           "they were counted with ZB_READS=pread.\n"
           "- Durability: the library hands every write to the system at once, keeps none back and syncs "
           "none. SQLite runs with synchronous=OFF, journal_mode=OFF (unless told), a cache that holds the "
           "whole file and mmap; LMDB with MDB_NOSYNC. shapelib writes through a buffer.\n\n";
}

// What bench_memory, which stands beside this program, has to say.
std::string MemoryReport(const std::string& program) {
    FILE* pipe = popen((program + "_memory " + DataName).c_str(), "r");
    Check(pipe, program.c_str());
    std::string out;
    char line[512];
    while (fgets(line, sizeof line, pipe)) out += line;
    Check(pclose(pipe) == 0, program.c_str());
    return out;
}

void WriteText(const std::string& name, const std::string& text) {
    FILE* file = fopen(name.c_str(), "w");
    Check(file && fputs(text.c_str(), file) >= 0 && fclose(file) == 0, name.c_str());
}

void RegisterWorkloads() {
    BeginSize();
    RecordWorkloads();
    IndexWorkloads();
    MemoWorkloads();
}

Options ReadOptions(int argc, char** argv) {
    Options options;
    auto value = [](const std::string& argument, const char* name, std::string* text) {
        if (argument.rfind(name, 0) != 0) return false;
        *text = argument.substr(strlen(name));
        return true;
    };
    for (int i = 1; i < argc; i++) {
        std::string argument = argv[i];
        std::string text;
        if (argument == "--quick") {
            options.quick = true;
            options.sizes = {10000};
            options.rounds = 1;
        } else if (argument == "--no-counts") {
            options.counts = false;
        } else if (value(argument, "--sizes=", &text)) {
            options.sizes.clear();
            std::istringstream list(text);
            for (std::string size; std::getline(list, size, ',');)
                options.sizes.push_back(static_cast<uint32_t>(strtoul(size.c_str(), nullptr, 10)));
        } else if (value(argument, "--rounds=", &text)) {
            options.rounds = atoi(text.c_str());
        } else if (value(argument, "--only=", &options.only) ||
                   value(argument, "--report=", &options.report) ||
                   value(argument, "--count=", &options.count)) {
        } else if (value(argument, "--records=", &text)) {
            options.records = static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10));
        } else {
            options.place = argument;
        }
    }
    bool good = !options.place.empty() && options.place[0] != '-' && !options.sizes.empty();
    for (uint32_t records : options.sizes) good &= records >= 1000 && records <= 10 * Million;
    Check(good,
          "usage: bench [--quick] [--sizes=N,N...] [--rounds=N] [--only=REGEX] [--no-counts] "
          "[--report=FILE] DIRECTORY");
    std::sort(options.sizes.begin(), options.sizes.end());
    return options;
}

namespace fs = std::filesystem;

// The directory in use, which goes even when a check ends the program.
fs::path directoryInUse;

void RemoveDirectory() {
    std::error_code ignored;
    if (!directoryInUse.empty()) fs::remove_all(directoryInUse, ignored);
    directoryInUse.clear();
}

// Runs all workloads of one size in a directory of its own, and counts at the
// smallest. `measures` are the sections that hold for one size, up to a million.
void RunSize(const Options& options, const std::string& program, uint32_t records, std::string* measures) {
    std::string directory = (fs::absolute(options.place) / "bench-XXXXXX").string();
    Check(mkdtemp(directory.data()), directory.c_str());
    directoryInUse = directory;
    auto before = fs::current_path();
    fs::current_path(directory);
    sizes = SizesToTime(records);
    printf("%s records\n", Grouped(records).c_str());
    fflush(stdout);
    MakeDataFile();
    MakeSqliteFiles();
    RegisterWorkloads();
    RunWorkloads(options.only, RoundsOf(options));
    bool first = records == options.sizes.front();
    if (options.counts && first) CountContenders(program, options.only, !options.quick);
    if (options.only.empty() && records <= Million) *measures = IndexSizes() + MemoryReport(program);
    fs::current_path(before);
    RemoveDirectory();
}

int Main(int argc, char** argv) {
    Options options = ReadOptions(argc, argv);
    SetDay();
    CheckCode(ZBDINIT(100, 0), "ZBDINIT");
    if (!options.count.empty()) {
        fs::current_path(options.place);
        sizes = SizesToCount(options.records);
        RegisterWorkloads();
        RunForCounting(options.count);
        return 0;
    }

    std::string program = fs::canonical("/proc/self/exe").string();
    std::string measures;
    atexit(RemoveDirectory);
    for (uint32_t records : options.sizes) RunSize(options, program, records, &measures);
    ZBDTERM();

    fs::path report = options.report;
    fs::path picture = fs::path(report).replace_extension("svg");
    WriteText(report, Page(Head(options), measures, picture.filename()));
    WriteText(picture, Plot(std::max(Million, options.sizes.front())));
    return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::Main(argc, argv); }
