// NDX trees under random changes, held against a plain model, with a check of
// the whole structure after each of them.
#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "core/bytes.h"
#include "pages/pages.h"
#include "support/support.h"

namespace test {
namespace {

using Pair = std::pair<std::string, uint32_t>;

struct Shape {
    char type;
    int length;
    int keys;     // different keys
    int records;  // different record numbers
    int steps;
    int checkEvery;
};

class NdxRandom : public LibraryTest, public testing::WithParamInterface<Shape> {
  protected:
    struct Less {
        bool numeric;
        bool operator()(const Pair& a, const Pair& b) const {
            if (!numeric) return a < b;
            double x = zb::LoadLeDouble(a.first.data());
            double y = zb::LoadLeDouble(b.first.data());
            return x != y ? x < y : a.second < b.second;
        }
    };

    std::string Key(const Shape& shape, unsigned number) const {
        if (shape.type == 'N') {
            std::string key(8, 0);
            zb::StoreLeDouble(key.data(), (static_cast<double>(number) - shape.keys / 2) * 1.25);
            return key;
        }
        char text[32];
        snprintf(text, sizeof text, "K%07u", number * 7919 % 1000003);
        std::string key = text;
        key.resize(static_cast<size_t>(shape.length), ' ');
        return key;
    }

    // A key as a caller's buffer holds it.
    struct Buffer {
        char bytes[112] = {};
        explicit Buffer(const std::string& key = {}) { memcpy(bytes, key.data(), key.size()); }
    };
};

TEST_P(NdxRandom, TreeKeepsWhatTheModelKeeps) {
    const Shape shape = GetParam();
    std::set<Pair, Less> model(Less{shape.type == 'N'});
    std::mt19937 random(20260101);
    char expression[] = "KEY";
    ASSERT_EQ(ZBDNCREATE("x.ndx", shape.type, expression, static_cast<int16_t>(shape.length)), 0);
    uint16_t opened;
    ASSERT_EQ(ZBDNOPENX(&opened, "x.ndx", 0), 0);
    auto index = static_cast<int16_t>(opened);
    size_t length = shape.type == 'N' ? 8 : static_cast<size_t>(shape.length);
    int deepest = 0;
    int refused = 0;

    for (int step = 0; step < shape.steps; step++) {
        // Growth, then shrinking, then growth again.
        bool growing = step < shape.steps / 2 || step > shape.steps * 9 / 10;
        Pair pair{Key(shape, random() % static_cast<unsigned>(shape.keys)),
                  random() % static_cast<unsigned>(shape.records) + 1};
        int32_t code;
        if (random() % 100 < (growing ? 75u : 15u)) {
            if (model.count(pair)) continue;
            code = ZBDNKADD(index, Buffer(pair.first).bytes, pair.second);
            if (code == 0) model.insert(pair);
        } else {
            auto place = model.lower_bound(pair);
            if (place == model.end()) continue;
            code = ZBDNKDEL(index, Buffer(place->first).bytes, place->second);
            if (code == 0) model.erase(place);
        }
        if (code == ZB_ErrStructure) {
            // The way leads past a leaf that lost its last key while its
            // neighbours were full: that is refused before anything changes.
            ZBESCODE(0);
            refused++;
            pages::Survey survey = pages::SurveyNdx(Readable("x.ndx"));
            ASSERT_FALSE(survey.hazards.empty());
        } else {
            ASSERT_EQ(code, 0) << "step " << step;
        }

        if (step % shape.checkEvery == 0) {
            auto expected = model.begin();
            pages::Survey survey = pages::SurveyNdx(Readable("x.ndx"), [&](const pages::Entry& entry) {
                ASSERT_NE(expected, model.end());
                ASSERT_EQ(*expected, Pair(entry.key, entry.record));
                ++expected;
            });
            ASSERT_EQ(survey.faults, std::vector<std::string>()) << "step " << step;
            ASSERT_EQ(expected, model.end());
            deepest = std::max(deepest, survey.levels);

            // A search for a pair, present or not.
            Buffer key(pair.first);
            uint32_t record = pair.second;
            int32_t found = ZBDNKFIND(index, key.bytes, &record, 2);
            if (found == ZB_ErrStructure) {
                ZBESCODE(0);
            } else if (model.empty()) {
                ASSERT_EQ(found, ZB_KeyEmpty);
            } else {
                auto at = model.upper_bound(pair);
                bool before = at == model.begin();
                const Pair& nearest = before ? *at : *std::prev(at);
                ASSERT_EQ(found, before || nearest == pair ? 0 : ZB_KeyNear);
                ASSERT_EQ(Pair(std::string(key.bytes, length), record), nearest);
            }
        }
    }
    EXPECT_GE(deepest, 3);
    EXPECT_LT(refused, shape.steps / 3);
    EXPECT_EQ(ZBDNCLOSE(index), 0);
    pages::Survey survey = pages::SurveyNdx(Readable("x.ndx"));
    EXPECT_EQ(survey.faults, std::vector<std::string>());
    EXPECT_EQ(survey.freePages, 0u);
    EXPECT_EQ(survey.keys, model.size());
}

INSTANTIATE_TEST_SUITE_P(Shapes, NdxRandom,
                         testing::Values(Shape{'C', 100, 150, 3, 900, 1}, Shape{'C', 24, 3000, 2, 6000, 10},
                                         Shape{'C', 10, 60, 2000, 9000, 25},
                                         Shape{'N', 8, 20000, 4, 12000, 50}));

}  // namespace
}  // namespace test
