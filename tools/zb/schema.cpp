#include "schema.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "failure.h"
#include "value.h"

namespace tool {
namespace {

constexpr size_t kNameLength = 10;
constexpr size_t kNumberWidth = 19;  // in every dialect
constexpr size_t kNumberDecimals = 15;

Failure SchemaFailure(std::string_view part, const std::string& why) {
    return Failure(Exit::usage, "schema: '" + std::string(part) + "': " + why);
}

uint16_t TakeNumber(std::string_view& text, std::string_view part) {
    uint16_t value = 0;
    auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc()) throw SchemaFailure(part, "a number is missing, or too large");
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    return value;
}

Field ParseField(std::string_view part) {
    size_t colon = part.find(':');
    if (colon == std::string_view::npos || colon + 1 == part.size())
        throw SchemaFailure(part, "write it as NAME:TYPE, such as NAME:C20");
    Field field{};
    for (char c : part.substr(0, colon))
        field.name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    if (field.name.empty() || field.name.size() > kNameLength)
        throw SchemaFailure(part, "a field name has 1 to 10 characters");
    std::string_view type = part.substr(colon + 1);
    field.type = static_cast<char>(std::toupper(static_cast<unsigned char>(type[0])));
    type.remove_prefix(1);
    switch (field.type) {
        case 'C': field.width = TakeNumber(type, part); break;
        case 'N':
        case 'F':
            field.width = TakeNumber(type, part);
            if (!type.empty() && type[0] == '.') {
                type.remove_prefix(1);
                field.decimals = TakeNumber(type, part);
            }
            break;
        case 'D': field.width = 8; break;
        case 'L': field.width = 1; break;
        case 'M': field.width = 10; break;
        default: throw SchemaFailure(part, "a type is C, N, F, D, L or M");
    }
    if (!type.empty()) throw SchemaFailure(part, "what follows the type isn't understood");
    return field;
}

}  // namespace

std::vector<Field> ParseSchema(std::string_view text) {
    std::vector<Field> fields;
    std::set<std::string> names;
    for (;;) {
        size_t comma = text.find(',');
        std::string_view part = text.substr(0, comma);
        while (!part.empty() && part.front() == ' ') part.remove_prefix(1);
        while (!part.empty() && part.back() == ' ') part.remove_suffix(1);
        Field field = ParseField(part);
        if (!names.insert(field.name).second) throw SchemaFailure(part, "the name stands twice");
        fields.push_back(field);
        if (comma == std::string_view::npos) return fields;
        text.remove_prefix(comma + 1);
    }
}

std::string TypeText(const Field& field) {
    std::string text(1, field.type);
    if (field.type == 'C' || field.type == 'N' || field.type == 'F') text += std::to_string(field.width);
    if (field.decimals > 0) text += "." + std::to_string(field.decimals);
    return text;
}

void CreateTable(const std::string& path, const std::vector<Field>& fields, int dialect) {
    std::vector<ZbFieldSpec> specs = Specs(fields);
    int mode = dialect != 0 ? dialect : FittingDialect(fields);
    int code = ZBDDCREATE(path.c_str(), static_cast<int16_t>(specs.size()), specs.data(),
                          static_cast<int16_t>(mode));
    if (code >= 0) return;
    ZBESCODE(0);
    Failure failure = CodeFailure(code, path);
    // The codes of fields that can't be are about what was asked for.
    bool asked = code <= ZB_ErrFieldCount && code >= ZB_ErrRecordLength;
    throw Failure(asked ? Exit::usage : failure.status, failure.what());
}

std::string FieldName(std::string_view title, std::set<std::string>& taken) {
    std::string name;
    for (char c : title) {
        auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte))
            name += static_cast<char>(std::toupper(byte));
        else if (!name.empty() && name.back() != '_')
            name += '_';
    }
    while (!name.empty() && name.back() == '_') name.pop_back();
    if (name.empty()) name = "FIELD";
    if (std::isdigit(static_cast<unsigned char>(name[0]))) name.insert(0, "F");
    name.resize(std::min(name.size(), kNameLength));
    std::string unique = name;
    for (int number = 2; !taken.insert(unique).second; ++number) {
        std::string suffix = "_" + std::to_string(number);
        unique = name.substr(0, kNameLength - suffix.size()) + suffix;
    }
    return unique;
}

void Guess::See(std::string_view value, Codec& codec, bool isText) {
    codec.Encode(value, scratch);
    width = std::max(width, scratch.size());
    if (value.find_first_not_of(' ') == std::string_view::npos) return;
    seen = true;
    if (isText) logical = number = false;
    char letter;
    if (logical && !IsLogical(value, letter)) logical = false;
    // Eight digits alone are more likely a number than a day.
    if (date && (value.size() != 10 || !IsDate(value, scratch))) date = false;
    if (!number) return;
    bool leadingZero = value.size() > 1 && value[0] == '0' && value[1] != '.';
    if (!IsNumber(value) || value[0] == '+' || leadingZero) {
        number = false;
        return;
    }
    size_t point = std::min(value.find('.'), value.size());
    whole = std::max(whole, point);
    if (point < value.size()) decimals = std::max(decimals, value.size() - point - 1);
}

Field Guess::Result(const std::string& name) const {
    Field field{};
    field.name = name;
    size_t places = decimals > 0 ? whole + 1 + decimals : whole;
    if (seen && logical) {
        field.type = 'L';
        field.width = 1;
    } else if (seen && date) {
        field.type = 'D';
        field.width = 8;
    } else if (seen && number && places <= kNumberWidth && decimals <= kNumberDecimals) {
        field.type = 'N';
        field.width = static_cast<uint16_t>(places);
        field.decimals = static_cast<uint16_t>(decimals);
    } else {
        field.type = 'C';
        field.width = static_cast<uint16_t>(std::min<size_t>(width, 0x7FFF));
    }
    return field;
}

}  // namespace tool
