// MDX tags: create, erase, attach, detach, report.
#include <algorithm>

#include "core/ascii.h"
#include "file/operations.h"
#include "index/mdx/decimal.h"
#include "index/mdx/mdx.h"

namespace zb {
namespace {

bool GoodName(const char* name) {
    size_t length = strlen(name);
    return length >= 1 && length <= MdxMaxTagName;
}

// The number of the tag of that name, from `first` on, or -1.
int FindTag(const MdxFile& file, const char* name, int first) {
    for (int i = first; i <= file.tagCount(); i++)
        if (EqualNoCase(file.tags[i].name, name)) return i;
    return -1;
}

// Puts the rows of the tags in use into the table. Whatever else a row holds
// stays, and so do the rows above.
Code WriteTable(MdxFile& file) {
    for (int i = 0; i <= file.tagCount(); i++) {
        const MdxTag& tag = file.tags[i];
        uint8_t* row = file.table + i * MdxRowSize;
        StoreLe32(row, tag.headerPage);
        memcpy(row + 4, tag.name, sizeof tag.name);
        row[17] = tag.nextTag;
        row[18] = tag.previousTag;
        row[20] = tag.keyType;
    }
    if (Hseek(file.handle, MdxTableAt) < 0) return CurrentCode();
    return Hwrite(file.handle, file.table, MdxTableSize, false);
}

// Create

struct KeyShape {
    uint8_t type;
    int length;
    bool date;
};

Code ShapeOf(uint32_t typeWord, int32_t keyLength, KeyShape* shape) {
    constexpr uint32_t typeBits = 0xFF & ~0xA0u;  // neither the mark of small letters nor that of unique
    switch (typeWord & typeBits) {
        case 'C':
            if (keyLength < MinKeyLength || keyLength > MaxKeyLength) return Fail("Mtnew", ErrKeyLength);
            *shape = {'C', keyLength, false};
            return CurrentCode();
        case 'D': *shape = {'D', 8, true}; return CurrentCode();
        case 'N': *shape = {'N', DecimalSize, false}; return CurrentCode();
        default: return Fail("Mtnew", ErrKeyType);
    }
}

// A block for a new tag, in the header's copy in memory alone: the file learns of
// it when the tag stands.
Code TakeBlock(MdxFile& file, uint32_t* page) {
    *page = file.freeHead();
    if (*page == 0) return MdxGrow(file, page) ? CurrentCode() : Fail("Mtnew", ErrSeek);
    if (!file.inFile(*page)) return Fail("Mtnew", ErrSeek);
    uint8_t link[4];
    if (Hseek(file.handle, int64_t{*page} * MdxUnit + 4) < 0 || Hread(file.handle, link, sizeof link) < 0)
        return Pass("Mtnew");
    file.setFreeHead(LoadLe32(link));
    file.setFreeCount(file.freeCount() - 1);
    return CurrentCode();
}

Code WriteBlock(const MdxFile& file, uint32_t page, const uint8_t* image) {
    if (Hseek(file.handle, int64_t{page} * MdxUnit) < 0) return CurrentCode();
    return Hwrite(file.handle, image, static_cast<int16_t>(file.blockBytes()), false);
}

bool IsPlain(const char* expression) {
    for (const char* function : {"RIGHT(", "LEFT(", "DTOC("})
        if (strstr(expression, function)) return false;
    return true;
}

Code EraseTag(MdxFile& file, const char* name);

// A name that is in use is erased first. That moves the last tag into its place,
// which the new tag then takes: the last one is found where it was before.
Code CreateTag(MdxFile& file, const char* name, uint32_t typeWord, const char* expression,
               int32_t keyLength) {
    int number = file.tagCount() + 1;
    if (FindTag(file, name, 0) >= 0) {
        number = FindTag(file, name, 1);
        if (EraseTag(file, name) < 0) return Pass("Mtnew");
    }
    if (number > MdxMaxTags) return Fail("Mtnew", ErrNoSlot);
    KeyShape shape;
    if (ShapeOf(typeWord, keyLength, &shape) < 0) return CurrentCode();
    uint32_t headerPage, rootPage;
    if (TakeBlock(file, &headerPage) < 0 || TakeBlock(file, &rootPage) < 0) return CurrentCode();
    if (rootPage == headerPage) return Fail("Mtnew", ErrStructure);

    uint8_t image[MdxMaxBlock] = {};
    auto* text = reinterpret_cast<char*>(image) + 24;
    CopyUpper(text, expression);
    int entryLength = ((shape.length + 3) & ~3) + 4;
    StoreLe32(image, rootPage);
    image[8] = static_cast<uint8_t>((typeWord & 0x80 ? MdxUnique : 0) | (typeWord & 0x100 ? MdxMarked : 0) |
                                    (IsPlain(text) ? MdxPlain : 0));
    image[9] = shape.type;
    StoreLe16(image + 12, static_cast<uint16_t>(shape.length));
    StoreLe16(image + 14, static_cast<uint16_t>((file.blockBytes() - 12) / entryLength));
    StoreLe16(image + 16, shape.date);
    StoreLe16(image + 18, static_cast<uint16_t>(entryLength));
    if (WriteBlock(file, headerPage, image) < 0) return Pass("Mtnew");
    memset(image, 0, MdxUnit);
    if (WriteBlock(file, rootPage, image) < 0) return Pass("Mtnew");

    MdxTag& tag = file.tags[number];
    tag = {};
    tag.headerPage = headerPage;
    CopyUpper(tag.name, name);
    tag.previousTag = static_cast<uint8_t>(number - 1);
    tag.keyType = shape.type;
    file.tags[number - 1].nextTag = static_cast<uint8_t>(number);
    file.setTagCount(file.tagCount() + 1);
    memset(file.table + number * MdxRowSize, 0, MdxRowSize);
    for (int i = 0; i <= file.tagCount(); i++) file.table[i * MdxRowSize + 19] = 2;
    return WriteTable(file) < 0 || MdxWriteHeader(file, 28, 16) < 0 ? Pass("Mtnew") : CurrentCode();
}

// Erase

// Gives back the blocks of an erased tag, with one block of memory for all pages.
class TreeEraser {
  public:
    explicit TreeEraser(MdxFile& mdx) : file(mdx) {}

    Code Run(uint32_t headerPage) {
        uint8_t tagHeader[20];
        pages = MdxPagesThere(file);
        if (Hseek(file.handle, int64_t{headerPage} * MdxUnit) < 0 ||
            Hread(file.handle, tagHeader, sizeof tagHeader) < 0)
            return CurrentCode();
        entryLength = static_cast<int16_t>(LoadLe16(tagHeader + 18));
        if (work.Alloc(static_cast<size_t>(file.blockBytes())) < 0) return CurrentCode();
        if (FreeBlock(headerPage) >= 0) FreeTree(LoadLe32(tagHeader), 0);
        work.Free();
        return CurrentCode();
    }

  private:
    MdxFile& file;
    Block<uint8_t> work{};
    int entryLength = 0;
    uint32_t pages = 0;
    uint32_t freed = 0;

    MdxPage View(uint32_t page) const { return {work.data, entryLength, page}; }

    Code FreeBlock(uint32_t page) {
        if (!file.inFile(page)) return Fail("Mterase", ErrSeek);
        if (++freed > pages) return Fail("Mterase", ErrStructure);
        View(page).setFreeLink(file.freeHead());
        file.setFreeHead(page);
        file.setFreeCount(file.freeCount() + 1);
        if (Hseek(file.handle, int64_t{page} * MdxUnit) < 0 ||
            Hwrite(file.handle, work.data, MdxEntriesAt, false) < 0 || MdxWriteHeader(file, 36, 8) < 0)
            return Pass("Mterase");
        return CurrentCode();
    }

    Code ReadPage(uint32_t page) {
        if (!file.inFile(page)) return Fail("Mterase", ErrSeek);
        if (Hseek(file.handle, int64_t{page} * MdxUnit) < 0 ||
            Hread(file.handle, work.data, static_cast<int16_t>(file.blockBytes())) < 0)
            return Pass("Mterase");
        if (entryLength <= 4 || View(page).offset(View(page).count()) + 4 > file.blockBytes())
            return Fail("Mterase", ErrStructure);
        return CurrentCode();
    }

    // Children first. The memory serves them all, so a page is read again after
    // each child.
    Code FreeTree(uint32_t page, int level) {
        if (level == MaxLevels) return Fail("Mterase", ErrStructure);
        if (ReadPage(page) < 0) return CurrentCode();
        if (!View(page).isLeaf()) {
            for (int i = 0; i <= View(page).count(); i++)
                if (FreeTree(View(page).child(i), level + 1) < 0 || ReadPage(page) < 0) return CurrentCode();
        }
        return FreeBlock(page);
    }
};

// The last tag moves into the place of the erased one; its handles aren't told.
Code EraseTag(MdxFile& file, const char* name) {
    int number = FindTag(file, name, 1);
    if (number < 0) return Fail("Mterase", ErrTagName);
    if (file.tags[number].attached) return Fail("Mterase", ErrTagInUse);
    uint32_t headerPage = file.tags[number].headerPage;
    int last = file.tagCount();
    if (number != last) {
        file.tags[number] = file.tags[last];
        file.tags[number].previousTag = static_cast<uint8_t>(number - 1);
        file.tags[number].nextTag = static_cast<uint8_t>(number + 1);
    }
    file.setTagCount(last - 1);
    file.tags[last - 1].nextTag = 0;
    if (WriteTable(file) < 0 || MdxWriteHeader(file, 28, 2) < 0) return Pass("Mterase");
    return TreeEraser(file).Run(headerPage) < 0 ? Pass("Mterase") : CurrentCode();
}

// Attach

Code CheckTagHeader(const MdxFile& file, const MdxTag& tag, const uint8_t* header) {
    int length = tag.keyBytes;
    if (length < MinKeyLength || length > MaxKeyLength) return Fail("Mopen", ErrKeyLength);
    // Whoever asks for a number has 12 bytes for it, and 8 for a date.
    if ((tag.keyType == 'N' && length > 12) || (tag.keyType == 'D' && length > 8))
        return Fail("Mopen", ErrKeyLength);
    if (tag.entryLength != length + 4 && tag.entryLength != ((length + 7) & ~3))
        return Fail("Mopen", ErrKeySize);
    if (!file.inFile(tag.rootPage)) return Fail("Mopen", ErrRootPage);
    if (tag.maxKeys < 2 || tag.maxKeys * tag.entryLength > file.blockBytes() - 12)
        return Fail("Mopen", ErrKeysPerPage);
    constexpr size_t room = MdxTagHeaderRead - 24;
    if (strnlen(reinterpret_cast<const char*>(header) + 24, room) > MdxMaxExpression)
        return Fail("Mopen", ErrExpression);
    if (tag.tagFlags & MdxUnknownFlags) return Fail("Mopen", ErrMdxTagFlags);
    if (header[9] != 'C' && header[9] != 'D' && header[9] != 'N') return Fail("Mopen", ErrKeyType);
    if (tag.dateMark != 0 && tag.dateMark != 1) return Fail("Mopen", ErrKeyType);
    // The callers' buffers for numbers and dates have one size.
    if ((tag.keyType == 'N' && length != DecimalSize) || (tag.keyType == 'D' && length != 8))
        return Fail("Mopen", ErrKeyLength);
    return CurrentCode();
}

// A tag that is attached already is attached anew and starts without a position.
Code AttachTag(MdxFile& file, int number) {
    MdxTag tag{};
    const MdxTag& row = file.tags[number];
    tag.headerPage = row.headerPage;
    memcpy(tag.name, row.name, sizeof tag.name);
    tag.nextTag = row.nextTag;
    tag.previousTag = row.previousTag;
    tag.keyType = row.keyType;

    uint8_t header[MdxTagHeaderRead];
    if (Hseek(file.handle, int64_t{tag.headerPage} * MdxUnit) < 0 ||
        Hread(file.handle, header, sizeof header) < 0)
        return Pass("Mopen");
    tag.rootPage = LoadLe32(header);
    tag.tagFlags = header[8];
    tag.keyBytes = static_cast<int16_t>(LoadLe16(header + 12));
    tag.maxKeys = static_cast<int16_t>(LoadLe16(header + 14));
    tag.dateMark = static_cast<int16_t>(LoadLe16(header + 16));
    tag.entryLength = static_cast<int16_t>(LoadLe16(header + 18));
    if (CheckTagHeader(file, tag, header) < 0) return CurrentCode();
    memcpy(tag.expression, header + 24, MdxMaxExpression);
    SqueezeBlanks(tag.expression);
    AsciiUpper(tag.expression);
    tag.minKeys = static_cast<int16_t>(tag.maxKeys >> 1);
    tag.position.levels = static_cast<int16_t>(TreeLevels(tag.minKeys + 1, MaxTreeSize / (tag.minKeys + 1)));
    tag.position.pathDepth = -1;
    if (tag.pool.Open(3, file.blockBytes(), MdxUnit) < 0) return Pass("Mopen");
    tag.attached = true;
    MdxDetach(file.tags[number]);
    file.tags[number] = tag;
    return CurrentCode();
}

// Attaches the tag that `number` finds in the file, for ZBDMTUSE and ZBDMTUSEX.
template <class Number>
Code UseTag(int32_t* handle, uint16_t fileHandle, Number numberIn) {
    if (Pending()) return Pass("Mopen");
    *handle = NoTag;
    MdxFile* file = Mslock(fileHandle);
    if (!file) return Pass("Mopen");
    int number = numberIn(*file);
    if (number < 0) return Fail("Mopen", ErrTagName);
    if (AttachTag(*file, number) < 0) return CurrentCode();
    *handle = static_cast<int32_t>(static_cast<uint32_t>(number) << 16 | fileHandle);
    return CurrentCode();
}

}  // namespace

void MdxDetach(MdxTag& tag) {
    if (!tag.attached) return;
    tag.pool.Close();
    tag.attached = false;
}

}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDMTNEW(int16_t handle, const char* tagName, uint32_t typeWord, char* expression,
                         int32_t keyLength) {
    if (!tagName || !expression) return Fail("Mtnew", ErrNullPointer);
    if (!GoodName(tagName)) return Fail("Mtnew", ErrTagName);
    if (SqueezeBlanks(expression) > MdxMaxExpression) return Fail("Mtnew", ErrExpression);
    MdxFile* file = Mslock(handle);
    if (!file) return Pass("Mtnew");
    return CreateTag(*file, tagName, typeWord, expression, keyLength);
}

int32_t ZB_CALL ZBDMTERASE(int16_t handle, const char* tagName) {
    if (!tagName) return Fail("Mterase", ErrNullPointer);
    if (!GoodName(tagName)) return Fail("Mterase", ErrTagName);
    MdxFile* file = Mslock(handle);
    if (!file) return Pass("Mterase");
    return EraseTag(*file, tagName);
}

int32_t ZB_CALL ZBDMTUSE(int32_t* tag, uint16_t handle, const char* tagName) {
    if (!tag || !tagName) return Fail("Mopen", ErrNullPointer);
    return UseTag(tag, handle,
                  [&](const MdxFile& file) { return GoodName(tagName) ? FindTag(file, tagName, 1) : -1; });
}

// Number 0, the head of the list, gets as far as the checks of its header.
int32_t ZB_CALL ZBDMTUSEX(int32_t* tag, uint16_t handle, int16_t tagNumber) {
    if (!tag) return Fail("Mopen", ErrNullPointer);
    return UseTag(tag, handle, [&](const MdxFile& file) {
        return tagNumber >= 0 && tagNumber <= file.tagCount() ? tagNumber : -1;
    });
}

int32_t ZB_CALL ZBDMTCLOSE(int32_t handle) {
    MdxTag* tag = MslockTag(handle);
    if (!tag) return Pass("Mtclose");
    if (handle >> 16 > tag->file->tagCount()) return Fail("Mtclose", ErrTagHandle);
    MdxDetach(*tag);
    return CurrentCode();
}

int32_t ZB_CALL ZBDMTINFO(int32_t handle, ZbMdxTagInfo* info) {
    if (!info) return Fail("Mtinfo", ErrNullPointer);
    MdxTag* tag = MslockTag(handle);
    if (!tag) return Pass("Mtinfo");
    memcpy(info->name, tag->name, sizeof info->name);
    info->zero = 0;
    info->keyLength = tag->keyBytes;
    info->keyType = tag->keyType;
    info->options =
        static_cast<uint16_t>((tag->unique() ? 0x80 : 0) | (tag->tagFlags & MdxMarked ? 0x100 : 0));
    info->expressionLength = static_cast<uint16_t>(strlen(tag->expression));
    CopyExpression(info->expression, tag->expression);
    return CurrentCode();
}

int32_t ZB_CALL ZBDMTEXPR(int32_t handle, char* text) {
    if (!text) return Fail("Mtexpr", ErrNullPointer);
    MdxTag* tag = MslockTag(handle);
    if (!tag) return Pass("Mtexpr");
    strcpy(text, tag->expression);
    return CurrentCode();
}

int32_t ZB_CALL ZBDMTHGET(int32_t handle) {
    MdxTag* tag = MslockTag(handle);
    if (!tag) return Pass("Mthget");
    return Mhget(*tag) < 0 ? Pass("Mthget") : CurrentCode();
}
