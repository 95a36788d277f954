// Runs the built tool as a user would, in a directory of the test's own, and
// makes tables byte by byte for it to read.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/support.h"

namespace test {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

using Arguments = std::vector<std::string>;

// Runs zb with these arguments and this standard input; `variables` are added to
// its environment as NAME=VALUE.
Result Zb(const Arguments& arguments, const std::string& input = {}, const Arguments& variables = {});

// The same on a terminal: `out` is all that it shows, typed text included.
Result ZbOnTerminal(const Arguments& arguments, const std::string& typed = {},
                    const Arguments& variables = {});

struct Column {
    std::string name;
    char type;
    int width;
    int decimals = 0;
};

// A table's bytes. A record is its delete flag and its fields' text.
Bytes Table(const std::vector<Column>& columns, const std::vector<std::string>& records, int language = 0,
            int version = 3);

class Tool : public DirectoryTest {};

}  // namespace test
