// The exported key operations of NDX indexes.
#include <cstring>

#include "dates/dates.h"
#include "index/ndx/ndx.h"
#include "index/operation.h"

namespace zb {
namespace {

struct Ndx {
    using Handle = int16_t;
    using Index = NdxFile;
    static constexpr UnitNames Units = NdxUnits;
    // ZBDNKNEXT alone starts no walk: without a position it says KeyNear.
    static constexpr bool NextAlwaysRefinds = true;

    static NdxFile* Bind(int16_t handle) { return Nslock(handle); }
    static Code Refresh(NdxFile& index) { return Nhget(index); }
    static void Forget(NdxFile& index) { Npforget(index); }
    static bool ReadOnly(const NdxFile& index) { return index.readOnly(); }
    static constexpr auto Top = Nktop;
    static constexpr auto Bottom = Nkbot;
    static constexpr auto Next = Nknext;
    static constexpr auto Previous = Nkprev;
    static constexpr auto Current = Nkcur;
    static constexpr auto Find = Nkfind;
    static constexpr auto Add = Nkadd;
    static constexpr auto Delete = Nkdel;

    struct KeyForm {
        char expression[sizeof NdxFile::expression];
    };
    static KeyForm FormOf(const NdxFile& index) {
        KeyForm form;
        strcpy(form.expression, index.expression);
        return form;
    }
    // Texts stand as they came; dates and numbers become doubles.
    static Code Convert(const KeyForm&) {
        void* key = evalState.ResultPtr;
        switch (evalState.ResultType) {
            case 'C': return 0;
            case 'D':
                return static_cast<Code>(
                    ZBDNKDATE(key, static_cast<char*>(key), static_cast<int16_t>(library.dateStyle)));
            case 'N': return static_cast<Code>(ZBDNKNUM(key, LoadLeDouble(key)));
            default: return Fail("Nkmake", ErrExpression);
        }
    }
};

int CompareUnsigned(const uint8_t* a, const uint8_t* b, int length) {
    for (int i = length - 1; i >= 0; i--)
        if (a[i] != b[i]) return a[i] - b[i];
    return 0;
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDNKTOP(int16_t handle, void* key, uint32_t* record) {
    return KeyTop<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKBOT(int16_t handle, void* key, uint32_t* record) {
    return KeyBottom<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKNEXT(int16_t handle, void* key, uint32_t* record) {
    return KeyNext<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKPREV(int16_t handle, void* key, uint32_t* record) {
    return KeyPrevious<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKCUR(int16_t handle, void* key, uint32_t* record) {
    return KeyCurrent<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKFIND(int16_t handle, void* key, uint32_t* record, int16_t mode) {
    return KeyFind<Ndx>(handle, key, record, mode);
}

int32_t ZB_CALL ZBDNKADD(int16_t handle, const void* key, uint32_t record) {
    return KeyAdd<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKDEL(int16_t handle, const void* key, uint32_t record) {
    return KeyDelete<Ndx>(handle, key, record);
}

int32_t ZB_CALL ZBDNKMAKE(int16_t data, int16_t handle, void** key) {
    return KeyMake<Ndx>(data, handle, key);
}

int32_t ZB_CALL ZBDNKMAKEH(int16_t data, int16_t handle, ZbBlock* key) {
    return KeyMakeHandle<Ndx>(data, handle, key);
}

int32_t ZB_CALL ZBDNKNUM(void* key, double value) {
    if (Pending()) return CurrentCode();
    if (!key) return Fail("Nknum", ErrNullPointer);
    StoreLeDouble(key, value);
    return SetCode(0);
}

int32_t ZB_CALL ZBDNKDATE(void* key, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!key || !text) return Fail("Nkdate", ErrNullPointer);
    int16_t year, month, day;
    int32_t code = ZBCDS2I(&year, &month, &day, text, style);
    if (code < 0) return Pass("Nkdate");
    StoreLeDouble(key, code == KeyEmpty ? BlankDate : DayCount(year, month, day));
    return SetCode(0);
}

int32_t ZB_CALL _ZBDNKCMP(const void* a, const void* b, int16_t type, int16_t length) {
    if (!a || !b || length <= 0) return 0;
    auto* left = static_cast<const uint8_t*>(a);
    auto* right = static_cast<const uint8_t*>(b);
    switch (type) {
        case 0: {
            int order = CompareText(left, right, length);
            return library.asciiSort ? (order > 0) - (order < 0) : order;
        }
        case 1:
        case 2: return CompareSigned(left, right, length, true);
        case 3:
        case 5: return CompareUnsigned(left, right, length);
        case 4:
        case 6: return CompareSigned(left, right, length, false);
        case 8: return CompareWild(left, right, length);
        default: return 0;
    }
}
