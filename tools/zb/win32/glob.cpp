#include "glob.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

int glob(const char* pattern, int, void*, glob_t* found) {
    std::string directory = pattern;
    directory.erase(directory.find_last_of("/\\:") + 1);
    std::vector<std::string> names;
    WIN32_FIND_DATAA entry;
    HANDLE search = FindFirstFileA(pattern, &entry);
    if (search != INVALID_HANDLE_VALUE) {
        do
            if (strcmp(entry.cFileName, ".") != 0 && strcmp(entry.cFileName, "..") != 0)
                names.push_back(directory + entry.cFileName);
        while (FindNextFileA(search, &entry));
        FindClose(search);
    }
    std::sort(names.begin(), names.end());
    found->gl_pathc = names.size();
    found->gl_pathv = new char*[names.size()];
    for (size_t i = 0; i < names.size(); i++) {
        found->gl_pathv[i] = new char[names[i].size() + 1];
        memcpy(found->gl_pathv[i], names[i].c_str(), names[i].size() + 1);
    }
    return names.empty() ? 3 : 0;
}

void globfree(glob_t* found) {
    for (size_t i = 0; i < found->gl_pathc; i++) delete[] found->gl_pathv[i];
    delete[] found->gl_pathv;
    *found = {};
}
