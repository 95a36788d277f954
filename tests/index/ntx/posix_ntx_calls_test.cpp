// What NTX operations cost in system calls.
#include "platform/posix_calls.h"
#include "support/call_spy.h"
#include "support/ntx.h"

namespace test {
namespace {

using PosixNtxCalls = LibraryTest;

TEST_F(PosixNtxCalls, SearchesAndStepsAskForNoLength) {
    NtxIndex index;
    index.Make('C', 100);
    for (int i = 1; i <= 90; i++) ASSERT_EQ(index.Add(NumberedKey(i), static_cast<uint32_t>(i)), 0);
    CallSpy<&zb::PosixCalls::fstat> lengths;
    // The last pages of the file are confirmed by the platform; these lie before.
    for (int i = 1; i <= 20; i++) {
        ASSERT_EQ(index.Find(NumberedKey(20 + i), 2, static_cast<uint32_t>(20 + i)), 0);
        ASSERT_EQ(index.Next(), 0);
        ASSERT_EQ(index.Previous(), 0);
    }
    EXPECT_EQ(lengths.Count(), 0);
}

}  // namespace
}  // namespace test
