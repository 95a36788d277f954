// The exported key operations of NTX indexes.
#include <cstring>

#include "dates/dates.h"
#include "index/ntx/ntx.h"
#include "index/operation.h"

namespace zb {
namespace {

struct Ntx {
    using Handle = int16_t;
    using Index = NtxFile;
    static constexpr UnitNames Units = {"Cktop",  "Ckbot", "Cknext", "Ckprev", "Ckcur",
                                        "Ckfind", "Ckadd", "Ckdel",  "Ckmake"};
    static constexpr bool NextAlwaysRefinds = false;

    static NtxFile* Bind(int16_t handle) { return Cslock(handle); }
    static Code Refresh(NtxFile& index) { return Chget(index); }
    static void Forget(NtxFile& index) { Cpforget(index); }
    static bool ReadOnly(const NtxFile& index) { return index.readOnly(); }
    static constexpr auto Top = Cktop;
    static constexpr auto Bottom = Ckbot;
    static constexpr auto Next = Cknext;
    static constexpr auto Previous = Ckprev;
    static constexpr auto Current = Ckcur;
    static constexpr auto Find = Ckfind;
    static constexpr auto Add = Ckadd;
    static constexpr auto Delete = Ckdel;

    struct KeyForm {
        char expression[sizeof NtxFile::expression];
        int keyLength;
        int decimals;
    };
    static KeyForm FormOf(const NtxFile& index) {
        KeyForm form;
        strcpy(form.expression, index.expression);
        form.keyLength = index.keyLength();
        form.decimals = index.decimals;
        return form;
    }
    // Texts stand as they came, dates become those of the stored style. A number
    // keeps its minus sign here, unlike a key that ZBDCKNUM makes.
    static Code Convert(const KeyForm& form) {
        switch (evalState.ResultType) {
            case 'C': return 0;
            case 'D': {
                auto* text = static_cast<char*>(evalState.ResultPtr);
                return static_cast<Code>(
                    ZBCDS2S(text, StyleYmd, text, static_cast<int16_t>(library.dateStyle)));
            }
            case 'N': break;
            default: return Fail("Ckmake", ErrExpression);
        }
        char text[MaxKeyLength + 12];
        if (!NtxNumberText(text, LoadLeDouble(evalState.ResultPtr), form.keyLength, form.decimals))
            return Fail("Ckmake", ErrExpression);
        if (BlockRealloc(evalState.ResultBlock, static_cast<size_t>(form.keyLength) + 1) < 0)
            return CurrentCode();
        evalState.ResultPtr = BlockPeek(evalState.ResultBlock);
        strcpy(static_cast<char*>(evalState.ResultPtr), text);
        return CurrentCode();
    }
};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDCKTOP(int16_t handle, void* key, uint32_t* record) {
    return KeyTop<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKBOT(int16_t handle, void* key, uint32_t* record) {
    return KeyBottom<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKNEXT(int16_t handle, void* key, uint32_t* record) {
    return KeyNext<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKPREV(int16_t handle, void* key, uint32_t* record) {
    return KeyPrevious<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKCUR(int16_t handle, void* key, uint32_t* record) {
    return KeyCurrent<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKFIND(int16_t handle, void* key, uint32_t* record, int16_t mode) {
    return KeyFind<Ntx>(handle, key, record, mode);
}

int32_t ZB_CALL ZBDCKADD(int16_t handle, const void* key, uint32_t record) {
    return KeyAdd<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKDEL(int16_t handle, const void* key, uint32_t record) {
    return KeyDelete<Ntx>(handle, key, record);
}

int32_t ZB_CALL ZBDCKMAKE(int16_t data, int16_t handle, void** key) {
    return KeyMake<Ntx>(data, handle, key);
}

int32_t ZB_CALL ZBDCKMAKEH(int16_t data, int16_t handle, ZbBlock* key) {
    return KeyMakeHandle<Ntx>(data, handle, key);
}

int32_t ZB_CALL ZBDCKNUM(int16_t handle, void* key, double value) {
    if (Pending()) return CurrentCode();
    NtxFile* index = Cslock(handle);
    if (!index) return Pass("Cknum");
    if (!key) return Fail("Cknum", ErrNullPointer);
    char text[MaxKeyLength + 12];
    if (!NtxNumberText(text, value, index->keyLength(), index->decimals)) return Fail("Cknum", ErrExpression);
    const char* minus = strchr(text, '-');
    if (!minus) {
        strcpy(static_cast<char*>(key), text);
        return CurrentCode();
    }
    auto* to = static_cast<uint8_t*>(key);
    for (const char* digit = minus + 1; *digit; digit++) *to++ = NtxComplement(static_cast<uint8_t>(*digit));
    *to = 0;
    return CurrentCode();
}

int32_t ZB_CALL ZBDCKDATE(void* key, const char* text, int16_t style) {
    if (Pending()) return CurrentCode();
    if (!key || !text) return Fail("Ckdate", ErrNullPointer);
    int16_t year, month, day;
    int32_t code = ZBCDS2I(&year, &month, &day, text, style);
    if (code < 0) return Pass("Ckdate");
    auto* bytes = static_cast<char*>(key);
    if (code == KeyEmpty) {
        // The terminator lands one place too far, where it is known to be.
        memset(bytes, ' ', 8);
        bytes[9] = 0;
    } else if (ZBCDI2S(bytes, StyleYmd, year, month, day) < 0) {
        return Pass("Ckdate");
    }
    return SetCode(0);
}
