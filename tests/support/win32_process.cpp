#include <gtest/gtest.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "support/environment.h"
#include "support/process.h"

namespace test {
namespace {

namespace fs = std::filesystem;

// Tells a program that it is the other process of a test: which of them, counted
// from 1, its ends of the two pipes, and the directory of the test.
constexpr char RoleVariable[] = "ZB_TEST_PROCESS";

constexpr UINT Killed = static_cast<UINT>(-9);

HANDLE HandleOf(intptr_t value) { return reinterpret_cast<HANDLE>(value); }

// The number of a process among those of the running test, from 1.
int NextNumber() {
    static const testing::TestInfo* counted = nullptr;
    static int number = 0;
    auto* running = testing::UnitTest::GetInstance()->current_test_info();
    if (running != counted) number = 0;
    counted = running;
    return ++number;
}

int FailuresSoFar() {
    return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// A pipe of which one end goes to the other process.
void MakePipe(HANDLE* reads, HANDLE* writes, HANDLE* given) {
    if (!CreatePipe(reads, writes, nullptr, 0)) abort();
    if (!SetHandleInformation(*given, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)) abort();
}

// Runs the test that is running once more, in that role.
HANDLE StartAgain(const std::string& role, const std::string& temporary) {
    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, sizeof program);
    auto* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string command = std::string("\"") + program +
                          "\" --gtest_brief=1 --gtest_filter=" + test->test_suite_name() + "." + test->name();
    Environment roleOf(RoleVariable, role.c_str());
    Environment directory("TMP", temporary.c_str());
    Environment shards("GTEST_TOTAL_SHARDS", nullptr), shard("GTEST_SHARD_INDEX", nullptr);
    // What it says on its way to the body is of no interest.
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    HANDLE nowhere = CreateFileA("NUL", GENERIC_WRITE, 7, &inherited, OPEN_EXISTING, 0, nullptr);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = nowhere;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process;
    if (!CreateProcessA(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process))
        abort();
    CloseHandle(nowhere);
    CloseHandle(process.hThread);
    return process.hProcess;
}

}  // namespace

Process::Process(std::function<int(Process&)> body) {
    int number = NextNumber();
    if (const char* role = getenv(RoleVariable)) {
        int wanted = 0, directory = 0;
        long long reads = 0, writes = 0;
        sscanf(role, "%d %lld %lld %n", &wanted, &reads, &writes, &directory);
        // One of the others of the test: not here.
        if (number != wanted) return;
        in = static_cast<intptr_t>(reads);
        out = static_cast<intptr_t>(writes);
        fs::current_path(role + directory);
        _dup2(2, 1);
        // What failed on the way to here was for want of those others.
        int before = FailuresSoFar();
        int status = body(*this);
        if (FailuresSoFar() != before) status = 99;
        fflush(stdout);
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    }
    HANDLE downReads, downWrites, upReads, upWrites;
    MakePipe(&downReads, &downWrites, &downReads);
    MakePipe(&upReads, &upWrites, &upWrites);
    // Within the test's own, so that it goes away with that.
    std::string temporary = (fs::current_path() / ("other" + std::to_string(number))).string();
    fs::create_directory(temporary);
    std::string role = std::to_string(number) + " " + std::to_string(reinterpret_cast<intptr_t>(downReads)) +
                       " " + std::to_string(reinterpret_cast<intptr_t>(upWrites)) + " " +
                       fs::current_path().string();
    id = reinterpret_cast<intptr_t>(StartAgain(role, temporary));
    CloseHandle(downReads);
    CloseHandle(upWrites);
    in = reinterpret_cast<intptr_t>(upReads);
    out = reinterpret_cast<intptr_t>(downWrites);
}

Process::~Process() {
    if (!in) return;
    if (id) {
        Kill();
        Wait();
    }
    CloseHandle(HandleOf(in));
    CloseHandle(HandleOf(out));
}

void Process::Tell(char byte) {
    if (!in) return;
    DWORD done;
    if (!WriteFile(HandleOf(out), &byte, 1, &done, nullptr)) ADD_FAILURE() << "the other process has gone";
}

char Process::Await() {
    if (!in) return '.';
    char byte = 0;
    DWORD done = 0;
    return ReadFile(HandleOf(in), &byte, 1, &done, nullptr) && done == 1 ? byte : '\0';
}

int Process::Wait() {
    if (!id) return 0;
    DWORD status = 0;
    WaitForSingleObject(HandleOf(id), INFINITE);
    GetExitCodeProcess(HandleOf(id), &status);
    CloseHandle(HandleOf(id));
    id = 0;
    return static_cast<int>(status);
}

void Process::Kill() {
    if (id) TerminateProcess(HandleOf(id), Killed);
}

}  // namespace test
