// Start and stop. This is the only room that knows every family, through one
// table of operations a slot type.
#include "core/library.h"
#include "data/data.h"
#include "dates/dates.h"
#include "expr/expr.h"
#include "file/operations.h"
#include "index/idx/idx.h"
#include "index/mdx/mdx.h"
#include "index/ndx/ndx.h"
#include "index/ntx/ntx.h"
#include "memo/memo.h"

using namespace zb;

namespace {

struct Family {
    int32_t(ZB_CALL* close)(int16_t handle);
    Code (*quickClose)(int handle);
    uint16_t (*release)(void* control);  // frees what the object owns, and tells its file
};

uint16_t ReleaseData(void* control) {
    auto& file = *static_cast<DataFile*>(control);
    file.heldList.Free();
    file.fields.Free();
    file.record.Free();
    AheadClose(file);
    return file.handle;
}

template <class Index>
uint16_t ReleasePages(void* control) {
    auto& index = *static_cast<Index*>(control);
    index.pool.Close();
    return index.handle;
}

uint16_t ReleaseMemo(void* control) { return static_cast<MemoFile*>(control)->handle; }

uint16_t ReleaseTags(void* control) {
    auto& file = *static_cast<MdxFile*>(control);
    for (MdxTag& tag : file.tags) MdxDetach(tag);
    return file.handle;
}

// By slot type.
constexpr Family families[] = {
    {nullptr, nullptr, nullptr},                        // free
    {ZBDDCLOSE, DataQuickClose, ReleaseData},           // data
    {ZBDNCLOSE, NdxQuickClose, ReleasePages<NdxFile>},  // NDX
    {ZBDTCLOSE, DbtQuickClose, ReleaseMemo},            // DBT
    {ZBDWCLOSE, FptQuickClose, ReleaseMemo},            // FPT
    {ZBDMCLOSE, MdxQuickClose, ReleaseTags},            // MDX
    {ZBDICLOSE, IdxQuickClose, ReleasePages<IdxFile>},  // IDX
    {ZBDCCLOSE, NtxQuickClose, ReleasePages<NtxFile>},  // NTX
};

const Family* FamilyOf(unsigned slotType) {
    constexpr unsigned count = sizeof families / sizeof families[0];
    return slotType < count && families[slotType].close ? &families[slotType] : nullptr;
}

// Gives up what a close that failed has left: nobody has the handle any more.
void Abandon(const Family& family, int handle) {
    ObjectSlot& slot = library.table[handle];
    void* control = BlockPeek(slot.control.memory);
    if (!control) return;
    uint16_t file = family.release(control);
    if (!slot.closedFlag) PfClose(file);
    SlotRelease(handle);
}

constexpr int MaxTableSize = 100;
constexpr int MinTableSize = 5;
constexpr int SlotsWithheld = 5;
constexpr int MapCapacity = 100;

constexpr char ProfileSection[] = "sort";

uint16_t ConfiguredStyle() {
    char keyword[sizeof "EURODATEL" + 1];  // a longer word is cut, and still longer than every keyword
    platform->ProfileText(ProfileSection, "datesort", keyword, sizeof keyword);
    return StyleOfKeyword(keyword);
}

// Whatever isn't 0 in its low 16 bits counts as 1.
bool ConfiguredAsciiSort() {
    return static_cast<uint16_t>(platform->ProfileNumber(ProfileSection, "asciisort", 1)) != 0;
}

}  // namespace

int32_t ZB_CALL ZBDINIT(int16_t tableSize, uint8_t dateStyle) {
    if (ClientRestore() == 0) ZBDTERM();

    library.attached = true;
    library.code = library.codeMirror = 0;
    library.dateStyle = 0;
    library.table = {};
    library.slotCount = 0;
    library.openCount = 0;
    library.logSwitch = 0;
    library.logName[0] = 0;

    uint16_t style = dateStyle >= 1 && dateStyle <= StyleCount ? dateStyle : ConfiguredStyle();
    if (tableSize < MinTableSize) return Fail("Init", ErrBadHandle);
    if (tableSize > MaxTableSize) tableSize = MaxTableSize;

    auto slots = static_cast<int16_t>(tableSize - SlotsWithheld);
    if (library.table.Alloc(static_cast<size_t>(slots)) < 0) return Pass("Init");
    library.slotCount = slots;
    library.dateStyle = style;
    if (!FhmapAttach(MapCapacity)) return 0;
    library.asciiSort = ConfiguredAsciiSort();
    return SetCode(0);
}

int32_t ZB_CALL ZBDTERM() {
    if (Code code = ClientRestore(); code != 0) return code;
    for (int slot = 0; slot < library.slotCount; slot++) {
        SetCode(0);
        const Family* family = FamilyOf(library.table[slot].slotType);
        if (!family) continue;
        family->close(static_cast<int16_t>(slot));
        if (library.table[slot].slotType != SlotFree) Abandon(*family, slot);
    }
    library.table.Free();
    library.slotCount = 0;
    library.openCount = 0;
    library.attached = false;
    ReleaseSpareValue();
    // A client that has no user functions leaves the map of file handles
    // attached: the map and the handles in it outlive the stop.
    if (library.userFuncCapacity != 0) {
        ReleaseUserFunctions();
        FhmapDetach();
    }
    library.codeMirror = 0;
    return 0;
}

int32_t ZB_CALL ZBDQCLOSE() {
    if (Code code = ClientRestore(); code != 0) return code;
    if (library.table.Lock() < 0) return Pass("Qclose");
    for (int slot = 0; slot < library.slotCount; slot++) {
        SetCode(0);
        if (auto* family = FamilyOf(library.table[slot].slotType)) family->quickClose(slot);
        // Free slots are marked too; the next open into them clears the mark.
        if (CurrentCode() == 0) library.table[slot].closedFlag = 1;
    }
    return 0;
}

int32_t ZB_CALL ZBDVERSION(uint16_t version) { return version == 3 ? 0 : ErrFileType; }

int32_t ZB_CALL QV4InitInstance(uint32_t, uint32_t second) {
    if (ZBDINIT(MaxTableSize, 0) != 0) return 0;
    library.hostValue = second;
    return 1;
}
