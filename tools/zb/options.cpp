#include "options.h"

#include <charconv>
#include <map>

#include "failure.h"
#include "terminal.h"

namespace tool {

void AddOpenOptions(CLI::App& command, OpenOptions& options) {
    command.add_option("--dialect", options.dialect, "Dialect 1 to 9 (default: by the version byte)")
        ->check(CLI::Range(1, 9));
    command.add_option("--wait", options.wait, "Seconds to wait for another program's lock (default: 2)")
        ->check(CLI::Range(0.0, 86400.0));
}

void AddTextOptions(CLI::App& command, TextOptions& options) {
    static const std::map<std::string, BadText> policies{
        {"replace", BadText::replace}, {"escape", BadText::escape}, {"refuse", BadText::refuse}};
    command.add_option("--encoding", options.encoding,
                       "Encoding of the table's text, such as cp437, cp850, cp1252, gbk, utf-8, raw\n"
                       "(default: by the language byte, a .cpg file, or cp1252)");
    command.add_option("--bad-text", options.badText, "Text that doesn't convert: replace, escape or refuse")
        ->transform(CLI::CheckedTransformer(policies))
        ->option_text("replace|escape|refuse");
}

Range ParseRange(const std::string& text) {
    Range range{1, UINT32_MAX};
    size_t dash = text.find('-');
    auto number = [&](const std::string& part, uint32_t& value) {
        if (part.empty()) return;
        auto result = std::from_chars(part.data(), part.data() + part.size(), value);
        if (result.ec != std::errc() || *result.ptr != 0 || value == 0)
            throw Failure(Exit::usage, "records '" + text + "': write them as 7, 10-20, 10- or -20");
    };
    if (text.empty() || text == "-") throw Failure(Exit::usage, "records: the range is empty");
    number(text.substr(0, dash), range.first);
    if (dash == std::string::npos)
        range.last = range.first;
    else
        number(text.substr(dash + 1), range.last);
    if (range.first > range.last)
        throw Failure(Exit::usage, "records '" + text + "': the last comes before the first");
    return range;
}

void AddScanOptions(CLI::App& command, ScanOptions& options) {
    static const std::map<std::string, Deleted> choices{
        {"skip", Deleted::skip}, {"include", Deleted::include}, {"only", Deleted::only}};
    static const std::map<std::string, BadValues> policies{{"empty", BadValues::empty},
                                                           {"raw", BadValues::raw}};
    command.add_option("--fields", options.fields, "Fields to show, in this order (default: all)")
        ->delimiter(',');
    command.add_option("--records", options.records, "Records to show: 7, 10-20, 10- or -20 (default: all)");
    command
        .add_option("--deleted", options.deleted, "Deleted records: skip, include or only (default: skip)")
        ->transform(CLI::CheckedTransformer(choices))
        ->option_text("skip|include|only");
    command.add_option("--limit", options.limit, "At most so many records");
    command
        .add_option("--bad-values", options.badValues,
                    "Values that don't parse come out empty, or as raw text (default: empty)")
        ->transform(CLI::CheckedTransformer(policies))
        ->option_text("empty|raw");
    AddTextOptions(command, options.text);
    AddOpenOptions(command, options.open);
}

size_t FindField(const Data& data, const std::string& name, Codec& codec) {
    std::string inTable;
    return data.FieldNumber(codec.Encode(name, inTable) ? inTable : name);
}

void RequireRecord(const Data& data, uint32_t record) {
    if (record >= 1 && record <= data.count()) return;
    throw Failure(Exit::notFound, data.path() + ": " + DescribeCode(ZB_ErrSeek) + "; there is no record " +
                                      std::to_string(record) + " of " + std::to_string(data.count()));
}

char ParseDelimiter(const std::string& text) {
    if (text == "tab" || text == "\\t") return '\t';
    if (text.size() != 1 || text[0] == '"' || text[0] == '\n' || text[0] == '\r')
        throw Failure(Exit::usage, "--delimiter '" + text + "': give one character, or tab");
    return text[0];
}

std::vector<Assignment> ParseAssignments(const std::vector<std::string>& texts) {
    std::vector<Assignment> assignments;
    for (const std::string& text : texts) {
        size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(Exit::usage, "'" + text + "': write it as FIELD=VALUE");
        assignments.push_back({text.substr(0, equals), text.substr(equals + 1)});
    }
    return assignments;
}

void Assign(Data& data, const std::vector<Assignment>& assignments, Codec& codec, bool loose) {
    std::string bytes;
    for (const Assignment& assignment : assignments) {
        size_t number = FindField(data, assignment.field, codec);
        const Field& field = data.fields()[number];
        Fit fit = MakeValue(field, assignment.value, codec, bytes);
        if (fit != Fit::exact) {
            std::string what = field.name + ": '" + assignment.value + "' " + DescribeFit(fit, field);
            if (!loose)
                throw CodeFailure(ZB_ErrFieldValue, data.path(),
                                  what + "; nothing was stored (--loose stores what fits)");
            Say(data.path() + ": " + what + "; stored is '" + bytes + "'");
        }
        data.Put(number, bytes);
    }
}

}  // namespace tool
