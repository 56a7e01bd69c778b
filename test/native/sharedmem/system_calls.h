// The system calls below the shared memory classes, in the hands of a test: it can make the next
// one of a kind fail, and sees which were made. Calls that nobody prepared reach the system.
//
// A program that uses it is linked with --wrap for each of the calls in system_calls.cc.

#ifndef TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_
#define TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_

#include <algorithm>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

struct SystemCalls {
  // Lets `passed` more calls of `name` through and fails the `times` after them with `error`.
  // mmap with error 0 succeeds at address 0.
  void fail(const std::string& name, int error, int times = 1, int passed = 0) {
    failures[name] = {error, times, passed};
  }

  // Notes a call, and returns the error that it is to fail with.
  std::optional<int> take(const std::string& name) {
    made.push_back(name);
    const auto found = failures.find(name);
    if (found == failures.end()) return std::nullopt;
    Failure& failure = found->second;
    if (failure.passed > 0) {
      --failure.passed;
    } else if (failure.times > 0) {
      --failure.times;
      return failure.error;
    }
    return std::nullopt;
  }

  auto countOf(const std::string& name) const { return std::count(made.begin(), made.end(), name); }

  std::vector<std::string> made;     // by name, in order
  std::vector<timespec> deadlines;   // that sem_timedwait was called with
  std::optional<timespec> wallTime;  // what clock_gettime answers, if set
  std::optional<time_t> second;      // what time answers, if set

  struct Failure {
    int error = 0;
    int times = 0;
    int passed = 0;
  };
  std::map<std::string, Failure> failures;
};

// The one that the calls consult.
SystemCalls& systemCalls();

}  // namespace test

#endif  // TEST_NATIVE_SHAREDMEM_SYSTEM_CALLS_H_
