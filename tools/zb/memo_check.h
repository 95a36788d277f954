// A memo file's blocks against what the records of its table name.
#pragma once

#include "findings.h"
#include "raw_file.h"
#include "table_check.h"

namespace tool {

struct MemoFacts {
    uint32_t blockSize = 0;  // 0: the header can't be used
    uint32_t next = 0;       // where the header puts the next new memo
    uint64_t memos = 0;
    uint64_t unused = 0;     // blocks of no memo, and not on the free chain
    uint64_t behindAll = 0;  // the first block behind all memos and the file's end
};

MemoFacts CheckMemoFile(const RawFile& file, const TableFacts& table, Findings& findings);

}  // namespace tool
