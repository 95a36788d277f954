// What all tests share: a directory of their own, files as bytes, the library
// started and stopped around each test, and other processes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "zb.h"

namespace test {

using Bytes = std::string;

// Bytes from hex digits, blanks passed over: Hex("03 1F") is "\x03\x1F".
Bytes Hex(std::string_view digits);

// `count` times one byte.
inline Bytes Fill(size_t count, int byte = 0) { return Bytes(count, static_cast<char>(byte)); }

// A file's bytes, from `offset` on, at most `count`; empty when it can't be read.
Bytes ReadFile(const std::string& name, size_t offset = 0, size_t count = SIZE_MAX);
void WriteFile(const std::string& name, std::string_view bytes);
void PatchFile(const std::string& name, size_t offset, std::string_view bytes);
bool FileExists(const std::string& name);
size_t FileSize(const std::string& name);

// Runs in an empty directory of its own, which is the current one and goes away
// at the end.
class DirectoryTest : public testing::Test {
  protected:
    DirectoryTest();
    ~DirectoryTest() override;

    std::string directory;

  private:
    std::string previous;
};

// The same with the library started (100, style 1), and stopped at the end.
class LibraryTest : public DirectoryTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // The lines that a call wrote to the log, as (unit, code).
    struct LogEntry {
        std::string unit;
        int code;
        bool operator==(const LogEntry&) const = default;
    };
    // Switches the log on, to a file of the test's, and empties it.
    void StartLog();
    std::vector<LogEntry> Log();
};

#if !defined(_WIN32)
// Another process, forked from this one before it starts work, that runs
// `body` and reports by its exit status; 0 when every check in it passed. The
// two can keep step by Tell and Await, a byte each way.
class Process {
  public:
    explicit Process(std::function<int(Process&)> body);
    ~Process();
    void Tell(char byte = '.');
    char Await();  // 0 when the other side has ended
    int Wait();    // its exit status; minus the signal that killed it
    void Kill();   // SIGKILL

  private:
    int pid = -1;
    int in = -1;
    int out = -1;
};
#endif

}  // namespace test
