// IDX files held byte by byte against a model that takes each step of an add or a
// delete on the bytes of the file, one after the other, without a thought for
// speed. What packed leaves come to by them is odd, and wanted.
#include <algorithm>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "support/support.h"

namespace test {
namespace {

constexpr uint32_t None = 0xFFFFFFFF;
constexpr size_t PageSize = 512;
constexpr size_t PackedAt = 24;

using Page = std::vector<int>;  // bytes; below 0 what nobody knows

// Thrown by what would leave a page.
struct Leaves {};

uint32_t Number(const Page& page, size_t at, int bytes, bool bigEndian) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; i++)
        value |= static_cast<uint32_t>(page.at(at + static_cast<size_t>(i)))
                 << 8 * (bigEndian ? bytes - 1 - i : i);
    return value;
}
uint32_t Le32(const Page& page, size_t at) { return Number(page, at, 4, false); }
uint32_t Be32(const Page& page, size_t at) { return Number(page, at, 4, true); }
int Le16(const Page& page, size_t at) { return static_cast<int>(Number(page, at, 2, false)); }

void Store(Page& page, size_t at, uint32_t value, int bytes, bool bigEndian = false) {
    for (int i = 0; i < bytes; i++)
        page.at(at + static_cast<size_t>(i)) =
            static_cast<uint8_t>(value >> 8 * (bigEndian ? bytes - 1 - i : i));
}

class Model {
  public:
    // Of a new file. `fill` stands for what packed leaves don't store.
    Model(const Bytes& created, char fillByte)
        : fill(static_cast<uint8_t>(created[12]), fillByte),
          keyLength(fill.size()),
          compact(created[14] & 0x20),
          unique(created[14] & 1),
          mask(compact ? 0 : None) {
        for (char c : created) file.push_back(static_cast<uint8_t>(c));
        entrySize = keyLength + (compact ? 8 : 4);
        maxEntries = static_cast<int>(500 / entrySize);
    }

    Bytes Image() const { return Bytes(file.begin(), file.end()); }

    // The code that the library has to give.
    int Add(const Bytes& key, uint32_t record) {
        return Guarded([&] { return DoAdd(key, record); });
    }
    int Delete(const Bytes& key, uint32_t record) {
        return Guarded([&] { return DoDelete(key, record); });
    }

  private:
    struct Place {
        uint32_t page;
        int slot;
    };
    struct Shared {
        int dup, trail, stored;
    };
    // The way through a packed leaf.
    struct Reader {
        int entry, keys;
        uint32_t work = 0, record = 0;
        Shared shared{};
    };

    template <class Work>
    int Guarded(Work work) {
        root = Le32(file, 0);
        freeHead = Le32(file, 4);
        if (Le32(file, 8) != 0)
            length = Le32(file, 8);
        else
            length = static_cast<uint32_t>(file.size());
        held.clear();
        path.clear();
        try {
            return work();
        } catch (const Leaves&) {
            return ZB_ErrStructure;
        }
    }

    // Pages

    Page& Get(uint32_t page) {
        auto [at, fresh] = held.try_emplace(page);
        if (fresh) at->second.assign(file.begin() + page, file.begin() + page + PageSize);
        return at->second;
    }
    void Put(uint32_t page) {
        const Page& bytes = Get(page);
        std::copy(bytes.begin(), bytes.end(), file.begin() + page);
        held.erase(page);
    }
    uint32_t TakePage() {
        bool reused = freeHead != 0 && freeHead != None;
        uint32_t page = reused ? freeHead : length;
        if (!reused) {
            length += PageSize;
            file.resize(length);
            Store(file, 8, length, 4);
        }
        Page& bytes = Get(page);
        if (reused) freeHead = Le32(bytes, 0);
        Store(file, 4, freeHead, 4);
        bytes[1] = bytes[3] = 0;
        return page;
    }
    void GiveBack(uint32_t page) {
        Store(Get(page), 0, freeHead, 4);
        freeHead = page;
        Store(file, 4, page, 4);
        Put(page);
    }

    static bool IsLeaf(const Page& page) { return page[0] & 2; }
    bool IsPacked(const Page& page) const { return compact && IsLeaf(page); }
    static int Count(const Page& page) { return static_cast<int8_t>(page[2]); }
    static int LastSlot(const Page& page) { return std::max(Count(page) - 1, 0); }
    size_t At(int slot) const { return 12 + static_cast<size_t>(slot) * entrySize; }
    Bytes Key(const Page& page, int slot) const {
        auto at = page.begin() + static_cast<ptrdiff_t>(At(slot));
        return Bytes(at, at + static_cast<ptrdiff_t>(keyLength));
    }
    void SetKey(Page& page, int slot, const Bytes& key) {
        for (size_t i = 0; i < keyLength; i++) page.at(At(slot) + i) = static_cast<uint8_t>(key[i]);
    }
    uint32_t Record(const Page& page, int slot) const { return Be32(page, At(slot) + keyLength); }
    uint32_t Child(const Page& page, int slot) const { return Be32(page, At(slot) + entrySize - 4); }
    void SetChild(Page& page, int slot, uint32_t child) {
        Store(page, At(slot) + entrySize - 4, child, 4, true);
    }

    // Packed leaves

    static Reader Begin(const Page& page) { return {static_cast<int>(PackedAt) - page[23], PageSize}; }
    void Decode(const Page& page, Reader& reader) const {
        int bytes = page[23];
        reader.entry += bytes;
        if (reader.entry + bytes > static_cast<int>(PageSize)) throw Leaves();
        for (int i = 0; i < bytes; i++) {
            reader.work &= ~(0xFFu << 8 * i);
            reader.work |= static_cast<uint32_t>(page[static_cast<size_t>(reader.entry + i)]) << 8 * i;
        }
        reader.record = mask & reader.work;
        auto shift = [&](int bits) {
            reader.work = static_cast<uint32_t>(static_cast<int32_t>(reader.work) >> std::min(bits, 31));
            return static_cast<int>(reader.work & 0xFFFF);
        };
        reader.shared.dup = page[18] & shift(page[20]);
        reader.shared.trail = page[19] & shift(page[21]);
        reader.shared.stored = static_cast<int>(keyLength) - reader.shared.trail - reader.shared.dup;
        reader.keys -= reader.shared.stored;
    }
    Reader Entry(const Page& page, int slot) const {
        Reader reader = Begin(page);
        for (int i = 0; i <= slot; i++) Decode(page, reader);
        return reader;
    }
    Shared Compare(const Bytes& before, const Bytes& key) const {
        int size = static_cast<int>(keyLength), dup = 0, trail = 0;
        auto same = [&](int i) { return before[static_cast<size_t>(i)] == key[static_cast<size_t>(i)]; };
        while (dup < size && same(dup)) dup++;
        while (dup < size && trail < size && same(size - 1 - trail)) trail++;
        return {dup, trail, size - dup - trail};
    }
    void StorePacked(Page& page, int at, const Shared& shared, uint32_t record) const {
        auto shifted = [](uint64_t value, int bits) { return bits < 32 ? value << bits : 0; };
        uint64_t value = shifted(static_cast<uint64_t>(page[19] & shared.trail), page[21]);
        value |= static_cast<uint64_t>(page[18] & shared.dup);
        value = shifted(value, page[20]) | (mask & record);
        Store(page, static_cast<size_t>(at), static_cast<uint32_t>(value), page[23]);
    }

    // Searches

    int Deliver(const Page& page, int slot) {
        foundKey = IsPacked(page) ? fill : Key(page, slot);
        foundRecord = IsPacked(page) ? Entry(page, slot).record : Record(page, slot);
        return 0;
    }
    int ToEnd(bool last) {
        path.clear();
        for (uint32_t offset = root;; offset = Child(Get(offset), path.back().slot)) {
            const Page& page = Get(offset);
            if (Count(page) == 0 && path.empty()) return ZB_KeyEmpty;
            path.push_back({offset, last ? LastSlot(page) : 0});
            if (!IsLeaf(page)) continue;
            if (mask == 0) mask = Le32(page, 14);
            return Deliver(page, path.back().slot);
        }
    }
    int Step(int by) {
        for (;; path.pop_back()) {
            if (path.empty()) {
                ToEnd(by > 0);
                return ZB_KeyEnd;
            }
            path.back().slot += by;
            int slot = path.back().slot;
            if (slot >= 0 && (by < 0 || slot < Count(Get(path.back().page)))) break;
        }
        while (!IsLeaf(Get(path.back().page))) {
            uint32_t child = Child(Get(path.back().page), path.back().slot);
            path.push_back({child, by > 0 ? 0 : LastSlot(Get(child))});
        }
        return Deliver(Get(path.back().page), path.back().slot);
    }
    int Find(const Bytes& key, uint32_t record) {
        path = {{root, 0}};
        if (mask == 0) mask = Le32(Get(root), 14);
        if (Count(Get(root)) == 0) return ZB_KeyEmpty;
        for (;;) {
            auto& [offset, slot] = path.back();
            const Page& page = Get(offset);
            bool packed = IsPacked(page), leaf = IsLeaf(page);
            int order = key.compare(packed ? fill : Key(page, slot));
            if (order == 0 && !leaf) order = -1;
            if (order == 0) {
                Deliver(page, slot);
                if (unique || foundRecord == record) return 0;
                order = 1;
            }
            if (order > 0 && slot + 1 < Count(page)) {
                slot++;
            } else if (!leaf) {
                uint32_t child = Child(page, slot);
                path.push_back({child, 0});
            } else if (order > 0) {
                if (Step(1) == ZB_KeyEnd) return ZB_KeyNear;
            } else {
                return Step(-1) == ZB_KeyEnd ? ZB_KeyEnd : ZB_KeyNear;
            }
        }
    }

    // Adds

    int DoAdd(const Bytes& key, uint32_t record) {
        if (Find(key, record) == ZB_KeyNear && Step(1) == ZB_KeyEnd) path.back().slot++;
        pendingKey = key;
        pendingRecord = record;
        left = right = 0;
        split = updateParents = true;
        for (; !path.empty() && split; path.pop_back()) {
            Insert(path.back().page);
            pendingRecord = 0;
        }
        if (split) GrowRoot(record);
        return 0;
    }
    void GrowRoot(uint32_t record) {
        uint32_t offset = TakePage();
        Page& page = Get(offset);
        page[0] = 1;
        page[2] = 2;
        Store(page, 4, None, 4);
        Store(page, 8, None, 4);
        int slot = 0;
        for (uint32_t child : {left, right}) {
            const Page& half = Get(child);
            int last = Count(half) - 1;
            if (last < 0 || last > maxEntries || At(last) + keyLength > PageSize) throw Leaves();
            SetKey(page, slot, Key(half, last));
            SetChild(page, slot++, child);
        }
        if (compact) Store(page, At(1) + keyLength, record, 4);
        Put(offset);
        Store(file, 0, offset, 4);
    }
    void TellParents(const Bytes& key) {
        for (size_t level = path.size() - 1; level-- > 0;) {
            auto [offset, slot] = path[level];
            Page& page = Get(offset);
            if (slot >= Count(page)) continue;
            bool last = slot == Count(page) - 1;
            SetKey(page, slot, key);
            Put(offset);
            if (!last) break;
        }
    }
    void Insert(uint32_t offset) {
        split = false;
        Page& page = Get(offset);
        int slot = path.back().slot, count = Count(page);
        if (IsPacked(page)) {
            if (!InsertPacked(page)) return Split(offset);
        } else {
            if (count >= maxEntries) return Split(offset);
            auto at = [&](int i) { return page.begin() + static_cast<ptrdiff_t>(At(i)); };
            std::copy_backward(at(slot), at(count), at(count + 1));
            SetKey(page, slot, pendingKey);
            if (IsLeaf(page) || compact) Store(page, At(slot) + keyLength, pendingRecord, 4, true);
            if (!IsLeaf(page)) {
                SetChild(page, slot, left);
                SetChild(page, slot + 1, right);
            }
            page[2] = static_cast<uint8_t>(count + 1);
        }
        bool last = slot == Count(page) - 1;
        Put(offset);
        if (updateParents && last) TellParents(pendingKey);
    }
    // False when there is no room.
    bool InsertPacked(Page& page) {
        int slot = path.back().slot, count = Count(page), width = page[23];
        if (slot > count) throw Leaves();
        Reader reader = Entry(page, slot - 1);
        int entry = reader.entry + width, keys = reader.keys;
        Shared shared = Compare(fill, pendingKey), follower{};
        int growth = shared.stored;
        bool follows = slot < count;
        if (follows) {
            Decode(page, reader);
            follower = Compare(pendingKey, fill);
            growth += follower.stored - reader.shared.stored;
        }
        if (Le16(page, 12) < width + growth) return false;

        // The steps run on a copy with unknown bytes on both its sides.
        constexpr int Around = 4 * static_cast<int>(PageSize);
        Page area(Around, -1);
        area.insert(area.end(), page.begin(), page.end());
        area.resize(area.size() + Around, -1);
        const Page before = area;
        auto byte = [&](int at) -> int& {
            if (at < -Around || at >= Around) throw Leaves();
            return area[static_cast<size_t>(Around + at)];
        };
        if (growth < 0) throw Leaves();
        int bottom = static_cast<int>(PackedAt) + count * width + Le16(page, 12);
        for (int i = 0; i < growth; i++) byte(bottom - growth + i) = byte(bottom + i);
        for (int i = 0; i < (count - slot) * width; i++) byte(entry + width + i) = byte(entry + i);
        auto write = [&](const Bytes& key, const Shared& part, uint32_t record) {
            keys -= part.stored;
            for (int i = 0; i < part.stored; i++) {
                if (keys + i == 23) throw Leaves();  // the width that is needed now
                byte(keys + i) = static_cast<uint8_t>(key[static_cast<size_t>(part.dup + i)]);
            }
            Page inner(area.begin() + Around, area.begin() + Around + static_cast<int>(PageSize) + 8);
            StorePacked(inner, entry, part, record);
            std::copy(inner.begin(), inner.end(), area.begin() + Around);
            entry += width;
        };
        write(pendingKey, shared, pendingRecord);
        if (follows) write(fill, follower, reader.record);
        for (size_t i = 0; i < area.size(); i++) {
            bool inside = i >= Around && i < Around + PageSize;
            if (inside ? area[i] < 0 : area[i] != before[i]) throw Leaves();
        }
        std::copy_n(area.begin() + Around, PageSize, page.begin());
        Store(page, 12, static_cast<uint32_t>(Le16(page, 12) - width - growth), 2);
        page[2] = static_cast<uint8_t>(page[2] + 1);
        return true;
    }
    void Split(uint32_t offset) {
        uint32_t fresh = TakePage();
        Page& upper = Get(offset);
        Page& lower = Get(fresh);
        upper[0] &= ~1;
        lower[0] = upper[0];
        int& slot = path.back().slot;
        bool intoFresh;
        if (IsPacked(upper)) {
            intoFresh = SplitPacked(upper, lower, slot);
        } else {
            int half = maxEntries / 2, most = maxEntries - half;
            intoFresh = slot <= most;
            int from = intoFresh ? most : most + 1, copied = intoFresh ? half : half - 1;
            if (!intoFresh) slot -= most + 1;
            std::copy(upper.begin() + 12, upper.end(), lower.begin() + 12);
            std::copy_n(lower.begin() + static_cast<ptrdiff_t>(At(from)),
                        copied * static_cast<int>(entrySize), upper.begin() + 12);
            upper[2] = intoFresh ? half : half - 1;
            lower[2] = intoFresh ? most : most + 1;
        }
        uint32_t neighbour = Le32(upper, 4);
        if (neighbour == fresh) neighbour = None;
        Store(lower, 4, neighbour, 4);
        Store(lower, 8, offset, 4);
        Store(upper, 4, fresh, 4);
        Put(offset);
        if (neighbour != None) {
            Store(Get(neighbour), 8, fresh, 4);
            Put(neighbour);
        }
        Put(fresh);

        updateParents = false;
        Insert(intoFresh ? fresh : offset);
        left = fresh;
        right = offset;
        split = updateParents = true;
        if (!intoFresh && slot == Count(Get(offset)) - 1) {
            Deliver(Get(offset), slot);
            TellParents(foundKey);
        }
        slot = LastSlot(Get(fresh));
        Deliver(Get(fresh), slot);
        pendingKey = foundKey;
        pendingRecord = foundRecord;
    }
    bool SplitPacked(Page& old, Page& fresh, int& slot) {
        int count = Count(old), moved = count / 2, kept = count - moved, width = old[23];
        std::copy_n(old.begin(), PackedAt, fresh.begin());
        bool intoFresh = slot >= kept;
        if (intoFresh) slot -= kept;
        Reader reader = Entry(old, kept);
        int bottom = static_cast<int>(PackedAt) + count * width + Le16(old, 12), bytes = reader.keys - bottom;
        if (moved < 1 || bytes < 0 || reader.keys > static_cast<int>(PageSize)) throw Leaves();
        std::copy(old.begin() + bottom, old.begin() + reader.keys, fresh.end() - bytes);
        std::copy(old.begin() + static_cast<int>(PackedAt) + (kept + 1) * width,
                  old.begin() + static_cast<int>(PackedAt) + count * width,
                  fresh.begin() + static_cast<int>(PackedAt) + width);
        StorePacked(fresh, PackedAt, Compare(fill, fill), reader.record);
        fresh[2] = moved;
        Store(fresh, 12, static_cast<uint32_t>(488 - moved * width - bytes), 2);
        old[2] = kept;
        Store(old, 12, static_cast<uint32_t>(Le16(old, 12) + moved * width + reader.shared.stored + bytes),
              2);
        return intoFresh;
    }

    // Deletes

    int DoDelete(const Bytes& key, uint32_t record) {
        int code = Find(key, record);
        if (code == ZB_KeyNear || code == ZB_KeyEmpty) return code;
        for (bool emptied = true; emptied && !path.empty(); path.pop_back())
            emptied = Remove(path.back().page, path.back().slot);
        Page& page = Get(root);
        if (IsLeaf(page) || Count(page) > 1) return code;
        uint32_t old = root;
        EXPECT_EQ(1, Count(page));
        root = Child(page, 0);
        GiveBack(old);
        Get(root)[0] |= 1;
        Put(root);
        Store(file, 0, root, 4);
        return code;
    }
    bool Remove(uint32_t offset, int& slot) {
        Page& page = Get(offset);
        page[2] = static_cast<uint8_t>(page[2] - 1);
        int count = Count(page);
        auto at = [&](int i) { return page.begin() + static_cast<ptrdiff_t>(At(i)); };
        if (!IsPacked(page)) {
            if (slot < count)
                std::copy(at(slot + 1), at(count + 1), at(slot));
            else if (slot-- > 0 && IsLeaf(page))
                TellParents(Key(page, slot));
        }
        bool emptied = count == 0 && path.size() > 1;
        emptied ? GiveBack(offset) : Put(offset);
        return emptied;
    }

    Bytes fill;
    size_t keyLength, entrySize;
    int maxEntries;
    bool compact, unique;
    uint32_t mask;  // of the record numbers in packed leaves, once seen
    uint32_t root = 0, freeHead = 0, length = 0;
    Page file;
    std::map<uint32_t, Page> held;
    std::vector<Place> path;
    Bytes foundKey, pendingKey;
    uint32_t foundRecord = 0, pendingRecord = 0, left = 0, right = 0;
    bool split = false, updateParents = false;
};

class IdxModel : public LibraryTest {
  protected:
    // Keys that share beginnings and ends with the fill bytes and each other, some
    // of them fill bytes alone, some below.
    Bytes RandomKey(size_t length, bool compact) {
        Bytes key(length, ' ');
        unsigned kind = compact ? random() % 20 : 19;
        if (kind < 5) return key;
        if (kind < 9) {
            for (unsigned n = 1 + random() % 4; n > 0; n--)
                key[random() % length] = static_cast<char>(random() % 40);
            return key;
        }
        size_t letters = random() % 3 ? 1 + random() % 2 : length;
        for (size_t i = 0; i < std::min(letters, length); i++) key[i] = static_cast<char>('A' + random() % 5);
        if (random() % 3 == 0) key[random() % length] = static_cast<char>(random());
        return key;
    }

    void Run(unsigned seed) {
        random.seed(seed);
        const int lengths[] = {1, 2, 3, 5, 8, 10, 31, 32, 50, 100, 100, 100};
        int length = lengths[random() % std::size(lengths)];
        bool compact = random() % 5 < 3;
        unsigned type = 'C';
        if (compact) type |= ZB_IdxCompact;
        if (random() % 3 == 0) type |= ZB_IdxUnique;
        char expression[] = "NAME";
        ASSERT_EQ(0,
                  ZBDICREATE("a.idx", static_cast<uint16_t>(type), expression, static_cast<int16_t>(length)));
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        auto index = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDIKTYPE(index, 'C'));
        Model model(ReadFile("a.idx"), ' ');
        std::vector<std::pair<Bytes, uint32_t>> added;
        unsigned adds = 50 + random() % 45;
        const unsigned steps[] = {30, 60, 200};
        for (unsigned step = 0, end = steps[random() % 3]; step < end; step++) {
            bool add = added.empty() || random() % 100 < adds;
            Bytes key = RandomKey(static_cast<size_t>(length), compact);
            uint32_t record = random() % 2 ? random() % (1 << 20) : random() % 4;
            if (add) {
                added.push_back({key, record});
            } else if (random() % 4) {
                std::swap(added[random() % added.size()], added.back());
                std::tie(key, record) = added.back();
                added.pop_back();
            }
            int expected = add ? model.Add(key, record) : model.Delete(key, record);
            int code = add ? ZBDIKADD(index, key.data(), record) : ZBDIKDEL(index, key.data(), record);
            ASSERT_EQ(expected, code) << "seed " << seed << ", step " << step;
            ASSERT_TRUE(model.Image() == ReadFile("a.idx")) << "seed " << seed << ", step " << step;
            ZBESCODE(0);
            refused += code < 0;
            if (code < 0 && random() % 2) break;
        }
        ASSERT_EQ(0, ZBDICLOSE(index));
    }

    std::mt19937 random;
    int refused = 0;
};

TEST_F(IdxModel, EveryByteIsWhatThePlainStepsGive) {
    unsigned seed = 1;
    for (; seed <= 60 && !HasFatalFailure(); seed++) Run(seed);
    EXPECT_GT(refused, 5);
}

}  // namespace
}  // namespace test
