// Hosts whose user functions do, in the middle of an evaluation, a making of a
// key or a build, what they should not: close, reopen, pack and rebuild the files
// that the call works on, free the blocks that the evaluator holds, change the
// table of functions, stop and start the library.
#include "support/keys.h"

using namespace fuzz;

namespace {

struct Host {
    Session* session;
    FuzzInput* input;
    int16_t data;
    int16_t index;  // of `family`, or the MDX file
    int32_t tag;
    unsigned family;
    int depth;
    int calls;
};
Host* host;

constexpr int MostCalls = 400;
constexpr int MostDepth = 6;

constexpr const char* expressions[] = {"U1(NAME)",
                                       "U1(NAME)+U2(NAME)",
                                       "LEFT(U1(LONG),3)+NAME",
                                       "NAME+U1(NAME)",
                                       "U1(U2(NAME))",
                                       "STR(U1(AMOUNT),8)",
                                       "DTOS(U1(BORN))",
                                       "U1(AMOUNT)+AMOUNT",
                                       "U2(BORN)",
                                       "SUBSTR(U1(NAME),2)",
                                       "NAME"};

std::string Expression() { return expressions[host->input->Pick(std::size(expressions))]; }

void OpenData(const char* name) {
    uint16_t handle;
    host->session->Do([&] { return ZBDDOPENX(&handle, name, 2); });
    host->data = static_cast<int16_t>(handle);
}

void OpenIndex() {
    const char* name = host->input->Byte() & 1 ? "A.IX" : "B.IX";
    auto& index = host->index;
    host->session->Do([&]() -> int32_t {
        switch (host->family) {
            case 0: return ZBDNOPENX(reinterpret_cast<uint16_t*>(&index), name, 0);
            case 1: return ZBDCOPENX(reinterpret_cast<uint16_t*>(&index), name, 0);
            case 2: return ZBDIOPENX(reinterpret_cast<uint16_t*>(&index), name, 0);
            default: return ZBDMOPENX(&index, name, 0);
        }
    });
    if (host->family == 3)
        host->session->Do([&] { return ZBDMTUSEX(&host->tag, static_cast<uint16_t>(index), 1); });
}

void CloseIndex(int16_t index) {
    host->session->Do([&]() -> int32_t {
        switch (host->family) {
            case 0: return ZBDNCLOSE(index);
            case 1: return ZBDCCLOSE(index);
            case 2: return ZBDICLOSE(index);
            default: return ZBDMCLOSE(index);
        }
    });
}

void CreateIndex(const char* name, int16_t length) {
    Exactly expression(Expression());
    host->session->Do([&]() -> int32_t {
        switch (host->family) {
            case 0: return ZBDNCREATE(name, 'C', expression.text(), length);
            case 1: return ZBDCCREATE(name, 'C', expression.text(), length, 0);
            case 2: return ZBDICREATE(name, 'C', expression.text(), length);
            default: break;
        }
        int32_t code = ZBDMCREATEX(name, 1, 0);
        int16_t file;
        if (code >= 0) code = ZBDMOPENX(&file, name, 0);
        if (code < 0) return code;
        code = ZBDMTNEW(file, "TAG", 'C', expression.text(), length);
        ZBESCODE(0);
        ZBDMCLOSE(file);
        return ZBESCODE(static_cast<int16_t>(code));
    });
}

void BuildIndex(const char* name, int16_t length) {
    Exactly expression(Expression());
    int16_t data = host->data;
    host->session->Do(
        [&]() -> int32_t {
            switch (host->family) {
                case 0: return ZBDNINDEX(data, name, 'C', expression.text(), length);
                case 1: return ZBDCINDEX(data, name, 'C', expression.text(), length, 0);
                case 2: return ZBDIINDEX(data, name, 'C', expression.text(), length);
                default:
                    return ZBDMTINDEX(data, static_cast<uint16_t>(host->index), "TAG", 'C', expression.text(),
                                      length);
            }
        },
        64);
}

void MakeKey() {
    void* key = nullptr;
    int16_t data = host->data;
    int16_t index = host->index;
    host->session->Do(
        [&]() -> int32_t {
            switch (host->family) {
                case 0: return ZBDNKMAKE(data, index, &key);
                case 1: return ZBDCKMAKE(data, index, &key);
                case 2: return ZBDIKMAKE(data, index, &key);
                default: return ZBDMKMAKE(data, host->tag, &key);
            }
        },
        64);
    if (key) ZBMFREE(key);
}

void Evaluate() {
    Exactly expression(Expression());
    ZbEvalResult result{};
    host->session->Do([&] { return ZBDXEVAL(host->data, expression.text(), &result); }, 64);
    if (result.value) ZBMFREE(result.value);
}

int32_t First(ZbEvalState* state);
int32_t Second(ZbEvalState* state);

void AddFunctions() {
    Exactly first(std::string("U1(")), second(std::string("U2("));
    host->session->Do([&] { return ZBDXADD(first.text(), First); });
    host->session->Do([&] { return ZBDXADD(second.text(), Second); });
}

// One thing that a host may do at any time.
void Act(ZbEvalState* state) {
    Session& session = *host->session;
    FuzzInput& input = *host->input;
    uint8_t what = input.Byte();
    // The handles that builds open are those that follow.
    int16_t other = static_cast<int16_t>(what & 0x80 ? input.Pick(8) : host->index);
    switch (what % 24) {
        case 0: session.Do([&] { return ZBDDCLOSE(host->data); }); break;
        case 1: OpenData(what & 0x40 ? "B.DBF" : "A.DBF"); break;
        case 2:
            session.Do([&] { return ZBDDCLOSE(host->data); });
            OpenData(what & 0x40 ? "B.DBF" : "A.DBF");
            break;
        case 3: session.Do([&] { return ZBDDPACK(&host->data); }, 16); break;
        case 4: CloseIndex(other); break;
        case 5: OpenIndex(); break;
        case 6:
            CloseIndex(other);
            OpenIndex();
            break;
        case 7: CreateIndex(what & 0x40 ? "A.IX" : "B.IX", static_cast<int16_t>(input.Pick(101))); break;
        case 8:
            if (host->depth < MostDepth)
                BuildIndex(what & 0x40 ? "A.IX" : "B.IX", static_cast<int16_t>(input.Pick(101)));
            break;
        case 9:
            if (host->depth < MostDepth) MakeKey();
            break;
        case 10:
            if (host->depth < MostDepth) Evaluate();
            break;
        case 11: {
            Exactly name(std::string(what & 0x40 ? "U1(" : "U2("));
            session.Do([&] { return ZBDXDEL(name.text()); });
            break;
        }
        case 12: AddFunctions(); break;
        case 13:
            if (state) _ZBMFREE(what & 0x40 ? state->ValueBlock : state->ResultBlock);
            break;
        case 14:
            if (state) {
                ZbBlock& block = what & 0x40 ? state->ValueBlock : state->ResultBlock;
                _ZBMRALLOC(&block, input.Word() % 1000);
                if (ZBECODE() < 0) ZBESCODE(0);
            }
            break;
        case 15: {
            ZbDataRecordInfo info{};
            session.Do([&] { return ZBDDRINFOH(host->data, &info); });
            if (what & 0x40)
                _ZBMFREE(static_cast<ZbBlock>(info.buffer));
            else if (state)
                state->ValueBlock = static_cast<ZbBlock>(info.buffer);
            break;
        }
        case 16:
            session.Do([&] { return ZBDTERM(); });
            ZBDINIT(what & 0x40 ? int16_t{100} : int16_t{8}, 1);
            AddFunctions();
            if (what & 0x80) OpenData("A.DBF");
            break;
        case 17: {
            uint32_t record = input.Number();
            session.Do([&] { return ZBDDRPUT(host->data, &record, 0); });
            session.Do([&] { return ZBDDRDEL(host->data, static_cast<int32_t>(record)); });
            break;
        }
        case 18:
            session.Do([&] { return ZBDDRGET(host->data, static_cast<int32_t>(input.Number())); });
            break;
        case 19: session.Do([&] { return ZBDQCLOSE(); }); break;
        case 20:
            if (std::string* file = session.platform.Find(what & 0x40 ? "A.IX" : "A.DBF"))
                Damage(input, *file);
            break;
        case 21:
            if (state) {
                state->ValueType = input.Byte();
                state->ValueLength = static_cast<int16_t>(input.Word());
            }
            break;
        case 22:
            if (state) {
                state->ValueBlock = state->ResultBlock;
                state->Cursor += static_cast<int8_t>(input.Byte());
            }
            break;
        case 23:
            if (host->family == 3) {
                session.Do([&] { return ZBDMTCLOSE(host->tag); });
                session.Do([&] { return ZBDMTERASE(host->index, "TAG"); }, 4);
                Exactly expression(Expression());
                auto length = static_cast<int16_t>(input.Pick(101));
                session.Do([&] { return ZBDMTNEW(host->index, "TAG", 'C', expression.text(), length); });
                session.Do([&] { return ZBDMTUSEX(&host->tag, static_cast<uint16_t>(host->index), 1); });
            }
            break;
    }
}

int32_t Run(ZbEvalState* state) {
    FuzzInput& input = *host->input;
    if (++host->calls > MostCalls || host->depth >= MostDepth) return -7;
    host->depth++;
    uint8_t plan = input.Byte();
    const char* text = state->Cursor;
    const char* end = text + strlen(text);
    int32_t code = 0;
    if (plan & 1) Act(state);
    if (!(plan & 2)) code = ZBDXPROC();
    bool within = state->Cursor >= text && state->Cursor <= end;
    if (!(plan & 4) && within) {
        while (*state->Cursor && *state->Cursor != ')') state->Cursor++;
        if (*state->Cursor) state->Cursor++;
    }
    for (unsigned i = plan >> 3 & 3; i > 0; i--) {
        if (ZBECODE() < 0 && plan & 0x80) ZBESCODE(0);
        Act(state);
    }
    host->depth--;
    return plan & 0x40 ? static_cast<int32_t>(input.Pick(9)) : code;
}

int32_t First(ZbEvalState* state) { return Run(state); }
int32_t Second(ZbEvalState* state) { return Run(state); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string table = People(5);
    static const std::string longer = People(40);
    FuzzInput input(bytes, size);
    Session session;
    // What a host takes from the evaluator or frees behind its back may be lost.
    session.MayLeaveFiles();
    session.MayLeaveMemory();
    session.platform.Put("A.DBF", table);
    session.platform.Put("B.DBF", longer);
    Host now{&session, &input, -1, -1, -1, 0, 0, 0};
    host = &now;
    now.family = input.Pick(4);
    OpenData("A.DBF");
    CreateIndex("A.IX", static_cast<int16_t>(1 + input.Pick(100)));
    CreateIndex("B.IX", static_cast<int16_t>(1 + input.Pick(100)));
    OpenIndex();
    session.Do([&] { return ZBDDRGET(now.data, 1); });
    AddFunctions();
    for (int i = 0; i < 24 && !input.Empty() && now.calls < MostCalls; i++) Act(nullptr);
    return 0;
}
