// What every workload needs beside its subject: a check that ends the program,
// and files by the plain calls of the system.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

// Ends the program when something that is needed didn't work: a time taken of
// calls that fail means nothing.
void Check(bool good, const char* what, long long number = 0);

// For results of the library, where warnings are as good as 0.
inline void CheckCode(int32_t code, const char* what) { Check(code >= 0, what, code); }

void CopyFile(const std::string& from, const std::string& to);

// Reads the whole of a file once, so that it is in the system's cache.
void Warm(const std::string& name);

}  // namespace bench
