// What somebody may have meant who wrote something else.
#pragma once

#include <string>
#include <vector>

namespace tool {

// The name that differs from `word` in the fewest letters, whatever their case;
// nothing when all differ in too many.
std::string Nearest(const std::string& word, const std::vector<std::string>& names);

}  // namespace tool
