// Opening and closing a data file, what it tells of itself, and the buffers
// that a bulk build reads it through.
#include <cstring>

#include "core/ascii.h"
#include "core/number.h"
#include "data/data.h"
#include "file/operations.h"
#include "file/path.h"

namespace zb {
namespace {

constexpr uint16_t HeldAtOpen = 64;  // record locks that the list has room for

bool VersionFits(int dialect, uint8_t version) {
    if (version == 3) return true;
    switch (dialect) {
        case DialectDb4: return version == 131 || version == 139;
        case DialectFox128:
        case DialectFox255: return version == 245;
        default: return version == 131;
    }
}

// What the first 32 bytes must say before anything behind them is believed.
Code ReadHeader(DataFile& file) {
    if (Hread(file.handle, file.header, HeaderSize) < 0) return Pass("Ddopen");
    if (file.dialect == 0) file.dialect = DialectClassic;
    if (file.dialect > DialectPaddedHeader) return SetCode(ErrBadOption);
    if (!VersionFits(file.dialect, file.version())) return SetCode(ErrFileType);
    if (file.headerLength() < HeaderSize || file.headerLength() % DescriptorSize > 2)
        return Fail("Ddopen", ErrHeaderLength);
    bool checksProduction = file.dialect == DialectDb4 || file.dialect == DialectFox255;
    if (checksProduction && file.header[28] > 1) return Fail("Ddopen", ErrProductionFlag);
    return 0;
}

// The number of `width` nines, with a point where the decimals leave room for it.
double LargestNumber(int width, int decimals) {
    char nines[256];
    memset(nines, '9', sizeof nines);
    int point = width - decimals - 1;
    if (decimals > 0 && point >= 0) nines[point] = '.';
    return ScanDouble(nines, static_cast<size_t>(width));
}

// A second memo field finds the memo bit set and so escapes the stricter check
// of the two dialects that know one memo version only.
bool MemoAllowed(const DataFile& file) {
    if (file.dialect == DialectFox128 || file.dialect == DialectFox255) return file.version() == 245;
    return file.version() >= 128;
}

Code ParseDescriptor(DataFile& file, Field& field, const uint8_t* descriptor) {
    for (size_t i = 0; descriptor[i]; i++) {
        if (i == sizeof field.name - 1) return Fail("Ddfields", ErrFieldName);
        field.name[i] = AsciiUpper(static_cast<char>(descriptor[i]));
    }
    uint8_t length = descriptor[16];
    field.type = static_cast<uint8_t>(AsciiUpper(static_cast<char>(descriptor[11])));
    field.decimals = descriptor[17];
    field.width = length;
    switch (field.type) {
        case 'C': field.width = static_cast<uint16_t>(length | field.decimals << 8); return 0;
        case 'D':
        case 'L': return 0;
        case 'F':
        case 'N': field.maxValue = LargestNumber(length, field.decimals); return 0;
        case 'M':
            if (!MemoAllowed(file)) return Fail("Ddfields", ErrFileType);
            file.dialect |= DialectHasMemo;
            return 0;
        default: return Fail("Ddfields", ErrFieldType);
    }
}

// Makes the field table from the descriptors. `recordLength` is what the fields
// and the delete flag come to.
Code ParseDescriptors(DataFile& file, const uint8_t* table, uint32_t* recordLength) {
    if (file.fieldCount > 0 && table[(file.fieldCount - 1) * DescriptorSize] == HeaderEnd) {
        file.fieldCount--;
        file.dialect = DialectPaddedHeader;
    }
    uint32_t offset = 1;
    for (int i = 0; i < file.fieldCount; i++) {
        Field& field = file.fields[i];
        if (Code code = ParseDescriptor(file, field, table + i * DescriptorSize); code < 0) return code;
        field.offset = static_cast<uint16_t>(offset);
        offset += field.width;
        // Widths beyond 32767 never get past the sum of the record.
        auto width = static_cast<int16_t>(field.width);
        if (width > file.maxFieldWidth) file.maxFieldWidth = width;
    }
    *recordLength = offset;
    return 0;
}

Code ReadFields(DataFile& file) {
    constexpr int MostDescriptors = (INT16_MAX - HeaderSize) / DescriptorSize;
    uint8_t table[MostDescriptors * DescriptorSize];

    file.fieldCount = static_cast<int16_t>((file.headerLength() - HeaderSize) / DescriptorSize);
    if (file.fields.Alloc(static_cast<size_t>(file.fieldCount)) < 0) return Pass("Ddopen");
    if (Hseek(file.handle, HeaderSize) < 0) return Pass("Ddopen");
    auto bytes = static_cast<int16_t>(file.fieldCount * DescriptorSize);
    if (Hread(file.handle, table, bytes) < 0) return Pass("Ddopen");

    if (file.heldList.Alloc(HeldAtOpen) < 0) return Pass("Ddopen");
    if (file.recordLength() < 0) return Fail("Ddopen", ErrRecordLength);
    auto recordLength = static_cast<uint32_t>(file.recordLength());
    if (file.record.Alloc(recordLength) < 0) return Pass("Ddopen");
    memset(file.record.data, LiveFlag, recordLength);

    uint32_t sum;
    if (ParseDescriptors(file, table, &sum) < 0) return Pass("Ddopen");
    return sum == recordLength ? Code{0} : Fail("Ddopen", ErrRecordLength);
}

// Whether the file ends behind its last record, with an end mark of one byte or
// of a record's length, or none. A length that can't be had is no objection.
bool LengthFits(const DataFile& file) {
    uint32_t length;
    if (Hlen(file.handle, &length) < 0) {
        SetCode(0);
        return true;
    }
    int64_t behind = length - file.positionOf(int64_t{file.recordCount()} + 1);
    return behind == 0 || behind == 1 || behind == file.recordLength();
}

Code OpenFile(DataFile& file, const char* name, uint16_t mode, int slot) {
    mode = NormalMode(mode);
    file.dialect = static_cast<uint8_t>(mode);
    if (Hopen(&file.handle, name, mode, &file.flags, slot) < 0) return Pass("Ddopen");
    file.autoFlush = 1;
    if (Code code = ReadHeader(file); code < 0) return code;
    if (Code code = ReadFields(file); code < 0) return code;
    size_t length = strlen(name);
    if (length > MaxName) return Fail("Ddopen", ErrBadName);
    memcpy(file.name, name, length);
    file.heldCapacity = HeldAtOpen;
    return LengthFits(file) ? Code{0} : SetCode(WarnFileSize);
}

void Dispose(DataFile& file, int slot) {
    file.heldList.Free();
    file.fields.Free();
    file.record.Free();
    AheadClose(file);
    SlotRelease(slot);
}

// Writes the day of the last change into the header. Year, month and day all
// have their place at the one date byte, and the day, the last, stands; the two
// bytes behind it are written as they were read.
Code WriteDate(DataFile& file) {
    int16_t year, month, day, dayOfWeek;
    if (ZBCDIGET(&year, &month, &day, &dayOfWeek) < 0) return Pass("Ddclose");
    file.header[1] = static_cast<uint8_t>(day);
    if (Hseek(file.handle, 1) < 0) return Pass("Ddclose");
    if (Hwrite(file.handle, file.header + 1, 3, file.autoFlush) < 0) return Pass("Ddclose");
    return 0;
}

}  // namespace

Code AheadOpen(DataFile& file) {
    int recordLength = file.recordLength();
    int capacity = 8;
    if (recordLength * capacity > INT16_MAX)
        capacity = 1;
    else if (recordLength * capacity > 16384)
        capacity = 16384 / recordLength;
    else if (recordLength * capacity < 512)
        capacity = 512 / recordLength;
    file.aheadCapacity = static_cast<int16_t>(capacity);
    file.aheadBytes = static_cast<int16_t>(capacity * recordLength);
    // A build that a host function asks for within another finds the other's.
    file.ahead.Free();
    file.aheadOffsets.Free();
    file.aheadCount = 0;
    if (file.ahead.Alloc(static_cast<size_t>(file.aheadBytes)) < 0) return Pass("AheadOpen");
    if (file.aheadOffsets.Alloc(static_cast<size_t>(capacity)) < 0) return Pass("AheadOpen");
    for (int i = 0; i < capacity; i++) file.aheadOffsets[i] = static_cast<uint16_t>(i * recordLength);
    return CurrentCode();
}

Code AheadClose(DataFile& file) {
    file.ahead.Free();
    file.aheadOffsets.Free();
    file.aheadCount = 0;
    return SetCode(0);
}

Code DataQuickClose(int handle) {
    DataFile* file = Dslock(handle);
    if (!file) return Pass("Ddqclose");
    if (Hclose(file->handle) < 0) return Pass("Ddqclose");
    return CurrentCode();
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDOPENX(uint16_t* handle, const char* name, uint16_t mode) {
    if (Pending()) return Pass("Ddopen");
    if (!handle || !name) return Fail("Ddopen", ErrNullPointer);
    SetCode(0);
    int16_t slot;
    void* block;
    Code code = SlotAlloc(&slot, SlotData, sizeof(DataFile), &block);
    *handle = static_cast<uint16_t>(slot);
    if (code < 0) return Pass("Ddopen");

    auto& file = *static_cast<DataFile*>(block);
    code = OpenFile(file, name, mode, slot);
    if (code >= 0) return code;
    if (file.handle != NoFile) Hclose(file.handle);
    Dispose(file, slot);
    *handle = NoFile;
    return SetCode(code);
}

int32_t ZB_CALL ZBDDCLOSE(int16_t data) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddclose");
    if (file->modified) {
        file->modified = 0;
        if (Code code = WriteDate(*file); code < 0) return code;
    }
    if (Hclose(file->handle) < 0) return Pass("Ddclose");
    Dispose(*file, data);
    return CurrentCode();
}

int32_t ZB_CALL ZBDDHGET(int16_t data) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddhget");
    if (HeaderRefresh(*file) < 0) return Pass("Ddhget");
    return CurrentCode();
}

int32_t ZB_CALL ZBDDSIZE(int16_t data, uint32_t* count) {
    if (!count) return Fail("Ddsize", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddsize");
    *count = static_cast<uint32_t>(file->recordCount());
    return CurrentCode();
}

int32_t ZB_CALL ZBDDLUD(int16_t data, char* text, int32_t style) {
    if (!text) return Fail("Ddlud", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddlud");
    // The one date byte is the year, the month and the day of what is told.
    auto date = static_cast<int8_t>(file->header[1]);
    auto year = static_cast<int16_t>(date + 1900);
    if (ZBCDI2S(text, static_cast<int16_t>(style), year, date, date) < 0) return Pass("Ddlud");
    return CurrentCode();
}

int32_t ZB_CALL ZBDDINFO(int16_t data, ZbDataInfo* info) {
    if (!info) return Fail("Ddinfo", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Ddinfo");
    info->lockOffset = file->lockOffset;
    info->lockLength = file->lockLength;
    int bits = info->infoFlags & ~7;  // the others are the caller's
    if (file->flags & FlagReadOnly) bits |= 1;
    if (file->flags & FlagShared) bits |= 2;
    info->infoFlags = static_cast<uint16_t>(bits);
    memcpy(info->name, file->name, sizeof info->name);
    info->dialect = file->dialect & ~DialectHasMemo;
    info->hasMemo = file->dialect & DialectHasMemo ? 1 : 0;
    info->production = static_cast<int8_t>(file->header[28]);
    info->transaction = static_cast<int8_t>(file->header[14]);
    info->encryption = static_cast<int8_t>(file->header[15]);
    info->reservedFlag = file->reservedFlag;
    return CurrentCode();
}
