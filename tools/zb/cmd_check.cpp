// zb check: everything about files that can be held against something.
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>

#include "check_report.h"
#include "commands.h"
#include "evaluate.h"
#include "failure.h"
#include "files.h"
#include "index_check.h"
#include "memo.h"
#include "memo_check.h"
#include "output.h"
#include "table_check.h"
#include "terminal.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

const std::vector<std::string> kTables{".dbf"}, kMemos{".dbt", ".fpt"},
    kIndexes{".ndx", ".ntx", ".idx", ".mdx"};

struct Options {
    std::vector<std::string> files;
    bool alone = false;
    bool json = false;
    OpenOptions open;
    TextOptions text;
};

bool IsOneOf(const std::string& path, const std::vector<std::string>& extensions) {
    return std::any_of(extensions.begin(), extensions.end(),
                       [&](const std::string& extension) { return HasExtension(path, extension); });
}

std::string Stem(const std::string& path) {
    std::string stem = fs::path(path).stem().string();
    for (char& c : stem) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return stem;
}

class Checker {
  public:
    explicit Checker(const Options& chosen) : options(chosen) {}

    int Run() {
        Sort();
        for (size_t number = 0; number < tables.size(); ++number) CheckTable(tables[number]);
        for (const std::string& memo : memos) CheckStrayMemo(memo);
        for (const std::string& index : indexes) CheckIndex(index);
        Output output;
        options.json ? ShowJson(results, output) : ShowText(results, output);
        output.Finish();
        return static_cast<int>(StatusOf(results));
    }

  private:
    // What was asked for, and what belongs to a table that was asked for by name.
    void Sort() {
        std::vector<std::string> all = kTables;
        all.insert(all.end(), kMemos.begin(), kMemos.end());
        all.insert(all.end(), kIndexes.begin(), kIndexes.end());
        for (const std::string& path : ExpandNames(options.files, all)) {
            if (IsOneOf(path, kMemos))
                memos.insert(path);
            else if (IsOneOf(path, kIndexes))
                indexes.insert(path);
            else
                tables.push_back(path);
        }
        for (const std::string& memo : std::set<std::string>(memos)) {
            auto table = FindSibling(memo, ".dbf");
            if (table && std::find(tables.begin(), tables.end(), *table) == tables.end())
                tables.push_back(*table);
        }
        if (options.alone) return;
        for (const std::string& table : tables)
            for (const std::string& extension : kIndexes)
                if (auto index = FindSibling(table, extension)) indexes.insert(*index);
    }

    // A file is gone, is kept by somebody, or isn't what it seems: the others are
    // looked at all the same.
    template <typename Work>
    void Guarded(const std::string& path, const char* kind, Work work) {
        Checked one;
        one.path = path;
        one.about = kind;
        try {
            work(one);
        } catch (const Failure& failure) {
            one.failed = failure.status != Exit::damaged;
            std::string text = failure.what();
            if (text.rfind(path + ": ", 0) == 0) text.erase(0, path.size() + 2);
            one.findings.Add(Severity::fault, one.failed ? "unchecked" : "damaged", text);
        }
        results.push_back(std::move(one));
    }

    void CheckTable(const std::string& path) {
        TableFacts facts;
        Guarded(path, "table", [&](Checked& one) {
            RawFile file(path);
            facts = ReadTableFacts(file, one.findings);
            one.about = "table, " + Count(facts.header.records, "record") + " of " +
                        Count(facts.fields.size(), "field");
            if (!facts.structureHolds) return;
            std::unique_ptr<Data> lock = Lock(path, one.findings);
            Encoding encoding = ChooseEncoding(options.text.encoding, facts.header.language, path);
            Codec codec(encoding.name, BadText::replace);
            CheckRecords(file, facts, codec, encoding.name, one.findings);
            CheckCompany(path, facts, one.findings);
        });
        if (facts.structureHolds && facts.hasMemoFields() && facts.memoDialect() != 0)
            CheckMemos(path, facts);
    }

    // Nobody changes the table meanwhile, if that can be had. It needn't: what the
    // library refuses to open is looked at, too.
    std::unique_ptr<Data> Lock(const std::string& path, Findings& findings) const {
        try {
            auto data = std::make_unique<Data>(path, Access::read, options.open);
            data->LockShared();
            return data;
        } catch (const Failure& failure) {
            if (failure.status != Exit::damaged)
                findings.Add(Severity::note, "inUse",
                             "another program is at work on it, and what is found may pass",
                             "zb locks shows which");
            return nullptr;
        }
    }

    static void CheckCompany(const std::string& path, const TableFacts& facts, Findings& findings) {
        bool indexed = FindSibling(path, ".mdx").has_value();
        if (facts.header.production == 1 && !indexed && facts.header.version != 0xF5)
            findings.Add(Severity::warning, "production",
                         "the header tells of an index that belongs to it, and there is no " +
                             fs::path(WithExtension(path, ".mdx")).filename().string());
    }

    void CheckMemos(const std::string& table, const TableFacts& facts) {
        int dialect = facts.memoDialect();
        auto path = FindMemoFile(table, dialect, {});
        if (!path) {
            std::string name = NewMemoName(table, dialect);
            Findings& findings = results.back().findings;
            if (facts.memos.empty())
                findings.Add(Severity::note, "memoFile",
                             "there is no memo file " + name + ", and no record needs one");
            else
                findings.Add(
                    Severity::fault, "memoFile",
                    Count(facts.memos.size(), "memo") + " can't be read: there is no memo file " + name,
                    "find it, and put it beside the table");
            return;
        }
        memos.erase(*path);
        Guarded(*path, "memos", [&](Checked& one) {
            MemoFacts found = CheckMemoFile(RawFile(*path), facts, one.findings);
            one.about = "memos of " + table + ", " + Count(found.memos, "text");
        });
    }

    void CheckStrayMemo(const std::string& path) {
        Guarded(path, "memos", [](Checked& one) {
            one.findings.Add(Severity::note, "stray", "no table that was looked at has its texts here");
        });
    }

    // The tables that an index may be of: the one of its name, or those it makes
    // keys for.
    std::vector<std::string> TablesOf(const std::string& index, const std::string& expression) const {
        std::vector<std::string> candidates = tables;
        if (candidates.empty()) {
            std::error_code error;
            fs::path directory = fs::path(index).parent_path();
            for (fs::directory_iterator entry(directory.empty() ? "." : directory, error), end;
                 !error && entry != end; entry.increment(error))
                if (IsOneOf(entry->path().string(), kTables))
                    candidates.push_back((directory / entry->path().filename()).string());
            std::sort(candidates.begin(), candidates.end());
        }
        std::vector<std::string> able;
        for (const std::string& table : candidates) {
            if (!MakesKeys(table, expression)) continue;
            if (Stem(table) == Stem(index)) return {table};
            able.push_back(table);
        }
        return able;
    }

    // Words that are no field are texts to an expression, so that it makes
    // something of any table.
    static bool SpeaksOf(const std::string& expression, const std::vector<Field>& fields) {
        std::string word;
        for (char c : expression + " ") {
            auto byte = static_cast<unsigned char>(c);
            if (std::isalnum(byte) || c == '_' || byte >= 0x80) {
                word += c;
                continue;
            }
            for (const Field& field : fields)
                if (strcasecmp(field.name.c_str(), word.c_str()) == 0) return true;
            word.clear();
        }
        return false;
    }

    bool MakesKeys(const std::string& table, const std::string& expression) const {
        try {
            Data data(table, Access::read, options.open);
            return SpeaksOf(expression, data.fields()) && TryExpression(data, expression).type != ' ';
        } catch (const Failure& failure) {
            return false;
        }
    }

    // Of several tables that it may be of, the index is that one's whose keys it has.
    IndexFindings FindBest(IndexOptions look, const std::vector<std::string>& candidates,
                           std::string& table) const {
        std::optional<IndexFindings> best;
        for (const std::string& candidate : candidates) {
            look.data = candidate;
            IndexFindings found = FindInIndex(look);
            if (best && best->faults.size() <= found.faults.size()) continue;
            best = std::move(found);
            table = candidate;
            if (best->faults.empty()) break;
        }
        return *best;
    }

    void CheckIndex(const std::string& path) {
        Guarded(path, "index", [&](Checked& one) {
            const IndexFormat& format = FormatOf(path);
            one.about = std::string(format.name) + " index";
            std::vector<std::string> tags{""};
            if (format.tags != nullptr) {
                try {
                    tags = format.tags(path);
                    for (const std::string& fault : format.fileFaults(path))
                        AddFault(one, "pages", "", fault);
                } catch (const pages::NotAnIndex& error) {
                    throw Failure(Exit::damaged, path + ": no " + format.name + " index; " + error.what());
                }
                one.about += ", " + Count(tags.size(), "tag");
            }
            for (const std::string& tag : tags) CheckTag(path, tag, one);
        });
    }

    static void AddFault(Checked& one, const char* code, const std::string& tag, const std::string& text) {
        one.findings.Add(Severity::fault, code, (tag.empty() ? "" : "tag " + tag + ": ") + text,
                         "zb repair makes it anew");
    }

    void CheckTag(const std::string& path, const std::string& tag, Checked& one) {
        IndexOptions look;
        look.index = path;
        look.tag = tag;
        look.open = options.open;
        look.text = options.text;
        IndexFindings found = FindInIndex(look);
        std::string table;
        std::vector<std::string> candidates = TablesOf(path, found.survey.expression);
        if (!candidates.empty()) {
            look.lock = true;
            found = FindBest(look, candidates, table);
        }
        std::string what =
            found.expression + (table.empty() ? "" : " of " + table) + ", " + Count(found.survey.keys, "key");
        one.about += tag.empty() ? " on " + what : "; " + tag + " on " + what;
        if (table.empty())
            one.findings.Add(
                Severity::warning, "noTable",
                (tag.empty() ? "" : "tag " + tag + ": ") +
                    "no table that was looked at gives its keys, so that its pages alone were checked");
        for (size_t number = 0; number < found.faults.size(); ++number)
            AddFault(one, number < found.broken ? "pages" : "stale", tag, found.faults[number]);
        for (const std::string& note : found.notes)
            one.findings.Add(Severity::note, "index", (tag.empty() ? "" : "tag " + tag + ": ") + note);
    }

    const Options& options;
    std::vector<std::string> tables;
    std::set<std::string> memos;
    std::set<std::string> indexes;
    std::vector<Checked> results;
};

constexpr const char* kFooter =
    "Exit status: 0 sound; 5 warnings alone; 4 faults; 1 a file couldn't be looked at.\n"
    "\n"
    "Of a table: the header against the file's length, the fields, each record and value.\n"
    "Of its memo file: each memo that a record names, memos that share blocks, blocks\n"
    "that no memo has, the place for new memos. Of indexes: every page, and the keys\n"
    "against the records. The memo file and the indexes of a table's name are looked at\n"
    "with it. An index that has another name belongs to the table that gives its keys,\n"
    "among those named, or those in its directory. Nothing is changed.\n"
    "\n"
    "A fault: data are lost, can't be reached, or will be written over. A warning:\n"
    "something isn't as it should be, and nothing is lost by it.\n";

}  // namespace

void AddCheck(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "check", "Check tables, memo files and indexes, and what they say of each other");
    command.Rest("FILE", options->files, "Tables, memo files, indexes; directories and patterns, too");
    command.Flag("--alone", options->alone, "Not the indexes that have the name of a table");
    command.Flag("--json", options->json, "As one JSON object");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Footer(kFooter);
    command.Examples(
        "  zb check people.dbf\n"
        "  zb check people.dbf name.ndx born.ntx\n"
        "  zb check . --json\n");
    command.RunForStatus([options] { return Checker(*options).Run(); });
}

}  // namespace tool
