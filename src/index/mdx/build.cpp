// MDX tags built from a whole data file. The format has no bulk path: keys are
// added one by one, in record order.
#include "index/build.h"

#include "data/data.h"
#include "expr/expr.h"
#include "index/mdx/kept.h"
#include "index/mdx/mdx.h"

namespace zb {
namespace {

// Adds the key of the current record by the exported call, which minds whatever
// the host's functions may have done.
Code AddKey(int32_t tag, const void* key, uint32_t record) {
    return static_cast<Code>(ZBDMKADD(tag, key, record));
}

// The same for a tag that nobody else can have touched.
Code AddKey(MdxTag& tag, const void* key, uint32_t record) {
    if (Mkadd(tag, static_cast<const uint8_t*>(key), record) >= 0) tag.kept->Relieve();
    Mpforget(tag);
    return CurrentCode();
}

// Adds the keys of all records, deleted ones too.
template <class Tag>
Code AddKeys(int16_t data, uint32_t records, int32_t handle, Tag& tag) {
    for (uint32_t record = 1; record <= records; record++) {
        if (ZBDDRGET(data, static_cast<int32_t>(record)) < 0) return Pass("Mtindex");
        void* key;
        if (ZBDMKMAKE(data, handle, &key) < 0) return Pass("Mtindex");
        AddKey(tag, key, record);
        BlockFree(evalState.ResultBlock);
        if (Pending()) return Pass("Mtindex");
    }
    return CurrentCode();
}

// The host's functions may use the file and other programs those whose lock
// stands in the way: then all goes by way of the file.
Code FillTag(int16_t data, uint32_t records, int32_t handle, bool alone) {
    MdxTag* tag = MslockTag(handle);
    if (!tag) return Pass("Mtindex");
    if (!alone || library.userFuncCount > 0) return AddKeys(data, records, handle, handle);
    if (Mhget(*tag) < 0) return Pass("Mtindex");
    MdxKept kept{};
    kept.Begin(*tag);
    AddKeys(data, records, handle, *tag);
    // What a failure leaves is written too: the erase that follows reads it.
    Code code = CurrentCode();
    SetCode(0);
    Code ended = kept.End();
    return SetCode(code < 0 ? code : ended);
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

    auto held = build::Held::Now(data);
    uint16_t conflict = 0;
    DataLock(*file, LockAll, &conflict);
    int32_t tag = NoTag;
    if (ZBDMTUSE(&tag, handle, tagName) < 0)
        Pass("Mtindex");
    else
        FillTag(data, static_cast<uint32_t>(file->recordCount()), tag, !conflict);

    if (tag != NoTag) build::Keeping([&] { ZBDMTCLOSE(tag); });
    build::Keeping([&] {
        file = held.Stands() ? Dslock(data) : nullptr;
        if (file && !conflict) DataUnlock(*file, LockAll, nullptr);
    });
    if (Pending()) build::Keeping([&] { ZBDMTERASE(static_cast<int16_t>(handle), tagName); });
    return CurrentCode();
}
