// Memos, in each layout, against the plain calls of the system that move the
// same bytes to and from the same places.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "data.h"
#include "files.h"
#include "report.h"
#include "workloads.h"
#include "zb.h"

namespace bench {
namespace {

constexpr size_t Shortest = 100;
constexpr size_t Longest = 5000;

// As many texts as are needed for every length to be met; memo i has text i % count.
const std::vector<std::string>& Texts() {
    static const auto texts = [] {
        std::vector<std::string> made;
        uint32_t drawn = 1;
        for (int i = 0; i < 1000; i++) {
            drawn = drawn * 1664525u + 1013904223u;
            std::string text(Shortest + drawn % (Longest - Shortest + 1), ' ');
            for (char& c : text) {
                drawn = drawn * 1664525u + 1013904223u;
                c = static_cast<char>(' ' + (drawn >> 16) % 95);
            }
            made.push_back(text);
        }
        return made;
    }();
    return texts;
}

const std::string& Text(uint32_t i) { return Texts()[i % Texts().size()]; }

// The layouts, with the block size that the floor uses too, and the bytes that
// a memo has beside its text.

struct Terminated {
    static constexpr char File[] = "terminated.dbt";
    static constexpr int BlockSize = 512;
    static constexpr int Extra = 1;

    static void Create() { CheckCode(ZBDTCREATEX(File, 1, ZB_DialectClassic), File); }
    static int16_t Open() {
        int16_t memo;
        CheckCode(ZBDTOPENX(&memo, File, ZB_DialectClassic), File);
        return memo;
    }
    static void Close(int16_t memo) { ZBDTCLOSE(memo); }
    static int32_t Put(int16_t memo, int32_t* block, const char* text) {
        return ZBDTRPUT(memo, block, text, ZB_MemoNew);
    }
    static int32_t Get(int16_t memo, int32_t block, void** text) { return ZBDTRGET(memo, block, text, 0); }
};

struct Counted : Terminated {
    static constexpr char File[] = "counted.dbt";
    static constexpr int Extra = 8;

    static void Create() { CheckCode(ZBDTCREATEX(File, 1, ZB_DialectDb4), File); }
    static int16_t Open() {
        int16_t memo;
        CheckCode(ZBDTOPENX(&memo, File, ZB_DialectDb4), File);
        return memo;
    }
};

struct Fpt {
    static constexpr char File[] = "memo.fpt";
    static constexpr int BlockSize = 64;
    static constexpr int Extra = 8;

    static void Create() { CheckCode(ZBDWCREATE(File, BlockSize), File); }
    static int16_t Open() {
        int16_t memo;
        CheckCode(ZBDWOPENX(&memo, File, ZB_DialectFox128), File);
        return memo;
    }
    static void Close(int16_t memo) { ZBDWCLOSE(memo); }
    static int32_t Put(int16_t memo, int32_t* block, const char* text) {
        return ZBDWRPUT(memo, block, text, ZB_MemoNew);
    }
    static int32_t Get(int16_t memo, int32_t block, void** text) { return ZBDWRGET(memo, block, text); }
};

template <class Layout>
class WriteMemos {
  public:
    WriteMemos() {
        Texts();
        Layout::Create();
        memo = Layout::Open();
        blocks.resize(sizes.memos);
    }
    ~WriteMemos() {
        Layout::Close(memo);
        unlink(Layout::File);
    }
    void Run() {
        for (uint32_t i = 0; i < sizes.memos; i++)
            CheckCode(Layout::Put(memo, &blocks[i], Text(i).c_str()), "writing a memo");
    }

  protected:
    int16_t memo;
    std::vector<int32_t> blocks;
};

template <class Layout>
class ReadMemos : WriteMemos<Layout> {
  public:
    ReadMemos() {
        WriteMemos<Layout>::Run();
        Warm(Layout::File);
    }
    void Run() {
        for (uint32_t i = 0; i < sizes.memos; i++) {
            void* text;
            CheckCode(Layout::Get(this->memo, this->blocks[i], &text), "reading a memo");
            const std::string& written = Text(i);
            Check(memcmp(text, written.data(), 16) == 0 &&
                      memcmp(static_cast<char*>(text) + written.size() - 16,
                             written.data() + written.size() - 16, 17) == 0,
                  "reading a memo", i);
            ZBMFREE(text);
        }
    }
};

template <class Layout>
class WriteCalls {
  public:
    WriteCalls() : file(open("floor", O_RDWR | O_CREAT | O_TRUNC, 0644)) { Texts(); }
    ~WriteCalls() {
        close(file);
        unlink("floor");
    }
    void Run() {
        off_t at = 512;
        for (uint32_t i = 0; i < sizes.memos; i++) {
            auto size = static_cast<ssize_t>(Text(i).size());
            Check(pwrite(file, Text(i).data(), static_cast<size_t>(size), at) == size, "pwrite");
            at += (size + Layout::Extra + Layout::BlockSize - 1) / Layout::BlockSize * Layout::BlockSize;
        }
    }

  protected:
    int file;
};

template <class Layout>
class ReadCalls : WriteCalls<Layout> {
  public:
    ReadCalls() {
        WriteCalls<Layout>::Run();
        Warm("floor");
    }
    void Run() {
        char buffer[Longest];
        off_t at = 512;
        for (uint32_t i = 0; i < sizes.memos; i++) {
            auto size = static_cast<ssize_t>(Text(i).size());
            Check(pread(this->file, buffer, static_cast<size_t>(size), at) == size, "pread");
            Check(memcmp(buffer + size - 16, Text(i).data() + size - 16, 16) == 0, "pread");
            at += (size + Layout::Extra + Layout::BlockSize - 1) / Layout::BlockSize * Layout::BlockSize;
        }
    }
};

template <class Layout>
void WorkloadsOf(const char* name, const std::string& title) {
    std::string label = name;
    Workload("memo-write-" + label, "Writing memos, " + title, "memo",
             "New memos of 100 to 5000 bytes. \"pwrite\" writes the same texts to the same places with one "
             "system call each.");
    Own<WriteMemos<Layout>>("", sizes.memos);
    Floor<WriteCalls<Layout>>("pwrite", sizes.memos);
    AimAt("zb", "pwrite", 0.4);

    Workload("memo-read-" + label, "Reading memos, " + title, "memo",
             "Each memo once, in the order in which they were written; the library gives each in a block "
             "of its own. \"pread\" reads the same bytes into one buffer, knowing how long each is.");
    Own<ReadMemos<Layout>>("", sizes.memos);
    Floor<ReadCalls<Layout>>("pread", sizes.memos);
    AimAt("zb", "pread", 0.4);
}

}  // namespace

void MemoWorkloads() {
    if (sizes.records > Million) return;
    WorkloadsOf<Terminated>("terminated", "ending with a mark (.DBT)");
    WorkloadsOf<Counted>("counted", "with a length (.DBT of dialect 2)");
    WorkloadsOf<Fpt>("fpt", "with a length (.FPT)");
}

}  // namespace bench
