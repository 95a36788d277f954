// The shape of an exported key operation, once for all families. A family is a
// type with static functions:
//
//   Handle, Index         its handle type and control block
//   Bind(handle)          the control block, or null with the code set
//   Refresh(index)        reads the header's volatile fields from the file
//   Top, Bottom, Next, Previous, Current (index, key, record)
//   Find(index, key, record, mode)
//   Add, Delete (index, key, record)
//   Forget(index)         gives up all pages and the path
//   ReadOnly(index)
//   Units                 the names under which its operations log
//   NextAlwaysRefinds     whether KNEXT without a position starts no walk
//
// and for making keys:
//
//   KeyForm               what the conversion needs; begins with `expression`
//   FormOf(index)         a copy of it: the host's functions may close the index
//   Convert(form)         turns the evaluator's result into key bytes, in place
#pragma once

#include "expr/expr.h"
#include "index/index.h"

namespace zb {

// Runs `work` on the bound index with a fresh header. Whatever it did, no page
// and no path outlive it.
template <class F, class Work>
Code WithIndex(const char* unit, typename F::Handle handle, Work work) {
    auto* index = F::Bind(handle);
    if (!index) return Pass(unit);
    if (F::Refresh(*index) < 0)
        Pass(unit);
    else
        work(*index);
    F::Forget(*index);
    return CurrentCode();
}

// The operations that read: a result that isn't negative becomes the position,
// unless `work` says (by false) that nothing is to be stored. A failure leaves the
// position as it was, also where it had been found again elsewhere by then.
template <class F, class Work>
Code ReadKey(const char* unit, typename F::Handle handle, void* key, uint32_t* record, Work work) {
    if (!key || !record) return Fail(unit, ErrNullPointer);
    return WithIndex<F>(unit, handle, [&](typename F::Index& index) {
        auto* bytes = static_cast<uint8_t*>(key);
        Position& position = index.position;
        auto length = static_cast<size_t>(index.keyLength());
        KeyBuffer keyBefore;
        memcpy(keyBefore, position.currentKey, length);
        uint32_t recordBefore = position.currentRecord;
        bool store = work(index, bytes);
        if (Pending()) {
            memcpy(position.currentKey, keyBefore, length);
            position.currentRecord = recordBefore;
            Pass(unit);
        } else if (store) {
            memcpy(position.currentKey, bytes, length);
            position.currentRecord = *record;
        }
    });
}

template <class F>
Code KeyTop(typename F::Handle handle, void* key, uint32_t* record) {
    return ReadKey<F>(F::Units.top, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        F::Top(index, bytes, record);
        return true;
    });
}

template <class F>
Code KeyBottom(typename F::Handle handle, void* key, uint32_t* record) {
    return ReadKey<F>(F::Units.bottom, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        F::Bottom(index, bytes, record);
        return true;
    });
}

// Finds the position again, from the root. A position that lies before the first
// key, or none at all, shows as KeyNear.
template <class F>
Code KeyCurrent(typename F::Handle handle, void* key, uint32_t* record) {
    return ReadKey<F>(F::Units.current, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        if (F::Current(index, bytes, record) == KeyEnd) SetCode(KeyNear);
        return true;
    });
}

// A step: the position is found again first, and the warning that its key has
// gone stands while the step goes on.
template <class F, class Step>
bool StepFrom(typename F::Index& index, uint8_t* key, uint32_t* record, bool refind, Step step) {
    if (refind) {
        Code code = F::Current(index, key, record);
        if (code < 0) return false;
        if (code == KeyEnd) {
            SetCode(KeyNear);
            return false;
        }
    }
    step(index, key, record);
    return true;
}

template <class F>
Code KeyNext(typename F::Handle handle, void* key, uint32_t* record) {
    return ReadKey<F>(F::Units.next, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        bool refind = F::NextAlwaysRefinds || index.position.currentRecord != 0;
        return StepFrom<F>(index, bytes, record, refind, F::Next) || !F::NextAlwaysRefinds;
    });
}

template <class F>
Code KeyPrevious(typename F::Handle handle, void* key, uint32_t* record) {
    return ReadKey<F>(F::Units.previous, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        StepFrom<F>(index, bytes, record, index.position.currentRecord != 0, F::Previous);
        return true;
    });
}

// A key that sorts before all others is answered with the first key and no
// warning: callers compare the key that comes back.
template <class F>
Code KeyFind(typename F::Handle handle, void* key, uint32_t* record, int16_t mode) {
    return ReadKey<F>(F::Units.find, handle, key, record, [&](typename F::Index& index, uint8_t* bytes) {
        if (F::Find(index, bytes, record, mode) == KeyEnd && *record == BeforeFirst)
            if (F::Top(index, bytes, record) >= 0) SetCode(0);
        return true;
    });
}

template <class F, class Work>
Code ChangeKey(const char* unit, typename F::Handle handle, const void* key, Work work) {
    if (!key) return Fail(unit, ErrNullPointer);
    auto* index = F::Bind(handle);
    if (!index) return Pass(unit);
    if (F::ReadOnly(*index)) return Fail(unit, ErrReadOnly);
    if (F::Refresh(*index) < 0 || work(*index) < 0) Pass(unit);
    F::Forget(*index);
    return CurrentCode();
}

template <class F>
Code KeyAdd(typename F::Handle handle, const void* key, uint32_t record) {
    return ChangeKey<F>(F::Units.add, handle, key, [&](typename F::Index& index) {
        return F::Add(index, static_cast<const uint8_t*>(key), record);
    });
}

template <class F>
Code KeyDelete(typename F::Handle handle, const void* key, uint32_t record) {
    return ChangeKey<F>(F::Units.remove, handle, key, [&](typename F::Index& index) {
        return F::Delete(index, static_cast<const uint8_t*>(key), record);
    });
}

// Makes the key of the data file's current record; it is left as the evaluator's
// result.
template <class F>
Code MakeKey(int16_t data, typename F::Handle handle) {
    auto* index = F::Bind(handle);
    if (!index) return Pass(F::Units.make);
    typename F::KeyForm form = F::FormOf(*index);
    if (EvalKey(data, form.expression) < 0) return Pass(F::Units.make);
    SetCode(0);
    if (F::Convert(form) < 0) {
        Code code = Pass(F::Units.make);
        BlockFree(evalState.ResultBlock);
        evalState.ResultBlock = 0;
        return SetCode(code);
    }
    return CurrentCode();
}

template <class F>
Code KeyMake(int16_t data, typename F::Handle handle, void** key) {
    if (!key) return Fail(F::Units.make, ErrNullPointer);
    Code code = MakeKey<F>(data, handle);
    *key = code < 0 ? nullptr : evalState.ResultPtr;
    return code;
}

template <class F>
Code KeyMakeHandle(int16_t data, typename F::Handle handle, ZbBlock* key) {
    if (!key) return Fail(F::Units.make, ErrNullPointer);
    Code code = MakeKey<F>(data, handle);
    *key = code < 0 ? 0xFFFFFFFF : evalState.ResultBlock;
    return code;
}

}  // namespace zb
