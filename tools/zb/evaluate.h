// Expressions on a table's records.
#pragma once

#include <string>

#include "data.h"
#include "failure.h"
#include "text.h"
#include "value.h"

namespace tool {

// What an expression comes to: C text, D date as YYYYMMDD, N or F a double's
// bytes, L one byte, M a block's number; a blank type for an empty expression.
struct Result {
    char type = ' ';
    std::string bytes;
};

// Evaluates on the record in the buffer.
Result Evaluate(const Data& data, const std::string& expression);

// Whether an expression is no more than a date field that is blank in the
// current record. The library takes a blank date for an invalid one where fields
// that are filled stand behind it.
bool IsBlankDate(const Data& data, const std::string& expression);

// What becomes of a code that an expression ended with: a failure that names the
// record in the buffer and, where they may be why, its blank and invalid dates.
Failure EvaluationFailure(int code, const Data& data, const std::string& expression);

// The same as Evaluate on the first record, or on a blank one of a table without records:
// what the expression gives, in type and length.
Result TryExpression(Data& data, const std::string& expression);

// An expression of the user's, in the table's encoding.
std::string EncodeExpression(const std::string& expression, Codec& codec);

// The value for people and programs.
Value ReadResult(const Result& result, Codec& codec);

// A double by the fewest digits that tell it from all others; false when it is
// infinite or no number.
bool NumberText(double value, std::string& text);

}  // namespace tool
