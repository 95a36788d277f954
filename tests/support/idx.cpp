#include "support/idx.h"

#include <algorithm>

namespace test {

IdxImage::IdxImage(const std::string& name, char fill) : bytes(ReadFile(name)), fillByte(fill) {
    if (bytes.size() < 1024 || bytes.size() % 512) {
        fault = "file of " + std::to_string(bytes.size()) + " bytes";
        bytes.resize(std::max<size_t>(bytes.size(), 1024));
    }
}

uint16_t IdxImage::Le16(size_t at) const {
    auto* b = reinterpret_cast<const uint8_t*>(bytes.data()) + at;
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}

uint32_t IdxImage::Le32(size_t at) const { return Le16(at) | static_cast<uint32_t>(Le16(at + 2)) << 16; }

uint32_t IdxImage::Be32(size_t at) const {
    auto* b = reinterpret_cast<const uint8_t*>(bytes.data()) + at;
    return static_cast<uint32_t>(b[0]) << 24 | static_cast<uint32_t>(b[1]) << 16 |
           static_cast<uint32_t>(b[2]) << 8 | b[3];
}

void IdxImage::Fault(uint32_t page, const std::string& what) {
    if (fault.empty()) fault = "page " + std::to_string(page) + ": " + what;
}

std::vector<IdxEntry> IdxImage::Entries(uint32_t leaf) const {
    std::vector<IdxEntry> entries;
    auto length = static_cast<size_t>(keyLength());
    if (!compact()) {
        for (int i = 0; i < count(leaf); i++) entries.push_back({key(leaf, i), Be32(At(leaf, i) + length)});
        return entries;
    }
    int recordBits = static_cast<uint8_t>(bytes[leaf + 20]);
    int dupBits = static_cast<uint8_t>(bytes[leaf + 21]);
    int trailBits = static_cast<uint8_t>(bytes[leaf + 22]);
    auto entryBytes = static_cast<size_t>(bytes[leaf + 23]);
    size_t keys = leaf + 512;
    Bytes before(length, fillByte);
    for (int i = 0; i < count(leaf); i++) {
        uint64_t packed = 0;
        for (size_t b = 0; b < entryBytes; b++)
            packed |= static_cast<uint64_t>(
                          static_cast<uint8_t>(bytes[leaf + 24 + static_cast<size_t>(i) * entryBytes + b]))
                      << 8 * b;
        auto take = [&](int bits) {
            uint64_t value = packed & ((uint64_t{1} << bits) - 1);
            packed >>= bits;
            return value;
        };
        auto record = static_cast<uint32_t>(take(recordBits));
        auto dup = static_cast<size_t>(take(dupBits));
        auto trail = static_cast<size_t>(take(trailBits));
        size_t stored = length - dup - trail;
        keys -= stored;
        before = before.substr(0, dup) + bytes.substr(keys, stored) + before.substr(length - trail);
        entries.push_back({before, record});
    }
    return entries;
}

std::vector<uint32_t> IdxImage::FreeChain() const {
    std::vector<uint32_t> chain;
    for (uint32_t page = freeHead(); page != 0 && page != 0xFFFFFFFF && page % 512 == 0 &&
                                     page < bytes.size() && chain.size() < bytes.size() / 512;
         page = Le32(page))
        chain.push_back(page);
    return chain;
}

// Gives the highest key of a subtree.
Bytes IdxImage::Visit(uint32_t page, int level, int checks) {
    if (page % 512 || page < 512 || page >= bytes.size() || level > 40) {
        Fault(page, "not a page");
        return {};
    }
    if (seen[page / 512]) {
        Fault(page, "reached twice");
        return {};
    }
    seen[page / 512] = true;
    if (levels.size() <= static_cast<size_t>(level)) levels.emplace_back();
    levels[static_cast<size_t>(level)].push_back(page);
    if (bytes[page + 1] || bytes[page + 3]) Fault(page, "high bytes not zero");
    bool isRoot = page == root();
    if (static_cast<bool>(attributes(page) & 1) != isRoot) Fault(page, "root bit");
    if (count(page) == 0 && !(isRoot && leaf(page))) Fault(page, "no entries");

    if (leaf(page)) {
        if (depth == 0) depth = level + 1;
        if (depth != level + 1) Fault(page, "leaf at another depth");
        if (!compact() && count(page) > maxEntries()) Fault(page, "too many entries");
        auto entries = Entries(page);
        found.insert(found.end(), entries.begin(), entries.end());
        return entries.empty() ? Bytes() : entries.back().key;
    }
    if (count(page) > maxEntries()) {
        Fault(page, "too many entries");
        return {};
    }
    Bytes highest;
    for (int i = 0; i < count(page); i++) {
        highest = Visit(child(page, i), level + 1, checks);
        // A page dropped above the leaves leaves the keys above it as they were.
        bool exact = (checks & Separators) || (fault.empty() && leaf(child(page, i)));
        if (exact ? key(page, i) != highest : key(page, i) < highest)
            Fault(page, "key of entry " + std::to_string(i));
    }
    return highest;
}

std::vector<IdxEntry> IdxImage::Walk(int checks) {
    found.clear();
    levels.clear();
    depth = 0;
    seen.assign(bytes.size() / 512, false);
    Visit(root(), 0, checks);
    for (size_t i = 1; i < found.size(); i++)
        if (found[i].key < found[i - 1].key) Fault(root(), "order at entry " + std::to_string(i));
    if (checks & Siblings)
        for (auto& pages : levels)
            for (size_t i = 0; i < pages.size(); i++) {
                if (left(pages[i]) != (i ? pages[i - 1] : 0xFFFFFFFF)) Fault(pages[i], "left sibling");
                if (right(pages[i]) != (i + 1 < pages.size() ? pages[i + 1] : 0xFFFFFFFF))
                    Fault(pages[i], "right sibling");
            }
    for (uint32_t page : FreeChain()) {
        if (seen[page / 512]) Fault(page, "free and in use");
        seen[page / 512] = true;
    }
    for (size_t page = compact() ? 2 : 1; page < seen.size(); page++)
        if (!seen[page]) Fault(static_cast<uint32_t>(page * 512), "lost");
    if (fileEnd() != 0 && fileEnd() != bytes.size()) Fault(0, "FileEnd");
    return found;
}

}  // namespace test
