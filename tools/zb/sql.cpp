#include "sql.h"

#include "json.h"
#include "rows.h"

namespace tool {
namespace {

constexpr uint64_t kRowsAnInsert = 500;
constexpr std::string_view kNoCharacter = "\xEF\xBF\xBD";  // for zero bytes, which no text there may hold

// Up to this many places a number comes back from a double as it went in.
constexpr int kSafePlaces = 15;

void AppendQuoted(std::string_view text, char quote, std::string& out) {
    out += quote;
    for (char c : text) {
        if (c == 0) {
            out += kNoCharacter;
            continue;
        }
        if (c == quote) out += quote;
        out += c;
    }
    out += quote;
}

std::string Lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return text;
}

}  // namespace

SqlWriter::SqlWriter(Scan& records, const SqlOptions& chosen, Output& out)
    : scan(records), options(chosen), output(out) {}

// PostgreSQL takes names without quotes in lower case.
std::string SqlWriter::Name(const std::string& name) const {
    std::string quoted;
    AppendQuoted(options.dialect == SqlDialect::postgres ? Lower(name) : name, '"', quoted);
    return quoted;
}

// Types that lose nothing: a number field may hold a point anywhere, so that
// its width and decimals bound no numeric(p,s).
const char* SqlWriter::Type(const Field& field) const {
    bool postgres = options.dialect == SqlDialect::postgres;
    switch (field.type) {
        case 'N':
        case 'F': return postgres ? "numeric" : field.width <= kSafePlaces ? "NUMERIC" : "TEXT";
        case 'D': return postgres ? "date" : "TEXT";
        case 'L': return postgres ? "boolean" : "INTEGER";
        case 'M': return scan.showsMemos() ? (postgres ? "text" : "TEXT") : (postgres ? "bigint" : "INTEGER");
        default: return postgres ? "text" : "TEXT";
    }
}

std::string SqlWriter::Columns() const {
    std::string text;
    for (const std::string& title : scan.titles()) text += (text.empty() ? "" : ", ") + Name(title);
    if (scan.showsDeletion()) text += (text.empty() ? "" : ", ") + Name(kDeletedColumn);
    return text;
}

void SqlWriter::Begin() {
    bool postgres = options.dialect == SqlDialect::postgres;
    std::string& out = output.buffer();
    if (postgres) out += "SET client_encoding = 'UTF8';\n";
    out += "BEGIN;\n";
    if (!options.addToOne) {
        out += "CREATE TABLE " + Name(options.table) + " (";
        const char* between = "\n    ";
        for (size_t column = 0; column < scan.columns().size(); ++column) {
            out += between + Name(scan.titles()[column]) + " " + Type(scan.columns()[column]);
            between = ",\n    ";
        }
        if (scan.showsDeletion())
            out += between + Name(kDeletedColumn) + (postgres ? " boolean" : " INTEGER");
        out += "\n);\n";
    }
    if (postgres) out += "COPY " + Name(options.table) + " (" + Columns() + ") FROM stdin;\n";
}

void SqlWriter::AppendCopyValue(const Value& value, std::string& out) const {
    bool isNull = value.kind == Kind::empty || (value.kind == Kind::unreadable && value.text.empty());
    if (isNull) {
        out += "\\N";
        return;
    }
    if (value.kind == Kind::number) {
        AppendJson(value, out);
        return;
    }
    for (char c : value.text) switch (c) {
            case 0: out += kNoCharacter; break;
            case '\\': out += "\\\\"; break;
            case '\t': out += "\\t"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            default: out += c;
        }
}

void SqlWriter::AppendInsertValue(const Field& field, const Value& value, std::string& out) const {
    switch (value.kind) {
        case Kind::empty: out += "NULL"; return;
        case Kind::logical: out += value.text == "T" ? "1" : "0"; return;
        case Kind::memo: out += value.text; return;
        case Kind::number:
            if (field.width <= kSafePlaces) return AppendJson(value, out);
            break;
        case Kind::unreadable:
            if (value.text.empty()) {
                out += "NULL";
                return;
            }
            break;
        case Kind::text:
        case Kind::date:
        case Kind::badText: break;
    }
    AppendQuoted(value.text, '\'', out);
}

void SqlWriter::Record() {
    std::string& out = output.buffer();
    bool postgres = options.dialect == SqlDialect::postgres;
    if (!postgres)
        out += rows % kRowsAnInsert == 0 ? (rows > 0 ? ";\n" : "") + ("INSERT INTO " + Name(options.table) +
                                                                      " (" + Columns() + ") VALUES\n(")
                                         : ",\n(";
    ++rows;
    const char* between = "";
    for (size_t column = 0; column < scan.columns().size(); ++column) {
        out += between;
        between = postgres ? "\t" : ",";
        const Value& value = scan.Get(column);
        postgres ? AppendCopyValue(value, out) : AppendInsertValue(scan.columns()[column], value, out);
    }
    if (scan.showsDeletion())
        out += std::string(between) + (postgres           ? (scan.isDeleted() ? "t" : "f")
                                       : scan.isDeleted() ? "1"
                                                          : "0");
    out += postgres ? "\n" : ")";
    output.Breathe();
}

void SqlWriter::End() {
    std::string& out = output.buffer();
    if (options.dialect == SqlDialect::postgres)
        out += "\\.\n";
    else if (rows > 0)
        out += ";\n";
    out += scan.isBroken() ? "ROLLBACK;\n" : "COMMIT;\n";
}

}  // namespace tool
