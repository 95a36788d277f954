// zb repair: mends in a table, its memo file and its indexes what can be mended
// without guessing.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "findings.h"
#include "index_build.h"
#include "index_check.h"
#include "memo.h"
#include "memo_check.h"
#include "options.h"
#include "table_check.h"
#include "terminal.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string file;
    std::vector<std::string> indexes;
    std::string output;
    bool inPlace = false;
    bool force = false;
    OpenOptions open;
};

constexpr size_t kCountAt = 4;
constexpr char kEndMark = 0x1A;

std::string Le32Bytes(uint32_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string Be32Bytes(uint32_t value) {
    std::string bytes = Le32Bytes(value);
    return {bytes.rbegin(), bytes.rend()};
}

// Bytes to write over a file's own, or behind them.
struct Patch {
    uint64_t position;
    std::string bytes;
    std::string done;  // what it does, for people
};

void Apply(const std::string& path, const std::vector<Patch>& patches) {
    FILE* file = std::fopen(path.c_str(), "r+b");
    bool good = file != nullptr;
    for (const Patch& patch : patches)
        good = good && std::fseek(file, static_cast<long>(patch.position), SEEK_SET) == 0 &&
               std::fwrite(patch.bytes.data(), 1, patch.bytes.size(), file) == patch.bytes.size();
    if (file != nullptr) good = std::fclose(file) == 0 && good;
    if (!good) throw CodeFailure(ZB_ErrWrite, path, std::strerror(errno));
}

// "people.dbf.orig", or the first such name that no file has.
std::string BackupName(const std::string& path) {
    std::string name = path + ".orig";
    for (int number = 2; Exists(name); ++number) name = path + ".orig" + std::to_string(number);
    return name;
}

std::vector<Patch> MendTable(const TableFacts& facts) {
    std::vector<Patch> patches;
    uint64_t records = facts.held + (facts.partBytes > 0 ? 1 : 0);
    uint64_t end = facts.RecordAt(records + 1);
    if (facts.partBytes > 0)
        patches.push_back(
            {facts.length, std::string(facts.header.recordLength - facts.partBytes, ' '),
             "filled record " + std::to_string(records) + ", which the file's end cuts, with blanks"});
    if (records != facts.header.records)
        patches.push_back({kCountAt, Le32Bytes(static_cast<uint32_t>(records)),
                           "set the count from " + std::to_string(facts.header.records) + " records to " +
                               std::to_string(records)});
    if (!facts.endMark && end >= facts.length)
        patches.push_back({end, std::string(1, kEndMark), "put an end mark behind the last record"});
    return patches;
}

std::vector<Patch> MendMemos(const MemoFacts& memos, const Findings& findings, int dialect) {
    if (!findings.Has("next") || memos.blockSize == 0 || memos.behindAll > INT32_MAX) return {};
    auto next = static_cast<uint32_t>(memos.behindAll);
    return {{0, LayoutOf(dialect) == MemoLayout::fpt ? Be32Bytes(next) : Le32Bytes(next),
             "moved the place of the next memo from block " + std::to_string(memos.next) + " to " +
                 std::to_string(next) + ", behind all others"}};
}

class Repair {
  public:
    explicit Repair(const Options& chosen) : options(chosen), table(FindFile(chosen.file)) {}

    int Run() {
        std::unique_ptr<Data> lock = Lock();
        LookAtTable();
        LookAtMemos();
        std::vector<std::string> indexes = FindIndexes();
        bool mended = !tablePatches.empty() || !memoPatches.empty();
        if (!mended && !AnyStale(indexes, table)) {
            if (left.empty()) Say(table + ": there is nothing to mend");
            return Finish();
        }
        std::string target = Target(table);
        Write(table, target, tablePatches);
        if (!memoFile.empty()) Write(memoFile, Target(memoFile), memoPatches);
        // What tells the encoding goes with the table.
        if (auto encoding = FindSibling(table, ".cpg"); encoding && !options.inPlace)
            Write(*encoding, Target(*encoding), {});
        // The making of an index takes the lock itself.
        lock.reset();
        for (const std::string& index : indexes) WriteIndex(index, target);
        return Finish();
    }

  private:
    // A table that the library refuses to open can't be locked. A program that
    // has it open would go on writing to the old file.
    std::unique_ptr<Data> Lock() const {
        try {
            if (options.inPlace) Data(table, Access::exclusive, options.open).Close();
            auto data = std::make_unique<Data>(table, Access::read, options.open);
            data->LockWhole();
            return data;
        } catch (const Failure& failure) {
            if (failure.status != Exit::damaged) throw;
            return nullptr;
        }
    }

    void LookAtTable() {
        RawFile file(table);
        Findings findings;
        facts = ReadTableFacts(file, findings);
        if (!facts.structureHolds) {
            std::string why;
            for (const Finding& finding : findings.all())
                if (finding.severity == Severity::fault && why.empty()) why = finding.text;
            throw Failure(Exit::damaged, table + ": can't be mended without guessing: " + why);
        }
        Codec codec("raw", BadText::replace);
        CheckRecords(file, facts, codec, "raw", findings);
        tablePatches = MendTable(facts);
        Keep(table, findings, {"countTooHigh", "countTooLow", "endMark"});
    }

    void LookAtMemos() {
        if (!facts.hasMemoFields() || facts.memoDialect() == 0) return;
        auto path = FindMemoFile(table, facts.memoDialect(), {});
        if (!path) {
            if (!facts.memos.empty())
                left.push_back(table + ": there is no memo file, and records name memos");
            return;
        }
        memoFile = *path;
        Findings findings;
        MemoFacts memos = CheckMemoFile(RawFile(memoFile), facts, findings);
        memoPatches = MendMemos(memos, findings, facts.memoDialect());
        Keep(memoFile, findings, {"next"});
    }

    // Faults that stay.
    void Keep(const std::string& path, const Findings& findings, const std::vector<std::string>& mended) {
        for (const Finding& finding : findings.all()) {
            bool ours = std::find(mended.begin(), mended.end(), finding.code) != mended.end();
            if (finding.severity == Severity::fault && !ours) left.push_back(path + ": " + Describe(finding));
        }
    }

    std::vector<std::string> FindIndexes() const {
        std::vector<std::string> all;
        for (const std::string& name : options.indexes) all.push_back(FindFile(name));
        for (const char* extension : {".ndx", ".ntx", ".idx", ".mdx"})
            if (auto index = FindSibling(table, extension))
                if (std::find(all.begin(), all.end(), *index) == all.end()) all.push_back(*index);
        for (const std::string& index : all) FormatOf(index);
        return all;
    }

    bool AnyStale(const std::vector<std::string>& indexes, const std::string& of) {
        return std::any_of(indexes.begin(), indexes.end(),
                           [&](const std::string& index) { return IsStale(index, of); });
    }

    bool IsStale(const std::string& index, const std::string& of) const {
        const IndexFormat& format = FormatOf(index);
        try {
            std::vector<std::string> tags{""};
            if (format.tags != nullptr) {
                tags = format.tags(index);
                if (!format.fileFaults(index).empty()) return true;
            }
            for (const std::string& tag : tags) {
                IndexOptions look;
                look.index = index;
                look.tag = tag;
                look.data = of;
                look.open = options.open;
                if (!FindInIndex(look).faults.empty()) return true;
            }
            return false;
        } catch (const pages::NotAnIndex&) {
            return true;
        } catch (const Failure& failure) {
            if (failure.status != Exit::damaged) throw;
            return true;
        }
    }

    // Where a file goes: into its own place, or under its own name elsewhere.
    std::string Target(const std::string& path) {
        if (options.inPlace) return path;
        std::string directory =
            options.output.empty() ? (fs::path(table).parent_path() / "repaired").string() : options.output;
        std::error_code error;
        fs::create_directories(directory, error);
        std::string target = (fs::path(directory) / fs::path(path).filename()).string();
        if (fs::equivalent(path, target, error))
            throw Failure(Exit::usage,
                          target + ": that is the file itself (--in-place mends it where it is)");
        MayReplace(target, options.force);
        return target;
    }

    void Write(const std::string& path, const std::string& target, const std::vector<Patch>& patches) {
        if (options.inPlace && patches.empty()) return;
        PartFile part(target);
        std::error_code error;
        fs::copy_file(path, part.path(), error);
        if (error) throw CodeFailure(ZB_ErrWrite, part.path(), error.message());
        Apply(part.path(), patches);
        Backup(path);
        part.Commit();
        for (const Patch& patch : patches) Say(target + ": " + patch.done);
        if (patches.empty()) Say(target + ": copied as it is");
    }

    void Backup(const std::string& path) const {
        if (!options.inPlace) return;
        std::string backup = BackupName(path);
        KeepAs(path, backup);
        Say(path + ": the old file is kept as " + backup);
    }

    void WriteIndex(const std::string& index, const std::string& newTable) {
        if (!IsStale(index, newTable)) {
            Write(index, Target(index), {});
            return;
        }
        std::string target = Target(index);
        std::string backup = options.inPlace ? BackupName(index) : "";
        try {
            if (!backup.empty()) KeepAs(index, backup);
            RebuildIndex(newTable, options.open, index, target);
            if (!backup.empty()) Say(index + ": the old file is kept as " + backup);
        } catch (const std::exception& error) {
            if (!backup.empty()) fs::remove(backup);
            left.push_back(index + ": can't be made anew: " + error.what() +
                           " (zb index create makes another)");
        }
    }

    int Finish() const {
        for (const std::string& one : left) Say("not mended: " + one);
        return static_cast<int>(left.empty() ? Exit::ok : Exit::damaged);
    }

    const Options& options;
    std::string table;
    TableFacts facts;
    std::vector<Patch> tablePatches;
    std::string memoFile;
    std::vector<Patch> memoPatches;
    std::vector<std::string> left;
};

constexpr const char* kFooter =
    "Mended are: the record count, by the file's length; a last record that is cut, with\n"
    "blanks; the end mark; the place for new memos; and indexes, which are made anew when\n"
    "they are damaged or don't have the records' keys. No record is lost, and no value is\n"
    "changed. The mended files go to the directory `repaired` beside the table, under\n"
    "their names, with the ones that need no mending; with --in-place they take the old\n"
    "files' places, which are kept with .orig behind their names.\n"
    "\n"
    "Exit status: 0 all is mended; 4 faults are left, which are told.\n";

}  // namespace

void AddRepair(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "repair", "Mend a table, its memo file and indexes without guessing");
    command.Positional("FILE", options->file, "The table");
    command.Rest("INDEX", options->indexes, "Its indexes, besides those that have its name", true);
    command.File("-o,--output", options->output, "The directory for the mended files (default: repaired)");
    command.Flag("--in-place", options->inPlace,
                 "Mend the files where they are, and keep the old ones as .orig");
    command.Flag("--force", options->force, "Replace files in the output directory");
    AddOpenOptions(command, options->open);
    command.Footer(kFooter);
    command.Examples(
        "  zb repair people.dbf\n"
        "  zb repair people.dbf name.ndx --in-place\n");
    command.RunForStatus([options] { return Repair(*options).Run(); });
}

}  // namespace tool
