// The evaluator: any text as an expression over a fixed record, with user
// functions that read arguments, return them, and fail.
#include "support/tables.h"

using namespace fuzz;

namespace {

// The value of the argument as its own.
int32_t Same(ZbEvalState* state) {
    int32_t code = ZBDXPROC();
    if (code < 0) return code;
    if (*state->Cursor == ')') state->Cursor++;
    return 0;
}

// Adds the integer behind the argument to the length of a text.
int32_t Longer(ZbEvalState* state) {
    int32_t code = ZBDXPROC();
    if (code < 0) return code;
    uint16_t count = 0;
    code = ZBDXVGET(&count);
    if (code < 0) {
        _ZBMFREE(state->ValueBlock);
        state->ValueBlock = 0;
        return code;
    }
    if (*state->Cursor == ')') state->Cursor++;
    if (state->ValueType != 'C') return 3;
    auto length = static_cast<uint32_t>(strlen(static_cast<char*>(state->ValuePtr)));
    count %= 2000;
    if (_ZBMRALLOC(&state->ValueBlock, length + count + 1) < 0) return ZBECODE();
    void* address;
    _ZBMLOCK(&address, state->ValueBlock);
    memset(static_cast<char*>(address) + length, '.', count);
    static_cast<char*>(address)[length + count] = 0;
    state->ValuePtr = address;
    state->ValueLength = static_cast<int16_t>(length + count + 1);
    return 0;
}

// Whatever its argument is, no value.
int32_t Nothing(ZbEvalState* state) {
    while (*state->Cursor && *state->Cursor != ')') state->Cursor++;
    if (*state->Cursor) state->Cursor++;
    return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string table = People(3);
    FuzzInput input(bytes, size);
    uint8_t how = input.Byte();
    Session session;
    // The arguments that Longer leaves behind where a term fails half way are lost.
    session.platform.Put("A.DBF", table);
    uint16_t handle;
    session.Do([&] { return ZBDDOPENX(&handle, "A.DBF", 2); });
    auto data = static_cast<int16_t>(handle);
    session.Do([&] { return ZBDDRGET(data, 2); });
    session.Do([&] { return ZBCDSTYLE(static_cast<uint16_t>(how & 15)); });
    if (how & 0x80) {
        struct {
            const char* name;
            ZbUserFunction function;
        } functions[] = {{"SAME(", Same}, {"LONGER(", Longer}, {"NOTHING(", Nothing}};
        for (auto& entry : functions) {
            Exactly name(std::string(entry.name));
            session.Do([&] { return ZBDXADD(name.text(), entry.function); });
        }
    }
    std::string text = input.Rest();
    Exactly expression(text.substr(0, text.find('\0')));
    ZbEvalResult result{};
    int32_t code = session.Do([&] { return ZBDXEVAL(data, expression.text(), &result); }, 16);
    if (code < 0) {
        if (result.value || result.type != ' ' || result.length) Broken("a failure with a value");
        return 0;
    }
    if (result.length < 0) Broken("a negative length");
    if ((result.type == 'C' || result.type == 'D') &&
        strlen(static_cast<char*>(result.value)) != static_cast<size_t>(result.length))
        Broken("a text of another length than was told");
    ZBMFREE(result.value);
    return 0;
}
