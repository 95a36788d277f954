// What the library takes for itself and hands to its host, where there is no
// more memory.
#include "faults/fail_each_call.h"

namespace test {
namespace {

int32_t ZB_CALL Answer(ZbEvalState*) { return ZBDXPROC(); }

char* Text(const char* text) {
    static char copy[64];
    return strcpy(copy, text);
}

TEST_F(Faults, OfExpressions) {
    FailEachCall({
        .name = "expressions",
        .prepare = [] { WriteFile("t.dbf", PeopleFile({Person("ANNA")})); },
        .steps =
            {
                {"ZBDDOPENX",
                 [](World& w) {
                     uint16_t handle = 0xFFFF;
                     int32_t code = ZBDDOPENX(&handle, "t.dbf", 1);
                     w.data = static_cast<int16_t>(handle);
                     return code;
                 }},
                {"ZBDDRGET", [](World& w) { return ZBDDRGET(w.data, 1); }},
                {"ZBDXEVAL of a field",
                 [](World& w) {
                     ZbEvalResult result;
                     int32_t code = ZBDXEVAL(w.data, Text("NAME"), &result);
                     if (code >= 0) ZBMFREE(result.value);
                     return code;
                 }},
                {"ZBDXEVAL of terms",
                 [](World& w) {
                     ZbEvalResult result;
                     int32_t code =
                         ZBDXEVAL(w.data, Text("SUBSTR(NAME,1,4)+STR(AGE,5)+LEFT(NAME,2)"), &result);
                     if (code >= 0) ZBMFREE(result.value);
                     return code;
                 }},
                {"ZBDXADD", [](World&) { return ZBDXADD(Text("ANSWER("), Answer); }, 0, false},
                {"ZBDXDEL", [](World&) { return ZBDXDEL(Text("ANSWER(")); }},
            },
        .departures = {LengthUnknown},
    });
}

TEST_F(Faults, OfBlocks) {
    FailEachCall({
        .name = "blocks",
        .prepare = [] {},
        .steps =
            {
                {"_ZBMALLOC", [](World& w) { return _ZBMALLOC(&w.memory, 100); }},
                {"_ZBMRALLOC", [](World& w) { return _ZBMRALLOC(&w.memory, 100000); }},
            },
    });
}

}  // namespace
}  // namespace test
