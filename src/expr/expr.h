// The evaluator of key expressions, as the index families use it.
#pragma once

#include "core/library.h"

namespace zb {

using EvalState = ZbEvalState;

// The one state of the evaluator, which user functions receive and in which
// EvalKey leaves its result.
extern EvalState evalState;

// Evaluates `expression` on the record buffer of a data file. ResultBlock,
// ResultPtr, ResultType and ResultLength of evalState then hold the value, in a
// block that belongs to the caller; a C or D value is a text with its
// terminator, and zero bytes behind. On a failure, logged, nothing is left
// allocated, the handles are 0 and the type is a blank. A positive code is the
// last user function's.
//
// The text isn't squeezed; it is changed to upper case in place while user
// functions are registered. Those may have done anything, such as closing the
// file that owns the text: it is not touched after the first of them was called,
// and whoever calls this must bind his own objects anew.
Code EvalKey(int dataHandle, char* expression);

// Frees the table of user functions with all names.
void ReleaseUserFunctions();

// Frees the block that the evaluator keeps for its values.
void ReleaseSpareValue();

}  // namespace zb
