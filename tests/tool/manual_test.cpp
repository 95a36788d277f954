// Help, manual pages and completion.
#include <algorithm>
#include <filesystem>

#include "programs.h"

namespace test {
namespace {

const std::vector<Arguments> kCommands{
    {"info"},          {"list"},          {"export"},         {"import"},        {"create"},
    {"append"},        {"set"},           {"delete"},         {"recall"},        {"pack"},
    {"check"},         {"repair"},        {"diff"},           {"locks"},         {"memo"},
    {"memo", "show"},  {"memo", "put"},   {"memo", "pack"},   {"index"},         {"index", "create"},
    {"index", "info"}, {"index", "list"}, {"index", "check"}, {"index", "tags"}, {"index", "erase"},
    {"find"},          {"eval"}};

TEST_F(Tool, EachCommandHasExamples) {
    for (Arguments command : kCommands) {
        std::string line = "zb";
        for (const std::string& word : command) line += " " + word;
        command.push_back("--help");
        Result help = Zb(command);
        EXPECT_EQ(help.status, 0);
        size_t examples = help.out.find("Examples:\n");
        ASSERT_NE(examples, std::string::npos) << line;
        EXPECT_NE(help.out.find("\n  " + line + " ", examples), std::string::npos) << help.out;
    }
}

TEST_F(Tool, EachCommandHasAManualPage) {
    EXPECT_EQ(Zb({"--man-pages", "man"}).status, 0);
    size_t pages = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("man")) ++pages;
    EXPECT_EQ(pages, kCommands.size() + 1);
    for (const Arguments& command : kCommands) {
        std::string name = "zb";
        for (const std::string& word : command) name += "-" + word;
        Bytes page = ReadFile("man/" + name + ".1");
        Arguments words{"--man"};
        words.insert(words.end(), command.begin(), command.end());
        EXPECT_EQ(Zb(words).out, page);
        for (const char* heading : {".TH ZB\\-", ".SH NAME\n", ".SH SYNOPSIS\n", ".SH OPTIONS\n",
                                    ".SH EXAMPLES\n", ".SH EXIT STATUS\n"})
            EXPECT_NE(page.find(heading), std::string::npos) << name << heading;
    }
    Bytes page = ReadFile("man/zb-list.1");
    EXPECT_NE(page.find(".TP\n\\fB\\-\\-deleted\\fR \\fIskip|include|only\\fR\n"), std::string::npos) << page;
    EXPECT_NE(page.find("\\fBzb list\\fR \\fIFILE\\fR [\\fIOPTION\\fR...]\n"), std::string::npos) << page;
    EXPECT_NE(ReadFile("man/zb.1").find("\\fBzb list\\fR\n"), std::string::npos);
    EXPECT_EQ(Zb({"--man", "nonsense"}).status, 2);
}

TEST_F(Tool, ManualPagesFormatWithoutComplaint) {
    ASSERT_EQ(Shell("command -v groff").status, 0) << "groff isn't installed (see scripts/packages)";
    ASSERT_EQ(Zb({"--man-pages", "man"}).status, 0);
    Result result = Shell("groff -man -Tutf8 -ww man/*.1 > /dev/null");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.status, 0);
}

// What bash offers at the end of a line.
std::string Offered(const std::string& words) {
    Result result = Shell("bash -c 'source ./completion; COMP_WORDS=(" + words +
                          "); COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _zb; printf \"%s \" \"${COMPREPLY[@]}\"'");
    return result.out;
}

TEST_F(Tool, CompletionInBash) {
    WriteFile("completion", Zb({"--completion", "bash"}).out);
    WriteFile("people.dbf", "");
    EXPECT_EQ(Offered("zb in"), "info index ");
    EXPECT_EQ(Offered("zb index cr"), "create ");
    EXPECT_EQ(Offered("zb list --de"), "--deleted ");
    EXPECT_EQ(Offered("zb list --deleted \"\""), "skip include only ");
    EXPECT_EQ(Offered("zb list --deleted i"), "include ");
    EXPECT_EQ(Offered("zb list peo"), "people.dbf ");
    EXPECT_EQ(Offered("zb export x --output peo"), "people.dbf ");
    EXPECT_EQ(Offered("zb index create --un"), "--unique ");
    EXPECT_EQ(Offered("zb list --limit peo"), " ");
}

TEST_F(Tool, CompletionInOtherShells) {
    std::string fish = Zb({"--completion", "fish"}).out;
    EXPECT_NE(
        fish.find(
            "complete -c zb -n '__fish_seen_subcommand_from list' -l deleted -x -a 'skip include only'"),
        std::string::npos);
    std::string zsh = Zb({"--completion", "zsh"}).out;
    EXPECT_EQ(zsh.rfind("#compdef zb\n", 0), 0u);
    EXPECT_NE(zsh.find("'--deleted[Deleted records]:skip|include|only:(skip include only)'"),
              std::string::npos);
    EXPECT_EQ(Zb({"--completion", "csh"}).status, 2);
    for (const char* shell : {"zsh", "fish"}) {
        if (Shell(std::string("command -v ") + shell).status != 0) continue;
        WriteFile("script", shell == std::string("zsh") ? zsh : fish);
        Result parsed = Shell(std::string(shell) + " -n script");
        EXPECT_EQ(parsed.out, "") << shell;
        EXPECT_EQ(parsed.status, 0) << shell;
    }
}

TEST_F(Tool, MistakesBringTheNextStep) {
    WriteFile("people.dbf", Table({{"NAME", 'C', 3}}, {}));
    EXPECT_EQ(Zb({"lsit", "people.dbf"}).err,
              "zb: there is no command 'lsit'; did you mean zb list? (zb --help tells more)\n");
    EXPECT_EQ(Zb({"list", "people.dbf", "--nonsense"}).err,
              "zb: The following argument was not expected: --nonsense (zb list --help tells more)\n");
    EXPECT_NE(Zb({"list", "poeple.dbf"}).err.find("there is no such file, did you mean people.dbf?\n"),
              std::string::npos);
    EXPECT_NE(Zb({"list", "people.dbf", "--fields", "NAMES"})
                  .err.find("there is no field NAMES, did you mean NAME? (zb info shows all)\n"),
              std::string::npos);
}

}  // namespace
}  // namespace test
