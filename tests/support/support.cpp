#include "support/support.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

namespace test {

namespace fs = std::filesystem;

Bytes Hex(std::string_view digits) {
    Bytes bytes;
    int high = -1;
    for (char c : digits) {
        if (c == ' ' || c == '\n') continue;
        int value = c <= '9' ? c - '0' : (c & ~0x20) - 'A' + 10;
        if (high < 0) {
            high = value;
        } else {
            bytes += static_cast<char>(high << 4 | value);
            high = -1;
        }
    }
    return bytes;
}

Bytes ReadFile(const std::string& name, size_t offset, size_t count) {
    std::ifstream file(name, std::ios::binary | std::ios::ate);
    size_t size = file ? static_cast<size_t>(file.tellg()) : 0;
    if (offset >= size) return {};
    Bytes bytes(std::min(count, size - offset), '\0');
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void WriteFile(const std::string& name, std::string_view bytes) {
    std::ofstream(name, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void PatchFile(const std::string& name, size_t offset, std::string_view bytes) {
    std::fstream file(name, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool FileExists(const std::string& name) { return fs::exists(name); }

size_t FileSize(const std::string& name) { return fs::exists(name) ? fs::file_size(name) : 0; }

DirectoryTest::DirectoryTest() {
    static int number = 0;
    previous = fs::current_path().string();
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
#if defined(_WIN32)
    int process = 0;
#else
    int process = getpid();
#endif
    fs::path path = fs::temp_directory_path() /
                    ("zb-" + std::to_string(process) + "-" + std::to_string(number++) + "-" + info->name());
    std::string text = path.string();
    for (char& c : text)
        if (c == '/' && &c > text.data() + fs::temp_directory_path().string().size()) c = '-';
    fs::create_directories(text);
    directory = text;
    fs::current_path(directory);
}

DirectoryTest::~DirectoryTest() {
    fs::current_path(previous);
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

void LibraryTest::SetUp() { ASSERT_EQ(ZBDINIT(100, 1), 0); }

void LibraryTest::TearDown() { ZBDTERM(); }

void LibraryTest::StartLog() {
    char name[30] = "test.log";
    WriteFile(name, "");
    ZBESLOG(1, name);
}

std::vector<LibraryTest::LogEntry> LibraryTest::Log() {
    std::vector<LogEntry> entries;
    std::ifstream file("test.log");
    std::string line;
    while (std::getline(file, line)) {
        auto first = line.find('\t');
        auto second = line.find('\t', first + 1);
        if (second == std::string::npos) continue;
        entries.push_back({line.substr(0, first), std::stoi(line.substr(second + 1))});
    }
    return entries;
}

#if !defined(_WIN32)
Process::Process(std::function<int(Process&)> body) {
    int down[2], up[2];
    if (pipe(down) || pipe(up)) abort();
    pid = fork();
    if (pid == 0) {
        close(down[1]);
        close(up[0]);
        in = down[0];
        out = up[1];
        int status = body(*this);
        if (testing::Test::HasFailure()) status = 99;
        _exit(status);
    }
    close(down[0]);
    close(up[1]);
    in = up[0];
    out = down[1];
}

Process::~Process() {
    if (pid > 0) {
        Kill();
        Wait();
    }
    close(in);
    close(out);
}

void Process::Tell(char byte) {
    if (write(out, &byte, 1) != 1) ADD_FAILURE() << "the other process has gone";
}

char Process::Await() {
    char byte = 0;
    return read(in, &byte, 1) == 1 ? byte : 0;
}

int Process::Wait() {
    int status = 0;
    if (pid > 0) waitpid(pid, &status, 0);
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Process::Kill() { kill(pid, SIGKILL); }
#endif

}  // namespace test
