// zb diff: how two tables differ.
#include <algorithm>
#include <memory>
#include <optional>
#include <unordered_map>

#include "commands.h"
#include "failure.h"
#include "json.h"
#include "memo.h"
#include "options.h"
#include "output.h"
#include "schema.h"
#include "terminal.h"
#include "value.h"

namespace tool {
namespace {

struct Options {
    std::string a;
    std::string b;
    std::string key;
    std::vector<std::string> fields;
    OpenOptions open;
    TextOptions text;
    bool json = false;
    bool brief = false;
};

// The statuses of programs that compare.
constexpr int kSame = 0;
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;

// One of the two tables, and how its text reads.
class Side {
  public:
    Side(const std::string& path, const Options& options)
        : data(path, Access::read, options.open),
          codec(ChooseEncoding(options.text.encoding, data.header().language, data.path()).name,
                options.text.badText) {
        for (const Field& field : data.fields()) {
            names.emplace_back();
            if (!codec.Decode(field.name, names.back())) names.back() = field.name;
        }
    }

    // The place of a field; SIZE_MAX when there is none.
    size_t Find(const std::string& name) const {
        auto found = std::find(names.begin(), names.end(), name);
        return found == names.end() ? SIZE_MAX : static_cast<size_t>(found - names.begin());
    }

    // Memo fields have the texts that they name, and what doesn't parse its bytes.
    const Value& Get(size_t field) {
        ReadValue(data.fields()[field], data.Raw(data.fields()[field]), codec, BadValues::raw, value);
        if (value.kind == Kind::memo) ReadMemo();
        return value;
    }

    Data data;
    Codec codec;
    std::vector<std::string> names;

  private:
    // A memo that can't be read is its number.
    void ReadMemo() {
        if (!sought) OpenMemos();
        std::optional<uint32_t> block = MemoNumber(value.text);
        if (!memos || !block || memos->Read(*block, bytes) < 0) return;
        value.kind = Kind::text;
        codec.Decode(WithoutSoftReturns(std::move(bytes), data.dialect(), codec), value.text);
    }

    void OpenMemos() {
        sought = true;
        auto path = FindMemoFile(data.path(), data.dialect(), {});
        if (path)
            memos.emplace(*path, data.dialect(), Access::read);
        else
            Say(data.path() + ": there is no memo file " + NewMemoName(data.path(), data.dialect()) +
                ", memos compare by their numbers");
    }

    Value value;
    std::optional<MemoFile> memos;
    bool sought = false;
    std::string bytes;
};

// The same number in its shortest form: fields of other widths and decimals may hold it.
std::string Plain(const std::string& number) {
    std::string out;
    AppendJson(Value{Kind::number, number}, out);
    if (out.find('.') != std::string::npos) {
        out.erase(out.find_last_not_of('0') + 1);
        if (out.back() == '.') out.pop_back();
    }
    return out == "-0" ? "0" : out;
}

bool Equal(const Value& a, const Value& b) {
    if (a.kind == Kind::number && b.kind == Kind::number) return Plain(a.text) == Plain(b.text);
    bool empty = a.text.empty() && b.text.empty();
    return empty || (a.kind == b.kind && a.text == b.text);
}

class Diff {
  public:
    explicit Diff(const Options& chosen) : options(chosen), a(chosen.a, chosen), b(chosen.b, chosen) {}

    int Run() {
        if (!options.json && !options.brief)
            Line("--- " + a.data.path() + ", " + Count(a.data.count(), "record") + "\n+++ " + b.data.path() +
                 ", " + Count(b.data.count(), "record"));
        CompareStructure();
        PairFields();
        if (options.key.empty())
            CompareByPosition();
        else
            CompareByKey();
        if (differences == 0 || options.brief) output.buffer().clear();
        if (options.brief && differences > 0) Line(a.data.path() + " and " + b.data.path() + " differ");
        output.Finish();
        return differences > 0 ? kDifferent : kSame;
    }

  private:
    struct Pair {
        size_t a;
        size_t b;
    };

    void Line(const std::string& text) { output.Write(text + "\n"); }

    void TellField(const char* sign, const char* change, const Side& side, size_t field) {
        ++differences;
        std::string& out = output.buffer();
        std::string type = TypeText(side.data.fields()[field]);
        if (options.json) {
            out += "{\"change\":\"" + std::string(change) + "\",\"field\":";
            AppendJson(side.names[field], out);
            out += ",\"type\":\"" + type + "\"}\n";
        } else {
            out += std::string(sign) + " field ";
            AppendPrintable(side.names[field], out);
            out += " " + type + "\n";
        }
    }

    void CompareStructure() {
        for (size_t field = 0; field < a.names.size(); ++field) {
            size_t other = b.Find(a.names[field]);
            if (other != SIZE_MAX && TypeText(a.data.fields()[field]) == TypeText(b.data.fields()[other]))
                continue;
            TellField("-", "fieldRemoved", a, field);
            if (other != SIZE_MAX) TellField("+", "fieldAdded", b, other);
        }
        for (size_t field = 0; field < b.names.size(); ++field)
            if (a.Find(b.names[field]) == SIZE_MAX) TellField("+", "fieldAdded", b, field);
        if (differences > 0 || a.names == b.names) return;
        ++differences;
        Line(options.json ? "{\"change\":\"fieldOrder\"}" : "! the fields stand in another order");
    }

    // The fields that both have, or those asked for.
    void PairFields() {
        std::vector<std::string> wanted = options.fields.empty() ? a.names : options.fields;
        for (const std::string& name : wanted) {
            Pair pair{a.Find(name), b.Find(name)};
            if (!options.fields.empty()) {
                pair.a = FindField(a.data, name, a.codec);
                pair.b = FindField(b.data, name, b.codec);
            }
            if (pair.b != SIZE_MAX) pairs.push_back(pair);
        }
    }

    void CompareByPosition() {
        uint32_t both = std::min(a.data.count(), b.data.count());
        Progress progress("comparing", both);
        for (uint32_t record = 1; record <= both; ++record) {
            CompareRecords(record, record, "");
            progress.At(record);
        }
        for (uint32_t record = both + 1; record <= a.data.count(); ++record)
            TellRecord("-", "removed", a, record);
        for (uint32_t record = both + 1; record <= b.data.count(); ++record)
            TellRecord("+", "added", b, record);
    }

    // Records of one key pair off in their order.
    void CompareByKey() {
        size_t keyA = FindField(a.data, options.key, a.codec), keyB = FindField(b.data, options.key, b.codec);
        std::unordered_map<std::string, std::vector<uint32_t>> waiting;
        for (uint32_t record = b.data.count(); record > 0; --record) {
            b.data.Read(record);
            waiting[KeyText(b, keyB)].push_back(record);
        }
        Progress progress("comparing", a.data.count());
        std::vector<bool> met(b.data.count() + size_t{1});
        for (uint32_t record = 1; record <= a.data.count(); ++record) {
            a.data.Read(record);
            std::string key = KeyText(a, keyA);
            auto found = waiting.find(key);
            if (found == waiting.end() || found->second.empty()) {
                TellRecord("-", "removed", a, record);
                continue;
            }
            uint32_t other = found->second.back();
            found->second.pop_back();
            met[other] = true;
            CompareRecords(record, other, key);
            progress.At(record);
        }
        for (uint32_t record = 1; record <= b.data.count(); ++record)
            if (!met[record]) TellRecord("+", "added", b, record);
    }

    static std::string KeyText(Side& side, size_t field) {
        const Value& value = side.Get(field);
        return value.kind == Kind::number ? Plain(value.text) : value.text;
    }

    void CompareRecords(uint32_t recordA, uint32_t recordB, const std::string& key) {
        bool deletedA = a.data.Read(recordA);
        bool deletedB = b.data.Read(recordB);
        std::string changes;
        if (deletedA != deletedB) AppendChange("_deleted", Logical(deletedA), Logical(deletedB), changes);
        for (const Pair& pair : pairs) {
            const Value& before = a.Get(pair.a);
            const Value& after = b.Get(pair.b);
            if (!Equal(before, after)) AppendChange(a.names[pair.a], before, after, changes);
        }
        if (changes.empty()) return;
        ++differences;
        std::string numbers = recordA == recordB ? std::to_string(recordA)
                                                 : std::to_string(recordA) + " -> " + std::to_string(recordB);
        std::string& out = output.buffer();
        if (options.json) {
            out += "{\"change\":\"changed\",\"a\":" + std::to_string(recordA) +
                   ",\"b\":" + std::to_string(recordB) + ",\"fields\":{" + changes + "}}\n";
        } else {
            out += "! record " + numbers;
            if (!options.key.empty()) {
                out += " (" + options.key + " ";
                AppendPrintable(key, out);
                out += ")";
            }
            out += "\n" + changes;
        }
        output.Breathe();
    }

    static Value Logical(bool yes) { return {Kind::logical, yes ? "T" : "F"}; }

    void AppendChange(const std::string& name, const Value& before, const Value& after,
                      std::string& out) const {
        if (options.json) {
            if (!out.empty()) out += ',';
            AppendJson(name, out);
            out += ":[";
            AppendJson(before, out);
            out += ',';
            AppendJson(after, out);
            out += ']';
            return;
        }
        out += "    ";
        AppendPrintable(name, out);
        out += ": '";
        AppendPrintable(before.text, out);
        out += "' -> '";
        AppendPrintable(after.text, out);
        out += "'\n";
    }

    // A record that the other table hasn't.
    void TellRecord(const char* sign, const char* change, Side& side, uint32_t record) {
        ++differences;
        bool deleted = side.data.Read(record);
        std::string& out = output.buffer();
        if (options.json)
            out += "{\"change\":\"" + std::string(change) + "\",\"record\":" + std::to_string(record) +
                   ",\"_deleted\":" + (deleted ? "true" : "false") + ",\"fields\":{";
        else
            out += std::string(sign) + " record " + std::to_string(record) + (deleted ? ", deleted:" : ":");
        const char* between = "";
        for (size_t field = 0; field < side.names.size(); ++field) {
            const Value& value = side.Get(field);
            if (options.json) {
                out += between;
                AppendJson(side.names[field], out);
                out += ':';
                AppendJson(value, out);
                between = ",";
            } else if (!value.text.empty()) {
                out += std::string(between) + " ";
                AppendPrintable(side.names[field], out);
                out += " '";
                AppendPrintable(value.text, out);
                out += "'";
                between = ",";
            }
        }
        out += options.json ? "}}\n" : "\n";
        output.Breathe();
    }

    const Options& options;
    Side a;
    Side b;
    std::vector<Pair> pairs;
    Output output;
    uint64_t differences = 0;
};

// Trouble is one status, whatever its kind: 1 is taken.
int Run(const Options& options) {
    try {
        return Diff(options).Run();
    } catch (const Failure& failure) {
        SayFailure(failure.what());
        return kTrouble;
    }
}

constexpr const char* kFooter =
    "Exit status: 0 no differences; 1 differences; 2 the tables can't be compared.\n"
    "\n"
    "Fields pair off by their names, records by their numbers or by the values of --key.\n"
    "Values compare as what they mean: 1.50 is 1.5, in a field of any width, and\n"
    "memo fields by their texts.\n";

}  // namespace

void AddDiff(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "diff", "Show how two tables differ, in structure and records");
    command.Positional("A", options->a, "The first table");
    command.Positional("B", options->b, "The second table");
    command.Option("--key", options->key, "Pair records that have the same value in this field");
    command.List("--fields", options->fields, "Compare these fields: NAME,BORN (default: those of both)");
    command.Flag("--brief", options->brief, "Only tell whether they differ");
    command.Flag("--json", options->json, "As JSON, one object a difference");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Footer(kFooter);
    command.Examples(
        "  zb diff old.dbf new.dbf\n"
        "  zb diff old.dbf new.dbf --key CODE --fields NAME,AMOUNT\n");
    command.RunForStatus([options] { return Run(*options); });
}

}  // namespace tool
