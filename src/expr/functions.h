// The table of the host's functions, as the evaluator sees it.
#pragma once

#include <cstddef>

#include "expr/expr.h"

namespace zb {

// One registered function. The table is sorted by name.
struct UserFunction {
    BlockHandle name;  // upper case, without a terminator
    ZbUserFunction function;
    int16_t nameLength;
};

// A function whose name an upper-case text begins with, or null.
const UserFunction* FindUserFunction(const char* text, size_t length);

}  // namespace zb
