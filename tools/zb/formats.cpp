#include "formats.h"

#include <strings.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "evaluate.h"
#include "failure.h"
#include "zb.h"

namespace tool {
namespace {

// A call of the library for handles of 16 bits, as one for all formats' handles.
template <auto Call>
struct Keys;
template <class Handle, class... Values, int32_t (*Call)(Handle, Values...)>
struct Keys<Call> {
    static int32_t Do(int32_t index, Values... values) { return Call(static_cast<Handle>(index), values...); }
};

// The same of those that take the data file first.
template <auto Call>
struct Make;
template <class Handle, int32_t (*Call)(int16_t, Handle, void**)>
struct Make<Call> {
    static int32_t Do(int16_t data, int32_t index, void** key) {
        return Call(data, static_cast<Handle>(index), key);
    }
};

constexpr int16_t kUnique = 0x80;
constexpr size_t kExpressionRoom = 260;

int16_t TypeWord(const NewIndex& wanted) {
    return static_cast<int16_t>(wanted.type | (wanted.unique ? kUnique : 0));
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
// `leaps`: whether months are counted by their lengths in that year.
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
    char digits[32];
    std::snprintf(digits, sizeof digits, "%04d%02d%02d", year, month + 1, days);
    text = digits;
    return true;
}

// ---- NDX ----

namespace ndx {

constexpr double kBlankDate = 1e100;

pages::Survey Survey(const std::string& path, const std::string&, char, const pages::EntrySink& sink) {
    return pages::SurveyNdx(path, sink, CompareText);
}

int32_t Create(const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDNCREATE(path.c_str(), TypeWord(wanted), expression.data(), static_cast<int16_t>(wanted.length));
}

int32_t Build(int16_t data, const std::string& path, const NewIndex& wanted, std::string expression) {
    return ZBDNINDEX(data, path.c_str(), TypeWord(wanted), expression.data(),
                     static_cast<int16_t>(wanted.length));
}

int32_t Open(OpenIndex& index, const std::string& path, const std::string&, char, uint16_t mode) {
    uint16_t handle = 0;
    int32_t code = ZBDNOPENX(&handle, path.c_str(), mode);
    index.keys = static_cast<int16_t>(handle);
    return code;
}

int32_t Close(const OpenIndex& index) { return ZBDNCLOSE(static_cast<int16_t>(index.keys)); }

int32_t Info(const OpenIndex& index, IndexInfo& info) {
    ZbNdxInfo told = {};
    char expression[kExpressionRoom] = {};
    auto handle = static_cast<int16_t>(index.keys);
    if (ZBDNINFO(handle, &told) < 0 || ZBDNEXPR(handle, expression) < 0) return ZBECODE();
    info.expression = expression;
    info.keyLength = told.keyLength;
    info.numeric = told.keyType == 'N';
    return ZB_Ok;
}

int32_t Number(int32_t, void* key, double value) { return ZBDNKNUM(key, value); }

bool ReadNumber(std::string_view key, std::string& text) { return NumberText(LittleDouble(key), text); }

bool ReadDate(std::string_view key, std::string& text) {
    text.clear();
    return LittleDouble(key) == kBlankDate || DayText(LittleDouble(key), true, text);
}

}  // namespace ndx

constexpr IndexFormat kFormats[] = {
    {"NDX", ".ndx", false, true, ndx::Survey, ndx::Create, ndx::Build, ndx::Open, ndx::Close, ndx::Info,
     Keys<ZBDNKFIND>::Do, Keys<ZBDNKNEXT>::Do, Keys<ZBDNKADD>::Do, Make<ZBDNKMAKE>::Do, ndx::Number,
     ZBDNKDATE, ndx::ReadNumber, ndx::ReadDate},
};

}  // namespace

const IndexFormat* FindFormat(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    for (const IndexFormat& format : kFormats)
        if (strcasecmp(extension.c_str(), format.extension) == 0) return &format;
    return nullptr;
}

const IndexFormat& FormatOf(const std::string& path) {
    const IndexFormat* format = FindFormat(path);
    if (format != nullptr) return *format;
    std::string known;
    for (const IndexFormat& one : kFormats) known += std::string(known.empty() ? "" : ", ") + one.extension;
    throw Failure(Exit::usage, path + ": the extension tells an index's format, and is one of " + known);
}

}  // namespace tool
