// Damaged IDX files: nothing crashes, hangs, or is touched outside its place.
#include <random>
#include <set>

#include "support/idx.h"

namespace test {
namespace {

class IdxDamage : public LibraryTest {
  protected:
    void Create(int keyLength, uint16_t type, uint32_t adds) {
        if (index >= 0) {
            ASSERT_EQ(0, ZBDICLOSE(index));
        }
        char expression[] = "NAME";
        ASSERT_EQ(0, ZBDICREATE("a.idx", type, expression, static_cast<int16_t>(keyLength)));
        length = static_cast<size_t>(keyLength);
        Open();
        for (uint32_t i = 1; i <= adds; i++) ASSERT_EQ(0, ZBDIKADD(index, Key(i).data(), i));
    }
    void Open() {
        uint16_t handle;
        ASSERT_EQ(0, ZBDIOPENX(&handle, "a.idx", 0));
        index = static_cast<int16_t>(handle);
        ASSERT_EQ(0, ZBDIKTYPE(index, 'C'));
    }
    Bytes Key(uint32_t i) const { return Bytes(length, static_cast<char>('A' + i % 26)); }
    int32_t Top() { return Cleared(ZBDIKTOP(index, key, &record)); }
    int32_t Bottom() { return Cleared(ZBDIKBOT(index, key, &record)); }
    int32_t Find(uint32_t i) {
        Bytes wanted = Key(i);
        memcpy(key, wanted.data(), length);
        record = i;
        return Cleared(ZBDIKFIND(index, key, &record, 2));
    }
    int32_t Add(uint32_t i) { return Cleared(ZBDIKADD(index, Key(i).data(), i)); }
    int32_t Delete(uint32_t i) { return Cleared(ZBDIKDEL(index, Key(i).data(), i)); }
    static int32_t Cleared(int32_t code) {
        ZBESCODE(0);
        return code;
    }

    size_t length = 0;
    int16_t index = -1;
    char key[128] = {};
    uint32_t record = 0;
};

TEST_F(IdxDamage, CountsBeyondAPageAreRefused) {
    Create(100, 'C', 7);
    Bytes good = ReadFile("a.idx");
    uint32_t root = IdxImage("a.idx").root();
    for (const char* count : {"05", "7F", "80", "FF"}) {
        PatchFile("a.idx", root + 2, Hex(count));
        EXPECT_EQ(ZB_ErrStructure, Top());
        EXPECT_EQ(ZB_ErrStructure, Find(1));
        Bytes before = ReadFile("a.idx");
        EXPECT_EQ(ZB_ErrStructure, Add(1));
        EXPECT_EQ(ZB_ErrStructure, Delete(1));
        EXPECT_EQ(before, ReadFile("a.idx"));
        WriteFile("a.idx", good);
    }
}

TEST_F(IdxDamage, AnEmptyPageBelowTheRootIsRefused) {
    Create(100, 'C', 7);
    IdxImage image("a.idx");
    uint32_t first = image.child(image.root(), 0);
    uint32_t last = image.child(image.root(), image.count(image.root()) - 1);
    PatchFile("a.idx", first + 2, Hex("00"));
    EXPECT_EQ(ZB_ErrStructure, Top());
    EXPECT_EQ(0, Bottom());
    PatchFile("a.idx", last + 2, Hex("00"));
    EXPECT_EQ(ZB_ErrStructure, Bottom());
}

TEST_F(IdxDamage, PositionsOutsideTheFileOrBetweenPagesAreRefused) {
    Create(100, 'C', 7);
    uint32_t root = IdxImage("a.idx").root();
    for (const char* child :
         {"00 00 00 00", "00 00 01 00", "00 00 02 01", "7F FF FE 00", "FF FF FE 00", "80 00 00 00"}) {
        PatchFile("a.idx", root + 12 + 100, Hex(child));
        EXPECT_EQ(ZB_ErrSeek, Top()) << child;
        EXPECT_EQ(ZB_ErrSeek, Find(0)) << child;
        EXPECT_EQ(ZB_ErrSeek, Add(0)) << child;
    }
}

TEST_F(IdxDamage, PagesInACircleEnd) {
    Create(100, 'C', 7);
    IdxImage image("a.idx");
    uint32_t root = image.root();
    Bytes self = Fill(4);
    for (int i = 0; i < 4; i++) self[static_cast<size_t>(i)] = static_cast<char>(root >> 8 * (3 - i));
    for (int i = 0; i < image.count(root); i++)
        PatchFile("a.idx", root + 12 + static_cast<size_t>(i) * 104 + 100, self);
    EXPECT_EQ(ZB_ErrStructure, Top());
    EXPECT_EQ(ZB_ErrStructure, Bottom());
    EXPECT_EQ(ZB_ErrStructure, Find(3));
    EXPECT_EQ(ZB_ErrStructure, Add(3));
    EXPECT_EQ(ZB_ErrStructure, Delete(3));
}

TEST_F(IdxDamage, AFreeChainIntoAPageInUseEndsTheSplit) {
    Create(100, 'C', 4);
    PatchFile("a.idx", 4, Hex("00 02 00 00"));
    EXPECT_EQ(ZB_ErrStructure, Add(2));
    PatchFile("a.idx", 4, Hex("01 02 00 00"));
    EXPECT_EQ(ZB_ErrSeek, Add(2));
    PatchFile("a.idx", 4, Hex("00 00 01 00"));
    EXPECT_EQ(ZB_ErrSeek, Add(2));
    EXPECT_EQ(4u, IdxImage("a.idx").Walk().size());
}

TEST_F(IdxDamage, AnEndBetweenPagesGivesNoPage) {
    Create(100, 'C', 4);
    Bytes before = ReadFile("a.idx");
    PatchFile("a.idx", 8, Hex("01 04 00 00"));
    EXPECT_EQ(ZB_ErrSeek, Add(2));
    // The file has grown by then; no page was written.
    EXPECT_EQ(Hex("01 06 00 00"), ReadFile("a.idx", 8, 4));
    EXPECT_EQ(before.substr(512) + Fill(513), ReadFile("a.idx").substr(512));
}

TEST_F(IdxDamage, AnEndThatHasNoRoomForAPageGivesNone) {
    Create(100, 'C', 4);
    PatchFile("a.idx", 8, Hex("00 FE FF 7F"));
    Bytes before = ReadFile("a.idx");
    EXPECT_EQ(ZB_ErrSeek, Add(2));
    EXPECT_EQ(before, ReadFile("a.idx"));
}

TEST_F(IdxDamage, ALeftSiblingOutsideTheFileEndsTheSplit) {
    Create(100, 'C', 4);
    PatchFile("a.idx", 512 + 4, Hex("00 00 01 00"));
    EXPECT_EQ(ZB_ErrSeek, Add(2));
}

TEST_F(IdxDamage, PackedLeavesThatLieAreRefusedBeforeAnythingIsTouched) {
    Create(10, 'C' | ZB_IdxCompact, 6);
    Bytes good = ReadFile("a.idx");
    const struct {
        size_t at;
        const char* bytes;
        int32_t top, add;
    } cases[] = {
        {23, "05", ZB_ErrStructure, ZB_ErrStructure},  // EntryBytes
        {23, "FF", ZB_ErrStructure, ZB_ErrStructure},
        {12, "FF FF", 0, ZB_ErrStructure},  // FreeSpace
        {12, "E8 01", 0, ZB_ErrStructure},
        {2, "FF", 0, ZB_ErrStructure},  // KeyCount below 0
        {2, "7F", 0, ZB_ErrStructure},  // more than there is room for
        {20, "FF FF FF", 0, 0},         // widths
        {18, "FF FF", 0, 0},            // masks
    };
    for (auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.at) + " " + c.bytes);
        WriteFile("a.idx", good);
        PatchFile("a.idx", 1024 + c.at, Hex(c.bytes));
        Bytes before = ReadFile("a.idx");
        EXPECT_EQ(c.top, Top());
        EXPECT_EQ(c.add, Add(9));
        EXPECT_EQ(c.add < 0, before == ReadFile("a.idx"));
    }
}

TEST_F(IdxDamage, WidthsThatLieShiftEverythingOut) {
    Create(10, 'C' | ZB_IdxCompact, 1);
    PatchFile("a.idx", 1024 + 20, Hex("FF FF FF"));
    EXPECT_EQ(0, Top());
    EXPECT_EQ(1u, record);
    EXPECT_EQ(0, Add(2));
    EXPECT_EQ(Hex("02 00 00"), ReadFile("a.idx", 1024 + 27, 3));
}

TEST_F(IdxDamage, EntriesOfNoBytesEnd) {
    Create(10, 'C' | ZB_IdxCompact, 6);
    PatchFile("a.idx", 1024 + 23, Hex("00"));
    EXPECT_EQ(0, Top());
    EXPECT_EQ(ZB_KeyNear, Find(3));
}

// Random damage, in place, to files of every sort; what comes back doesn't
// matter, so long as it comes back.
TEST_F(IdxDamage, RandomDamageIsSurvived) {
    std::mt19937 random(2024);
    const struct {
        int keyLength;
        int type;
        uint32_t adds;
    } sorts[] = {{100, 'C', 60},
                 {8, 'C', 300},
                 {100, 'C' | ZB_IdxCompact, 4},
                 {100, 'C' | ZB_IdxCompact, 14},
                 {10, 'C' | ZB_IdxCompact, 30},
                 {3, 'C' | ZB_IdxCompact, 60}};
    for (auto& sort : sorts) {
        Create(sort.keyLength, static_cast<uint16_t>(sort.type), 0);
        for (uint32_t i = 1; i <= sort.adds; i++) Add(i);
        Bytes good = ReadFile("a.idx");
        for (int round = 0; round < 30; round++) {
            Bytes bad = good;
            for (unsigned n = 1 + random() % 6; n > 0; n--) {
                static const int interesting[] = {0, 1, 2, 3, 4, 5, 0x7F, 0x80, 0xFF, 0x20, 24, 100};
                size_t page = random() % (bad.size() / 512) * 512;
                size_t at = page + (random() % 3 ? random() % 28 : random() % 512);
                if (at >= 12 && at <= 15) continue;  // the shape was taken at the open
                bad[at] =
                    static_cast<char>(random() % 2 ? interesting[random() % 12] : static_cast<int>(random()));
            }
            WriteFile("a.idx", bad);
            for (int step = 0; step < 40; step++) {
                uint32_t i = random() % 80;
                switch (random() % 9) {
                    case 0: Top(); break;
                    case 1: Bottom(); break;
                    case 2: Find(i); break;
                    case 3: Cleared(ZBDIKNEXT(index, key, &record)); break;
                    case 4: Cleared(ZBDIKPREV(index, key, &record)); break;
                    case 5: Cleared(ZBDIKCUR(index, key, &record)); break;
                    case 6: Delete(i); break;
                    case 7:
                        Cleared(ZBDIKDEL(index, Fill(length, static_cast<int>(random() % 34)).data(), i));
                        break;
                    default:
                        if (random() % 2)
                            Add(i);
                        else
                            Cleared(ZBDIKADD(index, Fill(length, static_cast<int>(random() % 34)).data(), i));
                }
            }
            // And opened as it now is.
            uint16_t other;
            if (ZBDIOPENX(&other, "a.idx", ZB_Shared) >= 0) ZBDICLOSE(static_cast<int16_t>(other));
            ZBESCODE(0);
        }
    }
}

TEST_F(IdxDamage, RandomHeadersAreSurvived) {
    std::mt19937 random(77);
    for (uint16_t form : {0, int{ZB_IdxCompact}}) {
        Create(10, static_cast<uint16_t>('C' | form), 30);
        ASSERT_EQ(0, ZBDICLOSE(index));
        index = -1;
        Bytes good = ReadFile("a.idx");
        for (int round = 0; round < 200; round++) {
            Bytes bad = good;
            for (unsigned n = 1 + random() % 4; n > 0; n--) {
                size_t at = random() % 2 ? random() % 18 : 500 + random() % 14;
                bad[at] = static_cast<char>(random() % 2 ? 0xFF : random());
            }
            bad.resize(random() % 4 ? bad.size() : random() % bad.size());
            WriteFile("a.idx", bad);
            uint16_t handle;
            if (ZBDIOPENX(&handle, "a.idx", 0) >= 0) {
                index = static_cast<int16_t>(handle);
                length = 10;
                Top();
                Find(3);
                Bottom();
                ZBDICLOSE(index);
                index = -1;
            }
            ZBESCODE(0);
        }
    }
}

}  // namespace
}  // namespace test
