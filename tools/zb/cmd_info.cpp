// zb info: what a table says about itself.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "options.h"
#include "output.h"
#include "schema.h"
#include "table.h"
#include "terminal.h"

namespace tool {
namespace {

struct Options {
    std::vector<std::string> files;
    OpenOptions open;
    TextOptions text;
    bool json = false;
};

struct Counts {
    uint32_t live = 0;
    uint32_t deleted = 0;
    std::string broken;  // why the count ended early
    Exit status = Exit::ok;
};

Counts CountRecords(Data& data) {
    Counts counts;
    uint32_t records = data.count();
    Progress progress("counting", records);
    try {
        for (uint32_t record = 1; record <= records; ++record) {
            ++(data.Read(record) ? counts.deleted : counts.live);
            progress.At(record);
        }
    } catch (const Failure& failure) {
        counts.broken = failure.what();
        counts.status = failure.status;
    }
    return counts;
}

std::string HexByte(uint8_t byte) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", byte);
    return text;
}

// Most programs write the year, the month and the day. This library's files
// carry the day, the month and no year.
std::string DescribeDate(const uint8_t date[3]) {
    char text[64];
    if (date[2] == 0 && date[0] >= 1 && date[0] <= 31 && date[1] >= 1 && date[1] <= 12)
        std::snprintf(text, sizeof text, "day %d, month %d", date[0], date[1]);
    else if (date[1] >= 1 && date[1] <= 12 && date[2] >= 1 && date[2] <= 31)
        std::snprintf(text, sizeof text, "%04d-%02d-%02d", date[0] + (date[0] < 80 ? 2000 : 1900), date[1],
                      date[2]);
    else
        std::snprintf(text, sizeof text, "none");
    return text;
}

std::string DateBytes(const uint8_t date[3]) {
    char text[16];
    std::snprintf(text, sizeof text, "%02X %02X %02X", date[0], date[1], date[2]);
    return text;
}

std::string Title(const Field& field, Codec& codec) {
    std::string title;
    return codec.Decode(field.name, title) ? title : field.name;
}

nlohmann::ordered_json ToJson(const Data& data, const Encoding& encoding, const Counts& counts) {
    Codec codec(encoding.name, BadText::replace);
    const Header& header = data.header();
    nlohmann::ordered_json fields = nlohmann::ordered_json::array();
    for (const Field& field : data.fields())
        fields.push_back({{"name", Title(field, codec)},
                          {"type", std::string(1, field.type)},
                          {"width", field.width},
                          {"decimals", field.decimals}});
    return {{"file", data.path()},
            {"version", header.version},
            {"dialect", data.dialect()},
            {"dialectName", DialectName(data.dialect())},
            {"memo", data.hasMemo()},
            {"production", header.production},
            {"encoding", encoding.name},
            {"encodingReason", encoding.reason},
            {"date", DescribeDate(header.date)},
            {"dateBytes", DateBytes(header.date)},
            {"records", data.count()},
            {"live", counts.live},
            {"deleted", counts.deleted},
            {"headerLength", header.length},
            {"recordLength", header.recordLength},
            {"fileLength", std::filesystem::file_size(data.path())},
            {"lengthFits", data.lengthFits()},
            {"fields", fields}};
}

void ShowText(const Data& data, const Encoding& encoding, const Counts& counts, bool dialectGiven,
              Output& output) {
    const Header& header = data.header();
    auto line = [&](const std::string& title, const std::string& value) {
        output.Write(title + std::string(12 - title.size(), ' ') + value + "\n");
    };
    line("file", data.path());
    line("version", HexByte(header.version) + (data.hasMemo() ? ", with memo fields" : ""));
    line("dialect", std::to_string(data.dialect()) + " " + DialectName(data.dialect()) +
                        (dialectGiven ? " (as asked for)" : " (by the version byte and the fields)"));
    line("encoding", encoding.name + " (" + encoding.reason + ")");
    line("date", DescribeDate(header.date) + " (bytes " + DateBytes(header.date) + ")");
    line("records", std::to_string(data.count()) + " (" + std::to_string(counts.live) + " live, " +
                        std::to_string(counts.deleted) + " deleted)");
    line("production", header.production == 0   ? "no index"
                       : header.production == 1 ? "index"
                                                : HexByte(header.production));
    line("header", Count(header.length, "byte"));
    line("record", Count(header.recordLength, "byte"));
    line("length", Count(std::filesystem::file_size(data.path()), "byte") +
                       (data.lengthFits() ? "" : ", which doesn't fit the header"));
    output.Write("\n");
    Codec codec(encoding.name, BadText::replace);
    Table table(output, {{"#", true}, {"FIELD"}, {"TYPE"}, {"WIDTH", true}, {"DECIMALS", true}});
    for (size_t number = 0; number < data.fields().size(); ++number) {
        const Field& field = data.fields()[number];
        table.Cell(0) = std::to_string(number);
        AppendPrintable(Title(field, codec), table.Cell(1));
        table.Cell(2) = std::string(1, field.type);
        table.Cell(3) = std::to_string(field.width);
        table.Cell(4) = std::to_string(field.decimals);
        table.EndRow();
    }
    table.Finish();
}

// Of one file an object, of several a list.
class Report {
  public:
    explicit Report(const Options& chosen) : options(chosen) {}

    void Run() {
        std::vector<std::string> files = ExpandNames(options.files);
        for (const std::string& file : files) Show(file);
        if (options.json) {
            nlohmann::ordered_json& shown = files.size() == 1 ? all[0] : all;
            output.Write(shown.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
        }
        output.Finish();
        if (broken.status != Exit::ok)
            throw Failure(broken.status, broken.broken + "; the count ends before it");
    }

  private:
    void Show(const std::string& file) {
        Data data(file, Access::read, options.open);
        Encoding encoding = ChooseEncoding(options.text.encoding, data.header().language, data.path());
        Counts counts = CountRecords(data);
        if (options.json) {
            all.push_back(ToJson(data, encoding, counts));
        } else {
            if (any) output.Write("\n");
            ShowText(data, encoding, counts, options.open.dialect != 0, output);
        }
        any = true;
        if (!data.lengthFits())
            Say(data.path() + ": " + DescribeCode(ZB_WarnFileSize) + " (zb check tells more)");
        if (counts.status != Exit::ok) broken = counts;
    }

    const Options& options;
    Output output;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    Counts broken;
    bool any = false;
};

}  // namespace

void AddInfo(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Command command(app, "info", "Show tables' dialect, version, dates, counts and fields");
    command.Rest("FILE", options->files, "Tables; directories and patterns, too");
    command.Flag("--json", options->json, "As JSON: an object, or a list of them for several tables");
    command.Option("--encoding", options->text.encoding, "Encoding of the table's text");
    AddOpenOptions(command, options->open);
    command.Examples(
        "  zb info people.dbf\n"
        "  zb info *.dbf --json\n");
    command.Run([options] { Report(*options).Run(); });
}

}  // namespace tool
