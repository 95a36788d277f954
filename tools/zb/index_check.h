// An index's pages against the rules of its format, and its keys against the
// table's records.
#pragma once

#include <string>
#include <vector>

#include "index.h"

namespace tool {

// What was found of one index, or of one tag.
struct IndexFindings {
    std::string tag;
    std::string expression;  // in UTF-8
    pages::Survey survey;
    size_t broken = 0;                // as many of the faults are broken rules of the format
    std::vector<std::string> faults;  // these, and keys that aren't those of the records
    std::vector<std::string> notes;
};

// Looks at the index, or at the one tag that the options name; at its records
// where they name a table. Throws when the file is no index.
IndexFindings FindInIndex(const IndexOptions& options);

}  // namespace tool
