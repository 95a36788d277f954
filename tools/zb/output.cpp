#include "output.h"

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "zb.h"

namespace tool {

Output::Output() { pending.reserve(kPiece * 2); }

Output::Output(const std::string& path) : name(path), part(std::make_unique<PartFile>(path)) {
    pending.reserve(kPiece * 2);
    file = std::fopen(part->path().c_str(), "wb");
    if (file == nullptr) throw CodeFailure(ZB_ErrOpen, path, std::strerror(errno));
}

Output::~Output() {
    if (part) {
        if (file != nullptr) std::fclose(file);
        return;
    }
    // What a failed command has to show so far is shown.
    std::fwrite(pending.data(), 1, pending.size(), stdout);
    std::fflush(stdout);
}

void Output::Flush() {
    if (std::fwrite(pending.data(), 1, pending.size(), file) != pending.size())
        throw CodeFailure(ZB_ErrWrite, name, std::strerror(errno));
    pending.clear();
}

void Output::Finish() {
    Flush();
    if (std::fflush(file) != 0) throw CodeFailure(ZB_ErrWrite, name, std::strerror(errno));
    if (!part) return;
    int result = std::fclose(file);
    file = nullptr;
    if (result != 0) throw CodeFailure(ZB_ErrWrite, name, std::strerror(errno));
    part->Commit();
}

}  // namespace tool
