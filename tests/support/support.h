// What all tests share: a directory of their own, files as bytes, the library
// started and stopped around each test, and other processes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "support/process.h"
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

// The name of a file with the same bytes that anybody may open: the same one, or a
// copy where the system doesn't let a process into a file that it holds alone.
std::string Readable(const std::string& name);

// Writes the profile file where it is looked for first; it goes away with the
// test's directory.
void WriteProfile(std::string_view contents);

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

}  // namespace test
