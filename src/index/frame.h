// What opening, closing and describing an index file is in every family that
// keeps one index a file.
#pragma once

#include <cstring>

#include "file/operations.h"
#include "index/index.h"

namespace zb {

// The end of a creation: closes the new file, also where its writing failed. A
// file left open would stand in the way of the next try.
inline Code EndCreation(const char* unit, uint16_t handle) {
    Code written = CurrentCode();
    if (written < 0) Pass(unit);
    if (Hclose(handle) < 0 && written >= 0) return Pass(unit);
    return SetCode(written);
}

// Gives an index up whose file is closed.
template <class Index>
void ReleaseIndex(Index& index, int slot) {
    index.pool.Close();
    SlotRelease(slot);
}

// Takes a slot and opens a file into it by `open(index, slot)`. A failure leaves
// nothing open, and -1 in the handle once a slot had been taken.
template <class Index, class Open>
Code OpenIndexFile(const char* unit, SlotType type, uint16_t* handle, const char* name, Open open) {
    if (Pending()) return Pass(unit);
    if (!handle || !name) return Fail(unit, ErrNullPointer);
    int16_t slot;
    void* block;
    Code code = SlotAlloc(&slot, type, sizeof(Index), &block);
    *handle = static_cast<uint16_t>(slot);
    if (code < 0) return Pass(unit);

    auto& index = *static_cast<Index*>(block);
    index.handle = NoFile;
    code = open(index, slot);
    if (code >= 0) return code;
    if (index.handle != NoFile) {
        SetCode(0);
        Hclose(index.handle);
    }
    ReleaseIndex(index, slot);
    *handle = NoFile;
    return SetCode(code);
}

// The end of a close: what had to be written has been.
template <class Index>
Code CloseIndexFile(const char* unit, Index& index, int slot) {
    if (Hclose(index.handle) < 0) return Pass(unit);
    ReleaseIndex(index, slot);
    return CurrentCode();
}

// Closes the platform's file alone.
template <class Index>
Code QuickCloseIndex(const char* unit, Index* index) {
    if (!index || Hclose(index->handle) < 0) return Pass(unit);
    return CurrentCode();
}

template <class Index>
Code GiveExpression(const char* unit, Index* (*bind)(int), int handle, char* text) {
    if (!text) return Fail(unit, ErrNullPointer);
    Index* index = bind(handle);
    if (!index) return Pass(unit);
    strcpy(text, index->expression);
    return CurrentCode();
}

// Binds and fills in what all info records tell alike; null with the code set.
template <class Index, class Info>
Index* BeginInfo(const char* unit, Index* (*bind)(int), int handle, Info* info) {
    if (!info) {
        Fail(unit, ErrNullPointer);
        return nullptr;
    }
    Index* index = bind(handle);
    if (!index) {
        Pass(unit);
        return nullptr;
    }
    strcpy(info->fileName, index->fileName);
    info->accessFlags = AccessFlags(info->accessFlags, index->flags);
    info->keyLength = index->keyBytes;
    info->reportedFlag = index->reportedFlag;
    info->expressionLength = static_cast<uint16_t>(strlen(index->expression));
    CopyExpression(info->expression, index->expression);
    return index;
}

}  // namespace zb
