// Watches one system call of the POSIX platform: counts it, and fails the ones
// that a test picks. For example:
//
//     CallSpy<&zb::PosixCalls::pwrite> writes;
//     writes.Fail(2, ENOSPC);
#pragma once

#include <cerrno>
#include <climits>
#include <type_traits>

#include "platform/posix_calls.h"

namespace test {

// Whether reads come out of mappings: where there are addresses to spare.
inline constexpr bool MapsFiles = sizeof(void*) > 4;

// The table of calls as it was, at the end of the scope.
class RestoredCalls {
  public:
    RestoredCalls() : before(zb::posixCalls) {}
    ~RestoredCalls() { zb::posixCalls = before; }
    RestoredCalls(const RestoredCalls&) = delete;
    RestoredCalls& operator=(const RestoredCalls&) = delete;

  private:
    zb::PosixCalls before;
};

template <auto Member>
class CallSpy;

template <class Result, class... Arguments, Result (*zb::PosixCalls::*Member)(Arguments...)>
class CallSpy<Member> {
  public:
    static constexpr int Forever = INT_MAX;

    CallSpy() {
        plan = {};
        real = zb::posixCalls.*Member;
        zb::posixCalls.*Member = Called;
    }
    ~CallSpy() { zb::posixCalls.*Member = real; }
    CallSpy(const CallSpy&) = delete;
    CallSpy& operator=(const CallSpy&) = delete;

    int Count() const { return plan.count; }

    // Lets `times` calls fail, beginning with the n-th from now (1 is the next).
    void Fail(int nth, int error, int times = 1) {
        plan.first = plan.count + nth;
        plan.times = times;
        plan.error = error;
    }

  private:
    struct Plan {
        int count, first, times, error;
    };

    static Result Called(Arguments... arguments) {
        plan.count++;
        if (plan.times == 0 || plan.count < plan.first || plan.count - plan.first >= plan.times)
            return real(arguments...);
        errno = plan.error;
        if constexpr (std::is_same_v<decltype(Member), decltype(&zb::PosixCalls::realloc)>)
            return nullptr;
        else
            return Result(-1);  // also what a refused mapping is, as an address
    }

    static inline Plan plan;
    static inline Result (*real)(Arguments...);
};

}  // namespace test
