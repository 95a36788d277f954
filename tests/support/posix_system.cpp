#include <unistd.h>

#include "support/system.h"

namespace test {

int OwnProcess() { return getpid(); }

std::string ProfilePath() { return "QVDB4XX.INI"; }

bool RemovesOpenFiles() { return true; }

bool OpensLongNames() { return true; }

bool ReadHeld(const std::string&, size_t, size_t, std::string*) { return false; }

bool WriteHeld(const std::string&, size_t, std::string_view, bool) { return false; }

}  // namespace test
