// NTX files: create, open, close, pages, the free chain.
#include "core/ascii.h"
#include "file/operations.h"
#include "file/path.h"
#include "index/frame.h"
#include "index/ntx/ntx.h"

namespace zb {

NtxFile* Cslock(int handle) {
    auto* index = BindObject<NtxFile>("Cslock", handle, SlotNtx);
    if (index) SetCode(0);
    return index;
}

// Header

namespace {

// The part of the header that changes, as bytes of the file.
constexpr int VersionAt = 2;
constexpr int RootPageAt = 4;
constexpr int FreeHeadAt = 8;
constexpr int VolatileEnd = 12;

Code WriteHeader(NtxFile& index, int from, int end) {
    uint8_t bytes[VolatileEnd];
    StoreLe16(bytes + VersionAt, index.version);
    StoreLe32(bytes + RootPageAt, index.rootPage);
    StoreLe32(bytes + FreeHeadAt, index.freeHead);
    if (Hseek(index.handle, from) < 0) return CurrentCode();
    return Hwrite(index.handle, bytes + from, static_cast<int16_t>(end - from), true);
}

// The file's length as this call sees it, asked for at most once.
Code TakeLength(NtxFile& index) {
    if (index.lengthTaken) return CurrentCode();
    if (Hlen(index.handle, &index.fileLength) < 0) return Pass("Chget");
    index.lengthTaken = true;
    return CurrentCode();
}

}  // namespace

Code Chget(NtxFile& index) {
    uint8_t bytes[VolatileEnd];
    index.lengthTaken = false;
    if (HreadAt(index.handle, VersionAt, bytes + VersionAt, VolatileEnd - VersionAt) < 0)
        return Pass("Chget");
    index.version = LoadLe16(bytes + VersionAt);
    index.rootPage = LoadLe32(bytes + RootPageAt);
    index.freeHead = LoadLe32(bytes + FreeHeadAt);
    return CurrentCode();
}

Code NtxWriteVersion(NtxFile& index) {
    index.version++;
    return WriteHeader(index, VersionAt, FreeHeadAt);
}

Code NtxWriteRoot(NtxFile& index) { return WriteHeader(index, RootPageAt, FreeHeadAt); }

// Pages

namespace {

Code CheckOffset(const char* unit, NtxFile& index, uint32_t offset) {
    if (offset >= NtxPageSize && offset % NtxPageSize == 0) {
        if (offset < index.fileLength) return CurrentCode();
        if (TakeLength(index) < 0) return Pass(unit);
        if (offset < index.fileLength) return CurrentCode();
    }
    return Fail(unit, ErrSeek);
}

}  // namespace

Code CpgetRaw(NtxFile& index, uint32_t offset, NtxPage* view) {
    if (CheckOffset("Cpget", index, offset) < 0) return CurrentCode();
    *view = {nullptr, offset, index.itemSize(), index.maxKeys};
    Code code = index.pool.Get("Cpget", index.handle, offset, &view->data);
    if (code == ErrRead && !index.lengthTaken) {
        // The file may have been cut since its length was taken.
        SetCode(0);
        if (TakeLength(index) < 0) return Pass("Cpget");
        return offset < index.fileLength ? SetCode(code) : Fail("Cpget", ErrSeek);
    }
    return code;
}

Code Cpget(NtxFile& index, uint32_t offset, NtxPage* view) {
    if (CpgetRaw(index, offset, view) < 0) return CurrentCode();
    if (index.pool.FrontChecked()) return CurrentCode();
    int count = view->count();
    if (count < 0 || count > index.maxKeys || !view->PlacesHold(0, count)) return Fail("Cpget", ErrStructure);
    index.pool.MarkFrontChecked();
    return CurrentCode();
}

Code Cpput(NtxFile& index, const NtxPage& page) {
    if (index.readOnly()) return Fail("Cpput", ErrReadOnly);
    if (CheckOffset("Cpput", index, page.offset) < 0) return CurrentCode();
    return index.pool.Put("Cpput", index.handle, page.offset);
}

void Cpforget(NtxFile& index) {
    index.pool.Forget();
    index.position.pathDepth = -1;
}

Code Cknewpage(NtxFile& index, NtxPage* view) {
    uint32_t offset = index.freeHead;
    if (offset == 0) {
        if (TakeLength(index) < 0) return Pass("Cknewpage");
        offset = index.fileLength;
        if (offset > MaxPosition - NtxPageSize) return Fail("Cknewpage", ErrSeek);
        index.fileLength += NtxPageSize;
        Hsize(index.handle, index.fileLength);
    }
    if (CpgetRaw(index, offset, view) < 0) return Pass("Cknewpage");
    if (index.freeHead != 0) index.freeHead = view->freeLink();
    if (WriteHeader(index, FreeHeadAt, VolatileEnd) < 0) return Pass("Cknewpage");
    index.pool.TakeFront();
    view->Format();
    return CurrentCode();
}

Code Ckfreepage(NtxFile& index, uint32_t offset) {
    NtxPage page;
    if (CpgetRaw(index, offset, &page) < 0) return Pass("Ckfreepage");
    page.setFreeLink(index.freeHead);
    index.freeHead = offset;
    if (WriteHeader(index, FreeHeadAt, VolatileEnd) < 0) return Pass("Ckfreepage");
    return Cpput(index, page) < 0 ? Pass("Ckfreepage") : CurrentCode();
}

// Open

namespace {

Code CheckHeader(const NtxFile& index, const uint8_t* header) {
    int length = static_cast<int16_t>(index.keyBytes);
    if (length < MinKeyLength || length > MaxKeyLength) return Fail("Copen", ErrKeyLength);
    if (LoadLe16(header + 12) != index.itemSize()) return Fail("Copen", ErrKeySize);
    if (index.rootPage < NtxPageSize || index.rootPage >= index.fileLength || index.rootPage % NtxPageSize)
        return Fail("Copen", ErrRootPage);
    if (LoadLe16(header + 18) != NtxMaxKeys(length)) return Fail("Copen", ErrKeysPerPage);
    if (LoadLe16(header + 20) != NtxMaxKeys(length) / 2) return Fail("Copen", ErrHalfPage);
    if (strnlen(reinterpret_cast<const char*>(header) + 22, 256) > NtxMaxExpression)
        return Fail("Copen", ErrExpression);
    return CurrentCode();
}

Code OpenIndex(NtxFile& index, int slot, const char* name, uint16_t mode) {
    mode = NormalMode(mode);
    if (Hopen(&index.handle, name, mode, &index.flags, slot) < 0) return Pass("Copen");
    switch (mode & 0xFF) {
        case 0:
        case 5:
        case 6: break;
        default: return Fail("Copen", ErrFileType);
    }

    uint8_t header[NtxHeaderRead];
    if (TakeLength(index) < 0 || Hread(index.handle, header, sizeof header) < 0) return Pass("Copen");
    index.version = LoadLe16(header + VersionAt);
    index.rootPage = LoadLe32(header + RootPageAt);
    index.freeHead = LoadLe32(header + FreeHeadAt);
    index.keyBytes = LoadLe16(header + 14);
    index.decimals = LoadLe16(header + 16);
    index.unique = LoadLe16(header + 278);
    if (CheckHeader(index, header) < 0) return CurrentCode();
    memcpy(index.expression, header + 22, sizeof index.expression);
    SqueezeBlanks(index.expression);
    AsciiUpper(index.expression);

    if (strlen(name) > MaxName) return Fail("Copen", ErrBadName);
    strcpy(index.fileName, name);
    index.maxKeys = static_cast<int16_t>(NtxMaxKeys(index.keyBytes));
    index.halfKeys = static_cast<int16_t>(index.maxKeys / 2);
    index.position.levels =
        static_cast<int16_t>(TreeLevels(index.halfKeys, MaxTreeSize / (index.halfKeys + 1)));
    index.position.pathDepth = -1;
    if (index.pool.Open(3, NtxPageSize, 1) < 0) return Pass("Copen");
    return SetCode(index.fileLength % NtxPageSize == 0 ? Code{0} : WarnFileSize);
}

}  // namespace

Code NtxQuickClose(int handle) { return QuickCloseIndex("Cqclose", Cslock(handle)); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDCCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength,
                           int16_t decimals) {
    if (Pending()) return Pass("Ccreate");
    if (!name || !expression) return Fail("Ccreate", ErrNullPointer);
    SetCode(0);
    if (SqueezeBlanks(expression) > NtxMaxExpression) return Fail("Ccreate", ErrExpression);

    int length = keyLength;
    int places = 0;
    switch (keyType & 0x5F) {
        case 'C':
            if (length < MinKeyLength || length > MaxKeyLength) return Fail("Ccreate", ErrKeyLength);
            break;
        case 'D': length = 8; break;
        case 'N':
            if (length < MinKeyLength || length > 19) return Fail("Ccreate", ErrKeyLength);
            if (decimals < 0 || decimals > length - 2 || decimals > 15)
                return Fail("Ccreate", ErrFieldDecimals);
            places = decimals;
            break;
        default: return Fail("Ccreate", ErrKeyType);
    }
    int maxKeys = NtxMaxKeys(length);

    // The header, and the empty root behind it.
    uint8_t image[2 * NtxPageSize] = {};
    StoreLe16(image, NtxSignature);
    StoreLe16(image + VersionAt, 1);
    StoreLe32(image + RootPageAt, NtxPageSize);
    StoreLe16(image + 12, static_cast<uint16_t>(length + 8));
    StoreLe16(image + 14, static_cast<uint16_t>(length));
    StoreLe16(image + 16, static_cast<uint16_t>(places));
    StoreLe16(image + 18, static_cast<uint16_t>(maxKeys));
    StoreLe16(image + 20, static_cast<uint16_t>(maxKeys / 2));
    CopyUpper(reinterpret_cast<char*>(image) + 22, expression);
    StoreLe16(image + 278, keyType & 0x80 ? 1 : 0);
    NtxPage{image + NtxPageSize, NtxPageSize, length + 8, maxKeys}.Format();

    uint16_t handle;
    if (Hcreate(&handle, name) < 0) return Pass("Ccreate");
    if (Hwrite(handle, image, sizeof image, true) < 0) return Pass("Ccreate");
    return Hclose(handle) < 0 ? Pass("Ccreate") : CurrentCode();
}

int32_t ZB_CALL ZBDCOPENX(uint16_t* handle, const char* name, uint16_t mode) {
    return OpenIndexFile<NtxFile>("Copen", SlotNtx, handle, name, [&](NtxFile& index, int slot) {
        return OpenIndex(index, slot, name, mode);
    });
}

int32_t ZB_CALL ZBDCCLOSE(int16_t handle) {
    NtxFile* index = Cslock(handle);
    if (!index) return Pass("Cclose");
    if (index->headerDirty) {
        index->headerDirty = false;
        index->version++;
        if (WriteHeader(*index, VersionAt, VolatileEnd) < 0) return Pass("Cclose");
    }
    return CloseIndexFile("Cclose", *index, handle);
}

int32_t ZB_CALL ZBDCHGET(int16_t handle) {
    NtxFile* index = Cslock(handle);
    if (!index) return Pass("Chget");
    return Chget(*index) < 0 ? CurrentCode() : TakeLength(*index);
}

int32_t ZB_CALL ZBDCEXPR(int16_t handle, char* text) { return GiveExpression("Cexpr", Cslock, handle, text); }

int32_t ZB_CALL ZBDCINFO(int16_t handle, ZbNtxInfo* info) {
    NtxFile* index = BeginInfo("Cinfo", Cslock, handle, info);
    if (!index) return CurrentCode();
    bool descends = strncmp(index->expression, "DESCEND", 7) == 0;
    info->keyType = '?';
    info->keyFlags = static_cast<uint16_t>((index->unique & 1 ? 0x0080 : 0) | (descends ? 0x0100 : 0));
    info->decimals = index->decimals;
    return CurrentCode();
}
