// DBT memo files, classic and counted: open, read, write, replace, close.
#include "support/memos.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    size_t count;
    const std::string* seeds = DbtSeeds(&count);
    FuzzInput input(bytes, size);
    FuzzMemo<DbtCalls>(input, seeds, count);
    return 0;
}
