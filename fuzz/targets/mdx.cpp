// MDX files and their tags: open, attach, search, walk, add, delete, new tags,
// erased ones, close.
#include "support/keys.h"

using namespace fuzz;

namespace {

constexpr const char* names[] = {"NAMES", "AMOUNTS", "BORN", "NOTHING"};

std::string MdxSeed(int multiplier, int keys, int deleted) {
    return MakeFile("A.MDX", [&](Session&) {
        ZBDMCREATEX("A.MDX", static_cast<int16_t>(multiplier), 0);
        int16_t file;
        ZBDMOPENX(&file, "A.MDX", 0);
        constexpr uint32_t types[] = {'C', 'N', 'D', 'C' | 0x80};
        for (int i = 0; i < 4; i++) {
            Exactly expression(std::string("NAME"));
            ZBDMTNEW(file, names[i], types[i], expression.text(), i == 3 ? 60 : 10);
            int32_t tag;
            ZBDMTUSE(&tag, static_cast<uint16_t>(file), names[i]);
            for (int n = 0; n < keys + deleted; n++) {
                char key[128];
                snprintf(key, sizeof key, "KEY%05d%-100s", n * 21 % 1000, "");
                if (i == 1) ZBDMKNUM(key, n * 21 % 1000);
                if (i == 2) ZBDMKDATE(key, n % 2 ? "01/31/99" : "02/01/80", 1);
                ZBDMKADD(tag, key, static_cast<uint32_t>(n + 1));
            }
            for (int n = 0; n < deleted; n++) {
                char key[128];
                uint32_t record;
                ZBDMKTOP(tag, key, &record);
                ZBDMKDEL(tag, key, record);
            }
        }
        ZBDMCLOSE(file);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const std::string seeds[] = {MdxSeed(1, 0, 0), MdxSeed(1, 30, 0), MdxSeed(1, 200, 60),
                                        MdxSeed(2, 150, 30)};
    FuzzInput input(bytes, size);
    uint8_t mode = input.Byte();
    std::string start = StartFile(input, seeds, std::size(seeds));
    Session session;
    session.platform.Put("A.MDX", start);
    int16_t file;
    auto open = [&] {
        return session.Do(
            [&] { return ZBDMOPENX(&file, "A.MDX", static_cast<uint16_t>((mode & 0xF) << 8 | mode >> 4)); });
    };
    if (open() < 0) return 0;
    int32_t tag = -1;
    KeyShape shape;
    auto attach = [&](unsigned number) {
        session.Do(
            [&] { return ZBDMTUSEX(&tag, static_cast<uint16_t>(file), static_cast<int16_t>(number)); });
        if (session.Do([&] { return MdxCalls::Shape(tag, &shape); }) < 0) shape = {};
    };
    attach(1 + input.Pick(4));
    for (int i = 0; i < 48 && !input.Empty(); i++) {
        // An erased tag leaves its number to another, and so the handle.
        if (session.Do([&] { return MdxCalls::Shape(tag, &shape); }) < 0) shape = {};
        uint8_t operation = input.Byte();
        switch (operation % 19) {
            case 10: {
                Exactly text(MdxCalls::ExpressionRoom);
                session.Do([&] { return ZBDMTEXPR(tag, text.text()); });
                session.Do([&] { return ZBDMTHGET(tag); });
                break;
            }
            case 11: attach(input.Pick(49)); break;
            case 12:  // another program writes to the file
                if (std::string* text = session.platform.Find("A.MDX")) Damage(input, *text);
                break;
            case 13:
                session.Do([&] { return ZBDMCLOSE(file); });
                if (open() < 0) return 0;
                attach(1 + input.Pick(4));
                break;
            case 14: session.Do([&] { return ZBDMTCLOSE(tag); }); break;
            case 15:
            case 16: session.Do([&] { return ZBDMTERASE(file, names[input.Pick(4)]); }, 4); break;
            case 17: {
                Exactly expression(input.Text(20));
                Exactly name(input.Byte() & 1 ? std::string(names[input.Pick(4)]) : input.Text(12));
                uint32_t type = input.Word();
                auto length = static_cast<int32_t>(input.Number());
                session.Do([&] { return ZBDMTNEW(file, name.text(), type, expression.text(), length); }, 4);
                break;
            }
            case 18: {
                ZbMdxInfo info;
                session.Do([&] { return ZBDMINFO(file, &info); });
                session.Do([&] { return ZBDMTUSE(&tag, static_cast<uint16_t>(file), names[input.Pick(4)]); });
                if (session.Do([&] { return MdxCalls::Shape(tag, &shape); }) < 0) shape = {};
                break;
            }
            default: OperateKeys<MdxCalls>(session, input, tag, shape, operation); break;
        }
    }
    session.Do([&] { return ZBDMCLOSE(file); });
    return 0;
}
