#include "memo_check.h"

#include <algorithm>
#include <map>
#include <set>

#include "memo.h"
#include "pages/pages.h"
#include "terminal.h"

namespace tool {
namespace {

using pages::Be32;
using pages::Le16;
using pages::Le32;

constexpr uint32_t kTerminatedBlock = 512;
constexpr size_t kHead = 8;  // before the text, but for the terminated layout
constexpr size_t kLongest = 131072;
constexpr const char* kPack = "zb memo pack makes the file anew";

class MemoCheck {
  public:
    MemoCheck(const RawFile& memoFile, const TableFacts& tableFacts, Findings& all)
        : file(memoFile), table(tableFacts), findings(all), layout(LayoutOf(tableFacts.memoDialect())) {}

    MemoFacts Run() {
        if (!ReadHead()) return facts;
        CheckMemos();
        CheckOverlaps();
        CheckNext();
        if (facts.unused > 0)
            findings.Add(Severity::note, "unused",
                         Count(facts.unused, "block") + " of " + std::to_string(facts.blockSize) +
                             " bytes belong to no memo",
                         "zb memo pack gets the room back");
        return facts;
    }

  private:
    struct Extent {
        uint64_t end;     // the first block behind it
        uint32_t record;  // the first that names it
    };

    bool Fault(const std::string& code, const std::string& text) {
        findings.Add(Severity::fault, code, text);
        return false;
    }

    bool ReadHead() {
        std::string head = file.Read(0, 32);
        bool fpt = layout == MemoLayout::fpt;
        if (file.length() < (fpt ? 512 : 24)) return Fault("short", "the file is shorter than its header");
        facts.next = fpt ? Be32(head, 0) : Le32(head, 0);
        uint32_t size = kTerminatedBlock;
        if (fpt) size = Be32(head, 4);
        if (layout == MemoLayout::counted) size = Le16(head, 20);
        uint32_t least = fpt ? 33 : 512;
        if (size < least || size > 16384)
            return Fault("blockSize", "the header tells blocks of " + std::to_string(size) + " bytes");
        if (layout == MemoLayout::counted && (head[18] != 2 || head[19] != 1 || Le16(head, 22) != 0))
            return Fault("signature", "the header lacks the marks of this layout");
        facts.blockSize = size;
        whole = file.length() / size;
        facts.behindAll = std::max<uint64_t>((file.length() + size - 1) / size, HeaderBlocks());
        return true;
    }

    uint64_t HeaderBlocks() const {
        return layout == MemoLayout::fpt ? (512 + facts.blockSize - 1) / facts.blockSize : 1;
    }

    // Bytes that a memo takes, or why there is none at the block.
    uint64_t Measure(uint32_t block, std::string& trouble) const {
        uint64_t at = uint64_t{block} * facts.blockSize;
        if (block < HeaderBlocks() || at >= file.length()) {
            trouble = "a block outside the memo file";
            return 0;
        }
        if (layout == MemoLayout::terminated) {
            std::string text;
            for (size_t size = kTerminatedBlock; size <= kLongest; size *= 4) {
                text = file.Read(at, size);
                if (size_t end = text.find('\x1A'); end != std::string::npos) return end + 1;
            }
            trouble = "a memo that nothing ends";
            return text.size();
        }
        std::string head = file.Read(at, kHead);
        bool fpt = layout == MemoLayout::fpt;
        if (head.size() < kHead) {
            trouble = "a block that the file's end cuts";
            return 0;
        }
        uint64_t bytes = fpt ? uint64_t{Be32(head, 4)} + kHead : Le32(head, 4);
        if (fpt ? Be32(head, 0) > 2 : Le32(head, 0) != 0x0008FFFF || bytes < kHead)
            trouble = "a block where no memo begins";
        else if (at + bytes > file.length())
            trouble = "a memo that goes beyond the end of the memo file";
        return bytes;
    }

    void CheckMemos() {
        Progress progress("checking memos", table.memos.size());
        uint64_t done = 0;
        for (const MemoUse& use : table.memos) {
            progress.At(++done);
            const std::string& field = table.fields[use.field].name;
            auto known = extents.find(use.block);
            if (known != extents.end()) {
                findings.AddRecord(Severity::warning, "shared",
                                   field + " names a memo that another record has, too", use.record, kPack);
                continue;
            }
            std::string trouble;
            uint64_t bytes = Measure(use.block, trouble);
            if (!trouble.empty()) {
                findings.AddRecord(Severity::fault, "memo", field + " names " + trouble, use.record);
                continue;
            }
            uint64_t blocks = (bytes + facts.blockSize - 1) / facts.blockSize;
            extents[use.block] = {use.block + blocks, use.record};
        }
        facts.memos = extents.size();
    }

    void CheckOverlaps() {
        uint64_t reached = HeaderBlocks(), used = HeaderBlocks();
        for (const auto& [block, extent] : extents) {
            if (block < reached)
                findings.AddRecord(Severity::fault, "overlap", "a memo begins within another one's text",
                                   extent.record, kPack);
            used += extent.end > reached ? extent.end - std::max<uint64_t>(block, reached) : 0;
            reached = std::max(reached, extent.end);
        }
        facts.behindAll = std::max(facts.behindAll, reached);
        uint64_t blocks = (file.length() + facts.blockSize - 1) / facts.blockSize;
        // The byte that ends a new file without memos is in no block of one.
        if (extents.empty() && file.length() == uint64_t{facts.blockSize} + 1) blocks = 1;
        facts.unused = blocks > used ? blocks - used : 0;
    }

    // A memo with a block in a run.
    bool InUse(uint64_t from, uint64_t to) const {
        auto next = extents.lower_bound(static_cast<uint32_t>(from));
        if (next != extents.end() && next->first < to) return true;
        return next != extents.begin() && std::prev(next)->second.end > from;
    }

    void CheckNext() {
        if (facts.next < HeaderBlocks()) {
            findings.Add(Severity::fault, "next",
                         "the header puts new memos into itself, at block " + std::to_string(facts.next),
                         "zb repair moves that behind all memos");
        } else if (layout == MemoLayout::counted && facts.next < whole) {
            FollowChain();
        } else if (InUse(facts.next, UINT32_MAX)) {
            findings.Add(
                Severity::fault, "next",
                "the header puts the next memo at block " + std::to_string(facts.next) + ", where memos are",
                "zb repair moves that behind all memos");
        }
    }

    void FollowChain() {
        std::set<uint32_t> seen;
        for (uint64_t run = facts.next; run < whole;) {
            std::string entry = file.Read(run * facts.blockSize, 8);
            uint32_t blocks = Le32(entry, 4);
            std::string text;
            if (!seen.insert(static_cast<uint32_t>(run)).second)
                text = "the chain of free blocks is a circle";
            else if (InUse(run, run + std::max<uint32_t>(blocks, 1)))
                text = "the chain of free blocks leads to block " + std::to_string(run) + ", where a memo is";
            else if (blocks == 0 || run + blocks > whole)
                text = "the chain of free blocks holds a run of " + Count(blocks, "block") + " at block " +
                       std::to_string(run);
            if (!text.empty()) {
                findings.Add(Severity::fault, "chain", text + ": a new memo could go into another", kPack);
                return;
            }
            facts.unused -= std::min<uint64_t>(facts.unused, blocks);
            run = Le32(entry, 0);
        }
    }

    const RawFile& file;
    const TableFacts& table;
    Findings& findings;
    MemoLayout layout;
    MemoFacts facts;
    uint64_t whole = 0;  // blocks that the file wholly has
    std::map<uint32_t, Extent> extents;
};

}  // namespace

MemoFacts CheckMemoFile(const RawFile& file, const TableFacts& table, Findings& findings) {
    return MemoCheck(file, table, findings).Run();
}

}  // namespace tool
