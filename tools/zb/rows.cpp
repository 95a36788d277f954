#include "rows.h"

#include "csv.h"
#include "json.h"

namespace tool {

void AppendJsonRecord(Scan& scan, bool numbered, std::string& out) {
    out += '{';
    if (numbered) out.append("\"_record\":").append(std::to_string(scan.record())).append(",");
    if (scan.showsDeletion())
        out.append("\"").append(kDeletedColumn).append(scan.isDeleted() ? "\":true," : "\":false,");
    for (size_t column = 0; column < scan.columns().size(); ++column) {
        AppendJson(scan.titles()[column], out);
        out += ':';
        AppendJson(scan.Get(column), out);
        out += ',';
    }
    if (out.back() == ',') out.pop_back();
    out += '}';
}

void AppendCsvTitles(const Scan& scan, char delimiter, std::string& out) {
    for (const std::string& title : scan.titles()) {
        AppendCsv(title, delimiter, out);
        out += delimiter;
    }
    if (scan.showsDeletion())
        out += kDeletedColumn;
    else if (!scan.columns().empty())
        out.pop_back();
    out += '\n';
}

void AppendCsvRecord(Scan& scan, char delimiter, std::string& out) {
    size_t start = out.size();
    for (size_t column = 0; column < scan.columns().size(); ++column) {
        AppendCsv(scan.Get(column).text, delimiter, out);
        out += delimiter;
    }
    if (scan.showsDeletion())
        out += scan.isDeleted() ? 'T' : 'F';
    else if (!scan.columns().empty())
        out.pop_back();
    // An empty line would be no row at all.
    if (out.size() == start) out += "\"\"";
    out += '\n';
}

}  // namespace tool
