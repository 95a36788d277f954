#pragma once

namespace bench {

// Registers the workloads on records, on indexes and on memos.
void RecordWorkloads();
void IndexWorkloads();
void MemoWorkloads();

}  // namespace bench
