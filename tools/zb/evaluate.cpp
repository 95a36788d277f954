#include "evaluate.h"

#include <strings.h>

#include <charconv>
#include <cmath>
#include <cstring>

#include "failure.h"

namespace tool {

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
    Check(ZBDXEVAL(data.id(), text.data(), &value), data.path(), "in '" + expression + "'");
    Result result;
    result.type = static_cast<char>(value.type);
    result.bytes.assign(static_cast<const char*>(value.value), static_cast<size_t>(value.length));
    ZBMFREE(value.value);
    return result;
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
