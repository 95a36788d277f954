// Adding and deleting keys of IDX indexes.
#include <algorithm>
#include <random>

#include "support/idx.h"

namespace test {
namespace {

class IdxChange : public LibraryTest {
  protected:
    void Create(int keyLength, uint16_t type = 'C') {
        char expression[] = "NAME";
        ASSERT_EQ(0, ZBDICREATE("a.idx", type, expression, static_cast<int16_t>(keyLength)));
        Open();
        ASSERT_EQ(0, ZBDIKTYPE(index, static_cast<int16_t>(type & 0x7F)));
    }
    void Open() {
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        index = static_cast<int16_t>(handle);
    }
    int32_t Add(const Bytes& key, uint32_t number) { return ZBDIKADD(index, key.data(), number); }
    int32_t Delete(const Bytes& key, uint32_t number) { return ZBDIKDEL(index, key.data(), number); }
    int32_t Find(const Bytes& key, uint32_t number, int16_t mode = 2) {
        memset(text, 0, sizeof text);
        memcpy(text, key.data(), key.size());
        record = number;
        return ZBDIKFIND(index, text, &record, mode);
    }

    int16_t index = -1;
    char text[128] = {};
    uint32_t record = 0;
};

Bytes Padded(const std::string& key, size_t length) { return key + Fill(length - key.size(), ' '); }

Bytes Number(uint32_t value, size_t length) {
    char digits[16];
    snprintf(digits, sizeof digits, "%08u", value);
    return Padded(digits, length);
}

// A model of an index: entries in key order, equal keys in order of arrival.
class Model {
  public:
    void Add(const Bytes& key, uint32_t record) {
        auto at = std::upper_bound(entries.begin(), entries.end(), key,
                                   [](const Bytes& k, const IdxEntry& e) { return k < e.key; });
        entries.insert(at, {key, record});
    }
    void Delete(size_t i) { entries.erase(entries.begin() + static_cast<ptrdiff_t>(i)); }
    std::vector<IdxEntry> entries;
};

TEST_F(IdxChange, RandomAddsAndDeletesCheckedAfterEveryStep) {
    for (unsigned seed = 1; seed <= 3; seed++) {
        SCOPED_TRACE(seed);
        Create(100);
        std::mt19937 random(seed);
        Model model;
        uint32_t next = 1;
        bool growing = true;
        for (int step = 0; step < 700; step++) {
            if (model.entries.size() > 110) growing = false;
            if (model.entries.size() < 3) growing = true;
            if (model.entries.empty() || random() % 10 < (growing ? 7 : 3)) {
                Bytes key = Number(random() % 60, 100);
                ASSERT_EQ(0, Add(key, next));
                model.Add(key, next++);
            } else {
                size_t i = random() % model.entries.size();
                ASSERT_EQ(0, Delete(model.entries[i].key, model.entries[i].record));
                model.Delete(i);
            }
            IdxImage image("a.idx");
            auto found = image.Walk();
            ASSERT_EQ("", image.fault) << "step " << step;
            ASSERT_TRUE(found == model.entries) << "step " << step;
        }
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
}

TEST_F(IdxChange, RandomStepsOverALongTimeLoseNoKey) {
#ifdef NDEBUG
    constexpr int steps = 200000;
#else
    constexpr int steps = 4000;
#endif
    for (int keyLength : {8, 10, 100}) {
        SCOPED_TRACE(keyLength);
        Create(keyLength);
        std::mt19937 random(static_cast<unsigned>(keyLength));
        Model model;
        uint32_t next = 1;
        uint32_t universe = 1000000;
        unsigned adds = 65;
        for (int step = 0; step < steps; step++) {
            if (step % 2000 == 0) {
                universe = random() % 3 ? 1000000 : 50;
                adds = 35 + random() % 35;
                if (model.entries.size() > 6000) adds = 35;
            }
            unsigned choice = random() % 100;
            if (model.entries.empty() || choice < adds) {
                Bytes key = Number(random() % universe, static_cast<size_t>(keyLength));
                ASSERT_EQ(0, Add(key, next));
                model.Add(key, next++);
            } else {
                size_t i = random() % model.entries.size();
                ASSERT_EQ(0, Delete(model.entries[i].key, model.entries[i].record)) << "step " << step;
                model.Delete(i);
            }
            if (!model.entries.empty()) {
                const IdxEntry& entry = model.entries[random() % model.entries.size()];
                ASSERT_EQ(0, Find(entry.key, entry.record)) << "step " << step;
                ASSERT_EQ(entry.record, record);
            }
            if (step % 1000 == 999) {
                IdxImage image("a.idx");
                auto found = image.Walk();
                ASSERT_EQ("", image.fault) << "step " << step;
                ASSERT_TRUE(found == model.entries) << "step " << step;
            }
        }
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
}

}  // namespace
}  // namespace test
