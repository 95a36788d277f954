// Names of files, taken apart.
#include "file/path.h"

#include <cstring>

#include "support/fake_platform.h"
#include "support/support.h"

namespace zb {
namespace {

std::string Replaced(const char* path, const char* extension, size_t size = 100) {
    std::string out(100, '?');
    return ReplaceExtension(out.data(), size, path, extension) ? std::string(out.c_str()) : "too long";
}

TEST(Path, TheDirectoryEndsAtTheLastSeparatorOfAnyKind) {
    EXPECT_EQ(DirectoryLength("file.dbf"), 0u);
    EXPECT_EQ(DirectoryLength("a/file.dbf"), 2u);
    EXPECT_EQ(DirectoryLength("a/b\\file.dbf"), 4u);
    EXPECT_EQ(DirectoryLength("c:file.dbf"), 2u);
    EXPECT_EQ(DirectoryLength("a\\b/c:"), 6u);
    EXPECT_EQ(DirectoryLength(""), 0u);
}

TEST(Path, TheExtensionBeginsAtTheLastPointOfTheName) {
    EXPECT_EQ(Replaced("file.dbf", ".dbt"), "file.dbt");
    EXPECT_EQ(Replaced("a.b/file", ".dbt"), "a.b/file.dbt");
    EXPECT_EQ(Replaced("a.b/file.x.y", ".dbt"), "a.b/file.x.dbt");
    EXPECT_EQ(Replaced("a.b\\file", ""), "a.b\\file");
    EXPECT_EQ(Replaced(".hidden", ".dbt"), ".dbt");
    EXPECT_EQ(Replaced("file", ".dbt", 9), "file.dbt");
    EXPECT_EQ(Replaced("file", ".dbt", 8), "too long");
}

using WorkNames = test::DirectoryTest;

TEST_F(WorkNames, AreTheFirstThatDontExist) {
    char out[100];
    ASSERT_TRUE(WorkName(out, sizeof out, "file.dbf", ".tmp"));
    EXPECT_STREQ(out, "0.tmp");
    test::WriteFile("0.tmp", "");
    test::WriteFile("1.tmp", "");
    ASSERT_TRUE(WorkName(out, sizeof out, "file.dbf", ".tmp"));
    EXPECT_STREQ(out, "2.tmp");
    ASSERT_TRUE(WorkName(out, sizeof out, "./file.dbf", ".tmp"));
    EXPECT_STREQ(out, "./2.tmp");
    EXPECT_FALSE(WorkName(out, 5, "file.dbf", ".tmp"));
}

}  // namespace
}  // namespace zb
