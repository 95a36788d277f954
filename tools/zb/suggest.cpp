#include "suggest.h"

#include <algorithm>
#include <cctype>

namespace tool {
namespace {

int Lower(char c) { return std::tolower(static_cast<unsigned char>(c)); }

// Letters to change, add or leave out on the way from one to the other.
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j < row.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t changed = diagonal + (Lower(a[i - 1]) != Lower(b[j - 1]));
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

}  // namespace

std::string Nearest(const std::string& word, const std::vector<std::string>& names) {
    std::string nearest;
    size_t best = std::min((word.size() + 2) / 3 + 1, word.size());
    for (const std::string& name : names) {
        size_t distance = Distance(word, name);
        if (distance >= best) continue;
        best = distance;
        nearest = name;
    }
    return nearest;
}

}  // namespace tool
