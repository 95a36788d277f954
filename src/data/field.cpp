// Fields: between the fixed-width text of the record buffer and the caller's
// values. Nothing here reads or writes the file.
#include <cstring>

#include "core/ascii.h"
#include "core/library.h"
#include "core/number.h"
#include "data/data.h"
#include "dates/calendar.h"
#include "dates/dates.h"

namespace zb {
namespace {

// On disk, whatever width a damaged descriptor gives such a field: what stands
// beyond the record is the slack of its block.
constexpr int DateWidth = 8;
constexpr int MemoWidth = 10;

// The longest text of a double: sign, 309 digits, point and as many decimals as
// a descriptor's byte can ask for.
constexpr size_t NumberRoom = 1 + 309 + 1 + 255 + 1;

// Whether nothing but blanks follows, to the end of the record and not of the
// field: a blank field before a filled one doesn't count as blank.
bool BlankFrom(const uint8_t* bytes) {
    while (*bytes == ' ') bytes++;
    return *bytes == 0;
}

// The usual case of a date, without a look at each character: eight digits that
// make one. What is anything else is left to the parser.
bool PlainDate(const uint8_t* bytes, int16_t* year, int16_t* month, int16_t* day) {
    uint64_t digits = LoadLe64(bytes) ^ 0x3030303030303030;
    if (((digits + 0x0606060606060606) | digits) & 0xF0F0F0F0F0F0F0F0) return false;
    uint64_t pairs = digits * 10 + (digits >> 8);  // in every other byte, the first one lowest
    *year = static_cast<int16_t>((pairs & 0xFF) * 100 + (pairs >> 16 & 0xFF));
    *month = static_cast<int16_t>(pairs >> 32 & 0xFF);
    *day = static_cast<int16_t>(pairs >> 48 & 0xFF);
    ZBCDILEAP(*year);
    return IsDate(*year, *month, *day);
}

Code GetDate(const uint8_t* bytes, char* text) {
    if (BlankFrom(bytes)) {
        auto length = static_cast<size_t>(StyleLength(library.dateStyle));
        memset(text, ' ', length);
        text[length] = 0;
        return 0;
    }
    memcpy(text, bytes, DateWidth);
    text[DateWidth] = 0;
    int16_t year, month, day;
    if (!Pending() && PlainDate(bytes, &year, &month, &day)) {
        if (library.dateStyle == StyleYmd) return SetCode(0);
    } else if (ZBCDS2I(&year, &month, &day, text, StyleYmd) < 0) {
        return Pass("Dfieldget");
    }
    if (ZBCDI2S(text, static_cast<int16_t>(library.dateStyle), year, month, day) < 0)
        return Pass("Dfieldget");
    return 0;
}

// Leaves the value alone where the byte is unknown. A small t is one of these,
// though it is taken as true when written; a zero byte counts as blank.
void GetLogical(const uint8_t* bytes, char* value) {
    if (BlankFrom(bytes)) {
        *value = '?';
        return;
    }
    switch (*bytes) {
        case 'T':
        case 'Y':
        case 'y':
        case 1: *value = 1; break;
        case 'F':
        case 'f':
        case 'N':
        case 'n': *value = 0; break;
    }
}

// Like the C library's conversion to a long of 32 bits that nothing stops from
// running over: block numbers above 2147483647 come back as they were written.
uint32_t ScanBlockNumber(const uint8_t* text, size_t length) {
    const uint8_t* end = text + length;
    while (text < end && (*text == ' ' || (*text >= '\t' && *text <= '\r'))) text++;
    bool minus = text < end && *text == '-';
    if (text < end && (*text == '-' || *text == '+')) text++;
    uint32_t number = 0;
    for (; text < end && *text >= '0' && *text <= '9'; text++) number = number * 10 + (*text - '0');
    return minus ? 0 - number : number;
}

Code PutText(const Field& field, uint8_t* bytes, const char* text) {
    Code code = 0;
    size_t length = strlen(text);
    if (length > field.width) {
        code = SetCode(WarnTruncated);
        length = field.width;
    }
    memmove(bytes, text, length);
    memset(bytes + length, ' ', field.width - length);
    return code;
}

Code PutDate(uint8_t* bytes, const char* text) {
    const char* first = text;
    while (*first == ' ') first++;
    if (!*first) {
        memset(bytes, ' ', DateWidth);
        return 0;
    }
    int16_t year, month, day;
    Code code =
        static_cast<Code>(ZBCDS2I(&year, &month, &day, text, static_cast<int16_t>(library.dateStyle)));
    if (code < 0) return Pass("Dfieldput");
    if (code == KeyEmpty) {
        memset(bytes, ' ', DateWidth);
        return SetCode(0);
    }
    char digits[DateWidth + 1];
    if (ZBCDI2S(digits, StyleYmd, year, month, day) < 0) return Pass("Dfieldput");
    memcpy(bytes, digits, DateWidth);
    return 0;
}

// There is an upper bound only: of a negative number that is too long, the first
// characters are kept.
Code PutNumber(const Field& field, uint8_t* bytes, double number) {
    char text[NumberRoom];
    PrintDouble(text, sizeof text, number, field.width, field.decimals);
    double kept = ScanDouble(text);
    if (kept > field.maxValue) return Fail("Dfieldput", ErrFieldValue);
    Code code = 0;
    if (kept != number) {
        code = SetCode(WarnRounded);
        PrintDouble(text, sizeof text, kept, field.width, field.decimals);
    }
    memcpy(bytes, text, field.width);
    return code;
}

Code PutLogical(uint8_t* bytes, uint8_t value) {
    switch (value) {
        case 'T':
        case 't':
        case 'Y':
        case 'y':
        case 1: *bytes = 'T'; return 0;
        case 'F':
        case 'f':
        case 'N':
        case 'n':
        case 0: *bytes = 'F'; return 0;
        default: return Fail("Dfieldput", ErrFieldValue);
    }
}

// Binds the file for a call that names one of its fields by number.
DataFile* DfieldBind(int handle, int fieldNo) {
    DataFile* file = Dslock(handle);
    if (!file) {
        Pass("Dfieldbind");
    } else if (fieldNo < 0 || fieldNo >= file->fieldCount) {
        Fail("Dfieldbind", ErrFieldCount);
        file = nullptr;
    }
    return file;
}

// Binds the file and looks for the field of that name, whose number, or the
// number of fields, goes to `fieldNo`.
DataFile* BindAndFind(int handle, int16_t* fieldNo, const char* name) {
    if (!fieldNo || !name) {
        Fail("Dfnam2no", ErrNullPointer);
        return nullptr;
    }
    DataFile* file = Dslock(handle);
    if (!file) {
        Pass("Dfnam2no");
        return nullptr;
    }
    int found = FieldNumber(*file, name);
    *fieldNo = found < 0 ? file->fieldCount : static_cast<int16_t>(found);
    if (found >= 0) return file;
    Fail("Dfnam2no", ErrFieldName);
    return nullptr;
}

}  // namespace

Code DfieldGet(DataFile& file, void* value, int fieldNo, int type) {
    if (!value) return Fail("Dfieldget", ErrNullPointer);
    const Field& field = file.fields[fieldNo];
    const uint8_t* bytes = file.record.data + field.offset;
    switch (type) {
        case 'C': {
            auto* text = static_cast<char*>(value);
            memcpy(text, bytes, field.width);
            text[field.width] = 0;
            return 0;
        }
        case 'D': return GetDate(bytes, static_cast<char*>(value));
        case 'F':
        case 'N': {
            // Blanks give 0.0 by themselves, blank to the end of the record or not.
            double number = ScanDouble(reinterpret_cast<const char*>(bytes), field.width);
            memcpy(value, &number, sizeof number);
            return 0;
        }
        case 'L': GetLogical(bytes, static_cast<char*>(value)); return 0;
        case 'M': {
            uint32_t block = ScanBlockNumber(bytes, field.width);
            memcpy(value, &block, sizeof block);
            return 0;
        }
        default: return 0;
    }
}

Code DfieldPut(DataFile& file, const void* value, int fieldNo, int type) {
    if (!value) return Fail("Dfieldput", ErrNullPointer);
    const Field& field = file.fields[fieldNo];
    uint8_t* bytes = file.record.data + field.offset;
    switch (type) {
        case 'C': return PutText(field, bytes, static_cast<const char*>(value));
        case 'D': return PutDate(bytes, static_cast<const char*>(value));
        case 'F':
        case 'N': {
            double number;
            memcpy(&number, value, sizeof number);
            return PutNumber(field, bytes, number);
        }
        case 'L': return PutLogical(bytes, *static_cast<const uint8_t*>(value));
        case 'M': {
            uint32_t block;
            memcpy(&block, value, sizeof block);
            char text[MemoWidth + 1];
            PrintUnsigned(text, block, MemoWidth);
            memcpy(bytes, text, MemoWidth);
            return 0;
        }
        default: return 0;
    }
}

int FieldNumber(const DataFile& file, const char* name) {
    // Fields have their names in upper case and filled with zeros.
    char upper[sizeof(Field::name)] = {};
    for (size_t i = 0; name[i]; i++) {
        if (i == sizeof upper - 1) return -1;
        upper[i] = AsciiUpper(name[i]);
    }
    for (int i = 0; i < file.fieldCount; i++)
        if (memcmp(file.fields[i].name, upper, sizeof upper) == 0) return i;
    return -1;
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDFGET(int16_t data, int16_t fieldNo, void* value) {
    DataFile* file = DfieldBind(data, fieldNo);
    if (!file) return Pass("Dfget");
    DfieldGet(*file, value, fieldNo, file->fields[fieldNo].type);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFGETS(int16_t data, int16_t fieldNo, char* text) {
    DataFile* file = DfieldBind(data, fieldNo);
    if (!file) return Pass("Dfgets");
    DfieldGet(*file, text, fieldNo, 'C');
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFPUT(int16_t data, int16_t fieldNo, const void* value) {
    DataFile* file = DfieldBind(data, fieldNo);
    if (!file) return Pass("Dfput");
    DfieldPut(*file, value, fieldNo, file->fields[fieldNo].type);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFPUTS(int16_t data, int16_t fieldNo, const char* text) {
    DataFile* file = DfieldBind(data, fieldNo);
    if (!file) return Pass("Dfputs");
    DfieldPut(*file, text, fieldNo, 'C');
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNGET(int16_t data, const char* name, void* value) {
    int16_t fieldNo;
    DataFile* file = BindAndFind(data, &fieldNo, name);
    if (!file) return Pass("Dfnget");
    DfieldGet(*file, value, fieldNo, file->fields[fieldNo].type);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNGETS(int16_t data, const char* name, char* text) {
    int16_t fieldNo;
    DataFile* file = BindAndFind(data, &fieldNo, name);
    if (!file) return Pass("Dfngets");
    DfieldGet(*file, text, fieldNo, 'C');
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNPUT(int16_t data, const char* name, const void* value) {
    int16_t fieldNo;
    DataFile* file = BindAndFind(data, &fieldNo, name);
    if (!file) return Pass("Dfnput");
    DfieldPut(*file, value, fieldNo, file->fields[fieldNo].type);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNPUTS(int16_t data, const char* name, const char* text) {
    int16_t fieldNo;
    DataFile* file = BindAndFind(data, &fieldNo, name);
    if (!file) return Pass("Dfnputs");
    DfieldPut(*file, text, fieldNo, 'C');
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNAM2NO(int16_t data, int16_t* fieldNo, const char* name) {
    BindAndFind(data, fieldNo, name);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFNO2NAM(int16_t data, char* name, int16_t fieldNo) {
    if (!name) return Fail("Dfno2nam", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Dfno2nam");
    if (fieldNo < 0 || fieldNo >= file->fieldCount) return Fail("Dfno2nam", ErrFieldCount);
    strcpy(name, file->fields[fieldNo].name);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDFINFO(int16_t data, uint16_t* maxWidth, ZbFieldSpec* specs) {
    if (!maxWidth || !specs) return Fail("Dfinfo", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Dfinfo");
    for (int i = 0; i < file->fieldCount; i++) {
        const Field& field = file->fields[i];
        strcpy(specs[i].name, field.name);
        specs[i].type = field.type;
        specs[i].width = field.width;
        specs[i].decimals = field.decimals;
    }
    *maxWidth = static_cast<uint16_t>(file->maxFieldWidth);
    return CurrentCode();
}
