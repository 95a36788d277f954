#include "value.h"

#include <strings.h>

#include <algorithm>

namespace tool {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool AllDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

std::string_view TrimRight(std::string_view text, std::string_view what) {
    size_t last = text.find_last_not_of(what);
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string_view Trim(std::string_view text) {
    text = TrimRight(text, " \t");
    size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

// What ends a field: blanks, and the zero bytes that some writers pad with.
constexpr std::string_view kPadding{" \0", 2};

bool IsBlank(std::string_view raw) { return raw.find_first_not_of(' ') == std::string_view::npos; }

int Number(std::string_view digits) {
    int value = 0;
    for (char c : digits) value = value * 10 + (c - '0');
    return value;
}

bool DayExists(std::string_view digits) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int year = Number(digits.substr(0, 4));
    int month = Number(digits.substr(4, 2));
    int day = Number(digits.substr(6, 2));
    if (year < 1 || month < 1 || month > 12) return false;
    bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return day >= 1 && day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

void Unreadable(std::string_view raw, Codec& codec, BadValues badValues, Value& value) {
    value.kind = Kind::unreadable;
    if (badValues == BadValues::empty)
        value.text.clear();
    else
        codec.Decode(TrimRight(raw, kPadding), value.text);
}

// A whole number as text of digits, raised by one.
void Increment(std::string& digits) {
    for (size_t index = digits.size(); index-- > 0;) {
        if (digits[index] != '9') {
            ++digits[index];
            return;
        }
        digits[index] = '0';
    }
    digits.insert(digits.begin(), '1');
}

// Works on the decimal text itself: no digit is lost that the field has room for.
Fit MakeNumber(const Field& field, std::string_view text, std::string& bytes) {
    bool negative = text[0] == '-';
    if (text[0] == '-' || text[0] == '+') text.remove_prefix(1);
    size_t point = std::min(text.find('.'), text.size());
    std::string digits(text.substr(0, point));
    std::string fraction(point < text.size() ? text.substr(point + 1) : std::string_view());
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));

    Fit fit = Fit::exact;
    size_t decimals = field.decimals;
    digits += fraction.substr(0, decimals);
    if (fraction.size() < decimals) digits.append(decimals - fraction.size(), '0');
    if (fraction.size() > decimals) {
        if (fraction.find_first_not_of('0', decimals) != std::string::npos) fit = Fit::rounded;
        if (fraction[decimals] >= '5') Increment(digits);
    }
    if (digits.size() <= decimals) digits.insert(0, decimals + 1 - digits.size(), '0');
    if (digits.find_first_not_of('0') == std::string::npos) negative = false;
    if (decimals > 0) digits.insert(digits.size() - decimals, ".");
    if (negative) digits.insert(0, "-");
    // A zero before the point is given up where the field is one place short.
    size_t zero = negative ? 1 : 0;
    if (digits.size() == field.width + 1u && decimals > 0 && digits[zero] == '0') digits.erase(zero, 1);
    if (digits.size() > field.width) {
        bytes.assign(field.width, ' ');
        return Fit::tooLarge;
    }
    bytes.assign(field.width - digits.size(), ' ');
    bytes += digits;
    return fit;
}

Fit MakeText(const Field& field, std::string_view text, Codec& codec, std::string& bytes) {
    bool whole = codec.Encode(text, bytes);
    // The library takes text up to its first zero byte.
    if (!whole || bytes.find('\0') != std::string::npos) {
        bytes = bytes.substr(0, bytes.find('\0'));
        if (bytes.size() > field.width) bytes.resize(field.width);
        return Fit::unencodable;
    }
    if (bytes.size() <= field.width) return Fit::exact;
    if (TrimRight(bytes, " ").size() <= field.width) {
        bytes.resize(field.width);
        return Fit::exact;
    }
    std::string_view kept = text.substr(0, WholeCharacters(text, size_t{field.width} * 4));
    while (bytes.size() > field.width && !kept.empty()) {
        kept = kept.substr(0, WholeCharacters(kept, kept.size() - 1));
        codec.Encode(kept, bytes);
    }
    return Fit::cut;
}

}  // namespace

bool IsNumber(std::string_view text) {
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
    bool digit = false, point = false;
    for (char c : text) {
        if (IsDigit(c))
            digit = true;
        else if (c == '.' && !point)
            point = true;
        else
            return false;
    }
    return digit;
}

bool IsDate(std::string_view text, std::string& digits) {
    digits.assign(text);
    if (text.size() == 10 && text[4] == '-' && text[7] == '-') {
        digits.erase(7, 1);
        digits.erase(4, 1);
    }
    return digits.size() == 8 && AllDigits(digits) && DayExists(digits);
}

bool IsLogical(std::string_view text, char& letter) {
    std::string word(text);
    for (const char* yes : {"T", "Y", "true", "yes"})
        if (strcasecmp(word.c_str(), yes) == 0) return letter = 'T', true;
    for (const char* no : {"F", "N", "false", "no"})
        if (strcasecmp(word.c_str(), no) == 0) return letter = 'F', true;
    return false;
}

void ReadValue(const Field& field, std::string_view raw, Codec& codec, BadValues badValues, Value& value) {
    if (field.type == 'C') {
        std::string_view text = TrimRight(raw, kPadding);
        value.kind = Kind::text;
        if (!codec.Decode(text, value.text)) value.kind = Kind::badText;
        return;
    }
    value.text.clear();
    if (IsBlank(raw)) {
        value.kind = Kind::empty;
        return;
    }
    std::string_view text = Trim(TrimRight(raw, kPadding));
    switch (field.type) {
        case 'N':
        case 'F':
            if (!IsNumber(text)) return Unreadable(raw, codec, badValues, value);
            value.kind = Kind::number;
            value.text.assign(text);
            return;
        case 'D':
            if (raw.size() != 8 || !AllDigits(raw) || !DayExists(raw))
                return Unreadable(raw, codec, badValues, value);
            value.kind = Kind::date;
            value.text.assign(raw.substr(0, 4)).append("-").append(raw.substr(4, 2)).append("-");
            value.text.append(raw.substr(6, 2));
            return;
        case 'L': {
            if (text == "?") {
                value.kind = Kind::empty;
                return;
            }
            char letter = 0;
            if (text.size() != 1 || !IsLogical(text, letter)) return Unreadable(raw, codec, badValues, value);
            value.kind = Kind::logical;
            value.text.assign(1, letter);
            return;
        }
        case 'M': {
            if (!AllDigits(text)) return Unreadable(raw, codec, badValues, value);
            text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
            value.kind = text.empty() ? Kind::empty : Kind::memo;
            value.text.assign(text);
            return;
        }
        default: Unreadable(raw, codec, badValues, value);
    }
}

Fit MakeValue(const Field& field, std::string_view text, Codec& codec, std::string& bytes) {
    if (field.type == 'C') return MakeText(field, text, codec, bytes);
    text = Trim(text);
    bytes.assign(field.width, ' ');
    if (text.empty()) return Fit::exact;
    switch (field.type) {
        case 'N':
        case 'F': return IsNumber(text) ? MakeNumber(field, text, bytes) : Fit::unreadable;
        case 'D': {
            std::string digits;
            if (!IsDate(text, digits) || field.width != 8) return Fit::unreadable;
            bytes = digits;
            return Fit::exact;
        }
        case 'L': {
            if (text == "?") return Fit::exact;
            char letter = 0;
            if (!IsLogical(text, letter)) {
                if (text != "1" && text != "0") return Fit::unreadable;
                letter = text == "1" ? 'T' : 'F';
            }
            bytes[0] = letter;
            return Fit::exact;
        }
        case 'M':
            if (!AllDigits(text) || text.size() > field.width) return Fit::unreadable;
            bytes.replace(field.width - text.size(), text.size(), text);
            return Fit::exact;
        default: return Fit::unreadable;
    }
}

std::string DescribeFit(Fit fit, const Field& field) {
    switch (fit) {
        case Fit::exact: return "fits";
        case Fit::rounded: return "has more than " + std::to_string(field.decimals) + " decimals";
        case Fit::cut: return "is longer than " + std::to_string(field.width) + " bytes";
        case Fit::tooLarge:
            return "has too many digits for " + std::string(1, field.type) + std::to_string(field.width) +
                   "." + std::to_string(field.decimals);
        case Fit::unencodable: return "has characters that the table's encoding lacks";
        case Fit::unreadable: break;
    }
    switch (field.type) {
        case 'D': return "is no date (YYYY-MM-DD)";
        case 'L': return "is neither true nor false";
        case 'M': return "is no memo block number";
        default: return "is no number";
    }
}

}  // namespace tool
