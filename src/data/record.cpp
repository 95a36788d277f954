// Records: between the file and the record buffer, and between that and the
// caller's image of a whole record.
#include <cstring>

#include "data/data.h"
#include "file/operations.h"

namespace zb {
namespace {

enum PutMode : uint16_t { PutAppend = 0, PutUpdate = 256 };

// Goes to where a record and `marks` bytes behind it are to be written. Numbers
// that a damaged record count leads to are refused where they would reach into
// the header or beyond 31 bits.
Code SeekToWrite(const char* unit, const DataFile& file, uint32_t recordNo, int marks) {
    int64_t position = file.positionOf(recordNo);
    if (recordNo == 0 || position + file.recordLength() + marks > MaxPosition) return Fail(unit, ErrSeek);
    return Hseek(file.handle, position) < 0 ? Pass(unit) : Code{0};
}

// Text of a date, with its terminator, in the short and in the long styles.
constexpr size_t ShortDateRoom = 9;
constexpr size_t LongDateRoom = 11;

// Bytes that a field takes in a record image. A date has room for the short
// styles only: the end of a long one runs into the next field's room.
size_t ImageRoom(const Field& field) {
    switch (field.type) {
        case 'C':
        case 'D': return field.width + size_t{1};
        case 'F':
        case 'N': return sizeof(double);
        case 'M': return sizeof(uint32_t);
        default: return field.width;
    }
}

void GetImage(DataFile& file, uint8_t* image) {
    *image++ = file.record[0];
    for (int i = 0; i < file.fieldCount; i++) {
        const Field& field = file.fields[i];
        size_t room = ImageRoom(field);
        // A damaged descriptor may give a field less room than its value takes. A
        // date is cut to it; what has none is passed over.
        if (room == 0) continue;
        bool narrow = field.type == 'D' && room < ShortDateRoom;
        char date[LongDateRoom] = {};
        if (DfieldGet(file, narrow ? static_cast<void*>(date) : image, i, field.type) < 0) {
            Pass("Drget");
            return;
        }
        if (narrow) {
            memcpy(image, date, room - 1);
            image[room - 1] = 0;
        }
        image += room;
    }
}

Code PutImage(DataFile& file, const uint8_t* image) {
    file.record[0] = *image++;
    for (int i = 0; i < file.fieldCount; i++) {
        const Field& field = file.fields[i];
        size_t room = ImageRoom(field);
        if (room != 0 && DfieldPut(file, image, i, field.type) < 0) return Pass("Drput");
        image += room;
    }
    return 0;
}

// Binds for a change of the record's bytes in the file.
DataFile* BindToWrite(const char* unit, int handle) {
    DataFile* file = Dslock(handle);
    if (!file) {
        Pass(unit);
    } else if (file->readOnly()) {
        Fail(unit, ErrReadOnly);
        file = nullptr;
    }
    return file;
}

Code SetDeleteFlag(const char* unit, int handle, int32_t recordNo, uint8_t flag) {
    DataFile* file = BindToWrite(unit, handle);
    if (!file) return CurrentCode();
    if (recordNo < 1 || recordNo > file->recordCount()) return Fail(unit, ErrSeek);
    if (DataRead(*file, file->record.data, recordNo) < 0) return Pass(unit);
    file->modified = ModifiedFlag;
    SetCode(0);
    if (file->record[0] == flag) return 0;
    file->record[0] = flag;
    if (DataUpdate(*file) < 0) return Pass(unit);
    return CurrentCode();
}

Code RecordInfo(const char* unit, int handle, ZbDataRecordInfo* info, bool asHandle) {
    if (!info) return Fail(unit, ErrNullPointer);
    DataFile* file = Dslock(handle);
    if (!file) return Pass(unit);
    info->recordLength = static_cast<uint16_t>(file->recordLength());
    info->fieldCount = static_cast<uint16_t>(file->fieldCount);
    info->buffer = asHandle ? file->record.memory : reinterpret_cast<uintptr_t>(file->record.data);
    return CurrentCode();
}

}  // namespace

Code DataRead(DataFile& file, uint8_t* buffer, int32_t recordNo) {
    SetCode(0);
    if (HreadAt(file.handle, file.positionOf(recordNo), buffer, file.recordLength()) < 0)
        return Pass("DataRead");
    file.currentRecord = static_cast<uint32_t>(recordNo);
    return buffer[0] == LiveFlag ? Code{0} : SetCode(WarnDeleted);
}

Code DataReadAhead(DataFile& file, uint32_t recordNo) {
    if (recordNo >= file.aheadFirst && recordNo - file.aheadFirst < static_cast<uint32_t>(file.aheadCount))
        return SetCode(0);
    file.aheadCount = 0;
    if (Hseek(file.handle, file.positionOf(recordNo)) < 0) return Pass("DataReadAhead");
    int64_t left = int64_t{file.recordCount()} - recordNo + 1;
    int64_t count = left < file.aheadCapacity ? left : file.aheadCapacity;
    if (count <= 0) return Fail("DataReadAhead", ErrRead);
    auto bytes = static_cast<int16_t>(count * file.recordLength());
    if (Hread(file.handle, file.ahead.data, bytes) < 0) return Pass("DataReadAhead");
    file.aheadCount = static_cast<int16_t>(count);
    file.aheadFirst = recordNo;
    return SetCode(0);
}

Code DataAppend(DataFile& file, uint32_t* recordNo) {
    uint32_t number = static_cast<uint32_t>(file.recordCount()) + 1;
    file.setRecordCount(static_cast<int32_t>(number));
    *recordNo = number;
    file.record[0] = LiveFlag;
    int marks = file.dialect == DialectEofFill ? file.recordLength() : 1;
    if (Code code = SeekToWrite("DataAppend", file, number, marks); code < 0) return code;
    if (Hwrite(file.handle, file.record.data, file.recordLength(), file.autoFlush) < 0)
        return Pass("DataAppend");
    for (int i = 0; i < marks; i++)
        if (Hwrite(file.handle, &FileEnd, 1, file.autoFlush) < 0) return Pass("DataAppend");
    if (Hseek(file.handle, 4) < 0) return Pass("DataAppend");
    if (Hwrite(file.handle, file.header + 4, 4, file.autoFlush) < 0) return Pass("DataAppend");
    file.modified = ModifiedAppend;
    file.currentRecord = number;
    return CurrentCode();
}

Code DataUpdate(DataFile& file) {
    if (Code code = SeekToWrite("DataUpdate", file, file.currentRecord, 0); code < 0) return code;
    if (Hwrite(file.handle, file.record.data, file.recordLength(), file.autoFlush) < 0)
        return Pass("DataUpdate");
    file.modified = ModifiedUpdate;
    return CurrentCode();
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDRGET(int16_t data, int32_t recordNo) { return ZBDDRGETX(data, nullptr, recordNo); }

int32_t ZB_CALL ZBDDRGETX(int16_t data, void* image, int32_t recordNo) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Drget");
    if (recordNo < 1 || recordNo > file->recordCount()) return Fail("Drget", ErrSeek);
    Code read = DataRead(*file, file->record.data, recordNo);
    if (read < 0) Pass("Drget");
    if (image) GetImage(*file, static_cast<uint8_t*>(image));
    Code code = CurrentCode();
    return code == 0 ? SetCode(read) : code;  // the fields don't hide a deleted record
}

int32_t ZB_CALL ZBDDRPUT(int16_t data, uint32_t* recordNo, uint16_t mode) {
    return ZBDDRPUTX(data, nullptr, recordNo, mode);
}

int32_t ZB_CALL ZBDDRPUTX(int16_t data, const void* image, uint32_t* recordNo, uint16_t mode) {
    if (!recordNo) return Fail("Drput", ErrNullPointer);
    DataFile* file = BindToWrite("Drput", data);
    if (!file) return CurrentCode();
    if (image && PutImage(*file, static_cast<const uint8_t*>(image)) < 0) return CurrentCode();
    switch (mode) {
        case PutAppend: return DataAppend(*file, recordNo);
        case PutUpdate:
            file->currentRecord = *recordNo;
            if (*recordNo == 0) return Fail("Drput", ErrSeek);
            file->record[0] = LiveFlag;
            return DataUpdate(*file);
        default: return Fail("Drput", ErrBadOption);
    }
}

int32_t ZB_CALL ZBDDRDEL(int16_t data, int32_t recordNo) {
    return SetDeleteFlag("Drdel", data, recordNo, DeletedFlag);
}

int32_t ZB_CALL ZBDDRUNDEL(int16_t data, int32_t recordNo) {
    return SetDeleteFlag("Drundel", data, recordNo, LiveFlag);
}

int32_t ZB_CALL ZBDDRSTAT(int16_t data) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Drstat");
    return file->record[0] == DeletedFlag ? SetCode(WarnDeleted) : CurrentCode();
}

int32_t ZB_CALL ZBDDRCLEAR(int16_t data) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Drclear");
    memset(file->record.data, ' ', static_cast<size_t>(file->recordLength()));
    return CurrentCode();
}

int32_t ZB_CALL ZBDDRNUM(int16_t data, uint32_t* recordNo) {
    if (!recordNo) return Fail("Drnum", ErrNullPointer);
    DataFile* file = Dslock(data);
    if (!file) return Pass("Drnum");
    *recordNo = file->currentRecord;
    return SetCode(0);
}

int32_t ZB_CALL ZBDDRINFO(int16_t data, ZbDataRecordInfo* info) {
    return RecordInfo("Drinfo", data, info, false);
}

int32_t ZB_CALL ZBDDRINFOH(int16_t data, ZbDataRecordInfo* info) {
    return RecordInfo("Drinfoh", data, info, true);
}

int32_t ZB_CALL ZBDDFLUSH(int16_t) { return SetCode(WarnNoFlush); }
