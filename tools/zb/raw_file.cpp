#include "raw_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "zb.h"

namespace tool {

RawFile::RawFile(const std::string& path) : name(path), file(std::fopen(path.c_str(), "rb")) {
    if (file == nullptr) throw CodeFailure(ZB_ErrOpen, path, std::strerror(errno));
    std::error_code error;
    size = std::filesystem::file_size(path, error);
    if (error) size = 0;
}

RawFile::~RawFile() { std::fclose(file); }

std::string RawFile::Read(uint64_t position, size_t count) const {
    std::string bytes;
    if (position >= size) return bytes;
    bytes.resize(static_cast<size_t>(std::min<uint64_t>(count, size - position)));
    if (std::fseek(file, static_cast<long>(position), SEEK_SET) != 0) return {};
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    return bytes;
}

}  // namespace tool
