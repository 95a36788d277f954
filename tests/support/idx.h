// The bytes of IDX files, told by their layout alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pages/pages.h"
#include "support/support.h"

namespace test {

struct IdxEntry {
    Bytes key;
    uint32_t record;
    bool operator==(const IdxEntry&) const = default;
};

// An IDX file as it stands. Pages are named by their offsets.
class IdxImage {
  public:
    explicit IdxImage(std::string file) : bytes(ReadFile(file)), name(std::move(file)) {}

    uint16_t Le16(size_t at) const { return pages::Le16(bytes, at); }
    uint32_t Le32(size_t at) const { return pages::Le32(bytes, at); }

    uint32_t root() const { return Le32(0); }
    uint32_t freeHead() const { return Le32(4); }
    uint32_t fileEnd() const { return Le32(8); }
    size_t keyLength() const { return Le16(12); }
    size_t entrySize() const { return keyLength() + (bytes[14] & 0xE0 ? 8 : 4); }

    int attributes(uint32_t page) const { return static_cast<uint8_t>(bytes[page]); }
    bool leaf(uint32_t page) const { return attributes(page) & 2; }
    int count(uint32_t page) const { return static_cast<uint8_t>(bytes[page + 2]); }
    uint32_t left(uint32_t page) const { return Le32(page + 4); }
    uint32_t right(uint32_t page) const { return Le32(page + 8); }
    Bytes key(uint32_t page, int i) const { return bytes.substr(At(page, i), keyLength()); }
    uint32_t child(uint32_t page, int i) const { return pages::Be32(bytes, At(page, i) + entrySize() - 4); }

    std::vector<uint32_t> FreeChain() const;

    // All entries in order. What breaks the format is told by `fault`, the first of
    // it; on demand also what is allowed where changes have left it.
    enum Checks { Tree = 0, Siblings = 1, Separators = 2 };
    std::vector<IdxEntry> Walk(int checks = Tree);
    // Those of one leaf.
    std::vector<IdxEntry> Entries(uint32_t page) const;

    std::string fault;
    int depth = 0;
    Bytes bytes;

  private:
    size_t At(uint32_t page, int i) const { return page + 12 + static_cast<size_t>(i) * entrySize(); }

    std::string name;
};

}  // namespace test
