// Creation. The limits that make a dialect what it is are enforced here alone: an
// open takes whatever the header says.
#include <cstring>

#include "core/ascii.h"
#include "data/data.h"
#include "file/operations.h"

namespace zb {
namespace {

struct Limits {
    int16_t fields;
    int16_t charWidth;
    int16_t recordLength;
    int16_t numberWidth;
    int16_t decimals;
    bool floats;
    uint8_t memoVersion;  // on disk, of a file with memo fields
};

constexpr uint8_t PlainVersion = 3;  // on disk, of a file without

constexpr Limits LimitsOf[] = {
    {},
    {128, 254, 4000, 19, 15, false, 0x83},    // DialectClassic
    {255, 254, 4000, 20, 18, true, 0x8B},     // DialectDb4
    {128, 254, 4000, 19, 15, false, 0x83},    // DialectClassicAlt
    {128, 254, 4000, 20, 18, true, 0xF5},     // DialectFox128
    {1023, 254, 4000, 19, 15, false, 0x83},   // DialectWide
    {1023, 2048, 8192, 19, 15, false, 0x83},  // DialectWideChar
    {512, 254, 4000, 19, 15, false, 0x83},    // DialectEofFill
    {255, 254, 4000, 20, 18, true, 0xF5},     // DialectFox255
    {128, 254, 4000, 19, 15, false, 0x83},    // DialectPaddedHeader
};

void SetSizes(ZbFieldSpec& spec, uint16_t width) {
    spec.width = width;
    spec.decimals = 0;
}

Code CheckNumber(const ZbFieldSpec& spec, const Limits& limits) {
    auto width = static_cast<int16_t>(spec.width);
    auto decimals = static_cast<int16_t>(spec.decimals);
    if (width < 1 || width > limits.numberWidth) return Fail("Dcreate", ErrFieldWidth);
    if (decimals < 0) return Fail("Dcreate", ErrFieldDecimals);
    // A point and a digit before it need room.
    if (decimals > 0 && (decimals > width - 2 || decimals > limits.decimals))
        return Fail("Dcreate", ErrFieldDecimals);
    return 0;
}

// Checks one field and completes it: the name in upper case, the sizes that its
// type fixes.
Code CheckField(ZbFieldSpec& spec, const Limits& limits, uint8_t& version) {
    size_t length = 0;
    while (length < sizeof spec.name && spec.name[length]) length++;
    if (length < 1 || length > sizeof(Field::name) - 1) return Fail("Dcreate", ErrFieldName);
    AsciiUpper(spec.name);

    switch (spec.type) {
        case 'C':
        case 'c': {
            auto width = static_cast<int16_t>(spec.width);
            if (width < 1 || width > limits.charWidth) return Fail("Dcreate", ErrFieldWidth);
            spec.decimals = 0;
            return 0;
        }
        case 'D':
        case 'd': SetSizes(spec, 8); return 0;
        case 'L':
        case 'l': SetSizes(spec, 1); return 0;
        case 'M':
        case 'm':
            SetSizes(spec, 10);
            version = limits.memoVersion;
            return 0;
        case 'F':
        case 'f': return limits.floats ? CheckNumber(spec, limits) : Fail("Dcreate", ErrFieldType);
        case 'N':
        case 'n': return CheckNumber(spec, limits);
        default: return Fail("Dcreate", ErrFieldType);
    }
}

Code WriteFile(const char* name, const uint8_t* header, const ZbFieldSpec* specs, int fieldCount,
               int dialect) {
    uint16_t handle;
    if (Hcreate(&handle, name) < 0) return Pass("Dcreate");
    if (Hwrite(handle, header, HeaderSize, false) < 0) return Pass("Dcreate");

    for (int i = 0; i < fieldCount; i++) {
        uint8_t descriptor[DescriptorSize] = {};
        memcpy(descriptor, specs[i].name, strlen(specs[i].name));
        descriptor[11] = static_cast<uint8_t>(specs[i].type);
        descriptor[16] = static_cast<uint8_t>(specs[i].width);
        descriptor[17] = static_cast<uint8_t>(specs[i].type == 'C' ? specs[i].width >> 8 : specs[i].decimals);
        if (Hwrite(handle, descriptor, DescriptorSize, false) < 0) return Pass("Dcreate");
    }

    if (dialect == DialectPaddedHeader) {
        uint8_t block[DescriptorSize] = {HeaderEnd};
        if (Hwrite(handle, block, DescriptorSize, false) < 0) return Pass("Dcreate");
        if (Hwrite(handle, &FileEnd, 1, false) < 0) return Pass("Dcreate");
    } else {
        const uint8_t ends[] = {HeaderEnd, FileEnd};
        if (Hwrite(handle, ends, sizeof ends, false) < 0) return Pass("Dcreate");
    }
    return Hclose(handle);
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDCREATE(const char* name, int16_t fieldCount, ZbFieldSpec* specs, int16_t mode) {
    if (Pending()) return Pass("Dcreate");
    if (!name || !specs) return Fail("Dcreate", ErrNullPointer);
    SetCode(0);

    uint8_t header[HeaderSize] = {};
    if (fieldCount <= 0) return Fail("Dcreate", ErrFieldCount);
    if (mode & ZB_Production) header[28] = 1;
    int dialect = mode & ~ZB_Production;
    if (dialect < DialectClassic || dialect > DialectPaddedHeader) return Fail("Dcreate", ErrFileType);
    const Limits& limits = LimitsOf[dialect];
    if (fieldCount > limits.fields) return Fail("Dcreate", ErrFieldCount);

    header[0] = PlainVersion;
    int recordLength = 1;
    for (int i = 0; i < fieldCount; i++) {
        if (CheckField(specs[i], limits, header[0]) < 0) return CurrentCode();
        recordLength += specs[i].width;
        if (recordLength > limits.recordLength) return Fail("Dcreate", ErrRecordLength);
        specs[i].type = static_cast<uint8_t>(AsciiUpper(static_cast<char>(specs[i].type)));
    }

    int headerLength = dialect == DialectPaddedHeader ? (fieldCount + 2) * DescriptorSize
                                                      : HeaderSize + fieldCount * DescriptorSize + 1;
    StoreLe16(header + 8, static_cast<uint16_t>(headerLength));
    StoreLe16(header + 10, static_cast<uint16_t>(recordLength));

    // The day of the month stands where other writers keep the year, and the
    // place of the day stays empty.
    int16_t year, month, day, dayOfWeek;
    if (ZBCDIGET(&year, &month, &day, &dayOfWeek) < 0) return Pass("Dcreate");
    header[1] = static_cast<uint8_t>(day);
    header[2] = static_cast<uint8_t>(month);

    return WriteFile(name, header, specs, fieldCount, dialect);
}
