// What a test has to know of the system it runs on.
#pragma once

#include <string>
#include <string_view>

namespace test {

// The number of this process.
int OwnProcess();

// Where the system looks for the profile file first.
std::string ProfilePath();

// Whether the name of a file can be removed while the file is open.
bool RemovesOpenFiles();

// Whether names of more than 260 bytes can be opened.
bool OpensLongNames();

// Bytes of a file that this process itself holds alone, as many as there are from an
// offset up to a count, and a change of them.
// False where that isn't the case, or where the system lets a process into its own
// files by any way.
bool ReadHeld(const std::string& name, size_t offset, size_t count, std::string* bytes);
bool WriteHeld(const std::string& name, size_t offset, std::string_view bytes, bool cut);

}  // namespace test
