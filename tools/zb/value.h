// Values between the bytes of a field and text for people and other programs.
#pragma once

#include <string>
#include <string_view>

#include "data.h"
#include "text.h"

namespace tool {

enum class Kind {
    empty,       // blank
    text,        // UTF-8, without the blanks at its end
    number,      // digits as they stand in the field, without the blanks around
    date,        // YYYY-MM-DD
    logical,     // T or F
    memo,        // the block's number
    unreadable,  // the field's bytes are no value of its type; as text, empty if so wanted
    badText,     // some of the text's bytes don't convert; what the policy makes of them
};

struct Value {
    Kind kind = Kind::empty;
    std::string text;
};

// What becomes of values that don't parse.
enum class BadValues { empty, raw };

// The field's own bytes are interpreted here, and not by the library's typed
// reads: a value that doesn't parse is to be told from a blank one, and numbers
// keep all their digits.
void ReadValue(const Field& field, std::string_view raw, Codec& codec, BadValues badValues, Value& value);

// How a text fits a field.
enum class Fit {
    exact,
    rounded,      // has more decimals than the field
    cut,          // is longer than the field
    tooLarge,     // a number with too many digits
    unreadable,   // no value of the field's type
    unencodable,  // characters that the table's encoding lacks
};

// The bytes to store for `text`; where it doesn't fit exactly, those that come
// nearest: rounded, cut, blank.
Fit MakeValue(const Field& field, std::string_view text, Codec& codec, std::string& bytes);

// "has more than 2 decimals", for a message about a value.
std::string DescribeFit(Fit fit, const Field& field);

// A decimal number: an optional sign, digits, at most one point, digits; at
// least one digit.
bool IsNumber(std::string_view text);

// YYYY-MM-DD or YYYYMMDD, and such a day exists; `digits` becomes YYYYMMDD.
bool IsDate(std::string_view text, std::string& digits);

// T, F, Y, N, true, false, yes, no, in either case; `letter` becomes T or F.
bool IsLogical(std::string_view text, char& letter);

}  // namespace tool
