#pragma once

#include <cstdint>
#include <string>

namespace bench {

// A picture of all workloads that were run, as SVG: for each contender of the
// library's a line, on which the others stand as many times to the right as they
// are slower. `most` is the largest size that counts.
std::string Plot(uint32_t most);

}  // namespace bench
