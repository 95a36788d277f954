// zb locks: what another process holds, and who that is.
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tool.h"
#include "zb.h"

namespace test {
namespace {

using Json = nlohmann::json;

class Locks : public LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        WriteFile("t.dbf", Table({{"A", 'C', 1}}, {" a", " b", " c", " d", " e"}));
        ASSERT_EQ(ZBDDOPENX(&table, "t.dbf", ZB_DialectClassic | ZB_Shared), 0);
    }

    // What this process holds, as lines of mode and meaning.
    static std::string Held() {
        Result result = Zb({"locks", "t.dbf", "--json"});
        EXPECT_EQ(result.status, 0) << result.err;
        Json all = Json::parse(result.out);
        std::string lines;
        for (const Json& lock : all["locks"]) {
            EXPECT_EQ(lock["process"], getpid());
            EXPECT_GT(lock["descriptor"], 2);
            for (const Json& meaning : lock["meanings"])
                lines += (lock["exclusive"].get<bool>() ? "x " : "s ") + meaning.get<std::string>() + "\n";
        }
        return lines;
    }

    uint16_t table = 0;
    uint16_t conflict = 0;
    const std::string kOpen = "s open for writing\ns open for reading\n";
};

TEST_F(Locks, OfAnOpenTable) {
    EXPECT_EQ(Held(), kOpen);
    std::string process = std::to_string(getpid());
    Result text = Zb({"locks", "t.dbf"});
    EXPECT_EQ(text.out.rfind("t.dbf:\n", 0), 0u) << text.out;
    EXPECT_NE(text.out.find(process + "  tool_tests"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("open for reading\n"), std::string::npos) << text.out;
    ASSERT_EQ(ZBDDCLOSE(static_cast<int16_t>(table)), 0);
    EXPECT_EQ(Zb({"locks", "t.dbf"}).out,
              "t.dbf: nobody has it open through this library, or holds a lock on it\n");
}

TEST_F(Locks, OfAnExclusiveOpen) {
    ASSERT_EQ(ZBDDCLOSE(static_cast<int16_t>(table)), 0);
    ASSERT_EQ(ZBDDOPENX(&table, "t.dbf", ZB_DialectClassic), 0);
    EXPECT_EQ(Held(), kOpen + "s lets nobody else read\ns lets nobody else write\n");
}

TEST_F(Locks, OfEachKind) {
    auto handle = static_cast<int16_t>(table);
    auto with = [&](int16_t kind) {
        EXPECT_EQ(ZBDDLOCK(handle, kind, &conflict), 0);
        EXPECT_EQ(conflict, 0);
        std::string held = Held();
        EXPECT_EQ(ZBDDUNLOCK(handle, kind, &conflict), 0);
        return held;
    };
    EXPECT_EQ(with(1), "x the header byte (an append)\n" + kOpen);
    EXPECT_EQ(with(2), "x the whole table, its header byte included\n" + kOpen);
    EXPECT_EQ(with(3), "x the whole table, without its header byte\n" + kOpen);
    EXPECT_EQ(with(4), "x reader slot 1 (a shared lock)\n" + kOpen);
    EXPECT_EQ(Held(), kOpen);
}

TEST_F(Locks, OfRecords) {
    auto handle = static_cast<int16_t>(table);
    constexpr int16_t kLock = 7;
    for (uint32_t record : {5u, 2u, 3u}) ASSERT_EQ(ZBDDRLOCK(handle, record, kLock, &conflict), 0);
    EXPECT_EQ(Held(), "x record 5\nx records 2 to 3\n" + kOpen);
    ASSERT_EQ(ZBDDLOCK(handle, 1, &conflict), 0);
    EXPECT_EQ(Held(), "x record 5\nx records 2 to 3\nx the header byte (an append)\n" + kOpen);
}

TEST_F(Locks, OfAFileThatIsNotThere) { EXPECT_EQ(Zb({"locks", "none.dbf"}).status, 3); }

}  // namespace
}  // namespace test
