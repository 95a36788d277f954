// Several tags in one file under random changes, held against plain models, with
// a check of the whole file from its bytes after each of them.
#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "core/bytes.h"
#include "pages/pages.h"
#include "support/environment.h"
#include "support/support.h"

namespace test {
namespace {

struct TagShape {
    char type;
    int length;
    unsigned keys;     // different keys
    unsigned records;  // different record numbers a key
};

struct Shape {
    int multiplier;
    unsigned seed;
    int steps;
    std::vector<TagShape> tags;
};

// One tag and what it should hold. Keys go by a rank, which orders them apart from
// how the library compares.
struct Model {
    TagShape shape;
    int32_t tag = -1;
    std::set<std::pair<unsigned, uint32_t>> pairs;    // by the key's rank
    std::set<std::pair<unsigned, uint32_t>> hidden;   // by a separator that is too low
    std::vector<std::pair<unsigned, unsigned>> gaps;  // above such a separator, up to the key it hides
    int missed = 0;

    // Whether a search for a key falls back to a hidden one that isn't its
    // neighbour, and an addition of it would go behind that one.
    bool misled(unsigned rank) const {
        return std::any_of(gaps.begin(), gaps.end(),
                           [&](auto& gap) { return rank > gap.first && rank <= gap.second; });
    }

    size_t length() const {
        return shape.type == 'N' ? 12 : shape.type == 'D' ? 8 : static_cast<size_t>(shape.length);
    }
    std::vector<std::string> keys;  // by rank

    const std::string& Key(unsigned rank) const { return keys[rank]; }
    unsigned RankOf(const std::string& key) const {
        auto at = std::find(keys.begin(), keys.end(), key);
        EXPECT_NE(at, keys.end());
        return static_cast<unsigned>(at - keys.begin());
    }
    void MakeKeys() {
        for (unsigned rank = 0; rank < shape.keys; rank++) {
            double value = (static_cast<double>(rank) - shape.keys / 2.0) * 0.25;
            char bytes[104] = {};
            switch (shape.type) {
                case 'N': EXPECT_EQ(ZBDMKNUM(bytes, value), 0); break;
                case 'D': zb::StoreLeDouble(bytes, value); break;
                default: snprintf(bytes, sizeof bytes, "K%07u", rank); memset(bytes + 8, ' ', length() - 8);
            }
            keys.emplace_back(bytes, length());
        }
    }
};

struct Buffer {
    char bytes[112] = {};
    explicit Buffer(const std::string& key) { memcpy(bytes, key.data(), key.size()); }
};

class MdxRandom : public LibraryTest, public testing::WithParamInterface<Shape> {
  protected:
    std::vector<Model> models;
    int leftovers = 0;
    int deepest = 0;

    Environment today{"ZB_TODAY", "1999-12-31"};  // a day of the years that open again

    pages::MdxSurvey Look() {
        for (Model& model : models) {
            model.hidden.clear();
            model.gaps.clear();
        }
        std::vector<std::set<std::pair<unsigned, uint32_t>>::const_iterator> expected;
        for (Model& model : models) expected.push_back(model.pairs.begin());
        pages::MdxSurvey survey = pages::SurveyMdx(
            Readable("x.mdx"), [&](size_t tag, const pages::Entry& entry, const std::string* hider) {
                Model& model = models[tag];
                ASSERT_NE(expected[tag], model.pairs.end());
                auto& pair = *expected[tag]++;
                ASSERT_EQ(entry.key, model.Key(pair.first));
                ASSERT_EQ(entry.record, pair.second);
                if (!hider) return;
                model.hidden.insert(pair);
                model.gaps.push_back({model.RankOf(*hider), pair.first});
            });
        EXPECT_EQ(survey.AllFaults(), std::vector<std::string>());
        for (size_t i = 0; i < models.size(); i++) {
            EXPECT_EQ(expected[i], models[i].pairs.end()) << "tag " << i;
            deepest = std::max(deepest, survey.tags[i].tree.levels);
        }
        return survey;
    }

    // Leaves that read as branches, which a redistribution can leave: the calls
    // that follow must end, and with the leftover cleared all is as it was.
    void MendLeftovers(const pages::MdxSurvey& survey) {
        for (size_t i = 0; i < models.size(); i++)
            for (const std::string& note : survey.tags[i].tree.notes) {
                if (note.find("leftover") == std::string::npos) continue;
                leftovers++;
                int32_t tag = models[i].tag;
                Buffer key{std::string()};
                uint32_t record = 0;
                for (auto walk : {ZBDMKTOP, ZBDMKNEXT, ZBDMKBOT, ZBDMKPREV}) {
                    walk(tag, key.bytes, &record);
                    ZBESCODE(0);
                }
                for (unsigned rank = 0; rank < models[i].shape.keys; rank += 7) {
                    Buffer wanted(models[i].Key(rank));
                    record = 1;
                    ZBDMKFIND(tag, wanted.bytes, &record, 2);
                    ZBESCODE(0);
                }
                Bytes file = ReadFile("x.mdx");
                auto page = static_cast<size_t>(atoi(note.c_str() + strlen("page ")));
                size_t entryLength = ((models[i].length() + 3) & ~size_t{3}) + 4;
                PatchFile("x.mdx", page * 512 + 8 + pages::Le16(file, page * 512) * entryLength, Fill(4));
            }
    }

    void TryFind(Model& model, std::pair<unsigned, uint32_t> pair) {
        if (model.misled(pair.first) && !model.hidden.count(pair)) return;
        Buffer key(model.Key(pair.first));
        uint32_t record = pair.second;
        int32_t code = ZBDMKFIND(model.tag, key.bytes, &record, 2);
        if (model.pairs.empty()) {
            ASSERT_EQ(code, ZB_KeyEmpty);
            return;
        }
        auto at = model.pairs.upper_bound(pair);
        bool before = at == model.pairs.begin();
        auto nearest = before ? *at : *std::prev(at);
        bool exact = before || (nearest == pair && !model.hidden.count(pair));
        ASSERT_EQ(code, exact ? 0 : ZB_KeyNear);
        ASSERT_EQ(std::string(key.bytes, model.length()), model.Key(nearest.first));
        ASSERT_EQ(record, nearest.second);
        if (!exact && nearest == pair) model.missed++;
    }
};

TEST_P(MdxRandom, TagsKeepWhatTheModelsKeep) {
    const Shape& shape = GetParam();
    std::mt19937 random(shape.seed);
    ASSERT_EQ(ZBDMCREATE("x.mdx", shape.multiplier), 0);
    int16_t file;
    ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
    for (const TagShape& tagShape : shape.tags) {
        Model& model = models.emplace_back();
        model.shape = tagShape;
        model.MakeKeys();
        std::string name = "T" + std::to_string(models.size());
        char expression[] = "KEY";
        ASSERT_EQ(
            ZBDMTNEW(file, name.c_str(), static_cast<uint32_t>(tagShape.type), expression, tagShape.length),
            0);
        ASSERT_EQ(ZBDMTUSE(&model.tag, static_cast<uint16_t>(file), name.c_str()), 0);
    }
    int mostMissed = 0;
    for (int step = 0; step < shape.steps; step++) {
        // Growth, then shrinking, then growth again.
        bool growing = step < shape.steps / 2 || step > shape.steps * 9 / 10;
        Model& model = models[random() % models.size()];
        std::pair<unsigned, uint32_t> pair{random() % model.shape.keys, random() % model.shape.records + 1};
        if (random() % 100 < (growing ? 75u : 20u)) {
            if (model.pairs.count(pair) || model.misled(pair.first)) continue;
            ASSERT_EQ(ZBDMKADD(model.tag, Buffer(model.Key(pair.first)).bytes, pair.second), 0) << step;
            model.pairs.insert(pair);
        } else {
            auto place = model.pairs.lower_bound(pair);
            if (place == model.pairs.end()) continue;
            pair = *place;
            bool lost = model.hidden.count(pair);
            int32_t code = ZBDMKDEL(model.tag, Buffer(model.Key(pair.first)).bytes, pair.second);
            ASSERT_EQ(code, lost ? ZB_KeyNear : 0) << step;
            if (!lost) model.pairs.erase(place);
        }
        // A leftover must not be met by the next change, nor a hidden key be passed.
        MendLeftovers(Look());
        ASSERT_FALSE(HasFailure()) << "step " << step;
        for (Model& each : models)
            TryFind(each, {random() % each.shape.keys, random() % each.shape.records + 1});
        if (!model.pairs.empty())
            TryFind(model, *model.pairs.lower_bound({random() % (model.pairs.rbegin()->first + 1), 0}));
        ASSERT_FALSE(HasFailure()) << "step " << step;
        mostMissed = std::max(mostMissed, model.missed);
    }
    EXPECT_GE(deepest, 2);
    RecordProperty("leftovers", leftovers);
    RecordProperty("missed", mostMissed);

    // Erased tags leave nothing behind.
    Look();
    for (size_t i = 0; i < models.size(); i++) {
        ASSERT_EQ(ZBDMTCLOSE(models[i].tag), 0);
    }
    for (size_t i = models.size(); i-- > 0;) {
        models.pop_back();
        ASSERT_EQ(ZBDMTERASE(file, ("t" + std::to_string(i + 1)).c_str()), 0);
        Look();
    }
    EXPECT_EQ(pages::SurveyMdx(Readable("x.mdx")).freePages,
              (FileSize("x.mdx") - 2048) / 512 / static_cast<size_t>(shape.multiplier));
    EXPECT_EQ(ZBDMCLOSE(file), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, MdxRandom,
    testing::Values(Shape{1, 1, 500, {{'C', 100, 150, 1}, {'N', 0, 400, 1}, {'D', 0, 400, 1}}},
                    Shape{2, 2, 500, {{'C', 100, 300, 1}, {'C', 60, 300, 1}}},
                    Shape{4, 3, 500, {{'C', 100, 600, 1}, {'C', 90, 600, 1}}},
                    Shape{1, 4, 400, {{'C', 100, 40, 6}, {'C', 50, 20, 20}}},
                    Shape{2, 5, 400, {{'C', 80, 60, 6}}}, Shape{1, 6, 500, {{'C', 100, 400, 1}}}));

// Tags made, replaced, filled, attached and erased in any order: the table, the
// pages of all tags and the free list stay sound, and each tag keeps its keys.
class MdxTagsRandom : public LibraryTest, public testing::WithParamInterface<int> {
  protected:
    struct Tag {
        std::string name;
        std::set<unsigned> keys;
        bool attached = false;
    };
    Environment today{"ZB_TODAY", "1999-12-31"};
    int16_t file = -1;
    std::vector<Tag> tags;

    int32_t HandleOf(size_t place) const { return static_cast<int32_t>((place + 1) << 16) | file; }
    static std::string KeyOf(unsigned number) { return "K" + std::to_string(1000 + number); }
    // The place of a name, or that behind the last.
    size_t PlaceOf(const std::string& name) const {
        size_t place = 0;
        while (place < tags.size() && tags[place].name != name) place++;
        return place;
    }
    void Check() {
        std::vector<std::vector<std::string>> keys(tags.size());
        pages::MdxSurvey survey = pages::SurveyMdx(
            Readable("x.mdx"), [&](size_t tag, const pages::Entry& entry, const std::string*) {
                keys.at(tag).push_back(entry.key.substr(0, 5));
            });
        ASSERT_EQ(survey.AllFaults(), std::vector<std::string>());
        ASSERT_EQ(survey.tags.size(), tags.size());
        for (size_t i = 0; i < tags.size(); i++) {
            EXPECT_EQ(survey.tags[i].name, tags[i].name);
            std::vector<std::string> expected;
            for (unsigned key : tags[i].keys) expected.push_back(KeyOf(key));
            EXPECT_EQ(keys[i], expected);
        }
    }
};

TEST_P(MdxTagsRandom, TableAndPagesStaySound) {
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    ASSERT_EQ(ZBDMCREATE("x.mdx", GetParam()), 0);
    ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
    for (int step = 0; step < 300; step++) {
        std::string name = "TAG" + std::to_string(random() % 12);
        size_t place = PlaceOf(name);
        bool known = place < tags.size();
        unsigned action = random() % 100;
        if (action < 15) {
            char expression[] = "KEY";
            int32_t code = ZBDMTNEW(file, name.c_str(), 'C', expression, 100);
            ASSERT_EQ(code, known && tags[place].attached ? -57 : 0) << step;
            if (!known) tags.push_back({name, {}});
            if (code == 0) tags[place].keys.clear();
        } else if (action < 25) {
            int32_t code = ZBDMTERASE(file, name.c_str());
            ASSERT_EQ(code, !known ? -50 : tags[place].attached ? -57 : 0) << step;
            if (code == 0) {
                tags[place] = tags.back();
                tags.pop_back();
            }
        } else if (action < 40) {
            int32_t handle;
            ASSERT_EQ(ZBDMTUSE(&handle, static_cast<uint16_t>(file), name.c_str()), known ? 0 : -50);
            if (known) {
                ASSERT_EQ(handle, HandleOf(place));
                tags[place].attached = true;
            }
        } else if (action < 50) {
            if (!known) continue;
            ASSERT_EQ(ZBDMTCLOSE(HandleOf(place)), tags[place].attached ? 0 : -58) << step;
            tags[place].attached = false;
        } else if (action < 52) {
            ASSERT_EQ(ZBDMCLOSE(file), 0);
            ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
            for (Tag& tag : tags) tag.attached = false;
        } else if (known && tags[place].attached) {
            // From the front or behind the last, so that deletes leave nothing odd.
            for (int i = 0; i < 8; i++) {
                unsigned key = random() % 400;
                std::set<unsigned>& keys = tags[place].keys;
                if (action < 90) {
                    if (!keys.insert(key).second) continue;
                    ASSERT_EQ(ZBDMKADD(HandleOf(place), KeyOf(key).c_str(), key + 1), 0) << step;
                } else if (!keys.empty()) {
                    key = *keys.begin();
                    ASSERT_EQ(ZBDMKDEL(HandleOf(place), KeyOf(key).c_str(), key + 1), 0) << step;
                    keys.erase(key);
                }
            }
        }
        ZBESCODE(0);
        Check();
        ASSERT_FALSE(HasFailure()) << "step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Multipliers, MdxTagsRandom, testing::Values(1, 2, 4));

}  // namespace
}  // namespace test
