// .FPT memo files.
#include <cstring>
#include <map>
#include <random>

#include "support/memo.h"
#include "support/system.h"

using namespace test;

namespace {

class Fpt : public FptTest {};

Bytes Memo(const std::string& text) { return Be32(1) + Be32(static_cast<uint32_t>(text.size())) + text; }

// ---- creation ----

TEST_F(Fpt, Size1Gives512Bytes) {
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
    EXPECT_EQ(ReadFile("memo.fpt"), Hex("00 00 00 01 00 00 02 00") + Fill(504));
}

TEST_F(Fpt, Size64GivesBlocksOf64) {
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 64), 0);
    EXPECT_EQ(ReadFile("memo.fpt"), Hex("00 00 00 08 00 00 00 40") + Fill(504));
}

TEST_F(Fpt, OtherSizes) {
    auto header = [](int16_t size) {
        EXPECT_EQ(ZBDWCREATE("memo.fpt", size), 0);
        return ReadFile("memo.fpt", 0, 8) + Be32(static_cast<uint32_t>(FileSize("memo.fpt")));
    };
    EXPECT_EQ(header(32), Hex("00 00 00 01 00 00 40 00 00 00 40 00"));   // 16384
    EXPECT_EQ(header(33), Hex("00 00 00 10 00 00 00 21 00 00 02 10"));   // 16 of 33
    EXPECT_EQ(header(511), Hex("00 00 00 02 00 00 01 FF 00 00 03 FE"));  // 2 of 511
}

TEST_F(Fpt, CreationChecksInItsOrder) {
    ZBESCODE(-6);
    EXPECT_EQ(ZBDWCREATE(nullptr, 0), -6);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWCREATE(nullptr, 0), -21);
    for (int16_t size : {0, 512, -1, 32767}) {
        ZBESCODE(0);
        EXPECT_EQ(ZBDWCREATE("", size), -49) << size;
    }
    ZBESCODE(0);
    EXPECT_EQ(ZBDWCREATE("", 1), -14);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWCREATE("no/such/directory", 1), -46);
    ZBESCODE(4);
    EXPECT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
}

// ---- open and close ----

TEST_F(Fpt, OpenChecksTheModeAndTheHeader) {
    auto code = [&](const Bytes& header, size_t size, int mode = 0) {
        WriteFile("memo.fpt", header + Fill(size - header.size()));
        int16_t memo = 77;
        int32_t result = ZBDWOPENX(&memo, "memo.fpt", static_cast<uint16_t>(mode));
        EXPECT_EQ(memo, result < 0 ? -1 : 0);
        if (result == 0) {
            EXPECT_EQ(ZBDWCLOSE(memo), 0);
        }
        ZBESCODE(0);
        return result;
    };
    Bytes one = Be32(1);
    EXPECT_EQ(code(one + Be32(512), 512), 0);
    EXPECT_EQ(code(one + Be32(512), 512, 4), 0);
    for (int mode : {1, 2, 3, 5, 8, 255}) EXPECT_EQ(code(one + Be32(1), 20, mode), -18) << mode;
    EXPECT_EQ(code(one + Be32(1), 511), -17);
    EXPECT_EQ(code(one + Be32(32), 512), -49);
    EXPECT_EQ(code(one + Be32(33), 512), 0);
    EXPECT_EQ(code(one + Be32(16384), 512), 0);
    EXPECT_EQ(code(one + Be32(16385), 512), -49);
    EXPECT_EQ(code(one + Be32(0x80000200), 512), -49);
    EXPECT_EQ(code(one + Hex("40 00 00 00"), 512), -49);
    EXPECT_EQ(code(Be32(0xFFFFFFFF) + Be32(64), 512), 0);  // the next block isn't looked at
}

TEST_F(Fpt, OpenRefusesWhatItCannotUse) {
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
    int16_t memo = 77;
    ZBESCODE(-6);
    EXPECT_EQ(ZBDWOPENX(nullptr, nullptr, 0), -6);
    EXPECT_EQ(ZBDWOPENX(&memo, "memo.fpt", 0), -6);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWOPENX(&memo, nullptr, 0), -21);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWOPENX(nullptr, "memo.fpt", 0), -21);
    EXPECT_EQ(memo, 77);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWOPENX(&memo, "missing.fpt", 0), -46);
    EXPECT_EQ(memo, -1);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWOPENX(&memo, "", 0), -14);
    ZBESCODE(0);
    EXPECT_EQ(Open(0), 0);  // no slot was left taken
}

TEST_F(Fpt, ANameOf260BytesOpensAndOneOf261IsRefusedOnceItsHeaderIsRead) {
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
    int16_t memo = Open(0, LongName("memo.fpt", 260).c_str());
    ZbFptInfo info;
    ASSERT_EQ(ZBDWINFO(memo, &info), 0);
    EXPECT_EQ(std::string(info.path), LongName("memo.fpt", 260));
    ASSERT_EQ(ZBDWCLOSE(memo), 0);

    if (!OpensLongNames()) return;
    std::string name = LongName("memo.fpt", 261);
    auto refusal = [&](const std::string& path, uint16_t mode) {
        int32_t code = ZBDWOPENX(&memo, path.c_str(), mode);
        EXPECT_EQ(memo, -1);
        ZBESCODE(0);
        return code;
    };
    EXPECT_EQ(refusal(name, 0), -14);
    PatchFile("memo.fpt", 4, Be32(32));
    EXPECT_EQ(refusal(name, 0), -14);
    EXPECT_EQ(refusal("memo.fpt", 0), -49);
    EXPECT_EQ(refusal(name, 1), -18);
    WriteFile("memo.fpt", Fill(511));
    EXPECT_EQ(refusal(name, 0), -17);
    EXPECT_EQ(refusal(LongName("missing.fpt", 261), 0), -46);
}

TEST_F(Fpt, OpenTellsWhatItGot) {
    static_assert(sizeof(ZbFptInfo) == 265);
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 1), 0);
    ZbFptInfo info;
    auto flags = [&](int mode) {
        int16_t memo = Open(mode);
        memset(&info, 0xFF, sizeof info);
        EXPECT_EQ(ZBDWINFO(memo, &info), 0);
        EXPECT_EQ(ZBDWCLOSE(memo), 0);
        return info.flags;
    };
    EXPECT_EQ(flags(0), 0);
    EXPECT_STREQ(info.path, "memo.fpt");
    EXPECT_EQ(+info.reported, 0);
    EXPECT_EQ(flags(ZB_ReadOnly), 1);
    EXPECT_EQ(flags(ZB_Shared | 4), 2);
    EXPECT_EQ(flags(ZB_OpenShared | ZB_ReadOnly), 3);
}

TEST_F(Fpt, EveryCallRefusesAHandleThatIsNotItsOwn) {
    int16_t memo = Make(1);
    ASSERT_EQ(ZBDTCREATE("other.dbt"), 0);
    int16_t other = -1;
    ASSERT_EQ(ZBDTOPENX(&other, "other.dbt", 0), 0);
    for (int16_t handle : {other, int16_t{-1}, int16_t{2}, int16_t{95}}) {
        void* text = this;
        ZbFptInfo info;
        auto refused = [](int32_t code) {
            ZBESCODE(0);
            return code == -13;
        };
        EXPECT_TRUE(refused(ZBDWCLOSE(handle)));
        EXPECT_TRUE(refused(ZBDWHGET(handle)));
        EXPECT_TRUE(refused(ZBDWRGET(handle, 1, &text)));
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(Put(handle, "x"), -7);
        EXPECT_TRUE(refused(ZBECODE()));
        EXPECT_TRUE(refused(ZBDWINFO(handle, &info)));
    }
    EXPECT_EQ(ZBDTCLOSE(memo), -13);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWCLOSE(memo), 0);
    EXPECT_EQ(ZBDWCLOSE(memo), -13);
}

TEST_F(Fpt, NullPointersComeBeforeThePendingCode) {
    int16_t memo = Make(1);
    int32_t block = 1;
    auto refused = [](int32_t code) {
        bool right = code == -21 && ZBECODE() == -21;
        ZBESCODE(-6);
        return right;
    };
    ZBESCODE(-6);
    EXPECT_TRUE(refused(ZBDWRGET(memo, 1, nullptr)));
    EXPECT_TRUE(refused(ZBDWRPUT(memo, nullptr, "x", 0)));
    EXPECT_TRUE(refused(ZBDWRPUT(memo, &block, nullptr, 0)));
    EXPECT_TRUE(refused(ZBDWINFO(memo, nullptr)));
}

TEST_F(Fpt, APendingCodeStopsEveryCall) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "x"), 1);
    ZBESCODE(-6);
    int32_t block = 9;
    void* text = this;
    ZbFptInfo info;
    EXPECT_EQ(ZBDWCREATE("other.fpt", 1), -6);
    EXPECT_FALSE(FileExists("other.fpt"));
    EXPECT_EQ(ZBDWHGET(memo), -6);
    EXPECT_EQ(ZBDWRGET(memo, 1, &text), -6);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(ZBDWRPUT(memo, &block, "y", 0), -6);
    EXPECT_EQ(block, 9);
    EXPECT_EQ(ZBDWINFO(memo, &info), -6);
    EXPECT_EQ(ZBDWCLOSE(memo), -6);
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "x");
}

TEST_F(Fpt, FailuresAreLoggedUnderTheNamesOfTheOperations) {
    int16_t memo = Make(1);
    StartLog();
    auto log = [&](int32_t) {
        auto entries = Log();
        std::string units;
        for (auto& entry : entries) units += (units.empty() ? "" : " ") + entry.unit;
        ZBESCODE(0);
        StartLog();
        return units;
    };
    void* text;
    ZbFptInfo info;
    int32_t block = 1;
    EXPECT_EQ(log(ZBDWCREATE("x", 0)), "Wcreate");
    EXPECT_EQ(log(ZBDWOPENX(&memo, nullptr, 1)), "Wopen");
    EXPECT_EQ(log(ZBDWHGET(9)), "Wslock Whget");
    EXPECT_EQ(log(ZBDWRGET(9, 1, &text)), "Wslock Wrget");
    EXPECT_EQ(log(ZBDWRGET(memo, 0, &text)), "Wrget");
    EXPECT_EQ(log(ZBDWRPUT(9, &block, "", 0)), "Wslock Wrput");
    EXPECT_EQ(log(ZBDWRPUT(memo, &block, "", 1)), "Wrput");
    EXPECT_EQ(log(ZBDWINFO(9, &info)), "Wslock Winfo");
    EXPECT_EQ(log(ZBDWPACK(9, nullptr)), "Wpack");
    EXPECT_EQ(log(ZBDWINFO(memo, nullptr)), "");  // the one failure without a line
}

TEST_F(Fpt, AfterAQuickCloseTheFileIsLost) {
    int16_t memo = Make(1);
    EXPECT_EQ(ZBDQCLOSE(), 0);
    EXPECT_EQ(ZBDWHGET(memo), -46);
    ZBESCODE(0);
    EXPECT_EQ(ZBDWCLOSE(memo), -46);
}

// ---- reading ----

TEST_F(Fpt, BlocksFrom1ToBelowTheNextCanBeRead) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, "Hi"), 1);
    EXPECT_EQ(Get(memo, 0), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 2), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, -1), "<-4>");
    ZBESCODE(0);
    EXPECT_EQ(Get(memo, 1), "Hi");
    PatchFile("memo.fpt", 0, Be32(3));
    EXPECT_EQ(Get(memo, 2), "<-2>");  // in range, and not in the file
    ZBESCODE(0);
    PatchFile("memo.fpt", 0, Be32(0x7FFFFFFF));
    EXPECT_EQ(Get(memo, 0x7FFFFFFE), "<-4>");
    ZBESCODE(0);
    PatchFile("memo.fpt", 0, Be32(0x80000000));
    EXPECT_EQ(Get(memo, 1), "<-4>");
}

TEST_F(Fpt, AMemoIsAsLongAsItsHeaderSays) {
    int16_t memo = Make(1);
    ASSERT_EQ(Put(memo, Text(40)), 1);
    auto stored = [&](uint32_t type, uint32_t length) {
        PatchFile("memo.fpt", 512, Be32(type) + Be32(length));
        std::string text = Get(memo, 1);
        ZBESCODE(0);
        return text;
    };
    EXPECT_EQ(stored(1, 40), Text(40));
    EXPECT_EQ(stored(0, 40), Text(40));  // the type isn't looked at
    EXPECT_EQ(stored(0xFFFFFFFF, 3), Text(40).substr(0, 3));
    EXPECT_EQ(stored(1, 0), "");
    EXPECT_EQ(stored(1, 41), "<-2>");
    EXPECT_EQ(stored(1, 0xFFFFFFFF), "<-6>");
    EXPECT_EQ(stored(1, 0x80000000), "<-6>");
    EXPECT_EQ(stored(1, 0x7FFFFFFF), "<-2>");
    EXPECT_EQ(stored(1, 0x00010028), "<-2>");  // whatever its low 16 bits say
    PatchFile("memo.fpt", 520, Text(33000));
    EXPECT_EQ(stored(1, 32767), Text(32767));
    EXPECT_EQ(stored(1, 32768), "<-2>");
}

// ---- writing ----

TEST_F(Fpt, A10ByteMemoInBlocksOf64UsesOneBlock) {
    int16_t memo = Make(64);
    EXPECT_EQ(Put(memo, Text(10)), 8);
    EXPECT_EQ(ReadFile("memo.fpt"), Be32(9) + Be32(64) + Fill(504) + Memo(Text(10)));
}

TEST_F(Fpt, ANewMemoExtendsTheFileToItsStart) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, "Hi"), 8);
    ASSERT_EQ(Put(memo, Text(56)), 9);
    ASSERT_EQ(Put(memo, Text(57)), 10);
    ASSERT_EQ(Put(memo, ""), 12);
    EXPECT_EQ(ReadFile("memo.fpt"), Be32(13) + Be32(64) + Fill(504) + Memo("Hi") + Fill(54) + Memo(Text(56)) +
                                        Memo(Text(57)) + Fill(63) + Memo(""));
}

TEST_F(Fpt, ANewMemoCutsTheFileToItsStart) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, Text(1000)), 8);
    PatchFile("memo.fpt", 0, Be32(10));
    EXPECT_EQ(Put(memo, "x"), 10);
    EXPECT_EQ(ReadFile("memo.fpt", 512), Memo(Text(1000)).substr(0, 128) + Memo("x"));
    EXPECT_EQ(ReadFile("memo.fpt", 0, 4), Be32(11));
}

TEST_F(Fpt, AReplaceStaysOrMovesByItsCapacity) {
    int16_t memo = Make(64);
    auto capacity = [&](size_t old) {  // the largest size, head included, that stays
        size_t stays = 8;
        for (size_t needed = 8; needed <= old + 200; needed++) {
            int32_t block = Put(memo, Text(old));
            if (Replace(memo, block, Text(needed - 8)) != block) break;
            stays = needed;
        }
        return stays;
    };
    EXPECT_EQ(capacity(0), 64u);
    EXPECT_EQ(capacity(56), 64u);
    EXPECT_EQ(capacity(57), 64u);  // two blocks, counted as one: the head is left out
    EXPECT_EQ(capacity(64), 64u);
    EXPECT_EQ(capacity(65), 128u);
    EXPECT_EQ(capacity(128), 128u);
    EXPECT_EQ(capacity(129), 192u);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Fpt, AReplaceInPlaceLeavesTheHeaderAndTheOldTail) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, Text(50)), 8);
    Bytes header = ReadFile("memo.fpt", 0, 512);
    EXPECT_EQ(Replace(memo, 8, "Hi"), 8);
    EXPECT_EQ(ReadFile("memo.fpt"), header + Memo("Hi") + Text(50).substr(2));
}

TEST_F(Fpt, AMovedMemoLeavesItsBlocksDead) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, "one"), 8);
    ASSERT_EQ(Put(memo, "two"), 9);
    EXPECT_EQ(Replace(memo, 8, Text(57)), 10);
    EXPECT_EQ(Get(memo, 8), "one");
    EXPECT_EQ(Get(memo, 9), "two");
    EXPECT_EQ(Get(memo, 10), Text(57));
    EXPECT_EQ(ReadFile("memo.fpt", 0, 4), Be32(12));
}

TEST_F(Fpt, TheCapacityIsSummedIn16BitsWhereThoseEnd) {
    // Whether a text of `needed` bytes, head included, stays on one of a stored length.
    auto stays = [&](int size, uint32_t length, size_t needed) {
        int16_t memo = Make(size);
        int32_t block = Put(memo, "");
        PatchFile("memo.fpt", FileSize("memo.fpt") - 4, Be32(length));
        bool stayed = Replace(memo, block, Text(needed - 8)) == block;
        EXPECT_EQ(ZBECODE(), 0);
        EXPECT_EQ(ZBDWCLOSE(memo), 0);
        return stayed;
    };
    EXPECT_TRUE(stays(1, 32256, 32256));
    EXPECT_FALSE(stays(1, 32256, 32257));
    // 512 goes round to itself before it gets there: 32768 in full.
    EXPECT_TRUE(stays(1, 32257, 32768));
    EXPECT_FALSE(stays(1, 32257, 32769));
    EXPECT_TRUE(stays(32, 32767, 32768));
    // 33 goes round and comes by somewhere between the length and 32767.
    int16_t sum = 33;
    while (sum < 32740) sum = static_cast<int16_t>(sum + 33);
    EXPECT_TRUE(stays(33, 32740, static_cast<size_t>(sum)));
    EXPECT_FALSE(stays(33, 32740, static_cast<size_t>(sum) + 1));
    // The stored length counts in 16 bits too.
    EXPECT_TRUE(stays(64, 0x00010041, 128));
    EXPECT_FALSE(stays(64, 0x00010041, 129));
    EXPECT_TRUE(stays(64, 0x8000, 64));
    EXPECT_FALSE(stays(64, 0xFFFFFFFF, 65));
}

TEST_F(Fpt, TheLongestTextThatCanBeWritten) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, Text(32766)), 8);
    int32_t block = Put(memo, Text(32767));
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_EQ(Get(memo, 8), Text(32766));
    EXPECT_EQ(Get(memo, block), Text(32767));
    int32_t next = block + (32775 + 63) / 64;
    Bytes before = ReadFile("memo.fpt");
    for (size_t length : {32768u, 65536u, 70000u}) {
        EXPECT_EQ(Put(memo, Text(length)), next);
        EXPECT_EQ(ZBECODE(), -1);
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("memo.fpt", 0, before.size()), before);
        // The file ends behind the head of the memo that wasn't written.
        EXPECT_EQ(ReadFile("memo.fpt", static_cast<size_t>(next) * 64),
                  Be32(1) + Be32(static_cast<uint32_t>(length)));
        EXPECT_EQ(Replace(memo, 8, Text(length)), next);
        EXPECT_EQ(ZBECODE(), -1);
        ZBESCODE(0);
    }
    EXPECT_EQ(Get(memo, 8), Text(32766));
    EXPECT_EQ(Put(memo, "x"), next);
}

TEST_F(Fpt, WritesAreRefusedBeforeAnythingIsWritten) {
    int16_t memo = Make(64);
    ASSERT_EQ(Put(memo, "x"), 8);
    Bytes before = ReadFile("memo.fpt");
    int32_t block = 8;
    for (int16_t option : {1, 0x101, 0x200, -1, 40}) {
        EXPECT_EQ(ZBDWRPUT(memo, &block, "y", option), -12) << option;
        ZBESCODE(0);
    }
    EXPECT_EQ(Replace(memo, -1, "y"), -1);
    EXPECT_EQ(ZBECODE(), -4);
    ZBESCODE(0);
    EXPECT_EQ(Replace(memo, 9, "y"), 9);
    EXPECT_EQ(ZBECODE(), -2);
    ZBESCODE(0);
    ASSERT_EQ(ZBDWCLOSE(memo), 0);
    memo = Open(ZB_ReadOnly);
    EXPECT_EQ(ZBDWRPUT(memo, &block, "y", 1), -36);  // before the option
    EXPECT_EQ(block, 8);
    EXPECT_EQ(ReadFile("memo.fpt"), before);
}

TEST_F(Fpt, ADamagedNextBlockEndsTheWrite) {
    int16_t memo = Make(64);
    for (uint32_t next : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu}) {
        PatchFile("memo.fpt", 0, Be32(next));
        Put(memo, "x");
        EXPECT_EQ(ZBECODE(), -4) << next;
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("memo.fpt"), Be32(next) + Be32(64) + Fill(504));
    }
}

TEST_F(Fpt, AMemoThatWouldEndBeyond31BitsIsNotWritten) {
    int16_t memo = Make(64);
    PatchFile("memo.fpt", 0, Be32(0x1FFFFFF));  // the last block that begins within
    Put(memo, Text(56));
    EXPECT_EQ(ZBECODE(), -4);
    ZBESCODE(0);
    EXPECT_EQ(FileSize("memo.fpt"), 0x7FFFFFC0u);  // no further than to its start
    EXPECT_EQ(ReadFile("memo.fpt", 0, 8), Be32(0x1FFFFFF) + Be32(64));
    EXPECT_EQ(Put(memo, Text(55)), 0x1FFFFFF);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(Fpt, RandomMemosStayWhole) {
    for (int size : {1, 33, 64, 511}) {
        std::mt19937 random(29);
        int16_t memo = Make(size);
        size_t block = size <= 32 ? static_cast<size_t>(size) * 512 : static_cast<size_t>(size);
        size_t next = (block + 511) / block;
        std::map<size_t, std::string> texts;
        for (unsigned step = 0; step < 300; step++) {
            std::string text = Text(random() % (random() % 4 ? 300 : 3000), step);
            bool fresh = texts.empty() || random() % 2;
            auto old = fresh ? texts.end()
                             : std::next(texts.begin(), static_cast<ptrdiff_t>(random() % texts.size()));
            size_t expected = next;
            if (!fresh) {
                size_t room = std::max(size_t{1}, (old->second.size() + block - 1) / block) * block;
                if (room >= text.size() + 8) expected = old->first;
            }
            int32_t got = fresh ? Put(memo, text) : Replace(memo, static_cast<int32_t>(old->first), text);
            ASSERT_EQ(got, static_cast<int32_t>(expected)) << step;
            if (expected == next) next += (text.size() + 8 + block - 1) / block;
            if (!fresh) texts.erase(old);
            texts[expected] = text;
            ASSERT_EQ(ReadFile("memo.fpt", 0, 4), Be32(static_cast<uint32_t>(next)));
        }
        for (auto& [at, text] : texts) ASSERT_EQ(Get(memo, static_cast<int32_t>(at)), text) << at;
        EXPECT_EQ(ZBDWCLOSE(memo), 0);
    }
}

// ---- sharing ----

TEST_F(Fpt, TwoProcessesSeeEachOthersMemos) {
    ASSERT_EQ(ZBDWCREATE("memo.fpt", 64), 0);
    Process other([&](Process& parent) {
        int16_t memo = Open(ZB_Shared);
        for (int32_t i = 0; i < 5; i++) {
            parent.Await();
            if (Get(memo, 8 + 2 * i) != "here " + std::to_string(i)) return 1;
            if (Put(memo, "there " + std::to_string(i)) != 9 + 2 * i) return 2;
            parent.Tell();
        }
        return 0;
    });
    int16_t memo = Open(ZB_Shared);
    for (int32_t i = 0; i < 5; i++) {
        EXPECT_EQ(Put(memo, "here " + std::to_string(i)), 8 + 2 * i);
        other.Tell();
        other.Await();
        EXPECT_EQ(Get(memo, 9 + 2 * i), "there " + std::to_string(i));
    }
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(ZBDWHGET(memo), 0);
}

}  // namespace
