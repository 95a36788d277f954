// MDX tags built from a whole data file. The format has no bulk path: keys are
// added one by one, in record order.
#include "index/build.h"

#include "data/data.h"
#include "file/operations.h"
#include "index/mdx/mdx.h"

namespace zb {
namespace {

// Adds the keys of all records, deleted ones too.
Code FillTag(int16_t data, uint32_t records, int32_t tag) {
    for (uint32_t record = 1; record <= records; record++) {
        if (ZBDDRGET(data, static_cast<int32_t>(record)) < 0) return Pass("Mtindex");
        void* key;
        if (ZBDMKMAKE(data, tag, &key) < 0) return Pass("Mtindex");
        ZBDMKADD(tag, key, record);
        ZBMFREE(key);
        if (Pending()) return Pass("Mtindex");
    }
    return CurrentCode();
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDMTINDEX(int16_t data, uint16_t handle, const char* tagName, uint32_t typeWord,
                           char* expression, int32_t keyLength) {
    DataFile* file = Dslock(data);
    if (!file) return Pass("Mtindex");
    if (ZBDMTNEW(static_cast<int16_t>(handle), tagName, typeWord, expression, keyLength) < 0)
        return Pass("Mtindex");
    if (file->recordCount() <= 0) return SetCode(0);

    uint16_t conflict = 0;
    DataLock(*file, LockAll, &conflict);
    int32_t tag = NoTag;
    if (ZBDMTUSE(&tag, handle, tagName) < 0)
        Pass("Mtindex");
    else
        FillTag(data, static_cast<uint32_t>(file->recordCount()), tag);

    if (tag != NoTag) build::Keeping([&] { ZBDMTCLOSE(tag); });
    build::Keeping([&] {
        file = Dslock(data);
        if (file && !conflict) DataUnlock(*file, LockAll, nullptr);
    });
    if (Pending()) build::Keeping([&] { ZBDMTERASE(static_cast<int16_t>(handle), tagName); });
    return CurrentCode();
}
