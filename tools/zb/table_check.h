// A table's bytes against the rules of its format, read without the library: one
// that it refuses to open has to be looked at, too.
#pragma once

#include <string>
#include <vector>

#include "data.h"
#include "findings.h"
#include "raw_file.h"
#include "text.h"

namespace tool {

// A memo field that names a block.
struct MemoUse {
    uint32_t record;
    size_t field;
    uint32_t block;
};

struct TableFacts {
    Header header;
    std::vector<Field> fields;
    uint64_t length = 0;          // of the file
    bool structureHolds = false;  // records can be told apart
    uint64_t held = 0;            // records that the file wholly has, counted or not
    uint64_t partBytes = 0;       // of one more record, which the file's end cuts
    bool endMark = false;         // behind the last of them
    std::vector<MemoUse> memos;

    uint64_t RecordAt(uint64_t record) const {
        return header.length + (record - 1) * uint64_t{header.recordLength};
    }
    bool hasMemoFields() const;
    // The dialect whose memo files go with the version byte; 0 when none do.
    int memoDialect() const;
};

// The header alone: the structure and how many records there are.
TableFacts ReadTableFacts(const RawFile& file, Findings& findings);

// All records and their values. Needs facts whose structure holds.
void CheckRecords(const RawFile& file, TableFacts& facts, Codec& codec, const std::string& encoding,
                  Findings& findings);

}  // namespace tool
