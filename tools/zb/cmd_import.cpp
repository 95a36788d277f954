// zb import: CSV or JSON lines into a new table, or into one that is there.
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "commands.h"
#include "csv.h"
#include "failure.h"
#include "files.h"
#include "json_lines.h"
#include "memo.h"
#include "options.h"
#include "rows.h"
#include "schema.h"
#include "terminal.h"

namespace tool {
namespace {

enum class Format { byName, csv, jsonLines };

struct Options {
    Format format = Format::byName;
    std::string input;
    std::string file;
    std::string schema;
    std::string csvEncoding = "UTF-8";
    std::string delimiter = ",";
    bool noHeader = false;
    bool append = false;
    bool loose = false;
    bool force = false;
    std::string memo;
    OpenOptions open;
    TextOptions text{{}, BadText::refuse};
};

// The input, which is read twice when the types have to be guessed.
class Source {
  public:
    explicit Source(const std::string& path) : title(path) {
        if (path == "-") {
            title = "standard input";
            file = stdin;
            return;
        }
        title = FindFile(path);
        file = std::fopen(title.c_str(), "rb");
        if (file == nullptr) throw CodeFailure(ZB_ErrOpen, title, std::strerror(errno));
    }
    ~Source() {
        if (file != stdin) std::fclose(file);
    }
    Source(const Source&) = delete;
    void operator=(const Source&) = delete;

    FILE* input() const { return file; }
    const std::string& name() const { return title; }

    uint64_t size() const {
        struct stat status = {};
        return fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode)
                   ? static_cast<uint64_t>(status.st_size)
                   : 0;
    }

    // What can't be read again is copied to where it can.
    void MakeRewindable() {
        if (std::fseek(file, 0, SEEK_SET) == 0) return;
        FILE* copy = std::tmpfile();
        if (copy == nullptr) throw CodeFailure(ZB_ErrOpen, "temporary file", std::strerror(errno));
        char piece[1 << 16];
        size_t length;
        while ((length = std::fread(piece, 1, sizeof piece, file)) > 0)
            if (std::fwrite(piece, 1, length, copy) != length)
                throw CodeFailure(ZB_ErrWrite, "temporary file", std::strerror(errno));
        file = copy;
        Rewind();
    }
    void Rewind() { std::rewind(file); }

  private:
    std::string title;
    FILE* file;
};

// Where each value of a row goes.
struct Plan {
    static constexpr size_t kDeletion = SIZE_MAX;
    static constexpr size_t kNowhere = SIZE_MAX - 1;
    static constexpr size_t kUnknown = SIZE_MAX - 2;
    std::vector<size_t> targets;  // field numbers, kDeletion or kNowhere
};

struct Tally {
    uint64_t records = 0;
    uint64_t rounded = 0;
    uint64_t cut = 0;
    uint64_t blank = 0;       // couldn't be stored at all
    uint64_t characters = 0;  // texts with characters replaced
    uint64_t memos = 0;       // cut, or without what a memo can't hold
    uint64_t rows = 0;        // with values missing, or too many
};

std::string Place(const RowReader& reader) {
    return reader.name() + ", line " + std::to_string(reader.line());
}

// Lines of `zb list --json` begin with their records' numbers.
constexpr const char* kRecordColumn = "_record";

// Adds the targets of the columns that the plan hasn't yet.
void ExtendPlan(const std::vector<Field>& fields, const std::vector<std::string>& titles,
                const std::string& source, Plan& plan) {
    for (size_t column = plan.targets.size(); column < titles.size(); ++column) {
        const std::string& title = titles[column];
        std::set<std::string> none;
        std::string name = FieldName(title, none);
        size_t target = title == kDeletedColumn  ? Plan::kDeletion
                        : title == kRecordColumn ? Plan::kNowhere
                                                 : Plan::kUnknown;
        for (size_t number = 0; number < fields.size() && target == Plan::kUnknown; ++number)
            if (strcasecmp(fields[number].name.c_str(), title.c_str()) == 0 || fields[number].name == name)
                target = number;
        if (target == Plan::kUnknown)
            throw Failure(Exit::usage, source + ": there is no field for the column '" + title + "'");
        if (std::find(plan.targets.begin(), plan.targets.end(), target) != plan.targets.end())
            throw Failure(Exit::usage, source + ": the column '" + title + "' stands twice");
        plan.targets.push_back(target);
    }
}

Plan PlanByPosition(size_t fields) {
    Plan plan;
    for (size_t number = 0; number < fields; ++number) plan.targets.push_back(number);
    return plan;
}

class Import {
  public:
    explicit Import(const Options& chosen)
        : options(chosen),
          delimiter(ParseDelimiter(chosen.delimiter)),
          csvCodec(NormalName(chosen.csvEncoding), BadText::refuse),
          csvIsUtf8(NormalName(chosen.csvEncoding) == "UTF-8" || IsJsonLines(chosen)),
          source(chosen.input),
          jsonLines(IsJsonLines(chosen)) {}

    void Run() {
        if (options.append)
            AddToTable();
        else
            MakeTable();
    }

  private:
    static bool IsJsonLines(const Options& options) {
        if (options.format != Format::byName) return options.format == Format::jsonLines;
        return HasExtension(options.input, ".jsonl") || HasExtension(options.input, ".ndjson");
    }

    std::unique_ptr<RowReader> MakeReader() {
        if (jsonLines) return std::make_unique<JsonLinesReader>(source.input(), source.name());
        return std::make_unique<CsvReader>(source.input(), source.name(), delimiter);
    }

    void MakeTable() {
        MayReplace(options.file, options.force);
        Encoding encoding = ChooseEncoding(options.text.encoding, 0, options.file);
        Codec codec(encoding.name, options.text.badText);
        std::vector<Field> fields;
        Plan plan;
        if (options.schema.empty()) {
            source.MakeRewindable();
            GuessFields(codec, fields, plan);
            source.Rewind();
        } else {
            fields = ParseSchema(options.schema);
        }
        int dialect = options.open.dialect != 0 ? options.open.dialect : FittingDialect(fields);
        std::optional<PartFile> memoPart;
        if (HasMemoField(fields)) {
            std::string memoName = MemoNameFor(options.file, dialect, options.memo);
            MayReplace(memoName, options.force);
            memoPart.emplace(memoName);
        }
        PartFile part(options.file);
        CreateTable(part.path(), fields, options.open.dialect);
        if (memoPart) CreateMemoFile(memoPart->path(), dialect);
        OpenOptions open = options.open;
        if (open.dialect == 0) open.dialect = FittingDialect(fields);
        try {
            Data data(part.path(), Access::exclusive, open);
            std::unique_ptr<RowReader> reader = MakeReader();
            ReadTitles(*reader, data.fields(), plan);
            if (memoPart) {
                memos.emplace(memoPart->path(), dialect, Access::write);
                memos->Survey(data);
            }
            AddRows(*reader, data, plan, codec, false);
            if (memos) memos->Close();
            data.Close();
        } catch (const Failure& failure) {
            throw Failure(failure.status, failure.what() + std::string("; ") + options.file + " was not " +
                                              (Exists(options.file) ? "changed" : "made"));
        }
        if (memoPart) memoPart->Commit();
        part.Commit();
        StateEncoding(options.file, encoding);
        Report(fields);
    }

    void AddToTable() {
        if (!options.schema.empty()) throw Failure(Exit::usage, "--schema and --append exclude each other");
        Data data(options.file, Access::write, options.open);
        Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
        Codec codec(encoding.name, options.text.badText);
        std::unique_ptr<RowReader> reader = MakeReader();
        Plan plan;
        ReadTitles(*reader, data.fields(), plan);
        std::optional<TableLock> lock;
        if (HasMemoField(data.fields())) {
            lock.emplace(data, options.open.wait);
            memos.emplace(MemoFileForWriting(data, options.memo), data.dialect(), Access::write);
            memos->Survey(data);
        }
        try {
            AddRows(*reader, data, plan, codec, !lock);
            if (memos) memos->Close();
            data.Close();
        } catch (const Failure& failure) {
            throw Failure(failure.status, failure.what() + std::string("; ") +
                                              Count(tally.records, "record") + " before it added to " +
                                              data.path());
        }
        Report(data.fields());
    }

    // The line of names, when there is one; without, values go by their position.
    void ReadTitles(RowReader& reader, const std::vector<Field>& fields, Plan& plan) {
        if (reader.titles() != nullptr) return;
        std::vector<std::string> titles;
        if (!options.noHeader && reader.Next(titles)) {
            for (std::string& title : titles) title = ToUtf8(title, reader);
            if (plan.targets.empty()) ExtendPlan(fields, titles, source.name(), plan);
        }
        if (plan.targets.empty()) plan = PlanByPosition(fields.size());
    }

    void GuessFields(Codec& codec, std::vector<Field>& fields, Plan& plan) {
        Progress progress("looking at the data", source.size());
        std::unique_ptr<RowReader> made = MakeReader();
        RowReader& reader = *made;
        std::vector<std::string> row;
        std::vector<std::string> titles;
        if (!options.noHeader && !jsonLines && reader.Next(row))
            for (const std::string& title : row) titles.push_back(ToUtf8(title, reader));
        std::vector<Guess> guesses(titles.size());
        while (reader.Next(row)) {
            if (row.size() > guesses.size() && (options.noHeader || titles.empty()))
                guesses.resize(row.size());
            for (size_t column = 0; column < std::min(row.size(), guesses.size()); ++column)
                guesses[column].See(ToUtf8(row[column], reader), codec, reader.isText(column));
            progress.At(reader.bytes());
        }
        if (reader.titles() != nullptr) titles = *reader.titles();
        if (guesses.empty()) throw Failure(Exit::damaged, source.name() + ": there is nothing in it");
        std::set<std::string> names;
        for (size_t column = 0; column < guesses.size(); ++column) {
            bool titled = column < titles.size();
            if (titled && (titles[column] == kDeletedColumn || titles[column] == kRecordColumn)) {
                plan.targets.push_back(titles[column] == kDeletedColumn ? Plan::kDeletion : Plan::kNowhere);
                continue;
            }
            plan.targets.push_back(fields.size());
            std::string title = titled ? titles[column] : "FIELD" + std::to_string(column + 1);
            fields.push_back(guesses[column].Result(FieldName(title, names)));
        }
    }

    const std::string& ToUtf8(const std::string& cell, const RowReader& reader) {
        if (csvIsUtf8) return cell;
        if (!csvCodec.Decode(cell, decoded))
            throw Failure(Exit::damaged, Place(reader) + ": a text isn't " + options.csvEncoding);
        return decoded;
    }

    void AddRows(RowReader& reader, Data& data, Plan& plan, Codec& codec, bool shared) {
        // Others that wait for the lock get their turn in between.
        constexpr uint64_t kRowsALock = 256;
        Progress progress("importing", source.size());
        std::vector<std::string> row;
        bool locked = false;
        while (reader.Next(row)) {
            if (reader.titles() != nullptr) ExtendPlan(data.fields(), *reader.titles(), source.name(), plan);
            bool deleted = FillRecord(reader, row, data, plan, codec);
            if (shared && !locked) data.LockForAppend();
            locked = shared;
            uint32_t record = data.Append();
            if (deleted) data.Delete(record);
            ++tally.records;
            if (locked && tally.records % kRowsALock == 0) {
                data.UnlockForAppend();
                locked = false;
            }
            progress.At(reader.bytes());
        }
        if (locked) data.UnlockForAppend();
    }

    // Puts a row into the record buffer; tells whether it is a deleted one.
    bool FillRecord(const RowReader& reader, const std::vector<std::string>& row, Data& data,
                    const Plan& plan, Codec& codec) {
        if (reader.titles() == nullptr && row.size() != plan.targets.size()) {
            if (!options.loose)
                throw Failure(Exit::damaged, Place(reader) + ": " + Count(row.size(), "value") +
                                                 " instead of " + std::to_string(plan.targets.size()));
            ++tally.rows;
        }
        bool deleted = false;
        data.Clear();
        for (size_t column = 0; column < std::min(row.size(), plan.targets.size()); ++column) {
            const std::string& text = ToUtf8(row[column], reader);
            size_t number = plan.targets[column];
            if (number == Plan::kNowhere) continue;
            if (number == Plan::kDeletion) {
                char letter = 'F';
                IsLogical(text, letter);
                deleted = letter == 'T';
                continue;
            }
            const Field& field = data.fields()[number];
            if (field.type == 'M') {
                PutMemo(reader, text, data, number, codec);
                continue;
            }
            Fit fit = MakeValue(field, text, codec, bytes);
            if (fit != Fit::exact) NoteMisfit(fit, field, text, reader);
            data.Put(number, bytes);
        }
        return deleted;
    }

    void PutMemo(const RowReader& reader, const std::string& text, Data& data, size_t number, Codec& codec) {
        const Field& field = data.fields()[number];
        MemoFit fit = MakeMemo(text, data.dialect(), codec, bytes);
        if (fit == MemoFit::unencodable) {
            NoteMisfit(Fit::unencodable, field, text, reader);
        } else if (fit != MemoFit::exact) {
            if (!options.loose)
                throw CodeFailure(ZB_ErrFieldValue, Place(reader),
                                  field.name + ": the text " + DescribeMemoFit(fit));
            ++tally.memos;
        }
        data.Put(number, MemoPointer(bytes.empty() ? 0 : memos->Write(bytes), field.width));
    }

    void NoteMisfit(Fit fit, const Field& field, const std::string& text, const RowReader& reader) {
        if (!Tolerated(fit, options.loose, options.text))
            throw CodeFailure(ZB_ErrFieldValue, Place(reader),
                              field.name + ": '" + text + "' " + DescribeFit(fit, field));
        switch (fit) {
            case Fit::exact: break;
            case Fit::rounded: ++tally.rounded; break;
            case Fit::cut: ++tally.cut; break;
            case Fit::tooLarge:
            case Fit::unreadable: ++tally.blank; break;
            case Fit::unencodable: ++tally.characters; break;
        }
    }

    void Report(const std::vector<Field>& fields) const {
        Say(options.file + ": " + (options.append ? "added " : "imported ") + Count(tally.records, "record") +
            " of " + Count(fields.size(), "field"));
        auto tell = [&](uint64_t number, const char* noun, const char* what) {
            if (number > 0) Say(options.file + ": " + Count(number, noun) + " " + what);
        };
        tell(tally.rounded, "number", "rounded");
        tell(tally.cut, "text", "cut to the field's width");
        tell(tally.blank, "value", "left blank, which the fields can't hold");
        tell(tally.characters, "text", "with characters that the table's encoding lacks");
        tell(tally.memos, "memo", "cut, or without bytes that a memo can't hold");
        tell(tally.rows, "row", "with too few or too many values");
    }

    const Options& options;
    char delimiter;
    Codec csvCodec;
    bool csvIsUtf8;
    Source source;
    bool jsonLines;
    Tally tally;
    std::optional<MemoFile> memos;
    std::string decoded;
    std::string bytes;
};

}  // namespace

void AddImport(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "import", "Make a table from CSV or JSON lines, or add them to one");
    command.Positional("INPUT", options->input, "The file to read, or - for standard input");
    command.Positional("FILE", options->file, "The table");
    command.Choice("--format", options->format, {{"csv", Format::csv}, {"jsonl", Format::jsonLines}},
                   "CSV, or a JSON object a line (default: jsonl for .jsonl and .ndjson, else csv)");
    command.Option("--schema", options->schema,
                   "The fields: \"NAME:C20,BORN:D,AMOUNT:N10.2,PAID:L\" (default: guessed from the data)");
    command.Flag("--append", options->append, "Add the records to a table that is there");
    command.Flag("--force", options->force, "Replace the table if it exists");
    command.Flag("--loose", options->loose,
                 "Store what doesn't fit as it fits (rounded, cut, blank) and tell how much that was;\n"
                 "without it the first such value ends the import");
    command.Option("--csv-encoding", options->csvEncoding,
                   "Encoding of the CSV (default: utf-8); JSON is always UTF-8");
    command.Option("--delimiter", options->delimiter,
                   "Between the values: one character, or tab (default: ,)");
    command.Flag("--no-header", options->noHeader,
                 "The CSV has no line of names: values go by their position");
    command.File("--memo", options->memo, "The memo file (default: beside the table, .DBT or .FPT)");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Examples(
        "  zb import people.csv people.dbf\n"
        "  zb import people.csv people.dbf --schema NAME:C20,BORN:D,AMOUNT:N10.2,NOTE:M\n"
        "  zb import more.jsonl people.dbf --append\n"
        "  zb export old.dbf --format jsonl | zb import - new.dbf --format jsonl\n");
    command.Run([options] { Import(*options).Run(); });
}

}  // namespace tool
