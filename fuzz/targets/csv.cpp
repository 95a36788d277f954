// What the zb tool reads: comma-separated values, the types that it guesses from
// them, field names made of titles, schemas.
#include "csv.h"

#include <cstdio>
#include <memory>
#include <set>
#include <vector>

#include "failure.h"
#include "schema.h"
#include "support/session.h"
#include "value.h"

using namespace fuzz;

namespace {

using Rows = std::vector<std::vector<std::string>>;

// All rows, or false where a quote is never closed.
bool ReadRows(const std::string& bytes, char delimiter, Rows& rows) {
    std::string copy = bytes + '\n';  // no file in memory is empty
    size_t size = bytes.size();
    FILE* file = fmemopen(copy.data(), size ? size : 1, "rb");
    bool good = true;
    try {
        tool::CsvReader reader(file, "input", delimiter);
        std::vector<std::string> row;
        while (reader.Next(row)) {
            rows.push_back(row);
            if (rows.size() > size + 2) Broken("more rows than bytes");
        }
        if (reader.bytes() > size + 1) Broken("more bytes than the file has");
    } catch (const tool::Failure&) {
        good = false;
    }
    fclose(file);
    return good;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzInput input(bytes, size);
    char delimiter = ",;\t|"[input.Pick(4)];
    bool isSchema = input.Byte() & 1;
    std::string text = input.Rest();
    if (isSchema) {
        try {
            for (const tool::Field& field : tool::ParseSchema(text)) tool::TypeText(field);
        } catch (const tool::Failure&) {
        }
        return 0;
    }
    Rows rows;
    if (!ReadRows(text, delimiter, rows) || rows.empty()) return 0;

    // What is written of the rows reads as the rows again. A row of one empty value
    // is an empty line, which is passed over.
    std::string written;
    size_t kept = 0;
    for (auto& row : rows) {
        if (row.size() == 1 && row[0].empty()) continue;
        for (size_t i = 0; i < row.size(); i++) {
            if (i) written += delimiter;
            tool::AppendCsv(row[i], delimiter, written);
        }
        written += '\n';
        rows[kept++] = row;
    }
    rows.resize(kept);
    Rows again;
    bool startsWithMark = written.compare(0, 3, "\xEF\xBB\xBF") == 0;
    if (!ReadRows(written, delimiter, again) || (again != rows && !startsWithMark))
        Broken("other rows come back");

    static tool::Codec codec("CP1252", tool::BadText::replace);
    std::set<std::string> names;
    std::vector<tool::Guess> guesses(rows.empty() ? 0 : rows[0].size());
    for (auto& row : rows)
        for (size_t i = 0; i < row.size() && i < guesses.size(); i++) guesses[i].See(row[i], codec);
    for (size_t i = 0; i < guesses.size(); i++) {
        std::string name = tool::FieldName(rows[0][i], names);
        if (name.empty() || name.size() > 10) Broken("a field name that can't be");
        guesses[i].Result(name);
    }
    return 0;
}
