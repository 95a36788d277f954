// How a command ends when it can't do what it was asked for: one line on
// standard error and an exit status that tells the kinds of failure apart.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace tool {

enum class Exit {
    ok = 0,
    other = 1,     // any failure that isn't one of those below
    usage = 2,     // the command line makes no sense
    notFound = 3,  // a file, a field or a record that isn't there
    damaged = 4,   // the file's contents aren't what such a file has to hold
    warned = 5,    // a check found oddities, and no damage
};

class Failure : public std::runtime_error {
  public:
    Failure(Exit exitStatus, const std::string& line) : std::runtime_error(line), status(exitStatus) {}
    Exit status;
};

// "ErrOpen (-46): a file couldn't be opened or created"
std::string DescribeCode(int code);

// The failure that a code of the library stands for, about the file `subject`.
// `detail` adds what the command knows beyond the code.
Failure CodeFailure(int code, const std::string& subject, const std::string& detail = {});

// Clears the library's code and throws when `code` is a failure; hands warnings on.
int Check(int code, const std::string& subject, const std::string& detail = {});

}  // namespace tool
