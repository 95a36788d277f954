// NTX index files: open, search, walk, add, delete, close.
#include "support/keys.h"

using namespace fuzz;

namespace {

constexpr IndexSeed shapes[] = {
    {'C', 10, 0, 0, 0},   {'C', 10, 0, 30, 0},  {'C', 10, 0, 400, 60},
    {'C', 1, 0, 20, 2},   {'C', 100, 0, 90, 0}, {'C' | 0x80, 30, 0, 90, 9},
    {'N', 9, 2, 200, 50}, {'D', 8, 0, 40, 0},   {'C', 100, 0, 200, 150},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static std::string seeds[std::size(shapes)];
    if (seeds[0].empty())
        for (size_t i = 0; i < std::size(shapes); i++) seeds[i] = IndexFile<NtxCalls>(shapes[i]);
    FuzzInput input(bytes, size);
    FuzzIndex<NtxCalls>(input, seeds, std::size(shapes));
    return 0;
}
