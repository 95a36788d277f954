#include "index/build.h"

#include <algorithm>
#include <cstring>

namespace zb {
namespace {

constexpr uint32_t BufferStart = 65000;
constexpr uint32_t OutputSize = 16384;

// Where so many runs stand that a run's share of the buffer would hold no sort
// record, groups of runs are merged first, each with shares of this many.
constexpr uint32_t PassWindow = 8;

// The most that one transfer of the file layer carries.
constexpr int64_t MaxTransfer = 32256;

}  // namespace

Code RunSorter::Size(int keyBytes, uint32_t recordCount, bool collating, int step, int floor) {
    keyLength = static_cast<uint32_t>(keyBytes);
    itemSize = keyLength + 4;
    records = recordCount;
    collate = collating;
    for (uint32_t size = BufferStart; size > static_cast<uint32_t>(floor);
         size -= static_cast<uint32_t>(step)) {
        SetCode(0);
        perRun = size / itemSize;
        runs = static_cast<uint32_t>((uint64_t{perRun} + records - 1) / perRun);
        window = perRun / runs;
        if (buffer.Alloc(size) == 0 && table.Alloc(runs) == 0 && tree.Alloc(runs) == 0 &&
            keys.Alloc(std::min(perRun, records)) == 0 && output.Alloc(OutputSize) == 0)
            return SetCode(0);
        buffer.Free();
        table.Free();
        tree.Free();
        keys.Free();
        output.Free();
    }
    return Fail("Sortsize", ErrMemory);
}

Code RunSorter::CreateWorkFile() {
    if (Hcreate(&workFile, WorkFileName) < 0) return Pass("Sortfile");
    workFileMade = true;
    PfHint(workFile, ReadHint::Once);
    return CurrentCode();
}

uint32_t RunSorter::RunSize(uint32_t run) const {
    return run + 1 < runs ? perRun : records - (runs - 1) * perRun;
}

uint64_t RunSorter::Prefix(const uint8_t* item) const {
    if (itemSize >= 8) return LoadBe64(item);
    uint8_t bytes[8] = {};
    memcpy(bytes, item, itemSize);
    return LoadBe64(bytes);
}

int RunSorter::Compare(const uint8_t* a, const uint8_t* b) const {
    if (collate)
        if (int order = CollateText(a, b, static_cast<int>(keyLength))) return order;
    return memcmp(a, b, itemSize);
}

// Reads or writes any number of bytes of the work file.
Code RunSorter::Transfer(bool write, int64_t position, uint8_t* bytes, int64_t count) {
    if (Hseek(workFile, position) < 0) return Pass("Sortfile");
    while (count > 0) {
        auto piece = static_cast<int16_t>(std::min(count, MaxTransfer));
        if ((write ? Hwrite(workFile, bytes, piece, false) : Hread(workFile, bytes, piece)) < 0)
            return Pass("Sortfile");
        bytes += piece;
        count -= piece;
    }
    return CurrentCode();
}

// The items aren't moved: they are sorted by their first bytes and addresses,
// and gathered on their way to the work file.
Code RunSorter::StoreRun(uint32_t run) {
    uint32_t count = RunSize(run);
    for (uint32_t i = 0; i < count; i++) keys[i] = {Prefix(Item(i)), Item(i)};
    std::sort(keys.data, keys.data + count, [this](const Key& a, const Key& b) {
        if (!collate && a.prefix != b.prefix) return a.prefix < b.prefix;
        return Compare(a.item, b.item) < 0;
    });

    // The runs of a merge in passes begin behind the room for one merged group.
    if (run == 0) origin = window ? 0 : int64_t{perRun} * itemSize * std::max(2u, perRun / PassWindow);
    int64_t position = origin + int64_t{run} * perRun * itemSize;
    table[run].position = position;
    table[run].left = count;
    uint32_t used = 0;
    for (uint32_t i = 0; i < count; i++) {
        if (used + itemSize > OutputSize) {
            if (Transfer(true, position, output.data, used) < 0) return CurrentCode();
            position += used;
            used = 0;
        }
        memcpy(output.data + used, keys[i].item, itemSize);
        used += itemSize;
    }
    return Transfer(true, position, output.data, used);
}

// Fills a run's window again; a run that has no more is done.
Code RunSorter::Load(Run& run) {
    uint32_t count = std::min(window, run.left);
    run.next = nullptr;
    if (count == 0) return CurrentCode();
    int64_t bytes = int64_t{count} * itemSize;
    if (Transfer(false, run.position, run.window, bytes) < 0) return CurrentCode();
    run.position += bytes;
    run.left -= count;
    run.next = run.window;
    run.end = run.window + bytes;
    run.prefix = Prefix(run.next);
    return CurrentCode();
}

// Whether a's head goes before b's. A run that is done goes behind all others.
bool RunSorter::Before(const Run& a, const Run& b) const {
    if (!a.next || !b.next) return a.next != nullptr;
    if (!collate && a.prefix != b.prefix) return a.prefix < b.prefix;
    return Compare(a.next, b.next) < 0;
}

// Plays a run's new head up the tournament.
void RunSorter::Play(uint32_t leaf) {
    uint32_t winner = leaf;
    for (uint32_t node = (leaf + playing) / 2; node > 0; node /= 2) {
        uint32_t& loser = tree[node];
        if (Before(table[base + loser], table[base + winner])) std::swap(loser, winner);
    }
    tree[0] = winner;
}

Code RunSorter::LoadAll(uint32_t first, uint32_t count) {
    base = first;
    playing = count;
    for (uint32_t i = 0; i < count; i++) {
        Run& run = table[first + i];
        run.window = buffer.data + size_t{i} * window * itemSize;
        if (Load(run) < 0) return CurrentCode();
    }
    // Each match is played once both sides are known: the leaves 0 to count - 1
    // stand at the nodes count to 2 * count - 1.
    auto winnerOf = [&](auto& self, uint32_t node) -> uint32_t {
        if (node >= playing) return node - playing;
        uint32_t left = self(self, 2 * node);
        uint32_t right = self(self, 2 * node + 1);
        bool leftWins = Before(table[base + left], table[base + right]);
        tree[node] = leftWins ? right : left;
        return leftWins ? left : right;
    };
    tree[0] = playing == 1 ? 0 : winnerOf(winnerOf, 1);
    return CurrentCode();
}

Code RunSorter::Advance() {
    uint32_t winner = tree[0];
    Run& run = table[base + winner];
    run.next += itemSize;
    if (run.next < run.end)
        run.prefix = Prefix(run.next);
    else if (Load(run) < 0)
        return CurrentCode();
    Play(winner);
    return CurrentCode();
}

// Merges a group of runs into one at another place of the work file.
Code RunSorter::MergeGroup(uint32_t first, uint32_t count, int64_t to) {
    uint32_t total = 0;
    for (uint32_t i = 0; i < count; i++) total += table[first + i].left;
    int64_t start = to;
    if (LoadAll(first, count) < 0) return CurrentCode();
    uint32_t used = 0;
    while (const uint8_t* item = Head()) {
        if (used + itemSize > OutputSize) {
            if (Transfer(true, to, output.data, used) < 0) return CurrentCode();
            to += used;
            used = 0;
        }
        memcpy(output.data + used, item, itemSize);
        used += itemSize;
        if (Advance() < 0) return CurrentCode();
    }
    if (Transfer(true, to, output.data, used) < 0) return CurrentCode();
    table[first].position = start;
    table[first].left = total;
    return CurrentCode();
}

// Merges runs in groups until each run's window holds a sort record. The first
// pass writes below the runs, into the room that its own reading frees; later
// ones change between the two halves of the file.
Code RunSorter::MergePasses() {
    if (window) return CurrentCode();
    uint32_t group = std::max(2u, perRun / PassWindow);
    int64_t whole = int64_t{records} * itemSize;
    for (bool low = true; runs > perRun; low = !low) {
        window = perRun / std::min(group, runs);
        int64_t to = low ? 0 : whole;
        uint32_t merged = 0;
        for (uint32_t first = 0; first < runs; first += group) {
            uint32_t count = std::min(group, runs - first);
            if (MergeGroup(first, count, to) < 0) return Pass("Sortpass");
            table[merged] = table[first];
            to += int64_t{table[merged].left} * itemSize;
            merged++;
        }
        runs = merged;
    }
    window = perRun / runs;
    return CurrentCode();
}

void RunSorter::Finish() {
    buffer.Free();
    table.Free();
    tree.Free();
    keys.Free();
    output.Free();
    if (!workFileMade) return;
    Hclose(workFile);
    SetCode(0);
    Herase(WorkFileName);
}

Code PageWriter::Write(uint16_t file, int64_t position, const uint8_t* page, int size) {
    if (used && (position != start + used || used + size > Room))
        if (Flush(file) < 0) return CurrentCode();
    if (size > Room) {
        if (Hseek(file, position) < 0) return CurrentCode();
        return Hwrite(file, page, static_cast<int16_t>(size), false);
    }
    if (!used) start = position;
    memcpy(pages + used, page, static_cast<size_t>(size));
    used += size;
    return CurrentCode();
}

Code PageWriter::Flush(uint16_t file) {
    int count = used;
    used = 0;
    if (count == 0) return CurrentCode();
    if (Hseek(file, start) < 0) return CurrentCode();
    return Hwrite(file, pages, static_cast<int16_t>(count), false);
}

}  // namespace zb
