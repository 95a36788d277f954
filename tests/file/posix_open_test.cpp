// Opens of files that this user may only read.
#include <unistd.h>

#include <filesystem>

#include "file/operations.h"
#include "support/support.h"

namespace zb {
namespace {

using PosixOpens = test::LibraryTest;

TEST_F(PosixOpens, AFileWithoutWritePermissionHasBothFlags) {
    test::WriteFile("a", "abc");
    std::filesystem::permissions("a", std::filesystem::perms{0444});
    test::Process other([&](test::Process&) {
        // Nothing is refused to the superuser.
        if (geteuid() == 0) {
            EXPECT_EQ(setgid(65534), 0);
            EXPECT_EQ(setuid(65534), 0);
        }
        uint16_t handle = 7, flags = 0;
        EXPECT_EQ(Hopen(&handle, "a", 0, &flags, 3), 0);
        EXPECT_EQ(flags, FlagReadOnly | FlagShared);
        char bytes[3];
        EXPECT_EQ(Hread(handle, bytes, 3), 0);
        return 0;
    });
    EXPECT_EQ(other.Wait(), 0);
}

}  // namespace
}  // namespace zb
