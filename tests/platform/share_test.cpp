// Share modes: what an open wants and what it lets others have, alike on every
// platform.
#include <filesystem>

#include "platform/fixture.h"

namespace test {
namespace {

using PlatformShares = PlatformTest;

struct Combination {
    unsigned access;
    unsigned share;

    unsigned Flags() const { return access | share | OpenExisting; }
};

std::vector<Combination> AllCombinations() {
    std::vector<Combination> all;
    for (unsigned access : {OpenRead + 0u, OpenWrite + 0u, OpenRead | OpenWrite})
        for (unsigned share : {0u, ShareRead + 0u, ShareWrite + 0u, ShareRead | ShareWrite})
            all.push_back({access, share});
    return all;
}

// Two opens agree when each lets the other have what it wants.
bool Agree(Combination one, Combination two) {
    auto lets = [](Combination holder, Combination comer) {
        return (!(comer.access & OpenRead) || holder.share & ShareRead) &&
               (!(comer.access & OpenWrite) || holder.share & ShareWrite);
    };
    return lets(one, two) && lets(two, one);
}

TEST_F(PlatformShares, EveryPairOfOpensInOneProcess) {
    WriteFile("a", "abc");
    for (auto first : AllCombinations()) {
        for (auto second : AllCombinations()) {
            auto one = Open("a", first.Flags());
            ASSERT_NE(one, PlatformHandle::None);
            auto two = Open("a", second.Flags());
            EXPECT_EQ(two != PlatformHandle::None, Agree(first, second))
                << first.Flags() << " then " << second.Flags();
            if (two != PlatformHandle::None)
                Close(two);
            else
                EXPECT_EQ(real.LastError(), 32u);
            Close(one);
        }
    }
}

TEST_F(PlatformShares, EveryPairOfOpensBetweenProcesses) {
    WriteFile("a", "abc");
    auto all = AllCombinations();
    // Holds one combination after the other, as told.
    Process other([&](Process& here) {
        for (auto first : all) {
            auto one = Open("a", first.Flags());
            EXPECT_NE(one, PlatformHandle::None);
            here.Tell();
            here.Await();
            Close(one);
        }
        here.Tell();
        return 0;
    });
    for (auto first : all) {
        ASSERT_EQ(other.Await(), '.');
        for (auto second : all) {
            auto two = Open("a", second.Flags());
            EXPECT_EQ(two != PlatformHandle::None, Agree(first, second))
                << first.Flags() << " then " << second.Flags();
            if (two != PlatformHandle::None)
                Close(two);
            else
                EXPECT_EQ(real.LastError(), 32u);
        }
        other.Tell();
    }
    EXPECT_EQ(other.Wait(), 0);
}

TEST_F(PlatformShares, ARefusedOpenLeavesNoMark) {
    WriteFile("a", "abc");
    auto exclusive = Open("a", OpenRead | OpenExisting | ShareRead);
    EXPECT_EQ(Open("a", OpenWrite | OpenExisting | ShareFully), PlatformHandle::None);
    EXPECT_NE(Open("a", OpenRead | OpenExisting | ShareRead), PlatformHandle::None);
    Close(exclusive);
}

TEST_F(PlatformShares, TheFlagForFullSharingIsBothOfTheOthers) {
    WriteFile("a", "abc");
    EXPECT_NE(Open("a", OpenRead | OpenWrite | OpenExisting | ShareRead | ShareWrite), PlatformHandle::None);
    EXPECT_NE(Open("a", Shared), PlatformHandle::None);
    EXPECT_EQ(Open("a", OpenRead | OpenWrite | OpenExisting), PlatformHandle::None);
}

TEST_F(PlatformShares, ACreationThatIsRefusedLeavesTheFileAlone) {
    WriteFile("a", "abc");
    auto holder = Open("a", OpenRead | OpenExisting | ShareRead);
    EXPECT_EQ(Open("a", Created), PlatformHandle::None);
    EXPECT_EQ(real.LastError(), 32u);
    EXPECT_EQ(ReadFile("a"), "abc");
    Close(holder);
    auto created = Open("a", OpenRead | OpenWrite);
    EXPECT_NE(created, PlatformHandle::None);
    EXPECT_EQ(ReadFile("a"), "");
    EXPECT_EQ(Open("a", SharedReadOnly), PlatformHandle::None);
}

TEST_F(PlatformShares, AKilledProcessHoldsNothing) {
    WriteFile("a", "abc");
    Process other([&](Process& here) {
        Open("a", OpenRead | OpenWrite | OpenExisting);
        here.Tell();
        here.Await();
        return 0;
    });
    ASSERT_EQ(other.Await(), '.');
    EXPECT_EQ(Open("a"), PlatformHandle::None);
    other.Kill();
    EXPECT_EQ(other.Wait(), -9);
    EXPECT_NE(Open("a"), PlatformHandle::None);
}

TEST_F(PlatformShares, OneFileByTwoNames) {
    WriteFile("a", "abc");
    std::filesystem::create_hard_link("a", "b");
    Open("a", OpenRead | OpenExisting);
    EXPECT_EQ(Open("b", SharedReadOnly), PlatformHandle::None);
}

}  // namespace
}  // namespace test
