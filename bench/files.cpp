#include "files.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace bench {

void Check(bool good, const char* what, long long number) {
    if (good) return;
    fprintf(stderr, "bench: %s failed (%lld)\n", what, number);
    exit(1);
}

void CopyFile(const std::string& from, const std::string& to) {
    std::error_code error;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    Check(!error, to.c_str(), error.value());
}

void Warm(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    static char buffer[1 << 16];
    while (file.read(buffer, sizeof buffer)) continue;
}

}  // namespace bench
