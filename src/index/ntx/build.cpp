// NTX indexes built from a whole data file.
#include "index/build.h"

#include <algorithm>
#include <cstring>

#include "core/ascii.h"
#include "core/number.h"
#include "expr/expr.h"
#include "index/frame.h"
#include "index/ntx/ntx.h"

namespace zb {
namespace {

class NtxBuild {
  public:
    static constexpr int Step = 1024;
    static constexpr int Floor = 4096;
    static constexpr char Unit[] = "Cindex";
    static constexpr bool RereadsCount = false;
    static constexpr bool IgnoresClose = true;
    static constexpr bool KeepsIndexOnFailure = false;

    const char* name;
    char* expression;
    int16_t keyType;
    int16_t keyBytes;
    int16_t decimals;

    Code Create() { return static_cast<Code>(ZBDCCREATE(name, keyType, expression, keyBytes, decimals)); }
    Code Open() {
        uint16_t opened;
        if (ZBDCOPENX(&opened, name, 0) < 0) return CurrentCode();
        handle = static_cast<int16_t>(opened);
        held = build::Held::Now(handle);
        index = Cslock(handle);
        if (!index) return CurrentCode();
        AsciiUpper(expression);
        return SetCode(0);
    }
    Code Close() { return held.Stands() ? static_cast<Code>(ZBDCCLOSE(handle)) : CurrentCode(); }
    void GiveUp() {
        if (!Bound()) return;
        Hclose(index->handle);
        ReleaseIndex(*index, handle);
    }
    int keyLength() const { return index->keyLength(); }
    bool Collates() const { return false; }

    Code CheckField(const Field&) const { return CurrentCode(); }

    // A text or a date gives its key's length of bytes as they stand in the
    // record, beyond the field where that is shorter; a field that is neither
    // those nor a number leaves the sort record as it was.
    Code FieldKey(const Field& field, const uint8_t* bytes, uint8_t* key) const {
        auto length = static_cast<size_t>(keyLength());
        if (field.type == 'C' || field.type == 'D') memcpy(key, bytes, length);
        if (field.type != 'N') return CurrentCode();
        if (field.width == length && field.decimals == index->decimals) {
            memcpy(key, bytes, length);
            for (size_t i = 0; i < length && key[i] == ' '; i++) key[i] = '0';
        } else {
            char text[MaxKeyLength + 12];
            double value = ScanDouble(reinterpret_cast<const char*>(bytes), field.width);
            if (!NtxNumberText(text, value, keyLength(), index->decimals)) return Fail(Unit, ErrExpression);
            memcpy(key, text, length);
        }
        ComplementNegative(key, length);
        return CurrentCode();
    }
    Code MakeKey(int16_t data, uint8_t* key) const {
        void* made;
        if (ZBDCKMAKE(data, handle, &made) < 0) return CurrentCode();
        if (!Bound()) {
            ZBMFREE(made);
            return CurrentCode();
        }
        KeyBuffer stored;
        NtxStoredKey(*index, static_cast<uint8_t*>(made), stored);
        memcpy(key, stored, static_cast<size_t>(keyLength()));
        return static_cast<Code>(ZBMFREE(made));
    }

    Code Begin() {
        levels[0].page = index->rootPage;
        return Cindexinit(0);
    }

    // A key that meets a full leaf rises above it.
    Code Take(const uint8_t* item) {
        NtxPage leaf = PageOf(0);
        int slot = leaf.count();
        if (slot == index->maxKeys) {
            if (Cindexup(item, levels[0].page, 1) < 0 || WritePage(0) < 0) return CurrentCode();
            leaf.setCount(0);
            levels[0].page = NextPage();
            return CurrentCode();
        }
        PutItem(leaf, slot, item, 0);
        return CurrentCode();
    }
    Code Finish() {
        uint32_t below = 0;
        for (int level = 0; level < index->position.levels && levels[level].begun(); level++) {
            NtxPage page = PageOf(level);
            page.setChild(page.count(), below);
            if (WritePage(level) < 0) return CurrentCode();
            below = index->rootPage = levels[level].page;
        }
        index->headerDirty = true;
        if (writer.Flush(index->handle) < 0) return CurrentCode();
        // The close writes it again. But a build doesn't tell when its close fails,
        // and with the root of the creation the index would have lost most keys.
        return NtxWriteRoot(*index);
    }
    void Release() {
        for (BuildLevel& level : levels) level.image.Free();
    }

  private:
    int16_t handle;
    build::Held held;
    NtxFile* index;
    BuildLevel levels[MaxLevels];
    PageWriter writer;

    // A host function may have closed the index, and opened another in its place.
    bool Bound() const { return build::StillBound(Unit, held, index, Cslock(handle)) >= 0; }

    NtxPage PageOf(int level) const {
        return {levels[level].image.data, levels[level].page, index->itemSize(), index->maxKeys};
    }

    Code WritePage(int level) {
        return writer.Write(index->handle, levels[level].page, levels[level].image.data, NtxPageSize);
    }

    uint32_t NextPage() {
        uint32_t page = index->fileLength;
        index->fileLength += NtxPageSize;
        return page;
    }

    // The third form of a negative number: complemented like those of ZBDCKNUM,
    // but with whatever stands before the minus sign pushed out, and the
    // complements of zero bytes filling up behind.
    static void ComplementNegative(uint8_t* key, size_t length) {
        auto* minus = static_cast<uint8_t*>(memchr(key, '-', length));
        if (!minus) return;
        size_t digits = static_cast<size_t>(key + length - minus) - 1;
        for (size_t i = 0; i < length; i++) key[i] = NtxComplement(i < digits ? minus[i + 1] : uint8_t{0});
    }

    void PutItem(NtxPage& page, int slot, const uint8_t* item, uint32_t child) const {
        page.setChild(slot, child);
        page.setRecord(slot, LoadBe32(item + keyLength()));
        memcpy(page.key(slot), item, static_cast<size_t>(keyLength()));
        page.setCount(slot + 1);
    }

    Code Cindexinit(int level) {
        levels[level].used = 0;
        if (levels[level].image.Alloc(NtxPageSize + PagePool::Margin) < 0) return Pass("Cindexinit");
        PageOf(level).Format();
        return CurrentCode();
    }

    // Adds a key to a level above the leaves. A page fills completely: the key
    // that would be one too many rises again, and its child becomes the page's
    // last one.
    Code Cindexup(const uint8_t* item, uint32_t child, int at) {
        if (at >= index->position.levels) return Fail("Cindexup", ErrStructure);
        BuildLevel& level = levels[at];
        if (!level.begun()) {
            if (Cindexinit(at) < 0) return Pass("Cindexup");
            level.page = NextPage();
        }
        NtxPage page = PageOf(at);
        if (level.used < index->maxKeys) {
            PutItem(page, page.count(), item, child);
            level.used++;
            return CurrentCode();
        }
        page.setChild(page.count(), child);
        if (WritePage(at) < 0 || Cindexup(item, level.page, at + 1) < 0) return Pass("Cindexup");
        level.page = NextPage();
        page.setCount(0);
        level.used = 0;
        return CurrentCode();
    }
};

}  // namespace
}  // namespace zb

using namespace zb;

int32_t ZB_CALL ZBDCINDEX(int16_t data, const char* name, int16_t keyType, char* expression,
                          int16_t keyLength, int16_t decimals) {
    NtxBuild build{};
    build.name = name;
    build.expression = expression;
    build.keyType = keyType;
    build.keyBytes = keyLength;
    build.decimals = decimals;
    Code code = BuildIndex(build, data);
    build.Release();
    return code;
}
