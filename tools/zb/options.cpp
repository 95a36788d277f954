#include "options.h"

#include <charconv>

#include "failure.h"

namespace tool {

void AddOpenOptions(Command& command, OpenOptions& options) {
    command.Option("--dialect", options.dialect, 1, 9, "Dialect (default: by the version byte)");
    command.Option("--wait", options.wait, 0, 86400,
                   "Seconds to wait for another program's lock (default: 2)");
}

void AddTextOptions(Command& command, TextOptions& options) {
    command.Option("--encoding", options.encoding,
                   "Encoding of the table's text, such as cp437, cp850, cp1252, gbk, utf-8, raw\n"
                   "(default: by the language byte, a .cpg file, or cp1252)");
    command.Choice("--bad-text", options.badText,
                   {{"replace", BadText::replace}, {"escape", BadText::escape}, {"refuse", BadText::refuse}},
                   options.badText == BadText::refuse ? "Text that doesn't convert (default: refuse)"
                                                      : "Text that doesn't convert (default: replace)");
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

void AddScanOptions(Command& command, ScanOptions& options) {
    command.List("--fields", options.fields, "Fields to show, in this order: NAME,BORN (default: all)");
    command.Option("--records", options.records, "Records to show: 7, 10-20, 10- or -20 (default: all)");
    command.Choice("--deleted", options.deleted,
                   {{"skip", Deleted::skip}, {"include", Deleted::include}, {"only", Deleted::only}},
                   "Deleted records (default: skip)");
    command.Option("--limit", options.limit, "At most so many records");
    command.Choice("--bad-values", options.badValues, {{"empty", BadValues::empty}, {"raw", BadValues::raw}},
                   "Values that don't parse come out empty, or as raw text (default: empty)");
    command.File("--memo", options.memo, "The memo file (default: beside the table, .DBT or .FPT)");
    command.Flag("--no-memo", options.noMemo, "Show the numbers of memos and not their text");
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

bool Tolerated(Fit fit, bool loose, const TextOptions& text) {
    return loose || (fit == Fit::unencodable && text.badText != BadText::refuse);
}

}  // namespace tool
