// NDX indexes built from a whole data file.
#include "index/build.h"

#include <algorithm>
#include <cstring>

#include "core/number.h"
#include "expr/expr.h"
#include "index/frame.h"
#include "index/ndx/ndx.h"

namespace zb {
namespace {

class NdxBuild {
  public:
    static constexpr int Step = 512;
    static constexpr int Floor = 2048;
    static constexpr char Unit[] = "Nindex";
    static constexpr bool RereadsCount = true;
    static constexpr bool IgnoresClose = false;
    static constexpr bool KeepsIndexOnFailure = true;

    const char* name;
    char* expression;
    int16_t keyType;
    int16_t keyBytes;

    Code Create() { return static_cast<Code>(ZBDNCREATE(name, keyType, expression, keyBytes)); }
    Code Open() {
        uint16_t opened;
        if (ZBDNOPENX(&opened, name, 0) < 0) return CurrentCode();
        handle = static_cast<int16_t>(opened);
        held = build::Held::Now(handle);
        index = Nslock(handle);
        return index ? SetCode(0) : CurrentCode();
    }
    Code Close() { return held.Stands() ? static_cast<Code>(ZBDNCLOSE(handle)) : CurrentCode(); }
    void GiveUp() {
        if (!Bound()) return;
        Hclose(index->handle);
        ReleaseIndex(*index, handle);
    }
    int keyLength() const { return index->keyLength(); }
    bool Collates() const { return index->keyType == NdxCharacter && !library.asciiSort; }

    Code CheckField(const Field& field) const {
        return field.type == 'C' || field.type == 'D' || field.type == 'N' ? CurrentCode()
                                                                           : Fail(Unit, ErrExpression);
    }
    Code FieldKey(const Field& field, const uint8_t* bytes, uint8_t* key) const {
        auto* text = reinterpret_cast<const char*>(bytes);
        if (field.type == 'C') {
            SortForm(bytes, field.width, key);
            return CurrentCode();
        }
        uint8_t number[8];
        if (field.type == 'N') {
            StoreLeDouble(number, ScanDouble(text, field.width));
        } else {
            char date[9] = {};
            memcpy(date, text, std::min<size_t>(field.width, 8));
            if (ZBDNKDATE(number, date, 4) < 0) return CurrentCode();
        }
        SortForm(number, 8, key);
        return CurrentCode();
    }
    Code MakeKey(int16_t data, uint8_t* key) const {
        void* made;
        if (ZBDNKMAKE(data, handle, &made) < 0) return CurrentCode();
        if (!Bound()) {
            ZBMFREE(made);
            return CurrentCode();
        }
        auto* bytes = static_cast<uint8_t*>(made);
        size_t length = 8;
        if (evalState.ResultType == 'C')
            length = strnlen(static_cast<char*>(made), static_cast<size_t>(keyLength()));
        SortForm(bytes, static_cast<int>(length), key);
        return static_cast<Code>(ZBMFREE(made));
    }

    Code Begin() {
        levels[0].page = index->rootPage;
        return Nbuildpage(0);
    }
    Code Take(const uint8_t* item) {
        NdxPage leaf = PageOf(0);
        if (leaf.count() == index->keysPerPage) {
            if (Nbuildadd(leaf.key(leaf.count() - 1), levels[0].page, 1) < 0) return CurrentCode();
            if (WritePage(0) < 0) return CurrentCode();
            leaf.setCount(0);
            levels[0].page = index->pageCount++;
        }
        int slot = leaf.count();
        if (index->keyType == NdxNumeric)
            StoreLeDouble(leaf.key(slot), DoubleOfSortable(LoadBe64(item)));
        else
            memcpy(leaf.key(slot), item, static_cast<size_t>(keyLength()));
        leaf.setRecord(slot, LoadBe32(item + keyLength()));
        leaf.setCount(slot + 1);
        return CurrentCode();
    }
    Code Finish() {
        uint32_t below = 0;
        for (int level = 0; level < index->position.levels && levels[level].begun(); level++) {
            NdxPage page = PageOf(level);
            page.setChild(page.count(), below);
            if (WritePage(level) < 0) return CurrentCode();
            below = index->rootPage = levels[level].page;
        }
        index->headerDirty = true;
        return writer.Flush(index->handle);
    }
    void Release() {
        for (BuildLevel& level : levels) level.image.Free();
    }

  private:
    int16_t handle;
    build::Held held;
    NdxFile* index;
    BuildLevel levels[MaxLevels];
    PageWriter writer;

    // A host function may have closed the index, and opened another in its place.
    bool Bound() const { return build::StillBound(Unit, held, index, Nslock(handle)) >= 0; }

    NdxPage PageOf(int level) const {
        return {levels[level].image.data, index->entrySize, levels[level].page};
    }

    Code WritePage(int level) {
        return writer.Write(index->handle, int64_t{levels[level].page} * NdxPageSize,
                            levels[level].image.data, NdxPageSize);
    }

    // Bytes as they would be stored, cut or filled with blanks to the key's
    // length; a number in the form that sorts.
    void SortForm(const uint8_t* bytes, int length, uint8_t* key) const {
        int keyRoom = keyLength();
        int copied = std::min(length, keyRoom);
        memcpy(key, bytes, static_cast<size_t>(copied));
        memset(key + copied, ' ', static_cast<size_t>(keyRoom - copied));
        if (index->keyType == NdxNumeric) StoreBe64(key, SortableDouble(LoadLeDouble(key)));
    }

    Code Nbuildpage(int level) {
        levels[level].used = 0;
        return levels[level].image.Alloc(NdxPageSize + PagePool::Margin);
    }

    // Adds a separator to a level above the leaves. A page fills completely: the
    // key that would be one too many rises instead, and its child becomes the
    // page's final one.
    Code Nbuildadd(const uint8_t* key, uint32_t child, int at) {
        if (at >= index->position.levels) return Fail("Nbuildadd", ErrStructure);
        BuildLevel& level = levels[at];
        if (!level.begun()) {
            if (Nbuildpage(at) < 0) return Pass("Nbuildadd");
            level.page = index->pageCount++;
        }
        NdxPage page = PageOf(at);
        if (level.used == index->keysPerPage) {
            page.setChild(page.count(), child);
            if (WritePage(at) < 0 || Nbuildadd(key, level.page, at + 1) < 0) return Pass("Nbuildadd");
            level.page = index->pageCount++;
            page.setCount(0);
            level.used = 0;
            return CurrentCode();
        }
        page.setChild(page.count(), child);
        memcpy(page.key(page.count()), key, static_cast<size_t>(keyLength()));
        page.setCount(page.count() + 1);
        level.used++;
        return CurrentCode();
    }
};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDNINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                          int16_t keyLength) {
    NdxBuild build{};
    build.name = name;
    build.expression = expression;
    build.keyType = keyType;
    build.keyBytes = keyLength;
    Code code = BuildIndex(build, data);
    build.Release();
    return code;
}
