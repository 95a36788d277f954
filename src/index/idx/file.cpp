// IDX files: create, open, close, pages.
#include <algorithm>

#include "core/ascii.h"
#include "file/operations.h"
#include "file/path.h"
#include "index/frame.h"
#include "index/idx/idx.h"

namespace zb {

IdxFile* Islock(int handle) {
    auto* index = BindObject<IdxFile>("Islock", handle, SlotIdx);
    if (index) SetCode(0);
    return index;
}

// Pages

Code Ihget(IdxFile& index) {
    uint8_t bytes[12];
    if (HreadAt(index.handle, 0, bytes, sizeof bytes) < 0) return Pass("Ihget");
    index.rootPage = LoadLe32(bytes);
    index.freeHead = LoadLe32(bytes + 4);
    index.fileEnd = LoadLe32(bytes + 8);
    // A compact file that never grew keeps the length found at the open.
    if (index.fileEnd != 0) index.fileLength = static_cast<int32_t>(index.fileEnd);
    return CurrentCode();
}

namespace {

bool InFile(const IdxFile& index, int64_t offset) {
    return offset >= IdxPageSize && offset < index.fileLength && offset % IdxPageSize == 0;
}

}  // namespace

Code IdxWriteHeader(IdxFile& index) {
    return WriteHeaderFields(index.handle, 0, {index.rootPage, index.freeHead, index.fileEnd});
}

Code IdxWriteRoot(IdxFile& index) { return WriteHeaderFields(index.handle, 0, {index.rootPage}); }

Code IpgetRaw(IdxFile& index, uint32_t offset, IdxPage* view) {
    if (!InFile(index, offset)) return Fail("Ipget", ErrSeek);
    view->index = &index;
    view->offset = offset;
    return index.pool.Get("Ipget", index.handle, offset, &view->data);
}

Code Ipget(IdxFile& index, uint32_t offset, IdxPage* view) {
    if (IpgetRaw(index, offset, view) < 0) return CurrentCode();
    bool sound = view->isPacked() ? view->entryBytes() <= IdxMaxEntryBytes
                                  : view->count() >= 0 && view->count() <= index.maxEntries;
    return sound ? CurrentCode() : Fail("Ipget", ErrStructure);
}

Code Ipput(IdxFile& index, const IdxPage& page) {
    if (index.readOnly()) return Fail("Ipput", ErrReadOnly);
    if (!InFile(index, page.offset)) return Fail("Ipput", ErrSeek);
    return index.pool.Put("Ipput", index.handle, page.offset);
}

void Ipforget(IdxFile& index) {
    index.pool.Forget();
    index.position.pathDepth = -1;
}

Code Iknewpage(IdxFile& index, IdxPage* view) {
    bool reused = index.hasFreePage();
    uint32_t page = index.freeHead;
    if (!reused) {
        if (index.fileLength > INT32_MAX - IdxPageSize) return Fail("Iknewpage", ErrSeek);
        page = static_cast<uint32_t>(index.fileLength);
        index.fileLength += IdxPageSize;
        index.fileEnd = static_cast<uint32_t>(index.fileLength);
        Hsize(index.handle, index.fileLength);
        if (WriteHeaderFields(index.handle, 8, {index.fileEnd}) < 0) return Pass("Iknewpage");
    }
    if (IpgetRaw(index, page, view) < 0) return Pass("Iknewpage");
    if (reused) index.freeHead = LoadLe32(view->data);
    if (WriteHeaderFields(index.handle, 4, {index.freeHead}) < 0) return Pass("Iknewpage");
    index.pool.TakeFront();
    // All else reads the low bytes of Attributes and KeyCount alone.
    view->data[1] = view->data[3] = 0;
    return CurrentCode();
}

Code Ikfreepage(IdxFile& index, uint32_t offset) {
    IdxPage page;
    if (IpgetRaw(index, offset, &page) < 0) return Pass("Ikfreepage");
    StoreLe32(page.data, index.freeHead);
    index.freeHead = offset;
    if (WriteHeaderFields(index.handle, 4, {offset}) < 0 || Ipput(index, page) < 0) return Pass("Ikfreepage");
    return CurrentCode();
}

void IdxFormatRoot(uint8_t* page, int keyLength, bool compact) {
    memset(page, 0, IdxPageSize);
    page[0] = IdxRoot | IdxLeaf;
    StoreLe32(page + 4, IdxNone);
    StoreLe32(page + 8, IdxNone);
    if (!compact) return;
    int countBits = std::bit_width(static_cast<unsigned>(keyLength));
    int entryBytes = countBits == 1 ? 2 : countBits <= 5 ? 3 : 4;
    int recordBits = entryBytes * 8 - 2 * countBits;
    StoreLe16(page + 12, IdxEmptyLeafSpace);
    StoreLe32(page + 14, (uint32_t{1} << recordBits) - 1);
    page[18] = page[19] = static_cast<uint8_t>((1 << countBits) - 1);
    page[20] = static_cast<uint8_t>(recordBits);
    page[21] = page[22] = static_cast<uint8_t>(countBits);
    page[23] = static_cast<uint8_t>(entryBytes);
}

// Open

namespace {

// Reads the expression, which takes `stored` bytes of the file. What lies beyond
// the longest one that is taken has only to be there.
Code ReadExpression(IdxFile& index, int64_t position, uint16_t stored, uint32_t length) {
    auto wanted = static_cast<int16_t>(std::min<int>(stored, IdxMaxExpression));
    if (Hseek(index.handle, position) < 0) return Pass("Iopen");
    if (stored > INT16_MAX || (stored > wanted && position + stored > length)) return Fail("Iopen", ErrRead);
    if (Hread(index.handle, index.expression, wanted) < 0) return Pass("Iopen");
    if (strlen(index.expression) >= IdxMaxExpression) return Fail("Iopen", ErrExpression);
    SqueezeBlanks(index.expression);
    AsciiUpper(index.expression);
    return CurrentCode();
}

Code ReadHeader(IdxFile& index) {
    uint32_t length = 0;
    uint8_t header[16];
    if (Hlen(index.handle, &length) < 0 || Hread(index.handle, header, sizeof header) < 0)
        return Pass("Iopen");
    index.rootPage = LoadLe32(header);
    index.freeHead = LoadLe32(header + 4);
    index.fileEnd = LoadLe32(header + 8);
    index.keyBytes = LoadLe16(header + 12);
    index.indexFlags = header[14];
    if (index.keyBytes < MinKeyLength || index.keyBytes > MaxKeyLength) return Fail("Iopen", ErrKeyLength);
    if (index.compact()) {
        uint8_t words[10];
        if (Hseek(index.handle, 502) < 0 || Hread(index.handle, words, sizeof words) < 0)
            return Pass("Iopen");
        index.fileLength = static_cast<int32_t>(length);
        index.descending = LoadLe16(words);
        int64_t start = 511 + LoadLe16(words + 4);
        if (ReadExpression(index, start, LoadLe16(words + 8), length) < 0) return CurrentCode();
    } else {
        index.fileLength = static_cast<int32_t>(index.fileEnd);
        if (ReadExpression(index, 16, IdxMaxExpression, length) < 0) return CurrentCode();
    }
    bool rooted = index.rootPage >= IdxPageSize && int64_t{index.rootPage} < index.fileLength;
    return rooted ? CurrentCode() : Fail("Iopen", ErrRootPage);
}

Code OpenIndex(IdxFile& index, int slot, const char* name, uint16_t mode) {
    mode = NormalMode(mode);
    if (Hopen(&index.handle, name, mode, &index.flags, slot) < 0) return Pass("Iopen");
    PfHint(index.handle, ReadHint::Pages);
    switch (mode & 0xFF) {
        case 0:
        case 3:
        case 4:
        case 8: break;
        default: return Fail("Iopen", ErrFileType);
    }
    if (ReadHeader(index) < 0) return CurrentCode();

    if (strlen(name) > MaxName) return Fail("Iopen", ErrBadName);
    strcpy(index.fileName, name);
    index.childOffset = static_cast<int16_t>(index.keyLength() + (index.compact() ? 4 : 0));
    index.entrySize = static_cast<int8_t>(index.childOffset + 4);
    index.maxEntries = static_cast<int8_t>((IdxPageSize - IdxEntriesAt) / index.entrySize);
    index.halfEntries = static_cast<int8_t>(index.maxEntries / 2);
    index.upperEntries = static_cast<int8_t>(index.maxEntries - index.halfEntries);
    index.keyType = '?';
    index.recordMask = index.compact() ? 0 : 0xFFFFFFFF;
    index.position.levels =
        static_cast<int16_t>(TreeLevels(index.halfEntries, MaxTreeSize / index.halfEntries));
    index.position.pathDepth = -1;
    return index.pool.Open(4, IdxPageSize, 1) < 0 ? Pass("Iopen") : SetCode(0);
}

}  // namespace

Code IdxQuickClose(int handle) { return QuickCloseIndex("Iqclose", Islock(handle)); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDICREATE(const char* name, uint16_t typeWord, char* expression, int16_t keyLength) {
    if (Pending()) return Pass("Icreate");
    if (!name || !expression) return Fail("Icreate", ErrNullPointer);
    SetCode(0);
    size_t expressionLength = SqueezeBlanks(expression);
    if (expressionLength > IdxMaxExpression) return Fail("Icreate", ErrExpression);

    bool compact = typeWord & ZB_IdxCompact;
    int length = 8;
    switch (typeWord & 0x5F) {
        case 'C':
            if (keyLength < MinKeyLength || keyLength > MaxKeyLength) return Fail("Icreate", ErrKeyLength);
            length = keyLength;
            break;
        case 'L': length = 1; break;
        case 'D':
        case 'N': break;
        default: return Fail("Icreate", ErrKeyType);
    }

    // The header, in compact form the expression's block, and the empty root.
    uint8_t image[3 * IdxPageSize] = {};
    int root = compact ? 2 * IdxPageSize : IdxPageSize;
    StoreLe32(image, static_cast<uint32_t>(root));
    StoreLe16(image + 12, static_cast<uint16_t>(length));
    image[14] = static_cast<uint8_t>((typeWord & ZB_IdxUnique ? IdxUnique : 0) | (compact ? IdxCompact : 0));
    if (compact) {
        auto stored = static_cast<uint16_t>(expressionLength + 1);
        StoreLe16(image + 504, stored);
        StoreLe16(image + 506, 1);
        StoreLe16(image + 510, stored);
    } else {
        StoreLe32(image + 4, IdxNone);
        StoreLe32(image + 8, 2 * IdxPageSize);
    }
    CopyUpper(reinterpret_cast<char*>(image) + (compact ? IdxPageSize : 16), expression);
    IdxFormatRoot(image + root, length, compact);

    uint16_t handle;
    if (Hcreate(&handle, name) < 0) return Pass("Icreate");
    Hwrite(handle, image, static_cast<int16_t>(root + IdxPageSize), true);
    return EndCreation("Icreate", handle);
}

int32_t ZB_CALL ZBDIOPENX(uint16_t* handle, const char* name, uint16_t mode) {
    return OpenIndexFile<IdxFile>("Iopen", SlotIdx, handle, name, [&](IdxFile& index, int slot) {
        return OpenIndex(index, slot, name, mode);
    });
}

int32_t ZB_CALL ZBDICLOSE(int16_t handle) {
    IdxFile* index = Islock(handle);
    if (!index) return Pass("Iclose");
    if (index->headerDirty) {
        index->headerDirty = false;
        if (IdxWriteHeader(*index) < 0) return Pass("Iclose");
    }
    return CloseIndexFile("Iclose", *index, handle);
}

int32_t ZB_CALL ZBDIHGET(int16_t handle) {
    IdxFile* index = Islock(handle);
    if (!index) return Pass("Ihget");
    return Ihget(*index);
}

int32_t ZB_CALL ZBDIEXPR(int16_t handle, char* text) { return GiveExpression("Iexpr", Islock, handle, text); }

int32_t ZB_CALL ZBDIINFO(int16_t handle, ZbIdxInfo* info) {
    IdxFile* index = BeginInfo("Iinfo", Islock, handle, info);
    if (!index) return CurrentCode();
    info->keyType = static_cast<uint16_t>(static_cast<int8_t>(index->keyType));
    unsigned keyFlags = index->unique() ? 0x0080 : 0;
    if (index->compact() && index->descending) keyFlags |= 0x0100;
    if (index->indexFlags & IdxCompact) keyFlags |= 0x0400;
    info->keyFlags = static_cast<uint16_t>(keyFlags);
    info->decimals = index->compact() ? 8 : 3;
    return CurrentCode();
}

int32_t ZB_CALL ZBDIKTYPE(int16_t handle, int16_t keyType) {
    IdxFile* index = Islock(handle);
    if (!index) return Pass("Iktype");
    index->keyType = static_cast<uint8_t>(keyType & ~0x20);
    switch (index->keyType) {
        case 'C': index->fillByte = ' '; break;
        case 'D':
        case 'L':
        case 'N': index->fillByte = 0; break;
        default: return Fail("Iktype", ErrKeyType);
    }
    return CurrentCode();
}
