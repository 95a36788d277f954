// NDX index files: open, search, walk, add, delete, close.
#include "support/keys.h"

using namespace fuzz;

namespace {

constexpr IndexSeed shapes[] = {
    {'C', 10, -1, 0, 0},   {'C', 10, -1, 30, 0},  {'C', 10, -1, 300, 60},
    {'C', 1, -1, 20, 2},   {'C', 100, -1, 60, 0}, {'C' | 0x80, 30, -1, 90, 9},
    {'N', 8, -1, 200, 50}, {'D', 8, -1, 40, 0},   {'C', 100, -1, 200, 150},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static std::string seeds[std::size(shapes)];
    if (seeds[0].empty())
        for (size_t i = 0; i < std::size(shapes); i++) seeds[i] = IndexFile<NdxCalls>(shapes[i]);
    FuzzInput input(bytes, size);
    FuzzIndex<NdxCalls>(input, seeds, std::size(shapes));
    return 0;
}
