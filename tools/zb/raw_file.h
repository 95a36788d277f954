// A file's bytes, read where they are wanted.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace tool {

class RawFile {
  public:
    explicit RawFile(const std::string& path);  // throws when it can't be opened
    ~RawFile();
    RawFile(const RawFile&) = delete;
    void operator=(const RawFile&) = delete;

    const std::string& path() const { return name; }
    uint64_t length() const { return size; }

    // As many of these bytes as the file has.
    std::string Read(uint64_t position, size_t count) const;

  private:
    std::string name;
    FILE* file;
    uint64_t size = 0;
};

}  // namespace tool
