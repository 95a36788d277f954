#include "evaluate.h"

#include <strings.h>

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

namespace tool {
namespace {

// Whether an expression speaks of a field.
bool Mentions(std::string_view expression, std::string_view name) {
    auto isName = [](char c) { return isalnum(static_cast<unsigned char>(c)) || c == '_'; };
    for (size_t at = 0; at + name.size() <= expression.size(); ++at) {
        size_t end = at + name.size();
        if (strncasecmp(expression.data() + at, name.data(), name.size()) == 0 &&
            (at == 0 || !isName(expression[at - 1])) &&
            (end == expression.size() || !isName(expression[end])))
            return true;
    }
    return false;
}

// "record 3, whose BORN is blank"
std::string DescribeRecord(const Data& data, const std::string& expression) {
    uint32_t number = 0;
    ZBDDRNUM(data.id(), &number);
    ZBESCODE(0);
    std::string text = number == 0 ? "a blank record" : "record " + std::to_string(number);
    const char* join = ", whose ";
    for (const Field& field : data.fields()) {
        if (field.type != 'D' || !Mentions(expression, field.name)) continue;
        std::string_view raw = data.Raw(field);
        std::string digits;
        if (IsDate(raw, digits)) continue;
        text += join + field.name + " is ";
        if (raw.find_first_not_of(' ') == std::string_view::npos) {
            text += "blank";
        } else {
            text += "'";
            AppendPrintable(raw, text);
            text += "'";
        }
        join = " and ";
    }
    return text;
}

}  // namespace

bool IsBlankDate(const Data& data, const std::string& expression) {
    const std::vector<Field>& fields = data.fields();
    for (size_t number = 0; number < fields.size(); ++number) {
        if (fields[number].type != 'D' || strcasecmp(fields[number].name.c_str(), expression.c_str()) != 0)
            continue;
        std::string text(size_t{fields[number].width} + 1, '\0');
        Check(ZBDDFGETS(data.id(), static_cast<int16_t>(number), text.data()), data.path());
        return text.find_first_not_of(' ') == fields[number].width;
    }
    return false;
}

Result Evaluate(const Data& data, const std::string& expression) {
    if (IsBlankDate(data, expression)) return {'D', std::string(8, ' ')};
    std::string text = expression;  // the library takes blanks out of it
    ZbEvalResult value = {};
    if (int code = ZBDXEVAL(data.id(), text.data(), &value); code < 0)
        throw EvaluationFailure(code, data, expression);
    Result result;
    result.type = static_cast<char>(value.type);
    result.bytes.assign(static_cast<const char*>(value.value), static_cast<size_t>(value.length));
    ZBMFREE(value.value);
    return result;
}

Failure EvaluationFailure(int code, const Data& data, const std::string& expression) {
    ZBESCODE(0);
    return CodeFailure(code, data.path(), "in '" + expression + "' on " + DescribeRecord(data, expression));
}

Result TryExpression(Data& data, const std::string& expression) {
    if (data.count() > 0)
        data.Read(1);
    else
        data.Clear();
    return Evaluate(data, expression);
}

std::string EncodeExpression(const std::string& expression, Codec& codec) {
    std::string bytes;
    if (!codec.Encode(expression, bytes))
        throw Failure(Exit::usage, "'" + expression + "' has characters that the table's encoding lacks");
    return bytes;
}

Value ReadResult(const Result& result, Codec& codec) {
    Value value;
    switch (result.type) {
        case 'D': {
            bool blank = result.bytes.find_first_not_of(' ') == std::string::npos;
            value.kind = blank ? Kind::empty : Kind::date;
            if (!blank && result.bytes.size() == 8)
                value.text = result.bytes.substr(0, 4) + "-" + result.bytes.substr(4, 2) + "-" +
                             result.bytes.substr(6);
            return value;
        }
        case 'N':
        case 'F': {
            double number = 0;
            std::memcpy(&number, result.bytes.data(), std::min(sizeof number, result.bytes.size()));
            value.kind = NumberText(number, value.text) ? Kind::number : Kind::unreadable;
            return value;
        }
        case 'L':
            value.kind = Kind::empty;
            if (result.bytes[0] != 0 && result.bytes[0] != 1) return value;
            value.kind = Kind::logical;
            value.text = result.bytes[0] == 1 ? "T" : "F";
            return value;
        case 'M': {
            uint32_t block = 0;
            std::memcpy(&block, result.bytes.data(), std::min(sizeof block, result.bytes.size()));
            value.kind = block == 0 ? Kind::empty : Kind::memo;
            if (block != 0) value.text = std::to_string(block);
            return value;
        }
        default:
            value.kind = codec.Decode(result.bytes, value.text) ? Kind::text : Kind::badText;
            return value;
    }
}

bool NumberText(double value, std::string& text) {
    if (!std::isfinite(value)) return false;
    char digits[32];
    text.assign(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return true;
}

}  // namespace tool
