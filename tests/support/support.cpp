#include "support/support.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support/system.h"

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
    if (Bytes held; !file && ReadHeld(name, offset, count, &held)) return held;
    size_t size = file ? static_cast<size_t>(file.tellg()) : 0;
    if (offset >= size) return {};
    Bytes bytes(std::min(count, size - offset), '\0');
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void WriteFile(const std::string& name, std::string_view bytes) {
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    if (!file && WriteHeld(name, 0, bytes, true)) return;
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void PatchFile(const std::string& name, size_t offset, std::string_view bytes) {
    std::fstream file(name, std::ios::binary | std::ios::in | std::ios::out);
    if (!file && WriteHeld(name, offset, bytes, false)) return;
    file.seekp(static_cast<std::streamoff>(offset));
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string Readable(const std::string& name) {
    Bytes bytes;
    if (std::ifstream(name) || !ReadHeld(name, 0, SIZE_MAX, &bytes)) return name;
    WriteFile(name + ".copy", bytes);
    return name + ".copy";
}

bool FileExists(const std::string& name) { return fs::exists(name); }

void WriteProfile(std::string_view contents) { WriteFile(ProfilePath(), contents); }

size_t FileSize(const std::string& name) { return fs::exists(name) ? fs::file_size(name) : 0; }

DirectoryTest::DirectoryTest() {
    static int number = 0;
    previous = fs::current_path().string();
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    fs::path path = fs::temp_directory_path() / ("zb-" + std::to_string(OwnProcess()) + "-" +
                                                 std::to_string(number++) + "-" + info->name());
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
    fs::remove(ProfilePath(), ignored);
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

}  // namespace test
