// zb index create: a new index over a table.
#include "build_place.h"
#include "evaluate.h"
#include "failure.h"
#include "files.h"
#include "index.h"
#include "index_commands.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string index;
    std::string expression;
    std::string type;
    int length = 0;
    bool unique = false;
    bool force = false;
    std::string encoding;
    OpenOptions open;
};

// Fills in what the user left open, by what the expression gives.
void Complete(NewIndex& wanted, Data& data) {
    Result result = TryExpression(data, wanted.expression);
    char gives = result.type == 'F' ? 'N' : result.type;
    if (gives != 'C' && gives != 'N' && gives != 'D')
        throw CodeFailure(ZB_ErrExpression, data.path(),
                          "'" + wanted.expression + "' gives no text, number or date");
    if (wanted.type == 0) wanted.type = gives;
    if (wanted.type != gives)
        throw Failure(Exit::usage,
                      std::string("--type ") + wanted.type + ": '" + wanted.expression + "' gives " + gives);
    if (wanted.type != 'C' || wanted.length != 0) return;
    wanted.length = static_cast<int>(result.bytes.size());
    constexpr int kLongest = 100;
    if (wanted.length < 1 || wanted.length > kLongest)
        throw CodeFailure(ZB_ErrKeyLength, data.path(),
                          "'" + wanted.expression + "' gives " + std::to_string(wanted.length) +
                              " bytes, a key has 1 to 100 (--length n cuts them)");
}

// An index that another program has open can't be replaced under its hands.
void RefuseOpenIndex(const IndexFormat& format, const std::string& path) {
    OpenIndex opened;
    int code = format.open(opened, path, "", 0, 0);
    ZBESCODE(0);
    if (code >= 0) format.close(opened);
    ZBESCODE(0);
    if (code == ZB_ErrOpen) throw CodeFailure(code, path, "another program may have it open");
}

// Looks at what was made before it is handed over.
void Inspect(const IndexFormat& format, const std::string& path, const NewIndex& wanted, uint32_t records,
             const std::string& title) {
    std::string last;
    uint64_t repeated = 0;
    bool first = true;
    pages::Survey survey = format.survey(path, wanted.tag, wanted.type, [&](const pages::Entry& entry) {
        if (!first && entry.key == last) ++repeated;
        first = false;
        last = entry.key;
    });
    if (survey.keys != records || !survey.faults.empty() || !survey.hazards.empty())
        throw Failure(Exit::other, title + ": the new index isn't right and was thrown away: " +
                                       (survey.faults.empty()
                                            ? Count(survey.keys, "key") + " for " + Count(records, "record")
                                            : survey.faults[0]));
    if (wanted.unique && repeated > 0)
        Say(title + ": marked as unique, and " + Count(repeated, "record") +
            (repeated == 1 ? " has" : " have") + " the key of another; all are in it");
    Say(title + ": created with " + Count(survey.keys, "key") + " of " + survey.expression + ", " +
        (wanted.type == 'C'   ? "texts of " + Count(static_cast<uint64_t>(survey.keyLength), "byte")
         : wanted.type == 'D' ? "dates"
                              : "numbers"));
}

void Run(const Options& options) {
    const IndexFormat& format = FormatOf(options.index);
    Data data(options.file, Access::read, options.open);
    MayReplace(options.index, options.force);
    if (Exists(options.index)) RefuseOpenIndex(format, options.index);
    data.LockWhole();
    Encoding encoding = ChooseEncoding(options.encoding, data.header().language, data.path());
    Codec codec(encoding.name, BadText::refuse);
    NewIndex wanted;
    wanted.expression = EncodeExpression(options.expression, codec);
    wanted.type = options.type.empty() ? '\0' : options.type[0];
    wanted.length = options.length;
    wanted.unique = options.unique;
    Complete(wanted, data);
    BuildPlace place(options.index);
    Check(format.build(data.id(), place.path(), wanted, wanted.expression), options.index);
    Inspect(format, place.path(), wanted, data.count(), options.index);
    place.Commit();
}

constexpr const char* kFooter =
    "The index holds the keys of all records, deleted ones too. It appears when it is\n"
    "whole; the table is locked meanwhile.\n"
    "\n"
    "NDX: built in one go with full pages, which is fast and compact. A page that then\n"
    "loses all its keys between two full ones stops walks and adds with ErrStructure\n"
    "(-6), however an index was made; zb index check tells, and making it anew helps.\n"
    "\n"
    "Examples:\n"
    "  zb index create people.dbf name.ndx --on NAME\n"
    "  zb index create people.dbf born.ndx --on BORN --force\n"
    "  zb index create people.dbf key.ndx --on 'LEFT(NAME,3)+DTOS(BORN)' --length 11\n";

}  // namespace

void AddIndexCreate(CLI::App& index) {
    auto options = std::make_shared<Options>();
    CLI::App* command = index.add_subcommand("create", "Make an index over a table");
    command->add_option("FILE", options->file, "The table")->required();
    command->add_option("INDEX", options->index, "The index file; its extension tells the format")
        ->required();
    command
        ->add_option("--on", options->expression, "The expression that gives the keys (see zb eval --help)")
        ->required();
    AddTypeOption(*command, options->type, "Type of the keys (default: what the expression gives)");
    command
        ->add_option("--length", options->length,
                     "Bytes of a text key, 1 to 100 (default: as long as the expression's text)")
        ->check(CLI::Range(1, 100));
    command->add_flag("--unique", options->unique, "Mark the index as unique");
    command->add_flag("--force", options->force, "Replace the index if it exists");
    command->add_option("--encoding", options->encoding, "Encoding of the table's text");
    AddOpenOptions(*command, options->open);
    command->footer(kFooter);
    command->callback([options] { Run(*options); });
}

}  // namespace tool
