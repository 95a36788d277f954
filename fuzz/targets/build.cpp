// Indexes of all four families built over damaged data files, by any
// expression, and walked through afterwards.
#include "support/keys.h"

using namespace fuzz;

namespace {

std::string Expression(FuzzInput& input) {
    constexpr const char* known[] = {
        "NAME",        "AMOUNT",        "BORN",         "OK",
        "NOTES",       "RATE",          "LONG",         "NAME+LONG",
        "DTOS(BORN)",  "DTOC(BORN)",    "LEFT(NAME,3)", "RIGHT(LONG,2)",
        "STR(AMOUNT)", "STR(AMOUNT,9)", "AMOUNT+RATE",  "SUBSTR(NAME,2,3)+STR(RATE,12,4)",
        "+NAME",       "BORN+BORN"};
    unsigned pick = input.Pick(32);
    return pick < std::size(known) ? known[pick] : input.Text(40);
}

template <class Calls>
void Build(Session& session, FuzzInput& input, int16_t data, uint16_t type, int16_t length, int16_t decimals,
           const std::string& text) {
    Exactly expression(text);
    session.Do([&] { return Calls::Build(data, "A.IX", type, expression.text(), length, decimals); }, 64);
    uint16_t opened;
    if (session.Do([&] { return Calls::Open(&opened, "A.IX", 0); }) < 0) return;
    auto index = static_cast<int16_t>(opened);
    KeyShape shape;
    session.Do([&] { return Calls::Shape(index, &shape); });
    WalkKeys<Calls>(session, index, shape, 100);
    void* key = nullptr;
    session.Do([&] { return Calls::Make(data, index, &key); });
    if (key) ZBMFREE(key);
    for (int i = 0; i < 4 && !input.Empty(); i++)
        OperateKeys<Calls>(session, input, index, shape, input.Byte());
    session.Do([&] { return Calls::Close(index); });
}

void BuildTag(Session& session, FuzzInput& input, int16_t data, uint16_t type, int16_t length,
              const std::string& text) {
    Exactly expression(text);
    session.Do([&] { return ZBDMCREATEX("A.MDX", 1, 0); });
    int16_t file;
    if (session.Do([&] { return ZBDMOPENX(&file, "A.MDX", 0); }) < 0) return;
    session.Do(
        [&] { return ZBDMTINDEX(data, static_cast<uint16_t>(file), "TAG", type, expression.text(), length); },
        64);
    int32_t tag;
    if (session.Do([&] { return ZBDMTUSEX(&tag, static_cast<uint16_t>(file), 1); }) >= 0) {
        KeyShape shape;
        session.Do([&] { return MdxCalls::Shape(tag, &shape); });
        WalkKeys<MdxCalls>(session, tag, shape, 100);
        void* key = nullptr;
        session.Do([&] { return ZBDMKMAKE(data, tag, &key); });
        if (key) ZBMFREE(key);
        for (int i = 0; i < 4 && !input.Empty(); i++)
            OperateKeys<MdxCalls>(session, input, tag, shape, input.Byte());
    }
    session.Do([&] { return ZBDMCLOSE(file); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string tables[] = {DataFiles().files[0], DataFiles().files[1], DataFiles().files[5],
                                         People(1), People(300)};
    FuzzInput input(bytes, size);
    uint8_t family = input.Byte();
    auto type = static_cast<uint16_t>("CDNLcdnlX"[input.Pick(9)]);
    if (input.Byte() & 1) type |= 0x80;
    if (family & 4) type |= 0x400;
    auto length = static_cast<int16_t>(input.Number());
    auto decimals = static_cast<int16_t>(input.Pick(20));
    std::string expression = Expression(input);
    uint16_t mode = input.Byte();
    std::string table = StartFile(input, tables, std::size(tables));
    Session session;
    session.platform.Put("A.DBF", table);
    uint16_t handle;
    if (session.Do([&] { return ZBDDOPENX(&handle, "A.DBF", mode & 0x80 ? mode & 15 : 2); }) < 0) return 0;
    auto data = static_cast<int16_t>(handle);
    session.platform.profile[1] = family & 8 ? "0" : "1";
    switch (family & 3) {
        case 0: Build<NdxCalls>(session, input, data, type, length, decimals, expression); break;
        case 1: Build<NtxCalls>(session, input, data, type, length, decimals, expression); break;
        case 2: Build<IdxCalls>(session, input, data, type, length, decimals, expression); break;
        case 3: BuildTag(session, input, data, type, length, expression); break;
    }
    session.Do([&] { return ZBDDCLOSE(data); });
    return 0;
}
