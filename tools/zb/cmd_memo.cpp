// zb memo: the texts of memo fields, one by one, and the file they are in.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "memo.h"
#include "options.h"
#include "output.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    uint32_t record = 0;
    std::string field;
    std::string memo;
    OpenOptions open;
    TextOptions text;
    std::vector<std::string> words;  // put: the text
    std::string from;                // put: the file it is in
    bool loose = false;              // put
    bool dropDamaged = false;        // pack
};

std::string MemoPath(const Data& data, const Options& options) {
    if (auto path = FindMemoFile(data.path(), data.dialect(), options.memo)) return *path;
    std::string path = options.memo.empty() ? NewMemoName(data.path(), data.dialect()) : options.memo;
    throw Failure(Exit::notFound, path + ": " + DescribeCode(ZB_ErrOpen) + "; there is no such memo file");
}

size_t MemoField(const Data& data, const std::string& name, Codec& codec) {
    size_t number = FindField(data, name, codec);
    if (data.fields()[number].type == 'M') return number;
    throw Failure(Exit::usage, data.path() + ": " + DescribeCode(ZB_ErrFieldType) + "; " +
                                   data.fields()[number].name + " is no memo field");
}

// The block that a field of the record in the buffer names. Throws when it is no number.
uint32_t BlockOf(const Data& data, const Field& field, uint32_t record) {
    if (auto block = MemoNumber(data.Raw(field))) return *block;
    throw Failure(Exit::damaged, data.path() + ": " + DescribeCode(ZB_ErrFieldValue) + "; record " +
                                     std::to_string(record) + ", " + field.name +
                                     " holds no memo block number");
}

std::string MemoPlace(uint32_t record, const Field& field) {
    return "record " + std::to_string(record) + ", " + field.name;
}

void Show(const Options& options) {
    Data data(options.file, Access::read, options.open);
    RequireRecord(data, options.record);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    const Field& field = data.fields()[MemoField(data, options.field, codec)];
    data.Read(options.record);
    uint32_t block = BlockOf(data, field, options.record);
    if (block == 0) return;
    MemoFile memos(MemoPath(data, options), data.dialect(), Access::read);
    std::string bytes, text;
    int code = memos.Read(block, bytes);
    if (code < 0) throw CodeFailure(code, memos.path(), MemoPlace(options.record, field));
    if (!codec.Decode(WithoutSoftReturns(std::move(bytes), data.dialect(), codec), text)) {
        std::string what = data.path() + ": the text isn't " + encoding.name + " (" + encoding.reason + ")";
        if (options.text.badText == BadText::refuse) throw Failure(Exit::other, what + ", refused");
        Say(what);
    }
    Output output;
    output.Write(text);
    if (OutputIsTerminal() && !text.empty() && text.back() != '\n') output.Write("\n");
    output.Finish();
}

std::string ReadText(const Options& options) {
    if (options.words.size() > 1 || (!options.words.empty() && !options.from.empty()))
        throw Failure(Exit::usage, "give one text (in quotes), or --from, or standard input");
    if (!options.words.empty()) return options.words[0];
    bool standard = options.from.empty() || options.from == "-";
    std::string name = standard ? "standard input" : FindFile(options.from);
    FILE* file = standard ? stdin : std::fopen(name.c_str(), "rb");
    if (file == nullptr) throw CodeFailure(ZB_ErrOpen, name, std::strerror(errno));
    std::string text;
    char piece[1 << 16];
    size_t length;
    while ((length = std::fread(piece, 1, sizeof piece, file)) > 0) text.append(piece, length);
    bool failed = std::ferror(file) != 0;
    if (!standard) std::fclose(file);
    if (failed) throw CodeFailure(ZB_ErrRead, name);
    return text;
}

void Put(const Options& options) {
    std::string text = ReadText(options);
    Data data(options.file, Access::write, options.open);
    RequireRecord(data, options.record);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    size_t number = MemoField(data, options.field, codec);
    const Field& field = data.fields()[number];
    std::string bytes;
    MemoFit fit = MakeMemo(text, data.dialect(), codec, bytes);
    if (fit != MemoFit::exact) {
        std::string what = field.name + ": the text " + DescribeMemoFit(fit);
        bool characters = fit == MemoFit::unencodable && options.text.badText != BadText::refuse;
        if (!options.loose && !characters)
            throw CodeFailure(ZB_ErrFieldValue, data.path(),
                              what + "; nothing was stored (--loose stores what fits)");
        Say(data.path() + ": " + what + "; stored is what fits");
    }

    TableLock lock(data, options.open.wait);
    MemoFile memos(MemoFileForWriting(data, options.memo), data.dialect(), Access::write);
    memos.Survey(data);
    bool deleted = data.Read(options.record);
    uint32_t old = MemoNumber(data.Raw(field)).value_or(0);
    uint32_t block = bytes.empty() ? 0 : memos.Write(bytes, old);
    memos.Close();
    std::string pointer = MemoPointer(block, field.width);
    if (data.Raw(field) != pointer) {
        data.Put(number, pointer);
        data.Update(options.record);
        // An update makes a record live; one that was deleted stays so.
        if (deleted) data.Delete(options.record);
    }
    data.Close();
    Say(data.path() + ": changed " + MemoPlace(options.record, field) +
        (deleted ? ", which is deleted" : ""));
}

// Copies every memo that a record names, deleted records included, and tells how
// many couldn't be read.
uint32_t CopyMemos(Data& table, MemoFile& from, MemoFile& to, bool dropDamaged) {
    Progress progress("packing memos", table.count());
    uint32_t dropped = 0;
    std::string text;
    for (uint32_t record = 1; record <= table.count(); ++record) {
        bool deleted = table.Read(record);
        bool changed = false;
        for (size_t number = 0; number < table.fields().size(); ++number) {
            const Field& field = table.fields()[number];
            if (field.type != 'M') continue;
            auto block = MemoNumber(table.Raw(field));
            if (block && *block == 0) continue;
            int code = block ? from.Read(*block, text) : ZB_ErrFieldValue;
            if (code >= 0 && text.size() > kMemoLimit) code = ZB_ErrFieldWidth;
            if (code < 0) {
                if (!dropDamaged)
                    throw Failure(Exit::damaged,
                                  CodeFailure(code, from.path(), MemoPlace(record, field)).what() +
                                      std::string("; nothing was changed (--drop-damaged goes "
                                                  "on without such memos)"));
                ++dropped;
                text.clear();
            }
            uint32_t copy = text.empty() ? 0 : to.Write(text);
            table.Put(number, MemoPointer(copy, field.width));
            changed = true;
        }
        if (changed) table.Update(record);
        if (changed && deleted) table.Delete(record);
        progress.At(record);
    }
    return dropped;
}

// Both files are made anew beside the old ones, which stay as they are until
// every text is in its new place, and afterwards under other names.
void Pack(const Options& options) {
    Data data(options.file, Access::exclusive, options.open);
    std::string memoPath = MemoPath(data, options);
    std::string memoBackup = WithExtension(memoPath, ".BKT");
    std::string tableBackup = WithExtension(data.path(), ".BAK");
    if (memoBackup == memoPath || tableBackup == data.path())
        throw CodeFailure(ZB_ErrBadName, data.path(), "the old files would be kept under their own names");
    MemoFile old(memoPath, data.dialect(), Access::read);
    PartFile tablePart(data.path()), memoPart(memoPath);
    std::error_code error;
    std::filesystem::copy_file(data.path(), tablePart.path(), error);
    if (error) throw CodeFailure(ZB_ErrWrite, tablePart.path(), error.message());
    CreateMemoFile(memoPart.path(), data.dialect(), old.blockSize());
    OpenOptions open = options.open;
    open.dialect = data.dialect();
    uint32_t dropped;
    {
        Data table(tablePart.path(), Access::exclusive, open);
        MemoFile fresh(memoPart.path(), data.dialect(), Access::write);
        fresh.Begin();
        dropped = CopyMemos(table, old, fresh, options.dropDamaged);
        fresh.Close();
        table.Close();
    }
    std::filesystem::permissions(memoPart.path(), std::filesystem::status(memoPath).permissions(), error);
    auto before = std::filesystem::file_size(memoPath);
    auto after = std::filesystem::file_size(memoPart.path());
    old.Close();
    KeepAs(data.path(), tableBackup);
    KeepAs(memoPath, memoBackup);
    memoPart.Commit();
    try {
        tablePart.Commit();
    } catch (const Failure& failure) {
        // The old table goes with the old memos.
        std::filesystem::rename(memoBackup, memoPath, error);
        throw;
    }
    data.Close();
    Say(memoPath + ": packed from " + Count(before, "byte") + " to " + std::to_string(after) +
        "; the old files are kept as " + memoBackup + " and " + tableBackup);
    if (dropped > 0) Say(memoPath + ": left out " + Count(dropped, "memo") + " that couldn't be read");
}

void AddPlace(Command& command, Options& options) {
    command.Positional("FILE", options.file, "The table");
    command.Positional("RECORD", options.record, "The record's number, from 1");
    command.Positional("FIELD", options.field, "The memo field");
}

void AddFiles(Command& command, Options& options) {
    command.File("--memo", options.memo, "The memo file (default: beside the table, .DBT or .FPT)");
    AddOpenOptions(command, options.open);
}

}  // namespace

void AddMemo(CLI::App& app) {
    CLI::App* group = app.add_subcommand("memo", "Show, write and pack the texts of memo fields");
    group->require_subcommand(1);
    group->footer(
        "Examples:\n"
        "  zb memo show people.dbf 3 NOTE\n"
        "  zb memo put people.dbf 3 NOTE --from note.txt\n"
        "  zb memo pack people.dbf\n");

    auto shown = std::make_shared<Options>();
    Command show(*group, "show", "Write a memo's text to standard output, in UTF-8");
    AddPlace(show, *shown);
    AddTextOptions(show, shown->text);
    AddFiles(show, *shown);
    show.Examples("  zb memo show people.dbf 3 NOTE\n");
    show.Run([shown] { Show(*shown); });

    auto given = std::make_shared<Options>();
    given->text.badText = BadText::refuse;
    Command put(*group, "put", "Store a memo's text: an argument, a file, or standard input, in UTF-8");
    AddPlace(put, *given);
    put.Rest("TEXT", given->words, "The text; an empty one makes the field blank", true);
    put.File("--from", given->from, "The file the text is in, or - for standard input");
    put.Flag("--loose", given->loose, "Store of a text that doesn't fit what does");
    AddTextOptions(put, given->text);
    AddFiles(put, *given);
    put.Examples(
        "  zb memo put people.dbf 3 NOTE 'Called twice.'\n"
        "  zb memo put people.dbf 3 NOTE --from note.txt\n");
    put.Run([given] { Put(*given); });

    auto packed = std::make_shared<Options>();
    Command pack(*group, "pack",
                 "Make the memo file anew without dead space; the old files stay as .BKT and .BAK");
    pack.Positional("FILE", packed->file, "The table");
    pack.Flag("--drop-damaged", packed->dropDamaged, "Leave out memos that can't be read");
    AddFiles(pack, *packed);
    pack.Examples("  zb memo pack people.dbf\n");
    pack.Run([packed] { Pack(*packed); });
}

}  // namespace tool
