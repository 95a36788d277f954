#pragma once

namespace bench {

// Registers the workloads on records, and those on indexes.
void RecordWorkloads();
void IndexWorkloads();

}  // namespace bench
