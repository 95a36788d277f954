#pragma once

#include <string>

namespace bench {

// Registers the workloads on records, on indexes and on memos, as they are at the
// size that is set.
void RecordWorkloads();
void IndexWorkloads();
void MemoWorkloads();

// A section of the report on the sizes of index files.
std::string IndexSizes();

}  // namespace bench
