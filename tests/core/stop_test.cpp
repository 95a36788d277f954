// What a stop of the library gives back.
#include "support/data_files.h"
#include "support/environment.h"
#include "support/fake_platform.h"
#include "support/file_handles.h"

namespace test {
namespace {

class Stop : public DirectoryTest {
  protected:
    Environment today{"ZB_TODAY", "1999-12-31"};

    // Opens one object of each family.
    static void OpenAll() {
        int16_t data = CreateAndOpen("a.dbf", {Spec("NAME", 'C', 5)}, 1);
        SetRecord(data, " ANNA ");
        Append(data);
        char expression[] = "NAME";
        uint16_t index;
        ASSERT_EQ(ZBDNCREATE("a.ndx", 'C', expression, 5), 0);
        ASSERT_EQ(ZBDNOPENX(&index, "a.ndx", 0), 0);
        ASSERT_EQ(ZBDCCREATE("a.ntx", 'C', expression, 5, 0), 0);
        ASSERT_EQ(ZBDCOPENX(&index, "a.ntx", 0), 0);
        ASSERT_EQ(ZBDICREATE("a.idx", 'C', expression, 5), 0);
        ASSERT_EQ(ZBDIOPENX(&index, "a.idx", 0), 0);
        int16_t file;
        ASSERT_EQ(ZBDTCREATE("a.dbt"), 0);
        ASSERT_EQ(ZBDTOPENX(&file, "a.dbt", 1), 0);
        ASSERT_EQ(ZBDWCREATE("a.fpt", 1), 0);
        ASSERT_EQ(ZBDWOPENX(&file, "a.fpt", 0), 0);
        ASSERT_EQ(ZBDMCREATE("a.mdx", 1), 0);
        ASSERT_EQ(ZBDMOPENX(&file, "a.mdx", 0), 0);
        ASSERT_EQ(ZBDMTNEW(file, "T", 'C', expression, 5), 0);
        int32_t tag;
        ASSERT_EQ(ZBDMTUSE(&tag, static_cast<uint16_t>(file), "T"), 0);
    }

    // Runs `work` between a start and a stop, and compares what was taken with what
    // was given back. The table of file handles is kept beyond a stop. `refused` of
    // the opens fail.
    template <class Work>
    static void HoldAgainstEachOther(Work work, int refused = 0) {
        DropFileHandles();
        FakePlatform fake;
        ASSERT_EQ(ZBDINIT(100, 1), 0);
        work(fake);
        ASSERT_EQ(ZBDTERM(), 0);
        EXPECT_EQ(fake.Count(Call::Allocate), fake.Count(Call::Free) + 1);
        EXPECT_EQ(fake.Count(Call::Open), fake.Count(Call::Close) + refused);
        DropFileHandles();
    }
};

TEST_F(Stop, GivesBackWhatIsOpen) {
    HoldAgainstEachOther([](FakePlatform&) { OpenAll(); });
}

TEST_F(Stop, GivesBackWhatAQuickCloseHasKept) {
    // The closes of all but the MDX file try to open theirs again.
    constexpr int refused = 6;
    HoldAgainstEachOther(
        [](FakePlatform&) {
            OpenAll();
            ASSERT_EQ(ZBDQCLOSE(), 0);
        },
        refused);
}

TEST_F(Stop, GivesBackObjectsWhoseCloseFails) {
    HoldAgainstEachOther([](FakePlatform& fake) {
        OpenAll();
        constexpr uint32_t diskFull = 112;
        fake.Fail(Call::Write, 1, diskFull, FakePlatform::Forever);
    });
}

}  // namespace
}  // namespace test
