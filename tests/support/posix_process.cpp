#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support/process.h"

namespace test {

Process::Process(std::function<int(Process&)> body) {
    int down[2], up[2];
    if (pipe(down) || pipe(up)) abort();
    signal(SIGPIPE, SIG_IGN);
    pid_t child = fork();
    if (child == 0) {
        close(down[1]);
        close(up[0]);
        in = down[0];
        out = up[1];
        int status = body(*this);
        if (testing::Test::HasFailure()) status = 99;
        _exit(status);
    }
    id = child;
    close(down[0]);
    close(up[1]);
    in = up[0];
    out = down[1];
}

Process::~Process() {
    if (id > 0) {
        Kill();
        Wait();
    }
    close(static_cast<int>(in));
    close(static_cast<int>(out));
}

void Process::Tell(char byte) {
    if (write(static_cast<int>(out), &byte, 1) != 1) ADD_FAILURE() << "the other process has gone";
}

char Process::Await() {
    char byte = 0;
    return read(static_cast<int>(in), &byte, 1) == 1 ? byte : '\0';
}

int Process::Wait() {
    int status = 0;
    if (id > 0) waitpid(static_cast<pid_t>(id), &status, 0);
    id = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Process::Kill() { kill(static_cast<pid_t>(id), SIGKILL); }

}  // namespace test
