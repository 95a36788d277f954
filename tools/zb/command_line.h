// What is common to the help, the manual pages and the parsing of command lines.
#pragma once

namespace tool {

// What stands before the examples in a command's help.
inline constexpr const char* kExamples = "Examples:\n";

extern const char* const kExitStatus;

}  // namespace tool
