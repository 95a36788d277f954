#include "table_check.h"

#include <algorithm>
#include <set>

#include "memo.h"
#include "pages/pages.h"
#include "schema.h"
#include "terminal.h"
#include "value.h"

namespace tool {
namespace {

using pages::Le16;

constexpr size_t kDescriptor = 32;
constexpr char kTerminator = 0x0D;
constexpr char kEndMark = 0x1A;
constexpr const char* kMendCount = "zb repair sets the count by the file's length";

std::string HexByte(uint8_t byte) { return pages::Text("0x%02X", byte); }

bool IsFlag(char c) { return c == ' ' || c == '*'; }

Field ParseField(std::string_view bytes, uint16_t offset) {
    Field field{};
    field.name = std::string(bytes.substr(0, 11));
    field.name.resize(std::min(field.name.find('\0'), field.name.size()));
    field.type = bytes[11];
    if (field.type >= 'a' && field.type <= 'z') field.type = static_cast<char>(field.type - 32);
    field.width = static_cast<unsigned char>(bytes[16]);
    field.decimals = static_cast<unsigned char>(bytes[17]);
    if (field.type == 'C') {
        field.width = Le16(bytes, 16);
        field.decimals = 0;
    }
    field.offset = offset;
    return field;
}

void CheckField(const Field& field, Findings& findings) {
    std::string title = "field ";
    AppendPrintable(field.name.empty() ? "without a name" : field.name, title);
    if (field.name.empty() || field.name.size() > 10)
        findings.Add(Severity::fault, "fieldName", title + ": a name has 1 to 10 characters");
    auto width = [&](int right) {
        if (field.width != right)
            findings.Add(Severity::warning, "fieldWidth",
                         title + ": type " + field.type + " has a width of " + std::to_string(field.width) +
                             ", not of " + std::to_string(right));
    };
    switch (field.type) {
        case 'C': break;
        case 'D': width(8); break;
        case 'L': width(1); break;
        case 'M': width(10); break;
        case 'N':
        case 'F':
            if (field.width > 20)
                findings.Add(
                    Severity::warning, "fieldWidth",
                    title + " has " + std::to_string(field.width) + " places, most programs take 20");
            if (field.decimals > 0 && field.decimals + 2 > field.width)
                findings.Add(Severity::warning, "fieldDecimals",
                             title + ": " + std::to_string(field.decimals) + " decimals in " +
                                 std::to_string(field.width) + " places");
            break;
        default:
            findings.Add(Severity::fault, "fieldType",
                         title + ": the type is " + HexByte(static_cast<uint8_t>(field.type)) +
                             ", not one of C, N, F, D, L and M");
    }
    if (field.width == 0) findings.Add(Severity::fault, "fieldWidth", title + " has no width");
}

// The descriptors; false when the header can't hold together.
bool ReadFields(const std::string& head, TableFacts& facts, Findings& findings) {
    const Header& header = facts.header;
    size_t count = (header.length - kDescriptor) / kDescriptor;
    // A header of whole descriptors has its terminator in the last of them.
    bool padded = count > 0 && head[count * kDescriptor] == kTerminator;
    size_t terminator = padded ? count * kDescriptor : (count + 1) * kDescriptor;
    if (padded) --count;
    uint32_t offset = 1;
    std::set<std::string> names;
    for (size_t number = 0; number < count; ++number) {
        std::string_view bytes = std::string_view(head).substr((number + 1) * kDescriptor, kDescriptor);
        Field field = ParseField(bytes, static_cast<uint16_t>(offset));
        offset += field.width;
        CheckField(field, findings);
        if (!names.insert(field.name).second)
            findings.Add(Severity::warning, "fieldTwice", "two fields have the name " + field.name);
        facts.fields.push_back(field);
    }
    if (terminator >= head.size() || head[terminator] != kTerminator)
        findings.Add(Severity::warning, "terminator", "no byte 0x0D ends the fields in the header");
    if (offset == header.recordLength) return true;
    findings.Add(Severity::fault, "recordLength",
                 "the header tells records of " + std::to_string(header.recordLength) +
                     " bytes, and the widths of the fields add up to " + std::to_string(offset),
                 "nothing tells which is right");
    return false;
}

// Whether bytes from a position on are nothing but end marks or zeros.
bool OnlyFilling(const RawFile& file, uint64_t from) {
    constexpr size_t kLooked = 1 << 16;
    std::string bytes = file.Read(from, kLooked);
    return from + bytes.size() == file.length() &&
           (bytes.find_first_not_of(kEndMark) == std::string::npos ||
            bytes.find_first_not_of('\0', bytes[0] == kEndMark ? 1 : 0) == std::string::npos);
}

// The records before an end mark that stands where one of the last records
// would: what follows it is none.
uint64_t WithoutEndMark(const RawFile& file, const TableFacts& facts, uint64_t records) {
    for (uint64_t record = records; record > 0; --record) {
        char flag = file.Read(facts.RecordAt(record), 1)[0];
        if (flag == kEndMark) return WithoutEndMark(file, facts, record - 1);
        if (IsFlag(flag)) break;
    }
    return records;
}

// How many records there are by the file's length, and what it says to the count.
void CountRecords(const RawFile& file, TableFacts& facts, Findings& findings) {
    const Header& header = facts.header;
    uint64_t counted = header.records;
    uint64_t there = (facts.length - header.length) / header.recordLength;
    if (there < counted) {
        facts.held = WithoutEndMark(file, facts, there);
        facts.endMark = facts.held < there;
        facts.partBytes = facts.endMark ? 0 : (facts.length - header.length) % header.recordLength;
        if (facts.partBytes > 0 && !IsFlag(file.Read(facts.RecordAt(there + 1), 1)[0])) {
            facts.endMark = file.Read(facts.RecordAt(there + 1), 1)[0] == kEndMark;
            facts.partBytes = 0;
        }
        findings.Add(Severity::fault, "countTooHigh",
                     "the header counts " + Count(counted, "record") + ", and the file ends behind " +
                         (facts.partBytes > 0 ? Count(facts.held, "whole record") + " and " +
                                                    Count(facts.partBytes, "byte") + " of the next"
                                              : "record " + std::to_string(facts.held)),
                     kMendCount);
        return;
    }
    facts.held = counted;
    while (facts.held < there && IsFlag(file.Read(facts.RecordAt(facts.held + 1), 1)[0])) ++facts.held;
    if (facts.held > counted)
        findings.Add(Severity::fault, "countTooLow",
                     "the header counts " + Count(counted, "record") + ", and " +
                         Count(facts.held - counted, "record") + " more stand behind them",
                     kMendCount);
    uint64_t end = facts.RecordAt(facts.held + 1);
    facts.endMark = end < facts.length && file.Read(end, 1)[0] == kEndMark;
    if (end == facts.length)
        findings.Add(Severity::note, "endMark", "no end mark stands behind the last record, as after a pack");
    else if (!OnlyFilling(file, end))
        findings.Add(Severity::warning, "trailing",
                     Count(facts.length - end - (facts.endMark ? 1 : 0), "byte") +
                         " that no record has stand behind the " +
                         (facts.endMark ? "end mark" : "last record"));
}

void CheckValue(const Field& field, std::string_view raw, uint32_t record, Codec& codec,
                const std::string& encoding, Value& value, Findings& findings) {
    ReadValue(field, raw, codec, BadValues::raw, value);
    if (value.kind == Kind::badText)
        findings.AddRecord(Severity::warning, "text", field.name + " holds text that isn't " + encoding,
                           record, "--encoding names another");
    if (value.kind != Kind::unreadable) return;
    switch (field.type) {
        case 'D': findings.AddRecord(Severity::warning, "date", field.name + " holds no date", record); break;
        case 'L':
            findings.AddRecord(Severity::warning, "logical", field.name + " is neither true nor false",
                               record);
            break;
        case 'N':
        case 'F':
            if (raw.find_first_not_of("* ") == std::string_view::npos)
                findings.AddRecord(Severity::warning, "overflow",
                                   field.name + " holds asterisks: a number was too large for it", record);
            else
                findings.AddRecord(Severity::warning, "number", field.name + " holds no number", record);
            break;
        default: break;  // memo fields are looked at by their numbers
    }
}

}  // namespace

bool TableFacts::hasMemoFields() const { return HasMemoField(fields); }

int TableFacts::memoDialect() const {
    switch (header.version) {
        case 0x83: return ZB_DialectClassic;
        case 0x8B: return ZB_DialectDb4;
        case 0xF5: return ZB_DialectFox255;
        default: return 0;
    }
}

TableFacts ReadTableFacts(const RawFile& file, Findings& findings) {
    TableFacts facts;
    facts.length = file.length();
    facts.header = ReadHeader(file.path());
    const Header& header = facts.header;
    if (facts.length < kDescriptor) {
        findings.Add(Severity::fault, "short",
                     "the file has " + Count(facts.length, "byte") + ", a header has 32");
        return facts;
    }
    bool known = header.version == 3 || facts.memoDialect() != 0;
    if (!known) {
        findings.Add(
            Severity::fault, "version",
            "the version byte is " + HexByte(header.version) + ", not one of 0x03, 0x83, 0x8B and 0xF5",
            "is it a table?");
        return facts;
    }
    if (header.length <= kDescriptor || header.length % kDescriptor > 2 || header.length > facts.length) {
        findings.Add(Severity::fault, "headerLength",
                     "the header tells that it has " + Count(header.length, "byte") +
                         (header.length > facts.length ? ", and the file is shorter" : ""));
        return facts;
    }
    bool holds = ReadFields(file.Read(0, header.length), facts, findings) && header.recordLength > 1;
    if (facts.fields.empty()) findings.Add(Severity::fault, "noFields", "the table has no fields");
    if (header.records > INT32_MAX) {
        findings.Add(Severity::fault, "countTooHigh",
                     "the header counts " + std::to_string(header.records) + " records", kMendCount);
        facts.header.records = 0;
    }
    if (header.version == 3 && facts.hasMemoFields())
        findings.Add(Severity::fault, "version",
                     "there are memo fields, and the version byte 0x03 is that of a table without");
    if (header.production > 1)
        findings.Add(Severity::warning, "production",
                     "the byte for an index that belongs to it is " + HexByte(header.production));
    facts.structureHolds = holds;
    if (holds) CountRecords(file, facts, findings);
    return facts;
}

void CheckRecords(const RawFile& file, TableFacts& facts, Codec& codec, const std::string& encoding,
                  Findings& findings) {
    constexpr size_t kPiece = 1 << 20;
    size_t length = facts.header.recordLength;
    uint64_t step = std::max<uint64_t>(1, kPiece / length);
    Progress progress("checking records", facts.held);
    Value value;
    for (uint64_t first = 1; first <= facts.held; first += step) {
        std::string piece = file.Read(facts.RecordAt(first), static_cast<size_t>(step) * length);
        for (uint64_t number = first; number < first + step && number <= facts.held; ++number) {
            if ((number - first + 1) * length > piece.size()) break;
            std::string_view bytes = std::string_view(piece).substr((number - first) * length, length);
            auto record = static_cast<uint32_t>(number);
            if (!IsFlag(bytes[0]))
                findings.AddRecord(Severity::warning, "deleteFlag",
                                   "the delete flag is neither a blank nor *, and counts as deleted", record);
            for (size_t index = 0; index < facts.fields.size(); ++index) {
                const Field& field = facts.fields[index];
                std::string_view raw = bytes.substr(field.offset, field.width);
                CheckValue(field, raw, record, codec, encoding, value, findings);
                if (field.type != 'M') continue;
                auto block = MemoNumber(raw);
                if (!block)
                    findings.AddRecord(Severity::fault, "memoNumber",
                                       field.name + " holds no memo block number", record);
                else if (*block != 0)
                    facts.memos.push_back({record, index, *block});
            }
            progress.At(number);
        }
    }
}

}  // namespace tool
