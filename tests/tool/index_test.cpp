// zb index, zb find and zb eval: indexes of all formats made, shown, searched and
// checked.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>

#include "pages/pages.h"
#include "tool.h"
#include "zb.h"

namespace test {
namespace {

using Json = nlohmann::json;

const std::vector<Column> kPeople{{"NAME", 'C', 6}, {"BORN", 'D', 8}, {"AMOUNT", 'N', 7, 2}};

Bytes People() {
    return Table(kPeople, {" Smith 19700101   1.50", " Adams 19851231 -20.00", "*Smyth         1000.00",
                           " Jones 19960229   -.25", " Smith 20240101   0.00"});
}

// Texts of 100 bytes, of which few fit in a page: 000 and so on in a mixed order.
Bytes Wide(int records) {
    std::vector<std::string> rows;
    for (int number = 0; number < records; ++number) {
        std::string key = std::to_string(1000 + number * 7919 % records).substr(1);
        rows.push_back(" " + key + std::string(100 - key.size(), ' '));
    }
    return Table({{"KEY", 'C', 100}}, rows);
}

// The entries as lines of record and key.
std::string Entries(const Arguments& more) {
    Arguments arguments{"index", "list"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.push_back("--json");
    std::string lines, out = Zb(arguments).out;
    for (size_t at = 0; at < out.size();) {
        size_t end = out.find('\n', at);
        Json one = Json::parse(out.substr(at, end - at));
        lines += one["_record"].dump() + " " + one["_key"].dump() + "\n";
        at = end + 1;
    }
    return lines;
}

// All that stands in the directory.
std::vector<std::string> Names() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("."))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

Json CheckOf(const std::string& table, const std::string& index, int status) {
    Result result = Zb({"index", "check", table, index, "--json"});
    EXPECT_EQ(result.status, status) << result.out << result.err;
    return Json::parse(result.out);
}

// ---- all formats ----

struct Format {
    const char* extension;
    std::vector<std::string> tag;  // what has to be said besides
};

class IndexTool : public Tool, public testing::WithParamInterface<Format> {
  protected:
    std::string file = std::string("x.") + GetParam().extension;

    void SetUp() override {
        Tool::SetUp();
        WriteFile("people.dbf", People());
    }
    Arguments With(Arguments arguments) const {
        arguments.insert(arguments.end(), GetParam().tag.begin(), GetParam().tag.end());
        return arguments;
    }
    void Create(const std::string& expression) {
        Result result = Zb(With({"index", "create", "people.dbf", file, "--on", expression}));
        ASSERT_EQ(result.status, 0) << result.err;
    }
    bool Is(const char* extension) const { return std::string(GetParam().extension) == extension; }
};

TEST_P(IndexTool, TextsStandInOrderEitherWay) {
    Create("NAME");
    EXPECT_EQ(Entries({file}), "2 \"Adams\"\n4 \"Jones\"\n1 \"Smith\"\n5 \"Smith\"\n3 \"Smyth\"\n");
    EXPECT_EQ(Entries({file, "--reverse", "--limit", "2"}), "3 \"Smyth\"\n5 \"Smith\"\n");
    EXPECT_EQ(Names(), (std::vector<std::string>{"people.dbf", file}));
}

TEST_P(IndexTool, NumbersSortBySizeAndShowAsNumbers) {
    Create("AMOUNT");
    std::string order;
    for (const char* line :
         Is("ntx") ? std::vector<const char*>{"2 -20.0\n", "4 -0.25\n", "5 0.0\n", "1 1.5\n", "3 1000.0\n"}
                   : std::vector<const char*>{"2 -20\n", "4 -0.25\n", "5 0\n", "1 1.5\n", "3 1000\n"})
        order += line;
    EXPECT_EQ(Entries({file, "--data", "people.dbf"}), order);
    EXPECT_EQ(Entries({file, "--type", "N"}), order);
    EXPECT_EQ(Zb({"find", file, "--data", "people.dbf", "--fields", "NAME", "--json", "--", "-20"}).out,
              Is("ntx") ? "{\"_record\":2,\"_key\":-20.00,\"_deleted\":false,\"NAME\":\"Adams\"}\n"
                        : "{\"_record\":2,\"_key\":-20,\"_deleted\":false,\"NAME\":\"Adams\"}\n");
    EXPECT_EQ(Zb({"index", "check", "people.dbf", file}).status, 0);
}

TEST_P(IndexTool, DatesShowAsDates) {
    Create("BORN");
    std::string blank = "3 null\n", first = "1 \"1970-01-01\"\n2 \"1985-12-31\"\n",
                last = "5 \"2024-01-01\"\n";
    // 29 February and 1 March have one day count in MDX files.
    std::string leap = Is("mdx") ? "4 \"1996-03-01\"\n" : "4 \"1996-02-29\"\n";
    if (Is("mdx")) first = "1 \"1970-01-01\"\n2 \"1985-12-31\"\n";
    std::string blankLast = first + leap + last + blank, blankFirst = blank + first + leap + last;
    EXPECT_EQ(Entries({file, "--type", "D"}), Is("ndx") || Is("mdx") ? blankLast : blankFirst);
    EXPECT_EQ(Zb({"find", file, "1985-12-31", "--type", "D"}).out, "#  KEY\n2  1985-12-31\n");
    EXPECT_EQ(Zb({"find", file, "", "--data", "people.dbf", "--fields", "NAME"}).out,
              "#  KEY  *  NAME\n3       *  Smyth\n");
    EXPECT_EQ(Zb({"find", file, "1985-12-30", "--data", "people.dbf"}).status, 3);
    EXPECT_EQ(Zb({"index", "check", "people.dbf", file}).status, 0);
}

// Without the blank date of the others.
Bytes Dated() {
    return Table(kPeople, {" Smith 19700101   1.50", " Adams 19851231 -20.00", "*Jones 19960229   -.25"});
}

TEST_P(IndexTool, InfoTellsWhatTheFileIs) {
    WriteFile("people.dbf", Dated());
    Create("LEFT( name, 3 )+DTOS(BORN)");
    Json info = Json::parse(Zb({"index", "info", file, "--json"}).out);
    EXPECT_EQ(info["file"], file);
    EXPECT_EQ(info["expression"], "LEFT(NAME,3)+DTOS(BORN)");
    EXPECT_EQ(info["type"], "text");
    EXPECT_EQ(info["keyLength"], 11);
    EXPECT_EQ(info["unique"], false);
    EXPECT_EQ(info["keys"], 3);
    EXPECT_EQ(info["levels"], 1);
    EXPECT_EQ(Entries({file}), "2 \"Ada19851231\"\n3 \"Jon19960229\"\n1 \"Smi19700101\"\n");
    EXPECT_EQ(Zb({"index", "check", "people.dbf", file}).status, 0);
}

TEST_P(IndexTool, ARecordThatGivesNoKeyIsNamedWithTheReason) {
    Result blank = Zb(With({"index", "create", "people.dbf", file, "--on", "NAME+DTOS(BORN)"}));
    EXPECT_EQ(blank.status, 1);
    EXPECT_EQ(blank.err,
              "zb: people.dbf: ErrBadDate (-15): an invalid date; in 'NAME+DTOS(BORN)' on record 3, whose "
              "BORN is blank\n");
    EXPECT_EQ(Names(), std::vector<std::string>{"people.dbf"});
    // The first record shows already what an expression gives.
    WriteFile("people.dbf", Table(kPeople, {" Smith 20231301   1.50"}));
    Result first = Zb(With({"index", "create", "people.dbf", file, "--on", "DTOS(born)+NAME"}));
    EXPECT_EQ(first.status, 1);
    EXPECT_NE(first.err.find("in 'DTOS(born)+NAME' on record 1, whose BORN is '20231301'\n"),
              std::string::npos)
        << first.err;
}

TEST_P(IndexTool, AnInvalidDateInAPlainFieldIsNamed) {
    if (Is("ntx")) return;  // its keys are the field's characters
    WriteFile("people.dbf", Table(kPeople, {" Smith 20230101   1.50", " Smith 20230230   1.50"}));
    Result result = Zb(With({"index", "create", "people.dbf", file, "--on", "BORN"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("ErrBadDate (-15): an invalid date; in 'BORN' on record 2, whose BORN is "
                              "'20230230'\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(Names(), std::vector<std::string>{"people.dbf"});
}

TEST_P(IndexTool, CheckNamesRecordsThatGiveNoKeyAndComparesTheOthers) {
    WriteFile("people.dbf", Dated());
    Create("NAME+DTOS(BORN)");
    ASSERT_EQ(Zb({"set", "people.dbf", "2", "BORN="}).status, 0);
    ASSERT_EQ(Zb({"set", "people.dbf", "3", "NAME=James"}).status, 0);
    Json check = CheckOf("people.dbf", file, 4);
    if (Is("mdx")) check = check["tags"][0];
    ASSERT_EQ(check["faults"].size(), 2u) << check;
    EXPECT_EQ(check["faults"][0],
              "no key can be made: people.dbf: ErrBadDate (-15): an invalid date; in 'NAME+DTOS(BORN)' on "
              "record 2, whose BORN is blank");
    EXPECT_NE(check["faults"][1].dump().find("record 3 has the key 'Jones 19960229'"), std::string::npos);
}

TEST_P(IndexTool, FindTakesBeginningsPatternsAndWholeKeys) {
    Create("NAME");
    auto found = [&](Arguments more) {
        more.insert(more.begin(), {"find", file});
        more.push_back("--json");
        std::string records, out = Zb(more).out;
        for (size_t at = out.find("\"_record\":"); at != std::string::npos;
             at = out.find("\"_record\":", at + 1))
            records += out[at + 10];
        return records;
    };
    EXPECT_EQ(found({"Sm"}), "153");
    EXPECT_EQ(found({"Smi"}), "15");
    EXPECT_EQ(found({"S??th"}), "153");
    EXPECT_EQ(found({"?????"}), "24153");
    EXPECT_EQ(found({"???e"}), "4");
    EXPECT_EQ(found({"Smit", "--whole"}), "");
    EXPECT_EQ(found({"Smith", "--whole"}), "15");
    EXPECT_EQ(found({"Smith", "--limit", "1"}), "1");
    EXPECT_EQ(found({"S??th", "--plain"}), "");
    EXPECT_EQ(found({"A"}), "2");
    EXPECT_EQ(found({"AA"}), "");
    EXPECT_EQ(found({"Z"}), "");
    Result none = Zb({"find", file, "Nobody"});
    EXPECT_EQ(none.status, 3);
    EXPECT_NE(none.err.find("there is no key 'Nobody' or longer\n"), std::string::npos) << none.err;
}

TEST_P(IndexTool, CheckTellsEachRecordWhoseKeyIsWrong) {
    Create("NAME");
    EXPECT_EQ(CheckOf("people.dbf", file, 0)["clean"], true);
    ASSERT_EQ(Zb({"set", "people.dbf", "4", "NAME=James"}).status, 0);
    ASSERT_EQ(Zb({"append", "people.dbf", "NAME=Young"}).status, 0);
    Result result = Zb({"index", "check", "people.dbf", file});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.out.find("fault: record 4 has the key 'Jones' on page"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find(", it should be 'James'\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("fault: record 6 has no key, it should be 'Young'\n"), std::string::npos);
    EXPECT_NE(result.out.find(": 2 faults\n"), std::string::npos);
    EXPECT_EQ(result.err, "zb: " + file + ": 2 faults\n");
}

TEST_P(IndexTool, CheckTellsKeysWithoutARecord) {
    Create("NAME");
    ASSERT_EQ(Zb({"pack", "people.dbf"}).status, 0);
    Result result = Zb({"index", "check", "people.dbf", file});
    EXPECT_EQ(result.status, 4);
    EXPECT_NE(result.out.find("fault: key 'Smith' on page"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("is of record 5, which isn't there\n"), std::string::npos) << result.out;
}

TEST_P(IndexTool, ManyKeysInManyPages) {
    WriteFile("people.dbf", Wide(300));
    Create("KEY");
    Json check = CheckOf("people.dbf", file, 0);
    if (Is("mdx")) check = check["tags"][0];
    EXPECT_EQ(check["keys"], 300);
    EXPECT_GE(check["levels"], 2);
    EXPECT_EQ(check["faults"], Json::array());
    std::string expected;
    for (int key = 0; key < 300; ++key) expected += "\"" + std::to_string(1000 + key).substr(1) + "\"";
    std::string keys, entries = Entries({file});
    for (size_t at = entries.find('"'); at != std::string::npos; at = entries.find('"', at + 5))
        keys += entries.substr(at, 5);
    EXPECT_EQ(keys, expected);
    EXPECT_EQ(Zb({"find", file, "299"}).status, 0);
}

TEST_P(IndexTool, AnEmptyTableGivesAnEmptyIndex) {
    WriteFile("people.dbf", Table(kPeople, {}));
    Create("NAME");
    EXPECT_EQ(Entries({file}), "");
    EXPECT_EQ(CheckOf("people.dbf", file, 0)["clean"], true);
    EXPECT_EQ(Zb({"find", file, "A"}).status, 3);
}

TEST_P(IndexTool, AUniqueIndexKeepsEqualKeysAndSaysSo) {
    Result result = Zb(With({"index", "create", "people.dbf", file, "--on", "NAME", "--unique"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("marked as unique, and 1 record has the key of another"), std::string::npos)
        << result.err;
    Json check = CheckOf("people.dbf", file, 0);
    if (Is("mdx")) check = check["tags"][0];
    EXPECT_EQ(check["notes"],
              Json::array(
                  {"the index is marked as unique and holds 1 key beyond the first of its kind; the library "
                   "adds them all the same"}));
}

TEST_P(IndexTool, NothingStandsUnderTheNameBeforeItIsWhole) {
    WriteFile("stacks.tmp", "mine");
    Result bad = Zb(With({"index", "create", "people.dbf", file, "--on", "NAME+AMOUNT"}));
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("ErrExpression (-7)"), std::string::npos) << bad.err;
    EXPECT_EQ(Names(), (std::vector<std::string>{"people.dbf", "stacks.tmp"}));
    Create("NAME");
    EXPECT_EQ(ReadFile("stacks.tmp"), "mine");
}

TEST_P(IndexTool, AnotherProgramsLockIsRespected) {
    Create("NAME");
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    uint16_t handle = 0, conflict = 0;
    ASSERT_EQ(ZBDDOPENX(&handle, "people.dbf", uint16_t{ZB_DialectClassic} | ZB_Shared), 0);
    auto data = static_cast<int16_t>(handle);
    ASSERT_EQ(ZBDDRLOCK(data, 1, 7, &conflict), 0);
    Result create =
        Zb(With({"index", "create", "people.dbf", file, "--on", "NAME", "--force", "--wait", "0"}));
    EXPECT_EQ(create.status, 1);
    EXPECT_NE(create.err.find("ErrLockViolation"), std::string::npos) << create.err;
    EXPECT_EQ(Zb({"index", "check", "people.dbf", file, "--wait", "0"}).status, 1);
    ZBDTERM();
    EXPECT_EQ(CheckOf("people.dbf", file, 0)["clean"], true);
}

TEST_P(IndexTool, WhatIsNoIndexIsDamage) {
    WriteFile(file, "not an index at all");
    for (const Arguments& arguments : std::vector<Arguments>{
             {"index", "info", file}, {"index", "list", file}, {"index", "check", "people.dbf", file}})
        EXPECT_EQ(Zb(arguments).status, 4);
    EXPECT_NE(Zb({"find", file, "A"}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(Formats, IndexTool,
                         testing::Values(Format{"ndx", {}}, Format{"ntx", {}}, Format{"idx", {}},
                                         Format{"mdx", {"--tag", "ONE"}}),
                         [](const auto& param) { return std::string(param.param.extension); });

// ---- what one format has ----

TEST_F(Tool, AnIndexThatExistsIsReplacedOnlyWithForce) {
    WriteFile("people.dbf", People());
    WriteFile("x.ndx", "mine");
    Result refused = Zb({"index", "create", "people.dbf", "x.ndx", "--on", "NAME"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(ReadFile("x.ndx"), "mine");
    EXPECT_EQ(Zb({"index", "create", "people.dbf", "x.ndx", "--on", "NAME", "--force"}).status, 0);
    EXPECT_EQ(CheckOf("people.dbf", "x.ndx", 0)["clean"], true);
}

TEST_F(Tool, CommandLinesOfIndexesThatMakeNoSense) {
    WriteFile("people.dbf", People());
    for (const Arguments& more : std::vector<Arguments>{{"x.dat", "--on", "NAME"},
                                                        {"x.ndx"},
                                                        {"x.ndx", "--on", "NAME", "--on", "BORN"},
                                                        {"x.ndx", "--on", "NAME", "--tag", "A"},
                                                        {"x.ndx", "--on", "NAME", "--type", "D"},
                                                        {"x.ndx", "--on", "NAME", "--type", "X"},
                                                        {"x.ndx", "--on", "NAME", "--compact"},
                                                        {"x.idx", "--on", "NAME", "--for-reading"},
                                                        {"x.mdx", "--on", "NAME"},
                                                        {"x.ntx", "--on", "AMOUNT+1"}}) {
        Arguments arguments{"index", "create", "people.dbf"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        Result result = Zb(arguments);
        EXPECT_EQ(result.status, 2) << more[0] << ": " << result.err;
        EXPECT_EQ(Names(), std::vector<std::string>{"people.dbf"});
    }
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.ndx", "--on", "NAME"}).status, 0);
    EXPECT_EQ(Zb({"index", "list", "x.ndx", "--type", "N"}).status, 2);
    EXPECT_EQ(Zb({"index", "list", "x.ndx", "--tag", "A"}).status, 2);
    EXPECT_EQ(Zb({"index", "tags", "x.ndx"}).status, 2);
    EXPECT_EQ(Zb({"index", "list", "y.ndx"}).status, 3);
}

TEST_F(Tool, BrokenRulesOfNdxPagesAreToldOneByOne) {
    WriteFile("people.dbf", Wide(10));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.ndx", "--on", "KEY"}).status, 0);
    const Bytes clean = ReadFile("x.ndx");
    // Leaves 1, 3 and 4 of four, four and two keys, and the root 2.
    auto faults = [&](size_t at, const Bytes& bytes) {
        Bytes file = clean;
        file.replace(at, bytes.size(), bytes);
        WriteFile("x.ndx", file);
        return CheckOf("people.dbf", "x.ndx", 4)["faults"].dump();
    };
    constexpr size_t kPage = 512;
    auto tells = [](const std::string& text, const char* what) {
        EXPECT_NE(text.find(what), std::string::npos) << text;
    };
    tells(faults(3 * kPage + 12, "zzz"), "page 3: key 1 is out of order");
    tells(faults(3 * kPage, Bytes(1, 9)), "page 3 holds 9 keys");
    tells(faults(2 * kPage + 4, Hex("03 00 00 00")), "page 3 is reached twice");
    tells(faults(2 * kPage + 4, Hex("03 00 00 00")), "page 1 is never reached and isn't free");
    tells(faults(2 * kPage + 4, Hex("63 00 00 00")), "page 99, a child, lies outside the file");
    tells(faults(2 * kPage + 12, "000"), "lies above the key over the page");
    tells(faults(4, Hex("06 00 00 00")), "the header counts 6 pages");
    WriteFile("x.ndx", clean);
    EXPECT_EQ(CheckOf("people.dbf", "x.ndx", 0)["faults"], Json::array());
}

TEST_F(Tool, NegativeNumbersThatABuildPutIntoAnNtxIndexAreAccepted) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.ntx", "--on", "AMOUNT", "--for-reading"}).status, 0);
    Json check = CheckOf("people.dbf", "x.ntx", 0);
    EXPECT_NE(check["notes"].dump().find("2 numbers stand in a form that a build gives negative ones"),
              std::string::npos)
        << check;
}

TEST_F(Tool, AnNdxLeafThatLostAllItsKeysIsAFault) {
    WriteFile("people.dbf", Wide(12));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.ndx", "--on", "KEY"}).status, 0);
    Json check = CheckOf("people.dbf", "x.ndx", 0);
    ASSERT_EQ(check["notes"].size(), 1u);
    EXPECT_NE(check["notes"][0].get<std::string>().find("3 leaves are full"), std::string::npos);
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    uint16_t index = 0;
    ASSERT_EQ(ZBDNOPENX(&index, "x.ndx", 0), 0);
    for (const pages::Entry& entry : [] {
             std::vector<pages::Entry> second;
             pages::SurveyNdx("x.ndx", [&](const pages::Entry& one) {
                 if (one.key >= "004" && one.key < "008") second.push_back(one);
             });
             return second;
         }())
        ASSERT_EQ(ZBDNKDEL(static_cast<int16_t>(index), entry.key.c_str(), entry.record), 0);
    ASSERT_EQ(ZBDNCLOSE(static_cast<int16_t>(index)), 0);
    ZBDTERM();
    std::string faults = CheckOf("people.dbf", "x.ndx", 4)["faults"].dump();
    EXPECT_NE(faults.find("is a leaf without keys: walks and adds stop there"), std::string::npos) << faults;
    // The pages themselves still show all keys.
    EXPECT_EQ(std::count_if(faults.begin(), faults.end(), [](char c) { return c == ','; }) > 3, true);
}

TEST_F(Tool, AnNtxIndexForReadingIsToldToBeThat) {
    WriteFile("people.dbf", Wide(30));
    Result create = Zb({"index", "create", "people.dbf", "x.ntx", "--on", "KEY", "--for-reading"});
    EXPECT_EQ(create.status, 0);
    EXPECT_NE(create.err.find("deletes can damage it"), std::string::npos);
    std::string notes = CheckOf("people.dbf", "x.ntx", 0)["notes"].dump();
    EXPECT_NE(notes.find("less than half full"), std::string::npos) << notes;
    EXPECT_NE(notes.find("short pages are what a build in one go leaves"), std::string::npos) << notes;
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "y.ntx", "--on", "KEY"}).status, 0);
    EXPECT_EQ(CheckOf("people.dbf", "y.ntx", 0)["notes"], Json::array());
}

// What the tool makes stays sound, whatever is added and deleted.
TEST_F(Tool, AnNtxIndexStaysSoundUnderRandomChanges) {
    WriteFile("people.dbf", Wide(200));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.ntx", "--on", "KEY"}).status, 0);
    std::vector<std::pair<std::string, uint32_t>> model;
    pages::SurveyNtx("x.ntx", [&](const pages::Entry& entry) { model.push_back({entry.key, entry.record}); });
    ASSERT_EQ(model.size(), 200u);
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    uint16_t opened = 0;
    ASSERT_EQ(ZBDCOPENX(&opened, "x.ntx", 0), 0);
    auto index = static_cast<int16_t>(opened);
    std::mt19937 random(7);
    uint32_t next = 1000;
    size_t least = model.size(), most = 0;
    for (int step = 0; step < 3000; ++step) {
        // Long stretches of deletes, and of adds.
        bool adds = random() % 10 < (step / 500 % 2 ? 8u : 2u);
        if (adds || model.empty()) {
            std::string key = std::to_string(random() % 10000);
            key.resize(100, ' ');
            ASSERT_EQ(ZBDCKADD(index, key.c_str(), next), 0);
            model.push_back({key, next++});
        } else {
            auto place = model.begin() + static_cast<ptrdiff_t>(random() % model.size());
            ASSERT_EQ(ZBDCKDEL(index, place->first.c_str(), place->second), 0) << step;
            model.erase(place);
        }
        least = std::min(least, model.size());
        most = std::max(most, model.size());
        if (step % 20 != 0) continue;
        std::vector<std::pair<std::string, uint32_t>> found;
        pages::Survey survey = pages::SurveyNtx("x.ntx", [&](const pages::Entry& entry) {
            found.push_back({entry.key, entry.record});
        });
        ASSERT_EQ(survey.faults, std::vector<std::string>()) << step;
        ASSERT_EQ(survey.notes, std::vector<std::string>()) << step;
        std::sort(found.begin(), found.end());
        auto expected = model;
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(found, expected) << step;
    }
    EXPECT_LT(least, 20u);
    EXPECT_GT(most, 200u);
    ZBDTERM();
}

TEST_F(Tool, AStandardIdxIndexHasItsLastSeparators) {
    WriteFile("people.dbf", Wide(30));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.idx", "--on", "KEY"}).status, 0);
    pages::Survey survey = pages::SurveyIdx("x.idx");
    EXPECT_EQ(survey.faults, std::vector<std::string>());
    EXPECT_EQ(survey.notes, std::vector<std::string>());
    EXPECT_GE(survey.levels, 3);
    // What the build alone leaves, for comparison.
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    uint16_t data = 0;
    ASSERT_EQ(ZBDDOPENX(&data, "people.dbf", ZB_DialectClassic), 0);
    std::string expression = "KEY";
    ASSERT_EQ(ZBDIINDEX(static_cast<int16_t>(data), "y.idx", 'C', expression.data(), 100), 0);
    ZBDTERM();
    EXPECT_NE(pages::SurveyIdx("y.idx").notes, std::vector<std::string>());
    std::string notes = CheckOf("people.dbf", "y.idx", 0)["notes"].dump();
    EXPECT_NE(notes.find("what a build leaves at the right edge"), std::string::npos) << notes;
}

TEST_F(Tool, PackedKeysAreShownFoundAndCompared) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.idx", "--on", "NAME", "--compact"}).status, 0);
    EXPECT_EQ(Json::parse(Zb({"index", "info", "x.idx", "--json"}).out)["format"], "IDX, compact");
    EXPECT_EQ(Entries({"x.idx"}), "2 \"Adams\"\n4 \"Jones\"\n1 \"Smith\"\n5 \"Smith\"\n3 \"Smyth\"\n");
    EXPECT_EQ(Zb({"find", "x.idx", "Smi"}).out, "#  KEY\n1  Smith\n5  Smith\n");
    EXPECT_EQ(CheckOf("people.dbf", "x.idx", 0)["clean"], true);
    ASSERT_EQ(Zb({"set", "people.dbf", "1", "NAME=Zoe"}).status, 0);
    EXPECT_EQ(CheckOf("people.dbf", "x.idx", 4)["faults"].size(), 1u);
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "n.idx", "--on", "AMOUNT", "--compact"}).status, 0);
    EXPECT_EQ(Entries({"n.idx", "--type", "N"}), "2 -20\n4 -0.25\n5 0\n1 1.5\n3 1000\n");
    EXPECT_EQ(CheckOf("people.dbf", "n.idx", 0)["clean"], true);
}

TEST_F(Tool, ABlankDateIsOneInTheFormThatABuildGivesIt) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "c.idx", "--on", "BORN", "--compact"}).status, 0);
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    uint16_t data = 0;
    ASSERT_EQ(ZBDDOPENX(&data, "people.dbf", ZB_DialectClassic), 0);
    std::string expression = "BORN";
    ASSERT_EQ(ZBDIINDEX(static_cast<int16_t>(data), "s.idx", 'D', expression.data(), 0), 0);
    ZBDTERM();
    for (const char* index : {"c.idx", "s.idx"}) {
        EXPECT_EQ(Entries({index, "--data", "people.dbf", "--limit", "2"}), "3 null\n1 \"1970-01-01\"\n");
        EXPECT_EQ(Zb({"find", index, "", "--type", "D"}).out, "#  KEY\n3\n");
        EXPECT_EQ(
            CheckOf("people.dbf", index, 0)["notes"],
            Json::array({"1 blank date stands in a form that a build gives them, and that no search for "
                         "a blank date finds"}));
    }
    // One that was added has the other form.
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "a.idx", "--on", "BORN"}).status, 0);
    EXPECT_EQ(Entries({"a.idx", "--type", "D", "--limit", "1"}), "3 null\n");
    EXPECT_EQ(CheckOf("people.dbf", "a.idx", 0)["notes"], Json::array());
}

TEST_F(Tool, ManyPackedKeysKeepTheirBytes) {
    WriteFile("people.dbf", Wide(300));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.idx", "--on", "KEY", "--compact"}).status, 0);
    Json check = CheckOf("people.dbf", "x.idx", 0);
    EXPECT_EQ(check["keys"], 300);
    EXPECT_EQ(check["levels"], 2);
}

TEST_F(Tool, RecordNumbersThatPackedKeysCannotCarryAreRefused) {
    WriteFile("people.dbf", Table({{"A", 'C', 16}}, std::vector<std::string>(16384, std::string(17, ' '))));
    Result result = Zb({"index", "create", "people.dbf", "x.idx", "--on", "A", "--compact"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("packed keys of 16 bytes carry record numbers to 16383"), std::string::npos)
        << result.err;
    EXPECT_EQ(Names(), std::vector<std::string>{"people.dbf"});
}

TEST_F(Tool, LogicalKeysAreForIdx) {
    WriteFile("t.dbf", Table({{"OK", 'L', 1}}, {" T", " F", " T"}));
    ASSERT_EQ(Zb({"index", "create", "t.dbf", "x.idx", "--on", "OK"}).status, 0);
    EXPECT_EQ(Entries({"x.idx", "--data", "t.dbf"}), "2 \"F\"\n1 \"T\"\n3 \"T\"\n");
    EXPECT_EQ(CheckOf("t.dbf", "x.idx", 0)["clean"], true);
    EXPECT_EQ(Zb({"index", "create", "t.dbf", "x.ndx", "--on", "OK"}).status, 1);
}

// What a build leaves open is put right: every key is found exactly, and the index
// takes any adds and deletes.
TEST_F(Tool, ABuiltStandardIdxIndexIsSafe) {
    struct Case {
        int length, records;
    };
    for (Case one : {Case{100, 1}, Case{100, 5}, Case{100, 333}, Case{8, 41}, Case{8, 42}, Case{8, 2000}}) {
        SCOPED_TRACE(std::to_string(one.length) + " " + std::to_string(one.records));
        std::vector<std::string> rows;
        std::vector<std::pair<std::string, uint32_t>> model;
        for (int number = 0; number < one.records; ++number) {
            std::string key = std::to_string(10000 + number * 7919 % one.records * 2).substr(1);
            key.resize(static_cast<size_t>(one.length), ' ');
            rows.push_back(" " + key);
            model.push_back({key, static_cast<uint32_t>(number + 1)});
        }
        WriteFile("wide.dbf", Table({{"KEY", 'C', one.length}}, rows));
        ASSERT_EQ(Zb({"index", "create", "wide.dbf", "x.idx", "--on", "KEY", "--force"}).status, 0);
        ASSERT_EQ(CheckOf("wide.dbf", "x.idx", 0)["notes"], Json::array());

        ASSERT_EQ(ZBDINIT(100, 4), 0);
        uint16_t handle = 0;
        ASSERT_EQ(ZBDIOPENX(&handle, "x.idx", 0), 0);
        auto index = static_cast<int16_t>(handle);
        ASSERT_EQ(ZBDIKTYPE(index, 'C'), 0);
        char key[128];
        auto foundExactly = [&](const std::string& wanted, uint32_t record) {
            std::memcpy(key, wanted.data(), wanted.size());
            uint32_t found = record;
            return ZBDIKFIND(index, key, &found, 2) == 0 && found == record && key == wanted;
        };
        for (auto& entry : model) ASSERT_TRUE(foundExactly(entry.first, entry.second)) << entry.first;
        // A program that bisects relies on no key over a page being too low.
        std::mt19937 random(9);
        uint32_t next = 100000;
        for (int step = 0; step < 600; ++step) {
            if (model.empty() || random() % 2) {
                std::string added = std::to_string(10000 + random() % 9999).substr(1);
                added.resize(static_cast<size_t>(one.length), ' ');
                ASSERT_EQ(ZBDIKADD(index, added.data(), next), 0);
                model.push_back({added, next++});
            } else {
                auto place = model.begin() + static_cast<ptrdiff_t>(random() % model.size());
                ASSERT_EQ(ZBDIKDEL(index, place->first.data(), place->second), 0) << step;
                model.erase(place);
            }
            if (step % 50 != 49) continue;
            std::vector<std::pair<std::string, uint32_t>> found;
            pages::Survey survey = pages::SurveyIdx("x.idx", [&](const pages::Entry& entry) {
                found.push_back({entry.key, entry.record});
            });
            ASSERT_EQ(survey.faults, std::vector<std::string>()) << step;
            for (const std::string& note : survey.notes)
                ASSERT_EQ(note.find("is lower than"), std::string::npos) << note;
            std::sort(found.begin(), found.end());
            auto expected = model;
            std::sort(expected.begin(), expected.end());
            ASSERT_EQ(found, expected) << step;
        }
        for (auto& entry : model) ASSERT_TRUE(foundExactly(entry.first, entry.second)) << entry.first;
        ZBDTERM();
    }
}

TEST_F(Tool, TagsComeTogetherAndOneByOneAndGo) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "name", "--on", "NAME", "--tag", "born",
                  "--on", "BORN"})
                  .status,
              0);
    Result again = Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "NAME", "--on", "BORN"});
    EXPECT_EQ(again.status, 1);
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "amount", "--on", "AMOUNT"}).status, 0);
    EXPECT_EQ(Zb({"index", "tags", "x.mdx"}).out,
              "TAG     TYPE  LENGTH  KEYS  UNIQUE  EXPRESSION\n"
              "NAME    C          6     5          NAME\n"
              "BORN    D          8     5          BORN\n"
              "AMOUNT  N         12     5          AMOUNT\n");
    EXPECT_EQ(Zb({"index", "list", "x.mdx"}).status, 2);
    EXPECT_EQ(Zb({"index", "list", "x.mdx", "--tag", "no"}).status, 3);
    EXPECT_EQ(Entries({"x.mdx", "--tag", "amount"}), "2 -20\n4 -0.25\n5 0\n1 1.5\n3 1000\n");
    ASSERT_EQ(
        Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "name", "--on", "LEFT(NAME,1)", "--force"})
            .status,
        0);
    EXPECT_EQ(Entries({"x.mdx", "--tag", "name"}), "2 \"A\"\n4 \"J\"\n1 \"S\"\n3 \"S\"\n5 \"S\"\n");
    ASSERT_EQ(Zb({"index", "erase", "x.mdx", "--tag", "born"}).status, 0);
    Json check = CheckOf("people.dbf", "x.mdx", 0);
    EXPECT_EQ(check["clean"], true);
    ASSERT_EQ(check["tags"].size(), 2u);
    EXPECT_GT(check["tags"][0]["freePages"], 0);
    EXPECT_EQ(Zb({"index", "erase", "x.mdx", "--tag", "born"}).status, 3);
    EXPECT_EQ(Names(), (std::vector<std::string>{"people.dbf", "x.mdx"}));
}

TEST_F(Tool, MdxFilesCarryADayThatTheFormatTakes) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "A", "--on", "NAME"}).status, 0);
    EXPECT_EQ(ReadFile("x.mdx").substr(0, 6), Hex("02 63 0C 1F") + "X" + Fill(1));
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "y.mdx", "--tag", "A", "--on", "NAME"}, {},
                 {"ZB_TODAY=2010-02-03"})
                  .status,
              0);
    EXPECT_EQ(ReadFile("y.mdx").substr(0, 4), Hex("02 6E 02 03"));
    EXPECT_EQ(Zb({"index", "create", "people.dbf", "muchtoolong.mdx", "--tag", "A", "--on", "NAME"}).status,
              1);
    EXPECT_EQ(Names(), (std::vector<std::string>{"people.dbf", "x.mdx", "y.mdx"}));
}

TEST_F(Tool, TheFreeListOfAnMdxFileIsChecked) {
    WriteFile("people.dbf", People());
    ASSERT_EQ(Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "A", "--on", "NAME", "--tag", "B",
                  "--on", "BORN"})
                  .status,
              0);
    ASSERT_EQ(Zb({"index", "erase", "x.mdx", "--tag", "B"}).status, 0);
    Bytes file = ReadFile("x.mdx");
    file[40] = 7;
    WriteFile("x.mdx", file);
    Json check = CheckOf("people.dbf", "x.mdx", 4);
    EXPECT_EQ(check["faults"], Json::array({"the header counts 7 free pages, 2 are"}));
    EXPECT_EQ(check["tags"][0]["clean"], true);
}

// A leaf that reads as a branch would lead an erase to the pages of another tag.
TEST_F(Tool, TagsWhoseLeavesReadAsBranchesGoWithoutHarmToOthers) {
    std::vector<std::string> records;
    for (int number = 0; number < 40; ++number) {
        std::string name = "K" + std::to_string(100 + number);
        records.push_back(" " + name + std::string(90 - name.size(), ' '));
    }
    WriteFile("t.dbf", Table({{"NAME", 'C', 90}}, records));
    const std::vector<std::string> create{"index", "create", "t.dbf", "x.mdx", "--tag", "A", "--on", "NAME"};
    std::vector<std::string> both = create;
    both.insert(both.end(), {"--tag", "B", "--on", "NAME"});
    ASSERT_EQ(Zb(both).status, 0);
    Bytes file = ReadFile("x.mdx");
    auto word = [&](size_t at) {
        return static_cast<unsigned char>(file[at]) | static_cast<unsigned char>(file[at + 1]) << 8;
    };
    // The first leaf of A gets the root of B for its trailing pointer.
    size_t rootOfA = static_cast<size_t>(word(static_cast<size_t>(word(512 + 32)) * 512)) * 512;
    size_t leaf = static_cast<size_t>(word(rootOfA + 8)) * 512;
    int rootOfB = word(static_cast<size_t>(word(512 + 64)) * 512);
    file[leaf + 8 + static_cast<size_t>(word(leaf)) * 96] = static_cast<char>(rootOfB);
    WriteFile("x.mdx", file);
    Json check = CheckOf("t.dbf", "x.mdx", 0);
    ASSERT_EQ(check["tags"][0]["notes"].size(), 2u);
    EXPECT_NE(check["tags"][0]["notes"][0].get<std::string>().find("reads as a branch"), std::string::npos);
    EXPECT_NE(check["tags"][0]["notes"][1].get<std::string>().find("the format's own"), std::string::npos);

    std::vector<std::string> again = create;
    again.push_back("--force");
    ASSERT_EQ(Zb(again).status, 0);
    check = CheckOf("t.dbf", "x.mdx", 0);
    EXPECT_EQ(check["tags"][0]["notes"].size(), 0u);
    EXPECT_EQ(check["tags"][1]["keys"], 40);

    WriteFile("x.mdx", file);
    ASSERT_EQ(Zb({"index", "erase", "x.mdx", "--tag", "a"}).status, 0);
    check = CheckOf("t.dbf", "x.mdx", 0);
    ASSERT_EQ(check["tags"].size(), 1u);
    EXPECT_EQ(check["tags"][0]["keys"], 40);
}

TEST_F(Tool, TagsAreNamedOnceAndMdxFilesLookedAt) {
    WriteFile("people.dbf", People());
    Result twice = Zb({"index", "create", "people.dbf", "x.mdx", "--tag", "name", "--on", "NAME", "--tag",
                       "NAME", "--on", "BORN", "--force"});
    EXPECT_EQ(twice.status, 2);
    EXPECT_NE(twice.err.find("--tag NAME is given twice"), std::string::npos) << twice.err;
    WriteFile("y.mdx", "no index");
    Result other = Zb({"index", "create", "people.dbf", "y.mdx", "--tag", "A", "--on", "NAME"});
    EXPECT_EQ(other.status, 4);
    EXPECT_NE(other.err.find("y.mdx: no MDX index"), std::string::npos) << other.err;
    EXPECT_EQ(ReadFile("y.mdx"), "no index");
}

// ---- eval ----

TEST_F(Tool, EvalShowsWhatAnExpressionComesTo) {
    WriteFile("people.dbf", People());
    auto eval = [](const char* record, const char* expression) {
        return Zb({"eval", "people.dbf", record, expression}).out;
    };
    EXPECT_EQ(eval("1", "name + dtos(born)"), "Smith 19700101\n");
    EXPECT_EQ(eval("1", "AMOUNT+10"), "11.5\n");
    EXPECT_EQ(eval("2", "AMOUNT"), "-20\n");
    EXPECT_EQ(eval("4", "BORN"), "1996-02-29\n");
    EXPECT_EQ(eval("3", "BORN"), "\n");
    EXPECT_EQ(eval("3", "STR(AMOUNT,8,1)"), "  1000.0\n");
    EXPECT_EQ(Zb({"eval", "people.dbf", "1", "LEFT(NAME,2)", "--json"}).out,
              "{\"type\":\"C\",\"length\":2,\"value\":\"Sm\"}\n");
    EXPECT_EQ(Zb({"eval", "people.dbf", "3", "BORN", "--json"}).out,
              "{\"type\":\"D\",\"length\":8,\"value\":null}\n");
    Result wrong = Zb({"eval", "people.dbf", "1", "NAME+10"});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_NE(wrong.err.find("people.dbf: ErrExpression (-7)"), std::string::npos) << wrong.err;
    EXPECT_EQ(Zb({"eval", "people.dbf", "9", "NAME"}).status, 3);
}

}  // namespace
}  // namespace test
