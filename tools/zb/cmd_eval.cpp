// zb eval: what an expression comes to on a record.
#include <memory>

#include "commands.h"
#include "evaluate.h"
#include "failure.h"
#include "json.h"
#include "options.h"
#include "output.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::string file;
    uint32_t record = 0;
    std::string expression;
    OpenOptions open;
    TextOptions text;
    bool json = false;
};

void Run(const Options& options) {
    Data data(options.file, Access::read, options.open);
    RequireRecord(data, options.record);
    Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
    Codec codec(encoding.name, options.text.badText);
    data.Read(options.record);
    Result result = Evaluate(data, EncodeExpression(options.expression, codec));
    Value value = ReadResult(result, codec);
    if (value.kind == Kind::badText && options.text.badText == BadText::refuse)
        throw Failure(Exit::other, data.path() + ": the text isn't " + encoding.name + " (" +
                                       encoding.reason + "), refused");
    Output output;
    std::string& out = output.buffer();
    if (options.json) {
        out += "{\"type\":";
        AppendJson(std::string_view(&result.type, 1), out);
        out += ",\"length\":" + std::to_string(result.bytes.size()) + ",\"value\":";
        AppendJson(value, out);
        out += "}\n";
    } else {
        out += value.text + "\n";
    }
    output.Finish();
}

constexpr const char* kFooter =
    "Terms joined by +: fields, numbers, texts without quotes, SUBSTR(text,start,count),\n"
    "LEFT(text,count), RIGHT(text,count), STR(number,width,decimals), DTOC(date), DTOS(date).\n"
    "Texts are joined with their blanks, numbers are added.\n"
    "\n"
    "Examples:\n"
    "  zb eval people.dbf 3 'NAME+DTOS(BORN)'\n"
    "  zb eval people.dbf 3 'AMOUNT+10' --json\n";

}  // namespace

void AddEval(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "eval", "Show what an expression comes to on a record");
    command.Positional("FILE", options->file, "The table");
    command.Positional("RECORD", options->record, "The record's number, from 1");
    command.Positional("EXPRESSION", options->expression, "The expression, as for an index");
    command.Flag("--json", options->json, "As JSON: the type, the length and the value");
    AddTextOptions(command, options->text);
    AddOpenOptions(command, options->open);
    command.Footer(kFooter);
    command.Run([options] { Run(*options); });
}

}  // namespace tool
