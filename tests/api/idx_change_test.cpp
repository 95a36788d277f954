// Adding and deleting keys of IDX indexes.
#include <algorithm>
#include <map>
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
    for (unsigned seed = 1; seed <= 2; seed++) {
        SCOPED_TRACE(seed);
        Create(100);
        std::mt19937 random(seed);
        Model model;
        uint32_t next = 1;
        bool growing = true;
        for (int step = 0; step < 500; step++) {
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

// The same model for many entries, any of which can be picked at random.
class LargeModel {
  public:
    void Add(const Bytes& key, uint32_t record) { places.push_back(entries.emplace(key, record)); }
    size_t size() const { return places.size(); }
    IdxEntry At(size_t i) const { return {places[i]->first, places[i]->second}; }
    void Delete(size_t i) {
        entries.erase(places[i]);
        places[i] = places.back();
        places.pop_back();
    }
    std::vector<IdxEntry> All() const {
        std::vector<IdxEntry> all;
        for (auto& [key, record] : entries) all.push_back({key, record});
        return all;
    }

  private:
    std::multimap<Bytes, uint32_t> entries;
    std::vector<std::multimap<Bytes, uint32_t>::iterator> places;
};

TEST_F(IdxChange, RandomStepsOverALongTimeLoseNoKey) {
#ifdef NDEBUG
    constexpr int steps = 70000;
#else
    constexpr int steps = 2000;
#endif
    for (int keyLength : {8, 10, 100}) {
        SCOPED_TRACE(keyLength);
        Create(keyLength);
        std::mt19937 random(static_cast<unsigned>(keyLength));
        LargeModel model;
        uint32_t next = 1;
        uint32_t universe = 1000000;
        unsigned adds = 65;
        for (int step = 0; step < steps; step++) {
            if (step % 1000 == 0) {
                universe = random() % 3 ? 1000000 : 50;
                adds = model.size() > 1500 ? 35 : 35 + random() % 35;
            }
            if (model.size() == 0 || random() % 100 < adds) {
                Bytes key = Number(random() % universe, static_cast<size_t>(keyLength));
                ASSERT_EQ(0, Add(key, next));
                model.Add(key, next++);
            } else {
                size_t i = random() % model.size();
                ASSERT_EQ(0, Delete(model.At(i).key, model.At(i).record)) << "step " << step;
                model.Delete(i);
            }
            if (model.size()) {
                IdxEntry entry = model.At(random() % model.size());
                ASSERT_EQ(0, Find(entry.key, entry.record)) << "step " << step;
                ASSERT_EQ(entry.record, record);
            }
            if (step % 500 == 499) {
                IdxImage image("a.idx");
                ASSERT_TRUE(image.Walk() == model.All()) << "step " << step;
                ASSERT_EQ("", image.fault) << "step " << step;
            }
        }
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
}

// The standard form, step by step. Keys of 100 bytes: 4 entries a page, 2 and 2
// after a split.

Bytes Letter(char c) { return Padded(std::string(1, c), 100); }

class IdxStandard : public IdxChange {
  protected:
    void SetUp() override {
        IdxChange::SetUp();
        Create(100);
    }
    void AddLetters(const char* letters) {
        for (const char* c = letters; *c; c++) ASSERT_EQ(0, Add(Letter(*c), static_cast<uint32_t>(*c)));
    }
    int32_t DeleteLetter(char c) { return Delete(Letter(c), static_cast<uint32_t>(c)); }
    std::string Keys(const IdxImage& image, uint32_t page) {
        std::string letters;
        for (int i = 0; i < image.count(page); i++) letters += image.key(page, i)[0];
        return letters;
    }
    std::string Check(int checks = IdxImage::Tree) {
        IdxImage image("a.idx");
        std::string letters;
        for (auto& entry : image.Walk(checks)) letters += entry.key[0];
        EXPECT_EQ("", image.fault);
        return letters;
    }
};

TEST_F(IdxChange, OneEntryMoreThanAPageHoldsSplitsTheRoot) {
    Create(8);
    for (uint32_t i = 1; i <= 41; i++) ASSERT_EQ(0, Add(Number(i, 8), i));
    EXPECT_EQ(1024u, FileSize("a.idx"));
    ASSERT_EQ(0, Add(Number(42, 8), 42));
    IdxImage image("a.idx");
    EXPECT_EQ(1536u, image.root());
    EXPECT_EQ(2048u, image.fileEnd());
    EXPECT_EQ(0xFFFFFFFF, image.freeHead());
    // The new page holds the lower entries; U + 1 = 22 of them, since the key was last.
    EXPECT_EQ(22, image.count(1024));
    EXPECT_EQ(20, image.count(512));
    Bytes root = Hex("01 00 02 00 FF FF FF FF FF FF FF FF");
    root += "00000022" + Hex("00 00 04 00") + "00000042" + Hex("00 00 02 00");
    EXPECT_EQ(root, image.bytes.substr(1536, root.size()));
    EXPECT_EQ(Hex("02 00 16 00 FF FF FF FF 00 02 00 00"), image.bytes.substr(1024, 12));
    EXPECT_EQ(Hex("02 00 14 00 00 04 00 00 FF FF FF FF"), image.bytes.substr(512, 12));
    EXPECT_EQ(42u, image.Walk(IdxImage::Siblings | IdxImage::Separators).size());
    EXPECT_EQ("", image.fault);
}

TEST_F(IdxStandard, ASplitPutsTheKeyWhereItBelongs) {
    AddLetters("BDFH");
    AddLetters("C");  // slot 1, at most U: into the new page
    IdxImage image("a.idx");
    EXPECT_EQ("BCD", Keys(image, 1024));
    EXPECT_EQ("FH", Keys(image, 512));
    EXPECT_EQ("DH", Keys(image, 1536));
    EXPECT_EQ("BCDFH", Check(IdxImage::Siblings | IdxImage::Separators));
}

TEST_F(IdxStandard, ASplitBehindTheUpperEntriesKeepsTheKeyInTheOldPage) {
    AddLetters("BDFH");
    AddLetters("G");  // slot 3, above U
    IdxImage image("a.idx");
    EXPECT_EQ("BDF", Keys(image, 1024));
    EXPECT_EQ("GH", Keys(image, 512));
    EXPECT_EQ("BDFGH", Check(IdxImage::Siblings | IdxImage::Separators));
}

TEST_F(IdxStandard, AddsAloneKeepSeparatorsAndSiblingsRight) {
    std::mt19937 random(11);
    Model model;
    for (uint32_t i = 1; i <= 250; i++) {
        Bytes key = Number(random() % 100000, 100);
        ASSERT_EQ(0, Add(key, i));
        model.Add(key, i);
        if (i % 5) continue;
        IdxImage image("a.idx");
        ASSERT_EQ(model.entries, image.Walk(IdxImage::Siblings | IdxImage::Separators));
        ASSERT_EQ("", image.fault) << i;
        EXPECT_TRUE(i < 250 || image.depth >= 4);
    }
}

TEST_F(IdxStandard, ANewHighestKeyGoesUpAsFarAsItIsTheLast) {
    for (char c = 'A'; c <= 'W'; c++) ASSERT_EQ(0, Add(Letter(c), 1));
    ASSERT_EQ(0, Add(Letter('Y'), 1));
    IdxImage image("a.idx");
    uint32_t page = image.root();
    int levels = 0;
    for (; !image.leaf(page); page = image.child(page, image.count(page) - 1), levels++)
        EXPECT_EQ('Y', image.key(page, image.count(page) - 1)[0]);
    EXPECT_GE(levels, 2);
    Check(IdxImage::Separators);
}

TEST_F(IdxStandard, DeletingTheLastEntryOfALeafReplacesTheKeyAbove) {
    AddLetters("BDFHC");
    ASSERT_EQ(0, DeleteLetter('D'));
    IdxImage image("a.idx");
    EXPECT_EQ("BC", Keys(image, 1024));
    EXPECT_EQ("CH", Keys(image, 1536));
    ASSERT_EQ(0, DeleteLetter('H'));
    EXPECT_EQ("CF", Keys(IdxImage("a.idx"), 1536));
}

TEST_F(IdxStandard, DeletingTheOnlyEntryOfALeafFreesIt) {
    AddLetters("BDFHCGEI");
    IdxImage image("a.idx");
    ASSERT_EQ("DGI", Keys(image, image.root()));
    uint32_t middle = image.child(image.root(), 1);
    for (char c : {'E', 'F'}) ASSERT_EQ(0, DeleteLetter(c));
    EXPECT_EQ(0xFFFFFFFF, IdxImage("a.idx").freeHead());
    ASSERT_EQ(0, DeleteLetter('G'));
    image = IdxImage("a.idx");
    EXPECT_EQ(middle, image.freeHead());
    EXPECT_EQ("DI", Keys(image, image.root()));
    EXPECT_EQ("BCDHI", Check());
    // The end mark of the chain is the one that the header had.
    EXPECT_EQ(0xFFFFFFFF, image.Le32(middle));
}

TEST_F(IdxStandard, ARootWithOneEntryGivesWayToItsChild) {
    AddLetters("BDFHC");
    for (char c : {'F', 'H'}) ASSERT_EQ(0, DeleteLetter(c));
    IdxImage image("a.idx");
    EXPECT_EQ(1024u, image.root());
    EXPECT_EQ(3, image.attributes(1024));
    EXPECT_EQ((std::vector<uint32_t>{1536, 512}), image.FreeChain());
    EXPECT_EQ("BCD", Check());
}

TEST_F(IdxStandard, ARootLeafGoesDownToNoKeysAndStays) {
    AddLetters("BD");
    ASSERT_EQ(0, DeleteLetter('B'));
    ASSERT_EQ(0, DeleteLetter('D'));
    IdxImage image("a.idx");
    EXPECT_EQ(512u, image.root());
    EXPECT_EQ(0, image.count(512));
    EXPECT_EQ(ZB_KeyEmpty, DeleteLetter('D'));
    AddLetters("K");
    EXPECT_EQ("K", Check());
}

TEST_F(IdxStandard, AKeyThatIsNotThereIsNotDeleted) {
    AddLetters("BDFHC");
    Bytes before = ReadFile("a.idx");
    EXPECT_EQ(ZB_KeyNear, DeleteLetter('E'));
    EXPECT_EQ(ZB_KeyNear, DeleteLetter('Z'));
    EXPECT_EQ(ZB_KeyNear, Delete(Letter('D'), 1));
    EXPECT_EQ(before, ReadFile("a.idx"));
}

TEST_F(IdxStandard, AKeyBelowAllOthersTakesTheFirstAway) {
    AddLetters("BDFHC");
    EXPECT_EQ(ZB_KeyEnd, DeleteLetter('A'));
    EXPECT_EQ("CDFH", Check());
}

TEST_F(IdxStandard, AnEqualPairIsAddedAgain) {
    AddLetters("BB");
    EXPECT_EQ("BB", Check());
}

TEST_F(IdxStandard, PagesGivenBackAreTakenFirstAndTheChainsEndIsZeroOrMinusOne) {
    AddLetters("BDFHC");
    for (char c : {'F', 'H'}) ASSERT_EQ(0, DeleteLetter(c));
    size_t size = FileSize("a.idx");
    AddLetters("FH");  // splits: a page and a root, both taken from the chain
    EXPECT_EQ(size, FileSize("a.idx"));
    EXPECT_EQ(0xFFFFFFFF, IdxImage("a.idx").freeHead());
    EXPECT_EQ("BCDFH", Check());
    PatchFile("a.idx", 4, Fill(4));
    for (char c = 'I'; c <= 'Q'; c++) ASSERT_EQ(0, Add(Letter(c), 1));
    EXPECT_GT(FileSize("a.idx"), size);
    EXPECT_EQ(0u, IdxImage("a.idx").freeHead());
    Check();
}

TEST_F(IdxStandard, ALeftSiblingThatIsTheNewPageItselfCountsAsNone) {
    AddLetters("BDFHC");
    // 512 holds F and H, and its left sibling 1024 B, C and D. That one goes.
    for (char c : {'B', 'C', 'D'}) ASSERT_EQ(0, DeleteLetter(c));
    IdxImage image("a.idx");
    ASSERT_EQ(512u, image.root());
    ASSERT_EQ(1024u, image.left(512));
    ASSERT_EQ((std::vector<uint32_t>{1536, 1024}), image.FreeChain());
    PatchFile("a.idx", 4, Hex("00 04 00 00"));  // 1024 comes first
    AddLetters("GIJ");
    image = IdxImage("a.idx");
    EXPECT_EQ(1024u, image.left(512));
    EXPECT_EQ(0xFFFFFFFF, image.left(1024));
    EXPECT_EQ(512u, image.right(1024));
}

TEST_F(IdxStandard, AStaleLeftSiblingIsToldAndNothingElseIsHurt) {
    // Right siblings are written into whatever page stands there now.
    std::mt19937 random(5);
    Model model;
    for (uint32_t i = 1; i <= 300; i++) {
        if (random() % 2 && model.entries.size() > 4) {
            size_t at = random() % std::min<size_t>(model.entries.size(), 5);
            ASSERT_EQ(0, Delete(model.entries[at].key, model.entries[at].record));
            model.Delete(at);
        }
        Bytes key = Number(random() % 1000, 100);
        ASSERT_EQ(0, Add(key, i));
        model.Add(key, i);
        IdxImage image("a.idx");
        ASSERT_EQ(model.entries, image.Walk());
        ASSERT_EQ("", image.fault) << i;
    }
}

TEST_F(IdxStandard, ARootAboveTheLeavesLeftWithoutEntriesBecomesAnEmptyLeafInItsPlace) {
    // One call replaces one root only, so that a root of one entry over a page of
    // one entry can come about.
    AddLetters("BDFHC");
    Bytes leaf = ReadFile("a.idx", 512, 512);
    leaf[0] = 2;
    leaf[2] = 1;
    PatchFile("a.idx", 512, leaf);
    PatchFile("a.idx", 1536 + 2, Hex("01"));
    PatchFile("a.idx", 1536 + 12, Letter('F') + Hex("00 00 02 00"));
    ASSERT_EQ(0, DeleteLetter('F'));
    IdxImage image("a.idx");
    EXPECT_EQ(1536u, image.root());
    EXPECT_EQ(Hex("03 00 00 00 FF FF FF FF FF FF FF FF") + Fill(500), image.bytes.substr(1536));
    EXPECT_EQ(512u, image.freeHead());
    AddLetters("X");
    EXPECT_EQ(0, Find(Letter('X'), 'X'));
}

TEST_F(IdxChange, AUniqueIndexTakesAnEqualKeyBeforeTheFirst) {
    Create(2, 'C' | ZB_IdxUnique);
    ASSERT_EQ(0, Add("AA", 1));
    ASSERT_EQ(0, Add("AA", 2));
    ASSERT_EQ(0, Find("AA", 0, 0));
    EXPECT_EQ(2u, record);
    // And a delete takes the first, whatever its record.
    ASSERT_EQ(0, Delete("AA", 1));
    ASSERT_EQ(0, Find("AA", 0, 0));
    EXPECT_EQ(1u, record);
}

// The compact form, byte by byte.

class IdxCompact : public IdxChange {
  protected:
    Bytes Leaf(size_t at, size_t count, size_t page = 1024) { return ReadFile("a.idx", page + at, count); }
};

TEST_F(IdxCompact, AddsPackEachKeyAsIfItWereTheFirst) {
    Create(5, 'C' | ZB_IdxCompact);
    ASSERT_EQ(0, Add("BOB  ", 2));
    EXPECT_EQ(Hex("03 00 01 00 FF FF FF FF FF FF FF FF E2 01 FF FF 03 00 07 07 12 03 03 03 02 00 40"),
              Leaf(0, 27));
    EXPECT_EQ(Fill(482) + "BOB", Leaf(27, 512));
    // Behind the first, though it sorts before it.
    ASSERT_EQ(0, Add("ANNA ", 1));
    EXPECT_EQ(Hex("02 00"), Leaf(2, 2));
    EXPECT_EQ(Hex("DB 01"), Leaf(12, 2));
    EXPECT_EQ(Hex("02 00 40 01 00 20"), Leaf(24, 6));
    EXPECT_EQ("ANNABOB", Leaf(505, 512));
    ASSERT_EQ(0, Add("     ", 3));
    EXPECT_EQ(Hex("02 00 40 01 00 20 03 00 14"), Leaf(24, 9));
    EXPECT_EQ(Hex("D8 01"), Leaf(12, 2));
}

TEST_F(IdxCompact, WalksGiveRecordNumbersAndFillBytes) {
    Create(5, 'C' | ZB_IdxCompact);
    for (uint32_t i : {7u, 5u, 9u}) ASSERT_EQ(0, Add("KEY" + std::to_string(i) + "x", i));
    ASSERT_EQ(0, ZBDIKTOP(index, text, &record));
    EXPECT_EQ(7u, record);
    EXPECT_STREQ("     ", text);
    ASSERT_EQ(0, ZBDIKNEXT(index, text, &record));
    EXPECT_EQ(5u, record);
    ASSERT_EQ(0, ZBDIKNEXT(index, text, &record));
    EXPECT_EQ(9u, record);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, text, &record));
    ASSERT_EQ(0, ZBDIKPREV(index, text, &record));
    EXPECT_EQ(5u, record);
    EXPECT_EQ(0, ZBDIKCUR(index, text, &record));
    EXPECT_EQ(5u, record);
    // A real key never matches; fill bytes do.
    EXPECT_EQ(ZB_KeyNear, Find("KEY5x", 5));
    EXPECT_EQ(9u, record);
    EXPECT_EQ(0, Find("     ", 5));
    EXPECT_EQ(5u, record);
    EXPECT_EQ(0, Find("     ", 0, 0));
    EXPECT_EQ(7u, record);
}

TEST_F(IdxCompact, FillBytesAreZerosUntilTheTypeIsTold) {
    Create(5, 'C' | ZB_IdxCompact);
    ASSERT_EQ(0, Add("ABCDE", 1));
    ASSERT_EQ(0, ZBDICLOSE(index));
    Open();
    memset(text, '#', sizeof text);
    ASSERT_EQ(0, ZBDIKTOP(index, text, &record));
    EXPECT_EQ(Fill(5) + "#", Bytes(text, 6));
    ASSERT_EQ(0, ZBDIKTYPE(index, 'C'));
    ASSERT_EQ(0, ZBDIKTOP(index, text, &record));
    EXPECT_EQ(Bytes("     \0#", 7), Bytes(text, 7));
}

TEST_F(IdxCompact, ADeleteTakesTheHighestSlotWhicheverWasMeant) {
    Create(5, 'C' | ZB_IdxCompact);
    for (uint32_t i = 1; i <= 3; i++) ASSERT_EQ(0, Add("KEY" + std::to_string(i) + "x", i));
    Bytes before = ReadFile("a.idx");
    ASSERT_EQ(0, Delete("     ", 1));
    before[1024 + 2] = 2;
    EXPECT_EQ(before, ReadFile("a.idx"));
    ASSERT_EQ(0, ZBDIKTOP(index, text, &record));
    EXPECT_EQ(1u, record);
    ASSERT_EQ(0, ZBDIKNEXT(index, text, &record));
    EXPECT_EQ(2u, record);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, text, &record));
    // The space doesn't come back, and the next entry goes where the counts say.
    ASSERT_EQ(0, Add("KEY4x", 4));
    EXPECT_EQ(Hex("03"), Leaf(2, 1));
    EXPECT_EQ("KEY4xKEY2xKEY1x", Leaf(497, 512));
    EXPECT_EQ(0x1E8 - 4 * 8, IdxImage("a.idx").Le16(1024 + 12));
}

TEST_F(IdxCompact, ADeleteBelowAllKeysTakesTheHighestSlotToo) {
    Create(5, 'C' | ZB_IdxCompact);
    ASSERT_EQ(0, Add("KEY1x", 1));
    EXPECT_EQ(ZB_KeyEnd, Delete("\x01\x01\x01\x01\x01", 9));
    EXPECT_EQ(Fill(1), Leaf(2, 1));
    EXPECT_EQ(ZB_KeyEmpty, ZBDIKTOP(index, text, &record));
}

TEST_F(IdxCompact, AnAddInFrontRepeatsAnEntryAndLosesTheFollowersKey) {
    Create(5, 'C' | ZB_IdxCompact);
    ASSERT_EQ(0, Add("ANNA ", 1));
    ASSERT_EQ(0, Add("BOB  ", 2));
    ASSERT_EQ(0, Add("\x01\x01\x01\x01\x01", 9));
    EXPECT_EQ(Hex("03"), Leaf(2, 1));
    EXPECT_EQ(Hex("D2 01"), Leaf(12, 2));  // 475 - 3 - (5 + 5 - 4)
    // The first packed entry, copied byte by byte, stands where BOB's was.
    EXPECT_EQ(Hex("09 00 00 01 00 00 01 00 20"), Leaf(24, 9));
    EXPECT_EQ("BOB" + Fill(5, ' ') + Fill(5, 1), Leaf(499, 512));
}

TEST_F(IdxCompact, AnAddThatWouldMoveLessThanNothingIsRefused) {
    Create(5, 'C' | ZB_IdxCompact | ZB_IdxUnique);
    ASSERT_EQ(0, Add("ANNAB", 1));
    Bytes before = ReadFile("a.idx");
    // Blanks are found at the first entry and go in front of it: 0 bytes for the
    // new key, 0 for the follower instead of 5.
    EXPECT_EQ(ZB_ErrStructure, Add("     ", 2));
    EXPECT_EQ(before, ReadFile("a.idx"));
}

class IdxCompactOverHeader : public IdxCompact {
  protected:
    // One full key and some of one byte each, and a full one in front of them: its
    // entry repeats itself, so that all count for 100 bytes.
    void Overfill(uint32_t shorts) {
        Create(100, 'C' | ZB_IdxCompact);
        ASSERT_EQ(0, Add(Bytes(100, 'A'), 1));
        for (uint32_t i = 0; i < shorts; i++) ASSERT_EQ(0, Add(Padded("C", 100), 2 + i));
        ASSERT_EQ(0, Add(Bytes(100, '\x01'), 9));
    }
};

TEST_F(IdxCompactOverHeader, AKeyCanComeToStandOverTheSiblings) {
    Overfill(3);
    EXPECT_EQ(Hex("09 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00 01 00 00 00"), Leaf(24, 20));
    EXPECT_EQ(Hex("09 01"), Leaf(12, 2));
    // The last of five keys of 100 bytes begins at 12.
    ASSERT_EQ(0, Add(Padded("C", 100), 10));
    EXPECT_EQ(Hex("03 00 06 00 FF FF FF FF FF FF FF 43 04 01"), Leaf(0, 14));
    EXPECT_EQ(Hex("0A 00 00 C6"), Leaf(44, 4));
}

TEST_F(IdxCompactOverHeader, AKeyOfNoBytesGoesInWhereverTheOthersEnd) {
    Overfill(4);
    // Six keys of 100 bytes would begin before the page.
    Bytes before = ReadFile("a.idx");
    EXPECT_EQ(ZB_ErrStructure, Add(Padded("C", 100), 10));
    ZBESCODE(0);
    EXPECT_EQ(before, ReadFile("a.idx"));
    ASSERT_EQ(0, Add(Fill(100, ' '), 10));
    EXPECT_EQ(Hex("07"), Leaf(2, 1));
    EXPECT_EQ(Hex("0A 00 90 01"), Leaf(48, 4));
}

TEST_F(IdxCompactOverHeader, AKeyOverTheWidthOfThePackedEntriesIsRefused) {
    Overfill(2);
    Bytes before = ReadFile("a.idx");
    EXPECT_EQ(ZB_ErrStructure, Add(Bytes(100, 'W'), 10));  // from 12 on
    EXPECT_EQ(before, ReadFile("a.idx"));
}

TEST_F(IdxCompact, ASplitMovesTheUpperEntriesAndBuildsARootFromRawBytes) {
    Create(100, 'C' | ZB_IdxCompact);
    auto full = [](char c) { return Bytes(100, c); };
    for (char c : {'A', 'B', 'C', 'D'}) ASSERT_EQ(0, Add(full(c), static_cast<uint32_t>(c)));
    EXPECT_EQ(Hex("48 00"), Leaf(12, 2));
    ASSERT_EQ(0, Add(full('E'), 0x45));
    IdxImage image("a.idx");
    EXPECT_EQ(2048u, image.root());
    EXPECT_EQ(2560u, image.fileEnd());
    // The old leaf: entries 1 and 2, the new page as its left sibling.
    EXPECT_EQ(Hex("02 00 02 00 00 06 00 00 FF FF FF FF 18 01"), Leaf(0, 14));
    EXPECT_EQ(Hex("41 00 00 00 42 00 00 00"), Leaf(24, 8));
    EXPECT_EQ(full('B') + full('A'), Leaf(312, 200));
    // The new one: the third entry without its key (100 equal bytes in front), the
    // fourth as it was, and the new one.
    EXPECT_EQ(Hex("02 00 03 00 FF FF FF FF 00 04 00 00 14 01"), Leaf(0, 14, 1536));
    EXPECT_EQ(Hex("43 00 90 01 44 00 00 00 45 00 00 00"), Leaf(24, 12, 1536));
    EXPECT_EQ(full('E') + full('D'), Leaf(312, 200, 1536));
    // The root's keys are what stands at the places of uncompressed entries.
    EXPECT_EQ(Hex("01 00 02 00 FF FF FF FF FF FF FF FF"), Leaf(0, 12, 2048));
    EXPECT_EQ(Leaf(12 + 2 * 108, 100, 1536), Leaf(12, 100, 2048));
    EXPECT_EQ(Hex("00 00 00 00 00 00 06 00"), Leaf(112, 8, 2048));
    EXPECT_EQ(Leaf(12 + 108, 100), Leaf(120, 100, 2048));
    // The record number stands the other way round there.
    EXPECT_EQ(Hex("45 00 00 00 00 00 04 00"), Leaf(220, 8, 2048));
}

TEST_F(IdxCompact, AHalfThatIsStillFullSplitsAgain) {
    Create(100, 'C' | ZB_IdxCompact);
    auto full = [](char c) { return Bytes(100, c); };
    // Six keys that take no bytes and four that take 100 each: the upper half has
    // no room for another.
    for (uint32_t i = 1; i <= 6; i++) ASSERT_EQ(0, Add(full(' '), i));
    for (char c : {'A', 'B', 'C', 'D'}) ASSERT_EQ(0, Add(full(c), static_cast<uint32_t>(c - 'A' + 7)));
    EXPECT_EQ(Hex("30 00"), Leaf(12, 2));
    EXPECT_EQ(ZB_ErrStructure, Add(full('E'), 11));
    EXPECT_EQ(Hex("02 00 05 00 00 06 00 00 FF FF FF FF D4 01"), Leaf(0, 14));
    EXPECT_EQ(Hex("01 00 90 01 02 00 90 01 03 00 90 01 04 00 90 01 05 00 90 01"), Leaf(24, 20));
    EXPECT_EQ(Hex("02 00 03 00 00 08 00 00 00 04 00 00 14 01"), Leaf(0, 14, 1536));
    EXPECT_EQ(Hex("06 00 90 01 07 00 00 00 08 00 00 00"), Leaf(24, 12, 1536));
    EXPECT_EQ(full('B') + full('A'), Leaf(312, 200, 1536));
    EXPECT_EQ(Hex("02 00 03 00 FF FF FF FF 00 06 00 00 14 01"), Leaf(0, 14, 2048));
    EXPECT_EQ(Hex("09 00 90 01 0A 00 00 00 0B 00 00 00"), Leaf(24, 12, 2048));
    EXPECT_EQ(full('E') + full('D'), Leaf(312, 200, 2048));
    // The fifth entry of the old leaf would reach beyond its page as a whole one,
    // so no root comes about.
    EXPECT_EQ(Hex("00 04 00 00 00 00 00 00 00 0C 00 00"), ReadFile("a.idx", 0, 12));
    EXPECT_EQ(Fill(512), Leaf(0, 512, 2560));
}

TEST_F(IdxCompact, ARootOverMoreEntriesThanItsTableHasIsNotMade) {
    Create(10, 'C' | ZB_IdxCompact);
    for (uint32_t i = 1; i <= 122; i++) ASSERT_EQ(0, Add(Padded("A", 10), i)) << i;
    EXPECT_EQ(Hex("00 00"), Leaf(12, 2));
    EXPECT_EQ(ZB_ErrStructure, Add(Padded("A", 10), 123));
    IdxImage image("a.idx");
    EXPECT_EQ(1024u, image.root());
    EXPECT_EQ(61, image.count(1024));
    EXPECT_EQ(62, image.count(1536));
    EXPECT_EQ(Fill(512), image.bytes.substr(2048));  // taken and not written
}

TEST_F(IdxCompact, ALeafPast127EntriesShowsTheFirstAlone) {
    Create(1, 'L' | ZB_IdxCompact);
    for (uint32_t i = 1; i <= 128; i++) ASSERT_EQ(0, Add("T", i)) << i;
    EXPECT_EQ(Hex("80"), Leaf(2, 1));
    ASSERT_EQ(0, ZBDIKTOP(index, text, &record));
    EXPECT_EQ(1u, record);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, text, &record));
    EXPECT_EQ(1u, record);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKPREV(index, text, &record));
    ASSERT_EQ(0, ZBDIKBOT(index, text, &record));
    EXPECT_EQ(1u, record);
    Bytes before = ReadFile("a.idx");
    EXPECT_EQ(ZB_ErrStructure, Add("T", 129));
    EXPECT_EQ(before, ReadFile("a.idx"));
}

TEST_F(IdxCompact, ALeafEmptiedByDeletesRunsFullWithoutEntries) {
    Create(5, 'C' | ZB_IdxCompact);
    int rounds = 0;
    int32_t code = 0;
    for (; rounds < 100; rounds++) {
        code = Add("ABCDE", 1);
        if (code != 0) break;
        ASSERT_EQ(0, Delete("     ", 1));
    }
    // 488 bytes, 8 each: then the leaf would split, and has nothing to share out.
    EXPECT_EQ(61, rounds);
    EXPECT_EQ(ZB_ErrStructure, code);
}

TEST_F(IdxCompact, TheMaskOfAnInteriorRootStaysTillTheClose) {
    Create(100, 'C' | ZB_IdxCompact);
    for (char c : {'A', 'B', 'C', 'D', 'E'}) ASSERT_EQ(0, Add(Bytes(100, c), static_cast<uint32_t>(c)));
    ASSERT_EQ(0, ZBDICLOSE(index));
    Open();
    // A find looks for the mask in the root, whose bytes there belong to a key.
    PatchFile("a.idx", 2048 + 14, Hex("01 00 00 00"));
    ASSERT_EQ(0, ZBDIKTYPE(index, 'C'));
    Find(Bytes(100, ' '), 0, 0);
    ASSERT_EQ(0, ZBDIKBOT(index, text, &record));
    EXPECT_EQ('B' & 1u, record);
    ASSERT_EQ(0, ZBDICLOSE(index));
    Open();
    ASSERT_EQ(0, ZBDIKBOT(index, text, &record));
    EXPECT_EQ(static_cast<uint32_t>('B'), record);
}

}  // namespace
}  // namespace test
