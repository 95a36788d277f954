// The files that a pattern names, as POSIX finds them: with wildcards in the last
// part of the path.
#pragma once

#include <cstddef>

struct glob_t {
    size_t gl_pathc;
    char** gl_pathv;
};

int glob(const char* pattern, int flags, void* errors, glob_t* found);
void globfree(glob_t* found);
