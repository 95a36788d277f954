// The C++ interface: what it adds to the calls of zb.h, and that it passes them on.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "support/environment.h"
#include "support/support.h"
#include "zb.hpp"

namespace {

using namespace std::chrono_literals;

static_assert(std::input_iterator<zb::RecordRange::Iterator>);
static_assert(std::ranges::input_range<zb::RecordRange>);
static_assert(std::ranges::input_range<zb::KeyRange<zb::detail::NdxCalls>>);
static_assert(!std::is_copy_constructible_v<zb::DataFile> && std::is_move_constructible_v<zb::DataFile>);

class CppTest : public test::DirectoryTest {
  protected:
    // Three people, with memo numbers of their own.
    static void MakePeople(int mode = ZB_DialectClassic) {
        zb::DataFile::create("PEOPLE.DBF",
                             {{"NAME", zb::Type::Character, 10, 0},
                              {"PAY", zb::Type::Number, 8, 2},
                              {"BORN", zb::Type::Date, 0, 0},
                              {"MEMBER", zb::Type::Logical, 0, 0},
                              {"NOTES", zb::Type::Memo, 0, 0}},
                             mode);
        zb::DataFile people("PEOPLE.DBF", mode);
        Append(people, "CARLA", 30.25, 1970y / 5 / 1);
        Append(people, "ANNA", 10, 1980y / 2 / 29);
        Append(people, "BOB", -20.5, 1999y / 12 / 31);
        people.close();
    }
    static uint32_t Append(zb::DataFile& people, const char* name, double pay, zb::Date born) {
        people.clear();
        people["NAME"].put(name);
        people["PAY"].put(pay);
        people["BORN"].put(born);
        people["MEMBER"].put(pay > 0);
        return people.append();
    }
    static std::vector<std::string> Names(auto& index, zb::DataFile& people) {
        std::vector<std::string> names;
        for (const zb::Entry& entry : index.entries()) {
            people.read(entry.record);
            names.emplace_back(people["NAME"].text());
        }
        return names;
    }

    zb::Library library_;
};

using Names_ = std::vector<std::string>;

int CodeOf(auto&& call) {
    try {
        call();
    } catch (const zb::Error& error) {
        return error.code();
    }
    return 0;
}

TEST_F(CppTest, FieldsAreReadAndWrittenByNameAndType) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF", ZB_DialectClassic | ZB_Shared);
    EXPECT_EQ(people.size(), 3u);
    EXPECT_TRUE(people.sizeFits());
    EXPECT_FALSE(people.readOnly());
    ASSERT_EQ(people.fields().size(), 5u);
    EXPECT_EQ(people.fields()[1].name, "PAY");
    EXPECT_EQ(people.fields()[1].width, 8);
    EXPECT_EQ(people.fields()[1].decimals, 2);

    EXPECT_TRUE(people.read(3));
    EXPECT_EQ(people.current(), 3u);
    EXPECT_EQ(people["NAME"].text(), "BOB");
    EXPECT_EQ(people["name"].raw(), "BOB       ");
    EXPECT_EQ(people["PAY"].number(), -20.5);
    EXPECT_EQ(people["BORN"].date(), 1999y / 12 / 31);
    EXPECT_EQ(people["MEMBER"].logical(), false);
    EXPECT_EQ(people["NOTES"].block(), 0u);
    EXPECT_TRUE(people["NOTES"].blank());
    EXPECT_EQ(people.raw(), " BOB         -20.5019991231F          ");

    people["NOTES"].putBlock(7);
    people["BORN"].clear();
    people.update();
    people.read(1);
    people.read(3);
    EXPECT_EQ(people["NOTES"].block(), 7u);
    EXPECT_EQ(people["BORN"].date(), std::nullopt);
}

TEST_F(CppTest, ValuesThatDoNotFitWarn) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    EXPECT_EQ(people["NAME"].put("BARTHOLOMEW"), zb::Warning::Truncated);
    EXPECT_EQ(people["NAME"].text(), "BARTHOLOME");
    EXPECT_EQ(people["PAY"].put(1.005), zb::Warning::Rounded);
    EXPECT_EQ(people["PAY"].put(1.5), zb::Warning::None);
    EXPECT_EQ(CodeOf([&] { people["PAY"].put(1e9); }), ZB_ErrFieldValue);
    EXPECT_EQ(people["PAY"].number(), 1.5);
}

TEST_F(CppTest, AFailureIsThrownWithItsNamesAndCleared) {
    try {
        zb::DataFile nothing("NOTHING.DBF");
        FAIL();
    } catch (const zb::Error& error) {
        EXPECT_EQ(error.code(), ZB_ErrOpen);
        EXPECT_EQ(error.name(), "ZB_ErrOpen");
        EXPECT_EQ(error.call(), "ZBDDOPENX");
        EXPECT_STREQ(error.what(), "ZBDDOPENX: ZB_ErrOpen (-46)");
    }
    EXPECT_EQ(ZBECODE(), 0);
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    EXPECT_EQ(CodeOf([&] { people["NOBODY"]; }), ZB_ErrFieldName);
    EXPECT_EQ(CodeOf([&] { people["A NAME THAT IS MUCH TOO LONG"]; }), ZB_ErrFieldName);
    EXPECT_EQ(CodeOf([&] { people[size_t{5}]; }), ZB_ErrFieldCount);
    EXPECT_EQ(CodeOf([&] { people.read(4); }), ZB_ErrSeek);
    EXPECT_EQ(CodeOf([&] { people["NAME"].number(); }), ZB_ErrFieldType);
    EXPECT_EQ(CodeOf([&] { people["NAME"].put(5); }), ZB_ErrFieldType);
    EXPECT_EQ(CodeOf([&] { zb::DataFile::create("X.DBF", {}); }), ZB_ErrFieldCount);
    EXPECT_EQ(CodeOf([&] {
                  zb::DataFile::create("X.DBF", {{"A LONG LONG NAME", zb::Type::Date, 0, 0}});
              }),
              ZB_ErrFieldName);
    EXPECT_TRUE(people.read(1));
}

TEST_F(CppTest, APlatformErrorTellsItsNumber) {
    zb::Error error(static_cast<int16_t>(0xC000 | 33), "ZBDDRPUT");
    EXPECT_EQ(error.name(), "");
    EXPECT_STREQ(error.what(), "ZBDDRPUT: error 33 of the platform");
}

TEST_F(CppTest, EveryRecordIsWalkedInOrder) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    people.erase(2);
    std::vector<std::string> seen;
    for (zb::Record record : people.records())
        seen.push_back(std::to_string(record.number()) + (record.deleted() ? "*" : " ") +
                       std::string(record["NAME"].text()));
    EXPECT_EQ(seen, (Names_{"1 CARLA", "2*ANNA", "3 BOB"}));

    EXPECT_EQ(std::ranges::count_if(people.records(), [](const zb::Record& r) { return r.deleted(); }), 1);
    people.recall(2);
    EXPECT_EQ(std::ranges::count_if(people.records(), [](const zb::Record& r) { return r.deleted(); }), 0);

    zb::DataFile::create("EMPTY.DBF", {{"A", zb::Type::Character, 1, 0}});
    zb::DataFile empty("EMPTY.DBF");
    EXPECT_EQ(std::ranges::distance(empty.records()), 0);
}

TEST_F(CppTest, AFileThatIsMovedStaysOpenAndIsClosedOnce) {
    MakePeople();
    zb::DataFile first("PEOPLE.DBF", ZB_Shared);
    int16_t handle = first.handle();
    zb::DataFile second(std::move(first));
    EXPECT_EQ(second.handle(), handle);
    EXPECT_TRUE(second.read(1));
    EXPECT_EQ(second["NAME"].text(), "CARLA");
    zb::DataFile third("PEOPLE.DBF", ZB_Shared);
    second = std::move(third);
    EXPECT_TRUE(second.read(2));
    EXPECT_EQ(second["NAME"].text(), "ANNA");
}

TEST_F(CppTest, LocksAreHeldAsLongAsTheirGuards) {
    MakePeople();
    zb::DataFile one("PEOPLE.DBF", ZB_DialectClassic | ZB_Shared);
    zb::DataFile other("PEOPLE.DBF", ZB_DialectClassic | ZB_Shared);
    {
        auto lock = one.lockRecord(2);
        ASSERT_TRUE(lock);
        EXPECT_FALSE(other.lockRecord(2));
        EXPECT_TRUE(other.lockRecord(3));
    }
    EXPECT_TRUE(other.lockRecord(2));
    auto file = one.lock(zb::Lock::File);
    ASSERT_TRUE(file);
    EXPECT_FALSE(other.lock(zb::Lock::Header));
    file->unlock();
    file->unlock();
    EXPECT_TRUE(other.lock(zb::Lock::Header));
}

TEST_F(CppTest, PackLeavesTheFileOpen) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    people.erase(1);
    people.pack();
    EXPECT_EQ(people.size(), 2u);
    people.read(1);
    EXPECT_EQ(people["NAME"].text(), "ANNA");
}

TEST_F(CppTest, MemosOfBothFormats) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    zb::DbtFile::create("PEOPLE.DBT");
    zb::DbtFile memos("PEOPLE.DBT");
    uint32_t block = memos.write("first");
    EXPECT_EQ(memos.read(block), "first");
    EXPECT_EQ(memos.replace(block, "second"), block);
    people.read(1);
    people["NOTES"].putBlock(block);
    people.update();
    memos.pack(people);
    people.read(1);
    EXPECT_EQ(memos.read(people["NOTES"].block()), "second");
    EXPECT_EQ(CodeOf([&] { memos.read(0); }), ZB_ErrSeek);

    zb::FptFile::create("OTHER.FPT");
    zb::FptFile other("OTHER.FPT");
    EXPECT_EQ(other.read(other.write("text")), "text");
}

TEST_F(CppTest, AnNdxIsBuiltFoundWalkedAndChanged) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    zb::NdxFile::build(people, "NAME.NDX", 'C', "NAME", 10);
    zb::NdxFile index("NAME.NDX");
    EXPECT_EQ(index.expression(), "NAME");
    EXPECT_EQ(index.keyLength(), 10u);
    EXPECT_EQ(Names(index, people), (Names_{"ANNA", "BOB", "CARLA"}));

    zb::Entry found = index.find("BO");
    EXPECT_TRUE(found);
    EXPECT_EQ(found.key, "BOB       ");
    EXPECT_EQ(found.record, 3u);
    EXPECT_EQ(index.next().record, 1u);
    EXPECT_EQ(index.next().answer, zb::Answer::End);
    EXPECT_EQ(index.previous().record, 3u);
    EXPECT_EQ(index.find("BZ").answer, zb::Answer::Near);
    EXPECT_EQ(index.find("?NN", zb::Find::Wildcard).record, 2u);
    EXPECT_EQ(index.find("BOB", zb::Find::Exact, 9).answer, zb::Answer::Near);

    people.read(3);
    std::string key = index.key(people);
    EXPECT_EQ(key, "BOB       ");
    EXPECT_EQ(index.erase(key, 3), zb::Answer::Found);
    EXPECT_EQ(index.erase(key, 3), zb::Answer::Near);
    EXPECT_EQ(Names(index, people), (Names_{"ANNA", "CARLA"}));
    index.add("BOB", 3);
    EXPECT_EQ(Names(index, people), (Names_{"ANNA", "BOB", "CARLA"}));
    index.close();
}

TEST_F(CppTest, EntriesMayGoWhileTheyAreWalked) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    zb::NdxFile::build(people, "NAME.NDX", 'C', "NAME", 10);
    zb::NtxFile::build(people, "NAME.NTX", 'C', "NAME", 10);
    auto eraseAll = [](auto& index) {
        int steps = 0;
        for (const zb::Entry& entry : index.entries()) {
            std::string key(entry.key);
            index.erase(key, entry.record);
            if (++steps > 10) break;
        }
        EXPECT_EQ(index.top().answer, zb::Answer::Empty);
        return steps;
    };
    zb::NdxFile ndx("NAME.NDX");
    EXPECT_EQ(eraseAll(ndx), 3);
    zb::NtxFile ntx("NAME.NTX");
    EXPECT_EQ(eraseAll(ntx), 3);
}

TEST_F(CppTest, NumbersAndDatesAreKeysInEveryFamily) {
    test::Environment today("ZB_TODAY", "1999-12-31");
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    zb::NdxFile::build(people, "PAY.NDX", 'N', "PAY");
    zb::NtxFile::build(people, "PAY.NTX", 'N', "PAY", 8, 2);
    zb::IdxFile::build(people, "PAY.IDX", 'N', "PAY");
    zb::MdxFile::create("PEOPLE.MDX");
    zb::MdxFile tags("PEOPLE.MDX");
    tags.build(people, "PAY", 'N', "PAY");
    tags.build(people, "BORN", 'D', "BORN");
    EXPECT_EQ(tags.tagCount(), 2);

    const Names_ byPay{"BOB", "ANNA", "CARLA"};
    auto check = [&](auto& index) {
        EXPECT_EQ(Names(index, people), byPay);
        EXPECT_EQ(index.find(10.0).record, 2u);
        EXPECT_TRUE(index.find(30.25));
        EXPECT_EQ(index.find(20.0).answer, zb::Answer::Near);
    };
    zb::NdxFile ndx("PAY.NDX");
    check(ndx);
    zb::NtxFile ntx("PAY.NTX");
    check(ntx);
    zb::IdxFile idx("PAY.IDX", 0, 'N');
    check(idx);
    zb::Tag pay = tags.tag("pay");
    check(pay);
    zb::Tag born = tags.tag(2);
    EXPECT_EQ(Names(born, people), (Names_{"CARLA", "ANNA", "BOB"}));
    EXPECT_EQ(born.find(1999y / 12 / 31).record, 3u);
    EXPECT_EQ(CodeOf([&] { tags.erase("BORN"); }), ZB_ErrTagInUse);
    born.close();
    tags.erase("BORN");
    EXPECT_EQ(tags.tagCount(), 1);
}

TEST_F(CppTest, AnIdxTextIsFilledWithBlanks) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    zb::IdxFile::create("NAME.IDX", 'C', "NAME", 10);
    zb::IdxFile index("NAME.IDX");
    for (zb::Record record : people.records()) index.add(record["NAME"].text(), record.number());
    EXPECT_EQ(index.find("ANNA").record, 2u);
    EXPECT_TRUE(index.find("ANNA"));
    EXPECT_EQ(Names(index, people), (Names_{"ANNA", "BOB", "CARLA"}));
}

TEST_F(CppTest, AnExpressionGivesAValue) {
    MakePeople();
    zb::DataFile people("PEOPLE.DBF");
    people.read(2);
    zb::Value text = zb::evaluate(people, "left(NAME, 2) + STR(PAY, 6, 1)");
    EXPECT_EQ(text.type(), 'C');
    EXPECT_EQ(text.text(), "AN  10.0");
    EXPECT_EQ(zb::evaluate(people, "PAY+PAY").number(), 20);
    EXPECT_EQ(CodeOf([&] { text.number(); }), ZB_ErrExpression);
    EXPECT_EQ(CodeOf([&] { zb::evaluate(people, "LEFT("); }), ZB_ErrExpression);
}

TEST_F(CppTest, TheDateStyleAndTodayAreTheLibrarys) {
    test::Environment today("ZB_TODAY", "2001-02-03");
    library_.setDateStyle(zb::DateStyle::GermanLong);
    EXPECT_EQ(library_.dateStyle(), zb::DateStyle::GermanLong);
    EXPECT_EQ(zb::today(), 2001y / 2 / 3);
}

}  // namespace
