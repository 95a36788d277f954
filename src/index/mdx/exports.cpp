// The exported key operations of MDX tags.
#include <cstring>

#include "dates/dates.h"
#include "index/mdx/decimal.h"
#include "index/mdx/mdx.h"
#include "index/operation.h"

namespace zb {
namespace {

struct Mdx {
    using Handle = int32_t;
    using Index = MdxTag;
    static constexpr UnitNames Units = MdxUnits;
    static constexpr bool NextAlwaysRefinds = false;

    static MdxTag* Bind(int32_t handle) { return MslockTag(handle); }
    static Code Refresh(MdxTag& tag) { return Mhget(tag); }
    static void Forget(MdxTag& tag) { Mpforget(tag); }
    static bool ReadOnly(const MdxTag& tag) { return tag.file->readOnly(); }
    static constexpr auto Top = Mktop;
    static constexpr auto Bottom = Mkbot;
    static constexpr auto Next = Mknext;
    static constexpr auto Previous = Mkprev;
    static constexpr auto Current = Mkcur;
    static constexpr auto Find = Mkfind;
    static constexpr auto Add = Mkadd;
    static constexpr auto Delete = Mkdel;

    struct KeyForm {
        char expression[sizeof MdxTag::expression];
    };
    static KeyForm FormOf(const MdxTag& tag) {
        KeyForm form;
        strcpy(form.expression, tag.expression);
        return form;
    }
    // Texts stand as they came, dates become doubles, numbers packed decimals: the
    // slack of the result's block has room for one.
    static Code Convert(const KeyForm&) {
        static_assert(BlockSlack >= DecimalSize);
        void* key = evalState.ResultPtr;
        switch (evalState.ResultType) {
            case 'C': return 0;
            case 'D':
                return static_cast<Code>(
                    ZBDMKDATE(key, static_cast<char*>(key), static_cast<int16_t>(library.dateStyle)));
            case 'F':
            case 'N': return static_cast<Code>(ZBDMKNUM(key, LoadLeDouble(key)));
            default: return Fail("Mkmake", ErrExpression);
        }
    }
};

// The day count of a date key. February has 28 days in every year, so 29 February
// and 1 March give the same key.
double KeyDay(int year, int month, int day) {
    constexpr int dayZero = 1721410;
    constexpr int before[13] = {0, 0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return static_cast<int>((year - 1) * 365.25) + day + before[month] + dayZero;
}

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDMKTOP(int32_t tag, void* key, uint32_t* record) { return KeyTop<Mdx>(tag, key, record); }

int32_t ZB_CALL ZBDMKBOT(int32_t tag, void* key, uint32_t* record) {
    return KeyBottom<Mdx>(tag, key, record);
}

int32_t ZB_CALL ZBDMKNEXT(int32_t tag, void* key, uint32_t* record) { return KeyNext<Mdx>(tag, key, record); }

int32_t ZB_CALL ZBDMKPREV(int32_t tag, void* key, uint32_t* record) {
    return KeyPrevious<Mdx>(tag, key, record);
}

int32_t ZB_CALL ZBDMKCUR(int32_t tag, void* key, uint32_t* record) {
    return KeyCurrent<Mdx>(tag, key, record);
}

int32_t ZB_CALL ZBDMKFIND(int32_t tag, void* key, uint32_t* record, int16_t mode) {
    return KeyFind<Mdx>(tag, key, record, mode);
}

int32_t ZB_CALL ZBDMKADD(int32_t tag, const void* key, uint32_t record) {
    return KeyAdd<Mdx>(tag, key, record);
}

int32_t ZB_CALL ZBDMKDEL(int32_t tag, const void* key, uint32_t record) {
    return KeyDelete<Mdx>(tag, key, record);
}

int32_t ZB_CALL ZBDMKMAKE(int16_t data, int32_t tag, void** key) { return KeyMake<Mdx>(data, tag, key); }

int32_t ZB_CALL ZBDMKMAKEH(int16_t data, int32_t tag, ZbBlock* key) {
    return KeyMakeHandle<Mdx>(data, tag, key);
}

int32_t ZB_CALL ZBDMKNUM(void* key, double value) {
    if (Pending()) return CurrentCode();
    if (!key) return Fail("Mknum", ErrNullPointer);
    Decimal packed;
    if (!PackDouble(value, packed)) return Fail("Mknum", ErrExpression);
    memcpy(key, packed, sizeof packed);
    return SetCode(0);
}

int32_t ZB_CALL ZBDMKDATE(void* key, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!key || !text) return Fail("Mkdate", ErrNullPointer);
    int16_t year, month, day;
    int32_t code = ZBCDS2I(&year, &month, &day, text, style);
    if (code < 0) return Pass("Mkdate");
    StoreLeDouble(key, code == KeyEmpty ? BlankDate : KeyDay(year, month, day));
    return SetCode(0);
}
