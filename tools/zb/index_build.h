// Indexes made anew.
#pragma once

#include <string>

#include "data.h"

namespace tool {

// Makes an index with the expressions, types and marks of `pattern`, over the
// table, at `target`, which may be the same file; all tags of an MDX file. Tells
// what was made. Throws when the old header can't be read, and leaves what is there.
void RebuildIndex(const std::string& table, const OpenOptions& open, const std::string& pattern,
                  const std::string& target);

}  // namespace tool
