// Writers that are killed at random moments: what was acknowledged is there, the
// locks are gone, zb index check tells what is stale, and a build mends it.
//
// ZB_KILLS is the number of kills, ZB_SEED where the moments come from.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <set>

#include "pages/pages.h"
#include "support/data_files.h"
#include "support/environment.h"
#include "tool.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int KeyLength = 12;
constexpr int BaseRecords = 120;

// All that a record is follows from its number and how often it was changed.
std::string NameOf(uint32_t number, uint32_t version) {
    std::mt19937 random(number * 7919 + version * 104729);
    std::string name;
    for (int i = 0; i < KeyLength; i++) name += static_cast<char>('A' + random() % 26);
    return name;
}

std::string NoteOf(uint32_t number, uint32_t version) {
    std::string name = NameOf(number, version), note;
    for (uint32_t length = number * 37 % 60; note.size() < length * KeyLength + KeyLength;) note += name;
    return note;
}

bool DeletedIn(uint32_t version) { return version % 5 == 4; }

Bytes RecordOf(uint32_t number, uint32_t version, int32_t block) {
    char text[64];
    snprintf(text, sizeof text, "%c%s%8u%s%10d", DeletedIn(version) ? '*' : ' ',
             NameOf(number, version).c_str(), version, NameOf(number, 0).c_str(), block);
    return text;
}

int32_t BlockOf(const Bytes& record) {
    return atoi(record.substr(1 + KeyLength + 8 + KeyLength, 10).c_str());
}

// What the writer tells of its work.
struct Message {
    enum Kind : uint32_t { Begin, Written, Done } kind;
    uint32_t number;
    uint32_t version;
};

// ---- the four indexes ----

struct Index {
    const char* file;
    size_t keyAt;  // in the record
    int32_t (*build)(int16_t data);
    pages::Survey (*survey)(const pages::EntrySink& sink);
};

char* Expression(const char* expression) {
    static char text[8];
    return strcpy(text, expression);
}

// Deletions wear an MDX tag out (its keys can come to stand where no search finds
// them), so that the tag is on a field that never changes.

int32_t BuildMdx(int16_t data) {
    int16_t file;
    if (ZBDMCREATE("t.mdx", 1) < 0 || ZBDMOPENX(&file, "t.mdx", 0) < 0) return ZBECODE();
    if (ZBDMTINDEX(data, static_cast<uint16_t>(file), "FIRST", 'C', Expression("FIRST"), KeyLength) < 0)
        return ZBECODE();
    return ZBDMCLOSE(file);
}

pages::Survey SurveyTag(const pages::EntrySink& sink) {
    auto all = pages::SurveyMdx("t.mdx", [&](size_t, const pages::Entry& entry, const std::string*) {
        if (sink) sink(entry);
    });
    pages::Survey survey = all.tags.empty() ? pages::Survey{} : all.tags[0].tree;
    survey.faults = all.AllFaults();
    return survey;
}

const Index Indexes[] = {
    {"t.ndx", 1, [](int16_t data) { return ZBDNINDEX(data, "t.ndx", 'C', Expression("NAME"), KeyLength); },
     [](const pages::EntrySink& sink) { return pages::SurveyNdx("t.ndx", sink); }},
    {"t.ntx", 1, [](int16_t data) { return ZBDCINDEX(data, "t.ntx", 'C', Expression("NAME"), KeyLength, 0); },
     [](const pages::EntrySink& sink) { return pages::SurveyNtx("t.ntx", sink); }},
    {"t.idx", 1, [](int16_t data) { return ZBDIINDEX(data, "t.idx", 'C', Expression("NAME"), KeyLength); },
     [](const pages::EntrySink& sink) { return pages::SurveyIdx("t.idx", sink); }},
    {"t.mdx", 1 + KeyLength + 8, BuildMdx, SurveyTag},
};

// ---- the writer ----

// The work that is killed. It lives in a process of its own and ends with it.
class Writer {
  public:
    Writer(int pipe, unsigned seed) : acknowledge(pipe), random(seed) {
        Must(ZBDINIT(100, 4));
        data = Open("t.dbf", 1);
        Must(ZBDTOPENX(&memo, "t.dbt", 1));
    }

    // Appends and changes records, with their memos and keys.
    void Change() {
        uint16_t handle;
        Must(ZBDNOPENX(&handle, "t.ndx", 0));
        ndx = static_cast<int16_t>(handle);
        Must(ZBDCOPENX(&handle, "t.ntx", 0));
        ntx = static_cast<int16_t>(handle);
        Must(ZBDIOPENX(&handle, "t.idx", 0));
        idx = static_cast<int16_t>(handle);
        Must(ZBDIKTYPE(idx, 'C'));
        Must(ZBDMOPENX(&mdx, "t.mdx", 0));
        Must(ZBDMTUSE(&tag, static_cast<uint16_t>(mdx), "FIRST"));
        uint32_t count;
        Must(ZBDDSIZE(data, &count));
        std::map<uint32_t, uint32_t> versions;
        for (;;) {
            if (random() % 2) {
                Append(++count);
                versions[count] = 0;
            } else {
                uint32_t number = static_cast<uint32_t>(random() % count) + 1;
                Update(number, ++versions[number]);
            }
        }
    }

    void Pack() {
        for (;;) Must(ZBDDPACK(&data));
    }
    void PackMemos() {
        for (;;) Must(ZBDTPACK(data, &memo));
    }
    void Build() {
        for (;;)
            for (const Index& index : Indexes) Must(index.build(data));
    }

  private:
    void Must(int32_t code) {
        if (code >= 0) return;
        fprintf(stderr, "the writer met %d\n", code);
        _exit(1);
    }
    void Tell(Message::Kind kind, uint32_t number, uint32_t version) {
        Message message{kind, number, version};
        if (write(acknowledge, &message, sizeof message) != sizeof message) _exit(2);
    }
    void Put(uint32_t number, uint32_t version, int32_t block, uint16_t mode) {
        Bytes record = RecordOf(number, version, block);
        SetRecord(data, record);
        Must(ZBDDRPUT(data, &number, mode));
        if (mode == 256 && DeletedIn(version)) Must(ZBDDRDEL(data, static_cast<int32_t>(number)));
    }
    void Append(uint32_t number) {
        Tell(Message::Begin, number, 0);
        int32_t block;
        Must(ZBDTRPUT(memo, &block, NoteOf(number, 0).c_str(), ZB_MemoNew));
        Put(number, 0, block, 0);
        Tell(Message::Written, number, 0);
        AddKey(number, 0);
        Must(ZBDMKADD(tag, NameOf(number, 0).c_str(), number));
        Tell(Message::Done, number, 0);
    }
    void Update(uint32_t number, uint32_t version) {
        Tell(Message::Begin, number, version);
        Must(ZBDDRGET(data, static_cast<int32_t>(number)));
        int32_t block = BlockOf(RecordBytes(data));
        // In place half of the time: then the old text is lost with a kill.
        bool place = random() % 2;
        Must(ZBDTRPUT(memo, &block, NoteOf(number, version).c_str(), place ? ZB_MemoReplace : ZB_MemoNew));
        Put(number, version, block, 256);
        Tell(Message::Written, number, version);
        std::string old = NameOf(number, version - 1);
        Must(ZBDNKDEL(ndx, old.c_str(), number));
        Must(ZBDCKDEL(ntx, old.c_str(), number));
        Must(ZBDIKDEL(idx, old.c_str(), number));
        AddKey(number, version);
        Tell(Message::Done, number, version);
    }
    void AddKey(uint32_t number, uint32_t version) {
        std::string key = NameOf(number, version);
        Must(ZBDNKADD(ndx, key.c_str(), number));
        Must(ZBDCKADD(ntx, key.c_str(), number));
        Must(ZBDIKADD(idx, key.c_str(), number));
    }

    int acknowledge;
    std::mt19937 random;
    int16_t data, memo, ndx, ntx, idx, mdx;
    int32_t tag;
};

using Work = void (Writer::*)();

// Runs the work until the kill, and gives what it told.
std::vector<Message> KillAfter(std::chrono::microseconds time, Work work, unsigned seed) {
    int ends[2];
    if (pipe(ends)) abort();
    pid_t writer = fork();
    if (writer == 0) {
        close(ends[0]);
        Writer one(ends[1], seed);
        (one.*work)();
    }
    close(ends[1]);
    std::vector<Message> messages;
    auto end = Clock::now() + time;
    for (bool killed = false;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd wait{ends[0], POLLIN, 0};
        if (!killed && (left <= 0 || poll(&wait, 1, static_cast<int>(left)) == 0)) {
            if (left <= 0) kill(writer, SIGKILL), killed = true;
            continue;
        }
        Message message;
        ssize_t got = read(ends[0], &message, sizeof message);
        if (got != sizeof message) break;
        messages.push_back(message);
    }
    close(ends[0]);
    int status;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the writer ended by itself";
    return messages;
}

// ---- the test ----

class KilledWriter : public Tool {
  protected:
    void SetUp() override {
        ASSERT_EQ(ZBDINIT(100, 4), 0);
        Specs fields = {Spec("NAME", 'C', KeyLength), Spec("VERSION", 'N', 8), Spec("FIRST", 'C', KeyLength),
                        Spec("NOTE", 'M')};
        ASSERT_EQ(Create("t.dbf", fields, 1), 0);
        ASSERT_EQ(ZBDTCREATE("t.dbt"), 0);
        int16_t data = Open("t.dbf", 1), memo;
        ASSERT_EQ(ZBDTOPENX(&memo, "t.dbt", 1), 0);
        for (uint32_t number = 1; number <= BaseRecords; number++) {
            int32_t block;
            ASSERT_EQ(ZBDTRPUT(memo, &block, NoteOf(number, 0).c_str(), ZB_MemoNew), 0);
            SetRecord(data, RecordOf(number, 0, block));
            Append(data);
        }
        for (const Index& index : Indexes) ASSERT_EQ(index.build(data), 0);
        ZBDTERM();
        for (const char* name : {"t.dbf", "t.dbt", "t.ndx", "t.ntx", "t.idx", "t.mdx"})
            base[name] = ReadFile(name);
        if (const char* text = getenv("ZB_KILLS")) kills = atoi(text);
        unsigned seed = std::random_device{}();
        if (const char* text = getenv("ZB_SEED")) seed = static_cast<unsigned>(atoi(text));
        std::cout << "ZB_SEED=" << seed << '\n';
        random.seed(seed);
    }

    void StartAnew() {
        for (auto& entry : fs::directory_iterator(".")) fs::remove(entry);
        for (auto& [name, bytes] : base) WriteFile(name, bytes);
    }

    // Kills the work again and again, and looks at what it leaves.
    template <class Look>
    void Kill(Work work, int longest, Look look) {
        for (int kill = 0; kill < kills && !HasFailure(); kill++) {
            SCOPED_TRACE("kill " + std::to_string(kill));
            StartAnew();
            std::chrono::microseconds time(random() % static_cast<unsigned>(longest * 1000));
            auto messages = KillAfter(time, work, random());
            ASSERT_EQ(ZBDINIT(100, 4), 0);
            look(messages);
            ZBDTERM();
        }
    }

    // Nobody holds the file any more: it opens for this process alone, to be
    // written, and every lock can be had.
    int16_t OpenAlone() {
        uint16_t handle = 0xFFFF;
        EXPECT_GE(ZBDDOPENX(&handle, "t.dbf", 1), 0);
        auto data = static_cast<int16_t>(handle);
        ZbDataInfo info{};
        EXPECT_EQ(ZBDDINFO(data, &info), 0);
        EXPECT_EQ(info.infoFlags & 3, 0) << "somebody still holds the file";
        uint16_t conflict = 77;
        EXPECT_EQ(ZBDDLOCK(data, 2, &conflict), 0);
        EXPECT_EQ(conflict, 0);
        EXPECT_EQ(ZBDDUNLOCK(data, 2, nullptr), 0);
        return data;
    }

    // Which records an index doesn't show with their own key, once. Empty with the
    // structure broken.
    std::set<uint32_t> StaleIn(const Index& index, int16_t data, bool* broken) {
        std::map<uint32_t, std::vector<std::string>> keys;
        *broken = true;
        try {
            auto survey =
                index.survey([&](const pages::Entry& entry) { keys[entry.record].push_back(entry.key); });
            *broken = !survey.faults.empty();
        } catch (const pages::NotAnIndex&) {
        }
        std::set<uint32_t> stale;
        if (*broken) return stale;
        uint32_t count = 0;
        EXPECT_EQ(ZBDDSIZE(data, &count), 0);
        for (uint32_t number = 1; number <= count; number++) {
            EXPECT_GE(ZBDDRGET(data, static_cast<int32_t>(number)), 0);
            auto& found = keys[number];
            if (found != std::vector{RecordBytes(data).substr(index.keyAt, KeyLength)}) stale.insert(number);
        }
        for (auto& entry : keys)
            if (entry.first < 1 || entry.first > count) stale.insert(entry.first);
        return stale;
    }

    // The tool names exactly the stale records, or tells that the structure is
    // broken, and is content once the index was built anew.
    void CheckAndMend(const Index& index, int16_t data) {
        SCOPED_TRACE(index.file);
        bool broken;
        std::set<uint32_t> stale = StaleIn(index, data, &broken);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
        Result result = Zb({"index", "check", "t.dbf", index.file});
        // An MDX file whose tag was not yet there is sound, and nothing is said of it.
        bool untagged = std::string(index.file) == "t.mdx" && result.status == 0 && result.out.empty();
        if (!untagged) {
            EXPECT_EQ(result.status, broken || !stale.empty() ? 4 : 0) << result.out << result.err;
        }
        if (!broken && !untagged) {
            std::set<uint32_t> named;
            std::regex record("(?:fault: record|is of record) (\\d+)");
            for (std::sregex_iterator it(result.out.begin(), result.out.end(), record), none; it != none;
                 ++it)
                named.insert(static_cast<uint32_t>(stoul((*it)[1])));
            EXPECT_EQ(named, stale) << result.out;
        }
        (broken ? brokenIndexes : stale.empty() ? cleanIndexes : staleIndexes)++;
        data = Open("t.dbf", 1);
        ASSERT_EQ(index.build(data), 0);
        EXPECT_TRUE(StaleIn(index, data, &broken).empty());
        EXPECT_FALSE(broken);
        ASSERT_EQ(ZBDDCLOSE(data), 0);
        EXPECT_EQ(Zb({"index", "check", "t.dbf", index.file}).status, 0);
    }

    Environment today{"ZB_TODAY", "1999-12-31"};
    std::map<std::string, Bytes> base;
    std::mt19937 random;
    int kills = 6;
    int brokenIndexes = 0, staleIndexes = 0, cleanIndexes = 0;
};

TEST_F(KilledWriter, LosesNoRecordThatWasAcknowledged) {
    int acknowledged = 0, inFlight = 0;
    Kill(&Writer::Change, 60, [&](const std::vector<Message>& messages) {
        std::map<uint32_t, uint32_t> versions;
        for (uint32_t number = 1; number <= BaseRecords; number++) versions[number] = 0;
        const Message* last = nullptr;
        for (const Message& message : messages) {
            last = &message;
            if (message.kind == Message::Written) versions[message.number] = message.version, acknowledged++;
        }
        bool open = last && last->kind == Message::Begin;
        inFlight += open;

        int16_t data = OpenAlone(), memo;
        ASSERT_GE(ZBDTOPENX(&memo, "t.dbt", 1), 0);
        for (auto [number, version] : versions) {
            bool changing = open && last->number == number;
            int32_t code = ZBDDRGET(data, static_cast<int32_t>(number));
            ASSERT_GE(code, 0) << number;
            Bytes record = RecordBytes(data);
            int32_t block = BlockOf(record);
            if (changing) {
                // The old record or the new one, of which the flag comes last; cut off
                // where a memory page ends, in the worst case.
                Bytes before = RecordOf(number, version, block),
                      after = RecordOf(number, last->version, block);
                bool fits = false;
                for (size_t cut = 0; cut <= record.size(); cut++)
                    fits |= record.substr(1) == (after.substr(0, cut) + before.substr(cut)).substr(1);
                EXPECT_TRUE(fits) << record;
                continue;
            }
            EXPECT_EQ(record, RecordOf(number, version, block));
            void* text = nullptr;
            ASSERT_EQ(ZBDTRGET(memo, block, &text, 0), 0) << number;
            EXPECT_EQ(static_cast<char*>(text), NoteOf(number, version));
            ZBMFREE(text);
        }
        ASSERT_EQ(ZBDTCLOSE(memo), 0);
        CheckAndMend(Indexes[random() % 4], data);
    });
    std::cout << kills << " kills, " << acknowledged << " records acknowledged, " << inFlight
              << " kills within a record; indexes: " << cleanIndexes << " clean, " << staleIndexes
              << " stale, " << brokenIndexes << " broken\n";
}

TEST_F(KilledWriter, LosesNoLiveRecordInAPack) {
    // Some records go.
    ASSERT_EQ(ZBDINIT(100, 4), 0);
    int16_t data = Open("t.dbf", 1);
    for (int number = 3; number <= BaseRecords; number += 7) ASSERT_EQ(ZBDDRDEL(data, number), 0);
    ZBDTERM();
    base["t.dbf"] = ReadFile("t.dbf");
    int between = 0;
    Kill(&Writer::Pack, 30, [&](const std::vector<Message>&) {
        // Between the two renames the data stand under the backup's name alone.
        if (!FileExists("t.dbf")) fs::rename("t.BAK", "t.dbf"), between++;
        int16_t found = OpenAlone();
        uint32_t count = 0;
        ASSERT_EQ(ZBDDSIZE(found, &count), 0);
        std::vector<Bytes> names, expected;
        for (uint32_t number = 1; number <= count; number++)
            if (ZBDDRGET(found, static_cast<int32_t>(number)) == 0)
                names.push_back(RecordBytes(found).substr(1, KeyLength));
        for (uint32_t number = 1; number <= BaseRecords; number++)
            if (number % 7 != 3) expected.push_back(NameOf(number, 0));
        EXPECT_EQ(names, expected);
        CheckAndMend(Indexes[random() % 4], found);
    });
    std::cout << kills << " kills, " << between << " between the renames\n";
}

TEST_F(KilledWriter, LosesNoTextInAMemoPack) {
    Kill(&Writer::PackMemos, 30, [&](const std::vector<Message>&) {
        // The texts are in the memo file, its backup or the work file.
        Bytes all;
        for (auto& entry : fs::directory_iterator(".")) all += ReadFile(entry.path().string());
        int16_t data = OpenAlone();
        for (uint32_t number = 1; number <= BaseRecords; number++) {
            ASSERT_EQ(ZBDDRGET(data, static_cast<int32_t>(number)), 0);
            EXPECT_EQ(RecordBytes(data).substr(1, KeyLength), NameOf(number, 0));
            EXPECT_NE(all.find(NoteOf(number, 0)), Bytes::npos);
        }
        ASSERT_EQ(ZBDDCLOSE(data), 0);
    });
}

TEST_F(KilledWriter, LosesNothingInABuild) {
    Kill(&Writer::Build, 60, [&](const std::vector<Message>&) {
        EXPECT_EQ(ReadFile("t.dbf"), base["t.dbf"]);
        for (const Index& index : Indexes) CheckAndMend(index, OpenAlone());
    });
    std::cout << kills << " kills; indexes: " << cleanIndexes << " clean, " << staleIndexes << " stale, "
              << brokenIndexes << " broken\n";
}

}  // namespace
}  // namespace test
