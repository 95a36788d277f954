// The profile file, read through system calls that are none.
#include <cerrno>

#include "platform/posix_calls.h"
#include "platform/posix_profile.h"
#include "support/session.h"

using namespace fuzz;

namespace {

std::string profile;
unsigned piece;

int OpenProfile(const char*, int, mode_t) { return 3; }
int CloseProfile(int) { return 0; }

ssize_t ReadProfile(int, void* buffer, size_t count, off_t position) {
    auto at = static_cast<size_t>(position);
    if (at >= profile.size()) return 0;
    count = std::min({count, profile.size() - at, size_t{piece}});
    memcpy(buffer, profile.data() + at, count);
    return static_cast<ssize_t>(count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    zb::posixCalls.open = OpenProfile;
    zb::posixCalls.close = CloseProfile;
    zb::posixCalls.pread = ReadProfile;
    FuzzInput input(bytes, size);
    size_t room = input.Byte();
    piece = 1u + input.Byte();
    // Sometimes a file longer than what is looked at.
    unsigned repeated = input.Byte();
    profile = input.Rest();
    if (repeated == 1 && !profile.empty()) {
        piece *= 512;
        while (profile.size() < 70000) profile += profile;
    }

    Exactly text(room);
    bool found = zb::ProfileValue("sort", "datesort", text.text(), room);
    if (room && !memchr(text.data(), 0, room)) Broken("a value without an end");
    if (room && !found && *text.text()) Broken("a value that wasn't found");
    if (found) zb::ProfileInteger(text.text());

    Session session;
    session.platform.profile[0] = room ? text.text() : "";
    session.platform.profile[1] = session.platform.profile[0];
    ZBDINIT(100, 0);
    uint16_t style;
    Exactly name(23);
    session.Do([&] { return ZBCDGSTYLE(&style, name.text()); });
    if (style < 1 || style > 15) Broken("a date style that isn't one");
    return 0;
}
