// zb locks: who has a file open, and which of its locks are held.
#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "held_locks.h"
#include "output.h"
#include "table.h"
#include "terminal.h"
#include "text.h"

namespace tool {
namespace {

struct Options {
    std::vector<std::string> files;
    bool json = false;
};

// Where the locks of a table lie, far beyond its data.
constexpr int64_t kFirstRecordByte = 0x5FFFFFC0;  // of the highest record number
constexpr int64_t kFirstSlot = 0x7FFFFFBF;
constexpr int64_t kLastSlot = 0x7FFFFFFC;
constexpr int64_t kSpare = 0x7FFFFFFD;
constexpr int64_t kHeaderByte = 0x7FFFFFFE;
// Where opens tell how they use the file: writes, reads, denies reads, denies writes.
constexpr int64_t kMarks = int64_t{1} << 62;
constexpr int64_t kLastMark = kMarks + 3;

constexpr const char* kMarkTexts[] = {"open for writing", "open for reading", "lets nobody else read",
                                      "lets nobody else write"};

std::string Span(const char* noun, int64_t from, int64_t to) {
    std::string text = noun;
    return from == to ? text + " " + std::to_string(from)
                      : text + "s " + std::to_string(from) + " to " + std::to_string(to);
}

// What a lock means, in as many pieces as it has meanings: neighbouring locks of
// one open are one lock to the system.
std::vector<std::string> Meanings(const HeldLock& lock) {
    std::vector<std::string> all;
    auto within = [&](int64_t first, int64_t last, int64_t& from, int64_t& to) {
        from = std::max(lock.first, first);
        to = std::min(lock.last, last);
        return from <= to;
    };
    int64_t from = 0, to = 0;
    if (lock.first == kFirstRecordByte && lock.last >= kSpare && lock.last <= kHeaderByte) {
        all.push_back(lock.last == kHeaderByte ? "the whole table, its header byte included"
                                               : "the whole table, without its header byte");
        return all;
    }
    if (within(0, kFirstRecordByte - 1, from, to)) all.push_back(Span("byte", from, to));
    if (within(kFirstRecordByte, kFirstSlot - 1, from, to))
        all.push_back(from == kFirstRecordByte && to == kFirstSlot - 1
                          ? "all records"
                          : Span("record", kFirstSlot - to, kFirstSlot - from));
    if (within(kFirstSlot, kLastSlot, from, to))
        all.push_back(from == kFirstSlot && to == kLastSlot
                          ? "all reader slots"
                          : Span("reader slot", kLastSlot - to + 1, kLastSlot - from + 1) +
                                " (a shared lock)");
    if (within(kSpare, kSpare, from, to)) all.push_back("the byte between reader slots and header byte");
    if (within(kHeaderByte, kHeaderByte, from, to)) all.push_back("the header byte (an append)");
    if (within(kHeaderByte + 1, kMarks - 1, from, to)) all.push_back(Span("byte", from, to));
    for (int64_t mark = kMarks; mark <= kLastMark; ++mark)
        if (within(mark, mark, from, to)) all.push_back(kMarkTexts[mark - kMarks]);
    if (within(kLastMark + 1, INT64_MAX, from, to)) all.push_back(Span("byte", from, to));
    return all;
}

void ShowText(const std::string& path, const std::vector<HeldLock>& locks, Output& output) {
    if (locks.empty()) {
        output.Write(path + ": nobody has it open through this library, or holds a lock on it\n");
        return;
    }
    output.Write(path + ":\n");
    Table table(output, {{"PROCESS", true}, {"PROGRAM"}, {"MODE"}, {"HOLDS"}});
    for (const HeldLock& lock : locks)
        for (const std::string& meaning : Meanings(lock)) {
            bool mark = lock.first >= kMarks && lock.last <= kLastMark;
            table.Cell(0) = lock.process == 0 ? "?" : std::to_string(lock.process);
            AppendPrintable(lock.program.empty() ? "not told" : lock.program, table.Cell(1));
            table.Cell(2) = mark ? "" : lock.writing ? "exclusive" : "shared";
            table.Cell(3) = meaning;
            table.EndRow();
        }
    table.Finish();
}

void ShowJson(const std::string& path, const std::vector<HeldLock>& locks, Output& output) {
    using Json = nlohmann::ordered_json;
    Json held = Json::array();
    for (const HeldLock& lock : locks) {
        Json one{{"process", lock.process == 0 ? Json() : Json(lock.process)},
                 {"program", lock.program.empty() ? Json() : Json(lock.program)},
                 {"descriptor", lock.descriptor < 0 ? Json() : Json(lock.descriptor)},
                 {"exclusive", lock.writing},
                 {"first", lock.first},
                 {"last", lock.last},
                 {"meanings", Meanings(lock)}};
        held.push_back(one);
    }
    Json all{{"file", path}, {"locks", held}};
    output.Write(all.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void Run(const Options& options) {
    Output output;
    for (const std::string& path : ExpandNames(options.files)) {
        std::vector<HeldLock> locks = ReadLocks(path);
        options.json ? ShowJson(path, locks, output) : ShowText(path, locks, output);
    }
    output.Finish();
}

constexpr const char* kFooter =
    "Locks are held on data files; index and memo files only show who has them open. The\n"
    "processes of other users are told to root alone.\n";

}  // namespace

void AddLocks(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "locks", "Show which locks are held on files, and by which processes");
    command.Rest("FILE", options->files, "Tables, indexes or memo files; directories and patterns, too");
    command.Flag("--json", options->json, "As JSON, one object a file");
    command.Footer(kFooter);
    command.Examples(
        "  zb locks people.dbf\n"
        "  zb locks '*.dbf' --json\n");
    command.Run([options] { Run(*options); });
}

}  // namespace tool
