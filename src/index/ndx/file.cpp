// NDX files: create, open, close with its compaction, pages.
#include <algorithm>

#include "core/ascii.h"
#include "file/operations.h"
#include "file/path.h"
#include "index/frame.h"
#include "index/ndx/ndx.h"

namespace zb {

NdxFile* Nslock(int handle) {
    auto* index = BindObject<NdxFile>("Nslock", handle, SlotNdx);
    if (index) SetCode(0);
    return index;
}

// Pages

Code Nhget(NdxFile& index) {
    uint8_t bytes[8];
    if (HreadAt(index.handle, 0, bytes, sizeof bytes) < 0) return Pass("Nhget");
    index.rootPage = LoadLe32(bytes);
    index.pageCount = LoadLe32(bytes + 4);
    return CurrentCode();
}

namespace {

bool InFile(const NdxFile& index, uint32_t page) { return page >= 1 && page < index.pageCount; }

}  // namespace

uint32_t NdxPagesThere(const NdxFile& index) {
    uint32_t length = 0;
    Hlen(index.handle, &length);
    return std::min(index.pageCount, length / NdxPageSize);
}

Code NdxWriteRoot(NdxFile& index) { return WriteHeaderFields(index.handle, 0, {index.rootPage}); }

Code NpgetRaw(NdxFile& index, uint32_t page, NdxPage* view) {
    if (!InFile(index, page)) return Fail("Npget", ErrSeek);
    view->number = page;
    view->entrySize = index.entrySize;
    return index.pool.Get("Npget", index.handle, page, &view->data);
}

Code Npget(NdxFile& index, uint32_t page, NdxPage* view) {
    if (NpgetRaw(index, page, view) < 0) return CurrentCode();
    if (view->count() < 0 || view->count() > index.keysPerPage) return Fail("Npget", ErrStructure);
    return CurrentCode();
}

Code Npput(NdxFile& index, const NdxPage& page) {
    if (index.readOnly()) return Fail("Npput", ErrReadOnly);
    if (!InFile(index, page.number)) return Fail("Npput", ErrSeek);
    return index.pool.Put("Npput", index.handle, page.number);
}

void Npforget(NdxFile& index) {
    index.pool.Forget();
    index.position.pathDepth = -1;
}

namespace {

// Gives up the chain of free pages where its first page is in use again: the close
// of another handle has cut it off, and the file has grown since.
Code CheckFreeHead(NdxFile& index) {
    if (index.freeHead == 0) return CurrentCode();
    NdxPage page;
    if (NpgetRaw(index, index.freeHead, &page) < 0) return CurrentCode();
    if (!page.isFree()) index.freeHead = 0;
    return CurrentCode();
}

}  // namespace

Code Npnew(NdxFile& index, NdxPage* view) {
    if (CheckFreeHead(index) < 0) return Pass("Npnew");
    uint32_t page = index.freeHead;
    if (page == 0) {
        page = index.pageCount++;
        Hsize(index.handle, int64_t{index.pageCount} * NdxPageSize);
        if (WriteHeaderFields(index.handle, 4, {index.pageCount}) < 0) return Pass("Npnew");
    }
    if (NpgetRaw(index, page, view) < 0) return Pass("Npnew");
    if (index.freeHead != 0) index.freeHead = view->freeLink();
    index.pool.TakeFront();
    StoreLe32(view->data, 0);
    return CurrentCode();
}

Code Npfree(NdxFile& index, uint32_t number) {
    NdxPage page;
    if (NpgetRaw(index, number, &page) < 0) return Pass("Npfree");
    page.data[0] = NdxFreePage;
    page.setFreeLink(index.freeHead);
    index.freeHead = number;
    return Npput(index, page) < 0 ? Pass("Npfree") : CurrentCode();
}

// Compaction

namespace {

// Brings the path to stand on a page by looking through the whole tree: the way
// of last resort for a page that its own first key doesn't lead to.
Code WalkToPage(NdxFile& index, uint32_t wanted) {
    Position& position = index.position;
    position.Start(index.rootPage, 0);
    NdxPage page;
    uint32_t steps = NdxPagesThere(index);
    while (position.pathDepth >= 0 && position.top().page != wanted) {
        if (Npget(index, position.top().page, &page) < 0) return CurrentCode();
        int slot = position.top().slot;
        if (!page.isLeaf() && slot <= page.count()) {
            if (steps-- == 0 || !position.Push(page.child(slot), 0)) return Fail("Nclose", ErrStructure);
        } else if (--position.pathDepth >= 0) {
            position.top().slot++;
        }
    }
    return CurrentCode();
}

// Brings the path to stand on a live page, by finding the first entry of the
// first leaf beneath it.
Code PathToPage(NdxFile& index, NdxPage page) {
    Position& position = index.position;
    uint32_t wanted = page.number;
    for (int level = 0; !page.isLeaf(); level++) {
        if (level == position.levels || Npget(index, page.child(0), &page) < 0)
            return Fail("Nclose", ErrStructure);
    }
    KeyBuffer key{};
    uint32_t record = page.record(0);
    memcpy(key, page.key(0), static_cast<size_t>(index.keyLength()));
    if (Nkfind(index, key, &record, 2) < 0) {
        if (CurrentCode() != ErrStructure) return Pass("Nclose");
        // A leaf without keys lay in the way of the search. It must not keep the
        // index from being closed.
        SetCode(0);
        position.pathDepth = -1;
    }
    while (position.pathDepth >= 0 && position.top().page != wanted) position.pathDepth--;
    if (position.pathDepth < 0 && WalkToPage(index, wanted) < 0) return Pass("Nclose");
    return position.pathDepth < 0 ? Fail("Nclose", ErrStructure) : CurrentCode();
}

// Moves a live page into a free one and tells its parent.
Code MovePage(NdxFile& index, const NdxPage& live, uint32_t to) {
    Position& position = index.position;
    uint32_t from = live.number;
    NdxPage page;
    if (Npget(index, from, &page) < 0) return Fail("Nclose", ErrStructure);
    index.pool.MoveFront(to);
    page.number = to;
    if (Npput(index, page) < 0) return Fail("Nclose", ErrStructure);
    if (--position.pathDepth < 0) {
        index.rootPage = to;
        return CurrentCode();
    }
    if (Npget(index, position.top().page, &page) < 0) return Fail("Nclose", ErrStructure);
    page.setChild(position.top().slot, to);
    return Npput(index, page) < 0 ? Fail("Nclose", ErrStructure) : CurrentCode();
}

// Moves live pages from the end of the file into the free ones, and cuts the
// file. What the last search for a page warned of stays standing.
Code Compact(NdxFile& index) {
    if (Nhget(index) < 0) return Pass("Nclose");
    uint32_t scan = index.pageCount - 1;
    uint32_t newCount = index.pageCount;
    uint32_t pages = NdxPagesThere(index);
    for (uint32_t steps = 0; index.freeHead != 0; steps++) {
        uint32_t free = index.freeHead;
        if (!InFile(index, free) || steps > pages) return Fail("Nclose", ErrStructure);
        uint8_t start[8];
        if (Hseek(index.handle, int64_t{free} * NdxPageSize) < 0 ||
            Hread(index.handle, start, sizeof start) < 0)
            return Pass("Nclose");
        NdxPage page{start, index.entrySize, free};
        index.freeHead = page.isFree() ? page.freeLink() : 0;
        if (!page.isFree()) break;  // in use again, see CheckFreeHead

        NdxPage live{};
        for (; scan > free; scan--) {
            if (NpgetRaw(index, scan, &live) < 0) return Fail("Nclose", ErrStructure);
            if (!live.isFree()) break;
        }
        if (scan <= free) {
            newCount = std::min(newCount, free);
            continue;
        }
        if (PathToPage(index, live) < 0) return CurrentCode();
        if (MovePage(index, live, free) < 0) return CurrentCode();
        newCount = scan--;
    }
    index.pageCount = newCount;
    Hsize(index.handle, int64_t{newCount} * NdxPageSize);
    index.headerDirty = true;
    return CurrentCode();
}

// Open

Code CheckHeader(const NdxFile& index, const uint8_t* header) {
    int length = index.keyLength();
    int keyRoom = static_cast<int16_t>(index.entrySize) - 8;
    auto keysPerPage = static_cast<int16_t>(index.keysPerPage);
    if (length < MinKeyLength || length > MaxKeyLength) return Fail("Nopen", ErrKeyLength);
    // Whoever asks for a number has 8 bytes for it.
    if (index.keyType == NdxNumeric && length > 8) return Fail("Nopen", ErrKeyLength);
    if (keyRoom != length && keyRoom != ((length + 1) & ~1) && keyRoom != ((length + 3) & ~1))
        return Fail("Nopen", ErrKeySize);
    if (index.rootPage < 1 || index.rootPage > index.pageCount) return Fail("Nopen", ErrRootPage);
    if (keysPerPage < 2 || keysPerPage * index.entrySize > 508) return Fail("Nopen", ErrKeysPerPage);
    if (strnlen(reinterpret_cast<const char*>(header) + 24, 224) > NdxMaxExpression)
        return Fail("Nopen", ErrExpression);
    return CurrentCode();
}

Code OpenIndex(NdxFile& index, int slot, const char* name, uint16_t mode) {
    mode = NormalMode(mode);
    if (Hopen(&index.handle, name, mode, &index.flags, slot) < 0) return Pass("Nopen");
    PfHint(index.handle, ReadHint::Pages);
    switch (mode & 0xFF) {
        case 0:
        case 1:
        case 2:
        case 7: break;
        default: return Fail("Nopen", ErrFileType);
    }

    uint8_t header[NdxHeaderRead];
    if (Hread(index.handle, header, sizeof header) < 0) return Pass("Nopen");
    index.rootPage = LoadLe32(header);
    index.pageCount = LoadLe32(header + 4);
    index.keyBytes = LoadLe16(header + 12);
    index.keysPerPage = LoadLe16(header + 14);
    index.keyType = LoadLe16(header + 16);
    index.entrySize = LoadLe16(header + 18);
    index.unique = header[23];
    if (CheckHeader(index, header) < 0) return CurrentCode();
    memcpy(index.expression, header + 24, NdxMaxExpression);
    SqueezeBlanks(index.expression);
    AsciiUpper(index.expression);
    if (index.keyType > NdxNumeric) return Fail("Nopen", ErrKeyType);

    if (strlen(name) > MaxName) return Fail("Nopen", ErrBadName);
    strcpy(index.fileName, name);
    index.halfKeys = static_cast<int8_t>(index.keysPerPage / 2);
    index.position.levels =
        static_cast<int16_t>(TreeLevels(index.halfKeys + 1, MaxTreeSize / (index.halfKeys + 1)));
    index.position.pathDepth = -1;
    if (index.pool.Open(3, NdxPageSize, NdxPageSize) < 0) return Pass("Nopen");

    SetCode(0);
    uint32_t length = 0;
    if (Hlen(index.handle, &length) < 0) return Pass("Nopen");
    return SetCode(length == uint64_t{index.pageCount} * NdxPageSize ? Code{0} : WarnFileSize);
}

}  // namespace

Code NdxQuickClose(int handle) { return QuickCloseIndex("Nqclose", Nslock(handle)); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDNCREATE(const char* name, int16_t keyType, char* expression, int16_t keyLength) {
    if (Pending()) return Pass("Ncreate");
    if (!name || !expression) return Fail("Ncreate", ErrNullPointer);
    SetCode(0);
    if (SqueezeBlanks(expression) > NdxMaxExpression) return Fail("Ncreate", ErrExpression);

    uint16_t type = NdxNumeric;
    int length = 8;
    switch (keyType & ~0xA0) {
        case 'C':
            if (keyLength < MinKeyLength || keyLength > MaxKeyLength) return Fail("Ncreate", ErrKeyLength);
            type = NdxCharacter;
            length = keyLength;
            break;
        case 'D':
        case 'N': break;
        default: return Fail("Ncreate", ErrKeyType);
    }
    int entrySize = ((length + 3) & ~3) + 8;

    uint8_t image[2 * NdxPageSize] = {};
    StoreLe32(image, 1);
    StoreLe32(image + 4, 2);
    StoreLe16(image + 12, static_cast<uint16_t>(length));
    StoreLe16(image + 14, static_cast<uint16_t>(504 / entrySize));
    StoreLe16(image + 16, type);
    StoreLe16(image + 18, static_cast<uint16_t>(entrySize));
    image[23] = keyType & 0x80 ? 1 : 0;
    CopyUpper(reinterpret_cast<char*>(image) + 24, expression);

    uint16_t handle;
    if (Hcreate(&handle, name) < 0) return Pass("Ncreate");
    // The header, and the empty root behind it.
    Hwrite(handle, image, sizeof image, true);
    return EndCreation("Ncreate", handle);
}

int32_t ZB_CALL ZBDNOPENX(uint16_t* handle, const char* name, uint16_t mode) {
    return OpenIndexFile<NdxFile>("Nopen", SlotNdx, handle, name, [&](NdxFile& index, int slot) {
        return OpenIndex(index, slot, name, mode);
    });
}

int32_t ZB_CALL ZBDNCLOSE(int16_t handle) {
    NdxFile* index = Nslock(handle);
    if (!index) return Pass("Nclose");
    bool done = index->freeHead == 0 || Compact(*index) >= 0;
    Npforget(*index);
    if (!done) return CurrentCode();
    if (index->headerDirty && WriteHeaderFields(index->handle, 0, {index->rootPage, index->pageCount}) < 0)
        return Pass("Nclose");
    return CloseIndexFile("Nclose", *index, handle);
}

int32_t ZB_CALL ZBDNHGET(int16_t handle) {
    NdxFile* index = Nslock(handle);
    if (!index) return Pass("Nhget");
    return Nhget(*index);
}

int32_t ZB_CALL ZBDNEXPR(int16_t handle, char* text) { return GiveExpression("Nexpr", Nslock, handle, text); }

int32_t ZB_CALL ZBDNINFO(int16_t handle, ZbNdxInfo* info) {
    NdxFile* index = BeginInfo("Ninfo", Nslock, handle, info);
    if (!index) return CurrentCode();
    info->keyType = index->keyType == NdxCharacter ? 'C' : 'N';
    info->keyFlags = index->unique & 1 ? 0x0080 : 0;
    return CurrentCode();
}
