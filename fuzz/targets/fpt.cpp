// FPT memo files, of all block sizes: open, read, write, replace, close.
#include "support/memos.h"

using namespace fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    size_t count;
    const std::string* seeds = FptSeeds(&count);
    FuzzInput input(bytes, size);
    FuzzMemo<FptCalls>(input, seeds, count);
    return 0;
}
