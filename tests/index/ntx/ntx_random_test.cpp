// NTX trees under random changes, held against a plain model, with a check of
// the whole structure after each of them.
#include <algorithm>
#include <random>

#include "pages/pages.h"
#include "support/ntx.h"

namespace test {
namespace {

using Entry = NtxIndex::Entry;

struct Shape {
    int length;
    int keys;     // different keys
    int records;  // different record numbers
    int steps;
    int checkEvery;
};

// Equal keys in the order of their arrival.
class Model {
  public:
    bool Has(const Entry& entry) const { return Place(entry) != entries.end(); }
    void Add(const Entry& entry) { entries.insert(Behind(entry.first), entry); }
    void Delete(const Entry& entry) { entries.erase(Place(entry)); }
    // Where the search for a pair that isn't there ends.
    const Entry& Before(const Entry& entry) const {
        auto place = std::upper_bound(entries.begin(), entries.end(), entry, KeyLess);
        return place == entries.begin() ? entries.front() : *(place - 1);
    }
    std::vector<Entry> entries;

  private:
    static bool KeyLess(const Entry& a, const Entry& b) { return a.first < b.first; }
    std::vector<Entry>::const_iterator Place(const Entry& entry) const {
        return std::find(entries.begin(), entries.end(), entry);
    }
    std::vector<Entry>::iterator Behind(const Bytes& key) {
        return std::upper_bound(entries.begin(), entries.end(), Entry(key, 0), KeyLess);
    }
};

class NtxTrees : public LibraryTest {
  protected:
    NtxIndex index;
    Model model;
    int deepest = 0;

    static Bytes Wide(uint32_t number) {
        Bytes key = std::to_string(number);
        return key + Fill(100 - key.size(), ' ');
    }

    static Bytes Key(const Shape& shape, unsigned number) {
        auto length = static_cast<size_t>(shape.length);
        if (length == 1) return Bytes(1, static_cast<char>('!' + number % 90));
        char text[16];
        snprintf(text, sizeof text, "K%07u", number * 7919 % 1000003);
        Bytes key = text;
        key.resize(length, ' ');
        return key;
    }

    // The file holds what the model holds, and every rule of the format: also that
    // no page but the root is less than half full.
    void CheckFile(bool halfFull = true) {
        std::vector<Entry> found;
        pages::Survey survey = pages::SurveyNtx(Readable(index.file), [&](const pages::Entry& entry) {
            found.push_back({entry.key, entry.record});
        });
        ASSERT_EQ(survey.faults, std::vector<std::string>());
        if (halfFull) {
            ASSERT_EQ(survey.notes, std::vector<std::string>());
        }
        ASSERT_EQ(found, model.entries);
        deepest = std::max(deepest, survey.levels);
    }

    void CheckFind(const Entry& wanted) {
        int code = index.Find(wanted.first, 2, wanted.second);
        if (model.entries.empty()) {
            ASSERT_EQ(code, ZB_KeyEmpty);
        } else if (model.Has(wanted)) {
            ASSERT_EQ(code, 0);
            ASSERT_EQ(index.At(), wanted);
        } else {
            const Entry& nearest = model.Before(wanted);
            ASSERT_EQ(code, nearest.first <= wanted.first ? ZB_KeyNear : 0);
            ASSERT_EQ(index.At(), nearest);
        }
    }
};

class NtxRandom : public NtxTrees, public testing::WithParamInterface<Shape> {};

TEST_P(NtxRandom, TreeKeepsWhatTheModelKeeps) {
    const Shape shape = GetParam();
    std::mt19937 random(20260101);
    index.Make('C', shape.length);
    for (int step = 0; step < shape.steps; step++) {
        // Growth, then shrinking, then growth again.
        bool growing = step < shape.steps / 2 || step > shape.steps * 9 / 10;
        Entry entry{Key(shape, random() % static_cast<unsigned>(shape.keys)),
                    random() % static_cast<unsigned>(shape.records) + 1};
        if (random() % 100 < (growing ? 75u : 15u)) {
            if (model.Has(entry)) continue;
            ASSERT_EQ(index.Add(entry.first, entry.second), 0) << "step " << step;
            model.Add(entry);
        } else {
            if (model.entries.empty()) continue;
            entry = model.entries[random() % model.entries.size()];
            ASSERT_EQ(index.Delete(entry.first, entry.second), 0) << "step " << step;
            model.Delete(entry);
        }
        if (step % shape.checkEvery == 0) {
            CheckFile();
            CheckFind(entry);
            CheckFind({Key(shape, random()), random() % static_cast<unsigned>(shape.records) + 1});
            if (HasFatalFailure()) FAIL() << "step " << step;
        }
    }
    EXPECT_GE(deepest, shape.length == 1 ? 2 : 3);
    while (!model.entries.empty()) {
        Entry entry = model.entries[random() % model.entries.size()];
        ASSERT_EQ(index.Delete(entry.first, entry.second), 0);
        model.Delete(entry);
        if (model.entries.size() % static_cast<size_t>(shape.checkEvery) == 0) CheckFile();
        if (HasFatalFailure()) FAIL() << model.entries.size() << " left";
    }
}

INSTANTIATE_TEST_SUITE_P(Shapes, NtxRandom,
                         testing::Values(Shape{100, 120, 3, 1000, 1}, Shape{60, 700, 2, 2500, 10},
                                         Shape{24, 3000, 2, 5000, 50}, Shape{30, 40, 500, 5000, 50},
                                         Shape{1, 90, 40, 4000, 40}));

// Four levels of 100-byte keys, grown in order, and shrunk from both ends and
// from the middle.
TEST_F(NtxTrees, TreesOfFourLevelsGrowAndShrink) {
    for (int way = 0; way < 3; way++) {
        index.Make('C', 100);
        deepest = 0;
        for (uint32_t i = 0; i < 350; i++) {
            uint32_t number = 1000 + (way == 1 ? 349 - i : i);
            Entry entry{Wide(number), number};
            ASSERT_EQ(index.Add(entry.first, number), 0);
            model.Add(entry);
            if (i % 40 == 0) CheckFile();
        }
        CheckFile();
        EXPECT_GE(deepest, 4);
        for (int step = 0; !model.entries.empty(); step++) {
            size_t last = model.entries.size() - 1;
            Entry entry = model.entries[way == 0 ? 0 : way == 1 ? last : last / 2];
            ASSERT_EQ(index.Delete(entry.first, entry.second), 0);
            model.Delete(entry);
            if (step % 15 == 0) CheckFile();
            if (HasFatalFailure()) FAIL() << "way " << way << ", step " << step;
        }
        ASSERT_EQ(index.Close(), 0);
    }
}

// Each built tree holds every record once, in order; only the last page of a
// level may be short.
TEST_F(NtxTrees, BuiltTreesAreSound) {
    for (int count : {1, 8, 9, 10, 17, 18, 80, 81, 82, 90, 728, 729, 730, 1200}) {
        std::vector<Bytes> records;
        model.entries.clear();
        for (int i = 0; i < count; i++) {
            Bytes key = Wide(1000 + static_cast<uint32_t>(i * 7919 % 997));
            records.push_back(" " + key);
            model.entries.push_back({key, static_cast<uint32_t>(i) + 1});
        }
        std::sort(model.entries.begin(), model.entries.end());
        WriteFile("t.dbf", Dbf(3, 101, {DbfField("NAME", 'C', 100)}, records));
        uint16_t data;
        ASSERT_EQ(ZBDDOPENX(&data, "t.dbf", 1), 0);
        char expression[] = "NAME";
        ASSERT_EQ(ZBDCINDEX(static_cast<int16_t>(data), index.file.c_str(), 'C', expression, 100, 0), 0);
        ASSERT_EQ(ZBDDCLOSE(static_cast<int16_t>(data)), 0);
        CheckFile(false);
        ASSERT_EQ(index.Open(), 0);
        std::vector<uint32_t> expected;
        for (auto& entry : model.entries) expected.push_back(entry.second);
        ASSERT_EQ(index.Records(), expected) << count;
        std::reverse(expected.begin(), expected.end());
        ASSERT_EQ(index.Records(false), expected) << count;
        // Adds keep it sound.
        for (uint32_t i = 0; i < 60; i++) {
            Entry entry{Wide(1000 + i * 17 % 1000), 100000 + i};
            ASSERT_EQ(index.Add(entry.first, entry.second), 0) << count;
            model.Add(entry);
            if (i % 20 == 0) CheckFile(false);
            if (HasFatalFailure()) FAIL() << count;
        }
        ASSERT_EQ(index.Close(), 0);
    }
}

}  // namespace
}  // namespace test
