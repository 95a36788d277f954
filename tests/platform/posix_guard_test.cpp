// Page faults of a cut file, and what becomes of the same signal when it means
// something else. Each test runs in a process of its own, started anew, since
// the platform takes the signal once a process.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csetjmp>
#include <csignal>
#include <filesystem>

#include "platform/fixture.h"

namespace test {
namespace {

class PosixGuardDeathTest : public PlatformTest {
  protected:
    PosixGuardDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // The first read out of a mapping, by which the platform takes the signal.
    PlatformHandle ReadMapped() {
        WriteFile("a", Fill(20000, 'a'));
        auto file = Open("a");
        if (ReadAt(file, 10000, 5) != "aaaaa") abort();
        return file;
    }
    // Reads a page that has gone, which the platform survives.
    void ReadGone(PlatformHandle file) {
        std::filesystem::resize_file("a", 0);
        if (!ReadAt(file, 10000, 5).empty()) abort();
        WriteFile("a", Fill(20000, 'a'));
        if (ReadAt(file, 10000, 5) != "aaaaa") abort();
    }
    // A fault of the host's own: nothing of the platform's has to do with it.
    static char* Gone() {
        WriteFile("b", "b");
        int fd = open("b", O_RDWR);
        void* bytes = mmap(nullptr, 8192, PROT_READ, MAP_SHARED, fd, 0);
        std::filesystem::resize_file("b", 0);
        return static_cast<char*>(bytes) + 10;
    }
    static void Touch(char* address) {
        char byte = *const_cast<volatile char*>(address);
        (void)byte;
    }
    static void Take(void (*handler)(int), int flags = 0) {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(SIGBUS, &action, nullptr);
    }

    Environment reads{"ZB_READS", nullptr};
    // The other process leaves its directory behind: in this test's own.
    Environment temporary{"TMPDIR", directory.c_str()};
};

TEST_F(PosixGuardDeathTest, ASentSignalKillsByDefault) {
    EXPECT_EXIT(
        {
            Take(SIG_DFL);
            ReadGone(ReadMapped());
            raise(SIGBUS);
            _exit(0);
        },
        testing::KilledBySignal(SIGBUS), "");
}

TEST_F(PosixGuardDeathTest, AFaultOfTheHostKillsByDefault) {
    EXPECT_EXIT(
        {
            Take(SIG_DFL);
            ReadGone(ReadMapped());
            Touch(Gone());
            _exit(0);
        },
        testing::KilledBySignal(SIGBUS), "");
}

TEST_F(PosixGuardDeathTest, AnIgnoredSignalStaysIgnored) {
    EXPECT_EXIT(
        {
            Take(SIG_IGN);
            auto file = ReadMapped();
            raise(SIGBUS);
            ReadGone(file);
            raise(SIGBUS);
            _exit(5);
        },
        testing::ExitedWithCode(5), "");
}

TEST_F(PosixGuardDeathTest, AFaultOfTheHostKillsAlsoWhereTheSignalIsIgnored) {
    EXPECT_EXIT(
        {
            Take(SIG_IGN);
            ReadMapped();
            Touch(Gone());
            _exit(0);
        },
        testing::KilledBySignal(SIGBUS), "");
}

TEST_F(PosixGuardDeathTest, TheHandlerOfBeforeIsCalled) {
    EXPECT_EXIT(
        {
            Take([](int signal) { _exit(signal == SIGBUS ? 7 : 8); });
            ReadGone(ReadMapped());
            Touch(Gone());
            _exit(0);
        },
        testing::ExitedWithCode(7), "");
}

volatile sig_atomic_t calls;

TEST_F(PosixGuardDeathTest, TheHandlerOfBeforeIsCalledEachTimeItIsSent) {
    EXPECT_EXIT(
        {
            Take([](int) {
                sigset_t blocked;
                sigprocmask(SIG_BLOCK, nullptr, &blocked);
                if (sigismember(&blocked, SIGBUS)) calls = calls + 1;
            });
            ReadMapped();
            raise(SIGBUS);
            raise(SIGBUS);
            _exit(calls);
        },
        testing::ExitedWithCode(2), "");
}

TEST_F(PosixGuardDeathTest, AHandlerForOneCallIsCalledOnce) {
    EXPECT_EXIT(
        {
            Take([](int) { calls = calls + 1; }, static_cast<int>(SA_RESETHAND));
            ReadMapped();
            raise(SIGBUS);
            if (calls != 1) _exit(1);
            raise(SIGBUS);
            _exit(2);
        },
        testing::KilledBySignal(SIGBUS), "");
}

char* expected;

TEST_F(PosixGuardDeathTest, AHandlerThatWantsItLearnsTheAddress) {
    EXPECT_EXIT(
        {
            struct sigaction action {};
            action.sa_sigaction = [](int, siginfo_t* info, void* context) {
                _exit(info->si_addr == expected && context ? 7 : 8);
            };
            action.sa_flags = SA_SIGINFO;
            sigaction(SIGBUS, &action, nullptr);
            ReadGone(ReadMapped());
            expected = Gone();
            Touch(expected);
            _exit(0);
        },
        testing::ExitedWithCode(7), "");
}

sigjmp_buf back;

TEST_F(PosixGuardDeathTest, AHandlerMayJumpOut) {
    EXPECT_EXIT(
        {
            Take([](int) { siglongjmp(back, 1); });
            auto file = ReadMapped();
            char* gone = Gone();
            static int i;
            for (; i < 5; i++) {
                if (sigsetjmp(back, 1) == 0) {
                    Touch(gone);
                    _exit(1);
                }
                ReadGone(file);
            }
            _exit(7);
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(PosixGuardDeathTest, FaultsAreSurvivedAgainAndAgainAndOnASignalStack) {
    EXPECT_EXIT(
        {
            static char memory[65536];
            stack_t stack{};
            stack.ss_sp = memory;
            stack.ss_size = sizeof memory;
            sigaltstack(&stack, nullptr);
            auto file = ReadMapped();
            for (int i = 0; i < 50; i++) ReadGone(file);
            sigset_t blocked;
            sigprocmask(SIG_BLOCK, nullptr, &blocked);
            _exit(sigismember(&blocked, SIGBUS) ? 1 : 7);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace test
