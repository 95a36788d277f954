#include "tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace test {
namespace {

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const Arguments& variables) {
    std::vector<std::string> all;
    for (char** variable = environ; *variable != nullptr; ++variable)
        if (std::string(*variable).rfind("NO_COLOR=", 0) != 0) all.push_back(*variable);
    all.insert(all.end(), variables.begin(), variables.end());
    return all;
}

int Wait(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// Reads until the other side has closed all of them.
void Drain(std::vector<std::pair<int, std::string*>> ends) {
    while (!ends.empty()) {
        std::vector<pollfd> waiting;
        for (auto& end : ends) waiting.push_back({end.first, POLLIN, 0});
        poll(waiting.data(), waiting.size(), -1);
        for (size_t index = ends.size(); index-- > 0;) {
            if (waiting[index].revents == 0) continue;
            char piece[4096];
            ssize_t length = read(ends[index].first, piece, sizeof piece);
            if (length > 0) {
                ends[index].second->append(piece, static_cast<size_t>(length));
                continue;
            }
            close(ends[index].first);
            ends.erase(ends.begin() + static_cast<ptrdiff_t>(index));
        }
    }
}

pid_t Spawn(const Arguments& arguments, const Arguments& variables, int in, int out, int err) {
    std::vector<std::string> words{ZB_TOOL};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = Environment(variables);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, 0);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    pid_t pid = -1;
    if (posix_spawn(&pid, ZB_TOOL, &actions, nullptr, Pointers(words).data(), Pointers(environment).data()) !=
        0)
        ADD_FAILURE() << "can't run " << ZB_TOOL;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

}  // namespace

Result Zb(const Arguments& arguments, const std::string& input, const Arguments& variables) {
    WriteFile("stdin.tmp", input);
    int in = open("stdin.tmp", O_RDONLY | O_CLOEXEC);
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) abort();
    pid_t pid = Spawn(arguments, variables, in, out[1], err[1]);
    close(in);
    close(out[1]);
    close(err[1]);
    Result result;
    Drain({{out[0], &result.out}, {err[0], &result.err}});
    result.status = Wait(pid);
    unlink("stdin.tmp");
    return result;
}

Result ZbOnTerminal(const Arguments& arguments, const std::string& typed, const Arguments& variables) {
    int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    grantpt(terminal);
    unlockpt(terminal);
    int end = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (write(terminal, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) abort();
    pid_t pid = Spawn(arguments, variables, end, end, end);
    close(end);
    Result result;
    Drain({{terminal, &result.out}});
    result.status = Wait(pid);
    return result;
}

Bytes Table(const std::vector<Column>& columns, const std::vector<std::string>& records, int language,
            int version) {
    auto le16 = [](size_t value) {
        return Bytes{static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
    };
    size_t length = 1;
    Bytes descriptors;
    for (const Column& column : columns) {
        Bytes descriptor = column.name;
        descriptor.resize(32);
        descriptor[11] = column.type;
        descriptor[16] = static_cast<char>(column.width);
        descriptor[17] = static_cast<char>(column.decimals);
        descriptors += descriptor;
        length += static_cast<size_t>(column.width);
    }
    Bytes header{static_cast<char>(version), 124, 2, 29};
    header += le16(records.size()) + le16(0) + le16(32 * columns.size() + 33) + le16(length);
    header.resize(32);
    header[29] = static_cast<char>(language);
    Bytes table = header + descriptors + "\x0D";
    for (const std::string& record : records) {
        EXPECT_EQ(record.size(), length) << record;
        table += record;
    }
    return table + "\x1A";
}

}  // namespace test
