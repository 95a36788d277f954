#include "build_place.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "failure.h"
#include "zb.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kWorkFile = "stacks.tmp";

// For the handler of an interrupt: it stands in the directory.
char fileName[512];
char directoryName[4096];

void RemoveAndEnd(int signal) {
    unlink(kWorkFile);
    unlink(fileName);
    rmdir(directoryName);
    _exit(128 + signal);
}

void HandleInterrupts(void (*handler)(int)) {
    for (int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, handler);
}

}  // namespace

BuildPlace::BuildPlace(const std::string& wanted)
    : target(wanted), final(fs::absolute(wanted).string()), name(fs::path(wanted).filename().string()) {
    before = fs::current_path().string();
    std::string pattern = (fs::path(final).parent_path() / ".zb-XXXXXX").string();
    if (name.size() >= sizeof fileName || pattern.size() >= sizeof directoryName)
        throw CodeFailure(ZB_ErrBadName, target);
    if (mkdtemp(pattern.data()) == nullptr || chdir(pattern.c_str()) != 0)
        throw CodeFailure(ZB_ErrOpen, target, std::strerror(errno));
    directory = pattern;
    std::memcpy(fileName, name.c_str(), name.size() + 1);
    std::memcpy(directoryName, directory.c_str(), directory.size() + 1);
    HandleInterrupts(RemoveAndEnd);
}

BuildPlace::~BuildPlace() {
    HandleInterrupts(SIG_DFL);
    std::error_code ignored;
    fs::current_path(before, ignored);
    fs::remove_all(directory, ignored);
}

void BuildPlace::CopyTarget() {
    std::error_code error;
    fs::copy_file(final, name, error);
    if (error) throw CodeFailure(ZB_ErrRead, target, error.message());
}

void BuildPlace::Commit() {
    std::error_code error;
    fs::rename(name, final, error);
    if (error) throw CodeFailure(ZB_ErrAccess, target, error.message());
}

}  // namespace tool
