// The exported key operations of IDX indexes.
#include <cstring>

#include "dates/dates.h"
#include "index/idx/idx.h"
#include "index/operation.h"

namespace zb {
namespace {

struct Idx {
    using Handle = int16_t;
    using Index = IdxFile;
    static constexpr UnitNames Units = {"Iktop",  "Ikbot", "Iknext", "Ikprev", "Ikcur",
                                        "Ikfind", "Ikadd", "Ikdel",  "Ikmake"};
    static constexpr bool NextAlwaysRefinds = false;

    static IdxFile* Bind(int16_t handle) { return Islock(handle); }
    static Code Refresh(IdxFile& index) { return Ihget(index); }
    static void Forget(IdxFile& index) { Ipforget(index); }
    static bool ReadOnly(const IdxFile& index) { return index.readOnly(); }
    static constexpr auto Top = Iktop;
    static constexpr auto Bottom = Ikbot;
    static constexpr auto Next = Iknext;
    static constexpr auto Previous = Ikprev;
    static constexpr auto Current = Ikcur;
    static constexpr auto Find = Ikfind;
    static constexpr auto Add = Ikadd;
    static constexpr auto Delete = Ikdel;

    struct KeyForm {
        char expression[sizeof IdxFile::expression];
    };
    static KeyForm FormOf(const IdxFile& index) {
        KeyForm form;
        strcpy(form.expression, index.expression);
        return form;
    }
    // Texts stand as they came; dates and numbers become doubles that sort as
    // bytes, logical values a letter.
    static Code Convert(const KeyForm&) {
        void* key = evalState.ResultPtr;
        switch (evalState.ResultType) {
            case 'C': return 0;
            case 'D':
                return static_cast<Code>(
                    ZBDIKDATE(key, static_cast<char*>(key), static_cast<int16_t>(library.dateStyle)));
            case 'L': {
                if (BlockRealloc(evalState.ResultBlock, 2) < 0) return CurrentCode();
                evalState.ResultPtr = BlockPeek(evalState.ResultBlock);
                auto* letter = static_cast<char*>(evalState.ResultPtr);
                letter[0] = letter[0] ? 'T' : 'F';
                letter[1] = 0;
                return 0;
            }
            case 'N': return static_cast<Code>(ZBDIKNUM(key, LoadLeDouble(key)));
            default: return Fail("Ikmake", ErrExpression);
        }
    }
};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDIKTOP(int16_t handle, void* key, uint32_t* record) {
    return KeyTop<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKBOT(int16_t handle, void* key, uint32_t* record) {
    return KeyBottom<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKNEXT(int16_t handle, void* key, uint32_t* record) {
    return KeyNext<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKPREV(int16_t handle, void* key, uint32_t* record) {
    return KeyPrevious<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKCUR(int16_t handle, void* key, uint32_t* record) {
    return KeyCurrent<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKFIND(int16_t handle, void* key, uint32_t* record, int16_t mode) {
    return KeyFind<Idx>(handle, key, record, mode);
}

int32_t ZB_CALL ZBDIKADD(int16_t handle, const void* key, uint32_t record) {
    return KeyAdd<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKDEL(int16_t handle, const void* key, uint32_t record) {
    return KeyDelete<Idx>(handle, key, record);
}

int32_t ZB_CALL ZBDIKMAKE(int16_t data, int16_t handle, void** key) {
    return KeyMake<Idx>(data, handle, key);
}

int32_t ZB_CALL ZBDIKMAKEH(int16_t data, int16_t handle, ZbBlock* key) {
    return KeyMakeHandle<Idx>(data, handle, key);
}

int32_t ZB_CALL ZBDIKNUM(void* key, double value) {
    if (Pending()) return CurrentCode();
    if (!key) return Fail("Iknum", ErrNullPointer);
    StoreBe64(key, SortableDouble(value));
    return SetCode(0);
}

int32_t ZB_CALL ZBDIKDATE(void* key, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!key || !text) return Fail("Ikdate", ErrNullPointer);
    // The parser has tested year, month and day against the calendar.
    int16_t year, month, day;
    int32_t code = ZBCDS2I(&year, &month, &day, text, style);
    if (code < 0) return Pass("Ikdate");
    StoreBe64(key, SortableDouble(code == KeyEmpty ? 0.0 : DayCount(year, month, day)));
    return SetCode(0);
}
