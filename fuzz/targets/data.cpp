// Data files of all dialects: open, records, fields, locks, changes, close.
#include <vector>

#include "support/tables.h"

using namespace fuzz;

namespace {

struct Shape {
    std::vector<ZbFieldSpec> fields;
    size_t recordLength = 0;
};

Shape ShapeOf(Session& session, int16_t data) {
    Shape shape;
    ZbDataRecordInfo info{};
    if (session.Do([&] { return ZBDDRINFO(data, &info); }) < 0) return shape;
    shape.recordLength = info.recordLength;
    Exactly specs(info.fieldCount * sizeof(ZbFieldSpec) + 1);
    uint16_t widest;
    if (session.Do([&] { return ZBDDFINFO(data, &widest, static_cast<ZbFieldSpec*>(specs.data())); }) < 0)
        return shape;
    shape.fields.resize(info.fieldCount);
    memcpy(shape.fields.data(), specs.data(), info.fieldCount * sizeof(ZbFieldSpec));
    return shape;
}

// What a record's image takes, as zb.h tells it; a damaged file's logical field
// as much as its width says.
size_t ImageSize(const Shape& shape) {
    size_t size = 1;
    for (const ZbFieldSpec& field : shape.fields) switch (field.type) {
            case 'C':
            case 'D': size += field.width + size_t{1}; break;
            case 'N':
            case 'F': size += 8; break;
            case 'M': size += 4; break;
            default: size += field.width;
        }
    if (!shape.fields.empty() && shape.fields.back().type == 'D') size += 2;
    return size;
}

size_t ValueSize(const ZbFieldSpec& field) {
    switch (field.type) {
        case 'C': return field.width + size_t{1};
        case 'D': return 11;
        case 'N':
        case 'F': return 8;
        case 'M': return 4;
        default: return 1;
    }
}

void Operate(Session& session, FuzzInput& input, uint16_t& handle) {
    auto data = static_cast<int16_t>(handle);
    Shape shape = ShapeOf(session, data);
    uint8_t operation = input.Byte();
    auto field = static_cast<int16_t>(
        shape.fields.empty() ? input.Byte() : input.Pick(static_cast<unsigned>(shape.fields.size() + 1)));
    bool known = static_cast<size_t>(field) < shape.fields.size();
    ZbFieldSpec spec = known ? shape.fields[static_cast<size_t>(field)] : ZbFieldSpec{};
    uint32_t record = input.Number();
    switch (operation % 22) {
        case 0: session.Do([&] { return ZBDDRGET(data, static_cast<int32_t>(record)); }); break;
        case 1: {
            Exactly image(ImageSize(shape));
            session.Do([&] { return ZBDDRGETX(data, image.data(), static_cast<int32_t>(record)); });
            break;
        }
        case 2: session.Do([&] { return ZBDDRPUT(data, &record, operation & 0x40 ? 256 : 0); }); break;
        case 3: {
            Exactly image(ImageSize(shape) + 1, 0);
            image.Set(input.Bytes(input.Byte()));
            image.text()[image.Size() - 1] = 0;  // the caller ends his texts
            session.Do([&] { return ZBDDRPUTX(data, image.data(), &record, operation & 0x40 ? 256 : 0); });
            break;
        }
        case 4: session.Do([&] { return ZBDDRDEL(data, static_cast<int32_t>(record)); }); break;
        case 5: session.Do([&] { return ZBDDRUNDEL(data, static_cast<int32_t>(record)); }); break;
        case 6:
            session.Do([&] { return ZBDDRSTAT(data); });
            session.Do([&] { return ZBDDRNUM(data, &record); });
            break;
        case 7: session.Do([&] { return ZBDDRCLEAR(data); }); break;
        case 8:
        case 9: {
            Exactly value(ValueSize(spec));
            session.Do([&] { return ZBDDFGET(data, field, value.data()); });
            break;
        }
        case 10: {
            Exactly text(size_t{spec.width} + 1);
            session.Do([&] { return ZBDDFGETS(data, field, text.text()); });
            break;
        }
        case 11:
        case 12: {
            bool isText = spec.type == 'C' || spec.type == 'D';
            std::string bytes = isText ? input.Text() : input.Bytes(8);
            Exactly value(isText ? bytes.size() + 1 : 8, 0);
            value.Set(bytes);
            session.Do([&] { return ZBDDFPUT(data, field, value.data()); });
            break;
        }
        case 13: {
            Exactly text(input.Text());
            session.Do([&] { return ZBDDFPUTS(data, field, text.text()); });
            break;
        }
        case 14: {
            Exactly name(input.Text(14));
            Exactly value(11);
            session.Do([&] { return ZBDDFNAM2NO(data, &field, name.text()); });
            session.Do([&] { return ZBDDFNO2NAM(data, value.text(), field); });
            break;
        }
        case 15: {
            uint16_t conflict;
            auto kind = static_cast<int16_t>(input.Pick(7));
            session.Do([&] { return ZBDDLOCK(data, kind, &conflict); });
            break;
        }
        case 16: {
            uint16_t conflict;
            auto kind = static_cast<int16_t>(input.Pick(7));
            session.Do([&] { return ZBDDUNLOCK(data, kind, &conflict); });
            break;
        }
        case 17: {
            uint16_t conflict;
            auto kind = static_cast<int16_t>(input.Pick(9));
            session.Do([&] { return ZBDDRLOCK(data, record, kind, &conflict); });
            break;
        }
        case 18: {
            Exactly text(11);
            auto style = static_cast<int16_t>(input.Pick(17));
            uint32_t count;
            session.Do([&] { return ZBDDLUD(data, text.text(), style); });
            session.Do([&] { return ZBDDSIZE(data, &count); });
            session.Do([&] { return ZBDDHGET(data); });
            session.Do([&] { return ZBCDSTYLE(static_cast<uint16_t>(style)); });
            break;
        }
        case 19: {
            ZbDataInfo info;
            session.Do([&] { return ZBDDINFO(data, &info); });
            session.Do([&] {
                return ZBDDRINFOH(
                    data, reinterpret_cast<ZbDataRecordInfo*>(Exactly(sizeof(ZbDataRecordInfo)).data()));
            });
            break;
        }
        case 20:  // another program writes to the file
            if (std::string* file = session.platform.Find("A.DBF")) Damage(input, *file);
            break;
        case 21:
            if (operation & 0x40) session.Do([&] { return ZBDQCLOSE(); });
            session.Do([&] { return ZBDDCLOSE(data); });
            session.Do([&] { return ZBDDOPENX(&handle, "A.DBF", input.Word()); });
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const DataSeeds& seeds = DataFiles();
    FuzzInput input(bytes, size);
    uint16_t mode = input.Word();
    std::string file = StartFile(input, seeds.files, 9);
    Session session;
    session.platform.Put("A.DBF", file);
    uint16_t handle;
    if (session.Do([&] { return ZBDDOPENX(&handle, "A.DBF", mode); }) < 0) return 0;
    for (int i = 0; i < 64 && !input.Empty(); i++) Operate(session, input, handle);
    return 0;
}
