// A left-to-right scanner over the text of a key expression. There is no tree
// and no stored form: each evaluation reads the text afresh.
//
//   expression  [+] term { [+] term }
//   term        function ... ) | user function ... | atom
//   atom        the text up to the next , ) or + : a field's name, or a literal
//
// A user function is the host's: it may call any operation of the library,
// evaluate expressions of its own, close the data file, and leave anything in
// the state. So nothing that was located before one is called is relied upon
// after it, and what it leaves is checked before use.
#include <cstring>

#include "core/ascii.h"
#include "core/number.h"
#include "data/data.h"
#include "dates/dates.h"
#include "expr/functions.h"

namespace zb {

EvalState evalState;

namespace {

constexpr int MaxDepth = 256;  // of terms in terms, those of nested evaluations counted
constexpr int MaxAtom = 10;
constexpr int MaxLength = INT16_MAX;  // of a value, and of the result

// What the result has room for at first: an empty text, and most keys without
// growing.
constexpr size_t ResultRoom = 128;

// The evaluation under way.
struct Evaluation {
    int dataHandle;
    DataFile* file;
    char* text;
    char* end;          // of the text as it was at the start
    const char* upper;  // where the text is known to be upper case from; null: nowhere
    int depth;          // terms being evaluated
    bool hostCalled;    // a user function has run: the file has to be bound at each use
    Evaluation* outer;  // the one whose user function asked for this one
};

Evaluation* running;

// A block for the next value, kept from term to term and from one evaluation to
// the next. Once a user function has run in an evaluation, which may hold on to
// whatever handles it has seen, values have blocks of their own.
BlockHandle spare;
constexpr size_t SpareRoom = 128;

Code Fault(const char* unit, int line = __builtin_LINE()) { return Fail(unit, ErrExpression, line); }

// ---- text ----------------------------------------------------------------

bool CursorWithin(const char* first, const char* last) {
    auto cursor = reinterpret_cast<uintptr_t>(evalState.Cursor);
    return cursor >= reinterpret_cast<uintptr_t>(first) && cursor <= reinterpret_cast<uintptr_t>(last);
}

// The character at the cursor, or 0 at the end of the text.
char Here() { return evalState.Cursor < running->end ? *evalState.Cursor : '\0'; }

// The first , or ) from `text` on, where asked for also +, or the end of the text.
char* NearestSeparator(char* text, bool orPlus) {
    while (text < running->end && *text && *text != ',' && *text != ')' && !(orPlus && *text == '+')) text++;
    return text;
}

// The integer at the start of a text, as atoi reads it, modulo 2 to the 16th.
uint16_t ScanInteger(const char* text) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) text++;
    bool minus = *text == '-';
    if (*text == '-' || *text == '+') text++;
    uint32_t number = 0;
    for (; *text >= '0' && *text <= '9'; text++) number = number * 10 + static_cast<uint32_t>(*text - '0');
    return static_cast<uint16_t>(minus ? 0 - number : number);
}

// Reads an integer argument; the character in front of it, whatever it is, is
// passed over.
Code ReadInteger(uint16_t* value) {
    if (!Here()) return Fault("Xvget");
    char* argument = ++evalState.Cursor;
    char* separator = NearestSeparator(argument, false);
    if (separator == argument || separator == running->end || !*separator) return Fault("Xvget");
    *value = ScanInteger(argument);
    evalState.Cursor = separator;
    return SetCode(0);
}

Code StepOverClosing(const char* unit) {
    if (Here() != ')') return Fault(unit);
    evalState.Cursor++;
    return CurrentCode();
}

// ---- values --------------------------------------------------------------

void ClearValue() {
    evalState.ValueBlock = 0;
    evalState.ValuePtr = nullptr;
    evalState.ValueType = 0;
    evalState.ValueLength = 0;
}

void FreeValue() {
    if (!spare && !running->hostCalled && BlockSize(evalState.ValueBlock) == SpareRoom + BlockSlack)
        spare = evalState.ValueBlock;
    else
        BlockFree(evalState.ValueBlock);
    ClearValue();
}

void ClearResult() {
    evalState.ResultBlock = 0;
    evalState.ResultPtr = nullptr;
    evalState.ResultType = ' ';
    evalState.ResultLength = 0;
}

// A value of zero bytes.
Code NewValue(char type, int length) {
    if (length > MaxLength) return Fault("Xvalue");
    auto size = static_cast<size_t>(length);
    bool mayUseSpare = !running->hostCalled && size <= SpareRoom;
    if (void* bytes = mayUseSpare ? BlockPeek(spare) : nullptr) {
        memset(bytes, 0, SpareRoom + BlockSlack);
        evalState.ValueBlock = spare;
        spare = 0;
    } else if (BlockAlloc(&evalState.ValueBlock, mayUseSpare ? SpareRoom : size) < 0) {
        return Pass("Xvalue");
    }
    evalState.ValuePtr = BlockPeek(evalState.ValueBlock);
    evalState.ValueType = type;
    evalState.ValueLength = static_cast<int16_t>(length);
    return 0;
}

char* ValueText() { return static_cast<char*>(evalState.ValuePtr); }

bool IsNumber(int type) { return type == 'N' || type == 'F'; }

double NumberAt(const void* bytes) {
    double number;
    memcpy(&number, bytes, sizeof number);
    return number;
}

// Ends whatever text a block may hold within it.
void Terminate(BlockHandle block, void* bytes) { static_cast<char*>(bytes)[BlockSize(block) - 1] = 0; }

// Holds what a user function left as its value against the block it stands in.
Code CheckValue() {
    void* bytes = BlockPeek(evalState.ValueBlock);
    if (!bytes || evalState.ValueLength < 0) return Fault("Xuser");
    int letter = evalState.ValueType | 0x20;
    if (letter < 'a' || letter > 'z') return Fault("Xuser");
    if (evalState.ValueBlock == evalState.ResultBlock) return Fault("Xuser");
    evalState.ValuePtr = bytes;
    Terminate(evalState.ValueBlock, bytes);
    size_t room = BlockSize(evalState.ValueBlock);
    if (static_cast<size_t>(evalState.ValueLength) > room) evalState.ValueLength = static_cast<int16_t>(room);
    return 0;
}

// ---- the result's block --------------------------------------------------

// Makes the result's block, with an empty text, where there is none yet: when it
// is needed, since most first values become the result with their own block.
Code NeedResult() {
    if (evalState.ResultBlock) return 0;
    if (BlockAlloc(&evalState.ResultBlock, ResultRoom) < 0) return Pass("Evalkey");
    evalState.ResultPtr = BlockPeek(evalState.ResultBlock);
    return 0;
}

// ---- terms ---------------------------------------------------------------

Code EvaluateTerm();

// Evaluates a built-in's first argument, which has to be of the type given.
Code FirstArgument(const char* unit, bool (*fits)(int type)) {
    if (EvaluateTerm() < 0) return Pass(unit);
    return fits(evalState.ValueType) ? CurrentCode() : Fault(unit);
}

bool IsText(int type) { return type == 'C'; }

bool IsDate(int type) { return type == 'D'; }

// A cut beyond the text's end does nothing. The block keeps its size, since
// ValueLength keeps on counting the text as it was.
void Cut(char* text, uint16_t length) {
    if (length < strlen(text)) text[length] = 0;
}

void MoveToFront(char* text, size_t from) { memmove(text, text + from, strlen(text + from) + 1); }

Code Substr() {
    constexpr char Unit[] = "Xsubstr";
    if (FirstArgument(Unit, IsText) < 0) return CurrentCode();
    uint16_t argument = 0;
    if (ReadInteger(&argument) < 0) return Pass(Unit);
    auto start = static_cast<int16_t>(argument);
    if (start < 1) return Fault(Unit);
    char* text = ValueText();
    size_t length = strlen(text);
    size_t from = static_cast<size_t>(start) - 1;
    MoveToFront(text, from < length ? from : length);
    if (Here() != ')') {
        if (ReadInteger(&argument) < 0) return Pass(Unit);
        Cut(text, argument);
    }
    return StepOverClosing(Unit);
}

Code Right() {
    constexpr char Unit[] = "Xright";
    if (FirstArgument(Unit, IsText) < 0) return CurrentCode();
    uint16_t argument = 0;
    if (ReadInteger(&argument) < 0) return Pass(Unit);
    auto count = static_cast<int16_t>(argument);
    char* text = ValueText();
    size_t length = strlen(text);
    if (count < 0 || static_cast<size_t>(count) > length) return Fault(Unit);
    MoveToFront(text, length - static_cast<size_t>(count));
    return StepOverClosing(Unit);
}

Code Left() {
    constexpr char Unit[] = "Xleft";
    if (FirstArgument(Unit, IsText) < 0) return CurrentCode();
    uint16_t count = 0;
    if (ReadInteger(&count) < 0) return Pass(Unit);
    Cut(ValueText(), count);
    return StepOverClosing(Unit);
}

Code Str() {
    constexpr char Unit[] = "Xstr";
    if (FirstArgument(Unit, IsNumber) < 0) return CurrentCode();
    uint16_t width = 10;
    uint16_t decimals = 0;
    if (Here() == ',') {
        if (ReadInteger(&width) < 0) return Pass(Unit);
        if (Here() == ',' && ReadInteger(&decimals) < 0) return Pass(Unit);
    }
    if (StepOverClosing(Unit) < 0) return CurrentCode();

    // The text may fill the block's slack, and no more.
    size_t longest = width + size_t{BlockSlack};
    if (decimals > longest) return Fault(Unit);
    double number = NumberAt(evalState.ValuePtr);
    FreeValue();
    if (NewValue('C', width + 1) < 0) return Pass(Unit);
    size_t length = PrintDouble(ValueText(), longest + 1, number, width, decimals);
    return length <= longest ? CurrentCode() : Fault(Unit);
}

// Whatever character stands where the closing one should is passed over.
Code Dtoc() {
    constexpr char Unit[] = "Xdtoc";
    if (FirstArgument(Unit, IsDate) < 0) return CurrentCode();
    if (!Here()) return Fault(Unit);
    evalState.Cursor++;
    evalState.ValueType = 'C';
    return CurrentCode();
}

Code Dtos() {
    constexpr char Unit[] = "Xdtos";
    evalState.DateAsKey = 1;
    Code code = FirstArgument(Unit, IsDate);
    evalState.DateAsKey = 0;
    if (code < 0) return code;
    if (!Here()) return Fault(Unit);
    evalState.Cursor++;
    evalState.ValueType = 'C';
    return CurrentCode();
}

struct BuiltIn {
    char name[8];
    uint8_t length;
    Code (*run)();
};

constexpr BuiltIn builtIns[] = {
    {"SUBSTR(", 7, Substr}, {"RIGHT(", 6, Right}, {"LEFT(", 5, Left},
    {"STR(", 4, Str},       {"DTOC(", 5, Dtoc},   {"DTOS(", 5, Dtos},
};

const BuiltIn* FindBuiltIn() {
    auto left = static_cast<size_t>(running->end - evalState.Cursor);
    for (const BuiltIn& builtIn : builtIns)
        if (left >= builtIn.length && memcmp(evalState.Cursor, builtIn.name, builtIn.length) == 0)
            return &builtIn;
    return nullptr;
}

int FieldValueLength(const Field& field) {
    switch (field.type) {
        case 'C': return field.width + 1;
        case 'N':
        case 'F': return sizeof(double);
        case 'M': return sizeof(uint32_t);
        case 'L': return 1;
        default: return 11;  // dates: the longest style and a terminator
    }
}

Code FieldTerm(DataFile& file, int fieldNo) {
    const Field& field = file.fields[fieldNo];
    if (NewValue(static_cast<char>(field.type), FieldValueLength(field)) < 0) return Pass("Xatom");
    if (DfieldGet(file, evalState.ValuePtr, fieldNo, field.type) < 0) return Pass("Xatom");
    return SetCode(0);
}

bool IsNumberLiteral(const char* atom) { return !atom[strspn(atom, "0123456789.")]; }

Code Literal(const char* atom, size_t length) {
    if (IsNumberLiteral(atom)) {
        if (NewValue('N', sizeof(double)) < 0) return Pass("Xatom");
        double number = ScanDouble(atom, length);
        memcpy(evalState.ValuePtr, &number, sizeof number);
    } else {
        if (NewValue('C', static_cast<int>(length) + 1) < 0) return Pass("Xatom");
        memcpy(evalState.ValuePtr, atom, length);
    }
    return SetCode(0);
}

Code Atom() {
    char* first = evalState.Cursor;
    char* last = NearestSeparator(first, true);
    ptrdiff_t length = last - first;
    if (length == 0 || length > MaxAtom) return Fault("Xatom");
    char atom[MaxAtom + 1] = "";
    memcpy(atom, first, static_cast<size_t>(length));
    evalState.Cursor = last;

    Evaluation& e = *running;
    if (e.hostCalled) e.file = Dslock(e.dataHandle);
    if (!e.file) return Pass("Xatom");
    int fieldNo = FieldNumber(*e.file, atom);
    if (fieldNo < 0) return Literal(atom, static_cast<size_t>(length));
    if (!evalState.DateAsKey) return FieldTerm(*e.file, fieldNo);
    uint16_t style = library.dateStyle;
    library.dateStyle = StyleYmd;
    Code code = FieldTerm(*e.file, fieldNo);
    library.dateStyle = style;
    return code;
}

// ---- user functions ------------------------------------------------------

const UserFunction* FindUserFunctionHere() {
    if (library.userFuncCount == 0) return nullptr;
    Evaluation& e = *running;
    char* first = evalState.Cursor;
    if (!e.upper || first < e.upper) {
        for (char* c = first; c < e.end && *c; c++) *c = AsciiUpper(*c);
        e.upper = first;
    }
    return FindUserFunction(first, strnlen(first, static_cast<size_t>(e.end - first)));
}

Code CallUserFunction(const UserFunction& entry) {
    Evaluation& e = *running;
    if (NeedResult() < 0) return CurrentCode();
    evalState.Cursor += entry.nameLength;
    const char* behindName = evalState.Cursor;
    e.hostCalled = true;
    e.upper = nullptr;
    EvalState before = evalState;
    Code code = SetCode(static_cast<Code>(entry.function(&evalState)));

    // The result isn't the function's to change; an evaluation of its own will
    // have left another there.
    evalState.ResultBlock = before.ResultBlock;
    evalState.ResultPtr = BlockPeek(before.ResultBlock);
    evalState.ResultType = before.ResultType;
    evalState.ResultLength = before.ResultLength;
    evalState.DateAsKey = before.DateAsKey;
    if (code < 0) return Pass("Xuser");
    if (BlockSize(before.ResultBlock) <= static_cast<size_t>(before.ResultLength))
        return Fail("Xuser", ErrLockBlock);
    Terminate(evalState.ResultBlock, evalState.ResultPtr);
    if (!CursorWithin(behindName, e.end)) return Fault("Xuser");
    return CheckValue() < 0 ? Pass("Xuser") : code;
}

Code SelectTerm() {
    ClearValue();
    if (const UserFunction* entry = FindUserFunctionHere()) return CallUserFunction(*entry);
    if (const BuiltIn* builtIn = FindBuiltIn()) {
        evalState.Cursor += builtIn->length;
        return builtIn->run();
    }
    return Atom();
}

// One term at the cursor, into the value.
Code EvaluateTerm() {
    Evaluation& e = *running;
    if (e.depth == MaxDepth) return Fault("Xproc");
    e.depth++;
    Code code = SelectTerm();
    e.depth--;
    if (code >= 0) return code;
    FreeValue();
    return Pass("Xproc");
}

// ---- the result ----------------------------------------------------------

Code AppendText() {
    constexpr char Unit[] = "Evalkey";
    if (NeedResult() < 0) return CurrentCode();
    const char* text = ValueText();
    size_t added = strlen(text);
    auto length = static_cast<size_t>(evalState.ResultLength);
    if (length + added > MaxLength) return Fault(Unit);
    size_t needed = length + added + 1;
    if (needed + BlockSlack > BlockSize(evalState.ResultBlock)) {
        if (BlockRealloc(evalState.ResultBlock, needed) < 0) return Pass(Unit);
        evalState.ResultPtr = BlockPeek(evalState.ResultBlock);
    }
    memcpy(static_cast<char*>(evalState.ResultPtr) + length, text, added + 1);
    evalState.ResultType = 'C';
    evalState.ResultLength = static_cast<int16_t>(length + added);
    FreeValue();
    return CurrentCode();
}

Code TakeValueAsResult() {
    size_t length =
        evalState.ValueType == 'D' ? strlen(ValueText()) : static_cast<size_t>(evalState.ValueLength);
    if (length > MaxLength) return Fault("Evalkey");
    BlockFree(evalState.ResultBlock);
    evalState.ResultBlock = evalState.ValueBlock;
    evalState.ResultPtr = evalState.ValuePtr;
    evalState.ResultType = evalState.ValueType;
    evalState.ResultLength = static_cast<int16_t>(length);
    ClearValue();
    return CurrentCode();
}

void AddNumber() {
    double sum = NumberAt(evalState.ResultPtr) + NumberAt(evalState.ValuePtr);
    memcpy(evalState.ResultPtr, &sum, sizeof sum);
}

// Joins the term's value to the result.
Code JoinValue(bool afterPlus) {
    constexpr char Unit[] = "Evalkey";
    bool empty = evalState.ResultType == ' ';
    if (evalState.ValueType == 'C') {
        if (!empty && evalState.ResultType != 'C') return Fault(Unit);
        return AppendText();
    }
    if (empty) return TakeValueAsResult();
    if (IsNumber(evalState.ValueType)) {
        if (!IsNumber(evalState.ResultType)) return Fault(Unit);
        if (afterPlus) AddNumber();
    }
    // A date, logical or memo term behind another changes nothing.
    FreeValue();
    return CurrentCode();
}

Code EvaluateTerms() {
    while (Here()) {
        bool afterPlus = Here() == '+';
        if (afterPlus) evalState.Cursor++;
        if (EvaluateTerm() < 0) return Pass("Evalkey");
        if (Code code = JoinValue(afterPlus); code < 0) return code;
    }
    NeedResult();
    return CurrentCode();
}

enum class TextOwner { Host, Library };

// Goes on with a copy of the text, which user functions can't take away by
// closing the index that it belongs to. The look-up of the first term would turn
// the text to upper case, and so that is done to it here.
Code WorkOnCopy(Evaluation& e, Block<char>& copy) {
    auto length = static_cast<size_t>(e.end - e.text);
    if (copy.Alloc(length + 1) < 0) return Pass("Evalkey");
    AsciiUpper(e.text);
    memcpy(copy.data, e.text, length);
    e.text = evalState.Cursor = copy.data;
    e.end = e.text + length;
    return 0;
}

// Runs an evaluation. If a user function asks for it, the state and the
// evaluation that stood before are put back at its end, but for the result.
Code Evaluate(int dataHandle, char* text, size_t length, TextOwner owner) {
    EvalState before = evalState;
    Evaluation evaluation{};
    evaluation.dataHandle = dataHandle;
    evaluation.text = text;
    evaluation.end = text + length;
    evaluation.depth = running ? running->depth : 0;
    evaluation.outer = running;

    ClearValue();
    ClearResult();
    evalState.Cursor = text;
    evalState.DateAsKey = 0;
    running = &evaluation;
    Block<char> copy{};
    evaluation.file = Dslock(dataHandle);
    Code code = evaluation.file ? CurrentCode() : Pass("Evalkey");
    if (code >= 0 && owner == TextOwner::Library && library.userFuncCount > 0)
        code = WorkOnCopy(evaluation, copy);
    if (code >= 0) code = EvaluateTerms();
    copy.Free();
    if (code < 0) {
        FreeValue();
        BlockFree(evalState.ResultBlock);
        ClearResult();
    }

    running = evaluation.outer;
    before.ResultBlock = evalState.ResultBlock;
    before.ResultPtr = evalState.ResultPtr;
    before.ResultType = evalState.ResultType;
    before.ResultLength = evalState.ResultLength;
    evalState = before;
    return code;
}

}  // namespace

void ReleaseSpareValue() {
    BlockFree(spare);
    spare = 0;
}

Code EvalKey(int dataHandle, char* expression) {
    return Evaluate(dataHandle, expression, strlen(expression), TextOwner::Library);
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDXEVAL(int16_t data, char* expression, ZbEvalResult* result) {
    if (Pending()) return CurrentCode();
    if (!expression || !result) return Fail("Xeval", ErrNullPointer);
    char* end = expression;
    for (const char* c = expression; *c; c++)
        if (*c != ' ') *end++ = AsciiUpper(*c);
    *end = 0;
    Code code = Evaluate(data, expression, static_cast<size_t>(end - expression), TextOwner::Host);
    result->value = evalState.ResultPtr;
    result->type = evalState.ResultType;
    result->length = evalState.ResultLength;
    return code;
}

int32_t ZB_CALL ZBDXPROC() {
    if (Pending()) return CurrentCode();
    if (!running || !CursorWithin(running->text, running->end)) return Fault("Xproc");
    return EvaluateTerm();
}

int32_t ZB_CALL ZBDXVGET(uint16_t* value) {
    if (Pending()) return CurrentCode();
    if (!value) return Fail("Xvget", ErrNullPointer);
    if (!running || !CursorWithin(running->text, running->end)) return Fault("Xvget");
    return ReadInteger(value);
}
