// IDX files read by their layout alone, without the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/support.h"

namespace test {

struct IdxEntry {
    Bytes key;
    uint32_t record;
    bool operator==(const IdxEntry&) const = default;
};

// The bytes of an IDX file as it stands.
class IdxImage {
  public:
    // `fill` is the byte that stands before the first key of a packed leaf.
    explicit IdxImage(const std::string& name, char fill = ' ');

    uint16_t Le16(size_t at) const;
    uint32_t Le32(size_t at) const;
    uint32_t Be32(size_t at) const;

    uint32_t root() const { return Le32(0); }
    uint32_t freeHead() const { return Le32(4); }
    uint32_t fileEnd() const { return Le32(8); }
    int keyLength() const { return Le16(12); }
    bool compact() const { return bytes[14] & 0xE0; }
    int entrySize() const { return keyLength() + (compact() ? 8 : 4); }
    int maxEntries() const { return 500 / entrySize(); }

    int attributes(uint32_t page) const { return static_cast<uint8_t>(bytes[page]); }
    bool leaf(uint32_t page) const { return attributes(page) & 2; }
    int count(uint32_t page) const { return static_cast<uint8_t>(bytes[page + 2]); }
    uint32_t left(uint32_t page) const { return Le32(page + 4); }
    uint32_t right(uint32_t page) const { return Le32(page + 8); }
    Bytes key(uint32_t page, int i) const {
        return bytes.substr(At(page, i), static_cast<size_t>(keyLength()));
    }
    uint32_t child(uint32_t page, int i) const {
        return Be32(At(page, i) + static_cast<size_t>(entrySize()) - 4);
    }

    // The entries of a leaf, of either form.
    std::vector<IdxEntry> Entries(uint32_t leaf) const;

    std::vector<uint32_t> FreeChain() const;

    // All entries in order. What is wrong with the tree, the siblings or the free
    // pages is told by `fault`, the first of it.
    enum Checks { Tree = 0, Siblings = 1, Separators = 2 };
    std::vector<IdxEntry> Walk(int checks = Tree);
    std::string fault;
    int depth = 0;

    Bytes bytes;

  private:
    size_t At(uint32_t page, int i) const {
        return page + 12 + static_cast<size_t>(i) * static_cast<size_t>(entrySize());
    }
    void Fault(uint32_t page, const std::string& what);
    Bytes Visit(uint32_t page, int level, int checks);

    char fillByte;
    std::vector<IdxEntry> found;
    std::vector<std::vector<uint32_t>> levels;
    std::vector<bool> seen;
};

}  // namespace test
