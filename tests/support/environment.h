// An environment variable with another value, or without one, for a while.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace test {

class Environment {
  public:
    // A null value takes the variable away.
    Environment(const char* variable, const char* value) : name(variable) {
        if (const char* now = getenv(variable)) before = now;
        Set(value);
    }
    ~Environment() { Set(before ? before->c_str() : nullptr); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    void Set(const char* value) {
#if defined(_WIN32)
        _putenv_s(name.c_str(), value ? value : "");
#else
        if (value)
            setenv(name.c_str(), value, 1);
        else
            unsetenv(name.c_str());
#endif
    }

  private:
    std::string name;
    std::optional<std::string> before;
};

}  // namespace test
