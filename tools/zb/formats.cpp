#include "formats.h"

#include <strings.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "evaluate.h"
#include "failure.h"
#include "zb.h"

namespace tool {
namespace {

// A call of the library for handles of 16 bits, as one for all formats' handles.
template <auto Call>
struct Keys;
template <class Handle, class... Values, int32_t(ZB_CALL* Call)(Handle, Values...)>
struct Keys<Call> {
    static int32_t ZB_CALL Do(int32_t index, Values... values) {
        return Call(static_cast<Handle>(index), values...);
    }
};

// The same of those that take the data file first.
template <auto Call>
struct Make;
template <class Handle, int32_t(ZB_CALL* Call)(int16_t, Handle, void**)>
struct Make<Call> {
    static int32_t ZB_CALL Do(int16_t data, int32_t index, void** key) {
        return Call(data, static_cast<Handle>(index), key);
    }
};

// And of those that need no index.
template <int32_t(ZB_CALL* Call)(void*, double)>
int32_t ZB_CALL Number(int32_t, void* key, double value) {
    return Call(key, value);
}

template <int32_t(ZB_CALL* Call)(int16_t)>
int32_t Close(const OpenIndex& index) {
    return Call(static_cast<int16_t>(index.keys));
}

template <int32_t(ZB_CALL* Call)(uint16_t*, const char*, uint16_t)>
int32_t Open(OpenIndex& index, const std::string& path, const std::string&, char, uint16_t mode) {
    uint16_t handle = 0;
    int32_t code = Call(&handle, path.c_str(), mode);
    index.keys = static_cast<int16_t>(handle);
    return code;
}

constexpr int16_t kUnique = 0x80;
constexpr size_t kExpressionRoom = 260;

template <class Told, int32_t(ZB_CALL* Info)(int16_t, Told*), int32_t(ZB_CALL* Expression)(int16_t, char*)>
int32_t Describe(const OpenIndex& index, Told& told, IndexInfo& info) {
    char expression[kExpressionRoom] = {};
    auto handle = static_cast<int16_t>(index.keys);
    if (Info(handle, &told) < 0 || Expression(handle, expression) < 0) return ZBECODE();
    info.expression = expression;
    info.keyLength = told.keyLength;
    return ZB_Ok;
}

// Character keys in the order that the library keeps them in.
int CompareText(std::string_view a, std::string_view b) {
    return static_cast<int16_t>(_ZBDNKCMP(a.data(), b.data(), 0, static_cast<int16_t>(a.size())));
}

// ---- numbers and dates in keys ----

double LittleDouble(std::string_view key) {
    return std::bit_cast<double>(pages::Le32(key, 0) | uint64_t{pages::Le32(key, 4)} << 32);
}

// The day of a day count, which goes up by the whole part of 365.25 days a year.
// `leaps`: whether February is counted by its length in that year.
bool DayText(double count, bool leaps, std::string& text) {
    constexpr int kOffset = 1721410;
    if (!(count > kOffset && count < kOffset + 366 * 10000) || count != std::floor(count)) return false;
    auto days = static_cast<int>(count) - kOffset;
    auto before = [](int year) { return static_cast<int>((year - 1) * 365.25); };
    int year = static_cast<int>(days / 365.25) + 1;
    while (before(year) >= days) --year;
    while (before(year + 1) < days) ++year;
    days -= before(year);
    bool leap = leaps && year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    const int lengths[] = {31, leap ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int month = 0;
    while (month < 12 && days > lengths[month]) days -= lengths[month++];
    if (month == 12) return false;
    text = pages::Text("%04d%02d%02d", year, month + 1, days);
    return true;
}

bool IsPlainDate(std::string_view digits) {
    return digits.size() == 8 &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// ---- NDX ----

namespace ndx {

constexpr double kBlankDate = 1e100;

pages::Survey Survey(const std::string& path, const std::string&, char, const pages::EntrySink& sink) {
    return pages::SurveyNdx(path, sink, CompareText);
}

int32_t Create(const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDNCREATE(path.c_str(), wanted.TypeWord(), expression.data(),
                      static_cast<int16_t>(wanted.length));
}

int32_t Build(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDNINDEX(data, path.c_str(), wanted.TypeWord(), expression.data(),
                     static_cast<int16_t>(wanted.length));
}

int32_t Info(const OpenIndex& index, IndexInfo& info) {
    ZbNdxInfo told = {};
    int32_t code = Describe<ZbNdxInfo, ZBDNINFO, ZBDNEXPR>(index, told, info);
    info.numeric = told.keyType == 'N';
    return code;
}

bool ReadNumber(std::string_view key, std::string& text) { return NumberText(LittleDouble(key), text); }

bool ReadDate(std::string_view key, std::string& text) {
    text.clear();
    return LittleDouble(key) == kBlankDate || DayText(LittleDouble(key), true, text);
}

}  // namespace ndx

// ---- NTX ----

namespace ntx {

pages::Survey Survey(const std::string& path, const std::string&, char, const pages::EntrySink& sink) {
    return pages::SurveyNtx(path, sink);
}

int32_t Create(const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDCCREATE(path.c_str(), wanted.TypeWord(), expression.data(), static_cast<int16_t>(wanted.length),
                      static_cast<int16_t>(wanted.decimals));
}

int32_t Build(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDCINDEX(data, path.c_str(), wanted.TypeWord(), expression.data(),
                     static_cast<int16_t>(wanted.length), static_cast<int16_t>(wanted.decimals));
}

int32_t Info(const OpenIndex& index, IndexInfo& info) {
    ZbNtxInfo told = {};
    int32_t code = Describe<ZbNtxInfo, ZBDCINFO, ZBDCEXPR>(index, told, info);
    info.numeric = told.decimals != 0;
    return code;
}

// A negative number's digits stand as their complements, with blanks behind; a
// build puts complements of zero bytes there, and some keys have a plain sign.
bool ReadNumber(std::string_view key, std::string& text) {
    constexpr char kMirror = 0x5C;              // a digit and its complement add up to it
    size_t digit = key.find_first_not_of('.');  // a text of a field may begin with its point
    bool complemented =
        digit != std::string_view::npos && key[digit] >= kMirror - '9' && key[digit] <= kMirror - '0';
    text.clear();
    for (char c : key) {
        if (complemented && (c == ' ' || c == kMirror)) break;
        text += complemented && c != '.' ? static_cast<char>(kMirror - c) : c;
    }
    size_t sign = text.find('-');
    bool minus = complemented || sign != std::string::npos;
    if (sign != std::string::npos) text.erase(0, sign + 1);
    text.erase(0, std::min(text.find_first_not_of(" 0"), text.size()));
    if (text.empty() || text[0] == '.') text.insert(0, "0");
    if (minus) text.insert(0, "-");
    bool point = false;
    for (char c : std::string_view(text).substr(minus ? 1 : 0)) {
        if (c == '.' ? point : c < '0' || c > '9') return false;
        point = point || c == '.';
    }
    return true;
}

bool ReadDate(std::string_view key, std::string& text) {
    text = key.find_first_not_of(' ') == std::string_view::npos ? std::string() : std::string(key);
    return text.empty() || IsPlainDate(text);
}

}  // namespace ntx

// ---- IDX ----

namespace idx {

constexpr int kNumberLength = 8;

// A build counts the days up to a blank date as to one without year, month and
// day: 1721045.
constexpr std::string_view kBuiltBlankDate("\xC1\x3A\x42\xD5\0\0\0\0", kNumberLength);

// The file tells no type. Numbers and dates have 8 bytes, some of which no text has.
pages::Survey Survey(const std::string& path, const std::string&, char type, const pages::EntrySink& sink) {
    if (type != 0) {
        pages::Survey known = pages::SurveyIdx(path, sink, type == 'C' ? ' ' : '\0');
        known.numeric = type == 'N' || type == 'D';
        return known;
    }
    std::vector<pages::Entry> entries;
    bool binary = false;
    pages::Survey survey = pages::SurveyIdx(path, [&](const pages::Entry& entry) {
        for (unsigned char c : entry.key) binary = binary || c < ' ';
        entries.push_back(entry);
    });
    if (binary && survey.keyLength == kNumberLength) return Survey(path, {}, 'N', sink);
    if (sink)
        for (const pages::Entry& entry : entries) sink(entry);
    return survey;
}

int16_t TypeWord(const NewIndex& wanted) {
    return static_cast<int16_t>(wanted.TypeWord() | (wanted.compact ? ZB_IdxCompact : 0));
}

int32_t Create(const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDICREATE(path.c_str(), static_cast<uint16_t>(TypeWord(wanted)), expression.data(),
                      static_cast<int16_t>(wanted.length));
}

int32_t Open(OpenIndex& index, const std::string& path, const std::string&, char type, uint16_t mode) {
    uint16_t handle = 0;
    int32_t code = ZBDIOPENX(&handle, path.c_str(), mode);
    if (code < 0) return code;
    index.keys = static_cast<int16_t>(handle);
    return type == 0 ? code : ZBDIKTYPE(static_cast<int16_t>(handle), type);
}

// The keys that a build puts over the last pages are whatever stood there. A
// key above all others carries its own up the edge, and its removal the right
// one after it.
int32_t MendRightEdge(const std::string& path, char type) {
    constexpr size_t kLongest = 100;
    const std::string high(kLongest, '\xFF');
    OpenIndex index;
    int32_t code = Open(index, path, {}, type, 0);
    if (code < 0) return code;
    auto handle = static_cast<int16_t>(index.keys);
    if (ZBDIKADD(handle, high.data(), 0) < 0 || ZBDIKDEL(handle, high.data(), 0) < 0) {
        code = ZBECODE();
        ZBESCODE(0);
        ZBDICLOSE(handle);
        return code;
    }
    return ZBDICLOSE(handle);
}

int32_t Build(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression) {
    int32_t code = ZBDIINDEX(data, path.c_str(), static_cast<uint16_t>(TypeWord(wanted)), expression.data(),
                             static_cast<int16_t>(wanted.length));
    return code < 0 || wanted.compact ? code : MendRightEdge(path, wanted.type);
}

int32_t Info(const OpenIndex& index, IndexInfo& info) {
    ZbIdxInfo told = {};
    int32_t code = Describe<ZbIdxInfo, ZBDIINFO, ZBDIEXPR>(index, told, info);
    info.keysAreHidden = told.keyFlags & ZB_IdxCompact;
    return code;
}

double Value(std::string_view key) {
    uint64_t bits = uint64_t{pages::Be32(key, 0)} << 32 | pages::Be32(key, 4);
    return std::bit_cast<double>(bits >> 63 ? bits & ~(uint64_t{1} << 63) : ~bits);
}

bool ReadNumber(std::string_view key, std::string& text) {
    return key.size() == kNumberLength && NumberText(Value(key), text);
}

bool ReadDate(std::string_view key, std::string& text) {
    text.clear();
    if (key.size() != kNumberLength) return false;
    return Value(key) == 0 || key == kBuiltBlankDate || DayText(Value(key), true, text);
}

}  // namespace idx

// ---- MDX ----

namespace mdx {

constexpr double kBlankDate = 1e100;
constexpr int16_t kBlockUnits = 2;
constexpr const char* kDayOfFiles = "1999-12-31";

std::vector<std::string> Tags(const std::string& path) {
    std::vector<std::string> names;
    for (const pages::TagSurvey& tag : pages::SurveyMdx(path).tags) names.push_back(tag.name);
    return names;
}

std::vector<std::string> FileFaults(const std::string& path) { return pages::SurveyMdx(path).faults; }

pages::Survey Survey(const std::string& path, const std::string& tag, char, const pages::EntrySink& sink) {
    std::vector<std::string> names = Tags(path);
    auto place = static_cast<size_t>(std::find(names.begin(), names.end(), tag) - names.begin());
    pages::MdxSurvey file = pages::SurveyMdx(
        path,
        [&](size_t number, const pages::Entry& entry, const std::string*) {
            if (number == place && sink) sink(entry);
        },
        CompareText);
    pages::Survey survey = file.tags.at(place).tree;
    survey.type = file.tags[place].type;
    survey.freePages = file.freePages;
    return survey;
}

int32_t OpenFile(int16_t& file, const std::string& path, uint16_t mode) {
    return ZBDMOPENX(&file, path.c_str(), mode);
}

int32_t Open(OpenIndex& index, const std::string& path, const std::string& tag, char, uint16_t mode) {
    int32_t code = OpenFile(index.file, path, mode);
    if (code < 0 || tag.empty()) return code;
    code = ZBDMTUSE(&index.keys, static_cast<uint16_t>(index.file), tag.c_str());
    if (code >= 0) return code;
    ZBESCODE(0);
    ZBDMCLOSE(index.file);
    return code;
}

int32_t Close(const OpenIndex& index) { return ZBDMCLOSE(index.file); }

// A file that carries a day of today would be refused by every open.
int32_t CreateFile(const std::string& path) {
    setenv("ZB_TODAY", kDayOfFiles, 0);
    return ZBDMCREATE(path.c_str(), kBlockUnits);
}

// `work` on the open file, which is created where there is none.
template <class Work>
int32_t InFile(const std::string& path, Work work) {
    std::error_code error;
    if (!std::filesystem::exists(path, error) && CreateFile(path) < 0) return ZBECODE();
    int16_t file = -1;
    if (OpenFile(file, path, 0) < 0) return ZBECODE();
    int32_t code = work(file);
    ZBESCODE(0);
    int32_t closed = ZBDMCLOSE(file);
    return code < 0 ? code : closed;
}

int32_t Create(const std::string& path, const NewIndex& wanted, std::string expression) {
    return InFile(path, [&](int16_t file) {
        return ZBDMTNEW(file, wanted.tag.c_str(), static_cast<uint32_t>(wanted.TypeWord()), expression.data(),
                        wanted.length);
    });
}

int32_t Build(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression) {
    return InFile(path, [&](int16_t file) {
        return ZBDMTINDEX(data, static_cast<uint16_t>(file), wanted.tag.c_str(),
                          static_cast<uint32_t>(wanted.TypeWord()), expression.data(), wanted.length);
    });
}

void ClearLeftovers(const std::string& path, const std::string& tag) {
    for (const pages::TagSurvey& one : pages::SurveyMdx(path).tags) {
        if (strcasecmp(one.name.c_str(), tag.c_str()) != 0 || one.leftovers.empty()) continue;
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        for (size_t place : one.leftovers) {
            file.seekp(static_cast<std::streamoff>(place));
            file.write("\0\0\0\0", 4);
        }
        file.close();
        if (!file) throw Failure(Exit::other, path + ": can't be written");
    }
}

int32_t Erase(const std::string& path, const std::string& tag) {
    ClearLeftovers(path, tag);
    return InFile(path, [&](int16_t file) { return ZBDMTERASE(file, tag.c_str()); });
}

int32_t Info(const OpenIndex& index, IndexInfo& info) {
    ZbMdxTagInfo told = {};
    char expression[kExpressionRoom] = {};
    if (ZBDMTINFO(index.keys, &told) < 0 || ZBDMTEXPR(index.keys, expression) < 0) return ZBECODE();
    info.expression = expression;
    info.keyLength = told.keyLength;
    info.type = static_cast<char>(told.keyType);
    info.numeric = info.type != 'C';
    return ZB_Ok;
}

// Byte 0 tells where the point is, byte 1 the sign; then 20 digits.
bool ReadNumber(std::string_view key, std::string& text) {
    constexpr int kPointAtStart = 0x34;
    constexpr int kDigits = 20;
    if (key.size() != 12) return false;
    int point = static_cast<unsigned char>(key[0]) - kPointAtStart;
    std::string digits;
    for (unsigned char byte : key.substr(2))
        for (int digit : {byte >> 4, byte & 15}) {
            if (digit > 9) return false;
            digits += static_cast<char>('0' + digit);
        }
    if (point > kDigits || point < -kDigits) return false;
    if (point < 0) digits.insert(0, static_cast<size_t>(-point), '0');
    size_t whole = point > 0 ? static_cast<size_t>(point) : 0;
    std::string fraction = digits.substr(whole);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    text = whole == 0 ? "0" : digits.substr(0, whole);
    if (!fraction.empty()) text += "." + fraction;
    if (key[1] & '\x80') text.insert(0, "-");
    return true;
}

bool ReadDate(std::string_view key, std::string& text) {
    text.clear();
    return LittleDouble(key) == kBlankDate || DayText(LittleDouble(key), false, text);
}

}  // namespace mdx

constexpr IndexFormat kFormats[] = {
    {"NDX",
     ".ndx",
     "CND",
     true,
     false,
     nullptr,
     nullptr,
     nullptr,
     ndx::Survey,
     ndx::Create,
     ndx::Build,
     Open<ZBDNOPENX>,
     Close<ZBDNCLOSE>,
     ndx::Info,
     Keys<ZBDNKFIND>::Do,
     Keys<ZBDNKNEXT>::Do,
     Keys<ZBDNKADD>::Do,
     Keys<ZBDNKDEL>::Do,
     Make<ZBDNKMAKE>::Do,
     Number<ZBDNKNUM>,
     ZBDNKDATE,
     ndx::ReadNumber,
     ndx::ReadDate,
     {}},
    {"NTX",
     ".ntx",
     "CND",
     false,
     true,
     "short pages are what a build in one go leaves: the index is good for reading and adds, and deletes "
     "can damage it (zb index create makes one without them)",
     nullptr,
     nullptr,
     ntx::Survey,
     ntx::Create,
     ntx::Build,
     Open<ZBDCOPENX>,
     Close<ZBDCCLOSE>,
     ntx::Info,
     Keys<ZBDCKFIND>::Do,
     Keys<ZBDCKNEXT>::Do,
     Keys<ZBDCKADD>::Do,
     Keys<ZBDCKDEL>::Do,
     Make<ZBDCKMAKE>::Do,
     Keys<ZBDCKNUM>::Do,
     ZBDCKDATE,
     ntx::ReadNumber,
     ntx::ReadDate,
     {}},
    {"IDX",
     ".idx",
     "CNDL",
     false,
     false,
     "keys over pages that are too low are what a build leaves at the right edge, those too high and odd "
     "siblings what deletes leave: this library isn't misled, others may be (zb index create makes the "
     "index anew without them)",
     nullptr,
     nullptr,
     idx::Survey,
     idx::Create,
     idx::Build,
     idx::Open,
     Close<ZBDICLOSE>,
     idx::Info,
     Keys<ZBDIKFIND>::Do,
     Keys<ZBDIKNEXT>::Do,
     Keys<ZBDIKADD>::Do,
     Keys<ZBDIKDEL>::Do,
     Make<ZBDIKMAKE>::Do,
     Number<ZBDIKNUM>,
     ZBDIKDATE,
     idx::ReadNumber,
     idx::ReadDate,
     idx::kBuiltBlankDate},
    {"MDX",
     ".mdx",
     "CND",
     true,
     false,
     "these oddities are the format's own, and come of deletes: a hidden key isn't found, a leaf that reads "
     "as a branch ends calls with a code (zb index create --force makes the tag anew without them)",
     mdx::Tags,
     mdx::FileFaults,
     mdx::Survey,
     mdx::Create,
     mdx::Build,
     mdx::Open,
     mdx::Close,
     mdx::Info,
     ZBDMKFIND,
     ZBDMKNEXT,
     ZBDMKADD,
     ZBDMKDEL,
     ZBDMKMAKE,
     Number<ZBDMKNUM>,
     ZBDMKDATE,
     mdx::ReadNumber,
     mdx::ReadDate,
     {}},
};

}  // namespace

int16_t NewIndex::TypeWord() const { return static_cast<int16_t>(type | (unique ? kUnique : 0)); }

const IndexFormat& FormatOf(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::string known;
    for (const IndexFormat& format : kFormats) {
        if (strcasecmp(extension.c_str(), format.extension) == 0) return format;
        known += std::string(known.empty() ? "" : ", ") + format.extension;
    }
    throw Failure(Exit::usage, path + ": the extension tells an index's format, and is one of " + known);
}

int32_t EraseTag(const std::string& path, const std::string& tag) { return mdx::Erase(path, tag); }

std::vector<std::string> FaultsOfAllTags(const std::string& path) {
    return pages::SurveyMdx(path, {}, CompareText).AllFaults();
}

uint32_t HighestPackedRecord(int keyLength) {
    int bits = std::bit_width(static_cast<unsigned>(keyLength));
    int entry = bits == 1 ? 2 : bits <= 5 ? 3 : 4;
    return (uint32_t{1} << (8 * entry - 2 * bits)) - 1;
}

}  // namespace tool
