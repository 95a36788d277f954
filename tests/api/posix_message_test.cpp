// The one message of the library: here it is a line on standard error.
#include "support/support.h"

namespace test {
namespace {

class PosixMessage : public LibraryTest {
  protected:
    // What the conversion of a date text of style 4 shows.
    std::string Shown(const char* text) {
        int16_t y = -1, m = -1, d = -1;
        testing::internal::CaptureStderr();
        EXPECT_EQ(ZBCDS2I(&y, &m, &d, text, 4), -15);
        ZBESCODE(0);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(PosixMessage, StyleFourShowsATextOfTheWrongLength) {
    EXPECT_EQ(Shown("1996022"), "1996022: mauvaise Longueur\n");
    EXPECT_EQ(Shown(" 1996 0229 1"), " 1996 0229 1: mauvaise Longueur\n");
    // Neither a wrong date nor one too long for the work buffer is shown.
    EXPECT_EQ(Shown("19961301"), "");
    EXPECT_EQ(Shown("1996022         "), "");
}

}  // namespace
}  // namespace test
