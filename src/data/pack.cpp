// Pack: the live records go to a new file, which then takes the old one's name.
// The old one stays as the backup, and at every moment its data stand under its
// own name or under the backup's. Nothing is cleaned up on a failure.
#include <cstring>

#include "data/data.h"
#include "file/operations.h"
#include "file/path.h"

namespace zb {
namespace {

struct Names {
    char file[MaxName + 1];
    char backup[MaxName + 1];
    char work[MaxName + 1];
};

Code BuildNames(Names& names, const DataFile& file) {
    strcpy(names.file, file.name);
    if (!ReplaceExtension(names.backup, sizeof names.backup, names.file, ".BAK") ||
        !WorkName(names.work, sizeof names.work, names.file, ".DBF"))
        return Fail("Dpack", ErrBadName);
    // Such a file would be erased as its own backup.
    if (platform->SameName(names.backup, names.file)) return Fail("Dpack", ErrBadName);
    return 0;
}

int DialectOf(const DataFile& file) { return file.dialect & ~DialectHasMemo; }

Code CreateWorkFile(const Names& names, const DataFile& file) {
    Block<ZbFieldSpec> specs{};
    if (specs.Alloc(static_cast<size_t>(file.fieldCount)) < 0) return Pass("Dpack");
    for (int i = 0; i < file.fieldCount; i++) {
        const Field& field = file.fields[i];
        strcpy(specs[i].name, field.name);
        specs[i].type = field.type;
        specs[i].width = field.width;
        specs[i].decimals = field.decimals;
    }
    Code code = static_cast<Code>(
        ZBDDCREATE(names.work, file.fieldCount, specs.data, static_cast<int16_t>(DialectOf(file))));
    if (code < 0) Pass("Dpack");
    specs.Free();
    return code;
}

// Appends the live records of `file` to `fresh`, whose record buffer is the same.
Code CopyRecords(DataFile& file, DataFile& fresh) {
    fresh.modified |= ModifiedAppend;
    int32_t count = file.recordCount();
    for (int32_t n = 0; n < count;) {
        Code code = DataRead(file, file.record.data, ++n);
        if (code < 0) return Pass("Dpack");
        if (code == WarnDeleted) continue;
        uint32_t ignored;
        if (DataAppend(fresh, &ignored) < 0) return CurrentCode();
    }
    return CurrentCode();
}

// Puts the packed file in the place of the old one. Both are closed then.
Code Swap(const Names& names, int oldHandle, int freshHandle, DataFile& fresh) {
    // The end mark goes: a packed file has none. A file that can't be cut keeps
    // it, and the log alone tells.
    Hsize(fresh.handle, fresh.positionOf(int64_t{fresh.recordCount()} + 1));
    if (Herase(names.backup) < 0) return Pass("Dpack");
    fresh.modified = ModifiedFlag;  // so that the close writes the date
    if (ZBDDCLOSE(static_cast<int16_t>(freshHandle)) < 0) return Pass("Dpack");
    if (ZBDDCLOSE(static_cast<int16_t>(oldHandle)) < 0) return Pass("Dpack");
    if (Hrename(names.backup, names.file) < 0) return Pass("Dpack");
    if (Hrename(names.file, names.work) < 0) return Pass("Dpack");
    return CurrentCode();
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDDPACK(int16_t* data) {
    if (Pending()) return Pass("Dpack");
    if (!data) return Fail("Dpack", ErrNullPointer);
    DataFile* file = Dslock(*data);
    if (!file) return Pass("Dpack");
    if (file->readOnly()) return Fail("Dpack", ErrReadOnly);
    Names names;
    if (BuildNames(names, *file) < 0) return CurrentCode();

    DataLock(*file, LockAll, nullptr);  // whether granted or not
    auto dialect = static_cast<uint16_t>(DialectOf(*file));
    auto finalMode = static_cast<uint16_t>(dialect | ZB_Production | ZB_Shared);
    if (CreateWorkFile(names, *file) < 0) return CurrentCode();

    uint16_t handle;
    if (ZBDDOPENX(&handle, names.work, dialect) < 0) return Pass("Dpack");
    auto freshHandle = static_cast<int16_t>(handle);
    DataFile* fresh = Dslock(freshHandle);
    if (!fresh) return Pass("Dpack");
    // A creation gives some types their width, a damaged file may have had another:
    // its records don't fit the new file.
    if (fresh->recordLength() != file->recordLength()) return Fail("Dpack", ErrRecordLength);

    // One record buffer for both: what is read from the old file is at once what is
    // appended to the new one.
    uint8_t* own = fresh->record.data;
    fresh->record.data = file->record.data;
    Code code = CopyRecords(*file, *fresh);
    fresh->record.data = own;

    // No lock is held on the new file; the old one's goes with its close.
    SetCode(0);
    DataUnlock(*fresh, LockAll, nullptr);
    if (SetCode(code) < 0) return code;

    if (Swap(names, *data, freshHandle, *fresh) < 0) return CurrentCode();
    code = static_cast<Code>(ZBDDOPENX(&handle, names.file, finalMode));
    *data = static_cast<int16_t>(handle);
    return code < 0 ? Pass("Dpack") : code;
}
