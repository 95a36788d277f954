#include <cstdio>
#include <cstring>
#include <memory>
#include <random>

#include "support/people.h"

namespace test {
namespace {

class Expression : public LibraryTest {
  protected:
    struct Value {
        int code = 0;
        int type = 0;
        int length = 0;
        Bytes bytes;  // `length` of them
        bool null = false;

        std::string Text() const { return bytes; }
        double Number() const {
            double number = 0;
            if (bytes.size() == sizeof number) memcpy(&number, bytes.data(), sizeof number);
            return number;
        }
    };

    void SetUp() override {
        LibraryTest::SetUp();
        Open();
    }
    void TearDown() override {
        ZBESCODE(0);
        LibraryTest::TearDown();
    }

    void Open() {
        WritePeople();
        uint16_t handle = 0;
        ASSERT_EQ(ZBDDOPENX(&handle, "people.dbf", 1), 0);
        data = static_cast<int16_t>(handle);
        ASSERT_EQ(ZBDDRGET(data, 1), 0);
    }

    // Evaluates a text in a heap buffer of just its size.
    Value Eval(const std::string& expression, std::string* left = nullptr) {
        auto text = std::make_unique<char[]>(expression.size() + 1);
        memcpy(text.get(), expression.c_str(), expression.size() + 1);
        ZbEvalResult result{&result, 99, 99};
        Value value;
        value.code = ZBDXEVAL(data, text.get(), &result);
        value.type = result.type;
        value.length = result.length;
        value.null = result.value == nullptr;
        if (left) *left = text.get();
        if (result.value && result.value != &result) {
            value.bytes.assign(static_cast<char*>(result.value), static_cast<size_t>(result.length));
            if (result.type == 'C' || result.type == 'D') {
                EXPECT_EQ(strlen(static_cast<char*>(result.value)), value.bytes.size()) << expression;
            }
            ZBMFREE(result.value);
        }
        return value;
    }

    // The code of an evaluation that should fail, with the code cleared again.
    int FailureOf(const std::string& expression) {
        Value value = Eval(expression);
        EXPECT_TRUE(value.null) << expression;
        EXPECT_EQ(value.type, ' ') << expression;
        EXPECT_EQ(value.length, 0) << expression;
        EXPECT_EQ(ZBECODE(), value.code) << expression;
        ZBESCODE(0);
        return value.code;
    }

    std::string TextOf(const std::string& expression) {
        Value value = Eval(expression);
        EXPECT_EQ(value.code, 0) << expression;
        EXPECT_EQ(value.type, 'C') << expression;
        ZBESCODE(0);
        return value.Text();
    }

    double NumberOf(const std::string& expression) {
        Value value = Eval(expression);
        EXPECT_EQ(value.code, 0) << expression;
        EXPECT_TRUE(value.type == 'N' || value.type == 'F') << expression;
        EXPECT_EQ(value.length, 8) << expression;
        ZBESCODE(0);
        return value.Number();
    }

    int16_t data = -1;
};

int Add(std::string name, ZbUserFunction function) { return ZBDXADD(name.data(), function); }
int Delete(std::string name) { return ZBDXDEL(name.data()); }

// ---- terms and how they are joined -----------------------------------------

TEST_F(Expression, EmptyGivesTypeSpaceLengthZeroAndAnEmptyBlock) {
    for (const char* empty : {"", "   "}) {
        Value value = Eval(empty);
        EXPECT_EQ(value.code, 0);
        EXPECT_EQ(value.type, ' ');
        EXPECT_EQ(value.length, 0);
        EXPECT_FALSE(value.null);
    }
    char text[] = "";
    ZbEvalResult result;
    ASSERT_EQ(ZBDXEVAL(data, text, &result), 0);
    EXPECT_EQ(Bytes(static_cast<char*>(result.value), 129), Fill(129));
    ZBMFREE(result.value);
}

TEST_F(Expression, TextFieldsAreJoinedWithTheirFullPaddedWidths) {
    EXPECT_EQ(TextOf("NAME+CITY"), "ANNA      BONN ");
    EXPECT_EQ(TextOf("CITY+NAME+CITY"), "BONN ANNA      BONN ");
}

TEST_F(Expression, ALeadingPlusIsAllowed) {
    EXPECT_EQ(TextOf("+NAME"), "ANNA      ");
    EXPECT_EQ(NumberOf("+AMOUNT"), 10.5);
}

TEST_F(Expression, NumberFieldPlusLiteralAdds) {
    EXPECT_EQ(NumberOf("AMOUNT+10"), 20.5);
    EXPECT_EQ(NumberOf("AMOUNT+RATE"), 8.0);
    EXPECT_EQ(NumberOf("RATE+AMOUNT+0.25+1"), 9.25);
}

TEST_F(Expression, SumsKeepTheTypeOfTheFirstTerm) {
    EXPECT_EQ(Eval("AMOUNT+RATE").type, 'N');
    EXPECT_EQ(Eval("RATE+AMOUNT").type, 'F');
    EXPECT_EQ(Eval("10+RATE").type, 'N');
}

TEST_F(Expression, TextAndNumberLiteralCantBeMixed) {
    EXPECT_EQ(FailureOf("NAME+10"), -7);
    EXPECT_EQ(FailureOf("10+NAME"), -7);
    EXPECT_EQ(FailureOf("AMOUNT+XYZ"), -7);
}

TEST_F(Expression, NothingJoinsADate) {
    EXPECT_EQ(FailureOf("BORN+NAME"), -7);
    EXPECT_EQ(FailureOf("BORN+1"), -7);
    EXPECT_EQ(FailureOf("OK+NAME"), -7);
    EXPECT_EQ(FailureOf("NOTE+1"), -7);
}

TEST_F(Expression, ADateLogicalOrMemoTermAfterAnyOtherResultIsPassedOver) {
    for (const char* first : {"NAME", "AMOUNT", "RATE", "BORN", "OK", "NOTE"}) {
        Value alone = Eval(first);
        for (const char* second : {"BORN", "OK", "NOTE"}) {
            Value both = Eval(std::string(first) + "+" + second);
            EXPECT_EQ(both.code, 0);
            EXPECT_EQ(both.type, alone.type);
            EXPECT_EQ(both.bytes, alone.bytes);
        }
    }
    EXPECT_EQ(TextOf("NAME+BORN+CITY"), "ANNA      BONN ");
    EXPECT_EQ(NumberOf("AMOUNT+OK+1"), 11.5);
}

TEST_F(Expression, SingleFieldsGiveTheirTypesAndLengths) {
    Value value = Eval("NAME");
    EXPECT_EQ(value.type, 'C');
    EXPECT_EQ(value.length, 10);
    value = Eval("AMOUNT");
    EXPECT_EQ(value.type, 'N');
    EXPECT_EQ(value.Number(), 10.5);
    value = Eval("RATE");
    EXPECT_EQ(value.type, 'F');
    EXPECT_EQ(value.Number(), -2.5);
    value = Eval("OK");
    EXPECT_EQ(value.type, 'L');
    EXPECT_EQ(value.bytes, Hex("01"));
    value = Eval("NOTE");
    EXPECT_EQ(value.type, 'M');
    EXPECT_EQ(value.bytes, Hex("2A 00 00 00"));
    value = Eval("BORN");
    EXPECT_EQ(value.type, 'D');
    EXPECT_EQ(value.Text(), "02/29/96");
}

TEST_F(Expression, DateTermIsInTheCurrentStyleWithTheLengthOfItsText) {
    ZBCDSTYLE(7);
    Value value = Eval("BORN");
    EXPECT_EQ(value.Text(), "29.02.1996");
    EXPECT_EQ(value.length, 10);
    ZBCDSTYLE(5);
    EXPECT_EQ(Eval("BORN").Text(), "290296");
}

TEST_F(Expression, BlankFields) {
    ASSERT_EQ(ZBDDRGET(data, 2), 0);
    EXPECT_EQ(TextOf("NAME"), Fill(10, ' '));
    EXPECT_EQ(NumberOf("AMOUNT+1"), 1.0);
    EXPECT_EQ(Eval("OK").bytes, "?");
    EXPECT_EQ(Eval("NOTE").bytes, Fill(4));
    EXPECT_EQ(Eval("BORN").Text(), Fill(8, ' '));
    EXPECT_EQ(TextOf("DTOS(BORN)"), Fill(8, ' '));
    ZBCDSTYLE(2);
    EXPECT_EQ(TextOf("DTOC(BORN)"), Fill(10, ' '));
}

TEST_F(Expression, AFieldThatCantBeReadFailsWithItsCode) {
    ASSERT_EQ(ZBDDFPUTS(data, 6, "19961332"), 0);
    EXPECT_EQ(FailureOf("BORN"), -15);
    EXPECT_EQ(FailureOf("NAME+DTOS(BORN)"), -15);
    uint16_t style = 0;
    char name[40];
    ZBCDGSTYLE(&style, name);
    EXPECT_EQ(style, 1);
}

TEST_F(Expression, TextIsSqueezedAndTurnedToUpperCaseInPlace) {
    std::string left;
    EXPECT_EQ(Eval("  name + left( ci ty , 2 )  ", &left).Text(), "ANNA      BO");
    EXPECT_EQ(left, "NAME+LEFT(CITY,2)");
    Eval("a\xE4\tb c", &left);
    EXPECT_EQ(left, "A\xE4\tBC");
}

// ---- literals ----------------------------------------------------------------

TEST_F(Expression, QuotesInALiteralStayPartOfIt) { EXPECT_EQ(TextOf("'X'+\"Y\""), "'X'\"Y\""); }

TEST_F(Expression, WhatIsNoFieldIsATextLiteral) {
    EXPECT_EQ(TextOf("NAM"), "NAM");
    EXPECT_EQ(TextOf("NAMES"), "NAMES");
    EXPECT_EQ(TextOf("A-B*C/(1"), "A-B*C/(1");
    EXPECT_EQ(TextOf("1E5"), "1E5");
    EXPECT_EQ(TextOf("-1"), "-1");
}

TEST_F(Expression, DigitsAndPointsAreANumberLiteral) {
    EXPECT_EQ(NumberOf("007.5"), 7.5);
    EXPECT_EQ(NumberOf("1.2.3"), 1.2);
    EXPECT_EQ(NumberOf("."), 0.0);
    EXPECT_EQ(NumberOf("9999999999"), 9999999999.0);
    EXPECT_EQ(Eval("5").type, 'N');
}

TEST_F(Expression, LiteralOfTenCharactersIsTheLongest) {
    EXPECT_EQ(TextOf("ABCDEFGHIJ"), "ABCDEFGHIJ");
    EXPECT_EQ(FailureOf("ABCDEFGHIJK"), -7);
    EXPECT_EQ(FailureOf("12345678901"), -7);
}

TEST_F(Expression, AtomOverTenCharactersFailsAtEveryLength) {
    for (size_t length : {11, 127, 128, 200, 255, 256, 257, 260, 266, 512, 70000})
        EXPECT_EQ(FailureOf(std::string(length, 'X')), -7) << length;
}

TEST_F(Expression, LiteralLeavesNoCodeBehindAndNoLine) {
    StartLog();
    EXPECT_EQ(TextOf("NAME+XX"), "ANNA      XX");
    EXPECT_EQ(ZBECODE(), 0);
    EXPECT_TRUE(Log().empty());
}

TEST_F(Expression, StrayCharactersFail) {
    for (const char* text : {"NAME,", "NAME)", ")", ",", "+", "NAME+", "NAME++CITY", "++NAME",
                             "LEFT(NAME,3))", "(NAME)", "NAME,CITY", "LEFT (NAME,3"})
        EXPECT_EQ(FailureOf(text), -7) << text;
}

TEST_F(Expression, TermsNeedNoPlusBetweenThem) {
    EXPECT_EQ(TextOf("LEFT(NAME,2)LEFT(CITY,2)"), "ANBO");
    EXPECT_EQ(TextOf("LEFT(NAME,2)X"), "ANX");
}

// ---- SUBSTR, RIGHT, LEFT ---------------------------------------------------------

TEST_F(Expression, Substr) {
    EXPECT_EQ(TextOf("SUBSTR(NAME,1)"), "ANNA      ");
    EXPECT_EQ(TextOf("SUBSTR(NAME,3)"), "NA      ");
    EXPECT_EQ(TextOf("SUBSTR(NAME,2,2)"), "NN");
    EXPECT_EQ(TextOf("SUBSTR(NAME,10)"), " ");
    EXPECT_EQ(TextOf("SUBSTR(NAME,2,0)"), "");
    EXPECT_EQ(TextOf("SUBSTR(NAME,2,100)"), "NNA      ");
}

TEST_F(Expression, SubstrStartBeyondTheTextGivesAnEmptyText) {
    EXPECT_EQ(TextOf("SUBSTR(NAME,11)"), "");
    EXPECT_EQ(TextOf("SUBSTR(NAME,12)"), "");
    EXPECT_EQ(TextOf("SUBSTR(NAME,32767,5)"), "");
    EXPECT_EQ(TextOf("SUBSTR(NAME,11)+CITY"), "BONN ");
}

TEST_F(Expression, SubstrStartBelowOneFails) {
    EXPECT_EQ(FailureOf("SUBSTR(NAME,0)"), -7);
    EXPECT_EQ(FailureOf("SUBSTR(NAME,-1)"), -7);
    EXPECT_EQ(FailureOf("SUBSTR(NAME,X)"), -7);
}

TEST_F(Expression, Right) {
    EXPECT_EQ(TextOf("RIGHT(NAME,10)"), "ANNA      ");
    EXPECT_EQ(TextOf("RIGHT(NAME,7)"), "A      ");
    EXPECT_EQ(TextOf("RIGHT(CITY,0)"), "");
    EXPECT_EQ(TextOf("RIGHT(ABC,1)"), "C");
}

TEST_F(Expression, RightCountOutsideTheTextFails) {
    EXPECT_EQ(FailureOf("RIGHT(NAME,11)"), -7);
    EXPECT_EQ(FailureOf("RIGHT(NAME,-1)"), -7);
    EXPECT_EQ(FailureOf("RIGHT(NAME,40000)"), -7);
}

TEST_F(Expression, Left) {
    EXPECT_EQ(TextOf("LEFT(NAME,3)"), "ANN");
    EXPECT_EQ(TextOf("LEFT(NAME,0)"), "");
    EXPECT_EQ(TextOf("LEFT(NAME,0)+CITY"), "BONN ");
}

TEST_F(Expression, ACutBeyondTheTextDoesNothing) {
    EXPECT_EQ(TextOf("LEFT(NAME,10)"), "ANNA      ");
    EXPECT_EQ(TextOf("LEFT(NAME,11)"), "ANNA      ");
    EXPECT_EQ(TextOf("LEFT(NAME,65535)"), "ANNA      ");
    EXPECT_EQ(TextOf("SUBSTR(NAME,1,65535)"), "ANNA      ");
    EXPECT_EQ(TextOf("LEFT(NAME,-1)"), "ANNA      ");
}

TEST_F(Expression, WhatFollowsACutTextIsJoinedToItsEndAndZerosFollow) {
    char text[] = "LEFT(NAME,2)+LEFT(CITY,1)";
    ZbEvalResult result;
    ASSERT_EQ(ZBDXEVAL(data, text, &result), 0);
    EXPECT_EQ(result.length, 3);
    EXPECT_EQ(Bytes(static_cast<char*>(result.value), 131), "ANB" + Fill(128));
    ZBMFREE(result.value);
}

TEST_F(Expression, BuiltInsNest) {
    EXPECT_EQ(TextOf("LEFT(RIGHT(SUBSTR(NAME,2,5),4),2)"), "NA");
    EXPECT_EQ(TextOf("LEFT(STR(AMOUNT,6,2),4)"), " 10.");
    EXPECT_EQ(TextOf("SUBSTR(DTOS(BORN),5,2)+LEFT(DTOS(BORN),4)"), "021996");
}

TEST_F(Expression, IntegersAreReadFromTheirFirstDigits) {
    EXPECT_EQ(TextOf("LEFT(NAME,+3)"), "ANN");
    EXPECT_EQ(TextOf("LEFT(NAME,2X)"), "AN");
    EXPECT_EQ(TextOf("LEFT(NAME,\t\n2)"), "AN");
    EXPECT_EQ(TextOf("LEFT(NAME,65538)"), "AN");
    EXPECT_EQ(TextOf("LEFT(NAME,4294967298)"), "AN");
}

TEST_F(Expression, TheCharacterBeforeAnIntegerIsPassedOver) {
    EXPECT_EQ(TextOf("LEFT(NAME)3)"), "ANN");
    EXPECT_EQ(TextOf("LEFT(NAME+3)"), "ANN");
}

TEST_F(Expression, MissingOrEmptyArgumentsFail) {
    for (const char* name : {"SUBSTR(", "RIGHT(", "LEFT("})
        for (const char* rest : {"", ")", "NAME", "NAME)", "NAME,", "NAME,)", "NAME,,", "NAME,3", "NAME,,3)",
                                 ",3)", "NAME,3,", "NAME,3,)", "NAME,3,3"})
            EXPECT_EQ(FailureOf(std::string(name) + rest), -7) << name << rest;
    EXPECT_EQ(FailureOf("LEFT(NAME,3,4)"), -7);
    EXPECT_EQ(FailureOf("RIGHT(NAME,3,4)"), -7);
    EXPECT_EQ(FailureOf("SUBSTR(NAME,3,4,5)"), -7);
}

// ---- STR --------------------------------------------------------------------------

TEST_F(Expression, StrDefaultsToWidthTenAndNoDecimals) {
    EXPECT_EQ(TextOf("STR(AMOUNT)"), "        10");
    EXPECT_EQ(TextOf("STR(AMOUNT,8,2)"), "   10.50");
    EXPECT_EQ(TextOf("STR(AMOUNT,4)"), "  10");
    EXPECT_EQ(TextOf("STR(RATE,8,3)"), "  -2.500");
    EXPECT_EQ(TextOf("STR(7)"), "         7");
}

TEST_F(Expression, StrTextLongerThanItsWidthIsKeptWhole) {
    EXPECT_EQ(TextOf("STR(AMOUNT,1)"), "10");
    EXPECT_EQ(TextOf("STR(AMOUNT,0,2)"), "10.50");
    EXPECT_EQ(TextOf("STR(AMOUNT,2,3)+X"), "10.500X");
    EXPECT_EQ(TextOf("STR(AMOUNT,2,60)+STR(AMOUNT,2,60)"), "10.5" + Fill(59, '0') + "10.5" + Fill(59, '0'));
}

TEST_F(Expression, StrTextLongerThanItsWidthAnd128Fails) {
    EXPECT_EQ(TextOf("STR(AMOUNT,10,135)").size(), 138u);
    EXPECT_EQ(FailureOf("STR(AMOUNT,10,136)"), -7);
    EXPECT_EQ(FailureOf("STR(AMOUNT,10,65535)"), -7);
    EXPECT_EQ(FailureOf("STR(AMOUNT,10,-1)"), -7);
    EXPECT_EQ(TextOf("STR(AMOUNT,9,126)").size(), 129u);
}

TEST_F(Expression, StrWidthIsBoundedByTheLengthOfAValue) {
    EXPECT_EQ(TextOf("STR(1,32766)"), Fill(32765, ' ') + "1");
    EXPECT_EQ(FailureOf("STR(1,32767)"), -7);
    EXPECT_EQ(FailureOf("STR(1,65535)"), -7);
    EXPECT_EQ(FailureOf("STR(1,-5)"), -7);
}

TEST_F(Expression, StrMustBeClosed) {
    for (const char* text : {"STR(AMOUNT", "STR(AMOUNT,8", "STR(AMOUNT,8,2", "STR(AMOUNT,8,2,1)",
                             "STR(AMOUNT+1)", "STR(AMOUNT,)", "STR(AMOUNT,,2)", "STR(AMOUNT,8,)"})
        EXPECT_EQ(FailureOf(text), -7) << text;
}

TEST_F(Expression, ResultIsAtMost32767Long) {
    EXPECT_EQ(TextOf("STR(1,32766)+X").size(), 32767u);
    EXPECT_EQ(FailureOf("STR(1,32766)+XY"), -7);
    EXPECT_EQ(FailureOf("STR(1,32766)+X+Y"), -7);
}

// ---- DTOC and DTOS -----------------------------------------------------------------

TEST_F(Expression, DtosGivesYearMonthDayWhateverTheStyleWhichStays) {
    for (uint16_t style = 1; style <= 15; style++) {
        ASSERT_EQ(ZBCDSTYLE(style), 0);
        EXPECT_EQ(TextOf("DTOS(BORN)"), "19960229");
        uint16_t after = 0;
        char name[40];
        ZBCDGSTYLE(&after, name);
        EXPECT_EQ(after, style);
    }
}

TEST_F(Expression, DtocGivesTheTextOfTheCurrentStyle) {
    EXPECT_EQ(TextOf("DTOC(BORN)"), "02/29/96");
    EXPECT_EQ(TextOf("NAME+DTOC(BORN)"), "ANNA      02/29/96");
    ZBCDSTYLE(15);
    EXPECT_EQ(TextOf("DTOC(BORN)"), "1996.02.29");
    EXPECT_EQ(TextOf("DTOS(BORN)+DTOC(BORN)"), "199602291996.02.29");
}

TEST_F(Expression, DtocAndDtosStepOverWhateverStandsForTheParenthesis) {
    EXPECT_EQ(TextOf("DTOC(BORN,"), "02/29/96");
    EXPECT_EQ(TextOf("DTOC(BORN+NAME"), "02/29/96ANNA      ");
    EXPECT_EQ(TextOf("DTOS(BORN+"), "19960229");
    EXPECT_EQ(TextOf("LEFT(DTOS(BORN,,4)"), "1996");
}

TEST_F(Expression, DtocAndDtosWhoseTextEndsFail) {
    EXPECT_EQ(FailureOf("DTOC(BORN"), -7);
    EXPECT_EQ(FailureOf("DTOS(BORN"), -7);
    EXPECT_EQ(FailureOf("NAME+DTOS(BORN"), -7);
    EXPECT_EQ(FailureOf("DTOC("), -7);
}

TEST_F(Expression, AFailureInDtosDoesntLeaveItsStyleBehind) {
    EXPECT_EQ(FailureOf("DTOS(NAME)"), -7);
    EXPECT_EQ(Eval("BORN").Text(), "02/29/96");
}

TEST_F(Expression, EveryBuiltInRefusesArgumentsOfOtherTypes) {
    for (const char* call : {"SUBSTR(?,1)", "RIGHT(?,1)", "LEFT(?,1)"})
        for (const char* argument : {"AMOUNT", "RATE", "BORN", "OK", "NOTE", "5"})
            EXPECT_EQ(FailureOf(std::string(call).replace(std::string(call).find('?'), 1, argument)), -7);
    for (const char* argument : {"NAME", "BORN", "OK", "NOTE", "X", "STR(AMOUNT)"})
        EXPECT_EQ(FailureOf("STR(" + std::string(argument) + ")"), -7);
    for (const char* name : {"DTOC(", "DTOS("})
        for (const char* argument :
             {"NAME", "AMOUNT", "RATE", "OK", "NOTE", "X", "5", "DTOC(BORN)", "DTOS(BORN)"})
            EXPECT_EQ(FailureOf(std::string(name) + argument + ")"), -7);
}

// ---- limits and codes -----------------------------------------------------------------

TEST_F(Expression, TermsNestTo256) {
    auto nested = [](int depth) {
        std::string text;
        for (int i = 1; i < depth; i++) text += "LEFT(";
        text += "NAME";
        for (int i = 1; i < depth; i++) text += ",3)";
        return text;
    };
    EXPECT_EQ(TextOf(nested(256)), "ANN");
    EXPECT_EQ(FailureOf(nested(257)), -7);
    std::string endless;
    while (endless.size() < 65536) endless += "DTOS(";
    EXPECT_EQ(FailureOf(endless), -7);
}

TEST_F(Expression, NullArgumentsLeaveTheRecordAlone) {
    ZbEvalResult result{&result, 5, 6};
    char text[] = "n ame";
    EXPECT_EQ(ZBDXEVAL(data, nullptr, &result), -21);
    EXPECT_EQ(result.value, &result);
    EXPECT_EQ(result.type, 5);
    EXPECT_EQ(result.length, 6);
    ZBESCODE(0);
    EXPECT_EQ(ZBDXEVAL(data, text, nullptr), -21);
    EXPECT_STREQ(text, "n ame");
}

TEST_F(Expression, APendingCodeIsReturnedAndLeavesEverythingAlone) {
    ZBESCODE(-33);
    ZbEvalResult result{&result, 5, 6};
    char text[] = "n ame";
    EXPECT_EQ(ZBDXEVAL(data, text, &result), -33);
    EXPECT_EQ(ZBDXEVAL(data, nullptr, nullptr), -33);
    EXPECT_EQ(result.value, &result);
    EXPECT_EQ(result.type, 5);
    EXPECT_EQ(result.length, 6);
    EXPECT_STREQ(text, "n ame");
}

TEST_F(Expression, ABadHandleFailsAndClearsTheRecord) {
    data = 77;
    EXPECT_EQ(FailureOf("NAME"), -13);
    data = -1;
    EXPECT_EQ(FailureOf(""), -13);
}

TEST_F(Expression, AWarningOfACallBeforeIsCleared) {
    ZBESCODE(6);
    EXPECT_EQ(TextOf("CITY"), "BONN ");
    ZBESCODE(6);
    EXPECT_EQ(Eval("").code, 0);
}

TEST_F(Expression, FailuresAreLogged) {
    StartLog();
    EXPECT_EQ(FailureOf("LEFT(X,"), -7);
    auto log = Log();
    ASSERT_GE(log.size(), 2u);
    for (auto& entry : log) EXPECT_EQ(entry.code, -7);
    EXPECT_EQ(log.front().unit, "Xvget");
    EXPECT_EQ(log.back().unit, "Evalkey");
}

TEST_F(Expression, NotAttached) {
    ZBDTERM();
    char text[] = "NAME";
    ZbEvalResult result;
    int16_t number;
    uint16_t value;
    EXPECT_EQ(ZBDXEVAL(data, text, &result), -59);
    EXPECT_EQ(ZBDXADD(text, [](ZbEvalState*) -> int32_t { return 0; }), -59);
    EXPECT_EQ(ZBDXDEL(text), -59);
    EXPECT_EQ(ZBDXLIST(text, 0), -59);
    EXPECT_EQ(ZBDXINFO(&number, &number), -59);
    EXPECT_EQ(ZBDXPROC(), -59);
    EXPECT_EQ(ZBDXVGET(&value), -59);
}

// ---- against an evaluator of its own, and against noise ------------------------------------

struct Generator {
    std::mt19937 random{20240229};

    int Below(int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); }

    struct Term {
        std::string text;
        std::string value;
    };

    Term TextTerm(int depth) {
        switch (Below(depth > 0 ? 9 : 3)) {
            case 0: return {"NAME", "ANNA      "};
            case 1: return {"CITY", "BONN "};
            case 2: {
                std::string literal(static_cast<size_t>(1 + Below(9)), static_cast<char>('P' + Below(10)));
                literal += static_cast<char>('!' + Below(6));
                return {literal, literal};
            }
            case 3: {
                Term inner = TextTerm(depth - 1);
                int count = Below(14);
                return {"LEFT(" + inner.text + "," + std::to_string(count) + ")",
                        inner.value.substr(0, static_cast<size_t>(count))};
            }
            case 4: {
                Term inner = TextTerm(depth - 1);
                auto count = static_cast<size_t>(Below(static_cast<int>(inner.value.size()) + 1));
                return {"RIGHT(" + inner.text + "," + std::to_string(count) + ")",
                        inner.value.substr(inner.value.size() - count)};
            }
            case 5:
            case 6: {
                Term inner = TextTerm(depth - 1);
                auto start = static_cast<size_t>(1 + Below(12));
                std::string rest = start > inner.value.size() ? "" : inner.value.substr(start - 1);
                std::string text = "SUBSTR(" + inner.text + "," + std::to_string(start);
                if (Below(2)) return {text + ")", rest};
                auto length = static_cast<size_t>(Below(12));
                return {text + "," + std::to_string(length) + ")", rest.substr(0, length)};
            }
            case 7: {
                auto [text, number] = NumberTerm();
                int width = 10;
                int decimals = 0;
                int form = Below(3);
                if (form > 0) text += "," + std::to_string(width = Below(20));
                if (form > 1) text += "," + std::to_string(decimals = Below(9));
                char out[400];
                snprintf(out, sizeof out, "%*.*f", width, decimals, number);
                return {"STR(" + text + ")", out};
            }
            default: return Below(2) ? Term{"DTOS(BORN)", "19960229"} : Term{"DTOC(BORN)", "02/29/96"};
        }
    }

    std::pair<std::string, double> NumberTerm() {
        switch (Below(3)) {
            case 0: return {"AMOUNT", 10.5};
            case 1: return {"RATE", -2.5};
            default: {
                std::string literal = std::to_string(Below(100000)) + "." + std::to_string(Below(1000));
                return {literal, std::stod(literal)};
            }
        }
    }
};

TEST_F(Expression, RandomTextExpressionsAgreeWithAnEvaluatorOfTheirGrammar) {
    Generator generate;
    for (int round = 0; round < 2000; round++) {
        std::string text = generate.Below(4) ? "" : "+";
        std::string expected;
        int terms = 1 + generate.Below(4);
        for (int i = 0; i < terms; i++) {
            auto term = generate.TextTerm(5);
            text += (i ? "+" : "") + term.text;
            expected += term.value;
        }
        ASSERT_EQ(TextOf(text), expected) << text;
    }
}

TEST_F(Expression, RandomSumsAgreeWithAnEvaluatorOfTheirGrammar) {
    Generator generate;
    for (int round = 0; round < 1000; round++) {
        auto [text, sum] = generate.NumberTerm();
        for (int i = generate.Below(5); i > 0; i--) {
            auto [more, number] = generate.NumberTerm();
            text += "+" + more;
            sum += number;
        }
        ASSERT_EQ(NumberOf(text), sum) << text;
    }
}

TEST_F(Expression, RandomBytesNeverLeadOutsideTheText) {
    std::mt19937 random{7};
    const char* const pieces[] = {"SUBSTR(", "RIGHT(", "LEFT(", "STR(",  "DTOC(", "DTOS(", "NAME", "AMOUNT",
                                  "BORN",    "OK",     "NOTE",  ",",     ",",     ")",     ")",    "+",
                                  "-1",      "3",      "65535", "32766", "X",     "U(",    " ",    "\xFF"};
    Add("U(", [](ZbEvalState* state) -> int32_t {
        uint16_t number;
        int32_t code = ZBDXPROC();
        if (code == 0 && *state->Cursor == ',') code = ZBDXVGET(&number);
        if (*state->Cursor) state->Cursor++;
        return code;
    });
    int succeeded = 0;
    for (int round = 0; round < 20000; round++) {
        std::string text;
        if (round % 4 == 0) {
            for (auto length = random() % 40; length > 0; length--)
                text += static_cast<char>(1 + random() % 255);
        } else {
            for (auto count = random() % 12; count > 0; count--)
                text += pieces[random() % (sizeof pieces / sizeof pieces[0])];
        }
        Value value = Eval(text);
        if (value.code == 0) succeeded++;
        ASSERT_LE(value.code, 0);
        ZBESCODE(0);
    }
    EXPECT_GT(succeeded, 1000);
}

// ---- the table of user functions ------------------------------------------------------------

int32_t GiveText(ZbEvalState* state, const char* text) {
    ZbBlock block = 0;
    if (int32_t code = _ZBMALLOC(&block, static_cast<uint32_t>(strlen(text) + 1)); code < 0) return code;
    void* address = nullptr;
    _ZBMLOCK(&address, block);
    memcpy(address, text, strlen(text));
    state->ValueBlock = block;
    state->ValuePtr = address;
    state->ValueType = 'C';
    state->ValueLength = static_cast<int16_t>(strlen(text) + 1);
    return 0;
}

int32_t GiveNumber(ZbEvalState* state, double number, char type = 'N') {
    ZbBlock block = 0;
    if (int32_t code = _ZBMALLOC(&block, 8); code < 0) return code;
    void* address = nullptr;
    _ZBMLOCK(&address, block);
    memcpy(address, &number, sizeof number);
    state->ValueBlock = block;
    state->ValuePtr = address;
    state->ValueType = type;
    state->ValueLength = 8;
    return 0;
}

// ONE: a function without arguments or parentheses.
int32_t One(ZbEvalState* state) { return GiveText(state, "one"); }
int32_t Two(ZbEvalState* state) { return GiveText(state, "two"); }

class FunctionTable : public Expression {
  protected:
    std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (int16_t i = 0;; i++) {
            char name[300] = "untouched";
            int code = ZBDXLIST(name, i);
            if (code != 0) {
                EXPECT_EQ(code, 3);
                EXPECT_STREQ(name, "untouched");
                return names;
            }
            names.push_back(name);
        }
    }
};

TEST_F(FunctionTable, EmptyTable) {
    int16_t count = 5;
    int16_t longest = 6;
    EXPECT_EQ(ZBDXINFO(&count, &longest), 2);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(longest, 6);
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(Delete("ONE"), 4);
    EXPECT_EQ(ZBECODE(), 4);
}

TEST_F(FunctionTable, NamesAreKeptSortedAndInUpperCase) {
    char name[] = "mid(";
    EXPECT_EQ(ZBDXADD(name, One), 0);
    EXPECT_STREQ(name, "MID(");
    char second[] = "aGe(";
    EXPECT_EQ(ZBDXADD(second, One), 0);
    EXPECT_STREQ(second, "AGE(");
    EXPECT_EQ(Add("zip", One), 0);
    EXPECT_EQ(Add("Next(", One), 0);
    EXPECT_EQ(Names(), (std::vector<std::string>{"AGE(", "MID(", "NEXT(", "ZIP"}));
    int16_t count, longest;
    EXPECT_EQ(ZBDXINFO(&count, &longest), 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(longest, 5);
}

TEST_F(FunctionTable, ANameThatBeginsWithARegisteredOneIsRefusedWith11) {
    EXPECT_EQ(Add("AB(", One), 0);
    char longer[] = "ab(c";
    EXPECT_EQ(ZBDXADD(longer, Two), 11);
    EXPECT_STREQ(longer, "AB(C");
    EXPECT_EQ(ZBECODE(), 11);
    EXPECT_EQ(Add("AB(", Two), 11);
    EXPECT_EQ(Names(), (std::vector<std::string>{"AB("}));
    EXPECT_EQ(TextOf("AB("), "one");
}

TEST_F(FunctionTable, AShorterNameMayFollowALongerOne) {
    EXPECT_EQ(Add("AB(C", One), 0);
    EXPECT_EQ(Add("AB(", Two), 0);
    EXPECT_EQ(Names(), (std::vector<std::string>{"AB(", "AB(C"}));
    EXPECT_EQ(TextOf("AB("), "two");
    EXPECT_EQ(Delete("AB("), 0);
    EXPECT_EQ(TextOf("AB(C"), "one");
}

TEST_F(FunctionTable, GrowsBeyondItsFirstCapacity) {
    std::vector<std::string> expected;
    for (int i = 0; i < 100; i++) {
        int number = i * 37 % 100;
        EXPECT_EQ(Add("F" + std::to_string(100 + number) + "(", i % 2 ? One : Two), 0);
        expected.push_back("F" + std::to_string(100 + i) + "(");
    }
    EXPECT_EQ(Names(), expected);
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(TextOf("F" + std::to_string(100 + i * 37 % 100) + "("), i % 2 ? "one" : "two");
    for (int i = 0; i < 100; i++) EXPECT_EQ(Delete("f" + std::to_string(100 + i * 59 % 100) + "("), 0);
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(Add("AGAIN", One), 0);
    EXPECT_EQ(TextOf("AGAIN"), "one");
}

TEST_F(FunctionTable, DeleteWantsTheWholeNameInAnyCase) {
    EXPECT_EQ(Add("AB(", One), 0);
    EXPECT_EQ(Delete("AB(C"), 4);
    EXPECT_EQ(Delete("AB"), 4);
    EXPECT_EQ(Delete("ab("), 0);
    EXPECT_EQ(Delete("AB("), 4);
}

TEST_F(FunctionTable, DeleteTurnsTheNameToUpperCaseInPlaceFoundOrNot) {
    EXPECT_EQ(Add("AB(", One), 0);
    char found[] = "ab(", missing[] = "none(";
    EXPECT_EQ(ZBDXDEL(found), 0);
    EXPECT_STREQ(found, "AB(");
    EXPECT_EQ(ZBDXDEL(missing), 4);
    EXPECT_STREQ(missing, "NONE(");
}

TEST_F(FunctionTable, ListBeyondTheEndGives3) {
    EXPECT_EQ(Add("ONE", One), 0);
    char name[10];
    EXPECT_EQ(ZBDXLIST(name, 0), 0);
    EXPECT_STREQ(name, "ONE");
    EXPECT_EQ(ZBDXLIST(name, 1), 3);
    EXPECT_EQ(ZBDXLIST(name, 2), 3);
    EXPECT_EQ(ZBDXLIST(name, 32767), 3);
    EXPECT_EQ(ZBDXLIST(name, -1), 3);
}

TEST_F(FunctionTable, NullAndEmptyArguments) {
    char name[] = "ONE";
    char empty[] = "";
    int16_t number;
    EXPECT_EQ(ZBDXADD(nullptr, One), -21);
    EXPECT_EQ(ZBDXADD(name, nullptr), -21);
    EXPECT_EQ(ZBDXDEL(nullptr), -21);
    EXPECT_EQ(ZBDXLIST(nullptr, 0), -21);
    EXPECT_EQ(ZBDXINFO(nullptr, &number), -21);
    EXPECT_EQ(ZBDXINFO(&number, nullptr), -21);
    EXPECT_EQ(ZBDXADD(empty, One), -14);
    EXPECT_EQ(ZBDXDEL(empty), -14);
    EXPECT_TRUE(Names().empty());
    std::string longest(32767, 'L');
    EXPECT_EQ(Add(longest + "L", One), -14);
    EXPECT_EQ(Add(longest, One), 0);
    EXPECT_EQ(TextOf(longest), "one");
}

TEST_F(FunctionTable, TheseCallsClearAFailure) {
    int16_t count, longest;
    char name[10];
    ZBESCODE(-33);
    EXPECT_EQ(Add("ONE", One), 0);
    EXPECT_EQ(ZBECODE(), 0);
    ZBESCODE(-33);
    EXPECT_EQ(ZBDXLIST(name, 0), 0);
    ZBESCODE(-33);
    EXPECT_EQ(ZBDXINFO(&count, &longest), 0);
    ZBESCODE(-33);
    EXPECT_EQ(Delete("ONE"), 0);
    EXPECT_EQ(ZBECODE(), 0);
}

TEST_F(FunctionTable, GoesAwayWithTheLibrary) {
    EXPECT_EQ(Add("ONE", One), 0);
    EXPECT_EQ(ZBDTERM(), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(Add("ONE", Two), 0);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    EXPECT_TRUE(Names().empty());
    Open();
    EXPECT_EQ(TextOf("ONE"), "ONE");
}

// ---- user functions -------------------------------------------------------------------------

// What the functions and their test tell each other.
struct Host {
    int16_t data = -1;
    std::string seen;
    int code = 0;
    int calls = 0;
} host;

class UserFunctions : public Expression {
  protected:
    void SetUp() override {
        Expression::SetUp();
        host = {};
        host.data = data;
    }
};

TEST_F(UserFunctions, ComeBeforeBuiltInsAndFields) {
    Add("NAME", One);
    Add("LEFT(", Two);
    EXPECT_EQ(TextOf("name"), "one");
    EXPECT_EQ(TextOf("LEFT("), "two");
    EXPECT_EQ(TextOf("NAMED"), "oneD");
}

TEST_F(UserFunctions, ReadTheirArguments) {
    // TIMES(number term, count): the sum as a number.
    Add("TIMES(", [](ZbEvalState* state) -> int32_t {
        if (int32_t code = ZBDXPROC(); code < 0) return code;
        if (state->ValueType != 'N' && state->ValueType != 'F') return -7;
        double number;
        memcpy(&number, state->ValuePtr, sizeof number);
        ZBMFREE(state->ValuePtr);
        uint16_t count;
        if (int32_t code = ZBDXVGET(&count); code < 0) return code;
        if (*state->Cursor++ != ')') return -7;
        return GiveNumber(state, number * count);
    });
    EXPECT_EQ(NumberOf("TIMES(AMOUNT,3)"), 31.5);
    EXPECT_EQ(NumberOf("1+times( TIMES(AMOUNT,2), 2 )+RATE"), 40.5);
    EXPECT_EQ(TextOf("STR(TIMES(RATE,4),6,1)"), " -10.0");
    EXPECT_EQ(FailureOf("TIMES(NAME,3)"), -7);
    EXPECT_EQ(FailureOf("TIMES(AMOUNT,)"), -7);
    EXPECT_EQ(FailureOf("TIMES(AMOUNT"), -7);
    EXPECT_EQ(FailureOf("TIMES("), -7);
}

TEST_F(UserFunctions, MayGiveAnArgumentsValueAsTheirOwn) {
    Add("SAME(", [](ZbEvalState* state) -> int32_t {
        int32_t code = ZBDXPROC();
        if (*state->Cursor == ')') state->Cursor++;
        return code;
    });
    EXPECT_EQ(TextOf("SAME(NAME)+SAME(SAME(LEFT(CITY,2)))"), "ANNA      BO");
    EXPECT_EQ(Eval("SAME(BORN)").Text(), "02/29/96");
    EXPECT_EQ(TextOf("DTOS(SAME(BORN))"), "19960229");
    EXPECT_EQ(Eval("SAME(OK)").type, 'L');
}

TEST_F(UserFunctions, SeeTheStateInItsPublicOrder) {
    Add("LOOK(", [](ZbEvalState* state) -> int32_t {
        host.seen =
            std::string(1, static_cast<char>(state->ResultType)) +
            std::string(static_cast<char*>(state->ResultPtr), static_cast<size_t>(state->ResultLength)) +
            "|" + state->Cursor + "|" + std::to_string(state->DateAsKey);
        if (*state->Cursor == ')') state->Cursor++;
        return GiveText(state, "!");
    });
    EXPECT_EQ(TextOf("city+look()+name"), "BONN !ANNA      ");
    EXPECT_EQ(host.seen, "CBONN |)+NAME|0");
    EXPECT_EQ(FailureOf("DTOS(LOOK())"), -7);
    EXPECT_EQ(host.seen, " |))|1");
}

TEST_F(UserFunctions, TheirFailureBecomesTheStandingCodeAndEndsTheEvaluation) {
    Add("BAD(", [](ZbEvalState*) -> int32_t { return host.code; });
    host.code = -33;
    EXPECT_EQ(FailureOf("NAME+BAD(X)"), -33);
    EXPECT_EQ(FailureOf("LEFT(BAD(X),2)"), -33);
    host.code = static_cast<int>(0x1234FFF9);  // the low 16 bits count: -7
    EXPECT_EQ(FailureOf("BAD()"), -7);
}

TEST_F(UserFunctions, TheWarningOfTheLastOneComesBack) {
    Add("WARN", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "w");
        return 5;
    });
    Value value = Eval("NAME+WARN");
    EXPECT_EQ(value.code, 5);
    EXPECT_EQ(ZBECODE(), 5);
    EXPECT_EQ(value.Text(), "ANNA      w");
    EXPECT_EQ(TextOf("WARN+NAME"), "wANNA      ");
}

TEST_F(UserFunctions, MayRecoverFromAFailedArgument) {
    Add("TRY(", [](ZbEvalState* state) -> int32_t {
        if (ZBDXPROC() == 0) {
            if (*state->Cursor == ')') state->Cursor++;
            return 0;
        }
        host.code = ZBECODE();
        EXPECT_EQ(ZBDXPROC(), host.code) << "a failure that stands is returned";
        uint16_t number = 99;
        EXPECT_EQ(ZBDXVGET(&number), host.code);
        EXPECT_EQ(number, 99);
        EXPECT_EQ(state->ValueBlock, 0u);
        ZBESCODE(0);
        while (*state->Cursor) state->Cursor++;
        return GiveText(state, "sorry");
    });
    EXPECT_EQ(TextOf("TRY(NAME)"), "ANNA      ");
    EXPECT_EQ(TextOf("TRY(LEFT(AMOUNT,2))"), "sorry");
    EXPECT_EQ(host.code, -7);
}

TEST_F(UserFunctions, AFailureInsideDtosDoesntOutliveIt) {
    Add("TRY(", [](ZbEvalState* state) -> int32_t {
        EXPECT_LT(ZBDXPROC(), 0);
        ZBESCODE(0);
        EXPECT_EQ(state->DateAsKey, 0u);
        while (*state->Cursor) state->Cursor++;
        return GiveText(state, "x");
    });
    EXPECT_EQ(TextOf("TRY(DTOS(NAME))"), "x");
}

TEST_F(UserFunctions, ACursorLeftWrongFails) {
    static char elsewhere[] = "ELSEWHERE)";
    static int way;
    Add("CUR(", [](ZbEvalState* state) -> int32_t {
        char* behindName = state->Cursor;
        switch (way) {
            case 0: state->Cursor = nullptr; break;
            case 1: state->Cursor = elsewhere; break;
            case 2: state->Cursor = behindName - 1; break;
            case 3: state->Cursor = behindName - 4; break;
            case 4: state->Cursor = behindName - 5; break;
            case 5: state->Cursor += strlen(state->Cursor) + 1; break;
            case 6: state->Cursor = reinterpret_cast<char*>(UINTPTR_MAX); break;
            case 7: state->Cursor += strlen(state->Cursor); break;
        }
        return GiveText(state, "c");
    });
    for (way = 0; way < 7; way++) EXPECT_EQ(FailureOf("CUR(X)"), -7) << way;
    EXPECT_EQ(TextOf("CUR(X)+(,)"), "c") << "the end of the text is within it";
}

TEST_F(UserFunctions, ACursorSetWrongBeforeAnArgumentFails) {
    static bool integer;
    Add("ARG(", [](ZbEvalState* state) -> int32_t {
        char* cursor = state->Cursor;
        uint16_t number;
        state->Cursor = nullptr;
        EXPECT_EQ(integer ? ZBDXVGET(&number) : ZBDXPROC(), -7);
        ZBESCODE(0);
        state->Cursor = cursor + strlen(cursor) + 1;
        EXPECT_EQ(integer ? ZBDXVGET(&number) : ZBDXPROC(), -7);
        ZBESCODE(0);
        state->Cursor = cursor + strlen(cursor);
        EXPECT_EQ(integer ? ZBDXVGET(&number) : ZBDXPROC(), -7);
        return ZBECODE();
    });
    integer = false;
    EXPECT_EQ(FailureOf("ARG(NAME)"), -7);
    integer = true;
    EXPECT_EQ(FailureOf("ARG(NAME)"), -7);
}

TEST_F(UserFunctions, AValueLeftWrongFails) {
    static int way;
    Add("VAL", [](ZbEvalState* state) -> int32_t {
        if (way == 0) return 0;
        GiveText(state, "abc");
        switch (way) {
            case 1: state->ValueBlock = 0; break;
            case 2: state->ValueBlock = 0xFFFFFFFF; break;
            case 3: _ZBMFREE(state->ValueBlock); break;
            case 4: state->ValueBlock = state->ResultBlock; break;
            case 5: state->ValueType = ' '; break;
            case 6: state->ValueType = 0; break;
            case 7: state->ValueType = -1; break;
            case 8: state->ValueType = 'C' + 256; break;
            case 9: state->ValueLength = -1; break;
            case 10: state->ValueLength = INT16_MIN; break;
            case 11: state->ValueType = '1'; break;
        }
        return 0;
    });
    for (way = 0; way <= 11; way++) EXPECT_EQ(FailureOf("CITY+VAL"), -7) << way;
    for (way = 0; way <= 11; way++) EXPECT_EQ(FailureOf("LEFT(VAL,1)"), -7) << way;
}

TEST_F(UserFunctions, TheAddressOfTheValueIsTakenFromItsBlock) {
    Add("VAL", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "abc");
        state->ValuePtr = nullptr;
        return 0;
    });
    EXPECT_EQ(TextOf("VAL"), "abc");
    EXPECT_EQ(TextOf("RIGHT(VAL,2)"), "bc");
}

TEST_F(UserFunctions, LengthsAreBoundedByTheBlock) {
    static int length;
    static char type;
    Add("VAL", [](ZbEvalState* state) -> int32_t {
        _ZBMALLOC(&state->ValueBlock, 2);
        void* address;
        _ZBMLOCK(&address, state->ValueBlock);
        memset(address, 'x', 2 + 128);
        state->ValueType = type;
        state->ValueLength = static_cast<int16_t>(length);
        return 0;
    });
    for (int given : {0, 1, 32767}) {
        length = given;
        for (char c : {'C', 'D'}) {
            type = c;
            Value value = Eval("VAL");
            EXPECT_EQ(value.code, 0);
            EXPECT_EQ(value.Text(), Fill(129, 'x'));
            EXPECT_EQ(TextOf(c == 'C' ? "LEFT(VAL,5)" : "DTOC(VAL)").size(), c == 'C' ? 5u : 129u);
        }
    }
    type = 'L';
    EXPECT_EQ(Eval("VAL").length, 130);
    type = 'N';
    length = 0;
    EXPECT_EQ(TextOf("LEFT(STR(VAL,200),1)"), "2") << "the double of eight x";
}

TEST_F(UserFunctions, AJoinedTextCountsWithItsOwnLength) {
    Add("SHORT", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "abcdef");
        state->ValueLength = 2;
        return 0;
    });
    EXPECT_EQ(TextOf("SHORT+CITY+SHORT"), "abcdefBONN abcdef");
}

TEST_F(UserFunctions, TextsOfMoreThan32767BytesFail) {
    static int size;
    static char type;
    Add("LONG", [](ZbEvalState* state) -> int32_t {
        GiveText(state, std::string(static_cast<size_t>(size), 'l').c_str());
        state->ValueType = type;
        state->ValueLength = 1;
        return 0;
    });
    type = 'C';
    size = 32767;
    EXPECT_EQ(TextOf("LONG").size(), 32767u);
    EXPECT_EQ(FailureOf("LONG+X"), -7);
    size = 32768;
    EXPECT_EQ(FailureOf("LONG"), -7);
    EXPECT_EQ(TextOf("LEFT(LONG,2)"), "ll");
    type = 'D';
    EXPECT_EQ(FailureOf("LONG"), -7);
}

TEST_F(UserFunctions, ALetterThatIsNoTypeComesBackAsItIs) {
    Add("ODD", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "odd");
        state->ValueType = 'X';
        return 0;
    });
    Value value = Eval("ODD");
    EXPECT_EQ(value.code, 0);
    EXPECT_EQ(value.type, 'X');
    EXPECT_EQ(value.length, 4);
    EXPECT_EQ(FailureOf("ODD+NAME"), -7);
    EXPECT_EQ(TextOf("NAME+ODD"), "ANNA      ");
}

TEST_F(UserFunctions, NumbersWithoutAPlusAreNotAdded) {
    Add("NUM(", [](ZbEvalState* state) -> int32_t {
        uint16_t number;
        state->Cursor--;
        if (int32_t code = ZBDXVGET(&number); code < 0) return code;
        state->Cursor++;
        return GiveNumber(state, number);
    });
    EXPECT_EQ(NumberOf("NUM(1)+NUM(2)"), 3.0);
    EXPECT_EQ(NumberOf("NUM(1)NUM(2)"), 1.0);
    EXPECT_EQ(NumberOf("NUM(1)NUM(2)+NUM(4)"), 5.0);
}

TEST_F(UserFunctions, TheResultIsNotTheirsToChange) {
    Add("SPOIL", [](ZbEvalState* state) -> int32_t {
        state->ResultBlock = 12345;
        state->ResultPtr = nullptr;
        state->ResultType = 'N';
        state->ResultLength = -5;
        state->DateAsKey = 1;
        return GiveText(state, "!");
    });
    EXPECT_EQ(TextOf("CITY+SPOIL+DTOC(BORN)"), "BONN !02/29/96");
}

TEST_F(UserFunctions, AResultThatWasFreedOrCutFails) {
    static int way;
    Add("FREE", [](ZbEvalState* state) -> int32_t {
        if (way == 0) ZBMFREE(state->ResultPtr);
        if (way == 1) _ZBMFREE(state->ResultBlock);
        if (way == 2) {
            ZbBlock block = state->ResultBlock;
            _ZBMRALLOC(&block, 0);
        }
        return GiveText(state, "!");
    });
    std::string longText = "STR(1,1000)";
    for (way = 0; way < 3; way++) EXPECT_EQ(FailureOf(longText + "+FREE+NAME"), -58) << way;
    for (way = 0; way < 2; way++) EXPECT_EQ(FailureOf("FREE"), -58) << way;
}

TEST_F(UserFunctions, MayFillTheResultsBlock) {
    Add("FILL", [](ZbEvalState* state) -> int32_t {
        memset(state->ResultPtr, 'f', 129);
        return GiveText(state, "!");
    });
    EXPECT_EQ(TextOf("CITY+FILL"), "fffff!");
}

TEST_F(UserFunctions, EvaluateOtherExpressions) {
    Add("IN(", [](ZbEvalState* state) -> int32_t {
        char text[] = "DTOC(BORN)+IN2+LEFT(NAME,1)";
        ZbEvalResult result;
        EXPECT_EQ(ZBDXPROC(), 0);
        ZbBlock block = state->ValueBlock;
        char* cursor = state->Cursor;
        EXPECT_EQ(ZBDXEVAL(host.data, text, &result), 0);
        host.seen = static_cast<char*>(result.value);
        ZBMFREE(result.value);
        EXPECT_EQ(state->ValueBlock, block);
        EXPECT_EQ(state->Cursor, cursor);
        char wrong[] = "NAME+1";
        EXPECT_EQ(ZBDXEVAL(host.data, wrong, &result), -7);
        ZBESCODE(0);
        EXPECT_EQ(ZBDXEVAL(999, wrong, &result), -13);
        ZBESCODE(0);
        EXPECT_EQ(state->ValueBlock, block);
        if (*state->Cursor == ')') state->Cursor++;
        return 0;
    });
    Add("IN2", One);
    EXPECT_EQ(TextOf("NAME+IN(CITY)+X"), "ANNA      BONN X");
    EXPECT_EQ(host.seen, "02/29/96oneA");
    EXPECT_EQ(TextOf("DTOS(IN(BORN))"), "19960229");
    EXPECT_EQ(host.seen, "02/29/96oneA") << "the other expression isn't DTOS's argument";
}

TEST_F(UserFunctions, EvaluationsInEvaluationsEndAt256) {
    Add("DEEP", [](ZbEvalState*) -> int32_t {
        host.calls++;
        char text[] = "DEEP";
        ZbEvalResult result;
        return ZBDXEVAL(host.data, text, &result);
    });
    EXPECT_EQ(FailureOf("DEEP"), -7);
    EXPECT_EQ(host.calls, 256);
}

TEST_F(UserFunctions, CallThemselvesThroughTheirArgument) {
    Add("R(", [](ZbEvalState* state) -> int32_t {
        int32_t code = ZBDXPROC();
        if (*state->Cursor == ')') state->Cursor++;
        return code;
    });
    std::string text;
    while (text.size() < 10000) text += "R(";
    EXPECT_EQ(FailureOf(text), -7);
}

TEST_F(UserFunctions, MayCloseTheDataFile) {
    Add("CLOSE", [](ZbEvalState* state) -> int32_t {
        ZBDDCLOSE(host.data);
        return GiveText(state, "closed");
    });
    EXPECT_EQ(FailureOf("NAME+CLOSE+CITY"), -13);
    Open();
    EXPECT_EQ(TextOf("NAME+CLOSE"), "ANNA      closed") << "no field is read after it";
}

TEST_F(UserFunctions, MayBindOtherFilesAndMoveToAnotherRecord) {
    WritePeople("other.dbf");
    Add("GO", [](ZbEvalState* state) -> int32_t {
        uint16_t other;
        EXPECT_EQ(ZBDDOPENX(&other, "other.dbf", 1), 0);
        EXPECT_EQ(ZBDDRGET(static_cast<int16_t>(other), 2), 0);
        EXPECT_EQ(ZBDDCLOSE(static_cast<int16_t>(other)), 0);
        EXPECT_EQ(ZBDDRGET(host.data, 2), 0);
        return GiveText(state, "|");
    });
    EXPECT_EQ(TextOf("CITY+GO+CITY"), "BONN |     ");
}

TEST_F(UserFunctions, MayGiveTheRecordsOwnBlockAway) {
    Add("REC", [](ZbEvalState* state) -> int32_t {
        ZbDataRecordInfo info;
        EXPECT_EQ(ZBDDRINFOH(host.data, &info), 0);
        state->ValueBlock = static_cast<ZbBlock>(info.buffer);
        state->ValueType = 'C';
        state->ValueLength = 49;
        return 0;
    });
    EXPECT_EQ(FailureOf("REC+NAME"), -58);
}

TEST_F(UserFunctions, MayStopTheLibrary) {
    Add("STOP", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "x");
        ZBDTERM();
        return 0;
    });
    EXPECT_EQ(Eval("NAME+STOP+NAME").code, -59);
    EXPECT_EQ(ZBECODE(), -59);
    ASSERT_EQ(ZBDINIT(100, 1), 0);
    Open();
    Add("RESTART", [](ZbEvalState* state) -> int32_t {
        GiveText(state, "x");
        ZBDINIT(100, 1);
        return 0;
    });
    EXPECT_EQ(FailureOf("NAME+RESTART+NAME"), -13);
}

TEST_F(UserFunctions, MayChangeTheTableOfFunctions) {
    Add("SELF", [](ZbEvalState* state) -> int32_t {
        Delete("SELF");
        return GiveText(state, "s");
    });
    EXPECT_EQ(TextOf("SELF+SELF"), "sSELF");
    Add("MAKE", [](ZbEvalState* state) -> int32_t {
        for (int i = 0; i < 50; i++) Add("X" + std::to_string(10 + i), One);
        return GiveText(state, "m");
    });
    EXPECT_EQ(TextOf("MAKE+X33+X59"), "moneone");
}

TEST_F(UserFunctions, MayRewriteTheText) {
    static int way;
    Add("WRITE", [](ZbEvalState* state) -> int32_t {
        if (way == 0 && *state->Cursor) memcpy(state->Cursor, "+city", 5);
        if (way == 1) *state->Cursor = 0;
        if (way == 2) memset(state->Cursor, '(', strlen(state->Cursor));
        return GiveText(state, "w");
    });
    way = 0;
    EXPECT_EQ(TextOf("WRITE+XXXX+WRITE"), "wBONN w") << "turned to upper case again";
    way = 1;
    EXPECT_EQ(TextOf("WRITE+XXXX"), "w");
    way = 2;
    EXPECT_EQ(FailureOf("WRITE+ABCDEFGHIJKLMNOP"), -7);
}

TEST_F(UserFunctions, ArgumentsCantBeReadOutsideAnEvaluation) {
    uint16_t number = 99;
    EXPECT_EQ(ZBDXPROC(), -7);
    EXPECT_EQ(ZBECODE(), -7);
    EXPECT_EQ(ZBDXPROC(), -7);
    ZBESCODE(0);
    EXPECT_EQ(ZBDXVGET(&number), -7);
    EXPECT_EQ(number, 99);
    ZBESCODE(0);
    Eval("NAME");
    EXPECT_EQ(ZBDXPROC(), -7) << "nor behind one";
    ZBESCODE(-33);
    EXPECT_EQ(ZBDXPROC(), -33);
    EXPECT_EQ(ZBDXVGET(&number), -33);
}

TEST_F(UserFunctions, NullArgumentOfTheIntegerRead) {
    Add("NULL(", [](ZbEvalState*) -> int32_t { return ZBDXVGET(nullptr); });
    EXPECT_EQ(FailureOf("NULL(,5)"), -21);
}

TEST_F(UserFunctions, IntegersAreUnsignedSixteenBits) {
    static uint16_t got;
    Add("INT(", [](ZbEvalState* state) -> int32_t {
        state->Cursor--;
        if (int32_t code = ZBDXVGET(&got); code < 0) return code;
        if (*state->Cursor == ')') state->Cursor++;
        return GiveText(state, "");
    });
    TextOf("INT(40000)");
    EXPECT_EQ(got, 40000);
    TextOf("INT(-1)");
    EXPECT_EQ(got, 65535);
    TextOf("INT(65537)");
    EXPECT_EQ(got, 1);
    TextOf("INT(X)");
    EXPECT_EQ(got, 0);
    EXPECT_EQ(FailureOf("INT()"), -7);
    EXPECT_EQ(FailureOf("INT(5"), -7);
    EXPECT_EQ(FailureOf("INT("), -7);
}

}  // namespace
}  // namespace test
