// Builds whose host functions close, in the middle, what the build works on.
#include <cstring>
#include <functional>

#include "support/dbf.h"
#include "support/environment.h"

namespace test {
namespace {

std::function<void(int call)> act;  // what the host function does besides
int calls;

// ACT( text ): the text.
int32_t Act(ZbEvalState* state) {
    int32_t code = ZBDXPROC();
    if (code < 0) return code;
    state->Cursor++;
    ZbEvalState value = *state;
    act(++calls);
    state->ValueBlock = value.ValueBlock;
    state->ValuePtr = value.ValuePtr;
    state->ValueType = value.ValueType;
    state->ValueLength = value.ValueLength;
    return 0;
}

// The data file has the handle 0, the index that a build opens the handle 1.
class HostFunction : public LibraryTest {
  protected:
    Environment today{"ZB_TODAY", "1999-12-31"};

    void SetUp() override {
        LibraryTest::SetUp();
        std::vector<Bytes> records;
        for (int i = 0; i < 700; i++) {
            char text[16];
            snprintf(text, sizeof text, " K%04d", i * 7919 % 9973);
            records.push_back(text);
        }
        WriteFile("d.dbf", Dbf(3, 6, {DbfField("NAME", 'C', 5)}, records));
        uint16_t data;
        ASSERT_EQ(ZBDDOPENX(&data, "d.dbf", 1 | ZB_Shared), 0);
        ASSERT_EQ(data, 0);
        char name[] = "ACT(";
        ASSERT_EQ(ZBDXADD(name, Act), 0);
        calls = 0;
    }
    void TearDown() override {
        act = nullptr;
        LibraryTest::TearDown();
    }
};

// How the three families that are built alike do it.
struct Family {
    const char* name;
    int32_t (*create)(const char* name, char* expression, int16_t length);
    int32_t (*open)(uint16_t* index, const char* name);
    int32_t (*close)(int16_t index);
    int32_t (*build)(const char* name, char* expression, int16_t length);
};

const Family families[] = {
    {"NDX",
     [](const char* name, char* expression, int16_t length) {
         return ZBDNCREATE(name, 'C', expression, length);
     },
     [](uint16_t* index, const char* name) { return ZBDNOPENX(index, name, 0); },
     [](int16_t index) { return ZBDNCLOSE(index); },
     [](const char* name, char* expression, int16_t length) {
         return ZBDNINDEX(0, name, 'C', expression, length);
     }},
    {"NTX",
     [](const char* name, char* expression, int16_t length) {
         return ZBDCCREATE(name, 'C', expression, length, 0);
     },
     [](uint16_t* index, const char* name) { return ZBDCOPENX(index, name, 0); },
     [](int16_t index) { return ZBDCCLOSE(index); },
     [](const char* name, char* expression, int16_t length) {
         return ZBDCINDEX(0, name, 'C', expression, length, 0);
     }},
    {"IDX",
     [](const char* name, char* expression, int16_t length) {
         return ZBDICREATE(name, 'C', expression, length);
     },
     [](uint16_t* index, const char* name) { return ZBDIOPENX(index, name, 0); },
     [](int16_t index) { return ZBDICLOSE(index); },
     [](const char* name, char* expression, int16_t length) {
         return ZBDIINDEX(0, name, 'C', expression, length);
     }},
};

class BuildWithHostFunction : public HostFunction, public testing::WithParamInterface<Family> {
  protected:
    int32_t Build() {
        char expression[] = "ACT(NAME)";
        int32_t code = GetParam().build("x.ix", expression, 5);
        ZBESCODE(0);
        return code;
    }
};

TEST_P(BuildWithHostFunction, IndexClosedAtTheFirstKeyIsNoticed) {
    act = [](int call) {
        if (call == 1) {
            EXPECT_EQ(GetParam().close(1), 0);
        }
    };
    EXPECT_EQ(Build(), ZB_ErrBadHandle);
}

TEST_P(BuildWithHostFunction, IndexClosedInTheMiddleIsNoticed) {
    act = [](int call) {
        if (call == 300) {
            EXPECT_EQ(GetParam().close(1), 0);
        }
    };
    EXPECT_EQ(Build(), ZB_ErrBadHandle);
}

// Longer keys wouldn't fit where the sort keeps those of the index that is gone. So
// that the same memory is given out again, many are tried.
TEST_P(BuildWithHostFunction, AnotherIndexInItsPlaceIsNoticed) {
    char expression[] = "NAME";
    ASSERT_EQ(GetParam().create("y.ix", expression, 100), 0);
    act = [](int call) {
        if (call < 300) return;
        ASSERT_EQ(GetParam().close(1), 0);
        for (int i = 0; i < 300; i++) {
            uint16_t other;
            ASSERT_EQ(GetParam().open(&other, "y.ix"), 0);
            ASSERT_EQ(other, 1);
            if (i < 299) {
                ASSERT_EQ(GetParam().close(1), 0);
            }
        }
    };
    EXPECT_EQ(Build(), ZB_ErrBadHandle);
    EXPECT_EQ(GetParam().close(1), 0) << "the host's own index stays open";
}

TEST_P(BuildWithHostFunction, AnotherDataFileInItsPlaceIsNoticed) {
    act = [](int call) {
        if (call != 300) return;
        ASSERT_EQ(ZBDDCLOSE(0), 0);
        uint16_t data;
        ASSERT_EQ(ZBDDOPENX(&data, "d.dbf", 1 | ZB_Shared), 0);
        ASSERT_EQ(data, 0);
    };
    EXPECT_EQ(Build(), ZB_ErrBadHandle);
    EXPECT_EQ(ZBDDRGET(0, 1), 0);
}

TEST_P(BuildWithHostFunction, LibraryStoppedAndStartedIsNoticed) {
    act = [](int call) {
        if (call != 300) return;
        ASSERT_EQ(ZBDTERM(), 0);
        ASSERT_EQ(ZBDINIT(100, 1), 0);
    };
    EXPECT_LT(Build(), 0);
}

INSTANTIATE_TEST_SUITE_P(Families, BuildWithHostFunction, testing::ValuesIn(families),
                         [](auto& family) { return family.param.name; });

TEST_F(HostFunction, MdxTagDetachedInTheMiddleIsNoticed) {
    ASSERT_EQ(ZBDMCREATE("x.mdx", 1), 0);
    int16_t file;
    ASSERT_EQ(ZBDMOPENX(&file, "x.mdx", 0), 0);
    ASSERT_EQ(file, 1);
    act = [](int call) {
        if (call == 300) {
            EXPECT_EQ(ZBDMTCLOSE(1 << 16 | 1), 0);
        }
    };
    char expression[] = "ACT(NAME)";
    EXPECT_EQ(ZBDMTINDEX(0, 1, "T", 'C', expression, 5), ZB_ErrLockBlock);
    ZBESCODE(0);
}

}  // namespace
}  // namespace test
