#define NOMINMAX
#include <windows.h>

#include <algorithm>

#include "support/system.h"

namespace test {
namespace {

// Calls `use` with an open handle of this process to a file, its position as it
// was afterwards, until that succeeds.
template <class Use>
bool WithHeld(const std::string& name, Use use) {
    // For its attributes alone a file opens beside anybody.
    HANDLE asked = CreateFileA(name.c_str(), 0, 7, nullptr, OPEN_EXISTING, 0, nullptr);
    if (asked == INVALID_HANDLE_VALUE) return false;
    BY_HANDLE_FILE_INFORMATION wanted, found;
    bool done = GetFileInformationByHandle(asked, &wanted);
    CloseHandle(asked);
    if (!done) return false;
    done = false;
    for (LONG value = 4; value < 0x2000 && !done; value += 4) {
        HANDLE handle = LongToHandle(value);
        if (GetFileType(handle) != FILE_TYPE_DISK || !GetFileInformationByHandle(handle, &found) ||
            found.nFileIndexLow != wanted.nFileIndexLow || found.nFileIndexHigh != wanted.nFileIndexHigh ||
            found.dwVolumeSerialNumber != wanted.dwVolumeSerialNumber)
            continue;
        LONG position = static_cast<LONG>(SetFilePointer(handle, 0, nullptr, FILE_CURRENT));
        done = use(handle);
        SetFilePointer(handle, position, nullptr, FILE_BEGIN);
    }
    return done;
}

}  // namespace

int OwnProcess() { return static_cast<int>(GetCurrentProcessId()); }

std::string ProfilePath() {
    char directory[MAX_PATH];
    GetWindowsDirectoryA(directory, sizeof directory);
    return std::string(directory) + "\\QVDB4XX.INI";
}

bool RemovesOpenFiles() { return false; }

bool OpensLongNames() { return false; }

bool ReadHeld(const std::string& name, size_t offset, size_t count, std::string* bytes) {
    return WithHeld(name, [=](HANDLE file) {
        size_t size = GetFileSize(file, nullptr);
        bytes->assign(offset < size ? std::min(count, size - offset) : 0, 0);
        SetFilePointer(file, static_cast<LONG>(offset), nullptr, FILE_BEGIN);
        DWORD done;
        return ReadFile(file, bytes->data(), static_cast<DWORD>(bytes->size()), &done, nullptr) &&
               done == bytes->size();
    });
}

bool WriteHeld(const std::string& name, size_t offset, std::string_view bytes, bool cut) {
    return WithHeld(name, [=](HANDLE file) {
        SetFilePointer(file, static_cast<LONG>(offset), nullptr, FILE_BEGIN);
        DWORD done;
        if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr)) return false;
        return !cut || SetEndOfFile(file);
    });
}

}  // namespace test
