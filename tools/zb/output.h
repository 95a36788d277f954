// Bytes on their way to standard output or a file, in large pieces.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "files.h"

namespace tool {

class Output {
  public:
    // Standard output; or the file `path`, which appears when all of it is there.
    Output();
    explicit Output(const std::string& path);
    ~Output();
    Output(const Output&) = delete;
    void operator=(const Output&) = delete;

    // The bytes not yet written, to append to.
    std::string& buffer() { return pending; }
    // Call it now and then, where the buffer may be written.
    void Breathe() {
        if (pending.size() >= kPiece) Flush();
    }
    void Write(std::string_view bytes) {
        pending += bytes;
        Breathe();
    }
    // Throws when something couldn't be written. Nothing may follow.
    void Finish();

  private:
    static constexpr size_t kPiece = 1 << 18;
    void Flush();

    std::string name = "standard output";
    std::unique_ptr<PartFile> part;
    FILE* file = stdout;
    std::string pending;
};

}  // namespace tool
