// MDX files: create, open, close, pages.
#include <algorithm>

#include "core/ascii.h"
#include "file/operations.h"
#include "file/path.h"
#include "index/mdx/kept.h"
#include "index/mdx/mdx.h"

namespace zb {

MdxFile* Mslock(int handle) {
    auto* file = static_cast<MdxFile*>(SlotBind("Mslock", handle, SlotMdx, true));
    if (file) SetCode(0);
    return file;
}

// The quick close never gives up an MDX file, so there is none to open again.
MdxTag* MslockTag(int32_t handle) {
    MdxFile* file = Mslock(static_cast<int16_t>(handle));
    if (!file) return nullptr;
    int number = handle >> 16;
    if (number < 1 || number > MdxMaxTags) {
        Fail("Mslock", ErrTagHandle);
        return nullptr;
    }
    MdxTag& tag = file->tags[number];
    if (tag.pool.memory.Lock() < 0) {
        Pass("Mslock");
        return nullptr;
    }
    tag.file = file;
    return &tag;
}

// Pages

Code Mhget(MdxTag& tag) {
    MdxFile& file = *tag.file;
    uint8_t root[4];
    if (HreadAt(file.handle, 32, file.header + 32, 12) < 0) return Pass("Mhget");
    if (HreadAt(file.handle, int64_t{tag.headerPage} * MdxUnit, root, sizeof root) < 0) return Pass("Mhget");
    tag.rootPage = LoadLe32(root);
    return CurrentCode();
}

Code MdxWriteHeader(MdxFile& file, int offset, int length) {
    if (Hseek(file.handle, offset) < 0) return CurrentCode();
    return Hwrite(file.handle, file.header + offset, static_cast<int16_t>(length), false);
}

Code MdxWriteRoot(MdxTag& tag) {
    if (tag.kept) return CurrentCode();
    uint8_t root[4];
    StoreLe32(root, tag.rootPage);
    if (Hseek(tag.file->handle, int64_t{tag.headerPage} * MdxUnit) < 0) return CurrentCode();
    return Hwrite(tag.file->handle, root, sizeof root, false);
}

// False where the file would grow beyond what positions reach.
bool MdxGrow(MdxFile& file, uint32_t* page) {
    *page = file.nextPage();
    int64_t next = int64_t{*page} + file.blockUnits();
    if (next * MdxUnit > MaxPosition) return false;
    file.setNextPage(static_cast<uint32_t>(next));
    return true;
}

uint32_t MdxPagesThere(const MdxFile& file) {
    uint32_t length = 0;
    Hlen(file.handle, &length);
    return std::min(file.nextPage(), length / MdxUnit);
}

Code MpgetRaw(MdxTag& tag, uint32_t page, MdxPage* view) {
    if (!tag.file->inFile(page)) return Fail("Mpget", ErrSeek);
    view->number = page;
    view->entryLength = tag.entryLength;
    if (tag.kept) return tag.kept->Get(page, &view->data);
    return tag.pool.Get("Mpget", tag.file->handle, page, &view->data);
}

Code Mpget(MdxTag& tag, uint32_t page, MdxPage* view) {
    if (MpgetRaw(tag, page, view) < 0) return CurrentCode();
    if (view->count() > tag.maxKeys) return Fail("Mpget", ErrStructure);
    return CurrentCode();
}

Code Mpput(MdxTag& tag, const MdxPage& page) {
    if (tag.file->readOnly()) return Fail("Mpput", ErrReadOnly);
    if (!tag.file->inFile(page.number)) return Fail("Mpput", ErrSeek);
    if (tag.kept) {
        tag.kept->Put(page.number);
        return CurrentCode();
    }
    return tag.pool.Put("Mpput", tag.file->handle, page.number);
}

void Mpforget(MdxTag& tag) {
    tag.pool.Forget();
    tag.position.pathDepth = -1;
}

namespace {

// The end of the file and the free list, changed for a tag. A build writes them
// with its pages.
Code WriteChanged(MdxTag& tag, int offset, int length) {
    return tag.kept ? CurrentCode() : MdxWriteHeader(*tag.file, offset, length);
}

}  // namespace

Code Mpnew(MdxTag& tag, MdxPage* view) {
    MdxFile& file = *tag.file;
    uint32_t page = file.freeHead();
    if (page == 0) {
        if (!MdxGrow(file, &page)) return Fail("Mpnew", ErrSeek);
        Hsize(file.handle, int64_t{file.nextPage()} * MdxUnit);
        if (WriteChanged(tag, 32, 4) < 0) return Pass("Mpnew");
    }
    if (MpgetRaw(tag, page, view) < 0) return Pass("Mpnew");
    if (file.freeHead() != 0) {
        file.setFreeHead(view->freeLink());
        file.setFreeCount(file.freeCount() - 1);
    }
    if (WriteChanged(tag, 36, 8) < 0) return Pass("Mpnew");
    tag.pool.TakeFront();
    memset(view->data, 0, MdxEntriesAt);
    return CurrentCode();
}

Code Mpfree(MdxTag& tag, uint32_t number) {
    MdxFile& file = *tag.file;
    MdxPage page;
    if (MpgetRaw(tag, number, &page) < 0) return Pass("Mpfree");
    page.setFreeLink(file.freeHead());
    file.setFreeHead(number);
    file.setFreeCount(file.freeCount() + 1);
    if (Mpput(tag, page) < 0 || WriteChanged(tag, 36, 8) < 0) return Pass("Mpfree");
    return CurrentCode();
}

// Open

namespace {

Code CheckHeader(const MdxFile& file) {
    const uint8_t* header = file.header;
    auto year = static_cast<int8_t>(header[1]);
    if (header[0] != 2) return Fail("Mopen", ErrFileType);
    // A year that the format's makers didn't live to see is refused.
    if (year < 80 || year > 119) return Fail("Mopen", ErrHeaderDate);
    if (header[2] < 1 || header[2] > 12 || header[3] < 1 || header[3] > 31)
        return Fail("Mopen", ErrHeaderDate);
    if (file.blockUnits() < 1 || file.blockUnits() > MdxMaxUnits) return Fail("Mopen", ErrBlockSize);
    if (file.blockBytes() != file.blockUnits() * MdxUnit) return Fail("Mopen", ErrMdxBlock);
    if (header[25] != MdxRows) return Fail("Mopen", ErrMdxTagTable);
    if (header[26] != MdxRowSize) return Fail("Mopen", ErrMdxTagSlot);
    if (file.tagCount() < 0 || file.tagCount() > MdxMaxTags) return Fail("Mopen", ErrMdxTagCount);
    if (file.nextPage() < MdxFirstPage) return Fail("Mopen", ErrHeaderLength);
    return CurrentCode();
}

Code OpenFile(MdxFile& file, int slot, const char* path, uint16_t mode) {
    mode = NormalMode(mode);
    file.handle = NoFile;
    if (Hopen(&file.handle, path, mode, &file.flags, slot) < 0) return Pass("Mopen");
    PfHint(file.handle, ReadHint::Pages);
    if ((mode & 0xFF) != 0 && (mode & 0xFF) != 2) return Fail("Mopen", ErrFileType);
    if (Hread(file.handle, file.header, MdxHeaderSize) < 0) return Pass("Mopen");
    if (CheckHeader(file) < 0) return CurrentCode();
    if (strlen(path) > MaxName) return Fail("Mopen", ErrBadName);
    strcpy(file.path, path);

    if (Hseek(file.handle, MdxTableAt) < 0 || Hread(file.handle, file.table, MdxTableSize) < 0)
        return Pass("Mopen");
    for (int i = 0; i <= file.tagCount(); i++) {
        const uint8_t* row = file.table + i * MdxRowSize;
        MdxTag& tag = file.tags[i];
        tag.headerPage = LoadLe32(row);
        memcpy(tag.name, row + 4, MdxMaxTagName);
        tag.nextTag = row[17];
        tag.previousTag = row[18];
        tag.keyType = row[20];
    }

    uint32_t length = 0;
    if (Hlen(file.handle, &length) < 0) return Pass("Mopen");
    return SetCode(length == uint64_t{file.nextPage()} * MdxUnit ? Code{0} : WarnFileSize);
}

// The name that a file's header holds: without directory and extension.
struct BareName {
    const char* text;
    size_t length;
};

BareName BareNameOf(const char* path) {
    const char* start = path + DirectoryLength(path);
    const char* point = strrchr(start, '.');
    return {start, point ? static_cast<size_t>(point - start) : strlen(start)};
}

Code CreateFile(const char* path, int32_t multiplier, uint16_t option) {
    if (Pending()) return Pass("Mcreate");
    if (!path) return Fail("Mcreate", ErrNullPointer);
    if (multiplier < 1 || multiplier > MdxMaxUnits) return Fail("Mcreate", ErrBlockSize);
    SetCode(0);
    uint16_t handle;
    if (Hcreate(&handle, path) < 0) return Pass("Mcreate");
    // The new file stays open where its name is refused.
    constexpr size_t longestName = 8;
    BareName name = BareNameOf(path);
    if (name.length > longestName) return Fail("Mcreate", ErrBadName);

    uint8_t image[MdxTableAt + MdxTableSize] = {};
    int16_t year, month, day, dayOfWeek;
    if (ZBCDIGET(&year, &month, &day, &dayOfWeek) < 0) return Pass("Mcreate");
    image[0] = 2;
    // A year from 2020 on is written like any other, though the open refuses it.
    for (int at : {1, 44}) {
        image[at] = static_cast<uint8_t>(year - 1900);
        image[at + 1] = static_cast<uint8_t>(month);
        image[at + 2] = static_cast<uint8_t>(day);
    }
    for (size_t i = 0; i < name.length; i++) image[4 + i] = static_cast<uint8_t>(AsciiUpper(name.text[i]));
    StoreLe16(image + 20, static_cast<uint16_t>(multiplier));
    StoreLe16(image + 22, static_cast<uint16_t>(multiplier * MdxUnit));
    image[24] = option & 0x200 ? 1 : 0;
    image[25] = MdxRows;
    image[26] = MdxRowSize;
    StoreLe32(image + 32, MdxFirstPage);

    if (Hwrite(handle, image, sizeof image, false) < 0) {
        Pass("Mcreate");
        Hclose(handle);
        return CurrentCode();
    }
    return Hclose(handle) < 0 ? Pass("Mcreate") : CurrentCode();
}

}  // namespace

// A quick close binds as if the handle were a tag's. It has no tag number, and so
// an MDX file is never given up.
Code MdxQuickClose(int handle) { return MslockTag(handle) ? CurrentCode() : Pass("Mqclose"); }

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDMCREATE(const char* path, int32_t multiplier) {
    return CreateFile(path, multiplier, 0x200);
}

int32_t ZB_CALL ZBDMCREATEX(const char* path, int16_t multiplier, uint16_t option) {
    return CreateFile(path, multiplier, option);
}

int32_t ZB_CALL ZBDMOPENX(int16_t* handle, const char* path, uint16_t mode) {
    if (Pending()) return Pass("Mopen");
    if (!handle || !path) return Fail("Mopen", ErrNullPointer);
    int16_t slot;
    void* block;
    Code code = SlotAlloc(&slot, SlotMdx, sizeof(MdxFile), &block);
    *handle = slot;
    if (code < 0) return Pass("Mopen");

    auto& file = *static_cast<MdxFile*>(block);
    code = OpenFile(file, slot, path, mode);
    if (code >= 0) return code;
    if (file.handle != NoFile) {
        SetCode(0);
        Hclose(file.handle);
    }
    SlotRelease(slot);
    *handle = -1;
    return SetCode(code);
}

int32_t ZB_CALL ZBDMCLOSE(int16_t handle) {
    MdxFile* file = Mslock(handle);
    if (!file) return Pass("Mclose");
    for (int i = 0; i <= file->tagCount(); i++) MdxDetach(file->tags[i]);
    if (Hclose(file->handle) < 0) return Pass("Mclose");
    SlotRelease(handle);
    return CurrentCode();
}

int32_t ZB_CALL ZBDMINFO(int16_t handle, ZbMdxInfo* info) {
    if (!info) return SetCode(ErrNullPointer);
    MdxFile* file = Mslock(handle);
    if (!file) return Pass("Minfo");
    info->tagCount = static_cast<uint16_t>(file->tagCount());
    info->flags = AccessFlags(0, file->flags);
    strcpy(info->path, file->path);
    info->reported = file->reported;
    return CurrentCode();
}
