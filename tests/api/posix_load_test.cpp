// Eight processes on one data file, its memo file and an index of each format, as
// the lock protocol wants it. Nothing is lost, nothing doubled, every structure is
// sound, and a reader never sees half a record.
//
// ZB_LOAD is the number of operations of each process; scripts/load lets them run
// for ZB_LOAD_SECONDS.
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <random>

#include "pages/pages.h"
#include "support/data_files.h"
#include "support/environment.h"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int Processes = 8;
constexpr uint32_t MostRecords = 100000;  // of each process
constexpr int KeyLength = 12;
constexpr int BlockAt = 1 + KeyLength + 8 + 60;  // in a record: where the memo's block stands

// A record follows from its owner, its place among the owner's records and how
// often it was changed: so whatever is read can be held against what it should be.
struct Content {
    uint32_t owner, place, version;

    std::string Key() const {
        char text[40];
        // The changing part comes first: a new version stands elsewhere in the index.
        snprintf(text, sizeof text, "%04u%02u%06u", (version * 7919 + place * 31) % 10000, owner, place);
        return text;
    }
    // What never changes. Deletions wear an MDX tag out (its keys can come to stand
    // where no search finds them), so that the tag is on this.
    std::string First() const { return Content{owner, place, 0}.Key(); }
    std::string Note() const {
        std::string note;
        for (uint32_t i = 0; i <= place % 40; i++) note += Key();
        return note;
    }
    Bytes Record(int32_t block) const {
        char text[160];
        std::string key = Key();
        // The key four times over: a record that is half old and half new shows.
        snprintf(text, sizeof text, " %s%8u%s%s%s%s%s%10d", key.c_str(), version, key.c_str(), key.c_str(),
                 key.c_str(), key.c_str(), First().c_str(), block);
        return text;
    }
};

int32_t BlockOf(const Bytes& record) { return atoi(record.substr(BlockAt, 10).c_str()); }

// What a record says it is.
Content ContentOf(const Bytes& record) {
    return {static_cast<uint32_t>(atoi(record.substr(5, 2).c_str())),
            static_cast<uint32_t>(atoi(record.substr(7, 6).c_str())),
            static_cast<uint32_t>(atoi(record.substr(13, 8).c_str()))};
}

// What the processes tell of their work, in memory that they share.
struct Shared {
    std::atomic<uint32_t> started;
    std::atomic<uint64_t> operations, appends, updates, reads, finds, waits;
    struct Entry {
        uint32_t number;   // of the record
        uint32_t version;  // in force
    };
    std::atomic<uint32_t> counts[Processes];
    Entry entries[Processes][MostRecords];
};

char* Expression(const char* expression) {
    static char text[8];
    return strcpy(text, expression);
}

class Worker {
  public:
    Worker(Shared& told, uint32_t number) : shared(told), me(number), random(number + 1) {
        Must(ZBDINIT(100, 4));
        data = OpenAs(ZBDDOPENX, "t.dbf", 1 | ZB_Shared);
        Must(ZBDTOPENX(&memo, "t.dbt", 1 | ZB_Shared));
        ndx = OpenAs(ZBDNOPENX, "t.ndx", ZB_Shared);
        ntx = OpenAs(ZBDCOPENX, "t.ntx", ZB_Shared);
        idx = OpenAs(ZBDIOPENX, "t.idx", ZB_Shared);
        Must(ZBDIKTYPE(idx, 'C'));
        Must(ZBDMOPENX(&mdx, "t.mdx", ZB_Shared));
        Must(ZBDMTUSE(&tag, static_cast<uint16_t>(mdx), "FIRST"));
    }

    // So many operations, or as many as fit in a time where there is one.
    void Run(int operations, int seconds) {
        shared.started++;
        while (shared.started < Processes) usleep(100);
        auto end = Clock::now() + std::chrono::seconds(seconds);
        for (int i = 0; seconds ? Clock::now() < end : i < operations; i++) {
            shared.operations++;
            unsigned what = random() % 10;
            uint32_t mine = shared.counts[me];
            if (mine == 0 || (what < 2 && mine < MostRecords))
                Append();
            else if (what < 5)
                Update(static_cast<uint32_t>(random() % mine));
            else if (what < 7)
                Find(static_cast<uint32_t>(random() % mine));
            else
                ReadAny();
        }
        // A close of an NDX index moves pages: it is a change like others.
        Lock(2);
        Must(ZBDNCLOSE(ndx));
        Must(ZBDCCLOSE(ntx));
        Must(ZBDICLOSE(idx));
        Must(ZBDMCLOSE(mdx));
        Unlock(2);
        Must(ZBDTERM());
    }

  private:
    // No check of the framework's: what fails ends the process.
    void Must(int32_t code, int line = __builtin_LINE()) {
        if (code >= 0) return;
        fprintf(stderr, "process %u: %d in line %d\n", me, code, line);
        _exit(1);
    }
    void MustBe(bool true_, int line = __builtin_LINE()) {
        if (true_) return;
        fprintf(stderr, "process %u: line %d doesn't hold\n", me, line);
        _exit(1);
    }
    int16_t OpenAs(int32_t (*open)(uint16_t*, const char*, uint16_t), const char* name, int mode) {
        uint16_t handle;
        Must(open(&handle, name, static_cast<uint16_t>(mode)));
        return static_cast<int16_t>(handle);
    }

    // The whole file for one who writes, a reader's slot for one who reads.
    void Lock(int16_t kind) {
        for (;;) {
            uint16_t conflict;
            Must(ZBDDLOCK(data, kind, &conflict));
            if (!conflict) return;
            shared.waits++;
            usleep(static_cast<useconds_t>(random() % 200));
        }
    }
    void Unlock(int16_t kind) { Must(ZBDDUNLOCK(data, kind, nullptr)); }

    void Append() {
        Content content{me, shared.counts[me], 0};
        Lock(2);
        int32_t block;
        Must(ZBDTRPUT(memo, &block, content.Note().c_str(), ZB_MemoNew));
        SetRecord(data, content.Record(block));
        uint32_t number;
        Must(ZBDDRPUT(data, &number, 0));
        AddKey(content.Key(), number);
        Must(ZBDMKADD(tag, content.First().c_str(), number));
        Unlock(2);
        shared.entries[me][content.place] = {number, 0};
        shared.counts[me]++;
        shared.appends++;
    }
    void Update(uint32_t place) {
        auto& entry = shared.entries[me][place];
        Content before{me, place, entry.version}, after{me, place, entry.version + 1};
        Lock(2);
        int32_t block = ReadRecord(entry.number, before);
        Must(ZBDTRPUT(memo, &block, after.Note().c_str(), ZB_MemoReplace));
        SetRecord(data, after.Record(block));
        uint32_t number = entry.number;
        Must(ZBDDRPUT(data, &number, 256));
        RemoveKey(before.Key(), number);
        AddKey(after.Key(), number);
        Unlock(2);
        entry.version++;
        shared.updates++;
    }
    // One's own record by its key, in each index.
    void Find(uint32_t place) {
        auto entry = shared.entries[me][place];
        Content content{me, place, entry.version};
        Lock(4);
        Expect(ZBDNKFIND, ndx, content.Key(), entry.number);
        Expect(ZBDCKFIND, ntx, content.Key(), entry.number);
        Expect(ZBDIKFIND, idx, content.Key(), entry.number);
        Expect(ZBDMKFIND, tag, content.First(), entry.number);
        Unlock(4);
        shared.finds += 4;
    }
    template <class Handle>
    void Expect(int32_t (*find)(Handle, void*, uint32_t*, int16_t), Handle index, const std::string& wanted,
                uint32_t number) {
        char key[104] = {};
        strcpy(key, wanted.c_str());
        uint32_t found = 0;
        int32_t code = find(index, key, &found, 0);
        MustBe(code == 0 && found == number && memcmp(key, wanted.c_str(), KeyLength) == 0);
    }
    // Anybody's record, with its memo.
    void ReadAny() {
        Lock(4);
        uint32_t count;
        Must(ZBDDSIZE(data, &count));
        for (int i = 0; i < 5 && count > 0; i++) {
            uint32_t number = static_cast<uint32_t>(random() % count) + 1;
            Must(ZBDDRGET(data, static_cast<int32_t>(number)));
            Content content = ContentOf(RecordBytes(data));
            ReadRecord(number, content);
        }
        Unlock(4);
        shared.reads += 5;
    }
    // Gives the memo's block.
    int32_t ReadRecord(uint32_t number, const Content& content) {
        Must(ZBDDRGET(data, static_cast<int32_t>(number)));
        Bytes record = RecordBytes(data);
        int32_t block = BlockOf(record);
        MustBe(record == content.Record(block));
        void* text;
        Must(ZBDTRGET(memo, block, &text, 0));
        MustBe(content.Note() == static_cast<char*>(text));
        ZBMFREE(text);
        return block;
    }
    void AddKey(const std::string& key, uint32_t number) {
        Must(ZBDNKADD(ndx, key.c_str(), number));
        Must(ZBDCKADD(ntx, key.c_str(), number));
        Must(ZBDIKADD(idx, key.c_str(), number));
    }
    void RemoveKey(const std::string& key, uint32_t number) {
        Must(ZBDNKDEL(ndx, key.c_str(), number));
        Must(ZBDCKDEL(ntx, key.c_str(), number));
        Must(ZBDIKDEL(idx, key.c_str(), number));
    }

    Shared& shared;
    uint32_t me;
    std::mt19937 random;
    int16_t data, memo, ndx, ntx, idx, mdx;
    int32_t tag;
};

class Load : public DirectoryTest {
  protected:
    using Keys = std::map<std::string, std::vector<uint32_t>>;  // the records of each

    void SetUp() override {
        void* memory =
            mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(memory, MAP_FAILED);
        shared = static_cast<Shared*>(memory);
        ASSERT_EQ(ZBDINIT(100, 4), 0);
        ASSERT_EQ(Create("t.dbf",
                         {Spec("NAME", 'C', KeyLength), Spec("VERSION", 'N', 8), Spec("AGAIN", 'C', 48),
                          Spec("FIRST", 'C', KeyLength), Spec("NOTE", 'M')},
                         1),
                  0);
        ASSERT_EQ(ZBDTCREATE("t.dbt"), 0);
        ASSERT_EQ(ZBDNCREATE("t.ndx", 'C', Expression("NAME"), KeyLength), 0);
        ASSERT_EQ(ZBDCCREATE("t.ntx", 'C', Expression("NAME"), KeyLength, 0), 0);
        ASSERT_EQ(ZBDICREATE("t.idx", 'C', Expression("NAME"), KeyLength), 0);
        ASSERT_EQ(ZBDMCREATE("t.mdx", 1), 0);
        int16_t mdx;
        ASSERT_EQ(ZBDMOPENX(&mdx, "t.mdx", 0), 0);
        ASSERT_EQ(ZBDMTNEW(mdx, "FIRST", 'C', Expression("FIRST"), KeyLength), 0);
        ZBDTERM();
    }
    void TearDown() override { munmap(shared, sizeof(Shared)); }

    // Every record once, as its owner left it last, with its memo.
    void CheckRecords() {
        ASSERT_EQ(ZBDINIT(100, 4), 0);
        int16_t data = Open("t.dbf", 1), memo;
        ASSERT_EQ(ZBDTOPENX(&memo, "t.dbt", 1), 0);
        uint32_t count = 0, told = 0;
        ASSERT_EQ(ZBDDSIZE(data, &count), 0);
        for (uint32_t owner = 0; owner < Processes; owner++) {
            for (uint32_t place = 0; place < shared->counts[owner]; place++, told++) {
                auto entry = shared->entries[owner][place];
                Content content{owner, place, entry.version};
                ASSERT_EQ(ZBDDRGET(data, static_cast<int32_t>(entry.number)), 0);
                Bytes record = RecordBytes(data);
                ASSERT_EQ(record, content.Record(BlockOf(record)));
                void* text = nullptr;
                ASSERT_EQ(ZBDTRGET(memo, BlockOf(record), &text, 0), 0);
                ASSERT_EQ(static_cast<char*>(text), content.Note());
                ZBMFREE(text);
                keys[content.Key()].push_back(entry.number);
                firsts[content.First()].push_back(entry.number);
            }
        }
        EXPECT_EQ(count, told);
        EXPECT_EQ(keys.size(), told);
        ZBDTERM();
    }

    // The structure is sound, and the keys are those of the records.
    template <class Survey>
    void CheckIndex(Survey survey, const Keys& expected) {
        Keys found;
        auto faults = survey([&](const pages::Entry& entry) { found[entry.key].push_back(entry.record); });
        EXPECT_EQ(faults, std::vector<std::string>());
        EXPECT_TRUE(found == expected);
    }

    Environment today{"ZB_TODAY", "1999-12-31"};
    Shared* shared = nullptr;
    Keys keys, firsts;
};

TEST_F(Load, EightProcessesLoseNothing) {
    int operations = 400, limit = 0;
    if (const char* text = getenv("ZB_LOAD")) operations = atoi(text);
    if (const char* text = getenv("ZB_LOAD_SECONDS")) limit = atoi(text);
    auto begin = Clock::now();
    {
        std::vector<std::unique_ptr<Process>> processes;
        for (uint32_t number = 0; number < Processes; number++)
            processes.push_back(std::make_unique<Process>([&, number](Process&) {
                Worker(*shared, number).Run(operations, limit);
                return 0;
            }));
        for (auto& process : processes) EXPECT_EQ(process->Wait(), 0);
    }
    double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    CheckRecords();
    CheckIndex([](auto sink) { return pages::SurveyNdx("t.ndx", sink).faults; }, keys);
    CheckIndex([](auto sink) { return pages::SurveyNtx("t.ntx", sink).faults; }, keys);
    CheckIndex([](auto sink) { return pages::SurveyIdx("t.idx", sink).faults; }, keys);
    CheckIndex(
        [](auto sink) {
            auto of = [&](size_t, const pages::Entry& entry, const std::string*) { sink(entry); };
            return pages::SurveyMdx("t.mdx", of).AllFaults();
        },
        firsts);
    std::cout << seconds << " s: " << shared->appends << " appends, " << shared->updates << " updates, "
              << shared->finds << " finds, " << shared->reads << " reads, "
              << static_cast<uint64_t>(static_cast<double>(shared->operations) / seconds)
              << " operations a second; a lock was waited for " << shared->waits << " times\n";
}

}  // namespace
}  // namespace test
