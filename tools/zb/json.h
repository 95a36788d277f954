// JSON of records, written as it goes: numbers keep all their digits, which a
// tree of values in memory would not.
#pragma once

#include <string>
#include <string_view>

#include "value.h"

namespace tool {

// Appends `text` in quotes. Bytes that aren't UTF-8 become the characters of
// the same numbers.
void AppendJson(std::string_view text, std::string& out);

// Appends a value: a string, a number, true, false or null.
void AppendJson(const Value& value, std::string& out);

}  // namespace tool
