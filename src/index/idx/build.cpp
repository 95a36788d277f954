// IDX indexes built from a whole data file.
#include "index/build.h"

#include <algorithm>
#include <cstring>

#include "core/ascii.h"
#include "core/number.h"
#include "dates/dates.h"
#include "index/frame.h"
#include "index/idx/idx.h"

namespace zb {
namespace {

class IdxBuild {
  public:
    static constexpr int Step = 1024;
    static constexpr int Floor = 4096;
    static constexpr char Unit[] = "Iindex";
    static constexpr bool RereadsCount = false;
    static constexpr bool IgnoresClose = true;
    static constexpr bool KeepsIndexOnFailure = false;

    const char* name;
    char* expression;
    uint16_t typeWord;
    int16_t keyBytes;

    Code Create() { return static_cast<Code>(ZBDICREATE(name, typeWord, expression, keyBytes)); }
    Code Open() {
        uint16_t opened;
        if (ZBDIOPENX(&opened, name, 0) < 0) return CurrentCode();
        handle = static_cast<int16_t>(opened);
        ZBDIKTYPE(handle, typeWord & 0x7F);
        AsciiUpper(expression);
        held = build::Held::Now(handle);
        index = Islock(handle);
        return index ? SetCode(0) : CurrentCode();
    }
    Code Close() { return held.Stands() ? static_cast<Code>(ZBDICLOSE(handle)) : CurrentCode(); }
    void GiveUp() {
        if (!Bound()) return;
        Hclose(index->handle);
        ReleaseIndex(*index, handle);
    }
    int keyLength() const { return index->keyLength(); }
    bool Collates() const { return false; }

    Code CheckField(const Field&) const { return CurrentCode(); }
    // A text is taken with what follows it in the record buffer where the key is
    // longer. Fields of other types give no bytes: their keys are zeros.
    Code FieldKey(const Field& field, const uint8_t* bytes, uint8_t* key) const {
        uint8_t number[8];
        switch (field.type) {
            case 'C': memcpy(key, bytes, static_cast<size_t>(keyLength())); return CurrentCode();
            case 'D': {
                char text[9] = {};
                memcpy(text, bytes, std::min<size_t>(field.width, 8));
                int16_t year, month, day;
                if (ZBCDS2I(&year, &month, &day, text, StyleYmd) < 0) return CurrentCode();
                StoreBe64(number, SortableDouble(DayCount(year, month, day)));
                break;
            }
            case 'N':
                StoreBe64(number,
                          SortableDouble(ScanDouble(reinterpret_cast<const char*>(bytes), field.width)));
                break;
            default: return CurrentCode();
        }
        memcpy(key, number, static_cast<size_t>(std::min(8, keyLength())));
        return CurrentCode();
    }
    Code MakeKey(int16_t data, uint8_t* key) const {
        void* made;
        if (ZBDIKMAKE(data, handle, &made) < 0) return CurrentCode();
        if (!Bound()) {
            ZBMFREE(made);
            return CurrentCode();
        }
        memcpy(key, made, static_cast<size_t>(keyLength()));
        return static_cast<Code>(ZBMFREE(made));
    }

    Code Begin() {
        if (Iindexinit(0) < 0) return CurrentCode();
        levels[0].page = index->rootPage;
        IdxPage leaf = PageOf(0);
        leaf.setAttributes(IdxRoot | IdxLeaf);
        if (!index->compact()) return CurrentCode();
        IdxPage empty;
        if (Ipget(*index, index->rootPage, &empty) < 0) return CurrentCode();
        memcpy(leaf.data, empty.data, IdxPackedAt);
        index->recordMask = leaf.recordMask();
        Ipforget(*index);
        StartPacked();
        return CurrentCode();
    }
    Code Take(const uint8_t* item) { return index->compact() ? TakePacked(item) : TakeWhole(item); }
    Code Finish() {
        // The key of the standard form is what the slot behind the last entry of
        // the last leaf held before, or zeros: no search of ours looks at it.
        KeyBuffer last;
        IdxPage leaf = PageOf(0);
        memcpy(last, index->compact() ? lastRecord : leaf.key(leaf.count()),
               static_cast<size_t>(keyLength() + 4));
        for (int level = 0; level < index->position.levels && levels[level].begun(); level++) {
            IdxPage page = PageOf(level);
            if (level > 0) Append(page, last, index->rootPage);
            if (WritePage(level) < 0) return CurrentCode();
            index->rootPage = levels[level].page;
        }
        index->headerDirty = true;
        if (writer.Flush(index->handle) < 0) return CurrentCode();
        // The close writes it again. But a build doesn't tell when its close fails,
        // and with the header of the creation the index would have lost most keys.
        return IdxWriteHeader(*index);
    }
    void Release() {
        for (BuildLevel& level : levels) level.image.Free();
    }

  private:
    int16_t handle;
    build::Held held;
    IdxFile* index;
    BuildLevel levels[MaxLevels];
    PageWriter writer;
    KeyBuffer lastRecord;  // compact form: the last sort record written
    int keyCursor;         // compact form: where its stored bytes begin

    // A host function may have closed the index, and opened another in its place.
    bool Bound() const { return build::StillBound(Unit, held, index, Islock(handle)) >= 0; }

    IdxPage PageOf(int level) const { return {levels[level].image.data, index, levels[level].page}; }

    Code WritePage(int level) {
        return writer.Write(index->handle, levels[level].page, levels[level].image.data, IdxPageSize);
    }

    // Takes the next page at the end of the file.
    Code ExtendFile(uint32_t* page) {
        if (index->fileLength > INT32_MAX - IdxPageSize) return Fail(Unit, ErrSeek);
        *page = static_cast<uint32_t>(index->fileLength);
        index->fileLength += IdxPageSize;
        index->fileEnd = static_cast<uint32_t>(index->fileLength);
        return CurrentCode();
    }

    // Writes a level's full page and begins the next one, both linked.
    Code NextPage(int level, int attributes) {
        IdxPage page = PageOf(level);
        uint32_t next;
        if (ExtendFile(&next) < 0) return CurrentCode();
        page.setRight(next);
        page.setAttributes(attributes);
        if (WritePage(level) < 0) return CurrentCode();
        page.setCount(0);
        page.setLeft(page.offset);
        page.setRight(IdxNone);
        levels[level].page = next;
        return CurrentCode();
    }

    void StartPacked() {
        PageOf(0).setFreeSpace(IdxEmptyLeafSpace);
        keyCursor = IdxPageSize;
        memset(lastRecord, index->fillByte, static_cast<size_t>(keyLength()));
    }

    Code TakeWhole(const uint8_t* item) {
        IdxPage leaf = PageOf(0);
        if (leaf.count() == index->maxEntries) {
            if (Iindexup(leaf.entry(leaf.count() - 1), leaf.offset, 1) < 0) return CurrentCode();
            if (NextPage(0, IdxLeaf) < 0) return CurrentCode();
        }
        memcpy(leaf.entry(leaf.count()), item, static_cast<size_t>(keyLength() + 4));
        leaf.setCount(leaf.count() + 1);
        return CurrentCode();
    }

    // A leaf closes when the next entry wouldn't fit. Its count can pass 127,
    // which those who read it take for a negative one.
    Code TakePacked(const uint8_t* item) {
        IdxPage leaf = PageOf(0);
        int entryBytes = leaf.entryBytes();
        IdxShared shared = Ikdiff(lastRecord, item, keyLength());
        if (leaf.freeSpace() < entryBytes + shared.storedCount) {
            if (Iindexup(lastRecord, leaf.offset, 1) < 0) return CurrentCode();
            if (NextPage(0, IdxLeaf) < 0) return CurrentCode();
            StartPacked();
            shared = Ikdiff(lastRecord, item, keyLength());
        }
        uint32_t record = LoadBe32(item + keyLength());
        IdxStorePacked(leaf.data + IdxPackedAt + leaf.data[2] * entryBytes, Ikpack(leaf, shared, record),
                       entryBytes);
        keyCursor -= shared.storedCount;
        memcpy(leaf.data + keyCursor, item + shared.dupCount, static_cast<size_t>(shared.storedCount));
        leaf.setFreeSpace(leaf.freeSpace() - entryBytes - shared.storedCount);
        leaf.setCount(leaf.count() + 1);
        memcpy(lastRecord, item, static_cast<size_t>(keyLength() + 4));
        return CurrentCode();
    }

    Code Iindexinit(int level) {
        levels[level].used = 0;
        if (levels[level].image.Alloc(IdxPageSize + PagePool::Margin) < 0) return CurrentCode();
        IdxPage page = PageOf(level);
        page.setAttributes(IdxRoot);
        page.setLeft(IdxNone);
        page.setRight(IdxNone);
        return CurrentCode();
    }

    void Append(const IdxPage& page, const uint8_t* keyRecord, uint32_t child) const {
        int slot = page.count();
        int bytes = keyLength() + (index->compact() ? 4 : 0);
        memcpy(page.key(slot), keyRecord, static_cast<size_t>(bytes));
        page.setChild(slot, child);
        page.setCount(slot + 1);
    }

    // Adds an entry to a level above the leaves. The entry that fills a page
    // rises with it, being its highest.
    Code Iindexup(const uint8_t* keyRecord, uint32_t child, int at) {
        if (at >= index->position.levels) return Fail("Iindexup", ErrStructure);
        BuildLevel& level = levels[at];
        if (!level.begun())
            if (Iindexinit(at) < 0 || ExtendFile(&level.page) < 0) return Pass("Iindexup");
        Append(PageOf(at), keyRecord, child);
        if (++level.used < index->maxEntries) return CurrentCode();
        uint32_t full = level.page;
        level.used = 0;
        if (NextPage(at, 0) < 0 || Iindexup(keyRecord, full, at + 1) < 0) return Pass("Iindexup");
        return CurrentCode();
    }
};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDIINDEX(int16_t data, const char* name, uint16_t typeWord, char* expression,
                          int16_t keyLength) {
    IdxBuild build{};
    build.name = name;
    build.expression = expression;
    build.typeWord = typeWord;
    build.keyBytes = keyLength;
    Code code = BuildIndex(build, data);
    build.Release();
    return code;
}
