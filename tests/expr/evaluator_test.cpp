#include <cstring>

#include "expr/expr.h"
#include "file/handles.h"
#include "support/fake_platform.h"
#include "support/people.h"

namespace zb {
namespace {

using test::Bytes;
using test::Call;
using test::FakePlatform;

class EvalKeyTest : public test::LibraryTest {
  protected:
    void SetUp() override {
        LibraryTest::SetUp();
        test::WritePeople();
        uint16_t handle = 0;
        ASSERT_EQ(ZBDDOPENX(&handle, "people.dbf", 1), 0);
        data = static_cast<int16_t>(handle);
        ASSERT_EQ(ZBDDRGET(data, 1), 0);
    }
    void TearDown() override {
        ZBESCODE(0);
        LibraryTest::TearDown();
    }

    // The text of a result of type C, its block freed.
    std::string TakeText() {
        EXPECT_EQ(evalState.ResultType, 'C');
        EXPECT_EQ(BlockPeek(evalState.ResultBlock), evalState.ResultPtr);
        std::string text = static_cast<char*>(evalState.ResultPtr);
        EXPECT_EQ(text.size(), static_cast<size_t>(evalState.ResultLength));
        BlockFree(evalState.ResultBlock);
        return text;
    }

    void ExpectNoResult() {
        EXPECT_EQ(evalState.ResultBlock, 0u);
        EXPECT_EQ(evalState.ValueBlock, 0u);
        EXPECT_EQ(evalState.ResultPtr, nullptr);
        EXPECT_EQ(evalState.ResultType, ' ');
        EXPECT_EQ(evalState.ResultLength, 0);
    }

    int16_t data = -1;
};

int32_t GiveOne(ZbEvalState* state) {
    _ZBMALLOC(&state->ValueBlock, 2);
    _ZBMLOCK(&state->ValuePtr, state->ValueBlock);
    *static_cast<char*>(state->ValuePtr) = '1';
    state->ValueType = 'C';
    state->ValueLength = 2;
    return 0;
}

TEST_F(EvalKeyTest, NeitherSqueezesNorTurnsToUpperCase) {
    char text[] = "name+ x+left(y";
    EXPECT_EQ(EvalKey(data, text), 0);
    EXPECT_STREQ(text, "name+ x+left(y");
    EXPECT_EQ(TakeText(), "ANNA       xleft(y")
        << "fields are found in any case of letters, functions aren't";
}

TEST_F(EvalKeyTest, TurnsToUpperCaseInPlaceWhileFunctionsAreRegistered) {
    char name[] = "ONE(";
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    char text[] = "name+ x";
    EXPECT_EQ(EvalKey(data, text), 0);
    EXPECT_STREQ(text, "NAME+ X");
    EXPECT_EQ(TakeText(), "ANNA       X");
    char wrong[] = "name";
    EXPECT_EQ(EvalKey(55, wrong), ErrBadHandle);
    EXPECT_STREQ(wrong, "name");
}

TEST_F(EvalKeyTest, AFailedBindIsLoggedAndLeavesNoResult) {
    StartLog();
    char text[] = "NAME";
    EXPECT_EQ(EvalKey(55, text), ErrBadHandle);
    ExpectNoResult();
    EXPECT_EQ(Log(), (std::vector<LogEntry>{{"Evalkey", ErrBadHandle}}));
    ZBESCODE(-33);
    EXPECT_EQ(EvalKey(data, text), -33);
    ExpectNoResult();
}

TEST_F(EvalKeyTest, AFailureLeavesNoBlock) {
    for (const char* expression :
         {"NAME+10", "NAME+LEFT(CITY", "BORN+NAME", "LEFT(AMOUNT,1)", "STR(AMOUNT,1,500)"}) {
        char text[40];
        strcpy(text, expression);
        FakePlatform platform;
        EXPECT_EQ(EvalKey(data, text), ErrExpression) << expression;
        ExpectNoResult();
        ReleaseSpareValue();
        EXPECT_EQ(platform.Count(Call::Allocate), platform.Count(Call::Free)) << expression;
        ZBESCODE(0);
    }
}

TEST_F(EvalKeyTest, ASuccessLeavesTheResultsBlockAlone) {
    char name[] = "ONE(";
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    for (const char* expression :
         {"", "NAME", "BORN", "AMOUNT", "AMOUNT+RATE+1", "NAME+OK", "BORN+NOTE", "ONE(+ONE(+NAME",
          "STR(AMOUNT,1,50)",
          "NAME+LEFT(SUBSTR(RIGHT(CITY,4),1,2),1)+DTOS(BORN)+DTOC(BORN)+STR(RATE,100,2)+STR(RATE,100,2)"}) {
        char text[120];
        strcpy(text, expression);
        FakePlatform platform;
        EXPECT_EQ(EvalKey(data, text), 0) << expression;
        ReleaseSpareValue();
        EXPECT_EQ(platform.Count(Call::Allocate), platform.Count(Call::Free) + 1) << expression;
        BlockFree(evalState.ResultBlock);
    }
}

TEST_F(EvalKeyTest, EveryAllocationMayFail) {
    char name[] = "ONE(";
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    int failed = 0;
    for (int n = 1;; n++) {
        char text[] = "NAME+STR(AMOUNT,200)+LEFT(DTOS(BORN),4)+STR(1,200)+XY";
        FakePlatform platform;
        platform.Fail(Call::Allocate, n, 0);
        Code code = EvalKey(data, text);
        if (code == 0) break;
        EXPECT_EQ(code, ErrMemory);
        ExpectNoResult();
        ReleaseSpareValue();
        EXPECT_EQ(platform.Count(Call::Allocate), platform.Count(Call::Free) + 1)
            << "but for the one that failed";
        ZBESCODE(0);
        failed++;
    }
    EXPECT_EQ(failed, 5) << "the copy of the text, a value, the result, two long values";
    EXPECT_EQ(TakeText().size(), 416u);

    char text[] = "NAME+STR(AMOUNT,200)";
    FakePlatform platform;
    platform.Fail(Call::Reallocate, 1, 0);
    EXPECT_EQ(EvalKey(data, text), ErrMemory);
    ExpectNoResult();
}

TEST_F(EvalKeyTest, RegistrationWithoutMemoryAddsNothing) {
    char name[] = "ONE(";
    for (int n = 1; n <= 2; n++) {
        FakePlatform platform;
        platform.Fail(Call::Allocate, n, 0);
        EXPECT_EQ(ZBDXADD(name, GiveOne), ErrMemory);
        EXPECT_EQ(library.userFuncCount, 0);
        EXPECT_EQ(library.userFuncCapacity, 0);
    }
    for (int i = 0; i < 20; i++) {
        char more[] = "AA(";
        more[1] = static_cast<char>('A' + i);
        ASSERT_EQ(ZBDXADD(more, GiveOne), 0);
        EXPECT_EQ(library.userFuncCapacity, 20);
    }
    {
        FakePlatform platform;
        platform.Fail(Call::Reallocate, 1, 0);
        EXPECT_EQ(ZBDXADD(name, GiveOne), ErrMemory);
        EXPECT_EQ(library.userFuncCount, 20);
    }
    EXPECT_EQ(ZBDXADD(name, GiveOne), 0);
    EXPECT_EQ(library.userFuncCount, 21);
    EXPECT_EQ(library.userFuncCapacity, 30);
}

TEST_F(EvalKeyTest, TheTableIsFreedWhenItsLastFunctionGoes) {
    char name[] = "ONE(";
    FakePlatform platform;
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    EXPECT_EQ(library.userFuncCapacity, 20);
    ASSERT_EQ(ZBDXDEL(name), 0);
    EXPECT_EQ(library.userFuncCapacity, 0);
    EXPECT_EQ(library.userFuncMemory, 0u);
    EXPECT_EQ(platform.Count(Call::Allocate), platform.Count(Call::Free));
}

TEST_F(EvalKeyTest, OnceItsValueHasABlockATextTakesOneAllocation) {
    char first[] = "NAME";
    ASSERT_EQ(EvalKey(data, first), 0);
    BlockFree(evalState.ResultBlock);
    char text[] = "NAME+DTOS(BORN)+STR(AMOUNT,8,2)";
    FakePlatform platform;
    EXPECT_EQ(EvalKey(data, text), 0);
    EXPECT_EQ(platform.Count(Call::Allocate), 1);
    EXPECT_EQ(platform.Count(Call::Reallocate), 0);
    EXPECT_EQ(TakeText(), "ANNA      19960229   10.50");
}

// The text of a key belongs to its index, which a user function may close.
char* ownersText;

TEST_F(EvalKeyTest, TheTextMayGoWhileAFunctionRuns) {
    char name[] = "GONE(";
    ASSERT_EQ(ZBDXADD(name,
                      [](ZbEvalState* state) -> int32_t {
                          delete[] ownersText;
                          return GiveOne(state);
                      }),
              0);
    ownersText = new char[24];
    strcpy(ownersText, "name+gone(+left(CITY,2)");
    EXPECT_EQ(EvalKey(data, ownersText), 0);
    EXPECT_EQ(TakeText(), "ANNA      1BO");
}

TEST_F(EvalKeyTest, AStopWithFunctionsGivesUpTheMapOfFileHandles) {
    ASSERT_EQ(ZBDTERM(), 0);
    // Each start without a stop that detaches has raised the count of attachments.
    auto attached = [] {
        uint16_t handle = 0;
        bool there = PfOpen("people.dbf", ShareRead | ShareWrite, &handle);
        if (there) PfClose(handle);
        return there;
    };
    for (int i = 0; i < 10000 && attached(); i++) FhmapDetach();
    ASSERT_FALSE(attached());

    ASSERT_EQ(ZBDINIT(100, 1), 0);
    ASSERT_EQ(ZBDTERM(), 0);
    EXPECT_TRUE(attached());
    FhmapDetach();
    EXPECT_FALSE(attached());

    char name[] = "ONE(";
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    ASSERT_EQ(ZBDTERM(), 0);
    EXPECT_FALSE(attached());

    ASSERT_EQ(ZBDINIT(100, 1), 0);
    ASSERT_EQ(ZBDXADD(name, GiveOne), 0);
    ASSERT_EQ(ZBDXDEL(name), 0);
    ASSERT_EQ(ZBDTERM(), 0);
    EXPECT_TRUE(attached()) << "the table was given up with its last function";
    ASSERT_EQ(ZBDINIT(100, 1), 0);
}

}  // namespace
}  // namespace zb
