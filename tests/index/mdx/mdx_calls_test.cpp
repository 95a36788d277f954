// What MDX files ask of the platform, and what becomes of them when it fails.
#include <cstring>

#include "index/mdx/kept.h"
#include "pages/pages.h"
#include "support/dbf.h"
#include "support/environment.h"
#include "support/fake_platform.h"

namespace test {
namespace {

constexpr uint32_t DiskFull = 112;
constexpr uint32_t NoMemory = 8;

class MdxCalls : public LibraryTest {
  protected:
    Environment today{"ZB_TODAY", "1999-12-31"};
    int16_t file = -1;
    int16_t data = -1;

    void MakeFile(int multiplier = 1) {
        ASSERT_EQ(ZBDMCREATE("x.mdx", multiplier), 0);
        ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
    }
    void MakeData(int count) {
        std::vector<Bytes> records;
        for (int i = 0; i < count; i++) {
            char text[16];
            snprintf(text, sizeof text, " K%04d", i * 7919 % 9973);
            records.push_back(text);
        }
        WriteFile("d.dbf", Dbf(3, 6, {DbfField("NAME", 'C', 5)}, records));
        uint16_t opened;
        ASSERT_EQ(ZBDDOPENX(&opened, "d.dbf", 1 | ZB_Shared), 0);
        data = static_cast<int16_t>(opened);
    }
    int32_t New(const char* name, int32_t length) {
        char expression[] = "NAME";
        return ZBDMTNEW(file, name, 'C', expression, length);
    }
    int32_t Index(const char* name, int32_t length) {
        char expression[] = "NAME";
        return ZBDMTINDEX(data, static_cast<uint16_t>(file), name, 'C', expression, length);
    }
    int32_t Use(const char* name, int32_t* tag) { return ZBDMTUSE(tag, static_cast<uint16_t>(file), name); }
};

TEST_F(MdxCalls, FileWhoseNameIsRefusedStaysOpen) {
    FakePlatform fake;
    EXPECT_EQ(ZBDMCREATE("ninechars.mdx", 1), -14);
    EXPECT_EQ(fake.Count(Call::Open), 1);
    EXPECT_EQ(fake.Count(Call::Close), 0);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMCREATE("eight888.mdx", 1), 0);
    EXPECT_EQ(fake.Count(Call::Close), 1);
}

TEST_F(MdxCalls, CreateThatCantWriteClosesItsFile) {
    FakePlatform fake;
    fake.Fail(Call::Write, 1, DiskFull);
    EXPECT_EQ(ZBDMCREATE("x.mdx", 1), -1);
    EXPECT_EQ(fake.Count(Call::Close), 1);
}

// The header's changing fields, the root's number and the page: no more is read.
TEST_F(MdxCalls, KeyCallsReadWhatTheyNeedAndAnAddWritesOnePage) {
    MakeFile();
    ASSERT_EQ(New("T", 5), 0);
    int32_t tag;
    ASSERT_EQ(Use("T", &tag), 0);
    FakePlatform fake;
    ASSERT_EQ(ZBDMKADD(tag, "ANNA", 1), 0);
    EXPECT_EQ(fake.Count(Call::Read), 3);
    EXPECT_EQ(fake.Count(Call::Write), 1);
    EXPECT_EQ(fake.Count(Call::Allocate), 0);
    fake.Reset();
    char key[6] = "ANNA";
    uint32_t record = 0;
    ASSERT_EQ(ZBDMKFIND(tag, key, &record, 0), 0);
    EXPECT_EQ(fake.Count(Call::Read), 3);
    EXPECT_EQ(fake.Count(Call::Allocate), 0);
}

TEST_F(MdxCalls, EachWriteOfAChangeMayFail) {
    for (int nth = 1; nth < 40; nth++) {
        MakeFile();
        ASSERT_EQ(New("T", 100), 0);
        int32_t tag;
        ASSERT_EQ(Use("T", &tag), 0);
        bool failed;
        {
            FakePlatform fake;
            fake.Fail(Call::Write, nth, DiskFull);
            for (int i = 0; i < 12; i++) {
                int32_t code = ZBDMKADD(tag, std::to_string(100 + i).c_str(), static_cast<uint32_t>(i) + 1);
                ASSERT_TRUE(code == 0 || code == -1) << code;
                ZBESCODE(0);
            }
            for (int i = 0; i < 12; i++) {
                ZBDMKDEL(tag, std::to_string(100 + i).c_str(), static_cast<uint32_t>(i) + 1);
                ZBESCODE(0);
            }
            failed = fake.HasFailed();
        }
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        ASSERT_TRUE(failed || nth > 20) << nth;
    }
}

TEST_F(MdxCalls, EachAllocationOfAnAttachMayFail) {
    MakeFile();
    ASSERT_EQ(New("T", 100), 0);
    int32_t tag;
    ASSERT_EQ(Use("T", &tag), 0);
    FakePlatform fake;
    fake.Fail(Call::Allocate, 1, NoMemory);
    int32_t again = 77;
    EXPECT_EQ(Use("T", &again), -3);
    EXPECT_EQ(again, -1);
    ZBESCODE(0);
    // The tag is attached as it was.
    EXPECT_EQ(ZBDMKADD(tag, "A", 1), 0);
    ASSERT_EQ(ZBDMTCLOSE(tag), 0);
    fake.Fail(Call::Allocate, 1, NoMemory);
    EXPECT_EQ(Use("T", &again), -3);
    ZBESCODE(0);
    EXPECT_EQ(ZBDMTHGET(tag), -58);
    ZBESCODE(0);
    fake.Fail(Call::Allocate, 1, NoMemory);
    EXPECT_EQ(ZBDMTERASE(file, "T"), -3);
}

// The pages of a build are written once.
TEST_F(MdxCalls, BuildWritesItsPagesOnce) {
    MakeFile();
    MakeData(2000);
    FakePlatform fake;
    ASSERT_EQ(Index("T", 5), 0);
    EXPECT_LT(fake.Count(Call::Write), 100);
    EXPECT_GT(FileSize("x.mdx"), 24000u);
}

TEST_F(MdxCalls, EachCallOfABuildMayFail) {
    MakeData(120);
    for (Call kind : {Call::Read, Call::Write, Call::Seek, Call::SetEnd, Call::Allocate}) {
        int codes = 0;
        for (int nth = 1; nth < 5000; nth += kind == Call::Read || kind == Call::Seek ? 23 : 1) {
            ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
            ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
            ASSERT_EQ(Index("OLD", 5), 0);
            bool failed;
            int32_t code;
            {
                FakePlatform fake;
                fake.Fail(kind, nth, DiskFull);
                code = Index("T", 60);
                failed = fake.HasFailed();
            }
            ZBESCODE(0);
            ASSERT_EQ(ZBDMCLOSE(file), 0);
            int32_t opening = ZBDMOPENX(&file, "x.mdx", 0);
            ASSERT_TRUE(opening == 0 || opening == ZB_WarnFileSize) << opening;
            if (code < 0) {
                codes++;
                int32_t tag;
                EXPECT_EQ(Use("T", &tag), -50);
                ZBESCODE(0);
            }
            // The lock is gone, and the other tag is as it was.
            uint16_t opened, conflict = 1;
            ASSERT_EQ(ZBDDOPENX(&opened, "d.dbf", 1 | ZB_Shared), 0);
            ASSERT_EQ(ZBDDLOCK(static_cast<int16_t>(opened), 2, &conflict), 0);
            EXPECT_EQ(conflict, 0);
            ASSERT_EQ(ZBDDCLOSE(static_cast<int16_t>(opened)), 0);
            int32_t old;
            ASSERT_EQ(Use("OLD", &old), 0);
            char key[6];
            uint32_t record;
            int count = 0;
            while (ZBDMKNEXT(old, key, &record) == 0) count++;
            EXPECT_EQ(count, 120);
            ASSERT_EQ(ZBDMCLOSE(file), 0);
            if (!failed) break;
        }
        EXPECT_TRUE(codes > 0 || kind == Call::SetEnd);
    }
}

// A creation takes its blocks in the header's copy in memory. Where it fails, the
// next reading of the header gives them back.
TEST_F(MdxCalls, CreationThatFailsLeavesTheHeaderAsItWas) {
    MakeFile();
    ASSERT_EQ(New("T", 5), 0);
    int32_t tag;
    ASSERT_EQ(Use("T", &tag), 0);
    Bytes before = ReadFile("x.mdx", 0, 2048);
    for (int nth : {1, 2}) {  // the new tag's header, its root
        FakePlatform fake;
        fake.Fail(Call::Write, nth, DiskFull);
        EXPECT_EQ(New("U", 5), -1);
        ZBESCODE(0);
        EXPECT_EQ(ReadFile("x.mdx", 0, 2048), before);
        ASSERT_EQ(ZBDMTHGET(tag), 0);
    }
    ASSERT_EQ(New("U", 5), 0);
    EXPECT_EQ(ReadFile("x.mdx", 512 + 64, 4), Hex("06000000"));
    EXPECT_EQ(ReadFile("x.mdx", 32, 12), Hex("08000000 00000000 00000000"));
}

// The lowered limit on what a build keeps in memory.
class FewKept {
  public:
    explicit FewKept(int64_t bytes) : before(zb::MdxKept::mostBytes) { zb::MdxKept::mostBytes = bytes; }
    ~FewKept() { zb::MdxKept::mostBytes = before; }

  private:
    int64_t before;
};

TEST_F(MdxCalls, BuildThatCantKeepAllGivesTheSameFile) {
    MakeData(1500);
    Bytes files[3];
    const int64_t limits[] = {16 << 20, 3000, 0};
    for (int i = 0; i < 3; i++) {
        FewKept few(limits[i]);
        MakeFile();
        ASSERT_EQ(Index("A", 60), 0);
        ASSERT_EQ(Index("B", 90), 0);
        ASSERT_EQ(ZBDMTERASE(file, "A"), 0);
        ASSERT_EQ(Index("C", 100), 0);  // from free pages
        ASSERT_EQ(ZBDMCLOSE(file), 0);
        files[i] = ReadFile("x.mdx");
    }
    EXPECT_TRUE(files[1] == files[0]);
    EXPECT_TRUE(files[2] == files[0]);
    EXPECT_EQ(pages::SurveyMdx(Readable("x.mdx")).AllFaults(), std::vector<std::string>());
}

// Whatever write of a build fails, the erase that follows gives back no page that
// isn't the tag's, and the header knows where the file ends. Pages that the build
// had taken can be lost.
TEST_F(MdxCalls, WritesThatFailInABuildHarmNoOtherTag) {
    MakeData(150);
    MakeFile();
    ASSERT_EQ(Index("GONE", 90), 0);
    ASSERT_EQ(Index("OLD", 60), 0);
    ASSERT_EQ(ZBDMTERASE(file, "GONE"), 0);
    ASSERT_EQ(ZBDMCLOSE(file), 0);
    Bytes good = ReadFile("x.mdx");
    for (int64_t limit : {int64_t{16 << 20}, int64_t{4000}}) {
        FewKept few(limit);
        constexpr int creating = 4;  // writes of the tag's creation, before the build
        for (int nth = creating + 1;; nth++) {
            WriteFile("x.mdx", good);
            ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
            bool failed, ofHeader = false;
            {
                FakePlatform fake;
                fake.Fail(Call::Write, nth, DiskFull);
                int32_t code = Index("T", 100);
                failed = fake.HasFailed();
                EXPECT_EQ(code, failed ? -1 : 0);
                int write = 0;
                for (const auto& call : fake.Trace())
                    if (call.call == Call::Write && ++write == nth) ofHeader = call.count == 12;
            }
            ZBESCODE(0);
            ASSERT_EQ(ZBDMCLOSE(file), 0);
            int32_t opening = ZBDMOPENX(&file, "x.mdx", 0);
            EXPECT_TRUE(opening == 0 || (opening == ZB_WarnFileSize && ofHeader)) << nth;
            for (const std::string& fault : pages::SurveyMdx(Readable("x.mdx")).AllFaults())
                EXPECT_TRUE(fault.find("belongs to no tag") != std::string::npos ||
                            (ofHeader && fault.find("the header ends") == 0))
                    << nth << ' ' << fault;
            // What comes next finds a sound file.
            EXPECT_EQ(Index("NEXT", 80), 0) << nth;
            pages::MdxSurvey survey = pages::SurveyMdx(Readable("x.mdx"));
            for (const std::string& fault : survey.AllFaults())
                EXPECT_NE(fault.find("belongs to no tag"), std::string::npos) << nth << ' ' << fault;
            EXPECT_EQ(survey.tags[0].tree.keys, 150u);
            EXPECT_EQ(survey.tags.back().tree.keys, 150u);
            ASSERT_EQ(ZBDMCLOSE(file), 0);
            ASSERT_FALSE(HasFailure()) << nth;
            if (!failed) break;
        }
    }
}

}  // namespace
}  // namespace test
