// JSON lines as the zb tool reads them, and its numbers without exponents.
#include <cmath>
#include <cstdio>

#include "failure.h"
#include "json_lines.h"
#include "support/session.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzInput input(bytes, size);
    std::string text = input.Rest();
    std::string copy = text + '\n';  // no file in memory is empty
    FILE* file = fmemopen(copy.data(), copy.size(), "rb");
    std::vector<std::string> row;
    try {
        tool::JsonLinesReader reader(file, "input");
        uint64_t rows = 0;
        while (reader.Next(row)) {
            if (++rows > size + 1) Broken("more rows than bytes");
            if (row.size() != reader.titles()->size()) Broken("other titles than values");
            for (size_t i = 0; i < row.size(); i++) reader.isText(i);
        }
    } catch (const tool::Failure&) {
    }
    fclose(file);

    // A number that JSON allows stays the number it is.
    size_t digit = text.find_first_of("-0123456789");
    if (digit == std::string::npos) return 0;
    std::string number = text.substr(digit, text.find_first_not_of("0123456789.eE+-", digit) - digit);
    char* end;
    double value = strtod(number.c_str(), &end);
    size_t mark = number.find_first_of("eE");
    if (*end || mark == std::string::npos || mark == 0 || !std::isfinite(value)) return 0;
    if (number[0] == '.' || number[number[0] == '-'] == '.' || number[mark - 1] == '.' || number[0] == '+')
        return 0;
    double plain = strtod(tool::PlainNumber(number).c_str(), nullptr);
    if (plain != value && std::fabs(plain - value) > std::fabs(value) * 1e-15) Broken("another number");
    return 0;
}
