// zb index create: a new index over a table; and zb index erase, its contrary
// for tags.
#include <strings.h>

#include <algorithm>
#include <memory>

#include "build_place.h"
#include "evaluate.h"
#include "failure.h"
#include "files.h"
#include "index.h"
#include "index_build.h"
#include "index_commands.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string index;
    std::vector<std::string> expressions;
    std::vector<std::string> tags;
    std::string type;
    int length = 0;
    int decimals = -1;
    bool unique = false;
    bool compact = false;
    bool forReading = false;
    bool force = false;
    std::string encoding;
    OpenOptions open;
};

[[noreturn]] void Refuse(const std::string& line) { throw Failure(Exit::usage, line); }

bool Is(const IndexFormat& format, const char* name) { return std::string_view(format.name) == name; }

// One index for each expression, as far as the command line tells.
std::vector<NewIndex> ReadOptions(const Options& options, const IndexFormat& format, Codec& codec) {
    size_t count = options.expressions.size();
    if (count == 0) Refuse("--on EXPRESSION is needed: what gives the keys");
    if (format.tags == nullptr && (count > 1 || !options.tags.empty()))
        Refuse(options.index + ": one --on and no --tag: only MDX files hold several indexes");
    if (format.tags != nullptr && options.tags.size() != count)
        Refuse(options.index + ": give a --tag NAME for each --on EXPRESSION");
    for (size_t number = 0; number < options.tags.size(); ++number)
        for (size_t other = 0; other < number; ++other)
            if (strcasecmp(options.tags[number].c_str(), options.tags[other].c_str()) == 0)
                Refuse(options.index + ": --tag " + options.tags[number] + " is given twice");
    if (count > 1 && (!options.type.empty() || options.length != 0))
        Refuse("--type and --length are for one index at a time");
    if (options.decimals >= 0 && !Is(format, "NTX")) Refuse("--decimals is for NTX files");
    if (options.forReading && !Is(format, "NTX")) Refuse("--for-reading is for NTX files");
    if (options.compact && !Is(format, "IDX")) Refuse("--compact is for IDX files");
    std::vector<NewIndex> all(count);
    for (size_t number = 0; number < count; ++number) {
        NewIndex& one = all[number];
        if (format.tags != nullptr) one.tag = options.tags[number];
        one.expression = EncodeExpression(options.expressions[number], codec);
        one.type = ParseType(options.type);
        one.length = options.length;
        one.decimals = options.decimals;
        one.unique = options.unique;
        one.compact = options.compact;
    }
    return all;
}

// The field that is the whole expression; null when none is.
const Field* PlainField(const Data& data, const std::string& expression) {
    for (const Field& field : data.fields())
        if (strcasecmp(field.name.c_str(), expression.c_str()) == 0) return &field;
    return nullptr;
}

// NTX keys are the digits themselves.
void CompleteDigits(NewIndex& wanted, const Data& data) {
    constexpr int kLongest = 19;
    const Field* field = PlainField(data, wanted.expression);
    if (wanted.length == 0 && field == nullptr)
        Refuse("--length and --decimals are needed: '" + wanted.expression +
               "' is no field, and the keys of an NTX file are numbers of a fixed form");
    if (wanted.length == 0) wanted.length = std::min<int>(field->width, kLongest);
    if (wanted.decimals < 0) wanted.decimals = field != nullptr ? field->decimals : 0;
}

// Fills in what the user left open, by what the expression gives.
void Complete(NewIndex& wanted, const IndexFormat& format, Data& data) {
    Result result = TryExpression(data, wanted.expression);
    char gives = result.type == 'F' && Is(format, "MDX") ? 'N' : result.type;
    if (std::string_view(format.types).find(gives) == std::string_view::npos)
        throw CodeFailure(ZB_ErrExpression, data.path(),
                          "'" + wanted.expression + "' gives type " + gives + ", which is no key of " +
                              format.name + " files");
    if (wanted.type == 0) wanted.type = gives;
    if (wanted.type != gives)
        Refuse(std::string("--type ") + wanted.type + ": '" + wanted.expression + "' gives " + gives);
    if (gives == 'N' && format.numberByValue) CompleteDigits(wanted, data);
    wanted.decimals = std::max(wanted.decimals, 0);
    if (gives == 'D' || (gives == 'N' && !format.numberByValue))
        wanted.length = Is(format, "MDX") && gives == 'N' ? 12 : 8;
    if (gives == 'L') wanted.length = 1;
    if (wanted.length == 0) wanted.length = static_cast<int>(result.bytes.size());
    constexpr int kLongest = 100;
    if (wanted.length < 1 || wanted.length > kLongest)
        throw CodeFailure(ZB_ErrKeyLength, data.path(),
                          "'" + wanted.expression + "' gives " + std::to_string(wanted.length) +
                              " bytes, a key has 1 to 100 (--length n cuts them)");
    if (wanted.compact && data.count() > HighestPackedRecord(wanted.length))
        throw CodeFailure(ZB_ErrKeyLength, data.path(),
                          "packed keys of " + Count(static_cast<uint64_t>(wanted.length), "byte") +
                              " carry record numbers to " +
                              std::to_string(HighestPackedRecord(wanted.length)) + ", the table has " +
                              Count(data.count(), "record"));
}

// An index that another program has open can't be replaced under its hands.
void RefuseOpenIndex(const IndexFormat& format, const std::string& path) {
    OpenIndex opened;
    int code = format.open(opened, path, {}, 0, 0);
    ZBESCODE(0);
    if (code >= 0) format.close(opened);
    ZBESCODE(0);
    if (code == ZB_ErrOpen) throw CodeFailure(code, path, "another program may have it open");
}

// Key by key, which leaves every page at least half full.
void Grow(const IndexFormat& format, const std::string& path, const NewIndex& wanted, Data& data) {
    Check(format.create(path, wanted, wanted.expression), path);
    Index index(format, path, wanted.tag, wanted.type, true);
    uint32_t records = data.count();
    Progress progress("indexing", records);
    for (uint32_t record = 1; record <= records; ++record) {
        data.Read(record);
        index.Add(index.Make(data), record);
        progress.At(record);
    }
    index.Close();
}

// A build doesn't tell which record gave no key.
void FillAtOnce(const IndexFormat& format, const std::string& path, const NewIndex& wanted, Data& data,
                const std::string& title) {
    int code = format.build(data.id(), path, wanted, wanted.expression);
    if (code >= 0) return;
    ZBESCODE(0);
    bool lookForRecord = code == ZB_ErrBadDate || code == ZB_ErrExpression;
    for (uint32_t record = 1; lookForRecord && record <= data.count(); ++record) {
        data.Read(record);
        Result result = Evaluate(data, wanted.expression);
        std::string digits;
        bool blank = result.bytes.find_first_not_of(' ') == std::string::npos;
        if (result.type == 'D' && !blank && !IsDate(result.bytes, digits))
            throw EvaluationFailure(code, data, wanted.expression);
    }
    throw CodeFailure(code, title);
}

// Whether a build gives the keys that single adds do: those of MDX and IDX files
// stumble over blank dates, and those of IDX files write no logical keys.
bool BuildMakesKeys(const IndexFormat& format, const NewIndex& wanted) {
    bool simple = wanted.type == 'C' || wanted.type == 'N' || wanted.compact;
    return simple || Is(format, "NDX") || Is(format, "NTX");
}

// Looks at what was made before it is handed over.
void Inspect(const IndexFormat& format, const std::string& path, const NewIndex& wanted, uint32_t records,
             bool grown, const std::string& title) {
    std::string last;
    uint64_t repeated = 0;
    bool first = true;
    std::string tag = FindTag(format, path, wanted.tag);
    pages::Survey survey = format.survey(path, tag, wanted.type, [&](const pages::Entry& entry) {
        if (!first && entry.key == last) ++repeated;
        first = false;
        last = entry.key;
    });
    std::vector<std::string> wrong = survey.faults;
    wrong.insert(wrong.end(), survey.hazards.begin(), survey.hazards.end());
    if (grown) wrong.insert(wrong.end(), survey.notes.begin(), survey.notes.end());
    if (survey.keys != records)
        wrong.push_back(Count(survey.keys, "key") + " for " + Count(records, "record"));
    if (!wrong.empty())
        throw Failure(Exit::other, title + ": the new index isn't right and was thrown away: " + wrong[0]);
    Say(title + ": created with " + Count(survey.keys, "key") + " of " + survey.expression + ", " +
        (wanted.type == 'C'   ? "texts of " + Count(static_cast<uint64_t>(survey.keyLength), "byte")
         : wanted.type == 'D' ? "dates"
         : wanted.type == 'N' ? "numbers"
                              : "logicals"));
    if (wanted.unique && repeated > 0)
        Say(title + ": marked as unique, and " + Count(repeated, "record") +
            (repeated == 1 ? " has" : " have") + " the key of another; all are in it");
}

// Whether the file that tags are added to is sound so far.
bool IsSound(const std::string& path) {
    try {
        return FaultsOfAllTags(path).empty();
    } catch (const pages::NotAnIndex& error) {
        throw Failure(Exit::damaged, path + ": no MDX index; " + error.what());
    }
}

bool HasTag(const IndexFormat& format, const std::string& path, const std::string& tag) {
    for (const std::string& name : format.tags(path))
        if (strcasecmp(name.c_str(), tag.c_str()) == 0) return true;
    return false;
}

void Run(const Options& options) {
    const IndexFormat& format = FormatOf(options.index);
    Data data(options.file, Access::read, options.open);
    Encoding encoding = ChooseEncoding(options.encoding, data.header().language, data.path());
    Codec codec(encoding.name, BadText::refuse);
    std::vector<NewIndex> all = ReadOptions(options, format, codec);
    data.LockWhole();
    for (NewIndex& wanted : all) Complete(wanted, format, data);
    bool exists = Exists(options.index);
    if (format.tags == nullptr) MayReplace(options.index, options.force);
    bool wasSound = format.tags != nullptr && (!exists || IsSound(options.index));
    if (exists) RefuseOpenIndex(format, options.index);
    BuildPlace place(options.index);
    if (exists && format.tags != nullptr) place.CopyTarget();
    for (const NewIndex& wanted : all) {
        std::string title = options.index + (wanted.tag.empty() ? "" : " " + wanted.tag);
        if (format.tags != nullptr && Exists(place.path()) && HasTag(format, place.path(), wanted.tag)) {
            if (!options.force)
                throw CodeFailure(ZB_ErrAccess, title,
                                  "the tag exists and is left as it was (--force replaces it)");
            Check(EraseTag(place.path(), wanted.tag), title);
        }
        bool grown = Is(format, "NTX") && !options.forReading;
        if (grown || !BuildMakesKeys(format, wanted))
            Grow(format, place.path(), wanted, data);
        else
            FillAtOnce(format, place.path(), wanted, data, title);
        Inspect(format, place.path(), wanted, data.count(), grown, title);
        if (options.forReading) Say(title + ": for reading and adds; deletes can damage it");
    }
    if (wasSound) {
        std::vector<std::string> faults = FaultsOfAllTags(place.path());
        if (!faults.empty())
            throw Failure(Exit::other,
                          options.index + ": the new file isn't right and was thrown away: " + faults[0]);
    }
    place.Commit();
}

// What the index's own pages say of it, and the table of its keys' type.
NewIndex LikeOld(const IndexPages& old, const std::string& path) {
    constexpr size_t kNtxDecimals = 16;
    NewIndex wanted;
    wanted.tag = old.tag();
    wanted.expression = old.survey().expression;
    wanted.type = old.type();
    wanted.length = old.survey().keyLength;
    wanted.unique = old.survey().unique;
    wanted.compact = old.survey().format.find("compact") != std::string::npos;
    if (Is(old.format(), "NTX")) wanted.decimals = pages::Le16(pages::Load(path), kNtxDecimals);
    return wanted;
}

}  // namespace

void RebuildIndex(const std::string& table, const OpenOptions& open, const std::string& pattern,
                  const std::string& target) {
    const IndexFormat& format = FormatOf(pattern);
    std::vector<std::string> tags =
        format.tags != nullptr ? format.tags(pattern) : std::vector<std::string>{""};
    std::vector<NewIndex> all;
    for (const std::string& tag : tags) {
        IndexOptions look;
        look.index = pattern;
        look.tag = tag;
        look.data = table;
        look.open = open;
        all.push_back(LikeOld(IndexPages(look), pattern));
    }
    Data data(table, Access::read, open);
    data.LockWhole();
    if (Exists(target)) RefuseOpenIndex(format, target);
    BuildPlace place(target);
    for (const NewIndex& wanted : all) {
        std::string title = target + (wanted.tag.empty() ? "" : " " + wanted.tag);
        bool grown = Is(format, "NTX");
        if (grown || !BuildMakesKeys(format, wanted))
            Grow(format, place.path(), wanted, data);
        else
            Check(format.build(data.id(), place.path(), wanted, wanted.expression), title);
        Inspect(format, place.path(), wanted, data.count(), grown, title);
    }
    place.Commit();
}

namespace {

struct EraseOptions {
    std::string index;
    std::string tag;
};

void Erase(const EraseOptions& options) {
    std::string path = FindFile(options.index);
    const IndexFormat& format = FormatOf(path);
    if (format.tags == nullptr) Refuse(path + ": tags are in MDX files");
    if (options.tag.empty()) Refuse("--tag NAME is needed");
    std::string tag = FindTag(format, path, options.tag);
    RefuseOpenIndex(format, path);
    bool wasSound = IsSound(path);
    BuildPlace place(path);
    place.CopyTarget();
    Check(EraseTag(place.path(), tag), path + " " + tag);
    std::vector<std::string> faults = FaultsOfAllTags(place.path());
    if (wasSound && !faults.empty())
        throw Failure(
            Exit::damaged,
            path + " " + tag + ": erasing it would damage the file, which is left as it was: " + faults[0]);
    place.Commit();
    Say(path + ": erased the tag " + tag);
}

constexpr const char* kFooter =
    "The index holds the keys of all records, deleted ones too. It appears when it is\n"
    "whole and was looked through; the table is locked meanwhile.\n"
    "\n"
    "NDX: built in one go with full pages, which is fast and compact. A page that then\n"
    "loses all its keys between two full ones stops walks and adds with ErrStructure\n"
    "(-6), however an index was made; zb index check tells, and making it anew helps.\n"
    "NTX: filled key by key, which takes longer and leaves an index that any adds and\n"
    "deletes keep sound. --for-reading builds it in one go, for reading and adds.\n"
    "IDX: built in one go, and the keys that a build leaves open are put right. A\n"
    "--compact one is for other programs to read: the library can't change it.\n"
    "MDX: the file is made where there is none, otherwise tags are added to it. Its\n"
    "header is dated 1999-12-31 (unless ZB_TODAY says otherwise), since the format\n"
    "takes no day after 2019. Its name has at most 8 characters.\n"
    "\n"
    "Examples:\n"
    "  zb index create people.dbf name.ndx --on NAME\n"
    "  zb index create people.dbf key.ntx --on 'LEFT(NAME,3)+DTOS(BORN)' --unique\n"
    "  zb index create people.dbf people.mdx --tag NAME --on NAME --tag BORN --on BORN\n";

}  // namespace

void AddIndexCreate(CLI::App& index) {
    auto options = std::make_shared<Options>();
    Command command(index, "create", "Make an index over a table");
    command.Positional("FILE", options->file, "The table");
    command.Positional("INDEX", options->index, "The index file; its extension tells the format");
    command.Repeated("--on", options->expressions,
                     "The expression that gives the keys, needed (see zb eval --help)");
    command.Repeated("--tag", options->tags, "MDX: the name of the tag, one for each --on");
    command.Option("--type", options->type,
                   "Type of the keys: C, N, D or L (default: what the expression gives)");
    command.Option("--length", options->length, 1, 100,
                   "Bytes of a text key, digits of an NTX number (default: as long as the expression's)");
    command.Option("--decimals", options->decimals, 0, 15,
                   "NTX: decimals of a number (default: the field's)");
    command.Flag("--unique", options->unique, "Mark the index as unique");
    command.Flag("--compact", options->compact, "IDX: packed leaves");
    command.Flag("--for-reading", options->forReading, "NTX: built in one go, not for deletes");
    command.Flag("--force", options->force, "Replace the index, or the tag, if it exists");
    command.Option("--encoding", options->encoding, "Encoding of the table's text");
    AddOpenOptions(command, options->open);
    command.Footer(kFooter);
    command.Run([options] { Run(*options); });
}

void AddIndexErase(CLI::App& index) {
    auto options = std::make_shared<EraseOptions>();
    Command command(index, "erase", "Erase a tag of an MDX file");
    command.Positional("INDEX", options->index, "The MDX file");
    command.Option("--tag", options->tag, "The tag, needed");
    command.Examples("  zb index erase people.mdx --tag BORN\n");
    command.Run([options] { Erase(*options); });
}

}  // namespace tool
