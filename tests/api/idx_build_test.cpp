// IDX indexes built from data files, and what such files are good for.
#include <algorithm>
#include <random>

#include "support/idx.h"

namespace test {
namespace {

Bytes Encoded(double value) {
    char key[8];
    EXPECT_EQ(0, ZBDIKNUM(key, value));
    return Bytes(key, 8);
}

class IdxBuild : public LibraryTest {
  protected:
    // A data file of the given fields; rows hold the fields' text, without the
    // delete flag unless it is given.
    void Data(std::vector<ZbFieldSpec> fields, const std::vector<Bytes>& rows) {
        if (data >= 0) {
            ASSERT_EQ(0, ZBDDCLOSE(data));
        }
        ASSERT_EQ(0, ZBDDCREATE("a.dbf", static_cast<int16_t>(fields.size()), fields.data(), ZB_DialectDb4));
        Bytes file = ReadFile("a.dbf");
        size_t header = static_cast<uint8_t>(file[8]) + 256u * static_cast<uint8_t>(file[9]);
        file.resize(header);
        for (int i = 0; i < 4; i++)
            file[static_cast<size_t>(4 + i)] = static_cast<char>(rows.size() >> 8 * i);
        for (auto& row : rows) file += row;
        WriteFile("a.dbf", file + "\x1A");
        uint16_t handle;
        ASSERT_EQ(0, ZBDDOPENX(&handle, "a.dbf", ZB_DialectDb4));
        data = static_cast<int16_t>(handle);
    }
    void Names(const std::vector<Bytes>& names) {
        std::vector<Bytes> rows;
        for (auto& name : names) rows.push_back(" " + name);
        Data({{"NAME", 'C', static_cast<uint16_t>(names.empty() ? 5 : names[0].size()), 0}}, rows);
    }
    int32_t Build(uint16_t type, int keyLength, std::string expression = "NAME") {
        text = expression;
        text.resize(text.size() + 1);
        int32_t code = ZBDIINDEX(data, "a.idx", type, text.data(), static_cast<int16_t>(keyLength));
        text.resize(strlen(text.c_str()));
        EXPECT_FALSE(FileExists("stacks.tmp"));
        return code;
    }
    void Open(char type = 'C') {
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        index = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDIKTYPE(index, type));
    }
    static std::vector<IdxEntry> Sorted(const std::vector<Bytes>& keys) {
        std::vector<IdxEntry> entries;
        for (size_t i = 0; i < keys.size(); i++) entries.push_back({keys[i], static_cast<uint32_t>(i + 1)});
        std::stable_sort(entries.begin(), entries.end(),
                         [](const IdxEntry& a, const IdxEntry& b) { return a.key < b.key; });
        return entries;
    }

    int16_t data = -1;
    int16_t index = -1;
    std::string text;
};

Bytes Number(uint32_t value, size_t length) {
    char digits[16];
    snprintf(digits, sizeof digits, "%08u", value);
    return Bytes(digits).substr(0, length) + Fill(length > 8 ? length - 8 : 0, ' ');
}

std::vector<Bytes> RandomNames(size_t count, size_t length, uint32_t universe, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::vector<Bytes> names;
    for (size_t i = 0; i < count; i++) names.push_back(Number(random() % universe, length));
    return names;
}

TEST_F(IdxBuild, AnEmptyDataFileLeavesTheIndexAsCreated) {
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        Names({});
        ASSERT_EQ(0, Build(static_cast<uint16_t>('C' | form), 5, "name"));
        EXPECT_EQ(form ? 1536u : 1024u, FileSize("a.idx"));
        EXPECT_EQ("name", text);
        Bytes built = ReadFile("a.idx");
        char expression[] = "NAME";
        ASSERT_EQ(0, ZBDICREATE("b.idx", static_cast<uint16_t>('C' | form), expression, 5));
        EXPECT_EQ(ReadFile("b.idx"), built);
    }
}

TEST_F(IdxBuild, TheExpressionBecomesUpperCaseInTheCallersText) {
    Names({"ANNA "});
    ASSERT_EQ(0, Build('C', 5, " na me "));
    EXPECT_EQ("NAME", text);
}

TEST_F(IdxBuild, OneRecordMakesTheDocumentedFiles) {
    Names({"ANNA "});
    ASSERT_EQ(0, Build('C', 5));
    Bytes file = ReadFile("a.idx");
    EXPECT_EQ(Hex("00 02 00 00 FF FF FF FF 00 04 00 00 05 00 00 00 4E 41 4D 45 00"), file.substr(0, 21));
    EXPECT_EQ(Hex("03 00 01 00 FF FF FF FF FF FF FF FF 41 4E 4E 41 20 00 00 00 01 00"), file.substr(512, 22));
    ASSERT_EQ(0, Build('C' | ZB_IdxCompact, 5));
    file = ReadFile("a.idx");
    EXPECT_EQ(Hex("00 04 00 00 00 00 00 00 00 00 00 00 05 00 20 00"), file.substr(0, 16));
    EXPECT_EQ(Hex("05 00 01 00 00 00 05 00"), file.substr(504, 8));
    EXPECT_EQ(Hex("03 00 01 00 FF FF FF FF FF FF FF FF E1 01 FF FF 03 00 07 07 12 03 03 03 01 00 20 00"),
              file.substr(1024, 28));
    EXPECT_EQ("ANNA", file.substr(1532));
    EXPECT_EQ(1536u, file.size());
}

TEST_F(IdxBuild, AsManyRecordsAsAPageHoldsMakeOneLeaf) {
    std::vector<Bytes> names = RandomNames(41, 8, 1000);
    Names(names);
    ASSERT_EQ(0, Build('C', 8));
    IdxImage image("a.idx");
    EXPECT_EQ(1024u, image.bytes.size());
    EXPECT_EQ(512u, image.root());
    EXPECT_EQ(3, image.attributes(512));
    EXPECT_EQ(41, image.count(512));
    EXPECT_EQ(Sorted(names), image.Entries(512));
}

TEST_F(IdxBuild, OneRecordMoreMakesTwoLinkedLeavesAndARoot) {
    std::vector<Bytes> names;
    for (uint32_t i = 1; i <= 42; i++) names.push_back(Number(i, 8));
    Names(names);
    ASSERT_EQ(0, Build('C', 8));
    Bytes file = ReadFile("a.idx");
    EXPECT_EQ(Hex("00 04 00 00 FF FF FF FF 00 08 00 00"), file.substr(0, 12));
    EXPECT_EQ(Hex("02 00 29 00 FF FF FF FF 00 06 00 00"), file.substr(512, 12));
    EXPECT_EQ(Hex("02 00 01 00 00 02 00 00 FF FF FF FF") + "00000042" + Hex("00 00 00 2A"),
              file.substr(1536, 24));
    // The last key is what the slot behind the last leaf's one entry held before:
    // the second key of the leaf before.
    EXPECT_EQ(Hex("01 00 02 00 FF FF FF FF FF FF FF FF") + "00000041" + Hex("00 00 02 00") + "00000002" +
                  Hex("00 00 06 00"),
              file.substr(1024, 36));
    EXPECT_EQ(2048u, file.size());
}

TEST_F(IdxBuild, AFullLastLeafCarriesUpWhatStandsBehindIt) {
    std::vector<Bytes> names = RandomNames(8, 100, 1000);
    Names(names);
    ASSERT_EQ(0, Build('C', 100));  // 4 entries of 104 bytes: 84 bytes of the page are behind them
    IdxImage image("a.idx");
    EXPECT_EQ(2, image.count(image.root()));
    EXPECT_EQ(Fill(100), image.key(image.root(), 1));
}

TEST_F(IdxBuild, AUniqueBuildKeepsEqualKeys) {
    Names({"BOB  ", "ANNA ", "BOB  "});
    ASSERT_EQ(0, Build('C' | ZB_IdxUnique, 5));
    IdxImage image("a.idx");
    EXPECT_EQ(1, image.bytes[14]);
    EXPECT_EQ((std::vector<IdxEntry>{{"ANNA ", 2}, {"BOB  ", 1}, {"BOB  ", 3}}), image.Walk());
}

TEST_F(IdxBuild, DeletedRecordsAreIndexed) {
    Data({{"NAME", 'C', 5, 0}}, {" BOB  ", "*ANNA "});
    ASSERT_EQ(0, Build('C', 5));
    EXPECT_EQ((std::vector<IdxEntry>{{"ANNA ", 2}, {"BOB  ", 1}}), IdxImage("a.idx").Walk());
}

TEST_F(IdxBuild, PlainFieldsGiveTheirForms) {
    Data({{"BORN", 'D', 8, 0}, {"SIZE", 'N', 6, 2}, {"GOOD", 'L', 1, 0}, {"PART", 'F', 8, 2}},
         {" 20000101 -1.50T    1.00", "          -2.00F    2.00", " 19991231      ?    3.00"});
    ASSERT_EQ(0, Build('D', 0, "BORN"));
    // A blank date isn't told apart: the count of the year 0 without month and day.
    EXPECT_EQ((std::vector<IdxEntry>{
                  {Encoded(1721410 - 365), 2}, {Encoded(2451178 + 366), 3}, {Encoded(2451545), 1}}),
              IdxImage("a.idx").Walk());
    ASSERT_EQ(0, Build('N', 0, "SIZE"));
    EXPECT_EQ((std::vector<IdxEntry>{{Encoded(-2), 2}, {Encoded(-1.5), 1}, {Encoded(0), 3}}),
              IdxImage("a.idx").Walk());
    // Other types give no bytes at all.
    ASSERT_EQ(0, Build('N', 0, "PART"));
    EXPECT_EQ((std::vector<IdxEntry>{{Fill(8), 1}, {Fill(8), 2}, {Fill(8), 3}}), IdxImage("a.idx").Walk());
    ASSERT_EQ(0, Build('L', 0, "GOOD"));
    EXPECT_EQ((std::vector<IdxEntry>{{Fill(1), 1}, {Fill(1), 2}, {Fill(1), 3}}), IdxImage("a.idx").Walk());
}

TEST_F(IdxBuild, AKeyOfAnotherLengthTakesWhatThereIs) {
    Data({{"NAME", 'C', 3, 0}, {"SIZE", 'N', 3, 0}}, {" ABC  1", " DEF  2"});
    ASSERT_EQ(0, Build('C', 5));
    EXPECT_EQ((std::vector<IdxEntry>{{"ABC  ", 1}, {"DEF  ", 2}}), IdxImage("a.idx").Walk());
    ASSERT_EQ(0, Build('C', 3, "SIZE"));
    EXPECT_EQ((std::vector<IdxEntry>{{Encoded(1).substr(0, 3), 1}, {Encoded(2).substr(0, 3), 2}}),
              IdxImage("a.idx").Walk());
    ASSERT_EQ(0, Build('C', 10, "SIZE"));
    EXPECT_EQ((std::vector<IdxEntry>{{Encoded(1) + Fill(2), 1}, {Encoded(2) + Fill(2), 2}}),
              IdxImage("a.idx").Walk());
}

TEST_F(IdxBuild, ExpressionsGiveTheirForms) {
    Data({{"NAME", 'C', 3, 0}, {"SIZE", 'N', 3, 0}, {"GOOD", 'L', 1, 0}}, {" abc  1F", " DEF -2T"});
    ASSERT_EQ(0, Build('C', 3, "left(name,3)"));
    EXPECT_EQ((std::vector<IdxEntry>{{"DEF", 2}, {"abc", 1}}), IdxImage("a.idx").Walk());
    EXPECT_EQ("LEFT(NAME,3)", text);
    ASSERT_EQ(0, Build('C', 6, "NAME+STR(SIZE,3)"));
    EXPECT_EQ((std::vector<IdxEntry>{{"DEF -2", 2}, {"abc  1", 1}}), IdxImage("a.idx").Walk());
    // Shorter than the key: zeros follow.
    ASSERT_EQ(0, Build('C', 5, "LEFT(NAME,3)"));
    EXPECT_EQ((std::vector<IdxEntry>{{"DEF" + Fill(2), 2}, {"abc" + Fill(2), 1}}), IdxImage("a.idx").Walk());
}

TEST_F(IdxBuild, StandardFilesOfManyLevelsHoldEveryKey) {
    for (size_t count : {5, 16, 17, 64, 65, 250, 1025}) {
        SCOPED_TRACE(count);
        std::vector<Bytes> names = RandomNames(count, 100, 700, static_cast<unsigned>(count));
        Names(names);
        ASSERT_EQ(0, Build('C', 100));
        IdxImage image("a.idx");
        EXPECT_EQ(Sorted(names), image.Walk());
        EXPECT_EQ("", image.fault);
        Open();
        uint32_t record = 0;
        char key[128];
        size_t seen = 0;
        std::vector<IdxEntry> sorted = Sorted(names);
        for (int32_t code = ZBDIKTOP(index, key, &record); code == 0;
             code = ZBDIKNEXT(index, key, &record), seen++) {
            ASSERT_LT(seen, sorted.size());
            ASSERT_EQ(sorted[seen].record, record);
            ASSERT_EQ(sorted[seen].key, Bytes(key, 100));
        }
        EXPECT_EQ(count, seen);
        // Searches of this library take the last way down whatever its key says.
        for (auto& entry : sorted) {
            memcpy(key, entry.key.data(), 100);
            record = entry.record;
            ASSERT_EQ(0, ZBDIKFIND(index, key, &record, 2)) << entry.key;
            ASSERT_EQ(entry.record, record);
        }
        ASSERT_EQ(0, ZBDICLOSE(index));
    }
}

TEST_F(IdxBuild, SiblingsAndAttributesAreSetOnEveryLevel) {
    std::vector<Bytes> names;
    for (uint32_t i = 1; i <= 300; i++) names.push_back(Number(i, 100));
    Names(names);
    ASSERT_EQ(0, Build('C', 100));
    IdxImage image("a.idx");
    for (uint32_t first = image.root();; first = image.child(first, 0)) {
        uint32_t before = 0xFFFFFFFF;
        for (uint32_t page = first; page != 0xFFFFFFFF; page = image.right(page)) {
            EXPECT_EQ(before, image.left(page));
            int expected = page == image.root() ? 1 : image.leaf(first) ? 2 : 0;
            EXPECT_EQ(expected, image.attributes(page));
            before = page;
        }
        if (image.leaf(first)) break;
    }
}

// A key above all others, added and taken away again, sets the keys that the
// build left open right.
TEST_F(IdxBuild, AnAddAndADeleteOfAHighKeyMakeABuiltStandardFileWhole) {
    for (int keyLength : {8, 100})
        for (size_t count = 1; count <= 300; count += count < 22 ? 1 : 13) {
            SCOPED_TRACE(count);
            std::vector<Bytes> names;
            for (uint32_t i = 1; i <= count; i++) names.push_back(Number(i, static_cast<size_t>(keyLength)));
            Names(names);
            ASSERT_EQ(0, Build('C', keyLength));
            Open();
            Bytes high(static_cast<size_t>(keyLength), '\xFF');
            ASSERT_EQ(0, ZBDIKADD(index, high.data(), 1));
            ASSERT_EQ(0, ZBDIKDEL(index, high.data(), 1));
            ASSERT_EQ(0, ZBDICLOSE(index));
            IdxImage image("a.idx");
            EXPECT_EQ(Sorted(names), image.Walk(IdxImage::Siblings | IdxImage::Separators));
            EXPECT_EQ("", image.fault);
        }
}

TEST_F(IdxBuild, ABuiltStandardFileGoesOnWithAddsAndDeletes) {
    std::vector<Bytes> names = RandomNames(333, 100, 200);
    Names(names);
    ASSERT_EQ(0, Build('C', 100));
    std::vector<IdxEntry> model = Sorted(names);
    Open();
    std::mt19937 random(3);
    for (uint32_t i = 1; i <= 800; i++) {
        if (random() % 2) {
            Bytes key = Number(random() % 200, 100);
            uint32_t record = 1000 + i;
            ASSERT_EQ(0, ZBDIKADD(index, key.data(), record));
            auto at = std::upper_bound(model.begin(), model.end(), key,
                                       [](const Bytes& k, const IdxEntry& e) { return k < e.key; });
            model.insert(at, {key, record});
        } else if (!model.empty()) {
            auto at = model.begin() + static_cast<ptrdiff_t>(random() % model.size());
            ASSERT_EQ(0, ZBDIKDEL(index, at->key.data(), at->record));
            model.erase(at);
        }
        if (i % 20) continue;
        IdxImage image("a.idx");
        ASSERT_EQ(model, image.Walk());
        ASSERT_EQ("", image.fault) << i;
    }
}

TEST_F(IdxBuild, CompactFilesDecodeToWhatWentIn) {
    for (int keyLength : {1, 2, 3, 8, 10, 31, 32, 100})
        for (size_t count : {1, 50, 200, 1200}) {
            SCOPED_TRACE(std::to_string(keyLength) + " " + std::to_string(count));
            std::mt19937 random(static_cast<unsigned>(keyLength));
            std::vector<Bytes> names;
            for (size_t i = 0; i < count; i++) {
                Bytes name = std::to_string(random() % 5000);
                name.resize(static_cast<size_t>(keyLength), random() % 20 ? ' ' : 'x');
                names.push_back(name);
            }
            Names(names);
            ASSERT_EQ(0, Build('C' | ZB_IdxCompact, keyLength));
            IdxImage image("a.idx");
            EXPECT_EQ(Sorted(names), image.Walk(IdxImage::Separators));
            EXPECT_EQ("", image.fault);
            // Each key stores no more than what its neighbour lacks.
            uint32_t page = image.root();
            while (!image.leaf(page)) page = image.child(page, 0);
            auto length = static_cast<size_t>(keyLength);
            for (; page != 0xFFFFFFFF; page = image.right(page)) {
                size_t stored = 0;
                Bytes before(length, ' ');
                for (auto& entry : image.Entries(page)) {
                    size_t dup = 0, trail = 0;
                    while (dup < length && entry.key[dup] == before[dup]) dup++;
                    while (dup < length && entry.key[length - 1 - trail] == before[length - 1 - trail])
                        trail++;
                    stored += length - dup - trail;
                    before = entry.key;
                }
                auto entries = static_cast<size_t>(image.count(page) * image.bytes[page + 23]);
                EXPECT_EQ(488u, image.Le16(page + 12) + stored + entries);
            }
        }
}

TEST_F(IdxBuild, PackedEntriesOfEveryWidth) {
    const struct {
        size_t keyLength;
        const char* free;
        const char* entries;
    } cases[] = {{2, "DC 01", "02 00 00 03 00 20 01 00 10"},
                 {3, "DC 01", "02 00 40 03 00 30 01 00 50"},
                 {10, "DC 01", "02 00 80 03 00 0A 01 00 81"},
                 {31, "DC 01", "02 00 E8 03 C0 07 01 40 E8"},
                 {32, "D9 01", "02 00 00 78 03 00 00 02 01 00 10 78"},
                 {100, "D9 01", "02 00 00 C4 03 00 90 01 01 00 04 C4"}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.keyLength);
        Bytes tail(c.keyLength - 2, ' ');
        Names({"AC" + tail, "AB" + tail, "AB" + tail});
        ASSERT_EQ(0, Build('C' | ZB_IdxCompact, static_cast<int>(c.keyLength)));
        EXPECT_EQ(Hex(c.free), ReadFile("a.idx", 1024 + 12, 2));
        Bytes entries = Hex(c.entries);
        EXPECT_EQ(entries + Fill(485 - entries.size()) + "CAB", ReadFile("a.idx", 1024 + 24, 488));
    }
    Names({"B", "A", " "});
    ASSERT_EQ(0, Build('C' | ZB_IdxCompact, 1));
    EXPECT_EQ(Hex("E0 01"), ReadFile("a.idx", 1024 + 12, 2));
    EXPECT_EQ(Hex("03 40 02 00 01 00") + Fill(480) + "BA", ReadFile("a.idx", 1024 + 24, 488));
}

TEST_F(IdxBuild, EqualKeysStoreNothingAfterTheFirstOfALeaf) {
    Names(std::vector<Bytes>(10, "ANNAB"));
    ASSERT_EQ(0, Build('C' | ZB_IdxCompact, 5));
    // 488 - 10 entries of 3 bytes - the 5 bytes of one key.
    EXPECT_EQ(Hex("C5 01"), ReadFile("a.idx", 1024 + 12, 2));
    EXPECT_EQ(Hex("01 00 00 02 00 14 03 00 14"), ReadFile("a.idx", 1024 + 24, 9));
    EXPECT_EQ(Bytes("\0ANNAB", 6), ReadFile("a.idx", 1536 - 6, 6));
}

TEST_F(IdxBuild, ACompactFileGivesItsRecordsInOrder) {
    std::vector<Bytes> names = RandomNames(1000, 8, 100000);
    Names(names);
    ASSERT_EQ(0, Build('C' | ZB_IdxCompact, 8));
    Open();
    uint32_t record = 0;
    char key[16];
    size_t seen = 0;
    auto sorted = Sorted(names);
    for (int32_t code = ZBDIKTOP(index, key, &record); code == 0;
         code = ZBDIKNEXT(index, key, &record), seen++) {
        ASSERT_LT(seen, sorted.size());
        ASSERT_EQ(sorted[seen].record, record) << seen;
        ASSERT_STREQ("        ", key);
    }
    EXPECT_EQ(sorted.size(), seen);
    // A real key ends its search behind the last entry.
    memcpy(key, sorted[10].key.data(), 8);
    EXPECT_EQ(ZB_KeyNear, ZBDIKFIND(index, key, &record, 0));
    EXPECT_EQ(sorted.back().record, record);
}

TEST_F(IdxBuild, ARealKeyNeverMatchesInAPackedLeaf) {
    std::vector<Bytes> names = RandomNames(400, 8, 100000);
    Names(names);
    ASSERT_EQ(0, Build('C' | ZB_IdxCompact, 8));
    Open();
    uint32_t lastRecord = Sorted(names).back().record;
    char key[16];
    uint32_t record;
    ASSERT_EQ(0, ZBDIKTOP(index, key, &record));
    for (int16_t mode : {0, 2})
        for (uint32_t i = 0; i < names.size(); i += 37) {
            memcpy(key, names[i].data(), 8);
            record = i + 1;
            EXPECT_EQ(ZB_KeyNear, ZBDIKFIND(index, key, &record, mode));
            EXPECT_EQ(lastRecord, record);
            EXPECT_STREQ("        ", key);
        }
}

TEST_F(IdxBuild, APackedLeafPast127EntriesShowsItsFirst) {
    Data({{"GOOD", 'L', 1, 0}}, std::vector<Bytes>(200, " T"));
    ASSERT_EQ(0, Build('L' | ZB_IdxCompact, 1, "GOOD"));
    EXPECT_EQ(Hex("C8"), ReadFile("a.idx", 1026, 1));
    Open('L');
    char key[8];
    uint32_t record = 0;
    EXPECT_EQ(0, ZBDIKTOP(index, key, &record));
    EXPECT_EQ(1u, record);
    EXPECT_EQ(ZB_KeyEnd, ZBDIKNEXT(index, key, &record));
    EXPECT_EQ(1u, record);
    EXPECT_EQ(0, ZBDIKBOT(index, key, &record));
    EXPECT_EQ(1u, record);
}

TEST_F(IdxBuild, ManyRunsMergeInOrder) {
    std::vector<Bytes> names = RandomNames(9000, 30, 100000000);
    Names(names);
    ASSERT_EQ(0, Build('C', 30));
    EXPECT_EQ(Sorted(names), IdxImage("a.idx").Walk());
}

TEST_F(IdxBuild, AFailedBuildLeavesNothing) {
    Data({{"BORN", 'D', 8, 0}}, {" 20000101", " 20001301"});
    EXPECT_EQ(ZB_ErrBadDate, Build('D', 0, "BORN"));
    ZBESCODE(0);
    EXPECT_FALSE(FileExists("a.idx"));
    EXPECT_EQ(ZB_ErrExpression, Build('C', 5, "SUBSTR(DTOS(BORN),0,1)"));
    ZBESCODE(0);
    EXPECT_FALSE(FileExists("a.idx"));
    // The data file is free again.
    uint16_t conflict = 0;
    EXPECT_EQ(0, ZBDDLOCK(data, 2, &conflict));
    EXPECT_EQ(0, conflict);
}

TEST_F(IdxBuild, ARefusedCreationLeavesTheFileThatWasThere) {
    Names({"ANNA "});
    WriteFile("a.idx", "mine");
    EXPECT_EQ(ZB_ErrKeyType, Build('X', 5));
    ZBESCODE(0);
    EXPECT_EQ("mine", ReadFile("a.idx"));
    EXPECT_EQ(ZB_ErrNullPointer, ZBDIINDEX(data, nullptr, 'C', text.data(), 5));
    ZBESCODE(0);
    EXPECT_EQ(ZB_ErrNullPointer, ZBDIINDEX(data, "a.idx", 'C', nullptr, 5));
}

}  // namespace
}  // namespace test
