// What the other rooms use of the data files.
#pragma once

#include "data/format.h"

namespace zb {

// Binds a data handle. Null with the code set; a bad handle isn't logged.
DataFile* Dslock(int handle);

// Reads record `recordNo` into `buffer` (a record's length) and makes it the
// current one. WarnDeleted when its first byte isn't a blank.
Code DataRead(DataFile& file, uint8_t* buffer, int32_t recordNo);

// Writes the record buffer as a new record behind the last, or over the current one.
Code DataAppend(DataFile& file, uint32_t* recordNo);
Code DataUpdate(DataFile& file);

// The read-ahead buffer of the bulk builds. DataReadAhead makes record
// `recordNo` one of those held; it then stands at AheadRecord.
Code AheadOpen(DataFile& file);
Code AheadClose(DataFile& file);
Code DataReadAhead(DataFile& file, uint32_t recordNo);
inline uint8_t* AheadRecord(DataFile& file, uint32_t recordNo) {
    return file.ahead.data + file.aheadOffsets[static_cast<ptrdiff_t>(recordNo - file.aheadFirst)];
}

// Converts between a field of the record buffer and the caller's value, as the
// type given says.
Code DfieldGet(DataFile& file, void* value, int fieldNo, int type);
Code DfieldPut(DataFile& file, const void* value, int fieldNo, int type);

// The number of the field of that name, compared without regard to case, or -1.
// Sets no code.
int FieldNumber(const DataFile& file, const char* name);

// The locks by which programs share a data file. DataLock always returns 0: what
// stands in the way of a lock comes back as LockConflict in `conflict`, which may
// be null. DataUnlock returns the failure of the unlock.
enum LockKind : int16_t {
    LockHeader = 1,
    LockAll = 2,
    LockRecords = 3,
    LockShared = 4,
    LockTry = 5,
    LockRelease = 6,
    LockTake = 7
};
Code DataLock(DataFile& file, int16_t kind, uint16_t* conflict);
Code DataUnlock(DataFile& file, int16_t kind, uint16_t* conflict);

// Reads the record count again, the one thing that is ever read again.
Code HeaderRefresh(DataFile& file);

// Closes the platform file of an object and keeps the object.
Code DataQuickClose(int handle);

}  // namespace zb
